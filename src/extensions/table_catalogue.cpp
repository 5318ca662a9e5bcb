// KivColorTable's catalogue: the published tables, look-up by name and tables from colour stops.
#include <algorithm>
#include <cctype>
#include <cmath>

#include "KivColorTable.h"
#include "common/fault_injection.h"
#include "extensions/cielab.h"
#include "extensions/published_tables.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

struct PublishedEntry {
  const char* name;
  const PublishedRgbTable* rgb;
};

// In the order KivColorTable::Names() lists them, after KivLUTSetting's seven.
constexpr PublishedEntry kPublished[] = {
    {"viridis", &kViridisRgb},   {"magma", &kMagmaRgb},     {"inferno", &kInfernoRgb},
    {"plasma", &kPlasmaRgb},     {"cividis", &kCividisRgb}, {"turbo", &kTurboRgb},
    {"twilight", &kTwilightRgb},
};

KivColorTable PublishedTable(const PublishedEntry& entry) {
  std::array<KivRgb, KivColorTable::kSize> colors;
  for (int i = 0; i < KivColorTable::kSize; ++i) {
    const auto& rgb = (*entry.rgb)[i];
    colors[i] = KivRgb{rgb[0], rgb[1], rgb[2]};
  }
  return KivColorTable(colors, kKivNeutralNoData, entry.name);
}

// ASCII only: table names are ASCII, and the C locale's tolower must not see a negative char.
std::string Lowered(const std::string& name) {
  std::string lowered = name;
  for (char& c : lowered) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lowered;
}

bool StopsUsable(const std::vector<KivColorStop>& stops) {
  if (stops.size() < 2) return false;
  // Written as "inside" so that NaN, which fails every comparison, is refused with the rest.
  for (const KivColorStop& stop : stops) {
    if (!(stop.position >= 0.0 && stop.position <= 1.0)) return false;
  }
  for (size_t k = 1; k < stops.size(); ++k) {
    if (stops[k].position < stops[k - 1].position) return false;
  }
  return stops.front().position == 0.0 && stops.back().position == 1.0;
}

// The colour at `position` along the stops: between the last stop at or before it and the next.
// Stops sharing a position make a hard step; the later of them holds from that position on.
KivRgb ColourAt(const std::vector<KivColorStop>& stops, const std::vector<cielab::CieLab>& labs,
                double position) {
  const auto after =
      std::upper_bound(stops.begin(), stops.end(), position,
                       [](double p, const KivColorStop& stop) { return p < stop.position; });
  const size_t k = static_cast<size_t>(after - stops.begin()) - 1;
  if (k + 1 == stops.size()) return cielab::CieLabToRgb(labs[k]);
  const double t = (position - stops[k].position) / (stops[k + 1].position - stops[k].position);
  const cielab::CieLab& from = labs[k];
  const cielab::CieLab& to = labs[k + 1];
  // from + t * (to - from), not (1 - t) * from + t * to: equal stops then give their colour back
  // exactly.
  return cielab::CieLabToRgb(cielab::CieLab{
      from.l + t * (to.l - from.l), from.a + t * (to.a - from.a), from.b + t * (to.b - from.b)});
}

}  // namespace

std::vector<std::string> KivColorTable::Names() {
  std::vector<std::string> names;
  for (int m = kGreyMap; m <= kJetMap; ++m) names.push_back(Described(m).Name());
  for (const PublishedEntry& entry : kPublished) names.emplace_back(entry.name);
  return names;
}

long KivColorTable::ByName(const std::string& name, KivColorTable* out) {
  if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
  try {
    ThrowIfInjected(FaultStage::kTableCatalogue);
    std::string base = Lowered(name);
    const std::string suffix = "_r";
    const bool reversed =
        base.size() > suffix.size() && base.compare(base.size() - 2, 2, suffix) == 0;
    if (reversed) base.resize(base.size() - suffix.size());
    for (int m = kGreyMap; m <= kJetMap; ++m) {
      const KivColorTable described = Described(m);
      if (described.Name() == base) {
        *out = reversed ? described.Reversed() : described;
        return KIV_EXT_OK;
      }
    }
    for (const PublishedEntry& entry : kPublished) {
      if (base == entry.name) {
        const KivColorTable table = PublishedTable(entry);
        *out = reversed ? table.Reversed() : table;
        return KIV_EXT_OK;
      }
    }
    return KIV_EXT_ERR_UNKNOWN_TABLE;
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

long KivColorTable::FromStops(const std::vector<KivColorStop>& stops, KivColorTable* out) {
  if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
  if (!StopsUsable(stops)) return KIV_EXT_ERR_STOPS;
  try {
    ThrowIfInjected(FaultStage::kTableCatalogue);
    std::vector<cielab::CieLab> labs;
    labs.reserve(stops.size());
    for (const KivColorStop& stop : stops) labs.push_back(cielab::RgbToCieLab(stop.color));
    std::array<KivRgb, kSize> colors;
    for (int i = 0; i < kSize; ++i) colors[i] = ColourAt(stops, labs, i / 255.0);
    *out = KivColorTable(colors, kKivNeutralNoData, "custom");
    return KIV_EXT_OK;
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

}  // namespace KIVMV
