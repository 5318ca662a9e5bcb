#include "range/equalised_mapping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "KivLUTSetting.h"
#include "common/cpu_features.h"
#include "common/fault_injection.h"
#include "range/equalisation.h"
#include "range/range_test_support.h"
#include "support/log_capture.h"
#include "support/reference_equalisation.h"
#include "support/reference_helpers.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

using testing_support::ForEachPixelType;
using testing_support::LoadRealFrames;
using testing_support::Marker;
using testing_support::RandomRangeImage;
using testing_support::ReferenceAllotSlots;
using testing_support::ReferenceIsValid;
using testing_support::TestSizes;
using testing_support::X86Truncate;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---------------------------------------------------------------------------------------------
// A plain serial restatement of the equalised colouring, one function, one pixel at a time.

enum class Form { kDataRange, kBounds, kColourRange };

struct Request {
  Form form = Form::kDataRange;
  int mapType = 1;
  double low = 0.0;
  double high = 0.0;
  int lo = 0;
  int hi = 255;
  KivColor below;
  KivColor above;
};

std::vector<uint8_t> Entry(int mapType, int64_t index) {
  const ColourEntry& e = SelectColourTable(mapType)[std::clamp<int64_t>(index, 0, 255)];
  return {e[0], e[1], e[2]};
}

template <typename T>
std::vector<uint8_t> ReferenceEqualised(const KivRangeImage& image, const Request& q) {
  const int n = image.Width() * image.Height();
  const T* data = image.Ptr<T>();
  T minimum = PixelTraits<T>::kInitialMin, maximum = PixelTraits<T>::kInitialMax;
  uint32_t count = 0;
  for (int i = 0; i < n; ++i) {
    if (!ReferenceIsValid(data[i])) continue;
    minimum = std::min(minimum, data[i]);
    maximum = std::max(maximum, data[i]);
    ++count;
  }
  const double m = minimum, M = maximum;

  double low = q.low, high = q.high;
  if (std::is_integral_v<T> && q.form != Form::kDataRange) {
    const double r = image.ResolutionZ(), o = image.OffsetZ();
    low = (low + o * r) / r;
    high = static_cast<double>(X86Truncate((high + o * r) / r + 1.0));
  }
  const double margin = std::is_integral_v<T> ? 0.5 : 0.0001;
  switch (q.form) {
    case Form::kDataRange:
      low = m;
      high = M;
      break;
    case Form::kBounds:
      if (!(low - m > margin)) low = m;
      if (!(M - high > margin)) high = M;
      break;
    case Form::kColourRange:
      low = std::max(low, m);
      high = std::min(high, M);
      break;
  }

  const int B = 255;
  const double w = q.form == Form::kColourRange ? (high - low) / B : high / B - low / B;
  const ColourEntry& invalid = InvalidColorTable[q.mapType];
  std::vector<uint8_t> out;
  out.reserve(3 * n);
  auto put = [&out](const std::vector<uint8_t>& c) { out.insert(out.end(), c.begin(), c.end()); };
  const std::vector<uint8_t> invalidBytes = {invalid[0], invalid[1], invalid[2]};

  if (!(w > 1e-8)) {
    const uint32_t low32 = static_cast<uint32_t>(static_cast<uint64_t>(X86Truncate(low)));
    const std::vector<uint8_t> one = Entry(q.mapType, std::min<uint32_t>(low32, 255));
    for (int i = 0; i < n; ++i) put(ReferenceIsValid(data[i]) ? one : invalidBytes);
    return out;
  }

  std::vector<uint32_t> hist(256, 0);
  for (int i = 0; i < n; ++i) {
    const double v = data[i];
    if (!(low <= v && v <= high)) continue;
    int64_t b = X86Truncate(std::floor(v / w - low / w + 1e-14));
    hist[std::clamp<int64_t>(b, 0, 255)]++;
  }
  const auto slots = ReferenceAllotSlots(hist, count, B, w, low);
  auto slotOf = [&](double v, int b) { return slots.SlotOf(v, b); };
  auto binOf = [&](double v, double nudge) {
    int64_t b = X86Truncate(std::floor((v - low) / w + nudge));
    if (b == B) b = B - 1;
    return static_cast<int>(std::clamp<int64_t>(b, 0, B - 1));
  };
  auto callerBytes = [](const KivColor& c) {
    return std::vector<uint8_t>{uint8_t(c[2] & 0xFF), uint8_t(c[1] & 0xFF), uint8_t(c[0] & 0xFF)};
  };

  for (int i = 0; i < n; ++i) {
    if (!ReferenceIsValid(data[i])) {
      put(invalidBytes);
      continue;
    }
    const double v = data[i];
    if (q.form == Form::kColourRange) {
      if (v < low) {
        put(callerBytes(q.below));
      } else if (v > high) {
        put(callerBytes(q.above));
      } else {
        const int64_t slot = slotOf(v, binOf(v, 0.0));
        put(Entry(q.mapType, X86Truncate((double(slot) - q.lo) / B * (q.hi - q.lo)) + 1));
      }
    } else if (v >= high) {
      put(Entry(q.mapType, 255));
    } else if (v < low) {
      put(Entry(q.mapType, 0));
    } else {
      put(Entry(q.mapType, slotOf(v, binOf(v, 1e-14)) + 1));
    }
  }
  return out;
}

long CallLibrary(KivRangeImage& image, const Request& q, KivColorArray* out) {
  KivLUTSetting lut;
  switch (q.form) {
    case Form::kDataRange:
      return lut.ColorMapLUT(image, q.mapType, out);
    case Form::kBounds:
      return lut.ColorMapLUT(image, q.mapType, q.low, q.high, out);
    case Form::kColourRange:
      return lut.ColorMapLUT(image, q.mapType, q.low, q.high, q.lo, q.hi, q.below, q.above, out);
  }
  return -1;
}

std::vector<uint8_t> Bytes(const KivColorArray& array) {
  return std::vector<uint8_t>(array.Data(), array.Data() + 3 * static_cast<size_t>(array.Length()));
}

bool SamePixels(const KivRangeImage& a, const KivRangeImage& b) {
  const size_t bytes = a.Mat().total() * a.Mat().elemSize();
  return a.Mat().total() == b.Mat().total() &&
         (bytes == 0 || std::memcmp(a.Data(), b.Data(), bytes) == 0);
}

// Runs the public method and the reference and compares every byte; the image must not change.
template <typename T>
void ExpectMatchesReference(KivRangeImage& image, const Request& q, std::mt19937_64& random) {
  const KivRangeImage before = image.DeepCopy();
  KivColorArray out;
  // Sometimes a reused array of the right length full of other bytes, sometimes a wrong length.
  if (random() % 2) {
    out.Create(image.Width() * image.Height(), 3);
    std::memset(out.Data(), 0xA5, 3 * static_cast<size_t>(out.Length()));
  } else {
    out.Create(1 + random() % 5, 3);
  }
  const long status = CallLibrary(image, q, &out);
  ASSERT_EQ(status, LUT_OK);
  ASSERT_EQ(out.Length(), image.Width() * image.Height());
  ASSERT_EQ(out.Channel(), 3);
  const std::vector<uint8_t> want = ReferenceEqualised<T>(image, q);
  const std::vector<uint8_t> got = Bytes(out);
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    ASSERT_EQ(got[i], want[i]) << "byte " << i << " of pixel " << i / 3 << " value "
                               << double(image.Ptr<T>()[i / 3]);
  }
  EXPECT_TRUE(SamePixels(image, before));
}

// Physical bounds around the data: inside, outside, straddling, equal.
template <typename T>
Request RandomRequest(const KivRangeImage& image, std::mt19937_64& random) {
  Request q;
  q.form = static_cast<Form>(random() % 3);
  q.mapType = static_cast<int>(random() % 11);
  const T* data = image.Ptr<T>();
  const int n = image.Width() * image.Height();
  auto physical = [&](double raw) {
    const double r = image.ResolutionZ(), o = image.OffsetZ();
    return std::is_integral_v<T> ? raw * r - o * r : raw;
  };
  auto someValue = [&]() {
    const double v = data[random() % n];
    return std::isfinite(v) ? v : 0.0;
  };
  std::uniform_real_distribution<double> jitter(-3.0, 3.0);
  double a = physical(someValue() + jitter(random));
  double b = physical(someValue() + jitter(random));
  if (random() % 8 == 0) b = a;
  if (random() % 10 == 0) a = -1e30;
  if (random() % 10 == 0) b = 1e30;
  q.low = std::min(a, b);
  q.high = std::max(a, b);
  q.lo = static_cast<int>(random() % 256);
  q.hi = q.lo + static_cast<int>(random() % (256 - q.lo));
  q.below = KivColor(int(random() % 600) - 100, int(random() % 256), int(random() % 256));
  q.above = KivColor(int(random() % 256), int(random() % 256), int(random() % 300));
  return q;
}

TEST(EqualisedMapping, MatchesReferenceOnRandomImagesOfEveryType) {
  std::mt19937_64 random(7);
  const double resolutions[] = {1.0, 0.5, 0.001, 2.5};
  const double offsets[] = {0.0, 3.0, -10.0};
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [width, height] : TestSizes()) {
      const int rounds = width * height > 10000 ? 3 : 12;
      for (int round = 0; round < rounds; ++round) {
        KivRangeImage image = RandomRangeImage<T>(width, height, random);
        image.SetResolution(1.0, 1.0, resolutions[random() % 4]);
        image.SetOffset(0.0, 0.0, offsets[random() % 3]);
        image.SetType(static_cast<int>(random() % 2));
        const Request q = RandomRequest<T>(image, random);
        SCOPED_TRACE(testing::Message()
                     << "type " << int(image.DataType()) << " " << width << "x" << height
                     << " form " << int(q.form) << " map " << q.mapType << " bounds " << q.low
                     << ".." << q.high << " lo/hi " << q.lo << "/" << q.hi);
        ExpectMatchesReference<T>(image, q, random);
      }
    }
  });
}

TEST(EqualisedMapping, MatchesReferenceOnRealFrames) {
  std::vector<testing_support::RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << "no shared data folder: the real range images are skipped";
  std::mt19937_64 random(11);
  for (testing_support::RealFrame& frame : frames) {
    for (Form form : {Form::kDataRange, Form::kBounds, Form::kColourRange}) {
      SCOPED_TRACE(frame.name);
      VisitPixelType(frame.image.DataType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        Request q = RandomRequest<T>(frame.image, random);
        q.form = form;
        ExpectMatchesReference<T>(frame.image, q, random);
      });
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Float and double frames large enough for the run tables: every value next to a bin or slot
// boundary must take the colour the formula gives it.

// Fills an image of at least `minimum` pixels from `values`, then crowds part of the range (so
// that some bins own many slots) and sprinkles the invalid and non-finite values, shuffled.
template <typename T>
KivRangeImage FrameOf(std::vector<T> values, T crowdLow, T crowdHigh, int minimum,
                      std::mt19937_64& random) {
  std::uniform_real_distribution<double> crowd(crowdLow, crowdHigh);
  while (static_cast<int>(values.size()) < minimum) values.push_back(static_cast<T>(crowd(random)));
  for (int i = 0; i < 600; ++i) {
    values.push_back(Marker<T>());
    values.push_back(std::numeric_limits<T>::quiet_NaN());
    values.push_back(i % 2 ? std::numeric_limits<T>::infinity()
                           : -std::numeric_limits<T>::infinity());
  }
  std::shuffle(values.begin(), values.end(), random);
  // An odd width, so no row ends on a chunk boundary by accident.
  const int width = 257;
  const int height = static_cast<int>((values.size() + width - 1) / width);
  values.resize(static_cast<size_t>(width) * height, values.front());
  KivRangeImage image(width, height, PixelTraits<T>::kDataType);
  std::copy(values.begin(), values.end(), image.Ptr<T>());
  return image;
}

// Every form with bounds inside, at and outside the data range.
template <typename T>
void ExpectEveryFormMatches(KivRangeImage& image, double low, double high,
                            std::mt19937_64& random) {
  auto at = [&](double t) { return low * (1.0 - t) + high * t; };
  const double bounds[][2] = {
      {low, high}, {at(0.1), at(0.8)}, {at(0.37), high}, {at(-1.0), at(2.0)}};
  for (const auto& b : bounds) {
    for (Form form : {Form::kDataRange, Form::kBounds, Form::kColourRange}) {
      Request q;
      q.form = form;
      q.mapType = static_cast<int>(random() % 11);
      q.low = b[0];
      q.high = b[1];
      q.lo = static_cast<int>(random() % 40);
      q.hi = 200 + static_cast<int>(random() % 56);
      q.below = KivColor(1, 2, 3);
      q.above = KivColor(4, 5, 6);
      SCOPED_TRACE(testing::Message() << "form " << int(form) << " bounds " << q.low << ".."
                                      << q.high << " map " << q.mapType);
      ExpectMatchesReference<T>(image, q, random);
    }
  }
}

TEST(EqualisedMapping, EveryFloatOfANarrowRangeMatchesTheReference) {
  // All 2^18 floats from 1 up, each once, so every bin and slot boundary is met exactly, with a
  // crowd over part of the range, the values just below the range and the zeros and subnormals.
  std::mt19937_64 random(23);
  std::vector<float> values;
  float v = 1.0f;
  for (int i = 0; i < (1 << 18); ++i, v = std::nextafter(v, 2.0f)) values.push_back(v);
  for (float f : {0.0f, -0.0f, std::numeric_limits<float>::denorm_min(), FLT_MIN, 0.999999f}) {
    values.push_back(f);
  }
  KivRangeImage image = FrameOf<float>(values, 1.01f, 1.012f, 400000, random);
  ExpectEveryFormMatches<float>(image, 1.0, static_cast<double>(v), random);
}

// Six random images of each size, the three forms in turn.
template <typename T>
void ExpectSizesMatchReference(std::initializer_list<std::pair<int, int>> sizes,
                               std::mt19937_64& random) {
  for (const auto& [width, height] : sizes) {
    for (int round = 0; round < 6; ++round) {
      KivRangeImage image = RandomRangeImage<T>(width, height, random);
      Request q = RandomRequest<T>(image, random);
      q.form = static_cast<Form>(round % 3);
      SCOPED_TRACE(testing::Message() << width << "x" << height << " form " << int(q.form));
      ExpectMatchesReference<T>(image, q, random);
    }
  }
}

TEST(EqualisedMapping, BaselineVariantMatchesTheReferenceWhereAvx2Runs) {
  // The same images through the loops a processor without AVX2 runs.
  struct Baseline {
    Baseline() { Avx2DisabledForTesting() = true; }
    ~Baseline() { Avx2DisabledForTesting() = false; }
  } baseline;
  std::mt19937_64 random(59);
  ExpectSizesMatchReference<float>({{64, 64}, {173, 91}, {640, 48}}, random);
  ExpectSizesMatchReference<uint16_t>({{64, 64}, {173, 91}, {640, 480}}, random);
}

TEST(EqualisedMapping, ValuesBesideEveryBoundaryMatchTheReference) {
  // Neighbourhoods of 24 representable values either side of 4097 evenly spaced points (every bin
  // boundary among them) and of the bin and slot boundaries of a crowded stretch, for data ranges
  // across zero, far from it, and one so wide that its width is not a float.
  std::mt19937_64 random(29);
  auto run = [&](auto tag, double low, double high) {
    using T = typename decltype(tag)::type;
    SCOPED_TRACE(testing::Message()
                 << (sizeof(T) == 4 ? "float " : "double ") << low << ".." << high);
    std::vector<T> values;
    auto around = [&](double centre, int steps) {
      T x = static_cast<T>(centre);
      for (int k = 0; k < steps; ++k) x = std::nextafter(x, std::numeric_limits<T>::lowest());
      for (int k = 0; k < 2 * steps + 1;
           ++k, x = std::nextafter(x, std::numeric_limits<T>::max())) {
        if (x >= static_cast<T>(low) && x <= static_cast<T>(high)) values.push_back(x);
      }
    };
    // Weighted sums, not low + t * (high - low): the difference of the widest range overflows.
    auto at = [&](double t) { return low * (1.0 - t) + high * t; };
    for (int i = 0; i <= 4096; ++i) around(at(i / 4096.0), 24);
    const double crowdLow = at(0.4);
    const double crowdHigh = at(0.41);
    for (int i = 0; i <= 2048; ++i) around(crowdLow + (crowdHigh - crowdLow) * i / 2048.0, 6);
    for (T f : {T(0), T(-0.0), std::numeric_limits<T>::denorm_min(),
                -std::numeric_limits<T>::denorm_min(), std::numeric_limits<T>::min()}) {
      if (f >= static_cast<T>(low) && f <= static_cast<T>(high)) values.push_back(f);
    }
    KivRangeImage image =
        FrameOf<T>(values, static_cast<T>(crowdLow), static_cast<T>(crowdHigh), 300000, random);
    ExpectEveryFormMatches<T>(image, low, high, random);
  };
  run(PixelTypeTag<float>{}, -3.0, 5.0);
  run(PixelTypeTag<float>{}, 1000.0, 1000.5);
  run(PixelTypeTag<float>{}, -3e38, 3e38);
  run(PixelTypeTag<double>{}, -3.0, 5.0);
  run(PixelTypeTag<double>{}, 1e6, 1e6 + 0.25);
  run(PixelTypeTag<double>{}, -1.7e308, 1.7e308);
}

TEST(EqualisedMapping, ImagesJustPastTheRunTableSizeMatchTheReference) {
  // A few thousand pixels: the run tables with their coarsest cells, where more run starts share
  // a cell.
  std::mt19937_64 random(47);
  const std::initializer_list<std::pair<int, int>> sizes = {{64, 64}, {77, 71}, {160, 120}};
  ExpectSizesMatchReference<float>(sizes, random);
  ExpectSizesMatchReference<double>(sizes, random);
  // 16-bit images whose values spread wider than their pixel count also colour by runs.
  ExpectSizesMatchReference<uint16_t>(sizes, random);
  ExpectSizesMatchReference<int16_t>(sizes, random);
}

TEST(EqualisedMapping, SmallImagesWithFewRawValuesMatchTheReference) {
  // Fewer pixels than the type has values, but more than the raw values up to the maximum: the
  // counts cover only those. Sizes either side of the value count, all three forms.
  std::mt19937_64 random(37);
  auto run = [&](auto tag, int lowest, int spread) {
    using T = typename decltype(tag)::type;
    for (const auto& [width, height] : {std::pair{1, 1}, {7, 5}, {33, 31}, {101, 3}, {250, 201}}) {
      for (int round = 0; round < 6; ++round) {
        KivRangeImage image(width, height, PixelTraits<T>::kDataType);
        T* pixels = image.Ptr<T>();
        for (int i = 0; i < width * height; ++i) {
          pixels[i] = random() % 10 == 0
                          ? Marker<T>()
                          : static_cast<T>(lowest + static_cast<int>(random() % spread));
        }
        image.SetResolution(1.0, 1.0, round % 2 ? 1.0 : 0.5);
        Request q = RandomRequest<T>(image, random);
        q.form = static_cast<Form>(round % 3);
        SCOPED_TRACE(testing::Message() << width << "x" << height << " form " << int(q.form));
        ExpectMatchesReference<T>(image, q, random);
      }
    }
  };
  run(PixelTypeTag<uint16_t>{}, 1, 40);
  run(PixelTypeTag<uint16_t>{}, 900, 400);
  run(PixelTypeTag<int16_t>{}, -32767, 300);
  run(PixelTypeTag<uint8_t>{}, 1, 255);
  run(PixelTypeTag<int8_t>{}, -127, 100);
}

// ---------------------------------------------------------------------------------------------
// Edge cases.

KivRangeImage U16Image(const std::vector<uint16_t>& values) {
  KivRangeImage image(static_cast<int>(values.size()), 1, KIV_DATA_U16);
  std::copy(values.begin(), values.end(), image.Ptr<uint16_t>());
  return image;
}

std::vector<uint8_t> PixelBytes(const KivColorArray& out, int i) {
  return {out.Data()[3 * i], out.Data()[3 * i + 1], out.Data()[3 * i + 2]};
}

TEST(EqualisedMapping, OneValueTakesTheDegeneratePath) {
  KivRangeImage image = U16Image({1000, 0, 1000, 1000});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(image, kRainbowMap, &out), LUT_OK);
  EXPECT_EQ(PixelBytes(out, 0), Entry(kRainbowMap, 255));  // min(1000, 255)
  EXPECT_EQ(PixelBytes(out, 1), (std::vector<uint8_t>{0, 0, 0}));
  EXPECT_EQ(PixelBytes(out, 2), Entry(kRainbowMap, 255));

  KivRangeImage small = U16Image({7, 7, 0});
  ASSERT_EQ(lut.ColorMapLUT(small, kHotMetalMap, &out), LUT_OK);
  EXPECT_EQ(PixelBytes(out, 0), Entry(kHotMetalMap, 7));
  EXPECT_EQ(PixelBytes(out, 2), (std::vector<uint8_t>{255, 255, 255}));  // hot metal: white
}

TEST(EqualisedMapping, NoValidPixelTakesTheDegeneratePath) {
  KivRangeImage image = U16Image({0, 0, 0});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(image, kJetMap, &out), LUT_OK);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(PixelBytes(out, i), (std::vector<uint8_t>{0, 0, 0}));
}

TEST(EqualisedMapping, ZeroIndexRangeMapsToEntryOne) {
  KivRangeImage image = U16Image({10, 20, 30, 40, 50});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(image, kRgbMap, 10.0, 50.0, 0, 0, KivColor(), KivColor(), &out),
            LUT_OK);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(PixelBytes(out, i), Entry(kRgbMap, 1)) << i;
}

TEST(EqualisedMapping, ValueAtHighIsColouredFromTheTable) {
  KivRangeImage image = U16Image({10, 20, 30, 40, 50});
  KivColorArray out;
  KivLUTSetting lut;
  const KivColor above(1, 2, 3);
  // high' = trunc(40 + 1) = 41 in raw units; 40 is inside, 50 above.
  ASSERT_EQ(lut.ColorMapLUT(image, kJetMap, 10.0, 40.0, 0, 255, KivColor(), above, &out), LUT_OK);
  EXPECT_NE(PixelBytes(out, 3), (std::vector<uint8_t>{3, 2, 1}));
  EXPECT_EQ(PixelBytes(out, 4), (std::vector<uint8_t>{3, 2, 1}));
  // On a float image the bound is used as given: a value equal to high is still in range.
  KivRangeImage floats(2, 1, KIV_DATA_F32);
  floats.Ptr<float>()[0] = 1.0f;
  floats.Ptr<float>()[1] = 2.0f;
  ASSERT_EQ(lut.ColorMapLUT(floats, kJetMap, 1.0, 2.0, 0, 255, KivColor(), above, &out), LUT_OK);
  EXPECT_NE(PixelBytes(out, 1), (std::vector<uint8_t>{3, 2, 1}));
}

TEST(EqualisedMapping, BelowColourIsWrittenComponentTwoFirst) {
  KivRangeImage image = U16Image({10, 20, 30, 40, 50});
  KivColorArray out;
  KivLUTSetting lut;
  const KivColor below(10, 20, 30);  // blue 10, green 20, red 30
  ASSERT_EQ(lut.ColorMapLUT(image, kGreyMap, 25.0, 50.0, 0, 255, below, KivColor(), &out), LUT_OK);
  EXPECT_EQ(PixelBytes(out, 0), (std::vector<uint8_t>{30, 20, 10}));
  EXPECT_EQ(PixelBytes(out, 1), (std::vector<uint8_t>{30, 20, 10}));
}

TEST(EqualisedMapping, BoundsWithinHalfAUnitOfTheDataAreReplaced) {
  std::vector<uint16_t> values;
  for (int v = 100; v <= 200; ++v) values.push_back(static_cast<uint16_t>(v));
  KivRangeImage image = U16Image(values);
  KivLUTSetting lut;
  KivColorArray byData, near, far;
  ASSERT_EQ(lut.ColorMapLUT(image, kRainbowMap, &byData), LUT_OK);
  ASSERT_EQ(lut.ColorMapLUT(image, kRainbowMap, 100.4, 200.0, &near), LUT_OK);
  EXPECT_EQ(Bytes(near), Bytes(byData));  // 0.4 above the minimum: replaced by it
  ASSERT_EQ(lut.ColorMapLUT(image, kRainbowMap, 100.6, 200.0, &far), LUT_OK);
  EXPECT_EQ(PixelBytes(far, 0), Entry(kRainbowMap, 0));  // 0.6 above: kept, 100 lies below
  EXPECT_NE(Bytes(far), Bytes(byData));
}

TEST(EqualisedMapping, MapTypesWithoutTableUseGrey) {
  KivRangeImage image = U16Image({10, 20, 30, 0});
  KivLUTSetting lut;
  KivColorArray seven, zero;
  ASSERT_EQ(lut.ColorMapLUT(image, 7, &seven), LUT_OK);
  ASSERT_EQ(lut.ColorMapLUT(image, 0, &zero), LUT_OK);
  EXPECT_EQ(Bytes(seven), Bytes(zero));
}

TEST(EqualisedMapping, NaNBoundIsRefusedOnlyByTheColourRangeForm) {
  KivRangeImage image = U16Image({10, 20, 30});
  KivLUTSetting lut;
  KivColorArray out;
  EXPECT_EQ(lut.ColorMapLUT(image, 1, kNaN, 30.0, 0, 255, KivColor(), KivColor(), &out),
            LUT_ERR_PARAM_2);
  EXPECT_EQ(lut.ColorMapLUT(image, 1, kNaN, 30.0, &out), LUT_OK);
  EXPECT_EQ(out.Length(), 3);
}

TEST(EqualisedMapping, OneOverwhelmingBinLeavesNoSlots) {
  std::vector<uint16_t> values(1000, 10);
  values.push_back(20);
  KivRangeImage image = U16Image(values);
  KivLUTSetting lut;
  KivColorArray out;
  ASSERT_EQ(lut.ColorMapLUT(image, kRainbowMap, &out), LUT_OK);
  // Bin 0's share rounds to 255 = B: every weight is 0, the search ends at bin 0, below: slot 1.
  EXPECT_EQ(PixelBytes(out, 0), Entry(kRainbowMap, 2));
  EXPECT_EQ(PixelBytes(out, 1000), Entry(kRainbowMap, 255));  // the value at high
}

TEST(EqualisedMapping, TableAllotsSlotsByShare) {
  Histogram histogram(256, 0);
  histogram[0] = 50;
  histogram[3] = 50;
  const EqualisationTable table = BuildEqualisationTable(histogram, 100, 255);
  // Bins 0 and 3 take 127.5 -> 128 each; bin 0 comes first (equal shares, ascending bins) and
  // gets its slots, bin 3 would bring the total to 256 and gets none; the empty bins sort after
  // and each would exceed B too.
  EXPECT_EQ(table.weight[0], 128u);
  EXPECT_EQ(table.weight[3], 0u);
  EXPECT_EQ(table.weight[1], 0u);
  EXPECT_EQ(table.nonEmptyBins, std::vector<int>{0});
  EXPECT_EQ(table.end[0], 128u);
  EXPECT_EQ(table.end[254], 128u);
  // Empty bins above bin 0 take its last slot.
  EXPECT_EQ(EqualisedSlot(0.0, 3, 1.0, 0.0, table), 128);
}

TEST(EqualisedMapping, EmptyBinTakesNearestLowerBinOnATie) {
  EqualisationTable table;
  table.weight[2] = 3;
  table.weight[6] = 2;
  CompleteEqualisationTable(table);
  EXPECT_EQ(table.nonEmptyBins, (std::vector<int>{2, 6}));
  EXPECT_EQ(table.end[2], 3u);
  EXPECT_EQ(table.end[254], 5u);
  EXPECT_EQ(NearestSlotForEmptyBin(4, table), 3);
  EXPECT_EQ(EqualisedSlot(0.0, 4, 1.0, 0.0, table), 3);  // tie: bin 2 wins, 4 lies above it
  EXPECT_EQ(EqualisedSlot(0.0, 5, 1.0, 0.0, table), 4);  // bin 6 is nearer: its first slot
  EXPECT_EQ(EqualisedSlot(0.0, 0, 1.0, 0.0, table), 1);  // below bin 2: its first slot
  EXPECT_EQ(EqualisedSlot(0.0, 200, 1.0, 0.0, table), 5);
  // Inside a bin with slots the value interpolates: bin 2 spans slots 1..3.
  EXPECT_EQ(EqualisedSlot(2.0, 2, 1.0, 0.0, table), 0);
  EXPECT_EQ(EqualisedSlot(2.5, 2, 1.0, 0.0, table), 1);
  EXPECT_EQ(EqualisedSlot(2.99, 2, 1.0, 0.0, table), 2);
}

TEST(EqualisedMapping, EmptyBinSlotsEqualTheNearestSearchForEveryBin) {
  // Random weight patterns, sparse and dense, none at all and one bin only, for both bin counts:
  // the slots the table keeps for its empty bins are those the search over its bins finds.
  std::mt19937_64 random(71);
  for (int round = 0; round < 400; ++round) {
    for (const int binCount : {kEqualisedBins, kEqualisedBins + 1}) {
      EqualisationTable table;
      table.binCount = binCount;
      const int kind = round % 4;
      const uint64_t sparse = kind == 0 ? 0 : kind == 1 ? 2 : kind == 2 ? 30 : 90;
      for (int b = 0; b < binCount; ++b) {
        table.weight[b] = random() % 100 < sparse ? static_cast<uint32_t>(1 + random() % 5) : 0;
      }
      if (round % 17 == 0) table.weight[random() % binCount] = 7;  // one bin with slots
      CompleteEqualisationTable(table);
      for (int b = 0; b < binCount; ++b) {
        if (table.weight[b] != 0) continue;
        ASSERT_EQ(table.emptyBinSlot[b], NearestSlotForEmptyBin(b, table))
            << "round " << round << " bin " << b;
      }
    }
  }
}

TEST(EqualisedMapping, BinOfAValue) {
  EXPECT_EQ(EqualisedBin(255.0, 1.0, 0.0, 1e-14, 255), 254);  // bin B is pulled back
  EXPECT_EQ(EqualisedBin(10.0, 1.0, 0.0, 0.0, 255), 10);
  EXPECT_EQ(EqualisedBin(-5.0, 1.0, 0.0, 0.0, 255), 0);
  EXPECT_EQ(EqualisedBin(5.0, std::numeric_limits<double>::infinity(), 0.0, 0.0, 255), 0);
  EXPECT_EQ(EqualisedBin(kNaN, 1.0, 0.0, 0.0, 255), 0);  // INT64_MIN, clamped
}

// The reciprocal forms must agree with the divisions everywhere, most of all at bin and slot
// boundaries, where the two roundings could fall on different sides of an integer.
TEST(EqualisedMapping, ReciprocalBinAndSlotEqualTheDivisions) {
  std::mt19937_64 random(99);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double widths[] = {1.0, 0.1, 1.0 / 3.0, 1e-7, 2.5e-8, 7.77, 1e5, 1e300, 3e-300};
  for (double w : widths) {
    for (double low : {0.0, -1000.0, 0.3, 123456.789, -1e-9}) {
      Histogram histogram(256, 0);
      for (int b = 0; b < 255; ++b) histogram[b] = static_cast<uint32_t>(random() % 50);
      const EqualisationTable table = BuildEqualisationTable(histogram, 5000, 255);
      const double reciprocal = 1.0 / w;
      std::vector<double> values;
      for (int k = 0; k <= 256; ++k) {
        const double edge = low + k * w;
        values.push_back(edge);
        values.push_back(std::nextafter(edge, -1e308));
        values.push_back(std::nextafter(edge, 1e308));
        values.push_back(edge + w * unit(random));
        // Values whose in-bin position times the weight lands on a whole slot.
        for (int step = 1; step < 8; ++step) values.push_back(edge + w * step / 8.0);
      }
      for (double v : values) {
        for (double nudge : {0.0, 1e-14}) {
          const int exact = EqualisedBin(v, w, low, nudge, 255);
          ASSERT_EQ(EqualisedBinByReciprocal(v, w, reciprocal, low, nudge, 255), exact)
              << "v " << v << " w " << w << " low " << low;
          ASSERT_EQ(EqualisedSlotByReciprocal(v, exact, w, reciprocal, low, table),
                    EqualisedSlot(v, exact, w, low, table))
              << "v " << v << " w " << w << " low " << low;
        }
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Checks, stage codes and logging.

TEST(EqualisedMapping, ArgumentChecksInOrder) {
  KivLUTSetting lut;
  KivColorArray out;
  KivRangeImage typeTwo(0, 0, KIV_DATA_U16);
  typeTwo.SetType(2);
  EXPECT_EQ(lut.ColorMapLUT(typeTwo, 99, &out), LUT_ERR_RANGE_IMAGE_TYPE);  // before the size
  KivRangeImage empty(0, 4, KIV_DATA_U16);
  empty.SetType(1);
  EXPECT_EQ(lut.ColorMapLUT(empty, 1, &out), LUT_ERR_RANGE_IMAGE_EMPTY);
  KivRangeImage image = U16Image({1, 2, 3});
  EXPECT_EQ(lut.ColorMapLUT(image, 11, &out), LUT_ERR_PARAM_1);
  EXPECT_EQ(lut.ColorMapLUT(image, -1, 1.0, 2.0, &out), LUT_ERR_PARAM_1);
  EXPECT_EQ(lut.ColorMapLUT(image, 11, 5.0, 2.0, 0, 0, KivColor(), KivColor(), &out),
            LUT_ERR_PARAM_1);
  EXPECT_EQ(lut.ColorMapLUT(image, 1, 5.0, 2.0, &out), LUT_ERR_PARAM_2);
  EXPECT_EQ(lut.ColorMapLUT(image, 1, 2.0, 2.0, &out), LUT_OK);  // equal bounds are fine
  EXPECT_EQ(lut.ColorMapLUT(image, 1, 5.0, 2.0, 0, 0, KivColor(), KivColor(), &out),
            LUT_ERR_PARAM_2);
  // Index range of the colour-range form, checked before the output is touched.
  KivColorArray untouched;
  untouched.Create(2, 3);
  untouched.Data()[0] = 99;
  EXPECT_EQ(lut.ColorMapLUT(image, 1, 1.0, 2.0, -1, 5, KivColor(), KivColor(), &untouched),
            LUT_ERR_PARAM_4);
  EXPECT_EQ(lut.ColorMapLUT(image, 1, 1.0, 2.0, 6, 5, KivColor(), KivColor(), &untouched),
            LUT_ERR_PARAM_4);
  EXPECT_EQ(lut.ColorMapLUT(image, 1, 1.0, 2.0, 0, 256, KivColor(), KivColor(), &untouched),
            LUT_ERR_PARAM_5);
  EXPECT_EQ(untouched.Length(), 2);
  EXPECT_EQ(untouched.Data()[0], 99);
  // A null output is refused after every other check.
  EXPECT_EQ(lut.ColorMapLUT(image, 1, nullptr), LUT_ERR_OUTPUT_FAILED);
  EXPECT_EQ(lut.ColorMapLUT(image, 1, 1.0, 2.0, nullptr), LUT_ERR_OUTPUT_FAILED);
  EXPECT_EQ(lut.ColorMapLUT(image, 1, 1.0, 2.0, 0, 9, KivColor(), KivColor(), nullptr),
            LUT_ERR_OUTPUT_FAILED);
}

TEST(EqualisedMapping, OneChannelOutputOfTheRightLengthIsRecreated) {
  KivRangeImage image = U16Image({1, 2, 3, 4});
  KivColorArray out;
  out.Create(4, 1);
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(image, 1, &out), LUT_OK);
  EXPECT_EQ(out.Channel(), 3);
  EXPECT_EQ(out.Length(), 4);
}

TEST(EqualisedMapping, EachStageThatThrowsReturnsItsCode) {
  const struct {
    FaultStage stage;
    long code;
  } cases[] = {
      {FaultStage::kOutputSizing, LUT_ERR_OUTPUT_FAILED},
      {FaultStage::kStatistics, LUT_ERR_STATISTICS_FAILED},
      {FaultStage::kColouring, LUT_ERR_APPLY_FAILED},
  };
  std::mt19937_64 random(5);
  for (const auto& c : cases) {
    KivRangeImage image = RandomRangeImage<uint16_t>(9, 7, random);
    const KivRangeImage before = image.DeepCopy();
    KivLUTSetting lut;
    for (Form form : {Form::kDataRange, Form::kBounds, Form::kColourRange}) {
      KivColorArray out;
      out.Create(5, 3);
      Request q;
      q.form = form;
      q.low = 0.0;
      q.high = 70000.0;
      {
        ScopedFault fault(c.stage);
        EXPECT_EQ(CallLibrary(image, q, &out), c.code);
      }
      EXPECT_TRUE(SamePixels(image, before));
      // Sizing failed before the array was touched; later stages find it already re-sized.
      EXPECT_EQ(out.Length(), c.stage == FaultStage::kOutputSizing ? 5 : 63);
      // Without the fault the same call succeeds.
      EXPECT_EQ(CallLibrary(image, q, &out), LUT_OK);
    }
  }
}

TEST(EqualisedMapping, EachFormLogsItsTags) {
  KivRangeImage image = U16Image({1, 2, 3});
  KivColorArray out;
  KivLUTSetting lut;
  const std::string end =
      "\xd4\xb4\xcd\xbc\xcf\xf1\xd1\xd5\xc9\xab\xb7\xc7\xcf\xdf\xd0\xd4\xd3\xb3"
      "\xc9\xe4\xbd\xe1\xca\xf8";  // 源图像颜色非线性映射结束 in GBK
  {
    testing_support::LogCapture capture;
    ASSERT_EQ(lut.ColorMapLUT(image, 1, &out), LUT_OK);
    ASSERT_EQ(lut.ColorMapLUT(image, 1, 1.0, 3.0, &out), LUT_OK);
    ASSERT_EQ(lut.ColorMapLUT(image, 1, 1.0, 3.0, 0, 255, KivColor(), KivColor(), &out), LUT_OK);
    EXPECT_EQ(capture.Tags(),
              (std::vector<std::string>{"ColorMapLUT:447:start", "ColorMapLUT:463:" + end,
                                        "ColorMapLUT:334:start", "ColorMapLUT:356:" + end,
                                        "ColorMapLUT:419:start", "ColorMapLUT:440:" + end}));
  }
  {
    testing_support::LogCapture capture;
    ASSERT_EQ(lut.ColorMapLUT(image, 12, &out), LUT_ERR_PARAM_1);
    EXPECT_EQ(capture.Tags(), std::vector<std::string>{"ColorMapLUT:447:start"});
  }
}

}  // namespace
}  // namespace KIVMV
