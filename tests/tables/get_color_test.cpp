#include "tables/get_color.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "KivLUTStatus.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// The fourth component is the caller's and must survive every query.
constexpr int kUntouched = -7;

KivColor Query(double value, int mapType, long* status) {
  KivColor colour(-1, -1, -1, kUntouched);
  *status = GetColorRoutine(value, mapType, &colour);
  return colour;
}

void ExpectBgr(const KivColor& colour, int blue, int green, int red) {
  EXPECT_EQ(colour[0], blue);
  EXPECT_EQ(colour[1], green);
  EXPECT_EQ(colour[2], red);
  EXPECT_EQ(colour[3], kUntouched);
}

TEST(GetColor, DocumentedColours) {
  struct {
    double value;
    int map;
    int blue, green, red;
  } cases[] = {
      {1.0, 1, 0, 3, 255},        // rainbow ends short of pure red
      {0.0, 2, 0, 0, 0},          // hot metal starts black
      {1.0, 2, 252, 255, 255},    // and never reaches white
      {0.5, 0, 127, 127, 127},    // grey
      {0.5, 9, 127, 127, 127},    // a map without a table is grey
      {0.5, 5, 2, 253, 0},        // RGB entry 127
      {-0.0, 3, 218, 80, 32},     // -0 is not below 0: first diverging entry
      {0.999, 0, 254, 254, 254},  // truncated, not rounded
      {1.0, 0, 255, 255, 255},   {1.0, 10, 255, 255, 255}, {1.0, 6, 0, 0, 127},
  };
  for (const auto& c : cases) {
    long status = -1;
    const KivColor colour = Query(c.value, c.map, &status);
    EXPECT_EQ(status, LUT_OK) << c.value << " map " << c.map;
    ExpectBgr(colour, c.blue, c.green, c.red);
  }
}

TEST(GetColor, RejectsValuesOutsideTheUnitRange) {
  for (double value : {kNaN, -kNaN, -kInf, kInf, -1e-300, 1.0000000000000002, -1.0, 2.0}) {
    long status = -1;
    const KivColor colour = Query(value, 1, &status);
    EXPECT_EQ(status, LUT_ERR_PARAM_1) << value;
    EXPECT_EQ(colour, KivColor(-1, -1, -1, kUntouched));  // nothing written
  }
}

TEST(GetColor, RejectsMapTypesOutsideZeroToTen) {
  for (int map : {11, -1, 1000, std::numeric_limits<int>::min()}) {
    long status = -1;
    Query(1.0, map, &status);
    EXPECT_EQ(status, LUT_ERR_PARAM_2) << map;
  }
  long status = -1;
  Query(kNaN, 11, &status);
  EXPECT_EQ(status, LUT_ERR_PARAM_1);  // the value is checked first
}

TEST(GetColor, RejectsANullOutputAfterTheDocumentedChecks) {
  EXPECT_EQ(GetColorRoutine(0.5, 1, nullptr), LUT_ERR_PARAM_3);
  EXPECT_EQ(GetColorRoutine(2.0, 1, nullptr), LUT_ERR_PARAM_1);
  EXPECT_EQ(GetColorRoutine(0.5, 11, nullptr), LUT_ERR_PARAM_2);
}

// Every map against a plain lookup of its table at value x 255 truncated.
TEST(GetColor, MatchesTableLookupForEveryMap) {
  std::mt19937_64 random(20261122);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int map = 0; map <= 10; ++map) {
    for (int n = 0; n < 2000; ++n) {
      const double value = n < 256 ? n / 255.0 : unit(random);
      long status = -1;
      const KivColor colour = Query(value, map, &status);
      ASSERT_EQ(status, LUT_OK);
      const int index = static_cast<int>(std::trunc(value * 255.0));
      const ColourEntry& entry = SelectColourTable(map)[index];
      ExpectBgr(colour, entry[0], entry[1], entry[2]);
    }
  }
}

}  // namespace
}  // namespace KIVMV
