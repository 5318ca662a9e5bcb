#include "image/grey_equalised.h"

#include <climits>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "KivLUTStatus.h"
#include "common/fault_injection.h"
#include "image/grey_image_checks.h"
#include "range/equalisation.h"

namespace KIVMV {

int GreyPixelCount(const cv::Mat& pixels) {
  const int64_t count = static_cast<int64_t>(pixels.rows) * pixels.cols;
  if (count > INT_MAX) throw std::length_error("grey image: more pixels than an int counts");
  return static_cast<int>(count);
}

cv::Mat ContiguousGreyPixels(const cv::Mat& pixels) {
  return pixels.isContinuous() ? pixels : pixels.clone();
}

cv::Mat GreyCopy(const cv::Mat& pixels, int mapType) {
  cv::Mat copy;
  if (mapType == kGreyMap) {
    copy = pixels.clone();
  } else {
    cv::merge(std::vector<cv::Mat>{pixels, pixels, pixels}, copy);
  }
  return copy;
}

cv::Mat ColouredResult(const cv::Mat& colours, int mapType) {
  if (mapType != kGreyMap) return colours;
  cv::Mat blue;
  cv::extractChannel(colours, blue, 0);
  return blue;
}

long PrepareGreyWork(const cv::Mat& source, GreyWork& work) {
  return RunStage(FaultStage::kOutputSizing, kGreyStageFailure, [&] {
    work.n = GreyPixelCount(source);
    work.pixels = ContiguousGreyPixels(source);
    work.colours.create(source.rows, source.cols, CV_8UC3);
  });
}

long FinishGreyWork(const GreyWork& work, int mapType, cv::Mat& result) {
  return RunStage(FaultStage::kOutputSizing, kGreyStageFailure,
                  [&] { result = ColouredResult(work.colours, mapType); });
}

namespace {

// The engine is always told map type 5, whatever the caller chose. With entry 0 not reserved it
// only decides the colour of invalid pixels when no value range is left (no valid pixel, or a
// single grey level): entry 5 of the invalid colours, black, for every table.
constexpr int kPassedOnMapType = kRgbMap;

// Equalises the pixels of `source` between their valid minimum and maximum over all 256 entries
// of the table of mapType (grey for maps without a table of their own).
template <typename T>
long Equalise(const cv::Mat& source, int mapType, cv::Mat& result) {
  GreyWork work;
  long status = PrepareGreyWork(source, work);
  if (status != LUT_OK) return status;

  const T* data = work.pixels.ptr<T>();
  const int n = work.n;
  PixelSummary<T> summary;
  status = RunStage(FaultStage::kStatistics, kGreyStageFailure,
                    [&] { summary = SummarisePixels(data, n); });
  if (status != LUT_OK) return status;

  status = RunStage(FaultStage::kColouring, kGreyStageFailure, [&] {
    const EqualisedColouring how{&SelectColourTable(mapType),
                                 static_cast<double>(summary.stats.minimum),
                                 static_cast<double>(summary.stats.maximum),
                                 summary.stats.validCount,
                                 /*reserveIndex0=*/false,
                                 kPassedOnMapType,
                                 /*widthFromDifference=*/false,
                                 /*range=*/nullptr};
    ColourByEqualisation(data, n, summary, how, work.colours.data);
  });
  if (status != LUT_OK) return status;

  return FinishGreyWork(work, mapType, result);
}

}  // namespace

long ColourGreyImageEqualised(const KivImage& src, KivImage* dst, int mapType) noexcept {
  if (const long check = CheckGreyImage(src); check != LUT_OK) return check;
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_6;
  if (dst == nullptr) return LUT_ERR_PARAM_2;

  return ColourGreyImageByDepth(
      src, dst, mapType, [&](auto tag, const cv::Mat& source, auto& result) {
        return Equalise<typename decltype(tag)::type>(source, mapType, result);
      });
}

}  // namespace KIVMV
