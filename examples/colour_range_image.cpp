// Generates a range image of a small scene (a tilted plate carrying a dome and a raised block, with
// a hole where the sensor saw nothing), colours it under every colour map through
// KivLUTSetting::GetColor, and writes one PNG per map.
//
//   colour_range_image [OUTPUT_DIR]     (default: demo-output)
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "KivLUTSetting.h"

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;

// Heights in millimetres; NaN where the sensor returned nothing.
KIVMV::KivRangeImage MakeScene() {
  KIVMV::KivRangeImage image(kWidth, kHeight, KIVMV::KivDataType(5));
  image.SetResolution(0.1, 0.1, 1.0);
  for (int y = 0; y < kHeight; ++y) {
    float* row = reinterpret_cast<float*>(image.Data() + static_cast<size_t>(y) * image.Step());
    for (int x = 0; x < kWidth; ++x) {
      float z = 0.02f * x + 0.01f * y;  // the tilted plate
      const float dx = x - 220.0f, dy = y - 240.0f;
      const float dome = 150.0f * 150.0f - dx * dx - dy * dy;
      if (dome > 0.0f) z += std::sqrt(dome) * 0.4f;
      if (x > 420 && x < 560 && std::abs(y - 150.0f) < 60.0f) z += 35.0f;  // the raised block
      const float hx = x - 500.0f, hy = y - 380.0f;
      if (hx * hx + hy * hy < 40.0f * 40.0f) z = std::numeric_limits<float>::quiet_NaN();
      row[x] = z;
    }
  }
  return image;
}

}  // namespace

// The colours of a mapping as a picture of the image's size (the array holds blue, green, red).
cv::Mat AsPicture(const KIVMV::KivColorArray& colours, int width, int height) {
  return cv::Mat(height, width, CV_8UC3, colours.Data()).clone();
}

int main(int argc, char** argv) {
  const std::filesystem::path outDir = argc > 1 ? argv[1] : "demo-output";
  std::error_code error;
  std::filesystem::create_directories(outDir, error);
  if (error) {
    std::fprintf(stderr, "cannot create %s: %s\n", outDir.c_str(), error.message().c_str());
    return 1;
  }

  KIVMV::KivRangeImage scene = MakeScene();
  const char* names[] = {"grey", "rainbow", "hot-metal", "diverging", "isoluminant", "rgb", "jet"};
  KIVMV::KivLUTSetting lut;
  KIVMV::KivColorArray colours;
  for (int map = 0; map < 7; ++map) {
    for (const char* kind : {"linear", "equalised"}) {
      const bool linear = std::string(kind) == "linear";
      const long status = linear ? lut.LinearColorMapLUT(scene, map, &colours)
                                 : lut.ColorMapLUT(scene, map, &colours);
      if (status != KIVMV::LUT_OK) {
        std::fprintf(stderr, "%s mapping: %s\n", kind, KIVMV::KivLUTStatusName(status));
        return 1;
      }
      const std::filesystem::path file =
          outDir / ("range_" + std::string(kind) + "_" + names[map] + ".png");
      if (!cv::imwrite(file.string(), AsPicture(colours, kWidth, kHeight))) {
        std::fprintf(stderr, "cannot write %s\n", file.c_str());
        return 1;
      }
      std::printf("wrote %s\n", file.c_str());
    }
  }
  return 0;
}
