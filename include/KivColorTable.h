// Colour tables as values: the seven tables of KivLUTSetting, the perceptually uniform and other
// published maps users know from matplotlib and elsewhere, reversed tables, and tables built from
// colour stops. A table is 256 colours plus the colour of no-data, and is what the colourings of
// KivColoring.h and the colour bars of KivColorBar.h take.
//
// Colours given to and read from this API as KivRgb are red, green, blue. Stored entries, like
// every colour array of the library and cv::Mat, are blue first (Bgr()).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "KivExtStatus.h"
#include "KivLUTSettingExport.h"

namespace KIVMV {

struct KivRgb {
  uint8_t r = 0;
  uint8_t g = 0;
  uint8_t b = 0;
  bool operator==(const KivRgb& o) const { return r == o.r && g == o.g && b == o.b; }
  bool operator!=(const KivRgb& o) const { return !(*this == o); }
};

// The no-data colour of every table that is not one of KivLUTSetting's seven: a neutral mid grey
// that none of the published maps has at either end, so holes never read as a height.
inline constexpr KivRgb kKivNeutralNoData{128, 128, 128};

// A colour stop of a user's table: position in [0, 1], sRGB colour.
struct KivColorStop {
  double position = 0.0;
  KivRgb color;
};

class KIVLUT_API KivColorTable {
 public:
  static constexpr int kSize = 256;

  // The grey table of KivLUTSetting (map 0) with its no-data colour, black.
  KivColorTable();

  // KivLUTSetting's table for a map number, as its methods select it: 1 rainbow, 2 hot metal,
  // 3 diverging, 4 isoluminant, 5 RGB, 6 jet, anything else grey; the no-data colour is that
  // map's invalid colour (white for hot metal, black otherwise). Named "grey", "rainbow",
  // "hot metal", "diverging", "isoluminant", "rgb", "jet".
  static KivColorTable Described(int mapType);

  // A table by name, case-insensitive: the seven above, "viridis", "magma", "inferno", "plasma",
  // "cividis", "turbo", "twilight"; a trailing "_r" gives the reversed table.
  // KIV_EXT_ERR_UNKNOWN_TABLE for any other name, KIV_EXT_ERR_NULL_OUTPUT for a null out.
  static long ByName(const std::string& name, KivColorTable* out);
  // Every name ByName takes without the "_r" suffix, in the order above.
  static std::vector<std::string> Names();

  // A table through colour stops (at least two, positions in [0, 1] and non-decreasing, the
  // first at 0 and the last at 1): entry i is the colour at i / 255, interpolated between the
  // neighbouring stops in CIELAB (D65), converted back to sRGB and clipped to its gamut. Named
  // "custom", no-data colour kKivNeutralNoData. Stops sharing a position make a hard step: the
  // later of them holds at and after it. KIV_EXT_ERR_STOPS when the stops are unusable (NaN
  // included), KIV_EXT_ERR_NULL_OUTPUT for a null out.
  static long FromStops(const std::vector<KivColorStop>& stops, KivColorTable* out);

  // The same colours in the opposite order, named with "_r" added (or removed); the no-data
  // colour is kept.
  KivColorTable Reversed() const;

  // Entry i (clamped to 0..255) as red, green, blue.
  KivRgb At(int i) const;
  // The 256 entries as 768 bytes, blue, green, red each.
  const uint8_t* Bgr() const { return bgr_.data(); }

  KivRgb NoDataColor() const { return noData_; }
  void SetNoDataColor(KivRgb color) { noData_ = color; }

  const std::string& Name() const { return name_; }
  // KivLUTSetting's map number for its seven tables (reversed or not: -1 when reversed), else -1.
  int DescribedMapType() const { return mapType_; }

  // A table of the caller's 256 colours (red, green, blue), named `name`.
  KivColorTable(const std::array<KivRgb, kSize>& colors, KivRgb noData, std::string name);

 private:
  std::array<uint8_t, 3 * kSize> bgr_{};
  KivRgb noData_{};
  std::string name_;
  int mapType_ = -1;
};

}  // namespace KIVMV
