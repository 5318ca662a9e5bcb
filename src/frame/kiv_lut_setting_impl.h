// The implementation behind KivLUTSetting. It holds nothing that influences a result, so a method
// may run its routine on the object's own instance or on a fresh one with the same outcome.
#pragma once

#include "KivPlatform.h"

namespace KIVMV {

class KivLUTSettingImpl {
 public:
  KivLUTSettingImpl() = default;

  long GetColor(double value, int mapType, KivColor* out);
};

}  // namespace KIVMV
