// Test inputs for the range-image code: random images of every pixel type with invalid markers,
// NaN and infinities, the sizes every fast path must survive, and the real sensor frames of the
// shared data folder when it is present.
#pragma once

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "KivRangeImage.h"
#include "common/pixel_rules.h"

namespace KIVMV {
namespace testing_support {

// 1x1, a row, a column, odd sizes and a camera frame.
inline std::vector<std::pair<int, int>> TestSizes() {
  return {{1, 1}, {1, 17}, {23, 1}, {7, 5}, {33, 31}, {101, 3}, {640, 480}};
}

// The invalid marker of a pixel type.
template <typename T>
T Marker() {
  if constexpr (std::is_same_v<T, uint8_t> || std::is_same_v<T, uint16_t>) return 0;
  if constexpr (std::is_same_v<T, int8_t>) return -128;
  if constexpr (std::is_same_v<T, int16_t>) return -32768;
  if constexpr (std::is_same_v<T, int32_t>) return INT_MIN;
  if constexpr (std::is_same_v<T, float>) return -FLT_MAX;
  if constexpr (std::is_same_v<T, double>) return -DBL_MAX;
}

// The invalid-pixel rule restated per type, for reference loops: the marker (and, for signed
// 32-bit pixels, 0 through the wrap-around of the distance) and every non-finite value are invalid.
template <typename T>
bool ReferenceIsValid(T v) {
  if constexpr (std::is_floating_point_v<T>) {
    return std::isfinite(v) && v != Marker<T>();
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return v != INT_MIN && v != 0;
  } else {
    return v != Marker<T>();
  }
}

// Random pixel values: mostly from a value range typical of the type (so histograms have both
// crowded and empty bins), with markers, the type's extremes, and for float and double NaN and
// infinities sprinkled in.
template <typename T>
T RandomPixel(std::mt19937_64& random) {
  std::uniform_int_distribution<int> pick(0, 99);
  const int kind = pick(random);
  if (kind < 4) return Marker<T>();
  if constexpr (std::is_floating_point_v<T>) {
    if (kind < 6) return std::numeric_limits<T>::quiet_NaN();
    if (kind < 7) return std::numeric_limits<T>::infinity();
    if (kind < 8) return -std::numeric_limits<T>::infinity();
    if (kind < 9) return static_cast<T>(std::uniform_int_distribution<int>(-3, 3)(random));
    std::normal_distribution<double> value(500.0, 120.0);
    return static_cast<T>(value(random));
  } else {
    if (kind < 6) return std::numeric_limits<T>::max();
    if (kind < 8) return std::numeric_limits<T>::min();
    if constexpr (std::is_same_v<T, int32_t>) {
      if (kind < 11) return 0;  // invalid through the 32-bit wrap
    }
    const double low = std::numeric_limits<T>::min(), high = std::numeric_limits<T>::max();
    const double centre = std::is_signed_v<T> ? 0.25 * high : 0.3 * high;
    std::normal_distribution<double> value(centre, (high - low) / 16.0);
    const double v = std::round(value(random));
    return static_cast<T>(std::min(high, std::max(low, v)));
  }
}

template <typename T>
KivRangeImage RandomRangeImage(int width, int height, std::mt19937_64& random) {
  KivRangeImage image(width, height, PixelTraits<T>::kDataType);
  T* pixels = image.Ptr<T>();
  for (int i = 0; i < width * height; ++i) pixels[i] = RandomPixel<T>(random);
  return image;
}

// Calls f(PixelTypeTag<T>{}) for the seven pixel types.
template <typename F>
void ForEachPixelType(F&& f) {
  for (int type = 0; type <= 6; ++type) VisitPixelType(type, f);
}

struct RealFrame {
  std::string name;
  KivRangeImage image;
};

// The shared data folder: KIVLUT_DATA_DIR if set, else ../shared/data beside the checkout.
inline std::filesystem::path SharedDataDir() {
  if (const char* dir = std::getenv("KIVLUT_DATA_DIR")) return dir;
#ifdef KIVLUT_SHARED_DATA_DIR
  return KIVLUT_SHARED_DATA_DIR;
#else
  return {};
#endif
}

// The real range images of the shared data folder as the library sees them: 16-bit frames as
// unsigned 16-bit images in millimetres (0.0002 m per unit for the TUM frame), PFM files as float
// images in metres. Empty when the folder is missing.
inline std::vector<RealFrame> LoadRealFrames() {
  std::vector<RealFrame> frames;
  const std::filesystem::path dir = SharedDataDir();
  if (dir.empty() || !std::filesystem::is_directory(dir)) return frames;
  const struct {
    const char* file;
    double resolutionZ;
  } files[] = {
      {"pcl/frame_20121214T142255.814212_depth.tiff", 0.001},
      {"pcl/frame_20121214T142256.068683_depth.tiff", 0.001},
      {"pcl/frame_20121214T142256.332395_depth.tiff", 0.001},
      {"pcl/frame_20121214T142255.814212_z.pfm", 1.0},
      {"pcl/table_scene_mug_stereo_textured_z.pfm", 1.0},
      {"pcl/milk_cartoon_all_small_clorox_z.pfm", 1.0},
      {"realsense/depth_frame0_mm.png", 0.001},
      {"realsense/depth_frame1_mm.png", 0.001},
      {"tum/TUM_depth.png", 0.0002},
  };
  for (const auto& f : files) {
    const cv::Mat raw = cv::imread((dir / f.file).string(), cv::IMREAD_UNCHANGED);
    if (raw.empty() || raw.channels() != 1) continue;
    if (raw.depth() != CV_16U && raw.depth() != CV_32F) continue;
    const KivDataType type = raw.depth() == CV_16U ? KIV_DATA_U16 : KIV_DATA_F32;
    KivRangeImage image(raw.cols, raw.rows, type);
    raw.copyTo(image.Mat());
    image.SetResolution(1.0, 1.0, f.resolutionZ);
    frames.push_back({f.file, image});
  }
  return frames;
}

}  // namespace testing_support
}  // namespace KIVMV
