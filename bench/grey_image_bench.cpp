// Grey-image and flat-array colourings on 4096 x 3000 inputs, beside the OpenCV calls one would
// use instead: cv::applyColorMap on the 8-bit image, cv::normalize + applyColorMap on the 16-bit
// one, and cv::addWeighted for the blend. Outputs are reused across iterations.
//
// Memory budgets, beside the inputs and outputs (bench_support.h): nothing. Both grey images are
// coloured into the destination's own matrix, which alone holds a matrix of the result's shape
// after the first call; the integer-array colouring and the blend make nothing (the blend
// converts channels in place and allocates only its output).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "KivLUTSetting.h"
#include "bench_support.h"

namespace {

using namespace kivlut_bench;

// The heights in tenths of a millimetre, dropped pixels 0: a 16-bit frame of a depth camera.
const cv::Mat& Grey16() {
  static const cv::Mat grey = [] {
    cv::Mat raw(kHeight, kWidth, CV_16U);
    const float* mm = HeightsMillimetres().ptr<float>();
    uint16_t* out = raw.ptr<uint16_t>();
    for (int i = 0; i < kPixels; ++i) {
      out[i] = Dropped(i) ? 0 : static_cast<uint16_t>(std::lround(mm[i] * 10.0f));
    }
    return raw;
  }();
  return grey;
}

// The same frame scaled to 8 bits.
const cv::Mat& Grey8() {
  static const cv::Mat grey = [] {
    cv::Mat eight;
    Grey16().convertTo(eight, CV_8U, 1.0 / 64.0);
    return eight;
  }();
  return grey;
}

// Two colourings of the frame, as the colour arrays a blend gets.
const cv::Mat& ColoursA() {
  static const cv::Mat colours = [] {
    cv::Mat bgr;
    cv::applyColorMap(Grey8(), bgr, cv::COLORMAP_JET);
    return bgr;
  }();
  return colours;
}
const cv::Mat& ColoursB() {
  static const cv::Mat colours = [] {
    cv::Mat bgr;
    cv::applyColorMap(Grey8(), bgr, cv::COLORMAP_BONE);
    return bgr;
  }();
  return colours;
}

KIVMV::KivColorArray ToColorArray(const cv::Mat& bgr) {
  KIVMV::KivColorArray array;
  array.Create(kPixels, 3);
  bgr.reshape(3, 1).copyTo(array.Mat());
  return array;
}

constexpr int kMapType = 6;  // jet
constexpr double kAlpha = 0.4;

void RunGreyImage(benchmark::State& state, const cv::Mat& pixels, double budgetMiB) {
  KIVMV::KivImage src;
  src.Mat() = pixels.clone();
  KIVMV::KivImage dst;
  KIVMV::KivLUTSetting lut;
  const long status = lut.LinearSetColorLUT(src, &dst, kMapType);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf([&] { lut.LinearSetColorLUT(src, &dst, kMapType); });
  for (auto _ : state) {
    lut.LinearSetColorLUT(src, &dst, kMapType);
    benchmark::DoNotOptimize(dst.Data());
    benchmark::ClobberMemory();
  }
  Finish(state, extraMiB, budgetMiB);
}

void BM_LinearSetColorLUT_Grey8(benchmark::State& state) { RunGreyImage(state, Grey8(), 0.0); }
void BM_LinearSetColorLUT_Grey16(benchmark::State& state) { RunGreyImage(state, Grey16(), 0.0); }

void BM_ColorMapLUT_IntArray(benchmark::State& state) {
  KIVMV::Kiv3DIntArray values(kPixels);
  const uint16_t* raw = Grey16().ptr<uint16_t>();
  for (int i = 0; i < kPixels; ++i) values[i] = raw[i];
  KIVMV::KivColorArray out;
  out.Create(kPixels, 3);
  KIVMV::KivLUTSetting lut;
  // Bounds inside the data: some values fall below and above.
  const long status = lut.ColorMapLUT(values, kMapType, 9500, 10500, &out);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf([&] { lut.ColorMapLUT(values, kMapType, 9500, 10500, &out); });
  for (auto _ : state) {
    lut.ColorMapLUT(values, kMapType, 9500, 10500, &out);
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
  Finish(state, extraMiB, 0.0);
}

void BM_ColorBlend(benchmark::State& state) {
  KIVMV::KivColorArray a = ToColorArray(ColoursA());
  KIVMV::KivColorArray b = ToColorArray(ColoursB());
  KIVMV::KivColorArray out;
  out.Create(kPixels, 3);
  KIVMV::KivLUTSetting lut;
  const long status = lut.ColorBlend(a, b, kAlpha, &out);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf([&] { lut.ColorBlend(a, b, kAlpha, &out); });
  for (auto _ : state) {
    lut.ColorBlend(a, b, kAlpha, &out);
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
  Finish(state, extraMiB, 0.0);
}

// --- anchors ---

void BM_Anchor_ApplyColorMap8(benchmark::State& state) {
  const cv::Mat& grey = Grey8();
  cv::Mat colour(kHeight, kWidth, CV_8UC3);
  const auto colourIt = [&] {
    cv::applyColorMap(grey, colour, cv::COLORMAP_JET);
    benchmark::DoNotOptimize(colour.data);
    benchmark::ClobberMemory();
  };
  colourIt();
  const double extraMiB = ExtraMiBOf(colourIt);
  for (auto _ : state) colourIt();
  Finish(state, extraMiB, kNoBudget);
}

void BM_Anchor_NormalizeApplyColorMap16(benchmark::State& state) {
  const cv::Mat& pixels = Grey16();
  cv::Mat grey(kHeight, kWidth, CV_8U);
  cv::Mat colour(kHeight, kWidth, CV_8UC3);
  const auto colourIt = [&] {
    cv::normalize(pixels, grey, 0, 255, cv::NORM_MINMAX, CV_8U);
    cv::applyColorMap(grey, colour, cv::COLORMAP_JET);
    benchmark::DoNotOptimize(colour.data);
    benchmark::ClobberMemory();
  };
  colourIt();
  const double extraMiB = ExtraMiBOf(colourIt);
  for (auto _ : state) colourIt();
  Finish(state, extraMiB, kNoBudget);
}

void BM_Anchor_AddWeighted(benchmark::State& state) {
  const cv::Mat& a = ColoursA();
  const cv::Mat& b = ColoursB();
  cv::Mat out(kHeight, kWidth, CV_8UC3);
  const auto blend = [&] {
    cv::addWeighted(a, kAlpha, b, 1.0 - kAlpha, 0.0, out);
    benchmark::DoNotOptimize(out.data);
    benchmark::ClobberMemory();
  };
  blend();
  const double extraMiB = ExtraMiBOf(blend);
  for (auto _ : state) blend();
  Finish(state, extraMiB, kNoBudget);
}

}  // namespace

BENCHMARK(BM_LinearSetColorLUT_Grey8)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Anchor_ApplyColorMap8)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LinearSetColorLUT_Grey16)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Anchor_NormalizeApplyColorMap16)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ColorMapLUT_IntArray)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ColorBlend)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Anchor_AddWeighted)->Unit(benchmark::kMillisecond)->UseRealTime();
