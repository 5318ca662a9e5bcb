// Pixel rules and call plumbing shared by the platform's 3-D operations (normals and type
// conversion): the invalid marker and valid range of each pixel type, the physical height, the
// check of a range image's pixel matrix, the row grain of the parallel loops, and the mapping of
// a caught exception to a status.
#ifndef KIVMV_PLATFORM_SRC_RANGE_PIXEL_RULES_H_
#define KIVMV_PLATFORM_SRC_RANGE_PIXEL_RULES_H_

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <type_traits>

#include "KivDataType.h"
#include "KivPlatformStatus.h"
#include "KivRangeImage.h"

namespace KIVMV {
namespace internal {

// Marker and valid range of one pixel type. The valid range leaves out the marker, so a value
// saturated into it can never be mistaken for "no data".
template <typename T>
struct RangePixel;

template <>
struct RangePixel<uint8_t> {
  static constexpr uint8_t kMarker = 0;
  static constexpr double kLowest = 1.0;
  static constexpr double kHighest = 255.0;
};
template <>
struct RangePixel<int8_t> {
  static constexpr int8_t kMarker = -128;
  static constexpr double kLowest = -127.0;
  static constexpr double kHighest = 127.0;
};
template <>
struct RangePixel<uint16_t> {
  static constexpr uint16_t kMarker = 0;
  static constexpr double kLowest = 1.0;
  static constexpr double kHighest = 65535.0;
};
template <>
struct RangePixel<int16_t> {
  static constexpr int16_t kMarker = -32768;
  static constexpr double kLowest = -32767.0;
  static constexpr double kHighest = 32767.0;
};
template <>
struct RangePixel<int32_t> {
  static constexpr int32_t kMarker = INT_MIN;
  static constexpr double kLowest = -2147483647.0;
  static constexpr double kHighest = 2147483647.0;
};
template <>
struct RangePixel<float> {
  static constexpr float kMarker = -FLT_MAX;
  // The float just above the marker (bit pattern 0xFF7FFFFE).
  static constexpr double kLowest = -3.4028232635611926e38;
  static constexpr double kHighest = FLT_MAX;
};
template <>
struct RangePixel<double> {
  static constexpr double kMarker = -DBL_MAX;
  // The double just above the marker.
  static constexpr double kLowest = -1.7976931348623155e308;
  static constexpr double kHighest = DBL_MAX;
};

// The one validity rule of the 3-D operations: the type's marker, by exact equality, and every
// non-finite value are invalid.
template <typename T>
inline bool IsValidPixel(T v) {
  if constexpr (std::is_floating_point_v<T>) {
    return std::isfinite(v) && v != RangePixel<T>::kMarker;
  } else {
    return v != RangePixel<T>::kMarker;
  }
}

// The physical height of a pixel value. A zero resolution flattens every value to 0, even one
// whose distance to the offset overflows (inf * 0 would otherwise be NaN).
inline double PhysicalZ(double value, double offsetZ, double resolutionZ) {
  if (resolutionZ == 0.0) return 0.0;
  return (value - offsetZ) * resolutionZ;
}

// Clamps a finite or infinite double into T's valid range and converts it; the clamp comes first
// so the conversion is always defined. NaN must not reach here.
template <typename T>
inline T SaturateToValid(double v) {
  if (v < RangePixel<T>::kLowest) return static_cast<T>(RangePixel<T>::kLowest);
  if (v > RangePixel<T>::kHighest) return static_cast<T>(RangePixel<T>::kHighest);
  return static_cast<T>(v);
}

// Round half away from zero (std::round), then saturate: 2.5 gives 3, -2.5 gives -3.
template <typename T>
inline T RoundToValidInteger(double v) {
  return SaturateToValid<T>(std::round(v));
}

// Calls f(T{}) with the pixel type of a KivDataType code; false for an unknown code.
template <typename F>
bool VisitRangePixelType(int type, F&& f) {
  switch (type) {
    case KIV_DATA_U8:
      f(uint8_t{});
      return true;
    case KIV_DATA_S8:
      f(int8_t{});
      return true;
    case KIV_DATA_U16:
      f(uint16_t{});
      return true;
    case KIV_DATA_S16:
      f(int16_t{});
      return true;
    case KIV_DATA_S32:
      f(int32_t{});
      return true;
    case KIV_DATA_F32:
      f(float{});
      return true;
    case KIV_DATA_F64:
      f(double{});
      return true;
    default:
      return false;
  }
}

// True when the image's matrix really holds Height() rows of Width() single-channel pixels of its
// DataType(); rows may be padded. An image with no pixels passes whatever its matrix.
inline bool PixelMatrixMatches(const KivRangeImage& image) {
  if (image.Width() < 0 || image.Height() < 0) return false;
  if (image.Width() == 0 || image.Height() == 0) return true;
  const cv::Mat& m = image.Mat();
  return IsKnownSampleType(image.DataType()) && m.dims == 2 && m.data != nullptr &&
         m.rows == image.Height() && m.cols == image.Width() &&
         m.type() == CV_MAKETYPE(static_cast<int>(image.DataType()), 1);
}

// Rows per task: the configured chunk count (below 1: one per processor) splits the rows, so the
// automatic partitioner makes about one task per chunk.
int RowGrain(int rows);

// The status of the exception being handled; call only inside a catch block.
long StatusOfCurrentException() noexcept;

}  // namespace internal
}  // namespace KIVMV

#endif  // KIVMV_PLATFORM_SRC_RANGE_PIXEL_RULES_H_
