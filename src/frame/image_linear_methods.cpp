// Public frame of the linear grey-image colouring. It runs its routine on a fresh implementation
// object.
#include "KivLUTSetting.h"
#include "frame/argument_checks.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "image/grey_linear.h"

namespace KIVMV {

long KivLUTSetting::LinearSetColorLUT(KivImage& src, KivImage* dst, int mapType) {
  CallFrame frame(frame_entries::kLinearSetColorLUTImage);
  if (const long check = CheckGreyImageCall(src, dst, mapType); check != LUT_OK) return check;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.LinearSetColorLUT(src, dst, mapType));
}

long KivLUTSettingImpl::LinearSetColorLUT(KivImage& src, KivImage* dst, int mapType) {
  return LinearSetColorLUTOnGreyImage(src, dst, mapType);
}

}  // namespace KIVMV
