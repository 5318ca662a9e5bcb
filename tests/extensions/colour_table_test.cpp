#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "KivColorTable.h"
#include "KivExtStatus.h"
#include "common/fault_injection.h"
#include "extensions/cielab.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

TEST(DescribedTables, HoldKivLUTSettingsEntriesBlueFirst) {
  for (int m = 0; m <= 10; ++m) {
    const KivColorTable table = KivColorTable::Described(m);
    const ColourTable& stored = SelectColourTable(m);
    for (int i = 0; i < KivColorTable::kSize; ++i) {
      ASSERT_EQ(table.Bgr()[3 * i], stored[i][0]) << m << " " << i;
      ASSERT_EQ(table.Bgr()[3 * i + 1], stored[i][1]) << m << " " << i;
      ASSERT_EQ(table.Bgr()[3 * i + 2], stored[i][2]) << m << " " << i;
      ASSERT_EQ(table.At(i).b, stored[i][0]);
      ASSERT_EQ(table.At(i).r, stored[i][2]);
    }
    EXPECT_EQ(table.DescribedMapType(), m <= 6 ? m : 0);
  }
}

TEST(DescribedTables, NoDataIsTheInvalidColour) {
  EXPECT_EQ(KivColorTable::Described(2).NoDataColor(), (KivRgb{255, 255, 255}));
  EXPECT_EQ(KivColorTable::Described(6).NoDataColor(), (KivRgb{0, 0, 0}));
  EXPECT_EQ(KivColorTable().Name(), "grey");
}

TEST(Reversal, ReversesEntriesAndComesBack) {
  const KivColorTable jet = KivColorTable::Described(6);
  const KivColorTable reversed = jet.Reversed();
  EXPECT_EQ(reversed.Name(), "jet_r");
  EXPECT_EQ(reversed.DescribedMapType(), -1);
  EXPECT_EQ(reversed.At(0), jet.At(255));
  EXPECT_EQ(reversed.At(255), jet.At(0));
  const KivColorTable back = reversed.Reversed();
  EXPECT_EQ(back.Name(), "jet");
  EXPECT_EQ(back.DescribedMapType(), 6);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(back.At(i), jet.At(i));
}

KivColorTable Named(const std::string& name) {
  KivColorTable table;
  EXPECT_EQ(KivColorTable::ByName(name, &table), KIV_EXT_OK) << name;
  return table;
}

bool SameEntries(const KivColorTable& a, const KivColorTable& b) {
  for (int i = 0; i < 3 * KivColorTable::kSize; ++i) {
    if (a.Bgr()[i] != b.Bgr()[i]) return false;
  }
  return true;
}

bool SameTable(const KivColorTable& a, const KivColorTable& b) {
  return SameEntries(a, b) && a.Name() == b.Name() && a.NoDataColor() == b.NoDataColor() &&
         a.DescribedMapType() == b.DescribedMapType();
}

double Lightness(KivRgb rgb) { return cielab::RgbToCieLab(rgb).l; }

double ColourDifference(KivRgb x, KivRgb y) {
  const cielab::CieLab a = cielab::RgbToCieLab(x);
  const cielab::CieLab b = cielab::RgbToCieLab(y);
  return std::sqrt((a.l - b.l) * (a.l - b.l) + (a.a - b.a) * (a.a - b.a) +
                   (a.b - b.b) * (a.b - b.b));
}

void ExpectWithinOne(KivRgb actual, KivRgb expected, const std::string& where) {
  EXPECT_NEAR(actual.r, expected.r, 1) << where;
  EXPECT_NEAR(actual.g, expected.g, 1) << where;
  EXPECT_NEAR(actual.b, expected.b, 1) << where;
}

struct QuotedColour {
  const char* table;
  int entry;
  KivRgb rgb;
};

// Colours the maps' authors quote, not read from the data file the tables come from: viridis,
// magma, inferno and plasma as hex codes on the viridis authors' page (bids.github.io/colormap)
// and in matplotlib's docs, where d3-scale-chromatic takes its ramp ends from too; turbo's ends
// from the byte table Google published with its turbo post (turbo_colormap.c). Within one per
// channel, as their rounding may differ from ours.
const QuotedColour kQuoted[] = {
    {"viridis", 0, {0x44, 0x01, 0x54}}, {"viridis", 255, {0xfd, 0xe7, 0x25}},
    {"magma", 0, {0x00, 0x00, 0x04}},   {"magma", 255, {0xfc, 0xfd, 0xbf}},
    {"inferno", 0, {0x00, 0x00, 0x04}}, {"inferno", 255, {0xfc, 0xff, 0xa4}},
    {"plasma", 0, {0x0d, 0x08, 0x87}},  {"plasma", 255, {0xf0, 0xf9, 0x21}},
    {"turbo", 0, {48, 18, 59}},         {"turbo", 255, {122, 4, 3}},
};

TEST(PublishedTables, MatchColoursTheirAuthorsQuote) {
  for (const QuotedColour& q : kQuoted) {
    ExpectWithinOne(Named(q.table).At(q.entry), q.rgb,
                    std::string(q.table) + " " + std::to_string(q.entry));
  }
}

TEST(PublishedTables, AreNamedWithNeutralNoData) {
  for (const char* name :
       {"viridis", "magma", "inferno", "plasma", "cividis", "turbo", "twilight"}) {
    const KivColorTable table = Named(name);
    EXPECT_EQ(table.Name(), name);
    EXPECT_EQ(table.NoDataColor(), kKivNeutralNoData) << name;
    EXPECT_EQ(table.DescribedMapType(), -1) << name;
  }
}

// Made to rise evenly in lightness (in CAM02-UCS, which their authors used). In CIELAB, after
// rounding to bytes, neighbours may tie or dip by a few hundredths of L* (viridis and cividis do),
// so the test is non-strict between neighbours, within 0.1, and strict over every two entries.
TEST(PublishedTables, LightnessRisesForTheSequentialMaps) {
  for (const char* name : {"viridis", "magma", "inferno", "plasma", "cividis"}) {
    const KivColorTable table = Named(name);
    for (int i = 1; i < KivColorTable::kSize; ++i) {
      ASSERT_GT(Lightness(table.At(i)), Lightness(table.At(i - 1)) - 0.1) << name << " " << i;
      if (i >= 2) {
        ASSERT_GT(Lightness(table.At(i)), Lightness(table.At(i - 2))) << name << " " << i;
      }
    }
    EXPECT_GT(Lightness(table.At(255)) - Lightness(table.At(0)), 60.0) << name;
  }
}

TEST(PublishedTables, TwilightIsCyclicWithADarkMiddle) {
  const KivColorTable twilight = Named("twilight");
  // A cyclic map's two ends meet: a colour difference (CIE76) below 1 is not visible.
  EXPECT_LT(ColourDifference(twilight.At(0), twilight.At(255)), 1.0);
  // Light at both ends, darkest near the middle.
  EXPECT_GT(Lightness(twilight.At(0)), 80.0);
  EXPECT_LT(Lightness(twilight.At(128)), 20.0);
  // Resampled from 510 entries, neighbours stay close: no seam from the resampling.
  for (int i = 1; i < KivColorTable::kSize; ++i) {
    ASSERT_LT(ColourDifference(twilight.At(i), twilight.At(i - 1)), 4.0) << i;
  }
}

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

TEST(TableNames, ListEveryTableInOrder) {
  const std::vector<std::string> expected = {
      "grey",    "rainbow", "hot metal", "diverging", "isoluminant", "rgb",   "jet",
      "viridis", "magma",   "inferno",   "plasma",    "cividis",     "turbo", "twilight"};
  EXPECT_EQ(KivColorTable::Names(), expected);
}

TEST(TableNames, ByNameRoundTripsEveryNameAnyCaseAndReversed) {
  for (const std::string& name : KivColorTable::Names()) {
    const KivColorTable table = Named(name);
    EXPECT_EQ(table.Name(), name);
    EXPECT_TRUE(SameTable(Named(Upper(name)), table)) << name;
    const KivColorTable reversed = Named(name + "_r");
    EXPECT_TRUE(SameTable(reversed, table.Reversed())) << name;
    EXPECT_EQ(reversed.Name(), name + "_r");
    EXPECT_EQ(reversed.At(0), table.At(255)) << name;
    EXPECT_TRUE(SameTable(Named(Upper(name) + "_R"), reversed)) << name;
    EXPECT_EQ(reversed.NoDataColor(), table.NoDataColor()) << name;
  }
}

TEST(TableNames, KivLUTSettingsTablesByNameAreTheDescribedOnes) {
  for (int m = kGreyMap; m <= kJetMap; ++m) {
    const KivColorTable described = KivColorTable::Described(m);
    EXPECT_TRUE(SameTable(Named(described.Name()), described)) << m;
  }
  const KivColorTable jetReversed = Named("Jet_R");
  EXPECT_EQ(jetReversed.Name(), "jet_r");
  EXPECT_EQ(jetReversed.DescribedMapType(), -1);
  EXPECT_EQ(jetReversed.At(0), KivColorTable::Described(kJetMap).At(255));
  EXPECT_EQ(Named("HOT METAL").NoDataColor(), (KivRgb{255, 255, 255}));
}

TEST(TableNames, UnknownNamesLeaveTheOutputAlone) {
  const KivColorTable jet = KivColorTable::Described(kJetMap);
  for (const char* name : {"", "_r", "virid", "viridis_r_r", " viridis", "viridis ", "hot_metal",
                           "gray", "twilight_shifted", "r"}) {
    KivColorTable out = jet;
    EXPECT_EQ(KivColorTable::ByName(name, &out), KIV_EXT_ERR_UNKNOWN_TABLE) << name;
    EXPECT_TRUE(SameTable(out, jet)) << name;
  }
  EXPECT_EQ(KivColorTable::ByName("viridis", nullptr), KIV_EXT_ERR_NULL_OUTPUT);
  EXPECT_EQ(KivColorTable::ByName("nothing", nullptr), KIV_EXT_ERR_NULL_OUTPUT);
}

TEST(TableNames, AFailureInsideIsCaught) {
  const KivColorTable jet = KivColorTable::Described(kJetMap);
  KivColorTable out = jet;
  ScopedFault fault(FaultStage::kTableCatalogue);
  EXPECT_EQ(KivColorTable::ByName("viridis", &out), KIV_EXT_ERR_INTERNAL);
  EXPECT_TRUE(SameTable(out, jet));
}

KivColorStop Stop(double position, KivRgb color) { return KivColorStop{position, color}; }

constexpr KivRgb kBlack{0, 0, 0};
constexpr KivRgb kWhite{255, 255, 255};
constexpr KivRgb kRed{255, 0, 0};
constexpr KivRgb kBlue{0, 0, 255};

KivColorTable FromStops(const std::vector<KivColorStop>& stops) {
  KivColorTable table;
  EXPECT_EQ(KivColorTable::FromStops(stops, &table), KIV_EXT_OK);
  return table;
}

TEST(TableFromStops, BlackToWhiteIsAGreyRampEvenInLightness) {
  const KivColorTable ramp = FromStops({Stop(0.0, kBlack), Stop(1.0, kWhite)});
  EXPECT_EQ(ramp.Name(), "custom");
  EXPECT_EQ(ramp.NoDataColor(), kKivNeutralNoData);
  EXPECT_EQ(ramp.DescribedMapType(), -1);
  EXPECT_EQ(ramp.At(0), kBlack);
  EXPECT_EQ(ramp.At(255), kWhite);
  for (int i = 0; i < KivColorTable::kSize; ++i) {
    const KivRgb c = ramp.At(i);
    ASSERT_TRUE(c.r == c.g && c.g == c.b) << i;
    // L* runs 0 to 100 linearly; rounding to a byte moves it by half a grey level, at most about
    // 0.26 L* (the curve is steepest around grey 24, at 0.51 L* per level).
    ASSERT_NEAR(Lightness(c), 100.0 * i / 255.0, 0.3) << i;
  }
}

TEST(TableFromStops, SameColourStopsGiveAConstantTable) {
  for (const KivRgb colour : {kRed, kBlue, KivRgb{12, 200, 77}, KivRgb{255, 255, 0}}) {
    const KivColorTable constant =
        FromStops({Stop(0.0, colour), Stop(0.3, colour), Stop(1.0, colour)});
    for (int i = 0; i < KivColorTable::kSize; ++i) ASSERT_EQ(constant.At(i), colour) << i;
  }
}

TEST(TableFromStops, EqualPositionsMakeAHardStepTheLaterStopWinning) {
  // 0.2 is entry 51's own position: the later stop holds from that entry on.
  const KivColorTable step =
      FromStops({Stop(0.0, kRed), Stop(0.2, kRed), Stop(0.2, kBlue), Stop(1.0, kBlue)});
  for (int i = 0; i < KivColorTable::kSize; ++i) ASSERT_EQ(step.At(i), i < 51 ? kRed : kBlue) << i;
  // A jump between entries: 127 / 255 lies below 0.5 and 128 / 255 above.
  const KivColorTable half =
      FromStops({Stop(0.0, kBlack), Stop(0.5, kBlack), Stop(0.5, kWhite), Stop(1.0, kWhite)});
  for (int i = 0; i < KivColorTable::kSize; ++i) {
    ASSERT_EQ(half.At(i), i <= 127 ? kBlack : kWhite) << i;
  }
  // Steps at the ends: the colour of the last stop at 0 starts the table, the last stop ends it.
  const KivColorTable ends =
      FromStops({Stop(0.0, kRed), Stop(0.0, kBlack), Stop(1.0, kWhite), Stop(1.0, kBlue)});
  EXPECT_EQ(ends.At(0), kBlack);
  EXPECT_EQ(ends.At(255), kBlue);
  EXPECT_EQ(ends.At(254).r, ends.At(254).g);
}

TEST(TableFromStops, InterpolatesInCieLab) {
  // Between two stops in CIELAB, not in sRGB. Entry 127 of black to white sits at 127 / 255, so
  // L* = 49.80, Y = ((49.80 + 16) / 116)^3 = 0.1825, companded 0.4644, byte 118.4: grey 118.
  // Interpolating sRGB would give grey 127.
  const KivColorTable ramp = FromStops({Stop(0.0, kBlack), Stop(1.0, kWhite)});
  EXPECT_EQ(ramp.At(127), (KivRgb{118, 118, 118}));
  // A three-stop table passes through its middle stop's colour exactly at its entry.
  const KivColorTable three = FromStops({Stop(0.0, kRed), Stop(0.2, kWhite), Stop(1.0, kBlue)});
  EXPECT_EQ(three.At(51), kWhite);
  EXPECT_EQ(three.At(0), kRed);
  EXPECT_EQ(three.At(255), kBlue);
}

TEST(TableFromStops, RefusesUnusableStopsLeavingTheOutputAlone) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const std::vector<std::vector<KivColorStop>> unusable = {
      {},
      {Stop(0.0, kRed)},
      {Stop(0.0, kRed), Stop(nan, kBlue), Stop(1.0, kBlue)},
      {Stop(nan, kRed), Stop(1.0, kBlue)},
      {Stop(0.0, kRed), Stop(nan, kBlue)},
      {Stop(-0.1, kRed), Stop(0.0, kRed), Stop(1.0, kBlue)},
      {Stop(0.0, kRed), Stop(1.0, kBlue), Stop(1.1, kBlue)},
      {Stop(0.0, kRed), Stop(inf, kBlue)},
      {Stop(-inf, kRed), Stop(1.0, kBlue)},
      {Stop(0.0, kRed), Stop(0.6, kWhite), Stop(0.4, kBlack), Stop(1.0, kBlue)},
      {Stop(1.0, kRed), Stop(0.0, kBlue)},
      {Stop(0.1, kRed), Stop(1.0, kBlue)},
      {Stop(0.0, kRed), Stop(0.9, kBlue)},
      {Stop(0.0, kRed), Stop(0.0, kBlue)},
  };
  const KivColorTable jet = KivColorTable::Described(kJetMap);
  for (size_t k = 0; k < unusable.size(); ++k) {
    KivColorTable out = jet;
    EXPECT_EQ(KivColorTable::FromStops(unusable[k], &out), KIV_EXT_ERR_STOPS) << k;
    EXPECT_TRUE(SameTable(out, jet)) << k;
  }
  EXPECT_EQ(KivColorTable::FromStops({Stop(0.0, kRed), Stop(1.0, kBlue)}, nullptr),
            KIV_EXT_ERR_NULL_OUTPUT);
  KivColorTable out = jet;
  ScopedFault fault(FaultStage::kTableCatalogue);
  EXPECT_EQ(KivColorTable::FromStops({Stop(0.0, kRed), Stop(1.0, kBlue)}, &out),
            KIV_EXT_ERR_INTERNAL);
  EXPECT_TRUE(SameTable(out, jet));
}

TEST(ExtStatusNames, NameEveryCode) {
  EXPECT_STREQ(KivExtStatusName(KIV_EXT_ERR_BOUNDS), "KIV_EXT_ERR_BOUNDS");
  EXPECT_STREQ(KivExtStatusName(KIV_EXT_OK), "KIV_EXT_OK");
  EXPECT_STREQ(KivExtStatusName(42), "KIV_EXT_UNKNOWN_STATUS");
}

}  // namespace
}  // namespace KIVMV
