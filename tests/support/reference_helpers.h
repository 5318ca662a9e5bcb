// Small pieces the reference loops of several tests share.
#pragma once

#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "tables/colour_tables.h"

namespace KIVMV {
namespace testing_support {

// What x86-64 gives for (int64_t)x: truncation, or INT64_MIN for NaN and out of range. Written
// independently of the library's helper, for the reference loops.
inline int64_t X86Truncate(double x) {
  if (std::isnan(x) || x >= 9223372036854775808.0 || x < -9223372036854775808.0) return INT64_MIN;
  return static_cast<int64_t>(x);
}

// The table of a map number: 1 to 6 their own, every other number grey.
inline const ColourTable& TableOf(int mapType) {
  const ColourTable* tables[] = {&kGreyTable,      &kRainbowTable,     &kHotMetalTable,
                                 &kDivergingTable, &kIsoluminantTable, &kRgbTable,
                                 &kJetTable};
  return mapType >= 1 && mapType <= 6 ? *tables[mapType] : kGreyTable;
}

// The grey levels of a single-channel 8- or 16-bit matrix, row after row, padding skipped.
inline std::vector<int> GreyLevels(const cv::Mat& pixels) {
  std::vector<int> levels;
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      levels.push_back(pixels.depth() == CV_8U ? pixels.at<uint8_t>(y, x)
                                               : pixels.at<uint16_t>(y, x));
    }
  }
  return levels;
}

// A matrix's bytes row after row, padding skipped.
inline std::vector<uint8_t> MatBytes(const cv::Mat& m) {
  std::vector<uint8_t> bytes;
  const size_t row = static_cast<size_t>(m.cols) * m.elemSize();
  for (int y = 0; y < m.rows; ++y) bytes.insert(bytes.end(), m.ptr(y), m.ptr(y) + row);
  return bytes;
}

}  // namespace testing_support
}  // namespace KIVMV
