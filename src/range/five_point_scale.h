// The five-point scale: a piecewise-linear map of normalised values onto a 1024-entry colour
// table, between five break values d0..d4 that map to the entries i0..i4.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "common/numeric_helpers.h"
#include "range/para_normalisation.h"
#include "tables/colour_tables.h"
#include "tables/para_colour_tables.h"

namespace KIVMV {

struct FivePointScale {
  std::array<double, 5> value;  // d0..d4, normalised domain
  std::array<int, 5> index;     // i0..i4, 0..1023
  const ParaColourTable* table;
  ColourEntry under;  // below d0, as stored (see StoredColour)
  ColourEntry over;   // above d4
  ColourEntry invalid;
};

// The entry of a value `step` entries into a segment that starts at entry indexLow:
// indexLow - 1 + step, so the value at a segment's lower end takes the entry before indexLow; 0
// when that is negative. Inside a segment the step never passes indexHigh - indexLow; only break
// values the checks let through (NaN, infinities) can push it further, and those read the last
// entry rather than past the table.
inline int FivePointEntry(int64_t step, int indexLow) {
  if (step < 1 - static_cast<int64_t>(indexLow)) return 0;
  if (step > kParaTableSize - static_cast<int64_t>(indexLow)) return kParaTableSize - 1;
  return static_cast<int>(indexLow - 1 + step);
}

// The entry of v in the segment (a, b] or [a, b) that holds it: the truncation of
// (v - a) / (b - a) x (ib - ia) steps from ia.
inline int SegmentEntry(double v, double a, double b, int ia, int ib) {
  const int64_t step = numeric::TruncateToInt64((v - a) / (b - a) * static_cast<double>(ib - ia));
  return FivePointEntry(step, ia);
}

// The colour of one normalised value, or null when it matches no segment. The segments are tried
// from the top: d3 < v <= d4, d2 <= v < d3, d1 < v < d2, d0 < v <= d1. Their ends are not closed
// everywhere: a value equal to d0 (when d0 < d1) or to d3 (when d2 < d3) falls between them, and
// its element keeps whatever it held before.
inline const ColourEntry* FivePointColour(float value, const FivePointScale& s) {
  if (!IsParaValid(value)) return &s.invalid;
  const double v = static_cast<double>(value);
  const std::array<double, 5>& d = s.value;
  const std::array<int, 5>& i = s.index;
  if (d[0] > v) return &s.under;
  if (v > d[4]) return &s.over;
  int entry = 0;
  if (d[3] < v && v <= d[4]) {
    entry = SegmentEntry(v, d[3], d[4], i[3], i[4]);
  } else if (d[2] <= v && v < d[3]) {
    entry = SegmentEntry(v, d[2], d[3], i[2], i[3]);
  } else if (d[1] < v && v < d[2]) {
    entry = SegmentEntry(v, d[1], d[2], i[1], i[2]);
  } else if (d[0] < v && v <= d[1]) {
    entry = SegmentEntry(v, d[0], d[1], i[0], i[1]);
  } else {
    return nullptr;
  }
  return &(*s.table)[static_cast<size_t>(entry)];
}

// The scale with each segment's division turned into a multiplication: (v - a) x (1 / (b - a)) is
// within a few units in the last place of (v - a) / (b - a), so unless the step it gives lies
// within kStepMargin of a whole number it truncates to the same step; there, and wherever a
// reciprocal is not finite, the exact division decides. The colours are those of FivePointColour.
class FastFivePointScale {
 public:
  explicit FastFivePointScale(const FivePointScale& scale) : scale_(scale) {
    const std::array<double, 5>& d = scale.value;
    for (int k = 0; k < 4; ++k) reciprocal_[k] = 1.0 / (d[k + 1] - d[k]);
    ascending_ = d[0] <= d[1] && d[1] <= d[2] && d[2] <= d[3] && d[3] <= d[4];
  }

  const ColourEntry* Colour(float value) const {
    const FivePointScale& s = scale_;
    if (!IsParaValid(value)) return &s.invalid;
    const double v = static_cast<double>(value);
    const std::array<double, 5>& d = s.value;
    if (d[0] > v) return &s.under;
    if (v > d[4]) return &s.over;
    // With ascending break values the segments do not overlap, and counting the break values
    // below v names the one whose test holds, except where v sits on an end that its segment
    // leaves open (d0, d3, or d1 = d2): there, and for break values out of order, the segments are
    // tried in the order of FivePointColour. Counting needs no branch on the data.
    int k = static_cast<int>(v > d[1]) + static_cast<int>(v >= d[2]) + static_cast<int>(v > d[3]);
    if (!ascending_ || v == d[0] || v == d[2] || v == d[3]) {
      k = SearchSegment(v);
      if (k < 0) return nullptr;
    }
    return &(*s.table)[static_cast<size_t>(Entry(v, k))];
  }

 private:
  // Steps within a segment lie in 0..1023; far outside, the rounding errors outgrow the margin.
  static constexpr double kStepMargin = 1e-9;
  static constexpr double kStepLimit = 4096.0;

  // The segment tests of FivePointColour; the search tries them in its order, -1 when none holds.
  bool InSegment(double v, int k) const {
    const std::array<double, 5>& d = scale_.value;
    switch (k) {
      case 3:
        return d[3] < v && v <= d[4];
      case 2:
        return d[2] <= v && v < d[3];
      case 1:
        return d[1] < v && v < d[2];
      default:
        return d[0] < v && v <= d[1];
    }
  }
  int SearchSegment(double v) const {
    for (int k = 3; k >= 0; --k) {
      if (InSegment(v, k)) return k;
    }
    return -1;
  }

  int Entry(double v, int k) const {
    const std::array<double, 5>& d = scale_.value;
    const std::array<int, 5>& i = scale_.index;
    const double step = (v - d[k]) * reciprocal_[k] * static_cast<double>(i[k + 1] - i[k]);
    if (step > -kStepLimit && step < kStepLimit) {
      const int64_t whole = static_cast<int64_t>(step);  // toward zero, inside the limit
      const double fraction = std::fabs(step - static_cast<double>(whole));
      if (fraction > kStepMargin && fraction < 1.0 - kStepMargin) {
        return FivePointEntry(whole, i[k]);
      }
    }
    return SegmentEntry(v, d[k], d[k + 1], i[k], i[k + 1]);
  }

  FivePointScale scale_;
  std::array<double, 4> reciprocal_{};
  bool ascending_ = false;
};

// Colours n normalised values, element i into bytes 3i..3i+2 of `out`; an element whose value
// matches no segment is not written. Each element depends on its value alone, so large arrays are
// coloured in parallel.
void ColourFivePoint(const float* data, int n, const FivePointScale& scale, uint8_t* out);

}  // namespace KIVMV
