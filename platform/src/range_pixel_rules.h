// Pixel rules and call plumbing shared by the platform's 3-D operations (normals and type
// conversion): the invalid marker and valid range of each pixel type, the physical height, the
// check of a range image's pixel matrix, the row grain of the parallel loops, and the mapping of
// a caught exception to a status.
#ifndef KIVMV_PLATFORM_SRC_RANGE_PIXEL_RULES_H_
#define KIVMV_PLATFORM_SRC_RANGE_PIXEL_RULES_H_

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

// The gap between the lowest value of T and the next one up: 1 for an integer type, the spacing
// of the top binade, 2^(max_exponent - digits), for a floating-point one.
template <typename T>
constexpr double StepAboveLowest() {
  double step = 1.0;
  if constexpr (std::is_floating_point_v<T>) {
    for (int e = std::numeric_limits<T>::digits; e < std::numeric_limits<T>::max_exponent; ++e) {
      step *= 2.0;
    }
  }
  return step;
}

// Marker and valid range of a pixel type. Every type marks "no data" with its lowest value (0 for
// the unsigned ones, -FLT_MAX and -DBL_MAX for floating point); the valid range is the rest of the
// type, so a value saturated into it can never be mistaken for the marker.
template <typename T>
struct RangePixel {
  static constexpr T kMarker = std::numeric_limits<T>::lowest();
  static constexpr double kLowest = static_cast<double>(kMarker) + StepAboveLowest<T>();
  static constexpr double kHighest = static_cast<double>(std::numeric_limits<T>::max());
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

// Calls f(T{}) for the one type among Pixel... whose OpenCV depth is `type`; false when none is.
template <typename... Pixel, typename F>
bool VisitPixelTypeAmong(int type, F& f) {
  return ((type == cv::traits::Depth<Pixel>::value ? (f(Pixel{}), true) : false) || ...);
}

// Calls f(T{}) with the pixel type of a KivDataType code (the codes are the OpenCV depths); false
// for an unknown code.
template <typename F>
bool VisitRangePixelType(int type, F&& f) {
  return VisitPixelTypeAmong<uint8_t, int8_t, uint16_t, int16_t, int32_t, float, double>(type, f);
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
