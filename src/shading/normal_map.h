// The normal-map colouring: unit surface normals to colours, each component in [-1, 1] mapped
// linearly onto a byte, z into byte 0, y into byte 1, x into byte 2.
#pragma once

#include <tbb/blocked_range.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "KivColorArray.h"
#include "KivRangeImage.h"
#include "KivVector3d.h"
#include "common/numeric_helpers.h"

namespace KIVMV {

// The byte of one normal component: (v * 0.5 + 0.5) * 255 in double, truncated toward zero, low
// eight bits. Nothing is clamped: 1 gives 255, 0 gives 127, -1 gives 0, and a component that is
// not finite or too large for 64 bits gives 0.
inline uint8_t NormalComponentByte(float v) {
  return numeric::TruncateToLowByte((static_cast<double>(v) * 0.5 + 0.5) * 255.0);
}

// Whether the x component tested for an entry turns the entry black. The distance from +FLT_MAX is
// taken in single precision and compared with 1e-8; only when it is not above that does a
// non-finite x blacken. In effect only NaN does: +FLT_MAX itself and the infinities do not.
inline bool BlackensNormalEntry(float x) {
  const float distance = std::fabs(x - 3.4028235e38f);
  if (static_cast<double>(distance) > 1e-8) return false;
  return !std::isfinite(x);
}

// Height x Width as the 32-bit product the shading methods test for an empty image: it wraps, so
// 65536 x 65536 counts as empty and a negative size does not.
inline int32_t WrappedPixelProduct(int height, int width) {
  return static_cast<int32_t>(static_cast<uint32_t>(height) * static_cast<uint32_t>(width));
}

// The chunk boundaries of n entries for `workers` workers: 0, then `workers` more, each the one
// before plus ceil(n / workers), clamped to n - 1. Chunk j runs from boundary j up to but excluding
// boundary j + 1, so the clamp to n - 1 leaves the last entry uncoloured; the list always has
// workers + 1 entries (n = 1, 4 workers: 0, 0, 0, 0, 0). An empty list is never asked for; n < 1
// or workers < 1 give the single boundary 0.
std::vector<int32_t> NormalMapChunkBoundaries(int n, int workers);

// Colours the entries [begin, end) of one chunk. The blackening test of entry i reads the x of the
// normal at i - begin counted from the start of the array, not from the chunk, so a NaN x in the
// first chunk's normals blackens the same position of every chunk.
inline void ColourNormalMapChunk(const float* normals, uint8_t* out, int begin, int end) {
  for (int i = begin; i < end; ++i) {
    const size_t k = static_cast<size_t>(i - begin);
    const size_t entry = static_cast<size_t>(i);
    uint8_t* colour = out + 3 * entry;
    if (BlackensNormalEntry(normals[3 * k])) {
      colour[0] = colour[1] = colour[2] = 0;
      continue;
    }
    const float* normal = normals + 3 * entry;
    colour[0] = NormalComponentByte(normal[2]);
    colour[1] = NormalComponentByte(normal[1]);
    colour[2] = NormalComponentByte(normal[0]);
  }
}

// The parallel body: the normal floats, the output bytes and its own copy of the chunk
// boundaries. Copies share the two pointers and copy the list.
class ColorNormalMapBody {
 public:
  ColorNormalMapBody(const float* normals, uint8_t* out, std::vector<int32_t> boundaries)
      : normals_(normals), out_(out), boundaries_(std::move(boundaries)) {}

  // The loop runs with grain 1, so the partitioner normally hands over one chunk at a time; a
  // wider range is coloured chunk by chunk, each from its own boundaries, so that no chunk is
  // skipped whatever the partitioner decides.
  void operator()(const tbb::blocked_range<int>& chunks) const {
    for (int b = chunks.begin(); b < chunks.end(); ++b) {
      ColourNormalMapChunk(normals_, out_, boundaries_[static_cast<size_t>(b)],
                           boundaries_[static_cast<size_t>(b) + 1]);
    }
  }

 private:
  const float* normals_;
  uint8_t* out_;
  std::vector<int32_t> boundaries_;
};

// Every chunk of `boundaries` coloured in order on the calling thread: what the parallel loop
// writes, for comparison.
void ColourNormalMapSerial(const float* normals, uint8_t* out,
                           const std::vector<int32_t>& boundaries);

// The normal-map colouring behind SetColorNormalMap on normals and SetColorNormalMapPhong.
// LUT_ERR_PARAM_1: fewer than one normal. The output is re-created with n entries of 3 bytes when
// its length differs, or when it has fewer than 3 bytes an entry; an output of n entries with 4
// channels is written in place at 3 bytes an entry. A null output, or an exception while it is
// read or re-created: LUT_ERR_OUTPUT_FAILED. An exception while the worker count is obtained, the
// boundaries are built or the loop runs: LUT_ERR_NORMAL_MAP_FAILED. The last entry is never
// written.
long ColourNormalMap(const KivVector3dArray& normals, KivColorArray* out);

// The platform's surface normals of a range image, with its status unchanged. It promises not to
// throw; should it, the shading answers with LUT_ERR_NORMAL_MAP_FAILED.
long ComputeNormalsOf(KivRangeImage& image, KivVector3dArray& normals);

}  // namespace KIVMV
