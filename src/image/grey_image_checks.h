// The checks every grey-image colouring makes of its source, as separate steps because the
// routines interleave them with their own argument checks in different orders.
#pragma once

#include "KivImage.h"
#include "KivLUTStatus.h"

namespace KIVMV {

// The source matrix holds no pixel.
inline bool GreyMatrixIsEmpty(const KivImage& src) {
  return static_cast<long long>(src.Mat().rows) * src.Mat().cols == 0;
}

// Width() x Height() is 0, then channels other than 1, then a sample type other than 8- or 16-bit
// unsigned.
inline long CheckGreyImageFormat(const KivImage& src) {
  if (static_cast<long long>(src.Width()) * src.Height() == 0) return LUT_ERR_IMAGE_EMPTY;
  if (src.Channels() != 1) return LUT_ERR_IMAGE_CHANNELS;
  if (src.BitDepth() != KIV_IMAGE_8U && src.BitDepth() != KIV_IMAGE_16U) {
    return LUT_ERR_IMAGE_BIT_DEPTH;
  }
  return LUT_OK;
}

// All of the above, in that order.
inline long CheckGreyImage(const KivImage& src) {
  if (GreyMatrixIsEmpty(src)) return LUT_ERR_IMAGE_EMPTY;
  return CheckGreyImageFormat(src);
}

}  // namespace KIVMV
