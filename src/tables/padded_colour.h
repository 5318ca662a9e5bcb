// A table colour padded to four bytes, for writing runs of 3-byte colours with one 4-byte store
// each.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "tables/colour_tables.h"

namespace KIVMV {

// Blue, green, red and a spare byte of 0.
using PaddedColour = std::array<uint8_t, 4>;

inline PaddedColour Pad(const ColourEntry& entry) { return {entry[0], entry[1], entry[2], 0}; }

// Writes colourOf(0) .. colourOf(n - 1) as 3-byte colours from `out`. Each but the last is stored
// as four bytes, whose spare byte the next colour overwrites; the last is stored as three, so no
// byte at or past out + 3n is touched.
template <typename ColourOf>
void WriteColours(int64_t n, ColourOf colourOf, uint8_t* out) {
  if (n <= 0) return;
  for (int64_t i = 0; i < n - 1; ++i) {
    const PaddedColour colour = colourOf(i);
    std::memcpy(out + 3 * i, colour.data(), 4);
  }
  const PaddedColour last = colourOf(n - 1);
  std::memcpy(out + 3 * (n - 1), last.data(), 3);
}

}  // namespace KIVMV
