// Range-image mappings on a 4096 x 3000 frame (about 1 % invalid pixels), unsigned 16-bit and
// float, beside three anchors on the same data: a memcpy of the output's size (the memory floor),
// cv::normalize to 8 bits + cv::applyColorMap (what one would use for a linear colouring), and
// normalize + cv::equalizeHist + applyColorMap (for an equalised one).
//
// Counters: pixels per call, and peak_extra_MiB, the growth of the peak resident size over what the
// inputs and outputs already took (meaningful when each benchmark runs in a process of its own,
// as scripts/bench.sh does).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "KivLUTSetting.h"
#include "bench_support.h"

namespace {

using namespace kivlut_bench;

const KIVMV::KivRangeImage& U16Image() {
  static const KIVMV::KivRangeImage image = [] {
    KIVMV::KivRangeImage img(kWidth, kHeight, KIVMV::KIV_DATA_U16);
    img.SetResolution(0.1, 0.1, 0.1);  // raw units of 0.1 mm
    const float* mm = HeightsMillimetres().ptr<float>();
    uint16_t* raw = img.Ptr<uint16_t>();
    for (int i = 0; i < kPixels; ++i) {
      raw[i] = Dropped(i) ? 0 : static_cast<uint16_t>(std::lround(mm[i] * 10.0f));
    }
    return img;
  }();
  return image;
}

const KIVMV::KivRangeImage& FloatImage() {
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

const KIVMV::KivRangeImage& Image(int pixelType) {
  return pixelType == KIVMV::KIV_DATA_U16 ? U16Image() : FloatImage();
}

// Runs one library call per iteration on a reused output array and checks its status once.
template <typename Call>
void RunMapping(benchmark::State& state, Call call) {
  KIVMV::KivRangeImage image = Image(static_cast<int>(state.range(0)));
  KIVMV::KivColorArray out;
  out.Create(kPixels, 3);
  KIVMV::KivLUTSetting lut;
  const double baseline = BaselineMiB();
  const long status = call(lut, image, out);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  for (auto _ : state) {
    call(lut, image, out);
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
  Finish(state, baseline);
}

// Bounds inside the data, in millimetres: both images are in millimetres once the unsigned 16-bit
// one's resolution is applied.
constexpr double kLowMm = 950.0;
constexpr double kHighMm = 1050.0;

void BM_ColorMapLUT_DataRange(benchmark::State& state) {
  RunMapping(state,
             [](auto& lut, auto& image, auto& out) { return lut.ColorMapLUT(image, 6, &out); });
}
void BM_ColorMapLUT_Bounds(benchmark::State& state) {
  RunMapping(state, [](auto& lut, auto& image, auto& out) {
    return lut.ColorMapLUT(image, 6, kLowMm, kHighMm, &out);
  });
}
void BM_ColorMapLUT_ColourRange(benchmark::State& state) {
  RunMapping(state, [](auto& lut, auto& image, auto& out) {
    return lut.ColorMapLUT(image, 6, kLowMm, kHighMm, 10, 240, KIVMV::KivColor(0, 0, 0),
                           KIVMV::KivColor(255, 255, 255), &out);
  });
}
void BM_LinearColorMapLUT_A_Colours(benchmark::State& state) {
  RunMapping(state, [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, 6, kLowMm, kHighMm, 10, 240, KIVMV::KivColor(0, 0, 0),
                                 KIVMV::KivColor(255, 255, 255), &out);
  });
}
void BM_LinearColorMapLUT_B_Bounds(benchmark::State& state) {
  RunMapping(state, [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, 6, kLowMm, kHighMm, &out);
  });
}
void BM_LinearColorMapLUT_C_DataRange(benchmark::State& state) {
  RunMapping(state, [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, 6, &out);
  });
}
void BM_LinearColorMapLUT_D_Fractions(benchmark::State& state) {
  RunMapping(state, [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, &out, 6, 0.01, 0.01);
  });
}

// --- anchors ---

void BM_Anchor_Memcpy(benchmark::State& state) {
  std::vector<uint8_t> from(3 * static_cast<size_t>(kPixels), 1), to(from.size());
  const double baseline = BaselineMiB();
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  Finish(state, baseline);
}

void BM_Anchor_NormalizeApplyColorMap(benchmark::State& state) {
  const cv::Mat& pixels = Image(static_cast<int>(state.range(0))).Mat();
  cv::Mat grey(kHeight, kWidth, CV_8U), colour(kHeight, kWidth, CV_8UC3);
  cv::normalize(pixels, grey, 0, 255, cv::NORM_MINMAX, CV_8U);
  cv::applyColorMap(grey, colour, cv::COLORMAP_JET);
  const double baseline = BaselineMiB();
  for (auto _ : state) {
    cv::normalize(pixels, grey, 0, 255, cv::NORM_MINMAX, CV_8U);
    cv::applyColorMap(grey, colour, cv::COLORMAP_JET);
    benchmark::DoNotOptimize(colour.data);
  }
  Finish(state, baseline);
}

void BM_Anchor_NormalizeEqualizeApplyColorMap(benchmark::State& state) {
  const cv::Mat& pixels = Image(static_cast<int>(state.range(0))).Mat();
  cv::Mat grey(kHeight, kWidth, CV_8U), equalised(kHeight, kWidth, CV_8U);
  cv::Mat colour(kHeight, kWidth, CV_8UC3);
  cv::normalize(pixels, grey, 0, 255, cv::NORM_MINMAX, CV_8U);
  cv::equalizeHist(grey, equalised);
  cv::applyColorMap(equalised, colour, cv::COLORMAP_JET);
  const double baseline = BaselineMiB();
  for (auto _ : state) {
    cv::normalize(pixels, grey, 0, 255, cv::NORM_MINMAX, CV_8U);
    cv::equalizeHist(grey, equalised);
    cv::applyColorMap(equalised, colour, cv::COLORMAP_JET);
    benchmark::DoNotOptimize(colour.data);
  }
  Finish(state, baseline);
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
