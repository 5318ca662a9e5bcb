#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "KivConfiguration.h"
#include "setting_parsers.h"

namespace KIVMV {
namespace {

TEST(Configuration, ParseIntAcceptsWholeNumbers) {
  EXPECT_EQ(0, detail::ParseIntSetting("0", 9));
  EXPECT_EQ(42, detail::ParseIntSetting("42", 9));
  EXPECT_EQ(-3, detail::ParseIntSetting("-3", 9));
  EXPECT_EQ(7, detail::ParseIntSetting("+7", 9));
  EXPECT_EQ(12, detail::ParseIntSetting("  12", 9));
  EXPECT_EQ(2147483647, detail::ParseIntSetting("2147483647", 9));
  EXPECT_EQ(-2147483647 - 1, detail::ParseIntSetting("-2147483648", 9));
}

TEST(Configuration, ParseIntRejectsEverythingElse) {
  EXPECT_EQ(9, detail::ParseIntSetting(nullptr, 9));
  EXPECT_EQ(9, detail::ParseIntSetting("", 9));
  EXPECT_EQ(9, detail::ParseIntSetting(" ", 9));
  EXPECT_EQ(9, detail::ParseIntSetting("abc", 9));
  EXPECT_EQ(9, detail::ParseIntSetting("4x", 9));
  EXPECT_EQ(9, detail::ParseIntSetting("4 ", 9));
  EXPECT_EQ(9, detail::ParseIntSetting("1.5", 9));
  EXPECT_EQ(9, detail::ParseIntSetting("2147483648", 9));
  EXPECT_EQ(9, detail::ParseIntSetting("-2147483649", 9));
  EXPECT_EQ(9, detail::ParseIntSetting("99999999999999999999999", 9));
}

TEST(Configuration, ParseBool) {
  for (const char* yes : {"1", "true", "TRUE", "True", "yes", "YeS", "on", "ON"}) {
    EXPECT_TRUE(detail::ParseBoolSetting(yes, false)) << yes;
  }
  for (const char* no : {"0", "false", "FALSE", "no", "No", "off", "OFF"}) {
    EXPECT_FALSE(detail::ParseBoolSetting(no, true)) << no;
  }
  for (const char* junk : {"", "2", "y", "truee", " on", "enabled"}) {
    EXPECT_TRUE(detail::ParseBoolSetting(junk, true)) << junk;
    EXPECT_FALSE(detail::ParseBoolSetting(junk, false)) << junk;
  }
  EXPECT_TRUE(detail::ParseBoolSetting(nullptr, true));
  EXPECT_FALSE(detail::ParseBoolSetting(nullptr, false));
}

TEST(Configuration, NullPointerIsReported) {
  EXPECT_EQ(kKivPlatformNullArgument, KivGetStaticEfficiency(nullptr));
  EXPECT_EQ(kKivPlatformNullArgument, KivGetStaticTBB(nullptr));
  EXPECT_EQ(kKivPlatformNullArgument, KivGetStaticGPU(nullptr));
  EXPECT_EQ(kKivPlatformNullArgument, KivGetStaticWinVersion(nullptr));
  EXPECT_NE(kKivPlatformOk, kKivPlatformNullArgument);
}

TEST(Configuration, GettersSucceedInThisProcess) {
  int value = 0;
  bool flag = false;
  EXPECT_EQ(kKivPlatformOk, KivGetStaticEfficiency(&value));
  EXPECT_EQ(kKivPlatformOk, KivGetStaticTBB(&value));
  EXPECT_EQ(kKivPlatformOk, KivGetStaticGPU(&flag));
  EXPECT_EQ(kKivPlatformOk, KivGetStaticWinVersion(&value));
}

// The environment is read once per process, so every scenario below runs in a freshly started
// child (the "threadsafe" death-test style re-executes the test binary) with the variables set
// just before the first read. The child reports a mismatch on stderr and exits non-zero.
struct Expected {
  int efficiency;
  int tbb;
  bool gpu;
  int winVersion;
};

void SetOrUnset(const char* name, const char* value) {
  if (value != nullptr) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
}

[[noreturn]] void CheckInChild(const char* efficiency, const char* tbb, const char* gpu,
                               const char* winVersion, Expected expected) {
  SetOrUnset("KIV_EFFICIENCY", efficiency);
  SetOrUnset("KIV_TBB_CHUNKS", tbb);
  SetOrUnset("KIV_GPU", gpu);
  SetOrUnset("KIV_WIN_VERSION", winVersion);
  int failures = 0;
  for (int pass = 0; pass < 2; ++pass) {
    int e = -99, t = -99, w = -99;
    bool g = !expected.gpu;
    if (KivGetStaticEfficiency(&e) != kKivPlatformOk || KivGetStaticTBB(&t) != kKivPlatformOk ||
        KivGetStaticGPU(&g) != kKivPlatformOk || KivGetStaticWinVersion(&w) != kKivPlatformOk) {
      std::fprintf(stderr, "a getter failed\n");
      ++failures;
    }
    if (e != expected.efficiency || t != expected.tbb || g != expected.gpu ||
        w != expected.winVersion) {
      std::fprintf(stderr, "pass %d: got efficiency=%d tbb=%d gpu=%d win=%d\n", pass, e, t,
                   static_cast<int>(g), w);
      ++failures;
    }
    // Changes after the first read must not be seen.
    setenv("KIV_EFFICIENCY", "555", 1);
    setenv("KIV_TBB_CHUNKS", "555", 1);
    setenv("KIV_GPU", expected.gpu ? "0" : "1", 1);
    setenv("KIV_WIN_VERSION", "555", 1);
  }
  std::exit(failures == 0 ? 0 : 1);
}

class ConfigurationEnvironment : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(ConfigurationEnvironment, DefaultsWhenUnset) {
  EXPECT_EXIT(CheckInChild(nullptr, nullptr, nullptr, nullptr, {0, 0, false, 0}),
              ::testing::ExitedWithCode(0), "");
}

TEST_F(ConfigurationEnvironment, ReadsValues) {
  EXPECT_EXIT(CheckInChild("3", "16", "YES", "10", {3, 16, true, 10}), ::testing::ExitedWithCode(0),
              "");
}

TEST_F(ConfigurationEnvironment, NegativeChunkCountIsReturnedAsParsed) {
  EXPECT_EXIT(CheckInChild("-1", "-4", "off", "-7", {-1, -4, false, -7}),
              ::testing::ExitedWithCode(0), "");
}

TEST_F(ConfigurationEnvironment, MalformedValuesKeepDefaults) {
  EXPECT_EXIT(CheckInChild("3.5", "8 chunks", "maybe", "99999999999", {0, 0, false, 0}),
              ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(CheckInChild("", "", "", "", {0, 0, false, 0}), ::testing::ExitedWithCode(0), "");
}

TEST_F(ConfigurationEnvironment, GpuWords) {
  EXPECT_EXIT(CheckInChild(nullptr, nullptr, "1", nullptr, {0, 0, true, 0}),
              ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(CheckInChild(nullptr, nullptr, "On", nullptr, {0, 0, true, 0}),
              ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(CheckInChild(nullptr, nullptr, "tRuE", nullptr, {0, 0, true, 0}),
              ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(CheckInChild(nullptr, nullptr, "false", nullptr, {0, 0, false, 0}),
              ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace KIVMV
