// KivColorTable: the value type and KivLUTSetting's seven tables. The published tables, look-up
// by name and tables from colour stops live in table_catalogue.cpp.
#include <algorithm>
#include <utility>

#include "KivColorTable.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

KivRgb RgbOf(const ColourEntry& stored) { return KivRgb{stored[2], stored[1], stored[0]}; }

const char* DescribedName(int mapType) {
  switch (mapType) {
    case kRainbowMap:
      return "rainbow";
    case kHotMetalMap:
      return "hot metal";
    case kDivergingMap:
      return "diverging";
    case kIsoluminantMap:
      return "isoluminant";
    case kRgbMap:
      return "rgb";
    case kJetMap:
      return "jet";
    default:
      return "grey";
  }
}

}  // namespace

KivColorTable::KivColorTable() : KivColorTable(Described(kGreyMap)) {}

KivColorTable::KivColorTable(const std::array<KivRgb, kSize>& colors, KivRgb noData,
                             std::string name)
    : noData_(noData), name_(std::move(name)) {
  for (int i = 0; i < kSize; ++i) {
    bgr_[3 * i] = colors[i].b;
    bgr_[3 * i + 1] = colors[i].g;
    bgr_[3 * i + 2] = colors[i].r;
  }
}

KivColorTable KivColorTable::Described(int mapType) {
  // Map numbers without a table of their own colour with grey, as KivLUTSetting does; their
  // invalid colour is grey's, black.
  const int own = mapType >= kGreyMap && mapType <= kJetMap ? mapType : kGreyMap;
  const ColourTable& stored = SelectColourTable(own);
  std::array<KivRgb, kSize> colors;
  for (int i = 0; i < kSize; ++i) colors[i] = RgbOf(stored[i]);
  KivColorTable table(colors, RgbOf(InvalidColour(own)), DescribedName(own));
  table.mapType_ = own;
  return table;
}

KivColorTable KivColorTable::Reversed() const {
  KivColorTable reversed = *this;
  for (int i = 0; i < kSize; ++i) {
    std::copy_n(&bgr_[3 * (kSize - 1 - i)], 3, &reversed.bgr_[3 * i]);
  }
  const std::string suffix = "_r";
  const bool wasReversed =
      name_.size() >= suffix.size() && name_.compare(name_.size() - 2, 2, suffix) == 0;
  reversed.name_ = wasReversed ? name_.substr(0, name_.size() - 2) : name_ + suffix;
  // Reversing one of KivLUTSetting's tables twice gives it back, map number included.
  reversed.mapType_ = -1;
  for (int m = kGreyMap; m <= kJetMap && wasReversed; ++m) {
    const KivColorTable described = Described(m);
    if (described.name_ == reversed.name_ && described.bgr_ == reversed.bgr_) reversed.mapType_ = m;
  }
  return reversed;
}

KivRgb KivColorTable::At(int i) const {
  const int k = std::clamp(i, 0, kSize - 1);
  return KivRgb{bgr_[3 * k + 2], bgr_[3 * k + 1], bgr_[3 * k]};
}

}  // namespace KIVMV
