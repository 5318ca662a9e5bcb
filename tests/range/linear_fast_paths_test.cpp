// The float fast paths of the linear colouring against plain per-pixel loops written here: the
// validity rule, the slot lookup that replaces the division, the vectorised extremes and the
// counting selection of the fraction cut.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "common/cpu_features.h"
#include "range/linear_mapping.h"
#include "range/statistics.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

uint32_t Bits(float v) {
  uint32_t bits = 0;
  std::memcpy(&bits, &v, 4);
  return bits;
}

float FromBits(uint32_t bits) {
  float v = 0.0f;
  std::memcpy(&v, &bits, 4);
  return v;
}

// Floats in numeric order as integers, -0 just below +0.
int64_t Key(float v) {
  const uint32_t bits = Bits(v);
  return (bits >> 31) != 0 ? -static_cast<int64_t>(bits & 0x7FFFFFFFu) - 1
                           : static_cast<int64_t>(bits);
}

float FromKey(int64_t key) {
  return FromBits(key >= 0 ? static_cast<uint32_t>(key)
                           : 0x80000000u | static_cast<uint32_t>(-(key + 1)));
}

// The rule as written for every pixel type: distance from the marker, then finiteness.
bool RefValid(float v) {
  const double distance = std::fabs(v - (-FLT_MAX));
  return distance > 1e-8 && std::isfinite(static_cast<double>(v));
}

int64_t RefTruncate(double x) {
  if (std::isnan(x) || x >= 9223372036854775808.0 || x < -9223372036854775808.0) return INT64_MIN;
  return static_cast<int64_t>(x);
}

// The entry of a valid value: 255 above, 0 below, else the low byte of the truncated quotient
// with 0 moved to 1.
int RefEntry(float v, float lo, float hi) {
  if (v > hi) return 255;
  if (v < lo) return 0;
  const float offset = v - lo;
  const float span = hi - lo;
  const int k =
      static_cast<int>(static_cast<uint64_t>(RefTruncate(static_cast<double>(offset) * 255.0 /
                                                         static_cast<double>(span))) &
                       0xFF);
  return k == 0 ? 1 : k;
}

// A table whose 256 colours all differ, and an invalid colour unlike any of them.
ColourTable DistinctTable() {
  ColourTable table{};
  for (int k = 0; k < kColourTableSize; ++k) {
    table[k] = {static_cast<uint8_t>(k), static_cast<uint8_t>(255 - k),
                static_cast<uint8_t>((k * 7) & 0xFF)};
  }
  return table;
}
const ColourEntry kInvalid = {3, 2, 1};  // entry 3 is {3, 252, 21}

ColourEntry RefColour(float v, float lo, float hi, const ColourTable& table) {
  return RefValid(v) ? table[RefEntry(v, lo, hi)] : kInvalid;
}

TEST(LinearFastPaths, FloatValidityRuleHoldsForEveryFloat) {
  // Four billion values take a while, and the rule has nothing to do with the worker count.
  if (const char* chunks = std::getenv("KIV_TBB_CHUNKS");
      chunks != nullptr && std::string(chunks) != "1") {
    GTEST_SKIP() << "a per-value rule: checked once, in the run with one chunk";
  }
  uint64_t mismatches = 0;
  uint32_t first = 0;
  for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; ++bits) {
    const float v = FromBits(static_cast<uint32_t>(bits));
    if (IsValidFloatPixel(v) != IsValidPixel(v) || IsValidPixel(v) != RefValid(v)) {
      if (mismatches++ == 0) first = static_cast<uint32_t>(bits);
    }
  }
  EXPECT_EQ(mismatches, 0u) << "first at bits " << std::hex << first;
}

// Values to try for bounds lo and hi: every float between them when there are few, else the
// floats within 40 steps of each threshold (found by bisection on the reference entry), plus both
// ends, the neighbours outside them, random bit patterns and special values.
std::vector<float> ProbeValues(float lo, float hi, std::mt19937_64& random) {
  std::vector<float> values = {0.0f,
                               -0.0f,
                               kNaN,
                               -kNaN,
                               kInf,
                               -kInf,
                               FLT_MAX,
                               -FLT_MAX,
                               FLT_MIN,
                               -FLT_MIN,
                               1e-45f,
                               -1e-45f,
                               lo,
                               hi,
                               std::nextafter(lo, -kInf),
                               std::nextafter(hi, kInf)};
  const int64_t a = Key(lo), b = Key(hi);
  const auto around = [&](int64_t key, int64_t radius) {
    for (int64_t k = key - radius; k <= key + radius; ++k) {
      const float v = FromKey(k);
      if (!std::isnan(v)) values.push_back(v);
    }
  };
  around(a, 40);
  around(b, 40);
  if (b - a <= (int64_t{1} << 16)) {
    for (int64_t k = a; k <= b; ++k) values.push_back(FromKey(k));
  } else {
    for (int k = 2; k < kColourTableSize; ++k) {
      int64_t low = a, high = b;  // entry(low) < k <= entry(high)
      while (high - low > 1) {
        const int64_t middle = low + (high - low) / 2;
        (RefEntry(FromKey(middle), lo, hi) >= k ? high : low) = middle;
      }
      around(high, 40);
    }
    std::uniform_int_distribution<int64_t> inside(a, b);
    for (int i = 0; i < 2000; ++i) values.push_back(FromKey(inside(random)));
  }
  for (int i = 0; i < 2000; ++i) values.push_back(FromBits(static_cast<uint32_t>(random())));
  return values;
}

// Colours `values` through the slots and compares every pixel with the reference; the byte after
// the last colour must stay untouched. Both variants, the AVX2 loop (where the processor has it)
// and the baseline, and a few odd lengths for the groups of fewer than eight.
void ExpectSlotsMatch(const std::vector<float>& values, const LinearSlots& slots, float lo,
                      float hi, const ColourTable& table) {
  for (const bool baseline : {false, true}) {
    Avx2DisabledForTesting() = baseline;
    for (const size_t n : {values.size(), std::min<size_t>(values.size(), 13), size_t{1}}) {
      std::vector<uint8_t> out(3 * n + 1, 0xA5);
      ColourBlockBySlots(values.data(), static_cast<int>(n), slots, out.data());
      size_t failures = 0;
      for (size_t i = 0; i < n; ++i) {
        const ColourEntry expected = RefColour(values[i], lo, hi, table);
        const ColourEntry got = {out[3 * i], out[3 * i + 1], out[3 * i + 2]};
        if (got != expected && failures++ < 5) {
          ADD_FAILURE() << (baseline ? "baseline" : "dispatched") << " value " << values[i]
                        << " (bits " << std::hex << Bits(values[i]) << std::dec << ") bounds " << lo
                        << ", " << hi << ": entry " << RefEntry(values[i], lo, hi);
        }
      }
      EXPECT_EQ(out[3 * n], 0xA5);
    }
  }
  Avx2DisabledForTesting() = false;
}

TEST(LinearFastPaths, SlotsEqualTheDivisionNearEveryThreshold) {
  const ColourTable table = DistinctTable();
  std::mt19937_64 random(5150);
  const float one = 1.0f;
  const float ulpsAbove[] = {
      std::nextafter(one, 2.0f), FromKey(Key(one) + 2),    FromKey(Key(one) + 3),
      FromKey(Key(one) + 17),    FromKey(Key(one) + 254),  FromKey(Key(one) + 255),
      FromKey(Key(one) + 256),   FromKey(Key(one) + 1000), FromKey(Key(one) + 70000)};
  std::vector<std::pair<float, float>> bounds = {
      {0.0f, 1.0f},         {950.0f, 1050.0f}, {-1.0f, 1.0f},
      {-0.0f, 1.0f},        {-1.0f, -0.0f},    {-1.0f, 0.0f},
      {-3.0f, -2.0f},       {1e-45f, 3e-45f},  {-1e-40f, 1e-40f},
      {0.0f, 1e-44f},       {1e30f, 1e38f},    {-FLT_MAX / 2, FLT_MAX / 2},
      {-FLT_MAX, 0.0f},     {0.0f, FLT_MAX},   {0.1f, 0.3f},
      {900.123f, 900.124f}, {-1e-6f, 1e-6f},   {16777216.0f, 16777472.0f}};
  for (float above : ulpsAbove) bounds.emplace_back(one, above);
  std::uniform_real_distribution<float> uniform(-2000.0f, 2000.0f);
  for (int i = 0; i < 40; ++i) {
    float a = uniform(random), b = uniform(random);
    if (a > b) std::swap(a, b);
    if (a < b) bounds.emplace_back(a, b);
  }
  int built = 0;
  for (const auto& [lo, hi] : bounds) {
    SCOPED_TRACE(testing::Message() << "bounds " << lo << ", " << hi);
    auto slots = std::make_unique<LinearSlots>();
    if (!BuildLinearSlots(lo, hi, table, kInvalid, *slots)) continue;
    ++built;
    ExpectSlotsMatch(ProbeValues(lo, hi, random), *slots, lo, hi, table);
  }
  // The slots are the common case, not a rarely taken branch.
  EXPECT_GE(built, static_cast<int>(bounds.size()) - 4);
}

TEST(LinearFastPaths, SlotsRefuseBoundsOutsideTheMonotoneCase) {
  const ColourTable table = DistinctTable();
  const std::pair<float, float> refused[] = {
      {1.0f, 1.0f}, {2.0f, 1.0f},        {-kInf, 1.0f},       {0.0f, kInf},  {kNaN, 1.0f},
      {0.0f, kNaN}, {-FLT_MAX, FLT_MAX}, {FLT_MAX, -FLT_MAX}, {-0.0f, 0.0f}, {0.0f, -0.0f}};
  for (const auto& [lo, hi] : refused) {
    auto slots = std::make_unique<LinearSlots>();
    EXPECT_FALSE(BuildLinearSlots(lo, hi, table, kInvalid, *slots)) << lo << ", " << hi;
  }
}

// The whole parallel colouring of float pixels, slots or not, against the reference loop.
TEST(LinearFastPaths, ParallelFloatColouringMatchesReference) {
  std::mt19937_64 random(6160);
  std::normal_distribution<float> depth(1000.0f, 40.0f);
  const float sparse[] = {kNaN, -FLT_MAX, kInf, -kInf, 0.0f, -0.0f, 1e-45f, -1e-45f, FLT_MAX};
  const std::pair<float, float> bounds[] = {
      {950.0f, 1050.0f},   {1000.0f, 1000.0f}, {1050.0f, 950.0f},   {-kInf, 1000.0f},
      {900.0f, kInf},      {kNaN, 1000.0f},    {-FLT_MAX, FLT_MAX}, {FLT_MAX, -FLT_MAX},
      {999.99f, 1000.01f}, {0.0f, 2000.0f}};
  for (int n : {1, 7, 16383, 16384, 16385, 40001}) {
    std::vector<float> data(static_cast<size_t>(n));
    for (float& v : data) {
      v = random() % 20 == 0 ? sparse[random() % 9] : depth(random);
    }
    for (const auto& [lo, hi] : bounds) {
      for (int mapType : {0, 2, 6}) {
        std::vector<uint8_t> out(3 * static_cast<size_t>(n) + 1, 0x5A);
        ColourLinearParallel(data.data(), n, lo, hi, mapType, out.data());
        const ColourTable& table = SelectColourTable(mapType);
        const ColourEntry& invalid = InvalidColour(mapType);
        size_t failures = 0;
        for (int i = 0; i < n; ++i) {
          const float v = data[i];
          const ColourEntry expected = RefValid(v) ? table[RefEntry(v, lo, hi)] : invalid;
          const ColourEntry got = {out[3 * i], out[3 * i + 1], out[3 * i + 2]};
          if (got != expected && failures++ < 5) {
            ADD_FAILURE() << "n " << n << " bounds " << lo << ", " << hi << " pixel " << i
                          << " value " << v;
          }
        }
        EXPECT_EQ(out[3 * static_cast<size_t>(n)], 0x5A);
      }
    }
  }
}

// FindMinMax of float pixels against the one-at-a-time loop, bit for bit (so which zero).
// Every raw value of an 8- or 16-bit type against the reference: the marker (the lowest value)
// takes the invalid colour, every other value the entry of its float.
template <typename T>
void ExpectValueColoursEqualTheReference(float lo, float hi, const ColourTable& table) {
  const std::vector<PaddedColour> colours = BuildValueColours<T>(lo, hi, table, kInvalid);
  const int lowest = std::numeric_limits<T>::min();
  const int highest = std::numeric_limits<T>::max();
  ASSERT_EQ(colours.size(), static_cast<size_t>(highest - lowest + 1));
  for (int value = lowest; value <= highest; ++value) {
    const ColourEntry want =
        value == lowest ? kInvalid : table[RefEntry(static_cast<float>(value), lo, hi)];
    const PaddedColour& got = colours[static_cast<size_t>(value - lowest)];
    ASSERT_TRUE(got[0] == want[0] && got[1] == want[1] && got[2] == want[2])
        << "value " << value << " lo " << lo << " hi " << hi;
  }
}

TEST(LinearFastPaths, ValueColoursOfEveryRawValueEqualTheReference) {
  const ColourTable table = DistinctTable();
  std::vector<std::pair<float, float>> bounds = {
      {0.0f, 65535.0f},    {1.0f, 2.0f},         {100.0f, 100.0f},       {-40000.0f, 40000.0f},
      {0.5f, 254.5f},      {-128.0f, 127.0f},    {3.0f, 3.0000002f},     {-1e30f, 1e30f},
      {-FLT_MAX, FLT_MAX}, {70000.0f, 80000.0f}, {-90000.0f, -70000.0f}, {10.0f, 1.0f},
      {-kInf, 100.0f},     {0.0f, kInf},         {kNaN, 10.0f},          {0.0f, kNaN},
      {-0.0f, 0.0f},       {9000.0f, 12000.0f},  {FLT_TRUE_MIN, 1.0f}};
  std::mt19937 random(29);
  std::uniform_real_distribution<float> anywhere(-70000.0f, 70000.0f);
  std::uniform_real_distribution<float> width(0.0f, 3000.0f);
  for (int k = 0; k < 40; ++k) {
    const float lo = anywhere(random);
    bounds.emplace_back(lo, lo + (k % 4 == 0 ? width(random) / 1000.0f : width(random)));
  }
  for (const auto& [lo, hi] : bounds) {
    ExpectValueColoursEqualTheReference<uint8_t>(lo, hi, table);
    ExpectValueColoursEqualTheReference<int8_t>(lo, hi, table);
    ExpectValueColoursEqualTheReference<uint16_t>(lo, hi, table);
    ExpectValueColoursEqualTheReference<int16_t>(lo, hi, table);
  }
}

TEST(LinearFastPaths, FloatExtremesEqualTheSerialLoop) {
  std::mt19937_64 random(7170);
  const float special[] = {kNaN,  -FLT_MAX, kInf,    -kInf,   0.0f,
                           -0.0f, 1e-45f,   -1e-45f, FLT_MAX, -FLT_MAX / 2};
  for (int n : {1, 2, 3, 5, 7, 8, 9, 31, 1000, 100003}) {
    for (int repeat = 0; repeat < 20; ++repeat) {
      std::vector<float> data(static_cast<size_t>(n));
      const int mode = repeat % 4;
      for (float& v : data) {
        if (mode == 0) {
          v = special[random() % 10];
        } else if (mode == 1) {
          v = random() % 2 == 0 ? 0.0f : -0.0f;
          if (random() % 50 == 0) v = special[random() % 10];
        } else {
          v = random() % 10 == 0 ? special[random() % 10]
                                 : std::uniform_real_distribution<float>(-5.0f, 5.0f)(random);
        }
      }
      float minimum = FLT_MAX, maximum = -FLT_MAX;
      for (float v : data) {
        if (!RefValid(v)) continue;
        if (v < minimum) minimum = v;
        if (v > maximum) maximum = v;
      }
      const ValueStatistics<float> got = FindMinMax(data.data(), n);
      EXPECT_EQ(Bits(got.minimum), Bits(minimum)) << n << " mode " << mode;
      EXPECT_EQ(Bits(got.maximum), Bits(maximum)) << n << " mode " << mode;
    }
  }
}

// The counting selection against sorting the valid values, at the same positions.
TEST(LinearFastPaths, CountingCutEqualsSortedPositions) {
  std::mt19937_64 random(8180);
  const float special[] = {kNaN, -FLT_MAX, kInf, -kInf, 0.0f, -0.0f, 1e-45f, -1e-45f, FLT_MAX};
  const double fractions[] = {0.0, 1.0, 0.01, 0.5, 0.999, 0.3};
  for (int n : {1, 2, 3, 17, 1000, 65537, 200003}) {
    for (int mode = 0; mode < 5; ++mode) {
      std::vector<float> data(static_cast<size_t>(n));
      for (float& v : data) {
        switch (mode) {
          case 0:  // all invalid or special
            v = special[random() % 4];
            break;
          case 1:  // few distinct values, both zeros
            v = static_cast<float>(static_cast<int>(random() % 5) - 2) * 0.5f;
            if (random() % 3 == 0) v = -0.0f;
            break;
          case 2:  // a narrow cluster: many values share the upper key half
            v = 1000.0f + std::uniform_real_distribution<float>(0.0f, 0.01f)(random);
            break;
          case 3:  // random bit patterns
            v = FromBits(static_cast<uint32_t>(random()));
            break;
          default:
            v = random() % 20 == 0 ? special[random() % 9]
                                   : std::normal_distribution<float>(0.0f, 100.0f)(random);
        }
      }
      std::vector<float> valid;
      float lowest = kInf, highest = -kInf;
      for (float v : data) {
        if (RefValid(v)) valid.push_back(v);
        if (!std::isnan(v)) {
          lowest = std::min(lowest, v);
          highest = std::max(highest, v);
        }
      }
      std::sort(valid.begin(), valid.end());
      for (double upper : fractions) {
        for (double lower : fractions) {
          const FloatFractionCut got = CutFloatPixelsAtFractions(data.data(), n, upper, lower);
          std::vector<float> copy = valid;
          const FractionCut expected = CutAtFractions(copy, upper, lower);
          SCOPED_TRACE(testing::Message()
                       << "n " << n << " mode " << mode << " fractions " << upper << ", " << lower);
          EXPECT_EQ(got.cut.lowValue, expected.lowValue);
          EXPECT_EQ(got.cut.highValue, expected.highValue);
          if (!valid.empty()) {
            // Also the sorted positions themselves, restated here.
            const int64_t count = static_cast<int64_t>(valid.size());
            int64_t lowIndex = RefTruncate(static_cast<double>(count) * lower);
            lowIndex = std::min(std::max<int64_t>(lowIndex, 0), count - 1);
            EXPECT_EQ(got.cut.lowValue, valid[static_cast<size_t>(lowIndex)]);
          }
          EXPECT_EQ(got.lowest, lowest);
          EXPECT_EQ(got.highest, highest);
        }
      }
    }
  }
}

}  // namespace
}  // namespace KIVMV
