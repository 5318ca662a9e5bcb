// The implementation behind KivLUTSetting. It holds nothing that influences a result, so a method
// may run its routine on the object's own instance or on a fresh one with the same outcome.
#pragma once

#include "KivPlatform.h"

namespace KIVMV {

class KivLUTSettingImpl {
 public:
  KivLUTSettingImpl() = default;

  long GetColor(double value, int mapType, KivColor* out);

  // Histogram-equalised range-image colouring (src/range/equalised_mapping.h).
  long ColorMapLUT(KivRangeImage& image, int mapType, KivColorArray* out);
  long ColorMapLUT(KivRangeImage& image, int mapType, double low, double high, KivColorArray* out);
  long ColorMapLUT(KivRangeImage& image, int mapType, double low, double high, int lo, int hi,
                   KivColor below, KivColor above, KivColorArray* out);

  // Linear range-image colouring (src/range/linear_mapping.h).
  long LinearColorMapLUT(KivRangeImage& image, int mapType, KivColorArray* out);
  long LinearColorMapLUT(KivRangeImage& image, int mapType, double low, double high,
                         KivColorArray* out);
  long LinearColorMapLUT(KivRangeImage& image, int mapType, double low, double high, int indexLow,
                         int indexHigh, KivColor underColor, KivColor overColor,
                         KivColorArray* out);
  long LinearColorMapLUT(KivRangeImage& image, KivColorArray* out, int mapType,
                         double upperFraction, double lowerFraction);
};

}  // namespace KIVMV
