#include "range/linear_mapping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "KivLUTSetting.h"
#include "common/fault_injection.h"
#include "frame/end_messages.h"
#include "range/range_test_support.h"
#include "support/log_capture.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

using testing_support::ForEachPixelType;
using testing_support::LoadRealFrames;
using testing_support::Marker;
using testing_support::RandomRangeImage;
using testing_support::TestSizes;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

using Bytes = std::vector<uint8_t>;

// ---------------------------------------------------------------------------------------------
// Plain serial restatements of the four mappings, one pixel at a time, straight from the rules.

// The valid-pixel test per type: distance from the marker above 1e-8, and a finite value.
template <typename T>
bool RefValid(T v) {
  double d = 0.0;
  if constexpr (std::is_same_v<T, uint8_t> || std::is_same_v<T, uint16_t>) {
    d = static_cast<double>(v);
  } else if constexpr (std::is_same_v<T, int8_t>) {
    d = static_cast<double>(v) + 128;
  } else if constexpr (std::is_same_v<T, int16_t>) {
    d = static_cast<double>(v) + 32768;
  } else if constexpr (std::is_same_v<T, int32_t>) {
    // v - INT_MIN and its absolute value, both wrapping in 32 bits.
    const uint32_t wrapped = static_cast<uint32_t>(v) - 0x80000000u;
    int64_t signedWrapped = wrapped >= 0x80000000u ? int64_t{wrapped} - 0x100000000 : wrapped;
    if (signedWrapped < 0 && signedWrapped != INT32_MIN) signedWrapped = -signedWrapped;
    d = static_cast<double>(signedWrapped);
  } else if constexpr (std::is_same_v<T, float>) {
    const float distance = std::fabs(v - (-FLT_MAX));
    d = distance;
  } else {
    d = std::fabs(v - (-DBL_MAX));
  }
  return d > 1e-8 && std::isfinite(static_cast<double>(v));
}

// Truncation to 64 bits as x86-64 does it: NaN and out of range give INT64_MIN.
int64_t RefTruncate(double x) {
  if (std::isnan(x) || x >= 9223372036854775808.0 || x < -9223372036854775808.0) return INT64_MIN;
  return static_cast<int64_t>(x);
}

int RefLowByte(int64_t x) { return static_cast<int>(static_cast<uint64_t>(x) & 0xFF); }

void Put(Bytes& out, int i, const ColourEntry& c) {
  out[3 * static_cast<size_t>(i)] = c[0];
  out[3 * static_cast<size_t>(i) + 1] = c[1];
  out[3 * static_cast<size_t>(i) + 2] = c[2];
}

ColourEntry RefStored(const KivColor& c) {
  return {static_cast<uint8_t>(c[2] & 0xFF), static_cast<uint8_t>(c[1] & 0xFF),
          static_cast<uint8_t>(c[0] & 0xFF)};
}

template <typename T>
const T* Pixels(const KivRangeImage& image) {
  return reinterpret_cast<const T*>(image.Mat().data);
}

int PixelCount(const KivRangeImage& image) { return image.Width() * image.Height(); }

struct WithColours {
  int mapType;
  double low, high;
  int indexLow, indexHigh;
  KivColor under, over;
};

// The serial rule for one pixel, with bounds already in raw units.
template <typename T>
ColourEntry RefSerialColour(T raw, double low, double high, const WithColours& p) {
  const double v = static_cast<double>(raw);
  if (!RefValid(raw)) return InvalidColorTable[p.mapType];
  if (low > v) return RefStored(p.under);
  if (v > high) return RefStored(p.over);
  const int k =
      RefLowByte(RefTruncate((v - low) / (high - low) * (p.indexHigh - p.indexLow))) + p.indexLow;
  return SelectColourTable(p.mapType)[std::max(k - 1, 0)];
}

template <typename T>
Bytes RefWithColours(const KivRangeImage& image, const WithColours& p) {
  const int n = PixelCount(image);
  double low = p.low, high = p.high;
  if constexpr (std::is_integral_v<T>) {
    const double r = image.ResolutionZ(), o = image.OffsetZ();
    low = (low + o * r) / r;
    // The truncation takes the whole upper expression, the added unit included.
    high = static_cast<double>(RefTruncate((high + o * r) / r + 1.0));
  }
  Bytes out(3 * static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) Put(out, i, RefSerialColour(Pixels<T>(image)[i], low, high, p));
  return out;
}

// The parallel body's rule for one pixel.
template <typename T>
ColourEntry RefBodyColour(T raw, float lo, float hi, int mapType) {
  if (!RefValid(raw)) return InvalidColorTable[mapType];
  const float v = static_cast<float>(raw);
  int entry = 0;
  if (v > hi) {
    entry = 255;
  } else if (v < lo) {
    entry = 0;
  } else {
    const float above = v - lo;
    const float span = hi - lo;
    entry = RefLowByte(RefTruncate(static_cast<double>(above) * 255.0 / static_cast<double>(span)));
    if (entry == 0) entry = 1;
  }
  return SelectColourTable(mapType)[entry];
}

template <typename T>
Bytes RefBody(const T* pixels, int n, float lo, float hi, int mapType) {
  Bytes out(3 * static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) Put(out, i, RefBodyColour(pixels[i], lo, hi, mapType));
  return out;
}

template <typename T>
Bytes RefWithBounds(const KivRangeImage& image, int mapType, double low, double high) {
  if constexpr (std::is_integral_v<T>) {
    const float r = static_cast<float>(image.ResolutionZ());
    const float shift = static_cast<float>(image.OffsetZ() * image.ResolutionZ());
    low = (low + shift) / r;
    high = (high + shift) / r + 1.0;
  }
  return RefBody(Pixels<T>(image), PixelCount(image), static_cast<float>(low),
                 static_cast<float>(high), mapType);
}

template <typename T>
std::pair<T, T> RefMinMax(const T* pixels, int n) {
  T minimum = std::numeric_limits<T>::max();
  T maximum = std::numeric_limits<T>::lowest();
  for (int i = 0; i < n; ++i) {
    if (!RefValid(pixels[i])) continue;
    if (pixels[i] < minimum) minimum = pixels[i];
    if (pixels[i] > maximum) maximum = pixels[i];
  }
  return {minimum, maximum};
}

template <typename T>
Bytes RefMinMaxMapping(const KivRangeImage& image, int mapType) {
  const int n = PixelCount(image);
  const auto [minimum, maximum] = RefMinMax(Pixels<T>(image), n);
  return RefBody(Pixels<T>(image), n, static_cast<float>(minimum), static_cast<float>(maximum),
                 mapType);
}

struct RefCut {
  float lowValue, highValue;
};

RefCut RefFractionCut(const float* pixels, int n, double upper, double lower) {
  std::vector<float> valid;
  for (int i = 0; i < n; ++i) {
    if (RefValid(pixels[i])) valid.push_back(pixels[i]);
  }
  std::sort(valid.begin(), valid.end());
  RefCut cut{0.0f, 0.0f};
  const int64_t count = static_cast<int64_t>(valid.size());
  if (count > 0) {
    int64_t lowIndex = RefTruncate(static_cast<double>(count) * lower);
    int64_t highIndex = RefTruncate((1.0 - upper) * static_cast<double>(count));
    lowIndex = std::min(lowIndex, count - 1);
    highIndex = std::min(highIndex, count - 1);
    highIndex = std::max(highIndex, lowIndex);
    cut = {valid[static_cast<size_t>(lowIndex)], valid[static_cast<size_t>(highIndex)]};
  }
  if (cut.lowValue == cut.highValue) cut.highValue = cut.lowValue + 1e-6f;
  return cut;
}

Bytes RefFractions(const KivRangeImage& image, int mapType, double upper, double lower) {
  const int n = PixelCount(image);
  std::vector<float> values(Pixels<float>(image), Pixels<float>(image) + n);
  const RefCut cut = RefFractionCut(values.data(), n, upper, lower);
  for (float& v : values) {
    float x = (v - cut.lowValue) / (cut.highValue - cut.lowValue);
    if (x < 0.0f) x = 0.0f;
    if (x > 1.0f) x = 1.0f;
    v = x;
  }
  const auto [minimum, maximum] = RefMinMax(values.data(), n);
  return RefBody(values.data(), n, minimum, maximum, mapType);
}

// ---------------------------------------------------------------------------------------------
// Helpers.

Bytes OutputBytes(const KivColorArray& out, int n) {
  const uint8_t* data = out.Data();
  return data == nullptr ? Bytes() : Bytes(data, data + 3 * static_cast<size_t>(n));
}

size_t ByteCount(const KivColorArray& out) { return out.Mat().total() * out.Mat().elemSize(); }

Bytes AllBytes(const KivColorArray& out) {
  const uint8_t* data = out.Data();
  return data == nullptr ? Bytes() : Bytes(data, data + ByteCount(out));
}

bool SameImage(const KivRangeImage& a, const KivRangeImage& b) {
  if (a.Width() != b.Width() || a.Height() != b.Height() || a.Type() != b.Type() ||
      a.DataType() != b.DataType() || a.ResolutionZ() != b.ResolutionZ() ||
      a.OffsetZ() != b.OffsetZ() || a.Mat().type() != b.Mat().type() ||
      a.Mat().size() != b.Mat().size()) {
    return false;
  }
  const size_t bytes = a.Mat().total() * a.Mat().elemSize();
  return bytes == 0 || std::memcmp(a.Mat().data, b.Mat().data, bytes) == 0;
}

void FillRandom(KivColorArray& out, std::mt19937_64& random) {
  std::uniform_int_distribution<int> byte(0, 255);
  for (size_t i = 0; i < ByteCount(out); ++i) out.Data()[i] = static_cast<uint8_t>(byte(random));
}

// An output array as a caller might hand it in: empty, of another length, or of the right length
// with 3 or 4 channels, always holding garbage.
enum class Garbage { kEmpty, kOtherLength, kRightLength, kRightLengthFourChannels };

KivColorArray GarbageOutput(int n, Garbage kind, std::mt19937_64& random) {
  KivColorArray out;
  switch (kind) {
    case Garbage::kEmpty:
      break;
    case Garbage::kOtherLength:
      out.Create(n + 1 + static_cast<int>(random() % 5), 3);
      break;
    case Garbage::kRightLength:
      out.Create(n, 3);
      break;
    case Garbage::kRightLengthFourChannels:
      out.Create(n, 4);
      break;
  }
  FillRandom(out, random);
  return out;
}

// Checks the result of a call against the reference bytes: right length, and an array of the
// right length reused in place (with 4 channels, only the first 3n bytes are written).
void ExpectOutput(const KivColorArray& out, const Bytes& before, const uint8_t* dataBefore,
                  Garbage kind, int n, const Bytes& expected) {
  ASSERT_EQ(out.Length(), n);
  if (kind == Garbage::kRightLength || kind == Garbage::kRightLengthFourChannels) {
    EXPECT_EQ(out.Data(), dataBefore);
  }
  EXPECT_EQ(out.Channel(), kind == Garbage::kRightLengthFourChannels ? 4 : 3);
  const Bytes got = OutputBytes(out, n);
  ASSERT_EQ(got.size(), expected.size());
  size_t firstDifference = got.size();
  for (size_t i = 0; i < got.size(); ++i) {
    if (got[i] != expected[i]) {
      firstDifference = i;
      break;
    }
  }
  EXPECT_EQ(firstDifference, got.size()) << "pixel " << firstDifference / 3;
  if (kind == Garbage::kRightLengthFourChannels) {
    const Bytes all = AllBytes(out);
    EXPECT_TRUE(std::equal(all.begin() + 3 * n, all.end(), before.begin() + 3 * n));
  }
}

Garbage RandomGarbage(std::mt19937_64& random) { return static_cast<Garbage>(random() % 4); }

// Physical scales: ordinary, fine, coarse, shifted, negative and zero resolutions.
void RandomScale(KivRangeImage& image, std::mt19937_64& random) {
  static const double kScales[][2] = {{1.0, 0.0},    {0.5, 0.0},    {0.001, 3.0}, {2.5, -7.0},
                                      {0.1, 100.25}, {-1.0, 0.0},   {-0.02, 5.0}, {0.0, 0.0},
                                      {1.0, 0.0},    {0.0002, 0.0}, {3.0, 1.5}};
  const auto& s = kScales[random() % (sizeof(kScales) / sizeof(kScales[0]))];
  image.SetResolution(1.0, 1.0, s[0]);
  image.SetOffset(0.0, 0.0, s[1]);
}

template <typename T>
std::vector<double> ValidValues(const KivRangeImage& image) {
  std::vector<double> values;
  for (int i = 0; i < PixelCount(image); ++i) {
    if (RefValid(Pixels<T>(image)[i])) values.push_back(static_cast<double>(Pixels<T>(image)[i]));
  }
  return values;
}

// Bounds inside, outside, straddling and equal to the data, in physical units and ordered.
template <typename T>
std::pair<double, double> RandomBounds(const KivRangeImage& image, std::mt19937_64& random) {
  std::vector<double> values = ValidValues<T>(image);
  if (values.empty()) values.push_back(static_cast<double>(std::numeric_limits<T>::max()) / 3);
  std::sort(values.begin(), values.end());
  const double minimum = values.front(), maximum = values.back();
  const double spread = std::max(1.0, maximum - minimum);
  auto pick = [&] { return values[random() % values.size()]; };
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  double a = 0.0, b = 0.0;
  switch (random() % 9) {
    case 0:  // inside
      a = pick();
      b = pick();
      break;
    case 1:  // below everything
      a = minimum - spread * (1.0 + unit(random));
      b = minimum - spread * unit(random);
      break;
    case 2:  // above everything
      a = maximum + spread * unit(random);
      b = maximum + spread * (1.0 + unit(random));
      break;
    case 3:  // straddling the bottom
      a = minimum - spread * unit(random);
      b = pick();
      break;
    case 4:  // straddling the top
      a = pick();
      b = maximum + spread * unit(random);
      break;
    case 5:  // equal, on a value
      a = b = pick();
      break;
    case 6:  // fractional, inside
      a = minimum + spread * unit(random);
      b = minimum + spread * unit(random);
      break;
    case 7:  // around everything
      a = minimum - 0.5;
      b = maximum + 0.5;
      break;
    default:  // unbounded
      a = -kInf;
      b = random() % 2 ? kInf : pick();
      break;
  }
  // Raw units to physical ones for the integer types; for float and double they are the same.
  if constexpr (std::is_integral_v<T>) {
    const double r = image.ResolutionZ(), o = image.OffsetZ();
    a = a * r - o * r;
    b = b * r - o * r;
  }
  if (!(a <= b)) std::swap(a, b);
  if (std::isnan(a) || std::isnan(b)) a = b = 0.0;
  return {a, b};
}

std::pair<int, int> RandomIndexRange(std::mt19937_64& random) {
  switch (random() % 5) {
    case 0:
      return {0, 0};
    case 1:
      return {0, 255};
    case 2: {
      const int i = static_cast<int>(random() % 256);
      return {i, i};
    }
    default: {
      const int a = static_cast<int>(random() % 256), b = static_cast<int>(random() % 256);
      return {std::min(a, b), std::max(a, b)};
    }
  }
}

KivColor RandomColour(std::mt19937_64& random) {
  std::uniform_int_distribution<int> component(INT_MIN, INT_MAX);
  std::uniform_int_distribution<int> byte(0, 255);
  if (random() % 2) return KivColor(byte(random), byte(random), byte(random), byte(random));
  return KivColor(component(random), component(random), component(random), component(random));
}

int RandomMapType(std::mt19937_64& random) { return static_cast<int>(random() % 11); }

// Parameter sets per image: fewer for the camera-sized frame so that the file stays quick.
int Repeats(int width, int height) { return width * height > 100000 ? 3 : 10; }

KivRangeImage U16Image(const std::vector<uint16_t>& values) {
  KivRangeImage image(static_cast<int>(values.size()), 1, KIV_DATA_U16);
  std::copy(values.begin(), values.end(), image.Ptr<uint16_t>());
  return image;
}

KivRangeImage FloatImage(const std::vector<float>& values) {
  KivRangeImage image(static_cast<int>(values.size()), 1, KIV_DATA_F32);
  std::copy(values.begin(), values.end(), image.Ptr<float>());
  return image;
}

ColourEntry Entry(int mapType, int index) { return SelectColourTable(mapType)[index]; }

ColourEntry PixelColour(const KivColorArray& out, int i) {
  const uint8_t* p = out.Data() + 3 * static_cast<size_t>(i);
  return {p[0], p[1], p[2]};
}

// The four overloads behind one signature, for tests that treat them alike.
enum class Overload { kWithColours, kWithBounds, kMinMax, kFractions };
constexpr Overload kOverloads[] = {Overload::kWithColours, Overload::kWithBounds, Overload::kMinMax,
                                   Overload::kFractions};

long Call(Overload overload, KivRangeImage& image, int mapType, KivColorArray* out) {
  KivLUTSetting lut;
  switch (overload) {
    case Overload::kWithColours:
      return lut.LinearColorMapLUT(image, mapType, -1e9, 1e9, 0, 255, KivColor(1, 2, 3),
                                   KivColor(4, 5, 6), out);
    case Overload::kWithBounds:
      return lut.LinearColorMapLUT(image, mapType, -1e9, 1e9, out);
    case Overload::kMinMax:
      return lut.LinearColorMapLUT(image, mapType, out);
    case Overload::kFractions:
      return lut.LinearColorMapLUT(image, out, mapType, 0.0, 0.0);
  }
  return -2;
}

// ---------------------------------------------------------------------------------------------
// Random images of every pixel type against the reference loops.

TEST(LinearMapping, WithColoursMatchesReferenceOnRandomImages) {
  std::mt19937_64 random(101);
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    SCOPED_TRACE(static_cast<int>(PixelTraits<T>::kDataType));
    for (const auto& [width, height] : TestSizes()) {
      for (int repeat = 0; repeat < Repeats(width, height); ++repeat) {
        KivRangeImage image = RandomRangeImage<T>(width, height, random);
        image.SetType(static_cast<int>(random() % 2));
        RandomScale(image, random);
        const KivRangeImage before = image.DeepCopy();
        const auto [low, high] = RandomBounds<T>(image, random);
        const auto [indexLow, indexHigh] = RandomIndexRange(random);
        const WithColours p{
            RandomMapType(random), low, high, indexLow, indexHigh, RandomColour(random),
            RandomColour(random)};
        const int n = width * height;
        const Garbage kind = RandomGarbage(random);
        KivColorArray out = GarbageOutput(n, kind, random);
        const Bytes garbage = AllBytes(out);
        const uint8_t* data = out.Data();
        SCOPED_TRACE(testing::Message()
                     << width << "x" << height << " map " << p.mapType << " bounds " << low << ".."
                     << high << " indices " << indexLow << ".." << indexHigh);
        KivLUTSetting lut;
        ASSERT_EQ(lut.LinearColorMapLUT(image, p.mapType, low, high, indexLow, indexHigh, p.under,
                                        p.over, &out),
                  LUT_OK);
        ExpectOutput(out, garbage, data, kind, n, RefWithColours<T>(before, p));
        EXPECT_TRUE(SameImage(image, before));
      }
    }
  });
}

TEST(LinearMapping, WithBoundsMatchesReferenceOnRandomImages) {
  std::mt19937_64 random(202);
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    SCOPED_TRACE(static_cast<int>(PixelTraits<T>::kDataType));
    for (const auto& [width, height] : TestSizes()) {
      for (int repeat = 0; repeat < Repeats(width, height); ++repeat) {
        KivRangeImage image = RandomRangeImage<T>(width, height, random);
        RandomScale(image, random);
        const KivRangeImage before = image.DeepCopy();
        const auto [low, high] = RandomBounds<T>(image, random);
        const int mapType = RandomMapType(random);
        const int n = width * height;
        const Garbage kind = RandomGarbage(random);
        KivColorArray out = GarbageOutput(n, kind, random);
        const Bytes garbage = AllBytes(out);
        const uint8_t* data = out.Data();
        SCOPED_TRACE(testing::Message() << width << "x" << height << " map " << mapType
                                        << " bounds " << low << ".." << high);
        KivLUTSetting lut;
        ASSERT_EQ(lut.LinearColorMapLUT(image, mapType, low, high, &out), LUT_OK);
        ExpectOutput(out, garbage, data, kind, n, RefWithBounds<T>(before, mapType, low, high));
        EXPECT_TRUE(SameImage(image, before));
      }
    }
  });
}

TEST(LinearMapping, MinMaxMatchesReferenceOnRandomImages) {
  std::mt19937_64 random(303);
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    SCOPED_TRACE(static_cast<int>(PixelTraits<T>::kDataType));
    for (const auto& [width, height] : TestSizes()) {
      for (int repeat = 0; repeat < Repeats(width, height); ++repeat) {
        KivRangeImage image = RandomRangeImage<T>(width, height, random);
        RandomScale(image, random);
        const KivRangeImage before = image.DeepCopy();
        const int mapType = RandomMapType(random);
        const int n = width * height;
        const Garbage kind = RandomGarbage(random);
        KivColorArray out = GarbageOutput(n, kind, random);
        const Bytes garbage = AllBytes(out);
        const uint8_t* data = out.Data();
        SCOPED_TRACE(testing::Message() << width << "x" << height << " map " << mapType);
        KivLUTSetting lut;
        ASSERT_EQ(lut.LinearColorMapLUT(image, mapType, &out), LUT_OK);
        ExpectOutput(out, garbage, data, kind, n, RefMinMaxMapping<T>(before, mapType));
        EXPECT_TRUE(SameImage(image, before));
      }
    }
  });
}

double RandomFraction(std::mt19937_64& random) {
  switch (random() % 6) {
    case 0:
      return 0.0;
    case 1:
      return 1.0;
    case 2:
      return std::uniform_real_distribution<double>(0.0, 0.1)(random);
    default:
      return std::uniform_real_distribution<double>(0.0, 1.0)(random);
  }
}

TEST(LinearMapping, FractionsMatchReferenceOnRandomFloatImages) {
  std::mt19937_64 random(404);
  for (const auto& [width, height] : TestSizes()) {
    for (int repeat = 0; repeat < Repeats(width, height); ++repeat) {
      KivRangeImage image = RandomRangeImage<float>(width, height, random);
      const KivRangeImage before = image.DeepCopy();
      const double upper = RandomFraction(random), lower = RandomFraction(random);
      const int mapType = RandomMapType(random);
      const int n = width * height;
      const Garbage kind = RandomGarbage(random);
      KivColorArray out = GarbageOutput(n, kind, random);
      const Bytes garbage = AllBytes(out);
      const uint8_t* data = out.Data();
      SCOPED_TRACE(testing::Message() << width << "x" << height << " map " << mapType
                                      << " fractions " << upper << ", " << lower);
      KivLUTSetting lut;
      ASSERT_EQ(lut.LinearColorMapLUT(image, &out, mapType, upper, lower), LUT_OK);
      ExpectOutput(out, garbage, data, kind, n, RefFractions(before, mapType, upper, lower));
      EXPECT_TRUE(SameImage(image, before));
    }
  }
}

// Images without a single valid value, and images of one repeated value.
TEST(LinearMapping, FractionsMatchReferenceOnDegenerateFloatImages) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const std::vector<std::vector<float>> images = {
      {nan, nan, nan},
      {-FLT_MAX, -FLT_MAX},
      {nan, -FLT_MAX, inf, -inf},
      {7.0f, 7.0f, nan, 7.0f},
      {1000.0f, 1000.0f},
      {-FLT_MAX, 3.0f, inf, -inf, nan},
      {FLT_MAX, -FLT_MAX / 2, 0.0f, -0.0f},
  };
  const double fractions[][2] = {{0.0, 0.0}, {1.0, 1.0}, {0.0, 1.0}, {1.0, 0.0}, {0.3, 0.3}};
  for (const auto& values : images) {
    for (const auto& f : fractions) {
      for (int mapType : {0, 2, 6}) {
        KivRangeImage image = FloatImage(values);
        KivColorArray out;
        KivLUTSetting lut;
        ASSERT_EQ(lut.LinearColorMapLUT(image, &out, mapType, f[0], f[1]), LUT_OK);
        EXPECT_EQ(OutputBytes(out, image.Width()), RefFractions(image, mapType, f[0], f[1]));
      }
    }
  }
}

// The same kinds of image repeated over more pixels than the lookup of the colouring needs, with
// spans that are zero (a repeated value too large for 1e-6 to move), infinite (values near both
// ends of the float range) or ordinary, and zeros of both signs.
TEST(LinearMapping, FractionsMatchReferenceOnLargeDegenerateFloatImages) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const std::vector<std::vector<float>> patterns = {
      {1000.0f, 1000.0f, nan, 1000.0f},
      {-3e38f, 3e38f, inf, -inf, nan, 0.0f},
      {FLT_MAX, -FLT_MAX / 2, 0.0f, -0.0f},
      {0.0f, -0.0f, -0.0f, 0.0f, 1.0f, -1.0f, nan},
      {-FLT_MAX, 3.0f, inf, -inf, nan, 2.5f, 2.75f},
      {1e-45f, -1e-45f, 0.0f, 2e-45f, nan},
  };
  const double fractions[][2] = {{0.0, 0.0}, {1.0, 1.0}, {0.0, 1.0}, {0.3, 0.3}, {0.01, 0.01}};
  for (const auto& pattern : patterns) {
    std::vector<float> values;
    for (int i = 0; values.size() < 70001; ++i) {
      values.push_back(pattern[static_cast<size_t>(i * 7 + i / 13) % pattern.size()]);
    }
    for (const auto& f : fractions) {
      KivRangeImage image = FloatImage(values);
      KivColorArray out;
      KivLUTSetting lut;
      ASSERT_EQ(lut.LinearColorMapLUT(image, &out, 6, f[0], f[1]), LUT_OK);
      EXPECT_EQ(OutputBytes(out, image.Width()), RefFractions(image, 6, f[0], f[1]))
          << pattern.front() << " fractions " << f[0] << ", " << f[1];
    }
  }
}

// Pixels next to every value where the fraction colouring changes entry: with fractions 0 the cuts
// are the smallest and largest valid value (1000 and 1100 here), and the entry of each pixel goes
// up at 254 values in between, found here by bisection on the reference formula.
TEST(LinearMapping, FractionsMatchReferenceNextToEveryEntryChange) {
  const float low = 1000.0f, high = 1100.0f;
  const auto entryOf = [&](float v) {
    float x = (v - low) / (high - low);
    if (x < 0.0f) x = 0.0f;
    if (x > 1.0f) x = 1.0f;
    const int k = RefLowByte(RefTruncate(static_cast<double>(x) * 255.0));
    return k == 0 ? 1 : k;
  };
  const auto bits = [](float v) {
    uint32_t b = 0;
    std::memcpy(&b, &v, 4);
    return b;
  };
  const auto fromBits = [](uint32_t b) {
    float v = 0.0f;
    std::memcpy(&v, &b, 4);
    return v;
  };
  std::vector<float> values = {low,
                               high,
                               std::numeric_limits<float>::quiet_NaN(),
                               -FLT_MAX,
                               std::numeric_limits<float>::infinity(),
                               -std::numeric_limits<float>::infinity()};
  for (int k = 2; k <= 255; ++k) {
    uint32_t a = bits(low), b = bits(high);  // entryOf(a) < k <= entryOf(b)
    while (b - a > 1) {
      const uint32_t middle = a + (b - a) / 2;
      (entryOf(fromBits(middle)) >= k ? b : a) = middle;
    }
    for (uint32_t m = b - 20; m <= b + 20; ++m) values.push_back(fromBits(m));
  }
  std::mt19937_64 random(1212);
  std::uniform_real_distribution<float> inside(low, high);
  while (values.size() < 70001) values.push_back(inside(random));
  std::shuffle(values.begin() + 6, values.end(), random);
  KivRangeImage image = FloatImage(values);
  for (int mapType : {0, 6}) {
    KivColorArray out;
    KivLUTSetting lut;
    ASSERT_EQ(lut.LinearColorMapLUT(image, &out, mapType, 0.0, 0.0), LUT_OK);
    EXPECT_EQ(OutputBytes(out, image.Width()), RefFractions(image, mapType, 0.0, 0.0));
  }
}

TEST(LinearMapping, FractionsOfAllInvalidImageCutAtZero) {
  // No valid value: both cuts are 0, the upper one moved to 1e-6. NaN stays NaN (invalid colour);
  // the marker and the infinities are clamped to 0 and 1 and coloured like values.
  KivRangeImage image = FloatImage(
      {std::numeric_limits<float>::quiet_NaN(), -FLT_MAX, std::numeric_limits<float>::infinity()});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, 2, 0.0, 0.0), LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), (ColourEntry{255, 255, 255}));
  EXPECT_EQ(PixelColour(out, 1), Entry(2, 1));    // 0 is the clipped minimum
  EXPECT_EQ(PixelColour(out, 2), Entry(2, 255));  // 1 is the clipped maximum
  std::vector<float> none;
  const FractionCut cut = CutAtFractions(none, 0.0, 0.0);
  EXPECT_EQ(cut.lowValue, 0.0f);
  EXPECT_EQ(cut.highValue, 1e-6f);
}

// ---------------------------------------------------------------------------------------------
// The real sensor frames.

TEST(LinearMapping, RealFramesMatchReference) {
  const std::vector<testing_support::RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << "no real frames: the shared data folder is missing";
  for (const auto& frame : frames) {
    SCOPED_TRACE(frame.name);
    KivRangeImage image = frame.image;
    const KivRangeImage before = image.DeepCopy();
    const int n = PixelCount(image);
    KivLUTSetting lut;
    KivColorArray out;
    // Bounds near the middle of the scene, in metres.
    const double low = 0.8, high = 1.6;
    const bool isFloat = image.DataType() == KIV_DATA_F32;
    const WithColours p{6, low, high, 10, 240, KivColor(255, 0, 255), KivColor(0, 255, 0)};
    ASSERT_EQ(lut.LinearColorMapLUT(image, p.mapType, low, high, p.indexLow, p.indexHigh, p.under,
                                    p.over, &out),
              LUT_OK);
    EXPECT_EQ(OutputBytes(out, n),
              isFloat ? RefWithColours<float>(before, p) : RefWithColours<uint16_t>(before, p));
    ASSERT_EQ(lut.LinearColorMapLUT(image, 1, low, high, &out), LUT_OK);
    EXPECT_EQ(OutputBytes(out, n), isFloat ? RefWithBounds<float>(before, 1, low, high)
                                           : RefWithBounds<uint16_t>(before, 1, low, high));
    ASSERT_EQ(lut.LinearColorMapLUT(image, 2, &out), LUT_OK);
    EXPECT_EQ(OutputBytes(out, n),
              isFloat ? RefMinMaxMapping<float>(before, 2) : RefMinMaxMapping<uint16_t>(before, 2));
    if (isFloat) {
      ASSERT_EQ(lut.LinearColorMapLUT(image, &out, 3, 0.05, 0.02), LUT_OK);
      EXPECT_EQ(OutputBytes(out, n), RefFractions(before, 3, 0.05, 0.02));
    } else {
      EXPECT_EQ(lut.LinearColorMapLUT(image, &out, 3, 0.05, 0.02), -1);
    }
    EXPECT_TRUE(SameImage(image, before));
  }
}

// ---------------------------------------------------------------------------------------------
// The fast path and the work division.

template <typename T>
void CheckValueColours(std::mt19937_64& random) {
  const float nanf = std::numeric_limits<float>::quiet_NaN();
  const float inff = std::numeric_limits<float>::infinity();
  const float lowest = static_cast<float>(std::numeric_limits<T>::min());
  const float highest = static_cast<float>(std::numeric_limits<T>::max());
  std::uniform_real_distribution<float> anywhere(lowest - 10.0f, highest + 10.0f);
  std::vector<std::pair<float, float>> bounds = {
      {lowest, highest},      {0.0f, 0.0f},  {-inff, inff}, {nanf, 10.0f},
      {5.0f, nanf},           {10.0f, 5.0f}, {3.5f, 3.75f}, {highest, highest + 1.0f},
      {lowest - 1.0f, lowest}};
  for (int i = 0; i < 12; ++i) {
    float a = anywhere(random), b = anywhere(random);
    if (a > b) std::swap(a, b);
    bounds.push_back({a, b});
  }
  for (const auto& [lo, hi] : bounds) {
    const int mapType = RandomMapType(random);
    const ColourTable& table = SelectColourTable(mapType);
    const ColourEntry& invalid = InvalidColour(mapType);
    const std::vector<PaddedColour> colours = BuildValueColours<T>(lo, hi, table, invalid);
    ASSERT_EQ(colours.size(), size_t{1} << (8 * sizeof(T)));
    int kernelMismatches = 0, referenceMismatches = 0, fourthBytes = 0;
    for (int v = std::numeric_limits<T>::min(); v <= std::numeric_limits<T>::max(); ++v) {
      const T value = static_cast<T>(v);
      const PaddedColour& slot = colours[ValueColourIndex(value)];
      const ColourEntry looked{slot[0], slot[1], slot[2]};
      if (slot[3] != 0) ++fourthBytes;
      if (looked != LinearColour(value, lo, hi, table, invalid)) ++kernelMismatches;
      if (looked != RefBodyColour(value, lo, hi, mapType)) ++referenceMismatches;
    }
    EXPECT_EQ(kernelMismatches, 0) << lo << ".." << hi;
    EXPECT_EQ(referenceMismatches, 0) << lo << ".." << hi;
    EXPECT_EQ(fourthBytes, 0);
  }
}

template <typename T>
void CheckSerialValueColours(std::mt19937_64& random) {
  const double lowest = std::numeric_limits<T>::min(), highest = std::numeric_limits<T>::max();
  std::uniform_real_distribution<double> anywhere(lowest - 10.0, highest + 10.0);
  std::vector<std::pair<double, double>> bounds = {{lowest, highest + 1.0},
                                                   {0.0, 1.0},
                                                   {-kInf, kInf},
                                                   {kNaN, 10.0},
                                                   {5.0, 5.0},
                                                   {3.5, 4.0},
                                                   {highest, highest},
                                                   {lowest - 1.0, lowest}};
  for (int i = 0; i < 12; ++i) {
    double a = anywhere(random), b = std::trunc(anywhere(random)) + 1.0;
    if (a > b) std::swap(a, b);
    bounds.push_back({a, b});
  }
  for (const auto& [low, high] : bounds) {
    const auto [indexLow, indexHigh] = RandomIndexRange(random);
    const WithColours p{RandomMapType(random), low, high, indexLow, indexHigh, RandomColour(random),
                        RandomColour(random)};
    const SerialLinearMapping m{low,
                                high,
                                indexLow,
                                indexHigh,
                                StoredColour(p.under),
                                StoredColour(p.over),
                                &SelectColourTable(p.mapType),
                                InvalidColour(p.mapType)};
    const std::vector<PaddedColour> colours = BuildSerialValueColours<T>(m);
    ASSERT_EQ(colours.size(), size_t{1} << (8 * sizeof(T)));
    int kernelMismatches = 0, referenceMismatches = 0;
    for (int v = std::numeric_limits<T>::min(); v <= std::numeric_limits<T>::max(); ++v) {
      const T value = static_cast<T>(v);
      const PaddedColour& slot = colours[ValueColourIndex(value)];
      const ColourEntry looked{slot[0], slot[1], slot[2]};
      if (looked != SerialLinearColour(value, m) || slot[3] != 0) ++kernelMismatches;
      if (looked != RefSerialColour(value, low, high, p)) ++referenceMismatches;
    }
    EXPECT_EQ(kernelMismatches, 0) << low << ".." << high;
    EXPECT_EQ(referenceMismatches, 0) << low << ".." << high;
  }
}

TEST(LinearMapping, SerialValueColoursEqualKernelForEveryRawValue) {
  std::mt19937_64 random(525);
  CheckSerialValueColours<uint8_t>(random);
  CheckSerialValueColours<int8_t>(random);
  CheckSerialValueColours<uint16_t>(random);
  CheckSerialValueColours<int16_t>(random);
}

TEST(LinearMapping, ValueColoursEqualKernelForEveryRawValue) {
  std::mt19937_64 random(505);
  CheckValueColours<uint8_t>(random);
  CheckValueColours<int8_t>(random);
  CheckValueColours<uint16_t>(random);
  CheckValueColours<int16_t>(random);
}

// The lookup table is used from as many pixels as the type has values; both sides of that line
// give the reference bytes.
TEST(LinearMapping, ValueColourThresholdGivesSameBytes) {
  std::mt19937_64 random(606);
  for (int n : {255, 256, 65535, 65536}) {
    for (bool eightBit : {true, false}) {
      KivRangeImage image = eightBit ? RandomRangeImage<int8_t>(n, 1, random)
                                     : RandomRangeImage<uint16_t>(n, 1, random);
      const double low = eightBit ? -20.0 : 100.0, high = eightBit ? 60.0 : 30000.0;
      KivColorArray out;
      KivLUTSetting lut;
      ASSERT_EQ(lut.LinearColorMapLUT(image, 4, low, high, &out), LUT_OK);
      EXPECT_EQ(OutputBytes(out, n), eightBit ? RefWithBounds<int8_t>(image, 4, low, high)
                                              : RefWithBounds<uint16_t>(image, 4, low, high));
      const WithColours p{4, low, high, 3, 200, KivColor(1, 2, 3), KivColor(4, 5, 6)};
      ASSERT_EQ(lut.LinearColorMapLUT(image, 4, low, high, 3, 200, p.under, p.over, &out), LUT_OK);
      EXPECT_EQ(OutputBytes(out, n),
                eightBit ? RefWithColours<int8_t>(image, p) : RefWithColours<uint16_t>(image, p));
      EXPECT_EQ(UseValueColours<int8_t>(n), n >= 256);
      EXPECT_EQ(UseValueColours<uint16_t>(n), n >= 65536);
    }
  }
  EXPECT_FALSE(UseValueColours<int32_t>(INT_MAX));
  EXPECT_FALSE(UseValueColours<float>(INT_MAX));
}

template <typename T>
void CheckRawValueExtremes(std::mt19937_64& random) {
  std::vector<KivRangeImage> images;
  for (const auto& [width, height] : TestSizes()) {
    images.push_back(RandomRangeImage<T>(width, height, random));
  }
  KivRangeImage invalid(9, 2, PixelTraits<T>::kDataType);
  std::fill(invalid.Ptr<T>(), invalid.Ptr<T>() + 18, Marker<T>());
  images.push_back(invalid);
  KivRangeImage extremes(3, 1, PixelTraits<T>::kDataType);
  extremes.Ptr<T>()[0] = std::numeric_limits<T>::max();
  extremes.Ptr<T>()[1] = Marker<T>();
  extremes.Ptr<T>()[2] = static_cast<T>(Marker<T>() + 1);
  images.push_back(extremes);
  for (const KivRangeImage& image : images) {
    const int n = PixelCount(image);
    const ValueStatistics<T> fast = FindMinMaxOfRawValues(Pixels<T>(image), n);
    const ValueStatistics<T> general = FindMinMax(Pixels<T>(image), n);
    const auto [minimum, maximum] = RefMinMax(Pixels<T>(image), n);
    EXPECT_EQ(fast.minimum, general.minimum);
    EXPECT_EQ(fast.maximum, general.maximum);
    EXPECT_EQ(fast.minimum, minimum);
    EXPECT_EQ(fast.maximum, maximum);
  }
}

TEST(LinearMapping, RawValueExtremesEqualGeneralReduction) {
  std::mt19937_64 random(515);
  CheckRawValueExtremes<uint8_t>(random);
  CheckRawValueExtremes<int8_t>(random);
  CheckRawValueExtremes<uint16_t>(random);
  CheckRawValueExtremes<int16_t>(random);
}

TEST(LinearMapping, ChunkBoundariesCoverEveryPixelOnce) {
  const struct {
    int n, workers;
    std::vector<int> boundaries;
  } cases[] = {
      {1, 1, {0, 1}},
      {1, 7, {0, 1}},
      {10, 3, {0, 4, 8, 10}},
      {9, 3, {0, 3, 6, 9}},
      {2, 7, {0, 1, 2}},
      {7, 7, {0, 1, 2, 3, 4, 5, 6, 7}},
      {8, 7, {0, 2, 4, 6, 8}},
      {0, 3, {0}},
      {5, 0, {0, 5}},
      {5, -4, {0, 5}},
      {INT_MAX, 2, {0, 1073741824, INT_MAX}},
      {INT_MAX, 1, {0, INT_MAX}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ChunkBoundaries(c.n, c.workers), c.boundaries) << c.n << " / " << c.workers;
  }
  for (int n = 1; n < 200; ++n) {
    for (int workers = 1; workers < 12; ++workers) {
      const std::vector<int> b = ChunkBoundaries(n, workers);
      const int chunk = (n - 1) / workers + 1;
      ASSERT_GE(b.size(), 2u);
      EXPECT_LE(b.size() - 1, static_cast<size_t>(workers));
      EXPECT_EQ(b.front(), 0);
      EXPECT_EQ(b.back(), n);
      for (size_t c = 0; c + 1 < b.size(); ++c) {
        EXPECT_EQ(b[c + 1] - b[c], c + 2 < b.size() ? chunk : n - b[c]);
        EXPECT_GT(b[c + 1], b[c]);
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Edge cases of the serial overload.

KivRangeImage U16Ramp(int first, int last) {
  std::vector<uint16_t> values;
  for (int v = first; v <= last; ++v) values.push_back(static_cast<uint16_t>(v));
  return U16Image(values);
}

TEST(LinearMapping, WithColoursIndexRangeZeroUsesEntryZero) {
  KivRangeImage image = U16Ramp(1, 40);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(
      lut.LinearColorMapLUT(image, 1, 10.0, 30.0, 0, 0, KivColor(9, 9, 9), KivColor(8, 8, 8), &out),
      LUT_OK);
  for (int v = 1; v <= 40; ++v) {
    const ColourEntry expected = v < 10   ? ColourEntry{9, 9, 9}
                                 : v > 31 ? ColourEntry{8, 8, 8}
                                          : Entry(1, 0);
    EXPECT_EQ(PixelColour(out, v - 1), expected) << v;
  }
}

TEST(LinearMapping, WithColoursStepsBackOneEntry) {
  // low' = 100, high' = 199 + 1 = 200 for an unsigned 16-bit image in raw units.
  KivRangeImage image = U16Image({99, 100, 150, 200, 201});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, 0, 100.0, 199.0, 10, 20, KivColor(1, 2, 3),
                                  KivColor(4, 5, 6), &out),
            LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), (ColourEntry{3, 2, 1}));
  EXPECT_EQ(PixelColour(out, 1), Entry(0, 9));   // lowest in-range value: indexLow - 1
  EXPECT_EQ(PixelColour(out, 2), Entry(0, 14));  // half way: 5 steps, then one back
  EXPECT_EQ(PixelColour(out, 3), Entry(0, 19));  // high': indexHigh - 1
  EXPECT_EQ(PixelColour(out, 4), (ColourEntry{6, 5, 4}));
}

TEST(LinearMapping, WithColoursConvertsBoundsToRawUnits) {
  // r = 0.5, o = 0, low = 1, high = 2: low' = 2, high' = 5.
  const RawBounds b = TruncatedRawBounds(1.0, 2.0, 0.5, 0.0);
  EXPECT_EQ(b.low, 2.0);
  EXPECT_EQ(b.high, 5.0);
  KivRangeImage image = U16Image({1, 2, 4, 5, 6});
  image.SetResolution(1.0, 1.0, 0.5);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(
      lut.LinearColorMapLUT(image, 5, 1.0, 2.0, 0, 255, KivColor(1, 1, 1), KivColor(2, 2, 2), &out),
      LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), (ColourEntry{1, 1, 1}));
  EXPECT_EQ(PixelColour(out, 1), Entry(5, 0));    // k = 0, one back is clamped to 0
  EXPECT_EQ(PixelColour(out, 2), Entry(5, 169));  // 2/3 x 255 = 170, one back
  EXPECT_EQ(PixelColour(out, 3), Entry(5, 254));
  EXPECT_EQ(PixelColour(out, 4), (ColourEntry{2, 2, 2}));

  // Only the upper bound is truncated; the offset is added as o x r.
  const RawBounds shifted = TruncatedRawBounds(1.0, 2.9, 0.5, 4.0);
  EXPECT_EQ(shifted.low, 6.0);
  EXPECT_EQ(shifted.high, 10.0);  // (2.9 + 2) / 0.5 + 1 = 10.8 -> 10
  const RawBounds fractional = TruncatedRawBounds(1.3, 2.0, 1.0, 0.0);
  EXPECT_EQ(fractional.low, 1.3);
  // A NaN or overflowing upper bound truncates to INT64_MIN, the added unit with it.
  EXPECT_EQ(TruncatedRawBounds(0.0, 1e300, 1e-300, 0.0).high, -9223372036854775808.0);
}

// (high + o*r) / r in (-1, -2^-54): adding the unit before truncating gives high' = 0, where
// truncating first would give 1. Raw 1 then lies above the range and takes the over colour.
TEST(LinearMapping, WithColoursTruncatesTheUpperBoundAfterAddingOneUnit) {
  const double kBelowMinusTwoToMinus54 = std::nextafter(-0x1p-54, -1.0);
  const double kAboveMinusOne = std::nextafter(-1.0, 0.0);
  const KivColor under(1, 2, 3), over(4, 5, 6);
  int casesInWindow = 0;
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    if constexpr (std::is_integral_v<T>) {
      SCOPED_TRACE(static_cast<int>(PixelTraits<T>::kDataType));
      for (const double r : {1.0, 0.5, 0.001, 3.0, 1e-6}) {
        for (const double o : {0.0, 2.5, -7.0, 1000.0}) {
          for (const double x : {-0.5, kAboveMinusOne, kBelowMinusTwoToMinus54, -0.999, -1e-3}) {
            // Chosen so that (high + o*r) / r is x; the window test below reads it back.
            const double high = x * r - o * r;
            const double position = (high + o * r) / r;
            if (!(position > -1.0 && position < -0x1p-54)) continue;
            ++casesInWindow;
            SCOPED_TRACE(testing::Message() << "r " << r << " o " << o << " x " << position);
            const double low = -20.0 * r - o * r;  // low' is about -20
            EXPECT_EQ(TruncatedRawBounds(low, high, r, o).high, 0.0);
            KivRangeImage image(4, 1, PixelTraits<T>::kDataType);
            const T values[] = {1, 2, static_cast<T>(std::is_signed_v<T> ? -3 : 3), 0};
            std::copy(values, values + 4, image.Ptr<T>());
            image.SetResolution(1.0, 1.0, r);
            image.SetOffset(0.0, 0.0, o);
            const WithColours p{3, low, high, 10, 200, under, over};
            KivColorArray out;
            KivLUTSetting lut;
            ASSERT_EQ(lut.LinearColorMapLUT(image, p.mapType, low, high, p.indexLow, p.indexHigh,
                                            under, over, &out),
                      LUT_OK);
            EXPECT_EQ(PixelColour(out, 0), RefStored(over));
            EXPECT_EQ(AllBytes(out), RefWithColours<T>(image, p));
          }
        }
      }
    }
  });
  EXPECT_GE(casesInWindow, 5 * 20);
}

// Just outside the window on each side both readings agree: x = -1 gives 0, x = -2^-54 gives 1
// (the sum -2^-54 + 1 is a tie that rounds to 1).
TEST(LinearMapping, WithColoursUpperBoundJustOutsideTheWindow) {
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    if constexpr (std::is_integral_v<T>) {
      SCOPED_TRACE(static_cast<int>(PixelTraits<T>::kDataType));
      for (const double r : {1.0, 0.5, 0.25}) {
        EXPECT_EQ(TruncatedRawBounds(-10.0, -1.0 * r, r, 0.0).high, 0.0);
        EXPECT_EQ(TruncatedRawBounds(-10.0, -0x1p-54 * r, r, 0.0).high, 1.0);
      }
      KivRangeImage image(2, 1, PixelTraits<T>::kDataType);
      image.Ptr<T>()[0] = 1;
      image.Ptr<T>()[1] = 2;
      image.SetResolution(1.0, 1.0, 1.0);
      image.SetOffset(0.0, 0.0, 0.0);
      const KivColor under(1, 2, 3), over(4, 5, 6);
      KivColorArray out;
      KivLUTSetting lut;
      // high' = 1: raw 1 is the top of the range and takes entry indexHigh - 1.
      ASSERT_EQ(lut.LinearColorMapLUT(image, 0, -10.0, -0x1p-54, 0, 100, under, over, &out),
                LUT_OK);
      EXPECT_EQ(PixelColour(out, 0), SelectColourTable(0)[99]);
      EXPECT_EQ(PixelColour(out, 1), RefStored(over));
      // high' = 0: raw 1 is above it.
      ASSERT_EQ(lut.LinearColorMapLUT(image, 0, -10.0, -1.0, 0, 100, under, over, &out), LUT_OK);
      EXPECT_EQ(PixelColour(out, 0), RefStored(over));
    }
  });
}

TEST(LinearMapping, WithColoursOnFloatUsesBoundsAsGiven) {
  KivRangeImage image = FloatImage({0.5f, 1.0f, 1.5f, 2.0f, 2.5f});
  image.SetResolution(1.0, 1.0, 0.5);  // ignored for float pixels
  image.SetOffset(0.0, 0.0, 3.0);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(
      lut.LinearColorMapLUT(image, 0, 1.0, 2.0, 0, 255, KivColor(1, 1, 1), KivColor(2, 2, 2), &out),
      LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), (ColourEntry{1, 1, 1}));
  EXPECT_EQ(PixelColour(out, 1), Entry(0, 0));
  EXPECT_EQ(PixelColour(out, 2), Entry(0, 126));  // 127.5 -> 127, one back
  EXPECT_EQ(PixelColour(out, 3), Entry(0, 254));
  EXPECT_EQ(PixelColour(out, 4), (ColourEntry{2, 2, 2}));
}

TEST(LinearMapping, WithColoursWritesLowBytesInReverseOrder) {
  KivRangeImage image = U16Image({1, 100});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, 0, 10.0, 20.0, 0, 255, KivColor(0x1FF, -1, 300, 77),
                                  KivColor(-256, 0x12345678, 7), &out),
            LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), (ColourEntry{44, 255, 255}));
  EXPECT_EQ(PixelColour(out, 1), (ColourEntry{7, 0x78, 0}));
}

TEST(LinearMapping, ThirtyTwoBitZeroIsInvalid) {
  KivRangeImage image(4, 1, KIV_DATA_S32);
  const int32_t values[] = {0, INT_MIN, 5, -5};
  std::copy(values, values + 4, image.Ptr<int32_t>());
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, 2, -10.0, 10.0, 0, 255, KivColor(), KivColor(), &out),
            LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), (ColourEntry{255, 255, 255}));
  EXPECT_EQ(PixelColour(out, 1), (ColourEntry{255, 255, 255}));
  // low' = -10, high' = 11: 15/21 x 255 = 182.1, one back; -5: 5/21 x 255 = 60.7, one back.
  EXPECT_EQ(PixelColour(out, 2), Entry(2, 181));
  EXPECT_EQ(PixelColour(out, 3), Entry(2, 59));
}

// ---------------------------------------------------------------------------------------------
// Edge cases of the parallel overloads.

TEST(LinearMapping, WithBoundsEntryOneAtLowEntry255AboveEntryZeroBelow) {
  KivRangeImage image = FloatImage({10.0f, 20.0f, 25.0f, 9.0f, 15.0f});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, 1, 10.0, 20.0, &out), LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), Entry(1, 1));
  EXPECT_EQ(PixelColour(out, 1), Entry(1, 255));
  EXPECT_EQ(PixelColour(out, 2), Entry(1, 255));
  EXPECT_EQ(PixelColour(out, 3), Entry(1, 0));
  EXPECT_EQ(PixelColour(out, 4), Entry(1, 127));

  // Raw units: hi' = 20 + 1 for an integer image, so 20 is inside.
  KivRangeImage raw = U16Image({10, 20, 21, 22, 9});
  ASSERT_EQ(lut.LinearColorMapLUT(raw, 1, 10.0, 20.0, &out), LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), Entry(1, 1));
  EXPECT_EQ(PixelColour(out, 1), Entry(1, 231));  // 10/11 x 255 = 231.8
  EXPECT_EQ(PixelColour(out, 2), Entry(1, 255));
  EXPECT_EQ(PixelColour(out, 3), Entry(1, 255));
  EXPECT_EQ(PixelColour(out, 4), Entry(1, 0));
}

TEST(LinearMapping, WithBoundsRoundsScaleToSinglePrecision) {
  const RawBounds b = FloatScaledRawBounds(1.0, 2.0, 0.1, 3.0);
  const double r = static_cast<double>(0.1f);
  const double shift = static_cast<double>(static_cast<float>(3.0 * 0.1));
  EXPECT_EQ(b.low, (1.0 + shift) / r);
  EXPECT_EQ(b.high, (2.0 + shift) / r + 1.0);
  EXPECT_NE(b.low, (1.0 + 0.3) / 0.1);
}

TEST(LinearMapping, MinMaxOfOneValueTakesEntryOne) {
  // hi - lo = 0: the quotient is NaN, which truncates to an index of 0, moved up to 1.
  KivRangeImage image = U16Image({0, 7, 7, 0});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, 3, &out), LUT_OK);
  EXPECT_EQ(PixelColour(out, 0), InvalidColorTable[3]);
  EXPECT_EQ(PixelColour(out, 1), Entry(3, 1));
  EXPECT_EQ(PixelColour(out, 2), Entry(3, 1));
}

TEST(LinearMapping, MinMaxWithoutValidPixelPaintsAllInvalid) {
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    KivRangeImage image(3, 2, PixelTraits<T>::kDataType);
    std::fill(image.Ptr<T>(), image.Ptr<T>() + 6, Marker<T>());
    KivColorArray out;
    KivLUTSetting lut;
    ASSERT_EQ(lut.LinearColorMapLUT(image, 2, &out), LUT_OK);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(PixelColour(out, i), (ColourEntry{255, 255, 255}));
  });
}

TEST(LinearMapping, MinMaxSpansTheValidValues) {
  KivRangeImage image = U16Image({0, 100, 300, 200});
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, 6, &out), LUT_OK);
  EXPECT_EQ(PixelColour(out, 1), Entry(6, 1));
  EXPECT_EQ(PixelColour(out, 2), Entry(6, 255));
  EXPECT_EQ(PixelColour(out, 3), Entry(6, 127));
}

TEST(LinearMapping, FractionsZeroSpanSmallestToLargest) {
  KivRangeImage image = FloatImage({3.0f, 1.0f, 5.0f, std::nanf(""), 2.0f, 4.0f});
  std::vector<float> values = {3.0f, 1.0f, 5.0f, 2.0f, 4.0f};
  const FractionCut cut = CutAtFractions(values, 0.0, 0.0);
  EXPECT_EQ(cut.lowValue, 1.0f);
  EXPECT_EQ(cut.highValue, 5.0f);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, 0, 0.0, 0.0), LUT_OK);
  // Clipped to 0.5, 0, 1, NaN, 0.25, 0.75.
  EXPECT_EQ(PixelColour(out, 0), Entry(0, 127));
  EXPECT_EQ(PixelColour(out, 1), Entry(0, 1));
  EXPECT_EQ(PixelColour(out, 2), Entry(0, 255));
  EXPECT_EQ(PixelColour(out, 3), InvalidColorTable[0]);
  EXPECT_EQ(PixelColour(out, 4), Entry(0, 63));
  EXPECT_EQ(PixelColour(out, 5), Entry(0, 191));
}

TEST(LinearMapping, FractionsCutTopAndBottom) {
  // Ten values 1..10: lower 0.2 cuts at sorted index 2 (3), upper 0.3 at index 7 (8).
  std::vector<float> values = {10, 9, 8, 7, 6, 5, 4, 3, 2, 1};
  FractionCut cut = CutAtFractions(values, 0.3, 0.2);
  EXPECT_EQ(cut.lowValue, 3.0f);
  EXPECT_EQ(cut.highValue, 8.0f);
  // Both fractions 1: the lower cut is limited to the last value and the upper follows it.
  cut = CutAtFractions(values, 1.0, 1.0);
  EXPECT_EQ(cut.lowValue, 10.0f);
  EXPECT_EQ(cut.highValue, 10.0f + 1e-6f);
  // The upper cut is not taken below the lower one.
  cut = CutAtFractions(values, 0.9, 0.5);
  EXPECT_EQ(cut.lowValue, 6.0f);
  EXPECT_EQ(cut.highValue, 6.0f + 1e-6f);
  // 1e-6 is lost next to a large value: the cuts stay equal.
  std::vector<float> large = {1000.0f};
  cut = CutAtFractions(large, 0.0, 0.0);
  EXPECT_EQ(cut.highValue, cut.lowValue);
}

TEST(LinearMapping, FractionsOnOtherPixelTypesReturnMinusOne) {
  std::mt19937_64 random(707);
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    if constexpr (!std::is_same_v<T, float>) {
      KivRangeImage image = RandomRangeImage<T>(5, 3, random);
      const KivRangeImage before = image.DeepCopy();
      KivColorArray out;
      KivLUTSetting lut;
      EXPECT_EQ(lut.LinearColorMapLUT(image, &out, 1, 0.1, 0.1), -1);
      // The output was sized before the pixel type was looked at.
      EXPECT_EQ(out.Length(), 15);
      EXPECT_TRUE(SameImage(image, before));
    }
  });
}

// ---------------------------------------------------------------------------------------------
// Checks, the output array and failures.

TEST(LinearMapping, InvalidPixelsWhiteForHotMetalBlackOtherwise) {
  for (Overload overload : kOverloads) {
    for (int mapType = 0; mapType <= 10; ++mapType) {
      KivRangeImage image = FloatImage({std::nanf(""), 1.0f, 2.0f, -FLT_MAX});
      KivColorArray out;
      ASSERT_EQ(Call(overload, image, mapType, &out), LUT_OK);
      const ColourEntry expected = mapType == 2 ? ColourEntry{255, 255, 255} : ColourEntry{0, 0, 0};
      EXPECT_EQ(PixelColour(out, 0), expected) << mapType;
      // The fraction form clamps the marker to 0, which is then coloured as a value.
      if (overload != Overload::kFractions) {
        EXPECT_EQ(PixelColour(out, 3), expected) << mapType;
      }
    }
  }
}

TEST(LinearMapping, MapTypesSevenToTenUseGrey) {
  for (Overload overload : kOverloads) {
    KivRangeImage image = FloatImage({1.0f, 2.0f, 3.0f});
    KivColorArray grey, other;
    ASSERT_EQ(Call(overload, image, 0, &grey), LUT_OK);
    for (int mapType = 7; mapType <= 10; ++mapType) {
      ASSERT_EQ(Call(overload, image, mapType, &other), LUT_OK);
      EXPECT_EQ(OutputBytes(other, 3), OutputBytes(grey, 3));
    }
  }
}

// One failing call per case; the output must not have been touched.
struct CheckCase {
  const char* what;
  std::function<long(KivLUTSetting&, KivRangeImage&, KivColorArray*)> call;
  long expected;
};

TEST(LinearMapping, ChecksInOrderLeaveOutputUntouched) {
  const KivColor c;
  const std::vector<CheckCase> cases = {
      // Overload with colours: type, size, map type, bounds, then the routine's index range.
      {"A type before all",
       [&](auto& l, auto& i, auto* o) {
         i.SetType(2);
         return l.LinearColorMapLUT(i, 11, 2.0, 1.0, -1, 300, c, c, o);
       },
       LUT_ERR_RANGE_IMAGE_TYPE},
      {"A type before size",
       [&](auto& l, auto& i, auto* o) {
         i = KivRangeImage(0, 3, KIV_DATA_F32);
         i.SetType(5);
         return l.LinearColorMapLUT(i, 11, 2.0, 1.0, -1, 300, c, c, o);
       },
       LUT_ERR_RANGE_IMAGE_TYPE},
      {"D type before size",
       [&](auto& l, auto& i, auto* o) {
         i = KivRangeImage(4, 0, KIV_DATA_F32);
         i.SetType(-7);
         return l.LinearColorMapLUT(i, o, 11, 2.0, 2.0);
       },
       LUT_ERR_RANGE_IMAGE_TYPE},
      {"A type -1",
       [&](auto& l, auto& i, auto* o) {
         i.SetType(-1);
         return l.LinearColorMapLUT(i, 0, 1.0, 2.0, 0, 1, c, c, o);
       },
       LUT_ERR_RANGE_IMAGE_TYPE},
      {"A map type 11",
       [&](auto& l, auto& i, auto* o) {
         return l.LinearColorMapLUT(i, 11, 2.0, 1.0, -1, 300, c, c, o);
       },
       LUT_ERR_PARAM_1},
      {"A map type -1",
       [&](auto& l, auto& i, auto* o) {
         return l.LinearColorMapLUT(i, -1, 1.0, 2.0, 0, 1, c, c, o);
       },
       LUT_ERR_PARAM_1},
      {"A high < low",
       [&](auto& l, auto& i, auto* o) {
         return l.LinearColorMapLUT(i, 10, 2.0, 1.0, -1, 300, c, c, o);
       },
       LUT_ERR_PARAM_2},
      {"A NaN bound",
       [&](auto& l, auto& i, auto* o) {
         return l.LinearColorMapLUT(i, 0, kNaN, 1.0, 0, 1, c, c, o);
       },
       LUT_ERR_PARAM_2},
      {"A NaN high",
       [&](auto& l, auto& i, auto* o) {
         return l.LinearColorMapLUT(i, 0, 0.0, kNaN, 0, 1, c, c, o);
       },
       LUT_ERR_PARAM_2},
      {"A index low < 0 first",
       [&](auto& l, auto& i, auto* o) {
         return l.LinearColorMapLUT(i, 0, 1.0, 1.0, -1, 300, c, c, o);
       },
       LUT_ERR_PARAM_3},
      {"A index high < low",
       [&](auto& l, auto& i, auto* o) {
         return l.LinearColorMapLUT(i, 0, 1.0, 2.0, 5, 4, c, c, o);
       },
       LUT_ERR_PARAM_3},
      {"A index high 256",
       [&](auto& l, auto& i, auto* o) {
         return l.LinearColorMapLUT(i, 0, 1.0, 2.0, 0, 256, c, c, o);
       },
       LUT_ERR_PARAM_2},
      {"A index range before null output",
       [&](auto& l, auto& i, auto*) {
         return l.LinearColorMapLUT(i, 0, 1.0, 2.0, 3, 2, c, c, nullptr);
       },
       LUT_ERR_PARAM_3},
      {"A null output",
       [&](auto& l, auto& i, auto*) {
         return l.LinearColorMapLUT(i, 0, 1.0, 2.0, 0, 255, c, c, nullptr);
       },
       LUT_ERR_OUTPUT_FAILED},
      // Overload with bounds.
      {"B type",
       [&](auto& l, auto& i, auto* o) {
         i.SetType(7);
         return l.LinearColorMapLUT(i, 11, 2.0, 1.0, o);
       },
       LUT_ERR_RANGE_IMAGE_TYPE},
      {"B map type",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, 11, 2.0, 1.0, o); },
       LUT_ERR_PARAM_1},
      {"B high < low",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, 0, 2.0, 1.0, o); },
       LUT_ERR_PARAM_2},
      {"B NaN bound",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, 0, 1.0, kNaN, o); },
       LUT_ERR_PARAM_2},
      {"B null output",
       [&](auto& l, auto& i, auto*) { return l.LinearColorMapLUT(i, 0, 1.0, 2.0, nullptr); },
       LUT_ERR_OUTPUT_FAILED},
      // Overload with measured bounds.
      {"C type",
       [&](auto& l, auto& i, auto* o) {
         i.SetType(3);
         return l.LinearColorMapLUT(i, 11, o);
       },
       LUT_ERR_RANGE_IMAGE_TYPE},
      {"C map type", [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, INT_MIN, o); },
       LUT_ERR_PARAM_1},
      {"C null output", [&](auto& l, auto& i, auto*) { return l.LinearColorMapLUT(i, 0, nullptr); },
       LUT_ERR_OUTPUT_FAILED},
      // Overload with fractions.
      {"D type",
       [&](auto& l, auto& i, auto* o) {
         i.SetType(2);
         return l.LinearColorMapLUT(i, o, 11, 2.0, 2.0);
       },
       LUT_ERR_RANGE_IMAGE_TYPE},
      {"D map type",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, o, 11, 2.0, 2.0); },
       LUT_ERR_PARAM_1},
      {"D upper before lower",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, o, 0, 1.5, -1.0); },
       LUT_ERR_PARAM_2},
      {"D upper below 0",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, o, 0, -0.01, 0.0); },
       LUT_ERR_PARAM_2},
      {"D upper NaN",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, o, 0, kNaN, 0.0); },
       LUT_ERR_PARAM_2},
      {"D lower above 1",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, o, 0, 1.0, 1.01); },
       LUT_ERR_PARAM_3},
      {"D lower NaN",
       [&](auto& l, auto& i, auto* o) { return l.LinearColorMapLUT(i, o, 0, 0.0, kNaN); },
       LUT_ERR_PARAM_3},
      {"D null output",
       [&](auto& l, auto& i, auto*) { return l.LinearColorMapLUT(i, nullptr, 0, 0.0, 0.0); },
       LUT_ERR_OUTPUT_FAILED},
      {"D null output before pixel type",
       [&](auto& l, auto&, auto*) {
         KivRangeImage u8(2, 2, KIV_DATA_U8);
         return l.LinearColorMapLUT(u8, nullptr, 0, 0.0, 0.0);
       },
       LUT_ERR_OUTPUT_FAILED},
  };
  std::mt19937_64 random(808);
  for (const auto& c : cases) {
    KivRangeImage image = FloatImage({1.0f, 2.0f, 3.0f});
    KivColorArray out = GarbageOutput(3, Garbage::kOtherLength, random);
    const Bytes before = AllBytes(out);
    const int length = out.Length();
    KivLUTSetting lut;
    EXPECT_EQ(c.call(lut, image, &out), c.expected) << c.what;
    EXPECT_EQ(out.Length(), length) << c.what;
    EXPECT_EQ(AllBytes(out), before) << c.what;
  }
}

TEST(LinearMapping, EmptyImagesAreRefused) {
  std::vector<KivRangeImage> images;
  images.emplace_back(0, 5, KIV_DATA_U16);
  images.emplace_back(5, 0, KIV_DATA_F32);
  images.emplace_back();
  // Size fields that the pixel matrix does not back: too few pixels, or pixels of another size.
  KivRangeImage shrunk(4, 4, KIV_DATA_U16);
  shrunk.Mat() = cv::Mat(2, 2, CV_16UC1, cv::Scalar(5));
  images.push_back(shrunk);
  KivRangeImage retyped(4, 4, KIV_DATA_F32);
  retyped.Mat() = cv::Mat(4, 4, CV_8UC1, cv::Scalar(5));
  images.push_back(retyped);
  KivRangeImage released(4, 4, KIV_DATA_F32);
  released.Mat().release();
  images.push_back(released);
  const long empty = LUT_ERR_RANGE_IMAGE_EMPTY;
  for (Overload overload : kOverloads) {
    for (KivRangeImage& image : images) {
      KivColorArray out;
      out.Create(2, 3);
      // Zero size fields are refused before the map type is looked at; a pixel matrix that does
      // not back the size fields is found by the routine, after the frame's checks.
      const bool sizeFieldsEmpty = image.Width() == 0 || image.Height() == 0;
      EXPECT_EQ(Call(overload, image, 11, &out), sizeFieldsEmpty ? empty : LUT_ERR_PARAM_1);
      EXPECT_EQ(Call(overload, image, 0, &out), empty);
      EXPECT_EQ(Call(overload, image, 0, nullptr), empty);
      EXPECT_EQ(out.Length(), 2);
    }
  }
  // The routines check the pixel matrix on their own.
  KivColorArray out;
  EXPECT_EQ(LinearColourMapMinMax(shrunk, 0, &out), empty);
  EXPECT_EQ(LinearColourMapWithBounds(retyped, 0, 0.0, 1.0, &out), empty);
  EXPECT_EQ(LinearColourMapWithColours(released, 0, 0.0, 1.0, 0, 1, KivColor(), KivColor(), &out),
            empty);
  EXPECT_EQ(LinearColourMapFractions(shrunk, &out, 0, 0.0, 0.0), empty);
  EXPECT_EQ(out.Length(), 0);
}

TEST(LinearMapping, RoutinesRepeatTheirChecks) {
  KivRangeImage image = FloatImage({1.0f, 2.0f});
  KivColorArray out;
  EXPECT_EQ(LinearColourMapMinMax(image, 11, &out), LUT_ERR_PARAM_1);
  EXPECT_EQ(LinearColourMapWithBounds(image, -3, 0.0, 1.0, &out), LUT_ERR_PARAM_1);
  EXPECT_EQ(LinearColourMapWithBounds(image, 0, 1.0, kNaN, &out), LUT_ERR_PARAM_2);
  EXPECT_EQ(LinearColourMapWithColours(image, 0, 2.0, 1.0, 0, 1, KivColor(), KivColor(), &out),
            LUT_ERR_PARAM_2);
  EXPECT_EQ(LinearColourMapFractions(image, &out, 0, kNaN, 0.0), LUT_ERR_PARAM_2);
  EXPECT_EQ(LinearColourMapFractions(image, &out, 0, 0.0, -kInf), LUT_ERR_PARAM_3);
  EXPECT_EQ(out.Length(), 0);
}

TEST(LinearMapping, OutputArraySizing) {
  for (Overload overload : kOverloads) {
    KivRangeImage image = FloatImage({1.0f, 2.0f, 3.0f, 4.0f});
    // Another length: re-created with 3 channels.
    KivColorArray out;
    out.Create(9, 4);
    ASSERT_EQ(Call(overload, image, 1, &out), LUT_OK);
    EXPECT_EQ(out.Length(), 4);
    EXPECT_EQ(out.Channel(), 3);
    const Bytes expected = OutputBytes(out, 4);
    // The right length with 3 channels: the same bytes are overwritten.
    std::fill(out.Data(), out.Data() + 12, uint8_t{0xAB});
    const uint8_t* data = out.Data();
    ASSERT_EQ(Call(overload, image, 1, &out), LUT_OK);
    EXPECT_EQ(out.Data(), data);
    EXPECT_EQ(OutputBytes(out, 4), expected);
    // One channel of the right length cannot take three bytes per colour: re-created.
    KivColorArray narrow;
    narrow.Create(4, 1);
    ASSERT_EQ(Call(overload, image, 1, &narrow), LUT_OK);
    EXPECT_EQ(narrow.Length(), 4);
    EXPECT_EQ(narrow.Channel(), 3);
    EXPECT_EQ(OutputBytes(narrow, 4), expected);
    // Four channels of the right length: overwritten in place, the first 3n bytes packed.
    KivColorArray wide;
    wide.Create(4, 4);
    std::fill(wide.Data(), wide.Data() + 16, uint8_t{0xCD});
    ASSERT_EQ(Call(overload, image, 1, &wide), LUT_OK);
    EXPECT_EQ(wide.Channel(), 4);
    EXPECT_EQ(OutputBytes(wide, 4), expected);
    EXPECT_EQ(AllBytes(wide)[12], 0xCD);
  }
}

TEST(LinearMapping, EachStageFailureReturnsItsCode) {
  const struct {
    FaultStage stage;
    long code;
  } stages[] = {
      {FaultStage::kOutputSizing, LUT_ERR_OUTPUT_FAILED},
      {FaultStage::kStatistics, LUT_ERR_PARA_MAPPING_FAILED},
      {FaultStage::kColouring, LUT_ERR_PARA_MAPPING_FAILED},
  };
  std::mt19937_64 random(909);
  for (Overload overload : kOverloads) {
    // Large enough for several chunks, and 16-bit pixels for the lookup path of B and C.
    for (bool floatPixels : {true, false}) {
      if (overload == Overload::kFractions && !floatPixels) continue;
      KivRangeImage image = floatPixels ? RandomRangeImage<float>(300, 300, random)
                                        : RandomRangeImage<uint16_t>(300, 300, random);
      const KivRangeImage before = image.DeepCopy();
      for (const auto& s : stages) {
        // Only the forms that measure the data have a statistics stage.
        const bool measures = overload == Overload::kMinMax || overload == Overload::kFractions;
        if (s.stage == FaultStage::kStatistics && !measures) continue;
        KivColorArray out;
        out.Create(5, 3);
        {
          ScopedFault fault(s.stage);
          EXPECT_EQ(Call(overload, image, 2, &out), s.code)
              << static_cast<int>(overload) << " stage " << static_cast<int>(s.stage);
        }
        EXPECT_TRUE(SameImage(image, before));
        // Sizing failed before the array was touched; later stages find it already re-sized.
        EXPECT_EQ(out.Length(), s.stage == FaultStage::kOutputSizing ? 5 : 300 * 300);
        EXPECT_EQ(Call(overload, image, 2, &out), LUT_OK);
      }
    }
  }
}

TEST(LinearMapping, EachFormLogsItsTags) {
  KivRangeImage image = FloatImage({1.0f, 2.0f, 3.0f});
  KivRangeImage u8(2, 1, KIV_DATA_U8);
  KivColorArray out;
  KivLUTSetting lut;
  const std::string end = kLinearEndMessage;
  {
    testing_support::LogCapture capture;
    ASSERT_EQ(lut.LinearColorMapLUT(image, 1, &out), LUT_OK);
    ASSERT_EQ(lut.LinearColorMapLUT(image, 1, 1.0, 3.0, &out), LUT_OK);
    ASSERT_EQ(lut.LinearColorMapLUT(image, 1, 1.0, 3.0, 0, 255, KivColor(), KivColor(), &out),
              LUT_OK);
    ASSERT_EQ(lut.LinearColorMapLUT(image, &out, 1, 0.0, 0.0), LUT_OK);
    // The routine ran, so its -1 is logged as an ending too.
    ASSERT_EQ(lut.LinearColorMapLUT(u8, &out, 1, 0.0, 0.0), -1);
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{
                                  "LinearColorMapLUT:500:start", "LinearColorMapLUT:517:" + end,
                                  "LinearColorMapLUT:363:start", "LinearColorMapLUT:385:" + end,
                                  "LinearColorMapLUT:392:start", "LinearColorMapLUT:413:" + end,
                                  "LinearColorMapLUT:916:start", "LinearColorMapLUT:939:" + end,
                                  "LinearColorMapLUT:916:start", "LinearColorMapLUT:939:" + end}));
  }
  {
    testing_support::LogCapture capture;
    ASSERT_EQ(lut.LinearColorMapLUT(image, 12, &out), LUT_ERR_PARAM_1);
    ASSERT_EQ(lut.LinearColorMapLUT(image, 0, 1.0, 2.0, 0, 256, KivColor(), KivColor(), &out),
              LUT_ERR_PARAM_2);
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"LinearColorMapLUT:500:start",
                                                        "LinearColorMapLUT:392:start",
                                                        "LinearColorMapLUT:413:" + end}));
  }
}

}  // namespace
}  // namespace KIVMV
