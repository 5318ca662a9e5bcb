// The pixel count of a range image as its size fields state it, checked against its pixel matrix.
#pragma once

#include <climits>
#include <cstdint>
#include <opencv2/core.hpp>

#include "KivDataType.h"
#include "KivLUTStatus.h"
#include "KivRangeImage.h"

namespace KIVMV {

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

// The checks every range routine makes first: pixels to colour (LUT_ERR_RANGE_IMAGE_EMPTY), then a
// map type that `isMapType` accepts (LUT_ERR_PARAM_1). `n` receives the pixel count.
template <typename MapRule>
long CheckPixelsAndMapType(const KivRangeImage& image, int mapType, MapRule isMapType, int& n) {
  n = CheckedPixelCount(image);
  if (n <= 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  if (!isMapType(mapType)) return LUT_ERR_PARAM_1;
  return LUT_OK;
}

}  // namespace KIVMV
