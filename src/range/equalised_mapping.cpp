#include "range/equalised_mapping.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <type_traits>
#include <utility>

#include "KivLUTStatus.h"
#include "common/fault_injection.h"
#include "common/load_time_config.h"
#include "common/numeric_helpers.h"
#include "range/colour_output.h"
#include "range/pixel_traits.h"
#include "range/raw_value_lut.h"
#include "range/statistics.h"
#include "tables/colour_tables.h"

namespace KIVMV {

int64_t NearestSlotForEmptyBin(int b, const EqualisationTable& table) {
  int nearest = 0;
  int bestDistance = 10000;
  bool above = false;
  for (int candidate : table.nonEmptyBins) {
    const int distance = std::abs(b - candidate);
    if (distance < bestDistance) {
      bestDistance = distance;
      nearest = candidate;
      above = b > candidate;
    }
  }
  const int64_t end = table.end[nearest];
  return above ? end : end - table.weight[nearest] + 1;
}

void CompleteEqualisationTable(EqualisationTable& table) {
  uint32_t run = 0;
  table.nonEmptyBins.clear();
  for (int b = 0; b < table.binCount; ++b) {
    run += table.weight[b];
    table.end[b] = run;
    if (table.weight[b] >= 1) table.nonEmptyBins.push_back(b);
  }
  for (int b = 0; b < table.binCount; ++b) {
    table.emptyBinSlot[b] = table.weight[b] == 0 ? NearestSlotForEmptyBin(b, table) : 0;
  }
}

EqualisationTable BuildEqualisationTable(const Histogram& histogram, uint32_t validCount,
                                         int binCount) {
  EqualisationTable table;
  table.binCount = binCount;

  // Shares of all valid pixels, those outside [low, high] included, so they may sum below B.
  std::vector<std::pair<int, double>> shares(binCount);
  for (int b = 0; b < binCount; ++b) {
    shares[b] = {b, static_cast<double>(histogram[b]) / validCount * binCount};
  }
  // Equal shares keep ascending bin order: with many empty bins this decides which get no slot,
  // and a stable order gives every compiler the same colours.
  std::stable_sort(shares.begin(), shares.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });

  int64_t total = 0;
  for (const auto& [bin, share] : shares) {
    const int64_t weight = std::max<int64_t>(1, numeric::TruncateToInt64(std::round(share)));
    total += weight;
    table.weight[bin] = total < binCount ? static_cast<uint32_t>(weight) : 0u;
  }

  CompleteEqualisationTable(table);
  return table;
}

namespace {

constexpr double kBinNudge = 1e-14;

// Entry 0 is kept for values below the range, so slots count from 1.
constexpr bool kReserveIndex0 = true;

int ClampToTable(int64_t index) {
  return static_cast<int>(std::min<int64_t>(kColourTableSize - 1, std::max<int64_t>(0, index)));
}

inline void WriteColour(uint8_t* out, int i, const ColourEntry& colour) {
  uint8_t* pixel = out + 3 * static_cast<size_t>(i);
  pixel[0] = colour[0];
  pixel[1] = colour[1];
  pixel[2] = colour[2];
}

// Everything a colouring body needs besides the pixels.
struct EqualisedScale {
  double low;
  double high;
  double w;
  double reciprocal;  // 1 / w
  int binCount;
  const EqualisationTable* slots;
  const ColourTable* colours;
  bool reserveIndex0;
  int mapType;
};

template <typename T>
ColourEntry InvalidOrFirst(const EqualisedScale& s) {
  return s.reserveIndex0 ? InvalidColour(s.mapType) : (*s.colours)[0];
}

// The whole table: values at or above high take the last entry, values below low the first.
template <typename T>
inline ColourEntry EqualisedColour(T raw, const EqualisedScale& s) {
  if (!IsValidPixel(raw)) return InvalidOrFirst<T>(s);
  const double v = static_cast<double>(raw);
  if (v >= s.high) return (*s.colours)[kColourTableSize - 1];
  if (v < s.low) return (*s.colours)[0];
  const int b = EqualisedBinByReciprocal(v, s.w, s.reciprocal, s.low, kBinNudge, s.binCount);
  const int64_t slot = EqualisedSlotByReciprocal(v, b, s.w, s.reciprocal, s.low, *s.slots);
  return (*s.colours)[ClampToTable(slot + (s.reserveIndex0 ? 1 : 0))];
}

struct ColourRange {
  int lo;
  int hi;
  ColourEntry below;
  ColourEntry above;
};

// Entries lo..hi only; values outside [low, high] take the caller's colours, and a value equal to
// a bound is mapped normally.
template <typename T>
inline ColourEntry EqualisedRangeColour(T raw, const EqualisedScale& s, const ColourRange& r) {
  if (!IsValidPixel(raw)) return InvalidOrFirst<T>(s);
  const double v = static_cast<double>(raw);
  if (v < s.low) return r.below;
  if (v > s.high) return r.above;
  const int b = EqualisedBinByReciprocal(v, s.w, s.reciprocal, s.low, 0.0, s.binCount);
  const int64_t slot = EqualisedSlotByReciprocal(v, b, s.w, s.reciprocal, s.low, *s.slots);
  // lo is taken off the slot before scaling and not added back afterwards.
  const double scaled = (static_cast<double>(slot) - r.lo) / s.binCount * (r.hi - r.lo);
  return (*s.colours)[ClampToTable(numeric::TruncateToInt64(scaled) + (s.reserveIndex0 ? 1 : 0))];
}

template <typename T>
class HisttoLUTTbbMinMax {
 public:
  HisttoLUTTbbMinMax(const T* data, const EqualisedScale& scale, uint8_t* out)
      : data_(data), scale_(scale), out_(out) {}
  HisttoLUTTbbMinMax(HisttoLUTTbbMinMax& other, tbb::split)
      : data_(other.data_), scale_(other.scale_), out_(other.out_) {}

  void operator()(const tbb::blocked_range<int>& range) const {
    for (int i = range.begin(); i != range.end(); ++i) {
      WriteColour(out_, i, EqualisedColour(data_[i], scale_));
    }
  }
  void join(const HisttoLUTTbbMinMax&) {}

 private:
  const T* data_;
  EqualisedScale scale_;
  uint8_t* out_;
};

template <typename T>
class HisttoLUTTbbMinMaxAndColorRange {
 public:
  HisttoLUTTbbMinMaxAndColorRange(const T* data, const EqualisedScale& scale,
                                  const ColourRange& range, uint8_t* out)
      : data_(data), scale_(scale), range_(range), out_(out) {}
  HisttoLUTTbbMinMaxAndColorRange(HisttoLUTTbbMinMaxAndColorRange& other, tbb::split)
      : data_(other.data_), scale_(other.scale_), range_(other.range_), out_(other.out_) {}

  void operator()(const tbb::blocked_range<int>& range) const {
    for (int i = range.begin(); i != range.end(); ++i) {
      WriteColour(out_, i, EqualisedRangeColour(data_[i], scale_, range_));
    }
  }
  void join(const HisttoLUTTbbMinMaxAndColorRange&) {}

 private:
  const T* data_;
  EqualisedScale scale_;
  ColourRange range_;
  uint8_t* out_;
};

// How the caller's bounds become the bounds of the mapping.
enum class BoundsRule {
  kDataRange,  // the valid minimum and maximum
  kMargin,     // kept only when inside the data range by more than a margin
  kClamp,      // clamped to the data range
};

struct EqualisedRequest {
  int mapType;
  BoundsRule rule;
  double low;
  double high;
  const ColourRange* colourRange;  // only with kClamp
};

// Raw units of an integer image: the offset is multiplied by the resolution and added before the
// division, and the upper bound is truncated after one unit is added, exactly as the suite does.
std::pair<double, double> BoundsInRawUnits(double low, double high, const KivRangeImage& image) {
  const double r = image.ResolutionZ();
  const double o = image.OffsetZ();
  const double rawLow = (low + o * r) / r;
  const double rawHigh = static_cast<double>(numeric::TruncateToInt64((high + o * r) / r + 1.0));
  return {rawLow, rawHigh};
}

// The statistics and the histogram read from counts of raw values: the same numbers as a pass
// over the pixels, since each pixel's contribution depends on its value alone.
template <typename T>
ValueStatistics<T> StatisticsFromCounts(const std::vector<uint32_t>& counts) {
  ValueStatistics<T> stats{PixelTraits<T>::kInitialMin, PixelTraits<T>::kInitialMax, 0};
  for (int index = 0; index < kRawValueCount<T>; ++index) {
    const T v = RawValueAtIndex<T>(index);
    if (counts[index] == 0 || !IsValidPixel(v)) continue;
    UpdateExtremes(v, stats.minimum, stats.maximum);
    stats.validCount += counts[index];
  }
  return stats;
}

template <typename T>
Histogram HistogramFromCounts(const std::vector<uint32_t>& counts, double w, double low,
                              double high) {
  Histogram histogram(kHistogramBins, 0);
  for (int index = 0; index < kRawValueCount<T>; ++index) {
    if (counts[index] == 0) continue;
    const int bin = HistogramBin(RawValueAtIndex<T>(index), w, low, high);
    if (bin >= 0) histogram[bin] += counts[index];
  }
  return histogram;
}

// What the colouring needs to know about the pixels beyond their values.
template <typename T>
struct PixelSummary {
  ValueStatistics<T> stats{};
  std::vector<uint32_t> rawCounts;  // per raw value, for types coloured by raw value
};

template <typename T>
PixelSummary<T> SummarisePixels(const T* data, int n) {
  PixelSummary<T> summary;
  if constexpr (kHasValueColours<T>) {
    summary.rawCounts = CountRawValues(data, n);
    summary.stats = StatisticsFromCounts<T>(summary.rawCounts);
  } else {
    summary.stats = FindValueStatistics(data, n);
  }
  return summary;
}

template <typename T>
void ColourByEqualisation(const T* data, int n, double low, double high,
                          const PixelSummary<T>& summary, const EqualisedRequest& request,
                          uint8_t* out) {
  const ColourTable& colours = SelectColourTable(request.mapType);
  const int binCount = kReserveIndex0 ? kEqualisedBins : kEqualisedBins + 1;
  // The clamping form divides the difference; the others divide each bound. Both are kept as
  // they are, also in the degenerate test.
  const double w = request.rule == BoundsRule::kClamp ? (high - low) / binCount
                                                      : high / binCount - low / binCount;
  if (!(w > 1e-8)) {
    // The range collapsed to a point (or crossed, with no valid pixel): one entry for all.
    const uint32_t index = std::min<uint32_t>(numeric::LowUnsigned32(numeric::TruncateToInt64(low)),
                                              kColourTableSize - 1);
    if constexpr (kHasValueColours<T>) {
      const ColourEntry& valid = colours[index];
      const ColourEntry& invalid = InvalidColour(request.mapType);
      ColourByLookup(data, n, TabulateValueColours<T>([&](T v) -> const ColourEntry& {
                       return IsValidPixel(v) ? valid : invalid;
                     }),
                     out);
    } else {
      ColourWithOneEntry(data, n, colours, index, request.mapType, out);
    }
    return;
  }

  Histogram histogram;
  if constexpr (kHasValueColours<T>) {
    histogram = HistogramFromCounts<T>(summary.rawCounts, w, low, high);
  } else {
    histogram = BuildHistogram(data, n, w, low, high);
  }
  const EqualisationTable slots =
      BuildEqualisationTable(histogram, summary.stats.validCount, binCount);
  const EqualisedScale scale{
      low, high, w, 1.0 / w, binCount, &slots, &colours, kReserveIndex0, request.mapType};
  const ColourRange* range = request.colourRange;

  if constexpr (kHasValueColours<T>) {
    // Only the values that occur are worth colouring.
    std::vector<ValueColour> byValue(kRawValueCount<T>);
    for (int index = 0; index < kRawValueCount<T>; ++index) {
      if (summary.rawCounts[index] == 0) continue;
      const T v = RawValueAtIndex<T>(index);
      const ColourEntry c =
          range ? EqualisedRangeColour(v, scale, *range) : EqualisedColour(v, scale);
      byValue[index] = {c[0], c[1], c[2], 0};
    }
    ColourByLookup(data, n, byValue, out);
  } else {
    const tbb::blocked_range<int> pixels(0, n, GrainSize(n));
    if (range != nullptr) {
      HisttoLUTTbbMinMaxAndColorRange<T> body(data, scale, *range, out);
      tbb::parallel_reduce(pixels, body, tbb::auto_partitioner());
    } else {
      HisttoLUTTbbMinMax<T> body(data, scale, out);
      tbb::parallel_reduce(pixels, body, tbb::auto_partitioner());
    }
  }
}

template <typename T>
long MapEqualised(const KivRangeImage& image, int n, const EqualisedRequest& request,
                  uint8_t* out) {
  const T* data = image.Ptr<T>();
  double low = request.low;
  double high = request.high;
  PixelSummary<T> summary;
  try {
    ThrowIfInjected(FaultStage::kStatistics);
    if (std::is_integral_v<T> && request.rule != BoundsRule::kDataRange) {
      std::tie(low, high) = BoundsInRawUnits(low, high, image);
    }
    summary = SummarisePixels(data, n);
  } catch (...) {
    return LUT_ERR_STATISTICS_FAILED;
  }

  const double minimum = static_cast<double>(summary.stats.minimum);
  const double maximum = static_cast<double>(summary.stats.maximum);
  switch (request.rule) {
    case BoundsRule::kDataRange:
      low = minimum;
      high = maximum;
      break;
    case BoundsRule::kMargin: {
      const double margin = std::is_integral_v<T> ? 0.5 : 0.0001;
      low = low - minimum > margin ? low : minimum;
      high = maximum - high > margin ? high : maximum;
      break;
    }
    case BoundsRule::kClamp:
      low = std::max(low, minimum);
      high = std::min(high, maximum);
      break;
  }

  try {
    ThrowIfInjected(FaultStage::kColouring);
    ColourByEqualisation(data, n, low, high, summary, request, out);
  } catch (...) {
    return LUT_ERR_APPLY_FAILED;
  }
  return LUT_OK;
}

long RunEqualised(KivRangeImage& image, const EqualisedRequest& request, KivColorArray* out) {
  const int n = CheckedPixelCount(image);
  if (n <= 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  if (const ColourRange* range = request.colourRange) {
    if (range->hi < range->lo || range->lo < 0) return LUT_ERR_PARAM_4;
    if (range->hi > kColourTableSize - 1) return LUT_ERR_PARAM_5;
  }
  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;

  uint8_t* bytes = nullptr;
  try {
    bytes = PrepareColourOutput(*out, n);
  } catch (...) {
    return LUT_ERR_OUTPUT_FAILED;
  }

  long status = LUT_OK;
  // A data type outside the seven leaves the output as it is and succeeds.
  VisitPixelType(image.DataType(), [&](auto tag) {
    using T = typename decltype(tag)::type;
    status = MapEqualised<T>(image, n, request, bytes);
  });
  return status;
}

}  // namespace

long ColorMapLUTByDataRange(KivRangeImage& image, int mapType, KivColorArray* out) {
  return RunEqualised(image, {mapType, BoundsRule::kDataRange, 0.0, 0.0, nullptr}, out);
}

long ColorMapLUTWithBounds(KivRangeImage& image, int mapType, double low, double high,
                           KivColorArray* out) {
  return RunEqualised(image, {mapType, BoundsRule::kMargin, low, high, nullptr}, out);
}

long ColorMapLUTWithColourRange(KivRangeImage& image, int mapType, double low, double high, int lo,
                                int hi, const KivColor& below, const KivColor& above,
                                KivColorArray* out) {
  const ColourRange range{lo, hi, StoredColour(below), StoredColour(above)};
  return RunEqualised(image, {mapType, BoundsRule::kClamp, low, high, &range}, out);
}

}  // namespace KIVMV
