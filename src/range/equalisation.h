// Histogram equalisation of pixel values onto a colour table.
//
// The value interval [low, high] is cut into B equal bins, and each bin receives a run of
// consecutive colour-table slots in proportion to its share of the valid pixels, so crowded value
// ranges spread over many colours and sparse ones over few. Range images, grey images and float
// arrays all colour through this engine.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "common/numeric_helpers.h"
#include "range/raw_value_lut.h"
#include "range/statistics.h"
#include "tables/colour_tables.h"

namespace KIVMV {

// Bins that share the table when entry 0 is kept for values below the range.
inline constexpr int kEqualisedBins = 255;

// The slots allotted to each bin: bin b owns slots end[b] - weight[b] + 1 .. end[b].
struct EqualisationTable {
  int binCount = kEqualisedBins;
  std::array<uint32_t, kHistogramBins> weight{};
  std::array<uint32_t, kHistogramBins> end{};
  std::vector<int> nonEmptyBins;  // ascending bins whose weight is at least 1
  // The slot every value of a bin without slots takes; it depends on the bin alone.
  std::array<int64_t, kHistogramBins> emptyBinSlot{};
};

// Fills end, nonEmptyBins and emptyBinSlot of a table from its weights.
void CompleteEqualisationTable(EqualisationTable& table);

// The slot of an empty bin b: that of the nearest bin with slots, searched upward from a distance
// of 10000, where only a strictly nearer bin replaces the best, so of two equally near bins the
// lower wins. Its last slot when b lies above it, its first otherwise. With no bin holding slots
// the search ends at bin 0 with no side found, which we take as below: end[0] - weight[0] + 1.
int64_t NearestSlotForEmptyBin(int b, const EqualisationTable& table);

// Allots the B slots to the bins by their share hist[b] / validCount x B: largest share first
// (equal shares in ascending bin order), each at least 1, rounded half away from zero. The bin
// whose weight makes the running total reach B gets none, and so does every bin after it.
EqualisationTable BuildEqualisationTable(const Histogram& histogram, uint32_t validCount,
                                         int binCount);

// The slot of a value v in bin b (bin width w from low). A bin with slots interpolates linearly
// inside its span (end - weight, end]; a bin without takes its precomputed nearest slot.
inline int64_t EqualisedSlot(double v, int b, double w, double low,
                             const EqualisationTable& table) {
  const uint32_t weight = table.weight[b];
  if (weight == 0) return table.emptyBinSlot[b];
  const double end = table.end[b];
  return numeric::TruncateToInt64(end - (weight - (v - (b * w + low)) / w * weight));
}

// The bin of a value in [low, high): floor((v - low) / w + nudge), bin B pulled back to B - 1 and
// anything else outside 0..B-1 (only a non-finite w gets there) clamped.
inline int EqualisedBin(double v, double w, double low, double nudge, int binCount) {
  int64_t bin = numeric::TruncateToInt64(std::floor((v - low) / w + nudge));
  if (bin == binCount) bin = binCount - 1;
  if (bin < 0) bin = 0;
  if (bin > binCount - 1) bin = binCount - 1;
  return static_cast<int>(bin);
}

// The same bin and slot with the divisions by w replaced by a multiplication by 1 / w wherever
// that cannot change the answer. The product differs from the quotient by a few units in the last
// place; bins and slots are whole numbers, so unless the value lies within kReciprocalMargin of an
// integer its floor or truncation is the same, and in that rare case the division decides.
inline constexpr double kReciprocalMargin = 1e-9;

inline int EqualisedBinByReciprocal(double v, double w, double reciprocal, double low, double nudge,
                                    int binCount) {
  const double x = (v - low) * reciprocal + nudge;
  // Inside [0, binCount) the floor is the truncation, which a plain conversion gives.
  if (x >= 0.0 && x < binCount) {
    const int whole = static_cast<int>(x);
    if (x - whole > kReciprocalMargin && (whole + 1.0) - x > kReciprocalMargin) return whole;
  }
  return EqualisedBin(v, w, low, nudge, binCount);
}

inline int64_t EqualisedSlotByReciprocal(double v, int b, double w, double reciprocal, double low,
                                         const EqualisationTable& table) {
  const uint32_t weight = table.weight[b];
  if (weight == 0) return table.emptyBinSlot[b];
  const double end = table.end[b];
  const double slot = end - (weight - (v - (b * w + low)) * reciprocal * weight);
  // Slots lie within 0..256; far outside that the units in the last place grow past the margin.
  if (slot > -4096.0 && slot < 4096.0) {
    const int whole = static_cast<int>(slot);  // truncation toward zero
    const double fraction = std::fabs(slot - whole);
    if (fraction > kReciprocalMargin && fraction < 1.0 - kReciprocalMargin) return whole;
  }
  return EqualisedSlot(v, b, w, low, table);
}

// Entries lo..hi of the table only, with the caller's colours (as stored) outside [low, high].
struct ColourRange {
  int lo;
  int hi;
  ColourEntry below;
  ColourEntry above;
};

// How to colour once the statistics are known.
struct EqualisedColouring {
  const ColourTable* colours;
  double low;
  double high;
  uint32_t validCount;  // of all valid pixels, also those outside [low, high]
  // Entry 0 is kept for values below the range and invalid pixels take the invalid colour of
  // mapType (B = 255); without it invalid pixels take entry 0 and B = 256.
  bool reserveIndex0;
  int mapType;
  // The bin width as (high - low) / B when set, else as high / B - low / B.
  bool widthFromDifference;
  const ColourRange* range;  // null: the whole table
};

// The valid minimum, maximum and count of the pixels, and for 8- and 16-bit images with at least
// as many pixels as the type has values how many hold each raw value, which lets the histogram and
// the colouring work per value instead of per pixel (empty otherwise).
template <typename T>
struct PixelSummary {
  ValueStatistics<T> stats{};
  std::vector<uint32_t> rawCounts;
};

template <typename T>
PixelSummary<T> SummarisePixels(const T* data, int n);

// The valid minimum, maximum and count from counts of the raw values from the lowest on (they may
// stop before the highest), as a pass over the pixels would find them: each pixel's contribution
// depends on its value alone.
template <typename T>
ValueStatistics<T> StatisticsFromCounts(const std::vector<uint32_t>& counts) {
  ValueStatistics<T> stats{PixelTraits<T>::kInitialMin, PixelTraits<T>::kInitialMax, 0};
  for (int index = 0; index < static_cast<int>(counts.size()); ++index) {
    const T v = RawValueAtIndex<T>(index);
    if (counts[static_cast<size_t>(index)] == 0 || !IsValidPixel(v)) continue;
    UpdateExtremes(v, stats.minimum, stats.maximum);
    stats.validCount += counts[static_cast<size_t>(index)];
  }
  return stats;
}

// Colours n pixels: a range that collapsed to a point (bin width not above 1e-8) gives every valid
// pixel the one entry min(low as an unsigned 32-bit integer, 255); otherwise the histogram, the
// slot allotment and the colouring body.
template <typename T>
void ColourByEqualisation(const T* data, int n, const PixelSummary<T>& summary,
                          const EqualisedColouring& how, uint8_t* out);

// Where ColourByEqualisation, run with `how` for the whole table (no colour range, entry 0 kept
// for values below the range), puts the table's entries along the values of T. A value's entry
// can fall back by one where a bin without slots takes the first slot of the bin above, so the
// scale follows g(v), the least entry of the valid values from v up to high, which never falls:
// starts[i] is the lowest valid value in [low, high] with g(v) >= i (an entry no value takes
// shares the start of the next), starts[0] = low and starts[256] = high. Exact: 8- and 16-bit
// values are walked one by one; wider types are searched bin by bin, since the bin of a value
// never falls as the value rises and within a bin neither does its entry. A range that collapsed
// to a point colours every valid value with one entry e, and gives the smaller bound up to e and
// the larger one after it. Changes nothing in the colouring itself.
template <typename T>
std::vector<double> EqualisedEntryStarts(const T* data, int n, const PixelSummary<T>& summary,
                                         const EqualisedColouring& how);

}  // namespace KIVMV
