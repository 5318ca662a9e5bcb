// Public frames of the histogram-equalised range-image colouring.
#include "KivLUTSetting.h"
#include "frame/argument_checks.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "range/equalised_mapping.h"

namespace KIVMV {

long KivLUTSetting::ColorMapLUT(KivRangeImage& image, int mapType, KivColorArray* out) {
  CallFrame frame(frame_entries::kColorMapLUT);
  if (const long check = CheckRangeImageAndMapType(image, mapType); check != LUT_OK) return check;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.ColorMapLUT(image, mapType, out));
}

long KivLUTSetting::ColorMapLUT(KivRangeImage& image, int mapType, double low, double high,
                                KivColorArray* out) {
  CallFrame frame(frame_entries::kColorMapLUTBounds);
  if (const long check = CheckRangeImageAndMapType(image, mapType); check != LUT_OK) return check;
  // Refused only when low > high holds: a NaN bound goes on to the mapping.
  if (low > high) return LUT_ERR_PARAM_2;
  KivLUTSettingImpl spare;  // used only if the object's own could not be allocated
  return frame.End(OwnImpl(spare).ColorMapLUT(image, mapType, low, high, out));
}

long KivLUTSetting::ColorMapLUT(KivRangeImage& image, int mapType, double low, double high, int lo,
                                int hi, KivColor below, KivColor above, KivColorArray* out) {
  CallFrame frame(frame_entries::kColorMapLUTBoundsColours);
  if (const long check = CheckRangeImageAndMapType(image, mapType); check != LUT_OK) return check;
  // Goes on only when high >= low holds: a NaN bound is refused here.
  if (!(high >= low)) return LUT_ERR_PARAM_2;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.ColorMapLUT(image, mapType, low, high, lo, hi, below, above, out));
}

long KivLUTSettingImpl::ColorMapLUT(KivRangeImage& image, int mapType, KivColorArray* out) {
  return ColorMapLUTByDataRange(image, mapType, out);
}

long KivLUTSettingImpl::ColorMapLUT(KivRangeImage& image, int mapType, double low, double high,
                                    KivColorArray* out) {
  return ColorMapLUTWithBounds(image, mapType, low, high, out);
}

long KivLUTSettingImpl::ColorMapLUT(KivRangeImage& image, int mapType, double low, double high,
                                    int lo, int hi, KivColor below, KivColor above,
                                    KivColorArray* out) {
  return ColorMapLUTWithColourRange(image, mapType, low, high, lo, hi, below, above, out);
}

}  // namespace KIVMV
