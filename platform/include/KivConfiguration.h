#ifndef KIVMV_KIV_CONFIGURATION_H_
#define KIVMV_KIV_CONFIGURATION_H_

#include "KivPlatformExport.h"
#include "KivPlatformStatus.h"

namespace KIVMV {

// Process-wide settings taken from the environment. Each variable is read once, on the first call
// of any of these functions, and never again; reading is thread-safe. A value that is not a whole
// number within int range (or, for KIV_GPU, not a recognised word) leaves the default.
// Each returns kKivPlatformOk, or kKivPlatformNullArgument for a null pointer.

// KIV_EFFICIENCY, default 0.
KIVMV_PLATFORM_API long KivGetStaticEfficiency(int* value);
// KIV_TBB_CHUNKS, default 0 ("unset"); returned as parsed, even if negative. Callers treat
// anything below 1 as "one chunk per processor".
KIVMV_PLATFORM_API long KivGetStaticTBB(int* value);
// KIV_GPU: "1", "true", "yes", "on" (any case) mean true; "0", "false", "no", "off" false;
// default false.
KIVMV_PLATFORM_API long KivGetStaticGPU(bool* value);
// KIV_WIN_VERSION, default 0.
KIVMV_PLATFORM_API long KivGetStaticWinVersion(int* value);

}  // namespace KIVMV

#endif  // KIVMV_KIV_CONFIGURATION_H_
