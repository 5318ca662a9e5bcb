// Ticks and labels of colour bars.
#include "extensions/colour_bar_scale.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace KIVMV {
namespace {

// Relative slack for "is this value a multiple of the step / inside the bounds": floating steps
// such as 0.1 are never exact, and a tick at the very bound must not be lost to rounding.
constexpr double kSlack = 1e-9;
// More ticks than this is never asked for (the options allow 20); it bounds every loop.
constexpr int kMaxTicks = 64;

// How many multiples of `step` lie in [low, high].
double MultiplesWithin(double low, double high, double step) {
  return std::floor(high / step + kSlack) - std::ceil(low / step - kSlack) + 1.0;
}

// The decimals that write a single value to about six significant digits, for a flat scale.
int DecimalsForValue(double value) {
  for (int d = 0; d < 6; ++d) {
    const double scaled = value * std::pow(10.0, d);
    if (std::abs(scaled - std::round(scaled)) <= 1e-6 * std::max(1.0, std::abs(scaled))) return d;
  }
  return 6;
}

}  // namespace

double NiceTickStep(double low, double high, int ticks) {
  const double range = high - low;
  const int exponent = static_cast<int>(std::floor(std::log10(range / std::max(ticks, 1))));
  double best = 0.0;
  double bestPenalty = 0.0;
  for (int e = exponent - 1; e <= exponent + 2; ++e) {
    for (const double mantissa : {1.0, 2.0, 2.5, 5.0}) {
      const double step = mantissa * std::pow(10.0, e);
      const double count = MultiplesWithin(low, high, step);
      if (count < 1.0) continue;
      // Steps of 2.5 need one decimal more than their neighbours: take them only when they fit
      // clearly better. On a tie the larger step wins, as it crowds the labels less.
      const double penalty = std::abs(count - ticks) + (mantissa == 2.5 ? 0.5 : 0.0);
      if (best == 0.0 || penalty <= bestPenalty) {
        best = step;
        bestPenalty = penalty;
      }
    }
  }
  // Every range has a power of ten below it with a multiple inside; this is only a guard.
  return best > 0.0 ? best : range;
}

int DecimalsForStep(double step) {
  for (int d = 0; d < 12; ++d) {
    const double scaled = step * std::pow(10.0, d);
    if (std::abs(scaled - std::round(scaled)) <= 1e-6 * scaled) return d;
  }
  return 12;
}

std::string TickLabel(double value, int decimals, const std::string& unit) {
  // A value that rounds to zero is written "0", not "-0.0".
  if (std::abs(value) < 0.5 * std::pow(10.0, -decimals)) value = 0.0;
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  std::string label = text;
  const std::string ascii = AsciiUnit(unit);
  if (!ascii.empty()) label += " " + ascii;
  return label;
}

std::string AsciiUnit(const std::string& unit) {
  std::string ascii;
  for (size_t i = 0; i < unit.size(); ++i) {
    const auto byte = static_cast<unsigned char>(unit[i]);
    const auto next = i + 1 < unit.size() ? static_cast<unsigned char>(unit[i + 1]) : 0;
    if (byte >= 0x20 && byte < 0x7F) {
      ascii += static_cast<char>(byte);
    } else if ((byte == 0xC2 && next == 0xB5) || (byte == 0xCE && next == 0xBC)) {
      ascii += 'u';  // MICRO SIGN, GREEK SMALL LETTER MU
      ++i;
    } else if (byte == 0xC2 && next == 0xB0) {
      ascii += "deg";
      ++i;
    } else if (byte >= 0xC0) {
      ascii += '?';  // the lead byte of any other UTF-8 character; its continuation bytes go
    }
  }
  return ascii;
}

bool ColourBarScaleUsable(const KivColoringInfo& info) {
  if (!std::isfinite(info.low) || !std::isfinite(info.high) || info.low > info.high) return false;
  if (!std::isfinite(info.high - info.low)) return false;
  if (info.entryStart.size() != KivColorTable::kSize + 1) return false;
  for (size_t i = 0; i < info.entryStart.size(); ++i) {
    if (!std::isfinite(info.entryStart[i])) return false;
    if (i > 0 && info.entryStart[i] < info.entryStart[i - 1]) return false;
  }
  return true;
}

std::vector<BarTick> BarTicks(const KivColoringInfo& info, int ticks, const std::string& unit) {
  std::vector<BarTick> result;
  const double low = info.low;
  const double high = info.high;
  if (!(high > low)) {
    result.push_back(
        {low, info.TablePosition(low), TickLabel(low, DecimalsForValue(low), unit), true});
    return result;
  }
  const double step = NiceTickStep(low, high, ticks);
  const int decimals = DecimalsForStep(step);
  const double first = std::ceil(low / step - kSlack);
  const double last = std::floor(high / step + kSlack);
  for (int i = 0; i < kMaxTicks && first + i <= last; ++i) {
    // Multiples are computed, not accumulated, and a value just past a bound by rounding is put
    // back on it. Far from zero neighbouring multiples can round to one value: it is kept once.
    const double value = std::clamp((first + i) * step, low, high);
    if (!result.empty() && value <= result.back().value) continue;
    result.push_back({value, info.TablePosition(value), TickLabel(value, decimals, unit), false});
  }
  // An equalised scale can stretch a stretch without round values over much of the bar; the
  // bounds say what its ends mean. Close to a round value a bound adds nothing but clutter.
  const int boundDecimals = std::min(decimals + 1, 12);
  if (result.empty() || result.front().value - low > 0.25 * step) {
    result.insert(result.begin(),
                  {low, info.TablePosition(low), TickLabel(low, boundDecimals, unit), true});
  }
  if (high - result.back().value > 0.25 * step) {
    result.push_back({high, info.TablePosition(high), TickLabel(high, boundDecimals, unit), true});
  }
  return result;
}

}  // namespace KIVMV
