#include <stdexcept>

#include "Kiv3DArray.h"
#include "mat_clone.h"

namespace KIVMV {
namespace {

// The zero-filled 1 x length matrix of a new flat array.
cv::Mat ZeroRow(int length, int type, const char* negativeLengthError) {
  if (length < 0) throw std::invalid_argument(negativeLengthError);
  return internal::ZeroMat(1, length, type);
}

}  // namespace

Kiv3DFloatArray::Kiv3DFloatArray(int length)
    : FlatArray(ZeroRow(length, CV_32FC1, "Kiv3DFloatArray: length must not be negative")) {}

Kiv3DFloatArray Kiv3DFloatArray::DeepCopy() const { return internal::DeepCopyOf(*this); }

Kiv3DIntArray::Kiv3DIntArray(int length)
    : FlatArray(ZeroRow(length, CV_32SC1, "Kiv3DIntArray: length must not be negative")) {}

Kiv3DIntArray Kiv3DIntArray::DeepCopy() const { return internal::DeepCopyOf(*this); }

}  // namespace KIVMV
