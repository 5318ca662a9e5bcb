// Public frames of the float-array colourings.
#include <iostream>
#include <opencv2/core/utility.hpp>
#include <sstream>
#include <string>

#include "KivLUTSetting.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "image/float_array_colouring.h"

namespace KIVMV {
namespace {

// "SetColorLUT耗时：<milliseconds>ms" in GBK on standard output, as one write so that lines of
// concurrent calls do not interleave.
void PrintElapsed(int64_t before, int64_t after) {
  std::ostringstream line;
  line << kTimingPrefix << (after - before) / cv::getTickFrequency() * 1000.0 << "ms\n";
  std::cout << line.str() << std::flush;
}

}  // namespace

long KivLUTSetting::SetColorLUT(Kiv3DFloatArray& values, float minValue, float maxValue,
                                int mapType, KivColorArray* out) {
  CallFrame frame(frame_entries::kSetColorLUTArray);
  if (const long check = CheckFloatArrayArguments(values, minValue, maxValue, mapType);
      check != LUT_OK) {
    return check;
  }
  // The routine's status is not passed on, so a missing output must be refused here.
  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  const int64_t before = cv::getTickCount();
  fresh.SetColorLUT(values, minValue, maxValue, mapType, out);
  const int64_t after = cv::getTickCount();
  PrintElapsed(before, after);
  // Callers of this method have always been told success once the checks passed.
  return frame.End(LUT_OK);
}

long KivLUTSetting::LinearSetColorLUT(Kiv3DFloatArray& values, float minValue, float maxValue,
                                      int mapType, KivColorArray* out) {
  CallFrame frame(frame_entries::kLinearSetColorLUTArray);
  if (const long check = CheckFloatArrayArguments(values, minValue, maxValue, mapType);
      check != LUT_OK) {
    return check;
  }
  if (out == nullptr) return LUT_ERR_ARRAY_OUTPUT_FAILED;
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return frame.End(fresh.LinearSetColorLUT(values, minValue, maxValue, mapType, out));
}

long KivLUTSettingImpl::SetColorLUT(Kiv3DFloatArray& values, float minValue, float maxValue,
                                    int mapType, KivColorArray* out) {
  return SetColorLUTOnFloatArray(values, minValue, maxValue, mapType, out);
}

long KivLUTSettingImpl::LinearSetColorLUT(Kiv3DFloatArray& values, float minValue, float maxValue,
                                          int mapType, KivColorArray* out) {
  return LinearSetColorLUTOnFloatArray(values, minValue, maxValue, mapType, out);
}

}  // namespace KIVMV
