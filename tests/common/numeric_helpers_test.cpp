#include "common/numeric_helpers.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace KIVMV {
namespace numeric {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr int64_t kMin64 = std::numeric_limits<int64_t>::min();
constexpr float kFloatInf = std::numeric_limits<float>::infinity();

TEST(NumericHelpers, TruncateToInt64TruncatesTowardZero) {
  struct {
    double input;
    int64_t expected;
  } cases[] = {
      {0.0, 0},
      {-0.0, 0},
      {0.999, 0},
      {1.0, 1},
      {254.999, 254},
      {255.0, 255},
      {-0.5, 0},
      {-1.5, -1},
      {-255.9, -255},
      {1e15 + 0.5, 1000000000000000},
      {9223372036854774784.0, 9223372036854774784LL},  // largest double below 2^63
      {-9223372036854775808.0, kMin64},                // -2^63 itself is representable
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TruncateToInt64(c.input), c.expected) << c.input;
  }
}

TEST(NumericHelpers, TruncateToInt64GivesIndefiniteForNaNAndOutOfRange) {
  for (double input :
       {kNaN, -kNaN, kInf, -kInf, 9223372036854775808.0, -9223372036854777856.0, 1e300, -1e300}) {
    EXPECT_EQ(TruncateToInt64(input), kMin64) << input;
  }
}

TEST(NumericHelpers, TruncateToInt64IsUsableAtCompileTime) {
  static_assert(TruncateToInt64(2.75) == 2);
  static_assert(TruncateToInt64(-2.75) == -2);
  SUCCEED();
}

TEST(NumericHelpers, LowByteWrapsAround) {
  struct {
    int64_t input;
    uint8_t expected;
  } cases[] = {
      {0, 0},    {255, 255}, {256, 0},    {257, 1},    {-1, 255},
      {-256, 0}, {511, 255}, {1000, 232}, {kMin64, 0}, {std::numeric_limits<int64_t>::max(), 255}};
  for (const auto& c : cases) {
    EXPECT_EQ(LowByte(c.input), c.expected) << c.input;
  }
}

TEST(NumericHelpers, LowUnsigned32KeepsLowBits) {
  EXPECT_EQ(LowUnsigned32(0), 0u);
  EXPECT_EQ(LowUnsigned32(-1), 4294967295u);
  EXPECT_EQ(LowUnsigned32(kMin64), 0u);
  EXPECT_EQ(LowUnsigned32(4294967296LL + 7), 7u);
  EXPECT_EQ(LowUnsigned32(300), 300u);
}

TEST(NumericHelpers, TruncateToLowByteDoesNotClamp) {
  EXPECT_EQ(TruncateToLowByte(255.9), 255);
  EXPECT_EQ(TruncateToLowByte(256.7), 0);
  EXPECT_EQ(TruncateToLowByte(-1.5), 255);
  EXPECT_EQ(TruncateToLowByte(-0.9), 0);
  EXPECT_EQ(TruncateToLowByte(kNaN), 0);  // INT64_MIN has zero low bits
  EXPECT_EQ(TruncateToLowByte(300.0), 44);
}

TEST(NumericHelpers, WrappingSubtractAndAbsWrapAtInt32Min) {
  constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
  constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();
  EXPECT_EQ(WrappingSubtract32(0, kMin32), kMin32);
  EXPECT_EQ(WrappingSubtract32(kMin32, kMin32), 0);
  EXPECT_EQ(WrappingSubtract32(1, kMin32), -kMax32);
  EXPECT_EQ(WrappingSubtract32(-1, kMin32), kMax32);
  EXPECT_EQ(WrappingSubtract32(5, 7), -2);
  EXPECT_EQ(WrappingAbs32(kMin32), kMin32);
  EXPECT_EQ(WrappingAbs32(-kMax32), kMax32);
  EXPECT_EQ(WrappingAbs32(-3), 3);
  EXPECT_EQ(WrappingAbs32(0), 0);
}

TEST(NumericHelpers, NarrowToFloatRoundsToNearestFloat) {
  const float justAboveTenth = NarrowToFloat(std::nextafter(static_cast<double>(0.1f), 1.0));
  const struct {
    double value;
    float expected;
  } cases[] = {
      {0.0, 0.0f},
      {-1.0, -1.0f},
      {0.1, 0.1f},
      {0.5, 0.5f},
      {1.0 / 3.0, 1.0f / 3.0f},
      {static_cast<double>(FLT_MAX), FLT_MAX},
      {-static_cast<double>(FLT_MAX), -FLT_MAX},
      {std::nextafter(0x1.ffffffp+127, 0.0), FLT_MAX},
      {-std::nextafter(0x1.ffffffp+127, 0.0), -FLT_MAX},
      {0x1.ffffffp+127, kFloatInf},
      {-0x1.ffffffp+127, -kFloatInf},
      {1e300, kFloatInf},
      {-1e300, -kFloatInf},
      {kInf, kFloatInf},
      {-kInf, -kFloatInf},
      {1e-50, 0.0f},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    EXPECT_EQ(c.expected, NarrowToFloat(c.value));
  }
  EXPECT_EQ(0.1f, justAboveTenth);
  EXPECT_TRUE(std::isnan(NarrowToFloat(kNaN)));

  // Inside the float range it is the ordinary conversion.
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> spread(-1e6, 1e6);
  for (int i = 0; i < 10000; ++i) {
    const double v = spread(random);
    ASSERT_EQ(static_cast<float>(v), NarrowToFloat(v)) << v;
  }
}

}  // namespace
}  // namespace numeric
}  // namespace KIVMV
