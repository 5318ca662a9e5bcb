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

// Colours n normalised values, element i into bytes 3i..3i+2 of `out`; an element whose value
// matches no segment is not written. Each element depends on its value alone, so large arrays are
// coloured in parallel.
void ColourFivePoint(const float* data, int n, const FivePointScale& scale, uint8_t* out);

}  // namespace KIVMV
