#include "range/para_mapping.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <opencv2/core.hpp>
#include <utility>

#include "Kiv3DDataConvert.h"
#include "KivImage.h"
#include "KivLUTStatus.h"
#include "KivPlatformStatus.h"
#include "common/colour_output.h"
#include "common/pixel_rules.h"
#include "common/stage_status.h"
#include "range/checked_pixel_count.h"
#include "range/equalisation.h"
#include "range/five_point_scale.h"
#include "range/legend_chart.h"
#include "range/para_normalisation.h"
#include "range/segmentation.h"
#include "tables/para_colour_tables.h"

namespace KIVMV {

long CheckParaRecord(const LinearColorMapLUT_Para& para) {
  if (para.value0 > para.value1 || para.value1 > para.value2) return LUT_ERR_PARA_BOUND_1;
  if (para.value2 > para.value3) return LUT_ERR_PARA_BOUND_3;
  if (para.value3 > para.value4) return LUT_ERR_PARA_BOUND_4;
  if (para.index0 < 0 || para.index0 > para.index1) return LUT_ERR_PARA_INDEX_1;
  if (para.index1 < 0 || para.index1 > para.index2) return LUT_ERR_PARA_INDEX_2;
  if (para.index2 < 0 || para.index2 > para.index3) return LUT_ERR_PARA_INDEX_3;
  if (para.index3 < 0 || para.index3 > para.index4) return LUT_ERR_PARA_INDEX_4;
  if (para.index4 > kParaTableSize - 1) return LUT_ERR_PARA_COUNT;
  return LUT_OK;
}

namespace {

bool IsLegendSize(int size) { return size == 2 || size == 4 || size == 8 || size == 16; }

}  // namespace

long CheckLegendSizes(int sizeA, int sizeB) {
  if (sizeA == 0) return LUT_OK;
  if (!IsLegendSize(sizeA)) return LUT_ERR_PARAM_6;
  if (!IsLegendSize(sizeB)) return LUT_ERR_PARAM_7;
  return LUT_OK;
}

std::vector<int> LegendTicks(const LinearColorMapLUT_Para& para, bool automatic, int sizeA,
                             int sizeB) {
  std::vector<int> ticks;
  if (sizeA == 0 || sizeB == 0) return ticks;
  // Automatic mode ticks the fixed entries of its own scale, whatever the record holds.
  const int top = automatic ? kAutomaticIndices[4] : para.index4;
  const int middle = automatic ? kAutomaticIndices[2] : para.index2;
  const int upperStep = automatic ? 512 / sizeB : (para.index4 - para.index2) / sizeB;
  const int lowerStep = automatic ? 512 / sizeA : (para.index2 - para.index0 + 1) / sizeA;
  for (int k = 0; k <= sizeB; ++k) ticks.push_back(top - k * upperStep);
  for (int k = 1; k <= sizeA; ++k) ticks.push_back(std::max(0, middle - k * lowerStep));
  return ticks;
}

ColourTable QuarterOfParaGrey(int segment) {
  constexpr int kQuarter = kColourTableSize / 4;
  const int first = kQuarter * std::clamp(segment, 0, 3);
  ColourTable quarter{};
  for (int j = 0; j < kColourTableSize; ++j) {
    quarter[static_cast<size_t>(j)] =
        kParaGreyTable[static_cast<size_t>(first + std::min(j, kQuarter - 1))];
  }
  return quarter;
}

namespace {

// The scale of the chosen break values through `table`, with the caller's colours as stored and
// the invalid colour of mapType.
FivePointScale FivePointScaleOf(const BreakValues& breaks, const ParaColourTable& table,
                                const KivColor& underColor, const KivColor& overColor,
                                int mapType) {
  return {breaks.value,
          breaks.index,
          &table,
          StoredColour(underColor),
          StoredColour(overColor),
          InvalidColour(mapType)};
}

// The stages of the range-image forms: the checks they repeat (n pixels, a map type 1..10), then in
// one stage the deep copy the work is done on and the output, then colour(copy, n, colours), whose
// exceptions are the mapping stage's.
template <typename Colour>
long ColourRangeCopy(const KivRangeImage& image, int mapType, KivColorArray* out, Colour&& colour) {
  int n = 0;
  if (const long check = CheckPixelsAndMapType(image, mapType, IsParaMapType, n); check != LUT_OK) {
    return check;
  }
  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;
  KivRangeImage copy;
  uint8_t* colours = nullptr;
  const long ready = CopyAndSizeOutput(image, n, *out, copy, colours);
  if (ready != LUT_OK) return ready;
  return RunStage(LUT_ERR_PARA_MAPPING_FAILED, [&] { return colour(copy, n, colours); });
}

// The copy's pixels as float heights in physical units (integer markers become the float marker),
// or null when the copy cannot be converted (an integer image with a non-finite resolution or
// offset).
float* FloatHeights(KivRangeImage& copy, int n) {
  if (copy.DataType() != KIV_DATA_F32) {
    Kiv3DDataConvert convert;
    if (convert.RangeImageDataTypeConvert(copy, &copy, KIV_DATA_F32) != kKivPlatformOk) {
      return nullptr;
    }
  }
  if (copy.DataType() != KIV_DATA_F32 || CheckedPixelCount(copy) != n) return nullptr;
  return copy.Ptr<float>();
}

// The break values in use, in the normalised domain: derived from the normalised data, or the
// caller's (moved into the domain when they are in data units).
BreakValues ChooseBreakValues(const float* values, int n, const ParaRescaling& rescaling,
                              const LinearColorMapLUT_Para& para, bool automatic,
                              bool callerValuesInDataUnits) {
  if (automatic) return AutomaticBreakValues(FindParaTotals(values, n));
  BreakValues breaks{{para.value0, para.value1, para.value2, para.value3, para.value4},
                     {para.index0, para.index1, para.index2, para.index3, para.index4}};
  if (callerValuesInDataUnits) {
    for (double& value : breaks.value) value = MoveIntoDomain(value, rescaling);
  }
  return breaks;
}

// A range image's heights rescaled to [-1, 1] in its float copy, and the break values in use there.
struct NormalisedHeights {
  float* values = nullptr;  // null when the copy could not be converted to float heights
  ParaRescaling rescaling;
  BreakValues breaks{};
};

NormalisedHeights NormaliseHeights(KivRangeImage& copy, int n, const LinearColorMapLUT_Para& para,
                                   bool automatic) {
  NormalisedHeights heights;
  heights.values = FloatHeights(copy, n);
  if (heights.values == nullptr) return heights;
  heights.rescaling = FindRescaling(heights.values, n, RescaledElements::kAllButMarker);
  ApplyRescaling(heights.values, n, heights.rescaling, RescaledElements::kAllButMarker);
  heights.breaks = ChooseBreakValues(heights.values, n, heights.rescaling, para, automatic, true);
  return heights;
}

void WriteBack(const BreakValues& breaks, const ParaRescaling& rescaling,
               LinearColorMapLUT_Para& para) {
  double* values[] = {&para.value0, &para.value1, &para.value2, &para.value3, &para.value4};
  int32_t* indices[] = {&para.index0, &para.index1, &para.index2, &para.index3, &para.index4};
  for (size_t k = 0; k < breaks.value.size(); ++k) {
    *values[k] = MoveOutOfDomain(breaks.value[k], rescaling);
    *indices[k] = breaks.index[k];
  }
}

// Whether a float array's elements are n contiguous floats.
bool HoldsFloats(const Kiv3DFloatArray& values, int n) {
  const cv::Mat& m = values.Mat();
  return m.data != nullptr && m.type() == CV_32FC1 && m.isContinuous() &&
         static_cast<int64_t>(m.total()) >= n;
}

}  // namespace

long LinearColourMapFivePoint(const KivRangeImage& image, KivColorArray* out,
                              LinearColorMapLUT_Para& para, const KivColor& underColor,
                              const KivColor& overColor, int mapType, bool automatic) {
  return ColourRangeCopy(image, mapType, out, [&](KivRangeImage& copy, int n, uint8_t* colours) {
    const NormalisedHeights heights = NormaliseHeights(copy, n, para, automatic);
    if (heights.values == nullptr) return LUT_ERR_PARA_MAPPING_FAILED;
    float* const values = heights.values;
    const BreakValues& breaks = heights.breaks;
    // The record is written only once the break values are known, before the colouring.
    if (automatic) WriteBack(breaks, heights.rescaling, para);
    const FivePointScale scale =
        FivePointScaleOf(breaks, SelectParaColourTable(mapType), underColor, overColor, mapType);
    ColourFivePoint(values, n, scale, colours);
    return LUT_OK;
  });
}

long LinearColourMapFivePointArray(Kiv3DFloatArray& values, KivColorArray* out,
                                   const LinearColorMapLUT_Para& para, const KivColor& underColor,
                                   const KivColor& overColor, int mapType, bool automatic) {
  const int n = values.Length();
  // An array whose matrix is not n contiguous floats has nothing this routine can read.
  if (n <= 0 || !HoldsFloats(values, n)) return LUT_ERR_RANGE_IMAGE_EMPTY;
  if (!IsParaMapType(mapType)) return LUT_ERR_PARAM_1;
  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;

  uint8_t* colours = nullptr;
  const long sized = SizeColourOutput(*out, n, LUT_ERR_OUTPUT_FAILED, colours);
  if (sized != LUT_OK) return sized;

  return RunStage(LUT_ERR_PARA_MAPPING_FAILED, [&] {
    float* data = values.Data();
    const ParaRescaling rescaling = FindRescaling(data, n, RescaledElements::kValidMeasurements);
    ApplyRescaling(data, n, rescaling, RescaledElements::kValidMeasurements);
    // The caller's values are taken as values of the normalised domain already.
    const BreakValues breaks = ChooseBreakValues(data, n, rescaling, para, automatic, false);
    const FivePointScale scale = FivePointScaleOf(breaks, SelectParaColourTableForArray(mapType),
                                                  underColor, overColor, mapType);
    ColourFivePoint(data, n, scale, colours);
    return LUT_OK;
  });
}

namespace {

constexpr int kSegmentCount = 4;
constexpr int kChartBins = 256;

// One segment coloured as the equalised colouring with an index range does it: bounds clamped to
// the segment's own valid values, entries 0..63 of its quarter of the grey table, and the caller's
// colours for valid values outside the bounds. Everything outside the segment is invalid there.
void ColourSegment(const float* data, int n, double low, double high, int segment,
                   const ColourEntry& under, const ColourEntry& over, int mapType, uint8_t* out) {
  const PixelSummary<float> summary = SummarisePixels(data, n);
  const double lowBound = std::max(low, static_cast<double>(summary.stats.minimum));
  const double highBound = std::min(high, static_cast<double>(summary.stats.maximum));
  const ColourTable quarter = QuarterOfParaGrey(segment);
  const ColourRange range{0, kColourTableSize / 4 - 1, under, over};
  const EqualisedColouring how{&quarter,
                               lowBound,
                               highBound,
                               summary.stats.validCount,
                               /*reserveIndex0=*/true,
                               mapType,
                               /*widthFromDifference=*/true,
                               &range};
  ColourByEqualisation(data, n, summary, how, out);
}

// The picture: a pixel in mask k takes segment k's colour; any other pixel its invalid colour,
// underColor below t0 or overColor above t4, compared at the float bounds the masks were cut at.
// A valid value that is none of these (only NaN break values leave one) takes the invalid colour.
void ComposeSegments(const float* values, int n, const std::array<cv::Mat, kSegmentCount>& masks,
                     const std::array<const uint8_t*, kSegmentCount>& coloured, float low,
                     float high, const ColourEntry& under, const ColourEntry& over,
                     const ColourEntry& invalid, uint8_t* out) {
  std::array<const uint8_t*, kSegmentCount> inside{};
  for (int k = 0; k < kSegmentCount; ++k) inside[static_cast<size_t>(k)] = masks[k].ptr<uint8_t>();
  for (int i = 0; i < n; ++i) {
    const size_t at = 3 * static_cast<size_t>(i);
    const uint8_t* colour = nullptr;
    for (int k = 0; k < kSegmentCount && colour == nullptr; ++k) {
      if (inside[static_cast<size_t>(k)][i] != 0) colour = coloured[static_cast<size_t>(k)] + at;
    }
    if (colour == nullptr) {
      const float v = values[i];
      const ColourEntry& other =
          !IsParaValid(v) ? invalid : (v < low ? under : (v > high ? over : invalid));
      colour = other.data();
    }
    std::memcpy(out + at, colour, 3);
  }
}

// A matrix's elements as one contiguous run (the segmentation hands back fresh, continuous ones).
cv::Mat Contiguous(const cv::Mat& m) { return m.isContinuous() ? m : m.clone(); }

}  // namespace

long ColourMapSegmented(const KivRangeImage& image, KivColorArray* out,
                        const LinearColorMapLUT_Para& para, const KivColor& underColor,
                        const KivColor& overColor, int mapType, bool automatic, int sizeA,
                        int sizeB, KivVarArray* vectorA, KivVarArray* vectorB) {
  return ColourRangeCopy(image, mapType, out, [&](KivRangeImage& copy, int n, uint8_t* colours) {
    ThrowIfInjected(FaultStage::kColouring);
    const NormalisedHeights heights = NormaliseHeights(copy, n, para, automatic);
    if (heights.values == nullptr) return LUT_ERR_PARA_MAPPING_FAILED;
    float* const values = heights.values;
    const BreakValues& breaks = heights.breaks;
    const std::array<double, 5>& t = breaks.value;

    const int width = image.Width();
    const int height = image.Height();
    const cv::Mat normalised(height, width, CV_32FC1, values);
    std::array<cv::Mat, kSegmentCount> masks, segments;
    std::array<int, kSegmentCount> counts{};
    generateSegmentedImages(normalised, masks[0], masks[1], masks[2], masks[3], t[0], t[1], t[2],
                            t[3], t[4], segments[0], segments[1], segments[2], segments[3],
                            counts[0], counts[1], counts[2], counts[3]);

    // The chart marks [t1, t3] and reports its centre, the middle of the four colourings.
    cv::Mat chart;
    const double c = DrawHistogramChart(normalised, kChartBins, t[1], t[3], chart);
    const double low = t[0];
    const double high = t[4];
    const std::array<std::pair<double, double>, kSegmentCount> bounds = {{
        {low, (low + c) * 0.5},
        {(low + c) * 0.5, c},
        {c, (high + c) * 0.5},
        {(high + c) * 0.5, high},
    }};

    const ColourEntry under = StoredColour(underColor);
    const ColourEntry over = StoredColour(overColor);
    std::array<KivImage, kSegmentCount> colouredSegments;
    std::array<const uint8_t*, kSegmentCount> coloured{};
    for (int k = 0; k < kSegmentCount; ++k) {
      const size_t s = static_cast<size_t>(k);
      masks[s] = Contiguous(masks[s]);
      const cv::Mat segment = Contiguous(segments[s]);
      colouredSegments[s] = KivImage(width, height, 3, KIV_IMAGE_8U);
      ColourSegment(segment.ptr<float>(), n, bounds[s].first, bounds[s].second, k, under, over,
                    mapType, colouredSegments[s].Data());
      coloured[s] = colouredSegments[s].Data();
    }
    ComposeSegments(values, n, masks, coloured, NarrowToFloat(low), NarrowToFloat(high), under,
                    over, InvalidColour(mapType), colours);

    // Everything is built; only now are the caller's arrays extended.
    const std::vector<int> ticks = LegendTicks(para, automatic, sizeA, sizeB);
    if (vectorB != nullptr) {
      for (int tick : ticks) vectorB->Append(KivVar(tick));
    }
    if (vectorA != nullptr) {
      KivImage chartImage;
      chartImage.Mat() = chart;
      vectorA->Append(KivVar(chartImage));
      for (const KivImage& segment : colouredSegments) vectorA->Append(KivVar(segment));
      for (int count : counts) vectorA->Append(KivVar(count));
    }
    return LUT_OK;
  });
}

}  // namespace KIVMV
