// The kivlut program as a user meets it: every option value checked before any file is read,
// missing files failing alone, folders with their subfolders and a closing count, the other
// tables by name in any case, and standard output carrying only what --stats and --json ask for.
// Runs the program named by KIVLUT_INSTALLED_TOOL when that is set (an installed kivlut), the
// one of the build tree otherwise.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "KivLUTSetting.h"
#include "frame_io.h"
#include "support/temp_folder.h"
#include "tools/tool_test_support.h"

namespace {

namespace fs = std::filesystem;
using kivlut_testing::Lines;
using kivlut_testing::Quote;
using kivlut_testing::ReadText;
using kivlut_testing::StartsWith;
using kivlut_testing::ToolRun;
using KIVMV::testing_support::TempFolder;

using kivlut_testing::Contains;
std::string Tool() { return kivlut_testing::ToolUnderTest(); }

// Every file below `folder`, relative to it, sorted.
std::vector<std::string> FilesBelow(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) names.push_back(entry.path().lexically_relative(folder).string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
  if (a.empty() || a.size() != b.size() || a.type() != b.type()) return false;
  return cv::countNonZero(cv::Mat(a != b).reshape(1)) == 0;
}

class KivlutChecks : public ::testing::Test {
 protected:
  void SetUp() override {
    // 16-bit heights 1000..1000 + 24*19 with a hole every seventh pixel.
    cv::Mat depth(18, 24, CV_16UC1);
    for (int i = 0; i < depth.rows * depth.cols; ++i) {
      depth.at<uint16_t>(i / depth.cols, i % depth.cols) =
          i % 7 == 3 ? 0 : static_cast<uint16_t>(1000 + i);
      if (i % 7 != 3) ++validInGood_;
    }
    ASSERT_TRUE(cv::imwrite(Path("good.png"), depth));
    // Heights in metres with NaN holes, as PFM.
    KIVMV::KivRangeImage heights(9, 5, KIVMV::KIV_DATA_F32);
    float* values = heights.Ptr<float>();
    for (int i = 0; i < 45; ++i) {
      values[i] = i % 5 == 0 ? std::numeric_limits<float>::quiet_NaN() : 0.5f + 0.05f * i;
    }
    std::string error;
    ASSERT_TRUE(
        kivlut::WriteRangeFrame(Path("heights.pfm"), heights, kivlut::FrameFormat::kPfm, &error))
        << error;
    std::ofstream(Path("garbage.png")) << "not a picture";
  }

  ToolRun Run(const std::vector<std::string>& args) {
    return kivlut_testing::RunTool(Tool(), args, "", dir_.path());
  }

  std::string Path(const std::string& name) const { return dir_ / name; }

  TempFolder dir_{"kivlut_checks"};
  long long validInGood_ = 0;
};

// Each refused line: exit 2, nothing on standard output, one line on standard error saying what
// is wrong, and no file read: the garbage input beside the good one would fail on its own line.
TEST_F(KivlutChecks, WrongValuesAreRefusedBeforeAnyFileIsRead) {
  const struct {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"linear", "--percentile", "90", "10"},
       "--percentile: needs 0 <= LOW < HIGH <= 100, got 90 and 10"},
      {{"linear", "--percentile", "60", "60"},
       "--percentile: needs 0 <= LOW < HIGH <= 100, got 60 and 60"},
      {{"linear", "--percentile", "-5", "120"},
       "--percentile: needs 0 <= LOW < HIGH <= 100, got -5 and 120"},
      {{"linear", "--bounds", "1", "1"}, "--bounds: LOW must be below HIGH, got 1 and 1"},
      {{"equalize", "--bounds", "2", "1"}, "--bounds: LOW must be below HIGH, got 2 and 1"},
      {{"equalize", "--bounds", "0", "1", "--index", "0", "300"},
       "--index: needs 0 <= LO <= HI <= 255, got 0 and 300"},
      {{"scale", "--auto", "--map", "0"},
       "scale takes maps 1..10: KivLUTSetting's five-point scale has no map 0 (grey)"},
      {{"scale", "--values", "5,4,3,2,1"}, "--values: V0 <= V1 <= V2 <= V3 <= V4 needed"},
      {{"linear", "--resolution-z", "0"}, "--resolution-z must be above 0, got 0"},
      {{"linear", "--resolution-z", "-0.001"}, "--resolution-z must be above 0, got -0.001"},
      {{"shade", "--resolution-x", "-1"}, "--resolution-x must be above 0, got -1"},
      {{"shade", "--coefficients", "0,0.3,0.6,0.3"}, "--coefficients: GAIN must be above 0"},
      {{"scale", "--auto", "--map", "viridis"},
       "scale colours with KivLUTSetting's maps only: --map viridis is for equalize and linear"},
      {{"shade", "--map", "Magma"},
       "shade colours with KivLUTSetting's maps only: --map Magma is for equalize and linear"},
      {{"grey", "--map", "turbo"}, "grey colours with KivLUTSetting's maps only"},
      {{"normals", "--map", "twilight"}, "--map does not apply to normals"},
      {{"linear", "--exact", "--map", "cividis"}, "--exact keeps KivLUTSetting's own output"},
      {{"linear", "--json", "--stats"}, "--json and --stats exclude each other"},
      {{"linear", "--below", "1,2,3"}, "--below and --above need --bounds"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = c.args;
    args.insert(args.begin() + 1, {Path("garbage.png"), Path("good.png"), "-o", Path("out")});
    std::string line;
    for (const std::string& word : c.args) line += word + " ";
    SCOPED_TRACE(line);
    const ToolRun run = Run(args);
    kivlut_testing::ExpectRefusedUpFront(run, c.message);
    EXPECT_FALSE(fs::exists(Path("out")));
  }
}

// --below and --above with --bounds alone: inside the bounds the whole table, exactly as with
// --index 0 255; outside them the two colours.
TEST_F(KivlutChecks, BelowAndAboveWorkWithBoundsAlone) {
  for (const char* operation : {"equalize", "linear"}) {
    SCOPED_TRACE(operation);
    const std::vector<std::string> common = {operation, Path("good.png"), "--bounds",  "1100",
                                             "1300",    "--below",        "255,0,255", "--above",
                                             "0,255,0", "--map",          "jet"};
    std::vector<std::string> alone = common;
    alone.insert(alone.end(), {"-o", Path("alone.png")});
    std::vector<std::string> whole = common;
    whole.insert(whole.end(), {"--index", "0", "255", "-o", Path("whole.png")});
    const ToolRun run = Run(alone);
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    ASSERT_EQ(Run(whole).exitStatus, 0);
    const cv::Mat picture = cv::imread(Path("alone.png"), cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(SameBytes(picture, cv::imread(Path("whole.png"), cv::IMREAD_UNCHANGED)));
    // Pixel 1 holds 1001 (below), the last pixel 1431 (above); the picture is blue first.
    ASSERT_EQ(picture.type(), CV_8UC3);
    EXPECT_EQ(picture.at<cv::Vec3b>(0, 1), cv::Vec3b(255, 0, 255));
    EXPECT_EQ(picture.at<cv::Vec3b>(17, 23), cv::Vec3b(0, 255, 0));
  }
}

TEST_F(KivlutChecks, MissingFileFailsAloneLikeAnUndecodableOne) {
  const ToolRun run = Run({"equalize", Path("good.png"), Path("missing.png"), "-o", Path("d")});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(run.out.empty()) << run.out;
  const std::vector<std::string> lines = Lines(run.err);
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "kivlut: " + Path("missing.png") + ": no such file or folder"),
            lines.end())
      << run.err;
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "kivlut: 1 written, 1 failed");
  EXPECT_EQ(FilesBelow(Path("d")), std::vector<std::string>{"good.equalize.png"});
  // Alone it is the same kind of failure.
  const ToolRun alone = Run({"linear", Path("missing.png")});
  EXPECT_EQ(alone.exitStatus, 1);
  EXPECT_TRUE(Contains(alone.err, "kivlut: " + Path("missing.png") + ": no such file or folder"));
}

// Only kivlut's own line, besides libpng's own "libpng error" line that OpenCV's decoder lets
// through and that cannot be silenced without racing the parallel jobs (documented).
TEST_F(KivlutChecks, LibraryWarningsDoNotRepeatKivlutsLine) {
  std::ifstream whole(Path("good.png"), std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(whole)), std::istreambuf_iterator<char>());
  std::ofstream(Path("truncated.png"), std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  const ToolRun truncated = Run({"equalize", Path("truncated.png")});
  EXPECT_EQ(truncated.exitStatus, 1);
  int ownProblemLines = 0;
  for (const std::string& line : Lines(truncated.err)) {
    if (StartsWith(line, "libpng error")) continue;
    EXPECT_TRUE(StartsWith(line, "kivlut: ")) << line;
    if (StartsWith(line, "kivlut: " + Path("truncated.png") + ": ")) ++ownProblemLines;
  }
  EXPECT_EQ(ownProblemLines, 1) << truncated.err;
  EXPECT_FALSE(Contains(truncated.err, "WARN")) << truncated.err;

  if (!fs::is_directory("/sys/kernel")) GTEST_SKIP() << "no /sys/kernel to fail writing into";
  const ToolRun unwritable = Run({"equalize", Path("good.png"), "-o", "/sys/kernel/kivlut.png"});
  EXPECT_EQ(unwritable.exitStatus, 1);
  for (const std::string& line : Lines(unwritable.err)) {
    EXPECT_TRUE(StartsWith(line, "kivlut: ")) << line;
  }
  EXPECT_TRUE(Contains(unwritable.err, "kivlut: " + Path("good.png") + ": /sys/kernel/kivlut.png"))
      << unwritable.err;
}

TEST_F(KivlutChecks, FoldersWithSubfoldersAndASummary) {
  fs::create_directories(Path("frames/sub/deeper"));
  fs::copy_file(Path("good.png"), Path("frames/top.png"));
  fs::copy_file(Path("heights.pfm"), Path("frames/sub/mid.pfm"));
  fs::copy_file(Path("good.png"), Path("frames/sub/deeper/low.png"));
  fs::copy_file(Path("garbage.png"), Path("frames/sub/broken.png"));

  const ToolRun flat = Run({"linear", Path("frames"), "-o", Path("flat")});
  EXPECT_EQ(flat.exitStatus, 0) << flat.err;
  EXPECT_TRUE(Contains(flat.err, "kivlut: " + Path("frames") +
                                     ": 1 subfolder not read (--recursive reads "
                                     "them)\n"))
      << flat.err;
  EXPECT_EQ(FilesBelow(Path("flat")), std::vector<std::string>{"top.linear.png"});

  const ToolRun deep = Run({"linear", Path("frames"), "--recursive", "-o", Path("deep")});
  EXPECT_EQ(deep.exitStatus, 1) << deep.err;
  EXPECT_TRUE(deep.out.empty()) << deep.out;
  const std::vector<std::string> lines = Lines(deep.err);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "kivlut: 3 written, 1 failed");
  EXPECT_TRUE(Contains(deep.err, "kivlut: " + Path("frames/sub/broken.png") + ": ")) << deep.err;
  EXPECT_EQ(FilesBelow(Path("deep")),
            (std::vector<std::string>{"sub/deeper/low.linear.png", "sub/mid.linear.png",
                                      "top.linear.png"}));
  // The subfolder's picture is the same as that of the file given by name.
  ASSERT_EQ(Run({"linear", Path("good.png"), "-o", Path("single.png")}).exitStatus, 0);
  EXPECT_TRUE(SameBytes(cv::imread(Path("deep/sub/deeper/low.linear.png"), cv::IMREAD_UNCHANGED),
                        cv::imread(Path("single.png"), cv::IMREAD_UNCHANGED)));
}

TEST_F(KivlutChecks, MapNamesInAnyCaseAndTheOtherTables) {
  ASSERT_EQ(Run({"equalize", Path("good.png"), "--map", "jet", "-o", Path("lower.png")}).exitStatus,
            0);
  const ToolRun mixed =
      Run({"equalize", Path("good.png"), "--map", "Jet", "-o", Path("mixed.png")});
  ASSERT_EQ(mixed.exitStatus, 0) << mixed.err;
  EXPECT_TRUE(SameBytes(cv::imread(Path("lower.png"), cv::IMREAD_UNCHANGED),
                        cv::imread(Path("mixed.png"), cv::IMREAD_UNCHANGED)));
  for (const char* name :
       {"viridis", "Magma", "INFERNO", "plasma", "cividis", "Turbo", "twilight"}) {
    for (const char* operation : {"equalize", "linear"}) {
      SCOPED_TRACE(std::string(operation) + " " + name);
      const std::string out = Path(std::string(operation) + "_" + name + ".png");
      const ToolRun run = Run({operation, Path("good.png"), "--map", name, "--reverse", "-o", out});
      EXPECT_EQ(run.exitStatus, 0) << run.err;
      EXPECT_TRUE(fs::is_regular_file(out));
    }
  }
  const ToolRun bad = Run({"linear", Path("good.png"), "--map", "purple"});
  EXPECT_EQ(bad.exitStatus, 2);
  EXPECT_EQ(bad.err,
            "kivlut: --map: bad value 'purple' (expected 0..10 or grey, rainbow, hot, diverging, "
            "isoluminant, rgb, jet, viridis, magma, inferno, plasma, cividis, turbo, twilight)\n");
}

// The float-array SetColorLUT prints its timing on the process's standard output; kivlut hands
// that to standard error, so its own standard output is the --stats line and nothing else.
TEST_F(KivlutChecks, StandardOutputCarriesOnlyWhatWasAskedFor) {
  const ToolRun stats =
      Run({"equalize", Path("heights.pfm"), "--array", "--stats", "-o", Path("array.png")});
  ASSERT_EQ(stats.exitStatus, 0) << stats.err;
  const std::vector<std::string> lines = Lines(stats.out);
  ASSERT_EQ(lines.size(), 1u) << stats.out;
  EXPECT_TRUE(StartsWith(lines[0], Path("heights.pfm") + ": min ")) << lines[0];
  EXPECT_TRUE(Contains(stats.err, "SetColorLUT")) << "the library's timing line went nowhere";

  const ToolRun quiet = Run({"equalize", Path("heights.pfm"), "--array", "-o", Path("q.png")});
  EXPECT_EQ(quiet.exitStatus, 0);
  EXPECT_TRUE(quiet.out.empty()) << quiet.out;

  const ToolRun help = Run({"--help"});
  EXPECT_EQ(help.exitStatus, 0);
  EXPECT_TRUE(StartsWith(help.out, "NAME\n"));
  EXPECT_TRUE(help.err.empty());
}

TEST_F(KivlutChecks, JsonIsOneObjectPerFileAndNothingElse) {
  fs::copy_file(Path("heights.pfm"), Path("quote\"d.pfm"));
  const ToolRun run = Run({"linear", Path("good.png"), Path("quote\"d.pfm"), "--array", "--json",
                           "--unit", "mm", "-o", Path("json")});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  const std::vector<std::string> lines = Lines(run.out);
  ASSERT_EQ(lines.size(), 2u) << run.out;
  std::string good;
  std::string quoted;
  for (const std::string& line : lines) {
    EXPECT_TRUE(StartsWith(line, "{\"file\": \"") && line.back() == '}') << line;
    for (const char* key :
         {"\"min\": ", "\"max\": ", "\"valid\": ", "\"bounds\": [", "\"unit\": \"mm\"}"}) {
      EXPECT_TRUE(Contains(line, key)) << key << " in " << line;
    }
    (Contains(line, "good.png") ? good : quoted) = line;
  }
  EXPECT_TRUE(Contains(
      good, "\"min\": 1000, \"max\": 1431, \"valid\": " + std::to_string(validInGood_) + ", "))
      << good;
  EXPECT_TRUE(Contains(quoted, "quote\\\"d.pfm\"")) << quoted;
  // 45 heights, every fifth NaN.
  EXPECT_TRUE(Contains(quoted, "\"valid\": 36, ")) << quoted;

  // Given bounds; a frame without a valid pixel has no minimum and maximum; no unit is null.
  cv::imwrite(Path("holes.png"), cv::Mat(4, 4, CV_16UC1, cv::Scalar(0)));
  const ToolRun given = Run({"equalize", Path("good.png"), "--bounds", "1100", "1300", "--json"});
  ASSERT_EQ(given.exitStatus, 0) << given.err;
  EXPECT_EQ(given.out,
            "{\"file\": \"" + Path("good.png") +
                "\", \"min\": 1000, \"max\": 1431, \"valid\": " + std::to_string(validInGood_) +
                ", \"bounds\": [1100, 1300], \"unit\": "
                "null}\n");
  const ToolRun empty = Run({"linear", Path("holes.png"), "--json", "-o", Path("holes_out.png")});
  if (empty.exitStatus == 0) {
    EXPECT_TRUE(Contains(empty.out, "\"min\": null, \"max\": null, \"valid\": 0, ")) << empty.out;
  } else {
    EXPECT_TRUE(empty.out.empty()) << empty.out;
  }
}

TEST_F(KivlutChecks, ReliefWarnsWhenOnlyTheHeightResolutionIsSet) {
  const ToolRun zOnly =
      Run({"shade", Path("good.png"), "--resolution-z", "0.001", "-o", Path("z.png")});
  EXPECT_EQ(zOnly.exitStatus, 0) << zOnly.err;
  EXPECT_TRUE(Contains(zOnly.err, "kivlut: warning: only --resolution-z is set")) << zOnly.err;
  EXPECT_TRUE(zOnly.out.empty());
  const ToolRun all = Run({"shade", Path("good.png"), "--resolution-x", "0.1", "--resolution-y",
                           "0.1", "--resolution-z", "0.001", "-o", Path("all.png")});
  EXPECT_EQ(all.exitStatus, 0) << all.err;
  EXPECT_FALSE(Contains(all.err, "warning")) << all.err;
  // The help's shading example sets all three axes.
  const std::string usage = Run({"--help"}).out;
  const std::size_t example = usage.find("    kivlut shade ");
  ASSERT_NE(example, std::string::npos);
  const std::string exampleText =
      usage.substr(example, usage.find("\n    kivlut", example + 1) - example);
  for (const char* axis : {"--resolution-x", "--resolution-y", "--resolution-z"}) {
    EXPECT_TRUE(Contains(exampleText, axis)) << exampleText;
  }
}

// Each option of the coloring beyond KivLUTSetting is parsed, documented, and runs.
TEST_F(KivlutChecks, NewOptionsAreDocumentedAndAccepted) {
  const std::string usage = Run({"--help"}).out;
  for (const char* option :
       {"--reverse", "--invalid R,G,B", "--transparent", "--colorbar", "--unit TEXT", "--exact",
        "--json", "--recursive", "viridis", "twilight", "any case"}) {
    EXPECT_TRUE(Contains(usage, option)) << option;
  }
  const ToolRun run = Run({"linear", Path("heights.pfm"), "--invalid", "10,20,30", "--transparent",
                           "--colorbar", "--unit", "m", "-o", Path("options.png")});
  EXPECT_EQ(run.exitStatus, 0) << run.err;
  EXPECT_TRUE(fs::is_regular_file(Path("options.png")));
  const ToolRun exact = Run({"normals", Path("good.png"), "--exact", "-o", Path("exact.png")});
  EXPECT_EQ(exact.exitStatus, 0) << exact.err;
  const ToolRun badColour = Run({"linear", Path("good.png"), "--invalid", "1,2,300"});
  EXPECT_EQ(badColour.exitStatus, 2);
  EXPECT_TRUE(Contains(badColour.err, "--invalid: bad value '1,2,300'")) << badColour.err;
}

}  // namespace
