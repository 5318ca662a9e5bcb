// Linear colouring of grey images: 8-bit grey levels index a colour table directly, 16-bit images
// are stretched between their own minimum and maximum first.
#pragma once

#include "KivImage.h"

namespace KIVMV {

// Checks, in order: no pixels (LUT_ERR_IMAGE_EMPTY), channels other than 1
// (LUT_ERR_IMAGE_CHANNELS), a sample type other than 8- or 16-bit unsigned
// (LUT_ERR_IMAGE_BIT_DEPTH), mapType outside 0..10 (LUT_ERR_PARAM_1), a null dst
// (LUT_ERR_PARAM_2). Then dst receives an 8-bit matrix: 3 channels blue first, 1 channel for
// map 0; its own matrix, written in place, when it alone owns one of that shape apart from the
// source's pixels (see ResultMatrix), else a new one. A failing colouring returns
// LUT_ERR_ARRAY_APPLY_FAILED and leaves dst as it was; the source, a caller's buffer and pixels
// dst shares with other images are never written.
long LinearSetColorLUTOnGreyImage(const KivImage& src, KivImage* dst, int mapType);

}  // namespace KIVMV
