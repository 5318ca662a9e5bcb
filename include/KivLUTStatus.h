// Status codes returned by every KivLUTSetting method. 0 is success; every failure is one of the
// eight-digit codes below. Codes that begin with 11 come from argument checks; 202181xx codes name
// the stage of a routine in which an exception was caught.
#pragma once

#include "KivLUTSettingExport.h"

namespace KIVMV {

inline constexpr long LUT_OK = 0;

inline constexpr long LUT_ERR_IMAGE_EMPTY = 11000001;
inline constexpr long LUT_ERR_IMAGE_CHANNELS = 11000005;
inline constexpr long LUT_ERR_IMAGE_BIT_DEPTH = 11000009;
inline constexpr long LUT_ERR_APPLY_FAILED = 11000013;
inline constexpr long LUT_ERR_RANGE_IMAGE_EMPTY = 11100001;
inline constexpr long LUT_ERR_ARRAY_EMPTY = 11100002;
inline constexpr long LUT_ERR_RANGE_IMAGE_TYPE = 11100029;
inline constexpr long LUT_ERR_PARAM_1 = 11200001;
inline constexpr long LUT_ERR_PARAM_2 = 11200002;
inline constexpr long LUT_ERR_PARAM_3 = 11200003;
inline constexpr long LUT_ERR_PARAM_4 = 11200004;
inline constexpr long LUT_ERR_PARAM_5 = 11200005;
inline constexpr long LUT_ERR_PARAM_6 = 11200006;
inline constexpr long LUT_ERR_PARAM_7 = 11200007;
inline constexpr long LUT_ERR_SIZE_MISMATCH = 11301001;

inline constexpr long LUT_ERR_NORMAL_MAP_FAILED = 20218101;
inline constexpr long LUT_ERR_BLEND_OUTPUT_FAILED = 20218102;
inline constexpr long LUT_ERR_BLEND_FAILED = 20218103;
inline constexpr long LUT_ERR_STATISTICS_FAILED = 20218104;
inline constexpr long LUT_ERR_PARA_MAPPING_FAILED = 20218105;
inline constexpr long LUT_ERR_OUTPUT_FAILED = 20218106;
inline constexpr long LUT_ERR_ARRAY_OUTPUT_FAILED = 20218107;
inline constexpr long LUT_ERR_ARRAY_APPLY_FAILED = 20218108;
inline constexpr long LUT_ERR_PARA_BOUND_1 = 20218112;
inline constexpr long LUT_ERR_PARA_BOUND_3 = 20218113;
inline constexpr long LUT_ERR_PARA_BOUND_4 = 20218114;
// 20218115 is not used.
inline constexpr long LUT_ERR_PARA_INDEX_1 = 20218116;
inline constexpr long LUT_ERR_PARA_INDEX_2 = 20218117;
inline constexpr long LUT_ERR_PARA_INDEX_3 = 20218118;
inline constexpr long LUT_ERR_PARA_INDEX_4 = 20218119;
inline constexpr long LUT_ERR_PARA_COUNT = 20218120;

// The constant's name for a status code ("LUT_ERR_PARAM_1"), or "LUT_UNKNOWN_STATUS".
KIVLUT_API const char* KivLUTStatusName(long status);

}  // namespace KIVMV
