// Colouring of flat integer arrays between a low and a high limit, one colour per element.
#pragma once

#include "Kiv3DArray.h"
#include "KivColorArray.h"

namespace KIVMV {

// Checks, in order: mapType outside 0..10 (LUT_ERR_PARAM_2), an empty array (LUT_ERR_PARAM_1), a
// null out (LUT_ERR_ARRAY_OUTPUT_FAILED). Values above high are pure red and values below low
// black, whatever the map; the others index the whole table linearly from low to high. Element i
// is written at bytes 3i..3i+2 of out, re-created with 3 channels when its length differs or it
// has fewer than 3 bytes a colour. Sizing failures return LUT_ERR_ARRAY_OUTPUT_FAILED, colouring
// failures LUT_ERR_ARRAY_APPLY_FAILED.
long ColorMapLUTOnIntArray(const Kiv3DIntArray& values, int mapType, int low, int high,
                           KivColorArray* out);

}  // namespace KIVMV
