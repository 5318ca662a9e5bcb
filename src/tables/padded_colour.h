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

// Writes colourOf(0) .. colourOf(n - 1) as 3-byte colours from `out`, one at a time. Each but the
// last is stored as four bytes, whose spare byte the next colour overwrites; the last is stored as
// three, so no byte at or past out + 3n is touched.
template <typename ColourOf>
void WriteColoursOneByOne(int64_t n, ColourOf colourOf, uint8_t* out) {
  if (n <= 0) return;
  for (int64_t i = 0; i < n - 1; ++i) {
    const PaddedColour colour = colourOf(i);
    std::memcpy(out + 3 * i, colour.data(), 4);
  }
  const PaddedColour last = colourOf(n - 1);
  std::memcpy(out + 3 * (n - 1), last.data(), 3);
}

// The three colour bytes of a padded colour in the low bytes of a 64-bit word, in memory order
// (the words below are stored little end first, as x86 and most targets store them).
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "colour words are little-endian");
inline uint64_t ColourWord(const PaddedColour& c) {
  uint32_t word;
  std::memcpy(&word, c.data(), sizeof word);
  return word & 0xFFFFFFu;
}

inline void StoreWord(uint8_t* at, uint64_t word) { std::memcpy(at, &word, sizeof word); }

// The bytes of WriteColoursOneByOne, with eight colours packed into three 8-byte stores instead of
// eight 4-byte ones: stores, not loads, bound the colouring loops. Nothing at or past out + 3n is
// touched.
template <typename ColourOf>
void WriteColours(int64_t n, ColourOf colourOf, uint8_t* out) {
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const uint64_t c0 = ColourWord(colourOf(i)), c1 = ColourWord(colourOf(i + 1));
    const uint64_t c2 = ColourWord(colourOf(i + 2)), c3 = ColourWord(colourOf(i + 3));
    const uint64_t c4 = ColourWord(colourOf(i + 4)), c5 = ColourWord(colourOf(i + 5));
    const uint64_t c6 = ColourWord(colourOf(i + 6)), c7 = ColourWord(colourOf(i + 7));
    uint8_t* at = out + 3 * i;
    StoreWord(at, c0 | c1 << 24 | c2 << 48);
    StoreWord(at + 8, c2 >> 16 | c3 << 8 | c4 << 32 | c5 << 56);
    StoreWord(at + 16, c5 >> 8 | c6 << 16 | c7 << 40);
  }
  WriteColoursOneByOne(
      n - i, [&](int64_t k) { return colourOf(i + k); }, out + 3 * i);
}

}  // namespace KIVMV
