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
//
// Memory budgets, beside the image or normals and the colours (bench_support.h): the normal map of
// given normals makes nothing; that of a range image makes the normals (12 bytes a pixel); the
// lighting makes the point grid and the normals, the body's own copy of both, the base colouring
// (3 bytes a pixel) and a new output array (SetSize allocates one while the old is still held).
// The copies a split makes are not counted: their number is the scheduler's, and the library
// shares the two arrays instead. ComputeNormals fills a normals array of its own before it moves
// it into the caller's.
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

void FinishShading(benchmark::State& state, double extraMiB, double budgetMiB) {
  Finish(state, kShadingPixels, extraMiB, budgetMiB);
}

double ShadingMiB(double bytesPerPixel) { return MiB(kShadingPixels * bytesPerPixel); }

// Runs one library call per iteration on a reused output array. The first call checks the status
// and sizes the output; the second is the one whose memory is measured.
template <typename Call>
void RunShading(benchmark::State& state, double budgetMiB, Call call) {
  KIVMV::KivRangeImage image = ShadingImage();
  KIVMV::KivVector3dArray normals = ShadingNormals();
  KIVMV::KivColorArray out;
  out.Create(kShadingPixels, 3);
  KIVMV::KivLUTSetting lut;
  const long status = call(lut, image, normals, out);
  if (status != KIVMV::LUT_OK) {
    state.SkipWithError(KIVMV::KivLUTStatusName(status));
    return;
  }
  const double extraMiB = ExtraMiBOf([&] { call(lut, image, normals, out); });
  for (auto _ : state) {
    call(lut, image, normals, out);
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
  FinishShading(state, extraMiB, budgetMiB);
}

void BM_SetColorNormalMap_Normals(benchmark::State& state) {
  RunShading(state, 0.0, [](auto& lut, auto&, auto& normals, auto& out) {
    return lut.SetColorNormalMap(normals, &out);
  });
}

void BM_SetColorNormalMapPhong(benchmark::State& state) {
  RunShading(state, ShadingMiB(kPointBytes), [](auto& lut, auto& image, auto&, auto& out) {
    return lut.SetColorNormalMapPhong(image, &out);
  });
}

void BM_SetColorNormalMap_Lighting(benchmark::State& state) {
  // Points and normals, the body's copy of both, the base colours and the new output.
  const double budget = ShadingMiB(4 * kPointBytes + 2 * kColourBytes);
  RunShading(state, budget, [](auto& lut, auto& image, auto&, auto& out) {
    // Light and eye well above the 205 x 150 mm field, the light off to one side.
    KIVMV::KivVector3d light(60.0f, 40.0f, 3000.0f), eye(102.0f, 75.0f, 4000.0f);
    return lut.SetColorNormalMap(image, light, eye, 1, 1.0f, 0.3f, 0.7f, 0.4f, &out);
  });
}

void BM_ComputeNormals(benchmark::State& state) {
  KIVMV::KivRangeImage image = ShadingImage();
  KIVMV::KivVector3dArray normals;
  KIVMV::Kiv3DDataOperation operation;
  if (operation.ComputeNormals(image, &normals, nullptr) != 0) {
    state.SkipWithError("ComputeNormals failed");
    return;
  }
  const double extraMiB = ExtraMiBOf([&] { operation.ComputeNormals(image, &normals, nullptr); });
  for (auto _ : state) {
    operation.ComputeNormals(image, &normals, nullptr);
    benchmark::DoNotOptimize(normals.Data());
    benchmark::ClobberMemory();
  }
  FinishShading(state, extraMiB, ShadingMiB(kPointBytes));
}

// --- anchors and the cost of a split ---

void BM_Anchor_ShadingMemcpy(benchmark::State& state) {
  kivlut_bench::RunMemcpyAnchor(state, kShadingPixels);
}

// The base colouring of the lit picture on its own.
void BM_Anchor_ShadingBaseColouring(benchmark::State& state) {
  RunShading(state, kNoBudget, [](auto& lut, auto& image, auto&, auto& out) {
    return lut.ColorMapLUT(image, 1, &out);
  });
}

// What one split costs when every body owns its point grid and normals.
void BM_PhongBodySplit_DeepCopy(benchmark::State& state) {
  const KIVMV::KivVector3dArray points = ShadingNormals(), normals = ShadingNormals();
  const auto split = [&] {
    KIVMV::KivVector3dArray pointsCopy(points), normalsCopy(normals);
    benchmark::DoNotOptimize(pointsCopy.Data());
    benchmark::DoNotOptimize(normalsCopy.Data());
  };
  const double extraMiB = ExtraMiBOf(split);
  for (auto _ : state) split();
  FinishShading(state, extraMiB, kNoBudget);
}

// What one split costs with the shared read-only handles the library uses.
void BM_PhongBodySplit_SharedHandles(benchmark::State& state) {
  const auto points = std::make_shared<const KIVMV::KivVector3dArray>(ShadingNormals());
  const auto normals = std::make_shared<const KIVMV::KivVector3dArray>(ShadingNormals());
  const auto split = [&] {
    std::shared_ptr<const KIVMV::KivVector3dArray> pointsCopy(points), normalsCopy(normals);
    benchmark::DoNotOptimize(pointsCopy.get());
    benchmark::DoNotOptimize(normalsCopy.get());
  };
  const double extraMiB = ExtraMiBOf(split);
  for (auto _ : state) split();
  FinishShading(state, extraMiB, kNoBudget);
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
