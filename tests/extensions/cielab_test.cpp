#include "extensions/cielab.h"

#include <gtest/gtest.h>

#include <cmath>

namespace KIVMV {
namespace {

using cielab::CieLab;

struct TextbookColour {
  KivRgb rgb;
  CieLab lab;
  double tolerance;
};

// CIELAB of the sRGB primaries under D65 as colour-science references tabulate them (e.g. Bruce
// Lindbloom's calculator, EasyRGB). Those tables take D65 from the CIE's 2-degree table
// (0.31271, 0.32902) while this library uses the sRGB standard's (0.3127, 0.3290), which moves
// a* and b* by up to about 0.01; hence the tolerances.
const TextbookColour kTextbook[] = {
    {{255, 255, 255}, {100.0, 0.0, 0.0}, 1e-6},   {{0, 0, 0}, {0.0, 0.0, 0.0}, 1e-9},
    {{255, 0, 0}, {53.24, 80.09, 67.20}, 0.01},   {{0, 255, 0}, {87.73, -86.18, 83.18}, 0.02},
    {{0, 0, 255}, {32.30, 79.19, -107.86}, 0.02},
};

TEST(CieLab, MatchesTextbookValues) {
  for (const TextbookColour& c : kTextbook) {
    const CieLab lab = cielab::RgbToCieLab(c.rgb);
    EXPECT_NEAR(lab.l, c.lab.l, c.tolerance) << int(c.rgb.r) << " " << int(c.rgb.g);
    EXPECT_NEAR(lab.a, c.lab.a, c.tolerance) << int(c.rgb.r) << " " << int(c.rgb.g);
    EXPECT_NEAR(lab.b, c.lab.b, c.tolerance) << int(c.rgb.r) << " " << int(c.rgb.g);
  }
}

TEST(CieLab, CompandingFollowsTheSrgbCurve) {
  // IEC 61966-2-1: linear below 0.04045 with slope 1/12.92, a 2.4 power above.
  EXPECT_DOUBLE_EQ(cielab::SrgbToLinear(0.04), 0.04 / 12.92);
  EXPECT_NEAR(cielab::SrgbToLinear(0.5), 0.214041, 1e-6);
  EXPECT_DOUBLE_EQ(cielab::SrgbToLinear(1.0), 1.0);
  EXPECT_NEAR(cielab::LinearToSrgb(0.18), 0.461356, 1e-6);
  for (int v = 0; v <= 1000; ++v) {
    const double x = v / 1000.0;
    ASSERT_NEAR(cielab::LinearToSrgb(cielab::SrgbToLinear(x)), x, 1e-12) << x;
  }
}

TEST(CieLab, EveryGreyIsNeutralAndComesBack) {
  double previous = -1.0;
  for (int v = 0; v < 256; ++v) {
    const KivRgb grey{static_cast<uint8_t>(v), static_cast<uint8_t>(v), static_cast<uint8_t>(v)};
    const CieLab lab = cielab::RgbToCieLab(grey);
    ASSERT_NEAR(lab.a, 0.0, 1e-6) << v;
    ASSERT_NEAR(lab.b, 0.0, 1e-6) << v;
    ASSERT_GT(lab.l, previous) << v;
    previous = lab.l;
    ASSERT_EQ(cielab::CieLabToRgb(lab), grey) << v;
  }
}

TEST(CieLab, RoundTripsColoursAndClipsOutOfGamut) {
  for (int r = 0; r < 256; r += 15) {
    for (int g = 0; g < 256; g += 17) {
      for (int b = 0; b < 256; b += 51) {
        const KivRgb rgb{static_cast<uint8_t>(r), static_cast<uint8_t>(g), static_cast<uint8_t>(b)};
        ASSERT_EQ(cielab::CieLabToRgb(cielab::RgbToCieLab(rgb)), rgb) << r << " " << g << " " << b;
      }
    }
  }
  // L* above 100 is brighter than white; a far negative a* and b* is outside sRGB altogether.
  EXPECT_EQ(cielab::CieLabToRgb(CieLab{120.0, 0.0, 0.0}), (KivRgb{255, 255, 255}));
  const KivRgb outside = cielab::CieLabToRgb(CieLab{50.0, -200.0, -200.0});
  EXPECT_EQ(outside.r, 0);
  EXPECT_EQ(cielab::CieLabToRgb(CieLab{std::nan(""), 0.0, 0.0}), (KivRgb{0, 0, 0}));
}

}  // namespace
}  // namespace KIVMV
