// KivColorNormalMap: every normal coloured with KivLUTSetting's byte rule, a missing one with the
// caller's no-data colour at its own position, whatever the split of the work.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <cmath>
#include <cstdint>

#include "KivColoring.h"
#include "common/load_time_config.h"
#include "shading/normal_map.h"

namespace KIVMV {
namespace {

// A normal that carries no direction: a component that is not finite (KivLUTSetting's normal map
// tests a NaN x only, and at a shifted position), or all three zero.
inline bool IsMissingNormal(const float* normal) {
  const float x = normal[0], y = normal[1], z = normal[2];
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z)) return true;
  return x == 0.0f && y == 0.0f && z == 0.0f;
}

}  // namespace

long KivColorNormalMap(const KivVector3dArray& normals, KivColorArray* out, KivRgb noDataColor,
                       int channels) {
  try {
    if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
    const int n = normals.Length();
    if (n <= 0 || normals.Data() == nullptr) return KIV_EXT_ERR_EMPTY_INPUT;
    if (channels != 3 && channels != 4) return KIV_EXT_ERR_CHANNELS;
    KivColorArray result;
    result.Create(n, channels);
    const float* const xyz = normals.Data();
    uint8_t* const colours = result.Data();
    tbb::parallel_for(
        tbb::blocked_range<int>(0, n, GrainSize(n)),
        [&](const tbb::blocked_range<int>& entries) {
          for (int i = entries.begin(); i != entries.end(); ++i) {
            const float* normal = xyz + 3 * static_cast<size_t>(i);
            uint8_t* colour = colours + static_cast<size_t>(channels) * i;
            const bool missing = IsMissingNormal(normal);
            if (missing) {
              colour[0] = noDataColor.b;
              colour[1] = noDataColor.g;
              colour[2] = noDataColor.r;
            } else {
              colour[0] = NormalComponentByte(normal[2]);
              colour[1] = NormalComponentByte(normal[1]);
              colour[2] = NormalComponentByte(normal[0]);
            }
            if (channels == 4) colour[3] = missing ? 0 : 255;
          }
        },
        tbb::auto_partitioner());
    *out = result;
    return KIV_EXT_OK;
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

}  // namespace KIVMV
