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

namespace {

// The engine is always told map type 5, whatever the caller chose. With entry 0 not reserved it
// only decides the colour of invalid pixels when no value range is left (no valid pixel, or a
// single grey level): entry 5 of the invalid colours, black, for every table.
constexpr int kPassedOnMapType = kRgbMap;

// Equalises the pixels of `source` between their valid minimum and maximum over all 256 entries
// of the table of mapType (grey for maps without a table of their own).
template <typename T>
long Equalise(const cv::Mat& source, int mapType, cv::Mat& result) {
  int n = 0;
  cv::Mat pixels;
  cv::Mat colours;
  long status = RunGreyStage(FaultStage::kOutputSizing, [&] {
    n = GreyPixelCount(source);
    pixels = ContiguousGreyPixels(source);
    colours.create(source.rows, source.cols, CV_8UC3);
  });
  if (status != LUT_OK) return status;

  const T* data = pixels.ptr<T>();
  PixelSummary<T> summary;
  status = RunGreyStage(FaultStage::kStatistics, [&] { summary = SummarisePixels(data, n); });
  if (status != LUT_OK) return status;

  status = RunGreyStage(FaultStage::kColouring, [&] {
    const EqualisedColouring how{&SelectColourTable(mapType),
                                 static_cast<double>(summary.stats.minimum),
                                 static_cast<double>(summary.stats.maximum),
                                 summary.stats.validCount,
                                 /*reserveIndex0=*/false,
                                 kPassedOnMapType,
                                 /*widthFromDifference=*/false,
                                 /*range=*/nullptr};
    ColourByEqualisation(data, n, summary, how, colours.data);
  });
  if (status != LUT_OK) return status;

  return RunGreyStage(FaultStage::kOutputSizing,
                      [&] { result = ColouredResult(colours, mapType); });
}

}  // namespace

long ColourGreyImageEqualised(const KivImage& src, KivImage* dst, int mapType) noexcept {
  if (const long check = CheckGreyImage(src); check != LUT_OK) return check;
  // Read as unsigned like every map-type check of the library, so a negative one is refused too.
  if (static_cast<unsigned>(mapType) > static_cast<unsigned>(kLastMapType)) return LUT_ERR_PARAM_6;
  if (dst == nullptr) return LUT_ERR_PARAM_2;

  return ColourGreyImageByDepth(
      src, dst, mapType,
      [&](const cv::Mat& source, cv::Mat& result) {
        return Equalise<uint16_t>(source, mapType, result);
      },
      [&](const cv::Mat& source, cv::Mat& result) {
        return Equalise<uint8_t>(source, mapType, result);
      });
}

}  // namespace KIVMV
