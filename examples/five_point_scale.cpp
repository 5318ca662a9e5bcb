// Colours a generated range image through the five-point scale: once in automatic mode (the break
// values found in the data and written back into the record), with the histogram chart of the
// segmenting ColorMapLUT, and once with a record set by hand.
//
//   five_point_scale [OUTPUT_DIR [SHRINK]]     (defaults: demo-output, 1)
//
// Writes five_point_auto.png, five_point_chart.png, five_point_manual.png and
// five_point_segmented.png; SHRINK > 1 averages SHRINK x SHRINK blocks of the scene pictures into
// one pixel (the chart keeps its 800 x 600, where its captions stay legible).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "KivLUTSetting.h"

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr double kMillimetresPerUnit = 0.01;

// A plate tilted by 20 mm across its width and 6 mm down its height, three bumps, two dips and a
// slot the sensor could not see into, as 16-bit raw units of 0.01 mm (0 = no data).
KIVMV::KivRangeImage MakeScene() {
  KIVMV::KivRangeImage image(kWidth, kHeight, KIVMV::KIV_DATA_U16);
  image.SetResolution(0.1, 0.1, kMillimetresPerUnit);
  struct Feature {
    double x, y, radius, height;
  };
  const Feature features[] = {{150, 130, 45, 6.0},
                              {470, 110, 30, 4.0},
                              {300, 360, 60, 8.0},
                              {520, 330, 50, -7.0},
                              {110, 370, 35, -5.0}};
  for (int y = 0; y < kHeight; ++y) {
    uint16_t* row =
        reinterpret_cast<uint16_t*>(image.Data() + static_cast<size_t>(y) * image.Step());
    for (int x = 0; x < kWidth; ++x) {
      double z = 40.0 + 20.0 * x / kWidth + 6.0 * y / kHeight;
      for (const Feature& f : features) {
        const double dx = x - f.x, dy = y - f.y;
        z += f.height * std::exp(-(dx * dx + dy * dy) / (2.0 * f.radius * f.radius));
      }
      // A fine machining texture of +-0.05 mm.
      z += 0.05 * std::sin(x * 0.9) * std::cos(y * 0.7);
      const bool slot = x > 360 && x < 420 && y > 200 && y < 280;
      row[x] = slot ? 0 : static_cast<uint16_t>(std::lround(z / kMillimetresPerUnit));
    }
  }
  return image;
}

// The mean of each shrink x shrink block.
cv::Mat Shrink(const cv::Mat& picture, int shrink) {
  if (shrink <= 1) return picture;
  cv::Mat small(picture.rows / shrink, picture.cols / shrink, CV_8UC3);
  for (int y = 0; y < small.rows; ++y) {
    for (int x = 0; x < small.cols; ++x) {
      for (int c = 0; c < 3; ++c) {
        int sum = 0;
        for (int dy = 0; dy < shrink; ++dy) {
          for (int dx = 0; dx < shrink; ++dx) {
            sum += picture.at<cv::Vec3b>(y * shrink + dy, x * shrink + dx)[c];
          }
        }
        small.at<cv::Vec3b>(y, x)[c] =
            static_cast<uchar>((sum + shrink * shrink / 2) / (shrink * shrink));
      }
    }
  }
  return small;
}

// The colours of a mapping as a picture of the scene's size (the array holds blue, green, red).
cv::Mat AsPicture(const KIVMV::KivColorArray& colours) {
  return cv::Mat(kHeight, kWidth, CV_8UC3, colours.Data()).clone();
}

bool Write(const std::filesystem::path& file, const cv::Mat& picture, int shrink) {
  if (!cv::imwrite(file.string(), Shrink(picture, shrink))) {
    std::fprintf(stderr, "cannot write %s\n", file.c_str());
    return false;
  }
  std::printf("wrote %s\n", file.c_str());
  return true;
}

void Print(const char* title, const KIVMV::LinearColorMapLUT_Para& p) {
  std::printf("%s: values %.3f %.3f %.3f %.3f %.3f mm, entries %d %d %d %d %d\n", title, p.value0,
              p.value1, p.value2, p.value3, p.value4, p.index0, p.index1, p.index2, p.index3,
              p.index4);
}

bool Check(const char* what, long status) {
  if (status == KIVMV::LUT_OK) return true;
  std::fprintf(stderr, "%s: %s\n", what, KIVMV::KivLUTStatusName(status));
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path outDir = argc > 1 ? argv[1] : "demo-output";
  const int shrink = argc > 2 ? std::max(1, std::atoi(argv[2])) : 1;
  std::error_code error;
  std::filesystem::create_directories(outDir, error);
  if (error) {
    std::fprintf(stderr, "cannot create %s: %s\n", outDir.c_str(), error.message().c_str());
    return 1;
  }

  KIVMV::KivRangeImage scene = MakeScene();
  KIVMV::KivLUTSetting lut;
  KIVMV::KivColorArray colours;
  // Symmetric colours: the out-of-range colours are stored with their components reversed.
  KIVMV::KivColor under(255, 0, 255);   // magenta
  KIVMV::KivColor over(255, 255, 255);  // white
  const int rainbow = 1, jet = 6;

  KIVMV::LinearColorMapLUT_Para automatic;
  if (!Check("automatic scale",
             lut.LinearColorMapLUT(scene, &colours, automatic, under, over, rainbow, true)) ||
      !Write(outDir / "five_point_auto.png", AsPicture(colours), shrink)) {
    return 1;
  }
  Print("automatic", automatic);

  KIVMV::KivVarArray results, ticks;
  KIVMV::LinearColorMapLUT_Para segmentedRecord;
  if (!Check("segmented", lut.ColorMapLUT(scene, &colours, segmentedRecord, under, over, rainbow,
                                          true, 4, 8, &results, &ticks)) ||
      !Write(outDir / "five_point_chart.png", results[0].ToImage().Mat(), 1) ||
      !Write(outDir / "five_point_segmented.png", AsPicture(colours), shrink)) {
    return 1;
  }
  std::printf("legend ticks:");
  for (int i = 0; i < ticks.Length(); ++i) std::printf(" %d", ticks[i].ToInt());
  std::printf("\n");

  // By hand: the plate between 47 and 55 mm gets the middle of the table; heights below 42 mm
  // and above 64 mm take the out-of-range colours. The break values lie half a raw unit off the
  // measured heights: a height exactly at value0 or value3 lies in no segment and would keep the
  // colour its element held before.
  KIVMV::LinearColorMapLUT_Para manual;
  manual.value0 = 42.005;
  manual.value1 = 47.005;
  manual.value2 = 51.005;
  manual.value3 = 55.005;
  manual.value4 = 64.005;
  manual.index0 = 0;
  manual.index1 = 300;
  manual.index2 = 511;
  manual.index3 = 720;
  manual.index4 = 1023;
  if (!Check("manual scale",
             lut.LinearColorMapLUT(scene, &colours, manual, under, over, jet, false)) ||
      !Write(outDir / "five_point_manual.png", AsPicture(colours), shrink)) {
    return 1;
  }
  Print("manual", manual);
  return 0;
}
