#include "image/grey_banded.h"

#include <algorithm>
#include <type_traits>

#include "KivLUTStatus.h"
#include "common/colour_output.h"
#include "common/fault_injection.h"
#include "image/grey_equalised.h"
#include "image/grey_image_checks.h"
#include "range/statistics.h"

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
  GreyWork work;
  long status = PrepareGreyWork(source, work);
  if (status != LUT_OK) return status;

  const T* data = work.pixels.ptr<T>();
  const int n = work.n;
  double lo = request.low;
  double hi = request.high;
  if constexpr (std::is_same_v<T, uint8_t>) {
    // Only 8-bit bounds are narrowed to the valid grey levels; 16-bit ones stay as the caller
    // gave them, so there the data may use only part of indexLow..indexHigh.
    status = RunStage(FaultStage::kStatistics, kGreyStageFailure, [&] {
      const ValueStatistics<uint8_t> extremes = FindMinMaxOfRawValues(data, n);
      lo = std::max(request.low, static_cast<int>(extremes.minimum));
      hi = std::min(request.high, static_cast<int>(extremes.maximum));
    });
    if (status != LUT_OK) return status;
  }

  status = RunStage(FaultStage::kColouring, kGreyStageFailure, [&] {
    const SerialLinearMapping mapping{lo,
                                      hi,
                                      request.indexLow,
                                      request.indexHigh,
                                      request.below,
                                      request.above,
                                      &SelectColourTable(request.mapType),
                                      ColourEntry{}};  // no invalid grey level: never read
    ColourBandedPixels(data, n, mapping, work.colours.data);
  });
  if (status != LUT_OK) return status;

  return FinishGreyWork(work, request.mapType, result);
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
      src, dst, mapType, [&](auto tag, const cv::Mat& source, auto& result) {
        return ColourBanded<typename decltype(tag)::type>(source, request, result);
      });
}

}  // namespace KIVMV
