// Argument checks shared by the public methods' frames.
#pragma once

#include "KivLUTStatus.h"
#include "KivRangeImage.h"

namespace KIVMV {

// Map-type checks read the number as unsigned, so a negative map type fails them too.
inline bool MapTypeAbove(int mapType, unsigned limit) {
  return static_cast<unsigned>(mapType) > limit;
}
inline constexpr unsigned kHighestMapType = 10;

// Type() must be 0 or 1, then both sizes above 0.
inline long CheckRangeImage(const KivRangeImage& image) {
  if (image.Type() != 0 && image.Type() != 1) return LUT_ERR_RANGE_IMAGE_TYPE;
  if (image.Height() <= 0 || image.Width() <= 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  return LUT_OK;
}

}  // namespace KIVMV
