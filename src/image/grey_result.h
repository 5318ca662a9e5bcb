// The matrix a grey-image colouring writes its result into, and the loops all grey colourings
// share: counting grey levels, finding the valid extremes, and writing one colour per pixel.
#pragma once

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

#include "KivImage.h"
#include "tables/padded_colour.h"

namespace KIVMV {

// Below this many pixels the loops run on the calling thread: they take well under a
// millisecond, less than waking the team can cost on a busy machine.
inline constexpr size_t kParallelGreyPixels = size_t{1} << 18;

// The destination's own matrix when it alone holds a buffer that OpenCV allocated, of exactly this
// shape and type, and that does not overlap the source's pixels: writing into it then shows
// nowhere else, and a live preview colouring many frames a second is spared the page faults of a
// fresh 36 MB buffer on every call. Otherwise a new matrix. A destination wrapped around a
// caller's memory, or sharing its pixels with another image, is never written into.
inline cv::Mat ResultMatrix(const KivImage& dst, const cv::Mat& source, int type) {
  const cv::Mat& current = dst.Mat();
  const bool apart = current.dataend <= source.datastart || source.dataend <= current.datastart;
  const bool reusable = current.u != nullptr && current.u->refcount == 1 && current.dims == 2 &&
                        current.rows == source.rows && current.cols == source.cols &&
                        current.type() == type && current.isContinuous() &&
                        current.data == current.datastart && apart;
  return reusable ? current : cv::Mat(source.rows, source.cols, type);
}

// Writes colourOf(v) for every pixel v of the single-channel matrix `grey` into `out`, a matrix of
// the same size: all three bytes for CV_8UC3, the first alone for CV_8UC1. Each thread writes only
// its own rows; colourOf must not throw, and nothing else inside does, so no exception can leave
// the parallel region.
template <typename T, typename ColourOf>
void ColourGreyRows(const cv::Mat& grey, ColourOf colourOf, cv::Mat& out) {
  const int rows = grey.rows;
  const int cols = grey.cols;
  const bool onePlane = out.channels() == 1;
#pragma omp parallel for schedule(static) if (grey.total() >= kParallelGreyPixels)
  for (int y = 0; y < rows; ++y) {
    const T* in = grey.ptr<T>(y);
    uint8_t* row = out.ptr<uint8_t>(y);
    if (onePlane) {
      for (int x = 0; x < cols; ++x) row[x] = colourOf(in[x])[0];
    } else {
      WriteColours(
          cols, [&](int64_t x) { return colourOf(in[x]); }, row);
    }
  }
}

// The number of pixels of each grey level (of the 2^bits of T) in `grey`. Consecutive pixels
// often share a level; spreading them over `kCopies` counters per level lets the increments run
// without waiting for each other. Each part of the rows counts into its own block.
template <typename T, int kCopies>
std::vector<uint32_t> CountGreyLevels(const cv::Mat& grey) {
  constexpr size_t kLevels = size_t{1} << (8 * sizeof(T));
  const int rows = grey.rows;
  const int cols = grey.cols;
  const bool parallel = grey.total() >= kParallelGreyPixels;
  const int parts = parallel ? std::max(1, std::min(omp_get_max_threads(), rows)) : 1;
  std::vector<uint32_t> blocks(static_cast<size_t>(parts) * kCopies * kLevels, 0);
  uint32_t* const counts = blocks.data();
#pragma omp parallel for schedule(static, 1) num_threads(parts) if (parallel)
  for (int part = 0; part < parts; ++part) {
    uint32_t* block = counts + static_cast<size_t>(part) * kCopies * kLevels;
    const int first = static_cast<int>(static_cast<int64_t>(rows) * part / parts);
    const int last = static_cast<int>(static_cast<int64_t>(rows) * (part + 1) / parts);
    for (int y = first; y < last; ++y) {
      const T* in = grey.ptr<T>(y);
      int x = 0;
      for (; x + kCopies <= cols; x += kCopies) {
        for (int c = 0; c < kCopies; ++c) ++block[c * kLevels + in[x + c]];
      }
      for (; x < cols; ++x) ++block[in[x]];
    }
  }
  std::vector<uint32_t> total(kLevels, 0);
  for (size_t copy = 0; copy < static_cast<size_t>(parts) * kCopies; ++copy) {
    const uint32_t* block = counts + copy * kLevels;
    for (size_t v = 0; v < kLevels; ++v) total[v] += block[v];
  }
  return total;
}

// The smallest non-zero level of `grey` and its largest level. With no level above 0 the smallest
// is T's maximum and the largest 0.
template <typename T>
std::pair<T, T> ValidGreyExtremes(const cv::Mat& grey) {
  // v - 1 in T's arithmetic puts 0 above every other level, so the plain minimum of the shifted
  // levels, shifted back, is the smallest non-zero one; all zeros give T's maximum either way.
  T lowShifted = std::numeric_limits<T>::max();
  T high = 0;
  const int rows = grey.rows;
  const int cols = grey.cols;
#pragma omp parallel for schedule(static) reduction(min           \
                                                    : lowShifted) \
    reduction(max                                                 \
              : high) if (grey.total() >= kParallelGreyPixels)
  for (int y = 0; y < rows; ++y) {
    const T* in = grey.ptr<T>(y);
    T rowLow = std::numeric_limits<T>::max();
    T rowHigh = 0;
    for (int x = 0; x < cols; ++x) {
      rowLow = std::min(rowLow, static_cast<T>(in[x] - 1));
      rowHigh = std::max(rowHigh, in[x]);
    }
    lowShifted = std::min(lowShifted, rowLow);
    high = std::max(high, rowHigh);
  }
  const T low =
      lowShifted == std::numeric_limits<T>::max() ? lowShifted : static_cast<T>(lowShifted + 1);
  return {low, high};
}

}  // namespace KIVMV
