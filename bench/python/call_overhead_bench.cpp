// The C++ side of call_overhead.py: each call the script times from Python, here called directly on
// the frames the script wrote, each allocating a fresh output as a Python call does.
//   python_call_overhead_bench --frames=DIR --width=W --height=H [Google Benchmark flags]
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "KivLUTSetting.h"

namespace {

using namespace KIVMV;

std::string g_frames;
int g_width = 0;
int g_height = 0;

// The raw bytes of DIR/name, which must hold exactly `bytes` bytes.
bool ReadRaw(const std::string& name, void* data, size_t bytes) {
  std::ifstream file(g_frames + "/" + name, std::ios::binary);
  file.read(static_cast<char*>(data), static_cast<std::streamsize>(bytes));
  return static_cast<size_t>(file.gcount()) == bytes && file.peek() == EOF;
}

KivRangeImage RangeImageFrom(const std::string& name, KivDataType type, size_t sampleBytes) {
  KivRangeImage image(g_width, g_height, type);
  if (!ReadRaw(name, image.Data(), sampleBytes * g_width * g_height)) {
    std::cerr << "cannot read " << name << "\n";
    std::exit(2);
  }
  return image;
}

void ColorMapLutU16(benchmark::State& state) {
  KivRangeImage image = RangeImageFrom("u16.bin", KIV_DATA_U16, 2);
  image.SetResolution(1.0, 1.0, 0.001);
  KivLUTSetting lut;
  for (auto _ : state) {
    KivColorArray out;
    benchmark::DoNotOptimize(lut.ColorMapLUT(image, 1, &out));
    benchmark::DoNotOptimize(out.Data());
  }
}

void LinearColorMapLutF32(benchmark::State& state) {
  KivRangeImage image = RangeImageFrom("f32.bin", KIV_DATA_F32, 4);
  KivLUTSetting lut;
  for (auto _ : state) {
    KivColorArray out;
    benchmark::DoNotOptimize(lut.LinearColorMapLUT(image, 6, 950.0, 1050.0, &out));
    benchmark::DoNotOptimize(out.Data());
  }
}

void SetColorLutGrey8(benchmark::State& state) {
  KivImage grey(g_width, g_height, 1, KIV_IMAGE_8U);
  if (!ReadRaw("grey8.bin", grey.Data(), static_cast<size_t>(g_width) * g_height)) {
    std::cerr << "cannot read grey8.bin\n";
    std::exit(2);
  }
  KivLUTSetting lut;
  for (auto _ : state) {
    KivImage out;
    benchmark::DoNotOptimize(lut.SetColorLUT(grey, &out, 1));
    benchmark::DoNotOptimize(out.Data());
  }
}

void LinearSetColorLutFloats(benchmark::State& state) {
  Kiv3DFloatArray values(g_width * g_height);
  if (!ReadRaw("f32.bin", values.Data(), sizeof(float) * g_width * g_height)) {
    std::cerr << "cannot read f32.bin\n";
    std::exit(2);
  }
  KivLUTSetting lut;
  for (auto _ : state) {
    KivColorArray out;
    benchmark::DoNotOptimize(lut.LinearSetColorLUT(values, 950.0f, 1050.0f, 6, &out));
    benchmark::DoNotOptimize(out.Data());
  }
}

// Takes this program's own flags out of argv, leaving Google Benchmark's.
bool TakeOwnFlags(int* argc, char** argv) {
  int kept = 1;
  for (int i = 1; i < *argc; ++i) {
    const std::string flag = argv[i];
    if (flag.rfind("--frames=", 0) == 0) {
      g_frames = flag.substr(9);
    } else if (flag.rfind("--width=", 0) == 0) {
      g_width = std::atoi(flag.c_str() + 8);
    } else if (flag.rfind("--height=", 0) == 0) {
      g_height = std::atoi(flag.c_str() + 9);
    } else {
      argv[kept++] = argv[i];
    }
  }
  *argc = kept;
  return !g_frames.empty() && g_width > 0 && g_height > 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (!TakeOwnFlags(&argc, argv)) {
    std::cerr << "usage: python_call_overhead_bench --frames=DIR --width=W --height=H [flags]\n";
    return 2;
  }
  // The names are the ones call_overhead.py gives its Python calls.
  benchmark::RegisterBenchmark("color_map_lut/u16", ColorMapLutU16)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("linear_color_map_lut/f32", LinearColorMapLutF32)
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("set_color_lut/grey8", SetColorLutGrey8)
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("linear_set_color_lut/floats", LinearSetColorLutFloats)
      ->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
