#include "frame/kiv_lut_setting_impl.h"

#include "tables/get_color.h"

namespace KIVMV {

long KivLUTSettingImpl::GetColor(double value, int mapType, KivColor* out) {
  return GetColorRoutine(value, mapType, out);
}

}  // namespace KIVMV
