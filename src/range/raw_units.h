// Bounds given in physical units, turned into the raw units of an integer range image. Every
// mapping that takes bounds from its caller converts them here, so the two conversions the
// library knows are written once.
#pragma once

#include <type_traits>

#include "KivRangeImage.h"
#include "common/numeric_helpers.h"

namespace KIVMV {

struct RawBounds {
  double low;
  double high;
};

// The equalised overloads and the linear overload with index range and colours:
// low' = (low + o*r) / r and high' = trunc((high + o*r) / r + 1.0). The truncation takes the
// whole upper expression, one unit included; the lower bound is neither truncated nor widened.
inline RawBounds TruncatedRawBounds(double low, double high, double resolution, double offset) {
  const double shift = offset * resolution;
  return {(low + shift) / resolution,
          static_cast<double>(numeric::TruncateToInt64((high + shift) / resolution + 1.0))};
}

// The parallel linear overload with bounds: as above without the truncation, with r and o*r first
// rounded to float.
inline RawBounds FloatScaledRawBounds(double low, double high, double resolution, double offset) {
  const double r = static_cast<float>(resolution);
  const double shift = static_cast<float>(offset * resolution);
  return {(low + shift) / r, (high + shift) / r + 1.0};
}

// The bounds an image of pixel type T is coloured between: for the integer types converted to raw
// units by `conversion` with the image's Z resolution and offset, for float and double as given.
template <typename T>
RawBounds BoundsInUnitsOf(RawBounds (*conversion)(double, double, double, double), double low,
                          double high, const KivRangeImage& image) {
  if constexpr (std::is_integral_v<T>) {
    return conversion(low, high, image.ResolutionZ(), image.OffsetZ());
  } else {
    return {low, high};
  }
}

}  // namespace KIVMV
