// Range-image mappings on a 4096 x 3000 frame (about 1 % invalid pixels), unsigned 16-bit and
// float, beside three anchors on the same data: a memcpy of the output's size (the memory floor),
// cv::normalize to 8 bits + cv::applyColorMap (what one would use for a linear colouring), and
// normalize + cv::equalizeHist + applyColorMap (for an equalised one).
//
// Counters: pixels per call; peak_extra_MiB, how far one call raises the resident size above what
// its inputs and outputs already take; and budget_MiB, what the mapping is described to make
// besides them (see bench_support.h). The equalised and linear mappings make nothing frame-sized:
// their budget is 0. The fraction form may take one float copy of the image at most (it needs
// none: the cut values are counted out of the pixels' bits).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "KivLUTSetting.h"
#include "bench_support.h"

namespace {

using namespace kivlut_bench;

// Nothing frame-sized besides the image and the colours.
constexpr double kNoCopies = 0.0;

// Bounds inside the data, in millimetres: both images are in millimetres once the unsigned 16-bit
// one's resolution is applied.
constexpr double kLowMm = 950.0;
constexpr double kHighMm = 1050.0;

void BM_ColorMapLUT_DataRange(benchmark::State& state) {
  RunRangeMapping(state, kNoCopies, [](auto& lut, auto& image, auto& out) {
    return lut.ColorMapLUT(image, 6, &out);
  });
}
void BM_ColorMapLUT_Bounds(benchmark::State& state) {
  RunRangeMapping(state, kNoCopies, [](auto& lut, auto& image, auto& out) {
    return lut.ColorMapLUT(image, 6, kLowMm, kHighMm, &out);
  });
}
void BM_ColorMapLUT_ColourRange(benchmark::State& state) {
  RunRangeMapping(state, kNoCopies, [](auto& lut, auto& image, auto& out) {
    return lut.ColorMapLUT(image, 6, kLowMm, kHighMm, 10, 240, KIVMV::KivColor(0, 0, 0),
                           KIVMV::KivColor(255, 255, 255), &out);
  });
}
void BM_LinearColorMapLUT_A_Colours(benchmark::State& state) {
  RunRangeMapping(state, kNoCopies, [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, 6, kLowMm, kHighMm, 10, 240, KIVMV::KivColor(0, 0, 0),
                                 KIVMV::KivColor(255, 255, 255), &out);
  });
}
void BM_LinearColorMapLUT_B_Bounds(benchmark::State& state) {
  RunRangeMapping(state, kNoCopies, [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, 6, kLowMm, kHighMm, &out);
  });
}
void BM_LinearColorMapLUT_C_DataRange(benchmark::State& state) {
  RunRangeMapping(state, kNoCopies, [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, 6, &out);
  });
}
void BM_LinearColorMapLUT_D_Fractions(benchmark::State& state) {
  // At most one float copy of the image.
  const double budget = MiB(static_cast<double>(kPixels) * kFloatBytes);
  RunRangeMapping(state, budget, [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, &out, 6, 0.01, 0.01);
  });
}

// --- anchors ---

void BM_Anchor_Memcpy(benchmark::State& state) { kivlut_bench::RunMemcpyAnchor(state, kPixels); }

void BM_Anchor_NormalizeApplyColorMap(benchmark::State& state) {
  const cv::Mat& pixels = Image(static_cast<int>(state.range(0))).Mat();
  cv::Mat grey(kHeight, kWidth, CV_8U), colour(kHeight, kWidth, CV_8UC3);
  const auto colourIt = [&] {
    cv::normalize(pixels, grey, 0, 255, cv::NORM_MINMAX, CV_8U);
    cv::applyColorMap(grey, colour, cv::COLORMAP_JET);
    benchmark::DoNotOptimize(colour.data);
  };
  colourIt();
  const double extraMiB = ExtraMiBOf(colourIt);
  for (auto _ : state) colourIt();
  Finish(state, extraMiB, kNoBudget);
}

void BM_Anchor_NormalizeEqualizeApplyColorMap(benchmark::State& state) {
  const cv::Mat& pixels = Image(static_cast<int>(state.range(0))).Mat();
  cv::Mat grey(kHeight, kWidth, CV_8U), equalised(kHeight, kWidth, CV_8U);
  cv::Mat colour(kHeight, kWidth, CV_8UC3);
  const auto colourIt = [&] {
    cv::normalize(pixels, grey, 0, 255, cv::NORM_MINMAX, CV_8U);
    cv::equalizeHist(grey, equalised);
    cv::applyColorMap(equalised, colour, cv::COLORMAP_JET);
    benchmark::DoNotOptimize(colour.data);
  };
  colourIt();
  const double extraMiB = ExtraMiBOf(colourIt);
  for (auto _ : state) colourIt();
  Finish(state, extraMiB, kNoBudget);
}

constexpr int kU16 = KIVMV::KIV_DATA_U16;
constexpr int kF32 = KIVMV::KIV_DATA_F32;

}  // namespace

BENCHMARK(BM_Anchor_Memcpy)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Anchor_NormalizeApplyColorMap)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_Anchor_NormalizeEqualizeApplyColorMap)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ColorMapLUT_DataRange)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ColorMapLUT_Bounds)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ColorMapLUT_ColourRange)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_LinearColorMapLUT_A_Colours)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_LinearColorMapLUT_B_Bounds)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_LinearColorMapLUT_C_DataRange)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_LinearColorMapLUT_D_Fractions)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
