#include "shading/normal_map.h"

#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include "Kiv3DDataOperation.h"
#include "KivLUTStatus.h"
#include "common/colour_output.h"
#include "common/load_time_config.h"
#include "common/stage_status.h"

namespace KIVMV {

std::vector<int32_t> NormalMapChunkBoundaries(int n, int workers) {
  std::vector<int32_t> boundaries{0};
  if (n < 1 || workers < 1) return boundaries;
  const int64_t chunk = (n - 1) / workers + 1;
  const int64_t last = n - 1;
  int64_t current = 0;
  // Once clamped, `current` stays below n, so the loop always appends `workers` boundaries.
  for (int k = 0; k < workers && current < n; ++k) {
    current += chunk;
    if (current >= n) current = last;
    boundaries.push_back(static_cast<int32_t>(current));
  }
  return boundaries;
}

void ColourNormalMapSerial(const float* normals, uint8_t* out,
                           const std::vector<int32_t>& boundaries) {
  for (size_t b = 0; b + 1 < boundaries.size(); ++b) {
    ColourNormalMapChunk(normals, out, boundaries[b], boundaries[b + 1]);
  }
}

namespace {

void RunNormalMapLoop(const float* normals, uint8_t* colours, int n) {
  const int workers = ConfiguredWorkerCount();
  ThrowIfInjected(FaultStage::kNormalMap);
  std::vector<int32_t> boundaries = NormalMapChunkBoundaries(n, workers);
  const int chunkCount = static_cast<int>(boundaries.size()) - 1;
  // Grain 1: one task a chunk, so each worker reads and writes one contiguous block.
  tbb::parallel_for(tbb::blocked_range<int>(0, chunkCount, 1),
                    ColorNormalMapBody(normals, colours, std::move(boundaries)),
                    tbb::auto_partitioner());
}

}  // namespace

long ColourNormalMap(const KivVector3dArray& normals, KivColorArray* out) {
  const int n = normals.Length();
  if (n < 1) return LUT_ERR_PARAM_1;
  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;
  uint8_t* colours = nullptr;
  if (const long sized = SizeColourOutput(*out, n, LUT_ERR_OUTPUT_FAILED, colours);
      sized != LUT_OK) {
    return sized;
  }
  return RunStage(LUT_ERR_NORMAL_MAP_FAILED, [&] { RunNormalMapLoop(normals.Data(), colours, n); });
}

long ComputeNormalsOf(KivRangeImage& image, KivVector3dArray& normals) {
  return RunStage(LUT_ERR_NORMAL_MAP_FAILED, [&] {
    Kiv3DDataOperation operation;
    return operation.ComputeNormals(image, &normals, nullptr);
  });
}

}  // namespace KIVMV
