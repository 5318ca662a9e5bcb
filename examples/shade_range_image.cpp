// Generates the range image of a small scene (a sphere and a lying cylinder on a tilted plane, with
// a hole where the sensor saw nothing), shades it with KivLUTSetting twice and writes one PNG of
// each:
//   shading_normal_map.png  SetColorNormalMapPhong: the colours of the surface normals
//   shading_phong.png       SetColorNormalMap with a light and an eye above the scene: Phong
//                           lighting of the rainbow colouring
//
//   shade_range_image [OUTPUT_DIR]     (default: demo-output)
//
// The scene and the rendering are also used by the shading tests, which include this file with
// KIVLUT_SHADE_EXAMPLE_NO_MAIN defined.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "KivLUTSetting.h"

namespace shade_example {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr double kPixelMm = 0.5;  // lateral size of a pixel
constexpr double kUnitMm = 0.01;  // one raw height unit
constexpr int kRainbow = 1;       // the base colouring of the lit picture

// Height of the scene in millimetres at a pixel, or a negative value where the sensor saw nothing.
// The top rows hold no hole: the normal map reads the x of the first chunk's normals for every
// chunk, and a missing normal there would show up again further down.
double SceneHeightMm(int col, int row) {
  const double x = col * kPixelMm, y = row * kPixelMm;
  double z = 20.0 + 0.06 * x + 0.04 * y;  // the tilted plane
  const double sx = x - 50.0, sy = y - 66.0, sphere = 34.0 * 34.0 - sx * sx - sy * sy;
  if (sphere > 0.0) z += std::sqrt(sphere);
  const double cx = x - 122.0;  // a cylinder of radius 22 mm lying along the rows
  if (std::fabs(cx) < 22.0 && y > 14.0 && y < 106.0) z += std::sqrt(22.0 * 22.0 - cx * cx);
  const double hx = x - 112.0, hy = y - 100.0;
  if (hx * hx + hy * hy < 9.0 * 9.0) return -1.0;
  return z;
}

// The scene as a sensor delivers it: unsigned 16-bit raw heights of 0.01 mm, 0 where nothing was
// seen, pixels 0.5 mm apart.
KIVMV::KivRangeImage MakeShadingScene() {
  KIVMV::KivRangeImage image(kWidth, kHeight, KIVMV::KIV_DATA_U16);
  image.SetResolution(kPixelMm, kPixelMm, kUnitMm);
  uint16_t* raw = image.Ptr<uint16_t>();
  for (int row = 0; row < kHeight; ++row) {
    for (int col = 0; col < kWidth; ++col) {
      const double z = SceneHeightMm(col, row);
      raw[row * kWidth + col] = z < 0.0 ? 0 : static_cast<uint16_t>(std::lround(z / kUnitMm));
    }
  }
  return image;
}

// Both shadings of the scene; the first failing status, or LUT_OK.
long RenderShadings(KIVMV::KivColorArray* normalMap, KIVMV::KivColorArray* phong) {
  KIVMV::KivRangeImage scene = MakeShadingScene();
  KIVMV::KivLUTSetting lut;
  const long status = lut.SetColorNormalMapPhong(scene, normalMap);
  if (status != KIVMV::LUT_OK) return status;
  // Point-grid millimetres: x along the columns, y along the rows, z up. The light stands above
  // the scene's upper left, the eye above its centre.
  KIVMV::KivVector3d light(20.0f, 10.0f, 250.0f);
  KIVMV::KivVector3d eye(80.0f, 60.0f, 400.0f);
  return lut.SetColorNormalMap(scene, light, eye, kRainbow, 1.0f, 0.3f, 0.7f, 0.4f, phong);
}

// A colour array of the scene as a picture (its bytes are blue, green, red, as OpenCV expects).
cv::Mat AsPicture(const KIVMV::KivColorArray& colours) {
  return cv::Mat(kHeight, kWidth, CV_8UC3, colours.Data()).clone();
}

}  // namespace shade_example

#ifndef KIVLUT_SHADE_EXAMPLE_NO_MAIN
int main(int argc, char** argv) {
  const std::filesystem::path outDir = argc > 1 ? argv[1] : "demo-output";
  std::error_code error;
  std::filesystem::create_directories(outDir, error);
  if (error) {
    std::fprintf(stderr, "cannot create %s: %s\n", outDir.c_str(), error.message().c_str());
    return 1;
  }
  KIVMV::KivColorArray normalMap, phong;
  const long status = shade_example::RenderShadings(&normalMap, &phong);
  if (status != KIVMV::LUT_OK) {
    std::fprintf(stderr, "shading failed: %s (%ld)\n", KIVMV::KivLUTStatusName(status), status);
    return 1;
  }
  const struct {
    const char* file;
    const KIVMV::KivColorArray& colours;
  } pictures[] = {{"shading_normal_map.png", normalMap}, {"shading_phong.png", phong}};
  for (const auto& picture : pictures) {
    const std::string path = (outDir / picture.file).string();
    if (!cv::imwrite(path, shade_example::AsPicture(picture.colours))) {
      std::fprintf(stderr, "cannot write %s\n", path.c_str());
      return 1;
    }
    std::printf("%s\n", path.c_str());
  }
  return 0;
}
#endif
