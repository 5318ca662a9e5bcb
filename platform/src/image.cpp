#include <climits>
#include <cstdint>
#include <stdexcept>

#include "KivImage.h"
#include "mat_clone.h"

namespace KIVMV {
namespace {

void CheckGeometry(int width, int height, int channels, KivImageType type) {
  if (width < 0 || height < 0) {
    throw std::invalid_argument("KivImage: width and height must not be negative");
  }
  if (channels < 1 || channels > 4) throw std::invalid_argument("KivImage: channels must be 1..4");
  if (!IsKnownSampleType(type)) throw std::invalid_argument("KivImage: unknown image type");
}

std::int64_t MinimumStep(int width, int channels, KivImageType type) {
  return static_cast<std::int64_t>(width) * channels * SampleSize(type);
}

}  // namespace

KivImage::KivImage(unsigned char* data, int width, int height, int channels, int step,
                   KivImageType type) {
  CheckGeometry(width, height, channels, type);
  if (step < 0 || step < MinimumStep(width, channels, type)) {
    throw std::invalid_argument("KivImage: step is smaller than a row");
  }
  if (step % SampleSize(type) != 0) {
    throw std::invalid_argument("KivImage: step is not a multiple of the sample size");
  }
  const int cvType = CV_MAKETYPE(static_cast<int>(type), channels);
  if (width == 0 || height == 0) {
    // Nothing to wrap; keep the shape so the sizes still read back.
    mat_ = cv::Mat(height, width, cvType);
    return;
  }
  if (data == nullptr) throw std::invalid_argument("KivImage: null data for a non-empty image");
  mat_ = cv::Mat(height, width, cvType, data, static_cast<std::size_t>(step));
}

KivImage::KivImage(int width, int height, int channels, KivImageType type) {
  CheckGeometry(width, height, channels, type);
  if (MinimumStep(width, channels, type) > INT_MAX) {
    throw std::invalid_argument("KivImage: row pitch does not fit an int");
  }
  mat_ = internal::ZeroMat(height, width, CV_MAKETYPE(static_cast<int>(type), channels));
}

KivImage KivImage::DeepCopy() const { return internal::DeepCopyOf(*this); }

}  // namespace KIVMV
