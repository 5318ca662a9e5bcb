// The natural order of frame names: digit runs compared as numbers, the rest byte by byte, and a
// strict order whatever the names.
#include "natural_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using kivlut::NaturalLess;

TEST(NaturalOrder, DigitRunsCompareAsNumbers) {
  const struct {
    const char* before;
    const char* after;
  } cases[] = {
      {"f2.png", "f10.png"},
      {"f9", "f10"},
      {"f1", "f2"},
      {"frame_99_b", "frame_100_a"},
      {"a1b2", "a1b10"},
      {"a2b1", "a10b1"},
      {"x/f2.png", "x/f10.png"},
      {"9", "10"},
      {"f", "f0"},
      {"f1", "f1.png"},
      {"a.png", "b.png"},
      {"f1a", "f1b"},
      // A number longer than any integer type still compares.
      {"f99999999999999999999998", "f99999999999999999999999"},
      {"f99999999999999999999999", "f100000000000000000000000"},
      // Equal numbers: the names' byte order decides ('0' < '7').
      {"f07", "f7"},
      {"f007", "f07"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.before) + " < " + c.after);
    EXPECT_TRUE(NaturalLess(c.before, c.after));
    EXPECT_FALSE(NaturalLess(c.after, c.before));
  }
}

TEST(NaturalOrder, IsIrreflexive) {
  for (const char* name : {"", "f", "f10", "010", "a/b/c2.tif"}) {
    EXPECT_FALSE(NaturalLess(name, name)) << name;
  }
}

TEST(NaturalOrder, SortsAFolderAsAPersonReadsIt) {
  std::vector<std::string> names = {"f10.png", "f2.png",   "f1.png", "f20.png",
                                    "f3.png",  "f100.png", "g1.png", "f11.png"};
  std::sort(names.begin(), names.end(), NaturalLess);
  const std::vector<std::string> expected = {"f1.png",  "f2.png",  "f3.png",   "f10.png",
                                             "f11.png", "f20.png", "f100.png", "g1.png"};
  EXPECT_EQ(names, expected);
}

// A strict weak order over a mixed set: irreflexive, asymmetric, transitive, and any two distinct
// names ordered one way, so that std::sort is well defined and gives one order on every run.
TEST(NaturalOrder, IsAStrictTotalOrderOnDistinctNames) {
  const std::vector<std::string> names = {"",    "0",    "00",    "007", "7",   "a",   "a0",
                                          "a00", "a1",   "a01",   "a10", "a1b", "a-1", "a.1",
                                          "A1",  "a1.2", "a1.10", "10a", "9z",  "z",   "~1"};
  for (const auto& a : names) {
    for (const auto& b : names) {
      if (a != b) {
        EXPECT_NE(NaturalLess(a, b), NaturalLess(b, a)) << a << " / " << b;
      }
      for (const auto& c : names) {
        if (NaturalLess(a, b) && NaturalLess(b, c)) {
          EXPECT_TRUE(NaturalLess(a, c)) << a << " < " << b << " < " << c;
        }
      }
    }
  }
}

}  // namespace
