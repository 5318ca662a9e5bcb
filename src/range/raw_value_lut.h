// Colouring pixel types of at most 16 bits by the raw value.
//
// Such an image holds at most 65536 distinct values, and every per-pixel rule of the library
// depends on the value alone. Counting the values once, evaluating the exact rule once per value
// that occurs, and then colouring by table lookup gives the same bytes as evaluating the rule per
// pixel, at a fraction of the cost.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "common/load_time_config.h"
#include "common/monotone_runs.h"
#include "tables/colour_tables.h"
#include "tables/padded_colour.h"

namespace KIVMV {

// Pixel types whose every raw value can be coloured once up front.
template <typename T>
inline constexpr bool kHasValueColours = std::is_integral_v<T> && sizeof(T) <= 2;

// The lowest raw value of T, for 8- and 16-bit pixels also the invalid marker.
template <typename T>
inline constexpr T kLowestRaw = std::numeric_limits<T>::min();

template <typename T>
inline size_t ValueColourIndex(T v) {
  return static_cast<size_t>(static_cast<int>(v) - static_cast<int>(kLowestRaw<T>));
}

// The lookup table pays off once the image has at least as many pixels as T has values.
template <typename T>
inline bool UseValueColours(int n) {
  if constexpr (kHasValueColours<T>) {
    return static_cast<int64_t>(n) >= (int64_t{1} << (8 * sizeof(T)));
  } else {
    return false;
  }
}

// colourOf(v) for every raw value v of T, indexed by ValueColourIndex. A kernel tabulated this way
// colours by lookup exactly as it would per pixel.
template <typename T, typename ColourOf>
std::vector<PaddedColour> TabulateValueColours(ColourOf&& colourOf) {
  static_assert(kHasValueColours<T>);
  constexpr int kLowest = kLowestRaw<T>;
  constexpr int kHighest = std::numeric_limits<T>::max();
  std::vector<PaddedColour> colours(static_cast<size_t>(kHighest - kLowest + 1));
  for (int value = kLowest; value <= kHighest; ++value) {
    const ColourEntry& c = colourOf(static_cast<T>(value));
    colours[static_cast<size_t>(value - kLowest)] = Pad(c);
  }
  return colours;
}

// TabulateValueColours for a rule whose table entry, entryOf(v), never falls as the value rises
// from the lowest valid value (one above the marker) to the highest, run by run; the marker takes
// `invalid`.
template <typename T, typename EntryOf>
std::vector<PaddedColour> TabulateMonotoneValueColours(EntryOf&& entryOf, const ColourTable& table,
                                                       const ColourEntry& invalid) {
  static_assert(kHasValueColours<T>);
  constexpr int kLowest = kLowestRaw<T>;
  constexpr int kHighest = std::numeric_limits<T>::max();
  std::vector<PaddedColour> colours(static_cast<size_t>(kHighest - kLowest + 1));
  colours[0] = Pad(invalid);
  ForEachMonotoneRun(
      kLowest + 1, kHighest, [&entryOf](int value) { return entryOf(static_cast<T>(value)); },
      [&](int v, int last, int entry) {
        std::fill(colours.begin() + (v - kLowest), colours.begin() + (last - kLowest + 1),
                  Pad(table[static_cast<size_t>(entry)]));
      });
  return colours;
}

// Colours pixels begin..end-1 by lookup; nothing is written past pixel end - 1.
template <typename T>
void ColourByValue(const T* data, int begin, int end, const PaddedColour* colours, uint8_t* out) {
  // Captured by value: the colour stores may alias anything the lambda refers to, and would force
  // a reload of the pointers per pixel.
  const T* const first = data + begin;
  WriteColours(
      end - begin, [first, colours](int64_t i) { return colours[ValueColourIndex(first[i])]; },
      out + 3 * static_cast<size_t>(begin));
}

template <typename T>
inline constexpr int kRawValueCount = 1 << (8 * sizeof(T));

template <typename T>
inline T RawValueAtIndex(int index) {
  return static_cast<T>(index + static_cast<int>(std::numeric_limits<T>::min()));
}

// How many pixels hold each raw value, indexed by ValueColourIndex below `size`.
template <typename T>
class RawValueCounts {
 public:
  RawValueCounts(const T* data, size_t size) : data_(data), counts(size, 0) {}
  RawValueCounts(RawValueCounts& other, tbb::split)
      : data_(other.data_), counts(other.counts.size(), 0) {}

  void operator()(const tbb::blocked_range<int>& range) {
    for (int i = range.begin(); i != range.end(); ++i) ++counts[ValueColourIndex(data_[i])];
  }
  void join(const RawValueCounts& right) {
    for (size_t v = 0; v < counts.size(); ++v) counts[v] += right.counts[v];
  }

  const T* data_;
  std::vector<uint32_t> counts;
};

// Counts of every raw value of T; with `size` below that, every pixel's ValueColourIndex must be
// below `size`.
template <typename T>
std::vector<uint32_t> CountRawValues(const T* data, int n,
                                     size_t size = static_cast<size_t>(kRawValueCount<T>)) {
  RawValueCounts<T> body(data, size);
  tbb::parallel_reduce(tbb::blocked_range<int>(0, n, GrainSize(n)), body, tbb::auto_partitioner());
  return std::move(body.counts);
}

// The highest ValueColourIndex of n > 0 pixels, in parallel: the index rises with the value, and
// the maximum of the values is a loop that vectorises, far cheaper than counting, so the counts
// need only reach it.
template <typename T>
size_t HighestValueColourIndex(const T* data, int n) {
  const T highest = tbb::parallel_reduce(
      tbb::blocked_range<int>(0, n, GrainSize(n)), std::numeric_limits<T>::lowest(),
      [data](const tbb::blocked_range<int>& range, T highest) {
        for (int i = range.begin(); i != range.end(); ++i) {
          highest = data[i] > highest ? data[i] : highest;
        }
        return highest;
      },
      [](T a, T b) { return std::max(a, b); }, tbb::auto_partitioner());
  return ValueColourIndex(highest);
}

// Colours n pixels by lookup, in parallel.
template <typename T>
void ColourByLookup(const T* data, int n, const std::vector<PaddedColour>& colours, uint8_t* out) {
  tbb::parallel_for(
      tbb::blocked_range<int>(0, n, GrainSize(n)),
      [data, &colours, out](const tbb::blocked_range<int>& range) {
        ColourByValue(data, range.begin(), range.end(), colours.data(), out);
      },
      tbb::auto_partitioner());
}

}  // namespace KIVMV
