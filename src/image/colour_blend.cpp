#include "image/colour_blend.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <stdexcept>

#include "KivLUTStatus.h"
#include "common/numeric_helpers.h"
#include "common/stage_status.h"

namespace KIVMV {
namespace {

// The bytes an array's matrix really holds, 0 unless they are contiguous: the sizes of a
// KivColorArray are kept apart from its matrix, which a caller may have replaced.
size_t ContiguousBytes(const cv::Mat& m) { return m.isContinuous() ? m.total() * m.elemSize() : 0; }

// Brings a 1- or 4-channel array to 3 channels in the caller's object; other arrays are left
// alone. The old matrix stays alive as the source while the array is re-created with its own shape
// and the conversion writes into the new bytes.
void ConvertToThreeChannels(KivColorArray& array) {
  const int channels = array.Channel();
  if (channels != 1 && channels != 4) return;
  const cv::Mat source = array.Mat();
  const bool hasPixels = array.Length() > 0;
  if (hasPixels && (source.type() != CV_8UC(channels) || source.rows != array.Height() ||
                    source.cols != array.Width())) {
    throw std::runtime_error("colour array bytes do not match its sizes");
  }
  if (array.Height() > 1 || array.Width() != array.Length()) {
    array.SetSize(array.Width(), array.Height(), 3);
  } else {
    array.Create(array.Length(), 3);
  }
  if (hasPixels) {
    cv::cvtColor(source, array.Mat(), channels == 1 ? cv::COLOR_GRAY2BGR : cv::COLOR_BGRA2BGR);
  }
}

// Makes out hold n colours of c bytes and returns its first byte: reused when the length matches
// and the bytes suffice, re-created otherwise (fewer channels than c, or a replaced matrix, would
// be overrun).
uint8_t* PrepareBlendOutput(KivColorArray& out, int n, int c) {
  ThrowIfInjected(FaultStage::kOutputSizing);
  const size_t needed = static_cast<size_t>(n) * static_cast<size_t>(c);
  const bool tooSmall = needed > 0 && (out.Channel() < c || ContiguousBytes(out.Mat()) < needed);
  if (out.Length() != n || tooSmall) {
    out.Clear();
    out.Create(n, c);
  }
  return out.Data();
}

// Each term of the blend depends on one byte only, so both are tabulated over the 256 bytes; the
// low bytes suffice since only the low byte of the sum is kept. A NaN weight gives the indefinite
// integer, whose low byte is 0.
using BlendTerm = std::array<uint8_t, 256>;

BlendTerm MakeBlendTerm(double weight) {
  BlendTerm term{};
  for (int x = 0; x < 256; ++x) {
    term[static_cast<size_t>(x)] = numeric::TruncateToLowByte(x * weight);
  }
  return term;
}

// A term as a 16.16 fixed-point product, (x * multiplier) >> 16, which vectorises where table
// lookups do not. Taken only when one multiplier reproduces the term for all 256 bytes, so the
// result is the same; 65536 stands for the byte itself. Almost every weight has one; those that do
// not (some whose products fall just below an integer) keep the tables.
constexpr uint32_t kByteItself = 65536;

std::optional<uint32_t> FixedPointMultiplier(const BlendTerm& term) {
  // The smallest multiplier whose products reach every term...
  uint32_t multiplier = 0;
  for (uint32_t x = 1; x < 256; ++x) {
    const uint32_t scaled = uint32_t{term[x]} << 16;
    multiplier = std::max(multiplier, (scaled + x - 1) / x);
  }
  if (multiplier > kByteItself) return std::nullopt;
  // ... and whether it overshoots none.
  for (uint32_t x = 0; x < 256; ++x) {
    if (((x * multiplier) >> 16) != term[x]) return std::nullopt;
  }
  return multiplier;
}

struct BlendKernel {
  bool fixedPoint = false;
  bool aIsItself = false;  // when fixedPoint: a term is the byte itself,
  bool bIsItself = false;
  uint16_t ofA = 0;  // or else its multiplier
  uint16_t ofB = 0;
  BlendTerm termA{};  // tables, otherwise
  BlendTerm termB{};
};

BlendKernel MakeBlendKernel(double alpha) {
  BlendKernel kernel;
  kernel.termA = MakeBlendTerm(alpha);
  kernel.termB = MakeBlendTerm(1.0 - alpha);
  const std::optional<uint32_t> ofA = FixedPointMultiplier(kernel.termA);
  const std::optional<uint32_t> ofB = FixedPointMultiplier(kernel.termB);
  // Both terms the byte itself would need weights 1 and 1; the dispatch below has no such case.
  if (ofA && ofB && !(*ofA == kByteItself && *ofB == kByteItself)) {
    kernel.fixedPoint = true;
    kernel.aIsItself = *ofA == kByteItself;
    kernel.bIsItself = *ofB == kByteItself;
    kernel.ofA = static_cast<uint16_t>(*ofA & 0xFFFFu);
    kernel.ofB = static_cast<uint16_t>(*ofB & 0xFFFFu);
  }
  return kernel;
}

// 16-bit multipliers, so that the products' high halves come from 16-bit multiplies.
template <bool kAIsItself, bool kBIsItself>
void BlendFixedPoint(const uint8_t* a, const uint8_t* b, int64_t begin, int64_t end, uint16_t ofA,
                     uint16_t ofB, uint8_t* out) {
  for (int64_t j = begin; j < end; ++j) {
    const uint16_t termA = kAIsItself ? a[j] : static_cast<uint16_t>((uint32_t{a[j]} * ofA) >> 16);
    const uint16_t termB = kBIsItself ? b[j] : static_cast<uint16_t>((uint32_t{b[j]} * ofB) >> 16);
    out[j] = static_cast<uint8_t>(termA + termB);
  }
}

void BlendTables(const uint8_t* a, const uint8_t* b, int64_t begin, int64_t end,
                 const BlendTerm& termA, const BlendTerm& termB, uint8_t* out) {
  for (int64_t j = begin; j < end; ++j) {
    out[j] = static_cast<uint8_t>(termA[a[j]] + termB[b[j]]);
  }
}

// Bytes begin..end of the blend.
void BlendRange(const BlendKernel& kernel, const uint8_t* a, const uint8_t* b, int64_t begin,
                int64_t end, uint8_t* out) {
  if (!kernel.fixedPoint) {
    BlendTables(a, b, begin, end, kernel.termA, kernel.termB, out);
  } else if (kernel.aIsItself) {
    BlendFixedPoint<true, false>(a, b, begin, end, 0, kernel.ofB, out);
  } else if (kernel.bIsItself) {
    BlendFixedPoint<false, true>(a, b, begin, end, kernel.ofA, 0, out);
  } else {
    BlendFixedPoint<false, false>(a, b, begin, end, kernel.ofA, kernel.ofB, out);
  }
}

// Colours per block of the parallel loop: blocks keep the byte loop long and flat.
constexpr int64_t kBlockColours = 4096;
// Below this many bytes the blend runs on the calling thread: it takes well under a millisecond,
// less than waking the team can cost on a busy machine.
constexpr int64_t kParallelBytes = int64_t{1} << 20;

void BlendBytes(const uint8_t* a, const uint8_t* b, int64_t n, int c, const BlendKernel& kernel,
                uint8_t* out) {
  const int64_t totalBytes = n * c;
  const int64_t blocks = (n + kBlockColours - 1) / kBlockColours;
  // Static work sharing over blocks of colours: each thread writes only its own colours of out.
  // Nothing in the body throws.
#pragma omp parallel for schedule(static) if (totalBytes >= kParallelBytes)
  for (int64_t block = 0; block < blocks; ++block) {
    const int64_t begin = block * kBlockColours * c;
    BlendRange(kernel, a, b, begin, std::min(begin + kBlockColours * c, totalBytes), out);
  }
}

}  // namespace

long BlendColourArrays(KivColorArray& a, KivColorArray& b, double alpha, KivColorArray* out) {
  if (a.Length() != b.Length()) return LUT_ERR_SIZE_MISMATCH;
  if (a.Channel() != b.Channel()) {
    const long converted = RunStage(FaultStage::kChannelConversion, LUT_ERR_BLEND_FAILED, [&] {
      ConvertToThreeChannels(a);
      ConvertToThreeChannels(b);
    });
    if (converted != LUT_OK) return converted;
  }
  // A NaN weight passes.
  if (alpha < 0.0 || alpha > 1.0) return LUT_ERR_PARAM_1;
  if (out == nullptr) return LUT_ERR_BLEND_OUTPUT_FAILED;

  const int n = a.Length();
  const int c = a.Channel();
  const size_t needed = static_cast<size_t>(n) * static_cast<size_t>(c);
  // Inputs holding fewer bytes than their sizes say cannot be blended. They are refused before the
  // output is sized from those sizes, which alone could ask for gigabytes.
  if (needed > 0 && (ContiguousBytes(a.Mat()) < needed || ContiguousBytes(b.Mat()) < needed)) {
    return LUT_ERR_BLEND_FAILED;
  }
  uint8_t* bytes = nullptr;
  if (const long sized =
          RunStage(LUT_ERR_BLEND_OUTPUT_FAILED, [&] { bytes = PrepareBlendOutput(*out, n, c); });
      sized != LUT_OK) {
    return sized;
  }

  return RunStage(FaultStage::kBlending, LUT_ERR_BLEND_FAILED, [&] {
    if (needed > 0) BlendBytes(a.Data(), b.Data(), n, c, MakeBlendKernel(alpha), bytes);
  });
}

}  // namespace KIVMV
