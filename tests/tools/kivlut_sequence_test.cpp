// kivlut over frame sequences: --stable colours a folder's frames in natural name order through
// one KivSequenceColorizer whatever --jobs says, and -o OUT.avi / OUT.mp4 writes them as one video
// of the first picture's size. The expected pictures come from the library's colouriser fed the
// same frames, not from a run of the tool.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <string>
#include <vector>

#include "KivColorTable.h"
#include "KivSequenceColoring.h"
#include "frame_io.h"
#include "support/temp_folder.h"
#include "tools/tool_test_support.h"

namespace {

namespace fs = std::filesystem;
using kivlut_testing::Lines;
using kivlut_testing::StartsWith;
using kivlut_testing::ToolRun;
using KIVMV::testing_support::TempFolder;

constexpr int kWidth = 32;
constexpr int kHeight = 24;
// The time constant of every --stable run here, in frames: short, so that one frame moves the
// carried histogram far enough to change colours.
constexpr double kTimeConstant = 1.0;

using kivlut_testing::Contains;
bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
  if (a.empty() || a.size() != b.size() || a.type() != b.type()) return false;
  return cv::countNonZero(cv::Mat(a != b).reshape(1)) == 0;
}

// 16-bit heights between 1000 and 2000 in every frame (the two corners hold the extremes, so
// measured bounds never move), crowded towards a different side in each `shape`, with a hole every
// eleventh pixel.
cv::Mat Heights(int shape, int width = kWidth, int height = kHeight) {
  cv::Mat depth(height, width, CV_16UC1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double u = static_cast<double>(x) / (width - 1);
      const double v = static_cast<double>(y) / (height - 1);
      const double t = shape == 0 ? u * u * u : shape == 1 ? 1.0 - v * v * v : 0.5 + 0.1 * (u - v);
      depth.at<uint16_t>(y, x) = static_cast<uint16_t>(1000 + 1000 * std::clamp(t, 0.0, 1.0));
    }
  }
  for (int i = 5; i < width * height - 1; i += 11) depth.at<uint16_t>(i / width, i % width) = 0;
  depth.at<uint16_t>(0, 0) = 1000;
  depth.at<uint16_t>(height - 1, width - 1) = 2000;
  return depth;
}

class KivlutSequence : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_.path() / "seq");
    // Written in an order that is neither the natural nor the byte order of the names.
    ASSERT_TRUE(cv::imwrite(Path("seq/f10.png"), Heights(2)));
    ASSERT_TRUE(cv::imwrite(Path("seq/f1.png"), Heights(0)));
    ASSERT_TRUE(cv::imwrite(Path("seq/f2.png"), Heights(1)));
  }

  ToolRun Run(const std::vector<std::string>& args) {
    return kivlut_testing::RunTool(kivlut_testing::ToolUnderTest(), args, "", dir_.path());
  }

  std::string Path(const std::string& name) const { return dir_ / name; }

  // The pictures the library's colouriser gives for `frames` coloured in that order, as kivlut
  // colours equalize --map rainbow --stable kTimeConstant.
  std::vector<cv::Mat> Reference(const std::vector<std::string>& frames) const {
    KIVMV::KivSequenceOptions options;
    options.timeConstant = kTimeConstant;
    KIVMV::KivSequenceColorizer colouriser(KIVMV::KivColorTable::Described(1), options);
    std::vector<cv::Mat> pictures;
    for (const std::string& frame : frames) {
      const kivlut::ReadResult read = kivlut::ReadPixels(Path("seq/" + frame), std::nullopt);
      EXPECT_FALSE(read.pixels.empty()) << frame << ": " << read.error;
      std::string error;
      const auto image = kivlut::ToRangeImage(read.pixels, kivlut::Axes(), &error);
      EXPECT_TRUE(image.has_value()) << error;
      if (!image) return pictures;
      KIVMV::KivColorArray colours;
      EXPECT_EQ(colouriser.ColorFrame(*image, &colours), KIVMV::KIV_EXT_OK) << frame;
      pictures.push_back(cv::Mat(kHeight, kWidth, CV_8UC3, colours.Data()).clone());
    }
    return pictures;
  }

  std::vector<std::string> StableArgs(const std::string& out, int jobs) const {
    return {"equalize", Path("seq"),          "--map", "rainbow", "--stable", "1",
            "--jobs",   std::to_string(jobs), "-o",    Path(out)};
  }

  TempFolder dir_{"kivlut_sequence"};
};

TEST_F(KivlutSequence, StableColoursTheFramesInNaturalOrderThroughOneColouriser) {
  const std::vector<cv::Mat> natural = Reference({"f1.png", "f2.png", "f10.png"});
  const std::vector<cv::Mat> byName = Reference({"f1.png", "f10.png", "f2.png"});
  ASSERT_EQ(natural.size(), 3u);
  ASSERT_EQ(byName.size(), 3u);
  // The frames are chosen so that the order shows: f10 after f2 is coloured unlike f10 after f1.
  ASSERT_FALSE(SameBytes(natural[2], byName[1]));

  const ToolRun run = Run(StableArgs("out", 4));
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  EXPECT_TRUE(run.out.empty()) << run.out;
  const char* names[] = {"f1", "f2", "f10"};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(names[i]);
    const cv::Mat picture =
        cv::imread(Path(std::string("out/") + names[i] + ".equalize.png"), cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(SameBytes(picture, natural[i]));
  }
  // Progress names the frames in the order they were coloured.
  const std::vector<std::string> lines = Lines(run.err);
  ASSERT_EQ(lines.size(), 4u) << run.err;
  EXPECT_TRUE(Contains(lines[0], "[1/3] " + Path("seq/f1.png"))) << lines[0];
  EXPECT_TRUE(Contains(lines[1], "[2/3] " + Path("seq/f2.png"))) << lines[1];
  EXPECT_TRUE(Contains(lines[2], "[3/3] " + Path("seq/f10.png"))) << lines[2];
  EXPECT_EQ(lines[3], "kivlut: 3 written, 0 failed");
}

TEST_F(KivlutSequence, StableGivesTheSameBytesWithOneOrTwoJobs) {
  ASSERT_EQ(Run(StableArgs("one", 1)).exitStatus, 0);
  ASSERT_EQ(Run(StableArgs("two", 2)).exitStatus, 0);
  for (const char* name : {"f1", "f2", "f10"}) {
    SCOPED_TRACE(name);
    const std::string file = std::string(name) + ".equalize.png";
    const cv::Mat one = cv::imread(Path("one/" + file), cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(one.empty());
    EXPECT_TRUE(SameBytes(one, cv::imread(Path("two/" + file), cv::IMREAD_UNCHANGED)));
  }
}

TEST_F(KivlutSequence, StableOnOneFileIsTheFirstFrameOfASequence) {
  const ToolRun run = Run({"equalize", Path("seq/f2.png"), "--stable", "1", "-o", Path("f2.png")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  const std::vector<cv::Mat> alone = Reference({"f2.png"});
  ASSERT_EQ(alone.size(), 1u);
  EXPECT_TRUE(SameBytes(cv::imread(Path("f2.png"), cv::IMREAD_UNCHANGED), alone[0]));
}

// A frame the tool cannot read fails on its own line; the frames around it are still coloured,
// and the one after it with the state the frames before carried.
TEST_F(KivlutSequence, AnUnreadableFrameFailsAloneAndLeavesTheSequenceAsItWas) {
  std::ofstream(Path("seq/f5.png")) << "not a picture";
  const ToolRun run = Run(StableArgs("out", 1));
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(Contains(run.err, "kivlut: " + Path("seq/f5.png") + ": ")) << run.err;
  EXPECT_TRUE(Contains(run.err, "kivlut: 3 written, 1 failed")) << run.err;
  const std::vector<cv::Mat> natural = Reference({"f1.png", "f2.png", "f10.png"});
  ASSERT_EQ(natural.size(), 3u);
  EXPECT_TRUE(
      SameBytes(cv::imread(Path("out/f10.equalize.png"), cv::IMREAD_UNCHANGED), natural[2]));
}

// Refused before any frame is read: exit 2, one line, nothing written.
TEST_F(KivlutSequence, OptionsASequenceOrVideoCannotHonourAreRefused) {
  std::ofstream(Path("seq/f3.png")) << "not a picture";
  const struct {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"equalize", "--stable", "0"}, "--stable: N must be above 0"},
      {{"linear", "--stable", "-2"}, "--stable: N must be above 0"},
      {{"linear", "--stable", "ten"}, "--stable: bad value 'ten'"},
      {{"linear", "--stable"}, "--stable: missing value"},
      {{"scale", "--auto", "--stable", "5"}, "--stable does not apply to scale"},
      {{"shade", "--stable", "5"}, "--stable does not apply to shade"},
      {{"normals", "--stable", "5"}, "--stable does not apply to normals"},
      {{"grey", "--stable", "5"}, "--stable does not apply to grey"},
      {{"linear", "--stable", "5", "--bounds", "1000", "2000"},
       "linear with --bounds has nothing to carry"},
      {{"equalize", "--stable", "5", "--bounds", "1000", "2000", "--index", "0", "100"},
       "--index does not apply"},
      {{"equalize", "--stable", "5", "--exact"}, "--exact does not apply"},
      {{"linear", "--stable", "5", "--array"}, "--array does not apply"},
      {{"equalize", "--fps", "25"}, "--fps sets the frame rate of a video"},
      {{"equalize", "--fps", "0", "-o", "v.avi"}, "--fps must be above 0, got 0"},
      {{"equalize", "--fps", "-1", "-o", "v.mp4"}, "--fps must be above 0, got -1"},
      {{"linear", "--transparent", "-o", "v.avi"}, "a video has no alpha"},
      {{"scale", "--auto", "--legend", "l.png", "-o", "v.AVI"}, "--legend writes a chart"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = c.args;
    args.insert(args.begin() + 1, Path("seq"));
    for (std::string& word : args) {
      if (word == "v.avi" || word == "v.mp4" || word == "v.AVI" || word == "l.png") {
        word = Path(word);
      }
    }
    // Before the options, so that an option left without its value stays last.
    if (std::find(args.begin(), args.end(), "-o") == args.end()) {
      args.insert(args.begin() + 2, {"-o", Path("out")});
    }
    std::string line;
    for (const std::string& word : c.args) line += word + " ";
    SCOPED_TRACE(line);
    const ToolRun run = Run(args);
    kivlut_testing::ExpectRefusedUpFront(run, c.message);
    for (const char* made : {"out", "v.avi", "v.mp4", "v.AVI", "l.png"}) {
      EXPECT_FALSE(fs::exists(Path(made))) << made;
    }
  }
  // blend writes one picture, never a video.
  const ToolRun blend = Run({"blend", Path("seq/f1.png"), Path("seq/f2.png"), "-o", Path("b.avi")});
  EXPECT_EQ(blend.exitStatus, 2);
  EXPECT_TRUE(Contains(blend.err, "blend writes one picture")) << blend.err;
}

// The frames of a video as OpenCV reads them back, and the count its container states.
struct VideoContents {
  std::vector<cv::Mat> frames;
  double statedCount = -1.0;
};

VideoContents ReadVideo(const std::string& file) {
  VideoContents contents;
  cv::VideoCapture capture(file);
  EXPECT_TRUE(capture.isOpened()) << file;
  if (!capture.isOpened()) return contents;
  contents.statedCount = capture.get(cv::CAP_PROP_FRAME_COUNT);
  for (cv::Mat frame; capture.read(frame);) contents.frames.push_back(frame.clone());
  return contents;
}

// Mean absolute difference of two pictures of one size and type.
double MeanDifference(const cv::Mat& a, const cv::Mat& b) {
  cv::Mat difference;
  cv::absdiff(a, b, difference);
  const cv::Scalar mean = cv::mean(difference);
  return (mean[0] + mean[1] + mean[2]) / 3.0;
}

// The hidden temporary files a write may leave behind.
std::vector<std::string> HiddenFilesIn(const fs::path& folder) {
  std::vector<std::string> hidden;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (!name.empty() && name[0] == '.') hidden.push_back(name);
  }
  return hidden;
}

TEST_F(KivlutSequence, AviHoldsOneFramePerInputInNaturalOrder) {
  // Per-frame colouring: each video frame is closest to the picture of the same frame.
  ASSERT_EQ(Run({"equalize", Path("seq"), "--map", "jet", "-o", Path("pictures")}).exitStatus, 0);
  const ToolRun run =
      Run({"equalize", Path("seq"), "--map", "jet", "-o", Path("seq.avi"), "--fps", "4"});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  EXPECT_TRUE(Contains(run.err, "-> " + Path("seq.avi"))) << run.err;
  EXPECT_TRUE(HiddenFilesIn(dir_.path()).empty());
  const VideoContents video = ReadVideo(Path("seq.avi"));
  ASSERT_EQ(video.frames.size(), 3u);
  EXPECT_EQ(video.statedCount, 3.0);
  cv::VideoCapture capture(Path("seq.avi"));
  EXPECT_EQ(capture.get(cv::CAP_PROP_FPS), 4.0);
  std::vector<cv::Mat> pictures;
  for (const char* name : {"f1", "f2", "f10"}) {
    pictures.push_back(
        cv::imread(Path(std::string("pictures/") + name + ".equalize.png"), cv::IMREAD_COLOR));
    ASSERT_FALSE(pictures.back().empty()) << name;
  }
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(video.frames[i].size(), cv::Size(kWidth, kHeight));
    for (size_t j = 0; j < 3; ++j) {
      if (j != i) {
        EXPECT_LT(MeanDifference(video.frames[i], pictures[i]),
                  MeanDifference(video.frames[i], pictures[j]))
            << "against picture " << j;
      }
    }
  }
}

TEST_F(KivlutSequence, StableVideoWithAColourBarHasThePicturesSize) {
  ASSERT_EQ(
      Run({"equalize", Path("seq"), "--stable", "1", "--colorbar", "-o", Path("bars")}).exitStatus,
      0);
  const cv::Mat first = cv::imread(Path("bars/f1.equalize.png"), cv::IMREAD_COLOR);
  ASSERT_FALSE(first.empty());
  ASSERT_GT(first.cols, kWidth);  // the bar sits beside the frame
  const ToolRun run =
      Run({"equalize", Path("seq"), "--stable", "1", "--colorbar", "-o", Path("bars.avi")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  const VideoContents video = ReadVideo(Path("bars.avi"));
  ASSERT_EQ(video.frames.size(), 3u);
  for (const cv::Mat& frame : video.frames) EXPECT_EQ(frame.size(), first.size());
}

TEST_F(KivlutSequence, AFrameOfAnotherSizeIsRefusedAndTheOthersAreWritten) {
  ASSERT_TRUE(cv::imwrite(Path("seq/f3.png"), Heights(0, kWidth / 2, kHeight / 2)));
  const ToolRun run = Run({"linear", Path("seq"), "-o", Path("seq.avi")});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(Contains(run.err, "kivlut: " + Path("seq/f3.png") + ": " + Path("seq.avi") +
                                    ": frame size 16x12 differs from the video's 32x24"))
      << run.err;
  EXPECT_TRUE(Contains(run.err, "kivlut: 3 written, 1 failed")) << run.err;
  const VideoContents video = ReadVideo(Path("seq.avi"));
  EXPECT_EQ(video.frames.size(), 3u);
}

TEST_F(KivlutSequence, NoVideoAndNoTemporaryFileWhenNoFrameIsColoured) {
  fs::create_directories(dir_.path() / "bad");
  std::ofstream(Path("bad/f1.png")) << "not a picture";
  std::ofstream(Path("bad/f2.png")) << "not a picture either";
  const ToolRun run = Run({"equalize", Path("bad"), "-o", Path("bad.avi")});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(Contains(run.err, "no frame was coloured, so no video was written")) << run.err;
  EXPECT_FALSE(fs::exists(Path("bad.avi")));
  EXPECT_TRUE(HiddenFilesIn(dir_.path()).empty());
}

TEST_F(KivlutSequence, Mp4HoldsOneFramePerInput) {
  // The mp4v encoder comes from OpenCV's FFmpeg backend, which a build may lack.
  {
    const std::string probe = Path("probe.mp4");
    cv::VideoWriter writer(probe, cv::VideoWriter::fourcc('m', 'p', '4', 'v'), 10,
                           cv::Size(kWidth, kHeight));
    if (!writer.isOpened()) {
      GTEST_SKIP() << "this OpenCV build cannot write mp4v into .mp4 (no FFmpeg backend)";
    }
    writer.release();
    fs::remove(probe);
  }
  const ToolRun run = Run({"linear", Path("seq"), "--stable", "3", "-o", Path("seq.mp4")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  const VideoContents video = ReadVideo(Path("seq.mp4"));
  ASSERT_EQ(video.frames.size(), 3u);
  for (const cv::Mat& frame : video.frames) EXPECT_EQ(frame.size(), cv::Size(kWidth, kHeight));
  EXPECT_TRUE(HiddenFilesIn(dir_.path()).empty());

  // mp4v takes even sizes: a picture with a colour bar is padded up to them, never cut.
  ASSERT_EQ(Run({"linear", Path("seq/f1.png"), "--colorbar", "-o", Path("f1.png")}).exitStatus, 0);
  const cv::Mat picture = cv::imread(Path("f1.png"), cv::IMREAD_COLOR);
  ASSERT_FALSE(picture.empty());
  ASSERT_EQ(Run({"linear", Path("seq"), "--colorbar", "-o", Path("bars.mp4")}).exitStatus, 0);
  const VideoContents bars = ReadVideo(Path("bars.mp4"));
  ASSERT_EQ(bars.frames.size(), 3u);
  const cv::Size even(picture.cols + picture.cols % 2, picture.rows + picture.rows % 2);
  for (const cv::Mat& frame : bars.frames) EXPECT_EQ(frame.size(), even);
}

}  // namespace
