#include "image/float_array_colouring.h"

#include <algorithm>
#include <cstdint>

#include "KivLUTStatus.h"
#include "common/colour_output.h"
#include "common/stage_status.h"
#include "range/equalisation.h"
#include "range/linear_mapping.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

// The array routines hand this map type to the colouring bodies whatever the caller chose: it only
// decides the invalid colour where one is used, entry 5 of the invalid colours, black.
constexpr int kArrayInvalidMapType = kRgbMap;

}  // namespace

long CheckFloatArrayArguments(const Kiv3DFloatArray& values, float minValue, float maxValue,
                              int mapType) {
  if (values.Length() <= 0 || !HoldsFloatElements(values)) return LUT_ERR_ARRAY_EMPTY;
  if (minValue > maxValue) return LUT_ERR_PARAM_1;
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_3;
  return LUT_OK;
}

namespace {

// The checks both routines start with and the output sized in a stage of its own, then
// colour(data, n, colours) for the rest. `outputFailure` is the code of a missing or unsizable
// output, which differs between them.
template <typename Colour>
long ColourFloatArray(const Kiv3DFloatArray& values, float minValue, float maxValue, int mapType,
                      KivColorArray* out, long outputFailure, Colour&& colour) {
  if (const long check = CheckFloatArrayArguments(values, minValue, maxValue, mapType);
      check != LUT_OK) {
    return check;
  }
  if (out == nullptr) return outputFailure;
  uint8_t* colours = nullptr;
  const long sized = SizeColourOutput(*out, values.Length(), outputFailure, colours);
  if (sized != LUT_OK) return sized;
  return colour(values.Data(), values.Length(), colours);
}

}  // namespace

long SetColorLUTOnFloatArray(const Kiv3DFloatArray& values, float minValue, float maxValue,
                             int mapType, KivColorArray* out) {
  return ColourFloatArray(
      values, minValue, maxValue, mapType, out, LUT_ERR_OUTPUT_FAILED,
      [&](const float* data, int n, uint8_t* colours) {
        PixelSummary<float> summary;
        if (const long measured = RunStage(FaultStage::kStatistics, LUT_ERR_STATISTICS_FAILED,
                                           [&] { summary = SummarisePixels(data, n); });
            measured != LUT_OK) {
          return measured;
        }

        // The caller's bounds narrowed to the data, in single precision. With no valid element the
        // data range is crossed (FLT_MAX above -FLT_MAX) and so are these bounds.
        const float low = std::max(minValue, summary.stats.minimum);
        const float high = std::min(maxValue, summary.stats.maximum);
        return RunStage(FaultStage::kColouring, LUT_ERR_APPLY_FAILED, [&] {
          // Invalid elements take entry 0 of the table itself, and all 256 slots are shared out.
          const EqualisedColouring how{&SelectColourTable(mapType),
                                       low,
                                       high,
                                       summary.stats.validCount,
                                       /*reserveIndex0=*/false,
                                       kArrayInvalidMapType,
                                       /*widthFromDifference=*/false,
                                       /*range=*/nullptr};
          ColourByEqualisation(data, n, summary, how, colours);
        });
      });
}

long LinearSetColorLUTOnFloatArray(const Kiv3DFloatArray& values, float minValue, float maxValue,
                                   int mapType, KivColorArray* out) {
  // The bounds are used as given, not narrowed to the data; invalid elements are black.
  return ColourFloatArray(values, minValue, maxValue, mapType, out, LUT_ERR_ARRAY_OUTPUT_FAILED,
                          [&](const float* data, int n, uint8_t* colours) {
                            return RunStage(LUT_ERR_ARRAY_APPLY_FAILED, [&] {
                              ColourLinearParallel(data, n, minValue, maxValue,
                                                   SelectColourTable(mapType), kArrayInvalidMapType,
                                                   colours);
                            });
                          });
}

}  // namespace KIVMV
