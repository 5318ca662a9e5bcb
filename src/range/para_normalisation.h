// The normalised domain of the five-point scale: float height data rescaled to [-1, 1], break
// values moved into it and back out, and the break values found in the data in automatic mode.
//
// Everything here works in single precision where the data are float (the scale s and the offset
// are floats, and no multiply-add is fused), so a break value equal to a data value lands on
// exactly the same normalised value as that data value.
#pragma once

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

#include "common/numeric_helpers.h"
#include "common/pixel_rules.h"

namespace KIVMV {

// The "no data" marker of float height data.
inline constexpr float kParaInvalidMarker = PixelTraits<float>::kMarker;

using numeric::NarrowToFloat;

// Which elements a rescaling measures and rewrites.
enum class RescaledElements {
  // Every element but the exact marker (range images): NaN never wins a comparison, so it takes
  // no part in the extremes, while infinities do.
  kAllButMarker,
  // Valid measurements only (float arrays, IsValid): neither the marker nor a non-finite value.
  kValidMeasurements,
};

// The map of data values onto [-1, 1]: v -> scale * v + offset, in float.
struct ParaRescaling {
  float minimum = FLT_MAX;  // of the measured elements, in data units
  float maximum = -FLT_MAX;
  float scale = 1.0f;   // 2 / (maximum - minimum)
  float offset = 0.0f;  // -1 - scale * minimum
  // False when there was nothing to rescale (no measured element, or all equal): the data are
  // then left as they are and break values move in and out unchanged.
  bool applied = false;
};

// scale = 2 / (M - m) and offset = -1 - scale * m, each rounded to float.
inline ParaRescaling RescalingBetween(float minimum, float maximum) {
  ParaRescaling r;
  r.minimum = minimum;
  r.maximum = maximum;
  r.applied = minimum != maximum;
  if (r.applied) {
    const float span = maximum - minimum;
    r.scale = 2.0f / span;
    const float shift = r.scale * minimum;
    r.offset = -1.0f - shift;
  }
  return r;
}

// One data value in the normalised domain: the product and the sum each rounded to float.
inline float RescaledValue(float v, const ParaRescaling& r) {
  const float product = r.scale * v;
  return product + r.offset;
}

// A break value given in data units, in the normalised domain: narrowed to float and rescaled like
// a data value. Unchanged when the data were not rescaled.
inline double MoveIntoDomain(double value, const ParaRescaling& r) {
  if (!r.applied) return value;
  return RescaledValue(NarrowToFloat(value), r);
}

// A normalised value back in data units: (M - m) * (w + 1) * 0.5 + m in double; w itself when
// m >= M.
inline double MoveOutOfDomain(double w, const ParaRescaling& r) {
  const double m = r.minimum;
  const double M = r.maximum;
  if (m >= M) return w;
  return (M - m) * (w + 1.0) * 0.5 + m;
}

// The extremes of the measured elements among n, and the rescaling between them.
ParaRescaling FindRescaling(const float* data, int n, RescaledElements which);

// Below this many elements the five-point passes run on the calling thread: waking the workers
// costs more than they save, and no result depends on how the elements are split.
inline constexpr int kParaParallelFrom = 1 << 16;

// Rewrites the measured elements in place; nothing when the rescaling is not applied.
void ApplyRescaling(float* data, int n, const ParaRescaling& r, RescaledElements which);

// ---- Automatic break values ----

// The sums are formed per block of this many consecutive elements, in index order, and the block
// totals added in block order, so the result is the same however the work is split.
inline constexpr int kParaReductionBlock = 65536;

// What automatic mode gathers over the valid values of the normalised data.
struct ParaTotals {
  double minimum = static_cast<double>(FLT_MAX);
  double maximum = -static_cast<double>(FLT_MAX);
  double positiveSquares = 0.0;  // values above zero
  int64_t positiveCount = 0;
  double negativeSquares = 0.0;  // values below zero
  int64_t negativeCount = 0;
};

// The totals of elements begin..end-1, added in index order.
ParaTotals TotalsOfRange(const float* data, int begin, int end);

// Adds `part` into `total` (extremes by comparison, sums by addition).
void AddTotals(ParaTotals& total, const ParaTotals& part);

// The totals of n elements: one block of kParaReductionBlock at a time, in parallel, combined in
// block order.
ParaTotals FindParaTotals(const float* data, int n);

// The five automatic break values (normalised domain) and their table entries.
inline constexpr std::array<int, 5> kAutomaticIndices = {0, 127, 511, 895, 1023};

struct BreakValues {
  std::array<double, 5> value;
  std::array<int, 5> index;
};

// Minimum, negative spread point, centre, positive spread point and maximum. With p and q the root
// mean squares of the positive and of the negative values (0 when there are none): the negative
// point is -q, or (p + minimum) / 2 when that is 0; the positive point is p, or
// (maximum + minimum) / 2 when that is not above 0; the centre is their mean.
BreakValues AutomaticBreakValues(const ParaTotals& totals);

}  // namespace KIVMV
