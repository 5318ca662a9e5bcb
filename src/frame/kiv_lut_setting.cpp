#include <new>

#include "KivLUTSetting.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "tables/get_color.h"

namespace KIVMV {
KivLUTSetting::KivLUTSetting() {
  // The implementation is stateless; if it cannot be allocated the methods use a fresh one. A
  // constructor has no status to return, so this one failure is caught by hand, not as a stage.
  try {
    impl_ = std::make_shared<KivLUTSettingImpl>();
  } catch (const std::bad_alloc&) {
  }
}

KivLUTSetting::~KivLUTSetting() = default;

KivLUTSettingImpl& KivLUTSetting::OwnImpl(KivLUTSettingImpl& spare) {
  return impl_ ? *impl_ : spare;
}

long KivLUTSetting::GetColor(double value, int mapType, KivColor* out) {
  CallFrame frame(frame_entries::kGetColor);
  const long check = CheckColorQuery(value, mapType, out);
  if (check != LUT_OK) {
    return check;
  }
  KivLUTSettingImpl spare;  // used only if the object's own could not be allocated
  return frame.End(OwnImpl(spare).GetColor(value, mapType, out));
}

}  // namespace KIVMV
