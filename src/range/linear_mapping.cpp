#include "range/linear_mapping.h"

#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <type_traits>
#include <vector>

#include "KivLUTStatus.h"
#include "common/colour_output.h"
#include "common/load_time_config.h"
#include "common/stage_status.h"
#include "range/checked_pixel_count.h"
#include "range/statistics.h"

namespace KIVMV {

std::vector<int> ChunkBoundaries(int n, int workers) {
  std::vector<int> boundaries{0};
  if (n <= 0) return boundaries;
  const int64_t chunk = (n - 1) / std::max(workers, 1) + 1;
  for (int64_t begin = chunk; begin < n; begin += chunk) {
    boundaries.push_back(static_cast<int>(begin));
  }
  boundaries.push_back(n);
  return boundaries;
}

namespace {

// 8- and 16-bit pixels in the offset domain u = v - lowest(T), where the marker is 0.
template <typename T>
using RawOffset = std::make_unsigned_t<T>;

template <typename T>
RawOffset<T> ToRawOffset(T v) {
  using Offset = RawOffset<T>;
  return static_cast<Offset>(static_cast<Offset>(v) - static_cast<Offset>(kLowestRaw<T>));
}

template <typename T>
T FromRawOffset(RawOffset<T> u) {
  return static_cast<T>(static_cast<int>(u) + static_cast<int>(kLowestRaw<T>));
}

// The maximum is taken over u (the marker cannot raise it) and the minimum over u - 1, which wraps
// the marker round to the top, so both are plain unsigned reductions that vectorise.
template <typename T>
class RawExtremesBody {
  using Offset = RawOffset<T>;

 public:
  explicit RawExtremesBody(const T* data) : data_(data) {}
  RawExtremesBody(RawExtremesBody& other, tbb::split) : data_(other.data_) {}

  void operator()(const tbb::blocked_range<int>& range) {
    Offset below = belowMinimum, maximum = maximumOffset;
    for (int i = range.begin(); i < range.end(); ++i) {
      const Offset u = ToRawOffset(data_[i]);
      const Offset wrapped = static_cast<Offset>(u - 1u);
      below = wrapped < below ? wrapped : below;
      maximum = u > maximum ? u : maximum;
    }
    belowMinimum = below;
    maximumOffset = maximum;
  }
  void join(const RawExtremesBody& right) {
    if (right.belowMinimum < belowMinimum) belowMinimum = right.belowMinimum;
    if (right.maximumOffset > maximumOffset) maximumOffset = right.maximumOffset;
  }

  const T* data_;
  Offset belowMinimum = std::numeric_limits<Offset>::max();  // still the top: markers only
  Offset maximumOffset = 0;
};

}  // namespace

template <typename T>
ValueStatistics<T> FindMinMaxOfRawValues(const T* data, int n) {
  static_assert(kHasValueColours<T>);
  // The offsets rely on the marker being the lowest value, the initial maximum.
  static_assert(PixelTraits<T>::kInitialMax == kLowestRaw<T>);
  static_assert(PixelTraits<T>::kInitialMin == std::numeric_limits<T>::max());
  RawExtremesBody<T> body(data);
  tbb::parallel_reduce(tbb::blocked_range<int>(0, n, GrainSize(n)), body, tbb::auto_partitioner());
  const bool anyValid = body.belowMinimum != std::numeric_limits<RawOffset<T>>::max();
  const T minimum = anyValid ? FromRawOffset<T>(static_cast<RawOffset<T>>(body.belowMinimum + 1u))
                             : PixelTraits<T>::kInitialMin;
  return {minimum, FromRawOffset<T>(body.maximumOffset), 0};
}

template ValueStatistics<uint8_t> FindMinMaxOfRawValues(const uint8_t*, int);
template ValueStatistics<int8_t> FindMinMaxOfRawValues(const int8_t*, int);
template ValueStatistics<uint16_t> FindMinMaxOfRawValues(const uint16_t*, int);
template ValueStatistics<int16_t> FindMinMaxOfRawValues(const int16_t*, int);

FractionCut CutAtFractions(std::vector<float>& values, double upperFraction, double lowerFraction) {
  FractionCut cut{0.0f, 0.0f};
  const int64_t count = static_cast<int64_t>(values.size());
  if (count > 0) {
    int64_t lowIndex = numeric::TruncateToInt64(static_cast<double>(count) * lowerFraction);
    int64_t highIndex =
        numeric::TruncateToInt64((1.0 - upperFraction) * static_cast<double>(count));
    // Fractions outside [0, 1] never get here; the clamps keep the selection inside the values.
    lowIndex = std::clamp<int64_t>(lowIndex, 0, count - 1);
    highIndex = std::clamp<int64_t>(highIndex, lowIndex, count - 1);
    const auto low = values.begin() + lowIndex;
    std::nth_element(values.begin(), low, values.end());
    cut.lowValue = *low;
    // Everything after `low` is at least as large, so the upper cut is found among those.
    const auto high = values.begin() + highIndex;
    std::nth_element(low, high, values.end());
    cut.highValue = *high;
  }
  // A single cut value would leave nothing to divide by.
  if (cut.highValue == cut.lowValue) cut.highValue = cut.lowValue + 1e-6f;
  return cut;
}

namespace {

// The colouring stage of the routines below: `kernel` typed by the image's pixel type. A data type
// outside the seven colours nothing and succeeds.
template <typename Kernel>
long ColourEachPixelType(const KivRangeImage& image, Kernel&& kernel) {
  return RunStage(LUT_ERR_PARA_MAPPING_FAILED, [&] { VisitPixelType(image.DataType(), kernel); });
}

// The start of the routines with bounds or extremes: the pixel count and the map type, then the
// routine's own checks, then a non-null output sized in a stage of its own. `n` receives the pixel
// count and `colours` the output's first byte.
template <typename OwnChecks>
long CheckAndSizeOutput(const KivRangeImage& image, int mapType, KivColorArray* out, int& n,
                        uint8_t*& colours, OwnChecks&& ownChecks) {
  if (const long check = CheckPixelsAndMapType(image, mapType, IsMapType, n); check != LUT_OK) {
    return check;
  }
  if (const long check = ownChecks(); check != LUT_OK) return check;
  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;
  return SizeColourOutput(*out, n, LUT_ERR_OUTPUT_FAILED, colours);
}

template <typename T>
void ColourLinearSerial(const T* data, int n, const SerialLinearMapping& mapping, uint8_t* out) {
  ThrowIfInjected(FaultStage::kColouring);
  if constexpr (kHasValueColours<T>) {
    if (UseValueColours<T>(n)) {
      const std::vector<PaddedColour> colours = BuildSerialValueColours<T>(mapping);
      ColourByValue(data, 0, n, colours.data(), out);
      return;
    }
  }
  // A local copy: byte stores may alias the caller's, and would force a reload per pixel.
  const SerialLinearMapping local = mapping;
  for (int i = 0; i < n; ++i) {
    WriteColour(out + 3 * static_cast<size_t>(i), SerialLinearColour(data[i], local));
  }
}

// Valid pixels only; the vector is what the fraction cut sorts.
std::vector<float> ValidValues(const float* data, int n) {
  std::vector<float> valid;
  valid.reserve(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    if (IsValidPixel(data[i])) valid.push_back(data[i]);
  }
  return valid;
}

// Every pixel, invalid ones included, becomes (v - lowValue) / (highValue - lowValue) clamped to
// [0, 1] in single precision. The clamp is a maximum with 0, then a minimum with 1: markers and
// infinities end up at 0 or 1 and count as valid afterwards, while NaN fails both comparisons and
// stays NaN, so it keeps the invalid colour.
void ClipToUnitRange(float* data, int n, const FractionCut& cut) {
  const float span = cut.highValue - cut.lowValue;
  tbb::parallel_for(
      tbb::blocked_range<int>(0, n, GrainSize(n)),
      [&](const tbb::blocked_range<int>& range) {
        for (int i = range.begin(); i != range.end(); ++i) {
          data[i] = std::min(std::max((data[i] - cut.lowValue) / span, 0.0f), 1.0f);
        }
      },
      tbb::auto_partitioner());
}

}  // namespace

long LinearColourMapWithColours(const KivRangeImage& image, int mapType, double low, double high,
                                int indexLow, int indexHigh, const KivColor& underColor,
                                const KivColor& overColor, KivColorArray* out) {
  int n = 0;
  uint8_t* colours = nullptr;
  const long ready = CheckAndSizeOutput(image, mapType, out, n, colours, [&] {
    if (!(low <= high)) return LUT_ERR_PARAM_2;
    if (!IsOrderedIndexRange(indexLow, indexHigh)) return LUT_ERR_PARAM_3;
    if (!IsBelowTableSize(indexHigh, kColourTableSize)) return LUT_ERR_PARAM_2;
    return LUT_OK;
  });
  if (ready != LUT_OK) return ready;

  return ColourEachPixelType(image, [&](auto tag) {
    using T = typename decltype(tag)::type;
    const RawBounds bounds = BoundsInUnitsOf<T>(TruncatedRawBounds, low, high, image);
    const SerialLinearMapping mapping{bounds.low,
                                      bounds.high,
                                      indexLow,
                                      indexHigh,
                                      StoredColour(underColor),
                                      StoredColour(overColor),
                                      &SelectColourTable(mapType),
                                      InvalidColour(mapType)};
    ColourLinearSerial(image.Ptr<T>(), n, mapping, colours);
  });
}

long LinearColourMapWithBounds(const KivRangeImage& image, int mapType, double low, double high,
                               KivColorArray* out) {
  int n = 0;
  uint8_t* colours = nullptr;
  const long ready = CheckAndSizeOutput(image, mapType, out, n, colours,
                                        [&] { return low <= high ? LUT_OK : LUT_ERR_PARAM_2; });
  if (ready != LUT_OK) return ready;

  return ColourEachPixelType(image, [&](auto tag) {
    using T = typename decltype(tag)::type;
    const RawBounds bounds = BoundsInUnitsOf<T>(FloatScaledRawBounds, low, high, image);
    ColourLinearParallel(image.Ptr<T>(), n, static_cast<float>(bounds.low),
                         static_cast<float>(bounds.high), mapType, colours);
  });
}

long LinearColourMapMinMax(const KivRangeImage& image, int mapType, KivColorArray* out) {
  int n = 0;
  uint8_t* colours = nullptr;
  const long ready = CheckAndSizeOutput(image, mapType, out, n, colours, [] { return LUT_OK; });
  if (ready != LUT_OK) return ready;

  return ColourEachPixelType(image, [&](auto tag) {
    using T = typename decltype(tag)::type;
    const T* data = image.Ptr<T>();
    ThrowIfInjected(FaultStage::kStatistics);
    // With no valid pixel the extremes stay crossed; every pixel then takes the invalid colour.
    const ValueStatistics<T> extremes = [&] {
      if constexpr (kHasValueColours<T>) {
        return FindMinMaxOfRawValues(data, n);
      } else {
        return FindMinMax(data, n);
      }
    }();
    ColourLinearParallel(data, n, static_cast<float>(extremes.minimum),
                         static_cast<float>(extremes.maximum), mapType, colours);
  });
}

long LinearColourMapFractions(const KivRangeImage& image, KivColorArray* out, int mapType,
                              double upperFraction, double lowerFraction) {
  int n = 0;
  if (const long check = CheckPixelsAndMapType(image, mapType, IsMapType, n); check != LUT_OK) {
    return check;
  }
  if (!IsFraction(upperFraction)) return LUT_ERR_PARAM_2;
  if (!IsFraction(lowerFraction)) return LUT_ERR_PARAM_3;
  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;

  // The values are rewritten before they are coloured.
  KivRangeImage copy;
  uint8_t* colours = nullptr;
  const long sized = CopyAndSizeOutput(image, n, *out, copy, colours);
  if (sized != LUT_OK) return sized;

  // Only float pixel matrices are coloured here; anything else ends the call with all bits set.
  if (copy.Mat().empty() || copy.Mat().type() != CV_32FC1) return -1;

  return RunStage(LUT_ERR_PARA_MAPPING_FAILED, [&] {
    float* values = copy.Ptr<float>();
    ThrowIfInjected(FaultStage::kStatistics);
    std::vector<float> valid = ValidValues(values, n);
    const FractionCut cut = CutAtFractions(valid, upperFraction, lowerFraction);
    valid = std::vector<float>();  // not needed past the cut; give the memory back early
    ClipToUnitRange(values, n, cut);
    const ValueStatistics<float> extremes = FindMinMax(values, n);
    ColourLinearParallel(values, n, extremes.minimum, extremes.maximum, mapType, colours);
    return LUT_OK;
  });
}

}  // namespace KIVMV
