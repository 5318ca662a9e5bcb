#include "range/statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <vector>

#include "common/pixel_rules.h"
#include "range/range_test_support.h"

namespace KIVMV {
namespace {

using testing_support::ForEachPixelType;
using testing_support::RandomRangeImage;
using testing_support::ReferenceIsValid;
using testing_support::TestSizes;

constexpr float kFloatNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kFloatInf = std::numeric_limits<float>::infinity();

TEST(Statistics, InvalidRulePerType) {
  EXPECT_FALSE(IsValidPixel<uint8_t>(0));
  EXPECT_TRUE(IsValidPixel<uint8_t>(1));
  EXPECT_FALSE(IsValidPixel<int8_t>(-128));
  EXPECT_TRUE(IsValidPixel<int8_t>(-127));
  EXPECT_TRUE(IsValidPixel<int8_t>(0));
  EXPECT_FALSE(IsValidPixel<uint16_t>(0));
  EXPECT_TRUE(IsValidPixel<uint16_t>(65535));
  EXPECT_FALSE(IsValidPixel<int16_t>(-32768));
  EXPECT_TRUE(IsValidPixel<int16_t>(0));
  // The distance wraps in 32 bits: 0 is as invalid as the marker itself.
  EXPECT_FALSE(IsValidPixel<int32_t>(INT_MIN));
  EXPECT_FALSE(IsValidPixel<int32_t>(0));
  EXPECT_TRUE(IsValidPixel<int32_t>(1));
  EXPECT_TRUE(IsValidPixel<int32_t>(-1));
  EXPECT_TRUE(IsValidPixel<int32_t>(INT_MAX));
  EXPECT_TRUE(IsValidPixel<int32_t>(INT_MIN + 1));
  EXPECT_FALSE(IsValidPixel<float>(-FLT_MAX));
  EXPECT_TRUE(IsValidPixel<float>(-3.4e38f));  // near the marker, but not it
  EXPECT_TRUE(IsValidPixel<float>(FLT_MAX));
  EXPECT_TRUE(IsValidPixel<float>(0.0f));
  EXPECT_FALSE(IsValidPixel<float>(kFloatNaN));
  EXPECT_FALSE(IsValidPixel<float>(kFloatInf));
  EXPECT_FALSE(IsValidPixel<float>(-kFloatInf));
  EXPECT_FALSE(IsValidPixel<double>(-DBL_MAX));
  EXPECT_TRUE(IsValidPixel<double>(-1.7e308));
  EXPECT_FALSE(IsValidPixel<double>(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_FALSE(IsValidPixel<double>(std::numeric_limits<double>::infinity()));
}

TEST(Statistics, RuleMatchesRestatementForEverySmallValue) {
  for (int v = 0; v < 256; ++v) EXPECT_EQ(IsValidPixel<uint8_t>(v), ReferenceIsValid<uint8_t>(v));
  for (int v = -128; v < 128; ++v) EXPECT_EQ(IsValidPixel<int8_t>(v), ReferenceIsValid<int8_t>(v));
  for (int v = 0; v < 65536; ++v) {
    ASSERT_EQ(IsValidPixel<uint16_t>(v), ReferenceIsValid<uint16_t>(v)) << v;
  }
  for (int v = -32768; v < 32768; ++v) {
    ASSERT_EQ(IsValidPixel<int16_t>(v), ReferenceIsValid<int16_t>(v)) << v;
  }
}

TEST(Statistics, SignedIntImageOfZerosHasNoValidPixel) {
  const std::vector<int32_t> zeros(1000, 0);
  const ValueStatistics<int32_t> stats = FindValueStatistics(zeros.data(), 1000);
  EXPECT_EQ(stats.minimum, 2147483647);
  EXPECT_EQ(stats.maximum, -2147483647 - 1);
  EXPECT_EQ(stats.validCount, 0u);
}

TEST(Statistics, NonFiniteAndMarkerPixelsAreExcluded) {
  const std::vector<float> values = {kFloatNaN,  5.0f,     kFloatInf, -FLT_MAX,
                                     -kFloatInf, -3.4e38f, 7.0f};
  const ValueStatistics<float> stats = FindValueStatistics(values.data(), 7);
  EXPECT_EQ(stats.minimum, -3.4e38f);
  EXPECT_EQ(stats.maximum, 7.0f);
  EXPECT_EQ(stats.validCount, 3u);
  const ValueStatistics<float> extremes = FindMinMax(values.data(), 7);
  EXPECT_EQ(extremes.minimum, -3.4e38f);
  EXPECT_EQ(extremes.maximum, 7.0f);
}

TEST(Statistics, InitialExtremesPerType) {
  EXPECT_EQ(PixelTraits<uint8_t>::kInitialMin, 255);
  EXPECT_EQ(PixelTraits<int8_t>::kInitialMax, -128);
  EXPECT_EQ(PixelTraits<uint16_t>::kInitialMin, 65535);
  EXPECT_EQ(PixelTraits<int16_t>::kInitialMin, 32767);
  EXPECT_EQ(PixelTraits<float>::kInitialMin, 3.4028235e38f);
  EXPECT_EQ(PixelTraits<float>::kInitialMax, -3.4028235e38f);
  EXPECT_EQ(PixelTraits<double>::kInitialMin, 1.7976931348623157e308);
}

TEST(Statistics, HistogramBinsAtTheUpperBound) {
  const double low = 100.0, high = 355.0, w = (high - low) / 255;  // one unit per bin
  const std::vector<double> values = {100.0, 354.999, 355.0, 99.999, 355.001, 200.5};
  const Histogram histogram = BuildHistogram(values.data(), 6, w, low, high);
  EXPECT_EQ(histogram[0], 1u);
  EXPECT_EQ(histogram[254], 1u);  // just below high
  EXPECT_EQ(histogram[255], 1u);  // equal to high
  EXPECT_EQ(histogram[100], 1u);
  uint32_t total = 0;
  for (uint32_t count : histogram) total += count;
  EXPECT_EQ(total, 4u);  // the two values outside [low, high] are not counted
}

TEST(Statistics, HistogramBinClampsNonFiniteWidths) {
  EXPECT_EQ(HistogramBin<double>(5.0, std::numeric_limits<double>::infinity(), 0.0, 10.0), 0);
  // 5 / 0 - 0 / 0 is NaN: INT64_MIN, clamped to the first bin.
  EXPECT_EQ(HistogramBin<double>(5.0, 0.0, 0.0, 10.0), 0);
  EXPECT_EQ(HistogramBin<double>(std::nan(""), 1.0, 0.0, 10.0), -1);
}

// The reciprocal form must give the division's bin everywhere, most of all on bin boundaries and
// for values far from zero, where v / w is large and its last place coarse.
TEST(Statistics, ReciprocalHistogramBinEqualsTheDivision) {
  std::mt19937_64 random(23);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (double low : {0.0, -300.0, 0.1, 1e6, -1e6, 123.456, 3e9}) {
    for (double width : {255.0, 1.0, 100.0 / 3.0, 3e-6, 2.55e-6, 1e4, 1e300}) {
      const double high = low + width;
      const double w = high / 255 - low / 255;
      if (!(w > 1e-8)) continue;
      std::vector<double> values;
      for (int k = 0; k <= 256; ++k) {
        const double edge = low + k * w;
        for (double v : {edge, std::nextafter(edge, -1e308), std::nextafter(edge, 1e308),
                         edge + w * unit(random), edge + w * 0.5}) {
          values.push_back(v);
        }
      }
      values.push_back(low);
      values.push_back(high);
      values.push_back(std::nan(""));
      const double reciprocal = 1.0 / w, lowOverW = low / w;
      for (double v : values) {
        ASSERT_EQ(HistogramBinByReciprocal<double>(v, w, reciprocal, lowOverW, low, high),
                  HistogramBin<double>(v, w, low, high))
            << "v " << v << " low " << low << " w " << w;
        const float f = static_cast<float>(v);
        ASSERT_EQ(HistogramBinByReciprocal<float>(f, w, reciprocal, lowOverW, low, high),
                  HistogramBin<float>(f, w, low, high))
            << "f " << f << " low " << low << " w " << w;
      }
    }
  }
}

TEST(Statistics, SingleEntryFillUsesInvalidColourOfTheMap) {
  const std::vector<uint16_t> values = {0, 7, 0, 9};
  std::vector<uint8_t> out(12, 77);
  ColourWithOneEntry(values.data(), 4, SelectColourTable(kHotMetalMap), 200, kHotMetalMap,
                     out.data());
  const ColourEntry& entry = kHotMetalTable[200];
  for (int i = 0; i < 4; ++i) {
    const bool valid = values[i] != 0;
    for (int c = 0; c < 3; ++c) {
      EXPECT_EQ(out[3 * i + c], valid ? entry[c] : 255)
          << i;  // hot metal's invalid colour is white
    }
  }
}

// Serial reference of the three reductions, from the restated rule.
template <typename T>
void ExpectStatisticsMatchReference(const T* data, int n, double low, double high, double w) {
  T minimum = PixelTraits<T>::kInitialMin, maximum = PixelTraits<T>::kInitialMax;
  uint32_t count = 0;
  std::vector<uint32_t> histogram(256, 0);
  for (int i = 0; i < n; ++i) {
    const T v = data[i];
    if (ReferenceIsValid(v)) {
      minimum = std::min(minimum, v);
      maximum = std::max(maximum, v);
      ++count;
    }
    const double d = static_cast<double>(v);
    if (d >= low && d <= high) {
      const double bin = std::floor(d / w - low / w + 1e-14);
      ++histogram[std::clamp(static_cast<int>(bin), 0, 255)];
    }
  }
  const ValueStatistics<T> stats = FindValueStatistics(data, n);
  EXPECT_EQ(stats.minimum, minimum);
  EXPECT_EQ(stats.maximum, maximum);
  EXPECT_EQ(stats.validCount, count);
  const ValueStatistics<T> extremes = FindMinMax(data, n);
  EXPECT_EQ(extremes.minimum, minimum);
  EXPECT_EQ(extremes.maximum, maximum);
  EXPECT_EQ(BuildHistogram(data, n, w, low, high), histogram);

  // Any split of the work gives the same answer.
  for (int grain : {1, 3, 64, std::max(1, n)}) {
    MinMaxBodyandnemer<T> body(data);
    tbb::parallel_reduce(tbb::blocked_range<int>(0, n, grain), body, tbb::auto_partitioner());
    EXPECT_EQ(body.minimum, minimum);
    EXPECT_EQ(body.maximum, maximum);
    EXPECT_EQ(body.count, count);
    HistTbbMinMax<T> hist(data, w, low, high);
    tbb::parallel_reduce(tbb::blocked_range<int>(0, n, grain), hist, tbb::auto_partitioner());
    EXPECT_EQ(hist.histogram, histogram);
  }
}

TEST(Statistics, MatchSerialReferenceOnRandomImages) {
  std::mt19937_64 random(31);
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [width, height] : TestSizes()) {
      const KivRangeImage image = RandomRangeImage<T>(width, height, random);
      const T* data = image.Ptr<T>();
      const int n = width * height;
      const ValueStatistics<T> stats = FindValueStatistics(data, n);
      if (stats.validCount == 0) continue;
      const double low = static_cast<double>(stats.minimum);
      const double high = static_cast<double>(stats.maximum);
      const double w = high / 255 - low / 255;
      SCOPED_TRACE(testing::Message() << "type " << int(PixelTraits<T>::kDataType) << " size "
                                      << width << "x" << height);
      if (w > 1e-8 && std::isfinite(w)) ExpectStatisticsMatchReference(data, n, low, high, w);
    }
  });
}

}  // namespace
}  // namespace KIVMV

namespace KIVMV {
namespace {

template <typename T>
T FromBits(uint64_t bits) {
  T v;
  if constexpr (sizeof(T) == 4) {
    const uint32_t narrow = static_cast<uint32_t>(bits);
    std::memcpy(&v, &narrow, sizeof v);
  } else {
    std::memcpy(&v, &bits, sizeof v);
  }
  return v;
}

template <typename T>
uint64_t BitsOf(T v) {
  if constexpr (sizeof(T) == 4) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
  } else {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
  }
}

TEST(Statistics, FloatingStatisticsOfOneValueFollowTheValidRule) {
  // Every pattern of the top 16 bits (sign, exponent, leading fraction bits) with low bits of
  // 0, 1, all ones and random: NaNs of either sign, infinities, the marker, subnormals, zeros.
  std::mt19937_64 random(41);
  auto check = [](auto v) {
    using T = decltype(v);
    const ValueStatistics<T> got = FindFloatingValueStatistics(&v, 1);
    if (IsValidPixel(v)) {
      ASSERT_EQ(got.validCount, 1u) << BitsOf(v);
      ASSERT_EQ(BitsOf(got.minimum), BitsOf(v));
      ASSERT_EQ(BitsOf(got.maximum), BitsOf(v));
    } else {
      ASSERT_EQ(got.validCount, 0u) << BitsOf(v);
      ASSERT_EQ(got.minimum, PixelTraits<T>::kInitialMin);
      ASSERT_EQ(got.maximum, PixelTraits<T>::kInitialMax);
    }
  };
  for (uint64_t top = 0; top < 0x10000; ++top) {
    for (uint64_t low : {uint64_t{0}, uint64_t{1}, uint64_t{0xFFFF}, uint64_t{random() & 0xFFFF}}) {
      check(FromBits<float>(top << 16 | low));
    }
    const uint64_t lows[] = {0, 1, (uint64_t{1} << 48) - 1, random() & ((uint64_t{1} << 48) - 1)};
    for (uint64_t low : lows) check(FromBits<double>(top << 48 | low));
  }
  check(-FLT_MAX);
  check(std::nextafter(-FLT_MAX, 0.0f));
  check(FLT_MAX);
  check(-DBL_MAX);
  check(std::nextafter(-DBL_MAX, 0.0));
  check(DBL_MAX);
}

TEST(Statistics, FloatingStatisticsMatchTheSerialRule) {
  std::mt19937_64 random(43);
  auto run = [&](auto tag) {
    using T = typename decltype(tag)::type;
    const T specials[] = {T(0),
                          T(-0.0),
                          std::numeric_limits<T>::denorm_min(),
                          -std::numeric_limits<T>::denorm_min(),
                          std::numeric_limits<T>::max(),
                          std::nextafter(std::numeric_limits<T>::lowest(), T(0)),
                          std::numeric_limits<T>::lowest(),
                          std::numeric_limits<T>::infinity(),
                          -std::numeric_limits<T>::infinity(),
                          std::numeric_limits<T>::quiet_NaN(),
                          -std::numeric_limits<T>::quiet_NaN()};
    for (int n : {1, 2, 3, 17, 1000, 65537, 300001}) {
      for (int round = 0; round < 4; ++round) {
        std::vector<T> values(static_cast<size_t>(n));
        std::normal_distribution<double> value(round * 100.0 - 150.0, 50.0);
        for (T& v : values) {
          v = random() % 10 < 2 ? specials[random() % std::size(specials)]
                                : static_cast<T>(value(random));
        }
        if (round == 3) {
          for (T& v : values) v = std::numeric_limits<T>::quiet_NaN();  // no valid value
        }
        T minimum = PixelTraits<T>::kInitialMin, maximum = PixelTraits<T>::kInitialMax;
        uint32_t count = 0;
        for (T v : values) {
          if (!ReferenceIsValid(v)) continue;
          minimum = std::min(minimum, v);
          maximum = std::max(maximum, v);
          ++count;
        }
        const ValueStatistics<T> got = FindFloatingValueStatistics(values.data(), n);
        ASSERT_EQ(got.validCount, count) << n;
        // Equal as values: of -0 and +0 either may stand for a zero extreme.
        ASSERT_EQ(got.minimum, minimum) << n;
        ASSERT_EQ(got.maximum, maximum) << n;
        const ValueStatistics<T> general = FindValueStatistics(values.data(), n);
        ASSERT_EQ(got.validCount, general.validCount);
        ASSERT_EQ(got.minimum, general.minimum);
        ASSERT_EQ(got.maximum, general.maximum);
      }
    }
  };
  run(PixelTypeTag<float>{});
  run(PixelTypeTag<double>{});
}

}  // namespace
}  // namespace KIVMV
