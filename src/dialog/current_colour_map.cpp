#include "dialog/current_colour_map.h"

namespace KIVMV {
namespace dialog {
namespace {

// The one piece of state the library keeps between calls: 0 (grey) until something is stored,
// never reset.
int currentColourMap = 0;

}  // namespace

int CurrentColourMap() { return currentColourMap; }

void StoreCurrentColourMap(int mapType) { currentColourMap = mapType; }

}  // namespace dialog
}  // namespace KIVMV
