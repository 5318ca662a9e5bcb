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

  void operator()(const tbb::blocked_range<int>& range) {
    for (int i = range.begin(); i != range.end(); ++i) {
      const float v = data_[i];
      if (!IsMeasured(v, which_)) continue;
      // Comparisons only: a NaN is never below or above anything and so never becomes an extreme.
      if (v < minimum) minimum = v;
      if (v > maximum) maximum = v;
      if (!std::isnan(v)) found = true;
    }
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
  const auto rescale = [data, &r, which](const tbb::blocked_range<int>& range) {
    for (int i = range.begin(); i != range.end(); ++i) {
      if (IsMeasured(data[i], which)) data[i] = RescaledValue(data[i], r);
    }
  };
  if (n < kParaParallelFrom) {
    rescale(tbb::blocked_range<int>(0, n));
    return;
  }
  tbb::parallel_for(tbb::blocked_range<int>(0, n, GrainSize(n)), rescale, tbb::auto_partitioner());
}

ParaTotals TotalsOfRange(const float* data, int begin, int end) {
  ParaTotals totals;
  for (int i = begin; i < end; ++i) {
    const float v = data[i];
    if (!IsParaValid(v)) continue;
    const double x = static_cast<double>(v);
    if (x < totals.minimum) totals.minimum = x;
    if (x > totals.maximum) totals.maximum = x;
    if (x > 0.0) {
      totals.positiveSquares += x * x;
      ++totals.positiveCount;
    } else if (x < 0.0) {
      totals.negativeSquares += x * x;
      ++totals.negativeCount;
    }
  }
  return totals;
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
