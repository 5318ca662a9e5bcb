// Every mapping with a speed target beside the OpenCV path a user would write instead, on the same
// frame, at several frame sizes, in one process: scripts/bench_ratios.sh runs all cases
// interleaved in random order, repeated, and divides each mapping's median by its anchor's.
//
// It uses the installed public API only, so that the same source measures the library of any
// commit (scripts/bench_ratios.sh --commit REV).
//
// Names: BM_<Input>_<Method>/<width>/<height>, with the inputs F32 (float range image in mm, NaN
// where dropped), U16 (16-bit range image in 0.1 mm, 0 where dropped), Grey8, Grey16 (grey
// images) and FloatArray (the float heights as a flat array); anchors are BM_Anchor_<Path>_<Input>.
//
// KIVLUT_BENCH_WORKERS, when set, limits oneTBB and OpenCV to that many threads; the script sets
// KIV_TBB_CHUNKS and OMP_NUM_THREADS to the same number, so that library and anchors compete with
// the same worker count.
#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "KivLUTSetting.h"

namespace {

// A tilted plane with bumps and sensor noise, in millimetres, 1 % of the pixels dropped: what a
// depth camera or a laser profiler delivers, in every representation the library takes.
struct Frame {
  int width = 0;
  int height = 0;
  KIVMV::KivRangeImage u16;
  KIVMV::KivRangeImage f32;
  KIVMV::KivImage grey8;
  KIVMV::KivImage grey16;
  KIVMV::Kiv3DFloatArray floatArray;
  cv::Mat f32Mat;  // the float heights as OpenCV takes them, NaN where dropped
};

// Frame sizes, from KIVLUT_BENCH_SIZES ("160x120,640x480,...") or the three of the ratio table:
// a thermal or low-resolution depth frame, the common depth-camera frame, a 12-megapixel camera.
std::vector<std::pair<int, int>> Sizes() {
  const char* given = std::getenv("KIVLUT_BENCH_SIZES");
  const std::string list = given != nullptr ? given : "160x120,640x480,4096x3000";
  std::vector<std::pair<int, int>> sizes;
  size_t start = 0;
  while (start < list.size()) {
    size_t end = list.find(',', start);
    if (end == std::string::npos) end = list.size();
    const std::string item = list.substr(start, end - start);
    const size_t x = item.find('x');
    if (x != std::string::npos) {
      sizes.emplace_back(std::atoi(item.substr(0, x).c_str()), std::atoi(item.c_str() + x + 1));
    }
    start = end + 1;
  }
  return sizes;
}

// Registers a case at every frame size, timed in real time: the work runs on other threads.
template <typename Function>
void Add(const std::string& name, Function function) {
  static const std::vector<std::pair<int, int>> sizes = Sizes();
  benchmark::internal::Benchmark* bench = benchmark::RegisterBenchmark(name.c_str(), function);
  for (const auto& [width, height] : sizes) bench->Args({width, height});
  bench->Unit(benchmark::kMillisecond)->UseRealTime();
}

bool Dropped(size_t i) { return (static_cast<uint32_t>(i) * 2654435761u) % 100u == 0; }

std::unique_ptr<Frame> MakeFrame(int width, int height) {
  auto frame = std::make_unique<Frame>();
  frame->width = width;
  frame->height = height;
  const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
  frame->u16 = KIVMV::KivRangeImage(width, height, KIVMV::KIV_DATA_U16);
  frame->u16.SetResolution(0.1, 0.1, 0.1);
  frame->f32 = KIVMV::KivRangeImage(width, height, KIVMV::KIV_DATA_F32);
  frame->floatArray = KIVMV::Kiv3DFloatArray(static_cast<int>(n));
  uint16_t* raw = frame->u16.Ptr<uint16_t>();
  float* mm = frame->f32.Ptr<float>();
  // The scene scales with the frame, so every size shows the same picture.
  const float sx = 4096.0f / static_cast<float>(width);
  const float sy = 3000.0f / static_cast<float>(height);
  std::mt19937 random(3);
  std::normal_distribution<float> noise(0.0f, 0.8f);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const size_t i = static_cast<size_t>(y) * static_cast<size_t>(width) + x;
      const float fx = x * sx, fy = y * sy;
      const float bump = 120.0f * std::sin(fx * 0.003f) * std::cos(fy * 0.004f);
      const float height_mm = 900.0f + 0.05f * fx + 0.03f * fy + bump + noise(random);
      const bool dropped = Dropped(i);
      mm[i] = dropped ? std::numeric_limits<float>::quiet_NaN() : height_mm;
      raw[i] = dropped ? 0 : static_cast<uint16_t>(std::lround(height_mm * 10.0f));
      frame->floatArray[static_cast<int>(i)] = mm[i];
    }
  }
  frame->f32Mat = cv::Mat(height, width, CV_32F, mm);
  // The 16-bit grey image holds the raw heights; the 8-bit one spreads them over the 256 levels.
  frame->grey16 = KIVMV::KivImage(width, height, 1, KIVMV::KIV_IMAGE_16U);
  cv::Mat(height, width, CV_16U, raw).copyTo(frame->grey16.Mat());
  frame->grey8 = KIVMV::KivImage(width, height, 1, KIVMV::KIV_IMAGE_8U);
  frame->grey16.Mat().convertTo(frame->grey8.Mat(), CV_8U, 1.0 / 20.0, -350.0);
  return frame;
}

// The methods take their inputs by non-const reference (and leave them as they are).
Frame& FrameOf(const benchmark::State& state) {
  static std::map<std::pair<int, int>, std::unique_ptr<Frame>> frames;
  const std::pair<int, int> size{static_cast<int>(state.range(0)),
                                 static_cast<int>(state.range(1))};
  auto& frame = frames[size];
  if (!frame) frame = MakeFrame(size.first, size.second);
  return *frame;
}

void Finish(benchmark::State& state, const Frame& frame) {
  state.counters["pixels"] = static_cast<double>(frame.width) * frame.height;
}

constexpr int kJet = 6;  // the library's jet, as COLORMAP_JET in the anchors
constexpr double kLowMm = 950.0;
constexpr double kHighMm = 1050.0;

// One call per iteration into an output reused across iterations; the first call, untimed, checks
// the status and sizes the output.
template <typename Output, typename Call>
void RunMapping(benchmark::State& state, Call call) {
  Frame& frame = FrameOf(state);
  Output out;
  KIVMV::KivLUTSetting lut;
  const long status = call(lut, frame, out);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  for (auto _ : state) {
    call(lut, frame, out);
    benchmark::ClobberMemory();
  }
  Finish(state, frame);
}

template <typename Call>
void RunRange(benchmark::State& state, Call call) {
  RunMapping<KIVMV::KivColorArray>(state, call);
}

template <typename Call>
void RunGrey(benchmark::State& state, Call call) {
  RunMapping<KIVMV::KivImage>(state, call);
}

// ---- range images ----

KIVMV::KivRangeImage& RangeOf(Frame& frame, bool isFloat) {
  return isFloat ? frame.f32 : frame.u16;
}

void RegisterRangeMappings(const char* input, bool isFloat) {
  const auto add = [&](const char* method, auto call) {
    const std::string name = std::string("BM_") + input + "_" + method;
    Add(name, [isFloat, call](benchmark::State& state) {
      RunRange(state, [&](KIVMV::KivLUTSetting& lut, Frame& frame, auto& out) {
        return call(lut, RangeOf(frame, isFloat), out);
      });
    });
  };
  add("ColorMapLUT_DataRange",
      [](auto& lut, auto& image, auto& out) { return lut.ColorMapLUT(image, kJet, &out); });
  add("ColorMapLUT_Bounds", [](auto& lut, auto& image, auto& out) {
    return lut.ColorMapLUT(image, kJet, kLowMm, kHighMm, &out);
  });
  add("ColorMapLUT_ColourRange", [](auto& lut, auto& image, auto& out) {
    return lut.ColorMapLUT(image, kJet, kLowMm, kHighMm, 10, 240, KIVMV::KivColor(0, 0, 0),
                           KIVMV::KivColor(255, 255, 255), &out);
  });
  add("LinearColorMapLUT_A_Colours", [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, kJet, kLowMm, kHighMm, 10, 240, KIVMV::KivColor(0, 0, 0),
                                 KIVMV::KivColor(255, 255, 255), &out);
  });
  add("LinearColorMapLUT_B_Bounds", [](auto& lut, auto& image, auto& out) {
    return lut.LinearColorMapLUT(image, kJet, kLowMm, kHighMm, &out);
  });
  add("LinearColorMapLUT_C_DataRange",
      [](auto& lut, auto& image, auto& out) { return lut.LinearColorMapLUT(image, kJet, &out); });
  if (isFloat) {
    add("LinearColorMapLUT_D_Fractions", [](auto& lut, auto& image, auto& out) {
      return lut.LinearColorMapLUT(image, &out, kJet, 0.01, 0.01);
    });
  } else {
    add("LinearColorMapLUT_Para", [](auto& lut, auto& image, auto& out) {
      KIVMV::LinearColorMapLUT_Para para;
      KIVMV::KivColor under(255, 0, 255), over(255, 255, 255);
      return lut.LinearColorMapLUT(image, &out, para, under, over, 1, true);
    });
  }
}

// ---- grey images and the float array ----

void BM_Grey8_SetColorLUT_Equalised(benchmark::State& state) {
  RunGrey(state, [](KIVMV::KivLUTSetting& lut, Frame& frame, KIVMV::KivImage& dst) {
    return lut.SetColorLUT(frame.grey8, &dst, kJet);
  });
}

void BM_Grey8_SetColorLUT_Banded(benchmark::State& state) {
  RunGrey(state, [](KIVMV::KivLUTSetting& lut, Frame& frame, KIVMV::KivImage& dst) {
    return lut.SetColorLUT(frame.grey8, &dst, kJet, 40, 160, 10, 240, KIVMV::KivColor(0, 0, 0),
                           KIVMV::KivColor(255, 255, 255));
  });
}

void BM_Grey16_LinearSetColorLUT(benchmark::State& state) {
  RunGrey(state, [](KIVMV::KivLUTSetting& lut, Frame& frame, KIVMV::KivImage& dst) {
    return lut.LinearSetColorLUT(frame.grey16, &dst, kJet);
  });
}

void BM_FloatArray_LinearSetColorLUT(benchmark::State& state) {
  RunRange(state, [](KIVMV::KivLUTSetting& lut, Frame& frame, KIVMV::KivColorArray& out) {
    return lut.LinearSetColorLUT(frame.floatArray, static_cast<float>(kLowMm),
                                 static_cast<float>(kHighMm), kJet, &out);
  });
}

void BM_FloatArray_SetColorLUT(benchmark::State& state) {
  RunRange(state, [](KIVMV::KivLUTSetting& lut, Frame& frame, KIVMV::KivColorArray& out) {
    return lut.SetColorLUT(frame.floatArray, static_cast<float>(kLowMm),
                           static_cast<float>(kHighMm), kJet, &out);
  });
}

// ---- anchors: what one writes with OpenCV for the same picture ----

// Output matrices made once, outside the timed loop, as a careful OpenCV user would.
template <typename Path>
void RunAnchor(benchmark::State& state, Path path) {
  const Frame& frame = FrameOf(state);
  cv::Mat grey, equalised, colour;
  path(frame, grey, equalised, colour);
  for (auto _ : state) {
    path(frame, grey, equalised, colour);
    benchmark::DoNotOptimize(colour.data);
    benchmark::ClobberMemory();
  }
  Finish(state, frame);
}

const cv::Mat& AnchorInput(const Frame& frame, const std::string& input) {
  if (input == "U16" || input == "Grey16") return frame.grey16.Mat();
  if (input == "Grey8") return frame.grey8.Mat();
  return frame.f32Mat;
}

void RegisterAnchors(const std::string& input) {
  const std::string normalizeApply = "BM_Anchor_NormalizeApplyColorMap_" + input;
  Add(normalizeApply, [input](benchmark::State& state) {
    RunAnchor(state, [&](const Frame& frame, cv::Mat& grey, cv::Mat&, cv::Mat& colour) {
      cv::normalize(AnchorInput(frame, input), grey, 0, 255, cv::NORM_MINMAX, CV_8U);
      cv::applyColorMap(grey, colour, cv::COLORMAP_JET);
    });
  });
  const std::string normalizeEqualizeApply = "BM_Anchor_NormalizeEqualizeApplyColorMap_" + input;
  Add(normalizeEqualizeApply, [input](benchmark::State& state) {
    RunAnchor(state, [&](const Frame& frame, cv::Mat& grey, cv::Mat& equalised, cv::Mat& colour) {
      cv::normalize(AnchorInput(frame, input), grey, 0, 255, cv::NORM_MINMAX, CV_8U);
      cv::equalizeHist(grey, equalised);
      cv::applyColorMap(equalised, colour, cv::COLORMAP_JET);
    });
  });
}

void BM_Anchor_ApplyColorMap_Grey8(benchmark::State& state) {
  RunAnchor(state, [](const Frame& frame, cv::Mat&, cv::Mat&, cv::Mat& colour) {
    cv::applyColorMap(frame.grey8.Mat(), colour, cv::COLORMAP_JET);
  });
}

void BM_Anchor_EqualizeApplyColorMap_Grey8(benchmark::State& state) {
  RunAnchor(state, [](const Frame& frame, cv::Mat&, cv::Mat& equalised, cv::Mat& colour) {
    cv::equalizeHist(frame.grey8.Mat(), equalised);
    cv::applyColorMap(equalised, colour, cv::COLORMAP_JET);
  });
}

void RegisterAll() {
  RegisterRangeMappings("F32", true);
  RegisterRangeMappings("U16", false);
  Add("BM_Grey8_SetColorLUT_Equalised", BM_Grey8_SetColorLUT_Equalised);
  Add("BM_Grey8_SetColorLUT_Banded", BM_Grey8_SetColorLUT_Banded);
  Add("BM_Grey16_LinearSetColorLUT", BM_Grey16_LinearSetColorLUT);
  Add("BM_FloatArray_LinearSetColorLUT", BM_FloatArray_LinearSetColorLUT);
  Add("BM_FloatArray_SetColorLUT", BM_FloatArray_SetColorLUT);
  for (const char* input : {"F32", "U16", "Grey16"}) RegisterAnchors(input);
  Add("BM_Anchor_ApplyColorMap_Grey8", BM_Anchor_ApplyColorMap_Grey8);
  Add("BM_Anchor_EqualizeApplyColorMap_Grey8", BM_Anchor_EqualizeApplyColorMap_Grey8);
}

}  // namespace

int main(int argc, char** argv) {
  std::unique_ptr<tbb::global_control> workers;
  if (const char* given = std::getenv("KIVLUT_BENCH_WORKERS"); given != nullptr) {
    const int count = std::atoi(given);
    if (count >= 1) {
      workers = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                      static_cast<size_t>(count));
      cv::setNumThreads(count);
    }
  }
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
