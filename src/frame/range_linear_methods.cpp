// Public frames of the linear range-image colouring. Each runs its routine on a fresh
// implementation object.
#include "KivLUTSetting.h"
#include "frame/argument_checks.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "range/linear_mapping.h"

namespace KIVMV {

long KivLUTSetting::LinearColorMapLUT(KivRangeImage& image, int mapType, KivColorArray* out) {
  CallFrame frame(frame_entries::kLinearColorMapLUT);
  if (const long check = CheckRangeImageAndMapType(image, mapType); check != LUT_OK) return check;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.LinearColorMapLUT(image, mapType, out));
}

long KivLUTSetting::LinearColorMapLUT(KivRangeImage& image, int mapType, double low, double high,
                                      KivColorArray* out) {
  CallFrame frame(frame_entries::kLinearColorMapLUTBounds);
  if (const long check = CheckRangeImageAndMapType(image, mapType); check != LUT_OK) return check;
  // Goes on only when high >= low holds: a NaN bound is refused.
  if (!(high >= low)) return LUT_ERR_PARAM_2;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.LinearColorMapLUT(image, mapType, low, high, out));
}

long KivLUTSetting::LinearColorMapLUT(KivRangeImage& image, int mapType, double low, double high,
                                      int indexLow, int indexHigh, KivColor underColor,
                                      KivColor overColor, KivColorArray* out) {
  CallFrame frame(frame_entries::kLinearColorMapLUTBoundsColours);
  if (const long check = CheckRangeImageAndMapType(image, mapType); check != LUT_OK) return check;
  if (!(high >= low)) return LUT_ERR_PARAM_2;
  // The index range is the routine's own check, made before it touches the output.
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.LinearColorMapLUT(image, mapType, low, high, indexLow, indexHigh,
                                           underColor, overColor, out));
}

long KivLUTSetting::LinearColorMapLUT(KivRangeImage& image, KivColorArray* out, int mapType,
                                      double upperFraction, double lowerFraction) {
  CallFrame frame(frame_entries::kLinearColorMapLUTFractions);
  if (const long check = CheckRangeImageAndMapType(image, mapType); check != LUT_OK) return check;
  if (!IsFraction(upperFraction)) return LUT_ERR_PARAM_2;
  if (!IsFraction(lowerFraction)) return LUT_ERR_PARAM_3;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.LinearColorMapLUT(image, out, mapType, upperFraction, lowerFraction));
}

long KivLUTSettingImpl::LinearColorMapLUT(KivRangeImage& image, int mapType, KivColorArray* out) {
  return LinearColourMapMinMax(image, mapType, out);
}

long KivLUTSettingImpl::LinearColorMapLUT(KivRangeImage& image, int mapType, double low,
                                          double high, KivColorArray* out) {
  return LinearColourMapWithBounds(image, mapType, low, high, out);
}

long KivLUTSettingImpl::LinearColorMapLUT(KivRangeImage& image, int mapType, double low,
                                          double high, int indexLow, int indexHigh,
                                          KivColor underColor, KivColor overColor,
                                          KivColorArray* out) {
  return LinearColourMapWithColours(image, mapType, low, high, indexLow, indexHigh, underColor,
                                    overColor, out);
}

long KivLUTSettingImpl::LinearColorMapLUT(KivRangeImage& image, KivColorArray* out, int mapType,
                                          double upperFraction, double lowerFraction) {
  return LinearColourMapFractions(image, out, mapType, upperFraction, lowerFraction);
}

}  // namespace KIVMV
