// kivlut's pictures never mislead: a no-data pixel of the input has the no-data colour in every
// operation and mode, the picture is the same under any worker count, --exact gives
// KivLUTSetting's own bytes, and the rendering options (named tables, reversal, no-data colour,
// transparency, colour bar) give what KivColoring.h and KivColorBar.h give. Runs under 1, 3 and 7
// work chunks; the tests that run the program compare its pictures across chunk counts too.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Kiv3DDataConvert.h"
#include "Kiv3DDataOperation.h"
#include "KivColorBar.h"
#include "KivColorTable.h"
#include "KivColoring.h"
#include "KivLUTSetting.h"
#include "demo_scene.h"
#include "frame_io.h"
#include "operations.h"
#include "options.h"
#include "tools/tool_test_support.h"

namespace kivlut {
namespace {

namespace fs = std::filesystem;
using kivlut_testing::Quote;
using KIVMV::KivColorArray;
using KIVMV::KivColorTable;
using KIVMV::KivLUTSetting;
using KIVMV::KivRangeImage;
using KIVMV::KivRgb;

// Heights of a tilted plane with a bump, noise, a rectangular hole and scattered dropped pixels.
// `hole` is the value of a missing pixel.
template <typename T>
cv::Mat FrameWithHoles(int width, int height, double base, double slope, T hole,
                       unsigned seed = 7) {
  cv::Mat frame(height, width, cv::DataType<T>::type);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> noise(-0.5, 0.5);
  std::uniform_int_distribution<int> drop(0, 19);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double dx = x - width * 0.6;
      const double dy = y - height * 0.4;
      const double bump = 40.0 * std::exp(-(dx * dx + dy * dy) / (0.02 * width * width));
      T value = static_cast<T>(base + slope * (x + 2 * y) + bump * slope + noise(random) * slope);
      const bool inPatch = x > width / 5 && x < width / 3 && y > height / 2 && y < height * 3 / 4;
      if (inPatch || drop(random) == 0) value = hole;
      frame.at<T>(y, x) = value;
    }
  }
  return frame;
}

cv::Mat U16Frame() { return FrameWithHoles<uint16_t>(97, 61, 1000.0, 7.0, uint16_t{0}); }

// Float heights in metres with NaN holes, as a PFM of a stereo camera holds them.
cv::Mat FloatFrame() {
  cv::Mat frame =
      FrameWithHoles<float>(83, 57, 0.9, 0.001, std::numeric_limits<float>::quiet_NaN());
  frame.at<float>(3, 3) = -FLT_MAX;
  frame.at<float>(4, 3) = std::numeric_limits<float>::infinity();
  return frame;
}

// 255 where the platform's validity rule calls the pixel no-data.
cv::Mat NoDataMask(const cv::Mat& pixels) {
  cv::Mat mask(pixels.rows, pixels.cols, CV_8UC1, cv::Scalar(0));
  for (int y = 0; y < pixels.rows; ++y) {
    for (int x = 0; x < pixels.cols; ++x) {
      bool missing = false;
      if (pixels.depth() == CV_16U) {
        missing = pixels.at<uint16_t>(y, x) == 0;
      } else if (pixels.depth() == CV_32F) {
        const float v = pixels.at<float>(y, x);
        missing = !std::isfinite(v) || v == -FLT_MAX;
      }
      mask.at<uint8_t>(y, x) = missing ? 255 : 0;
    }
  }
  return mask;
}

Options Base(Operation operation, int mapType = 1) {
  Options o;
  o.operation = operation;
  o.mapType = mapType;
  return o;
}

OperationResult Picture(const Options& o, const cv::Mat& pixels) {
  OperationResult result = RunOperation(o, {pixels});
  EXPECT_TRUE(result.ok) << result.error;
  return result;
}

// Every pixel of `mask` has `colour` (and alpha 0 in a four-channel picture); counts the others.
int WrongNoDataPixels(const cv::Mat& picture, const cv::Mat& mask, KivRgb colour) {
  int wrong = 0;
  for (int y = 0; y < mask.rows; ++y) {
    for (int x = 0; x < mask.cols; ++x) {
      if (mask.at<uint8_t>(y, x) == 0) continue;
      const uint8_t* p = picture.ptr<uint8_t>(y) + x * picture.channels();
      const bool alphaOk = picture.channels() != 4 || p[3] == 0;
      if (p[0] != colour.b || p[1] != colour.g || p[2] != colour.r || !alphaOk) ++wrong;
    }
  }
  return wrong;
}

bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

cv::Mat PictureOf(const KivColorArray& colours, int width, int height) {
  return cv::Mat(height, width, CV_8UC(colours.Channel()), const_cast<uint8_t*>(colours.Data()))
      .clone();
}

KivRangeImage RangeImageOf(const cv::Mat& pixels, const Axes& axes = Axes()) {
  std::string error;
  auto image = ToRangeImage(pixels, axes, &error);
  EXPECT_TRUE(image.has_value()) << error;
  return image ? *image : KivRangeImage();
}

struct ModeCase {
  const char* name;
  std::function<void(Options&)> set;
};

const std::vector<ModeCase>& RangeModes() {
  static const std::vector<ModeCase> modes = {
      {"equalize", [](Options& o) { o.operation = Operation::kEqualize; }},
      {"equalize --bounds",
       [](Options& o) {
         o.operation = Operation::kEqualize;
         o.bounds = std::make_pair(1.0, 2.0);
       }},
      {"equalize --bounds --index",
       [](Options& o) {
         o.operation = Operation::kEqualize;
         o.bounds = std::make_pair(1.0, 2.0);
         o.indexRange = std::make_pair(20, 200);
       }},
      {"equalize --array",
       [](Options& o) { o.operation = Operation::kEqualize, o.asArray = true; }},
      {"linear", [](Options& o) { o.operation = Operation::kLinear; }},
      {"linear --bounds",
       [](Options& o) {
         o.operation = Operation::kLinear;
         o.bounds = std::make_pair(1.0, 2.0);
       }},
      {"linear --percentile",
       [](Options& o) {
         o.operation = Operation::kLinear;
         o.percentile = std::make_pair(2.0, 98.0);
       }},
      {"linear --array", [](Options& o) { o.operation = Operation::kLinear, o.asArray = true; }},
      {"scale --auto",
       [](Options& o) {
         o.operation = Operation::kScale;
         o.automatic = true;
       }},
      {"scale --auto --segmented",
       [](Options& o) {
         o.operation = Operation::kScale;
         o.automatic = true;
         o.segmented = true;
       }},
      {"normals", [](Options& o) { o.operation = Operation::kNormals; }},
      {"shade", [](Options& o) { o.operation = Operation::kShade; }},
  };
  return modes;
}

// The scene's heights in physical units: u16 raw values x 0.001 (about 1 to 2), float metres.
Axes MillimetreAxes() {
  Axes axes;
  axes.resolution = {0.5, 0.5, 0.001};
  return axes;
}

TEST(KivlutPictures, NoDataHasTheNoDataColourInEveryOperationAndMode) {
  const cv::Mat frames[] = {U16Frame(), FloatFrame()};
  for (const cv::Mat& pixels : frames) {
    const cv::Mat mask = NoDataMask(pixels);
    ASSERT_GT(cv::countNonZero(mask), 50);
    for (int mapType : {1, 2}) {
      for (const ModeCase& mode : RangeModes()) {
        Options o = Base(Operation::kEqualize, mapType);
        o.axes = MillimetreAxes();
        mode.set(o);
        if (pixels.depth() == CV_32F) {
          o.axes.resolution[2] = 1.0;  // the float frame is in metres already
          if (o.bounds) o.bounds = std::make_pair(0.95, 1.2);
        }
        const OperationResult result = Picture(o, pixels);
        if (!result.ok) continue;
        const KivRgb expected = o.operation == Operation::kNormals
                                    ? KivRgb{0, 0, 0}
                                    : KivColorTable::Described(mapType).NoDataColor();
        EXPECT_EQ(WrongNoDataPixels(result.picture, mask, expected), 0)
            << mode.name << ", map " << mapType << ", depth " << pixels.depth();
        // A chosen no-data colour reaches every mode as well.
        o.invalid = Rgb{12, 200, 34};
        const OperationResult chosen = Picture(o, pixels);
        if (!chosen.ok) continue;
        EXPECT_EQ(WrongNoDataPixels(chosen.picture, mask, KivRgb{12, 200, 34}), 0)
            << mode.name << " --invalid, map " << mapType << ", depth " << pixels.depth();
      }
    }
  }
}

TEST(KivlutPictures, ExactGivesKivLUTSettingsBytes) {
  const cv::Mat pixels = U16Frame();
  KivRangeImage image = RangeImageOf(pixels, MillimetreAxes());
  KivLUTSetting lut;
  const int w = pixels.cols;
  const int h = pixels.rows;

  Options o = Base(Operation::kNormals);
  o.axes = MillimetreAxes();
  o.exact = true;
  KivColorArray expected;
  ASSERT_EQ(lut.SetColorNormalMapPhong(image, &expected), KIVMV::LUT_OK);
  EXPECT_TRUE(SameBytes(Picture(o, pixels).picture, PictureOf(expected, w, h))) << "normals";

  o = Base(Operation::kLinear, 6);
  o.axes = MillimetreAxes();
  o.exact = true;
  o.percentile = std::make_pair(5.0, 95.0);
  KivRangeImage heights;
  KIVMV::Kiv3DDataConvert convert;
  ASSERT_EQ(convert.RangeImageDataTypeConvert(image, &heights, KIVMV::KIV_DATA_F32), 0);
  ASSERT_EQ(lut.LinearColorMapLUT(heights, &expected, 6, 0.05, 0.05), KIVMV::LUT_OK);
  EXPECT_TRUE(SameBytes(Picture(o, pixels).picture, PictureOf(expected, w, h))) << "percentile";

  o = Base(Operation::kEqualize, 3);
  o.axes = MillimetreAxes();
  o.exact = true;
  o.asArray = true;
  KIVMV::Kiv3DFloatArray values(w * h);
  std::memcpy(values.Data(), heights.Data(), sizeof(float) * w * h);
  double low = 0.0;
  double high = 0.0;
  cv::Mat asDouble;
  pixels.convertTo(asDouble, CV_64F, 0.001);
  cv::minMaxLoc(asDouble, &low, &high, nullptr, nullptr, pixels != 0);
  ASSERT_EQ(
      lut.SetColorLUT(values, static_cast<float>(low), static_cast<float>(high), 3, &expected),
      KIVMV::LUT_OK);
  EXPECT_TRUE(SameBytes(Picture(o, pixels).picture, PictureOf(expected, w, h)))
      << "equalize --array";

  o = Base(Operation::kShade, 1);
  o.axes = MillimetreAxes();
  o.exact = true;
  o.light = std::array<float, 3>{0.0f, 0.0f, 80.0f};
  o.eye = std::array<float, 3>{24.0f, 15.0f, 160.0f};
  KIVMV::KivVector3d light(0.0f, 0.0f, 80.0f);
  KIVMV::KivVector3d eye(24.0f, 15.0f, 160.0f);
  ASSERT_EQ(lut.SetColorNormalMap(image, light, eye, 1, 1.0f, 0.3f, 0.6f, 0.3f, &expected),
            KIVMV::LUT_OK);
  EXPECT_TRUE(SameBytes(Picture(o, pixels).picture, PictureOf(expected, w, h))) << "shade";
}

TEST(KivlutPictures, OutsideExactOnlyTheNoDataPixelsDifferFromKivLUTSetting) {
  const cv::Mat pixels = U16Frame();
  const cv::Mat mask = NoDataMask(pixels);
  KivRangeImage image = RangeImageOf(pixels, MillimetreAxes());
  KivLUTSetting lut;
  KivColorArray expected;

  // Where KivLUTSetting paints no-data correctly, nothing changes at all.
  Options o = Base(Operation::kEqualize, 4);
  o.axes = MillimetreAxes();
  ASSERT_EQ(lut.ColorMapLUT(image, 4, &expected), KIVMV::LUT_OK);
  EXPECT_TRUE(SameBytes(Picture(o, pixels).picture, PictureOf(expected, pixels.cols, pixels.rows)));
  o.operation = Operation::kLinear;
  o.bounds = std::make_pair(1.2, 1.9);
  ASSERT_EQ(lut.LinearColorMapLUT(image, 4, 1.2, 1.9, &expected), KIVMV::LUT_OK);
  EXPECT_TRUE(SameBytes(Picture(o, pixels).picture, PictureOf(expected, pixels.cols, pixels.rows)));

  // Phong lighting shades no-data (hot metal's is white); the valid pixels keep its colours.
  o = Base(Operation::kShade, 2);
  o.axes = MillimetreAxes();
  o.light = std::array<float, 3>{0.0f, 0.0f, 80.0f};
  o.eye = std::array<float, 3>{24.0f, 15.0f, 160.0f};
  KIVMV::KivVector3d light(0.0f, 0.0f, 80.0f);
  KIVMV::KivVector3d eye(24.0f, 15.0f, 160.0f);
  ASSERT_EQ(lut.SetColorNormalMap(image, light, eye, 2, 1.0f, 0.3f, 0.6f, 0.3f, &expected),
            KIVMV::LUT_OK);
  const cv::Mat shaded = Picture(o, pixels).picture;
  const cv::Mat library = PictureOf(expected, pixels.cols, pixels.rows);
  cv::Mat differs;
  cv::compare(shaded.reshape(1, pixels.rows * pixels.cols),
              library.reshape(1, pixels.rows * pixels.cols), differs, cv::CMP_NE);
  cv::Mat differsPerPixel;
  cv::reduce(differs, differsPerPixel, 1, cv::REDUCE_MAX);
  EXPECT_EQ(cv::countNonZero(differsPerPixel & ~mask.reshape(1, pixels.rows * pixels.cols)), 0);
  EXPECT_GT(cv::countNonZero(differsPerPixel), 0) << "KivLUTSetting's lighting shades no-data";
}

// KivLUTSetting's byte rule of the normal map, written out: trunc((v / 2 + 1/2) 255), low 8 bits.
uint8_t NormalByte(float v) {
  return static_cast<uint8_t>(static_cast<int64_t>((v * 0.5 + 0.5) * 255.0) & 0xFF);
}

TEST(KivlutPictures, NormalMapHasNoChunkBands) {
  const cv::Mat pixels = U16Frame();
  const cv::Mat mask = NoDataMask(pixels);
  KivRangeImage image = RangeImageOf(pixels, MillimetreAxes());
  KIVMV::Kiv3DDataOperation operation;
  KIVMV::KivVector3dArray normals;
  ASSERT_EQ(operation.ComputeNormals(image, &normals, nullptr), 0);
  Options o = Base(Operation::kNormals);
  o.axes = MillimetreAxes();
  const cv::Mat picture = Picture(o, pixels).picture;
  const float* n = reinterpret_cast<const float*>(normals.Data());
  int coloured = 0;
  for (int i = 0; i < pixels.rows * pixels.cols; ++i) {
    const float x = n[3 * i];
    const float y = n[3 * i + 1];
    const float z = n[3 * i + 2];
    const uint8_t* p = picture.data + 3 * i;
    const bool missing = !(std::isfinite(x) && std::isfinite(y) && std::isfinite(z)) ||
                         (x == 0.0f && y == 0.0f && z == 0.0f);
    if (missing || mask.data[i] != 0) {
      EXPECT_TRUE(p[0] == 0 && p[1] == 0 && p[2] == 0) << "entry " << i;
      continue;
    }
    ++coloured;
    ASSERT_TRUE(p[0] == NormalByte(z) && p[1] == NormalByte(y) && p[2] == NormalByte(x))
        << "entry " << i << " of " << pixels.rows * pixels.cols;
  }
  EXPECT_GT(coloured, pixels.rows * pixels.cols / 2);
}

TEST(KivlutPictures, PercentileBoundsKeepNoDataAndFollowKivColoring) {
  const cv::Mat pixels = U16Frame();
  Options o = Base(Operation::kLinear, 6);
  o.axes = MillimetreAxes();
  o.percentile = std::make_pair(2.0, 98.0);
  const OperationResult result = Picture(o, pixels);
  KivRangeImage image = RangeImageOf(pixels, MillimetreAxes());
  KIVMV::KivColoringOptions co;
  co.bounds = KIVMV::KivBoundsSource::kPercentile;
  co.lowPercentile = 2.0;
  co.highPercentile = 98.0;
  KivColorArray expected;
  KIVMV::KivColoringInfo info;
  ASSERT_EQ(KIVMV::KivColorRangeImage(image, KivColorTable::Described(6), co, &expected, &info), 0);
  EXPECT_TRUE(SameBytes(result.picture, PictureOf(expected, pixels.cols, pixels.rows)));
  EXPECT_EQ(result.stats.low, info.low);
  EXPECT_EQ(result.stats.high, info.high);
  EXPECT_EQ(result.stats.valid, pixels.rows * pixels.cols - cv::countNonZero(NoDataMask(pixels)));
  EXPECT_LT(result.stats.minimum, result.stats.low);
  EXPECT_GT(result.stats.maximum, result.stats.high);
}

TEST(KivlutPictures, FloatHeightsWithAZScaleUseOneUnitForStatsAndBounds) {
  // A PFM of raw values about 900..1300 that --resolution-z 0.001 makes 0.9..1.3.
  cv::Mat raw = FloatFrame() * 1000.0;
  Axes physicalAxes;
  cv::Mat physical = FloatFrame();
  physical.setTo(std::numeric_limits<float>::quiet_NaN(), NoDataMask(raw));
  for (bool exact : {false, true}) {
    Options o = Base(Operation::kLinear, 6);
    o.axes.resolution[2] = 0.001;
    o.bounds = std::make_pair(0.95, 1.1);
    o.exact = exact;
    const OperationResult scaled = Picture(o, raw);
    EXPECT_EQ(scaled.stats.low, 0.95);
    EXPECT_EQ(scaled.stats.high, 1.1);
    EXPECT_GT(scaled.stats.minimum, 0.85);
    EXPECT_LT(scaled.stats.maximum, 1.5);
    EXPECT_LT(scaled.stats.minimum, 0.95);
    // The same picture as the heights stored in metres with the same bounds.
    Options plain = o;
    plain.axes = physicalAxes;
    const OperationResult reference = Picture(plain, physical);
    cv::Mat differs;
    cv::absdiff(scaled.picture, reference.picture, differs);
    // Raw x 0.001 and metres can differ in the last float bit; a pixel then moves one entry.
    EXPECT_LE(cv::norm(differs, cv::NORM_INF), 8.0) << (exact ? "exact" : "");
    std::set<int> colours;
    for (int i = 0; i < scaled.picture.rows * scaled.picture.cols; ++i) {
      const uint8_t* p = scaled.picture.data + 3 * i;
      colours.insert(p[0] << 16 | p[1] << 8 | p[2]);
    }
    EXPECT_GT(colours.size(), 50u) << "bounds and heights in one unit spread the colours";
  }
}

TEST(KivlutPictures, NamedTablesReversalAndNoDataColourFollowKivColoring) {
  const cv::Mat pixels = U16Frame();
  KivRangeImage image = RangeImageOf(pixels, MillimetreAxes());
  struct Case {
    Operation operation;
    const char* table;
    bool reverse;
    std::optional<Rgb> invalid;
    bool percentile;
  };
  const Case cases[] = {{Operation::kEqualize, "viridis", false, std::nullopt, false},
                        {Operation::kLinear, "turbo", true, std::nullopt, false},
                        {Operation::kLinear, "magma", false, Rgb{255, 0, 255}, true},
                        {Operation::kEqualize, "", true, Rgb{1, 2, 3}, false},
                        {Operation::kLinear, "twilight", false, std::nullopt, true}};
  for (const Case& c : cases) {
    Options o = Base(c.operation, 6);
    o.axes = MillimetreAxes();
    o.tableName = c.table;
    o.reverse = c.reverse;
    o.invalid = c.invalid;
    if (c.percentile) o.percentile = std::make_pair(1.0, 99.0);
    const OperationResult result = Picture(o, pixels);
    KivColorTable table = KivColorTable::Described(6);
    if (*c.table != '\0') {
      ASSERT_EQ(KivColorTable::ByName(c.table, &table), 0);
    }
    if (c.reverse) table = table.Reversed();
    KIVMV::KivColoringOptions co;
    co.mode = c.operation == Operation::kEqualize ? KIVMV::KivColoringMode::kEqualised
                                                  : KIVMV::KivColoringMode::kLinear;
    if (c.percentile) {
      co.bounds = KIVMV::KivBoundsSource::kPercentile;
      co.lowPercentile = 1.0;
      co.highPercentile = 99.0;
    }
    if (c.invalid) {
      co.noDataColor =
          KivRgb{uint8_t(c.invalid->red), uint8_t(c.invalid->green), uint8_t(c.invalid->blue)};
    }
    KivColorArray expected;
    ASSERT_EQ(KIVMV::KivColorRangeImage(image, table, co, &expected), 0);
    EXPECT_TRUE(SameBytes(result.picture, PictureOf(expected, pixels.cols, pixels.rows)))
        << c.table;
    const KivRgb noData = co.noDataColor.value_or(table.NoDataColor());
    EXPECT_EQ(WrongNoDataPixels(result.picture, NoDataMask(pixels), noData), 0) << c.table;
  }
}

TEST(KivlutPictures, TransparentPictureHasAlphaZeroExactlyOnNoData) {
  const cv::Mat pixels = U16Frame();
  const cv::Mat mask = NoDataMask(pixels);
  for (bool asArray : {false, true}) {
    Options o = Base(Operation::kEqualize, 1);
    o.axes = MillimetreAxes();
    o.tableName = "viridis";
    o.asArray = asArray;
    const cv::Mat opaque = Picture(o, pixels).picture;
    o.transparent = true;
    const cv::Mat picture = Picture(o, pixels).picture;
    ASSERT_EQ(picture.type(), CV_8UC4);
    std::vector<cv::Mat> planes;
    cv::split(picture, planes);
    cv::Mat expectedAlpha;
    cv::bitwise_not(mask, expectedAlpha);
    EXPECT_EQ(cv::norm(planes[3], expectedAlpha, cv::NORM_INF), 0.0);
    cv::Mat colours;
    cv::cvtColor(picture, colours, cv::COLOR_BGRA2BGR);
    EXPECT_TRUE(SameBytes(colours, opaque)) << "the colours are those of the opaque picture";

    // The PNG written keeps the four channels.
    const fs::path file =
        fs::temp_directory_path() / ("kivlut_pictures_" + std::to_string(::getpid()) + ".png");
    std::string error;
    ASSERT_TRUE(WritePictureAtomically(file, picture, &error)) << error;
    const cv::Mat back = cv::imread(file.string(), cv::IMREAD_UNCHANGED);
    fs::remove(file);
    EXPECT_TRUE(SameBytes(back, picture));
  }
}

TEST(KivlutPictures, ColourBarIsKivColorBarsBesideThePicture) {
  const cv::Mat pixels = U16Frame();
  KivRangeImage image = RangeImageOf(pixels, MillimetreAxes());
  for (bool percentile : {false, true}) {
    Options o = Base(Operation::kLinear, 1);
    o.axes = MillimetreAxes();
    o.tableName = "turbo";
    o.colorbar = true;
    o.unit = "mm";
    if (percentile) o.percentile = std::make_pair(2.0, 98.0);
    const OperationResult result = Picture(o, pixels);
    EXPECT_GT(result.picture.cols, pixels.cols);
    EXPECT_GE(result.picture.rows, pixels.rows);
    EXPECT_EQ(result.picture.type(), CV_8UC3);

    o.colorbar = false;
    const cv::Mat bare = Picture(o, pixels).picture;
    KivColorTable turbo;
    ASSERT_EQ(KivColorTable::ByName("turbo", &turbo), 0);
    KIVMV::KivColoringOptions co;
    if (percentile) {
      co.bounds = KIVMV::KivBoundsSource::kPercentile;
      co.lowPercentile = 2.0;
      co.highPercentile = 98.0;
    }
    KivColorArray colours;
    KIVMV::KivColoringInfo info;
    ASSERT_EQ(KIVMV::KivColorRangeImage(image, turbo, co, &colours, &info), 0);
    KIVMV::KivColorBarOptions bar;
    bar.unit = "mm";
    bar.endCaps = percentile;
    bar.length = std::clamp(pixels.rows * 3 / 4, 64, 2048);
    cv::Mat drawn;
    ASSERT_EQ(KIVMV::KivDrawColorBar(turbo, info, bar, &drawn), 0);
    cv::Mat expected;
    ASSERT_EQ(KIVMV::KivAttachColorBar(bare, drawn, bar, &expected), 0);
    EXPECT_TRUE(SameBytes(result.picture, expected)) << (percentile ? "percentile" : "measured");
    EXPECT_TRUE(result.picture.cols >= bare.cols + drawn.cols);
  }
}

TEST(KivlutPictures, StatsComeFromTheColouring) {
  const cv::Mat pixels = U16Frame();
  const long long valid = pixels.rows * pixels.cols - cv::countNonZero(NoDataMask(pixels));
  for (const ModeCase& mode : RangeModes()) {
    Options o = Base(Operation::kEqualize, 1);
    o.axes = MillimetreAxes();
    mode.set(o);
    const OperationResult result = Picture(o, pixels);
    EXPECT_EQ(result.stats.valid, valid) << mode.name;
    EXPECT_EQ(result.stats.total, pixels.rows * pixels.cols) << mode.name;
    const bool bounded = o.operation == Operation::kEqualize || o.operation == Operation::kLinear;
    if (bounded) {
      EXPECT_TRUE(std::isfinite(result.stats.low) && std::isfinite(result.stats.high)) << mode.name;
      EXPECT_LE(result.stats.low, result.stats.high) << mode.name;
    }
    if (o.operation == Operation::kNormals || o.operation == Operation::kShade) {
      EXPECT_TRUE(std::isnan(result.stats.low)) << mode.name;
    }
  }
}

TEST(KivlutPictures, OptionsKivLUTSettingCannotHonourAreRefusedWithASentence) {
  const cv::Mat pixels = U16Frame();
  Options o = Base(Operation::kEqualize, 1);
  o.exact = true;
  o.tableName = "viridis";
  OperationResult result = RunOperation(o, {pixels});
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.error.find("--exact"), std::string::npos) << result.error;
  o = Base(Operation::kShade, 1);
  o.tableName = "turbo";
  result = RunOperation(o, {pixels});
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.error.find("shade"), std::string::npos) << result.error;
  o = Base(Operation::kLinear, 1);
  o.bounds = std::make_pair(1.0, 2.0);
  o.indexRange = std::make_pair(0, 100);
  o.colorbar = true;
  result = RunOperation(o, {pixels});
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.error.find("--index"), std::string::npos) << result.error;
  // A frame of holes only has no scale for a bar.
  o = Base(Operation::kLinear, 1);
  o.colorbar = true;
  result = RunOperation(o, {cv::Mat(8, 8, CV_16UC1, cv::Scalar(0))});
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.error.find("no valid height"), std::string::npos) << result.error;
}

// The program itself: the same picture under 1, 3 and 7 workers, no-data in the no-data colour.
class KivlutProgramPictures : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = fs::temp_directory_path() /
           ("kivlut_pictures_" + std::string(info->name()) + "_" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  // Exit status; standard output in `out`.
  int Run(const std::vector<std::string>& args, const std::string& environment,
          std::string* out = nullptr) {
    const kivlut_testing::ToolRun run =
        kivlut_testing::RunTool(kivlut_testing::ToolUnderTest(), args, environment, dir_);
    if (out != nullptr) *out = run.out;
    return run.exitStatus;
  }

  fs::path dir_;
};

TEST_F(KivlutProgramPictures, PicturesDoNotDependOnTheWorkerCount) {
  const fs::path frame = dir_ / "frame.png";
  ASSERT_TRUE(cv::imwrite(frame.string(), U16Frame()));
  const cv::Mat mask = NoDataMask(U16Frame());
  const std::vector<std::vector<std::string>> commands = {{"normals"},
                                                          {"linear", "--percentile", "2", "98"},
                                                          {"equalize", "--array"},
                                                          {"shade", "--map", "jet"},
                                                          {"linear", "--array", "--map", "hot"}};
  for (const auto& words : commands) {
    std::vector<cv::Mat> pictures;
    for (int chunks : {1, 3, 7}) {
      std::vector<std::string> args = words;
      const fs::path output = dir_ / ("out" + std::to_string(chunks) + ".png");
      args.insert(args.begin() + 1, frame.string());
      args.insert(args.end(), {"--resolution-x", "0.5", "--resolution-y", "0.5", "--resolution-z",
                               "0.001", "-o", output.string()});
      ASSERT_EQ(Run(args, "KIV_TBB_CHUNKS=" + std::to_string(chunks)), 0) << words[0];
      pictures.push_back(cv::imread(output.string(), cv::IMREAD_UNCHANGED));
      ASSERT_FALSE(pictures.back().empty());
    }
    EXPECT_TRUE(SameBytes(pictures[0], pictures[1])) << words[0] << " " << words.size();
    EXPECT_TRUE(SameBytes(pictures[0], pictures[2])) << words[0] << " " << words.size();
    const bool hot = words.back() == "hot";
    const KivRgb noData = words[0] == "normals" ? KivRgb{0, 0, 0}
                          : hot                 ? KivColorTable::Described(2).NoDataColor()
                          : words[0] == "shade" ? KivColorTable::Described(6).NoDataColor()
                                                : KivColorTable::Described(1).NoDataColor();
    EXPECT_EQ(WrongNoDataPixels(pictures[0], mask, noData), 0) << words[0];
  }
}

TEST_F(KivlutProgramPictures, PfmStatsAndBoundsShareOneUnit) {
  const fs::path pfm = dir_ / "heights.pfm";
  cv::Mat raw = FloatFrame() * 1000.0;
  ASSERT_TRUE(cv::imwrite(pfm.string(), raw));
  for (const char* exact : {"", "--exact"}) {
    std::vector<std::string> args = {
        "linear", pfm.string(), "--resolution-z", "0.001", "--bounds",
        "0.8",    "1.2",        "--stats",        "-o",    (dir_ / "out.png").string()};
    if (*exact != '\0') args.push_back(exact);
    std::string out;
    const int status = Run(args, "", &out);
    if (*exact != '\0' && status == 2) {
      GTEST_SKIP() << "this build's command line has no --exact yet";
    }
    ASSERT_EQ(status, 0) << out;
    // The frame lies between about 0.9 and 1.3 in the physical unit; the bounds are as given.
    const size_t min = out.find("min ");
    ASSERT_NE(min, std::string::npos) << out;
    const double minimum = std::stod(out.substr(min + 4));
    EXPECT_GT(minimum, 0.85) << out;
    EXPECT_LT(minimum, 0.95) << out;
    EXPECT_NE(out.find("bounds 0.8 .. 1.2"), std::string::npos) << out;
    const cv::Mat picture = cv::imread((dir_ / "out.png").string(), cv::IMREAD_UNCHANGED);
    std::set<int> colours;
    for (int i = 0; i < picture.rows * picture.cols; ++i) {
      const uint8_t* p = picture.data + 3 * i;
      colours.insert(p[0] << 16 | p[1] << 8 | p[2]);
    }
    EXPECT_GT(colours.size(), 50u) << out;
  }
}

// The real frames, when the shared data folder is there.
TEST(KivlutPictures, RealFramesKeepNoDataInEveryMode) {
  const fs::path data = KIVLUT_SHARED_DATA_DIR;
  const std::vector<std::pair<fs::path, double>> frames = {
      {data / "realsense" / "depth_frame0_mm.png", 1.0},
      {data / "tum" / "TUM_depth.png", 0.2},
      {data / "pcl" / "table_scene_mug_stereo_textured_z.pfm", 1.0}};
  int tried = 0;
  for (const auto& [file, resolution] : frames) {
    if (!fs::exists(file)) continue;
    const ReadResult read = ReadPixels(file, std::nullopt);
    ASSERT_FALSE(read.pixels.empty()) << file << ": " << read.error;
    const cv::Mat mask = NoDataMask(read.pixels);
    ++tried;
    for (const ModeCase& mode : RangeModes()) {
      if (std::string(mode.name).find("--bounds") != std::string::npos) continue;
      Options o = Base(Operation::kEqualize, 1);
      o.axes.resolution[2] = resolution;
      mode.set(o);
      const OperationResult result = Picture(o, read.pixels);
      if (!result.ok) continue;
      const KivRgb noData = o.operation == Operation::kNormals
                                ? KivRgb{0, 0, 0}
                                : KivColorTable::Described(1).NoDataColor();
      EXPECT_EQ(WrongNoDataPixels(result.picture, mask, noData), 0) << file << " " << mode.name;
    }
  }
  if (tried == 0) GTEST_SKIP() << "no real frames in " << data;
}

}  // namespace
}  // namespace kivlut

namespace kivlut {
namespace {

// The demo's pictures under the published maps, as their options ask, on the demo's own scene.
TEST(KivlutPictures, DemoSceneRendersUnderTheNewMapsAndWithAColourBar) {
  const KivRangeImage scene = MakeMachinedPartsScene();
  const cv::Mat pixels = scene.Mat();
  const cv::Mat mask = NoDataMask(pixels);
  ASSERT_GT(cv::countNonZero(mask), 0) << "the drilled hole is no-data";
  struct Case {
    Operation operation;
    const char* table;
    bool reverse;
    bool percentile;
    bool colorbar;
  };
  const Case cases[] = {{Operation::kEqualize, "viridis", false, false, false},
                        {Operation::kLinear, "turbo", false, false, false},
                        {Operation::kLinear, "magma", true, true, false},
                        {Operation::kEqualize, "turbo", false, false, true}};
  for (const Case& c : cases) {
    Options o = Base(c.operation, 1);
    o.axes.resolution = {0.1, 0.1, 0.001};
    o.tableName = c.table;
    o.reverse = c.reverse;
    o.colorbar = c.colorbar;
    o.unit = "mm";
    if (c.percentile) o.percentile = std::make_pair(2.0, 98.0);
    const OperationResult result = Picture(o, pixels);
    ASSERT_TRUE(result.ok) << c.table;
    if (c.colorbar) {
      EXPECT_GT(result.picture.cols, pixels.cols) << c.table;
    } else {
      EXPECT_EQ(result.picture.size(), pixels.size()) << c.table;
      EXPECT_EQ(WrongNoDataPixels(result.picture, mask, KIVMV::kKivNeutralNoData), 0) << c.table;
    }
  }
}

}  // namespace
}  // namespace kivlut
