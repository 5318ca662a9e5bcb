// The kivlut program run as a child process: its pictures equal the library called directly, and
// every failure is a named line, a non-zero exit status and no partial file.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <sstream>

#include "KivLUTSetting.h"
#include "frame_io.h"
#include "range/range_test_support.h"
#include "tools/tool_test_support.h"

namespace {

namespace fs = std::filesystem;
using kivlut_testing::Quote;
using kivlut_testing::ReadText;
using kivlut_testing::ToolRun;
using namespace KIVMV;

class KivlutCli : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = fs::temp_directory_path() /
           ("kivlut_cli_" + std::string(info->name()) + "_" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  // `environment` ("NAME=value ...") is put before the command by the shell.
  ToolRun Run(const std::vector<std::string>& args, const std::string& environment = "") {
    return kivlut_testing::RunTool(KIVLUT_TOOL, args, environment, dir_);
  }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // Files left in the folder whose name marks a temporary picture.
  std::vector<std::string> Leftovers(const fs::path& folder) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const std::string name = entry.path().filename().string();
      if (name.find("kivlut-") != std::string::npos || name.find(".tmp") != std::string::npos) {
        names.push_back(name);
      }
    }
    return names;
  }

  fs::path dir_;
};

cv::Mat Picture(const KivColorArray& colours, int width, int height) {
  return cv::Mat(height, width, CV_8UC(colours.Channel()), colours.Data()).clone();
}

bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type()) return false;
  return cv::countNonZero(cv::Mat(a != b).reshape(1)) == 0;
}

// Heights 1000..5000 raw units with holes (0), a 16-bit frame as a PNG holds it.
KivRangeImage DepthU16(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> value(1000, 5000);
  KivRangeImage image(width, height, KIV_DATA_U16);
  uint16_t* pixels = image.Ptr<uint16_t>();
  for (int i = 0; i < width * height; ++i) {
    pixels[i] = random() % 17 == 0 ? 0 : static_cast<uint16_t>(value(random));
  }
  return image;
}

// Heights in metres with NaN, infinities and the float marker.
KivRangeImage DepthF32(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(0.5f, 2.5f);
  KivRangeImage image(width, height, KIV_DATA_F32);
  float* pixels = image.Ptr<float>();
  const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::infinity(), -FLT_MAX};
  for (int i = 0; i < width * height; ++i) {
    pixels[i] = random() % 13 == 0 ? specials[random() % 3] : value(random);
  }
  return image;
}

void WriteFrame(const std::string& file, const KivRangeImage& image, kivlut::FrameFormat format) {
  std::string error;
  ASSERT_TRUE(kivlut::WriteRangeFrame(file, image, format, &error)) << error;
}

// The valid extremes by the reference rule.
template <typename T>
std::pair<double, double> ValidRange(const KivRangeImage& image) {
  double low = 0.0, high = 0.0;
  bool any = false;
  const T* pixels = image.Ptr<T>();
  for (int i = 0; i < image.Width() * image.Height(); ++i) {
    if (!testing_support::ReferenceIsValid(pixels[i])) continue;
    low = any ? std::min<double>(low, pixels[i]) : pixels[i];
    high = any ? std::max<double>(high, pixels[i]) : pixels[i];
    any = true;
  }
  return {low, high};
}

Kiv3DFloatArray FloatArrayOf(const KivRangeImage& image) {
  Kiv3DFloatArray values(image.Width() * image.Height());
  std::memcpy(values.Data(), image.Data(), sizeof(float) * values.Length());
  return values;
}

struct DirectCase {
  const char* name;
  std::vector<std::string> options;
  bool floatInput;  // the float frame; otherwise the 16-bit one
  std::function<long(KivLUTSetting&, KivRangeImage&, KivColorArray*)> library;
};

TEST_F(KivlutCli, RangePicturesEqualTheLibrary) {
  const int width = 37, height = 23;
  const KivRangeImage u16 = DepthU16(width, height, 11);
  const KivRangeImage f32 = DepthF32(width, height, 12);
  WriteFrame(Path("u16.png"), u16, kivlut::FrameFormat::kPng);
  WriteFrame(Path("f32.pfm"), f32, kivlut::FrameFormat::kPfm);
  const KivColor black(0, 0, 0), white(255, 255, 255);
  // --below 10,20,30 is red 10, green 20, blue 30 in the picture: the library takes it as
  // components 2, 1, 0 in bytes 0, 1, 2, so red is component 0.
  const KivColor below(10, 20, 30), above(200, 150, 100);
  const std::pair<double, double> rawRange = ValidRange<uint16_t>(u16);
  const std::pair<double, double> floatRange = ValidRange<float>(f32);

  const std::vector<DirectCase> cases = {
      {"equalize",
       {"equalize", "--map", "jet"},
       false,
       [](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) { return l.ColorMapLUT(i, 6, o); }},
      {"equalize bounds",
       {"equalize", "--map", "hot", "--bounds", "2", "4"},
       false,
       [](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         return l.ColorMapLUT(i, 2, 2.0, 4.0, o);
       }},
      {"equalize colours",
       {"equalize", "--bounds", "2", "4", "--index", "10", "200", "--below", "10,20,30", "--above",
        "200,150,100"},
       false,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         return l.ColorMapLUT(i, 1, 2.0, 4.0, 10, 200, below, above, o);
       }},
      {"linear",
       {"linear", "--map", "5"},
       true,
       [](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         return l.LinearColorMapLUT(i, 5, o);
       }},
      {"linear bounds",
       {"linear", "--bounds", "1", "2"},
       true,
       [](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         return l.LinearColorMapLUT(i, 1, 1.0, 2.0, o);
       }},
      {"linear colours",
       {"linear", "--bounds", "2.5", "3.5", "--index", "5", "250", "--below", "10,20,30", "--above",
        "200,150,100", "--map", "diverging"},
       false,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         return l.LinearColorMapLUT(i, 3, 2.5, 3.5, 5, 250, below, above, o);
       }},
      // --exact: KivLUTSetting's bytes, where kivlut's own pictures keep no-data apart.
      {"linear percentile",
       {"linear", "--percentile", "5", "90", "--exact"},
       true,
       [](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         return l.LinearColorMapLUT(i, o, 1, 0.10, 0.05);
       }},
      {"scale auto",
       {"scale", "--auto", "--map", "isoluminant"},
       false,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         LinearColorMapLUT_Para para;
         KivColor under = black, over = white;
         return l.LinearColorMapLUT(i, o, para, under, over, 4, true);
       }},
      {"scale values",
       {"scale", "--values", "1,1.2,1.5,2,2.4", "--indices", "0,100,500,900,1000", "--below",
        "10,20,30", "--above", "200,150,100"},
       true,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         LinearColorMapLUT_Para para{1.0, 1.2, 1.5, 2.0, 2.4, 0, 100, 500, 900, 1000};
         KivColor under = below, over = above;
         return l.LinearColorMapLUT(i, o, para, under, over, 1, false);
       }},
      {"scale segmented",
       {"scale", "--auto", "--segmented"},
       false,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         LinearColorMapLUT_Para para;
         KivColor under = black, over = white;
         KivVarArray extras;
         return l.ColorMapLUT(i, o, para, under, over, 1, true, 0, 0, &extras, nullptr);
       }},
      {"normals",
       {"normals", "--exact"},
       false,
       [](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         return l.SetColorNormalMapPhong(i, o);
       }},
      {"shade",
       {"shade", "--light", "-5,-5,9000", "--eye", "18,11,12000", "--coefficients",
        "1.5,0.2,0.5,0.4", "--map", "hot", "--exact"},
       false,
       [](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         KivVector3d light(-5, -5, 9000), eye(18, 11, 12000);
         return l.SetColorNormalMap(i, light, eye, 2, 1.5f, 0.2f, 0.5f, 0.4f, o);
       }},
      {"equalize array",
       {"equalize", "--array", "--map", "rgb", "--exact"},
       true,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         Kiv3DFloatArray values = FloatArrayOf(i);
         return l.SetColorLUT(values, static_cast<float>(floatRange.first),
                              static_cast<float>(floatRange.second), 5, o);
       }},
      {"linear array float",
       {"linear", "--array"},
       true,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         Kiv3DFloatArray values = FloatArrayOf(i);
         return l.LinearSetColorLUT(values, static_cast<float>(floatRange.first),
                                    static_cast<float>(floatRange.second), 1, o);
       }},
      {"linear array int",
       {"linear", "--array", "--map", "jet"},
       false,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         Kiv3DIntArray values(i.Width() * i.Height());
         for (int k = 0; k < values.Length(); ++k) values[k] = i.Ptr<uint16_t>()[k];
         return l.ColorMapLUT(values, 6, static_cast<int>(rawRange.first),
                              static_cast<int>(rawRange.second), o);
       }},
      {"scale array",
       {"scale", "--array", "--auto", "--map", "8"},
       true,
       [&](KivLUTSetting& l, KivRangeImage& i, KivColorArray* o) {
         Kiv3DFloatArray values = FloatArrayOf(i);
         LinearColorMapLUT_Para para;
         KivColor under = black, over = white;
         return l.LinearColorMapLUT(values, o, para, under, over, 8, true);
       }},
  };
  for (const DirectCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> args = c.options;
    args.insert(args.begin() + 1, c.floatInput ? Path("f32.pfm") : Path("u16.png"));
    if (!c.floatInput) {
      args.insert(args.end(),
                  {"--resolution-x", "0.5", "--resolution-y", "0.5", "--resolution-z", "0.001"});
    }
    args.insert(args.end(), {"-o", Path("out.png")});
    const ToolRun run = Run(args);
    ASSERT_EQ(run.exitStatus, 0) << run.err;

    KivRangeImage image = (c.floatInput ? f32 : u16).DeepCopy();
    if (!c.floatInput) image.SetResolution(0.5, 0.5, 0.001);
    KivLUTSetting lut;
    KivColorArray colours;
    ASSERT_EQ(c.library(lut, image, &colours), LUT_OK);
    const cv::Mat expected = Picture(colours, width, height);
    const cv::Mat written = cv::imread(Path("out.png"), cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(SameBytes(written, expected));
  }
  EXPECT_TRUE(Leftovers(dir_).empty());
}

TEST_F(KivlutCli, EveryInputFormatGivesTheSamePicture) {
  const KivRangeImage u16 = DepthU16(19, 7, 21);
  WriteFrame(Path("a.png"), u16, kivlut::FrameFormat::kPng);
  WriteFrame(Path("a.tiff"), u16, kivlut::FrameFormat::kTiff);
  WriteFrame(Path("a.raw"), u16, kivlut::FrameFormat::kRaw);
  ASSERT_EQ(Run({"equalize", Path("a.png"), "-o", Path("png.png")}).exitStatus, 0);
  ASSERT_EQ(Run({"equalize", Path("a.tiff"), "-o", Path("tiff.png")}).exitStatus, 0);
  ASSERT_EQ(Run({"equalize", Path("a.raw"), "--raw", "19x7:u16", "-o", Path("raw.png")}).exitStatus,
            0);
  const cv::Mat png = cv::imread(Path("png.png"), cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(png.empty());
  EXPECT_TRUE(SameBytes(png, cv::imread(Path("tiff.png"), cv::IMREAD_UNCHANGED)));
  EXPECT_TRUE(SameBytes(png, cv::imread(Path("raw.png"), cv::IMREAD_UNCHANGED)));

  const KivRangeImage f32 = DepthF32(19, 7, 22);
  WriteFrame(Path("b.pfm"), f32, kivlut::FrameFormat::kPfm);
  WriteFrame(Path("b.tiff"), f32, kivlut::FrameFormat::kTiff);
  ASSERT_EQ(Run({"linear", Path("b.pfm"), "-o", Path("pfm.png")}).exitStatus, 0);
  ASSERT_EQ(Run({"linear", Path("b.tiff"), "-o", Path("ftiff.png")}).exitStatus, 0);
  EXPECT_TRUE(SameBytes(cv::imread(Path("pfm.png"), cv::IMREAD_UNCHANGED),
                        cv::imread(Path("ftiff.png"), cv::IMREAD_UNCHANGED)));
}

TEST_F(KivlutCli, GreyPicturesEqualTheLibrary) {
  std::mt19937 random(5);
  cv::Mat grey8(9, 13, CV_8UC1), grey16(9, 13, CV_16UC1);
  cv::randu(grey8, 0, 256);
  cv::randu(grey16, 0, 4000);
  cv::imwrite(Path("g8.png"), grey8);
  cv::imwrite(Path("g16.png"), grey16);
  const KivColor below(1, 2, 3), above(250, 240, 230);
  const struct {
    std::vector<std::string> options;
    std::function<long(KivLUTSetting&, KivImage&, KivImage*)> library;
  } cases[] = {
      {{"--map", "jet"},
       [](KivLUTSetting& l, KivImage& s, KivImage* d) { return l.LinearSetColorLUT(s, d, 6); }},
      {{"--map", "grey"},
       [](KivLUTSetting& l, KivImage& s, KivImage* d) { return l.LinearSetColorLUT(s, d, 0); }},
      {{"--equalize", "--map", "hot"},
       [](KivLUTSetting& l, KivImage& s, KivImage* d) { return l.SetColorLUT(s, d, 2); }},
      {{"--bounds", "30", "200", "--index", "3", "250", "--below", "1,2,3", "--above",
        "250,240,230"},
       [&](KivLUTSetting& l, KivImage& s, KivImage* d) {
         return l.SetColorLUT(s, d, 1, 30, 200, 3, 250, below, above);
       }},
  };
  for (const char* file : {"g8.png", "g16.png"}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(file) + " " + c.options[0] + " " + c.options[1]);
      std::vector<std::string> args = {"grey", Path(file), "-o", Path("out.png")};
      args.insert(args.end(), c.options.begin(), c.options.end());
      const ToolRun run = Run(args);
      ASSERT_EQ(run.exitStatus, 0) << run.err;
      KivImage source;
      source.Mat() = cv::imread(Path(file), cv::IMREAD_UNCHANGED);
      KivImage expected;
      KivLUTSetting lut;
      ASSERT_EQ(c.library(lut, source, &expected), LUT_OK);
      EXPECT_TRUE(SameBytes(cv::imread(Path("out.png"), cv::IMREAD_UNCHANGED), expected.Mat()));
    }
  }
}

TEST_F(KivlutCli, BlendEqualsTheLibrary) {
  cv::Mat a(6, 11, CV_8UC3), b(6, 11, CV_8UC3);
  cv::randu(a, 0, 256);
  cv::randu(b, 0, 256);
  cv::imwrite(Path("a.png"), a);
  cv::imwrite(Path("b.png"), b);
  const ToolRun run = Run({"blend", Path("a.png"), Path("b.png"), "--alpha", "0.3"});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  KivColorArray first, second, blended;
  first.SetSize(11, 6, 3);
  second.SetSize(11, 6, 3);
  a.copyTo(first.Mat());
  b.copyTo(second.Mat());
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(first, second, 0.3, &blended), LUT_OK);
  // Without -o the picture goes beside the first input as NAME.OPERATION.png.
  EXPECT_TRUE(
      SameBytes(cv::imread(Path("a.blend.png"), cv::IMREAD_UNCHANGED), Picture(blended, 11, 6)));
}

TEST_F(KivlutCli, LegendIsTheLibrarysChart) {
  const KivRangeImage u16 = DepthU16(40, 30, 31);
  WriteFrame(Path("d.png"), u16, kivlut::FrameFormat::kPng);
  const ToolRun run =
      Run({"scale", Path("d.png"), "--auto", "--legend", Path("legend.png"), "--stats"});
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  KivRangeImage image = u16.DeepCopy();
  KivLUTSetting lut;
  KivColorArray colours;
  LinearColorMapLUT_Para para;
  KivColor under(0, 0, 0), over(255, 255, 255);
  KivVarArray extras;
  ASSERT_EQ(lut.ColorMapLUT(image, &colours, para, under, over, 1, true, 0, 0, &extras, nullptr),
            LUT_OK);
  EXPECT_TRUE(
      SameBytes(cv::imread(Path("legend.png"), cv::IMREAD_UNCHANGED), extras[0].ToImage().Mat()));
  EXPECT_TRUE(fs::exists(Path("d.scale.png")));
  // The automatic break values reach --stats.
  LinearColorMapLUT_Para written;
  KivColorArray unused;
  ASSERT_EQ(lut.LinearColorMapLUT(image, &unused, written, under, over, 1, true), LUT_OK);
  std::ostringstream first;
  first << written.value0;
  EXPECT_NE(run.out.find("bounds " + first.str() + " "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("(automatic)"), std::string::npos) << run.out;
}

TEST_F(KivlutCli, StatsReportWhatTheMappingMeasured) {
  KivRangeImage image(4, 2, KIV_DATA_U16);
  const uint16_t pixels[] = {0, 100, 200, 300, 0, 400, 500, 0};
  std::memcpy(image.Data(), pixels, sizeof(pixels));
  WriteFrame(Path("s.png"), image, kivlut::FrameFormat::kPng);
  const ToolRun measured = Run({"linear", Path("s.png"), "--stats", "--resolution-z", "0.5"});
  ASSERT_EQ(measured.exitStatus, 0) << measured.err;
  EXPECT_EQ(measured.out,
            Path("s.png") + ": min 50 max 250 valid 5/8 bounds 50 .. 250 (measured)\n");
  const ToolRun given = Run({"equalize", Path("s.png"), "--stats", "--bounds", "120", "480"});
  ASSERT_EQ(given.exitStatus, 0) << given.err;
  EXPECT_EQ(given.out, Path("s.png") + ": min 100 max 500 valid 5/8 bounds 120 .. 480 (given)\n");
}

TEST_F(KivlutCli, HelpAndBadOptions) {
  const ToolRun help = Run({"--help"});
  EXPECT_EQ(help.exitStatus, 0);
  EXPECT_NE(help.out.find("SYNOPSIS"), std::string::npos);
  const ToolRun bad = Run({"equalize", Path("x.png"), "--map", "purple"});
  EXPECT_EQ(bad.exitStatus, 2);
  EXPECT_EQ(bad.err,
            "kivlut: --map: bad value 'purple' (expected 0..10 or grey, rainbow, hot, diverging, "
            "isoluminant, rgb, jet, viridis, magma, inferno, plasma, cividis, turbo, twilight)\n");
  const ToolRun none = Run({});
  EXPECT_EQ(none.exitStatus, 2);
  EXPECT_NE(none.err.find("no operation given"), std::string::npos);
}

TEST_F(KivlutCli, FailuresNameTheFileAndLeaveNoPicture) {
  const KivRangeImage u16 = DepthU16(8, 6, 41);
  WriteFrame(Path("good.png"), u16, kivlut::FrameFormat::kPng);
  {
    std::ofstream garbage(Path("garbage.png"));
    garbage << "this is not a picture";
  }
  cv::imwrite(Path("colour.png"), cv::Mat(5, 5, CV_8UC3, cv::Scalar(1, 2, 3)));
  const struct {
    std::vector<std::string> args;
    int exitStatus;
    std::string message;
    std::string output;
  } cases[] = {
      {{"equalize", Path("missing.png")},
       1,
       "kivlut: " + Path("missing.png") + ": no such file or folder",
       Path("missing.equalize.png")},
      {{"equalize", Path("garbage.png")},
       1,
       "kivlut: " + Path("garbage.png") + ": ",
       Path("garbage.equalize.png")},
      {{"equalize", Path("colour.png")},
       1,
       "kivlut: " + Path("colour.png") + ": unsupported pixel type: 3 channels",
       Path("colour.equalize.png")},
      {{"linear", Path("good.png"), "--bounds", "5", "1"},
       2,
       "kivlut: --bounds: LOW must be below HIGH, got 5 and 1",
       Path("good.linear.png")},
      {{"equalize", Path("good.png"), "--bounds", "0", "1", "--index", "0", "300"},
       2,
       "kivlut: --index: needs 0 <= LO <= HI <= 255, got 0 and 300",
       Path("good.equalize.png")},
      {{"scale", Path("good.png"), "--values", "5,4,3,2,1"},
       2,
       "kivlut: --values: V0 <= V1 <= V2 <= V3 <= V4 needed",
       Path("good.scale.png")},
      {{"shade", Path("good.png"), "--coefficients", "0,0.3,0.6,0.3"},
       2,
       "kivlut: --coefficients: GAIN must be above 0",
       Path("good.shade.png")},
      {{"grey", Path("colour.png")},
       1,
       "LUT_ERR_IMAGE_CHANNELS (11000005) from LinearSetColorLUT",
       Path("colour.grey.png")},
      {{"blend", Path("good.png"), Path("colour.png")},
       1,
       "blend takes 8-bit pictures",
       Path("good.blend.png")},
      {{"equalize", Path("good.png"), "--raw", "9x6:u16"},
       1,
       "expected 108",
       Path("good.equalize.png")},
      {{"equalize", Path("good.png"), "-o", Path("good.png/x.png")},
       2,
       "kivlut: cannot create the folder " + Path("good.png"),
       Path("good.png/x.png")},
      {{"equalize", Path("good.png"), "-o", Path("x.unknownformat")},
       1,
       "kivlut: " + Path("good.png") + ": " + Path("x.unknownformat") +
           ": cannot write .unknownformat files",
       Path("x.unknownformat")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args[0] + " " + c.args[1]);
    const ToolRun run = Run(c.args);
    EXPECT_EQ(run.exitStatus, c.exitStatus) << run.err;
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    // One line per failure (besides the progress lines, which start with "kivlut: [").
    int problemLines = 0;
    std::istringstream lines(run.err);
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("kivlut: [", 0) != 0) ++problemLines;
    }
    EXPECT_EQ(problemLines, 1) << run.err;
    EXPECT_FALSE(fs::exists(c.output));
  }
  EXPECT_TRUE(Leftovers(dir_).empty());
}

TEST_F(KivlutCli, FolderGoesOnPastBadFiles) {
  fs::create_directories(Path("frames"));
  for (int i = 0; i < 5; ++i) {
    WriteFrame(Path("frames/f" + std::to_string(i) + ".png"), DepthU16(16, 12, 50 + i),
               kivlut::FrameFormat::kPng);
  }
  {
    std::ofstream broken(Path("frames/f2b.tiff"));
    broken << "II*\0 truncated";
  }
  const ToolRun run = Run({"equalize", Path("frames"), "-o", Path("out"), "--map", "jet"});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_NE(run.err.find("kivlut: " + Path("frames/f2b.tiff") + ": "), std::string::npos)
      << run.err;
  for (int i = 0; i < 5; ++i) {
    const std::string name = "f" + std::to_string(i);
    const cv::Mat written = cv::imread(Path("out/" + name + ".equalize.png"), cv::IMREAD_UNCHANGED);
    KivRangeImage image = DepthU16(16, 12, 50 + i);
    KivLUTSetting lut;
    KivColorArray colours;
    ASSERT_EQ(lut.ColorMapLUT(image, 6, &colours), LUT_OK);
    EXPECT_TRUE(SameBytes(written, Picture(colours, 16, 12))) << name;
  }
  EXPECT_FALSE(fs::exists(Path("out/f2b.equalize.png")));
  EXPECT_TRUE(Leftovers(dir_).empty());
}

// Every real frame is coloured by every operation without error.
TEST_F(KivlutCli, SharedDataEveryOperation) {
  const fs::path data = testing_support::SharedDataDir();
  if (data.empty() || !fs::is_directory(data)) {
    GTEST_SKIP() << "the shared data folder is absent: no real frames to colour";
  }
  std::vector<std::string> folders;
  for (const char* sub : {"pcl", "realsense", "tum"}) {
    if (fs::is_directory(data / sub)) folders.push_back((data / sub).string());
  }
  ASSERT_FALSE(folders.empty());
  size_t frames = 0;
  for (const auto& folder : folders) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      frames += kivlut::LooksLikeFrame(entry.path(), false) ? 1 : 0;
    }
  }
  const std::vector<std::vector<std::string>> operations = {
      {"equalize"},
      {"equalize", "--bounds", "1", "2"},
      {"linear"},
      {"linear", "--percentile", "2", "98"},
      {"linear", "--array"},
      {"scale", "--auto"},
      {"scale", "--auto", "--segmented"},
      {"normals"},
      {"shade", "--map", "hot"},
  };
  for (const auto& operation : operations) {
    SCOPED_TRACE(operation[0] + (operation.size() > 1 ? " " + operation[1] : ""));
    std::vector<std::string> args = operation;
    args.insert(args.begin() + 1, folders.begin(), folders.end());
    const std::string out = Path("out_" + std::to_string(&operation - &operations[0]));
    args.insert(args.end(), {"-o", out, "--stats"});
    const ToolRun run = Run(args);
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    size_t written = 0;
    for (const auto& entry : fs::directory_iterator(out)) {
      written += cv::imread(entry.path().string()).empty() ? 0 : 1;
    }
    EXPECT_EQ(written, frames);
  }
  // The 16-bit frames are grey images too.
  for (const auto& folder : folders) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      const cv::Mat pixels = cv::imread(entry.path().string(), cv::IMREAD_UNCHANGED);
      if (pixels.empty() || pixels.depth() != CV_16U) continue;
      for (const std::string mode : {"--equalize", "--map"}) {
        std::vector<std::string> args = {"grey", entry.path().string(), "-o", Path("grey.png"),
                                         mode};
        if (mode == "--map") args.push_back("jet");
        const ToolRun run = Run(args);
        EXPECT_EQ(run.exitStatus, 0) << entry.path() << run.err;
      }
    }
  }
}

// The documentation's pictures are what `kivlut demo` writes. The normal map repeats a missing
// normal in every work chunk, so they are made, and checked, with one chunk.
TEST_F(KivlutCli, DocsPicturesAreWhatTheDemoWrites) {
  const fs::path docs = fs::path(KIVLUT_DOCS_DIR) / "kivlut";
  ASSERT_TRUE(fs::is_directory(docs));
  const ToolRun run = Run({"demo", Path("gallery")}, "KIV_TBB_CHUNKS=1");
  ASSERT_EQ(run.exitStatus, 0) << run.err;
  size_t checked = 0;
  for (const auto& entry : fs::directory_iterator(docs)) {
    SCOPED_TRACE(entry.path().filename().string());
    const fs::path made = dir_ / "gallery" / entry.path().filename();
    ASSERT_TRUE(fs::exists(made));
    const cv::Mat expected = cv::imread(made.string(), cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(expected.empty());
    EXPECT_TRUE(SameBytes(cv::imread(entry.path().string(), cv::IMREAD_UNCHANGED), expected));
    ++checked;
  }
  EXPECT_GE(checked, 9u);
}

}  // namespace
