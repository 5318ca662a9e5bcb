// Float-array colourings on 4096 x 3000 elements (about 1 % invalid), the same heights as the
// range-image benchmarks, so their float anchors (the /5 ones) serve here too. Counters as in
// bench_support.h.
#include <benchmark/benchmark.h>

#include "KivLUTSetting.h"
#include "bench_support.h"

namespace {

using namespace kivlut_bench;

template <typename Call>
void RunArrayMapping(benchmark::State& state, Call call) {
  KIVMV::Kiv3DFloatArray values = HeightArray();
  KIVMV::KivColorArray out;
  out.Create(kPixels, 3);
  KIVMV::KivLUTSetting lut;
  const long status = call(lut, values, out);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf([&] { call(lut, values, out); });
  for (auto _ : state) {
    call(lut, values, out);
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
  // Both colour the array where it lies: nothing frame-sized besides the values and the colours.
  Finish(state, extraMiB, 0.0);
}

// The argument 5 marks float data, as the anchors' does.
void BM_SetColorLUT_FloatArray(benchmark::State& state) {
  // The method prints its timing line on every call; that is part of its cost.
  RunArrayMapping(state, [](auto& lut, auto& values, auto& out) {
    return lut.SetColorLUT(values, 950.0f, 1050.0f, 6, &out);
  });
}

void BM_LinearSetColorLUT_FloatArray(benchmark::State& state) {
  RunArrayMapping(state, [](auto& lut, auto& values, auto& out) {
    return lut.LinearSetColorLUT(values, 950.0f, 1050.0f, 6, &out);
  });
}

}  // namespace

BENCHMARK(BM_SetColorLUT_FloatArray)->Arg(5)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LinearSetColorLUT_FloatArray)->Arg(5)->Unit(benchmark::kMillisecond)->UseRealTime();
