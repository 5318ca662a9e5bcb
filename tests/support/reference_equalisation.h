// The slot allotment of histogram equalisation restated plainly, for the reference loops of the
// range-image, grey-image and float-array tests.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "support/reference_helpers.h"

namespace KIVMV {
namespace testing_support {

struct ReferenceSlots {
  std::vector<int64_t> weight;
  std::vector<int64_t> end;
  std::vector<int> nonEmpty;
  double w;
  double low;

  // The slot of value x in bin b: interpolated inside a bin with slots, else that of the nearest
  // bin with slots (the lower on a tie), its last when b lies above it, its first otherwise; with
  // none at all, bin 0 from below.
  int64_t SlotOf(double x, int b) const {
    if (weight[b] > 0) {
      return X86Truncate(double(end[b]) -
                         (double(weight[b]) - (x - (b * w + low)) / w * double(weight[b])));
    }
    int best = 10000, nearest = 0;
    bool above = false;
    for (int c : nonEmpty) {
      if (std::abs(b - c) < best) {
        best = std::abs(b - c);
        nearest = c;
        above = b > c;
      }
    }
    return above ? end[nearest] : end[nearest] - weight[nearest] + 1;
  }
};

// Shares of all `count` valid pixels, largest first with equal shares in bin order; at least one
// slot each, rounded half away from zero, until the running total reaches B.
inline ReferenceSlots ReferenceAllotSlots(const std::vector<uint32_t>& hist, uint32_t count, int B,
                                          double w, double low) {
  std::vector<std::pair<double, int>> shares;
  for (int b = 0; b < B; ++b) shares.push_back({double(hist[b]) / count * B, b});
  std::stable_sort(shares.begin(), shares.end(),
                   [](const auto& x, const auto& y) { return x.first > y.first; });
  ReferenceSlots slots{std::vector<int64_t>(B, 0), std::vector<int64_t>(B, 0), {}, w, low};
  int64_t total = 0;
  for (const auto& [share, b] : shares) {
    const int64_t r = std::max<int64_t>(1, X86Truncate(std::round(share)));
    total += r;
    slots.weight[b] = total < B ? r : 0;
  }
  int64_t run = 0;
  for (int b = 0; b < B; ++b) {
    run += slots.weight[b];
    slots.end[b] = run;
    if (slots.weight[b] >= 1) slots.nonEmpty.push_back(b);
  }
  return slots;
}

}  // namespace testing_support
}  // namespace KIVMV
