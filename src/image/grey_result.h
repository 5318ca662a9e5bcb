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

// The three colour bytes of a padded colour in the low bytes of a 64-bit word, in memory order
// (the words below are stored little end first, as x86 and most targets store them).
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "colour words are little-endian");
inline uint64_t ColourWord(const PaddedColour& c) {
  uint32_t word;
  std::memcpy(&word, c.data(), sizeof word);
  return word & 0xFFFFFFu;
}

inline void StoreWord(uint8_t* at, uint64_t word) { std::memcpy(at, &word, sizeof word); }

// The bytes WriteColours writes, colourOf(0) .. colourOf(n - 1) as 3-byte colours from `out`, with
// eight colours packed into three 8-byte stores instead of eight 4-byte ones: stores, not loads,
// bound this loop. Nothing at or past out + 3n is touched.
template <typename ColourOf>
void WritePackedColours(int64_t n, ColourOf colourOf, uint8_t* out) {
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const uint64_t c0 = ColourWord(colourOf(i)), c1 = ColourWord(colourOf(i + 1));
    const uint64_t c2 = ColourWord(colourOf(i + 2)), c3 = ColourWord(colourOf(i + 3));
    const uint64_t c4 = ColourWord(colourOf(i + 4)), c5 = ColourWord(colourOf(i + 5));
    const uint64_t c6 = ColourWord(colourOf(i + 6)), c7 = ColourWord(colourOf(i + 7));
    uint8_t* at = out + 3 * i;
    StoreWord(at, c0 | c1 << 24 | c2 << 48);
    StoreWord(at + 8, c2 >> 16 | c3 << 8 | c4 << 32 | c5 << 56);
    StoreWord(at + 16, c5 >> 8 | c6 << 16 | c7 << 40);
  }
  WriteColours(
      n - i, [&](int64_t k) { return colourOf(i + k); }, out + 3 * i);
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
        WritePackedColours(
            cols, [&](int64_t x) { return colourOf(in[x]); }, row);
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
