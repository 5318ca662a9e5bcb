// Runs of equal results of a rule that never falls as its integer argument rises.
#pragma once

#include <algorithm>

namespace KIVMV {

// Calls run(v, last, result) for each run v..last of the values first..final over which
// resultAt gives one result, in rising order. resultAt must never fall as its argument rises
// (a table index of a monotone mapping, say): then each run ends where the result first changes,
// found by doubling the step and halving the gap, and the rule is evaluated a few times per run
// instead of once per value.
template <typename ResultAt, typename Run>
void ForEachMonotoneRun(int first, int final, ResultAt&& resultAt, Run&& run) {
  int v = first;
  while (v <= final) {
    const auto result = resultAt(v);
    int last = v;  // the run holds v..last
    int step = 1;
    while (last + step <= final && resultAt(last + step) == result) {
      last += step;
      step *= 2;
    }
    int beyond = std::min(last + step, final + 1);  // the first value known or taken to be past
    while (beyond - last > 1) {
      const int middle = last + (beyond - last) / 2;
      if (resultAt(middle) == result) {
        last = middle;
      } else {
        beyond = middle;
      }
    }
    run(v, last, result);
    v = last + 1;
  }
}

}  // namespace KIVMV
