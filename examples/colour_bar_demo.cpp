// Colours a synthetic depth image with KivLUTSetting's jet table, linearly and equalised, and
// writes each picture with its colour bar: bar_linear.png and bar_equalised.png.
//
//   colour_bar_demo [OUTPUT_DIR]     (default: demo-output)
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "KivColorBar.h"
#include "KivLUTSetting.h"

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr int kJet = 6;

float Bump(float x, float y, float cx, float cy, float radius, float height) {
  const float dx = (x - cx) / radius, dy = (y - cy) / radius;
  return height * std::exp(-(dx * dx + dy * dy));
}

// Heights in millimetres: a tilted plane, three bumps and a dent, and a patch of holes where the
// sensor saw nothing.
KIVMV::KivRangeImage MakeScene() {
  KIVMV::KivRangeImage image(kWidth, kHeight, KIVMV::KivDataType(5));
  image.SetResolution(0.1, 0.1, 1.0);
  for (int y = 0; y < kHeight; ++y) {
    float* row = reinterpret_cast<float*>(image.Data() + static_cast<size_t>(y) * image.Step());
    for (int x = 0; x < kWidth; ++x) {
      float z = 0.025f * x + 0.015f * y;
      z += Bump(x, y, 180, 170, 70, 22) + Bump(x, y, 430, 320, 45, 30) +
           Bump(x, y, 520, 120, 30, 14) + Bump(x, y, 300, 400, 60, -12);
      const float hx = (x - 110.0f) / 55.0f, hy = (y - 380.0f) / 35.0f;
      const bool patch = hx * hx + hy * hy < 1.0f;
      // Scattered holes inside the patch, a solid core at its centre.
      const bool hole = patch && ((x * 7 + y * 13) % 5 == 0 || hx * hx + hy * hy < 0.35f);
      row[x] = hole ? std::numeric_limits<float>::quiet_NaN() : z;
    }
  }
  return image;
}

float HeightAt(const KIVMV::KivRangeImage& image, int i) {
  const auto* row =
      reinterpret_cast<const float*>(image.Data() + static_cast<size_t>(i / kWidth) * image.Step());
  return row[i % kWidth];
}

KIVMV::KivColoringInfo EvenScale(double low, double high) {
  KIVMV::KivColoringInfo info;
  info.mode = KIVMV::KivColoringMode::kLinear;
  info.low = low;
  info.high = high;
  for (int i = 0; i <= KIVMV::KivColorTable::kSize; ++i) {
    info.entryStart.push_back(low + (high - low) * i / KIVMV::KivColorTable::kSize);
  }
  return info;
}

// The scale of KivLUTSetting's equalised colouring, read back from what it painted: entry k starts
// at the lowest height painted with entry k's colour. The colour of each pixel is looked up in the
// table (a colour the table holds more than once counts for its first entry); an entry no pixel
// took starts where the entry above it starts, so the starts never decrease; entry 0 starts at the
// lowest height and the scale ends at the highest, as the colouring's own bounds do.
KIVMV::KivColoringInfo EqualisedScale(const KIVMV::KivRangeImage& image,
                                      const KIVMV::KivColorArray& colours,
                                      const KIVMV::KivColorTable& table, double low, double high) {
  constexpr int kEntries = KIVMV::KivColorTable::kSize;
  auto key = [](const uint8_t* bgr) { return (bgr[0] << 16) | (bgr[1] << 8) | bgr[2]; };
  std::vector<int> entryOf(1 << 24, -1);
  for (int k = kEntries - 1; k >= 0; --k) entryOf[key(table.Bgr() + 3 * k)] = k;

  const double none = std::numeric_limits<double>::infinity();
  std::vector<double> lowest(kEntries, none);
  for (int i = 0; i < colours.Length(); ++i) {
    const float z = HeightAt(image, i);
    const int k = entryOf[key(colours.Data() + 3 * static_cast<size_t>(i))];
    if (std::isfinite(z) && k >= 0 && z < lowest[k]) lowest[k] = z;
  }
  KIVMV::KivColoringInfo info;
  info.mode = KIVMV::KivColoringMode::kEqualised;
  info.low = low;
  info.high = high;
  info.entryStart.assign(kEntries + 1, high);
  for (int k = kEntries - 1; k >= 0; --k) {
    info.entryStart[k] = std::min(lowest[k], info.entryStart[k + 1]);
  }
  info.entryStart[0] = low;
  return info;
}

bool Write(const std::filesystem::path& file, const cv::Mat& picture) {
  if (!cv::imwrite(file.string(), picture)) {
    std::fprintf(stderr, "cannot write %s\n", file.c_str());
    return false;
  }
  std::printf("wrote %s\n", file.c_str());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path outDir = argc > 1 ? argv[1] : "demo-output";
  std::error_code error;
  std::filesystem::create_directories(outDir, error);
  if (error) {
    std::fprintf(stderr, "cannot create %s: %s\n", outDir.c_str(), error.message().c_str());
    return 1;
  }

  KIVMV::KivRangeImage scene = MakeScene();
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (int i = 0; i < kWidth * kHeight; ++i) {
    const float z = HeightAt(scene, i);
    if (std::isfinite(z)) {
      low = std::min(low, static_cast<double>(z));
      high = std::max(high, static_cast<double>(z));
    }
  }
  const KIVMV::KivColorTable jet = KIVMV::KivColorTable::Described(kJet);
  KIVMV::KivLUTSetting lut;
  KIVMV::KivColorArray colours;
  KIVMV::KivColorBarOptions options;
  options.length = 400;
  options.thickness = 24;
  options.ticks = 6;
  options.fontScale = 0.45;
  cv::Mat bar, picture;

  // Linear between given bounds inside the data: the heights beyond them take the table's ends,
  // which the end caps show.
  const double givenLow = 0.0, givenHigh = 40.0;
  if (lut.LinearColorMapLUT(scene, kJet, givenLow, givenHigh, &colours) != KIVMV::LUT_OK ||
      KIVMV::KivDrawColorBar(jet, EvenScale(givenLow, givenHigh), options, &bar) !=
          KIVMV::KIV_EXT_OK ||
      KIVMV::KivAttachColorBar(colours, kWidth, kHeight, bar, options, &picture) !=
          KIVMV::KIV_EXT_OK ||
      !Write(outDir / "bar_linear.png", picture)) {
    return 1;
  }

  // Equalised between the measured extremes: nothing lies beyond them, so no caps. The stretched
  // low heights leave room for more ticks; the crowded high ones keep their marks, not labels.
  options.endCaps = false;
  options.ticks = 10;
  if (lut.ColorMapLUT(scene, kJet, &colours) != KIVMV::LUT_OK) return 1;
  const KIVMV::KivColoringInfo equalised = EqualisedScale(scene, colours, jet, low, high);
  if (KIVMV::KivDrawColorBar(jet, equalised, options, &bar) != KIVMV::KIV_EXT_OK ||
      KIVMV::KivAttachColorBar(colours, kWidth, kHeight, bar, options, &picture) !=
          KIVMV::KIV_EXT_OK ||
      !Write(outDir / "bar_equalised.png", picture)) {
    return 1;
  }
  return 0;
}
