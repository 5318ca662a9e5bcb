// Public frames of the parameterised colourings (the five-point scale and the segmenting
// ColorMapLUT). Each runs its routine on a fresh implementation object.
#include "KivLUTSetting.h"
#include "frame/argument_checks.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "range/para_mapping.h"

namespace KIVMV {

namespace {

// Automatic mode derives the break values itself, so only a record given by hand is checked.
long CheckRecordUnlessAutomatic(const LinearColorMapLUT_Para& para, bool automatic) {
  return automatic ? LUT_OK : CheckParaRecord(para);
}

}  // namespace

long KivLUTSetting::LinearColorMapLUT(KivRangeImage& image, KivColorArray* out,
                                      LinearColorMapLUT_Para& para, KivColor& underColor,
                                      KivColor& overColor, int mapType, bool automatic) {
  CallFrame frame(frame_entries::kLinearColorMapLUTPara);
  if (const long check = CheckRangeImageAndMapType(image, mapType, IsParaMapType);
      check != LUT_OK) {
    return check;
  }
  if (const long check = CheckRecordUnlessAutomatic(para, automatic); check != LUT_OK) {
    return check;
  }
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(
      fresh.LinearColorMapLUT(image, out, para, underColor, overColor, mapType, automatic));
}

long KivLUTSetting::LinearColorMapLUT(Kiv3DFloatArray& values, KivColorArray* out,
                                      LinearColorMapLUT_Para& para, KivColor& underColor,
                                      KivColor& overColor, int mapType, bool automatic) {
  CallFrame frame(frame_entries::kLinearColorMapLUTArrayPara);
  if (values.Length() <= 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  if (!IsParaMapType(mapType)) return LUT_ERR_PARAM_1;
  if (const long check = CheckRecordUnlessAutomatic(para, automatic); check != LUT_OK) {
    return check;
  }
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(
      fresh.LinearColorMapLUT(values, out, para, underColor, overColor, mapType, automatic));
}

long KivLUTSetting::ColorMapLUT(KivRangeImage& image, KivColorArray* out,
                                LinearColorMapLUT_Para& para, KivColor& underColor,
                                KivColor& overColor, int mapType, bool automatic, int sizeA,
                                int sizeB, KivVarArray* vectorA, KivVarArray* vectorB) {
  // Logs under the name of the parameterised linear mapping it extends.
  CallFrame frame(frame_entries::kColorMapLUTPara);
  if (const long check = CheckRangeImageAndMapType(image, mapType, IsParaMapType);
      check != LUT_OK) {
    return check;
  }
  if (const long check = CheckLegendSizes(sizeA, sizeB); check != LUT_OK) return check;
  if (const long check = CheckRecordUnlessAutomatic(para, automatic); check != LUT_OK) {
    return check;
  }
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.ColorMapLUT(image, out, para, underColor, overColor, mapType, automatic,
                                     sizeA, sizeB, vectorA, vectorB));
}

long KivLUTSettingImpl::LinearColorMapLUT(KivRangeImage& image, KivColorArray* out,
                                          LinearColorMapLUT_Para& para, KivColor underColor,
                                          KivColor overColor, int mapType, bool automatic) {
  return LinearColourMapFivePoint(image, out, para, underColor, overColor, mapType, automatic);
}

long KivLUTSettingImpl::LinearColorMapLUT(Kiv3DFloatArray& values, KivColorArray* out,
                                          LinearColorMapLUT_Para para, KivColor underColor,
                                          KivColor overColor, int mapType, bool automatic) {
  return LinearColourMapFivePointArray(values, out, para, underColor, overColor, mapType,
                                       automatic);
}

long KivLUTSettingImpl::ColorMapLUT(KivRangeImage& image, KivColorArray* out,
                                    LinearColorMapLUT_Para para, KivColor underColor,
                                    KivColor overColor, int mapType, bool automatic, int sizeA,
                                    int sizeB, KivVarArray* vectorA, KivVarArray* vectorB) {
  return ColourMapSegmented(image, out, para, underColor, overColor, mapType, automatic, sizeA,
                            sizeB, vectorA, vectorB);
}

}  // namespace KIVMV
