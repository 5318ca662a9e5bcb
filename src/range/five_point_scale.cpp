#include "range/five_point_scale.h"

#include <cstddef>
#include <cstring>

#include "common/fault_injection.h"

namespace KIVMV {

void ColourFivePoint(const float* data, int n, const FivePointScale& scale, uint8_t* out) {
  ThrowIfInjected(FaultStage::kColouring);
  // A local copy: byte stores may alias the caller's, and would force a reload per element.
  const FivePointScale local = scale;
  for (int i = 0; i < n; ++i) {
    if (const ColourEntry* colour = FivePointColour(data[i], local)) {
      std::memcpy(out + 3 * static_cast<size_t>(i), colour->data(), 3);
    }
  }
}

}  // namespace KIVMV
