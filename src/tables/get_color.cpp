#include "tables/get_color.h"

#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>

#include "KivLUTStatus.h"
#include "common/numeric_helpers.h"
#include "tables/colour_tables.h"

namespace KIVMV {

long CheckColorQuery(double value, int mapType, const KivColor* out) {
  // -0.0 is not below 0 and passes; infinities fail the range test.
  if (value < 0.0 || value > 1.0 || std::isnan(value)) {
    return LUT_ERR_PARAM_1;
  }
  if (!IsMapType(mapType)) {
    return LUT_ERR_PARAM_2;
  }
  if (out == nullptr) {
    return LUT_ERR_PARAM_3;
  }
  return LUT_OK;
}

long GetColorRoutine(double value, int mapType, KivColor* out) {
  const long status = CheckColorQuery(value, mapType, out);
  if (status != LUT_OK) {
    return status;
  }

  // Truncated, not rounded: only 1.0 reaches entry 255, 0.999 gives 254.
  const int64_t index = numeric::TruncateToInt64(value * 255.0);
  KivColor& colour = *out;
  if (mapType >= kRainbowMap && mapType <= kJetMap) {
    const cv::Vec3b& entry =
        SelectColourTableMatrix(mapType).at<cv::Vec3b>(0, static_cast<int>(index));
    colour[0] = entry[0];
    colour[1] = entry[1];
    colour[2] = entry[2];
  } else {
    // Grey and the maps without a table: a grey of the same level, no table read.
    colour[0] = colour[1] = colour[2] = static_cast<int>(index);
  }
  return LUT_OK;
}

}  // namespace KIVMV
