// The pixel count of a range image as its size fields state it, checked against its pixel matrix.
#pragma once

#include <climits>
#include <cstdint>
#include <opencv2/core.hpp>

#include "KivDataType.h"
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

}  // namespace KIVMV
