#include "common/load_time_config.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <opencv2/core/utility.hpp>
#include <string>

namespace KIVMV {
namespace {

// Each ctest case starts this program with its own KIV_TBB_CHUNKS and the worker count it expects.
TEST(LoadTimeConfig, WorkerCountFollowsChunkSetting) {
  const char* expected = std::getenv("KIVLUT_EXPECTED_WORKERS");
  if (expected == nullptr) {
    GTEST_SKIP() << "run through ctest, which sets KIV_TBB_CHUNKS and KIVLUT_EXPECTED_WORKERS";
  }
  const std::string text = expected;
  const int want = text == "processors" ? cv::getNumberOfCPUs() : std::stoi(text);
  EXPECT_EQ(ConfiguredWorkerCount(), want);
}

TEST(LoadTimeConfig, UnusedSettingsHaveDefaults) {
  const LoadTimeConfig& config = GetLoadTimeConfig();
  EXPECT_EQ(config.efficiency, 0);
  EXPECT_FALSE(config.gpu);
  EXPECT_EQ(config.winVersion, 0);
}

}  // namespace
}  // namespace KIVMV
