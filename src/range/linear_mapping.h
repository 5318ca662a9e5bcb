// Linear colouring of range images: every valid pixel is placed on a straight scale between a
// lower and an upper bound and the position picks a colour-table entry.
//
// Two kernels do the per-pixel work. The serial kernel (caller's index range and under/over
// colours) runs on the calling thread in double precision. The parallel kernel (bounds in single
// precision, entry 0 below and 255 above) runs inside LUT3DArrayParallelBody. Both are inline so
// that tests and the lookup-table fast path evaluate exactly the arithmetic the loops do.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <vector>

#include "KivColor.h"
#include "KivColorArray.h"
#include "KivRangeImage.h"
#include "common/colour_output.h"
#include "common/fault_injection.h"
#include "common/load_time_config.h"
#include "common/numeric_helpers.h"
#include "common/pixel_rules.h"
#include "range/raw_units.h"
#include "range/raw_value_lut.h"
#include "range/statistics.h"
#include "tables/colour_tables.h"
#include "tables/padded_colour.h"

namespace KIVMV {

// Bounds are narrowed from double to float; with IEEE types an out-of-range double rounds to an
// infinity, which the comparisons of the parallel kernel then handle like any other bound.
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559,
              "the linear kernels rely on IEEE single and double precision");

inline void WriteColour(uint8_t* pixel, const ColourEntry& colour) {
  std::memcpy(pixel, colour.data(), 3);
}

// ---- Parallel kernel (overloads with bounds, with measured bounds, with fractions) ----

// The table entry of a valid value v, already converted to float. Values above hi take 255 and
// values below lo take 0; in-range values take 1..255, so entry 0 only ever marks "below". The
// differences are formed in float, the product and quotient in double, in that order.
inline uint8_t LinearEntry(float v, float lo, float hi) {
  if (v > hi) return 255;
  if (v < lo) return 0;
  const float offset = v - lo;
  const float span = hi - lo;
  const uint8_t k =
      numeric::TruncateToLowByte(static_cast<double>(offset) * 255.0 / static_cast<double>(span));
  return k == 0 ? 1 : k;
}

template <typename T>
inline const ColourEntry& LinearColour(T v, float lo, float hi, const ColourTable& table,
                                       const ColourEntry& invalid) {
  if (!IsValidPixel(v)) return invalid;
  return table[LinearEntry(static_cast<float>(v), lo, hi)];
}

// ---- Float fast path: LinearEntry by table lookup instead of a division per pixel ----
//
// With finite bounds lo < hi and a finite span, LinearEntry is non-decreasing in v on [lo, hi]:
// the float difference rounds monotonically, the product by 255 is exact in double, the quotient
// rounds monotonically and lies in [0, 255], so truncation never wraps. The entry of v is then
// 1 plus the number of thresholds t_k <= v, t_k being the least float with entry k or more
// (k = 2..255). The range is cut into slots by a monotone float formula; a slot holding at most
// one distinct threshold gives every value in it one of two entries, chosen by one comparison.
// The thresholds are found with LinearEntry itself, so the lookup equals it bit for bit.
struct LinearSlots {
  static constexpr int kCount = 32768;
  // Three more slots with a single colour each, so that every pixel is one lookup.
  static constexpr int kBelow = kCount;
  static constexpr int kAbove = kCount + 1;
  static constexpr int kInvalid = kCount + 2;
  // A slot's word is its padded colour (spare byte 0), or this bit and the number of its split
  // when a threshold falls inside it.
  static constexpr uint32_t kSplitBit = 0x01000000u;
  struct Split {
    float threshold;
    uint32_t lower;  // padded colour below the threshold
    uint32_t upper;  // padded colour from the threshold on
  };
  float lo;
  float hi;
  float scale;  // kCount / (hi - lo), in float
  std::array<uint32_t, kCount + 3> slots;
  std::array<Split, kColourTableSize - 2> splits;
};

// The slot of a value in [lo, hi]: non-decreasing in v. Other values are clamped, so that the
// conversion is defined for every input.
inline int32_t LinearSlotOf(float v, float lo, float scale) {
  float x = (v - lo) * scale;
  x = 0.0f < x ? x : 0.0f;
  x = x < static_cast<float>(LinearSlots::kCount - 1) ? x
                                                      : static_cast<float>(LinearSlots::kCount - 1);
  return static_cast<int32_t>(x);
}

// The slot of any float: below, above and invalid values (the rule of IsValidFloatPixel) get
// their own. Branch-free, so that loops over it vectorise.
inline int32_t LinearSlotIndex(float v, float lo, float hi, float scale) {
  int32_t index = LinearSlotOf(v, lo, scale);
  index = v < lo ? LinearSlots::kBelow : index;
  index = v > hi ? LinearSlots::kAbove : index;
  return v > -FLT_MAX && v <= FLT_MAX ? index : LinearSlots::kInvalid;
}

// A colour as the four bytes of PaddedColour, in one register.
inline uint32_t PackColour(const ColourEntry& c) {
  const PaddedColour padded = Pad(c);
  uint32_t packed = 0;
  std::memcpy(&packed, padded.data(), 4);
  return packed;
}

// Fills `slots` for the parallel kernel with bounds lo and hi; false where the bounds fall outside
// the monotone case or a slot would hold two distinct thresholds, and the division must be kept.
bool BuildLinearSlots(float lo, float hi, const ColourTable& table, const ColourEntry& invalid,
                      LinearSlots& slots);

// The padded colour of value v in slot `index`. Few slots are split, so the test is well
// predicted.
inline uint32_t LinearSlotColour(float v, int32_t index, const LinearSlots& s) {
  const uint32_t word = s.slots[static_cast<size_t>(index)];
  if ((word & LinearSlots::kSplitBit) == 0) return word;
  const LinearSlots::Split& split = s.splits[word & 0xFFFFu];
  return v >= split.threshold ? split.upper : split.lower;
}

// LinearSlotIndex of n values.
void LinearSlotIndices(const float* values, int n, float lo, float hi, float scale,
                       int32_t* indices);

// The same where only NaN takes the invalid slot and every other value below lo or above hi the
// below or above slot, infinities included.
void SlotIndicesNanInvalid(const float* values, int n, float lo, float hi, float scale,
                           int32_t* indices);

// Colours the `count` float values from `values` through the slots into `out`, 3 bytes each
// (nothing at or past out + 3 x count is touched). With AVX2 eight at a time: slot, gather of its
// word and packing in one loop, split slots and a last group of fewer than eight one by one.
void ColourBlockBySlots(const float* values, int count, const LinearSlots& slots, uint8_t* out,
                        bool onlyNanInvalid = false);

// Below this many pixels building the slots costs more than the divisions it saves.
inline constexpr int kLinearSlotsMinPixels = 1 << 16;

// LinearColour for every raw value of an 8- or 16-bit type. With finite bounds lo <= hi and a
// finite span, the entry never falls as the value rises: 0 below lo, then the truncation of a
// product that every rounding step keeps in order (float difference, exact product by 255,
// division by the fixed span), raised from 0 to 1, then 255 above hi. So it is tabulated run by
// run; other bounds are evaluated value by value.
template <typename T>
std::vector<PaddedColour> BuildValueColours(float lo, float hi, const ColourTable& table,
                                            const ColourEntry& invalid) {
  if (std::isfinite(lo) && std::isfinite(hi) && lo <= hi && std::isfinite(hi - lo)) {
    return TabulateMonotoneValueColours<T>(
        [lo, hi](T v) { return LinearEntry(static_cast<float>(v), lo, hi); }, table, invalid);
  }
  return TabulateValueColours<T>(
      [&](T v) -> const ColourEntry& { return LinearColour(v, lo, hi, table, invalid); });
}

// Minimum and maximum of the valid pixels of an 8- or 16-bit image, the same as FindMinMax. For
// these types a pixel is valid exactly when it is not the marker, the type's lowest value, which
// lets the reduction run without a per-pixel test.
template <typename T>
ValueStatistics<T> FindMinMaxOfRawValues(const T* data, int n);

// Boundaries of the consecutive chunks that pixels 0..n-1 are cut into for `workers` workers:
// chunks of (n - 1) / workers + 1 pixels, the last one shorter. Chunk c is [b[c], b[c + 1]), so
// the vector holds one more entry than there are chunks, starting at 0 and ending at n. No pixels
// give no chunks; a worker count below 1 counts as one.
std::vector<int> ChunkBoundaries(int n, int workers);

// Colours the pixels of the chunks in its range: each chunk through the value-colour table when
// one is given, else through the parallel kernel.
template <typename T>
class LUT3DArrayParallelBody {
 public:
  LUT3DArrayParallelBody(const T* data, const ColourTable& table, uint8_t* out, int n, float lo,
                         float hi, const std::vector<int>& boundaries, int mapType,
                         const PaddedColour* valueColours, const LinearSlots* slots = nullptr)
      : data_(data),
        table_(&table),
        out_(out),
        n_(n),
        lo_(lo),
        hi_(hi),
        boundaries_(&boundaries),
        mapType_(mapType),
        valueColours_(valueColours),
        slots_(slots) {}

  void operator()(const tbb::blocked_range<int>& chunks) const {
    for (int c = chunks.begin(); c != chunks.end(); ++c) {
      ThrowIfInjected(FaultStage::kColouring);
      const int begin = (*boundaries_)[c];
      const int end = (*boundaries_)[c + 1] < n_ ? (*boundaries_)[c + 1] : n_;
      if (valueColours_ != nullptr) {
        ColourByValue(data_, begin, end, valueColours_, out_);
      } else if (slots_ != nullptr) {
        if constexpr (std::is_same_v<T, float>) {
          ColourBlockBySlots(data_ + begin, end - begin, *slots_,
                             out_ + 3 * static_cast<size_t>(begin));
        }
      } else {
        ColourByKernel(begin, end);
      }
    }
  }

 private:
  // The members are read into locals first: byte stores may alias them, and would force a reload
  // per pixel.
  void ColourByKernel(int begin, int end) const {
    const T* data = data_;
    const ColourTable& table = *table_;
    const ColourEntry& invalid = InvalidColour(mapType_);
    const float lo = lo_, hi = hi_;
    uint8_t* pixel = out_ + 3 * static_cast<size_t>(begin);
    for (int i = begin; i < end; ++i, pixel += 3) {
      WriteColour(pixel, LinearColour(data[i], lo, hi, table, invalid));
    }
  }

  const T* data_;
  const ColourTable* table_;
  uint8_t* out_;
  int n_;
  float lo_;
  float hi_;
  const std::vector<int>* boundaries_;
  int mapType_;
  const PaddedColour* valueColours_;  // null: per-pixel kernel
  const LinearSlots* slots_;          // float pixels: the lookup instead of the division
};

// Colours n pixels with LUT3DArrayParallelBody, one body call per chunk of ChunkBoundaries,
// through `table`; invalid pixels take the invalid colour of invalidMapType.
template <typename T>
void ColourLinearParallel(const T* data, int n, float lo, float hi, const ColourTable& table,
                          int invalidMapType, uint8_t* out) {
  std::vector<PaddedColour> valueColours;
  if constexpr (kHasValueColours<T>) {
    if (UseValueColours<T>(n)) {
      valueColours = BuildValueColours<T>(lo, hi, table, InvalidColour(invalidMapType));
    }
  }
  std::unique_ptr<LinearSlots> slots;
  if constexpr (std::is_same_v<T, float>) {
    if (n >= kLinearSlotsMinPixels) {
      slots = std::make_unique<LinearSlots>();
      if (!BuildLinearSlots(lo, hi, table, InvalidColour(invalidMapType), *slots)) slots.reset();
    }
  }
  const std::vector<int> boundaries = ChunkBoundaries(n, ConfiguredWorkerCount());
  const int chunkCount = static_cast<int>(boundaries.size()) - 1;
  const LUT3DArrayParallelBody<T> body(data, table, out, n, lo, hi, boundaries, invalidMapType,
                                       valueColours.empty() ? nullptr : valueColours.data(),
                                       slots.get());
  tbb::parallel_for(tbb::blocked_range<int>(0, chunkCount, 1), body, tbb::auto_partitioner());
}

// The same through the table of mapType, whose invalid colour invalid pixels take.
template <typename T>
void ColourLinearParallel(const T* data, int n, float lo, float hi, int mapType, uint8_t* out) {
  ColourLinearParallel(data, n, lo, hi, SelectColourTable(mapType), mapType, out);
}

// ---- Bounds cut at fractions of the valid values ----

struct FractionCut {
  float lowValue;
  float highValue;
};

// The sorted positions of the two cuts among `count` > 0 values: trunc(count x lowerFraction) and
// trunc((1 - upperFraction) x count), clamped so that both lie inside the values and the upper is
// not below the lower.
struct FractionPositions {
  int64_t low;
  int64_t high;
};
FractionPositions PositionsOfCuts(int64_t count, double upperFraction, double lowerFraction);

// The values at sorted positions trunc(N x lowerFraction) and trunc((1 - upperFraction) x N) of
// the N values (both at most N - 1, the upper not below the lower), found by partial selection,
// which reorders `values`. Equal cuts are moved apart by 1e-6; no values at all cut at 0.
FractionCut CutAtFractions(std::vector<float>& values, double upperFraction, double lowerFraction);

// The same cut over the valid pixels of a float image, without copying them: the two values are
// selected by counting order-preserving keys of the float bits, first by their upper and then by
// their lower 16 bits. Values that compare equal are interchangeable, so the cut is the same.
// Besides the cut, the least and greatest pixel other than NaN (crossed infinities when there is
// none), found in the same pass.
struct FloatFractionCut {
  FractionCut cut;
  float lowest;
  float highest;
};
FloatFractionCut CutFloatPixelsAtFractions(const float* data, int n, double upperFraction,
                                           double lowerFraction);

// ---- Serial kernel (overload with index range and caller's colours) ----

struct SerialLinearMapping {
  double low;  // raw units for the integer pixel types
  double high;
  int indexLow;  // 0 <= indexLow <= indexHigh <= 255
  int indexHigh;
  ColourEntry under;  // as stored, see StoredColour
  ColourEntry over;
  const ColourTable* table;
  ColourEntry invalid;
};

// The table entry of a valid value between the bounds. The value at low takes the entry before
// indexLow (entry 0 when indexLow is 0) and the value at high the one before indexHigh.
inline int SerialLinearEntry(double v, const SerialLinearMapping& m) {
  const uint8_t step = numeric::TruncateToLowByte((v - m.low) / (m.high - m.low) *
                                                  static_cast<double>(m.indexHigh - m.indexLow));
  const int j = step + m.indexLow - 1;
  // In range, the quotient lies in [0, 1] or is NaN, so j never passes indexHigh - 1.
  return j < 0 ? 0 : (j > kColourTableSize - 1 ? kColourTableSize - 1 : j);
}

template <typename T>
inline const ColourEntry& SerialLinearColour(T raw, const SerialLinearMapping& m) {
  if (!IsValidPixel(raw)) return m.invalid;
  const double v = static_cast<double>(raw);
  if (m.low > v) return m.under;
  if (v > m.high) return m.over;
  return (*m.table)[static_cast<size_t>(SerialLinearEntry(v, m))];
}

// SerialLinearColour for every raw value of an 8- or 16-bit type.
template <typename T>
std::vector<PaddedColour> BuildSerialValueColours(const SerialLinearMapping& m) {
  return TabulateValueColours<T>(
      [&](T v) -> const ColourEntry& { return SerialLinearColour(v, m); });
}

// ---- The four routines behind KivLUTSetting::LinearColorMapLUT ----
// Each repeats the checks its results depend on, sizes `out` to width x height colours of three
// bytes and returns a status code; no exception leaves them.

// Given bounds (physical units), caller's index range and under/over colours; serial.
long LinearColourMapWithColours(const KivRangeImage& image, int mapType, double low, double high,
                                int indexLow, int indexHigh, const KivColor& underColor,
                                const KivColor& overColor, KivColorArray* out);
// Given bounds (physical units); entry 0 below, 255 above.
long LinearColourMapWithBounds(const KivRangeImage& image, int mapType, double low, double high,
                               KivColorArray* out);
// Bounds are the valid minimum and maximum, in raw units.
long LinearColourMapMinMax(const KivRangeImage& image, int mapType, KivColorArray* out);
// Float images: bounds cut at fractions of the sorted valid values; -1 for other pixel matrices.
long LinearColourMapFractions(const KivRangeImage& image, KivColorArray* out, int mapType,
                              double upperFraction, double lowerFraction);

}  // namespace KIVMV
