// Exact integer conversions shared by every colouring routine.
//
// The colour indices the library computes must be the same on every compiler and CPU, including
// for NaN and out-of-range values that C++ leaves undefined. Each conversion is written once here
// and called everywhere, so the behaviour is stated in one place and sanitizers stay quiet.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

namespace KIVMV {
namespace numeric {

// The x86-64 answer (cvttsd2si) for a double with no 64-bit integer value: the "integer
// indefinite".
inline constexpr int64_t kIntegerIndefinite = std::numeric_limits<int64_t>::min();

// Truncation toward zero to 64 bits; NaN and values outside [-2^63, 2^63) give INT64_MIN, as
// x86-64.
constexpr int64_t TruncateToInt64(double value) {
  // Written as "inside" so that NaN, which fails every comparison, falls to the indefinite result.
  if (value >= -9223372036854775808.0 && value < 9223372036854775808.0) {
    return static_cast<int64_t>(value);
  }
  return kIntegerIndefinite;
}

// The low eight bits of a two's-complement integer: 256 wraps to 0, -1 to 255.
constexpr uint8_t LowByte(int64_t value) {
  return static_cast<uint8_t>(static_cast<uint64_t>(value) & 0xFFu);
}

// The low 32 bits of a two's-complement integer, read as unsigned: INT64_MIN gives 0, -1 gives
// 4294967295.
constexpr uint32_t LowUnsigned32(int64_t value) {
  return static_cast<uint32_t>(static_cast<uint64_t>(value) & 0xFFFFFFFFu);
}

// Truncate toward zero and keep the low eight bits, without clamping: 256.7 gives 0, -1.5 gives
// 255.
constexpr uint8_t TruncateToLowByte(double value) { return LowByte(TruncateToInt64(value)); }

// a - b in 32-bit two's-complement arithmetic: 0 - INT_MIN wraps to INT_MIN.
constexpr int32_t WrappingSubtract32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

// |a| in 32-bit two's-complement arithmetic: |INT_MIN| wraps to INT_MIN and stays negative.
constexpr int32_t WrappingAbs32(int32_t a) {
  return a >= 0 ? a : static_cast<int32_t>(0u - static_cast<uint32_t>(a));
}

// A double narrowed to float as IEEE 754 rounds it: beyond the float range by half a unit in the
// last place or more gives an infinity, just beyond it FLT_MAX, NaN stays NaN. C++ leaves the
// out-of-range conversion undefined, so it is spelled out here.
inline float NarrowToFloat(double value) {
  // FLT_MAX plus half its last unit: the tie rounds to the even neighbour, the infinity.
  constexpr double kRoundsToInfinity = 0x1.ffffffp+127;
  if (std::isnan(value)) return std::numeric_limits<float>::quiet_NaN();
  if (value >= kRoundsToInfinity) return std::numeric_limits<float>::infinity();
  if (value <= -kRoundsToInfinity) return -std::numeric_limits<float>::infinity();
  if (value > static_cast<double>(FLT_MAX)) return FLT_MAX;
  if (value < -static_cast<double>(FLT_MAX)) return -FLT_MAX;
  return static_cast<float>(value);
}

}  // namespace numeric
}  // namespace KIVMV
