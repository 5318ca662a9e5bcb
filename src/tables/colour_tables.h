// The library's colour tables and their selection by colour-map number.
//
// Every table has 256 entries of three bytes stored blue, green, red, the channel order of the
// library's colour arrays and images. Entry i colours the i-th of 256 equal steps from the low end
// of the mapped range to the high end.
#pragma once

#include <array>
#include <cstdint>

#include "common/argument_rules.h"
#include "common/colour_entry.h"

namespace cv {
class Mat;
}

namespace KIVMV {

inline constexpr int kColourTableSize = 256;
using ColourTable = std::array<ColourEntry, kColourTableSize>;

// Colour-map numbers. 7 to 10 pass every map-type check but have no table of their own.
enum ColourMap : int {
  kGreyMap = 0,
  kRainbowMap = 1,
  kHotMetalMap = 2,
  kDivergingMap = 3,
  kIsoluminantMap = 4,
  kRgbMap = 5,
  kJetMap = 6,
};

extern const ColourTable kGreyTable;
extern const ColourTable kRainbowTable;
extern const ColourTable kHotMetalTable;
extern const ColourTable kDivergingTable;
extern const ColourTable kIsoluminantTable;
extern const ColourTable kRgbTable;
extern const ColourTable kJetTable;

// The colour of an invalid pixel, by colour-map number: white for hot metal, whose table starts
// at black, and black for every other map.
extern const std::array<ColourEntry, kMapTypeCount> InvalidColorTable;

// The colour of an invalid pixel under mapType; a number outside 0..10 gets black.
const ColourEntry& InvalidColour(int mapType);

// 1 rainbow, 2 hot metal, 3 diverging, 4 isoluminant, 5 RGB, 6 jet; any other number gives grey.
const ColourTable& SelectColourTable(int mapType);

// The selected table as a 1 x 256 CV_8UC3 matrix header around the constant bytes, for cv::LUT and
// other matrix readers. Built at load; never write through it.
const cv::Mat& SelectColourTableMatrix(int mapType);

}  // namespace KIVMV
