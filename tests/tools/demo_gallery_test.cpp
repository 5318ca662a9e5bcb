// The demo scene is the machined parts it claims to be (hole, steps, shaft, slot, shadows, noise),
// and the gallery is what its commands make: every picture decodes, equals the operation run
// directly on the same parsed command, and appears on the contact sheet with its command.
#include "demo_gallery.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "frame_io.h"
#include "operations.h"
#include "options.h"
#include "support/temp_folder.h"

namespace kivlut {
namespace {

namespace fs = std::filesystem;

// The design of the scene, in pixels (column, row) and millimetres: 0.1 mm per pixel, one raw
// unit is 0.001 mm.
constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr double kRawPerMm = 1000.0;
constexpr double kNoiseSigmaRaw = 3.0;

double PlateMm(int column, int row) { return 20.0 + 0.010 * column * 0.1 + 0.006 * row * 0.1; }

// Block: columns 60..259, rows 50..209; lower step +3 mm up to column 159, upper step +6 mm from
// 160, a 45-degree chamfer from column 240.
constexpr int kBlockTop = 50, kBlockBottom = 210;
// Shaft along x: columns 40..599, axis at row 345, radius 6 mm.
constexpr double kShaftAxisRow = 345.0;
constexpr double kShaftRadiusMm = 6.0;
// Hole: centre (470, 120), radius 35 pixels.
constexpr double kHoleColumn = 470.0, kHoleRow = 120.0, kHoleRadius = 35.0;

uint16_t At(const KIVMV::KivRangeImage& image, int column, int row) {
  return image.Mat().at<uint16_t>(row, column);
}

// The median over rows [rowFrom, rowTo] of a column's valid heights above the plate, in raw
// units; NaN when none is valid.
double MedianAbovePlate(const KIVMV::KivRangeImage& image, int column, int rowFrom, int rowTo) {
  std::vector<double> values;
  for (int row = rowFrom; row <= rowTo; ++row) {
    const uint16_t raw = At(image, column, row);
    if (raw != 0) values.push_back(raw - PlateMm(column, row) * kRawPerMm);
  }
  if (values.empty()) return std::nan("");
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

TEST(DemoGallery, SceneIsSixteenBitHeightsInMillimetres) {
  const KIVMV::KivRangeImage scene = MakeMachinedPartsScene();
  EXPECT_EQ(scene.Width(), kWidth);
  EXPECT_EQ(scene.Height(), kHeight);
  EXPECT_EQ(scene.DataType(), KIVMV::KIV_DATA_U16);
  EXPECT_EQ(scene.Mat().type(), CV_16UC1);
  EXPECT_EQ(scene.Mat().rows, kHeight);
  EXPECT_EQ(scene.Mat().cols, kWidth);
  EXPECT_DOUBLE_EQ(scene.ResolutionX(), 0.1);
  EXPECT_DOUBLE_EQ(scene.ResolutionY(), 0.1);
  EXPECT_DOUBLE_EQ(scene.ResolutionZ(), 0.001);
  EXPECT_DOUBLE_EQ(scene.OffsetX(), 0.0);
  EXPECT_DOUBLE_EQ(scene.OffsetY(), 0.0);
  EXPECT_DOUBLE_EQ(scene.OffsetZ(), 0.0);
  double low = 0.0;
  double high = 0.0;
  cv::minMaxLoc(scene.Mat(), &low, &high, nullptr, nullptr, scene.Mat() != 0);
  // Slot floor about 18.9 mm, shaft crown about 26.8 mm.
  EXPECT_GT(low, 18000);
  EXPECT_LT(low, 19000);
  EXPECT_GT(high, 26500);
  EXPECT_LT(high, 27500);
}

TEST(DemoGallery, DrilledHoleHasNoDataAndItsRimHas) {
  const KIVMV::KivRangeImage scene = MakeMachinedPartsScene();
  int inside = 0;
  int rim = 0;
  int rimValid = 0;
  for (int row = 0; row < kHeight; ++row) {
    for (int column = 0; column < kWidth; ++column) {
      const double distance = std::hypot(column - kHoleColumn, row - kHoleRow);
      if (distance <= kHoleRadius) {
        ++inside;
        EXPECT_EQ(At(scene, column, row), 0) << "column " << column << " row " << row;
      } else if (distance > kHoleRadius + 2 && distance < kHoleRadius + 20) {
        ++rim;
        rimValid += At(scene, column, row) != 0;
      }
    }
  }
  EXPECT_GT(inside, 3800);  // pi x 35^2 = 3848
  EXPECT_GT(rimValid, rim * 95 / 100);
}

TEST(DemoGallery, FewPixelsHaveNoDataAndShadowsFollowSteepEdges) {
  const KIVMV::KivRangeImage scene = MakeMachinedPartsScene();
  const int invalid = kWidth * kHeight - cv::countNonZero(scene.Mat());
  const double fraction = static_cast<double>(invalid) / (kWidth * kHeight);
  EXPECT_GT(fraction, 0.02);
  EXPECT_LT(fraction, 0.10);
  // The laser comes in along +y: the 6 mm upper step hides the plate for about 2 mm beyond its
  // far edge (rows 210..228), the 3 mm lower step for about 1 mm.
  for (int column : {170, 200, 230}) {
    for (int row = kBlockBottom + 1; row <= kBlockBottom + 15; ++row) {
      EXPECT_EQ(At(scene, column, row), 0) << "column " << column << " row " << row;
    }
  }
  for (int column : {80, 120, 150}) {
    for (int row = kBlockBottom + 1; row <= kBlockBottom + 7; ++row) {
      EXPECT_EQ(At(scene, column, row), 0) << "column " << column << " row " << row;
    }
  }
  // The near side of the block is lit: no shadow in front of it.
  int lit = 0;
  for (int column = 70; column < 250; ++column) lit += At(scene, column, kBlockTop - 3) != 0;
  EXPECT_GT(lit, 170);
}

TEST(DemoGallery, ShaftProfileFollowsACircle) {
  const KIVMV::KivRangeImage scene = MakeMachinedPartsScene();
  int samples = 0;
  int valid = 0;
  for (int column : {100, 300, 500}) {
    // The far flank beyond 5.5 mm lies in its own shadow.
    for (int row = 290; row <= 400; ++row) {
      const double across = (row - kShaftAxisRow) * 0.1;
      const double expected = (PlateMm(column, row) + std::sqrt(kShaftRadiusMm * kShaftRadiusMm -
                                                                std::min(across * across, 36.0))) *
                              kRawPerMm;
      ++samples;
      const uint16_t raw = At(scene, column, row);
      if (raw == 0) continue;
      ++valid;
      EXPECT_NEAR(raw, expected, 7 * kNoiseSigmaRaw) << "column " << column << " row " << row;
    }
  }
  EXPECT_GT(valid, samples * 95 / 100);
  // Beyond the crest the flank steeper than the laser is hidden.
  EXPECT_EQ(At(scene, 300, 404), 0);
}

TEST(DemoGallery, StepsChamferAndSlotAreWhereTheyShouldBe) {
  const KIVMV::KivRangeImage scene = MakeMachinedPartsScene();
  const double tolerance = 3 * kNoiseSigmaRaw;
  struct {
    int column;
    double aboveMm;
  } const cases[] = {
      {40, 0.0},  {58, 0.0},  {62, 3.0},  {100, 3.0}, {158, 3.0}, {162, 6.0}, {200, 6.0},
      {238, 6.0}, {245, 5.5}, {250, 5.0}, {259, 4.1}, {262, 0.0}, {300, 0.0},
  };
  for (const auto& c : cases) {
    EXPECT_NEAR(MedianAbovePlate(scene, c.column, kBlockTop + 10, kBlockBottom - 10),
                c.aboveMm * kRawPerMm, tolerance)
        << "column " << c.column;
  }
  // The slot (rows 230..254, columns 300..619) is 1.5 mm deep; its first rows lie in the shadow
  // of its near wall.
  for (int column : {350, 450, 550}) {
    EXPECT_NEAR(MedianAbovePlate(scene, column, 237, 252), -1500, tolerance) << column;
    EXPECT_NEAR(MedianAbovePlate(scene, column, 260, 275), 0, tolerance) << column;
    EXPECT_EQ(At(scene, column, 231), 0) << column;
  }
  EXPECT_NEAR(MedianAbovePlate(scene, 200, 237, 252), 0, tolerance);  // before the slot
}

TEST(DemoGallery, SameSeedSameBytesAnotherSeedOtherNoise) {
  const KIVMV::KivRangeImage first = MakeMachinedPartsScene(7);
  const KIVMV::KivRangeImage again = MakeMachinedPartsScene(7);
  const KIVMV::KivRangeImage other = MakeMachinedPartsScene(8);
  const size_t bytes = static_cast<size_t>(kWidth) * kHeight * sizeof(uint16_t);
  ASSERT_TRUE(first.Mat().isContinuous() && again.Mat().isContinuous());
  EXPECT_EQ(std::memcmp(first.Data(), again.Data(), bytes), 0);
  int bothValid = 0;
  int differ = 0;
  double sumSquares = 0.0;
  for (int row = 0; row < kHeight; ++row) {
    for (int column = 0; column < kWidth; ++column) {
      const int a = At(first, column, row);
      const int b = At(other, column, row);
      if (a == 0 || b == 0) continue;
      ++bothValid;
      differ += a != b;
      sumSquares += static_cast<double>(a - b) * (a - b);
      EXPECT_LT(std::abs(a - b), 14 * kNoiseSigmaRaw);
    }
  }
  ASSERT_GT(bothValid, kWidth * kHeight * 9 / 10);
  EXPECT_GT(differ, bothValid / 2);
  // The difference of two independent noises has twice the variance of one.
  const double sigma = std::sqrt(sumSquares / bothValid / 2);
  EXPECT_NEAR(sigma, kNoiseSigmaRaw, 0.5);
}

TEST(DemoGallery, SceneIsCheap) {
  MakeMachinedPartsScene();  // warm up allocations and code
  const auto start = std::chrono::steady_clock::now();
  MakeMachinedPartsScene();
  const double ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  std::cout << "MakeMachinedPartsScene: " << ms << " ms\n";
  // 50 ms is the aim on an idle core; the bound leaves room for a loaded build machine.
  EXPECT_LT(ms, 500.0);
}

// ----- The gallery -------------------------------------------------------------------------------

using KIVMV::testing_support::TempFolder;

struct Gallery {
  TempFolder folder{"kivlut_demo"};
  fs::path dir;  // a folder WriteGallery has to create
  int exitCode = -1;
  std::string log;
};

// The gallery is written once per process and shared by the tests that read it.
const Gallery& SharedGallery() {
  static Gallery* gallery = [] {
    auto* made = new Gallery;
    made->dir = made->folder.path() / "gallery";
    std::ostringstream log;
    made->exitCode = WriteGallery(made->dir, log);
    made->log = log.str();
    return made;
  }();
  return *gallery;
}

Options Parse(const std::vector<std::string>& args) {
  const ParsedCommandLine parsed = ParseCommandLine(args);
  EXPECT_TRUE(parsed.options.has_value()) << parsed.error;
  return parsed.options.value_or(Options());
}

std::string Joined(const std::vector<std::string>& args) {
  std::string text = "kivlut";
  for (const std::string& word : args) text += " " + word;
  return text;
}

std::string ReadText(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type()) return false;
  for (int row = 0; row < a.rows; ++row) {
    if (std::memcmp(a.ptr(row), b.ptr(row), a.cols * a.elemSize()) != 0) return false;
  }
  return true;
}

// The files a gallery folder should hold: the inputs, every command's outputs, the sheet.
std::set<std::string> ExpectedFiles() {
  std::set<std::string> files = {"machined_parts.png", "machined_parts.raw",
                                 "machined_parts_8bit.png", "index.html"};
  for (const auto& args : GalleryCommands()) {
    const Options options = Parse(args);
    files.insert(options.output);
    if (!options.legendPath.empty()) files.insert(options.legendPath);
  }
  return files;
}

TEST(DemoGallery, CommandsCoverEveryMapUnderEveryMapping) {
  // (operation, variant) -> maps seen
  std::map<std::string, std::set<int>> seen;
  std::set<std::string> outputs;
  for (const auto& args : GalleryCommands()) {
    const Options o = Parse(args);
    EXPECT_TRUE(outputs.insert(o.output).second) << "two commands write " << o.output;
    EXPECT_EQ(fs::path(o.output).extension(), ".png") << Joined(args);
    EXPECT_EQ(fs::path(o.output).filename().string(), o.output) << "outputs stay in the folder";
    std::string variant = OperationName(o.operation);
    if (o.operation == Operation::kEqualize || o.operation == Operation::kLinear ||
        o.operation == Operation::kScale || o.operation == Operation::kNormals ||
        o.operation == Operation::kShade) {
      EXPECT_EQ(o.axes.resolution[0], 0.1) << Joined(args);
      EXPECT_EQ(o.axes.resolution[1], 0.1) << Joined(args);
      EXPECT_EQ(o.axes.resolution[2], 0.001) << Joined(args);
      if (!o.raw) {
        EXPECT_EQ(o.inputs, std::vector<std::string>{"machined_parts.png"});
      }
    }
    if (o.raw) variant += " raw";
    if (o.asArray) variant += " array";
    if (o.bounds) variant += " bounds";
    if (o.indexRange) variant += " index";
    if (o.percentile) variant += " percentile";
    if (o.automatic) variant += " auto";
    if (o.scaleValues) variant += " values";
    if (!o.legendPath.empty()) variant += " legend";
    if (o.segmented) variant += " segmented";
    if (o.light) variant += " light";
    if (o.equalizeGrey) variant += " equalize";
    seen[variant].insert(o.mapType);
  }
  const std::set<int> allMaps = {0, 1, 2, 3, 4, 5, 6};
  for (const char* variant :
       {"equalize", "equalize bounds", "equalize bounds index", "linear", "linear bounds",
        "linear bounds index", "linear percentile", "equalize array", "linear array", "grey",
        "grey equalize", "grey bounds index"}) {
    EXPECT_EQ(seen[variant], allMaps) << variant;
  }
  EXPECT_EQ(seen["scale auto"], (std::set<int>{1, 2, 3, 4, 5, 6}));
  for (const char* variant : {"scale values", "scale auto legend", "scale auto segmented",
                              "normals", "shade", "shade light", "blend", "equalize raw"}) {
    EXPECT_EQ(seen[variant].size(), 1u) << variant;
  }
}

TEST(DemoGallery, WritesEveryPictureTheContactSheetAndNothingElse) {
  const Gallery& gallery = SharedGallery();
  EXPECT_EQ(gallery.exitCode, 0) << gallery.log;
  EXPECT_EQ(gallery.log.find("kivlut:"), std::string::npos) << gallery.log;

  const std::set<std::string> expected = ExpectedFiles();
  std::set<std::string> present;
  for (const auto& entry : fs::directory_iterator(gallery.dir)) {
    present.insert(entry.path().filename().string());
  }
  // Nothing else: in particular no temporary file of an atomic write.
  EXPECT_EQ(present, expected);
  for (const std::string& file : expected) {
    EXPECT_NE(gallery.log.find("wrote " + (gallery.dir / file).string() + "\n"), std::string::npos)
        << file;
  }

  for (const auto& args : GalleryCommands()) {
    const Options options = Parse(args);
    const cv::Mat picture =
        cv::imread((gallery.dir / options.output).string(), cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(picture.empty()) << options.output;
    EXPECT_EQ(picture.cols, kWidth) << options.output;
    EXPECT_EQ(picture.rows, kHeight) << options.output;
    EXPECT_EQ(picture.depth(), CV_8U) << options.output;
    // The grey map of an 8-bit grey image is a grey picture; everything else is in colour.
    const bool greyPicture = options.operation == Operation::kGrey && options.mapType == 0;
    EXPECT_EQ(picture.channels(), greyPicture ? 1 : 3) << options.output;
    if (!options.legendPath.empty()) {
      const cv::Mat legend =
          cv::imread((gallery.dir / options.legendPath).string(), cv::IMREAD_UNCHANGED);
      ASSERT_FALSE(legend.empty());
      EXPECT_EQ(legend.type(), CV_8UC3);
    }
  }

  const std::string html = ReadText(gallery.dir / "index.html");
  ASSERT_FALSE(html.empty());
  EXPECT_EQ(html.rfind("<!DOCTYPE html>", 0), 0u);
  EXPECT_NE(html.find("</html>"), std::string::npos);
  for (const std::string& file : expected) {
    if (fs::path(file).extension() != ".png") continue;
    EXPECT_NE(html.find("<img src=\"" + file + "\" width="), std::string::npos) << file;
  }
  for (const auto& args : GalleryCommands()) {
    // No word of the commands needs escaping or quoting, so the text appears as typed.
    EXPECT_NE(html.find("<code>" + Joined(args) + "</code>"), std::string::npos) << Joined(args);
  }
  // Self-contained: nothing is fetched from elsewhere.
  for (const char* outside : {"http:", "https:", "<script", "<link", "@import", "//"}) {
    EXPECT_EQ(html.find(outside), std::string::npos) << outside;
  }
}

TEST(DemoGallery, PicturesAreWhatTheirCommandsMake) {
  const Gallery& gallery = SharedGallery();
  ASSERT_EQ(gallery.exitCode, 0) << gallery.log;
  const auto commands = GalleryCommands();
  // Every fifth command, and every operation other than equalize and linear.
  for (size_t i = 0; i < commands.size(); ++i) {
    const Options options = Parse(commands[i]);
    const bool rare =
        options.operation != Operation::kEqualize && options.operation != Operation::kLinear;
    if (i % 5 != 0 && !rare && !options.raw) continue;
    SCOPED_TRACE(Joined(commands[i]));
    std::vector<cv::Mat> inputs;
    for (const std::string& input : options.inputs) {
      const ReadResult read = ReadPixels(gallery.dir / input, options.raw);
      ASSERT_FALSE(read.pixels.empty()) << read.error;
      inputs.push_back(read.pixels);
    }
    const OperationResult direct = RunOperation(options, inputs);
    ASSERT_TRUE(direct.ok) << direct.error;
    const cv::Mat written =
        cv::imread((gallery.dir / options.output).string(), cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(SameBytes(written, direct.picture));
    if (!options.legendPath.empty()) {
      EXPECT_TRUE(
          SameBytes(cv::imread((gallery.dir / options.legendPath).string(), cv::IMREAD_UNCHANGED),
                    direct.legend));
    }
  }
}

TEST(DemoGallery, InputFilesHoldTheScene) {
  const Gallery& gallery = SharedGallery();
  const KIVMV::KivRangeImage scene = MakeMachinedPartsScene();
  const ReadResult png = ReadPixels(gallery.dir / "machined_parts.png", std::nullopt);
  ASSERT_FALSE(png.pixels.empty()) << png.error;
  EXPECT_TRUE(SameBytes(png.pixels, scene.Mat()));
  const ReadResult raw = ReadPixels(gallery.dir / "machined_parts.raw",
                                    RawLayout{kWidth, kHeight, KIVMV::KIV_DATA_U16});
  ASSERT_FALSE(raw.pixels.empty()) << raw.error;
  EXPECT_TRUE(SameBytes(raw.pixels, scene.Mat()));
  EXPECT_TRUE(SameBytes(
      cv::imread((gallery.dir / "equalize_raw_rainbow.png").string(), cv::IMREAD_UNCHANGED),
      cv::imread((gallery.dir / "equalize_rainbow.png").string(), cv::IMREAD_UNCHANGED)));

  // The 8-bit copy: no data stays 0, heights go linearly onto 1..255.
  const cv::Mat levels =
      cv::imread((gallery.dir / "machined_parts_8bit.png").string(), cv::IMREAD_UNCHANGED);
  ASSERT_EQ(levels.type(), CV_8UC1);
  double low = 0.0;
  double high = 0.0;
  cv::minMaxLoc(scene.Mat(), &low, &high, nullptr, nullptr, scene.Mat() != 0);
  for (int row = 0; row < kHeight; ++row) {
    for (int column = 0; column < kWidth; ++column) {
      const int raw = At(scene, column, row);
      const int level = levels.at<uint8_t>(row, column);
      if (raw == 0) {
        ASSERT_EQ(level, 0) << column << "," << row;
      } else {
        ASSERT_NEAR(level, 1 + (raw - low) * 254 / (high - low), 0.5) << column << "," << row;
      }
    }
  }
}

TEST(DemoGallery, AFailedPictureIsReportedAndTheOthersAreStillMade) {
  TempFolder folder{"kivlut_demo"};
  // Folders where a picture and the legend chart should go: renaming a file over them fails.
  fs::create_directories(folder.path() / "shade_rainbow.png");
  fs::create_directories(folder.path() / "legend.png");
  std::ostringstream log;
  EXPECT_EQ(WriteGallery(folder.path(), log), 1);
  const std::string text = log.str();
  for (const char* failed : {"shade_rainbow.png", "legend.png"}) {
    EXPECT_NE(text.find("kivlut: " + (folder.path() / failed).string() + ": "), std::string::npos)
        << failed << "\n"
        << text;
  }
  size_t failures = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) failures += line.rfind("kivlut:", 0) == 0;
  EXPECT_EQ(failures, 2u) << text;
  for (const char* made : {"equalize_jet.png", "shade_lit_jet.png", "scale_legend_rainbow.png",
                           "blend.png", "index.html"}) {
    EXPECT_TRUE(fs::is_regular_file(folder.path() / made)) << made;
  }
  const std::string html = ReadText(folder.path() / "index.html");
  EXPECT_EQ(html.find("src=\"shade_rainbow.png\""), std::string::npos);
  EXPECT_EQ(html.find("src=\"legend.png\""), std::string::npos);
  EXPECT_NE(html.find("src=\"shade_lit_jet.png\""), std::string::npos);
  EXPECT_NE(html.find("src=\"scale_legend_rainbow.png\""), std::string::npos);
}

TEST(DemoGallery, AnOutputFolderThatCannotBeMadeIsReported) {
  TempFolder folder{"kivlut_demo"};
  const fs::path file = folder.path() / "not_a_folder";
  std::ofstream(file) << "x";
  std::ostringstream log;
  EXPECT_EQ(WriteGallery(file / "gallery", log), 1);
  EXPECT_NE(log.str().find("kivlut: " + (file / "gallery").string() + ": cannot create"),
            std::string::npos)
      << log.str();
}

}  // namespace
}  // namespace kivlut
