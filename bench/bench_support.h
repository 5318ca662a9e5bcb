// What the benchmark files share: the frame size, a realistic height field, and the memory
// counters.
#pragma once

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <random>

namespace kivlut_bench {

inline constexpr int kWidth = 4096;
inline constexpr int kHeight = 3000;
inline constexpr int kPixels = kWidth * kHeight;

inline double PeakResidentMiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

// The peak once the inputs and outputs exist, taken the first time a benchmark asks: the library
// runs a benchmark several times, and later runs start from the peak the first one left.
inline double BaselineMiB() {
  static const double baseline = PeakResidentMiB();
  return baseline;
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

// Records the pixels per call and the peak memory above the baseline.
inline void Finish(benchmark::State& state, double baselineMiB) {
  state.counters["pixels"] = kPixels;
  state.counters["peak_extra_MiB"] = PeakResidentMiB() - baselineMiB;
}

}  // namespace kivlut_bench
