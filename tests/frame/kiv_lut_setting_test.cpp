#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "KivLUTSetting.h"
#include "frame/end_messages.h"
#include "support/log_capture.h"

namespace KIVMV {
namespace {

using testing_support::LogCapture;
using testing_support::LogLine;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(KivLUTSetting, GetColorEdgeCases) {
  KivLUTSetting lut;
  KivColor colour;
  EXPECT_EQ(lut.GetColor(kNaN, 1, &colour), LUT_ERR_PARAM_1);
  EXPECT_EQ(lut.GetColor(1.0, 11, &colour), LUT_ERR_PARAM_2);
  EXPECT_EQ(lut.GetColor(0.5, -1, &colour), LUT_ERR_PARAM_2);
  EXPECT_EQ(lut.GetColor(0.5, 1, nullptr), LUT_ERR_PARAM_3);

  ASSERT_EQ(lut.GetColor(1.0, 1, &colour), LUT_OK);
  EXPECT_EQ(colour, KivColor(0, 3, 255));
  ASSERT_EQ(lut.GetColor(0.5, 5, &colour), LUT_OK);
  EXPECT_EQ(colour, KivColor(2, 253, 0));
}

TEST(KivLUTSetting, SuccessLogsStartAndOneEndLine) {
  LogCapture capture;
  KivLUTSetting lut;
  KivColor colour;
  ASSERT_EQ(lut.GetColor(0.25, 3, &colour), LUT_OK);

  const std::vector<LogLine> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, "start");
  EXPECT_EQ(lines[0].className, "KivLUTSetting");
  EXPECT_EQ(lines[0].methodName, "GetColor");
  EXPECT_EQ(lines[0].line, 313);
  EXPECT_EQ(lines[1].message, kColorQueryEndMessage);  // GBK bytes, passed on unchanged
  EXPECT_EQ(lines[1].className, "KivLUTSetting");
  EXPECT_EQ(lines[1].methodName, "GetColor");
  EXPECT_EQ(lines[1].line, 325);
}

TEST(KivLUTSetting, FailingCheckLogsOnlyStart) {
  LogCapture capture;
  KivLUTSetting lut;
  KivColor colour;
  ASSERT_EQ(lut.GetColor(1.5, 1, &colour), LUT_ERR_PARAM_1);
  ASSERT_EQ(lut.GetColor(0.5, 11, &colour), LUT_ERR_PARAM_2);

  const std::vector<LogLine> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  for (const LogLine& line : lines) {
    EXPECT_EQ(line.message, "start");
    EXPECT_EQ(line.methodName, "GetColor");
    EXPECT_EQ(line.line, 313);
  }
}

TEST(KivLUTSetting, CopiesShareTheStatelessImplementation) {
  KivColor a, b, c;
  {
    KivLUTSetting original;
    KivLUTSetting copy = original;
    KivLUTSetting assigned;
    assigned = copy;
    ASSERT_EQ(original.GetColor(0.75, 4, &a), LUT_OK);
    ASSERT_EQ(copy.GetColor(0.75, 4, &b), LUT_OK);
    ASSERT_EQ(assigned.GetColor(0.75, 4, &c), LUT_OK);
  }  // three destructors, one implementation: no double free
  EXPECT_EQ(a, b);
  EXPECT_EQ(a, c);
}

TEST(KivLUTSetting, OneObjectServesManyThreads) {
  KivLUTSetting lut;
  std::vector<std::thread> threads;
  std::vector<int> mismatches(8, 0);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&lut, &mismatches, t] {
      KivLUTSetting alone;
      for (int i = 0; i < 2000; ++i) {
        const double value = ((i * 7 + t) % 1001) / 1000.0;
        const int map = (i + t) % 11;
        KivColor shared, fresh;
        if (lut.GetColor(value, map, &shared) != LUT_OK ||
            alone.GetColor(value, map, &fresh) != LUT_OK || !(shared == fresh)) {
          ++mismatches[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < 8; ++t) EXPECT_EQ(mismatches[t], 0) << "thread " << t;
}

TEST(KivLUTSetting, StatusNamesMatchTheirConstants) {
  EXPECT_STREQ(KivLUTStatusName(LUT_OK), "LUT_OK");
  EXPECT_STREQ(KivLUTStatusName(11200001), "LUT_ERR_PARAM_1");
  EXPECT_STREQ(KivLUTStatusName(11100029), "LUT_ERR_RANGE_IMAGE_TYPE");
  EXPECT_STREQ(KivLUTStatusName(20218120), "LUT_ERR_PARA_COUNT");
  EXPECT_STREQ(KivLUTStatusName(20218115), "LUT_UNKNOWN_STATUS");  // the unused number
  EXPECT_STREQ(KivLUTStatusName(-1), "LUT_UNKNOWN_STATUS");
}

}  // namespace
}  // namespace KIVMV
