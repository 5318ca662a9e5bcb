#include "range/linear_mapping.h"

#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <type_traits>
#include <utility>
#include <vector>

#include "KivLUTStatus.h"
#include "common/colour_output.h"
#include "common/cpu_features.h"
#include "common/load_time_config.h"
#include "common/stage_status.h"
#include "range/checked_pixel_count.h"
#include "range/statistics.h"
#include "tables/padded_colour_avx2.h"

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

FractionPositions PositionsOfCuts(int64_t count, double upperFraction, double lowerFraction) {
  const int64_t low = numeric::TruncateToInt64(static_cast<double>(count) * lowerFraction);
  const int64_t high = numeric::TruncateToInt64((1.0 - upperFraction) * static_cast<double>(count));
  // Fractions outside [0, 1] never get here; the clamps keep the selection inside the values.
  const int64_t lowInside = std::clamp<int64_t>(low, 0, count - 1);
  return {lowInside, std::clamp<int64_t>(high, lowInside, count - 1)};
}

FractionCut CutAtFractions(std::vector<float>& values, double upperFraction, double lowerFraction) {
  FractionCut cut{0.0f, 0.0f};
  const int64_t count = static_cast<int64_t>(values.size());
  if (count > 0) {
    const auto [lowIndex, highIndex] = PositionsOfCuts(count, upperFraction, lowerFraction);
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

// Floats in their numeric order as integers: -0 directly below +0, bijective on non-NaN floats.
int64_t OrderedKey(float v) {
  uint32_t bits = 0;
  std::memcpy(&bits, &v, 4);
  return (bits >> 31) != 0 ? -static_cast<int64_t>(bits & 0x7FFFFFFFu) - 1
                           : static_cast<int64_t>(bits);
}

float FromOrderedKey(int64_t key) {
  const uint32_t bits =
      key >= 0 ? static_cast<uint32_t>(key) : 0x80000000u | static_cast<uint32_t>(-(key + 1));
  float v = 0.0f;
  std::memcpy(&v, &bits, 4);
  return v;
}

}  // namespace

namespace {

// The loops of the slot lookup that vectorise, written once and compiled twice below: for plain
// x86-64 and for AVX2, which has eight lanes. Only IEEE single subtractions, multiplications,
// comparisons and conversions happen, with no fused multiply-add, so both give the same bits.
#define KIVLUT_SLOT_INDEX_LOOPS(SUFFIX, TARGET)                                             \
  TARGET void LinearSlotIndices##SUFFIX(const float* values, int n, float lo, float hi,     \
                                        float scale, int32_t* indices) {                    \
    for (int j = 0; j < n; ++j) indices[j] = LinearSlotIndex(values[j], lo, hi, scale);     \
  }                                                                                         \
  TARGET void SlotIndicesNanInvalid##SUFFIX(const float* values, int n, float lo, float hi, \
                                            float scale, int32_t* indices) {                \
    for (int j = 0; j < n; ++j) {                                                           \
      const float v = values[j];                                                            \
      int32_t index = LinearSlotOf(v, lo, scale);                                           \
      index = v < lo ? LinearSlots::kBelow : index;                                         \
      index = v > hi ? LinearSlots::kAbove : index;                                         \
      indices[j] = v == v ? index : LinearSlots::kInvalid;                                  \
    }                                                                                       \
  }

KIVLUT_SLOT_INDEX_LOOPS(Baseline, )
#if KIVLUT_HAS_AVX2_PATHS
KIVLUT_SLOT_INDEX_LOOPS(Avx2, __attribute__((target("avx2"))))
#else
#define LinearSlotIndicesAvx2 LinearSlotIndicesBaseline
#define SlotIndicesNanInvalidAvx2 SlotIndicesNanInvalidBaseline
#endif
#undef KIVLUT_SLOT_INDEX_LOOPS

}  // namespace

namespace {

// The baseline: the slots in a loop that vectorises, then the lookups, written by WriteColours.
void ColourBlockBySlotsBaseline(const float* values, int count, const LinearSlots& slots,
                                uint8_t* out, bool onlyNanInvalid) {
  constexpr int kBlock = 256;
  int32_t indices[kBlock];
  const float lo = slots.lo, hi = slots.hi, scale = slots.scale;
  for (int start = 0; start < count; start += kBlock) {
    const int length = count - start < kBlock ? count - start : kBlock;
    const float* const v = values + start;
    if (onlyNanInvalid) {
      SlotIndicesNanInvalid(v, length, lo, hi, scale, indices);
    } else {
      LinearSlotIndices(v, length, lo, hi, scale, indices);
    }
    // By value, so that the colour stores cannot force a reload of the pointers per pixel.
    const int32_t* const index = indices;
    const LinearSlots* const lookup = &slots;
    WriteColours(
        length,
        [v, index, lookup](int64_t j) {
          const uint32_t word = LinearSlotColour(v[j], index[j], *lookup);
          PaddedColour colour;
          std::memcpy(colour.data(), &word, sizeof word);
          return colour;
        },
        out + 3 * static_cast<size_t>(start));
  }
}

#if KIVLUT_HAS_AVX2_PATHS
// LinearSlotIndex (or its NaN-only form) of eight floats with the same single-precision steps:
// MAXPS and MINPS return their second operand for NaN, as the comparisons of LinearSlotOf do.
__attribute__((target("avx2"))) void ColourBlockBySlotsAvx2(const float* values, int count,
                                                            const LinearSlots& slots, uint8_t* out,
                                                            bool onlyNanInvalid) {
  const __m256 lo = _mm256_set1_ps(slots.lo);
  const __m256 hi = _mm256_set1_ps(slots.hi);
  const __m256 scale = _mm256_set1_ps(slots.scale);
  const __m256 lastSlot = _mm256_set1_ps(static_cast<float>(LinearSlots::kCount - 1));
  const __m256 lowest = _mm256_set1_ps(-FLT_MAX);
  const __m256 highest = _mm256_set1_ps(FLT_MAX);
  const __m256i below = _mm256_set1_epi32(LinearSlots::kBelow);
  const __m256i above = _mm256_set1_epi32(LinearSlots::kAbove);
  const __m256i invalid = _mm256_set1_epi32(LinearSlots::kInvalid);
  const __m256i splitBit = _mm256_set1_epi32(static_cast<int>(LinearSlots::kSplitBit));
  const __m256i splitNumber = _mm256_set1_epi32(0xFFFF);
  const int* const words = reinterpret_cast<const int*>(slots.slots.data());
  // A split is three 4-byte words: threshold, lower colour, upper colour.
  static_assert(sizeof(LinearSlots::Split) == 12);
  const float* const splitWords = &slots.splits[0].threshold;
  const int* const splitInts = reinterpret_cast<const int*>(slots.splits.data());
  int k = 0;
  for (; k + 8 <= count; k += 8) {
    const __m256 v = _mm256_loadu_ps(values + k);
    __m256 x = _mm256_mul_ps(_mm256_sub_ps(v, lo), scale);
    x = _mm256_min_ps(_mm256_max_ps(x, _mm256_setzero_ps()), lastSlot);
    __m256i index = _mm256_cvttps_epi32(x);
    index = _mm256_blendv_epi8(index, below, _mm256_castps_si256(_mm256_cmp_ps(v, lo, _CMP_LT_OQ)));
    index = _mm256_blendv_epi8(index, above, _mm256_castps_si256(_mm256_cmp_ps(v, hi, _CMP_GT_OQ)));
    const __m256 valid = onlyNanInvalid ? _mm256_cmp_ps(v, v, _CMP_EQ_OQ)
                                        : _mm256_and_ps(_mm256_cmp_ps(v, lowest, _CMP_GT_OQ),
                                                        _mm256_cmp_ps(v, highest, _CMP_LE_OQ));
    index = _mm256_blendv_epi8(invalid, index, _mm256_castps_si256(valid));
    __m256i word = _mm256_i32gather_epi32(words, index, 4);
    // Slots that a threshold splits are few: their lanes read their split's threshold and two
    // colours, as LinearSlotColour does, only in the groups that have one.
    const __m256i splitLanes = _mm256_cmpeq_epi32(_mm256_and_si256(word, splitBit), splitBit);
    if (!_mm256_testz_si256(splitLanes, splitLanes)) {
      const __m256i number = _mm256_and_si256(word, splitNumber);
      const __m256i at = _mm256_add_epi32(number, _mm256_add_epi32(number, number));
      const __m256 threshold = _mm256_mask_i32gather_ps(_mm256_setzero_ps(), splitWords, at,
                                                        _mm256_castsi256_ps(splitLanes), 4);
      const __m256i lower =
          _mm256_mask_i32gather_epi32(_mm256_setzero_si256(), splitInts + 1, at, splitLanes, 4);
      const __m256i upper =
          _mm256_mask_i32gather_epi32(_mm256_setzero_si256(), splitInts + 2, at, splitLanes, 4);
      const __m256 past = _mm256_cmp_ps(v, threshold, _CMP_GE_OQ);
      const __m256i resolved = _mm256_blendv_epi8(lower, upper, _mm256_castps_si256(past));
      word = _mm256_blendv_epi8(word, resolved, splitLanes);
    }
    StoreEightColoursAvx2(word, out + 3 * static_cast<size_t>(k));
  }
  ColourBlockBySlotsBaseline(values + k, count - k, slots, out + 3 * static_cast<size_t>(k),
                             onlyNanInvalid);
}
#endif

}  // namespace

void ColourBlockBySlots(const float* values, int count, const LinearSlots& slots, uint8_t* out,
                        bool onlyNanInvalid) {
#if KIVLUT_HAS_AVX2_PATHS
  if (RunsAvx2()) {
    ColourBlockBySlotsAvx2(values, count, slots, out, onlyNanInvalid);
    return;
  }
#endif
  ColourBlockBySlotsBaseline(values, count, slots, out, onlyNanInvalid);
}

void LinearSlotIndices(const float* values, int n, float lo, float hi, float scale,
                       int32_t* indices) {
  if (RunsAvx2()) {
    LinearSlotIndicesAvx2(values, n, lo, hi, scale, indices);
  } else {
    LinearSlotIndicesBaseline(values, n, lo, hi, scale, indices);
  }
}

void SlotIndicesNanInvalid(const float* values, int n, float lo, float hi, float scale,
                           int32_t* indices) {
  if (RunsAvx2()) {
    SlotIndicesNanInvalidAvx2(values, n, lo, hi, scale, indices);
  } else {
    SlotIndicesNanInvalidBaseline(values, n, lo, hi, scale, indices);
  }
}

namespace {

// The slots of an entry function that is non-decreasing on [lo, hi], 1 at lo and 255 at hi (false
// otherwise, or where a slot would hold two distinct thresholds), with the colours of the three
// extra slots as given.
template <typename EntryOf>
bool BuildSlotsOf(float lo, float hi, EntryOf&& entryOf, const ColourTable& table,
                  const ColourEntry& below, const ColourEntry& above, const ColourEntry& invalid,
                  LinearSlots& slots) {
  if (!(std::isfinite(lo) && std::isfinite(hi) && lo < hi)) return false;
  const float span = hi - lo;
  if (!std::isfinite(span)) return false;
  if (entryOf(lo) != 1 || entryOf(hi) != kColourTableSize - 1) return false;
  slots.lo = lo;
  slots.hi = hi;
  slots.scale = static_cast<float>(LinearSlots::kCount) / span;
  slots.slots[LinearSlots::kBelow] = PackColour(below);
  slots.slots[LinearSlots::kAbove] = PackColour(above);
  slots.slots[LinearSlots::kInvalid] = PackColour(invalid);

  // The threshold of each entry k = 2..255 and the slot it falls in.
  std::array<float, kColourTableSize> thresholds{};
  std::array<int32_t, kColourTableSize> thresholdSlots{};
  // Entry 1 at lo and 255 at hi bracket every threshold: entryAt(a) < k <= entryAt(b) throughout.
  const int64_t keyLo = OrderedKey(lo), keyHi = OrderedKey(hi);
  const auto entryAt = [&entryOf](int64_t key) { return entryOf(FromOrderedKey(key)); };
  for (int k = 2; k < kColourTableSize; ++k) {
    // Start next to where the threshold should be and widen the bracket in doubling steps, so a
    // handful of evaluations find it instead of a bisection over the whole range.
    const float guess =
        numeric::NarrowToFloat(static_cast<double>(lo) + static_cast<double>(span) * (k / 255.0));
    const int64_t start = std::clamp(OrderedKey(guess), keyLo, keyHi);
    int64_t a = keyLo, b = keyHi;
    if (entryAt(start) >= k) {
      b = start;
      for (int64_t step = 1;; step *= 2) {
        if (b - step <= keyLo) break;
        if (entryAt(b - step) < k) {
          a = b - step;
          break;
        }
        b -= step;
      }
    } else {
      a = start;
      for (int64_t step = 1;; step *= 2) {
        if (a + step >= keyHi) break;
        if (entryAt(a + step) >= k) {
          b = a + step;
          break;
        }
        a += step;
      }
    }
    while (b - a > 1) {
      const int64_t middle = a + (b - a) / 2;
      (entryAt(middle) >= k ? b : a) = middle;
    }
    thresholds[k] = FromOrderedKey(b);
    thresholdSlots[k] = LinearSlotOf(thresholds[k], lo, slots.scale);
  }
  // Thresholds and their slots are non-decreasing in k. Entry e holds from t_e up to t_(e+1):
  // the slots between two threshold slots take one entry, filled as runs.
  uint32_t* words = slots.slots.data();
  int entry = 1;
  int nextSlot = 0;
  int splitCount = 0;
  for (int k = 2; k < kColourTableSize;) {
    const int slot = thresholdSlots[k];
    std::fill(words + nextSlot, words + slot, PackColour(table[entry]));
    int last = k;
    while (last + 1 < kColourTableSize && thresholdSlots[last + 1] == slot) ++last;
    // All thresholds in the slot must be one value, crossed by a single comparison.
    if (thresholds[last] != thresholds[k]) return false;
    const int crossed = last - k + 1;
    slots.splits[splitCount] = {thresholds[k], PackColour(table[entry]),
                                PackColour(table[entry + crossed])};
    words[slot] = LinearSlots::kSplitBit | static_cast<uint32_t>(splitCount);
    ++splitCount;
    entry += crossed;
    nextSlot = slot + 1;
    k = last + 1;
  }
  std::fill(words + nextSlot, words + LinearSlots::kCount, PackColour(table[entry]));
  return true;
}

}  // namespace

bool BuildLinearSlots(float lo, float hi, const ColourTable& table, const ColourEntry& invalid,
                      LinearSlots& slots) {
  return BuildSlotsOf(
      lo, hi, [lo, hi](float v) { return static_cast<int>(LinearEntry(v, lo, hi)); }, table,
      table[0], table[kColourTableSize - 1], invalid, slots);
}

namespace {

// Valid floats as unsigned keys in their numeric order (-0 just below +0).
uint32_t SortKey(float v) {
  uint32_t bits = 0;
  std::memcpy(&bits, &v, 4);
  // Negative values have all bits flipped, the others only the sign bit; branch-free.
  const uint32_t flip = (0u - (bits >> 31)) | 0x80000000u;
  return bits ^ flip;
}

float FromSortKey(uint32_t key) {
  const uint32_t bits = (key & 0x80000000u) != 0 ? (key & 0x7FFFFFFFu) : ~key;
  float v = 0.0f;
  std::memcpy(&v, &bits, 4);
  return v;
}

constexpr int kKeyHalfCount = 1 << 16;

// Below this many pixels the cut is selected among a copy of the valid values.
constexpr int kCountedCutMinPixels = 1 << 16;

// Merges the least and greatest of the n values from `data` other than NaN into `lowest` and
// `highest`. Which of two zeros is kept does not matter to the callers.
void NonNanExtremes(const float* data, int n, float& lowest, float& highest) {
  float low = lowest, high = highest;
  int i = 0;
#if defined(__GNUC__) && !defined(__clang__)
  typedef float Floats __attribute__((vector_size(16)));
  Floats lows = {low, low, low, low}, highs = {high, high, high, high};
  for (; i + 4 <= n; i += 4) {
    Floats v;
    std::memcpy(&v, data + i, sizeof v);
    lows = v < lows ? v : lows;  // NaN fails the comparison and leaves the extreme
    highs = v > highs ? v : highs;
  }
  for (int l = 0; l < 4; ++l) {
    low = lows[l] < low ? lows[l] : low;
    high = highs[l] > high ? highs[l] : high;
  }
#endif
  for (; i < n; ++i) {
    low = data[i] < low ? data[i] : low;
    high = data[i] > high ? data[i] : high;
  }
  lowest = low;
  highest = high;
}

// How many valid pixels have each upper key half; invalid pixels go to one extra bucket past the
// end, which keeps the loop free of branches. Neighbouring pixels mostly share a bucket, so four
// interleaved copies of the counts keep consecutive increments off one counter. Also the least and
// greatest value other than NaN, infinities and the marker included.
class UpperKeyCounts {
 public:
  static constexpr int kCopies = 4;
  static constexpr int kStride = kKeyHalfCount + 1;

  explicit UpperKeyCounts(const float* data) : data_(data), counts(kCopies * kStride, 0) {}
  UpperKeyCounts(UpperKeyCounts& other, tbb::split)
      : data_(other.data_), counts(kCopies * kStride, 0) {}

  void operator()(const tbb::blocked_range<int>& range) {
    // Per block, the buckets in a loop that vectorises, then the increments.
    constexpr int kBlock = 256;
    uint32_t buckets[kBlock];
    uint32_t* c = counts.data();
    for (int start = range.begin(); start < range.end(); start += kBlock) {
      const int length = range.end() - start < kBlock ? range.end() - start : kBlock;
      const float* v = data_ + start;
      for (int j = 0; j < length; ++j) {
        const float x = v[j];
        const uint32_t bucket = SortKey(x) >> 16;
        buckets[j] = ((x > -FLT_MAX) & (x <= FLT_MAX)) ? bucket : kKeyHalfCount;
      }
      int j = 0;
      for (; j + kCopies <= length; j += kCopies) {
        ++c[buckets[j]];
        ++c[kStride + buckets[j + 1]];
        ++c[2 * kStride + buckets[j + 2]];
        ++c[3 * kStride + buckets[j + 3]];
      }
      for (; j < length; ++j) ++c[buckets[j]];
    }
    NonNanExtremes(data_ + range.begin(), range.end() - range.begin(), lowest, highest);
  }
  void join(const UpperKeyCounts& right) {
    for (size_t b = 0; b < counts.size(); ++b) counts[b] += right.counts[b];
    lowest = right.lowest < lowest ? right.lowest : lowest;
    highest = right.highest > highest ? right.highest : highest;
  }
  // The counts of the copies added up, in the first.
  void Merge() {
    for (int copy = 1; copy < kCopies; ++copy) {
      for (int b = 0; b < kStride; ++b) counts[b] += counts[copy * kStride + b];
    }
  }

  const float* data_;
  std::vector<uint32_t> counts;
  float lowest = std::numeric_limits<float>::infinity();
  float highest = -std::numeric_limits<float>::infinity();
};

// How many valid pixels in each of two upper key halves have each lower key half.
class LowerKeyCounts {
 public:
  LowerKeyCounts(const float* data, uint32_t first, uint32_t second)
      : data_(data), first_(first), second_(second), counts(2 * kKeyHalfCount, 0) {}
  LowerKeyCounts(LowerKeyCounts& other, tbb::split)
      : data_(other.data_),
        first_(other.first_),
        second_(other.second_),
        counts(2 * kKeyHalfCount, 0) {}

  void operator()(const tbb::blocked_range<int>& range) {
    // Few pixels fall in the two buckets: a loop that vectorises finds them in each block, and
    // blocks without one are skipped.
    constexpr int kBlock = 64;
    uint32_t keys[kBlock];
    uint8_t hits[kBlock];
    for (int start = range.begin(); start < range.end(); start += kBlock) {
      const int length = range.end() - start < kBlock ? range.end() - start : kBlock;
      const float* v = data_ + start;
      uint32_t any = 0;
      for (int j = 0; j < length; ++j) {
        const float x = v[j];
        const uint32_t key = SortKey(x);
        const uint32_t upper = key >> 16;
        const uint32_t hit = static_cast<uint32_t>((x > -FLT_MAX) & (x <= FLT_MAX) &
                                                   ((upper == first_) | (upper == second_)));
        keys[j] = key;
        hits[j] = static_cast<uint8_t>(hit);
        any |= hit;
      }
      if (any == 0) continue;
      for (int j = 0; j < length; ++j) {
        if (hits[j] == 0) continue;
        const uint32_t upper = keys[j] >> 16, lower = keys[j] & 0xFFFFu;
        if (upper == first_) ++counts[lower];
        if (upper == second_) ++counts[kKeyHalfCount + lower];
      }
    }
  }
  void join(const LowerKeyCounts& right) {
    for (int b = 0; b < 2 * kKeyHalfCount; ++b) counts[b] += right.counts[b];
  }

  const float* data_;
  uint32_t first_;
  uint32_t second_;
  std::vector<uint32_t> counts;
};

// The bucket of `counts` (from `begin`, kKeyHalfCount of them) holding sorted position `position`,
// and the position within it.
std::pair<uint32_t, uint32_t> FindPosition(const uint32_t* counts, int64_t position) {
  int64_t before = 0;
  for (uint32_t b = 0; b < static_cast<uint32_t>(kKeyHalfCount); ++b) {
    if (position < before + counts[b]) return {b, static_cast<uint32_t>(position - before)};
    before += counts[b];
  }
  return {kKeyHalfCount - 1, 0};  // not reached: the position is below the total
}

}  // namespace

FloatFractionCut CutFloatPixelsAtFractions(const float* data, int n, double upperFraction,
                                           double lowerFraction) {
  if (n < kCountedCutMinPixels) {
    // Few pixels: the counts would cost more to clear than the values to copy and select.
    FloatFractionCut result{{0.0f, 0.0f},
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity()};
    std::vector<float> valid;
    valid.reserve(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
      const float v = data[i];
      if (IsValidFloatPixel(v)) valid.push_back(v);
    }
    NonNanExtremes(data, n, result.lowest, result.highest);
    result.cut = CutAtFractions(valid, upperFraction, lowerFraction);
    return result;
  }
  FloatFractionCut result{{0.0f, 0.0f}, 0.0f, 0.0f};
  FractionCut& cut = result.cut;
  UpperKeyCounts upper(data);
  tbb::parallel_reduce(tbb::blocked_range<int>(0, n, GrainSize(n)), upper, tbb::auto_partitioner());
  upper.Merge();
  result.lowest = upper.lowest;
  result.highest = upper.highest;
  const int64_t count = static_cast<int64_t>(n) - upper.counts[kKeyHalfCount];
  if (count > 0) {
    const auto [lowIndex, highIndex] = PositionsOfCuts(count, upperFraction, lowerFraction);
    const auto [lowBucket, lowRank] = FindPosition(upper.counts.data(), lowIndex);
    const auto [highBucket, highRank] = FindPosition(upper.counts.data(), highIndex);
    upper.counts = std::vector<uint32_t>();
    LowerKeyCounts lower(data, lowBucket, highBucket);
    tbb::parallel_reduce(tbb::blocked_range<int>(0, n, GrainSize(n)), lower,
                         tbb::auto_partitioner());
    const uint32_t lowHalf = FindPosition(lower.counts.data(), lowRank).first;
    const uint32_t highHalf = FindPosition(lower.counts.data() + kKeyHalfCount, highRank).first;
    cut.lowValue = FromSortKey((lowBucket << 16) | lowHalf);
    cut.highValue = FromSortKey((highBucket << 16) | highHalf);
  }
  // A single cut value would leave nothing to divide by.
  if (cut.highValue == cut.lowValue) cut.highValue = cut.lowValue + 1e-6f;
  return result;
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

// Every pixel, invalid ones included, becomes (v - lowValue) / (highValue - lowValue) clamped to
// [0, 1] in single precision. The clamp is a maximum with 0, then a minimum with 1: markers and
// infinities end up at 0 or 1 and count as valid afterwards, while NaN fails both comparisons and
// stays NaN, so it keeps the invalid colour. Evaluated where needed rather than stored: twice per
// pixel costs less than writing and reading back a copy of the image.
constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct ClippedToCut {
  const float* data;
  float lowValue;
  float span;       // highValue - lowValue
  float highValue;  // the pixels from here on clip to 1 when the span is finite and positive
  float Of(float v) const { return std::min(std::max((v - lowValue) / span, 0.0f), 1.0f); }
  template <typename Index>
  float operator()(Index i) const {
    return Of(data[i]);
  }
};

// FindMinMax of the clipped values.
class ClippedExtremesBody {
 public:
  explicit ClippedExtremesBody(const ClippedToCut& clipped) : clipped_(clipped) {}
  ClippedExtremesBody(ClippedExtremesBody& other, tbb::split) : clipped_(other.clipped_) {}

  void operator()(const tbb::blocked_range<size_t>& range) {
    MergeFloatExtremes(range.begin(), range.end(), clipped_, IsValidFloatPixel, minimum, maximum);
  }
  void join(const ClippedExtremesBody& right) {
    if (right.minimum < minimum) minimum = right.minimum;
    if (right.maximum > maximum) maximum = right.maximum;
  }

  ClippedToCut clipped_;
  float minimum = PixelTraits<float>::kInitialMin;
  float maximum = PixelTraits<float>::kInitialMax;
};

// ColourLinearParallel for the clipped values: the same chunks, kernel and lookup.
void ColourClippedParallel(const ClippedToCut& clipped, int n, float lo, float hi, int mapType,
                           uint8_t* out) {
  const ColourTable& table = SelectColourTable(mapType);
  const ColourEntry& invalid = InvalidColour(mapType);
  std::unique_ptr<LinearSlots> slots;
  // Preferably slots over the pixel values themselves. With a finite positive span the clipped
  // value is non-decreasing in the pixel, constant below the lower cut (0) and above the upper
  // one (1), and NaN only for NaN; with finite extremes lo < hi and a finite span LinearEntry is
  // non-decreasing in the clipped value (0 below lo, 1..255 on [lo, hi], 255 above). Their
  // composition is then non-decreasing, and the lookup needs no division at all.
  bool ofPixels = false;
  if (n >= kLinearSlotsMinPixels) {
    slots = std::make_unique<LinearSlots>();
    const float cutLow = clipped.lowValue, cutHigh = clipped.highValue;
    if (std::isfinite(clipped.span) && clipped.span > 0.0f && std::isfinite(lo) &&
        std::isfinite(hi) && lo < hi && std::isfinite(hi - lo)) {
      const auto entryOf = [&clipped, lo, hi](float v) {
        return static_cast<int>(LinearEntry(clipped.Of(v), lo, hi));
      };
      ofPixels = BuildSlotsOf(cutLow, cutHigh, entryOf, table,
                              LinearColour(clipped.Of(-kInfinity), lo, hi, table, invalid),
                              LinearColour(clipped.Of(kInfinity), lo, hi, table, invalid), invalid,
                              *slots);
    }
    if (!ofPixels && !BuildLinearSlots(lo, hi, table, invalid, *slots)) slots.reset();
  }
  const std::vector<int> boundaries = ChunkBoundaries(n, ConfiguredWorkerCount());
  const int chunkCount = static_cast<int>(boundaries.size()) - 1;
  const LinearSlots* lookup = slots.get();
  tbb::parallel_for(
      tbb::blocked_range<int>(0, chunkCount, 1),
      [&](const tbb::blocked_range<int>& chunks) {
        for (int c = chunks.begin(); c != chunks.end(); ++c) {
          ThrowIfInjected(FaultStage::kColouring);
          const int begin = boundaries[c];
          const int end = boundaries[c + 1];
          if (ofPixels) {
            ColourBlockBySlots(clipped.data + begin, end - begin, *lookup,
                               out + 3 * static_cast<size_t>(begin), true);
          } else if (lookup != nullptr) {
            // The clipped values of a block at a time, formed in a loop that vectorises.
            constexpr int kBlock = 1024;
            float values[kBlock];
            for (int start = begin; start < end; start += kBlock) {
              const int length = end - start < kBlock ? end - start : kBlock;
              for (int j = 0; j < length; ++j) values[j] = clipped(start + j);
              ColourBlockBySlots(values, length, *lookup, out + 3 * static_cast<size_t>(start));
            }
          } else {
            const ClippedToCut local = clipped;
            for (int i = begin; i < end; ++i) {
              WriteColour(out + 3 * static_cast<size_t>(i),
                          LinearColour(local(i), lo, hi, table, invalid));
            }
          }
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

  // The caller's pixels are only read: the clipped values are formed on the fly.
  uint8_t* colours = nullptr;
  const long sized = SizeColourOutput(*out, n, LUT_ERR_OUTPUT_FAILED, colours);
  if (sized != LUT_OK) return sized;

  // Only float pixel matrices are coloured here; anything else ends the call with all bits set.
  if (image.Mat().empty() || image.Mat().type() != CV_32FC1) return -1;

  return RunStage(LUT_ERR_PARA_MAPPING_FAILED, [&] {
    const float* values = image.Ptr<float>();
    ThrowIfInjected(FaultStage::kStatistics);
    const FloatFractionCut cut = CutFloatPixelsAtFractions(values, n, upperFraction, lowerFraction);
    const ClippedToCut clipped{values, cut.cut.lowValue, cut.cut.highValue - cut.cut.lowValue,
                               cut.cut.highValue};
    ClippedExtremesBody extremes(clipped);
    if (std::isfinite(clipped.span) && clipped.span > 0.0f) {
      // The clipped value is non-decreasing in the pixel value and NaN only for NaN, so the
      // clipped extremes are those of the least and greatest pixel. (Which zero a zero extreme
      // is does not change a colour.)
      if (cut.lowest <= cut.highest) {
        extremes.minimum = clipped.Of(cut.lowest);
        extremes.maximum = clipped.Of(cut.highest);
      }
    } else {
      tbb::parallel_reduce(tbb::blocked_range<size_t>(0, static_cast<size_t>(n), GrainSize(n)),
                           extremes, tbb::auto_partitioner());
    }
    ColourClippedParallel(clipped, n, extremes.minimum, extremes.maximum, mapType, colours);
    return LUT_OK;
  });
}

}  // namespace KIVMV
