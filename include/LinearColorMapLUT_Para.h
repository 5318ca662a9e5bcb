// The five-point colour scale of the parameterised mappings.
#pragma once

#include <cstdint>

namespace KIVMV {

// Five break values, ascending, and the entries (0..1023) of the 1024-entry colour table they map
// to, ascending. A caller-supplied record must keep both orders; the automatic mode of the
// range-image LinearColorMapLUT writes the values it derived back into the record.
struct LinearColorMapLUT_Para {
  double value0 = 0.0;
  double value1 = 0.0;
  double value2 = 0.0;
  double value3 = 0.0;
  double value4 = 0.0;
  int32_t index0 = 0;
  int32_t index1 = 0;
  int32_t index2 = 0;
  int32_t index3 = 0;
  int32_t index4 = 0;
};

}  // namespace KIVMV
