// Histogram-equalised colouring of range images (the engine is in equalisation.h).
#pragma once

#include "KivColor.h"
#include "KivColorArray.h"
#include "KivRangeImage.h"

namespace KIVMV {

// The three public forms. Status codes as the public header documents them.
long ColorMapLUTByDataRange(KivRangeImage& image, int mapType, KivColorArray* out);
long ColorMapLUTWithBounds(KivRangeImage& image, int mapType, double low, double high,
                           KivColorArray* out);
long ColorMapLUTWithColourRange(KivRangeImage& image, int mapType, double low, double high, int lo,
                                int hi, const KivColor& below, const KivColor& above,
                                KivColorArray* out);

}  // namespace KIVMV
