#include "image/grey_linear.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "KivLUTStatus.h"
#include "common/numeric_helpers.h"
#include "common/stage_status.h"
#include "image/grey_image_checks.h"
#include "image/grey_result.h"
#include "tables/colour_tables.h"
#include "tables/padded_colour.h"

namespace KIVMV {
namespace {

// Below this many pixels the loops run on the calling thread: they take well under a
// millisecond, less than waking the team can cost on a busy machine.
constexpr size_t kParallelPixels = size_t{1} << 18;

// 8 bits: the grey level is the table index, for maps 1 to 6. Maps 7 to 10 have no table of their
// own and give the level in all three bytes; map 0 gives a 1-channel copy. Each pixel's colour is
// looked up once and written straight into the result matrix (see ResultMatrix): the bytes a merge
// of three copies of the plane followed by a table lookup would give, in one pass instead of two.
cv::Mat ColourEightBit(const cv::Mat& grey, int mapType, const KivImage& dst) {
  ThrowIfInjected(FaultStage::kColouring);
  if (mapType == kGreyMap) return grey.clone();
  cv::Mat colour = ResultMatrix(dst, grey, CV_8UC3);

  const bool hasTable = mapType >= kRainbowMap && mapType <= kJetMap;
  const ColourTable& table = SelectColourTable(mapType);
  std::array<PaddedColour, kColourTableSize> colourOf;
  for (int g = 0; g < kColourTableSize; ++g) {
    const uint8_t level = static_cast<uint8_t>(g);
    colourOf[static_cast<size_t>(g)] =
        hasTable ? Pad(table[static_cast<size_t>(g)]) : PaddedColour{{level, level, level, 0}};
  }

  const int rows = grey.rows;
  const int cols = grey.cols;
  // Each thread writes only its own rows of the new matrix.
#pragma omp parallel for schedule(static) if (grey.total() >= kParallelPixels)
  for (int y = 0; y < rows; ++y) {
    const uint8_t* in = grey.ptr<uint8_t>(y);
    WriteColours(
        cols, [&](int64_t x) { return colourOf[in[x]]; }, colour.ptr<uint8_t>(y));
  }
  return colour;
}

// The table index of a 16-bit value stretched between the image's minimum and maximum. With
// minimum == maximum the quotient is 0/0, whose truncation (the indefinite integer) has 0 in its
// low byte, so a flat image takes entry 0.
uint8_t StretchedIndex(double v, double minimum, double maximum) {
  if (v > maximum) return 255;
  if (v < minimum) return 0;
  return numeric::TruncateToLowByte((v - minimum) / (maximum - minimum) * 255.0);
}

// The minimum and maximum of a non-empty 16-bit image, as cv::minMaxLoc gives them, in one parallel
// pass.
std::pair<double, double> SixteenBitExtremes(const cv::Mat& grey) {
  uint16_t low = UINT16_MAX;
  uint16_t high = 0;
  const int rows = grey.rows;
  const int cols = grey.cols;
  const bool parallel = grey.total() >= kParallelPixels;
#pragma omp parallel for schedule(static) reduction(min : low) reduction(max : high) if (parallel)
  for (int y = 0; y < rows; ++y) {
    const uint16_t* in = grey.ptr<uint16_t>(y);
    uint16_t rowLow = UINT16_MAX;
    uint16_t rowHigh = 0;
    for (int x = 0; x < cols; ++x) {
      rowLow = std::min(rowLow, in[x]);
      rowHigh = std::max(rowHigh, in[x]);
    }
    low = std::min(low, rowLow);
    high = std::max(high, rowHigh);
  }
  return {low, high};
}

// Colours every row of a 16-bit image with colourOf(value): three bytes a pixel, or for map 0 the
// first byte only. Each thread writes only its own rows of the new matrix; the source and tables
// are read-only and nothing inside throws.
template <typename ColourOf>
void ColourSixteenBitRows(const cv::Mat& grey, ColourOf colourOf, cv::Mat& colour) {
  const int rows = grey.rows;
  const int cols = grey.cols;
  const bool onePlane = colour.channels() == 1;
#pragma omp parallel for schedule(static) if (grey.total() >= kParallelPixels)
  for (int y = 0; y < rows; ++y) {
    const uint16_t* in = grey.ptr<uint16_t>(y);
    uint8_t* out = colour.ptr<uint8_t>(y);
    if (onePlane) {
      for (int x = 0; x < cols; ++x) out[x] = colourOf(in[x])[0];
    } else {
      WriteColours(
          cols, [&](int64_t x) { return colourOf(in[x]); }, out);
    }
  }
}

// 16 bits: stretched between the image's own extremes over all 256 entries. The index depends on
// the value alone, so when the image has at least as many pixels as there are values between its
// extremes, each value's colour is worked out once; smaller images compute it per pixel. Map 0
// keeps only the first byte of the grey colours (the first plane of the colour image), so its
// result is made 1-channel directly.
cv::Mat ColourSixteenBit(const cv::Mat& grey, int mapType) {
  const std::pair<double, double> extremes = SixteenBitExtremes(grey);
  const double minimum = extremes.first;
  const double maximum = extremes.second;
  const ColourTable& table = SelectColourTable(mapType);
  const int lowest = static_cast<int>(minimum);
  const int span = static_cast<int>(maximum) - lowest + 1;
  const bool perValue = static_cast<size_t>(span) <= grey.total();

  std::vector<PaddedColour> byValue;
  if (perValue) {
    byValue.resize(static_cast<size_t>(span));
    for (int i = 0; i < span; ++i) {
      byValue[static_cast<size_t>(i)] = Pad(table[StretchedIndex(lowest + i, minimum, maximum)]);
    }
  }
  cv::Mat colour(grey.rows, grey.cols, mapType == kGreyMap ? CV_8UC1 : CV_8UC3);
  // Thrown here, before the parallel region: an exception must not leave one.
  ThrowIfInjected(FaultStage::kColouring);
  if (perValue) {
    const PaddedColour* colourOf = byValue.data();
    ColourSixteenBitRows(
        grey, [&](uint16_t v) { return colourOf[v - lowest]; }, colour);
  } else {
    ColourSixteenBitRows(
        grey, [&](uint16_t v) { return Pad(table[StretchedIndex(v, minimum, maximum)]); }, colour);
  }
  return colour;
}

}  // namespace

long LinearSetColorLUTOnGreyImage(const KivImage& src, KivImage* dst, int mapType) {
  if (const long check = CheckGreyImage(src); check != LUT_OK) return check;
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_1;
  if (dst == nullptr) return LUT_ERR_PARAM_2;
  cv::Mat colour;
  const long status = RunStage(LUT_ERR_ARRAY_APPLY_FAILED, [&] {
    colour = src.BitDepth() == KIV_IMAGE_8U ? ColourEightBit(src.Mat(), mapType, *dst)
                                            : ColourSixteenBit(src.Mat(), mapType);
  });
  if (status != LUT_OK) return status;
  // Assigned: dst shares the result, and a buffer it shared with anyone else is left alone.
  dst->Mat() = colour;
  return LUT_OK;
}

}  // namespace KIVMV
