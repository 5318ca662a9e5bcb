// The equalised and the banded SetColorLUT on a 4096 x 3000 grey camera frame, 8-bit and 16-bit,
// beside two anchors on the same pixels: cv::equalizeHist + cv::applyColorMap on the 8-bit frame,
// and cv::normalize to 8 bits + equalizeHist + applyColorMap on the 16-bit one.
//
// Counters as in bench_support.h. The memory budget of each is nothing: the destination, reused
// across calls, alone holds a matrix of the result's shape, which is written in place.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>

#include "KivLUTSetting.h"
#include "bench_support.h"

namespace {

using kivlut_bench::ExtraMiBOf;
using kivlut_bench::Finish;
using kivlut_bench::kHeight;
using kivlut_bench::kNoBudget;
using kivlut_bench::kPixels;
using kivlut_bench::kWidth;

constexpr int kJet = 6;  // the jet map, as COLORMAP_JET in the anchors

// A lit scene as a 16-bit camera delivers it: uneven illumination, a few parts brighter and darker
// than the background, fine texture and shot noise; 0.1 % dead pixels read 0.
const KIVMV::KivImage& Grey16() {
  static const KIVMV::KivImage image = [] {
    KIVMV::KivImage img(kWidth, kHeight, 1, KIVMV::KIV_IMAGE_16U);
    std::mt19937 random(5);
    std::normal_distribution<float> noise(0.0f, 350.0f);
    std::uniform_int_distribution<int> dead(0, 999);
    for (int y = 0; y < kHeight; ++y) {
      uint16_t* row = img.Mat().ptr<uint16_t>(y);
      for (int x = 0; x < kWidth; ++x) {
        const float dx = (x - 2048.0f) / 2048.0f, dy = (y - 1500.0f) / 1500.0f;
        float v = 24000.0f * (1.0f - 0.35f * (dx * dx + dy * dy));     // vignetting
        if ((x / 512 + y / 500) % 3 == 0) v += 14000.0f;               // bright parts
        if (std::hypot(x - 1200.0f, y - 1800.0f) < 600.0f) v *= 0.4f;  // a dark disc
        v += 2500.0f * std::sin(x * 0.05f) * std::sin(y * 0.07f);      // texture
        v += noise(random);
        row[x] =
            dead(random) == 0 ? 0 : static_cast<uint16_t>(std::fmin(65535.0f, std::fmax(1.0f, v)));
      }
    }
    return img;
  }();
  return image;
}

const KIVMV::KivImage& Grey8() {
  static const KIVMV::KivImage image = [] {
    KIVMV::KivImage img(kWidth, kHeight, 1, KIVMV::KIV_IMAGE_8U);
    Grey16().Mat().convertTo(img.Mat(), CV_8U, 1.0 / 256.0);
    return img;
  }();
  return image;
}

const KIVMV::KivImage& GreyOfDepth(int bits) { return bits == 8 ? Grey8() : Grey16(); }

// One library call per iteration into the same destination image; the status is checked once.
template <typename Call>
void RunGrey(benchmark::State& state, Call call) {
  KIVMV::KivImage src = GreyOfDepth(static_cast<int>(state.range(0)));
  KIVMV::KivImage dst;
  KIVMV::KivLUTSetting lut;
  const long status = call(lut, src, dst);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf([&] { call(lut, src, dst); });
  for (auto _ : state) {
    call(lut, src, dst);
    benchmark::DoNotOptimize(dst.Mat().data);
    benchmark::ClobberMemory();
  }
  Finish(state, extraMiB, 0.0);
}

void BM_SetColorLUT_Equalised(benchmark::State& state) {
  RunGrey(state, [](auto& lut, auto& src, auto& dst) { return lut.SetColorLUT(src, &dst, kJet); });
}

void BM_SetColorLUT_Banded(benchmark::State& state) {
  // Bounds inside the data of either depth, part of the table, two marker colours.
  const int high = state.range(0) == 8 ? 160 : 40000;
  const int low = state.range(0) == 8 ? 40 : 10000;
  RunGrey(state, [low, high](auto& lut, auto& src, auto& dst) {
    return lut.SetColorLUT(src, &dst, kJet, low, high, 10, 240, KIVMV::KivColor(0, 0, 0),
                           KIVMV::KivColor(255, 255, 255));
  });
}

// --- anchors ---

void BM_Anchor_EqualizeApplyColorMap8(benchmark::State& state) {
  const cv::Mat& grey = Grey8().Mat();
  cv::Mat equalised(kHeight, kWidth, CV_8U), colour(kHeight, kWidth, CV_8UC3);
  const auto colourIt = [&] {
    cv::equalizeHist(grey, equalised);
    cv::applyColorMap(equalised, colour, cv::COLORMAP_JET);
    benchmark::DoNotOptimize(colour.data);
  };
  colourIt();
  const double extraMiB = ExtraMiBOf(colourIt);
  for (auto _ : state) colourIt();
  Finish(state, extraMiB, kNoBudget);
}

void BM_Anchor_NormalizeEqualizeApplyColorMap16(benchmark::State& state) {
  const cv::Mat& pixels = Grey16().Mat();
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

}  // namespace

BENCHMARK(BM_Anchor_EqualizeApplyColorMap8)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Anchor_NormalizeEqualizeApplyColorMap16)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SetColorLUT_Equalised)->Arg(8)->Arg(16)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SetColorLUT_Banded)->Arg(8)->Arg(16)->Unit(benchmark::kMillisecond)->UseRealTime();
