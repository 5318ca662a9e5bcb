// The published colour maps KivColorTable::ByName knows beside KivLUTSetting's seven, as data.
//
// Entries are red, green, blue, the order the sources give them in; KivColorTable turns them blue
// first when it stores them.
#pragma once

#include <array>
#include <cstdint>

namespace KIVMV {

using PublishedRgbTable = std::array<std::array<uint8_t, 3>, 256>;

extern const PublishedRgbTable kViridisRgb;
extern const PublishedRgbTable kMagmaRgb;
extern const PublishedRgbTable kInfernoRgb;
extern const PublishedRgbTable kPlasmaRgb;
extern const PublishedRgbTable kCividisRgb;
extern const PublishedRgbTable kTurboRgb;
extern const PublishedRgbTable kTwilightRgb;

}  // namespace KIVMV
