#include "image/grey_equalised.h"

#include <climits>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "KivLUTStatus.h"
#include "common/fault_injection.h"
#include "image/grey_image_checks.h"
#include "image/grey_result.h"
#include "range/equalisation.h"
#include "range/raw_value_lut.h"

namespace KIVMV {

int GreyPixelCount(const cv::Mat& pixels) {
  const int64_t count = static_cast<int64_t>(pixels.rows) * pixels.cols;
  if (count > INT_MAX) throw std::length_error("grey image: more pixels than an int counts");
  return static_cast<int>(count);
}

long PrepareGreyResult(const cv::Mat& source, const KivImage& dst, int mapType, cv::Mat& result) {
  return RunStage(FaultStage::kOutputSizing, kGreyStageFailure, [&] {
    GreyPixelCount(source);
    result = ResultMatrix(dst, source, mapType == kGreyMap ? CV_8UC1 : CV_8UC3);
  });
}

void CopyGrey(const cv::Mat& pixels, cv::Mat& result) {
  ColourGreyRows<uint8_t>(
      pixels,
      [](uint8_t g) {
        return PaddedColour{{g, g, g, 0}};
      },
      result);
}

namespace {

// The engine is always told map type 5, whatever the caller chose. With entry 0 not reserved it
// only decides the colour of invalid pixels when no value range is left (no valid pixel, or a
// single grey level): entry 5 of the invalid colours, black, for every table.
constexpr int kPassedOnMapType = kRgbMap;

// Counters per level when counting 8-bit levels: a camera frame repeats levels from pixel to
// pixel. 16-bit levels repeat less, and four copies of 65536 counters would not stay in cache.
template <typename T>
inline constexpr int kCountCopies = sizeof(T) == 1 ? 4 : 1;

// The valid minimum, maximum and count from the count of each level, as the engine's summary
// holds them.
template <typename T>
ValueStatistics<T> StatisticsFromCounts(const std::vector<uint32_t>& counts) {
  ValueStatistics<T> stats{PixelTraits<T>::kInitialMin, PixelTraits<T>::kInitialMax, 0};
  for (int index = 0; index < kRawValueCount<T>; ++index) {
    const T v = RawValueAtIndex<T>(index);
    if (counts[static_cast<size_t>(index)] == 0 || !IsValidPixel(v)) continue;
    UpdateExtremes(v, stats.minimum, stats.maximum);
    stats.validCount += counts[static_cast<size_t>(index)];
  }
  return stats;
}

// Equalises the pixels of `source` between their valid minimum and maximum over all 256 entries
// of the table of mapType (grey for maps without a table of their own), into `result`.
template <typename T>
long Equalise(const cv::Mat& source, int mapType, cv::Mat& result) {
  PixelSummary<T> summary;
  long status = RunStage(FaultStage::kStatistics, kGreyStageFailure, [&] {
    summary.rawCounts = CountGreyLevels<T, kCountCopies<T>>(source);
    summary.stats = StatisticsFromCounts<T>(summary.rawCounts);
  });
  if (status != LUT_OK) return status;

  return RunStage(FaultStage::kColouring, kGreyStageFailure, [&] {
    const EqualisedColouring how{&SelectColourTable(mapType),
                                 static_cast<double>(summary.stats.minimum),
                                 static_cast<double>(summary.stats.maximum),
                                 summary.stats.validCount,
                                 /*reserveIndex0=*/false,
                                 kPassedOnMapType,
                                 /*widthFromDifference=*/false,
                                 /*range=*/nullptr};
    const int n = GreyPixelCount(source);
    constexpr int kLevels = kRawValueCount<T>;
    if (n >= kLevels) {
      // The engine's colour depends on the level alone (and on the summary, which stays that of
      // the image): coloured once per level, every pixel then takes its level's colour.
      std::vector<T> levels(static_cast<size_t>(kLevels));
      for (int i = 0; i < kLevels; ++i) levels[static_cast<size_t>(i)] = RawValueAtIndex<T>(i);
      std::vector<uint8_t> bytes(3 * static_cast<size_t>(kLevels));
      ColourByEqualisation(levels.data(), kLevels, summary, how, bytes.data());
      std::vector<PaddedColour> byLevel(static_cast<size_t>(kLevels));
      for (size_t i = 0; i < byLevel.size(); ++i) {
        byLevel[i] = {bytes[3 * i], bytes[3 * i + 1], bytes[3 * i + 2], 0};
      }
      const PaddedColour* colourOf = byLevel.data();
      ColourGreyRows<T>(
          source, [colourOf](T v) { return colourOf[ValueColourIndex(v)]; }, result);
      return;
    }
    // Fewer pixels than levels: the engine colours the pixels themselves, in one block.
    const cv::Mat pixels = source.isContinuous() ? source : source.clone();
    std::vector<uint8_t> bytes(3 * static_cast<size_t>(n));
    ColourByEqualisation(pixels.ptr<T>(), n, summary, how, bytes.data());
    const uint8_t* colours = bytes.data();
    const int channels = result.channels();
    for (int y = 0; y < result.rows; ++y) {
      uint8_t* row = result.ptr<uint8_t>(y);
      const uint8_t* from = colours + 3 * static_cast<size_t>(y) * result.cols;
      for (int x = 0; x < result.cols; ++x) {
        for (int c = 0; c < channels; ++c) row[channels * x + c] = from[3 * x + c];
      }
    }
  });
}

}  // namespace

long ColourGreyImageEqualised(const KivImage& src, KivImage* dst, int mapType) noexcept {
  if (const long check = CheckGreyImage(src); check != LUT_OK) return check;
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_6;
  if (dst == nullptr) return LUT_ERR_PARAM_2;

  return ColourGreyImageByDepth(
      src, dst, mapType, [&](auto tag, const cv::Mat& source, cv::Mat& result) {
        return Equalise<typename decltype(tag)::type>(source, mapType, result);
      });
}

}  // namespace KIVMV
