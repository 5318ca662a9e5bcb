#include "image/float_array_colouring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "KivLUTSetting.h"
#include "common/fault_injection.h"
#include "frame/end_messages.h"
#include "range/range_test_support.h"
#include "support/log_capture.h"
#include "support/reference_equalisation.h"
#include "support/reference_helpers.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

using testing_support::LoadRealFrames;
using testing_support::ReferenceAllotSlots;
using testing_support::ReferenceIsValid;
using testing_support::X86Truncate;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

using Bytes = std::vector<uint8_t>;

void Put(Bytes& out, const ColourEntry& c) { out.insert(out.end(), c.begin(), c.end()); }

const ColourEntry kBlack = {0, 0, 0};

// Linear colouring restated: float differences, double product and quotient, low byte, 0 -> 1.
Bytes ReferenceLinear(const std::vector<float>& values, float lo, float hi, int mapType) {
  const ColourTable& table = SelectColourTable(mapType);
  Bytes out;
  for (float v : values) {
    if (!ReferenceIsValid(v)) {
      Put(out, kBlack);
    } else if (v > hi) {
      Put(out, table[255]);
    } else if (v < lo) {
      Put(out, table[0]);
    } else {
      const float offset = v - lo;
      const float span = hi - lo;
      int k = static_cast<int>(X86Truncate(double(offset) * 255.0 / double(span)) & 0xFF);
      if (k == 0) k = 1;
      Put(out, table[k]);
    }
  }
  return out;
}

// Equalised colouring restated for 256 slots with invalid elements on entry 0.
Bytes ReferenceEqualised(const std::vector<float>& values, float minValue, float maxValue,
                         int mapType) {
  const ColourTable& table = SelectColourTable(mapType);
  float m = FLT_MAX, M = -FLT_MAX;
  uint32_t count = 0;
  for (float v : values) {
    if (!ReferenceIsValid(v)) continue;
    m = std::min(m, v);
    M = std::max(M, v);
    ++count;
  }
  const double low = std::max(minValue, m), high = std::min(maxValue, M);
  const int B = 256;
  const double w = high / B - low / B;
  Bytes out;
  if (!(w > 1e-8)) {
    const uint32_t low32 = static_cast<uint32_t>(static_cast<uint64_t>(X86Truncate(low)));
    for (float v : values)
      Put(out, ReferenceIsValid(v) ? table[std::min<uint32_t>(low32, 255)] : kBlack);
    return out;
  }
  std::vector<uint32_t> hist(256, 0);
  for (float f : values) {
    const double v = f;
    if (!(low <= v && v <= high)) continue;
    int64_t b = X86Truncate(std::floor(v / w - low / w + 1e-14));
    hist[std::clamp<int64_t>(b, 0, 255)]++;
  }
  const auto slots = ReferenceAllotSlots(hist, count, B, w, low);
  for (float f : values) {
    if (!ReferenceIsValid(f)) {
      Put(out, table[0]);
      continue;
    }
    const double v = f;
    if (v >= high) {
      Put(out, table[255]);
      continue;
    }
    if (v < low) {
      Put(out, table[0]);
      continue;
    }
    int64_t b = X86Truncate(std::floor((v - low) / w + 1e-14));
    if (b == B) b = B - 1;
    b = std::clamp<int64_t>(b, 0, B - 1);
    const int64_t slot = slots.SlotOf(v, static_cast<int>(b));
    Put(out, table[std::clamp<int64_t>(slot, 0, 255)]);
  }
  return out;
}

Kiv3DFloatArray ArrayOf(const std::vector<float>& values) {
  Kiv3DFloatArray array(static_cast<int>(values.size()));
  std::copy(values.begin(), values.end(), array.Data());
  return array;
}

std::vector<float> ValuesOf(const Kiv3DFloatArray& array) {
  return std::vector<float>(array.Data(), array.Data() + array.Length());
}

Bytes BytesOf(const KivColorArray& out) {
  return Bytes(out.Data(), out.Data() + 3 * static_cast<size_t>(out.Length()));
}

std::vector<float> RandomValues(int n, std::mt19937_64& random) {
  std::vector<float> values(n);
  std::uniform_int_distribution<int> pick(0, 99);
  std::normal_distribution<float> cluster(1.2f, 0.05f);
  std::uniform_real_distribution<float> spread(-5.0f, 5.0f);
  for (float& v : values) {
    const int kind = pick(random);
    v = kind < 3    ? -FLT_MAX
        : kind < 5  ? kNaN
        : kind < 6  ? kInf
        : kind < 7  ? -kInf
        : kind < 60 ? cluster(random)
                    : spread(random);
  }
  return values;
}

// Quiet the timing line while many calls run.
struct QuietStdout {
  QuietStdout() { testing::internal::CaptureStdout(); }
  ~QuietStdout() { testing::internal::GetCapturedStdout(); }
};

TEST(FloatArrayColouring, BothMethodsMatchReferenceOnRandomArrays) {
  std::mt19937_64 random(17);
  QuietStdout quiet;
  KivLUTSetting lut;
  for (int n : {1, 2, 7, 100, 1001, 307200}) {
    for (int round = 0; round < (n > 10000 ? 3 : 15); ++round) {
      const Kiv3DFloatArray array = ArrayOf(RandomValues(n, random));
      const std::vector<float> before = ValuesOf(array);
      const int mapType = static_cast<int>(random() % 11);
      std::uniform_real_distribution<float> bound(-6.0f, 6.0f);
      float a = bound(random), b = bound(random);
      if (round % 5 == 0) b = a;
      if (round % 7 == 0) {
        a = -100.0f;
        b = 100.0f;
      }
      const float lo = std::min(a, b), hi = std::max(a, b);
      SCOPED_TRACE(testing::Message()
                   << "n " << n << " map " << mapType << " " << lo << ".." << hi);
      KivColorArray out;
      if (round % 2) out.Create(n, 3);  // reused in place
      Kiv3DFloatArray input = array;
      ASSERT_EQ(lut.SetColorLUT(input, lo, hi, mapType, &out), LUT_OK);
      EXPECT_EQ(BytesOf(out), ReferenceEqualised(before, lo, hi, mapType));
      ASSERT_EQ(lut.LinearSetColorLUT(input, lo, hi, mapType, &out), LUT_OK);
      EXPECT_EQ(BytesOf(out), ReferenceLinear(before, lo, hi, mapType));
      EXPECT_EQ(ValuesOf(array).size(), before.size());
      EXPECT_EQ(std::memcmp(array.Data(), before.data(), before.size() * sizeof(float)), 0);
    }
  }
}

TEST(FloatArrayColouring, EqualisedMatchesReferenceForEveryFloatOfANarrowRange) {
  // All 2^17 floats from 2 up, each once, so every bin and slot boundary of the 256 bins is met
  // exactly; a crowd over part of the range gives some bins many slots. Bounds inside the data,
  // at it, around it, and at single floats beside a boundary.
  std::mt19937_64 random(31);
  QuietStdout quiet;
  KivLUTSetting lut;
  std::vector<float> values;
  float v = 2.0f;
  for (int i = 0; i < (1 << 17); ++i, v = std::nextafter(v, 4.0f)) values.push_back(v);
  const float top = values.back();
  std::uniform_real_distribution<float> crowd(2.003f, 2.0031f);
  for (int i = 0; i < 100000; ++i) values.push_back(crowd(random));
  for (int i = 0; i < 500; ++i) {
    values.push_back(-FLT_MAX);
    values.push_back(std::numeric_limits<float>::quiet_NaN());
    values.push_back(i % 2 ? std::numeric_limits<float>::infinity()
                           : -std::numeric_limits<float>::infinity());
    values.push_back(i % 3 ? 0.0f : -0.0f);
  }
  std::shuffle(values.begin(), values.end(), random);
  const Kiv3DFloatArray array = ArrayOf(values);
  const float bounds[][2] = {{2.0f, top},
                             {-1.0f, 5.0f},
                             {2.001f, 2.007f},
                             {std::nextafter(2.0f, 0.0f), std::nextafter(2.004f, 3.0f)},
                             {0.0f, 2.0025f}};
  for (const auto& b : bounds) {
    for (int mapType : {1, 6, 10}) {
      SCOPED_TRACE(testing::Message() << b[0] << ".." << b[1] << " map " << mapType);
      KivColorArray out;
      Kiv3DFloatArray input = array;
      ASSERT_EQ(lut.SetColorLUT(input, b[0], b[1], mapType, &out), LUT_OK);
      ASSERT_EQ(BytesOf(out), ReferenceEqualised(values, b[0], b[1], mapType));
    }
  }
}

TEST(FloatArrayColouring, MatchReferenceOnRealFrames) {
  std::vector<testing_support::RealFrame> frames;
  for (auto& frame : LoadRealFrames()) {
    if (frame.image.DataType() == KIV_DATA_F32) frames.push_back(frame);
  }
  if (frames.empty()) GTEST_SKIP() << "no shared data folder: the real float frames are skipped";
  QuietStdout quiet;
  KivLUTSetting lut;
  for (const auto& frame : frames) {
    const float* z = frame.image.Ptr<float>();
    const std::vector<float> values(z, z + frame.image.Width() * frame.image.Height());
    Kiv3DFloatArray array = ArrayOf(values);
    KivColorArray out;
    ASSERT_EQ(lut.SetColorLUT(array, 0.0f, 10.0f, 1, &out), LUT_OK);
    EXPECT_EQ(BytesOf(out), ReferenceEqualised(values, 0.0f, 10.0f, 1)) << frame.name;
    ASSERT_EQ(lut.SetColorLUT(array, 0.9f, 1.4f, 6, &out), LUT_OK);
    EXPECT_EQ(BytesOf(out), ReferenceEqualised(values, 0.9f, 1.4f, 6)) << frame.name;
    ASSERT_EQ(lut.LinearSetColorLUT(array, 0.5f, 2.0f, 3, &out), LUT_OK);
    EXPECT_EQ(BytesOf(out), ReferenceLinear(values, 0.5f, 2.0f, 3)) << frame.name;
  }
}

// ---------------------------------------------------------------------------------------------
// Equalised: edge cases.

TEST(FloatArrayColouring, WideBoundsAreNarrowedToTheData) {
  QuietStdout quiet;
  std::mt19937_64 random(3);
  const std::vector<float> values = RandomValues(500, random);
  Kiv3DFloatArray array = ArrayOf(values);
  float m = FLT_MAX, M = -FLT_MAX;
  for (float v : values) {
    if (ReferenceIsValid(v)) {
      m = std::min(m, v);
      M = std::max(M, v);
    }
  }
  KivLUTSetting lut;
  KivColorArray wide, exact, inside;
  ASSERT_EQ(lut.SetColorLUT(array, -1e30f, 1e30f, 4, &wide), LUT_OK);
  ASSERT_EQ(lut.SetColorLUT(array, m, M, 4, &exact), LUT_OK);
  EXPECT_EQ(BytesOf(wide), BytesOf(exact));
  ASSERT_EQ(lut.SetColorLUT(array, 0.0f, 1.0f, 4, &inside), LUT_OK);  // kept: values beyond
  EXPECT_NE(BytesOf(inside), BytesOf(exact));
  EXPECT_EQ(BytesOf(inside), ReferenceEqualised(values, 0.0f, 1.0f, 4));
}

TEST(FloatArrayColouring, NoValidElementIsBlackForEveryMap) {
  QuietStdout quiet;
  Kiv3DFloatArray array = ArrayOf(std::vector<float>(9, -FLT_MAX));
  KivLUTSetting lut;
  for (int mapType = 0; mapType <= 10; ++mapType) {
    KivColorArray out;
    ASSERT_EQ(lut.SetColorLUT(array, -1.0f, 1.0f, mapType, &out), LUT_OK);
    // The range crosses, the one-entry path runs with the arrays' invalid colour: black, also for
    // maps whose first entry is not.
    EXPECT_EQ(BytesOf(out), Bytes(27, 0)) << "map " << mapType;
  }
}

TEST(FloatArrayColouring, MapSevenColoursLikeGreyAndEqualBoundsAreAccepted) {
  QuietStdout quiet;
  std::mt19937_64 random(5);
  Kiv3DFloatArray array = ArrayOf(RandomValues(300, random));
  KivLUTSetting lut;
  KivColorArray seven, zero;
  ASSERT_EQ(lut.SetColorLUT(array, -2.0f, 2.0f, 7, &seven), LUT_OK);
  ASSERT_EQ(lut.SetColorLUT(array, -2.0f, 2.0f, 0, &zero), LUT_OK);
  EXPECT_EQ(BytesOf(seven), BytesOf(zero));
  EXPECT_EQ(lut.SetColorLUT(array, 1.0f, 1.0f, 1, &zero), LUT_OK);
  EXPECT_EQ(lut.LinearSetColorLUT(array, 1.0f, 1.0f, 1, &zero), LUT_OK);
}

// ---------------------------------------------------------------------------------------------
// Linear: edge cases.

TEST(FloatArrayColouring, LinearEntriesAtAndAroundTheBounds) {
  Kiv3DFloatArray array = ArrayOf({1.0f, 0.5f, 3.5f, 3.0f, 2.0f});
  KivLUTSetting lut;
  KivColorArray out;
  ASSERT_EQ(lut.LinearSetColorLUT(array, 1.0f, 3.0f, kRainbowMap, &out), LUT_OK);
  const ColourTable& table = kRainbowTable;
  const Bytes got = BytesOf(out);
  auto at = [&](int i) { return Bytes(got.begin() + 3 * i, got.begin() + 3 * i + 3); };
  auto entry = [&](int k) { return Bytes(table[k].begin(), table[k].end()); };
  EXPECT_EQ(at(0), entry(1));    // exactly at minValue: entry 1, not 0
  EXPECT_EQ(at(1), entry(0));    // below
  EXPECT_EQ(at(2), entry(255));  // above
  EXPECT_EQ(at(3), entry(255));  // at maxValue: 255 / 1 x 255
  EXPECT_EQ(at(4), entry(127));
}

TEST(FloatArrayColouring, LinearInvalidElementsAreBlackEvenForHotMetal) {
  Kiv3DFloatArray array = ArrayOf({-FLT_MAX, kNaN, kInf, -kInf, 0.5f});
  KivLUTSetting lut;
  KivColorArray out;
  ASSERT_EQ(lut.LinearSetColorLUT(array, 0.0f, 1.0f, kHotMetalMap, &out), LUT_OK);
  const Bytes got = BytesOf(out);
  EXPECT_EQ(Bytes(got.begin(), got.begin() + 12), Bytes(12, 0));
  Kiv3DFloatArray one = ArrayOf({0.25f});
  ASSERT_EQ(lut.LinearSetColorLUT(one, 0.0f, 1.0f, kJetMap, &out), LUT_OK);
  EXPECT_EQ(BytesOf(out), ReferenceLinear({0.25f}, 0.0f, 1.0f, kJetMap));
}

// ---------------------------------------------------------------------------------------------
// Checks, timing line, stage codes, logging.

TEST(FloatArrayColouring, ArgumentChecksInOrder) {
  KivLUTSetting lut;
  KivColorArray out;
  out.Create(2, 3);
  out.Data()[0] = 42;
  Kiv3DFloatArray empty;
  Kiv3DFloatArray array = ArrayOf({1.0f, 2.0f});
  for (int method = 0; method < 2; ++method) {
    auto call = [&](Kiv3DFloatArray& values, float lo, float hi, int map, KivColorArray* o) {
      return method == 0 ? lut.SetColorLUT(values, lo, hi, map, o)
                         : lut.LinearSetColorLUT(values, lo, hi, map, o);
    };
    EXPECT_EQ(call(empty, 2.0f, 1.0f, 11, &out), LUT_ERR_ARRAY_EMPTY);
    EXPECT_EQ(call(array, 2.0f, 1.0f, 11, &out), LUT_ERR_PARAM_1);
    EXPECT_EQ(call(array, 1.0f, 2.0f, 11, &out), LUT_ERR_PARAM_3);
    EXPECT_EQ(call(array, 1.0f, 2.0f, -1, &out), LUT_ERR_PARAM_3);
    EXPECT_EQ(call(array, 1.0f, 2.0f, 1, nullptr),
              method == 0 ? LUT_ERR_OUTPUT_FAILED : LUT_ERR_ARRAY_OUTPUT_FAILED);
    EXPECT_EQ(out.Data()[0], 42);  // untouched by every refused call
  }
  testing::internal::CaptureStdout();
  EXPECT_EQ(lut.SetColorLUT(array, kNaN, 2.0f, 1, &out), LUT_OK);  // a NaN bound passes
  testing::internal::GetCapturedStdout();
}

TEST(FloatArrayColouring, TimingLineOnStandardOutput) {
  Kiv3DFloatArray array = ArrayOf({1.0f, 2.0f, 3.0f});
  KivLUTSetting lut;
  KivColorArray out;
  testing::internal::CaptureStdout();
  ASSERT_EQ(lut.SetColorLUT(array, 0.0f, 5.0f, 1, &out), LUT_OK);
  const std::string printed = testing::internal::GetCapturedStdout();
  const std::string prefix = kTimingPrefix;
  ASSERT_GT(printed.size(), prefix.size() + 3);
  EXPECT_EQ(printed.substr(0, prefix.size()), prefix);
  EXPECT_EQ(printed.substr(printed.size() - 3), "ms\n");
  const std::string number = printed.substr(prefix.size(), printed.size() - prefix.size() - 3);
  size_t parsed = 0;
  const double milliseconds = std::stod(number, &parsed);
  EXPECT_EQ(parsed, number.size());
  EXPECT_GE(milliseconds, 0.0);
  // A failing check prints nothing.
  testing::internal::CaptureStdout();
  EXPECT_EQ(lut.SetColorLUT(array, 5.0f, 0.0f, 1, &out), LUT_ERR_PARAM_1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(FloatArrayColouring, EachStageThatThrowsReturnsItsCode) {
  Kiv3DFloatArray array = ArrayOf({1.0f, 2.0f, 3.0f, -FLT_MAX});
  const struct {
    bool linear;
    FaultStage stage;
    long code;
  } cases[] = {
      {false, FaultStage::kOutputSizing, LUT_ERR_OUTPUT_FAILED},
      {false, FaultStage::kStatistics, LUT_ERR_STATISTICS_FAILED},
      {false, FaultStage::kColouring, LUT_ERR_APPLY_FAILED},
      {true, FaultStage::kOutputSizing, LUT_ERR_ARRAY_OUTPUT_FAILED},
      {true, FaultStage::kColouring, LUT_ERR_ARRAY_APPLY_FAILED},
  };
  for (const auto& c : cases) {
    KivColorArray out;
    out.Create(1, 3);
    {
      ScopedFault fault(c.stage);
      const long status = c.linear ? LinearSetColorLUTOnFloatArray(array, 0.0f, 4.0f, 1, &out)
                                   : SetColorLUTOnFloatArray(array, 0.0f, 4.0f, 1, &out);
      EXPECT_EQ(status, c.code);
    }
    EXPECT_EQ(out.Length(), c.stage == FaultStage::kOutputSizing ? 1 : 4);
    EXPECT_EQ(array.Data()[3], -FLT_MAX);  // the input is never changed
  }
  // The public SetColorLUT does not pass a failing routine's code on.
  KivLUTSetting lut;
  KivColorArray out;
  testing::internal::CaptureStdout();
  {
    ScopedFault fault(FaultStage::kStatistics);
    EXPECT_EQ(lut.SetColorLUT(array, 0.0f, 4.0f, 1, &out), LUT_OK);
    EXPECT_EQ(lut.LinearSetColorLUT(array, 0.0f, 4.0f, 1, &out), LUT_OK);  // no such stage
  }
  {
    ScopedFault fault(FaultStage::kColouring);
    EXPECT_EQ(lut.LinearSetColorLUT(array, 0.0f, 4.0f, 1, &out), LUT_ERR_ARRAY_APPLY_FAILED);
  }
  testing::internal::GetCapturedStdout();
}

TEST(FloatArrayColouring, EachMethodLogsItsTags) {
  Kiv3DFloatArray array = ArrayOf({1.0f, 2.0f});
  KivLUTSetting lut;
  KivColorArray out;
  testing_support::LogCapture capture;
  testing::internal::CaptureStdout();
  ASSERT_EQ(lut.SetColorLUT(array, 0.0f, 5.0f, 1, &out), LUT_OK);
  ASSERT_EQ(lut.LinearSetColorLUT(array, 0.0f, 5.0f, 1, &out), LUT_OK);
  ASSERT_EQ(lut.LinearSetColorLUT(array, 5.0f, 0.0f, 1, &out), LUT_ERR_PARAM_1);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(capture.Tags(), (std::vector<std::string>{
                                "SetColorLUT:261:start",
                                std::string("SetColorLUT:281:") + kArrayNonLinearEndMessage,
                                "LinearSetColorLUT:287:start",
                                std::string("LinearSetColorLUT:304:") + kArrayLinearEndMessage,
                                "LinearSetColorLUT:287:start",
                            }));
}

}  // namespace
}  // namespace KIVMV
