// What the benchmark files share: the frame size, a realistic height field, and the memory
// counters.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include "KivLUTSetting.h"

namespace kivlut_bench {

inline constexpr int kWidth = 4096;
inline constexpr int kHeight = 3000;
inline constexpr int kPixels = kWidth * kHeight;

// Bytes per pixel of the buffers a mapping's memory budget is made of.
inline constexpr double kColourBytes = 3.0;  // one colour, blue, green, red
inline constexpr double kFloatBytes = 4.0;   // a float height or value
inline constexpr double kMaskBytes = 1.0;    // an 8-bit mask
inline constexpr double kPointBytes = 12.0;  // a KivVector3d: a point or a normal

inline double MiB(double bytes) { return bytes / (1024.0 * 1024.0); }

// A field of /proc/self/status in KiB ("VmRSS:", "VmHWM:"), or -1 when it cannot be read.
inline long StatusKiB(const char* field) {
  std::FILE* status = std::fopen("/proc/self/status", "r");
  if (status == nullptr) return -1;
  long kib = -1;
  char line[256];
  const size_t length = std::strlen(field);
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::strncmp(line, field, length) == 0) {
      kib = std::strtol(line + length, nullptr, 10);
      break;
    }
  }
  std::fclose(status);
  return kib;
}

inline long MaxResidentKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Measures how far the resident size rises above where it stood when the meter was made. It
// first hands the heap's free pages back to the system, so that the measured code cannot reuse,
// unseen, pages an earlier call freed but glibc kept; then it resets the kernel's peak to the
// present size (Linux 4.0 and later). Where the reset is refused the process's peak since start
// serves, which can only overstate what the measured code took.
class PeakMeter {
 public:
  PeakMeter() {
    malloc_trim(0);
    std::FILE* clear = std::fopen("/proc/self/clear_refs", "w");
    if (clear != nullptr) {
      reset_ = std::fputs("5", clear) >= 0;
      reset_ = std::fclose(clear) == 0 && reset_;
    }
    startKiB_ = StatusKiB("VmRSS:");
  }

  double ExtraMiB() const {
    const long peakKiB = reset_ ? StatusKiB("VmHWM:") : MaxResidentKiB();
    if (startKiB_ < 0 || peakKiB < 0) return 0.0;
    return peakKiB > startKiB_ ? (peakKiB - startKiB_) / 1024.0 : 0.0;
  }

 private:
  bool reset_ = false;
  long startKiB_ = -1;
};

// The memory one call needs beyond what exists before it: its inputs, its outputs and all the
// process already holds. Run it after a first call of the same kind, so that the output is sized
// and written, the worker threads run and one-time set-up is done: what remains is what every
// call costs.
template <typename Call>
double ExtraMiBOf(Call&& call) {
  const PeakMeter meter;
  call();
  return meter.ExtraMiB();
}

// A tilted plane with a few bumps and sensor noise, in millimetres; 1 % of the pixels dropped.
inline const cv::Mat& HeightsMillimetres() {
  static const cv::Mat heights = [] {
    cv::Mat mm(kHeight, kWidth, CV_32F);
    std::mt19937 random(3);
    std::normal_distribution<float> noise(0.0f, 0.8f);
    for (int y = 0; y < kHeight; ++y) {
      float* row = mm.ptr<float>(y);
      for (int x = 0; x < kWidth; ++x) {
        const float bump = 120.0f * std::sin(x * 0.003f) * std::cos(y * 0.004f);
        row[x] = 900.0f + 0.05f * x + 0.03f * y + bump + noise(random);
      }
    }
    return mm;
  }();
  return heights;
}

inline bool Dropped(int i) { return (static_cast<unsigned>(i) * 2654435761u) % 100u == 0; }

// The heights as a range image of unsigned 16-bit raw units of 0.1 mm, 0 where dropped.
inline const KIVMV::KivRangeImage& U16Image() {
  static const KIVMV::KivRangeImage image = [] {
    KIVMV::KivRangeImage img(kWidth, kHeight, KIVMV::KIV_DATA_U16);
    img.SetResolution(0.1, 0.1, 0.1);
    const float* mm = HeightsMillimetres().ptr<float>();
    uint16_t* raw = img.Ptr<uint16_t>();
    for (int i = 0; i < kPixels; ++i) {
      raw[i] = Dropped(i) ? 0 : static_cast<uint16_t>(std::lround(mm[i] * 10.0f));
    }
    return img;
  }();
  return image;
}

// The heights as a float range image in millimetres, NaN where dropped.
inline const KIVMV::KivRangeImage& FloatImage() {
  static const KIVMV::KivRangeImage image = [] {
    KIVMV::KivRangeImage img(kWidth, kHeight, KIVMV::KIV_DATA_F32);
    const float* mm = HeightsMillimetres().ptr<float>();
    float* z = img.Ptr<float>();
    for (int i = 0; i < kPixels; ++i) {
      z[i] = Dropped(i) ? std::numeric_limits<float>::quiet_NaN() : mm[i];
    }
    return img;
  }();
  return image;
}

// The range-image benchmarks' argument is the pixel type: 2 unsigned 16-bit, 5 float.
inline const KIVMV::KivRangeImage& Image(int pixelType) {
  return pixelType == KIVMV::KIV_DATA_U16 ? U16Image() : FloatImage();
}

// The heights as a float array, NaN where dropped.
inline const KIVMV::Kiv3DFloatArray& HeightArray() {
  static const KIVMV::Kiv3DFloatArray array = [] {
    KIVMV::Kiv3DFloatArray values(kPixels);
    const float* mm = HeightsMillimetres().ptr<float>();
    for (int i = 0; i < kPixels; ++i) {
      values[i] = Dropped(i) ? std::numeric_limits<float>::quiet_NaN() : mm[i];
    }
    return values;
  }();
  return array;
}

// Bytes of one pixel of those images.
inline double PixelBytes(int pixelType) { return pixelType == KIVMV::KIV_DATA_U16 ? 2.0 : 4.0; }

// No budget: anchors and other measurements that are not a library mapping.
inline constexpr double kNoBudget = -1.0;

// Records the pixels per call, the memory one call needed beyond its inputs and outputs, and the
// budget that memory is checked against (scripts/bench.sh): what the mapping is described to
// make besides its inputs and outputs (copies, work arrays, a new result), fixed-size tables
// aside.
inline void Finish(benchmark::State& state, double pixels, double extraMiB, double budgetMiB) {
  state.counters["pixels"] = pixels;
  state.counters["peak_extra_MiB"] = extraMiB;
  if (budgetMiB >= 0.0) state.counters["budget_MiB"] = budgetMiB;
}

inline void Finish(benchmark::State& state, double extraMiB, double budgetMiB) {
  Finish(state, kPixels, extraMiB, budgetMiB);
}

// The floor every mapping is compared with: a memcpy of the 3-byte colours of `pixels` pixels.
inline void RunMemcpyAnchor(benchmark::State& state, int pixels) {
  std::vector<uint8_t> from(3 * static_cast<size_t>(pixels), 1), to(from.size());
  const auto copy = [&] {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  };
  const double extraMiB = ExtraMiBOf(copy);
  for (auto _ : state) copy();
  Finish(state, pixels, extraMiB, kNoBudget);
}

// Runs one library call per iteration on the range image of the benchmark's pixel type, with a
// reused output array. The first call checks the status and sizes the output; the second is the
// one whose memory is measured.
template <typename Call>
void RunRangeMapping(benchmark::State& state, double budgetMiB, Call call) {
  KIVMV::KivRangeImage image = Image(static_cast<int>(state.range(0)));
  KIVMV::KivColorArray out;
  out.Create(kPixels, 3);
  KIVMV::KivLUTSetting lut;
  const long status = call(lut, image, out);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf([&] { call(lut, image, out); });
  for (auto _ : state) {
    call(lut, image, out);
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
  Finish(state, extraMiB, budgetMiB);
}

}  // namespace kivlut_bench
