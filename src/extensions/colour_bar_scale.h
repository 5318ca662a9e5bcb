// The scale of a colour bar: which round values get ticks, where they land along the bar and how
// their labels read. Kept apart from the drawing so that tests can check the numbers directly.
#pragma once

#include <string>
#include <vector>

#include "KivColoring.h"

namespace KIVMV {

struct BarTick {
  double value = 0.0;
  double position = 0.0;  // KivColoringInfo::TablePosition(value), 0 (low end) to 1 (high end)
  std::string label;      // ASCII: the value with the fewest decimals that tell steps apart, unit
  bool bound = false;     // info.low or info.high rather than a round value
};

// Round values ("nice numbers", steps of 1, 2, 2.5 or 5 times a power of ten) between info.low
// and info.high, about `ticks` of them, in ascending order. Each bound that lies more than a
// quarter step from the nearest round value is a tick too, written with one decimal more, so the
// reader sees where the scale ends. A flat scale (low == high) gets one tick at its value.
// Expects a usable scale (ColourBarScaleUsable).
std::vector<BarTick> BarTicks(const KivColoringInfo& info, int ticks, const std::string& unit);

// The step BarTicks spaces its values by for a range and a wish for about `ticks` values.
double NiceTickStep(double low, double high, int ticks);

// The fewest decimals (0..12) that write multiples of `step` exactly.
int DecimalsForStep(double step);

// `value` with `decimals` decimals, never "-0", then " " and the unit when there is one.
std::string TickLabel(double value, int decimals, const std::string& unit);

// The unit in what the Hershey fonts can draw: micro signs become "u", the degree sign "deg",
// control characters go and any other non-ASCII character becomes "?".
std::string AsciiUnit(const std::string& unit);

// Bounds finite and ordered, 257 finite non-decreasing entry starts from low to high.
bool ColourBarScaleUsable(const KivColoringInfo& info);

}  // namespace KIVMV
