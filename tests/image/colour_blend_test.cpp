#include "image/colour_blend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
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

using testing_support::GreyImageFrom;
using testing_support::LoadRealGreyFrames;
using testing_support::LogCapture;

using Bytes = std::vector<uint8_t>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---------------------------------------------------------------------------------------------
// A plain serial restatement of the blend, one byte at a time, straight from the rules.

int64_t RefTruncate(double x) {
  if (!(x >= -9223372036854775808.0 && x < 9223372036854775808.0)) return INT64_MIN;
  return static_cast<int64_t>(x);
}

// trunc(a x alpha) + trunc(b x (1 - alpha)), added in 64-bit two's complement, low byte kept.
Bytes RefBlend(const Bytes& a, const Bytes& b, double alpha) {
  Bytes out(a.size());
  for (size_t j = 0; j < a.size(); ++j) {
    const uint64_t sum = static_cast<uint64_t>(RefTruncate(a[j] * alpha)) +
                         static_cast<uint64_t>(RefTruncate(b[j] * (1.0 - alpha)));
    out[j] = static_cast<uint8_t>(sum & 0xFF);
  }
  return out;
}

// A 1-channel array's grey replicated to three bytes, a 4-channel array's alpha dropped.
Bytes RefToThreeChannels(const Bytes& bytes, int channels) {
  if (channels == 3) return bytes;
  Bytes out;
  for (size_t i = 0; i < bytes.size(); i += static_cast<size_t>(channels)) {
    if (channels == 1) {
      out.insert(out.end(), 3, bytes[i]);
    } else {
      out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(i),
                 bytes.begin() + static_cast<std::ptrdiff_t>(i) + 3);
    }
  }
  return out;
}

Bytes AllBytes(const KivColorArray& array) {
  return Bytes(array.Data(), array.Data() + static_cast<size_t>(array.Length()) * array.Channel());
}

KivColorArray MakeArray(const Bytes& bytes, int channels) {
  KivColorArray array;
  array.Create(static_cast<int>(bytes.size()) / channels, channels);
  std::copy(bytes.begin(), bytes.end(), array.Data());
  return array;
}

// Mostly random bytes, with runs of 0 and 255.
Bytes RandomBytes(size_t count, std::mt19937_64& random) {
  std::uniform_int_distribution<int> pick(0, 9);
  std::uniform_int_distribution<int> any(0, 255);
  Bytes bytes(count);
  for (uint8_t& b : bytes) {
    const int kind = pick(random);
    b = static_cast<uint8_t>(kind == 0 ? 0 : kind == 1 ? 255 : any(random));
  }
  return bytes;
}

struct Expected {
  int channels;
  Bytes a, b, out;
};

// What a blend of (a, ca) and (b, cb) leaves in a, b and out.
Expected RefColorBlend(const Bytes& a, int ca, const Bytes& b, int cb, double alpha) {
  Expected e{ca, a, b, {}};
  if (ca != cb) {
    e.a = RefToThreeChannels(a, ca);
    e.b = RefToThreeChannels(b, cb);
    e.channels = 3;
  }
  e.out = RefBlend(e.a, e.b, alpha);
  return e;
}

// ---------------------------------------------------------------------------------------------
// Against the reference.

TEST(ColourBlend, RandomArraysMatchReference) {
  std::mt19937_64 random(51);
  std::uniform_real_distribution<double> weight(0.0, 1.0);
  for (int n : {1, 5, 4097, 30001}) {
    for (int ca : {1, 3, 4}) {
      for (int cb : {1, 3, 4}) {
        for (double alpha : {0.0, 1.0, 0.5, weight(random), weight(random), 0.3, 0.35, kNaN}) {
          const std::string what = "n " + std::to_string(n) + " channels " + std::to_string(ca) +
                                   "/" + std::to_string(cb) + " alpha " + std::to_string(alpha);
          const Bytes aBytes = RandomBytes(static_cast<size_t>(n) * ca, random);
          const Bytes bBytes = RandomBytes(static_cast<size_t>(n) * cb, random);
          KivColorArray a = MakeArray(aBytes, ca);
          KivColorArray b = MakeArray(bBytes, cb);
          KivColorArray out;
          KivLUTSetting lut;
          ASSERT_EQ(lut.ColorBlend(a, b, alpha, &out), LUT_OK) << what;
          const Expected e = RefColorBlend(aBytes, ca, bBytes, cb, alpha);
          ASSERT_EQ(out.Length(), n) << what;
          ASSERT_EQ(out.Channel(), e.channels) << what;
          EXPECT_EQ(AllBytes(out), e.out) << what;
          // The inputs: converted in the caller's objects when the channel counts differ.
          EXPECT_EQ(a.Channel(), ca == cb ? ca : 3) << what;
          EXPECT_EQ(b.Channel(), ca == cb ? cb : 3) << what;
          EXPECT_EQ(AllBytes(a), e.a) << what;
          EXPECT_EQ(AllBytes(b), e.b) << what;
        }
      }
    }
  }
}

// Arrays large enough for the blend to be shared among threads.
TEST(ColourBlend, LargeArraysMatchReference) {
  std::mt19937_64 random(56);
  const int n = 350001;
  const struct {
    int ca, cb;
    double alpha;
  } cases[] = {{3, 3, 0.4}, {3, 3, 0.3}, {1, 4, 0.35}, {4, 4, 1.0}, {4, 1, 0.0}, {1, 1, 0.61}};
  for (const auto& c : cases) {
    const Bytes aBytes = RandomBytes(static_cast<size_t>(n) * c.ca, random);
    const Bytes bBytes = RandomBytes(static_cast<size_t>(n) * c.cb, random);
    KivColorArray a = MakeArray(aBytes, c.ca);
    KivColorArray b = MakeArray(bBytes, c.cb);
    KivColorArray out;
    KivLUTSetting lut;
    ASSERT_EQ(lut.ColorBlend(a, b, c.alpha, &out), LUT_OK);
    const Expected e = RefColorBlend(aBytes, c.ca, bBytes, c.cb, c.alpha);
    EXPECT_EQ(out.Channel(), e.channels);
    EXPECT_EQ(AllBytes(out), e.out) << c.ca << "/" << c.cb << " alpha " << c.alpha;
    EXPECT_EQ(AllBytes(a), e.a);
    EXPECT_EQ(AllBytes(b), e.b);
  }
}

// Every pair of bytes under weights in steps of 1/1000 and 1/255, and random ones: the blend has a
// fast form for most weights and tables for the rest, and both must give the rule's bytes.
TEST(ColourBlend, EveryBytePairMatchesReference) {
  Bytes aBytes;
  Bytes bBytes;
  for (int x = 0; x < 256; ++x) {
    for (int y = 0; y < 256; ++y) {
      aBytes.push_back(static_cast<uint8_t>(x));
      bBytes.push_back(static_cast<uint8_t>(y));
    }
  }
  std::vector<double> weights;
  for (int k = 0; k <= 1000; ++k) weights.push_back(k / 1000.0);
  for (int k = 0; k <= 255; ++k) weights.push_back(k / 255.0);
  std::mt19937_64 random(55);
  std::uniform_real_distribution<double> weight(0.0, 1.0);
  for (int k = 0; k < 200; ++k) weights.push_back(weight(random));
  weights.push_back(std::nextafter(1.0, 0.0));
  weights.push_back(std::nextafter(0.0, 1.0));
  KivColorArray a = MakeArray(aBytes, 1);
  KivColorArray b = MakeArray(bBytes, 1);
  KivColorArray out;
  KivLUTSetting lut;
  for (double alpha : weights) {
    ASSERT_EQ(lut.ColorBlend(a, b, alpha, &out), LUT_OK);
    ASSERT_EQ(AllBytes(out), RefBlend(aBytes, bBytes, alpha)) << "alpha " << alpha;
  }
}

TEST(ColourBlend, RealFramesMatchReference) {
  const auto frames = LoadRealGreyFrames();
  if (frames.empty()) GTEST_SKIP() << "no real frames: the shared data folder is missing";
  for (const auto& frame : frames) {
    // The 8-bit frame as grey colours, and the same through the jet table as colours.
    const cv::Mat grey = GreyImageFrom(frame.image, true).Mat().clone();
    const Bytes greyBytes(grey.data, grey.data + grey.total());
    Bytes jetBytes;
    for (uint8_t g : greyBytes) {
      jetBytes.insert(jetBytes.end(), kJetTable[g].begin(), kJetTable[g].end());
    }
    for (double alpha : {0.3, 0.75}) {
      KivColorArray a = MakeArray(greyBytes, 1);
      KivColorArray b = MakeArray(jetBytes, 3);
      KivColorArray out;
      KivLUTSetting lut;
      ASSERT_EQ(lut.ColorBlend(a, b, alpha, &out), LUT_OK);
      const Expected e = RefColorBlend(greyBytes, 1, jetBytes, 3, alpha);
      EXPECT_EQ(AllBytes(out), e.out) << frame.name << " alpha " << alpha;
      EXPECT_EQ(AllBytes(a), e.a) << frame.name;

      KivColorArray b2 = MakeArray(jetBytes, 3);
      KivColorArray c = MakeArray(RefBlend(jetBytes, jetBytes, 0.5), 3);
      ASSERT_EQ(lut.ColorBlend(b2, c, alpha, &out), LUT_OK);
      EXPECT_EQ(AllBytes(out), RefBlend(jetBytes, RefBlend(jetBytes, jetBytes, 0.5), alpha))
          << frame.name;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Particular results.

TEST(ColourBlend, EachTermIsTruncatedBeforeTheSum) {
  KivColorArray a = MakeArray({255, 255, 255}, 3);
  KivColorArray b = MakeArray({255, 255, 255}, 3);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(a, b, 0.5, &out), LUT_OK);
  EXPECT_EQ(AllBytes(out), (Bytes{254, 254, 254}));
}

TEST(ColourBlend, WeightOneCopiesFirstAndZeroSecond) {
  std::mt19937_64 random(52);
  const Bytes aBytes = RandomBytes(300, random);
  const Bytes bBytes = RandomBytes(300, random);
  KivColorArray a = MakeArray(aBytes, 3);
  KivColorArray b = MakeArray(bBytes, 3);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(a, b, 1.0, &out), LUT_OK);
  EXPECT_EQ(AllBytes(out), aBytes);
  ASSERT_EQ(lut.ColorBlend(a, b, 0.0, &out), LUT_OK);
  EXPECT_EQ(AllBytes(out), bBytes);
}

TEST(ColourBlend, FourChannelsKeepFourAndBlendTheFourth) {
  KivColorArray a = MakeArray({10, 20, 30, 200, 0, 0, 0, 255}, 4);
  KivColorArray b = MakeArray({30, 40, 50, 100, 255, 255, 255, 0}, 4);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(a, b, 0.25, &out), LUT_OK);
  EXPECT_EQ(out.Channel(), 4);
  EXPECT_EQ(out.Length(), 2);
  // 10 x 0.25 = 2 (2.5 truncated), 30 x 0.75 = 22 (22.5 truncated): 24; and so on.
  EXPECT_EQ(AllBytes(out), (Bytes{24, 35, 44, 125, 191, 191, 191, 63}));
}

TEST(ColourBlend, GreyInputBecomesThreeChannelsInCallersObject) {
  KivColorArray a = MakeArray({7, 200}, 1);
  KivColorArray b = MakeArray({1, 2, 3, 4, 5, 6}, 3);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(a, b, 1.0, &out), LUT_OK);
  EXPECT_EQ(a.Channel(), 3);
  EXPECT_EQ(a.Length(), 2);
  EXPECT_EQ(AllBytes(a), (Bytes{7, 7, 7, 200, 200, 200}));
  EXPECT_EQ(out.Channel(), 3);
  EXPECT_EQ(AllBytes(out), (Bytes{7, 7, 7, 200, 200, 200}));
  EXPECT_EQ(AllBytes(b), (Bytes{1, 2, 3, 4, 5, 6}));

  // Equal channel counts convert nothing, also 1 and 1 or 4 and 4.
  KivColorArray g1 = MakeArray({1, 2}, 1);
  KivColorArray g2 = MakeArray({3, 4}, 1);
  KivColorArray greyOut;
  ASSERT_EQ(lut.ColorBlend(g1, g2, 0.0, &greyOut), LUT_OK);
  EXPECT_EQ(g1.Channel(), 1);
  EXPECT_EQ(g2.Channel(), 1);
  EXPECT_EQ(greyOut.Channel(), 1);
  EXPECT_EQ(AllBytes(greyOut), (Bytes{3, 4}));
}

// An input shaped width x height keeps its shape when converted.
TEST(ColourBlend, ConversionKeepsTheShape) {
  std::mt19937_64 random(53);
  KivColorArray a;
  a.SetSize(7, 5, 4);
  const Bytes aBytes = RandomBytes(7 * 5 * 4, random);
  std::copy(aBytes.begin(), aBytes.end(), a.Data());
  KivColorArray b;
  b.SetSize(5, 7, 1);
  const Bytes bBytes = RandomBytes(35, random);
  std::copy(bBytes.begin(), bBytes.end(), b.Data());
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(a, b, 0.6, &out), LUT_OK);
  EXPECT_EQ(a.Width(), 7);
  EXPECT_EQ(a.Height(), 5);
  EXPECT_EQ(a.Mat().rows, 5);
  EXPECT_EQ(a.Mat().type(), CV_8UC3);
  EXPECT_EQ(b.Width(), 5);
  EXPECT_EQ(b.Height(), 7);
  EXPECT_EQ(b.Mat().cols, 5);
  EXPECT_EQ(b.Mat().type(), CV_8UC3);
  const Expected e = RefColorBlend(aBytes, 4, bBytes, 1, 0.6);
  EXPECT_EQ(AllBytes(a), e.a);
  EXPECT_EQ(AllBytes(b), e.b);
  EXPECT_EQ(AllBytes(out), e.out);
  EXPECT_EQ(out.Length(), 35);
}

TEST(ColourBlend, OutputMayBeAnInput) {
  std::mt19937_64 random(54);
  const Bytes aBytes = RandomBytes(3000, random);
  const Bytes bBytes = RandomBytes(3000, random);
  KivColorArray a = MakeArray(aBytes, 3);
  KivColorArray b = MakeArray(bBytes, 3);
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(a, b, 0.37, &a), LUT_OK);
  EXPECT_EQ(AllBytes(a), RefBlend(aBytes, bBytes, 0.37));
  EXPECT_EQ(AllBytes(b), bBytes);
}

TEST(ColourBlend, EmptyArraysBlendToNothing) {
  KivColorArray a;
  a.Create(0, 3);
  KivColorArray b;
  b.Create(0, 1);
  KivColorArray out;
  KivLUTSetting lut;
  EXPECT_EQ(lut.ColorBlend(a, b, 0.5, &out), LUT_OK);
  EXPECT_EQ(out.Length(), 0);
  EXPECT_EQ(b.Channel(), 3);
}

// ---------------------------------------------------------------------------------------------
// The output array.

TEST(ColourBlend, OutputOfRightSizeIsWrittenInPlace) {
  KivColorArray a = MakeArray({100, 100, 100, 50, 50, 50}, 3);
  KivColorArray b = MakeArray({0, 0, 0, 200, 200, 200}, 3);
  KivColorArray out;
  out.Create(2, 3);
  const KivColorArray sharer = out;
  const uint8_t* oldData = out.Data();
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(a, b, 0.5, &out), LUT_OK);
  EXPECT_EQ(out.Data(), oldData);
  EXPECT_EQ(AllBytes(sharer), (Bytes{50, 50, 50, 125, 125, 125}));

  // More channels than the inputs: reused, the blend fills the first 3n bytes.
  KivColorArray four;
  four.Create(2, 4);
  four.Mat().setTo(cv::Scalar::all(9));
  const uint8_t* fourData = four.Data();
  ASSERT_EQ(lut.ColorBlend(a, b, 0.5, &four), LUT_OK);
  EXPECT_EQ(four.Data(), fourData);
  EXPECT_EQ(four.Channel(), 4);
  EXPECT_EQ(AllBytes(four), (Bytes{50, 50, 50, 125, 125, 125, 9, 9}));
}

TEST(ColourBlend, OutputIsRecreatedWhenItCannotHoldTheBlend) {
  KivColorArray a = MakeArray({100, 100, 100, 50, 50, 50}, 3);
  KivColorArray b = MakeArray({0, 0, 0, 200, 200, 200}, 3);
  const Bytes expected{50, 50, 50, 125, 125, 125};
  KivLUTSetting lut;

  KivColorArray longer;
  longer.Create(5, 1);
  ASSERT_EQ(lut.ColorBlend(a, b, 0.5, &longer), LUT_OK);
  EXPECT_EQ(longer.Length(), 2);
  EXPECT_EQ(longer.Channel(), 3);
  EXPECT_EQ(AllBytes(longer), expected);

  // The right length but fewer bytes a colour: re-created rather than overrun.
  KivColorArray narrow;
  narrow.Create(2, 1);
  const KivColorArray narrowSharer = narrow;
  ASSERT_EQ(lut.ColorBlend(a, b, 0.5, &narrow), LUT_OK);
  EXPECT_EQ(narrow.Channel(), 3);
  EXPECT_EQ(AllBytes(narrow), expected);
  EXPECT_EQ(AllBytes(narrowSharer), (Bytes{0, 0}));

  // The right length and channels, but a smaller matrix swapped in.
  KivColorArray swapped;
  swapped.Create(2, 3);
  swapped.Mat() = cv::Mat(1, 1, CV_8UC3, cv::Scalar::all(1));
  ASSERT_EQ(lut.ColorBlend(a, b, 0.5, &swapped), LUT_OK);
  EXPECT_EQ(AllBytes(swapped), expected);
}

// ---------------------------------------------------------------------------------------------
// Checks, stage codes and logging.

const std::string kStartTag = "ColorBlend:544:start";
const std::string kEndTag = std::string("ColorBlend:559:") + kBlendEndMessage;

TEST(ColourBlend, ChecksInOrderLeaveEverythingUntouched) {
  const struct {
    std::string what;
    int lengthB;
    double alpha;
    bool nullOut;
    long expected;
  } cases[] = {
      {"lengths differ, alpha 2", 3, 2.0, false, LUT_ERR_SIZE_MISMATCH},
      {"lengths differ, no output", 3, 0.5, true, LUT_ERR_SIZE_MISMATCH},
      {"alpha 2", 2, 2.0, false, LUT_ERR_PARAM_1},
      {"alpha just below 0", 2, -1e-12, false, LUT_ERR_PARAM_1},
      {"alpha -inf", 2, -std::numeric_limits<double>::infinity(), false, LUT_ERR_PARAM_1},
      {"alpha 2, no output", 2, 2.0, true, LUT_ERR_PARAM_1},
      {"no output", 2, 0.5, true, LUT_ERR_BLEND_OUTPUT_FAILED},
      {"NaN alpha, no output", 2, kNaN, true, LUT_ERR_BLEND_OUTPUT_FAILED},
  };
  for (const auto& c : cases) {
    // Channel counts differ, so a refused call shows whether anything was converted.
    KivColorArray a = MakeArray({1, 2}, 1);
    KivColorArray b = MakeArray(Bytes(static_cast<size_t>(3 * c.lengthB), 5), 3);
    KivColorArray out = MakeArray({9, 9, 9}, 3);
    const uint8_t* oldData = out.Data();
    LogCapture capture;
    KivLUTSetting lut;
    EXPECT_EQ(lut.ColorBlend(a, b, c.alpha, c.nullOut ? nullptr : &out), c.expected) << c.what;
    EXPECT_EQ(capture.Tags(), std::vector<std::string>{kStartTag}) << c.what;
    EXPECT_EQ(a.Channel(), 1) << c.what;
    EXPECT_EQ(AllBytes(a), (Bytes{1, 2})) << c.what;
    EXPECT_EQ(b.Channel(), 3) << c.what;
    EXPECT_EQ(out.Data(), oldData) << c.what;
    EXPECT_EQ(AllBytes(out), (Bytes{9, 9, 9})) << c.what;
  }
}

// The routine repeats the checks; an input it converted before refusing the weight stays
// converted.
TEST(ColourBlend, RoutineConvertsBeforeCheckingTheWeight) {
  KivLUTSettingImpl impl;
  KivColorArray out;
  {
    KivColorArray a = MakeArray({1, 2}, 1);
    KivColorArray b = MakeArray({1, 2, 3}, 3);
    EXPECT_EQ(impl.ColorBlend(a, b, 2.0, &out), LUT_ERR_SIZE_MISMATCH);
    EXPECT_EQ(a.Channel(), 1);
  }
  {
    KivColorArray a = MakeArray({1, 2}, 1);
    KivColorArray b = MakeArray({1, 2, 3, 4, 5, 6, 7, 8}, 4);
    EXPECT_EQ(impl.ColorBlend(a, b, 2.0, &out), LUT_ERR_PARAM_1);
    EXPECT_EQ(a.Channel(), 3);
    EXPECT_EQ(AllBytes(a), (Bytes{1, 1, 1, 2, 2, 2}));
    EXPECT_EQ(b.Channel(), 3);
    EXPECT_EQ(AllBytes(b), (Bytes{1, 2, 3, 5, 6, 7}));
    EXPECT_EQ(out.Length(), 0);
  }
  {
    KivColorArray a = MakeArray({1, 2, 3, 4}, 4);
    KivColorArray b = MakeArray({1, 2, 3}, 3);
    EXPECT_EQ(impl.ColorBlend(a, b, 0.5, nullptr), LUT_ERR_BLEND_OUTPUT_FAILED);
    EXPECT_EQ(a.Channel(), 3);
  }
}

TEST(ColourBlend, EachStageFailureReturnsItsCode) {
  const struct {
    FaultStage stage;
    bool channelsDiffer;
    long expected;
  } stages[] = {
      {FaultStage::kChannelConversion, true, LUT_ERR_BLEND_FAILED},
      {FaultStage::kChannelConversion, false, LUT_OK},  // nothing to convert
      {FaultStage::kOutputSizing, true, LUT_ERR_BLEND_OUTPUT_FAILED},
      {FaultStage::kOutputSizing, false, LUT_ERR_BLEND_OUTPUT_FAILED},
      {FaultStage::kBlending, true, LUT_ERR_BLEND_FAILED},
      {FaultStage::kBlending, false, LUT_ERR_BLEND_FAILED},
      {FaultStage::kColouring, false, LUT_OK},
      {FaultStage::kStatistics, false, LUT_OK},
  };
  for (const auto& s : stages) {
    KivColorArray a = MakeArray({1, 2, 3, 4, 5, 6}, 3);
    KivColorArray b = s.channelsDiffer ? MakeArray({7, 8}, 1) : MakeArray({7, 8, 9, 7, 8, 9}, 3);
    KivColorArray out = MakeArray({0}, 1);
    LogCapture capture;
    KivLUTSetting lut;
    {
      ScopedFault fault(s.stage);
      EXPECT_EQ(lut.ColorBlend(a, b, 0.5, &out), s.expected);
    }
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{kStartTag, kEndTag}));
    // A failed conversion leaves the grey input as it was; out is re-sized only once conversion
    // and sizing have passed.
    const bool conversionFailed = s.channelsDiffer && s.stage == FaultStage::kChannelConversion;
    EXPECT_EQ(b.Channel(), conversionFailed ? 1 : 3);
    const bool sized = s.expected == LUT_OK || s.stage == FaultStage::kBlending;
    EXPECT_EQ(out.Length(), sized ? 2 : 1);
  }
}

// Inputs whose matrix was swapped for a smaller one are refused rather than read past their end.
TEST(ColourBlend, InputsHoldingTooFewBytesFail) {
  KivLUTSetting lut;
  KivColorArray out;
  {
    KivColorArray a = MakeArray(Bytes(30, 1), 3);
    KivColorArray b = MakeArray(Bytes(30, 2), 3);
    b.Mat() = cv::Mat(1, 2, CV_8UC3, cv::Scalar::all(3));
    EXPECT_EQ(lut.ColorBlend(a, b, 0.5, &out), LUT_ERR_BLEND_FAILED);
  }
  {
    KivColorArray a = MakeArray(Bytes(10, 1), 1);
    a.Mat() = cv::Mat(1, 3, CV_8UC1, cv::Scalar::all(3));
    KivColorArray b = MakeArray(Bytes(30, 2), 3);
    EXPECT_EQ(lut.ColorBlend(a, b, 0.5, &out), LUT_ERR_BLEND_FAILED);
    EXPECT_EQ(a.Channel(), 1);  // refused before it was re-created
  }
}

TEST(ColourBlend, SuccessLogsStartAndEnd) {
  KivColorArray a = MakeArray({1, 2, 3}, 3);
  KivColorArray b = MakeArray({1, 2, 3}, 3);
  KivColorArray out;
  LogCapture capture;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorBlend(a, b, 0.5, &out), LUT_OK);
  const auto lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, "start");
  EXPECT_EQ(lines[0].className, "KivLUTSetting");
  EXPECT_EQ(lines[0].methodName, "ColorBlend");
  EXPECT_EQ(lines[0].line, 544);
  EXPECT_EQ(lines[1].message, kBlendEndMessage);
  EXPECT_EQ(lines[1].methodName, "ColorBlend");
  EXPECT_EQ(lines[1].line, 559);
}

}  // namespace
}  // namespace KIVMV
