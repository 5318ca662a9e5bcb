// Status codes of the library's own API beyond KivLUTSetting (KivColorTable.h, KivColoring.h,
// KivColorBar.h, KivSequenceColoring.h). 0 is success; failures are eight-digit codes beginning
// with 13, apart from those of KivLUTSetting, so a caller can tell which layer refused.
#pragma once

#include "KivLUTSettingExport.h"

namespace KIVMV {

inline constexpr long KIV_EXT_OK = 0;

inline constexpr long KIV_EXT_ERR_NULL_OUTPUT = 13000001;  // an output pointer is null
inline constexpr long KIV_EXT_ERR_EMPTY_INPUT = 13000002;  // no pixels or values
inline constexpr long KIV_EXT_ERR_INPUT_TYPE = 13000003;   // pixel type or image format not taken
inline constexpr long KIV_EXT_ERR_BOUNDS = 13000004;  // given bounds NaN, infinite or low > high
inline constexpr long KIV_EXT_ERR_PERCENTILES = 13000005;  // percentiles outside 0..100 or crossed
inline constexpr long KIV_EXT_ERR_CHANNELS = 13000006;     // output channels not 3 or 4
inline constexpr long KIV_EXT_ERR_UNKNOWN_TABLE = 13000007;     // no table of that name
inline constexpr long KIV_EXT_ERR_STOPS = 13000008;             // colour stops unusable
inline constexpr long KIV_EXT_ERR_BAR_GEOMETRY = 13000009;      // colour bar too small or too large
inline constexpr long KIV_EXT_ERR_NO_SCALE = 13000010;          // colouring info without a scale
inline constexpr long KIV_EXT_ERR_SIZE_MISMATCH = 13000011;     // picture and its geometry disagree
inline constexpr long KIV_EXT_ERR_SEQUENCE_OPTIONS = 13000012;  // KivSequenceOptions unusable
inline constexpr long KIV_EXT_ERR_INTERNAL = 13000099;          // an unexpected failure, caught

// The constant's name for a status code ("KIV_EXT_ERR_BOUNDS"), or "KIV_EXT_UNKNOWN_STATUS".
KIVLUT_API const char* KivExtStatusName(long status);

}  // namespace KIVMV
