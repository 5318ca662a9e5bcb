#include "image/grey_banded.h"

#include <algorithm>
#include <type_traits>
#include <utility>
#include <vector>

#include "KivLUTStatus.h"
#include "common/colour_output.h"
#include "common/fault_injection.h"
#include "image/grey_equalised.h"
#include "image/grey_image_checks.h"
#include "image/grey_result.h"
#include "range/raw_value_lut.h"

namespace KIVMV {
namespace {

struct BandedRequest {
  int low;
  int high;
  int indexLow;
  int indexHigh;
  ColourEntry below;  // as stored, component 2 first
  ColourEntry above;
  int mapType;
};

template <typename T>
long ColourBanded(const cv::Mat& source, const BandedRequest& request, cv::Mat& result) {
  double lo = request.low;
  double hi = request.high;
  if constexpr (std::is_same_v<T, uint8_t>) {
    // Only 8-bit bounds are narrowed to the valid grey levels; 16-bit ones stay as the caller
    // gave them, so there the data may use only part of indexLow..indexHigh.
    const long status = RunStage(FaultStage::kStatistics, kGreyStageFailure, [&] {
      const std::pair<uint8_t, uint8_t> extremes = ValidGreyExtremes<uint8_t>(source);
      lo = std::max(request.low, static_cast<int>(extremes.first));
      hi = std::min(request.high, static_cast<int>(extremes.second));
    });
    if (status != LUT_OK) return status;
  }

  return RunStage(FaultStage::kColouring, kGreyStageFailure, [&] {
    const SerialLinearMapping mapping{lo,
                                      hi,
                                      request.indexLow,
                                      request.indexHigh,
                                      request.below,
                                      request.above,
                                      &SelectColourTable(request.mapType),
                                      ColourEntry{}};  // no invalid grey level: never read
    // The rule depends on the level alone: with at least as many pixels as levels, each level is
    // coloured once and the pixels by lookup, which gives the same bytes.
    if (UseValueColours<T>(GreyPixelCount(source))) {
      const std::vector<PaddedColour> colours = TabulateValueColours<T>(
          [&](T v) -> const ColourEntry& { return BandedColour(v, mapping); });
      const PaddedColour* colourOf = colours.data();
      ColourGreyRows<T>(
          source, [colourOf](T v) { return colourOf[ValueColourIndex(v)]; }, result);
    } else {
      // A local copy: byte stores may alias the caller's, and would force a reload per pixel.
      const SerialLinearMapping local = mapping;
      ColourGreyRows<T>(
          source, [&local](T v) { return Pad(BandedColour(v, local)); }, result);
    }
  });
}

}  // namespace

long ColourGreyImageBanded(const KivImage& src, KivImage* dst, int low, int high, int indexLow,
                           int indexHigh, const KivColor& below, const KivColor& above,
                           int mapType) noexcept {
  if (GreyMatrixIsEmpty(src)) return LUT_ERR_IMAGE_EMPTY;
  if (high < low || low < 0 || high < 0) return LUT_ERR_PARAM_2;
  if (!IsOrderedIndexRange(indexLow, indexHigh)) return LUT_ERR_PARAM_4;
  if (!IsBelowTableSize(indexHigh, kColourTableSize)) return LUT_ERR_PARAM_5;
  if (const long check = CheckGreyImageFormat(src); check != LUT_OK) return check;
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_6;
  if (dst == nullptr) return LUT_ERR_PARAM_2;

  const BandedRequest request{
      low, high, indexLow, indexHigh, StoredColour(below), StoredColour(above), mapType};
  return ColourGreyImageByDepth(
      src, dst, mapType, [&](auto tag, const cv::Mat& source, cv::Mat& result) {
        return ColourBanded<typename decltype(tag)::type>(source, request, result);
      });
}

}  // namespace KIVMV
