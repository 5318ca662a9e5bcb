// Parallel statistics of range-image pixels: minimum, maximum and valid count, the 256-bin value
// histogram, and the single-colour fill used when the value range collapses to a point.
//
// Each body is what tbb::parallel_reduce asks for and nothing more: state, splitting constructor,
// operator(), join. The per-pixel maths lives in the inline kernels beside them, so a serial loop
// over the same kernels gives the same answer as any split of the work.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "common/cpu_features.h"
#include "common/load_time_config.h"
#include "common/numeric_helpers.h"
#include "common/pixel_rules.h"
#include "tables/colour_tables.h"

namespace KIVMV {

inline constexpr int kHistogramBins = 256;

// Two independent tests, not else-if: the first value seen sets both extremes.
template <typename T>
inline void UpdateExtremes(T v, T& minimum, T& maximum) {
  if (v < minimum) minimum = v;
  if (v > maximum) maximum = v;
}

// The valid float values are exactly those in (-FLT_MAX, FLT_MAX]: the marker distance is 0 only
// at the marker itself, every other finite value lies at least 2^104 away, and NaN fails both
// comparisons. Two comparisons instead of a widening and a finiteness test let loops vectorise.
inline bool IsValidFloatPixel(float v) { return v > -FLT_MAX && v <= FLT_MAX; }

// Minimum and maximum of f(data[i]) over begin..end-1 where that value passes `isValid`, merged
// into `minimum` and `maximum` exactly as UpdateExtremes would merge them one at a time. Eight
// independent lanes let the loop vectorise. Lanes change only which of two equal values is kept,
// and the only distinct floats that compare equal are +0 and -0; when an extreme is zero the first
// zero in order is taken, as the one-at-a-time loop keeps it.
template <typename Value, typename IsValid>
inline void MergeFloatExtremes(size_t begin, size_t end, Value&& f, IsValid&& isValid,
                               float& minimum, float& maximum) {
  constexpr size_t kLanes = 8;
  float low[kLanes], high[kLanes];
  for (size_t j = 0; j < kLanes; ++j) {
    low[j] = FLT_MAX;
    high[j] = -FLT_MAX;
  }
  size_t i = begin;
  for (; i + kLanes <= end; i += kLanes) {
    for (size_t j = 0; j < kLanes; ++j) {
      const float v = f(i + j);
      const bool valid = isValid(v);
      const float a = valid ? v : FLT_MAX;
      const float b = valid ? v : -FLT_MAX;
      low[j] = a < low[j] ? a : low[j];
      high[j] = b > high[j] ? b : high[j];
    }
  }
  for (; i < end; ++i) {
    const float v = f(i);
    if (isValid(v)) UpdateExtremes(v, low[0], high[0]);
  }
  float rangeLow = low[0], rangeHigh = high[0];
  for (size_t j = 1; j < kLanes; ++j) {
    if (low[j] < rangeLow) rangeLow = low[j];
    if (high[j] > rangeHigh) rangeHigh = high[j];
  }
  if (rangeLow == 0.0f || rangeHigh == 0.0f) {
    for (size_t k = begin; k < end; ++k) {
      const float v = f(k);
      if (v == 0.0f && isValid(v)) {
        if (rangeLow == 0.0f) rangeLow = v;
        if (rangeHigh == 0.0f) rangeHigh = v;
        break;
      }
    }
  }
  // The initial extremes FLT_MAX and -FLT_MAX are valid values themselves, so a range without a
  // valid value merges like one holding only those.
  if (rangeLow < minimum) minimum = rangeLow;
  if (rangeHigh > maximum) maximum = rangeHigh;
}

// MergeFloatExtremes over the valid pixels data[begin..end-1].
inline void MergeValidFloatExtremes(const float* data, size_t begin, size_t end, float& minimum,
                                    float& maximum) {
  MergeFloatExtremes(
      begin, end, [data](size_t i) { return data[i]; }, IsValidFloatPixel, minimum, maximum);
}

template <typename T>
class MinMaxBody {
 public:
  explicit MinMaxBody(const T* data) : data_(data) {}
  MinMaxBody(MinMaxBody& other, tbb::split) : data_(other.data_) {}

  void operator()(const tbb::blocked_range<size_t>& range) {
    if constexpr (std::is_same_v<T, float>) {
      MergeValidFloatExtremes(data_, range.begin(), range.end(), minimum, maximum);
    } else {
      for (size_t i = range.begin(); i != range.end(); ++i) {
        if (IsValidPixel(data_[i])) UpdateExtremes(data_[i], minimum, maximum);
      }
    }
  }
  void join(const MinMaxBody& right) {
    // Minimum with minimum, maximum with maximum: a body that saw no valid pixel still holds the
    // initial extremes, which must not cross over.
    if (right.minimum < minimum) minimum = right.minimum;
    if (right.maximum > maximum) maximum = right.maximum;
  }

  const T* data_;
  T minimum = PixelTraits<T>::kInitialMin;
  T maximum = PixelTraits<T>::kInitialMax;
};

// Minimum, maximum and number of valid pixels.
template <typename T>
class MinMaxBodyandnemer {
 public:
  explicit MinMaxBodyandnemer(const T* data) : data_(data) {}
  MinMaxBodyandnemer(MinMaxBodyandnemer& other, tbb::split) : data_(other.data_) {}

  void operator()(const tbb::blocked_range<int>& range) {
    for (int i = range.begin(); i != range.end(); ++i) {
      if (!IsValidPixel(data_[i])) continue;
      UpdateExtremes(data_[i], minimum, maximum);
      ++count;
    }
  }
  void join(const MinMaxBodyandnemer& right) {
    // Minimum with minimum, maximum with maximum: a body that saw no valid pixel still holds the
    // initial extremes, which must not cross over.
    if (right.minimum < minimum) minimum = right.minimum;
    if (right.maximum > maximum) maximum = right.maximum;
    count += right.count;
  }

  const T* data_;
  T minimum = PixelTraits<T>::kInitialMin;
  T maximum = PixelTraits<T>::kInitialMax;
  uint32_t count = 0;
};

// The histogram bin of a pixel, or -1 when the pixel is not counted. Only a non-finite pixel at the
// marker is dropped here (none, for the integer types); the inclusive bound test does the rest.
// Bins 0..254 cover [low, high) when w = (high - low) / 255, and bin 255 takes only values equal
// to high: a value one rounding step past it is pulled back from 256.
template <typename T>
inline int HistogramBin(T raw, double w, double low, double high) {
  const double v = static_cast<double>(raw);
  if (IsUncountedInHistogram(raw)) return -1;
  if (!(low <= v && v <= high)) return -1;
  // The two divisions are kept separate: folding them changes which bin a boundary value takes.
  int64_t bin = numeric::TruncateToInt64(std::floor(v / w - low / w + 1e-14));
  if (bin == kHistogramBins) bin = kHistogramBins - 1;
  // Only a non-finite bin width can reach further; such bins are clamped.
  if (bin < 0) bin = 0;
  if (bin > kHistogramBins - 1) bin = kHistogramBins - 1;
  return static_cast<int>(bin);
}

// HistogramBin with the division v / w replaced by a multiplication by 1 / w wherever that cannot
// change the bin: the product is within a few units in the last place of the quotient, so unless
// the bin position lies that close to an integer its floor is the same; then the division decides.
// lowOverW is low / w, formed as HistogramBin forms it.
template <typename T>
inline int HistogramBinByReciprocal(T raw, double w, double reciprocal, double lowOverW, double low,
                                    double high) {
  const double v = static_cast<double>(raw);
  if (low <= v && v <= high) {
    const double quotient = v * reciprocal;
    const double x = quotient - lowOverW + 1e-14;
    if (x >= 0.0 && x < kHistogramBins) {
      const int whole = static_cast<int>(x);  // the floor, for x >= 0
      const double margin = std::fabs(quotient) * 1e-15 + 1e-12;
      if (x - whole > margin && (whole + 1.0) - x > margin) return whole;
    }
  }
  return HistogramBin(raw, w, low, high);
}

using Histogram = std::vector<uint32_t>;

template <typename T>
class HistTbbMinMax {
 public:
  HistTbbMinMax(const T* data, double binWidth, double low, double high)
      : data_(data), histogram(kHistogramBins, 0), binWidth_(binWidth), low_(low), high_(high) {}
  HistTbbMinMax(HistTbbMinMax& other, tbb::split)
      : data_(other.data_),
        histogram(kHistogramBins, 0),
        binWidth_(other.binWidth_),
        low_(other.low_),
        high_(other.high_) {}

  void operator()(const tbb::blocked_range<int>& range) {
    const double reciprocal = 1.0 / binWidth_;
    const double lowOverW = low_ / binWidth_;
    for (int i = range.begin(); i != range.end(); ++i) {
      const int bin =
          HistogramBinByReciprocal(data_[i], binWidth_, reciprocal, lowOverW, low_, high_);
      if (bin >= 0) ++histogram[bin];
    }
  }
  void join(const HistTbbMinMax& right) {
    for (int b = 0; b < binCount_; ++b) histogram[b] += right.histogram[b];
  }

  const T* data_;
  Histogram histogram;

 private:
  double binWidth_;
  int binCount_ = kHistogramBins;
  double low_;
  double high_;
};

// Writes colour-table entry `index` for every valid pixel and the map type's invalid colour for
// every other one. Nothing to reduce: join does nothing.
template <typename T>
class LUTMaxEquMin {
 public:
  LUTMaxEquMin(const T* data, const ColourTable& table, uint8_t* out, uint32_t index, int mapType)
      : data_(data), table_(&table), out_(out), index_(index), mapType_(mapType) {}
  LUTMaxEquMin(LUTMaxEquMin& other, tbb::split)
      : data_(other.data_),
        table_(other.table_),
        out_(other.out_),
        index_(other.index_),
        mapType_(other.mapType_) {}

  void operator()(const tbb::blocked_range<int>& range) const {
    const ColourEntry& valid = (*table_)[index_];
    const ColourEntry& invalid = InvalidColour(mapType_);
    for (int i = range.begin(); i != range.end(); ++i) {
      const ColourEntry& colour = IsValidPixel(data_[i]) ? valid : invalid;
      uint8_t* pixel = out_ + 3 * static_cast<size_t>(i);
      pixel[0] = colour[0];
      pixel[1] = colour[1];
      pixel[2] = colour[2];
    }
  }
  void join(const LUTMaxEquMin&) {}

 private:
  const T* data_;
  const ColourTable* table_;
  uint8_t* out_;
  uint32_t index_;  // at most 255
  int mapType_;
};

template <typename T>
struct ValueStatistics {
  T minimum;
  T maximum;
  uint32_t validCount;
};

// Minimum, maximum and valid count of n pixels. With no valid pixel the minimum stays above the
// maximum (the type's initial extremes) and the count is 0.
template <typename T>
ValueStatistics<T> FindValueStatistics(const T* data, int n) {
  MinMaxBodyandnemer<T> body(data);
  tbb::parallel_reduce(tbb::blocked_range<int>(0, n, GrainSize(n)), body, tbb::auto_partitioner());
  return {body.minimum, body.maximum, body.count};
}

// The valid float or double pixels as ordered integer codes: the least and greatest code and how
// many there are, over data[begin..end) merged into a running partial. For these types a pixel is
// valid exactly when it is finite and not the marker -max (no other value lies within 1e-8 of
// it), and the order of valid values is that of their sign-magnitude bits read as ordered
// integers, so the loop has no branch and no floating-point comparison and vectorises.
template <typename T>
struct FloatingCodes {
  static_assert(std::is_same_v<T, float> || std::is_same_v<T, double>);
  using Bits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
  using Code = std::conditional_t<sizeof(T) == 4, int32_t, int64_t>;
  static constexpr Bits kSign = Bits{1} << (8 * sizeof(T) - 1);
  static constexpr Bits kMagnitude = kSign - 1;
  static constexpr Bits kInfinity =
      static_cast<Bits>(sizeof(T) == 4 ? uint64_t{0x7F800000} : uint64_t{0x7FF0000000000000});

  struct Partial {
    Code lowest = std::numeric_limits<Code>::max();
    Code highest = std::numeric_limits<Code>::min();
    uint32_t count = 0;
  };

  static Bits MarkerBits() {
    const T marker = PixelTraits<T>::kMarker;
    Bits bits;
    std::memcpy(&bits, &marker, sizeof bits);
    return bits;
  }

  __attribute__((always_inline)) static inline void Scan(const T* data, int begin, int end,
                                                         Partial& part) {
    const Bits markerBits = MarkerBits();
    Code lowest = part.lowest;
    Code highest = part.highest;
    Bits count = 0;
    // Masks rather than conditions, so that the loop vectorises.
    for (int i = begin; i != end; ++i) {
      Bits bits;
      std::memcpy(&bits, data + i, sizeof bits);
      const Bits valid = static_cast<Bits>((bits & kMagnitude) < kInfinity) &
                         static_cast<Bits>(bits != markerBits);
      // Negative values flip their magnitude bits so that integer order is value order.
      const Bits negative = Bits{0} - (bits >> (8 * sizeof(T) - 1));
      const Code code = static_cast<Code>(bits ^ (negative & kMagnitude));
      const Code keep = static_cast<Code>(Bits{0} - valid);
      const Code low = (code & keep) | (std::numeric_limits<Code>::max() & ~keep);
      const Code high = (code & keep) | (std::numeric_limits<Code>::min() & ~keep);
      lowest = low < lowest ? low : lowest;
      highest = high > highest ? high : highest;
      count += valid;
    }
    part.lowest = lowest;
    part.highest = highest;
    part.count += static_cast<uint32_t>(count);
  }

  static T Decode(Code code) {
    Bits bits = static_cast<Bits>(code);
    bits ^= (bits & kSign) ? kMagnitude : Bits{0};
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
};

// The same scan compiled for AVX2: twice the lanes of the baseline, the same integer operations.
void ScanFloatCodesAvx2(const float* data, int begin, int end, FloatingCodes<float>::Partial& part);

// FindValueStatistics for float and double pixels, on the bits. Which of two equal extremes is
// kept can differ from the first-seen rule only for a zero's sign, which no colouring step can
// tell apart (and which the split of the work decides anyway).
template <typename T>
ValueStatistics<T> FindFloatingValueStatistics(const T* data, int n) {
  using Codes = FloatingCodes<T>;
  using Partial = typename Codes::Partial;
  const Partial total = tbb::parallel_reduce(
      // Pieces of at most 64K pixels: the extremes and the count do not depend on the split, and
      // small pieces let an idle worker take over from a descheduled one.
      tbb::blocked_range<int>(0, n, std::min(GrainSize(n), 1 << 16)), Partial{},
      [data](const tbb::blocked_range<int>& range, Partial part) {
        if constexpr (std::is_same_v<T, float>) {
          if (RunsAvx2()) {
            ScanFloatCodesAvx2(data, range.begin(), range.end(), part);
            return part;
          }
        }
        Codes::Scan(data, range.begin(), range.end(), part);
        return part;
      },
      [](Partial a, const Partial& b) {
        a.lowest = b.lowest < a.lowest ? b.lowest : a.lowest;
        a.highest = b.highest > a.highest ? b.highest : a.highest;
        a.count += b.count;
        return a;
      },
      tbb::auto_partitioner());
  if (total.count == 0) return {PixelTraits<T>::kInitialMin, PixelTraits<T>::kInitialMax, 0};
  return {Codes::Decode(total.lowest), Codes::Decode(total.highest), total.count};
}

// Minimum and maximum of the valid pixels among n.
template <typename T>
ValueStatistics<T> FindMinMax(const T* data, int n) {
  MinMaxBody<T> body(data);
  tbb::parallel_reduce(tbb::blocked_range<size_t>(0, static_cast<size_t>(n), GrainSize(n)), body,
                       tbb::auto_partitioner());
  return {body.minimum, body.maximum, 0};
}

// 256-bin histogram of the pixels in [low, high] with bin width w.
template <typename T>
Histogram BuildHistogram(const T* data, int n, double w, double low, double high) {
  HistTbbMinMax<T> body(data, w, low, high);
  tbb::parallel_reduce(tbb::blocked_range<int>(0, n, GrainSize(n)), body, tbb::auto_partitioner());
  return body.histogram;
}

// Every valid pixel takes table entry `index`, every invalid one the invalid colour of mapType.
template <typename T>
void ColourWithOneEntry(const T* data, int n, const ColourTable& table, uint32_t index, int mapType,
                        uint8_t* out) {
  LUTMaxEquMin<T> body(data, table, out, index, mapType);
  tbb::parallel_reduce(tbb::blocked_range<int>(0, n, GrainSize(n)), body, tbb::auto_partitioner());
}

}  // namespace KIVMV
