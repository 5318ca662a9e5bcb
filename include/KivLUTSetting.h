// KivLUTSetting: colour pictures from machine-vision measurement data.
//
// Every method borrows its inputs by reference, writes its output through a pointer, and returns a
// status code (KivLUTStatus.h): LUT_OK or an eight-digit failure code. No method throws.
// Including this header is enough to call every method.
#pragma once

#include <memory>

#include "KivLUTStatus.h"
#include "KivPlatform.h"

namespace KIVMV {

class KivLUTSettingImpl;

class KivLUTSetting {
 public:
  KivLUTSetting();
  ~KivLUTSetting();

  // The colour at `value`, a fraction of the mapped range in [0, 1], under colour map `mapType`
  // (0 grey, 1 rainbow, 2 hot metal, 3 diverging, 4 isoluminant, 5 RGB, 6 jet; 7 to 10 grey).
  // Components 0, 1, 2 of `out` receive blue, green, red; component 3 is left alone. The table
  // entry is value x 255 truncated, so only 1.0 reaches the last entry.
  // LUT_ERR_PARAM_1: value outside [0, 1] or NaN; LUT_ERR_PARAM_2: mapType outside 0..10;
  // LUT_ERR_PARAM_3: out is null.
  long GetColor(double value, int mapType, KivColor* out);

 private:
  // Stateless, so copies of a KivLUTSetting may share it.
  std::shared_ptr<KivLUTSettingImpl> impl_;
};

}  // namespace KIVMV
