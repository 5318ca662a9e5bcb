#include "image/grey_equalised.h"

#include <climits>
#include <cstdint>
#include <cstring>
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

// Pixels per level from which the levels are coloured once and the pixels by lookup. Colouring a
// level costs the engine more than a pixel (it allocates and fills tables as long as the levels),
// and the lookup is a pass of its own; it pays off on large frames, which it also lets be written
// into a destination's own matrix.
constexpr int64_t kPixelsPerLevel = 64;

// Equalises the pixels of `source` between their valid minimum and maximum over all 256 entries
// of the table of mapType (grey for maps without a table of their own), into `result`.
template <typename T>
long Equalise(const cv::Mat& source, int mapType, const KivImage& dst, cv::Mat& result) {
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
    // Every pixel is 0 or lies between the valid extremes (none: no pixel but 0).
    const int lowest = summary.stats.validCount > 0 ? summary.stats.minimum : 0;
    const int highest = summary.stats.validCount > 0 ? summary.stats.maximum : 0;
    const int levelCount = highest - lowest + 2;
    if (kPixelsPerLevel * static_cast<int64_t>(levelCount) <= n) {
      // The engine's colour depends on the level alone (and on the summary, which stays that of
      // the image): it colours level 0 and the levels lowest..highest once, and every pixel then
      // takes its level's colour.
      std::vector<T> levels(static_cast<size_t>(levelCount));
      levels[0] = 0;
      for (int i = 1; i < levelCount; ++i)
        levels[static_cast<size_t>(i)] = static_cast<T>(lowest + i - 1);
      std::vector<uint8_t> bytes(3 * static_cast<size_t>(levelCount));
      ColourByEqualisation(levels.data(), levelCount, summary, how, bytes.data());
      std::vector<PaddedColour> byLevel(static_cast<size_t>(levelCount));
      for (size_t i = 0; i < byLevel.size(); ++i) {
        byLevel[i] = {bytes[3 * i], bytes[3 * i + 1], bytes[3 * i + 2], 0};
      }
      const PaddedColour* colourOf = byLevel.data();
      const int base = lowest - 1;  // level v > 0 is entry v - base; level 0 is entry 0
      ColourGreyRows<T>(
          source,
          [colourOf, base](T v) { return colourOf[v == 0 ? 0 : static_cast<int>(v) - base]; },
          result);
      return;
    }
    // Not many more pixels than levels: the engine colours the pixels themselves, in one block.
    // A new result matrix of three channels is that block; the destination's own matrix, and a
    // single channel, take a copy once nothing can fail any more.
    const cv::Mat pixels = source.isContinuous() ? source : source.clone();
    const bool direct = result.channels() == 3 && result.datastart != dst.Mat().datastart;
    std::vector<uint8_t> bytes(direct ? 0 : 3 * static_cast<size_t>(n));
    uint8_t* colours = direct ? result.data : bytes.data();
    ColourByEqualisation(pixels.ptr<T>(), n, summary, how, colours);
    if (direct) return;
    const size_t cols = static_cast<size_t>(result.cols);
    for (int y = 0; y < result.rows; ++y) {
      uint8_t* row = result.ptr<uint8_t>(y);
      const uint8_t* from = colours + 3 * cols * static_cast<size_t>(y);
      if (result.channels() == 3) {
        std::memcpy(row, from, 3 * cols);
      } else {
        for (size_t x = 0; x < cols; ++x) row[x] = from[3 * x];
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
        return Equalise<typename decltype(tag)::type>(source, mapType, *dst, result);
      });
}

}  // namespace KIVMV
