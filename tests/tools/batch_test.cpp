// Where each picture of a command line goes, and running the jobs: failures stay with their file,
// every other picture is exactly what the operation makes of its frame, whatever the worker count.
#include "batch.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "frame_io.h"
#include "operations.h"
#include "options.h"
#include "support/temp_folder.h"
#include "tools/tool_test_support.h"

namespace kivlut {
namespace {

namespace fs = std::filesystem;
using kivlut_testing::Lines;
using kivlut_testing::StartsWith;

using KIVMV::testing_support::TempFolder;

void Touch(const fs::path& file, const std::string& bytes = "x") {
  fs::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << bytes;
}

std::string FileBytes(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

// The names of the files in a folder, sorted.
std::vector<std::string> FolderNames(const fs::path& folder) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type()) return false;
  const std::size_t rowBytes = static_cast<std::size_t>(a.cols) * a.elemSize();
  for (int y = 0; y < a.rows; ++y) {
    if (!std::equal(a.ptr<uchar>(y), a.ptr<uchar>(y) + rowBytes, b.ptr<uchar>(y))) return false;
  }
  return true;
}

Options OptionsFor(Operation operation, std::vector<std::string> inputs, std::string output = {}) {
  Options options;
  options.operation = operation;
  options.inputs = std::move(inputs);
  options.output = std::move(output);
  return options;
}

// ---------------------------------------------------------------------------------------------
// Planning

// The folder every planning case runs in: single files, a folder of frames with things that are
// not frames beside them, an empty folder, a folder whose frames share a stem, an existing -o.
class PlanningTree {
 public:
  PlanningTree() {
    Touch(root_.path() / "a.png");
    Touch(root_.path() / "b.tif");
    Touch(root_.path() / "frames" / "y.png");
    Touch(root_.path() / "frames" / "x.pfm");
    Touch(root_.path() / "frames" / "w.tiff");
    Touch(root_.path() / "frames" / "z.raw");
    Touch(root_.path() / "frames" / "notes.txt");
    Touch(root_.path() / "frames" / "x.equalize.png");  // a picture of an earlier run
    Touch(root_.path() / "frames" / "x.legend.png");
    Touch(root_.path() / "frames" / "nested" / "deep.png");
    fs::create_directories(root_.path() / "empty");
    Touch(root_.path() / "empty" / "readme.txt");
    Touch(root_.path() / "clash" / "p.png");
    Touch(root_.path() / "clash" / "p.tif");
    fs::create_directories(root_.path() / "outdir");
  }
  std::string operator/(const std::string& name) const { return root_ / name; }
  const fs::path& path() const { return root_.path(); }

 private:
  TempFolder root_{"kivlut_batch"};
};

struct PlanCase {
  const char* what;
  Operation operation;
  std::vector<std::string> inputs;  // relative to the tree
  std::string output;               // relative to the tree, empty for none
  bool raw;
  // Expected (inputs, output) per job, relative to the tree; empty when planning must fail.
  std::vector<std::pair<std::vector<std::string>, std::string>> jobs;
};

TEST(Batch, PlansOutputsForEveryKindOfInput) {
  const PlanCase cases[] = {
      {"single file, default name",
       Operation::kEqualize,
       {"a.png"},
       "",
       false,
       {{{"a.png"}, "a.equalize.png"}}},
      {"single file, -o a file",
       Operation::kLinear,
       {"a.png"},
       "pic.png",
       false,
       {{{"a.png"}, "pic.png"}}},
      {"single file, -o an existing folder",
       Operation::kGrey,
       {"a.png"},
       "outdir",
       false,
       {{{"a.png"}, "outdir/a.grey.png"}}},
      {"single file, -o a new folder ending in a separator",
       Operation::kNormals,
       {"a.png"},
       "newdir/",
       false,
       {{{"a.png"}, "newdir/a.normals.png"}}},
      {"folder, beside the frames, sorted, no earlier outputs",
       Operation::kEqualize,
       {"frames"},
       "",
       false,
       {{{"frames/w.tiff"}, "frames/w.equalize.png"},
        {{"frames/x.pfm"}, "frames/x.equalize.png"},
        {{"frames/y.png"}, "frames/y.equalize.png"}}},
      {"folder with raw files when --raw is given",
       Operation::kShade,
       {"frames"},
       "",
       true,
       {{{"frames/w.tiff"}, "frames/w.shade.png"},
        {{"frames/x.pfm"}, "frames/x.shade.png"},
        {{"frames/y.png"}, "frames/y.shade.png"},
        {{"frames/z.raw"}, "frames/z.shade.png"}}},
      {"folder, -o a missing folder",
       Operation::kScale,
       {"frames"},
       "made/here",
       false,
       {{{"frames/w.tiff"}, "made/here/w.scale.png"},
        {{"frames/x.pfm"}, "made/here/x.scale.png"},
        {{"frames/y.png"}, "made/here/y.scale.png"}}},
      {"several inputs, -o a folder",
       Operation::kEqualize,
       {"b.tif", "a.png"},
       "several",
       false,
       {{{"b.tif"}, "several/b.equalize.png"}, {{"a.png"}, "several/a.equalize.png"}}},
      {"several inputs, no -o",
       Operation::kLinear,
       {"a.png", "frames/y.png"},
       "",
       false,
       {{{"a.png"}, "a.linear.png"}, {{"frames/y.png"}, "frames/y.linear.png"}}},
      {"blend beside the first picture",
       Operation::kBlend,
       {"b.tif", "a.png"},
       "",
       false,
       {{{"b.tif", "a.png"}, "b.blend.png"}}},
      {"blend, -o a file",
       Operation::kBlend,
       {"a.png", "b.tif"},
       "mix.png",
       false,
       {{{"a.png", "b.tif"}, "mix.png"}}},
      {"single file, -o a file in a missing folder",
       Operation::kEqualize,
       {"a.png"},
       "new/sub/pic.png",
       false,
       {{{"a.png"}, "new/sub/pic.png"}}},
      {"blend, -o a file in a missing folder",
       Operation::kBlend,
       {"a.png", "b.tif"},
       "new/mix.png",
       false,
       {{{"a.png", "b.tif"}, "new/mix.png"}}},
      {"blend, -o a folder",
       Operation::kBlend,
       {"a.png", "b.tif"},
       "outdir",
       false,
       {{{"a.png", "b.tif"}, "outdir/a.blend.png"}}},
      {"several inputs, -o an existing file",
       Operation::kEqualize,
       {"a.png", "b.tif"},
       "a.png",
       false,
       {}},
      {"folder, -o an existing file", Operation::kEqualize, {"frames"}, "b.tif", false, {}},
      {"the output would overwrite the input", Operation::kEqualize, {"a.png"}, "a.png", false, {}},
      {"blend of one picture", Operation::kBlend, {"a.png"}, "", false, {}},
      {"blend of three pictures", Operation::kBlend, {"a.png", "b.tif", "a.png"}, "", false, {}},
      {"blend of a folder", Operation::kBlend, {"a.png", "frames"}, "", false, {}},
      {"a missing file beside a good one",
       Operation::kLinear,
       {"a.png", "gone.png"},
       "",
       false,
       {{{"a.png"}, "a.linear.png"}, {{"gone.png"}, "gone.linear.png"}}},
      {"no inputs", Operation::kEqualize, {}, "", false, {}},
  };
  for (const PlanCase& c : cases) {
    SCOPED_TRACE(c.what);
    PlanningTree tree;
    std::vector<std::string> inputs;
    for (const std::string& input : c.inputs) inputs.push_back(tree / input);
    Options options = OptionsFor(c.operation, inputs, c.output.empty() ? "" : tree / c.output);
    if (c.raw) options.raw = RawLayout{4, 3, KIVMV::KIV_DATA_U16};

    std::vector<Job> jobs;
    std::string error;
    const bool ok = PlanJobs(options, &jobs, &error);
    if (c.jobs.empty()) {
      EXPECT_FALSE(ok);
      EXPECT_FALSE(error.empty());
      EXPECT_EQ(error.find('\n'), std::string::npos) << error;
      EXPECT_TRUE(jobs.empty());
      continue;
    }
    ASSERT_TRUE(ok) << error;
    ASSERT_EQ(jobs.size(), c.jobs.size());
    for (std::size_t i = 0; i < jobs.size(); ++i) {
      std::vector<fs::path> expectedInputs;
      for (const std::string& input : c.jobs[i].first) expectedInputs.push_back(tree / input);
      EXPECT_EQ(jobs[i].inputs, expectedInputs) << "job " << i;
      EXPECT_EQ(jobs[i].output.lexically_normal(), fs::path(tree / c.jobs[i].second))
          << "job " << i;
      // Planning makes the folder of every output.
      EXPECT_TRUE(fs::is_directory(jobs[i].output.parent_path())) << "job " << i;
    }
  }
}

// A missing input is planned like any file; running it fails with its own line (below).
TEST(Batch, MissingInputIsAJobOfItsOwn) {
  PlanningTree tree;
  const std::string missing = tree / "nowhere.png";
  std::vector<Job> jobs;
  std::string error;
  ASSERT_TRUE(PlanJobs(OptionsFor(Operation::kEqualize, {tree / "a.png", missing}, tree / "d"),
                       &jobs, &error))
      << error;
  ASSERT_EQ(jobs.size(), 2u);
  EXPECT_EQ(jobs[1].inputs, std::vector<fs::path>{missing});
  EXPECT_EQ(jobs[1].output, fs::path(tree / "d") / "nowhere.equalize.png");
  jobs.clear();
  ASSERT_TRUE(PlanJobs(OptionsFor(Operation::kBlend, {tree / "a.png", missing}), &jobs, &error))
      << error;
  EXPECT_EQ(jobs.size(), 1u);
}

TEST(Batch, RecursiveTakesTheSubfoldersAndRepeatsThemUnderTheOutput) {
  PlanningTree tree;
  Options options = OptionsFor(Operation::kEqualize, {tree / "frames"});
  std::vector<Job> jobs;
  std::vector<std::string> notes;
  std::string error;
  // Without --recursive the subfolder is left out, and a note says so.
  ASSERT_TRUE(PlanJobs(options, &jobs, &error, &notes)) << error;
  EXPECT_EQ(jobs.size(), 3u);
  EXPECT_EQ(notes, std::vector<std::string>{(tree / "frames") +
                                            ": 1 subfolder not read (--recursive reads them)"});

  options.recursive = true;
  for (const std::string& output : {std::string(), tree / "made"}) {
    SCOPED_TRACE(output.empty() ? "beside the inputs" : "-o a folder");
    options.output = output;
    jobs.clear();
    notes.clear();
    ASSERT_TRUE(PlanJobs(options, &jobs, &error, &notes)) << error;
    EXPECT_TRUE(notes.empty());
    std::map<std::string, std::string> outputOf;
    for (const Job& job : jobs) {
      ASSERT_EQ(job.inputs.size(), 1u);
      outputOf[job.inputs[0].lexically_relative(tree.path()).string()] =
          job.output.lexically_normal().lexically_relative(tree.path()).string();
      EXPECT_TRUE(fs::is_directory(job.output.parent_path())) << job.output;
    }
    const std::string base = output.empty() ? "frames" : "made";
    const std::map<std::string, std::string> expected = {
        {"frames/w.tiff", base + "/w.equalize.png"},
        {"frames/x.pfm", base + "/x.equalize.png"},
        {"frames/y.png", base + "/y.equalize.png"},
        {"frames/nested/deep.png", base + "/nested/deep.equalize.png"}};
    EXPECT_EQ(outputOf, expected);
  }
  // A folder whose only frames are in subfolders is empty without --recursive.
  Touch(tree.path() / "only_below" / "sub" / "f.png");
  options = OptionsFor(Operation::kEqualize, {tree / "only_below"});
  EXPECT_FALSE(PlanJobs(options, &jobs, &error));
  EXPECT_EQ(error, "no frame files in " + (tree / "only_below") +
                       ": 1 subfolder not read (--recursive reads them)");
  options.recursive = true;
  jobs.clear();
  ASSERT_TRUE(PlanJobs(options, &jobs, &error)) << error;
  EXPECT_EQ(jobs.size(), 1u);
}

TEST(Batch, EmptyFolderIsAnError) {
  PlanningTree tree;
  std::vector<Job> jobs;
  std::string error;
  EXPECT_FALSE(PlanJobs(OptionsFor(Operation::kEqualize, {tree / "empty"}), &jobs, &error));
  EXPECT_EQ(error, "no frame files in " + (tree / "empty"));
}

TEST(Batch, StemClashNamesBothInputs) {
  PlanningTree tree;
  for (const std::string& output : {std::string(), tree / "outdir"}) {
    SCOPED_TRACE(output.empty() ? "beside the inputs" : "-o a folder");
    std::vector<Job> jobs;
    std::string error;
    EXPECT_FALSE(
        PlanJobs(OptionsFor(Operation::kEqualize, {tree / "clash"}, output), &jobs, &error));
    EXPECT_NE(error.find(tree / "clash/p.png"), std::string::npos) << error;
    EXPECT_NE(error.find(tree / "clash/p.tif"), std::string::npos) << error;
    EXPECT_TRUE(jobs.empty());
  }
  // The same stem from two folders into one -o folder clashes as well.
  std::vector<Job> jobs;
  std::string error;
  EXPECT_FALSE(PlanJobs(
      OptionsFor(Operation::kEqualize, {tree / "a.png", tree / "clash/p.png", tree / "clash/p.tif"},
                 tree / "outdir"),
      &jobs, &error));
  EXPECT_NE(error.find("p.png"), std::string::npos) << error;
}

TEST(Batch, RefusedPlanCreatesNoFolder) {
  PlanningTree tree;
  std::vector<Job> jobs;
  std::string error;
  EXPECT_FALSE(PlanJobs(OptionsFor(Operation::kEqualize, {tree / "clash"}, tree / "made/here"),
                        &jobs, &error));
  EXPECT_FALSE(fs::exists(tree / "made")) << error;
}

TEST(Batch, PlanningWithoutAnOutputListFails) {
  PlanningTree tree;
  std::string error;
  EXPECT_FALSE(PlanJobs(OptionsFor(Operation::kEqualize, {tree / "a.png"}), nullptr, &error));
  EXPECT_FALSE(error.empty());
}

// ---------------------------------------------------------------------------------------------
// Running

// Random heights with holes (markers, and NaN for float) and a little structure, so that the
// equalisation has crowded and empty bins.
KIVMV::KivRangeImage MakeFrame(int width, int height, KIVMV::KivDataType type, unsigned seed) {
  KIVMV::KivRangeImage image(width, height, type);
  image.SetResolution(0.1, 0.1, 0.01);
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> hole(0, 19);
  std::normal_distribution<double> noise(0.0, 3.0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double h = 100.0 + 60.0 * std::sin(x * 0.2) * std::cos(y * 0.15) + noise(random);
      const bool missing = hole(random) == 0;
      const int i = y * width + x;
      switch (type) {
        case KIVMV::KIV_DATA_U8:
          image.Ptr<uint8_t>()[i] = missing ? 0 : static_cast<uint8_t>(std::clamp(h, 1.0, 255.0));
          break;
        case KIVMV::KIV_DATA_U16:
          image.Ptr<uint16_t>()[i] =
              missing ? 0 : static_cast<uint16_t>(std::clamp(h * 100.0, 1.0, 65535.0));
          break;
        case KIVMV::KIV_DATA_F32:
          image.Ptr<float>()[i] =
              missing ? (x % 2 == 0 ? std::numeric_limits<float>::quiet_NaN() : -FLT_MAX)
                      : static_cast<float>(h);
          break;
        default:
          ADD_FAILURE() << "no generator for pixel type " << type;
          return image;
      }
    }
  }
  return image;
}

struct FrameFile {
  const char* name;
  int width;
  int height;
  KIVMV::KivDataType type;
  FrameFormat format;
};

// A folder of generated frames of several types, sizes and formats, and one garbage file.
class FrameFolder {
 public:
  FrameFolder() {
    const FrameFile files[] = {
        {"f01.png", 64, 48, KIVMV::KIV_DATA_U16, FrameFormat::kPng},
        {"f02.png", 33, 31, KIVMV::KIV_DATA_U8, FrameFormat::kPng},
        {"f03.tif", 23, 17, KIVMV::KIV_DATA_F32, FrameFormat::kTiff},
        {"f04.pfm", 7, 5, KIVMV::KIV_DATA_F32, FrameFormat::kPfm},
        {"f05.png", 1, 1, KIVMV::KIV_DATA_U16, FrameFormat::kPng},
        {"f06.tif", 101, 3, KIVMV::KIV_DATA_U16, FrameFormat::kTiff},
        {"f07.png", 40, 40, KIVMV::KIV_DATA_U16, FrameFormat::kPng},
    };
    fs::create_directories(in());
    unsigned seed = 1;
    for (const FrameFile& file : files) {
      std::string error;
      const fs::path path = in() / file.name;
      EXPECT_TRUE(WriteRangeFrame(path, MakeFrame(file.width, file.height, file.type, seed++),
                                  file.format, &error))
          << file.name << ": " << error;
      good_.push_back(path);
    }
    // Not a picture at all, though its name says PNG.
    Touch(broken(), "this is not a picture\n");
    Touch(in() / "readme.txt", "frames for the batch test\n");
  }

  fs::path in() const { return root_.path() / "in"; }
  fs::path broken() const { return in() / "f04b.png"; }
  const std::vector<fs::path>& good() const { return good_; }
  fs::path root() const { return root_.path(); }

 private:
  TempFolder root_{"kivlut_batch"};
  std::vector<fs::path> good_;
};

struct RunOutcome {
  int status = -1;
  std::string out;
  std::string err;
  std::vector<Job> jobs;
};

RunOutcome PlanAndRun(const Options& options, bool interactive) {
  RunOutcome outcome;
  std::string error;
  EXPECT_TRUE(PlanJobs(options, &outcome.jobs, &error)) << error;
  std::ostringstream out;
  std::ostringstream err;
  outcome.status = RunJobs(options, outcome.jobs, out, err, interactive);
  outcome.out = out.str();
  outcome.err = err.str();
  return outcome;
}

fs::path OutputOf(const fs::path& folder, const fs::path& input, const char* operation) {
  return folder / (input.stem().string() + "." + operation + ".png");
}

// What the operation makes of one frame, run directly.
cv::Mat Expected(const Options& options, const fs::path& input) {
  const ReadResult read = ReadPixels(input, std::nullopt);
  EXPECT_FALSE(read.pixels.empty()) << input << ": " << read.error;
  const OperationResult result = RunOperation(options, {read.pixels});
  EXPECT_TRUE(result.ok) << input << ": " << result.error;
  return result.picture;
}

TEST(Batch, GarbageFileFailsAloneAndTheRestMatchTheOperation) {
  FrameFolder frames;
  const fs::path outDir = frames.root() / "out";
  Options options = OptionsFor(Operation::kEqualize, {frames.in().string()}, outDir.string());
  options.jobs = 2;
  const RunOutcome run = PlanAndRun(options, false);
  const std::size_t total = frames.good().size() + 1;
  ASSERT_EQ(run.jobs.size(), total);
  EXPECT_EQ(run.status, 1);

  // One error line, naming the garbage file.
  const std::vector<std::string> lines = Lines(run.err);
  const std::string errorHead = "kivlut: " + frames.broken().string() + ": ";
  int errorLines = 0;
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "kivlut: " + std::to_string(total - 1) + " written, 1 failed");
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    const std::string& line = lines[i];
    if (StartsWith(line, errorHead)) {
      ++errorLines;
      EXPECT_GT(line.size(), errorHead.size()) << "the problem is missing: " << line;
    } else {
      EXPECT_TRUE(StartsWith(line, "kivlut: [")) << "unexpected line: " << line;
    }
  }
  EXPECT_EQ(errorLines, 1) << run.err;

  // Every good frame's picture, nothing for the garbage file, no temporary files left.
  std::vector<std::string> expectedNames;
  for (const fs::path& input : frames.good()) {
    expectedNames.push_back(OutputOf(outDir, input, "equalize").filename().string());
  }
  std::sort(expectedNames.begin(), expectedNames.end());
  EXPECT_EQ(FolderNames(outDir), expectedNames);

  for (const fs::path& input : frames.good()) {
    SCOPED_TRACE(input.string());
    const cv::Mat written =
        cv::imread(OutputOf(outDir, input, "equalize").string(), cv::IMREAD_UNCHANGED);
    const cv::Mat expected = Expected(options, input);
    EXPECT_FALSE(written.empty());
    EXPECT_TRUE(SameBytes(written, expected));
  }
  // The inputs are untouched and nothing was written beside them.
  std::vector<std::string> inNames;
  for (const fs::path& input : frames.good()) inNames.push_back(input.filename().string());
  inNames.push_back(frames.broken().filename().string());
  inNames.push_back("readme.txt");
  std::sort(inNames.begin(), inNames.end());
  EXPECT_EQ(FolderNames(frames.in()), inNames);
}

TEST(Batch, PlainProgressHasOneLinePerFile) {
  FrameFolder frames;
  Options options =
      OptionsFor(Operation::kEqualize, {frames.in().string()}, (frames.root() / "out").string());
  options.jobs = 3;
  const RunOutcome run = PlanAndRun(options, false);
  const std::size_t total = run.jobs.size();
  ASSERT_EQ(total, frames.good().size() + 1);

  EXPECT_EQ(run.err.find('\r'), std::string::npos);
  std::set<std::size_t> counts;
  std::set<std::string> finished;
  for (const std::string& line : Lines(run.err)) {
    if (!StartsWith(line, "kivlut: [")) continue;
    const std::size_t slash = line.find('/');
    const std::size_t close = line.find("] ");
    ASSERT_NE(slash, std::string::npos) << line;
    ASSERT_NE(close, std::string::npos) << line;
    counts.insert(std::stoul(line.substr(9, slash - 9)));
    EXPECT_EQ(line.substr(slash + 1, close - slash - 1), std::to_string(total)) << line;
    finished.insert(line.substr(close + 2));
  }
  std::set<std::size_t> expectedCounts;
  for (std::size_t i = 1; i <= total; ++i) expectedCounts.insert(i);
  EXPECT_EQ(counts, expectedCounts) << run.err;

  std::set<std::string> expectedFinished;
  for (const Job& job : run.jobs) {
    const std::string input = job.inputs.front().string();
    expectedFinished.insert(job.inputs.front() == frames.broken()
                                ? input + " failed"
                                : input + " -> " + job.output.string());
  }
  EXPECT_EQ(finished, expectedFinished) << run.err;
}

TEST(Batch, InteractiveProgressRedrawsOneBar) {
  FrameFolder frames;
  Options options =
      OptionsFor(Operation::kEqualize, {frames.in().string()}, (frames.root() / "out").string());
  const RunOutcome run = PlanAndRun(options, true);
  const std::string total = std::to_string(run.jobs.size());
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find('\r'), std::string::npos);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err.back(), '\n');
  EXPECT_NE(run.err.find("] " + total + "/" + total + " frames\n"), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("kivlut: ["), std::string::npos) << "plain lines in interactive mode";
  // The failure still gets a line of its own, starting at the left edge.
  const std::string errorLine = "kivlut: " + frames.broken().string() + ": ";
  EXPECT_TRUE(StartsWith(run.err, errorLine) || run.err.find("\r" + errorLine) != std::string::npos)
      << run.err;
  // The bar is the only thing drawn besides the error line: every redraw starts with '\r['.
  std::size_t draws = 0;
  for (std::size_t at = run.err.find("\r["); at != std::string::npos;
       at = run.err.find("\r[", at + 1)) {
    ++draws;
  }
  EXPECT_EQ(draws, run.jobs.size());
}

TEST(Batch, OneWorkerAndTwoWorkersWriteTheSameFiles) {
  FrameFolder frames;
  std::vector<std::vector<std::string>> runs;
  for (int workers : {1, 2}) {
    const fs::path outDir = frames.root() / ("out" + std::to_string(workers));
    Options options = OptionsFor(Operation::kLinear, {frames.in().string()}, outDir.string());
    options.mapType = 6;
    options.jobs = workers;
    const RunOutcome run = PlanAndRun(options, false);
    EXPECT_EQ(run.status, 1);
    std::vector<std::string> contents;
    for (const fs::path& input : frames.good()) {
      contents.push_back(FileBytes(OutputOf(outDir, input, "linear")));
      EXPECT_FALSE(contents.back().empty()) << input;
    }
    runs.push_back(contents);
  }
  EXPECT_EQ(runs[0], runs[1]);
}

TEST(Batch, AllGoodFilesExitZeroAndStatsMatchTheOperation) {
  FrameFolder frames;
  std::vector<std::string> inputs;
  for (const fs::path& input : frames.good()) inputs.push_back(input.string());
  Options options = OptionsFor(Operation::kEqualize, inputs, (frames.root() / "stats").string());
  options.stats = true;
  options.jobs = 2;
  const RunOutcome run = PlanAndRun(options, false);
  EXPECT_EQ(run.status, 0) << run.err;

  std::set<std::string> expected;
  for (const fs::path& input : frames.good()) {
    const ReadResult read = ReadPixels(input, std::nullopt);
    const OperationResult result = RunOperation(options, {read.pixels});
    ASSERT_TRUE(result.ok) << input << ": " << result.error;
    expected.insert(input.string() + ": " + FormatStats(result.stats));
  }
  const std::vector<std::string> lines = Lines(run.out);
  EXPECT_EQ(lines.size(), frames.good().size()) << run.out;
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
  const std::vector<std::string> errLines = Lines(run.err);
  ASSERT_FALSE(errLines.empty());
  EXPECT_EQ(errLines.back(),
            "kivlut: " + std::to_string(frames.good().size()) + " written, 0 failed");
  for (std::size_t i = 0; i + 1 < errLines.size(); ++i) {
    EXPECT_TRUE(StartsWith(errLines[i], "kivlut: [")) << errLines[i];
  }
}

TEST(Batch, MissingFileFailsAloneWithItsLine) {
  FrameFolder frames;
  const fs::path missing = frames.root() / "missing.png";
  const fs::path outDir = frames.root() / "d";
  const RunOutcome run =
      PlanAndRun(OptionsFor(Operation::kEqualize,
                            {frames.good().front().string(), missing.string()}, outDir.string()),
                 false);
  EXPECT_EQ(run.status, 1);
  const std::vector<std::string> lines = Lines(run.err);
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "kivlut: " + missing.string() + ": no such file or folder"),
            lines.end())
      << run.err;
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "kivlut: 1 written, 1 failed");
  EXPECT_EQ(FolderNames(outDir),
            std::vector<std::string>{
                OutputOf(outDir, frames.good().front(), "equalize").filename().string()});
}

// --json: one object per file on `out`, the numbers those of the operation, nothing else there.
TEST(Batch, JsonLinesCarryTheOperationsNumbers) {
  FrameFolder frames;
  std::vector<std::string> inputs;
  for (const fs::path& input : frames.good()) inputs.push_back(input.string());
  Options options = OptionsFor(Operation::kLinear, inputs, (frames.root() / "json").string());
  options.json = true;
  options.unit = "mm";
  options.bounds = std::make_pair(50.0, 150.0);
  const RunOutcome run = PlanAndRun(options, false);
  EXPECT_EQ(run.status, 0) << run.err;
  std::set<std::string> expected;
  for (const fs::path& input : frames.good()) {
    const ReadResult read = ReadPixels(input, std::nullopt);
    OperationResult result = RunOperation(options, {read.pixels});
    ASSERT_TRUE(result.ok) << input << ": " << result.error;
    if (std::isnan(result.stats.low)) result.stats.low = 50.0;
    if (std::isnan(result.stats.high)) result.stats.high = 150.0;
    expected.insert(JsonStatsLine(input.string(), result.stats, "mm"));
  }
  const std::vector<std::string> lines = Lines(run.out);
  EXPECT_EQ(lines.size(), frames.good().size()) << run.out;
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
  for (const std::string& line : lines) {
    EXPECT_NE(line.find("\"bounds\": [50, 150], \"unit\": \"mm\"}"), std::string::npos) << line;
  }
}

TEST(Batch, JsonLineEscapesTextAndWritesNullForWhatIsNotANumber) {
  MappingStats stats;
  stats.minimum = 0.5;
  stats.maximum = 2.25;
  stats.valid = 12;
  stats.total = 20;
  stats.low = 0.1;
  stats.high = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(JsonStatsLine("a.png", stats, ""),
            "{\"file\": \"a.png\", \"min\": 0.5, \"max\": 2.25, \"valid\": 12, \"bounds\": "
            "[0.1, null], \"unit\": null}");
  stats.low = -std::numeric_limits<double>::infinity();
  stats.high = 1e-7;
  EXPECT_EQ(JsonStatsLine("dir/\"quoted\"\\back\tslash\n.png", stats, "µm"),
            "{\"file\": \"dir/\\\"quoted\\\"\\\\back\\u0009slash\\u000a.png\", \"min\": 0.5, "
            "\"max\": 2.25, \"valid\": 12, \"bounds\": [null, 1e-07], \"unit\": \"µm\"}");
  // Bytes that are not UTF-8 become U+FFFD; no valid pixel means no minimum and maximum.
  stats.valid = 0;
  EXPECT_EQ(JsonStatsLine(std::string("bad\xff\xc3.png"), stats, "mm"),
            "{\"file\": \"bad\\ufffd\\ufffd.png\", \"min\": null, \"max\": null, \"valid\": 0, "
            "\"bounds\": [null, 1e-07], \"unit\": \"mm\"}");
  // Numbers read back as the same double.
  stats.valid = 1;
  stats.minimum = 0.1 + 0.2;
  const std::string line = JsonStatsLine("x", stats, "");
  const std::size_t at = line.find("\"min\": ") + 7;
  EXPECT_EQ(std::strtod(line.c_str() + at, nullptr), 0.1 + 0.2) << line;
}

TEST(Batch, LegendGoesToItsPathForOneJobAndBesideEachPictureForSeveral) {
  FrameFolder frames;
  const fs::path single = frames.good().front();
  Options one =
      OptionsFor(Operation::kScale, {single.string()}, (frames.root() / "one.png").string());
  one.automatic = true;
  one.legendPath = (frames.root() / "chart.png").string();
  const ReadResult read = ReadPixels(single, std::nullopt);
  const OperationResult direct = RunOperation(one, {read.pixels});
  ASSERT_TRUE(direct.ok) << direct.error;
  if (direct.legend.empty()) GTEST_SKIP() << "the scale operation made no legend chart";

  RunOutcome run = PlanAndRun(one, false);
  EXPECT_EQ(run.status, 0) << run.err;
  const cv::Mat chart = cv::imread(one.legendPath, cv::IMREAD_UNCHANGED);
  EXPECT_TRUE(SameBytes(chart, direct.legend));

  std::vector<std::string> inputs;
  for (const fs::path& input : frames.good()) inputs.push_back(input.string());
  Options several = one;
  several.inputs = inputs;
  several.output = (frames.root() / "several").string();
  run = PlanAndRun(several, false);
  EXPECT_EQ(run.status, 0) << run.err;
  for (const fs::path& input : frames.good()) {
    EXPECT_TRUE(
        fs::is_regular_file(frames.root() / "several" / (input.stem().string() + ".legend.png")))
        << input;
  }
}

TEST(Batch, WriteFailureNamesTheInputAndTheOutput) {
  FrameFolder frames;
  const fs::path input = frames.good().front();
  const fs::path output = frames.root() / "picture.unknownformat";
  const RunOutcome run =
      PlanAndRun(OptionsFor(Operation::kEqualize, {input.string()}, output.string()), false);
  EXPECT_EQ(run.status, 1);
  const std::vector<std::string> lines = Lines(run.err);
  ASSERT_EQ(lines.size(), 2u) << run.err;
  EXPECT_TRUE(StartsWith(lines[0], "kivlut: " + input.string() + ": " + output.string() + ": "))
      << lines[0];
  EXPECT_EQ(lines[1], "kivlut: [1/1] " + input.string() + " failed");
  EXPECT_FALSE(fs::exists(output));
  // No temporary file is left beside the picture that could not be written.
  EXPECT_EQ(FolderNames(frames.root()), std::vector<std::string>{"in"});
}

TEST(Batch, NoJobsIsSuccessWithoutOutput) {
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(RunJobs(Options{}, {}, out, err, true), 0);
  EXPECT_TRUE(out.str().empty());
  EXPECT_TRUE(err.str().empty());
}

}  // namespace
}  // namespace kivlut
