// What every fuzzed call must satisfy, and the quiet process the targets run in. A violation
// prints one line on stderr and traps, so libFuzzer keeps the input that caused it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "KivLUTSetting.h"

namespace kivfuzz {

[[noreturn]] inline void Fail(const char* method, const std::string& what, long status) {
  std::fprintf(stderr, "kivfuzz: %s: %s (status %ld)\n", method, what.c_str(), status);
  std::fflush(stderr);
  __builtin_trap();
}

inline void Require(bool holds, const char* method, const char* what, long status) {
  if (!holds) Fail(method, what, status);
}

// LUT_OK or one of the library's failure codes.
inline bool IsLibraryStatus(long status) {
  using namespace KIVMV;
  for (long code : {LUT_OK,
                    LUT_ERR_IMAGE_EMPTY,
                    LUT_ERR_IMAGE_CHANNELS,
                    LUT_ERR_IMAGE_BIT_DEPTH,
                    LUT_ERR_APPLY_FAILED,
                    LUT_ERR_RANGE_IMAGE_EMPTY,
                    LUT_ERR_ARRAY_EMPTY,
                    LUT_ERR_RANGE_IMAGE_TYPE,
                    LUT_ERR_PARAM_1,
                    LUT_ERR_PARAM_2,
                    LUT_ERR_PARAM_3,
                    LUT_ERR_PARAM_4,
                    LUT_ERR_PARAM_5,
                    LUT_ERR_PARAM_6,
                    LUT_ERR_PARAM_7,
                    LUT_ERR_SIZE_MISMATCH,
                    LUT_ERR_NORMAL_MAP_FAILED,
                    LUT_ERR_BLEND_OUTPUT_FAILED,
                    LUT_ERR_BLEND_FAILED,
                    LUT_ERR_STATISTICS_FAILED,
                    LUT_ERR_PARA_MAPPING_FAILED,
                    LUT_ERR_OUTPUT_FAILED,
                    LUT_ERR_ARRAY_OUTPUT_FAILED,
                    LUT_ERR_ARRAY_APPLY_FAILED,
                    LUT_ERR_PARA_BOUND_1,
                    LUT_ERR_PARA_BOUND_3,
                    LUT_ERR_PARA_BOUND_4,
                    LUT_ERR_PARA_INDEX_1,
                    LUT_ERR_PARA_INDEX_2,
                    LUT_ERR_PARA_INDEX_3,
                    LUT_ERR_PARA_INDEX_4,
                    LUT_ERR_PARA_COUNT}) {
    if (status == code) return true;
  }
  return false;
}

// A failure status of the platform's ComputeNormals, which the shading methods pass on.
inline bool IsPlatformFailure(long status) {
  using namespace KIVMV;
  return status == kKivPlatformNullArgument || status == kKivPlatformIoError ||
         status == kKivPlatformInvalidArgument || status == kKivPlatformUnsupportedType ||
         status == kKivPlatformOutOfMemory || status == kKivPlatformInternalError;
}

// Map-type checks read the number as unsigned.
inline bool MapTypeAccepted(int mapType) { return static_cast<unsigned>(mapType) <= 10u; }

// The colour array a successful call wrote: `length` colours of at least `minChannels` bytes,
// in one continuous buffer that holds at least that many bytes. (An array that already had the
// right length may be written in place, so its matrix may be larger or of another shape.)
inline void RequireColourArray(const KIVMV::KivColorArray& out, int length, int minChannels,
                               const char* method, long status) {
  Require(out.Length() == length, method, "output length differs from the element count", status);
  if (length == 0) return;
  Require(out.Channel() >= minChannels && out.Channel() <= 4, method, "output has too few channels",
          status);
  const cv::Mat& m = out.Mat();
  Require(m.isContinuous() && out.Data() != nullptr && out.Data() == m.data, method,
          "output bytes are not one continuous buffer", status);
  Require(m.total() * m.elemSize() >= static_cast<size_t>(length) * minChannels, method,
          "output buffer is smaller than its colours", status);
}

// The state of a matrix: its header and a copy of its bytes, to prove that a call left it alone.
// Copied and compared a row at a time with memcpy and memcmp: element loops in the targets would
// be traced by libFuzzer's comparison instrumentation and cost more than most calls.
struct MatSnapshot {
  const uchar* data = nullptr;
  int rows = 0;
  int cols = 0;
  int type = 0;
  size_t step = 0;
  std::vector<uint8_t> bytes;

  explicit MatSnapshot(const cv::Mat& m)
      : data(m.data),
        rows(m.rows),
        cols(m.cols),
        type(m.type()),
        step(m.dims == 2 ? m.step[0] : 0) {
    if (m.dims != 2 || m.data == nullptr) return;
    const size_t rowBytes = RowBytes(m);
    bytes.resize(rowBytes * static_cast<size_t>(m.rows));
    for (int r = 0; r < m.rows && rowBytes > 0; ++r) {
      std::memcpy(&bytes[rowBytes * static_cast<size_t>(r)], m.ptr(r), rowBytes);
    }
  }

  bool SameHeader(const cv::Mat& m) const {
    return m.data == data && m.rows == rows && m.cols == cols && m.type() == type &&
           (m.dims == 2 ? m.step[0] : 0) == step;
  }

  bool Unchanged(const cv::Mat& m) const {
    if (!SameHeader(m)) return false;
    if (m.dims != 2 || m.data == nullptr) return true;
    const size_t rowBytes = RowBytes(m);
    for (int r = 0; r < m.rows && rowBytes > 0; ++r) {
      if (std::memcmp(&bytes[rowBytes * static_cast<size_t>(r)], m.ptr(r), rowBytes) != 0) {
        return false;
      }
    }
    return true;
  }

 private:
  static size_t RowBytes(const cv::Mat& m) { return static_cast<size_t>(m.cols) * m.elemSize(); }
};

// No log output and no timing lines: libFuzzer reports on stderr, and the library's standard
// output (the SetColorLUT timing line) would only slow the run down.
inline void SilenceLibrary() {
  KIVMV::KivFastLoggerPrivate::SetSink(
      [](const std::string&, const std::string&, const std::string&, int) {});
  if (std::freopen("/dev/null", "w", stdout) == nullptr) {
    std::fprintf(stderr, "kivfuzz: standard output stays open\n");
  }
}

}  // namespace kivfuzz
