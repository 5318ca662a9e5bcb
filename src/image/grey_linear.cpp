#include "image/grey_linear.h"

#include <tbb/combinable.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "KivLUTStatus.h"
#include "common/monotone_runs.h"
#include "common/numeric_helpers.h"
#include "common/stage_status.h"
#include "image/grey_image_checks.h"
#include "image/grey_result.h"
#include "tables/colour_tables.h"
#include "tables/padded_colour.h"

namespace KIVMV {
namespace {

// 8 bits: the grey level is the table index, for maps 1 to 6. Maps 7 to 10 have no table of their
// own and give the level in all three bytes; map 0 gives a 1-channel copy (the first of those
// bytes). Each pixel's colour is looked up once and written straight into the result matrix (see
// ResultMatrix): the bytes a merge of three copies of the plane followed by a table lookup would
// give, in one pass instead of two.
cv::Mat ColourEightBit(const cv::Mat& grey, int mapType, const KivImage& dst) {
  ThrowIfInjected(FaultStage::kColouring);
  cv::Mat colour = ResultMatrix(dst, grey, mapType == kGreyMap ? CV_8UC1 : CV_8UC3);

  const bool hasTable = mapType >= kRainbowMap && mapType <= kJetMap;
  const ColourTable& table = SelectColourTable(mapType);
  std::array<PaddedColour, kColourTableSize> colourOf;
  for (int g = 0; g < kColourTableSize; ++g) {
    const uint8_t level = static_cast<uint8_t>(g);
    colourOf[static_cast<size_t>(g)] =
        hasTable ? Pad(table[static_cast<size_t>(g)]) : PaddedColour{{level, level, level, 0}};
  }

  const PaddedColour* colours = colourOf.data();
  ColourGreyRows<uint8_t>(
      grey, [colours](uint8_t g) { return colours[g]; }, colour);
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

// Spans of values up to this many are coloured value by value; wider ones run by run.
constexpr int kDividedSpan = 4 * kColourTableSize;

// The colour of every value lowest..highest (the image's extremes) into colourOf[0..], with as
// few divisions as there are runs of values with one index, times a few. Between the extremes the
// index never falls as the value rises: the difference to the minimum, its quotient by the fixed
// width and the product with 255 are each rounded monotonically, and so is the truncation of a
// product in [0, 255]. So the values are coloured run by run.
void FillStretchedRuns(int lowest, int highest, double minimum, double maximum,
                       const ColourTable& table, PaddedColour* colourOf) {
  ForEachMonotoneRun(
      lowest, highest, [&](int v) { return StretchedIndex(v, minimum, maximum); },
      [&](int v, int last, uint8_t index) {
        std::fill(colourOf + (v - lowest), colourOf + (last - lowest + 1), Pad(table[index]));
      });
}

// The minimum and maximum of a non-empty 16-bit image, as cv::minMaxLoc gives them, in one parallel
// pass.
std::pair<double, double> SixteenBitExtremes(const cv::Mat& grey) {
  tbb::combinable<std::pair<uint16_t, uint16_t>> extremes([] {
    return std::pair<uint16_t, uint16_t>{UINT16_MAX, 0};
  });
  const int cols = grey.cols;
  ForGreyRows(grey, [&](int first, int last) {
    uint16_t low = UINT16_MAX;
    uint16_t high = 0;
    for (int y = first; y < last; ++y) {
      const uint16_t* in = grey.ptr<uint16_t>(y);
      for (int x = 0; x < cols; ++x) {
        low = std::min(low, in[x]);
        high = std::max(high, in[x]);
      }
    }
    std::pair<uint16_t, uint16_t>& mine = extremes.local();
    mine.first = std::min(mine.first, low);
    mine.second = std::max(mine.second, high);
  });
  const std::pair<uint16_t, uint16_t> both = extremes.combine([](std::pair<uint16_t, uint16_t> a,
                                                                 std::pair<uint16_t, uint16_t> b) {
    return std::pair<uint16_t, uint16_t>{std::min(a.first, b.first), std::max(a.second, b.second)};
  });
  return {both.first, both.second};
}

// 16 bits: stretched between the image's own extremes over all 256 entries. The index depends on
// the value alone, so when the image has at least as many pixels as there are values between its
// extremes, each value's colour is worked out once; smaller images compute it per pixel. Map 0
// keeps only the first byte of the grey colours (the first plane of the colour image), so its
// result is made 1-channel directly.
cv::Mat ColourSixteenBit(const cv::Mat& grey, int mapType, const KivImage& dst) {
  const std::pair<double, double> extremes = SixteenBitExtremes(grey);
  const double minimum = extremes.first;
  const double maximum = extremes.second;
  const ColourTable& table = SelectColourTable(mapType);
  const int lowest = static_cast<int>(minimum);
  const int highest = static_cast<int>(maximum);
  const int span = highest - lowest + 1;
  const bool perValue = static_cast<size_t>(span) <= grey.total();

  std::vector<PaddedColour> byValue;
  if (perValue) {
    byValue.resize(static_cast<size_t>(span));
    if (span <= kDividedSpan) {
      for (int i = 0; i < span; ++i) {
        byValue[static_cast<size_t>(i)] = Pad(table[StretchedIndex(lowest + i, minimum, maximum)]);
      }
    } else {
      FillStretchedRuns(lowest, highest, minimum, maximum, table, byValue.data());
    }
  }
  cv::Mat colour = ResultMatrix(dst, grey, mapType == kGreyMap ? CV_8UC1 : CV_8UC3);
  // Thrown here, before anything is written: a destination written in place must stay untouched
  // by a failing call.
  ThrowIfInjected(FaultStage::kColouring);
  if (perValue) {
    const PaddedColour* colourOf = byValue.data();
    ColourGreyRows<uint16_t>(
        grey, [colourOf, lowest](uint16_t v) { return colourOf[v - lowest]; }, colour);
  } else {
    ColourGreyRows<uint16_t>(
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
                                            : ColourSixteenBit(src.Mat(), mapType, *dst);
  });
  if (status != LUT_OK) return status;
  // Assigned: dst shares the result, and a buffer it shared with anyone else is left alone.
  dst->Mat() = colour;
  return LUT_OK;
}

}  // namespace KIVMV
