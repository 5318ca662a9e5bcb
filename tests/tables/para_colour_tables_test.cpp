#include "tables/para_colour_tables.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdlib>

namespace KIVMV {
namespace {

constexpr std::array<int, 5> kAnchorIndices = {0, 127, 511, 895, 1023};

struct Bgr {
  int blue;
  int green;
  int red;
};

// The colours the automatic five-point scale lands on, as stored (blue, green, red), map types 1
// to 10 at entries 0, 127, 511, 895 and 1023.
constexpr std::array<std::array<Bgr, 5>, 10> kAnchors = {{
    {{{128, 0, 128}, {255, 0, 128}, {255, 255, 0}, {0, 128, 255}, {0, 0, 255}}},
    {{{0, 0, 0}, {0, 0, 126}, {0, 164, 255}, {126, 255, 255}, {254, 255, 255}}},
    {{{200, 80, 32}, {209, 117, 83}, {238, 231, 241}, {63, 59, 163}, {5, 2, 138}}},
    {{{236, 183, 54}, {200, 183, 77}, {93, 187, 149}, {200, 154, 221}, {236, 144, 246}}},
    {{{255, 0, 0}, {255, 127, 0}, {0, 255, 0}, {0, 128, 255}, {0, 0, 255}}},
    {{{127, 0, 0}, {255, 0, 0}, {127, 255, 127}, {0, 0, 255}, {0, 0, 127}}},
    {{{182, 50, 1}, {174, 117, 48}, {213, 213, 255}, {31, 3, 220}, {44, 10, 136}}},
    {{{0, 0, 0}, {48, 37, 25}, {94, 124, 105}, {75, 177, 227}, {42, 82, 255}}},
    {{{157, 86, 1}, {35, 125, 231}, {164, 178, 125}, {15, 67, 172}, {39, 52, 52}}},
    {{{72, 56, 75}, {114, 71, 38}, {200, 198, 200}, {36, 58, 128}, {72, 56, 75}}},
}};

void ExpectEntry(const ParaColourTable& table, int i, Bgr want, int mapType) {
  EXPECT_EQ(table[i][0], want.blue) << "map " << mapType << " entry " << i << " blue";
  EXPECT_EQ(table[i][1], want.green) << "map " << mapType << " entry " << i << " green";
  EXPECT_EQ(table[i][2], want.red) << "map " << mapType << " entry " << i << " red";
}

int Step(const ParaColourTable& table, int i, int channel) {
  return int{table[i + 1][channel]} - int{table[i][channel]};
}

TEST(ParaColourTables, EveryAnchorEntryIsExact) {
  for (int map = 1; map <= 10; ++map) {
    const ParaColourTable& table = SelectParaColourTable(map);
    for (int a = 0; a < 5; ++a) {
      ExpectEntry(table, kAnchorIndices[a], kAnchors[map - 1][a], map);
    }
  }
}

TEST(ParaColourTables, RangeImageSelectionGivesTwoToTenTheirOwnTable) {
  for (int map = 1; map <= 10; ++map) {
    for (int other = map + 1; other <= 10; ++other) {
      EXPECT_NE(&SelectParaColourTable(map), &SelectParaColourTable(other))
          << "maps " << map << " and " << other;
    }
  }
  const ParaColourTable* table1 = &SelectParaColourTable(1);
  for (int map : {-1, 0, 11, INT_MIN, INT_MAX}) {
    EXPECT_EQ(&SelectParaColourTable(map), table1) << "map " << map;
  }
}

TEST(ParaColourTables, ArraySelectionFoldsSevenToTenOntoThreeToSix) {
  struct Case {
    int mapType;
    int tableOf;
  };
  constexpr Case kCases[] = {{-1, 1}, {0, 1},  {1, 1},  {2, 2},  {3, 3},       {4, 4},
                             {5, 5},  {6, 6},  {7, 3},  {8, 4},  {9, 5},       {10, 6},
                             {11, 1}, {12, 1}, {-7, 1}, {-3, 1}, {INT_MIN, 1}, {INT_MAX, 1}};
  for (const Case& c : kCases) {
    EXPECT_EQ(&SelectParaColourTableForArray(c.mapType), &SelectParaColourTable(c.tableOf))
        << "map " << c.mapType;
  }
  // The float-array form with map type 7 colours like the diverging table of type 3.
  ExpectEntry(SelectParaColourTableForArray(7), 511, kAnchors[2][2], 7);
}

// Between two neighbouring anchors every channel only rises, only falls, or stays flat, in the
// direction the anchors give.
TEST(ParaColourTables, ChannelsAreMonotoneBetweenAnchors) {
  for (int map = 1; map <= 10; ++map) {
    const ParaColourTable& table = SelectParaColourTable(map);
    for (int a = 0; a + 1 < 5; ++a) {
      for (int channel = 0; channel < 3; ++channel) {
        const int from = kAnchorIndices[a];
        const int to = kAnchorIndices[a + 1];
        const int change = int{table[to][channel]} - int{table[from][channel]};
        for (int i = from; i < to; ++i) {
          const int step = Step(table, i, channel);
          if (change > 0) {
            EXPECT_GE(step, 0) << "map " << map << " entry " << i << " channel " << channel;
          } else if (change < 0) {
            EXPECT_LE(step, 0) << "map " << map << " entry " << i << " channel " << channel;
          } else {
            EXPECT_EQ(step, 0) << "map " << map << " entry " << i << " channel " << channel;
          }
        }
      }
    }
  }
}

// No step is larger than the neighbouring anchors imply. With change D over L entries, the
// anchors' slope is D / L; a shape knot may concentrate the change into no less than half the
// stretch (slope 2 D / L), a monotone cubic never runs steeper than three times the slope of the
// stretch it spans, and rounding adds at most one: |step| <= floor(6 |D| / L) + 1.
TEST(ParaColourTables, StepsAreBoundedByTheNeighbouringAnchors) {
  for (int map = 1; map <= 10; ++map) {
    const ParaColourTable& table = SelectParaColourTable(map);
    for (int a = 0; a + 1 < 5; ++a) {
      for (int channel = 0; channel < 3; ++channel) {
        const int from = kAnchorIndices[a];
        const int to = kAnchorIndices[a + 1];
        const int change = std::abs(int{table[to][channel]} - int{table[from][channel]});
        const int bound = 6 * change / (to - from) + 1;
        for (int i = from; i < to; ++i) {
          EXPECT_LE(std::abs(Step(table, i, channel)), bound)
              << "map " << map << " entry " << i << " channel " << channel;
        }
      }
    }
  }
}

TEST(ParaColourTables, TypeTenIsCyclicAndSmoothAcrossTheWrap) {
  const ParaColourTable& table = SelectParaColourTable(10);
  EXPECT_EQ(table[0], table[kParaTableSize - 1]);
  // Going on from entry 1023 to entry 1 keeps the pace: each channel changes by the same amount,
  // give or take rounding, over the 32 entries before the wrap and the 32 after it.
  constexpr int kWindow = 32;
  for (int channel = 0; channel < 3; ++channel) {
    const int before =
        int{table[kParaTableSize - 1][channel]} - int{table[kParaTableSize - 1 - kWindow][channel]};
    const int after = int{table[kWindow][channel]} - int{table[0][channel]};
    EXPECT_LE(std::abs(before - after), 1) << "channel " << channel;
  }
}

// Where a 256-entry namesake exists, the 1024-entry map keeps its landmarks.
TEST(ParaColourTables, MapsKeepTheCharacterOfTheirNamesakes) {
  const ParaColourTable& rainbow = SelectParaColourTable(1);
  ExpectEntry(rainbow, 319, {255, 0, 0}, 1);  // pure blue between violet and cyan
  EXPECT_EQ(rainbow[671][1], 255);            // green at full while blue and red are low
  EXPECT_LT(rainbow[671][0], 32);
  EXPECT_LT(rainbow[671][2], 32);

  const ParaColourTable& hotMetal = SelectParaColourTable(2);
  EXPECT_EQ(hotMetal[319][2], 255);  // red saturates before green has risen far
  EXPECT_LT(hotMetal[319][1], 32);
  EXPECT_EQ(hotMetal[319][0], 0);
  ExpectEntry(hotMetal, 703, {0, 255, 255}, 2);  // yellow before blue rises

  const ParaColourTable& jet = SelectParaColourTable(6);
  EXPECT_GT(jet[351][0], 224);  // cyan between the blue plateau and green
  EXPECT_GT(jet[351][1], 224);
  EXPECT_LT(jet[351][2], 32);
  ExpectEntry(jet, 703, {0, 255, 255}, 6);  // yellow
  for (int i = 895; i <= 1023; ++i) {
    EXPECT_EQ(jet[i][0], 0) << "entry " << i;  // the dark-red tail has no blue or green
    EXPECT_EQ(jet[i][1], 0) << "entry " << i;
  }
}

TEST(ParaColourTables, ParaGreyTableIsASeparateCopyOfTheGreyTable) {
  EXPECT_NE(&kParaGreyTable, &kGreyTable);
  for (int i = 0; i < kColourTableSize; ++i) {
    EXPECT_EQ(kParaGreyTable[i], kGreyTable[i]) << "entry " << i;
    EXPECT_EQ(kParaGreyTable[i][0], i) << "entry " << i;
  }
}

}  // namespace
}  // namespace KIVMV
