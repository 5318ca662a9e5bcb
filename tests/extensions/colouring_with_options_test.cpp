#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "KivColoring.h"
#include "KivLUTSetting.h"
#include "range/range_test_support.h"

namespace KIVMV {
namespace {

using testing_support::ForEachPixelType;
using testing_support::RandomRangeImage;
using testing_support::ReferenceIsValid;

// Exact in binary, so physical values and raw bounds convert without rounding.
constexpr double kResolution = 0.25;
constexpr double kOffset = -100.0;

std::vector<std::pair<int, int>> Sizes() {
  // 300 x 250 passes the 65536 pixels from which 16-bit images are coloured per raw value.
  return {{1, 1}, {1, 17}, {23, 1}, {7, 5}, {33, 31}, {101, 3}, {300, 250}};
}

template <typename T>
KivRangeImage ScaledImage(int width, int height, std::mt19937_64& random) {
  KivRangeImage image = RandomRangeImage<T>(width, height, random);
  if constexpr (std::is_integral_v<T>) image.SetResolution(1.0, 1.0, kResolution);
  if constexpr (std::is_integral_v<T>) image.SetOffset(0.0, 0.0, kOffset);
  return image;
}

template <typename T>
double PhysicalOf(T raw) {
  if constexpr (std::is_integral_v<T>) return (static_cast<double>(raw) - kOffset) * kResolution;
  return static_cast<double>(raw);
}

// Physical values of the valid pixels, sorted.
template <typename T>
std::vector<double> SortedValid(const KivRangeImage& image) {
  std::vector<double> values;
  const T* p = image.Ptr<T>();
  for (int i = 0; i < image.Width() * image.Height(); ++i) {
    if (ReferenceIsValid(p[i])) values.push_back(PhysicalOf(p[i]));
  }
  std::sort(values.begin(), values.end());
  return values;
}

std::vector<uint8_t> Bytes(const KivColorArray& a) {
  const size_t size = static_cast<size_t>(a.Length()) * a.Channel();
  return std::vector<uint8_t>(a.Data(), a.Data() + size);
}

// A table whose 256 entries all differ, so a colour names its entry.
KivColorTable DistinctTable() {
  std::array<KivRgb, KivColorTable::kSize> colours;
  for (int i = 0; i < KivColorTable::kSize; ++i) {
    colours[i] = KivRgb{static_cast<uint8_t>(i), static_cast<uint8_t>(255 - i),
                        static_cast<uint8_t>((i * 7) % 256)};
  }
  return KivColorTable(colours, KivRgb{0, 0, 0}, "distinct");
}

int EntryOfColour(const uint8_t* bgr) {
  const KivColorTable table = DistinctTable();
  for (int i = 0; i < KivColorTable::kSize; ++i) {
    const KivRgb c = table.At(i);
    if (c.b == bgr[0] && c.g == bgr[1] && c.r == bgr[2]) return i;
  }
  return -1;
}

KivColoringOptions Options(KivColoringMode mode, KivBoundsSource bounds, double low = 0.0,
                           double high = 0.0) {
  KivColoringOptions options;
  options.mode = mode;
  options.bounds = bounds;
  options.low = low;
  options.high = high;
  return options;
}

TEST(ColorRangeImage, EqualsKivLUTSettingForItsTablesWithDefaultOptions) {
  std::mt19937_64 random(11);
  KivLUTSetting lut;
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [width, height] : Sizes()) {
      KivRangeImage image = ScaledImage<T>(width, height, random);
      const std::vector<double> valid = SortedValid<T>(image);
      // Given bounds inside the data, at its edges and beyond it.
      double low = -3.0, high = 1000.0;
      if (!valid.empty()) {
        low = valid[valid.size() / 5];
        high = valid[valid.size() * 4 / 5];
      }
      for (int map = 0; map <= 6; ++map) {
        SCOPED_TRACE(::testing::Message() << "type " << static_cast<int>(PixelTraits<T>::kDataType)
                                          << " size " << width << "x" << height << " map " << map);
        const KivColorTable table = KivColorTable::Described(map);
        const struct {
          KivColoringOptions options;
          int form;
        } cases[] = {
            {Options(KivColoringMode::kEqualised, KivBoundsSource::kMeasured), 0},
            {Options(KivColoringMode::kEqualised, KivBoundsSource::kGiven, low, high), 1},
            {Options(KivColoringMode::kLinear, KivBoundsSource::kMeasured), 2},
            {Options(KivColoringMode::kLinear, KivBoundsSource::kGiven, low, high), 3},
        };
        for (const auto& c : cases) {
          KivColorArray expected;
          long status = 0;
          switch (c.form) {
            case 0:
              status = lut.ColorMapLUT(image, map, &expected);
              break;
            case 1:
              status = lut.ColorMapLUT(image, map, low, high, &expected);
              break;
            case 2:
              status = lut.LinearColorMapLUT(image, map, &expected);
              break;
            default:
              status = lut.LinearColorMapLUT(image, map, low, high, &expected);
              break;
          }
          ASSERT_EQ(status, 0);
          KivColorArray actual;
          ASSERT_EQ(KivColorRangeImage(image, table, c.options, &actual), KIV_EXT_OK);
          ASSERT_EQ(actual.Length(), width * height);
          ASSERT_EQ(actual.Channel(), 3);
          EXPECT_EQ(Bytes(actual), Bytes(expected)) << "form " << c.form;
        }
      }
    }
  });
}

// Where the equalisation's entry falls back as the value rises (a bin without slots taking the
// first slot of the bin above; a bin's first value a hair below its start), the scale places a
// value by the least entry at or above it. A pixel coloured with an entry that starts above its
// value is one of those, and lies below its entry on the scale.
bool FallsBackAbove(int entry, int expected, double v, const KivColoringInfo& info) {
  return entry > expected && v < info.entryStart[static_cast<size_t>(entry)];
}

// Every valid pixel takes the entry its value's table position names, wherever that entry is
// not a matter of rounding at an entry's start; no-data takes the no-data colour with alpha 0.
template <typename T>
void CheckAgainstTablePosition(const KivRangeImage& image, const KivColoringOptions& options) {
  KivColoringOptions four = options;
  four.channels = 4;
  four.noDataColor = KivRgb{1, 2, 3};
  KivColorArray out;
  KivColoringInfo info;
  ASSERT_EQ(KivColorRangeImage(image, DistinctTable(), four, &out, &info), KIV_EXT_OK);
  ASSERT_EQ(out.Channel(), 4);
  const T* p = image.Ptr<T>();
  const int n = image.Width() * image.Height();
  const bool exact = options.mode == KivColoringMode::kEqualised;
  const double span = info.high - info.low;
  int64_t fallBacks = 0;
  for (int i = 0; i < n; ++i) {
    const uint8_t* colour = out.Data() + 4 * static_cast<size_t>(i);
    if (!ReferenceIsValid(p[i])) {
      ASSERT_EQ(colour[0], 3);
      ASSERT_EQ(colour[1], 2);
      ASSERT_EQ(colour[2], 1);
      ASSERT_EQ(colour[3], 0);
      continue;
    }
    ASSERT_EQ(colour[3], 255);
    if (!(span > 0.0)) continue;  // one value, one entry: no scale to place it on
    const double v = PhysicalOf(p[i]);
    bool ambiguous = false;
    if (!exact) {
      // The kernel's float arithmetic against evenly spaced starts in double.
      const double tolerance = 1e-5 * std::max(span, std::fabs(v));
      for (double start : info.entryStart) ambiguous |= std::fabs(v - start) <= tolerance;
    }
    if (ambiguous) continue;
    const int expected =
        std::min(255, static_cast<int>(std::floor(info.TablePosition(v) * KivColorTable::kSize)));
    const int entry = EntryOfColour(colour);
    if (exact && FallsBackAbove(entry, expected, v, info)) {
      ++fallBacks;
      continue;
    }
    ASSERT_EQ(entry, expected) << "pixel " << i << " value " << v;
  }
  // Only the values of squeezed bins and of bin starts fall back: a small share of the pixels.
  EXPECT_LE(fallBacks, info.validCount / 20 + 16);
}

template <typename T>
void CheckInfo(const KivRangeImage& image, const KivColoringInfo& info) {
  const std::vector<double> valid = SortedValid<T>(image);
  const int n = image.Width() * image.Height();
  EXPECT_EQ(info.validCount, static_cast<int64_t>(valid.size()));
  EXPECT_EQ(info.noDataCount, n - static_cast<int64_t>(valid.size()));
  if (valid.empty()) {
    EXPECT_TRUE(std::isnan(info.minimum));
    EXPECT_TRUE(info.entryStart.empty());
    return;
  }
  EXPECT_EQ(info.minimum, valid.front());
  EXPECT_EQ(info.maximum, valid.back());
  ASSERT_EQ(info.entryStart.size(), 257u);
  EXPECT_EQ(info.entryStart.front(), info.low);
  EXPECT_EQ(info.entryStart.back(), info.high);
  EXPECT_TRUE(std::is_sorted(info.entryStart.begin(), info.entryStart.end()));
}

TEST(ColorRangeImage, ColoursFollowTheTablePositionAndInfoMatchesAPlainLoop) {
  std::mt19937_64 random(12);
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [width, height] : Sizes()) {
      const KivRangeImage image = ScaledImage<T>(width, height, random);
      const std::vector<double> valid = SortedValid<T>(image);
      const double low = valid.empty() ? 0.0 : valid[valid.size() / 4];
      const double high = valid.empty() ? 1.0 : valid[valid.size() * 3 / 4];
      for (auto mode : {KivColoringMode::kEqualised, KivColoringMode::kLinear}) {
        KivColoringOptions percentile = Options(mode, KivBoundsSource::kPercentile);
        percentile.lowPercentile = 10.0;
        percentile.highPercentile = 85.0;
        for (const KivColoringOptions& options :
             {Options(mode, KivBoundsSource::kMeasured),
              Options(mode, KivBoundsSource::kGiven, low, high), percentile}) {
          SCOPED_TRACE(::testing::Message()
                       << "type " << static_cast<int>(PixelTraits<T>::kDataType) << " size "
                       << width << "x" << height << " mode " << static_cast<int>(mode) << " bounds "
                       << static_cast<int>(options.bounds));
          CheckAgainstTablePosition<T>(image, options);
          KivColorArray out;
          KivColoringInfo info;
          ASSERT_EQ(KivColorRangeImage(image, DistinctTable(), options, &out, &info), KIV_EXT_OK);
          CheckInfo<T>(image, info);
          EXPECT_EQ(info.mode, mode);
        }
      }
    }
  });
}

// The percentile bounds are those of the valid values, interpolated between neighbours.
TEST(ColorRangeImage, PercentilesAreOfTheValidValuesOnly) {
  std::mt19937_64 random(13);
  const KivRangeImage image = ScaledImage<double>(57, 41, random);
  const std::vector<double> valid = SortedValid<double>(image);
  ASSERT_GT(valid.size(), 2u);
  KivColoringOptions options = Options(KivColoringMode::kEqualised, KivBoundsSource::kPercentile);
  options.lowPercentile = 0.0;
  options.highPercentile = 50.0;
  KivColorArray out;
  KivColoringInfo info;
  ASSERT_EQ(KivColorRangeImage(image, DistinctTable(), options, &out, &info), KIV_EXT_OK);
  EXPECT_EQ(info.low, valid.front());
  const double position = 0.5 * (valid.size() - 1);
  const size_t k = static_cast<size_t>(position);
  const double median = valid[k] + (valid[std::min(k + 1, valid.size() - 1)] - valid[k]) *
                                       (position - static_cast<double>(k));
  EXPECT_DOUBLE_EQ(info.high, median);
}

TEST(ColorRangeImage, BelowAndAboveColoursReplaceTheTableEndsOutsideTheBounds) {
  std::mt19937_64 random(14);
  const KivRgb below{10, 20, 30}, above{200, 210, 220};
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    const KivRangeImage image = ScaledImage<T>(45, 37, random);
    const std::vector<double> valid = SortedValid<T>(image);
    ASSERT_FALSE(valid.empty());
    for (auto mode : {KivColoringMode::kEqualised, KivColoringMode::kLinear}) {
      KivColoringOptions options =
          Options(mode, KivBoundsSource::kGiven, valid[valid.size() / 3], valid[valid.size() / 2]);
      KivColorArray plain;
      ASSERT_EQ(KivColorRangeImage(image, DistinctTable(), options, &plain), KIV_EXT_OK);
      options.belowColor = below;
      options.aboveColor = above;
      KivColorArray out;
      KivColoringInfo info;
      ASSERT_EQ(KivColorRangeImage(image, DistinctTable(), options, &out, &info), KIV_EXT_OK);
      const T* p = image.Ptr<T>();
      int belowSeen = 0, aboveSeen = 0;
      for (int i = 0; i < image.Width() * image.Height(); ++i) {
        const uint8_t* c = out.Data() + 3 * i;
        const uint8_t* kernel = plain.Data() + 3 * i;
        const double v = PhysicalOf(p[i]);
        // The linear kernel compares in single precision: a value within float rounding of a
        // bound may fall either way.
        const bool nearBound = mode == KivColoringMode::kLinear &&
                               (std::fabs(v - info.low) <= 1e-6 * std::fabs(info.low) ||
                                std::fabs(v - info.high) <= 1e-6 * std::fabs(info.high));
        if (!ReferenceIsValid(p[i])) {
          EXPECT_EQ(std::vector<uint8_t>(c, c + 3), std::vector<uint8_t>(kernel, kernel + 3));
        } else if (nearBound) {
          continue;
        } else if (v < info.low) {
          ++belowSeen;
          EXPECT_EQ(c[0], below.b);
          EXPECT_EQ(c[1], below.g);
          EXPECT_EQ(c[2], below.r);
        } else if (v > info.high) {
          ++aboveSeen;
          EXPECT_EQ(c[0], above.b);
          EXPECT_EQ(c[1], above.g);
          EXPECT_EQ(c[2], above.r);
        } else {
          EXPECT_EQ(std::vector<uint8_t>(c, c + 3), std::vector<uint8_t>(kernel, kernel + 3));
        }
      }
      EXPECT_GT(belowSeen, 0);
      EXPECT_GT(aboveSeen, 0);
    }
  });
}

TEST(ColorRangeImage, AnImageWithoutValidPixelsIsAllNoData) {
  KivRangeImage image(9, 4, KIV_DATA_S32);
  for (int i = 0; i < 36; ++i) image.Ptr<int32_t>()[i] = i % 2 ? 0 : INT_MIN;
  for (auto bounds : {KivBoundsSource::kMeasured, KivBoundsSource::kPercentile}) {
    KivColoringOptions options = Options(KivColoringMode::kEqualised, bounds);
    options.noDataColor = KivRgb{7, 8, 9};
    KivColorArray out;
    KivColoringInfo info;
    ASSERT_EQ(KivColorRangeImage(image, KivColorTable::Described(1), options, &out, &info),
              KIV_EXT_OK);
    for (int i = 0; i < 36; ++i) {
      EXPECT_EQ(out.Data()[3 * i], 9);
      EXPECT_EQ(out.Data()[3 * i + 1], 8);
      EXPECT_EQ(out.Data()[3 * i + 2], 7);
    }
    EXPECT_TRUE(std::isnan(info.minimum));
    EXPECT_TRUE(std::isnan(info.maximum));
    EXPECT_EQ(info.validCount, 0);
    EXPECT_EQ(info.noDataCount, 36);
    EXPECT_TRUE(info.entryStart.empty());
  }
}

TEST(ColorRangeImage, NoDataTakesTheTablesNoDataColourUnlessGiven) {
  std::mt19937_64 random(15);
  const KivRangeImage image = ScaledImage<float>(31, 7, random);
  KivColorTable table = DistinctTable();
  table.SetNoDataColor(KivRgb{40, 50, 60});
  KivColorArray out;
  ASSERT_EQ(KivColorRangeImage(image, table,
                               Options(KivColoringMode::kLinear, KivBoundsSource::kMeasured), &out),
            KIV_EXT_OK);
  for (int i = 0; i < 31 * 7; ++i) {
    if (ReferenceIsValid(image.Ptr<float>()[i])) continue;
    EXPECT_EQ(out.Data()[3 * i], 60);
    EXPECT_EQ(out.Data()[3 * i + 2], 40);
  }
}

// ---- Float arrays and grey images colour as range images of the same values ----

TEST(ColorFloatArray, ColoursAsAFloatRangeImageWithNonFiniteValuesAsNoData) {
  std::mt19937_64 random(16);
  const KivRangeImage image = RandomRangeImage<float>(97, 13, random);
  const int n = 97 * 13;
  Kiv3DFloatArray values(n);
  std::memcpy(values.Data(), image.Ptr<float>(), sizeof(float) * n);
  for (auto mode : {KivColoringMode::kEqualised, KivColoringMode::kLinear}) {
    KivColoringOptions options = Options(mode, KivBoundsSource::kPercentile);
    options.noDataColor = KivRgb{1, 2, 3};
    options.channels = 4;
    KivColorArray fromArray, fromImage;
    KivColoringInfo arrayInfo, imageInfo;
    ASSERT_EQ(KivColorFloatArray(values, DistinctTable(), options, &fromArray, &arrayInfo),
              KIV_EXT_OK);
    ASSERT_EQ(KivColorRangeImage(image, DistinctTable(), options, &fromImage, &imageInfo),
              KIV_EXT_OK);
    EXPECT_EQ(fromArray.Length(), n);
    EXPECT_EQ(Bytes(fromArray), Bytes(fromImage));
    EXPECT_EQ(arrayInfo.entryStart, imageInfo.entryStart);
    for (int i = 0; i < n; ++i) {
      if (std::isfinite(values.Data()[i])) continue;
      EXPECT_EQ(fromArray.Data()[4 * i], 3);
      EXPECT_EQ(fromArray.Data()[4 * i + 3], 0);
    }
  }
}

template <typename Grey>
KivImage RandomGrey(int width, int height, std::mt19937_64& random) {
  const KivImageType type = sizeof(Grey) == 1 ? KIV_IMAGE_8U : KIV_IMAGE_16U;
  KivImage image(width, height, 1, type);
  std::uniform_int_distribution<int> value(0, sizeof(Grey) == 1 ? 255 : 65535);
  std::uniform_int_distribution<int> pick(0, 9);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      image.Mat().at<Grey>(y, x) = static_cast<Grey>(pick(random) == 0 ? 0 : value(random));
    }
  }
  return image;
}

// The grey values as a float range image, whose rule takes every value as data.
template <typename Grey>
KivRangeImage AsFloatImage(const KivImage& grey, bool zeroIsNoData) {
  KivRangeImage image(grey.Width(), grey.Height(), KIV_DATA_F32);
  for (int y = 0; y < grey.Height(); ++y) {
    for (int x = 0; x < grey.Width(); ++x) {
      const Grey g = grey.Mat().at<Grey>(y, x);
      image.Ptr<float>()[y * grey.Width() + x] =
          zeroIsNoData && g == 0 ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(g);
    }
  }
  return image;
}

template <typename Grey>
void CheckGrey(std::mt19937_64& random) {
  const KivImage grey = RandomGrey<Grey>(61, 29, random);
  for (bool zeroIsNoData : {false, true}) {
    const KivRangeImage image = AsFloatImage<Grey>(grey, zeroIsNoData);
    for (auto mode : {KivColoringMode::kEqualised, KivColoringMode::kLinear}) {
      KivColoringOptions options = Options(mode, KivBoundsSource::kMeasured);
      options.greyZeroIsNoData = zeroIsNoData;
      options.noDataColor = KivRgb{1, 2, 3};
      KivColorArray fromGrey, fromImage;
      KivColoringInfo greyInfo;
      ASSERT_EQ(KivColorGreyImage(grey, DistinctTable(), options, &fromGrey, &greyInfo),
                KIV_EXT_OK);
      ASSERT_EQ(KivColorRangeImage(image, DistinctTable(), options, &fromImage), KIV_EXT_OK);
      EXPECT_EQ(fromGrey.Width(), 61);
      EXPECT_EQ(fromGrey.Height(), 29);
      if (sizeof(Grey) == 2) {
        EXPECT_EQ(Bytes(fromGrey), Bytes(fromImage));
      }
      int zeros = 0;
      for (int i = 0; i < 61 * 29; ++i) {
        if (grey.Mat().at<Grey>(i / 61, i % 61) != 0) continue;
        ++zeros;
        const bool noData = fromGrey.Data()[3 * i] == 3 && fromGrey.Data()[3 * i + 2] == 1;
        EXPECT_EQ(noData, zeroIsNoData);
      }
      EXPECT_GT(zeros, 0);
      double minimum = 1e9;
      for (int i = 0; i < 61 * 29; ++i) {
        const Grey g = grey.Mat().at<Grey>(i / 61, i % 61);
        if (!(zeroIsNoData && g == 0)) minimum = std::min<double>(minimum, g);
      }
      EXPECT_EQ(greyInfo.minimum, minimum);
      // 8-bit grey is coloured as 16-bit integers: the colours still follow the table position.
      for (int i = 0; i < 61 * 29; ++i) {
        const Grey g = grey.Mat().at<Grey>(i / 61, i % 61);
        if (zeroIsNoData && g == 0) continue;
        const double position = greyInfo.TablePosition(g);
        const int expected = std::min(255, static_cast<int>(std::floor(position * 256)));
        const int entry = EntryOfColour(fromGrey.Data() + 3 * i);
        if (mode == KivColoringMode::kLinear) {
          bool nearStart = false;
          for (double start : greyInfo.entryStart) nearStart |= std::fabs(g - start) < 1e-3;
          if (nearStart) continue;
        } else if (FallsBackAbove(entry, expected, g, greyInfo)) {
          continue;
        }
        EXPECT_EQ(entry, expected) << "grey " << static_cast<int>(g);
      }
    }
  }
}

TEST(ColorGreyImage, EveryGreyIsDataUnlessZeroIsNoData) {
  std::mt19937_64 random(17);
  CheckGrey<uint8_t>(random);
  CheckGrey<uint16_t>(random);
}

// ---- Refusals leave the output and the info as they were ----

KivColorArray Sentinel() {
  KivColorArray a;
  a.Create(5, 3);
  for (int i = 0; i < 15; ++i) a.Data()[i] = static_cast<uint8_t>(100 + i);
  return a;
}

void ExpectSentinel(const KivColorArray& a, const KivColoringInfo& info) {
  ASSERT_EQ(a.Length(), 5);
  for (int i = 0; i < 15; ++i) EXPECT_EQ(a.Data()[i], 100 + i);
  EXPECT_EQ(info.validCount, 4242);
}

TEST(ColorRangeImage, RefusalsReturnTheirCodeAndTouchNothing) {
  std::mt19937_64 random(18);
  const KivRangeImage good = ScaledImage<uint16_t>(8, 6, random);
  KivRangeImage typed = good;
  typed.SetType(2);
  KivRangeImage empty(0, 0, KIV_DATA_U16);
  KivRangeImage unscaled = ScaledImage<uint16_t>(8, 6, random);
  unscaled.SetResolution(1.0, 1.0, 0.0);
  const KivColoringOptions plain;
  auto with = [](auto change) {
    KivColoringOptions o;
    change(o);
    return o;
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  auto given = [](double low, double high) {
    return Options(KivColoringMode::kLinear, KivBoundsSource::kGiven, low, high);
  };
  auto percent = [](double low, double high) {
    KivColoringOptions o = Options(KivColoringMode::kEqualised, KivBoundsSource::kPercentile);
    o.lowPercentile = low;
    o.highPercentile = high;
    return o;
  };
  const struct {
    const KivRangeImage* image;
    KivColoringOptions options;
    long expected;
  } cases[] = {
      {&typed, plain, KIV_EXT_ERR_INPUT_TYPE},
      {&empty, plain, KIV_EXT_ERR_EMPTY_INPUT},
      {&unscaled, plain, KIV_EXT_ERR_INPUT_TYPE},
      {&good, with([](KivColoringOptions& o) { o.channels = 1; }), KIV_EXT_ERR_CHANNELS},
      {&good, with([](KivColoringOptions& o) { o.channels = 5; }), KIV_EXT_ERR_CHANNELS},
      {&good, given(nan, 1.0), KIV_EXT_ERR_BOUNDS},
      {&good, given(0.0, inf), KIV_EXT_ERR_BOUNDS},
      {&good, given(2.0, 1.0), KIV_EXT_ERR_BOUNDS},
      {&good, percent(-1.0, 50.0), KIV_EXT_ERR_PERCENTILES},
      {&good, percent(10.0, 100.5), KIV_EXT_ERR_PERCENTILES},
      {&good, percent(60.0, 50.0), KIV_EXT_ERR_PERCENTILES},
      {&good, percent(nan, 50.0), KIV_EXT_ERR_PERCENTILES},
  };
  for (const auto& c : cases) {
    KivColorArray out = Sentinel();
    KivColoringInfo info;
    info.validCount = 4242;
    EXPECT_EQ(KivColorRangeImage(*c.image, DistinctTable(), c.options, &out, &info), c.expected);
    ExpectSentinel(out, info);
  }
  EXPECT_EQ(KivColorRangeImage(good, DistinctTable(), plain, nullptr), KIV_EXT_ERR_NULL_OUTPUT);
}

TEST(ColorFloatArrayAndGreyImage, RefusalsReturnTheirCodeAndTouchNothing) {
  const KivColoringOptions plain;
  KivColoringOptions crossed = Options(KivColoringMode::kLinear, KivBoundsSource::kGiven, 3, 1);
  Kiv3DFloatArray values(4);
  Kiv3DFloatArray none;
  KivImage grey(3, 2, 1, KIV_IMAGE_8U);
  KivImage colour(3, 2, 3, KIV_IMAGE_8U);
  KivImage wide(3, 2, 1, KIV_IMAGE_32F);
  KivImage blank;
  struct Case {
    long status;
    long expected;
  };
  auto run = [](auto call) {
    KivColorArray out = Sentinel();
    KivColoringInfo info;
    info.validCount = 4242;
    const long status = call(&out, &info);
    ExpectSentinel(out, info);
    return status;
  };
  const KivColorTable table;
  const Case cases[] = {
      {run([&](KivColorArray* o, KivColoringInfo* i) {
         return KivColorFloatArray(none, table, plain, o, i);
       }),
       KIV_EXT_ERR_EMPTY_INPUT},
      {run([&](KivColorArray* o, KivColoringInfo* i) {
         return KivColorFloatArray(values, table, crossed, o, i);
       }),
       KIV_EXT_ERR_BOUNDS},
      {run([&](KivColorArray* o, KivColoringInfo* i) {
         return KivColorGreyImage(blank, table, plain, o, i);
       }),
       KIV_EXT_ERR_EMPTY_INPUT},
      {run([&](KivColorArray* o, KivColoringInfo* i) {
         return KivColorGreyImage(colour, table, plain, o, i);
       }),
       KIV_EXT_ERR_INPUT_TYPE},
      {run([&](KivColorArray* o, KivColoringInfo* i) {
         return KivColorGreyImage(wide, table, plain, o, i);
       }),
       KIV_EXT_ERR_INPUT_TYPE},
      {run([&](KivColorArray* o, KivColoringInfo* i) {
         return KivColorGreyImage(grey, table, crossed, o, i);
       }),
       KIV_EXT_ERR_BOUNDS},
  };
  for (const Case& c : cases) EXPECT_EQ(c.status, c.expected);
  EXPECT_EQ(KivColorFloatArray(values, table, plain, nullptr), KIV_EXT_ERR_NULL_OUTPUT);
  EXPECT_EQ(KivColorGreyImage(grey, table, plain, nullptr), KIV_EXT_ERR_NULL_OUTPUT);
}

}  // namespace
}  // namespace KIVMV
