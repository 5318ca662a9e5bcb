#include <stdexcept>

#include "Kiv3DArray.h"
#include "mat_clone.h"

namespace KIVMV {

Kiv3DFloatArray::Kiv3DFloatArray(int length) {
  if (length < 0) throw std::invalid_argument("Kiv3DFloatArray: length must not be negative");
  mat_ = internal::ZeroMat(1, length, CV_32FC1);
}

Kiv3DFloatArray Kiv3DFloatArray::DeepCopy() const {
  Kiv3DFloatArray copy;
  copy.mat_ = internal::CloneKeepingShape(mat_);
  return copy;
}

Kiv3DIntArray::Kiv3DIntArray(int length) {
  if (length < 0) throw std::invalid_argument("Kiv3DIntArray: length must not be negative");
  mat_ = internal::ZeroMat(1, length, CV_32SC1);
}

Kiv3DIntArray Kiv3DIntArray::DeepCopy() const {
  Kiv3DIntArray copy;
  copy.mat_ = internal::CloneKeepingShape(mat_);
  return copy;
}

}  // namespace KIVMV
