// Byte-wise blending of two colour arrays with a fixed weight.
#pragma once

#include "KivColorArray.h"

namespace KIVMV {

// out = trunc(a x alpha) + trunc(b x (1 - alpha)) per byte, each product truncated on its own and
// the sum kept to its low eight bits (255 and 255 at 0.5 give 254).
//
// In order: lengths differ (LUT_ERR_SIZE_MISMATCH); when the channel counts differ, a then b is
// converted to 3 channels in place if it has 1 (grey replicated) or 4 (alpha dropped), and stays
// converted whatever follows; alpha outside [0, 1] (LUT_ERR_PARAM_1, NaN passes); out is null or
// cannot be sized (LUT_ERR_BLEND_OUTPUT_FAILED). out is re-created with a's length and channels
// when its length differs or it holds fewer bytes than the blend writes. A failing conversion or
// blend returns LUT_ERR_BLEND_FAILED, and so does an input holding fewer bytes than its sizes
// promise, before out is sized.
long BlendColourArrays(KivColorArray& a, KivColorArray& b, double alpha, KivColorArray* out);

}  // namespace KIVMV
