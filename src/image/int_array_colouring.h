// Colouring of flat integer arrays between a low and a high limit, one colour per element.
#pragma once

#include "Kiv3DArray.h"
#include "KivColorArray.h"

namespace KIVMV {

// Whether the array's matrix is Length() contiguous ints. Length() counts the matrix's elements
// whatever their type, so a matrix swapped in behind the array's back (bytes, floats, three
// channels, a view with padded rows) would be read past its end or as numbers it does not hold.
inline bool HoldsIntElements(const Kiv3DIntArray& values) {
  const cv::Mat& m = values.Mat();
  return m.data != nullptr && m.type() == CV_32SC1 && m.isContinuous();
}

// Checks, in order: mapType outside 0..10 (LUT_ERR_PARAM_2), an empty array or one whose matrix is
// not its elements (LUT_ERR_PARAM_1), a null out (LUT_ERR_ARRAY_OUTPUT_FAILED). Values above high
// are pure red and values below low black, whatever the map; the others index the whole table
// linearly from low to high. Element i is written at bytes 3i..3i+2 of out, re-created with 3
// channels when its length differs or it has fewer than 3 bytes a colour. Sizing failures return
// LUT_ERR_ARRAY_OUTPUT_FAILED, colouring failures LUT_ERR_ARRAY_APPLY_FAILED.
long ColorMapLUTOnIntArray(const Kiv3DIntArray& values, int mapType, int low, int high,
                           KivColorArray* out);

}  // namespace KIVMV
