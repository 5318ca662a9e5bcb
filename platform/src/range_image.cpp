#include <climits>
#include <cstdint>
#include <stdexcept>

#include "KivRangeImage.h"
#include "mat_clone.h"

namespace KIVMV {

KivRangeImage::KivRangeImage() : mat_(internal::ZeroMat(0, 0, CV_8UC1)) {}

KivRangeImage::KivRangeImage(int width, int height, KivDataType dataType)
    : width_(width), height_(height), dataType_(dataType) {
  if (width < 0 || height < 0) {
    throw std::invalid_argument("KivRangeImage: width and height must not be negative");
  }
  if (!IsKnownSampleType(dataType)) {
    throw std::invalid_argument("KivRangeImage: unknown data type");
  }
  if (static_cast<std::int64_t>(width) * SampleSize(dataType) > INT_MAX) {
    throw std::invalid_argument("KivRangeImage: row pitch does not fit an int");
  }
  // KivDataType values are the OpenCV depth codes.
  mat_ = internal::ZeroMat(height, width, CV_MAKETYPE(static_cast<int>(dataType), 1));
}

KivRangeImage KivRangeImage::DeepCopy() const { return internal::DeepCopyOf(*this); }

void KivRangeImage::SetResolution(double x, double y, double z) {
  resolution_[0] = x;
  resolution_[1] = y;
  resolution_[2] = z;
}

void KivRangeImage::SetOffset(double x, double y, double z) {
  offset_[0] = x;
  offset_[1] = y;
  offset_[2] = z;
}

}  // namespace KIVMV
