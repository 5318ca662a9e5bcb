// The five-point scale (LinearColorMapLUT_Para) in automatic mode on the 4096 x 3000 range images
// the other range mappings run on (bench_support.h), unsigned 16-bit and float, and on the same
// heights as a float array: the range-image LinearColorMapLUT, the segmenting ColorMapLUT with its
// chart, segments and ticks, and the float-array LinearColorMapLUT. Their anchor is the OpenCV
// colouring nearest in work (scripts/bench.sh).
//
// Memory budgets, beside the input and the output: the range-image forms take a deep copy of the
// image and, unless it is float already, convert it to float heights (4 bytes a pixel). The
// segmenting form then cuts four masks (1 byte a pixel each) and four segment copies (floats),
// colours each segment into a colour array of its own (appended to vectorA as images sharing those
// pixels), marks the chart's valid samples in a mask, counts each segment's outside through the
// complement of its mask, and draws the 800 x 600 chart, which is cloned into the result. The
// float-array form works on the caller's array in place and makes nothing frame-sized.
#include <benchmark/benchmark.h>

#include "KivLUTSetting.h"
#include "bench_support.h"

namespace {

using namespace kivlut_bench;

constexpr int kRainbow = 1;
constexpr int kTicks = 4;  // sizeA and sizeB: four legend steps on each side of the centre
constexpr double kChartBytes = 800.0 * 600.0 * 3.0;

// The deep copy, and the float heights it is converted to when it is not float already.
double FloatCopyBytesPerPixel(int pixelType) {
  return PixelBytes(pixelType) + (pixelType == KIVMV::KIV_DATA_F32 ? 0.0 : kFloatBytes);
}

void BM_LinearColorMapLUT_Para(benchmark::State& state) {
  const int pixelType = static_cast<int>(state.range(0));
  const double budget = MiB(kPixels * FloatCopyBytesPerPixel(pixelType));
  RunRangeMapping(state, budget, [](auto& lut, auto& image, auto& out) {
    KIVMV::LinearColorMapLUT_Para para;
    KIVMV::KivColor under(255, 0, 255), over(255, 255, 255);
    return lut.LinearColorMapLUT(image, &out, para, under, over, kRainbow, true);
  });
}

void BM_ColorMapLUT_Para_Segmented(benchmark::State& state) {
  const int pixelType = static_cast<int>(state.range(0));
  constexpr int kSegments = 4;
  const double perPixel = FloatCopyBytesPerPixel(pixelType) + kSegments * kMaskBytes +
                          kSegments * kFloatBytes + kSegments * kColourBytes + kMaskBytes +
                          kMaskBytes;
  const double budget = MiB(kPixels * perPixel + 2.0 * kChartBytes);

  KIVMV::KivRangeImage image = Image(pixelType);
  KIVMV::KivColorArray out;
  out.Create(kPixels, 3);
  KIVMV::KivLUTSetting lut;
  KIVMV::LinearColorMapLUT_Para para;
  KIVMV::KivColor under(255, 0, 255), over(255, 255, 255);
  KIVMV::KivVarArray chartAndSegments, ticks;
  const auto call = [&] {
    return lut.ColorMapLUT(image, &out, para, under, over, kRainbow, true, kTicks, kTicks,
                           &chartAndSegments, &ticks);
  };
  // The call appends to both arrays; emptied after each, so every call starts alike.
  const auto empty = [&] {
    chartAndSegments.Clear();
    ticks.Clear();
  };
  const long status = call();
  empty();
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf(call);
  empty();
  for (auto _ : state) {
    call();
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
    state.PauseTiming();
    empty();
    state.ResumeTiming();
  }
  Finish(state, extraMiB, budget);
}

void BM_LinearColorMapLUT_Para_FloatArray(benchmark::State& state) {
  // Rescaled in place: from the second call on the array holds [-1, 1] already, and each call
  // finds its extremes, rescales and colours it again, the same work.
  KIVMV::Kiv3DFloatArray values = HeightArray().DeepCopy();
  KIVMV::KivColorArray out;
  out.Create(kPixels, 3);
  KIVMV::KivLUTSetting lut;
  KIVMV::LinearColorMapLUT_Para para;
  KIVMV::KivColor under(255, 0, 255), over(255, 255, 255);
  const auto call = [&] {
    return lut.LinearColorMapLUT(values, &out, para, under, over, kRainbow, true);
  };
  const long status = call();
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf(call);
  for (auto _ : state) {
    call();
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
  Finish(state, extraMiB, 0.0);
}

constexpr int kU16 = KIVMV::KIV_DATA_U16;
constexpr int kF32 = KIVMV::KIV_DATA_F32;

}  // namespace

BENCHMARK(BM_LinearColorMapLUT_Para)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_ColorMapLUT_Para_Segmented)
    ->Arg(kU16)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
// The argument 5 marks float data, as the float anchors' does.
BENCHMARK(BM_LinearColorMapLUT_Para_FloatArray)
    ->Arg(kF32)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
