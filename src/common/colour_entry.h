// One colour as the library stores it: three bytes, blue, green, red, the channel order of every
// colour array and colour image.
#pragma once

#include <array>
#include <cstdint>

namespace KIVMV {

using ColourEntry = std::array<uint8_t, 3>;

}  // namespace KIVMV
