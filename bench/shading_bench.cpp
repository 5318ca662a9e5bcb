// Surface-normal shading on a 2048 x 1500 float range image (about 1 % invalid pixels): the three
// shading methods and the platform's ComputeNormals they stand on, beside what each is compared
// with: a memcpy of the colours' size for the normal map of given normals, ComputeNormals for the
// normal map of a range image, and the equalised base colouring alone for the Phong lighting.
//
// The Phong body and every split copy of it hold the point grid and the normals. Two more
// benchmarks measure what one split copies: both frame-sized arrays when each body owns its own
// (BM_PhongBodySplit_DeepCopy), or two shared read-only handles, as the library does
// (BM_PhongBodySplit_SharedHandles). How often a call splits is the scheduler's choice: on two
// cores once with 2 or 3 chunks and twice with 7.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "Kiv3DDataOperation.h"
#include "KivLUTSetting.h"
#include "bench_support.h"

namespace {

using namespace kivlut_bench;

constexpr int kShadingWidth = 2048;
constexpr int kShadingHeight = 1500;
constexpr int kShadingPixels = kShadingWidth * kShadingHeight;

// The upper left quarter of the shared height field, in millimetres, pixels 0.1 mm apart; NaN
// where a pixel was dropped.
const KIVMV::KivRangeImage& ShadingImage() {
  static const KIVMV::KivRangeImage image = [] {
    KIVMV::KivRangeImage img(kShadingWidth, kShadingHeight, KIVMV::KIV_DATA_F32);
    img.SetResolution(0.1, 0.1, 1.0);
    const cv::Mat& mm = HeightsMillimetres();
    float* z = img.Ptr<float>();
    for (int row = 0; row < kShadingHeight; ++row) {
      for (int col = 0; col < kShadingWidth; ++col) {
        const int i = row * kShadingWidth + col;
        z[i] = Dropped(i) ? std::numeric_limits<float>::quiet_NaN() : mm.at<float>(row, col);
      }
    }
    return img;
  }();
  return image;
}

const KIVMV::KivVector3dArray& ShadingNormals() {
  static const KIVMV::KivVector3dArray normals = [] {
    KIVMV::KivVector3dArray n;
    KIVMV::KivRangeImage image = ShadingImage();
    KIVMV::Kiv3DDataOperation().ComputeNormals(image, &n, nullptr);
    return n;
  }();
  return normals;
}

void FinishShading(benchmark::State& state, double baselineMiB) {
  state.counters["pixels"] = kShadingPixels;
  state.counters["peak_extra_MiB"] = PeakResidentMiB() - baselineMiB;
}

// Runs one library call per iteration on a reused output array and checks its status once.
template <typename Call>
void RunShading(benchmark::State& state, Call call) {
  KIVMV::KivRangeImage image = ShadingImage();
  KIVMV::KivVector3dArray normals = ShadingNormals();
  KIVMV::KivColorArray out;
  out.Create(kShadingPixels, 3);
  KIVMV::KivLUTSetting lut;
  const double baseline = BaselineMiB();
  const long status = call(lut, image, normals, out);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  for (auto _ : state) {
    call(lut, image, normals, out);
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
  FinishShading(state, baseline);
}

void BM_SetColorNormalMap_Normals(benchmark::State& state) {
  RunShading(state, [](auto& lut, auto&, auto& normals, auto& out) {
    return lut.SetColorNormalMap(normals, &out);
  });
}

void BM_SetColorNormalMapPhong(benchmark::State& state) {
  RunShading(state, [](auto& lut, auto& image, auto&, auto& out) {
    return lut.SetColorNormalMapPhong(image, &out);
  });
}

void BM_SetColorNormalMap_Lighting(benchmark::State& state) {
  RunShading(state, [](auto& lut, auto& image, auto&, auto& out) {
    // Light and eye well above the 205 x 150 mm field, the light off to one side.
    KIVMV::KivVector3d light(60.0f, 40.0f, 3000.0f), eye(102.0f, 75.0f, 4000.0f);
    return lut.SetColorNormalMap(image, light, eye, 1, 1.0f, 0.3f, 0.7f, 0.4f, &out);
  });
}

void BM_ComputeNormals(benchmark::State& state) {
  KIVMV::KivRangeImage image = ShadingImage();
  KIVMV::KivVector3dArray normals;
  KIVMV::Kiv3DDataOperation operation;
  const double baseline = BaselineMiB();
  if (operation.ComputeNormals(image, &normals, nullptr) != 0) {
    state.SkipWithError("ComputeNormals failed");
    return;
  }
  for (auto _ : state) {
    operation.ComputeNormals(image, &normals, nullptr);
    benchmark::DoNotOptimize(normals.Data());
    benchmark::ClobberMemory();
  }
  FinishShading(state, baseline);
}

// --- anchors and the cost of a split ---

void BM_Anchor_ShadingMemcpy(benchmark::State& state) {
  std::vector<uint8_t> from(3 * static_cast<size_t>(kShadingPixels), 1), to(from.size());
  const double baseline = BaselineMiB();
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  FinishShading(state, baseline);
}

// The base colouring of the lit picture on its own.
void BM_Anchor_ShadingBaseColouring(benchmark::State& state) {
  RunShading(state, [](auto& lut, auto& image, auto&, auto& out) {
    return lut.ColorMapLUT(image, 1, &out);
  });
}

// What one split costs when every body owns its point grid and normals.
void BM_PhongBodySplit_DeepCopy(benchmark::State& state) {
  const KIVMV::KivVector3dArray points = ShadingNormals(), normals = ShadingNormals();
  const double baseline = BaselineMiB();
  for (auto _ : state) {
    KIVMV::KivVector3dArray pointsCopy(points), normalsCopy(normals);
    benchmark::DoNotOptimize(pointsCopy.Data());
    benchmark::DoNotOptimize(normalsCopy.Data());
  }
  FinishShading(state, baseline);
}

// What one split costs with the shared read-only handles the library uses.
void BM_PhongBodySplit_SharedHandles(benchmark::State& state) {
  const auto points = std::make_shared<const KIVMV::KivVector3dArray>(ShadingNormals());
  const auto normals = std::make_shared<const KIVMV::KivVector3dArray>(ShadingNormals());
  const double baseline = BaselineMiB();
  for (auto _ : state) {
    std::shared_ptr<const KIVMV::KivVector3dArray> pointsCopy(points), normalsCopy(normals);
    benchmark::DoNotOptimize(pointsCopy.get());
    benchmark::DoNotOptimize(normalsCopy.get());
  }
  FinishShading(state, baseline);
}

}  // namespace

BENCHMARK(BM_Anchor_ShadingMemcpy)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Anchor_ShadingBaseColouring)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ComputeNormals)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SetColorNormalMap_Normals)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SetColorNormalMapPhong)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SetColorNormalMap_Lighting)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PhongBodySplit_DeepCopy)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PhongBodySplit_SharedHandles)->Unit(benchmark::kNanosecond)->UseRealTime();
