// The mapping a KivSequenceColorizer carries from frame to frame: bounds that follow the frames'
// proposals with a dead band, a hold and a time constant, and, for equalised colouring, the share
// of the values in each cell between the bounds, smoothed over frames. Plain numbers, no pixels:
// the kernel in sequence_colouring.cpp measures a frame into a FrameMeasure and colours it through
// a CellMapping.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "KivSequenceColoring.h"

namespace KIVMV {

inline constexpr int kSequenceCells = 1024;

// What one pass learned about a frame, in physical units, against the bounds it was coloured with.
struct FrameMeasure {
  int64_t valid = 0;
  double minimum = 0.0;  // of the valid values; meaningless when valid == 0
  double maximum = 0.0;
  int64_t below = 0;  // valid values below the bounds' low
  int64_t above = 0;  // and above their high
  std::vector<int64_t> cells = std::vector<int64_t>(kSequenceCells, 0);
};

// Colours of a frame as positions along the table: a value in cell c at fraction f across it lands
// at base[c] + slope[c] x f entries (0..256); entry = min(255, trunc(position)).
struct CellMapping {
  double low = 0.0;
  double high = 0.0;
  std::array<float, kSequenceCells> base{};
  std::array<float, kSequenceCells> slope{};
};

// The fraction of the remaining distance a carried value covers each frame: 1 - exp(-1 / tau);
// 1 for tau 0 (no carrying).
double FollowRate(double timeConstant);

// Where a bound goes given the median of the recent proposals: nowhere while that stays within
// `band` of it, else `rate` of the way towards it.
double FollowBound(double bound, double recentMedian, double band, double rate);

// The median of the last proposals of a bound, over a window of 2 x holdFrames - 1 frames: an
// excursion lasting fewer than holdFrames frames never reaches it, a lasting one does after
// holdFrames frames. Starts full of one proposal.
class RecentProposals {
 public:
  void Restart(int holdFrames, double proposal);
  void Add(double proposal);
  double Median() const;

 private:
  std::vector<double> window_;
  size_t next_ = 0;
};

// The value below which `percent` of a frame's valid values lie, from its counts: linear within
// the cell that holds it, between the minimum and the low bound for the values below, between the
// high bound and the maximum for those above.
double PercentileOfMeasure(const FrameMeasure& measure, double low, double high, double percent);

// Shares (summing to 1, or all 0) of cells between oldLow and oldHigh moved onto the cells between
// newLow and newHigh, each cell's share spread evenly over its width; what falls outside is
// dropped and the rest scaled back to a sum of 1.
std::vector<double> ResampleShares(const std::vector<double>& shares, double oldLow, double oldHigh,
                                   double newLow, double newHigh);

// The linear mapping between low and high: position 256 (v - low) / (high - low).
CellMapping LinearCellMapping(double low, double high);
// The equalised mapping of cell shares: each cell's run of positions is 256 x its share.
CellMapping EqualisedCellMapping(const std::vector<double>& shares, double low, double high);
// The largest distance, in table positions, between two mappings over the same bounds, at the
// edges of their cells.
double LargestPositionChange(const CellMapping& a, const CellMapping& b);
// entryStart of KivColoringInfo: for i = 0..256 the lowest value whose position reaches i.
std::vector<double> EntryStarts(const CellMapping& mapping);

// The state of a sequence: what the options say about following, and what the frames so far left.
class CarriedMapping {
 public:
  explicit CarriedMapping(const KivSequenceOptions& options) : options_(options) {}

  bool HasMapping() const { return hasMapping_; }
  const CellMapping& Mapping() const { return published_; }
  void Reset();

  // A first frame (or any frame with a time constant of 0): the bounds it proposes for itself,
  // from its extremes, before its cells are counted.
  void StartFrom(double minimum, double maximum);
  // Takes a frame measured against Mapping()'s bounds into the carried state and updates the
  // mapping the next frame is coloured with. `fresh`: the frame starts the state (a first frame,
  // or every frame without carrying), measured against the bounds StartFrom set.
  void TakeFrame(const FrameMeasure& measure, bool fresh);

 private:
  void ProposeBounds(const FrameMeasure& measure, double* low, double* high) const;
  CellMapping MappingOfState() const;

  KivSequenceOptions options_;
  bool hasMapping_ = false;
  double low_ = 0.0;
  double high_ = 0.0;
  RecentProposals recentLow_;
  RecentProposals recentHigh_;
  std::vector<double> shares_;
  CellMapping published_;
};

}  // namespace KIVMV
