// Colouring of flat float arrays, one colour per element: by histogram equalisation between bounds
// narrowed to the data, or linearly between the caller's bounds.
#pragma once

#include "Kiv3DArray.h"
#include "KivColorArray.h"

namespace KIVMV {

// The checks both float-array colourings make, in order: an empty array, minValue > maxValue
// (a NaN bound passes), mapType outside 0..10.
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
