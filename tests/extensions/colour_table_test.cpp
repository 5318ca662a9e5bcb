#include <gtest/gtest.h>

#include "KivColorTable.h"
#include "KivExtStatus.h"
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

TEST(ExtStatusNames, NameEveryCode) {
  EXPECT_STREQ(KivExtStatusName(KIV_EXT_ERR_BOUNDS), "KIV_EXT_ERR_BOUNDS");
  EXPECT_STREQ(KivExtStatusName(KIV_EXT_OK), "KIV_EXT_OK");
  EXPECT_STREQ(KivExtStatusName(42), "KIV_EXT_UNKNOWN_STATUS");
}

}  // namespace
}  // namespace KIVMV
