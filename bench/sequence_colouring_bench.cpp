// The sequence colouriser against the stateless colouring of KivColoring.h, frame after frame on a
// 640 x 480 stream (four frames of the benchmark heights, each shifted by a pixel, so the carried
// mapping keeps working), equalised and linear with measured bounds, 16-bit and float. Target: a
// frame of the stable colouring costs under 10 % more than the stateless call.
#include <benchmark/benchmark.h>

#include <vector>

#include "KivColoring.h"
#include "KivSequenceColoring.h"
#include "bench_support.h"

namespace {

using namespace kivlut_bench;

constexpr int kStreamWidth = 640;
constexpr int kStreamHeight = 480;
constexpr int kStreamFrames = 4;

// Frame k: the benchmark heights from column k and row k on, as 16-bit (0.1 mm) or float images.
const std::vector<KIVMV::KivRangeImage>& Stream(bool floatPixels) {
  static const auto make = [](bool asFloat) {
    std::vector<KIVMV::KivRangeImage> frames;
    const KIVMV::KivRangeImage& source = asFloat ? FloatImage() : U16Image();
    for (int k = 0; k < kStreamFrames; ++k) {
      KIVMV::KivRangeImage frame(kStreamWidth, kStreamHeight, source.DataType());
      frame.SetResolution(source.ResolutionX(), source.ResolutionY(), source.ResolutionZ());
      source.Mat()(cv::Rect(k, k, kStreamWidth, kStreamHeight)).copyTo(frame.Mat());
      frames.push_back(frame);
    }
    return frames;
  };
  static const std::vector<KIVMV::KivRangeImage> u16 = make(false);
  static const std::vector<KIVMV::KivRangeImage> f32 = make(true);
  return floatPixels ? f32 : u16;
}

KIVMV::KivColoringMode ModeOf(const benchmark::State& state) {
  return state.range(0) == 0 ? KIVMV::KivColoringMode::kEqualised : KIVMV::KivColoringMode::kLinear;
}

// Arguments: mode (0 equalised, 1 linear), pixels (0 16-bit, 1 float).
void BM_StatelessColouring(benchmark::State& state) {
  const auto& frames = Stream(state.range(1) == 1);
  KIVMV::KivColorTable table;
  KIVMV::KivColorTable::ByName("turbo", &table);
  KIVMV::KivColoringOptions options;
  options.mode = ModeOf(state);
  size_t k = 0;
  for (auto _ : state) {
    KIVMV::KivColorArray out;
    benchmark::DoNotOptimize(
        KIVMV::KivColorRangeImage(frames[k++ % frames.size()], table, options, &out));
    benchmark::DoNotOptimize(out.Data());
  }
}

void BM_SequenceColouring(benchmark::State& state) {
  const auto& frames = Stream(state.range(1) == 1);
  KIVMV::KivColorTable table;
  KIVMV::KivColorTable::ByName("turbo", &table);
  KIVMV::KivSequenceOptions options;
  options.coloring.mode = ModeOf(state);
  KIVMV::KivSequenceColorizer colorizer(table, options);
  size_t k = 0;
  for (auto _ : state) {
    KIVMV::KivColorArray out;
    benchmark::DoNotOptimize(colorizer.ColorFrame(frames[k++ % frames.size()], &out));
    benchmark::DoNotOptimize(out.Data());
  }
}

}  // namespace

BENCHMARK(BM_StatelessColouring)
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
BENCHMARK(BM_SequenceColouring)
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
