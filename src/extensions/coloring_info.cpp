// Where a value lands along a colouring's table: what colour bars place their ticks by.
#include <algorithm>
#include <cmath>
#include <limits>

#include "KivColoring.h"

namespace KIVMV {

double KivColoringInfo::TablePosition(double value) const {
  constexpr int kEntries = KivColorTable::kSize;
  if (entryStart.size() != kEntries + 1 || std::isnan(value)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  if (value < entryStart.front()) return 0.0;
  if (value >= entryStart.back()) return 1.0;
  // The last entry starting at or below the value holds it; entries that no value takes share
  // their start with the next one and are passed over.
  const auto after = std::upper_bound(entryStart.begin(), entryStart.end() - 1, value);
  const int entry = static_cast<int>(after - entryStart.begin()) - 1;
  const double start = entryStart[entry];
  const double end = entryStart[entry + 1];
  const double within = end > start ? std::clamp((value - start) / (end - start), 0.0, 1.0) : 0.0;
  return (entry + within) / kEntries;
}

}  // namespace KIVMV
