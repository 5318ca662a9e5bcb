// The rules arguments are checked against, each written once. Where both the public frame and the
// routine behind it check a rule (the routines repeat some checks, and the dialog reaches them
// without the frame), both call the predicate here; which status code a failure gives is each
// method's own.
#pragma once

namespace KIVMV {

// Colour-map numbers run from 0 to 10; 7 to 10 are accepted and colour in grey.
inline constexpr int kLastMapType = 10;
inline constexpr int kMapTypeCount = kLastMapType + 1;

// Read as unsigned, so a negative number fails too.
constexpr bool IsMapType(int mapType) {
  return static_cast<unsigned>(mapType) <= static_cast<unsigned>(kLastMapType);
}

// The five-point scale has no grey table: 1 to 10.
constexpr bool IsParaMapType(int mapType) { return mapType >= 1 && mapType <= kLastMapType; }

// A fraction of the valid values, 0 to 1; NaN fails.
constexpr bool IsFraction(double f) { return f >= 0.0 && f <= 1.0; }

// The first and last table entry of an index range: from 0 up, the last not before the first.
constexpr bool IsOrderedIndexRange(int first, int last) { return first >= 0 && last >= first; }

// An entry of a table of `size` entries, counted from its start.
constexpr bool IsBelowTableSize(int index, int size) { return index < size; }

}  // namespace KIVMV
