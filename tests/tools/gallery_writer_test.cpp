// The gallery is what its commands make: every picture decodes, equals the operation run directly
// on the same parsed command, and appears on the contact sheet with its command; a picture that
// fails is reported and the others are still made.
#include "gallery_writer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "demo_scene.h"
#include "frame_io.h"
#include "gallery_commands.h"
#include "gallery_test_support.h"
#include "operations.h"
#include "options.h"
#include "support/temp_folder.h"

namespace kivlut {
namespace {

namespace fs = std::filesystem;

// The size of the demo scene, and so of every picture.
constexpr int kWidth = 640;
constexpr int kHeight = 480;

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

using testing_support::Joined;
using testing_support::Parse;

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
  for (const GalleryCommand& command : GalleryCommands()) {
    const Options options = Parse(command.args);
    files.insert(options.output);
    if (!options.legendPath.empty()) files.insert(options.legendPath);
  }
  return files;
}

TEST(GalleryWriter, WritesEveryPictureTheContactSheetAndNothingElse) {
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

  for (const GalleryCommand& command : GalleryCommands()) {
    const Options options = Parse(command.args);
    const cv::Mat picture =
        cv::imread((gallery.dir / options.output).string(), cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(picture.empty()) << options.output;
    if (options.colorbar) {
      // The colour bar stands beside the picture, which keeps its size.
      EXPECT_GT(picture.cols, kWidth) << options.output;
      EXPECT_GE(picture.rows, kHeight) << options.output;
    } else {
      EXPECT_EQ(picture.cols, kWidth) << options.output;
      EXPECT_EQ(picture.rows, kHeight) << options.output;
    }
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
  for (const GalleryCommand& command : GalleryCommands()) {
    const std::vector<std::string>& args = command.args;
    // No word of the commands needs escaping or quoting, so the text appears as typed.
    EXPECT_NE(html.find("<code>" + Joined(args) + "</code>"), std::string::npos) << Joined(args);
  }
  // Self-contained: nothing is fetched from elsewhere.
  for (const char* outside : {"http:", "https:", "<script", "<link", "@import", "//"}) {
    EXPECT_EQ(html.find(outside), std::string::npos) << outside;
  }
}

TEST(GalleryWriter, PicturesAreWhatTheirCommandsMake) {
  const Gallery& gallery = SharedGallery();
  ASSERT_EQ(gallery.exitCode, 0) << gallery.log;
  const auto commands = GalleryCommands();
  // Every fifth command, and every operation other than equalize and linear.
  for (size_t i = 0; i < commands.size(); ++i) {
    const Options options = Parse(commands[i].args);
    const bool rare =
        options.operation != Operation::kEqualize && options.operation != Operation::kLinear;
    if (i % 5 != 0 && !rare && !options.raw) continue;
    SCOPED_TRACE(Joined(commands[i].args));
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

TEST(GalleryWriter, InputFilesHoldTheScene) {
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
  EXPECT_TRUE(SameBytes(
      cv::imread((gallery.dir / "machined_parts_8bit.png").string(), cv::IMREAD_UNCHANGED),
      EightBitCopy(scene).Mat()));
}

TEST(GalleryWriter, AFailedPictureIsReportedAndTheOthersAreStillMade) {
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

TEST(GalleryWriter, AnOutputFolderThatCannotBeMadeIsReported) {
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
