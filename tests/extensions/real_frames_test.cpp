// The colourings with options and the colour bars on the real sensor frames of the shared data
// folder: large holes, 16-bit and float pixels, heights far from a synthetic distribution.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "KivColorBar.h"
#include "KivColorTable.h"
#include "KivColoring.h"
#include "KivLUTSetting.h"
#include "common/pixel_rules.h"
#include "range/range_test_support.h"

namespace KIVMV {
namespace {

using testing_support::LoadRealFrames;
using testing_support::RealFrame;
using testing_support::ReferenceIsValid;

constexpr const char* kNoFolder = "no shared data folder: the real range images are skipped";

// Whether each pixel is data, in the order of the colours (row by row).
std::vector<bool> ValidMask(const KivRangeImage& image) {
  std::vector<bool> valid;
  valid.reserve(static_cast<size_t>(image.Width()) * image.Height());
  VisitPixelType(image.DataType(), [&](auto tag) {
    using T = typename decltype(tag)::type;
    for (int y = 0; y < image.Height(); ++y) {
      for (int x = 0; x < image.Width(); ++x)
        valid.push_back(ReferenceIsValid(image.Mat().at<T>(y, x)));
    }
  });
  return valid;
}

// The heights of the valid pixels in the units KivLUTSetting takes bounds in, sorted: raw values
// through ResolutionZ and OffsetZ for integer pixels, the values themselves for float ones.
std::vector<double> SortedHeights(const KivRangeImage& image) {
  std::vector<double> heights;
  VisitPixelType(image.DataType(), [&](auto tag) {
    using T = typename decltype(tag)::type;
    for (int y = 0; y < image.Height(); ++y) {
      for (int x = 0; x < image.Width(); ++x) {
        const T v = image.Mat().at<T>(y, x);
        if (!ReferenceIsValid(v)) continue;
        if constexpr (std::is_integral_v<T>) {
          heights.push_back((static_cast<double>(v) - image.OffsetZ()) * image.ResolutionZ());
        } else {
          heights.push_back(static_cast<double>(v) - image.OffsetZ());
        }
      }
    }
  });
  std::sort(heights.begin(), heights.end());
  return heights;
}

std::vector<uint8_t> Bytes(const KivColorArray& a) {
  const size_t size = static_cast<size_t>(a.Length()) * a.Channel();
  return std::vector<uint8_t>(a.Data(), a.Data() + size);
}

KivColoringOptions Options(KivColoringMode mode, KivBoundsSource bounds) {
  KivColoringOptions options;
  options.mode = mode;
  options.bounds = bounds;
  return options;
}

TEST(RealFrames, KivLUTSettingTablesGiveKivLUTSettingBytes) {
  std::vector<RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << kNoFolder;
  KivLUTSetting lut;
  for (RealFrame& frame : frames) {
    const std::vector<double> heights = SortedHeights(frame.image);
    ASSERT_GE(heights.size(), 10u) << frame.name;
    // The 10th and 90th percentile: bounds inside the data, so some heights lie beyond them.
    const double low = heights[heights.size() / 10];
    const double high = heights[heights.size() * 9 / 10];
    ASSERT_LT(low, high) << frame.name;
    KivColoringOptions given[] = {Options(KivColoringMode::kEqualised, KivBoundsSource::kGiven),
                                  Options(KivColoringMode::kLinear, KivBoundsSource::kGiven)};
    for (KivColoringOptions& options : given) {
      options.low = low;
      options.high = high;
    }
    for (int map = 0; map <= 6; ++map) {
      SCOPED_TRACE(::testing::Message() << frame.name << " map " << map);
      const KivColorTable table = KivColorTable::Described(map);
      KivColorArray expected[4];
      ASSERT_EQ(lut.ColorMapLUT(frame.image, map, &expected[0]), LUT_OK);
      ASSERT_EQ(lut.ColorMapLUT(frame.image, map, low, high, &expected[1]), LUT_OK);
      ASSERT_EQ(lut.LinearColorMapLUT(frame.image, map, &expected[2]), LUT_OK);
      ASSERT_EQ(lut.LinearColorMapLUT(frame.image, map, low, high, &expected[3]), LUT_OK);
      const KivColoringOptions options[4] = {
          Options(KivColoringMode::kEqualised, KivBoundsSource::kMeasured), given[0],
          Options(KivColoringMode::kLinear, KivBoundsSource::kMeasured), given[1]};
      for (int form = 0; form < 4; ++form) {
        KivColorArray actual;
        ASSERT_EQ(KivColorRangeImage(frame.image, table, options[form], &actual), KIV_EXT_OK);
        ASSERT_EQ(actual.Length(), frame.image.Width() * frame.image.Height());
        ASSERT_EQ(actual.Channel(), 3);
        EXPECT_TRUE(Bytes(actual) == Bytes(expected[form])) << "form " << form;
      }
    }
  }
}

TEST(RealFrames, PercentileBoundsKeepNoDataOutOfTheTable) {
  std::vector<RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << kNoFolder;
  // Magenta is in neither table, so a pixel of that colour can only be a no-data pixel.
  const KivRgb magenta{255, 0, 255};
  for (const char* name : {"jet", "viridis"}) {
    KivColorTable table;
    ASSERT_EQ(KivColorTable::ByName(name, &table), KIV_EXT_OK);
    for (int i = 0; i < KivColorTable::kSize; ++i) ASSERT_NE(table.At(i), magenta) << name << i;
    for (const RealFrame& frame : frames) {
      const std::vector<bool> valid = ValidMask(frame.image);
      const int64_t invalidCount = std::count(valid.begin(), valid.end(), false);
      ASSERT_GT(invalidCount, 0) << frame.name << ": a frame without holes proves nothing here";
      for (KivColoringMode mode : {KivColoringMode::kEqualised, KivColoringMode::kLinear}) {
        for (int channels : {3, 4}) {
          SCOPED_TRACE(::testing::Message() << frame.name << " " << name << " mode "
                                            << static_cast<int>(mode) << " channels " << channels);
          KivColoringOptions options = Options(mode, KivBoundsSource::kPercentile);
          options.lowPercentile = 5.0;
          options.highPercentile = 95.0;
          options.noDataColor = magenta;
          options.channels = channels;
          KivColorArray out;
          KivColoringInfo info;
          ASSERT_EQ(KivColorRangeImage(frame.image, table, options, &out, &info), KIV_EXT_OK);
          ASSERT_EQ(out.Channel(), channels);
          ASSERT_EQ(static_cast<size_t>(out.Length()), valid.size());
          EXPECT_EQ(info.noDataCount, invalidCount);
          EXPECT_EQ(info.validCount, static_cast<int64_t>(valid.size()) - invalidCount);
          int64_t wrong = 0;
          for (size_t i = 0; i < valid.size(); ++i) {
            const uint8_t* c = out.Data() + i * channels;
            const bool noDataColour = c[0] == magenta.b && c[1] == magenta.g && c[2] == magenta.r;
            bool right = noDataColour != valid[i];
            if (channels == 4) right = right && c[3] == (valid[i] ? 255 : 0);
            if (!right) ++wrong;
          }
          EXPECT_EQ(wrong, 0);
        }
      }
    }
  }
}

TEST(RealFrames, ColourBarsDrawFromTheirColourings) {
  std::vector<RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << kNoFolder;
  KivColorTable viridis;
  ASSERT_EQ(KivColorTable::ByName("viridis", &viridis), KIV_EXT_OK);
  const KivColoringOptions cases[] = {
      Options(KivColoringMode::kEqualised, KivBoundsSource::kMeasured),
      Options(KivColoringMode::kLinear, KivBoundsSource::kPercentile)};
  for (const RealFrame& frame : frames) {
    for (const KivColoringOptions& options : cases) {
      SCOPED_TRACE(::testing::Message()
                   << frame.name << " mode " << static_cast<int>(options.mode));
      KivColorArray colours;
      KivColoringInfo info;
      ASSERT_EQ(KivColorRangeImage(frame.image, viridis, options, &colours, &info), KIV_EXT_OK);
      ASSERT_EQ(info.entryStart.size(), static_cast<size_t>(KivColorTable::kSize + 1));
      KivColorBarOptions barOptions;
      barOptions.unit = "m";  // every frame is loaded with heights in metres
      cv::Mat bar;
      ASSERT_EQ(KivDrawColorBar(viridis, info, barOptions, &bar), KIV_EXT_OK);
      EXPECT_FALSE(bar.empty());
      EXPECT_EQ(bar.type(), CV_8UC3);
      EXPECT_GE(bar.rows, barOptions.length);
      cv::Mat picture;
      ASSERT_EQ(KivAttachColorBar(colours, frame.image.Width(), frame.image.Height(), bar,
                                  barOptions, &picture),
                KIV_EXT_OK);
      EXPECT_GT(picture.cols, frame.image.Width());
    }
  }
}

}  // namespace
}  // namespace KIVMV
