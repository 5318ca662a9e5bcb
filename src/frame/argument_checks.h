// Argument checks of the public methods' frames that no routine repeats; the rules both share are
// in common/argument_rules.h.
#pragma once

#include "KivLUTStatus.h"
#include "KivRangeImage.h"
#include "common/argument_rules.h"

namespace KIVMV {

// Type() must be 0 or 1, then both sizes above 0.
inline long CheckRangeImage(const KivRangeImage& image) {
  if (image.Type() != 0 && image.Type() != 1) return LUT_ERR_RANGE_IMAGE_TYPE;
  if (image.Height() <= 0 || image.Width() <= 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  return LUT_OK;
}

}  // namespace KIVMV
