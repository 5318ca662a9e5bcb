#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <type_traits>

#include "KivColor.h"

namespace KIVMV {
namespace {

static_assert(sizeof(KivColor) == 16, "four packed ints");
static_assert(std::is_standard_layout<KivColor>::value, "standard layout");

TEST(Color, DefaultIsAllZero) {
  KivColor color;
  for (int i = 0; i < 4; ++i) EXPECT_EQ(0, color[i]);
}

TEST(Color, ComponentsAreBlueGreenRedThenFourth) {
  KivColor color(10, 20, 30);
  EXPECT_EQ(10, color[0]);  // blue
  EXPECT_EQ(20, color[1]);  // green
  EXPECT_EQ(30, color[2]);  // red
  EXPECT_EQ(0, color[3]);
  KivColor full(1, 2, 3, 4);
  EXPECT_EQ(4, full[3]);
}

TEST(Color, ComponentsAreFullInts) {
  KivColor color(INT_MIN, -1, 256, INT_MAX);
  EXPECT_EQ(INT_MIN, color[0]);
  EXPECT_EQ(-1, color[1]);
  EXPECT_EQ(256, color[2]);
  EXPECT_EQ(INT_MAX, color[3]);
  color[1] = 77;
  const KivColor& view = color;
  EXPECT_EQ(77, view[1]);
}

TEST(Color, ArrayOfColorsIsPackedInts) {
  KivColor colors[2] = {KivColor(1, 2, 3, 4), KivColor(5, 6, 7, 8)};
  int ints[8];
  std::memcpy(ints, colors, sizeof(ints));
  for (int i = 0; i < 8; ++i) EXPECT_EQ(i + 1, ints[i]);
}

TEST(Color, Equality) {
  EXPECT_EQ(KivColor(1, 2, 3), KivColor(1, 2, 3, 0));
  EXPECT_NE(KivColor(1, 2, 3), KivColor(1, 2, 3, 1));
  EXPECT_NE(KivColor(1, 2, 3), KivColor(3, 2, 1));
  EXPECT_TRUE(KivColor() == KivColor(0, 0, 0, 0));
  EXPECT_FALSE(KivColor() != KivColor(0, 0, 0, 0));
}

}  // namespace
}  // namespace KIVMV
