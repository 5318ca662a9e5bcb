// The built-in demo's input: a generated range image of machined parts.
#pragma once

#include "KivLUTSetting.h"

namespace kivlut {

// 640 x 480 unsigned 16-bit heights of machined parts (planes, steps, a cylinder, a drilled hole
// with no data, sensor noise), with the resolution that makes them millimetres. The same seed
// gives the same image.
KIVMV::KivRangeImage MakeMachinedPartsScene(unsigned seed = 2026);

// The 16-bit heights scaled linearly onto levels 1..255 between the lowest and the highest valid
// height, as an 8-bit image of the same size; no data (0) stays 0.
KIVMV::KivRangeImage EightBitCopy(const KIVMV::KivRangeImage& scene);

}  // namespace kivlut
