// Argument checks of the public methods' frames that no routine repeats; the rules both share are
// in common/argument_rules.h.
#pragma once

#include "KivImage.h"
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

// CheckRangeImage, then a map type that `isMapType` accepts (LUT_ERR_PARAM_1): the first checks of
// every range-image method.
inline long CheckRangeImageAndMapType(const KivRangeImage& image, int mapType,
                                      bool (*isMapType)(int) = IsMapType) {
  if (const long check = CheckRangeImage(image); check != LUT_OK) return check;
  if (!isMapType(mapType)) return LUT_ERR_PARAM_1;
  return LUT_OK;
}

// The first checks of the grey-image methods: pixels to colour (LUT_ERR_IMAGE_EMPTY), a map type
// (LUT_ERR_PARAM_1), then a destination (LUT_ERR_PARAM_2), refused here before the routine's own
// format checks of the source.
inline long CheckGreyImageCall(const KivImage& src, const KivImage* dst, int mapType) {
  if (src.Width() <= 0 || src.Height() <= 0) return LUT_ERR_IMAGE_EMPTY;
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_1;
  if (dst == nullptr) return LUT_ERR_PARAM_2;
  return LUT_OK;
}

}  // namespace KIVMV
