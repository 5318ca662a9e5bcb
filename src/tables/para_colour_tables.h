// The 1024-entry colour tables of the five-point scale, and their selection by map number.
//
// These tables are independent of the 256-entry tables: map numbers 7 to 10 have tables of their
// own here. Entries are three bytes stored blue, green, red.
#pragma once

#include <array>

#include "tables/colour_tables.h"

namespace KIVMV {

inline constexpr int kParaTableSize = 1024;
using ParaColourTable = std::array<ColourEntry, kParaTableSize>;

// The range-image forms: map numbers 2 to 10 their own table; 1 and every other number table 1.
const ParaColourTable& SelectParaColourTable(int mapType);

// The float-array form: 2 its own table; 3 and 7 table 3, 4 and 8 table 4, 5 and 9 table 5, 6 and
// 10 table 6; 1 and every other number table 1.
const ParaColourTable& SelectParaColourTableForArray(int mapType);

// The grey table again, as the segmenting colouring's own copy.
extern const ColourTable kParaGreyTable;

}  // namespace KIVMV
