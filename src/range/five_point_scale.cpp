#include "range/five_point_scale.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <cstddef>
#include <cstring>

#include "common/fault_injection.h"
#include "common/load_time_config.h"

namespace KIVMV {

void ColourFivePoint(const float* data, int n, const FivePointScale& scale, uint8_t* out) {
  ThrowIfInjected(FaultStage::kColouring);
  const auto colourRange = [data, out, &scale](int begin, int end) {
    // A local copy: byte stores may alias the caller's, and would force a reload per element.
    const FivePointScale local = scale;
    for (int i = begin; i < end; ++i) {
      if (const ColourEntry* colour = FivePointColour(data[i], local)) {
        std::memcpy(out + 3 * static_cast<size_t>(i), colour->data(), 3);
      }
    }
  };
  // Below this the workers cost more than they save.
  constexpr int kParallelFrom = 1 << 16;
  if (n < kParallelFrom) {
    colourRange(0, n);
    return;
  }
  tbb::parallel_for(
      tbb::blocked_range<int>(0, n, GrainSize(n)),
      [&colourRange](const tbb::blocked_range<int>& range) {
        colourRange(range.begin(), range.end());
      },
      tbb::auto_partitioner());
}

}  // namespace KIVMV
