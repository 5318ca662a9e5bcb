#include "range/para_normalisation.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <cmath>
#include <vector>

#include "Kiv3DArray.h"
#include "common/fault_injection.h"
#include "common/load_time_config.h"
#include "range/statistics.h"

namespace KIVMV {
namespace {

inline bool IsMeasured(float v, RescaledElements which) {
  return which == RescaledElements::kAllButMarker ? !IsExactMarker(v) : IsValidFloatMeasurement(v);
}

// Extremes of the measured elements; a body that saw none keeps found == false.
class RescalingExtremesBody {
 public:
  RescalingExtremesBody(const float* data, RescaledElements which) : data_(data), which_(which) {}
  RescalingExtremesBody(RescalingExtremesBody& other, tbb::split)
      : data_(other.data_), which_(other.which_) {}

  // Comparisons only: a NaN is never below or above anything and so never becomes an extreme.
  // Lanes that vectorise, merged as one element at a time would merge them; an element other
  // than NaN moves both extremes past each other's start, so they no longer cross.
  void operator()(const tbb::blocked_range<int>& range) {
    const float* data = data_;
    const RescaledElements which = which_;
    MergeFloatExtremes(
        static_cast<size_t>(range.begin()), static_cast<size_t>(range.end()),
        [data](size_t i) { return data[i]; },
        [which](float v) { return v == v && IsMeasured(v, which); }, minimum, maximum);
    found = minimum <= maximum;
  }
  void join(const RescalingExtremesBody& right) {
    if (right.minimum < minimum) minimum = right.minimum;
    if (right.maximum > maximum) maximum = right.maximum;
    found = found || right.found;
  }

  float minimum = FLT_MAX;
  float maximum = -FLT_MAX;
  bool found = false;

 private:
  const float* data_;
  RescaledElements which_;
};

}  // namespace

ParaRescaling FindRescaling(const float* data, int n, RescaledElements which) {
  if (n <= 0) return {};
  RescalingExtremesBody body(data, which);
  if (n < kParaParallelFrom) {
    body(tbb::blocked_range<int>(0, n));
  } else {
    tbb::parallel_reduce(tbb::blocked_range<int>(0, n, GrainSize(n)), body,
                         tbb::auto_partitioner());
  }
  if (!body.found) return {};
  return RescalingBetween(body.minimum, body.maximum);
}

void ApplyRescaling(float* data, int n, const ParaRescaling& r, RescaledElements which) {
  if (!r.applied || n <= 0) return;
  const auto rescale = [data, r, which](const tbb::blocked_range<int>& range) {
    // Every element is stored, unmeasured ones as they were, so that the loop vectorises.
    for (int i = range.begin(); i != range.end(); ++i) {
      const float v = data[i];
      const float rescaled = RescaledValue(v, r);
      data[i] = IsMeasured(v, which) ? rescaled : v;
    }
  };
  if (n < kParaParallelFrom) {
    rescale(tbb::blocked_range<int>(0, n));
    return;
  }
  tbb::parallel_for(tbb::blocked_range<int>(0, n, GrainSize(n)), rescale, tbb::auto_partitioner());
}

ParaTotals TotalsOfRange(const float* data, int begin, int end) {
  // No branch on the sign, since normalised heights change sign all over a frame: each square is
  // multiplied by 1 or 0, and an element that adds nothing to a sum adds +0.0, which leaves it as
  // it is (the sums start at +0 and only grow), so the additions happen in index order with the
  // same bits. Invalid elements are rare, and skipped. Locals rather than the record returned,
  // so that the sums stay in registers; they start as an empty record does.
  const ParaTotals empty;
  double minimum = empty.minimum, maximum = empty.maximum;
  double positiveSquares = 0.0, negativeSquares = 0.0;
  int64_t positiveCount = 0, negativeCount = 0;
  for (int i = begin; i < end; ++i) {
    const float v = data[i];
    if (!IsParaValid(v)) continue;
    const double x = static_cast<double>(v);
    const double square = x * x;
    const int positive = x > 0.0, negative = x < 0.0;
    minimum = x < minimum ? x : minimum;
    maximum = x > maximum ? x : maximum;
    positiveSquares += square * static_cast<double>(positive);
    negativeSquares += square * static_cast<double>(negative);
    positiveCount += positive;
    negativeCount += negative;
  }
  return {minimum, maximum, positiveSquares, positiveCount, negativeSquares, negativeCount};
}

void AddTotals(ParaTotals& total, const ParaTotals& part) {
  if (part.minimum < total.minimum) total.minimum = part.minimum;
  if (part.maximum > total.maximum) total.maximum = part.maximum;
  total.positiveSquares += part.positiveSquares;
  total.positiveCount += part.positiveCount;
  total.negativeSquares += part.negativeSquares;
  total.negativeCount += part.negativeCount;
}

ParaTotals FindParaTotals(const float* data, int n) {
  ParaTotals total;
  if (n <= 0) return total;
  ThrowIfInjected(FaultStage::kStatistics);
  if (n < kParaParallelFrom) return TotalsOfRange(data, 0, n);
  const int blockCount = (n - 1) / kParaReductionBlock + 1;
  // Each block writes its own slot, so the workers share nothing they change.
  std::vector<ParaTotals> blocks(static_cast<size_t>(blockCount));
  tbb::parallel_for(
      tbb::blocked_range<int>(0, blockCount, GrainSize(blockCount)),
      [data, n, &blocks](const tbb::blocked_range<int>& range) {
        for (int b = range.begin(); b != range.end(); ++b) {
          const int begin = b * kParaReductionBlock;
          const int end = n - begin > kParaReductionBlock ? begin + kParaReductionBlock : n;
          blocks[static_cast<size_t>(b)] = TotalsOfRange(data, begin, end);
        }
      },
      tbb::auto_partitioner());
  for (const ParaTotals& block : blocks) AddTotals(total, block);
  return total;
}

BreakValues AutomaticBreakValues(const ParaTotals& totals) {
  const double p =
      totals.positiveCount > 0
          ? std::sqrt(totals.positiveSquares / static_cast<double>(totals.positiveCount))
          : 0.0;
  const double q =
      totals.negativeCount > 0
          ? std::sqrt(totals.negativeSquares / static_cast<double>(totals.negativeCount))
          : 0.0;
  double lowPoint = -q;
  if (lowPoint == 0.0) lowPoint = (p + totals.minimum) * 0.5;
  double highPoint = p;
  if (!(highPoint > 0.0)) highPoint = (totals.maximum + totals.minimum) * 0.5;
  const double centre = (lowPoint + highPoint) * 0.5;
  return {{totals.minimum, lowPoint, centre, highPoint, totals.maximum}, kAutomaticIndices};
}

}  // namespace KIVMV
