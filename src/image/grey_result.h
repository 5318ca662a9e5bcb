// The matrix a grey-image colouring writes its result into, and the loops all grey colourings
// share: counting grey levels, finding the valid extremes, and writing one colour per pixel.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/combinable.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "KivImage.h"
#include "tables/padded_colour.h"

namespace KIVMV {

// Below this many pixels the loops run on the calling thread: they take well under a
// millisecond, less than waking the workers can cost on a busy machine.
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

// Rows per share of a parallel loop: about 64K pixels, so that a thread that falls behind (the
// machine is shared) leaves its remaining shares to the others, at a negligible cost per share.
inline int RowsPerShare(int cols) { return std::max(1, (1 << 16) / std::max(1, cols)); }

// Runs rowsOf(first, last) over the rows of `grey` in shares, on oneTBB's workers for a large
// image. oneTBB rather than an OpenMP team: a team ends at a barrier that waits for every member,
// also one the system has not run yet, where oneTBB's caller returns once the work is done.
template <typename RowsOf>
void ForGreyRows(const cv::Mat& grey, RowsOf&& rowsOf) {
  if (grey.total() < kParallelGreyPixels) {
    rowsOf(0, grey.rows);
    return;
  }
  tbb::parallel_for(
      tbb::blocked_range<int>(0, grey.rows, RowsPerShare(grey.cols)),
      [&rowsOf](const tbb::blocked_range<int>& r) { rowsOf(r.begin(), r.end()); },
      tbb::auto_partitioner());
}

// Writes colourOf(v) for every pixel v of the single-channel matrix `grey` into `out`, a matrix of
// the same size: all three bytes for CV_8UC3, the first alone for CV_8UC1. Each share writes only
// its own rows. colourOf must not throw and nothing else in the shares does, so once the loop has
// started the rows are all written.
template <typename T, typename ColourOf>
void ColourGreyRows(const cv::Mat& grey, ColourOf colourOf, cv::Mat& out) {
  const int cols = grey.cols;
  const bool onePlane = out.channels() == 1;
  ForGreyRows(grey, [&](int first, int last) {
    for (int y = first; y < last; ++y) {
      const T* in = grey.ptr<T>(y);
      uint8_t* row = out.ptr<uint8_t>(y);
      if (onePlane) {
        for (int x = 0; x < cols; ++x) row[x] = colourOf(in[x])[0];
      } else {
        // By value, so that the colour stores cannot force a reload of `in` per pixel.
        WriteColours(
            cols, [in, colourOf](int64_t x) { return colourOf(in[x]); }, row);
      }
    }
  });
}

// Adds the levels of pixels in[0..cols-1] to `block`, kCopies blocks of counters one after
// another. Consecutive pixels often share a level; spreading them over copies lets the increments
// run without waiting for each other. 8-bit levels are read eight at a time.
template <typename T, int kCopies>
void CountRow(const T* in, int cols, uint32_t* block) {
  constexpr size_t kLevels = size_t{1} << (8 * sizeof(T));
  int x = 0;
  if constexpr (sizeof(T) == 1 && kCopies == 4) {
    for (; x + 8 <= cols; x += 8) {
      uint64_t eight;
      std::memcpy(&eight, in + x, 8);
      for (int k = 0; k < 8; ++k) {
        ++block[(k % kCopies) * kLevels + ((eight >> (8 * k)) & 0xFFu)];
      }
    }
  } else {
    for (; x + kCopies <= cols; x += kCopies) {
      for (int c = 0; c < kCopies; ++c) ++block[c * kLevels + in[x + c]];
    }
  }
  for (; x < cols; ++x) ++block[in[x]];
}

// The number of pixels of each grey level (of the 2^bits of T) in `grey`. Each thread counts into
// its own block of counters; the blocks are summed at the end.
template <typename T, int kCopies>
std::vector<uint32_t> CountGreyLevels(const cv::Mat& grey) {
  constexpr size_t kLevels = size_t{1} << (8 * sizeof(T));
  const int cols = grey.cols;
  const auto fold = [](std::vector<uint32_t>& block, std::vector<uint32_t>& total) {
    for (size_t i = 0; i < block.size(); ++i) total[i % kLevels] += block[i];
  };
  if (grey.total() < kParallelGreyPixels) {
    std::vector<uint32_t> block(kCopies * kLevels, 0);
    for (int y = 0; y < grey.rows; ++y) CountRow<T, kCopies>(grey.ptr<T>(y), cols, block.data());
    if constexpr (kCopies == 1) return block;
    std::vector<uint32_t> total(kLevels, 0);
    fold(block, total);
    return total;
  }
  tbb::enumerable_thread_specific<std::vector<uint32_t>> blocks(
      [] { return std::vector<uint32_t>(kCopies * kLevels, 0); });
  ForGreyRows(grey, [&](int first, int last) {
    uint32_t* block = blocks.local().data();
    for (int y = first; y < last; ++y) CountRow<T, kCopies>(grey.ptr<T>(y), cols, block);
  });
  std::vector<uint32_t> total(kLevels, 0);
  for (std::vector<uint32_t>& block : blocks) fold(block, total);
  return total;
}

// The smallest non-zero level of `grey` and its largest level. With no level above 0 the smallest
// is T's maximum and the largest 0.
template <typename T>
std::pair<T, T> ValidGreyExtremes(const cv::Mat& grey) {
  // v - 1 in T's arithmetic puts 0 above every other level, so the plain minimum of the shifted
  // levels, shifted back, is the smallest non-zero one; all zeros give T's maximum either way.
  constexpr T kTop = std::numeric_limits<T>::max();
  tbb::combinable<std::pair<T, T>> extremes([] {
    return std::pair<T, T>{std::numeric_limits<T>::max(), 0};
  });
  const int cols = grey.cols;
  ForGreyRows(grey, [&](int first, int last) {
    T low = kTop;
    T high = 0;
    for (int y = first; y < last; ++y) {
      const T* in = grey.ptr<T>(y);
      for (int x = 0; x < cols; ++x) {
        low = std::min(low, static_cast<T>(in[x] - 1));
        high = std::max(high, in[x]);
      }
    }
    std::pair<T, T>& mine = extremes.local();
    mine.first = std::min(mine.first, low);
    mine.second = std::max(mine.second, high);
  });
  const std::pair<T, T> shifted = extremes.combine([](std::pair<T, T> a, std::pair<T, T> b) {
    return std::pair<T, T>{std::min(a.first, b.first), std::max(a.second, b.second)};
  });
  const T low = shifted.first == kTop ? kTop : static_cast<T>(shifted.first + 1);
  return {low, shifted.second};
}

}  // namespace KIVMV
