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
  if (src.Width() <= 0 || src.Height() < 1) return LUT_ERR_IMAGE_EMPTY;
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_1;
  // Refused here, before the routine's own format checks of the source.
  if (dst == nullptr) return LUT_ERR_PARAM_2;
  KivLUTSettingImpl fresh;
  return frame.End(fresh.LinearSetColorLUT(src, dst, mapType));
}

long KivLUTSettingImpl::LinearSetColorLUT(KivImage& src, KivImage* dst, int mapType) {
  return LinearSetColorLUTOnGreyImage(src, dst, mapType);
}

}  // namespace KIVMV
