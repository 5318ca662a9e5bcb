#include "range/para_mapping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <opencv2/core.hpp>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kiv3DDataConvert.h"
#include "KivLUTSetting.h"
#include "common/cpu_features.h"
#include "common/fault_injection.h"
#include "frame/end_messages.h"
#include "range/five_point_scale.h"
#include "range/legend_chart.h"
#include "range/para_normalisation.h"
#include "range/range_test_support.h"
#include "support/log_capture.h"
#include "support/reference_equalisation.h"
#include "support/reference_helpers.h"
#include "tables/colour_tables.h"
#include "tables/para_colour_tables.h"

namespace KIVMV {
namespace {

using testing_support::ForEachPixelType;
using testing_support::LoadRealFrames;
using testing_support::MatBytes;
using testing_support::RandomRangeImage;
using testing_support::TestSizes;
using testing_support::X86Truncate;

using Bytes = std::vector<uint8_t>;
using Values = std::array<double, 5>;
using Indices = std::array<int, 5>;

constexpr float kMarker = -FLT_MAX;
constexpr float kFloatNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kFloatInf = std::numeric_limits<float>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

const KivColor kUnder(10, 20, 30);
const KivColor kOver(200, 210, 220);

// ---------------------------------------------------------------------------------------------
// Plain restatements of the rules, one element at a time.

// Invalid: the float marker itself or a non-finite value.
bool RefValid(float v) { return v != kMarker && std::isfinite(v); }

// A caller's colour as stored: component 2 first.
ColourEntry RefStored(const KivColor& c) {
  return {static_cast<uint8_t>(c[2] & 0xFF), static_cast<uint8_t>(c[1] & 0xFF),
          static_cast<uint8_t>(c[0] & 0xFF)};
}

// The map of data values onto [-1, 1], in single precision.
struct RefRescale {
  bool applied = false;
  float m = FLT_MAX;
  float M = -FLT_MAX;
  float s = 1.0f;
  float off = 0.0f;
};

// Range images measure every element but the marker (NaN never compares); float arrays only the
// valid ones.
bool RefMeasured(float v, bool validOnly) { return validOnly ? RefValid(v) : v != kMarker; }

RefRescale RefFindRescale(const std::vector<float>& values, bool validOnly) {
  RefRescale r;
  bool any = false;
  for (float v : values) {
    if (!RefMeasured(v, validOnly) || std::isnan(v)) continue;
    any = true;
    if (v < r.m) r.m = v;
    if (v > r.M) r.M = v;
  }
  if (!any || r.m == r.M) return r;
  r.applied = true;
  const float span = r.M - r.m;
  r.s = 2.0f / span;
  const float shift = r.s * r.m;
  r.off = -1.0f - shift;
  return r;
}

float RefRescaled(float v, const RefRescale& r) {
  const float product = r.s * v;
  return product + r.off;
}

std::vector<float> RefNormalise(std::vector<float> values, const RefRescale& r, bool validOnly) {
  if (!r.applied) return values;
  for (float& v : values) {
    if (RefMeasured(v, validOnly)) v = RefRescaled(v, r);
  }
  return values;
}

double RefMoveIn(double value, const RefRescale& r) {
  if (!r.applied) return value;
  return RefRescaled(static_cast<float>(value), r);
}

double RefMoveOut(double w, const RefRescale& r) {
  const double m = r.m, M = r.M;
  if (m >= M) return w;
  return (M - m) * (w + 1.0) * 0.5 + m;
}

// Automatic break values: sums of squares and counts per block of 65536 elements in index order,
// block totals added in block order.
struct RefTotals {
  double minimum = 3.4028234663852886e38;
  double maximum = -3.4028234663852886e38;
  double positiveSquares = 0.0;
  int64_t positiveCount = 0;
  double negativeSquares = 0.0;
  int64_t negativeCount = 0;
};

RefTotals RefReduce(const std::vector<float>& values) {
  RefTotals total;
  const size_t n = values.size();
  for (size_t begin = 0; begin < n; begin += 65536) {
    RefTotals block;
    for (size_t i = begin; i < std::min(n, begin + 65536); ++i) {
      const float v = values[i];
      if (!RefValid(v)) continue;
      const double x = v;
      block.minimum = std::min(block.minimum, x);
      block.maximum = std::max(block.maximum, x);
      if (x > 0) {
        block.positiveSquares += x * x;
        ++block.positiveCount;
      }
      if (x < 0) {
        block.negativeSquares += x * x;
        ++block.negativeCount;
      }
    }
    total.minimum = std::min(total.minimum, block.minimum);
    total.maximum = std::max(total.maximum, block.maximum);
    total.positiveSquares += block.positiveSquares;
    total.positiveCount += block.positiveCount;
    total.negativeSquares += block.negativeSquares;
    total.negativeCount += block.negativeCount;
  }
  return total;
}

Values RefAutomaticValues(const RefTotals& t) {
  const double p =
      t.positiveCount > 0 ? std::sqrt(t.positiveSquares / double(t.positiveCount)) : 0.0;
  const double q =
      t.negativeCount > 0 ? std::sqrt(t.negativeSquares / double(t.negativeCount)) : 0.0;
  double lowPoint = -q;
  if (lowPoint == 0) lowPoint = (p + t.minimum) * 0.5;
  double highPoint = p;
  if (highPoint <= 0) highPoint = (t.maximum + t.minimum) * 0.5;
  return {t.minimum, lowPoint, (lowPoint + highPoint) * 0.5, highPoint, t.maximum};
}

constexpr Indices kAutoIndices = {0, 127, 511, 895, 1023};

// The five-point rule for one normalised value; nothing when it matches no segment.
std::optional<ColourEntry> RefFivePoint(float value, const Values& d, const Indices& idx,
                                        const ParaColourTable& table, const ColourEntry& under,
                                        const ColourEntry& over, const ColourEntry& invalid) {
  if (!RefValid(value)) return invalid;
  const double v = value;
  if (d[0] > v) return under;
  if (v > d[4]) return over;
  int s = -1;
  if (d[3] < v && v <= d[4]) {
    s = 3;
  } else if (d[2] <= v && v < d[3]) {
    s = 2;
  } else if (d[1] < v && v < d[2]) {
    s = 1;
  } else if (d[0] < v && v <= d[1]) {
    s = 0;
  } else {
    return std::nullopt;
  }
  const int64_t k = X86Truncate((v - d[s]) / (d[s + 1] - d[s]) * (idx[s + 1] - idx[s]));
  // Inside a segment k lies in 0..(i[s+1] - i[s]); the test data keep every break value finite.
  EXPECT_GE(k, 0);
  EXPECT_LE(k, idx[s + 1] - idx[s]);
  const int64_t entry = std::max<int64_t>(0, idx[s] - 1 + k);
  return table[static_cast<size_t>(entry)];
}

// Elements matching no segment keep these bytes.
Bytes Pattern(int n) {
  Bytes bytes(3 * static_cast<size_t>(n));
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 37 + 11);
  return bytes;
}

KivColorArray PatternedOutput(int n) {
  KivColorArray out;
  out.Create(n, 3);
  const Bytes pattern = Pattern(n);
  std::memcpy(out.Data(), pattern.data(), pattern.size());
  return out;
}

Bytes OutputBytes(const KivColorArray& out, int n) {
  return Bytes(out.Data(), out.Data() + 3 * static_cast<size_t>(n));
}

Bytes RefColourAll(const std::vector<float>& normalised, const Values& d, const Indices& idx,
                   const ParaColourTable& table, int mapType) {
  const int n = static_cast<int>(normalised.size());
  Bytes out = Pattern(n);
  for (int i = 0; i < n; ++i) {
    const std::optional<ColourEntry> c =
        RefFivePoint(normalised[static_cast<size_t>(i)], d, idx, table, RefStored(kUnder),
                     RefStored(kOver), InvalidColorTable[static_cast<size_t>(mapType)]);
    if (c) std::memcpy(&out[3 * static_cast<size_t>(i)], c->data(), 3);
  }
  return out;
}

// The float array form: 2 its own table, 3..6 shared with 7..10, everything else table 1.
const ParaColourTable& RefArrayTable(int mapType) {
  if (mapType >= 2 && mapType <= 6) return SelectParaColourTable(mapType);
  if (mapType >= 7 && mapType <= 10) return SelectParaColourTable(mapType - 4);
  return SelectParaColourTable(1);
}

// The float copy a range image is coloured from: the pixels themselves for float images, else
// the platform's conversion to float heights.
std::vector<float> FloatHeights(const KivRangeImage& image) {
  KivRangeImage copy = image.DeepCopy();
  if (copy.DataType() != KIV_DATA_F32) {
    Kiv3DDataConvert convert;
    EXPECT_EQ(convert.RangeImageDataTypeConvert(copy, &copy, KIV_DATA_F32), kKivPlatformOk);
  }
  const float* p = copy.Ptr<float>();
  return std::vector<float>(p, p + static_cast<size_t>(image.Width()) * image.Height());
}

KivRangeImage FloatImage(const std::vector<float>& values, int width = -1) {
  const int n = static_cast<int>(values.size());
  const int w = width < 0 ? n : width;
  KivRangeImage image(w, n / w, KIV_DATA_F32);
  std::copy(values.begin(), values.end(), image.Ptr<float>());
  return image;
}

Kiv3DFloatArray FloatArray(const std::vector<float>& values) {
  Kiv3DFloatArray array(static_cast<int>(values.size()));
  std::copy(values.begin(), values.end(), array.Data());
  return array;
}

LinearColorMapLUT_Para Record(const Values& v, const Indices& i) {
  LinearColorMapLUT_Para p;
  p.value0 = v[0];
  p.value1 = v[1];
  p.value2 = v[2];
  p.value3 = v[3];
  p.value4 = v[4];
  p.index0 = i[0];
  p.index1 = i[1];
  p.index2 = i[2];
  p.index3 = i[3];
  p.index4 = i[4];
  return p;
}

Values ValuesOf(const LinearColorMapLUT_Para& p) {
  return {p.value0, p.value1, p.value2, p.value3, p.value4};
}
Indices IndicesOf(const LinearColorMapLUT_Para& p) {
  return {p.index0, p.index1, p.index2, p.index3, p.index4};
}

// Five valid values of the data at fixed quantiles, so that break values fall exactly on data.
Values QuantileValues(const std::vector<float>& values) {
  std::vector<float> valid;
  for (float v : values) {
    if (RefValid(v)) valid.push_back(v);
  }
  if (valid.empty()) return {0.0, 1.0, 2.0, 3.0, 4.0};
  std::sort(valid.begin(), valid.end());
  Values q{};
  const double at[] = {0.05, 0.3, 0.5, 0.7, 0.95};
  for (int k = 0; k < 5; ++k) {
    q[static_cast<size_t>(k)] =
        valid[static_cast<size_t>(at[k] * static_cast<double>(valid.size() - 1))];
  }
  return q;
}

// A float image without infinities: each becomes a NaN, so the rescaling sees finite extremes.
template <typename T>
void ReplaceInfinities(KivRangeImage& image) {
  if constexpr (std::is_floating_point_v<T>) {
    T* p = image.Ptr<T>();
    for (int i = 0; i < image.Width() * image.Height(); ++i) {
      if (std::isinf(p[i])) p[i] = std::numeric_limits<T>::quiet_NaN();
    }
  }
}

bool SameImage(const KivRangeImage& a, const KivRangeImage& b) {
  const size_t bytes = a.Mat().total() * a.Mat().elemSize();
  return a.DataType() == b.DataType() && a.Mat().size() == b.Mat().size() &&
         std::memcmp(a.Mat().data, b.Mat().data, bytes) == 0;
}

const std::vector<Indices> kIndexSets = {
    {0, 127, 511, 895, 1023}, {3, 200, 511, 700, 1000}, {10, 10, 500, 500, 1023}};

// ---------------------------------------------------------------------------------------------
// Small helpers and the five-point kernel.

TEST(ParaNormalisation, OnlyTheMarkerAndNonFiniteValuesAreInvalid) {
  EXPECT_FALSE(IsParaValid(kMarker));
  EXPECT_FALSE(IsParaValid(kFloatNaN));
  EXPECT_FALSE(IsParaValid(kFloatInf));
  EXPECT_FALSE(IsParaValid(-kFloatInf));
  // The neighbour of the marker is a measurement: the widened comparison is exact.
  EXPECT_TRUE(IsParaValid(std::nextafter(kMarker, 0.0f)));
  EXPECT_TRUE(IsParaValid(-3.4e38f));
  EXPECT_TRUE(IsParaValid(0.0f));
  EXPECT_TRUE(IsParaValid(FLT_MAX));
}

TEST(ParaNormalisation, RescalesBetweenExtremesInSinglePrecision) {
  const ParaRescaling r = RescalingBetween(2.0f, 6.0f);
  ASSERT_TRUE(r.applied);
  EXPECT_EQ(r.scale, 0.5f);
  EXPECT_EQ(r.offset, -2.0f);
  EXPECT_EQ(RescaledValue(2.0f, r), -1.0f);
  EXPECT_EQ(RescaledValue(4.0f, r), 0.0f);
  EXPECT_EQ(RescaledValue(6.0f, r), 1.0f);
  // A span whose scale is not exact: every step rounds to float.
  const ParaRescaling odd = RescalingBetween(0.1f, 0.7f);
  const float span = 0.7f - 0.1f;
  const float s = 2.0f / span;
  const float shift = s * 0.1f;
  EXPECT_EQ(odd.scale, s);
  EXPECT_EQ(odd.offset, -1.0f - shift);
  const float product = s * 0.3f;
  EXPECT_EQ(RescaledValue(0.3f, odd), product + (-1.0f - shift));
  EXPECT_FALSE(RescalingBetween(3.0f, 3.0f).applied);
}

TEST(ParaNormalisation, BreakValuesMoveInLikeDataAndOutByTheInverse) {
  const ParaRescaling r = RescalingBetween(2.0f, 6.0f);
  EXPECT_EQ(MoveIntoDomain(5.0, r), 0.5);
  EXPECT_EQ(MoveIntoDomain(2.0, r), -1.0);
  // (M - m) (w + 1) / 2 + m.
  EXPECT_EQ(MoveOutOfDomain(0.5, r), 5.0);
  EXPECT_EQ(MoveOutOfDomain(-1.0, r), 2.0);
  EXPECT_EQ(MoveOutOfDomain(1.0, r), 6.0);
  EXPECT_EQ(MoveOutOfDomain(-0.75, r), 2.5);
  // A break value is narrowed to float first: it lands where the equal data value lands.
  const ParaRescaling odd = RescalingBetween(0.1f, 0.7f);
  EXPECT_EQ(MoveIntoDomain(0.3, odd), static_cast<double>(RescaledValue(0.3f, odd)));
  // Not rescaled: break values stay as they are, both ways.
  const ParaRescaling none = RescalingBetween(4.0f, 4.0f);
  EXPECT_EQ(MoveIntoDomain(7.25, none), 7.25);
  EXPECT_EQ(MoveOutOfDomain(7.25, none), 7.25);
  const ParaRescaling crossed{};
  EXPECT_EQ(MoveOutOfDomain(-0.5, crossed), -0.5);
}

TEST(ParaNormalisation, InverseUndoesTheRescalingOfEveryDataValue) {
  std::mt19937_64 random(31);
  std::uniform_real_distribution<float> value(-250.0f, 1800.0f);
  std::vector<float> data(1000);
  for (float& v : data) v = value(random);
  const ParaRescaling r = FindRescaling(data.data(), 1000, RescaledElements::kAllButMarker);
  ASSERT_TRUE(r.applied);
  for (float v : data) {
    const double back = MoveOutOfDomain(MoveIntoDomain(v, r), r);
    // Float rescaling, double inverse: equal up to the float rounding of the forward step.
    EXPECT_NEAR(back, v, 1e-3) << v;
  }
  EXPECT_EQ(MoveOutOfDomain(-1.0, r), static_cast<double>(r.minimum));
  EXPECT_EQ(MoveOutOfDomain(1.0, r), static_cast<double>(r.maximum));
}

TEST(ParaNormalisation, RangeFormMeasuresEverythingButTheMarker) {
  // NaN compares with nothing; an infinity is an extreme like any other value.
  const std::vector<float> data = {kMarker, 1.0f, kFloatNaN, 5.0f, 3.0f};
  ParaRescaling r = FindRescaling(data.data(), 5, RescaledElements::kAllButMarker);
  EXPECT_TRUE(r.applied);
  EXPECT_EQ(r.minimum, 1.0f);
  EXPECT_EQ(r.maximum, 5.0f);
  const std::vector<float> withInf = {1.0f, 5.0f, kFloatInf};
  r = FindRescaling(withInf.data(), 3, RescaledElements::kAllButMarker);
  EXPECT_EQ(r.maximum, kFloatInf);
  EXPECT_EQ(r.scale, 0.0f);
  r = FindRescaling(withInf.data(), 3, RescaledElements::kValidMeasurements);
  EXPECT_EQ(r.maximum, 5.0f);
  // Nothing to measure, or one value only: left alone.
  const std::vector<float> none = {kMarker, kFloatNaN};
  EXPECT_FALSE(FindRescaling(none.data(), 2, RescaledElements::kAllButMarker).applied);
  const std::vector<float> one = {kMarker, 2.5f, 2.5f};
  EXPECT_FALSE(FindRescaling(one.data(), 3, RescaledElements::kAllButMarker).applied);
}

TEST(ParaNormalisation, ExtremesEqualTheOneAtATimeLoop) {
  // Hostile arrays, short and long enough to be split among the workers: the extremes (the sign
  // of a zero extreme included) and whether a rescaling applies are those of a plain loop.
  std::mt19937_64 random(83);
  const float pool[] = {kMarker, kFloatNaN, kFloatInf, -kFloatInf, 0.0f,     -0.0f,
                        1e-45f,  -1e-45f,   FLT_MAX,   FLT_MIN,    -3.0e38f, 2.5f};
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  for (const int n : {1, 2, 7, 9, 100, 1001, 70001}) {
    for (const int mix : {0, 1, 2, 3}) {
      std::vector<float> data(static_cast<size_t>(n));
      for (float& v : data) {
        const uint64_t pick = random() % 10;
        // mix 0: mostly ordinary values; 1: mostly special ones; 2: zeros and markers only;
        // 3: random bits.
        if (mix == 2) {
          v = pool[random() % 6 == 0 ? 0 : 4 + random() % 2];
        } else if (mix == 3) {
          const uint32_t bits = static_cast<uint32_t>(random());
          std::memcpy(&v, &bits, sizeof v);
        } else {
          v = (mix == 0 ? pick < 2 : pick < 8) ? pool[random() % std::size(pool)] : value(random);
        }
      }
      for (const RescaledElements which :
           {RescaledElements::kAllButMarker, RescaledElements::kValidMeasurements}) {
        float minimum = FLT_MAX, maximum = -FLT_MAX;
        bool found = false;
        for (const float v : data) {
          const bool measured = which == RescaledElements::kAllButMarker
                                    ? v != kMarker
                                    : v != kMarker && std::isfinite(v);
          if (!measured) continue;
          if (v < minimum) minimum = v;
          if (v > maximum) maximum = v;
          if (!std::isnan(v)) found = true;
        }
        const ParaRescaling got = FindRescaling(data.data(), n, which);
        const ParaRescaling want = found ? RescalingBetween(minimum, maximum) : ParaRescaling{};
        SCOPED_TRACE(testing::Message()
                     << "n " << n << " mix " << mix << " which " << static_cast<int>(which));
        EXPECT_EQ(std::signbit(got.minimum), std::signbit(want.minimum));
        EXPECT_EQ(std::signbit(got.maximum), std::signbit(want.maximum));
        EXPECT_EQ(got.minimum, want.minimum);
        EXPECT_EQ(got.maximum, want.maximum);
        EXPECT_EQ(got.applied, want.applied);
      }
    }
  }
}

TEST(FivePointScale, EntryStepsBackOneAndStopsAtZero) {
  EXPECT_EQ(FivePointEntry(0, 0), 0);
  EXPECT_EQ(FivePointEntry(1, 0), 0);
  EXPECT_EQ(FivePointEntry(2, 0), 1);
  EXPECT_EQ(FivePointEntry(0, 10), 9);
  EXPECT_EQ(FivePointEntry(5, 10), 14);
  EXPECT_EQ(FivePointEntry(-3, 2), 0);
  EXPECT_EQ(FivePointEntry(1023, 1), 1023);
  EXPECT_EQ(FivePointEntry(INT64_MIN, 0), 0);
  EXPECT_EQ(FivePointEntry(INT64_MIN, 1023), 0);
  // Only non-finite break values get past the table; they read its last entry.
  EXPECT_EQ(FivePointEntry(INT64_MAX, 1000), 1023);
  EXPECT_EQ(FivePointEntry(2000, 0), 1023);
}

TEST(FivePointScale, SegmentEntryTruncatesItsShare) {
  // 0.3 of the way through 100 entries from entry 200: step 30, entry 229.
  EXPECT_EQ(SegmentEntry(0.3, 0.0, 1.0, 200, 300), 229);
  EXPECT_EQ(SegmentEntry(0.999, 0.0, 1.0, 0, 10), 8);
  EXPECT_EQ(SegmentEntry(1.0, 0.0, 1.0, 0, 10), 9);
  EXPECT_EQ(SegmentEntry(0.0, 0.0, 1.0, 0, 10), 0);
  EXPECT_EQ(SegmentEntry(kNaN, 0.0, 1.0, 5, 10), 0);
}

FivePointScale TestScale(const Values& d, const Indices& i) {
  return {
      d, i, &SelectParaColourTable(1), RefStored(kUnder), RefStored(kOver), InvalidColorTable[1]};
}

TEST(FivePointScale, EdgesOfEverySegment) {
  const Values d = {-1.0, -0.5, 0.0, 0.5, 1.0};
  const Indices idx = {0, 127, 511, 895, 1023};
  const FivePointScale s = TestScale(d, idx);
  const ParaColourTable& t = SelectParaColourTable(1);
  auto entry = [&](float v) -> const ColourEntry* { return FivePointColour(v, s); };
  const struct {
    float v;
    const ColourEntry* expected;
  } cases[] = {
      {-1.5f, &s.under},
      {1.5f, &s.over},
      {kMarker, &s.invalid},
      {kFloatNaN, &s.invalid},
      {-kFloatInf, &s.invalid},
      // d0 itself lies in no segment; d1 closes the first one at the entry before i1.
      {-1.0f, nullptr},
      {-0.5f, &t[126]},
      {-0.75f, &t[62]},  // (0.25 / 0.5) x 127 = 63.5, step 63
      // d2 opens the third segment at the entry before i2.
      {0.0f, &t[510]},
      {0.25f, &t[702]},  // 0.5 x 384 = 192
      // d3 lies in no segment; d4 closes the last one at the entry before i4.
      {0.5f, nullptr},
      {0.75f, &t[958]},  // 0.5 x 128 = 64 steps from 895
      {1.0f, &t[1022]},
  };
  for (const auto& c : cases) EXPECT_EQ(entry(c.v), c.expected) << c.v;
}

TEST(FivePointScale, ValueAtZeroIndexTakesEntryZero) {
  const FivePointScale s = TestScale({0.0, 1.0, 2.0, 3.0, 4.0}, {0, 0, 0, 0, 0});
  EXPECT_EQ(FivePointColour(0.5f, s), &(*s.table)[0]);
  EXPECT_EQ(FivePointColour(3.5f, s), &(*s.table)[0]);
}

TEST(FivePointScale, CollapsedSegmentsFollowTheTestOrder) {
  // d2 == d3: a value there lies in no segment, as d3 does.
  const FivePointScale s = TestScale({0.0, 1.0, 2.0, 2.0, 3.0}, {0, 100, 200, 300, 400});
  EXPECT_EQ(FivePointColour(2.0f, s), nullptr);
  // d0 == d1 == d2: the value there opens the third segment.
  const FivePointScale t = TestScale({1.0, 1.0, 1.0, 2.0, 3.0}, {0, 100, 200, 300, 400});
  EXPECT_EQ(FivePointColour(1.0f, t), &(*t.table)[199]);
}

TEST(FivePointScale, ColouringLeavesUnmatchedElementsAlone) {
  const FivePointScale s = TestScale({-1.0, -0.5, 0.0, 0.5, 1.0}, {0, 127, 511, 895, 1023});
  const std::vector<float> values = {-1.0f, 0.5f, 0.25f, kMarker, 2.0f};
  Bytes out = Pattern(5);
  const Bytes before = out;
  ColourFivePoint(values.data(), 5, s, out.data());
  EXPECT_TRUE(std::equal(out.begin(), out.begin() + 6, before.begin()));
  EXPECT_EQ(Bytes(out.begin() + 6, out.begin() + 9),
            Bytes(SelectParaColourTable(1)[702].begin(), SelectParaColourTable(1)[702].end()));
  EXPECT_EQ(Bytes(out.begin() + 9, out.begin() + 12), Bytes(3, 0));
  EXPECT_EQ(Bytes(out.begin() + 12, out.end()), Bytes({220, 210, 200}));
}

TEST(FivePointScale, ColouringInParallelMatchesTheFormula) {
  const FivePointScale s = TestScale({-1.0, -0.5, 0.0, 0.5, 1.0}, {0, 127, 511, 895, 1023});
  std::mt19937 random(43);
  std::uniform_real_distribution<float> value(-1.2f, 1.2f);
  // Large enough to be split among the workers, and of odd length.
  std::vector<float> values(300001);
  for (float& v : values) v = value(random);
  for (size_t k = 0; k < values.size(); k += 997) values[k] = kMarker;
  const Bytes before = Pattern(static_cast<int>(values.size()));
  Bytes out = before;
  ColourFivePoint(values.data(), static_cast<int>(values.size()), s, out.data());
  for (size_t k = 0; k < values.size(); ++k) {
    const ColourEntry* expected = FivePointColour(values[k], s);
    const uint8_t* got = out.data() + 3 * k;
    const uint8_t* want = expected != nullptr ? expected->data() : before.data() + 3 * k;
    ASSERT_TRUE(std::equal(got, got + 3, want)) << "element " << k << " value " << values[k];
  }
}

TEST(FivePointScale, VectorColouringMatchesTheFormulaOnHostileValues) {
  // Values at, beside and between the break values, markers, NaN, infinities, denormals and
  // random bits, through ordered, collapsed and non-finite scales, at lengths around the groups
  // of eight, with the vector loop and without it.
  std::mt19937 random(97);
  const std::vector<std::pair<Values, Indices>> scales = {
      {{-1.0, -0.5, 0.0, 0.5, 1.0}, {0, 127, 511, 895, 1023}},
      {{-1.0, -1.0, 0.0, 0.0, 1.0}, {0, 0, 512, 512, 1023}},
      {{0.0, 0.0, 0.0, 0.0, 0.0}, {3, 4, 5, 6, 7}},
      {{-1.0, kNaN, 0.0, kNaN, 1.0}, {0, 100, 200, 300, 1023}},
      {{-kInf, -0.5, 0.0, 0.5, kInf}, {0, 1, 2, 1000, 1023}},
      {{-1e-300, -1e-310, 0.0, 1e-310, 1e-300}, {0, 255, 511, 767, 1023}},
      {{1.0, 0.5, 0.0, -0.5, -1.0}, {0, 127, 511, 895, 1023}}};
  std::vector<float> pool = {kMarker, kFloatNaN, -kFloatNaN, kFloatInf, -kFloatInf,   0.0f, -0.0f,
                             1e-45f,  -1e-45f,   FLT_MIN,    FLT_MAX,   -FLT_MAX / 2, 3e38f};
  for (const auto& [d, idx] : scales) {
    for (double b : d) {
      const float f = static_cast<float>(b);
      pool.insert(pool.end(), {f, std::nextafter(f, kFloatInf), std::nextafter(f, -kFloatInf)});
    }
  }
  std::uniform_real_distribution<float> inside(-1.2f, 1.2f);
  for (const auto& [d, idx] : scales) {
    const FivePointScale s = TestScale(d, idx);
    for (const int n : {1, 7, 8, 9, 255, 256, 257, 1001, 4099}) {
      std::vector<float> values(static_cast<size_t>(n));
      for (float& v : values) {
        const uint32_t pick = random() % 8;
        if (pick < 3) {
          v = pool[random() % pool.size()];
        } else if (pick == 3) {
          const uint32_t bits = static_cast<uint32_t>(random());
          std::memcpy(&v, &bits, sizeof v);
        } else {
          v = inside(random);
        }
      }
      for (const bool baseline : {false, true}) {
        Avx2DisabledForTesting() = baseline;
        const Bytes before = Pattern(n);
        Bytes out = before;
        ColourFivePoint(values.data(), n, s, out.data());
        Avx2DisabledForTesting() = false;
        for (size_t k = 0; k < values.size(); ++k) {
          const ColourEntry* expected = FivePointColour(values[k], s);
          const uint8_t* got = out.data() + 3 * k;
          const uint8_t* want = expected != nullptr ? expected->data() : before.data() + 3 * k;
          ASSERT_TRUE(std::equal(got, got + 3, want))
              << (baseline ? "baseline" : "dispatched") << " n " << n << " element " << k
              << " value " << values[k] << " scale " << d[0] << " " << d[1] << " " << d[2] << " "
              << d[3] << " " << d[4];
        }
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The automatic break values.

TEST(ParaNormalisation, TotalsMatchSerialBlockReferenceBitForBit) {
  // Several blocks and a partial one; whatever the chunk count the sums are the same bits.
  std::mt19937_64 random(77);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  std::uniform_int_distribution<int> kind(0, 99);
  for (int n : {1, 5, 65535, 65536, 65537, 3 * 65536 + 1234}) {
    std::vector<float> data(static_cast<size_t>(n));
    for (float& v : data) {
      const int k = kind(random);
      v = k < 3    ? kMarker
          : k < 5  ? kFloatNaN
          : k < 6  ? kFloatInf
          : k < 7  ? -kFloatInf
          : k < 8  ? 0.0f
          : k < 9  ? -0.0f
          : k < 10 ? value(random) * 1e-39f  // denormals of either sign
                   : value(random);
    }
    const ParaTotals got = FindParaTotals(data.data(), n);
    const RefTotals want = RefReduce(data);
    EXPECT_EQ(got.minimum, want.minimum);
    EXPECT_EQ(got.maximum, want.maximum);
    EXPECT_EQ(std::memcmp(&got.positiveSquares, &want.positiveSquares, sizeof(double)), 0) << n;
    EXPECT_EQ(std::memcmp(&got.negativeSquares, &want.negativeSquares, sizeof(double)), 0) << n;
    EXPECT_EQ(got.positiveCount, want.positiveCount);
    EXPECT_EQ(got.negativeCount, want.negativeCount);
    const BreakValues b = AutomaticBreakValues(got);
    const Values ref = RefAutomaticValues(want);
    for (int k = 0; k < 5; ++k) {
      EXPECT_EQ(std::memcmp(&b.value[static_cast<size_t>(k)], &ref[static_cast<size_t>(k)],
                            sizeof(double)),
                0)
          << n << " value " << k;
    }
    EXPECT_EQ(b.index, kAutoIndices);
  }
}

TEST(ParaNormalisation, SpreadPointsAreRootMeanSquares) {
  // Positive values 0.5 and 1, negative -1 and -0.5: both spreads sqrt((0.25 + 1) / 2).
  const std::vector<float> data = {-1.0f, -0.5f, 0.0f, 0.5f, 1.0f, kMarker};
  const BreakValues b = AutomaticBreakValues(FindParaTotals(data.data(), 6));
  const double spread = std::sqrt(0.625);
  EXPECT_EQ(b.value, (Values{-1.0, -spread, 0.0, spread, 1.0}));
}

TEST(ParaNormalisation, WithoutNegativeValuesTheLowPointIsHalfwayFromTheMinimum) {
  const std::vector<float> data = {0.25f, 0.5f, 1.0f};
  const BreakValues b = AutomaticBreakValues(FindParaTotals(data.data(), 3));
  const double p = std::sqrt((0.0625 + 0.25 + 1.0) / 3.0);
  EXPECT_DOUBLE_EQ(b.value[1], (p + 0.25) * 0.5);
  EXPECT_DOUBLE_EQ(b.value[3], p);
  EXPECT_DOUBLE_EQ(b.value[2], ((p + 0.25) * 0.5 + p) * 0.5);
}

TEST(ParaNormalisation, WithoutPositiveValuesTheHighPointIsTheMidRange) {
  const std::vector<float> data = {-1.0f, -0.5f, 0.0f};
  const BreakValues b = AutomaticBreakValues(FindParaTotals(data.data(), 3));
  const double q = std::sqrt((1.0 + 0.25) / 2.0);
  EXPECT_DOUBLE_EQ(b.value[1], -q);
  EXPECT_DOUBLE_EQ(b.value[3], -0.5);
  EXPECT_DOUBLE_EQ(b.value[2], (-q - 0.5) * 0.5);
}

// ---------------------------------------------------------------------------------------------
// LinearColorMapLUT on a range image.

TEST(ParaMapping, AutomaticModeWritesBackBreakValuesInDataUnits) {
  // 0, 2, 4, 6, 8 rescale to -1, -0.5, 0, 0.5, 1: both spreads are sqrt(0.625).
  KivRangeImage image = FloatImage({0.0f, 2.0f, kMarker, 4.0f, 6.0f, 8.0f});
  LinearColorMapLUT_Para para = Record({9, 9, 9, 9, 9}, {5, 6, 7, 8, 9});
  KivColor under = kUnder, over = kOver;
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, 1, true), LUT_OK);
  const double spread = std::sqrt(0.625);
  EXPECT_DOUBLE_EQ(para.value0, 0.0);
  EXPECT_DOUBLE_EQ(para.value1, 8.0 * (1.0 - spread) * 0.5);
  EXPECT_DOUBLE_EQ(para.value2, 4.0);
  EXPECT_DOUBLE_EQ(para.value3, 8.0 * (1.0 + spread) * 0.5);
  EXPECT_DOUBLE_EQ(para.value4, 8.0);
  EXPECT_EQ(IndicesOf(para), kAutoIndices);
  // The colours: -1 lies in no segment (d0); 1 takes entry 1022.
  const ParaColourTable& t = SelectParaColourTable(1);
  EXPECT_EQ(Bytes(out.Data() + 15, out.Data() + 18), Bytes(t[1022].begin(), t[1022].end()));
  EXPECT_EQ(Bytes(out.Data() + 6, out.Data() + 9), Bytes(3, 0));
}

TEST(ParaMapping, AutomaticModeOnRawUnitsWritesBackPhysicalValues) {
  // Raw units of 0.5 mm from an offset of 200 units: heights 400, 528, 912, 1168 and 1424, which
  // rescale (by the exact 2 / 1024) to -1, -0.75, 0, 0.5 and 1.
  KivRangeImage image(6, 1, KIV_DATA_U16);
  const uint16_t raw[] = {1000, 1256, 0, 2024, 2536, 3048};
  std::copy(std::begin(raw), std::end(raw), image.Ptr<uint16_t>());
  image.SetResolution(1.0, 1.0, 0.5);
  image.SetOffset(0.0, 0.0, 200.0);
  LinearColorMapLUT_Para para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, 6, true), LUT_OK);
  const double q = std::sqrt((1.0 + 0.5625) / 2.0);
  const double p = std::sqrt((0.25 + 1.0) / 2.0);
  auto physical = [](double w) { return 1024.0 * (w + 1.0) * 0.5 + 400.0; };
  EXPECT_DOUBLE_EQ(para.value0, 400.0);
  EXPECT_DOUBLE_EQ(para.value1, physical(-q));
  EXPECT_DOUBLE_EQ(para.value2, physical((p - q) * 0.5));
  EXPECT_DOUBLE_EQ(para.value3, physical(p));
  EXPECT_DOUBLE_EQ(para.value4, 1424.0);
  // The marker pixel takes jet's invalid colour, black.
  EXPECT_EQ(Bytes(out.Data() + 6, out.Data() + 9), Bytes(3, 0));
}

TEST(ParaMapping, AutomaticModeOnDataWithoutNegativeValues) {
  // All valid heights equal: nothing is rescaled, so no value is negative and the low point is
  // (p + minimum) / 2 = 3.
  KivRangeImage image = FloatImage({3.0f, kMarker, 3.0f, 3.0f});
  LinearColorMapLUT_Para para = Record({-5, -4, -3, -2, -1}, {1, 2, 3, 4, 5});
  KivColor under = kUnder, over = kOver;
  KivColorArray out = PatternedOutput(4);
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, 2, true), LUT_OK);
  EXPECT_EQ(ValuesOf(para), (Values{3.0, 3.0, 3.0, 3.0, 3.0}));
  EXPECT_EQ(IndicesOf(para), kAutoIndices);
  // Hot metal paints the marker white; 3 lies at d0 and in no segment.
  EXPECT_EQ(Bytes(out.Data() + 3, out.Data() + 6), Bytes(3, 255));
  EXPECT_EQ(OutputBytes(out, 1), Bytes(Pattern(1)));
}

TEST(ParaMapping, ManualModeDoesNotWriteTheRecord) {
  KivRangeImage image = FloatImage({0.0f, 2.0f, 4.0f, 6.0f, 8.0f});
  LinearColorMapLUT_Para para = Record({1, 2, 3, 4, 5}, {0, 10, 20, 30, 40});
  const LinearColorMapLUT_Para before = para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, 3, false), LUT_OK);
  EXPECT_EQ(ValuesOf(para), ValuesOf(before));
  EXPECT_EQ(IndicesOf(para), IndicesOf(before));
  // 0 is below value0 = 1, 8 above value4 = 5: the caller's colours, component 2 first.
  EXPECT_EQ(OutputBytes(out, 1), Bytes({30, 20, 10}));
  EXPECT_EQ(Bytes(out.Data() + 12, out.Data() + 15), Bytes({220, 210, 200}));
}

TEST(ParaMapping, ValueEqualToThirdBreakKeepsItsColour) {
  // Manual break values on data values: 6 is value3, so its pixel keeps the bytes it had; 0 is
  // value0 and also in no segment.
  KivRangeImage image = FloatImage({0.0f, 2.0f, 4.0f, 6.0f, 8.0f, 7.0f});
  LinearColorMapLUT_Para para = Record({0, 2, 4, 6, 8}, {0, 100, 200, 300, 400});
  KivColor under = kUnder, over = kOver;
  KivColorArray out = PatternedOutput(6);
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, 4, false), LUT_OK);
  const Bytes pattern = Pattern(6);
  const Bytes got = OutputBytes(out, 6);
  EXPECT_TRUE(std::equal(got.begin(), got.begin() + 3, pattern.begin()));
  EXPECT_TRUE(std::equal(got.begin() + 9, got.begin() + 12, pattern.begin() + 9));
  const ParaColourTable& t = SelectParaColourTable(4);
  EXPECT_EQ(Bytes(got.begin() + 3, got.begin() + 6), Bytes(t[99].begin(), t[99].end()));
  EXPECT_EQ(Bytes(got.begin() + 6, got.begin() + 9), Bytes(t[199].begin(), t[199].end()));
  EXPECT_EQ(Bytes(got.begin() + 12, got.begin() + 15), Bytes(t[399].begin(), t[399].end()));
  EXPECT_EQ(Bytes(got.begin() + 15, got.end()), Bytes(t[349].begin(), t[349].end()));
}

TEST(ParaMapping, RangeFormsLeaveTheCallersImageAlone) {
  std::mt19937_64 random(5);
  KivRangeImage image = RandomRangeImage<uint16_t>(33, 31, random);
  image.SetResolution(1.0, 1.0, 0.01);
  const KivRangeImage before = image.DeepCopy();
  LinearColorMapLUT_Para para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out;
  KivVarArray a, b;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, 1, true), LUT_OK);
  ASSERT_EQ(lut.ColorMapLUT(image, &out, para, under, over, 1, true, 2, 2, &a, &b), LUT_OK);
  EXPECT_TRUE(SameImage(image, before));
  EXPECT_EQ(image.DataType(), KIV_DATA_U16);
}

TEST(ParaMapping, RangeImageMatchesReferenceOnRandomImages) {
  std::mt19937_64 random(2024);
  int round = 0;
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [w, h] : TestSizes()) {
      for (bool withInfinities : {true, false}) {
        if (!std::is_floating_point_v<T> && !withInfinities) continue;
        ++round;
        KivRangeImage image = RandomRangeImage<T>(w, h, random);
        if (!withInfinities) ReplaceInfinities<T>(image);
        if constexpr (std::is_integral_v<T>) {
          image.SetResolution(1.0, 1.0, 0.05);
          image.SetOffset(0.0, 0.0, 17.0);
        }
        const int n = w * h;
        const int mapType = 1 + round % 10;
        const std::vector<float> heights = FloatHeights(image);
        const RefRescale r = RefFindRescale(heights, false);
        const std::vector<float> normalised = RefNormalise(heights, r, false);
        KivLUTSetting lut;
        KivColor under = kUnder, over = kOver;
        SCOPED_TRACE(::testing::Message() << "type " << PixelTraits<T>::kDataType << " " << w << "x"
                                          << h << " map " << mapType);

        // Automatic mode.
        {
          LinearColorMapLUT_Para para = Record({1, 2, 3, 4, 5}, {1, 2, 3, 4, 5});
          KivColorArray out = PatternedOutput(n);
          ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, mapType, true), LUT_OK);
          const Values d = RefAutomaticValues(RefReduce(normalised));
          EXPECT_EQ(OutputBytes(out, n), RefColourAll(normalised, d, kAutoIndices,
                                                      SelectParaColourTable(mapType), mapType));
          for (int k = 0; k < 5; ++k) {
            const double want = RefMoveOut(d[static_cast<size_t>(k)], r);
            const double got = ValuesOf(para)[static_cast<size_t>(k)];
            EXPECT_TRUE(std::memcmp(&got, &want, sizeof(double)) == 0)
                << "value " << k << ": " << got << " vs " << want;
          }
          EXPECT_EQ(IndicesOf(para), kAutoIndices);
        }
        // Manual mode, break values on data values.
        const Values values = QuantileValues(heights);
        for (const Indices& idx : kIndexSets) {
          LinearColorMapLUT_Para para = Record(values, idx);
          KivColorArray out = PatternedOutput(n);
          ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, mapType, false), LUT_OK);
          Values d{};
          for (int k = 0; k < 5; ++k) {
            d[static_cast<size_t>(k)] = RefMoveIn(values[static_cast<size_t>(k)], r);
          }
          EXPECT_EQ(OutputBytes(out, n),
                    RefColourAll(normalised, d, idx, SelectParaColourTable(mapType), mapType));
        }
      }
    }
  });
}

TEST(ParaMapping, EveryMapTypeColoursThroughItsOwnTable) {
  std::mt19937_64 random(8);
  KivRangeImage image = RandomRangeImage<float>(101, 3, random);
  ReplaceInfinities<float>(image);
  const std::vector<float> normalised =
      RefNormalise(FloatHeights(image), RefFindRescale(FloatHeights(image), false), false);
  const Values d = RefAutomaticValues(RefReduce(normalised));
  for (int mapType = 1; mapType <= 10; ++mapType) {
    LinearColorMapLUT_Para para;
    KivColor under = kUnder, over = kOver;
    KivColorArray out = PatternedOutput(303);
    KivLUTSetting lut;
    ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, mapType, true), LUT_OK);
    EXPECT_EQ(OutputBytes(out, 303),
              RefColourAll(normalised, d, kAutoIndices, SelectParaColourTable(mapType), mapType))
        << mapType;
  }
}

TEST(ParaMapping, InfinityInAFloatImageStretchesTheRescaling) {
  // The extremes are taken over everything but the marker, so +inf is the maximum: the scale is
  // 0 and every finite height lands on -1, the minimum, where no segment holds it.
  KivRangeImage image = FloatImage({1.0f, 2.0f, kFloatInf, 3.0f});
  LinearColorMapLUT_Para para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out = PatternedOutput(4);
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, 1, true), LUT_OK);
  const Bytes pattern = Pattern(4);
  const Bytes got = OutputBytes(out, 4);
  EXPECT_TRUE(std::equal(got.begin(), got.begin() + 6, pattern.begin()));
  EXPECT_EQ(Bytes(got.begin() + 6, got.begin() + 9), Bytes(3, 0));
  EXPECT_TRUE(std::equal(got.begin() + 9, got.end(), pattern.begin() + 9));
}

TEST(ParaMapping, RealFramesMatchReference) {
  const std::vector<testing_support::RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << "no real frames: the shared data folder is missing";
  for (const auto& frame : frames) {
    SCOPED_TRACE(frame.name);
    KivRangeImage image = frame.image;
    const int n = image.Width() * image.Height();
    const std::vector<float> heights = FloatHeights(image);
    const RefRescale r = RefFindRescale(heights, false);
    const std::vector<float> normalised = RefNormalise(heights, r, false);
    const Values d = RefAutomaticValues(RefReduce(normalised));
    LinearColorMapLUT_Para para;
    KivColor under = kUnder, over = kOver;
    KivColorArray out = PatternedOutput(n);
    KivLUTSetting lut;
    ASSERT_EQ(lut.LinearColorMapLUT(image, &out, para, under, over, 1, true), LUT_OK);
    EXPECT_EQ(OutputBytes(out, n),
              RefColourAll(normalised, d, kAutoIndices, SelectParaColourTable(1), 1));
    EXPECT_EQ(para.value0, RefMoveOut(d[0], r));
    EXPECT_EQ(para.value4, RefMoveOut(d[4], r));
  }
}

// ---------------------------------------------------------------------------------------------
// LinearColorMapLUT on a float array.

TEST(ParaMapping, FloatArrayIsNormalisedInPlace) {
  const std::vector<float> values = {10.0f, kMarker, 30.0f, kFloatNaN, 20.0f, kFloatInf, 50.0f};
  Kiv3DFloatArray array = FloatArray(values);
  LinearColorMapLUT_Para para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(array, &out, para, under, over, 1, true), LUT_OK);
  // m = 10, M = 50: s = 0.05, offset = -1.5, each step rounded to float.
  const float s = 2.0f / 40.0f;
  const float off = -1.0f - s * 10.0f;
  const float* got = array.Data();
  EXPECT_EQ(got[0], -1.0f);
  EXPECT_EQ(got[2], s * 30.0f + off);
  EXPECT_EQ(got[4], s * 20.0f + off);
  EXPECT_EQ(got[6], 1.0f);
  for (int i : {0, 2, 4, 6}) {
    EXPECT_GE(got[i], -1.0f);
    EXPECT_LE(got[i], 1.0f);
  }
  // Invalid elements are untouched, bit for bit.
  EXPECT_EQ(got[1], kMarker);
  EXPECT_TRUE(std::isnan(got[3]));
  EXPECT_EQ(got[5], kFloatInf);
  // Automatic mode writes nothing back: the record reaches the routine by value.
  EXPECT_EQ(ValuesOf(para), (Values{0, 0, 0, 0, 0}));
  EXPECT_EQ(IndicesOf(para), (Indices{0, 0, 0, 0, 0}));
}

TEST(ParaMapping, FloatArrayTakesManualValuesAsNormalised) {
  // After rescaling 0..4 to -1..1, manual break values -1, -0.5, 0, 0.5, 1 are used as they are.
  Kiv3DFloatArray array = FloatArray({0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 3.5f});
  LinearColorMapLUT_Para para = Record({-1, -0.5, 0, 0.5, 1}, {0, 100, 200, 300, 400});
  KivColor under = kUnder, over = kOver;
  KivColorArray out = PatternedOutput(6);
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearColorMapLUT(array, &out, para, under, over, 2, false), LUT_OK);
  const ParaColourTable& t = SelectParaColourTable(2);
  const Bytes got = OutputBytes(out, 6);
  const Bytes pattern = Pattern(6);
  EXPECT_TRUE(std::equal(got.begin(), got.begin() + 3, pattern.begin()));  // d0
  EXPECT_EQ(Bytes(got.begin() + 3, got.begin() + 6), Bytes(t[99].begin(), t[99].end()));
  EXPECT_EQ(Bytes(got.begin() + 6, got.begin() + 9), Bytes(t[199].begin(), t[199].end()));
  EXPECT_TRUE(std::equal(got.begin() + 9, got.begin() + 12, pattern.begin() + 9));  // d3
  EXPECT_EQ(Bytes(got.begin() + 12, got.begin() + 15), Bytes(t[399].begin(), t[399].end()));
  EXPECT_EQ(Bytes(got.begin() + 15, got.end()), Bytes(t[349].begin(), t[349].end()));
}

TEST(ParaMapping, FloatArrayMapTypeSevenColoursLikeThree) {
  std::mt19937_64 random(70);
  std::normal_distribution<float> value(3.0f, 2.0f);
  std::vector<float> values(999);
  for (float& v : values) v = value(random);
  values[5] = kMarker;
  values[6] = kFloatNaN;
  const std::pair<int, int> pairs[] = {{3, 7}, {4, 8}, {5, 9}, {6, 10}};
  for (const auto& [a, b] : pairs) {
    KivColor under = kUnder, over = kOver;
    LinearColorMapLUT_Para para;
    Kiv3DFloatArray first = FloatArray(values), second = FloatArray(values);
    KivColorArray outA, outB;
    KivLUTSetting lut;
    ASSERT_EQ(lut.LinearColorMapLUT(first, &outA, para, under, over, a, true), LUT_OK);
    ASSERT_EQ(lut.LinearColorMapLUT(second, &outB, para, under, over, b, true), LUT_OK);
    const Bytes bytesA = OutputBytes(outA, 999), bytesB = OutputBytes(outB, 999);
    // The invalid colours are those of the numbers given (black for both), the tables shared.
    EXPECT_EQ(bytesA, bytesB) << a << " and " << b;
  }
  // The range-image form gives 7 a table of its own.
  EXPECT_NE(&SelectParaColourTable(7), &SelectParaColourTable(3));
}

TEST(ParaMapping, FloatArrayMatchesReferenceOnRandomData) {
  std::mt19937_64 random(99);
  for (const auto& [w, h] : TestSizes()) {
    for (int mapType = 1; mapType <= 10; ++mapType) {
      const int n = w * h;
      KivRangeImage source = RandomRangeImage<float>(w, h, random);
      const std::vector<float> values(source.Ptr<float>(), source.Ptr<float>() + n);
      const RefRescale r = RefFindRescale(values, true);
      const std::vector<float> normalised = RefNormalise(values, r, true);
      SCOPED_TRACE(::testing::Message() << w << "x" << h << " map " << mapType);
      KivLUTSetting lut;
      KivColor under = kUnder, over = kOver;
      {
        Kiv3DFloatArray array = FloatArray(values);
        LinearColorMapLUT_Para para;
        KivColorArray out = PatternedOutput(n);
        ASSERT_EQ(lut.LinearColorMapLUT(array, &out, para, under, over, mapType, true), LUT_OK);
        EXPECT_EQ(std::memcmp(array.Data(), normalised.data(), sizeof(float) * n), 0);
        const Values d = RefAutomaticValues(RefReduce(normalised));
        EXPECT_EQ(OutputBytes(out, n),
                  RefColourAll(normalised, d, kAutoIndices, RefArrayTable(mapType), mapType));
      }
      const Values d = QuantileValues(normalised);
      const Indices& idx = kIndexSets[static_cast<size_t>(mapType) % kIndexSets.size()];
      Kiv3DFloatArray array = FloatArray(values);
      LinearColorMapLUT_Para para = Record(d, idx);
      KivColorArray out = PatternedOutput(n);
      ASSERT_EQ(lut.LinearColorMapLUT(array, &out, para, under, over, mapType, false), LUT_OK);
      EXPECT_EQ(OutputBytes(out, n),
                RefColourAll(normalised, d, idx, RefArrayTable(mapType), mapType));
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The segmenting ColorMapLUT.

// The quarter of the grey table for segment q, entry j (indices past 63 read 63).
ColourEntry QuarterGrey(int q, int64_t j) {
  const uint8_t level = static_cast<uint8_t>(64 * q + std::min<int64_t>(j, 63));
  return {level, level, level};
}

// The equalised colouring with an index range, restated for a float segment: bounds clamped to
// its valid values, B = 255, entries 0..63 of quarter q, caller's colours outside the bounds.
Bytes RefSegmentColouring(const std::vector<float>& seg, double low, double high, int q,
                          int mapType) {
  const size_t n = seg.size();
  double m = FLT_MAX, M = -FLT_MAX;
  uint32_t count = 0;
  for (float v : seg) {
    if (!RefValid(v)) continue;
    m = std::min<double>(m, v);
    M = std::max<double>(M, v);
    ++count;
  }
  low = low < m ? m : low;
  high = M < high ? M : high;
  const int B = 255;
  const double w = (high - low) / B;
  const ColourEntry& invalid = InvalidColorTable[static_cast<size_t>(mapType)];
  Bytes out(3 * n);
  auto put = [&](size_t i, const ColourEntry& c) { std::memcpy(&out[3 * i], c.data(), 3); };
  if (!(w > 1e-8)) {
    const uint32_t index = std::min<uint32_t>(
        static_cast<uint32_t>(static_cast<uint64_t>(X86Truncate(low)) & 0xFFFFFFFFu), 255);
    for (size_t i = 0; i < n; ++i) put(i, RefValid(seg[i]) ? QuarterGrey(q, index) : invalid);
    return out;
  }
  std::vector<uint32_t> hist(256, 0);
  for (float value : seg) {
    const double v = value;
    if (!(low <= v && v <= high)) continue;
    int64_t b = X86Truncate(std::floor(v / w - low / w + 1e-14));
    if (b == 256) b = 255;
    ++hist[static_cast<size_t>(std::clamp<int64_t>(b, 0, 255))];
  }
  const testing_support::ReferenceSlots slots =
      testing_support::ReferenceAllotSlots(hist, count, B, w, low);
  for (size_t i = 0; i < n; ++i) {
    const double v = seg[i];
    if (!RefValid(seg[i])) {
      put(i, invalid);
    } else if (v < low) {
      put(i, RefStored(kUnder));
    } else if (v > high) {
      put(i, RefStored(kOver));
    } else {
      int64_t b = X86Truncate(std::floor((v - low) / w));
      if (b == B) b = B - 1;
      b = std::clamp<int64_t>(b, 0, B - 1);
      const int64_t slot = slots.SlotOf(v, static_cast<int>(b));
      const int64_t c = X86Truncate((static_cast<double>(slot) - 0) / B * (63 - 0)) + 1;
      put(i, QuarterGrey(q, std::clamp<int64_t>(c, 0, 255)));
    }
  }
  return out;
}

struct RefSegmented {
  Bytes out;
  std::array<Bytes, 4> segments;
  std::array<int, 4> counts;
  Values t;
  std::vector<float> normalised;
};

RefSegmented RefColourSegmented(const KivRangeImage& image, const LinearColorMapLUT_Para& para,
                                bool automatic, int mapType) {
  RefSegmented ref;
  const std::vector<float> heights = FloatHeights(image);
  const RefRescale r = RefFindRescale(heights, false);
  ref.normalised = RefNormalise(heights, r, false);
  const std::vector<float>& v = ref.normalised;
  const size_t n = v.size();
  if (automatic) {
    ref.t = RefAutomaticValues(RefReduce(v));
  } else {
    for (int k = 0; k < 5; ++k) {
      ref.t[static_cast<size_t>(k)] = RefMoveIn(ValuesOf(para)[static_cast<size_t>(k)], r);
    }
  }
  float b[5];
  for (int k = 0; k < 5; ++k) b[k] = static_cast<float>(ref.t[static_cast<size_t>(k)]);
  auto inMask = [&](int k, float x) {
    return k < 3 ? (x >= b[k] && x < b[k + 1]) : (x >= b[3] && x <= b[4]);
  };
  const double L = ref.t[0], H = ref.t[4], c = (ref.t[1] + ref.t[3]) * 0.5;
  const std::pair<double, double> bounds[4] = {
      {L, (L + c) * 0.5}, {(L + c) * 0.5, c}, {c, (H + c) * 0.5}, {(H + c) * 0.5, H}};
  for (int k = 0; k < 4; ++k) {
    std::vector<float> seg(n, kMarker);
    int inside = 0;
    for (size_t i = 0; i < n; ++i) {
      if (inMask(k, v[i])) {
        seg[i] = v[i];
        ++inside;
      }
    }
    ref.counts[static_cast<size_t>(k)] = static_cast<int>(n) - inside;
    ref.segments[static_cast<size_t>(k)] =
        RefSegmentColouring(seg, bounds[k].first, bounds[k].second, k, mapType);
  }
  ref.out.assign(3 * n, 0);
  for (size_t i = 0; i < n; ++i) {
    const uint8_t* colour = nullptr;
    for (int k = 0; k < 4 && colour == nullptr; ++k) {
      if (inMask(k, v[i])) colour = &ref.segments[static_cast<size_t>(k)][3 * i];
    }
    ColourEntry other = InvalidColorTable[static_cast<size_t>(mapType)];
    if (colour == nullptr && RefValid(v[i])) {
      if (v[i] < b[0]) other = RefStored(kUnder);
      if (v[i] > b[4]) other = RefStored(kOver);
    }
    std::memcpy(&ref.out[3 * i], colour ? colour : other.data(), 3);
  }
  return ref;
}

// Checks everything one call hands back against the reference.
void ExpectSegmentedMatches(const KivRangeImage& image, const LinearColorMapLUT_Para& para,
                            bool automatic, int mapType, int sizeA, int sizeB) {
  const int n = image.Width() * image.Height();
  KivLUTSetting lut;
  LinearColorMapLUT_Para record = para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out = PatternedOutput(n);
  KivVarArray a, b;
  ASSERT_EQ(lut.ColorMapLUT(const_cast<KivRangeImage&>(image), &out, record, under, over, mapType,
                            automatic, sizeA, sizeB, &a, &b),
            LUT_OK);
  EXPECT_EQ(ValuesOf(record), ValuesOf(para));
  EXPECT_EQ(IndicesOf(record), IndicesOf(para));
  const RefSegmented ref = RefColourSegmented(image, para, automatic, mapType);
  EXPECT_EQ(OutputBytes(out, n), ref.out);
  ASSERT_EQ(a.Length(), 9);
  ASSERT_TRUE(a[0].IsImage());
  cv::Mat expectedChart;
  const cv::Mat normalised(image.Height(), image.Width(), CV_32FC1,
                           const_cast<float*>(ref.normalised.data()));
  const double centre = DrawHistogramChart(normalised, 256, ref.t[1], ref.t[3], expectedChart);
  EXPECT_EQ(centre, (ref.t[1] + ref.t[3]) * 0.5);
  EXPECT_EQ(MatBytes(a[0].ToImage().Mat()), MatBytes(expectedChart));
  for (int k = 0; k < 4; ++k) {
    const KivImage segment = a[1 + k].ToImage();
    ASSERT_TRUE(a[1 + k].IsImage());
    EXPECT_EQ(segment.Width(), image.Width());
    EXPECT_EQ(segment.Height(), image.Height());
    EXPECT_EQ(segment.Channels(), 3);
    EXPECT_EQ(segment.Step(), image.Width() * 3);
    EXPECT_EQ(MatBytes(segment.Mat()), ref.segments[static_cast<size_t>(k)]) << "segment " << k;
    ASSERT_TRUE(a[5 + k].IsInt());
    EXPECT_EQ(a[5 + k].ToInt(), ref.counts[static_cast<size_t>(k)]) << "count " << k;
  }
  const std::vector<int> ticks = LegendTicks(para, automatic, sizeA, sizeB);
  ASSERT_EQ(b.Length(), static_cast<int>(ticks.size()));
  for (int k = 0; k < b.Length(); ++k) EXPECT_EQ(b[k].ToInt(), ticks[static_cast<size_t>(k)]);
}

TEST(SegmentedColorMapLUT, MatchesReferenceOnRandomImages) {
  std::mt19937_64 random(4242);
  int round = 0;
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [w, h] : TestSizes()) {
      ++round;
      KivRangeImage image = RandomRangeImage<T>(w, h, random);
      ReplaceInfinities<T>(image);
      if constexpr (std::is_integral_v<T>) image.SetResolution(1.0, 1.0, 0.02);
      const int mapType = 1 + round % 10;
      SCOPED_TRACE(::testing::Message() << "type " << PixelTraits<T>::kDataType << " " << w << "x"
                                        << h << " map " << mapType);
      ExpectSegmentedMatches(image, LinearColorMapLUT_Para(), true, mapType, 4, 8);
      const Values values = QuantileValues(FloatHeights(image));
      ExpectSegmentedMatches(image, Record(values, {0, 100, 400, 800, 1000}), false, mapType, 0, 0);
    }
  });
}

TEST(SegmentedColorMapLUT, ManualValuesInsideTheDataUseTheCallersColours) {
  // Break values 2 .. 6 on data 0 .. 8: 0 and 1 take underColor, 7 and 8 overColor, the marker
  // the invalid colour, everything else a grey of its segment.
  KivRangeImage image = FloatImage({0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f, kMarker});
  const LinearColorMapLUT_Para para = Record({2, 3, 4, 5, 6}, {0, 100, 511, 900, 1023});
  ExpectSegmentedMatches(image, para, false, 2, 2, 2);
  LinearColorMapLUT_Para record = para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(image, &out, record, under, over, 2, false, 0, 0, nullptr, nullptr),
            LUT_OK);
  const Bytes got = OutputBytes(out, 10);
  EXPECT_EQ(Bytes(got.begin(), got.begin() + 3), Bytes({30, 20, 10}));
  EXPECT_EQ(Bytes(got.begin() + 3, got.begin() + 6), Bytes({30, 20, 10}));
  EXPECT_EQ(Bytes(got.begin() + 21, got.begin() + 24), Bytes({220, 210, 200}));
  EXPECT_EQ(Bytes(got.begin() + 24, got.begin() + 27), Bytes({220, 210, 200}));
  EXPECT_EQ(Bytes(got.begin() + 27, got.end()), Bytes(3, 255));  // hot metal: white
  for (int i = 2; i <= 6; ++i) {
    const uint8_t* c = out.Data() + 3 * i;
    EXPECT_TRUE(c[0] == c[1] && c[1] == c[2]) << i;
  }
}

TEST(SegmentedColorMapLUT, HandsBackChartSegmentsCountsAndTicks) {
  std::mt19937_64 random(12);
  KivRangeImage image = RandomRangeImage<uint16_t>(23, 7, random);
  LinearColorMapLUT_Para para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out;
  KivVarArray a, b;
  // What the arrays already hold is kept; the results follow it.
  a.Append(KivVar(-7));
  b.Append(KivVar(2.5));
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(image, &out, para, under, over, 1, true, 4, 8, &a, &b), LUT_OK);
  ASSERT_EQ(a.Length(), 10);
  EXPECT_EQ(a[0].ToInt(), -7);
  const KivImage chart = a[1].ToImage();
  EXPECT_EQ(chart.Width(), 800);
  EXPECT_EQ(chart.Height(), 600);
  EXPECT_EQ(chart.Channels(), 3);
  EXPECT_EQ(chart.BitDepth(), KIV_IMAGE_8U);
  int outside = 0;
  for (int k = 0; k < 4; ++k) {
    EXPECT_TRUE(a[2 + k].IsImage());
    EXPECT_EQ(a[2 + k].ToImage().Width(), 23);
    EXPECT_EQ(a[2 + k].ToImage().Height(), 7);
    EXPECT_TRUE(a[6 + k].IsInt());
    outside += a[6 + k].ToInt();
  }
  // Every pixel is outside at least three masks; the valid ones inside exactly one.
  EXPECT_GE(outside, 3 * 161);
  EXPECT_LE(outside, 4 * 161);
  // Automatic ticks: 1023 - 64k for k = 0..8, then 511 - 128k for k = 1..4, -1 held at 0.
  const std::vector<int> want = {1023, 959, 895, 831, 767, 703, 639, 575, 511, 383, 255, 127, 0};
  ASSERT_EQ(b.Length(), 1 + static_cast<int>(want.size()));
  EXPECT_TRUE(b[0].IsDouble());
  for (size_t k = 0; k < want.size(); ++k) {
    EXPECT_TRUE(b[1 + static_cast<int>(k)].IsInt());
    EXPECT_EQ(b[1 + static_cast<int>(k)].ToInt(), want[k]) << k;
  }
}

TEST(SegmentedColorMapLUT, ManualTicksStepFromTheRecordsIndices) {
  LinearColorMapLUT_Para para = Record({0, 1, 2, 3, 4}, {0, 100, 400, 800, 1000});
  // (1000 - 400) / 4 = 150 above; (400 - 0 + 1) / 2 = 200 below.
  EXPECT_EQ(LegendTicks(para, false, 2, 4), (std::vector<int>{1000, 850, 700, 550, 400, 200, 0}));
  para = Record({0, 1, 2, 3, 4}, {5, 6, 7, 8, 1023});
  // (7 - 5 + 1) / 16 = 0: the lower ticks all repeat index2.
  const std::vector<int> ticks = LegendTicks(para, false, 16, 2);
  ASSERT_EQ(ticks.size(), 3u + 16u);
  EXPECT_EQ(ticks[0], 1023);
  EXPECT_EQ(ticks[1], 1023 - 508);
  EXPECT_EQ(ticks[2], 7);
  for (size_t k = 3; k < ticks.size(); ++k) EXPECT_EQ(ticks[k], 7);
  // Automatic mode ignores the record.
  EXPECT_EQ(LegendTicks(para, true, 2, 2), (std::vector<int>{1023, 767, 511, 255, 0}));
  EXPECT_TRUE(LegendTicks(para, true, 0, 4).empty());
}

TEST(SegmentedColorMapLUT, NoTicksWhenSizeAIsZeroAndNullArraysAreSkipped) {
  KivRangeImage image = FloatImage({1.0f, 2.0f, 3.0f, 4.0f});
  LinearColorMapLUT_Para para;
  KivColor under = kUnder, over = kOver;
  KivColorArray out;
  KivVarArray a, b;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(image, &out, para, under, over, 1, true, 0, 3, &a, &b), LUT_OK);
  EXPECT_EQ(a.Length(), 9);
  EXPECT_EQ(b.Length(), 0);
  ASSERT_EQ(lut.ColorMapLUT(image, &out, para, under, over, 1, true, 2, 2, nullptr, &b), LUT_OK);
  EXPECT_EQ(b.Length(), 5);
  ASSERT_EQ(lut.ColorMapLUT(image, &out, para, under, over, 1, true, 2, 2, &a, nullptr), LUT_OK);
  EXPECT_EQ(a.Length(), 18);
  EXPECT_EQ(out.Length(), 4);
}

TEST(SegmentedColorMapLUT, QuartersOfTheGreyTable) {
  for (int q = 0; q < 4; ++q) {
    const ColourTable quarter = QuarterOfParaGrey(q);
    for (int j = 0; j < 256; ++j) {
      EXPECT_EQ(quarter[static_cast<size_t>(j)], QuarterGrey(q, j)) << q << " " << j;
    }
  }
}

TEST(SegmentedColorMapLUT, RealFramesMatchReference) {
  const std::vector<testing_support::RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << "no real frames: the shared data folder is missing";
  for (const auto& frame : frames) {
    SCOPED_TRACE(frame.name);
    ExpectSegmentedMatches(frame.image, LinearColorMapLUT_Para(), true, 6, 8, 8);
  }
}

// ---------------------------------------------------------------------------------------------
// Checks, stages and logging.

enum class Form { kRange, kArray, kSegmented };
constexpr Form kForms[] = {Form::kRange, Form::kArray, Form::kSegmented};

long CallForm(Form form, KivRangeImage& image, Kiv3DFloatArray& array, KivColorArray* out,
              LinearColorMapLUT_Para& para, int mapType, bool automatic, int sizeA = 0,
              int sizeB = 0) {
  KivLUTSetting lut;
  KivColor under = kUnder, over = kOver;
  KivVarArray a, b;
  switch (form) {
    case Form::kRange:
      return lut.LinearColorMapLUT(image, out, para, under, over, mapType, automatic);
    case Form::kArray:
      return lut.LinearColorMapLUT(array, out, para, under, over, mapType, automatic);
    case Form::kSegmented:
      return lut.ColorMapLUT(image, out, para, under, over, mapType, automatic, sizeA, sizeB, &a,
                             &b);
  }
  return -1;
}

TEST(ParaMapping, RecordChecksInOrderLeaveOutputUntouched) {
  const Values good = {0, 1, 2, 3, 4};
  const Indices goodIdx = {0, 10, 20, 30, 40};
  const struct {
    Values values;
    Indices indices;
    long code;
  } cases[] = {
      {{1, 0, 2, 3, 4}, goodIdx, LUT_ERR_PARA_BOUND_1},
      {{0, 2, 1, 3, 4}, goodIdx, LUT_ERR_PARA_BOUND_1},
      {{0, 1, 3, 2, 4}, goodIdx, LUT_ERR_PARA_BOUND_3},
      {{0, 1, 2, 4, 3}, goodIdx, LUT_ERR_PARA_BOUND_4},
      {good, {-1, 10, 20, 30, 40}, LUT_ERR_PARA_INDEX_1},
      {good, {11, 10, 20, 30, 40}, LUT_ERR_PARA_INDEX_1},
      {good, {0, 21, 20, 30, 40}, LUT_ERR_PARA_INDEX_2},
      {good, {0, 10, 31, 30, 40}, LUT_ERR_PARA_INDEX_3},
      {good, {0, 10, 20, 41, 40}, LUT_ERR_PARA_INDEX_4},
      {good, {0, 10, 20, 30, 1024}, LUT_ERR_PARA_COUNT},
      // Bounds are checked before indices.
      {{1, 0, 2, 3, 4}, {0, 10, 20, 30, 2000}, LUT_ERR_PARA_BOUND_1},
      // NaN values pass every ordering test; 1023 is the last entry.
      {{kNaN, kNaN, kNaN, kNaN, kNaN}, {0, 0, 0, 0, 1023}, LUT_OK},
  };
  KivRangeImage image = FloatImage({0.0f, 1.0f, 2.0f, 3.0f, 4.0f});
  for (Form form : kForms) {
    for (const auto& c : cases) {
      Kiv3DFloatArray array = FloatArray({0.0f, 1.0f, 2.0f, 3.0f, 4.0f});
      LinearColorMapLUT_Para para = Record(c.values, c.indices);
      KivColorArray out = PatternedOutput(5);
      EXPECT_EQ(CallForm(form, image, array, &out, para, 1, false), c.code)
          << static_cast<int>(form) << " " << c.code;
      if (c.code != LUT_OK) {
        EXPECT_EQ(OutputBytes(out, 5), Pattern(5));
        // Nothing is rescaled either.
        EXPECT_EQ(array.Data()[4], 4.0f);
      }
      // Automatic mode does not look at the record.
      EXPECT_EQ(CallForm(form, image, array, &out, para, 1, true), LUT_OK);
    }
  }
}

TEST(ParaMapping, FrameChecksInOrder) {
  KivRangeImage image = FloatImage({0.0f, 1.0f});
  KivRangeImage typeTwo = FloatImage({0.0f, 1.0f});
  typeTwo.SetType(2);
  KivRangeImage empty(0, 3, KIV_DATA_F32);
  Kiv3DFloatArray array = FloatArray({0.0f, 1.0f});
  Kiv3DFloatArray emptyArray;
  LinearColorMapLUT_Para bad = Record({1, 0, 0, 0, 0}, {0, 0, 0, 0, 0});
  KivColorArray out;
  for (Form form : {Form::kRange, Form::kSegmented}) {
    // Type before size before map type before record.
    EXPECT_EQ(CallForm(form, typeTwo, array, &out, bad, 0, false), LUT_ERR_RANGE_IMAGE_TYPE);
    EXPECT_EQ(CallForm(form, empty, array, &out, bad, 0, false), LUT_ERR_RANGE_IMAGE_EMPTY);
    EXPECT_EQ(CallForm(form, image, array, &out, bad, 0, false), LUT_ERR_PARAM_1);
    EXPECT_EQ(CallForm(form, image, array, &out, bad, 11, false), LUT_ERR_PARAM_1);
    EXPECT_EQ(CallForm(form, image, array, &out, bad, -1, false), LUT_ERR_PARAM_1);
    EXPECT_EQ(CallForm(form, image, array, &out, bad, 10, false), LUT_ERR_PARA_BOUND_1);
  }
  EXPECT_EQ(CallForm(Form::kArray, image, emptyArray, &out, bad, 0, false),
            LUT_ERR_RANGE_IMAGE_EMPTY);
  EXPECT_EQ(CallForm(Form::kArray, image, array, &out, bad, 0, false), LUT_ERR_PARAM_1);
  EXPECT_EQ(CallForm(Form::kArray, image, array, &out, bad, 1, false), LUT_ERR_PARA_BOUND_1);
  // Legend sizes: after the map type, before the record; sizeB only when sizeA is set.
  LinearColorMapLUT_Para para;
  const struct {
    int sizeA, sizeB;
    long code;
  } sizes[] = {{0, 3, LUT_OK},          {0, -5, LUT_OK},         {4, 3, LUT_ERR_PARAM_7},
               {3, 4, LUT_ERR_PARAM_6}, {16, 2, LUT_OK},         {2, 0, LUT_ERR_PARAM_7},
               {1, 1, LUT_ERR_PARAM_6}, {32, 8, LUT_ERR_PARAM_6}};
  for (const auto& s : sizes) {
    EXPECT_EQ(CallForm(Form::kSegmented, image, array, &out, para, 1, true, s.sizeA, s.sizeB),
              s.code)
        << s.sizeA << " " << s.sizeB;
  }
  EXPECT_EQ(CallForm(Form::kSegmented, image, array, &out, bad, 1, false, 3, 4), LUT_ERR_PARAM_6);
  EXPECT_EQ(CallForm(Form::kSegmented, image, array, &out, bad, 0, false, 3, 4), LUT_ERR_PARAM_1);
}

TEST(ParaMapping, NullOutputFailsAfterTheChecks) {
  KivRangeImage image = FloatImage({0.0f, 1.0f});
  Kiv3DFloatArray array = FloatArray({0.0f, 1.0f});
  LinearColorMapLUT_Para para;
  for (Form form : kForms) {
    EXPECT_EQ(CallForm(form, image, array, nullptr, para, 1, true), LUT_ERR_OUTPUT_FAILED);
    EXPECT_EQ(CallForm(form, image, array, nullptr, para, 0, true), LUT_ERR_PARAM_1);
  }
  // Nothing was rescaled or written back.
  EXPECT_EQ(array.Data()[0], 0.0f);
  EXPECT_EQ(IndicesOf(para), (Indices{0, 0, 0, 0, 0}));
}

TEST(ParaMapping, RoutinesRepeatTheirChecks) {
  KivRangeImage empty(0, 0, KIV_DATA_F32);
  KivRangeImage image = FloatImage({0.0f, 1.0f});
  // A pixel matrix that does not hold the pixels its size claims.
  KivRangeImage hollow = FloatImage({0.0f, 1.0f});
  hollow.Mat() = cv::Mat();
  Kiv3DFloatArray bytes;
  bytes.Mat() = cv::Mat(1, 8, CV_8UC1, cv::Scalar(0));
  LinearColorMapLUT_Para para;
  KivColor c;
  KivColorArray out;
  EXPECT_EQ(LinearColourMapFivePoint(empty, &out, para, c, c, 1, true), LUT_ERR_RANGE_IMAGE_EMPTY);
  EXPECT_EQ(LinearColourMapFivePoint(hollow, &out, para, c, c, 1, true), LUT_ERR_RANGE_IMAGE_EMPTY);
  EXPECT_EQ(LinearColourMapFivePoint(image, &out, para, c, c, 0, true), LUT_ERR_PARAM_1);
  EXPECT_EQ(ColourMapSegmented(hollow, &out, para, c, c, 1, true, 0, 0, nullptr, nullptr),
            LUT_ERR_RANGE_IMAGE_EMPTY);
  EXPECT_EQ(ColourMapSegmented(image, &out, para, c, c, 11, true, 0, 0, nullptr, nullptr),
            LUT_ERR_PARAM_1);
  EXPECT_EQ(LinearColourMapFivePointArray(bytes, &out, para, c, c, 1, true),
            LUT_ERR_RANGE_IMAGE_EMPTY);
  EXPECT_EQ(out.Length(), 0);
}

TEST(ParaMapping, UnconvertibleImageFailsInTheColouringStage) {
  KivRangeImage image(3, 1, KIV_DATA_U16);
  image.Ptr<uint16_t>()[1] = 7;
  image.SetResolution(1.0, 1.0, kNaN);
  LinearColorMapLUT_Para para;
  Kiv3DFloatArray array;
  KivColorArray out;
  EXPECT_EQ(CallForm(Form::kRange, image, array, &out, para, 1, true), LUT_ERR_PARA_MAPPING_FAILED);
  EXPECT_EQ(CallForm(Form::kSegmented, image, array, &out, para, 1, true),
            LUT_ERR_PARA_MAPPING_FAILED);
  EXPECT_EQ(out.Length(), 3);
}

TEST(ParaMapping, EachStageFailureReturnsItsCode) {
  const struct {
    FaultStage stage;
    bool automatic;
    long code;
  } stages[] = {
      {FaultStage::kOutputSizing, false, LUT_ERR_OUTPUT_FAILED},
      {FaultStage::kOutputSizing, true, LUT_ERR_OUTPUT_FAILED},
      {FaultStage::kColouring, false, LUT_ERR_PARA_MAPPING_FAILED},
      {FaultStage::kColouring, true, LUT_ERR_PARA_MAPPING_FAILED},
      // The automatic reduction is part of the colouring stage.
      {FaultStage::kStatistics, true, LUT_ERR_PARA_MAPPING_FAILED},
  };
  std::mt19937_64 random(606);
  KivRangeImage image = RandomRangeImage<uint16_t>(300, 300, random);
  const std::vector<float> values = FloatHeights(image);
  for (Form form : kForms) {
    for (const auto& s : stages) {
      Kiv3DFloatArray array = FloatArray(values);
      LinearColorMapLUT_Para para = Record({-1e9, 0, 1, 2, 1e9}, {0, 1, 2, 3, 4});
      KivColorArray out;
      out.Create(5, 3);
      {
        ScopedFault fault(s.stage);
        EXPECT_EQ(CallForm(form, image, array, &out, para, 1, s.automatic, 2, 2), s.code)
            << static_cast<int>(form) << " stage " << static_cast<int>(s.stage);
      }
      // Sizing failed before the array was touched; later stages find it re-sized.
      EXPECT_EQ(out.Length(), s.stage == FaultStage::kOutputSizing ? 5 : 300 * 300);
      EXPECT_EQ(CallForm(form, image, array, &out, para, 1, s.automatic, 2, 2), LUT_OK);
    }
  }
}

TEST(ParaMapping, EachFormLogsItsTags) {
  KivRangeImage image = FloatImage({1.0f, 2.0f, 3.0f});
  Kiv3DFloatArray array = FloatArray({1.0f, 2.0f, 3.0f});
  LinearColorMapLUT_Para para;
  KivColorArray out;
  const std::string end = kLinearEndMessage;
  {
    testing_support::LogCapture capture;
    ASSERT_EQ(CallForm(Form::kRange, image, array, &out, para, 1, true), LUT_OK);
    ASSERT_EQ(CallForm(Form::kArray, image, array, &out, para, 1, true), LUT_OK);
    ASSERT_EQ(CallForm(Form::kSegmented, image, array, &out, para, 1, true, 2, 2), LUT_OK);
    // A routine that ran logs its end whatever it returned.
    ASSERT_EQ(CallForm(Form::kRange, image, array, nullptr, para, 1, true), LUT_ERR_OUTPUT_FAILED);
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{
                                  "LinearColorMapLUT:773:start", "LinearColorMapLUT:810:" + end,
                                  "LinearColorMapLUT:817:start", "LinearColorMapLUT:854:" + end,
                                  "LinearColorMapLUT:863:start", "LinearColorMapLUT:909:" + end,
                                  "LinearColorMapLUT:773:start", "LinearColorMapLUT:810:" + end}));
    for (const auto& line : capture.Lines()) EXPECT_EQ(line.className, "KivLUTSetting");
  }
  {
    testing_support::LogCapture capture;
    LinearColorMapLUT_Para bad = Record({1, 0, 0, 0, 0}, {0, 0, 0, 0, 0});
    EXPECT_EQ(CallForm(Form::kRange, image, array, &out, para, 0, true), LUT_ERR_PARAM_1);
    EXPECT_EQ(CallForm(Form::kArray, image, array, &out, bad, 1, false), LUT_ERR_PARA_BOUND_1);
    EXPECT_EQ(CallForm(Form::kSegmented, image, array, &out, para, 1, true, 4, 3), LUT_ERR_PARAM_7);
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"LinearColorMapLUT:773:start",
                                                        "LinearColorMapLUT:817:start",
                                                        "LinearColorMapLUT:863:start"}));
  }
}

TEST(ParaMapping, OutputIsSizedToThePixelCount) {
  KivRangeImage image = FloatImage({1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f}, 3);
  Kiv3DFloatArray array = FloatArray({1.0f, 2.0f, 3.0f, 4.0f});
  LinearColorMapLUT_Para para;
  for (Form form : kForms) {
    KivColorArray out;
    out.Create(2, 1);
    ASSERT_EQ(CallForm(form, image, array, &out, para, 5, true), LUT_OK);
    EXPECT_EQ(out.Length(), form == Form::kArray ? 4 : 6);
    EXPECT_EQ(out.Channel(), 3);
  }
}

}  // namespace
}  // namespace KIVMV
