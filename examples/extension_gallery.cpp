// Pictures of the colour tables, an equalised colouring with its colour bar, and the two normal
// maps, all of one synthetic depth frame with holes:
//   gallery_tables.png          the frame under six tables, linear between the measured bounds
//   gallery_equalised_bar.png   equalised through turbo, with the bar of its scale
//   gallery_normal_map.png      the frame's normals through KivLUTSetting and KivColorNormalMap
//
//   extension_gallery [OUTPUT_DIR]     (default: gallery-output)
//
// KivLUTSetting's normal map depends on the worker count; the pictures in docs/ were made with
// KIV_TBB_CHUNKS=2, which shows one copy of the upper half's holes in the lower half.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

#include "KivColorBar.h"
#include "KivColorTable.h"
#include "KivColoring.h"
#include "KivLUTSetting.h"

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr double kPitch = 0.25;  // millimetres between neighbouring pixels
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

const cv::Scalar kWhite(255, 255, 255);
const cv::Scalar kBlack(0, 0, 0);

float Bump(float x, float y, float cx, float cy, float radius, float height) {
  const float dx = (x - cx) / radius, dy = (y - cy) / radius;
  return height * std::exp(-(dx * dx + dy * dy));
}

// Heights in millimetres: a tilted plane with three bumps and a dent, a little sensor noise, a
// patch of holes where the sensor saw nothing and scattered dropped pixels. The patch sits in the
// upper half, where KivLUTSetting's normal map copies the holes of its first work chunk.
std::vector<float> MakeHeights() {
  std::mt19937 random(20240611);
  std::normal_distribution<float> noise(0.0f, 0.006f);
  std::uniform_int_distribution<int> drop(0, 199);
  std::vector<float> z(static_cast<size_t>(kWidth) * kHeight);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      float h = 0.012f * x + 0.008f * y;
      h += Bump(x, y, 90, 150, 38, 5.0f) + Bump(x, y, 215, 95, 30, 6.5f) +
           Bump(x, y, 265, 190, 22, 3.5f) + Bump(x, y, 165, 205, 32, -2.5f);
      h += noise(random);
      const float hx = (x - 95.0f) / 34.0f, hy = (y - 55.0f) / 22.0f;
      const float r2 = hx * hx + hy * hy;
      // A solid core, ragged towards the rim of the patch.
      const bool hole = r2 < 0.45f || (r2 < 1.0f && (x * 7 + y * 13) % 3 == 0);
      const bool dropped = drop(random) == 0;
      z[static_cast<size_t>(y) * kWidth + x] = hole || dropped ? kNaN : h;
    }
  }
  return z;
}

KIVMV::KivRangeImage MakeFrame(const std::vector<float>& heights) {
  KIVMV::KivRangeImage image(kWidth, kHeight, KIVMV::KivDataType(5));
  image.SetResolution(kPitch, kPitch, 1.0);
  for (int y = 0; y < kHeight; ++y) {
    auto* row = reinterpret_cast<float*>(image.Data() + static_cast<size_t>(y) * image.Step());
    for (int x = 0; x < kWidth; ++x) row[x] = heights[static_cast<size_t>(y) * kWidth + x];
  }
  return image;
}

// Unit normals by central differences, towards the viewer; NaN at a hole and wherever a neighbour
// is missing, so at the border and around every hole too.
KIVMV::KivVector3dArray MakeNormals(const std::vector<float>& z) {
  KIVMV::KivVector3dArray normals;
  normals.SetSize(kWidth * kHeight);
  auto at = [&z](int x, int y) { return z[static_cast<size_t>(y) * kWidth + x]; };
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      KIVMV::KivVector3d n(kNaN, kNaN, kNaN);
      if (x > 0 && y > 0 && x + 1 < kWidth && y + 1 < kHeight && std::isfinite(at(x, y))) {
        const double dx = (static_cast<double>(at(x + 1, y)) - at(x - 1, y)) / (2 * kPitch);
        const double dy = (static_cast<double>(at(x, y + 1)) - at(x, y - 1)) / (2 * kPitch);
        const double length = std::sqrt(dx * dx + dy * dy + 1.0);
        if (std::isfinite(length)) {
          n = KIVMV::KivVector3d(static_cast<float>(-dx / length), static_cast<float>(-dy / length),
                                 static_cast<float>(1.0 / length));
        }
      }
      normals[y * kWidth + x] = n;
    }
  }
  return normals;
}

// The colours of a picture `height` rows high as a matrix of that shape.
cv::Mat AsPicture(const KIVMV::KivColorArray& colours, int height) {
  return colours.Mat().reshape(colours.Channel(), height).clone();
}

// The panel with a white strip above it holding the caption, centred.
cv::Mat Captioned(const cv::Mat& panel, const std::string& caption) {
  constexpr int kStrip = 26;
  const double scale = 0.55;
  int baseline = 0;
  const cv::Size text = cv::getTextSize(caption, cv::FONT_HERSHEY_SIMPLEX, scale, 1, &baseline);
  cv::Mat out(panel.rows + kStrip, panel.cols, CV_8UC3, kWhite);
  panel.copyTo(out(cv::Rect(0, kStrip, panel.cols, panel.rows)));
  cv::putText(out, caption, cv::Point((panel.cols - text.width) / 2, kStrip - 8),
              cv::FONT_HERSHEY_SIMPLEX, scale, kBlack, 1, cv::LINE_AA);
  return out;
}

// Panels of one size in rows of `perRow`, `gap` white pixels between and around them.
cv::Mat Grid(const std::vector<cv::Mat>& panels, int perRow, int gap) {
  const int rows = (static_cast<int>(panels.size()) + perRow - 1) / perRow;
  const int w = panels.front().cols, h = panels.front().rows;
  cv::Mat out(gap + rows * (h + gap), gap + perRow * (w + gap), CV_8UC3, kWhite);
  for (size_t i = 0; i < panels.size(); ++i) {
    const int col = static_cast<int>(i) % perRow, row = static_cast<int>(i) / perRow;
    panels[i].copyTo(out(cv::Rect(gap + col * (w + gap), gap + row * (h + gap), w, h)));
  }
  return out;
}

bool Write(const std::filesystem::path& file, const cv::Mat& picture) {
  if (!cv::imwrite(file.string(), picture, {cv::IMWRITE_PNG_COMPRESSION, 9})) {
    std::fprintf(stderr, "cannot write %s\n", file.c_str());
    return false;
  }
  std::printf("wrote %s\n", file.c_str());
  return true;
}

bool Failed(const char* what, long status) {
  if (status == KIVMV::KIV_EXT_OK) return false;
  std::fprintf(stderr, "%s failed: %s\n", what, KIVMV::KivExtStatusName(status));
  return true;
}

// The frame under several tables, linear between its measured bounds, holes in the neutral grey.
bool WriteTables(const KIVMV::KivRangeImage& frame, const std::filesystem::path& file) {
  KIVMV::KivColoringOptions options;
  options.mode = KIVMV::KivColoringMode::kLinear;
  options.bounds = KIVMV::KivBoundsSource::kMeasured;
  options.noDataColor = KIVMV::kKivNeutralNoData;
  std::vector<cv::Mat> panels;
  for (const char* name : {"jet", "viridis", "magma", "turbo", "cividis", "twilight"}) {
    KIVMV::KivColorTable table;
    KIVMV::KivColorArray colours;
    if (Failed(name, KIVMV::KivColorTable::ByName(name, &table)) ||
        Failed(name, KIVMV::KivColorRangeImage(frame, table, options, &colours))) {
      return false;
    }
    panels.push_back(Captioned(AsPicture(colours, kHeight), name));
  }
  return Write(file, Grid(panels, 3, 8));
}

// Equalised through turbo: the bar's ticks fall where those heights landed, crowded where few
// pixels lie and spread where many do.
bool WriteEqualisedWithBar(const KIVMV::KivRangeImage& frame, const std::filesystem::path& file) {
  KIVMV::KivColorTable turbo;
  KIVMV::KivColoringOptions options;
  options.mode = KIVMV::KivColoringMode::kEqualised;
  options.bounds = KIVMV::KivBoundsSource::kMeasured;
  KIVMV::KivColorArray colours;
  KIVMV::KivColoringInfo info;
  if (Failed("turbo", KIVMV::KivColorTable::ByName("turbo", &turbo)) ||
      Failed("equalised colouring",
             KIVMV::KivColorRangeImage(frame, turbo, options, &colours, &info))) {
    return false;
  }
  KIVMV::KivColorBarOptions barOptions;
  barOptions.length = kHeight - 20;
  barOptions.thickness = 18;
  barOptions.ticks = 8;
  barOptions.endCaps = false;  // measured bounds: nothing lies beyond them
  barOptions.fontScale = 0.4;
  cv::Mat bar, picture;
  if (Failed("colour bar", KIVMV::KivDrawColorBar(turbo, info, barOptions, &bar)) ||
      Failed("attaching the bar",
             KIVMV::KivAttachColorBar(colours, kWidth, kHeight, bar, barOptions, &picture))) {
    return false;
  }
  cv::Mat framed(picture.rows + 16, picture.cols + 16, CV_8UC3, kWhite);
  picture.copyTo(framed(cv::Rect(8, 8, picture.cols, picture.rows)));
  return Write(file, Captioned(framed, "turbo, equalised"));
}

// The same normals through KivLUTSetting's normal map and through KivColorNormalMap. The old one
// paints holes black and repeats the holes of its first work chunk in every other chunk; the new
// one paints each missing normal grey where it is, whatever the worker count.
bool WriteNormalMaps(const std::vector<float>& heights, const std::filesystem::path& file) {
  KIVMV::KivVector3dArray normals = MakeNormals(heights);
  KIVMV::KivLUTSetting lut;
  KIVMV::KivColorArray old, fresh;
  const long oldStatus = lut.SetColorNormalMap(normals, &old);
  if (oldStatus != KIVMV::LUT_OK) {
    std::fprintf(stderr, "SetColorNormalMap failed: %ld\n", oldStatus);
    return false;
  }
  if (Failed("KivColorNormalMap",
             KIVMV::KivColorNormalMap(normals, &fresh, KIVMV::kKivNeutralNoData))) {
    return false;
  }
  return Write(file, Grid({Captioned(AsPicture(old, kHeight), "KivLUTSetting"),
                           Captioned(AsPicture(fresh, kHeight), "KivColorNormalMap")},
                          2, 8));
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path outDir = argc > 1 ? argv[1] : "gallery-output";
  std::error_code error;
  std::filesystem::create_directories(outDir, error);
  if (error) {
    std::fprintf(stderr, "cannot create %s: %s\n", outDir.c_str(), error.message().c_str());
    return 1;
  }
  const std::vector<float> heights = MakeHeights();
  const KIVMV::KivRangeImage frame = MakeFrame(heights);
  const bool ok = WriteTables(frame, outDir / "gallery_tables.png") &&
                  WriteEqualisedWithBar(frame, outDir / "gallery_equalised_bar.png") &&
                  WriteNormalMaps(heights, outDir / "gallery_normal_map.png");
  return ok ? 0 : 1;
}
