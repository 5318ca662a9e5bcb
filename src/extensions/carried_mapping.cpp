#include "extensions/carried_mapping.h"

#include <algorithm>
#include <cmath>

namespace KIVMV {

double FollowRate(double timeConstant) {
  return timeConstant > 0.0 ? 1.0 - std::exp(-1.0 / timeConstant) : 1.0;
}

double FollowBound(double bound, double recentMedian, double band, double rate) {
  if (!(std::fabs(recentMedian - bound) > band)) return bound;
  return bound + rate * (recentMedian - bound);
}

void RecentProposals::Restart(int holdFrames, double proposal) {
  window_.assign(static_cast<size_t>(2 * holdFrames - 1), proposal);
  next_ = 0;
}

void RecentProposals::Add(double proposal) {
  window_[next_] = proposal;
  next_ = (next_ + 1) % window_.size();
}

double RecentProposals::Median() const {
  std::vector<double> sorted = window_;
  const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
  // NaN proposals (of data beyond measure) sort anywhere: the bound then simply may not move.
  std::nth_element(sorted.begin(), middle, sorted.end(),
                   [](double a, double b) { return a < b || (!std::isnan(a) && std::isnan(b)); });
  return *middle;
}

double PercentileOfMeasure(const FrameMeasure& measure, double low, double high, double percent) {
  const double wanted = percent / 100.0 * static_cast<double>(measure.valid);
  if (wanted <= static_cast<double>(measure.below)) {
    if (measure.below == 0) return low;
    return measure.minimum + (low - measure.minimum) * wanted / static_cast<double>(measure.below);
  }
  double before = static_cast<double>(measure.below);
  const double cellWidth = (high - low) / kSequenceCells;
  for (int c = 0; c < kSequenceCells; ++c) {
    const double count = static_cast<double>(measure.cells[c]);
    if (count > 0.0 && wanted <= before + count) {
      return low + cellWidth * (c + (wanted - before) / count);
    }
    before += count;
  }
  if (measure.above == 0) return high;
  const double intoAbove = std::min(1.0, (wanted - before) / static_cast<double>(measure.above));
  return high + (measure.maximum - high) * intoAbove;
}

namespace {

// floor(x) as a cell index, clamped to the cells in floating point first, so that no value, however
// far off, is converted to int out of its range.
int ClampedCell(double x) {
  return static_cast<int>(std::clamp(std::floor(x), 0.0, static_cast<double>(kSequenceCells - 1)));
}

}  // namespace

std::vector<double> ResampleShares(const std::vector<double>& shares, double oldLow, double oldHigh,
                                   double newLow, double newHigh) {
  if (!(std::isfinite(oldLow) && std::isfinite(oldHigh) && std::isfinite(newLow) &&
        std::isfinite(newHigh))) {
    return shares;  // bounds of data beyond measure: nothing sensible to move
  }
  std::vector<double> moved(kSequenceCells, 0.0);
  const double newWidth = (newHigh - newLow) / kSequenceCells;
  // The new cell of a single value, or -1 outside the new bounds.
  const auto cellOf = [&](double v) {
    if (v < newLow || v > newHigh) return -1;
    if (!(newWidth > 0.0)) return 0;
    return ClampedCell((v - newLow) / newWidth);
  };
  const double oldWidth = (oldHigh - oldLow) / kSequenceCells;
  for (int c = 0; c < kSequenceCells; ++c) {
    const double share = shares[c];
    if (share <= 0.0) continue;
    const double from = oldLow + oldWidth * c;
    const double to = from + oldWidth;
    if (!(oldWidth > 0.0) || !(newWidth > 0.0)) {
      // A cell without width is a point: its share goes whole to the cell holding it.
      const int target = cellOf(oldWidth > 0.0 ? from + oldWidth / 2 : from);
      if (target >= 0) moved[target] += share;
      continue;
    }
    // Spread over the new cells it overlaps, in proportion to the overlap.
    const int first = ClampedCell((from - newLow) / newWidth);
    const int last = ClampedCell((to - newLow) / newWidth);
    for (int k = first; k <= last; ++k) {
      const double overlap =
          std::min(to, newLow + newWidth * (k + 1)) - std::max(from, newLow + newWidth * k);
      if (overlap > 0.0) moved[k] += share * overlap / oldWidth;
    }
  }
  double total = 0.0;
  for (const double share : moved) total += share;
  if (total > 0.0) {
    for (double& share : moved) share /= total;
  }
  return moved;
}

CellMapping LinearCellMapping(double low, double high) {
  CellMapping mapping;
  mapping.low = low;
  mapping.high = high;
  constexpr float kRun = 256.0f / kSequenceCells;
  for (int c = 0; c < kSequenceCells; ++c) {
    mapping.base[c] = kRun * static_cast<float>(c);
    mapping.slope[c] = kRun;
  }
  return mapping;
}

CellMapping EqualisedCellMapping(const std::vector<double>& shares, double low, double high) {
  double total = 0.0;
  for (const double share : shares) total += share;
  if (!(total > 0.0)) return LinearCellMapping(low, high);
  CellMapping mapping;
  mapping.low = low;
  mapping.high = high;
  double before = 0.0;
  for (int c = 0; c < kSequenceCells; ++c) {
    const double share = shares[c] / total;
    mapping.base[c] = static_cast<float>(256.0 * before);
    mapping.slope[c] = static_cast<float>(256.0 * share);
    before += share;
  }
  return mapping;
}

double LargestPositionChange(const CellMapping& a, const CellMapping& b) {
  double largest = 0.0;
  for (int c = 0; c < kSequenceCells; ++c) {
    largest = std::max(largest, std::fabs(static_cast<double>(a.base[c]) - b.base[c]));
    const double endA = static_cast<double>(a.base[c]) + a.slope[c];
    const double endB = static_cast<double>(b.base[c]) + b.slope[c];
    largest = std::max(largest, std::fabs(endA - endB));
  }
  return largest;
}

std::vector<double> EntryStarts(const CellMapping& m) {
  std::vector<double> starts(KivColorTable::kSize + 1, m.high);
  starts[0] = m.low;
  const double cellWidth = (m.high - m.low) / kSequenceCells;
  int c = 0;
  for (int entry = 1; entry < KivColorTable::kSize; ++entry) {
    // The first cell whose run reaches this entry; within it, where the run crosses it.
    while (c < kSequenceCells && !(static_cast<double>(m.base[c]) + m.slope[c] > entry)) ++c;
    if (c == kSequenceCells) break;
    const double into = m.slope[c] > 0.0f
                            ? std::max(0.0, (entry - static_cast<double>(m.base[c])) / m.slope[c])
                            : 0.0;
    starts[entry] = std::min(m.high, m.low + cellWidth * (c + std::min(1.0, into)));
  }
  for (int entry = 1; entry <= KivColorTable::kSize; ++entry) {
    starts[entry] = std::max(starts[entry], starts[entry - 1]);
  }
  return starts;
}

void CarriedMapping::Reset() {
  hasMapping_ = false;
  shares_.clear();
}

void CarriedMapping::StartFrom(double minimum, double maximum) {
  low_ = minimum;
  high_ = maximum;
  published_ = LinearCellMapping(low_, high_);
}

void CarriedMapping::ProposeBounds(const FrameMeasure& measure, double* low, double* high) const {
  switch (options_.coloring.bounds) {
    case KivBoundsSource::kGiven:
      *low = options_.coloring.low;
      *high = options_.coloring.high;
      return;
    case KivBoundsSource::kPercentile:
      *low = PercentileOfMeasure(measure, low_, high_, options_.coloring.lowPercentile);
      *high = PercentileOfMeasure(measure, low_, high_, options_.coloring.highPercentile);
      return;
    case KivBoundsSource::kMeasured:
      *low = measure.minimum;
      *high = measure.maximum;
      return;
  }
}

CellMapping CarriedMapping::MappingOfState() const {
  return options_.coloring.mode == KivColoringMode::kEqualised
             ? EqualisedCellMapping(shares_, low_, high_)
             : LinearCellMapping(low_, high_);
}

void CarriedMapping::TakeFrame(const FrameMeasure& measure, bool fresh) {
  if (measure.valid == 0) return;  // an empty frame leaves the mapping as it was
  double proposedLow = 0.0;
  double proposedHigh = 0.0;
  ProposeBounds(measure, &proposedLow, &proposedHigh);

  // The frame's own shares, over the bounds it was measured against.
  const int64_t inside = measure.valid - measure.below - measure.above;
  std::vector<double> frameShares(kSequenceCells, 0.0);
  for (int c = 0; c < kSequenceCells && inside > 0; ++c) {
    frameShares[c] = static_cast<double>(measure.cells[c]) / static_cast<double>(inside);
  }

  const double oldLow = low_;
  const double oldHigh = high_;
  if (fresh || shares_.empty()) {
    shares_ = std::move(frameShares);
    low_ = proposedLow;
    high_ = proposedHigh;
    recentLow_.Restart(options_.holdFrames, proposedLow);
    recentHigh_.Restart(options_.holdFrames, proposedHigh);
  } else {
    const double rate = FollowRate(options_.timeConstant);
    if (inside > 0) {
      for (int c = 0; c < kSequenceCells; ++c) {
        shares_[c] += rate * (frameShares[c] - shares_[c]);
      }
    }
    const double band = options_.boundDeadBand * (high_ - low_);
    recentLow_.Add(proposedLow);
    recentHigh_.Add(proposedHigh);
    low_ = FollowBound(low_, recentLow_.Median(), band, rate);
    high_ = FollowBound(high_, recentHigh_.Median(), band, rate);
    if (low_ > high_) low_ = high_ = (low_ + high_) / 2;
  }
  const bool boundsMoved = low_ != oldLow || high_ != oldHigh;
  if (boundsMoved) shares_ = ResampleShares(shares_, oldLow, oldHigh, low_, high_);

  const CellMapping candidate = MappingOfState();
  // Hysteresis of the colours themselves: drifts of the histogram smaller than the tolerance
  // leave the mapping in use as it is, so a static scene keeps every colour.
  if (fresh || !hasMapping_ || boundsMoved ||
      LargestPositionChange(candidate, published_) >= options_.entryTolerance) {
    published_ = candidate;
  }
  hasMapping_ = true;
}

}  // namespace KIVMV
