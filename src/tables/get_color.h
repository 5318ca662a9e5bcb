#pragma once

#include "KivColor.h"

namespace KIVMV {

// The argument checks of a colour query, in order: value outside [0, 1] or NaN, then mapType
// outside 0..10 (read as unsigned), then a null output.
long CheckColorQuery(double value, int mapType, const KivColor* out);

// The colour of the fraction `value` of the mapped range under colour map `mapType`, written to
// components 0, 1, 2 (blue, green, red) of `out`. Returns a public status code.
long GetColorRoutine(double value, int mapType, KivColor* out);

}  // namespace KIVMV
