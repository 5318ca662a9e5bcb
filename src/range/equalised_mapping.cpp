#include "range/equalised_mapping.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "KivLUTStatus.h"
#include "common/colour_output.h"
#include "common/numeric_helpers.h"
#include "common/pixel_rules.h"
#include "common/stage_status.h"
#include "range/checked_pixel_count.h"
#include "range/equalisation.h"
#include "range/raw_units.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

// How the caller's bounds become the bounds of the mapping.
enum class BoundsRule {
  kDataRange,  // the valid minimum and maximum
  kMargin,     // kept only when inside the data range by more than a margin
  kClamp,      // clamped to the data range
};

struct EqualisedRequest {
  int mapType;
  BoundsRule rule;
  double low;
  double high;
  const ColourRange* colourRange;  // only with kClamp
};

// The statistics and the histogram read from counts of raw values: the same numbers as a pass
// over the pixels, since each pixel's contribution depends on its value alone.
template <typename T>
long MapEqualised(const KivRangeImage& image, int n, const EqualisedRequest& request,
                  uint8_t* out) {
  const T* data = image.Ptr<T>();
  double low = request.low;
  double high = request.high;
  PixelSummary<T> summary;
  const long measured = RunStage(FaultStage::kStatistics, LUT_ERR_STATISTICS_FAILED, [&] {
    if (request.rule != BoundsRule::kDataRange) {
      const RawBounds raw = BoundsInUnitsOf<T>(TruncatedRawBounds, low, high, image);
      low = raw.low;
      high = raw.high;
    }
    summary = SummarisePixels(data, n);
  });
  if (measured != LUT_OK) return measured;

  const double minimum = static_cast<double>(summary.stats.minimum);
  const double maximum = static_cast<double>(summary.stats.maximum);
  switch (request.rule) {
    case BoundsRule::kDataRange:
      low = minimum;
      high = maximum;
      break;
    case BoundsRule::kMargin: {
      const double margin = std::is_integral_v<T> ? 0.5 : 0.0001;
      low = low - minimum > margin ? low : minimum;
      high = maximum - high > margin ? high : maximum;
      break;
    }
    case BoundsRule::kClamp:
      low = std::max(low, minimum);
      high = std::min(high, maximum);
      break;
  }

  return RunStage(FaultStage::kColouring, LUT_ERR_APPLY_FAILED, [&] {
    const EqualisedColouring how{&SelectColourTable(request.mapType),
                                 low,
                                 high,
                                 summary.stats.validCount,
                                 /*reserveIndex0=*/true,
                                 request.mapType,
                                 /*widthFromDifference=*/request.rule == BoundsRule::kClamp,
                                 request.colourRange};
    ColourByEqualisation(data, n, summary, how, out);
  });
}

long RunEqualised(KivRangeImage& image, const EqualisedRequest& request, KivColorArray* out) {
  const int n = CheckedPixelCount(image);
  if (n <= 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  if (const ColourRange* range = request.colourRange) {
    if (!IsOrderedIndexRange(range->lo, range->hi)) return LUT_ERR_PARAM_4;
    if (!IsBelowTableSize(range->hi, kColourTableSize)) return LUT_ERR_PARAM_5;
  }
  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;

  uint8_t* bytes = nullptr;
  if (const long sized = SizeColourOutput(*out, n, LUT_ERR_OUTPUT_FAILED, bytes); sized != LUT_OK) {
    return sized;
  }

  long status = LUT_OK;
  // A data type outside the seven leaves the output as it is and succeeds.
  VisitPixelType(image.DataType(), [&](auto tag) {
    using T = typename decltype(tag)::type;
    status = MapEqualised<T>(image, n, request, bytes);
  });
  return status;
}

}  // namespace

long ColorMapLUTByDataRange(KivRangeImage& image, int mapType, KivColorArray* out) {
  return RunEqualised(image, {mapType, BoundsRule::kDataRange, 0.0, 0.0, nullptr}, out);
}

long ColorMapLUTWithBounds(KivRangeImage& image, int mapType, double low, double high,
                           KivColorArray* out) {
  return RunEqualised(image, {mapType, BoundsRule::kMargin, low, high, nullptr}, out);
}

long ColorMapLUTWithColourRange(KivRangeImage& image, int mapType, double low, double high, int lo,
                                int hi, const KivColor& below, const KivColor& above,
                                KivColorArray* out) {
  const ColourRange range{lo, hi, StoredColour(below), StoredColour(above)};
  return RunEqualised(image, {mapType, BoundsRule::kClamp, low, high, &range}, out);
}

}  // namespace KIVMV
