#include <gtest/gtest.h>

#include <cmath>

#include "KivColoring.h"

namespace KIVMV {
namespace {

KivColoringInfo EvenScale(double low, double high) {
  KivColoringInfo info;
  info.low = low;
  info.high = high;
  for (int i = 0; i <= 256; ++i) info.entryStart.push_back(low + (high - low) * i / 256.0);
  return info;
}

TEST(TablePosition, IsLinearOnAnEvenScale) {
  const KivColoringInfo info = EvenScale(100.0, 356.0);
  EXPECT_DOUBLE_EQ(info.TablePosition(100.0), 0.0);
  EXPECT_DOUBLE_EQ(info.TablePosition(228.0), 0.5);
  EXPECT_DOUBLE_EQ(info.TablePosition(100.5), 0.5 / 256);
  EXPECT_DOUBLE_EQ(info.TablePosition(356.0), 1.0);
}

TEST(TablePosition, ClampsOutsideAndRefusesNaNAndNoScale) {
  const KivColoringInfo info = EvenScale(0.0, 1.0);
  EXPECT_EQ(info.TablePosition(-5.0), 0.0);
  EXPECT_EQ(info.TablePosition(7.0), 1.0);
  EXPECT_TRUE(std::isnan(info.TablePosition(NAN)));
  EXPECT_TRUE(std::isnan(KivColoringInfo{}.TablePosition(0.5)));
}

TEST(TablePosition, SkipsEntriesNoValueTakes) {
  // Entries 0..127 share the start 0 (only entry 127 holds values from 0 to 1), the others split
  // 1..2 evenly.
  KivColoringInfo info;
  for (int i = 0; i < 128; ++i) info.entryStart.push_back(0.0);
  for (int i = 128; i <= 256; ++i) info.entryStart.push_back(1.0 + (i - 128) / 128.0);
  EXPECT_DOUBLE_EQ(info.TablePosition(0.0), 127.0 / 256);
  EXPECT_DOUBLE_EQ(info.TablePosition(0.5), 127.5 / 256);
  EXPECT_DOUBLE_EQ(info.TablePosition(1.0), 128.0 / 256);
  EXPECT_DOUBLE_EQ(info.TablePosition(1.5), 192.0 / 256);
}

}  // namespace
}  // namespace KIVMV
