// Public frames of the integer-array colouring (on a fresh implementation object) and of the
// colour blend (on the object's own).
#include "KivLUTSetting.h"
#include "frame/argument_checks.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "image/colour_blend.h"
#include "image/int_array_colouring.h"

namespace KIVMV {

long KivLUTSetting::ColorMapLUT(Kiv3DIntArray& values, int mapType, int low, int high,
                                KivColorArray* out) {
  CallFrame frame(frame_entries::kColorMapLUTIntArray);
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_2;
  if (values.Length() <= 0 || !HoldsIntElements(values)) return LUT_ERR_PARAM_1;
  if (out == nullptr) return LUT_ERR_ARRAY_OUTPUT_FAILED;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.ColorMapLUT(values, mapType, low, high, out));
}

long KivLUTSetting::ColorBlend(KivColorArray& a, KivColorArray& b, double alpha,
                               KivColorArray* out) {
  CallFrame frame(frame_entries::kColorBlend);
  // The length test comes first; a NaN weight passes the range test.
  if (a.Length() != b.Length()) return LUT_ERR_SIZE_MISMATCH;
  if (alpha < 0.0 || alpha > 1.0) return LUT_ERR_PARAM_1;
  if (out == nullptr) return LUT_ERR_BLEND_OUTPUT_FAILED;
  KivLUTSettingImpl spare;  // used only if the object's own could not be allocated
  return frame.End(OwnImpl(spare).ColorBlend(a, b, alpha, out));
}

long KivLUTSettingImpl::ColorMapLUT(Kiv3DIntArray& values, int mapType, int low, int high,
                                    KivColorArray* out) {
  return ColorMapLUTOnIntArray(values, mapType, low, high, out);
}

long KivLUTSettingImpl::ColorBlend(KivColorArray& a, KivColorArray& b, double alpha,
                                   KivColorArray* out) {
  return BlendColourArrays(a, b, alpha, out);
}

}  // namespace KIVMV
