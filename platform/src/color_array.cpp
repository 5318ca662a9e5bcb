#include <climits>
#include <cstdint>
#include <stdexcept>

#include "KivColorArray.h"
#include "mat_clone.h"

namespace KIVMV {
namespace {

void CheckChannels(int channels) {
  if (channels != 1 && channels != 3 && channels != 4) {
    throw std::invalid_argument("KivColorArray: channels must be 1, 3 or 4");
  }
}

}  // namespace

KivColorArray KivColorArray::DeepCopy() const { return internal::DeepCopyOf(*this); }

void KivColorArray::Create(int length, int channels) {
  if (length < 0) throw std::invalid_argument("KivColorArray: length must not be negative");
  CheckChannels(channels);
  // Allocate before touching the fields so a failed allocation leaves the array unchanged.
  mat_ = internal::ZeroMat(1, length, CV_8UC(channels));
  length_ = length;
  width_ = length;
  height_ = length == 0 ? 0 : 1;
  channels_ = channels;
}

void KivColorArray::SetSize(int width, int height, int channels) {
  if (width < 0 || height < 0) {
    throw std::invalid_argument("KivColorArray: width and height must not be negative");
  }
  CheckChannels(channels);
  const std::int64_t length = static_cast<std::int64_t>(width) * height;
  if (length > INT_MAX) throw std::invalid_argument("KivColorArray: width * height overflows int");
  mat_ = internal::ZeroMat(height, width, CV_8UC(channels));
  length_ = static_cast<int>(length);
  width_ = width;
  height_ = height;
  channels_ = channels;
}

void KivColorArray::Clear() {
  mat_.release();
  length_ = 0;
  width_ = 0;
  height_ = 0;
  channels_ = 0;
}

}  // namespace KIVMV
