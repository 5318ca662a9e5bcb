#include "image/int_array_colouring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "KivLUTSetting.h"
#include "common/fault_injection.h"
#include "frame/end_messages.h"
#include "frame/kiv_lut_setting_impl.h"
#include "image/image_test_support.h"
#include "support/log_capture.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

using testing_support::LoadRealGreyFrames;
using testing_support::LogCapture;

using Bytes = std::vector<uint8_t>;

// ---------------------------------------------------------------------------------------------
// A plain serial restatement of the colouring, one element at a time, straight from the rules.

int64_t RefTruncate(double x) {
  if (!(x >= -9223372036854775808.0 && x < 9223372036854775808.0)) return INT64_MIN;
  return static_cast<int64_t>(x);
}

size_t RefLowByte(int64_t x) { return static_cast<size_t>(static_cast<uint64_t>(x) & 0xFF); }

const ColourTable& RefTable(int mapType) {
  const ColourTable* tables[] = {&kGreyTable,      &kRainbowTable,     &kHotMetalTable,
                                 &kDivergingTable, &kIsoluminantTable, &kRgbTable,
                                 &kJetTable};
  return mapType >= 1 && mapType <= 6 ? *tables[mapType] : kGreyTable;
}

Bytes RefColourInts(const std::vector<int>& values, int mapType, int low, int high) {
  Bytes out;
  for (int value : values) {
    const double v = value;
    ColourEntry colour{};
    if (v > high) {
      colour = {0, 0, 255};
    } else if (v < low) {
      colour = {0, 0, 0};
    } else {
      const double lowD = low;
      const double highD = high;
      colour = RefTable(mapType)[RefLowByte(RefTruncate((v - lowD) / (highD - lowD) * 255.0))];
    }
    out.insert(out.end(), colour.begin(), colour.end());
  }
  return out;
}

Kiv3DIntArray MakeArray(const std::vector<int>& values) {
  Kiv3DIntArray array(static_cast<int>(values.size()));
  for (size_t i = 0; i < values.size(); ++i) array[static_cast<int>(i)] = values[i];
  return array;
}

std::vector<int> Contents(const Kiv3DIntArray& array) {
  return std::vector<int>(array.Data(), array.Data() + array.Length());
}

Bytes FirstBytes(const KivColorArray& out, size_t count) {
  return Bytes(out.Data(), out.Data() + count);
}

// Values around the bounds, the bounds themselves, and the int extremes.
std::vector<int> RandomValues(int n, int low, int high, std::mt19937_64& random) {
  std::uniform_int_distribution<int> pick(0, 9);
  std::uniform_int_distribution<int> any(INT_MIN, INT_MAX);
  const int64_t below = static_cast<int64_t>(std::min(low, high)) - 50;
  const int64_t above = static_cast<int64_t>(std::max(low, high)) + 50;
  std::uniform_int_distribution<int64_t> near(below, above);
  std::vector<int> values(static_cast<size_t>(n));
  for (int& v : values) {
    const int kind = pick(random);
    if (kind == 0) {
      v = any(random);
    } else if (kind == 1) {
      v = pick(random) < 5 ? low : high;
    } else if (kind == 2) {
      v = pick(random) < 5 ? INT_MIN : INT_MAX;
    } else {
      v = static_cast<int>(std::max<int64_t>(INT_MIN, std::min<int64_t>(INT_MAX, near(random))));
    }
  }
  return values;
}

struct Bounds {
  int low, high;
};

// Ordinary, equal, reversed, extreme and random bounds.
std::vector<Bounds> BoundsToTry(std::mt19937_64& random) {
  std::vector<Bounds> bounds = {{0, 100},
                                {-5, 5},
                                {7, 7},
                                {100, 0},
                                {INT_MIN, INT_MAX},
                                {INT_MAX, INT_MIN},
                                {0, 1},
                                {-1000000, 3},
                                {INT_MAX - 1, INT_MAX},
                                {INT_MIN, INT_MIN + 254}};
  std::uniform_int_distribution<int> any(-100000, 100000);
  for (int i = 0; i < 6; ++i) {
    const int a = any(random);
    bounds.push_back({std::min(a, a + any(random) % 3000), std::max(a, a + any(random) % 3000)});
  }
  return bounds;
}

// ---------------------------------------------------------------------------------------------
// Against the reference.

TEST(IntArrayColouring, RandomArraysMatchReference) {
  std::mt19937_64 random(41);
  for (int n : {1, 2, 7, 1000, 40001}) {
    for (const Bounds& b : BoundsToTry(random)) {
      const std::vector<int> values = RandomValues(n, b.low, b.high, random);
      Kiv3DIntArray array = MakeArray(values);
      for (int mapType = 0; mapType <= 10; ++mapType) {
        const std::string what = "n " + std::to_string(n) + " low " + std::to_string(b.low) +
                                 " high " + std::to_string(b.high) + " map " +
                                 std::to_string(mapType);
        KivColorArray out;
        KivLUTSetting lut;
        ASSERT_EQ(lut.ColorMapLUT(array, mapType, b.low, b.high, &out), LUT_OK) << what;
        ASSERT_EQ(out.Length(), n) << what;
        ASSERT_EQ(out.Channel(), 3) << what;
        EXPECT_EQ(FirstBytes(out, 3 * static_cast<size_t>(n)),
                  RefColourInts(values, mapType, b.low, b.high))
            << what;
        EXPECT_EQ(Contents(array), values) << what;
      }
    }
  }
}

TEST(IntArrayColouring, RealFramesMatchReference) {
  const auto frames = LoadRealGreyFrames();
  if (frames.empty()) GTEST_SKIP() << "no real frames: the shared data folder is missing";
  for (const auto& frame : frames) {
    const cv::Mat& pixels = frame.image.Mat();
    std::vector<int> values;
    for (int y = 0; y < pixels.rows; ++y) {
      for (int x = 0; x < pixels.cols; ++x) values.push_back(pixels.at<uint16_t>(y, x));
    }
    Kiv3DIntArray array = MakeArray(values);
    double minimum = 0.0;
    double maximum = 0.0;
    cv::minMaxLoc(pixels, &minimum, &maximum);
    const Bounds bounds[] = {{static_cast<int>(minimum), static_cast<int>(maximum)},
                             {500, 1500},
                             {1, static_cast<int>(maximum) - 1}};
    for (const Bounds& b : bounds) {
      for (int mapType = 0; mapType <= 10; ++mapType) {
        KivColorArray out;
        KivLUTSetting lut;
        ASSERT_EQ(lut.ColorMapLUT(array, mapType, b.low, b.high, &out), LUT_OK);
        EXPECT_EQ(FirstBytes(out, 3 * values.size()), RefColourInts(values, mapType, b.low, b.high))
            << frame.name << " map " << mapType << " low " << b.low << " high " << b.high;
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Particular results.

ColourEntry ColourAt(const KivColorArray& out, int i) {
  const uint8_t* at = out.Data() + 3 * i;
  return {at[0], at[1], at[2]};
}

TEST(IntArrayColouring, BoundsAndEntriesUnderHotMetalAndGrey) {
  Kiv3DIntArray array = MakeArray({-5, 0, 50, 100, 101});
  KivLUTSetting lut;
  KivColorArray out;
  ASSERT_EQ(lut.ColorMapLUT(array, kHotMetalMap, 0, 100, &out), LUT_OK);
  EXPECT_EQ(ColourAt(out, 0), (ColourEntry{0, 0, 0}));
  EXPECT_EQ(ColourAt(out, 1), kHotMetalTable[0]);
  EXPECT_EQ(ColourAt(out, 2), kHotMetalTable[127]);
  EXPECT_EQ(ColourAt(out, 3), kHotMetalTable[255]);
  EXPECT_EQ(ColourAt(out, 4), (ColourEntry{0, 0, 255}));

  for (int greyMap : {0, 7}) {
    ASSERT_EQ(lut.ColorMapLUT(array, greyMap, 0, 100, &out), LUT_OK);
    EXPECT_EQ(ColourAt(out, 0), (ColourEntry{0, 0, 0}));
    EXPECT_EQ(ColourAt(out, 1), (ColourEntry{0, 0, 0}));
    EXPECT_EQ(ColourAt(out, 2), (ColourEntry{127, 127, 127}));
    EXPECT_EQ(ColourAt(out, 3), (ColourEntry{255, 255, 255}));
    EXPECT_EQ(ColourAt(out, 4), (ColourEntry{0, 0, 255}));
  }
}

TEST(IntArrayColouring, MapsSevenToTenColourLikeGrey) {
  std::mt19937_64 random(42);
  const std::vector<int> values = RandomValues(500, -20, 300, random);
  Kiv3DIntArray array = MakeArray(values);
  KivLUTSetting lut;
  KivColorArray grey;
  ASSERT_EQ(lut.ColorMapLUT(array, 0, -20, 300, &grey), LUT_OK);
  for (int mapType = 7; mapType <= 10; ++mapType) {
    KivColorArray out;
    ASSERT_EQ(lut.ColorMapLUT(array, mapType, -20, 300, &out), LUT_OK);
    EXPECT_EQ(FirstBytes(out, 1500), FirstBytes(grey, 1500)) << mapType;
  }
}

// With low == high the value equal to both gives 0/0 and takes entry 0; reversed bounds leave
// only red and black.
TEST(IntArrayColouring, DegenerateBounds) {
  Kiv3DIntArray array = MakeArray({6, 7, 8});
  KivLUTSetting lut;
  KivColorArray out;
  ASSERT_EQ(lut.ColorMapLUT(array, kJetMap, 7, 7, &out), LUT_OK);
  EXPECT_EQ(ColourAt(out, 0), (ColourEntry{0, 0, 0}));
  EXPECT_EQ(ColourAt(out, 1), kJetTable[0]);
  EXPECT_EQ(ColourAt(out, 2), (ColourEntry{0, 0, 255}));

  Kiv3DIntArray between = MakeArray({9, 10, 11, 50, 5});
  ASSERT_EQ(lut.ColorMapLUT(between, kJetMap, 20, 10, &out), LUT_OK);
  EXPECT_EQ(ColourAt(out, 0), (ColourEntry{0, 0, 0}));
  EXPECT_EQ(ColourAt(out, 1), (ColourEntry{0, 0, 0}));
  EXPECT_EQ(ColourAt(out, 2), (ColourEntry{0, 0, 255}));
  EXPECT_EQ(ColourAt(out, 3), (ColourEntry{0, 0, 255}));
  EXPECT_EQ(ColourAt(out, 4), (ColourEntry{0, 0, 0}));
}

// ---------------------------------------------------------------------------------------------
// The output array.

TEST(IntArrayColouring, OutputOfRightLengthIsWrittenInPlace) {
  Kiv3DIntArray array = MakeArray({0, 50, 100});
  KivColorArray out;
  out.Create(3, 3);
  const KivColorArray sharer = out;  // sees the bytes only if they are written in place
  const uint8_t* oldData = out.Data();
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(array, kRainbowMap, 0, 100, &out), LUT_OK);
  EXPECT_EQ(out.Data(), oldData);
  EXPECT_EQ(FirstBytes(sharer, 9), RefColourInts({0, 50, 100}, kRainbowMap, 0, 100));

  // Four channels of the right length: reused, colour i at bytes 3i..3i+2, the tail untouched.
  KivColorArray four;
  four.Create(3, 4);
  four.Mat().setTo(cv::Scalar::all(9));
  const uint8_t* fourData = four.Data();
  ASSERT_EQ(lut.ColorMapLUT(array, kRainbowMap, 0, 100, &four), LUT_OK);
  EXPECT_EQ(four.Data(), fourData);
  EXPECT_EQ(four.Channel(), 4);
  EXPECT_EQ(FirstBytes(four, 9), RefColourInts({0, 50, 100}, kRainbowMap, 0, 100));
  EXPECT_EQ(Bytes(four.Data() + 9, four.Data() + 12), Bytes(3, 9));
}

TEST(IntArrayColouring, OutputIsRecreatedWhenItCannotHoldTheColours) {
  Kiv3DIntArray array = MakeArray({0, 50, 100, 150});
  const Bytes expected = RefColourInts({0, 50, 100, 150}, kDivergingMap, 0, 100);
  KivLUTSetting lut;

  KivColorArray longer;
  longer.Create(9, 4);
  ASSERT_EQ(lut.ColorMapLUT(array, kDivergingMap, 0, 100, &longer), LUT_OK);
  EXPECT_EQ(longer.Length(), 4);
  EXPECT_EQ(longer.Channel(), 3);
  EXPECT_EQ(FirstBytes(longer, 12), expected);

  // The right length but one byte a colour: re-created rather than overrun.
  KivColorArray narrow;
  narrow.Create(4, 1);
  const KivColorArray narrowSharer = narrow;
  ASSERT_EQ(lut.ColorMapLUT(array, kDivergingMap, 0, 100, &narrow), LUT_OK);
  EXPECT_EQ(narrow.Channel(), 3);
  EXPECT_EQ(narrow.Length(), 4);
  EXPECT_EQ(FirstBytes(narrow, 12), expected);
  EXPECT_EQ(FirstBytes(narrowSharer, 4), Bytes(4, 0));

  // The right length, but a smaller matrix swapped in.
  KivColorArray swapped;
  swapped.Create(4, 3);
  swapped.Mat() = cv::Mat(1, 2, CV_8UC3, cv::Scalar::all(1));
  ASSERT_EQ(lut.ColorMapLUT(array, kDivergingMap, 0, 100, &swapped), LUT_OK);
  EXPECT_EQ(FirstBytes(swapped, 12), expected);
}

// ---------------------------------------------------------------------------------------------
// Checks, stage codes and logging.

const std::string kStartTag = "ColorMapLUT:524:start";
const std::string kEndTag = std::string("ColorMapLUT:536:") + kNonLinearEndMessage;

TEST(IntArrayColouring, ChecksInOrderLeaveOutputUntouched) {
  Kiv3DIntArray empty;
  Kiv3DIntArray some = MakeArray({1, 2, 3});
  struct Case {
    std::string what;
    Kiv3DIntArray* values;
    int mapType;
    bool nullOut;
    long expected;
  } cases[] = {
      {"map 11 on an empty array", &empty, 11, false, LUT_ERR_PARAM_2},
      {"map -1", &some, -1, false, LUT_ERR_PARAM_2},
      {"map INT_MIN and no output", &some, INT_MIN, true, LUT_ERR_PARAM_2},
      {"empty array", &empty, 3, false, LUT_ERR_PARAM_1},
      {"empty array and no output", &empty, 3, true, LUT_ERR_PARAM_1},
      {"no output", &some, 3, true, LUT_ERR_ARRAY_OUTPUT_FAILED},
  };
  for (const Case& c : cases) {
    KivColorArray out;
    out.Create(2, 3);
    out.Mat().setTo(cv::Scalar::all(44));
    const uint8_t* oldData = out.Data();
    LogCapture capture;
    KivLUTSetting lut;
    EXPECT_EQ(lut.ColorMapLUT(*c.values, c.mapType, 0, 10, c.nullOut ? nullptr : &out), c.expected)
        << c.what;
    EXPECT_EQ(capture.Tags(), std::vector<std::string>{kStartTag}) << c.what;
    EXPECT_EQ(out.Data(), oldData) << c.what;
    EXPECT_EQ(out.Length(), 2) << c.what;
    EXPECT_EQ(FirstBytes(out, 6), Bytes(6, 44)) << c.what;

    // The routine repeats the same checks with the same codes.
    KivLUTSettingImpl impl;
    EXPECT_EQ(impl.ColorMapLUT(*c.values, c.mapType, 0, 10, c.nullOut ? nullptr : &out), c.expected)
        << c.what;
    EXPECT_EQ(out.Data(), oldData) << c.what;
  }
}

TEST(IntArrayColouring, EachStageFailureReturnsItsCode) {
  Kiv3DIntArray array = MakeArray({1, 2, 3, 4});
  const struct {
    FaultStage stage;
    long expected;
  } stages[] = {
      {FaultStage::kOutputSizing, LUT_ERR_ARRAY_OUTPUT_FAILED},
      {FaultStage::kColouring, LUT_ERR_ARRAY_APPLY_FAILED},
      {FaultStage::kStatistics, LUT_OK},
      {FaultStage::kBlending, LUT_OK},
      {FaultStage::kChannelConversion, LUT_OK},
  };
  for (const auto& s : stages) {
    KivColorArray out;
    out.Create(1, 3);
    LogCapture capture;
    KivLUTSetting lut;
    {
      ScopedFault fault(s.stage);
      EXPECT_EQ(lut.ColorMapLUT(array, 2, 0, 4, &out), s.expected);
    }
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{kStartTag, kEndTag}));
    // Sizing fails before the array is re-created; colouring after.
    EXPECT_EQ(out.Length(), s.stage == FaultStage::kOutputSizing ? 1 : 4);
  }
}

TEST(IntArrayColouring, SuccessLogsStartAndEnd) {
  Kiv3DIntArray array = MakeArray({1});
  KivColorArray out;
  LogCapture capture;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(array, 5, 0, 1, &out), LUT_OK);
  const auto lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, "start");
  EXPECT_EQ(lines[0].className, "KivLUTSetting");
  EXPECT_EQ(lines[0].methodName, "ColorMapLUT");
  EXPECT_EQ(lines[0].line, 524);
  EXPECT_EQ(lines[1].message, kNonLinearEndMessage);
  EXPECT_EQ(lines[1].methodName, "ColorMapLUT");
  EXPECT_EQ(lines[1].line, 536);
}

}  // namespace
}  // namespace KIVMV
