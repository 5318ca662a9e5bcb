#include "shading/phong_lighting.h"

#include <cfloat>
#include <climits>
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>

#include "KivConfiguration.h"
#include "KivLUTSetting.h"
#include "KivLUTStatus.h"
#include "common/pixel_rules.h"
#include "common/stage_status.h"
#include "shading/normal_map.h"

namespace KIVMV {

namespace {

// The image's resolutions and offsets, each narrowed to float and widened back.
struct GridScale {
  double offsetX, offsetY, offsetZ;
  double resolutionX, resolutionY, resolutionZ;
};

double ThroughFloat(double value) { return static_cast<double>(NarrowToFloat(value)); }

GridScale ScaleOf(const KivRangeImage& image) {
  return {ThroughFloat(image.OffsetX()),     ThroughFloat(image.OffsetY()),
          ThroughFloat(image.OffsetZ()),     ThroughFloat(image.ResolutionX()),
          ThroughFloat(image.ResolutionY()), ThroughFloat(image.ResolutionZ())};
}

// Raw integer heights are scaled by the Z resolution; float and double heights are already
// lengths. Only the exact marker is "no data" here: NaN and infinities become points.
template <typename T>
void ConvertPoints(const cv::Mat& pixels, const GridScale& scale, KivVector3d* points) {
  constexpr bool kRawUnits = std::numeric_limits<T>::is_integer;
  const T* values = reinterpret_cast<const T*>(pixels.data);
  const int rows = pixels.rows, cols = pixels.cols;
  for (int row = 0; row < rows; ++row) {
    const float y = NarrowToFloat((static_cast<double>(row) - scale.offsetX) * scale.resolutionX);
    const size_t rowStart = static_cast<size_t>(row) * static_cast<size_t>(cols);
    for (int col = 0; col < cols; ++col) {
      const size_t at = rowStart + static_cast<size_t>(col);
      const T v = values[at];
      const float x = NarrowToFloat((static_cast<double>(col) - scale.offsetY) * scale.resolutionY);
      float z = kInvalidPointZ;
      if (!IsExactMarker(v)) {
        const double height = static_cast<double>(v) - scale.offsetZ;
        z = NarrowToFloat(kRawUnits ? height * scale.resolutionZ : height);
      }
      points[at] = KivVector3d(x, y, z);
    }
  }
}

// The worker count. The lighting asks the configuration service for all four settings on every
// call, as it always has, though only the chunk count is used; the other three are read and
// dropped.
int FreshWorkerCount() {
  bool gpu = false;
  int efficiency = 0, chunks = 0, winVersion = 0;
  KivGetStaticGPU(&gpu);
  KivGetStaticEfficiency(&efficiency);
  KivGetStaticTBB(&chunks);
  KivGetStaticWinVersion(&winVersion);
  return chunks < 1 ? cv::getNumberOfCPUs() : chunks;
}

}  // namespace

void BuildPointGrid(const KivRangeImage& image, KivVector3dArray* points) {
  const GridScale scale = ScaleOf(image);
  const cv::Mat& pixels = image.Mat();
  const int64_t count = pixels.dims <= 2 && pixels.data != nullptr
                            ? static_cast<int64_t>(pixels.rows) * pixels.cols
                            : 0;
  if (count > INT_MAX) throw std::length_error("point grid: more points than an int counts");
  points->SetSize(static_cast<int>(count));
  if (count == 0) return;
  KivVector3d* grid = &(*points)[0];
  // The matrix's own type, channels included: the single-channel depths are the data-type codes,
  // and a matrix of more than one channel leaves the grid as SetSize made it.
  VisitPixelType(pixels.type(), [&](auto tag) {
    ConvertPoints<typename decltype(tag)::type>(pixels, scale, grid);
  });
}

long ShadeRangeImage(KivRangeImage& image, const KivVector3d& light, const KivVector3d& eye,
                     int mode, float coefA, float coefB, float coefC, float coefD,
                     KivColorArray* out) {
  KivVector3dArray points;
  if (const long built = RunStage(FaultStage::kPointGrid, LUT_ERR_NORMAL_MAP_FAILED,
                                  [&] { BuildPointGrid(image, &points); });
      built != LUT_OK) {
    return built;
  }

  KivVector3dArray normals;
  if (const long computed = ComputeNormalsOf(image, normals); computed != LUT_OK) return computed;

  // Through the public class, so the base colouring is logged as a call of its own.
  KivColorArray base;
  KivLUTSetting lut;
  if (const long status = lut.ColorMapLUT(image, mode, &base); status != LUT_OK) return status;

  if (out == nullptr) return LUT_ERR_OUTPUT_FAILED;
  if (const long sized =
          RunStage(FaultStage::kLightingOutput, LUT_ERR_OUTPUT_FAILED,
                   [&] { out->SetSize(base.Width(), base.Height(), base.Channel()); });
      sized != LUT_OK) {
    return sized;
  }

  return RunStage(LUT_ERR_NORMAL_MAP_FAILED, [&] {
    const int workers = FreshWorkerCount();
    ThrowIfInjected(FaultStage::kLighting);
    LightEntries(base, *out, SharedVectors(std::move(points)), SharedVectors(std::move(normals)),
                 coefA, coefB, coefC, coefD, light, eye, workers);
  });
}

}  // namespace KIVMV
