// Colouring of flat float arrays, one colour per element: by histogram equalisation between bounds
// narrowed to the data, or linearly between the caller's bounds.
#pragma once

#include "Kiv3DArray.h"
#include "KivColorArray.h"

namespace KIVMV {

// Whether the array's matrix is Length() contiguous floats. Length() counts the matrix's elements
// whatever their type, so a matrix swapped in behind the array's back (bytes, doubles, three
// channels, a view with padded rows) would be read past its end or as numbers it does not hold.
inline bool HoldsFloatElements(const Kiv3DFloatArray& values) {
  const cv::Mat& m = values.Mat();
  return m.data != nullptr && m.type() == CV_32FC1 && m.isContinuous();
}

// The checks both float-array colourings make, in order: an empty array, or one whose matrix is
// not its elements (LUT_ERR_ARRAY_EMPTY: nothing the colouring can read), minValue > maxValue (a
// NaN bound passes), mapType outside 0..10.
long CheckFloatArrayArguments(const Kiv3DFloatArray& values, float minValue, float maxValue,
                              int mapType);

// Status codes as the public header documents them; a failing stage returns its own code
// (sizing 20218106, statistics 20218104, colouring 11000013).
long SetColorLUTOnFloatArray(const Kiv3DFloatArray& values, float minValue, float maxValue,
                             int mapType, KivColorArray* out);

// Sizing failures return 20218107, colouring failures 20218108.
long LinearSetColorLUTOnFloatArray(const Kiv3DFloatArray& values, float minValue, float maxValue,
                                   int mapType, KivColorArray* out);

}  // namespace KIVMV
