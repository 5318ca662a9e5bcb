// What each of the seven range-image pixel types means: its invalid marker, the extremes a
// minimum/maximum search starts from, and the one rule that decides whether a pixel is a
// measurement. Every body that reads pixels asks PixelTraits<T>::IsValid and nothing else.
#pragma once

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>

#include "KivDataType.h"
#include "KivRangeImage.h"
#include "common/numeric_helpers.h"

namespace KIVMV {

// A pixel is valid when its distance d from the type's marker is not below 1e-8 and the value,
// widened to double, is finite. The test is !(1e-8 > d), so a NaN distance passes the first step.
inline constexpr double kMarkerTolerance = 1e-8;

template <typename T>
struct PixelTraits;

template <>
struct PixelTraits<uint8_t> {
  static constexpr KivDataType kDataType = KIV_DATA_U8;
  static constexpr uint8_t kInitialMin = 255;
  static constexpr uint8_t kInitialMax = 0;
  static double MarkerDistance(uint8_t v) { return v; }  // marker 0
};

template <>
struct PixelTraits<int8_t> {
  static constexpr KivDataType kDataType = KIV_DATA_S8;
  static constexpr int8_t kInitialMin = 127;
  static constexpr int8_t kInitialMax = -128;
  static double MarkerDistance(int8_t v) { return v + 128; }  // marker -128
};

template <>
struct PixelTraits<uint16_t> {
  static constexpr KivDataType kDataType = KIV_DATA_U16;
  static constexpr uint16_t kInitialMin = 65535;
  static constexpr uint16_t kInitialMax = 0;
  static double MarkerDistance(uint16_t v) { return v; }  // marker 0
};

template <>
struct PixelTraits<int16_t> {
  static constexpr KivDataType kDataType = KIV_DATA_S16;
  static constexpr int16_t kInitialMin = 32767;
  static constexpr int16_t kInitialMax = -32768;
  static double MarkerDistance(int16_t v) { return v + 32768; }  // marker -32768
};

template <>
struct PixelTraits<int32_t> {
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
  static constexpr KivDataType kDataType = KIV_DATA_F32;
  static constexpr float kInitialMin = FLT_MAX;
  static constexpr float kInitialMax = -FLT_MAX;
  // In single precision, then widened: marker -FLT_MAX.
  static double MarkerDistance(float v) { return std::fabs(v - (-FLT_MAX)); }
};

template <>
struct PixelTraits<double> {
  static constexpr KivDataType kDataType = KIV_DATA_F64;
  static constexpr double kInitialMin = DBL_MAX;
  static constexpr double kInitialMax = -DBL_MAX;
  static double MarkerDistance(double v) { return std::fabs(v - (-DBL_MAX)); }  // marker -DBL_MAX
};

template <typename T>
inline bool IsValidPixel(T v) {
  return !(kMarkerTolerance > PixelTraits<T>::MarkerDistance(v)) &&
         std::isfinite(static_cast<double>(v));
}

template <typename T>
struct PixelTypeTag {
  using type = T;
};

// Calls visit(PixelTypeTag<T>{}) for the C++ type of a range-image data-type code and returns
// true; a code outside 0..6 calls nothing and returns false.
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

// The pixel count width x height of an image as its size fields state it, or -1 when that does
// not fit an int or the pixel matrix does not hold that many contiguous pixels of the stated type.
// The matrix type must be the data type itself: samples of the same size but another kind (ints
// behind a float image) would be read as numbers they are not.
inline int CheckedPixelCount(const KivRangeImage& image) {
  const int64_t count = static_cast<int64_t>(image.Width()) * image.Height();
  if (image.Width() < 0 || image.Height() < 0 || count > INT_MAX) return -1;
  const cv::Mat& pixels = image.Mat();
  if (count > 0 &&
      (pixels.data == nullptr || !pixels.isContinuous() || !IsKnownSampleType(image.DataType()) ||
       pixels.type() != CV_MAKETYPE(static_cast<int>(image.DataType()), 1) ||
       static_cast<int64_t>(pixels.total()) < count)) {
    return -1;
  }
  return static_cast<int>(count);
}

}  // namespace KIVMV
