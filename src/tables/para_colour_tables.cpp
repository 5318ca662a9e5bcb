#include "tables/para_colour_tables.h"

#include <cstdint>

#include "common/numeric_helpers.h"

namespace KIVMV {
namespace {

// Each table is a smooth curve per channel through a few control points: the five anchor colours
// that the automatic scale lands on, plus "shape knots" that give a map the character of its
// 256-entry namesake (jet's cyan and yellow plateaus, rainbow's pure blue and green). Between the
// control points a monotone piecewise cubic (Fritsch-Carlson, with the weighted harmonic-mean
// slopes of Fritsch-Butland) fills in the entries, so no channel overshoots or wiggles between
// two control points and every anchor is hit exactly.
//
// Rules the shape knots follow, which the tests check on the finished tables: between two
// neighbouring anchors each channel only rises, only falls or stays flat; and a knot never
// squeezes a channel's change into less than half the stretch between its anchors, so no step is
// steeper than three times (the cubic's slope limit) twice the anchors' own slope, plus one for
// rounding.

inline constexpr int kAnchorCount = 5;
inline constexpr std::array<int, kAnchorCount> kAnchorIndices = {0, 127, 511, 895, 1023};
using AnchorColours = std::array<ColourEntry, kAnchorCount>;  // blue, green, red

enum Channel : int { kNoChannel = -1, kBlue = 0, kGreen = 1, kRed = 2 };

struct ShapeKnot {
  int channel = kNoChannel;  // unused slots keep kNoChannel
  int index = 0;
  int value = 0;
};
inline constexpr int kMaxShapeKnots = 8;
using ShapeKnots = std::array<ShapeKnot, kMaxShapeKnots>;

// A cyclic map takes the same slope at both ends, as if entry 1023 were followed by entry 1.
enum class Ends : bool { kOpen, kCyclic };

inline constexpr int kMaxKnots = kAnchorCount + kMaxShapeKnots;

struct ChannelCurve {
  std::array<double, kMaxKnots> x{};
  std::array<double, kMaxKnots> y{};
  std::array<double, kMaxKnots> slope{};
  int count = 0;
};

constexpr double Abs(double v) { return v < 0.0 ? -v : v; }

constexpr int Sign(double v) { return (v > 0.0) - (v < 0.0); }

// Clamp to the byte range and round half away from zero (all values are non-negative by then).
constexpr uint8_t RoundToByte(double v) {
  const double clamped = v < 0.0 ? 0.0 : (v > 255.0 ? 255.0 : v);
  return static_cast<uint8_t>(numeric::TruncateToInt64(clamped + 0.5));
}

// Slope at an inner knot from the secants on either side: zero at a turn or a plateau, else the
// weighted harmonic mean, which never exceeds three times either secant.
constexpr double InnerSlope(double hBefore, double sBefore, double hAfter, double sAfter) {
  if (Sign(sBefore) * Sign(sAfter) <= 0) {
    return 0.0;
  }
  const double w1 = 2.0 * hAfter + hBefore;
  const double w2 = hAfter + 2.0 * hBefore;
  return (w1 + w2) / (w1 / sBefore + w2 / sAfter);
}

// Slope at an open end from the first two secants (three-point estimate), kept on the side of the
// first secant and within three times it.
constexpr double EndSlope(double hNear, double sNear, double hFar, double sFar) {
  const double d = ((2.0 * hNear + hFar) * sNear - hNear * sFar) / (hNear + hFar);
  if (Sign(d) != Sign(sNear)) {
    return 0.0;
  }
  if (Sign(sNear) != Sign(sFar) && Abs(d) > 3.0 * Abs(sNear)) {
    return 3.0 * sNear;
  }
  return d;
}

constexpr ChannelCurve BuildCurve(const AnchorColours& anchors, const ShapeKnots& shape,
                                  int channel, Ends ends) {
  ChannelCurve c{};
  for (int a = 0; a < kAnchorCount; ++a) {
    c.x[c.count] = kAnchorIndices[a];
    c.y[c.count] = anchors[a][channel];
    ++c.count;
  }
  // Insert this channel's shape knots in index order.
  for (const ShapeKnot& knot : shape) {
    if (knot.channel != channel) {
      continue;
    }
    int at = c.count;
    while (at > 0 && c.x[at - 1] > knot.index) {
      c.x[at] = c.x[at - 1];
      c.y[at] = c.y[at - 1];
      --at;
    }
    c.x[at] = knot.index;
    c.y[at] = knot.value;
    ++c.count;
  }

  const int last = c.count - 1;
  std::array<double, kMaxKnots> h{};
  std::array<double, kMaxKnots> s{};
  for (int k = 0; k < last; ++k) {
    h[k] = c.x[k + 1] - c.x[k];
    s[k] = (c.y[k + 1] - c.y[k]) / h[k];
  }
  for (int k = 1; k < last; ++k) {
    c.slope[k] = InnerSlope(h[k - 1], s[k - 1], h[k], s[k]);
  }
  if (ends == Ends::kCyclic) {
    c.slope[0] = InnerSlope(h[last - 1], s[last - 1], h[0], s[0]);
    c.slope[last] = c.slope[0];
  } else {
    c.slope[0] = EndSlope(h[0], s[0], h[1], s[1]);
    c.slope[last] = EndSlope(h[last - 1], s[last - 1], h[last - 2], s[last - 2]);
  }
  return c;
}

constexpr ParaColourTable BuildParaTable(const AnchorColours& anchors, const ShapeKnots& shape,
                                         Ends ends = Ends::kOpen) {
  ParaColourTable table{};
  for (int channel = kBlue; channel <= kRed; ++channel) {
    const ChannelCurve c = BuildCurve(anchors, shape, channel, ends);
    for (int k = 0; k + 1 < c.count; ++k) {
      const double h = c.x[k + 1] - c.x[k];
      const int first = static_cast<int>(c.x[k]);
      const int end = static_cast<int>(c.x[k + 1]);
      for (int i = first; i < end; ++i) {
        // Cubic Hermite form; at t = 0 only the knot's own value survives, so knots are exact.
        const double t = (i - first) / h;
        const double u = 1.0 - t;
        const double v = (1.0 + 2.0 * t) * u * u * c.y[k] + t * u * u * h * c.slope[k] +
                         t * t * (3.0 - 2.0 * t) * c.y[k + 1] - t * t * u * h * c.slope[k + 1];
        table[i][channel] = RoundToByte(v);
      }
    }
    table[kParaTableSize - 1][channel] = RoundToByte(c.y[c.count - 1]);
  }
  return table;
}

constexpr ParaColourTable kParaTable1 =
    BuildParaTable({{{128, 0, 128}, {255, 0, 128}, {255, 255, 0}, {0, 128, 255}, {0, 0, 255}}},
                   // Rainbow: violet, pure blue, cyan, green, yellowish orange, orange, red.
                   {{{kRed, 319, 0},
                     {kGreen, 319, 0},
                     {kBlue, 703, 0},
                     {kRed, 639, 0},
                     {kRed, 831, 255},
                     {kGreen, 703, 255}}});

constexpr ParaColourTable kParaTable2 =
    BuildParaTable({{{0, 0, 0}, {0, 0, 126}, {0, 164, 255}, {126, 255, 255}, {254, 255, 255}}},
                   // Hot metal: red saturates before green rises, green before blue.
                   {{{kRed, 319, 255}, {kGreen, 255, 0}, {kGreen, 703, 255}, {kBlue, 703, 0}}});

// Diverging, isoluminant and RGB change smoothly in every channel already, and 7 to 10 have no
// 256-entry namesake: their anchors alone carry the curve.
constexpr ParaColourTable kParaTable3 = BuildParaTable(
    {{{200, 80, 32}, {209, 117, 83}, {238, 231, 241}, {63, 59, 163}, {5, 2, 138}}}, {});

constexpr ParaColourTable kParaTable4 = BuildParaTable(
    {{{236, 183, 54}, {200, 183, 77}, {93, 187, 149}, {200, 154, 221}, {236, 144, 246}}}, {});

constexpr ParaColourTable kParaTable5 =
    BuildParaTable({{{255, 0, 0}, {255, 127, 0}, {0, 255, 0}, {0, 128, 255}, {0, 0, 255}}}, {});

constexpr ParaColourTable kParaTable6 =
    BuildParaTable({{{127, 0, 0}, {255, 0, 0}, {127, 255, 127}, {0, 0, 255}, {0, 0, 127}}},
                   // Jet: blue plateau, cyan, green, yellow, red plateau.
                   {{{kBlue, 319, 255},
                     {kGreen, 383, 255},
                     {kRed, 319, 0},
                     {kBlue, 703, 0},
                     {kGreen, 703, 255},
                     {kRed, 703, 255}}});

constexpr ParaColourTable kParaTable7 = BuildParaTable(
    {{{182, 50, 1}, {174, 117, 48}, {213, 213, 255}, {31, 3, 220}, {44, 10, 136}}}, {});

constexpr ParaColourTable kParaTable8 =
    BuildParaTable({{{0, 0, 0}, {48, 37, 25}, {94, 124, 105}, {75, 177, 227}, {42, 82, 255}}}, {});

constexpr ParaColourTable kParaTable9 = BuildParaTable(
    {{{157, 86, 1}, {35, 125, 231}, {164, 178, 125}, {15, 67, 172}, {39, 52, 52}}}, {});

// Type 10 begins and ends on the same colour and runs on smoothly across that seam.
constexpr ParaColourTable kParaTable10 =
    BuildParaTable({{{72, 56, 75}, {114, 71, 38}, {200, 198, 200}, {36, 58, 128}, {72, 56, 75}}},
                   {}, Ends::kCyclic);

constexpr ColourTable GreyTableCopy() {
  ColourTable table{};
  for (int i = 0; i < kColourTableSize; ++i) {
    const auto level = static_cast<uint8_t>(i);
    table[i] = {level, level, level};
  }
  return table;
}

}  // namespace

constexpr ColourTable kParaGreyTable = GreyTableCopy();

const ParaColourTable& SelectParaColourTable(int mapType) {
  switch (mapType) {
    case 2:
      return kParaTable2;
    case 3:
      return kParaTable3;
    case 4:
      return kParaTable4;
    case 5:
      return kParaTable5;
    case 6:
      return kParaTable6;
    case 7:
      return kParaTable7;
    case 8:
      return kParaTable8;
    case 9:
      return kParaTable9;
    case 10:
      return kParaTable10;
    default:
      return kParaTable1;
  }
}

const ParaColourTable& SelectParaColourTableForArray(int mapType) {
  // The float-array form has only the tables of 1 to 6: 7 to 10 fold onto 3 to 6.
  if (mapType >= 7 && mapType <= 10) {
    return SelectParaColourTable(mapType - 4);
  }
  if (mapType >= 2 && mapType <= 6) {
    return SelectParaColourTable(mapType);
  }
  return kParaTable1;
}

}  // namespace KIVMV
