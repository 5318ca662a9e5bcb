// The small conversions of the dialog's window placement.
#pragma once

#include <cstdint>

#include "common/numeric_helpers.h"

namespace KIVMV {
namespace dialog {

inline constexpr double kWidthShareOfScreen = 0.65;
inline constexpr double kHeightShareOfScreen = 0.7;
inline constexpr double kLeftShareOfSlack = 0.5;
inline constexpr double kTopShareOfSlack = 0.25;

// length * share, truncated toward zero to an int (not rounded): 1366 * 0.65 = 887.9 gives 887.
// Values beyond int, which no screen has, keep their low 32 bits as the x86-64 conversion does.
inline int TruncatedShare(int length, double share) {
  return static_cast<int>(
      numeric::LowUnsigned32(numeric::TruncateToInt64(static_cast<double>(length) * share)));
}

// A native window id narrowed to the 32 bits the image-window service takes (X11 and Windows ids
// fit in them): the low 32 bits, read as unsigned.
inline long NarrowWindowId(std::uint64_t id) { return static_cast<long>(id & 0xFFFFFFFFu); }

}  // namespace dialog
}  // namespace KIVMV
