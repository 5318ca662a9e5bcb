// The implementation behind KivLUTSetting. It holds nothing that influences a result, so a method
// may run its routine on the object's own instance or on a fresh one with the same outcome. Which
// one each method uses is part of the library's contract and kept: 16 methods build a call-local
// object, and five (GetColor, ColorBlend, the bounded equalised ColorMapLUT and the two
// normal-map methods) use the object's own through KivLUTSetting::OwnImpl.
#pragma once

#include "KivPlatform.h"
#include "LinearColorMapLUT_Para.h"

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

  // Grey images (src/image/grey_linear.h, grey_equalised.h, grey_banded.h).
  long LinearSetColorLUT(KivImage& src, KivImage* dst, int mapType);
  long SetColorLUT(KivImage& src, KivImage* dst, int mapType);
  long SetColorLUT(KivImage& src, KivImage* dst, int low, int high, int indexLow, int indexHigh,
                   KivColor below, KivColor above, int mapType);

  // Flat arrays and blending (src/image/int_array_colouring.h, float_array_colouring.h,
  // colour_blend.h).
  long ColorMapLUT(Kiv3DIntArray& values, int mapType, int low, int high, KivColorArray* out);
  long SetColorLUT(Kiv3DFloatArray& values, float minValue, float maxValue, int mapType,
                   KivColorArray* out);
  long LinearSetColorLUT(Kiv3DFloatArray& values, float minValue, float maxValue, int mapType,
                         KivColorArray* out);
  long ColorBlend(KivColorArray& a, KivColorArray& b, double alpha, KivColorArray* out);

  // The five-point scale (src/range/para_mapping.h).
  long LinearColorMapLUT(KivRangeImage& image, KivColorArray* out, LinearColorMapLUT_Para& para,
                         KivColor underColor, KivColor overColor, int mapType, bool automatic);
  long LinearColorMapLUT(Kiv3DFloatArray& values, KivColorArray* out, LinearColorMapLUT_Para para,
                         KivColor underColor, KivColor overColor, int mapType, bool automatic);
  long ColorMapLUT(KivRangeImage& image, KivColorArray* out, LinearColorMapLUT_Para para,
                   KivColor underColor, KivColor overColor, int mapType, bool automatic, int sizeA,
                   int sizeB, KivVarArray* vectorA, KivVarArray* vectorB);

  // Surface-normal shading (src/shading/).
  long SetColorNormalMap(KivVector3dArray& normals, KivColorArray* out);
  long SetColorNormalMapPhong(KivRangeImage& img, KivColorArray* out);
  long SetColorNormalMap(KivRangeImage& img, KivVector3d& vectorA, KivVector3d& vectorB, int mode,
                         float coefA, float coefB, float coefC, float coefD, KivColorArray* out);

 private:
  // Scratch that the grey-image equalised and banded routines record the source image's matrix in
  // while a call runs, as they always have. Nothing reads it back, so it carries no state from one
  // call to the next.
  const void* sourceMatrix_ = nullptr;
};

}  // namespace KIVMV
