#include "dialog/dialog_geometry.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace KIVMV {
namespace {

using dialog::NarrowWindowId;
using dialog::TruncatedShare;

TEST(DialogGeometry, SharesOfTheScreenAreTruncatedNotRounded) {
  struct Case {
    int length;
    double share;
    int expected;
  } cases[] = {
      {1366, 0.65, 887},  // 887.9
      {768, 0.7, 537},    // 537.6
      {1920, 0.65, 1248}, {1080, 0.7, 756}, {800, 0.65, 520},
      {600, 0.7, 420},    {0, 0.65, 0},     {1, 0.7, 0},  // 0.7
      {-1, 0.5, 0},                                       // -0.5 truncates toward zero
      {-333, 0.25, -83},                                  // -83.25
      {433, 0.5, 216},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TruncatedShare(c.length, c.share), c.expected) << c.length << " * " << c.share;
  }
}

TEST(DialogGeometry, WindowIdsKeepTheirLow32Bits) {
  EXPECT_EQ(NarrowWindowId(0), 0L);
  EXPECT_EQ(NarrowWindowId(0x00A00007u), 0x00A00007L);
  EXPECT_EQ(NarrowWindowId(0xFFFFFFFFu), 0xFFFFFFFFL);
  EXPECT_EQ(NarrowWindowId(0x123456789ABCDEF0ull), 0x9ABCDEF0L);
  EXPECT_GE(NarrowWindowId(UINT64_MAX), 0L);
}

}  // namespace
}  // namespace KIVMV
