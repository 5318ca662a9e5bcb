// The command-line tool over a folder of camera frames: read, equalise under rainbow and write 100
// PNG pictures, with one worker per core against one worker in all, so that the ratio shows what
// running frames side by side gives once decoding and encoding are part of the work.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <random>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include "KivRangeImage.h"
#include "batch.h"
#include "frame_io.h"
#include "options.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFrames = 100;
constexpr int kFrameWidth = 640;
constexpr int kFrameHeight = 480;

// Swallows everything: progress and stats lines cost nothing here, as they do on a console
// nobody reads.
class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

// A tilted plane with bumps and sensor noise in 0.01 mm units, 1 % of the pixels without data;
// every frame is shifted a little, as consecutive frames of a moving part are.
KIVMV::KivRangeImage MakeFrame(int index) {
  KIVMV::KivRangeImage image(kFrameWidth, kFrameHeight, KIVMV::KIV_DATA_U16);
  image.SetResolution(0.1, 0.1, 0.01);
  std::mt19937 random(static_cast<unsigned>(index) + 11u);
  std::normal_distribution<float> noise(0.0f, 8.0f);
  std::uniform_int_distribution<int> drop(0, 99);
  uint16_t* pixels = image.Ptr<uint16_t>();
  for (int y = 0; y < kFrameHeight; ++y) {
    for (int x = 0; x < kFrameWidth; ++x) {
      const float bump = 1500.0f * std::sin((x + 3 * index) * 0.02f) * std::cos(y * 0.025f);
      const float height = 30000.0f + 4.0f * x + 2.5f * y + bump + noise(random);
      pixels[y * kFrameWidth + x] = drop(random) == 0 ? 0 : static_cast<uint16_t>(height);
    }
  }
  return image;
}

// The input folder of frames and the output folder, made once per process and removed at exit.
class FrameFolder {
 public:
  FrameFolder() {
    std::string pattern = (fs::temp_directory_path() / "kivlut_tool_bench_XXXXXX").string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("cannot make a temp folder");
    root_ = buffer.data();
    fs::create_directories(input());
    for (int i = 0; i < kFrames; ++i) {
      std::string error;
      const fs::path file = input() / ("frame" + std::to_string(1000 + i) + ".png");
      if (!kivlut::WriteRangeFrame(file, MakeFrame(i), kivlut::FrameFormat::kPng, &error)) {
        throw std::runtime_error(file.string() + ": " + error);
      }
    }
  }
  ~FrameFolder() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  FrameFolder(const FrameFolder&) = delete;
  FrameFolder& operator=(const FrameFolder&) = delete;

  fs::path input() const { return root_ / "frames"; }
  fs::path output() const { return root_ / "pictures"; }

 private:
  fs::path root_;
};

const FrameFolder& Frames() {
  static const FrameFolder frames;
  return frames;
}

double ProcessCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec * 1e-6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void RunToolOverFolder(benchmark::State& state, int jobs) {
  const FrameFolder& frames = Frames();
  kivlut::Options options;
  options.operation = kivlut::Operation::kEqualize;
  options.mapType = 1;
  options.inputs = {frames.input().string()};
  options.output = frames.output().string();
  options.jobs = jobs;
  NullBuffer nothing;
  std::ostream sink(&nothing);

  const double cpuStart = ProcessCpuSeconds();
  const auto wallStart = std::chrono::steady_clock::now();
  for (auto _ : state) {
    std::vector<kivlut::Job> planned;
    std::string error;
    if (!kivlut::PlanJobs(options, &planned, &error)) {
      state.SkipWithError(error.c_str());
      return;
    }
    if (kivlut::RunJobs(options, planned, sink, sink, false) != 0) {
      state.SkipWithError("a frame failed");
      return;
    }
  }
  const double wall =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
  const double cpu = ProcessCpuSeconds() - cpuStart;
  const double iterations = static_cast<double>(state.iterations());
  state.counters["frames_per_second"] = wall > 0.0 ? kFrames * iterations / wall : 0.0;
  state.counters["cpu_per_wall"] = wall > 0.0 ? cpu / wall : 0.0;
  state.counters["pixels"] = static_cast<double>(kFrames) * kFrameWidth * kFrameHeight;
}

// One worker per core.
void BM_ToolFolder(benchmark::State& state) { RunToolOverFolder(state, 0); }

// The anchor: the same run with a single worker, the library's own loops included.
void BM_ToolFolderSerial(benchmark::State& state) { RunToolOverFolder(state, 1); }

// Each iteration is a second or more; three give a steady figure without the estimating run.
BENCHMARK(BM_ToolFolder)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_ToolFolderSerial)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
