// The per-pixel-type rules of the library, side by side: what each of the seven range-image pixel
// types means (its "no data" marker and the extremes a minimum/maximum search starts from), the
// tests that decide whether a value is a measurement, and the one dispatch from a KivDataType code
// to a kernel typed by the pixel. The rules differ on purpose, each where its caller's results
// depend on it; the comment on each says how it differs from the first.
//
// The platform has rules of its own, which the library meets only through the platform's calls:
// IsValidFloatMeasurement (Kiv3DArray.h) for the float and int arrays, and the exact-marker rule of
// its 3-D operations (surface normals, pixel-type conversion).
#pragma once

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>

#include "KivDataType.h"
#include "common/numeric_helpers.h"

namespace KIVMV {

// A pixel is valid when its distance d from the type's marker is not below 1e-8 and the value,
// widened to double, is finite. The test is !(1e-8 > d), so a NaN distance passes the first step.
inline constexpr double kMarkerTolerance = 1e-8;

template <typename T>
struct PixelTraits;

template <>
struct PixelTraits<uint8_t> {
  static constexpr uint8_t kMarker = 0;
  static constexpr KivDataType kDataType = KIV_DATA_U8;
  static constexpr uint8_t kInitialMin = 255;
  static constexpr uint8_t kInitialMax = 0;
  static double MarkerDistance(uint8_t v) { return v; }  // marker 0
};

template <>
struct PixelTraits<int8_t> {
  static constexpr int8_t kMarker = -128;
  static constexpr KivDataType kDataType = KIV_DATA_S8;
  static constexpr int8_t kInitialMin = 127;
  static constexpr int8_t kInitialMax = -128;
  static double MarkerDistance(int8_t v) { return v + 128; }  // marker -128
};

template <>
struct PixelTraits<uint16_t> {
  static constexpr uint16_t kMarker = 0;
  static constexpr KivDataType kDataType = KIV_DATA_U16;
  static constexpr uint16_t kInitialMin = 65535;
  static constexpr uint16_t kInitialMax = 0;
  static double MarkerDistance(uint16_t v) { return v; }  // marker 0
};

template <>
struct PixelTraits<int16_t> {
  static constexpr int16_t kMarker = -32768;
  static constexpr KivDataType kDataType = KIV_DATA_S16;
  static constexpr int16_t kInitialMin = 32767;
  static constexpr int16_t kInitialMax = -32768;
  static double MarkerDistance(int16_t v) { return v + 32768; }  // marker -32768
};

template <>
struct PixelTraits<int32_t> {
  static constexpr int32_t kMarker = INT_MIN;
  static constexpr KivDataType kDataType = KIV_DATA_S32;
  static constexpr int32_t kInitialMin = INT_MAX;
  static constexpr int32_t kInitialMax = INT_MIN;
  // Formed in wrapping 32-bit arithmetic: 0 - INT_MIN wraps to INT_MIN, whose absolute value stays
  // negative, so a pixel of 0 is invalid as well as the marker INT_MIN itself.
  static double MarkerDistance(int32_t v) {
    return numeric::WrappingAbs32(numeric::WrappingSubtract32(v, INT_MIN));
  }
};

template <>
struct PixelTraits<float> {
  static constexpr float kMarker = -FLT_MAX;
  static constexpr KivDataType kDataType = KIV_DATA_F32;
  static constexpr float kInitialMin = FLT_MAX;
  static constexpr float kInitialMax = -FLT_MAX;
  // In single precision, then widened: marker -FLT_MAX.
  static double MarkerDistance(float v) { return std::fabs(v - (-FLT_MAX)); }
};

template <>
struct PixelTraits<double> {
  static constexpr double kMarker = -DBL_MAX;
  static constexpr KivDataType kDataType = KIV_DATA_F64;
  static constexpr double kInitialMin = DBL_MAX;
  static constexpr double kInitialMax = -DBL_MAX;
  static double MarkerDistance(double v) { return std::fabs(v - (-DBL_MAX)); }  // marker -DBL_MAX
};

// The library's rule for range images: a measurement is not within the tolerance of the marker
// (distance as MarkerDistance forms it, 32-bit wrap included) and is finite.
template <typename T>
inline bool IsValidPixel(T v) {
  return !(kMarkerTolerance > PixelTraits<T>::MarkerDistance(v)) &&
         std::isfinite(static_cast<double>(v));
}

// The histogram's rule: only a value that is at the marker and also not finite stays out of the
// count (none, for the integer types); the bounds test of the histogram does the rest.
template <typename T>
inline bool IsUncountedInHistogram(T v) {
  return !(PixelTraits<T>::MarkerDistance(v) > kMarkerTolerance) &&
         !std::isfinite(static_cast<double>(v));
}

// The rule of the Phong point grid and of the five-point rescaling of range images: the marker
// itself by exact equality, with no tolerance and no finiteness test.
template <typename T>
inline bool IsExactMarker(T v) {
  return v == PixelTraits<T>::kMarker;
}

// The five-point scale's rule for its float heights: the float marker, compared after widening to
// double with a tolerance of 1e-8 (so only the marker itself), or a non-finite value.
inline bool IsParaValid(float v) {
  const double widened = static_cast<double>(v);
  return !(std::fabs(widened - static_cast<double>(PixelTraits<float>::kMarker)) <= 1e-8) &&
         std::isfinite(widened);
}

template <typename T>
struct PixelTypeTag {
  using type = T;
};

// Calls visit(PixelTypeTag<T>{}) for the C++ type of a range-image data-type code and returns
// true; a code outside 0..6 calls nothing and returns false. Every per-pixel-type routine goes
// through here.
template <typename Visitor>
bool VisitPixelType(int dataType, Visitor&& visit) {
  switch (dataType) {
    case KIV_DATA_U8:
      visit(PixelTypeTag<uint8_t>{});
      return true;
    case KIV_DATA_S8:
      visit(PixelTypeTag<int8_t>{});
      return true;
    case KIV_DATA_U16:
      visit(PixelTypeTag<uint16_t>{});
      return true;
    case KIV_DATA_S16:
      visit(PixelTypeTag<int16_t>{});
      return true;
    case KIV_DATA_S32:
      visit(PixelTypeTag<int32_t>{});
      return true;
    case KIV_DATA_F32:
      visit(PixelTypeTag<float>{});
      return true;
    case KIV_DATA_F64:
      visit(PixelTypeTag<double>{});
      return true;
    default:
      return false;
  }
}

}  // namespace KIVMV
