#include "range/equalisation.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <type_traits>
#include <utility>

#include "common/load_time_config.h"
#include "common/numeric_helpers.h"
#include "common/pixel_rules.h"
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
}  // namespace

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
void ColourByEqualisation(const T* data, int n, const PixelSummary<T>& summary,
                          const EqualisedColouring& how, uint8_t* out) {
  const ColourTable& colours = *how.colours;
  const double low = how.low;
  const double high = how.high;
  const int binCount = how.reserveIndex0 ? kEqualisedBins : kEqualisedBins + 1;
  // The clamping form divides the difference; the others divide each bound. Both are kept as
  // they are, also in the degenerate test.
  const double w =
      how.widthFromDifference ? (high - low) / binCount : high / binCount - low / binCount;
  if (!(w > 1e-8)) {
    // The range collapsed to a point (or crossed, with no valid pixel): one entry for all.
    const uint32_t index = std::min<uint32_t>(numeric::LowUnsigned32(numeric::TruncateToInt64(low)),
                                              kColourTableSize - 1);
    if constexpr (kHasValueColours<T>) {
      const ColourEntry& valid = colours[index];
      const ColourEntry& invalid = InvalidColour(how.mapType);
      ColourByLookup(data, n, TabulateValueColours<T>([&](T v) -> const ColourEntry& {
                       return IsValidPixel(v) ? valid : invalid;
                     }),
                     out);
    } else {
      ColourWithOneEntry(data, n, colours, index, how.mapType, out);
    }
    return;
  }

  Histogram histogram;
  if constexpr (kHasValueColours<T>) {
    histogram = HistogramFromCounts<T>(summary.rawCounts, w, low, high);
  } else {
    histogram = BuildHistogram(data, n, w, low, high);
  }
  const EqualisationTable slots = BuildEqualisationTable(histogram, how.validCount, binCount);
  const EqualisedScale scale{
      low, high, w, 1.0 / w, binCount, &slots, &colours, how.reserveIndex0, how.mapType};
  const ColourRange* range = how.range;

  if constexpr (kHasValueColours<T>) {
    // Only the values that occur are worth colouring.
    std::vector<PaddedColour> byValue(kRawValueCount<T>);
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

#define KIVLUT_INSTANTIATE_EQUALISATION(T)                                     \
  template PixelSummary<T> SummarisePixels<T>(const T*, int);                  \
  template void ColourByEqualisation<T>(const T*, int, const PixelSummary<T>&, \
                                        const EqualisedColouring&, uint8_t*);
KIVLUT_INSTANTIATE_EQUALISATION(uint8_t)
KIVLUT_INSTANTIATE_EQUALISATION(int8_t)
KIVLUT_INSTANTIATE_EQUALISATION(uint16_t)
KIVLUT_INSTANTIATE_EQUALISATION(int16_t)
KIVLUT_INSTANTIATE_EQUALISATION(int32_t)
KIVLUT_INSTANTIATE_EQUALISATION(float)
KIVLUT_INSTANTIATE_EQUALISATION(double)
#undef KIVLUT_INSTANTIATE_EQUALISATION

}  // namespace KIVMV
