// Public frames of the histogram-equalised and the banded grey-image colouring.
#include "KivLUTSetting.h"
#include "frame/argument_checks.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "image/grey_banded.h"
#include "image/grey_equalised.h"

namespace KIVMV {

long KivLUTSetting::SetColorLUT(KivImage& src, KivImage* dst, int mapType) {
  CallFrame frame(frame_entries::kSetColorLUTImage);
  if (const long check = CheckGreyImageCall(src, dst, mapType); check != LUT_OK) return check;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.SetColorLUT(src, dst, mapType));
}

long KivLUTSetting::SetColorLUT(KivImage& src, KivImage* dst, int mapType, int low, int high,
                                int indexLow, int indexHigh, KivColor below, KivColor above) {
  CallFrame frame(frame_entries::kSetColorLUTImageBoundsColours);
  if (const long check = CheckGreyImageCall(src, dst, mapType); check != LUT_OK) return check;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  // The routine takes the map type last.
  return frame.End(
      fresh.SetColorLUT(src, dst, low, high, indexLow, indexHigh, below, above, mapType));
}

long KivLUTSettingImpl::SetColorLUT(KivImage& src, KivImage* dst, int mapType) {
  sourceMatrix_ = &src.Mat();
  const long status = ColourGreyImageEqualised(src, dst, mapType);
  sourceMatrix_ = nullptr;
  return status;
}

long KivLUTSettingImpl::SetColorLUT(KivImage& src, KivImage* dst, int low, int high, int indexLow,
                                    int indexHigh, KivColor below, KivColor above, int mapType) {
  sourceMatrix_ = &src.Mat();
  const long status =
      ColourGreyImageBanded(src, dst, low, high, indexLow, indexHigh, below, above, mapType);
  sourceMatrix_ = nullptr;
  return status;
}

}  // namespace KIVMV
