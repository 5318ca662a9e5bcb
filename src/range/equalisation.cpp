#include "range/equalisation.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#include "common/cpu_features.h"
#include "common/load_time_config.h"
#include "common/numeric_helpers.h"
#include "common/pixel_rules.h"
#include "range/raw_value_lut.h"
#include "range/statistics.h"
#include "tables/colour_tables.h"
#include "tables/padded_colour.h"
#include "tables/padded_colour_avx2.h"

namespace KIVMV {

int64_t NearestSlotForEmptyBin(int b, const EqualisationTable& table) {
  int nearest = 0;
  int bestDistance = 10000;
  bool above = false;
  for (int candidate : table.nonEmptyBins) {
    const int distance = std::abs(b - candidate);
    if (distance < bestDistance) {
      bestDistance = distance;
      nearest = candidate;
      above = b > candidate;
    }
  }
  const int64_t end = table.end[nearest];
  return above ? end : end - table.weight[nearest] + 1;
}

void CompleteEqualisationTable(EqualisationTable& table) {
  uint32_t run = 0;
  table.nonEmptyBins.clear();
  for (int b = 0; b < table.binCount; ++b) {
    run += table.weight[b];
    table.end[b] = run;
    if (table.weight[b] >= 1) table.nonEmptyBins.push_back(b);
  }
  // NearestSlotForEmptyBin for every empty bin in two sweeps: its nearest bin with slots is the
  // closest one below it or the closest one above, and of two equally near the lower one.
  std::array<int, kHistogramBins> below{};
  int last = -1;
  for (int b = 0; b < table.binCount; ++b) {
    if (table.weight[b] >= 1) last = b;
    below[b] = last;
  }
  int next = -1;
  for (int b = table.binCount - 1; b >= 0; --b) {
    if (table.weight[b] >= 1) {
      next = b;
      table.emptyBinSlot[b] = 0;
      continue;
    }
    const int lower = below[b];
    if (lower < 0 && next < 0) {
      table.emptyBinSlot[b] = NearestSlotForEmptyBin(b, table);  // no bin has slots
    } else if (next < 0 || (lower >= 0 && b - lower <= next - b)) {
      table.emptyBinSlot[b] = table.end[lower];  // above its nearest: that bin's last slot
    } else {
      const int64_t end = table.end[next];
      table.emptyBinSlot[b] = end - table.weight[next] + 1;  // below it: its first slot
    }
  }
}

EqualisationTable BuildEqualisationTable(const Histogram& histogram, uint32_t validCount,
                                         int binCount) {
  EqualisationTable table;
  table.binCount = binCount;

  // Shares of all valid pixels, those outside [low, high] included, so they may sum below B.
  std::vector<std::pair<int, double>> shares(binCount);
  for (int b = 0; b < binCount; ++b) {
    shares[b] = {b, static_cast<double>(histogram[b]) / validCount * binCount};
  }
  // Equal shares keep ascending bin order: with many empty bins this decides which get no slot,
  // and a stable order gives every compiler the same colours.
  std::stable_sort(shares.begin(), shares.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });

  int64_t total = 0;
  for (const auto& [bin, share] : shares) {
    const int64_t weight = std::max<int64_t>(1, numeric::TruncateToInt64(std::round(share)));
    total += weight;
    table.weight[bin] = total < binCount ? static_cast<uint32_t>(weight) : 0u;
  }

  CompleteEqualisationTable(table);
  return table;
}

namespace {

constexpr double kBinNudge = 1e-14;

int ClampToTable(int64_t index) {
  return static_cast<int>(std::min<int64_t>(kColourTableSize - 1, std::max<int64_t>(0, index)));
}

inline void WriteColour(uint8_t* out, int i, const ColourEntry& colour) {
  uint8_t* pixel = out + 3 * static_cast<size_t>(i);
  pixel[0] = colour[0];
  pixel[1] = colour[1];
  pixel[2] = colour[2];
}

// Everything a colouring body needs besides the pixels.
struct EqualisedScale {
  double low;
  double high;
  double w;
  double reciprocal;  // 1 / w
  int binCount;
  const EqualisationTable* slots;
  const ColourTable* colours;
  bool reserveIndex0;
  int mapType;
};

template <typename T>
ColourEntry InvalidOrFirst(const EqualisedScale& s) {
  return s.reserveIndex0 ? InvalidColour(s.mapType) : (*s.colours)[0];
}

// The table index of a valid value in [low, high) under the whole table.
inline int EqualisedIndexInside(double v, const EqualisedScale& s) {
  const int b = EqualisedBinByReciprocal(v, s.w, s.reciprocal, s.low, kBinNudge, s.binCount);
  const int64_t slot = EqualisedSlotByReciprocal(v, b, s.w, s.reciprocal, s.low, *s.slots);
  return ClampToTable(slot + (s.reserveIndex0 ? 1 : 0));
}

// The table index of a valid value in [low, high] under entries lo..hi.
inline int EqualisedRangeIndexInside(double v, const EqualisedScale& s, const ColourRange& r) {
  const int b = EqualisedBinByReciprocal(v, s.w, s.reciprocal, s.low, 0.0, s.binCount);
  const int64_t slot = EqualisedSlotByReciprocal(v, b, s.w, s.reciprocal, s.low, *s.slots);
  // lo is taken off the slot before scaling and not added back afterwards.
  const double scaled = (static_cast<double>(slot) - r.lo) / s.binCount * (r.hi - r.lo);
  return ClampToTable(numeric::TruncateToInt64(scaled) + (s.reserveIndex0 ? 1 : 0));
}

// The whole table: values at or above high take the last entry, values below low the first.
template <typename T>
inline ColourEntry EqualisedColour(T raw, const EqualisedScale& s) {
  if (!IsValidPixel(raw)) return InvalidOrFirst<T>(s);
  const double v = static_cast<double>(raw);
  if (v >= s.high) return (*s.colours)[kColourTableSize - 1];
  if (v < s.low) return (*s.colours)[0];
  return (*s.colours)[EqualisedIndexInside(v, s)];
}

// Entries lo..hi only; values outside [low, high] take the caller's colours, and a value equal to
// a bound is mapped normally.
template <typename T>
inline ColourEntry EqualisedRangeColour(T raw, const EqualisedScale& s, const ColourRange& r) {
  if (!IsValidPixel(raw)) return InvalidOrFirst<T>(s);
  const double v = static_cast<double>(raw);
  if (v < s.low) return r.below;
  if (v > s.high) return r.above;
  return (*s.colours)[EqualisedRangeIndexInside(v, s, r)];
}

// ---------------------------------------------------------------------------------------------
// Float, double and 16-bit pixels by value runs.
//
// The histogram bin of a value, and its (colour bin, slot) pair, are non-decreasing functions of
// the value: each is a floor or truncation of a chain of correctly rounded subtractions,
// multiplications and divisions by positive constants, every one of them monotone, and the slot
// is monotone within a bin (the reciprocal forms equal the divisions they stand for). So the
// values that share a result form runs, and the first value of each run can be found by a search
// over the ordered bit patterns, evaluating the very functions the per-pixel path evaluates. A
// pixel is then classified by a coarse cell, a monotone product of its value, followed by exact
// comparisons with the few run starts that fall inside that cell: no division and no rounding
// question per pixel, and the same answer as the formula for every value.

// Ordered codes of float and double values: for non-NaN a < b exactly when code(a) < code(b),
// with -0 one step below +0. 16-bit integers count up from their lowest value.
template <typename T>
struct OrderedCode {
  using Code = std::conditional_t<sizeof(T) <= 4, uint32_t, uint64_t>;
  static constexpr Code kSign = Code{1} << (8 * sizeof(Code) - 1);
  static Code Of(T v) {
    if constexpr (std::is_integral_v<T>) {
      return static_cast<Code>(static_cast<int32_t>(v) -
                               static_cast<int32_t>(std::numeric_limits<T>::min()));
    } else {
      Code bits;
      std::memcpy(&bits, &v, sizeof bits);
      return (bits & kSign) ? ~bits : (bits | kSign);
    }
  }
  static T At(Code code) {
    if constexpr (std::is_integral_v<T>) {
      return static_cast<T>(static_cast<int32_t>(code) +
                            static_cast<int32_t>(std::numeric_limits<T>::min()));
    } else {
      const Code bits = (code & kSign) ? (code & ~kSign) : ~code;
      T v;
      std::memcpy(&v, &bits, sizeof v);
      return v;
    }
  }
};

// The first code in [first, end) whose value satisfies a predicate that is false then true over
// the codes, or end; Codes maps values to ordered codes and back.
template <typename T, typename Codes = OrderedCode<T>, typename Pred>
typename Codes::Code FirstCodeWhere(typename Codes::Code first, typename Codes::Code end,
                                    Pred pred) {
  using Code = typename Codes::Code;
  Code lo = first;
  Code hi = end;
  while (lo < hi) {
    const Code mid = lo + (hi - lo) / 2;
    if (pred(Codes::At(mid))) {
      hi = mid;
    } else {
      lo = mid + 1;
    }
  }
  return lo;
}

// Runs of equal result over a domain of values: run 0 starts at the domain's first value, run j
// at starts[j - 1]; result[j] is the run's result.
template <typename T>
struct ValueRuns {
  std::vector<T> starts;
  std::vector<uint8_t> result;
};

// More runs than this only come from degenerate tables; the per-pixel path takes those.
constexpr size_t kMaxRuns = 4096;

// Splits the codes [first, end) into runs of equal key(v), which must be non-decreasing, and
// merges neighbouring runs whose result(v) agrees. guess(v, key) estimates the value where the key
// next changes; it only steers the search. False when there are more than kMaxRuns changes.
template <typename T, typename Key, typename Result, typename Guess>
bool FindValueRuns(typename OrderedCode<T>::Code first, typename OrderedCode<T>::Code end, Key key,
                   Result result, Guess guess, ValueRuns<T>& runs) {
  using Code = typename OrderedCode<T>::Code;
  using O = OrderedCode<T>;
  runs.starts.clear();
  runs.result.clear();
  if (first >= end) return true;
  Code t = first;
  runs.result.push_back(result(O::At(t)));
  size_t changes = 0;
  while (true) {
    const T tv = O::At(t);
    const auto k = key(tv);
    auto same = [&](Code c) { return key(O::At(c)) == k; };
    // A first probe at the estimate, then doubling steps away from it to bracket the change, then
    // bisection: codes with the key k form a prefix of [t, end).
    Code probe;
    const double g = guess(tv, k);
    if (!(g > static_cast<double>(tv))) {
      probe = t + 1;
    } else if (!(g < static_cast<double>(O::At(end - 1)))) {
      probe = end - 1;
    } else {
      probe = std::clamp(O::Of(static_cast<T>(g)), t + 1, end - 1);
    }
    Code lo;
    Code hi;
    if (probe >= end) {
      lo = t;
      hi = end;
    } else if (same(probe)) {
      lo = probe;
      Code step = 1;
      while (true) {
        if (end - lo <= step) {
          hi = end;
          break;
        }
        if (!same(lo + step)) {
          hi = lo + step;
          break;
        }
        lo += step;
        step *= 2;
      }
    } else {
      hi = probe;
      Code step = 1;
      while (true) {
        if (hi - t <= step) {
          lo = t;
          break;
        }
        if (same(hi - step)) {
          lo = hi - step;
          break;
        }
        hi -= step;
        step *= 2;
      }
    }
    while (hi - lo > 1) {
      const Code mid = lo + (hi - lo) / 2;
      if (same(mid)) {
        lo = mid;
      } else {
        hi = mid;
      }
    }
    if (hi >= end) return true;
    if (++changes > kMaxRuns) return false;
    t = hi;
    const uint8_t r = result(O::At(t));
    if (r != runs.result.back()) {
      runs.starts.push_back(O::At(t));
      runs.result.push_back(r);
    }
  }
}

// The run starts in the order of their cells, for walks over the cells: the cell of each start is
// computed once, not once per cell it is compared with.
template <typename T, typename Grid>
struct CellStarts {
  CellStarts(const Grid& grid, const std::vector<T>& starts) : grid_(grid), starts_(starts) {
    Advance();
  }
  // Steps past the starts inside cell c (cells must come in ascending order) and returns the
  // index of the first start beyond them.
  size_t PassCell(int c) {
    while (cellOfNext_ == c) {
      ++index;
      Advance();
    }
    return index;
  }
  size_t index = 0;  // of the first start not yet passed

 private:
  void Advance() {
    cellOfNext_ = index < starts_.size() ? grid_.Cell(starts_[index]) : grid_.cellCount;
  }
  Grid grid_;
  const std::vector<T>& starts_;
  int cellOfNext_ = 0;
};

// The run of a value in [first, end) by a coarse cell and comparisons within it.
template <typename T>
class RunIndex {
  // The cell arithmetic and thresholds: 16-bit integers as floats, which hold them exactly.
  using Calc = std::conditional_t<std::is_integral_v<T>, float, T>;
  // Marks a cell in which several runs start; run indices never reach this bit.
  static constexpr uint32_t kCrowded = 0x80000000u;
  struct Entry {
    Calc threshold;  // where the second run of the cell starts, or +infinity
    uint32_t first;  // the run of the cell's first value
  };

 public:
  // What CellsOrSidesOf writes for values outside the domain.
  static constexpr int32_t kOutside = -1;
  static constexpr int32_t kBelowDomain = -2;
  static constexpr int32_t kAboveDomain = -3;

  RunIndex(const ValueRuns<T>& runs, T first, T last, int cells) : starts_(runs.starts.data()) {
    const View grid = Grid(first, last, cells);
    scale_ = grid.scale;
    first_ = grid.first;
    cells_ = cells;
    cellLimit_ = grid.cellLimit;
    cell_.resize(static_cast<size_t>(cells));
    crowdedCount_.assign(static_cast<size_t>(cells), 0);
    CellStarts<T, View> next(grid, runs.starts);
    for (int c = 0; c < cells; ++c) {
      const size_t j0 = next.index;
      const size_t j = next.PassCell(c);
      Entry& e = cell_[static_cast<size_t>(c)];
      e.first = static_cast<uint32_t>(j0);
      if (j - j0 <= 1) {
        // At most one run starts inside: one comparison decides.
        e.threshold =
            j > j0 ? static_cast<Calc>(runs.starts[j0]) : std::numeric_limits<Calc>::infinity();
      } else {
        e.threshold = std::numeric_limits<Calc>::infinity();
        e.first |= kCrowded;
        crowdedCount_[static_cast<size_t>(c)] = static_cast<uint32_t>(j - j0);
      }
    }
  }

  // The lookup as plain values and pointers, for a local copy in each pixel loop: the colour
  // stores may alias any memory, and a local whose address is never taken is not reloaded.
  struct View {
    const T* starts;
    const void* cells;
    const uint32_t* crowdedCount;
    Calc first;
    Calc scale;
    Calc cellLimit;
    int cellCount;

    // Any v; NaN and values below the domain land in cell 0, values above it in the last, so
    // no conversion is out of range. Monotone over the domain.
    int Cell(T v) const {
      const Calc x = (static_cast<Calc>(v) - first) * scale;
      const Calc y = x > Calc{0} ? x : Calc{0};
      return y < cellLimit ? static_cast<int>(y) : cellCount - 1;
    }

    // The cells of values[0..count) that lie in [from, to], -1 for the others; a loop without
    // lookups, which the compiler vectorises.
    void CellsOf(const T* values, int count, T from, T to, int32_t* cells) const {
      for (int k = 0; k < count; ++k) {
        const T v = values[k];
        const int c = Cell(v);
        cells[k] = v >= from && v <= to ? c : -1;
      }
    }

    // Like CellsOf, but a value outside [from, to] is told by its side: kBelowDomain for one in
    // [lowestValid, from), kAboveDomain for one in (to, highestValid], kOutside for the rest.
    void CellsOrSidesOf(const T* values, int count, T from, T to, T lowestValid, T highestValid,
                        int32_t* cells) const {
      for (int k = 0; k < count; ++k) {
        const T v = values[k];
        const int c = Cell(v);
        const int32_t side = v < from && v >= lowestValid  ? kBelowDomain
                             : v > to && v <= highestValid ? kAboveDomain
                                                           : kOutside;
        cells[k] = v >= from && v <= to ? c : side;
      }
    }

    // The run of a value of the domain in its cell c.
    int RunIn(T v, int c) const {
      const Entry e = static_cast<const Entry*>(cells)[c];
      if (!(e.first & kCrowded)) {
        return static_cast<int>(e.first) + (static_cast<Calc>(v) >= e.threshold ? 1 : 0);
      }
      const uint32_t firstRun = e.first & ~kCrowded;
      int run = static_cast<int>(firstRun);
      for (uint32_t k = 0; k < crowdedCount[c]; ++k) run += v >= starts[firstRun + k] ? 1 : 0;
      return run;
    }

    int RunOf(T v) const { return RunIn(v, Cell(v)); }

    // The run of the first value of an uncrowded cell c, and where the next run starts in it.
    int FirstRunIn(int c) const {
      return static_cast<int>(static_cast<const Entry*>(cells)[c].first);
    }
    Calc ThresholdIn(int c) const { return static_cast<const Entry*>(cells)[c].threshold; }

    // Each cell's threshold, for gathers that step kEntryBytes a cell.
    static constexpr int kEntryBytes = sizeof(Entry);
    const Calc* thresholds() const { return &static_cast<const Entry*>(cells)->threshold; }
  };

  // Whether some cell holds more than one run start.
  bool HasCrowdedCells() const {
    return std::any_of(cell_.begin(), cell_.end(),
                       [](const Entry& e) { return (e.first & kCrowded) != 0; });
  }

  // The cells alone, without runs: View::Cell works, nothing else does.
  static View Grid(T first, T last, int cells) {
    // The cell of v is (v - first) * scale truncated, with everything from cells on in the last;
    // a monotone function of v whatever the rounding, so a cell's run starts are consecutive.
    const double span = static_cast<double>(last) - static_cast<double>(first);
    Calc scale = span > 0.0 ? static_cast<Calc>(cells / span) : Calc{0};
    if (!(scale > Calc{0}) || !std::isfinite(scale)) scale = Calc{0};
    return {nullptr, nullptr, nullptr, static_cast<Calc>(first), scale, static_cast<Calc>(cells),
            cells};
  }

  View view() const {
    return {starts_, cell_.data(), crowdedCount_.data(), first_, scale_, cellLimit_, cells_};
  }

  int Cell(T v) const { return view().Cell(v); }

 private:
  const T* starts_;
  Calc first_;
  Calc scale_;
  Calc cellLimit_;
  int cells_;
  std::vector<Entry> cell_;
  // How many runs start inside each crowded cell; read only for those.
  std::vector<uint32_t> crowdedCount_;
};

// Run-table passes split into pieces of at most this many pixels: their results do not depend on
// the split, and pieces this small let an idle worker take over from one that a busy machine has
// descheduled.
int RunPassGrain(int n) { return std::min(GrainSize(n), 1 << 16); }

// Pixels whose cells are found in one vectorised loop before their runs are looked up.
constexpr int kRunBlock = 256;

// Below this many pixels the run tables (a few hundred exact evaluations and searches) cost more
// than colouring per pixel; a 160 x 120 frame is already well past it.
constexpr int kMinPixelsForRuns = 1 << 12;

template <typename T>
inline constexpr bool kHasValueRuns = std::is_same_v<T, float> || std::is_same_v<T, double> ||
                                      std::is_same_v<T, uint16_t> || std::is_same_v<T, int16_t>;

// Cells per run table: enough that few cells hold more than one run start, few enough that the
// table stays in the nearest caches. Histogram bins are evenly spaced, so two cells a bin keep
// their starts apart and the gathered table within the first-level cache; slots crowd where the
// pixels do, and want finer cells.
constexpr int kHistogramCells = 2 * kHistogramBins;
int ColourCells(int n) { return std::clamp(n / 64, 1024, 8192); }

// The codes of the finite values, -max .. max, and one past them (+infinity).
template <typename T>
typename OrderedCode<T>::Code FirstFiniteCode() {
  return OrderedCode<T>::Of(std::numeric_limits<T>::lowest());
}
template <typename T>
typename OrderedCode<T>::Code EndFiniteCode() {
  return OrderedCode<T>::Of(std::numeric_limits<T>::max()) + 1;
}

#if KIVLUT_HAS_AVX2_PATHS
// RunIndex<float>::View::Cell of eight values: (v - first) * scale, then x > 0 ? x : 0 (MAXPS
// returns its second operand for NaN), then its truncation below the limit and the last cell from
// there on.
struct CellGridAvx2 {
  __attribute__((target("avx2"))) explicit CellGridAvx2(const RunIndex<float>::View& grid)
      : first(_mm256_set1_ps(grid.first)),
        scale(_mm256_set1_ps(grid.scale)),
        limit(_mm256_set1_ps(grid.cellLimit)),
        lastCell(_mm256_set1_epi32(grid.cellCount - 1)) {}

  __attribute__((target("avx2"))) __m256i CellsOf(__m256 v) const {
    const __m256 y =
        _mm256_max_ps(_mm256_mul_ps(_mm256_sub_ps(v, first), scale), _mm256_setzero_ps());
    const __m256 inRange = _mm256_cmp_ps(y, limit, _CMP_LT_OQ);
    return _mm256_blendv_epi8(lastCell, _mm256_cvttps_epi32(y), _mm256_castps_si256(inRange));
  }

  __m256 first;
  __m256 scale;
  __m256 limit;
  __m256i lastCell;
};

// Where each of values[0..count) falls in a run index without crowded cells, eight at a time:
// 2 c + 1 for a value in [from, to] at or past the run start inside its cell c, 2 c for one before
// it (or in a cell where no run starts), 2 cellCount for a value outside (NaN among them). One
// gather a group: the cell's run follows from the code once the pass is over. A last group of
// fewer than eight is left to the caller.
__attribute__((target("avx2"))) void HistogramSidesAvx2(const float* values, int count,
                                                        const RunIndex<float>::View& lookup,
                                                        float from, float to, int32_t* codes) {
  constexpr int kStride = RunIndex<float>::View::kEntryBytes;
  const CellGridAvx2 grid(lookup);
  const __m256 fromV = _mm256_set1_ps(from);
  const __m256 toV = _mm256_set1_ps(to);
  const __m256i outside = _mm256_set1_epi32(2 * lookup.cellCount);
  const float* const thresholds = lookup.thresholds();
  for (int k = 0; k + 8 <= count; k += 8) {
    const __m256 v = _mm256_loadu_ps(values + k);
    const __m256i cell = grid.CellsOf(v);
    const __m256 threshold = _mm256_i32gather_ps(thresholds, cell, kStride);
    const __m256i past = _mm256_castps_si256(_mm256_cmp_ps(v, threshold, _CMP_GE_OQ));
    const __m256i code = _mm256_sub_epi32(_mm256_add_epi32(cell, cell), past);
    const __m256 inside =
        _mm256_and_ps(_mm256_cmp_ps(v, fromV, _CMP_GE_OQ), _mm256_cmp_ps(v, toV, _CMP_LE_OQ));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(codes + k),
                        _mm256_blendv_epi8(outside, code, _mm256_castps_si256(inside)));
  }
}

// Float pixels coloured by runs eight at a time. Per cell one colour word, that of its only run,
// or kScalarColour when a run starts inside it: one gather colours a pixel, and the few pixels of
// cells with a run start go through RunIndex. The cell is RunIndex's own float arithmetic, so
// every lane agrees with it.
// Marks a colour word that the scalar loop must find: colour words use the low three bytes only.
constexpr uint32_t kScalarColour = 0x80000000u;

// Cells of the vector loop: up to 2^15, but not more than an eighth of the pixels, since the
// table of a small frame costs more to fill than its pixels to colour.
int FineColourCells(int n) { return std::clamp(n / 8, 1 << 12, 1 << 15); }

inline uint32_t ColourWord32(const PaddedColour& c) { return static_cast<uint32_t>(ColourWord(c)); }

std::vector<uint32_t> ColourWordsOfCells(const RunIndex<float>::View& grid,
                                         const ValueRuns<float>& runs,
                                         const std::vector<PaddedColour>& runColours) {
  std::vector<uint32_t> words(static_cast<size_t>(grid.cellCount));
  CellStarts<float, RunIndex<float>::View> next(grid, runs.starts);
  for (int c = 0; c < grid.cellCount; ++c) {
    // The starts below the cell's values are the j0 before it, so its first value is in run j0.
    const size_t j0 = next.index;
    const size_t j = next.PassCell(c);
    words[static_cast<size_t>(c)] = j > j0 ? kScalarColour : ColourWord32(runColours[j0]);
  }
  return words;
}

// Colours of values[0..count) as 3-byte colours from `out`, eight at a time: from the cell tables
// inside [from, to], `below` for valid values under it, `above` over it, `invalid` for the rest
// (NaN, infinities, the marker). The lanes that the scalar loop must colour (cells where a run
// starts) hold a placeholder and are marked in scalarLanes, one bit per lane and one byte per
// group of eight; a last group of fewer than eight is not touched at all. Exactly 24 bytes are
// stored per group.
__attribute__((target("avx2"))) void FloatRunColoursAvx2(
    const float* values, int count, const RunIndex<float>::View& lookup,
    const uint32_t* cellColours, float from, float to, float lowestValid, float highestValid,
    uint32_t below, uint32_t above, uint32_t invalid, uint8_t* out, uint8_t* scalarLanes) {
  const CellGridAvx2 grid(lookup);
  const __m256 fromV = _mm256_set1_ps(from);
  const __m256 toV = _mm256_set1_ps(to);
  const __m256 lowestV = _mm256_set1_ps(lowestValid);
  const __m256 highestV = _mm256_set1_ps(highestValid);
  const __m256i belowW = _mm256_set1_epi32(static_cast<int>(below));
  const __m256i aboveW = _mm256_set1_epi32(static_cast<int>(above));
  const __m256i invalidW = _mm256_set1_epi32(static_cast<int>(invalid));
  const __m256i scalarW = _mm256_set1_epi32(static_cast<int>(kScalarColour));
  const int* const cellWords = reinterpret_cast<const int*>(cellColours);
  for (int k = 0; k + 8 <= count; k += 8) {
    const __m256 v = _mm256_loadu_ps(values + k);
    const __m256i cell = grid.CellsOf(v);
    const __m256i colour = _mm256_i32gather_epi32(cellWords, cell, 4);
    const __m256 inside =
        _mm256_and_ps(_mm256_cmp_ps(v, fromV, _CMP_GE_OQ), _mm256_cmp_ps(v, toV, _CMP_LE_OQ));
    const __m256 under =
        _mm256_and_ps(_mm256_cmp_ps(v, fromV, _CMP_LT_OQ), _mm256_cmp_ps(v, lowestV, _CMP_GE_OQ));
    const __m256 over =
        _mm256_and_ps(_mm256_cmp_ps(v, toV, _CMP_GT_OQ), _mm256_cmp_ps(v, highestV, _CMP_LE_OQ));
    __m256i word = _mm256_blendv_epi8(invalidW, aboveW, _mm256_castps_si256(over));
    word = _mm256_blendv_epi8(word, belowW, _mm256_castps_si256(under));
    word = _mm256_blendv_epi8(word, colour, _mm256_castps_si256(inside));
    scalarLanes[k / 8] = static_cast<uint8_t>(
        _mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(word, scalarW))));
    StoreEightColoursAvx2(word, out + 3 * static_cast<size_t>(k));
  }
}
#endif

// The 256-bin histogram by runs of HistogramBin over the values in [low, high]; every other value
// (NaN, infinities, values outside) is not counted, as HistogramBin returns -1 for it.
template <typename T>
bool HistogramByRuns(const T* data, int n, double w, double low, double high,
                     Histogram& histogram) {
  using O = OrderedCode<T>;
  const auto first = FirstCodeWhere<T>(FirstFiniteCode<T>(), EndFiniteCode<T>(),
                                       [low](T v) { return static_cast<double>(v) >= low; });
  const auto end = FirstCodeWhere<T>(first, EndFiniteCode<T>(),
                                     [high](T v) { return static_cast<double>(v) > high; });
  if (first >= end) {
    histogram.assign(kHistogramBins, 0);
    return true;
  }
  ValueRuns<T> runs;
  const bool found = FindValueRuns<T>(
      first, end, [&](T v) { return HistogramBin(v, w, low, high); },
      [&](T v) { return static_cast<uint8_t>(HistogramBin(v, w, low, high)); },
      [&](T, int bin) { return low + (bin + 1) * w; }, runs);
  if (!found) return false;
  const T lowest = O::At(first);
  const T last = O::At(end - 1);
  const RunIndex<T> index(runs, lowest, last, kHistogramCells);
  const size_t runCount = runs.result.size();
  // Eight tallies in turn, so that nearby pixels of one run do not wait on each other's increment
  // (with four, a store-to-load round trip every four pixels still bounded the loop).
  constexpr size_t kTallies = 8;
  using Counts = std::vector<uint32_t>;
  const auto merge = [](Counts a, const Counts& b) {
    for (size_t j = 0; j < a.size(); ++j) a[j] += b[j];
    return a;
  };
  const Counts counts = [&]() -> Counts {
#if KIVLUT_HAS_AVX2_PATHS
    if constexpr (std::is_same_v<T, float>) {
      if (RunsAvx2() && !index.HasCrowdedCells()) {
        // Tallies of cells and sides instead of runs: a branch-free pass with one gather per eight
        // pixels (values outside [from, to] are common with given bounds and would make a test per
        // pixel unpredictable), turned into runs once at the end of each piece.
        const auto lookup = index.view();
        const int codeCount = 2 * lookup.cellCount + 1;
        return tbb::parallel_reduce(
            tbb::blocked_range<int>(0, n, RunPassGrain(n)), Counts(runCount, 0),
            [&](const tbb::blocked_range<int>& range, Counts part) {
              const size_t stride = static_cast<size_t>(codeCount);
              Counts tally(kTallies * stride, 0);
              uint32_t* lanes[kTallies];
              for (size_t lane = 0; lane < kTallies; ++lane)
                lanes[lane] = tally.data() + lane * stride;
              int32_t codes[kRunBlock];
              for (int block = range.begin(); block < range.end(); block += kRunBlock) {
                const int count = std::min(kRunBlock, range.end() - block);
                const float* const values = data + block;
                HistogramSidesAvx2(values, count, lookup, lowest, last, codes);
                for (int k = count / 8 * 8; k < count; ++k) {
                  const float v = values[k];
                  const int c = lookup.Cell(v);
                  codes[k] = v >= lowest && v <= last ? 2 * c + (v >= lookup.ThresholdIn(c) ? 1 : 0)
                                                      : codeCount - 1;
                }
                int k = 0;
                for (; k + static_cast<int>(kTallies) <= count; k += kTallies) {
                  for (size_t lane = 0; lane < kTallies; ++lane) ++lanes[lane][codes[k + lane]];
                }
                for (; k < count; ++k) ++lanes[k % kTallies][codes[k]];
              }
              for (int c = 0; c < lookup.cellCount; ++c) {
                uint32_t before = 0, past = 0;
                for (size_t lane = 0; lane < kTallies; ++lane) {
                  before += tally[lane * stride + 2 * static_cast<size_t>(c)];
                  past += tally[lane * stride + 2 * static_cast<size_t>(c) + 1];
                }
                const size_t run = static_cast<size_t>(lookup.FirstRunIn(c));
                part[run] += before;
                if (past != 0) part[run + 1] += past;
              }
              return part;
            },
            merge, tbb::auto_partitioner());
      }
    }
#endif
    return tbb::parallel_reduce(
        tbb::blocked_range<int>(0, n, RunPassGrain(n)), Counts(runCount, 0),
        [&](const tbb::blocked_range<int>& range, Counts part) {
          const size_t stride = runCount;
          Counts tally(kTallies * stride, 0);
          uint32_t* const lanes = tally.data();
          const auto lookup = index.view();
          const T from = lowest;
          const T to = last;
          int32_t cells[kRunBlock];
          for (int block = range.begin(); block < range.end(); block += kRunBlock) {
            const int count = std::min(kRunBlock, range.end() - block);
            const T* const values = data + block;
            lookup.CellsOf(values, count, from, to, cells);
            for (int k = 0; k < count; ++k) {
              if (cells[k] >= 0) {
                ++lanes[static_cast<size_t>(k % kTallies) * stride +
                        static_cast<size_t>(lookup.RunIn(values[k], cells[k]))];
              }
            }
          }
          for (size_t j = 0; j < runCount; ++j) {
            for (size_t lane = 0; lane < kTallies; ++lane) part[j] += tally[lane * stride + j];
          }
          return part;
        },
        merge, tbb::auto_partitioner());
  }();
  histogram.assign(kHistogramBins, 0);
  for (size_t j = 0; j < runCount; ++j) histogram[runs.result[j]] += counts[j];
  return true;
}

// Colours by runs of the table index over the valid values that the bins and slots decide:
// [low, high) for the whole table, [low, high] for entries lo..hi. Everything else (invalid
// pixels, values outside) goes through the per-pixel colour.
template <typename T>
bool ColourByRuns(const T* data, int n, const EqualisedScale& s, const ColourRange* range,
                  uint8_t* out) {
  using O = OrderedCode<T>;
  const double low = s.low;
  const double high = s.high;
  // The marker (-max, or the lowest 16-bit value) is the lowest value and never valid; the
  // domain starts above it.
  const auto first = FirstCodeWhere<T>(FirstFiniteCode<T>() + 1, EndFiniteCode<T>(),
                                       [low](T v) { return static_cast<double>(v) >= low; });
  const auto end = range ? FirstCodeWhere<T>(first, EndFiniteCode<T>(),
                                             [high](T v) { return static_cast<double>(v) > high; })
                         : FirstCodeWhere<T>(first, EndFiniteCode<T>(), [high](T v) {
                             return static_cast<double>(v) >= high;
                           });
  if (first >= end) return false;
  const double nudge = range ? 0.0 : kBinNudge;
  auto key = [&](T raw) {
    const double v = static_cast<double>(raw);
    const int b = EqualisedBinByReciprocal(v, s.w, s.reciprocal, s.low, nudge, s.binCount);
    return std::pair<int, int64_t>(
        b, EqualisedSlotByReciprocal(v, b, s.w, s.reciprocal, s.low, *s.slots));
  };
  auto result = [&](T raw) {
    const double v = static_cast<double>(raw);
    return static_cast<uint8_t>(range ? EqualisedRangeIndexInside(v, s, *range)
                                      : EqualisedIndexInside(v, s));
  };
  auto guess = [&](T, const std::pair<int, int64_t>& k) {
    const int b = k.first;
    const double binStart = b * s.w + s.low;
    const double binEnd = (b + 1) * s.w + s.low;
    const uint32_t weight = s.slots->weight[b];
    if (weight == 0) return binEnd;
    // Where end - (weight - (v - binStart) / w * weight) reaches the next whole slot.
    const double rise = static_cast<double>(k.second + 1) - s.slots->end[b] + weight;
    return std::min(binEnd, binStart + rise / weight * s.w);
  };
  ValueRuns<T> runs;
  if (!FindValueRuns<T>(first, end, key, result, guess, runs)) return false;
  const T lowest = O::At(first);
  const T last = O::At(end - 1);
  const RunIndex<T> index(runs, lowest, last, ColourCells(n));
  std::vector<PaddedColour> runColours(runs.result.size());
  for (size_t j = 0; j < runColours.size(); ++j) runColours[j] = Pad((*s.colours)[runs.result[j]]);
  // A valid value below the domain lies below low, one above it at or above high (past high with
  // entries lo..hi): each side has one colour. The marker is the lowest value and the only
  // invalid finite one, so the valid values are the finite codes above it.
  const T lowestValid = O::At(FirstFiniteCode<T>() + 1);
  const T highestValid = O::At(EndFiniteCode<T>() - 1);
  const PaddedColour below = Pad(range ? range->below : (*s.colours)[0]);
  const PaddedColour above = Pad(range ? range->above : (*s.colours)[kColourTableSize - 1]);
  using Index = RunIndex<T>;
#if KIVLUT_HAS_AVX2_PATHS
  if constexpr (std::is_same_v<T, float>) {
    if (RunsAvx2()) {
      // Finer cells than the scalar loop's: a pixel in a cell where a run starts costs a scalar
      // look-up here, and slots crowd where the pixels do.
      const RunIndex<float>::View fine = RunIndex<float>::Grid(lowest, last, FineColourCells(n));
      const std::vector<uint32_t> cellColours = ColourWordsOfCells(fine, runs, runColours);
      const uint32_t belowWord = ColourWord32(below);
      const uint32_t aboveWord = ColourWord32(above);
      const uint32_t invalidWord = ColourWord32(Pad(InvalidOrFirst<float>(s)));
      tbb::parallel_for(
          tbb::blocked_range<int>(0, n, RunPassGrain(n)),
          [&](const tbb::blocked_range<int>& pixels) {
            const auto lookup = index.view();
            const PaddedColour* const colourOfRun = runColours.data();
            uint8_t scalarLanes[kRunBlock / 8];
            for (int block = pixels.begin(); block < pixels.end(); block += kRunBlock) {
              const int count = std::min(kRunBlock, pixels.end() - block);
              const float* const values = data + block;
              uint8_t* const colours = out + 3 * static_cast<size_t>(block);
              FloatRunColoursAvx2(values, count, fine, cellColours.data(), lowest, last,
                                  lowestValid, highestValid, belowWord, aboveWord, invalidWord,
                                  colours, scalarLanes);
              auto colourOne = [&](int k) {
                const float v = values[k];
                const PaddedColour c = v >= lowest && v <= last ? colourOfRun[lookup.RunOf(v)]
                                       : range ? Pad(EqualisedRangeColour(v, s, *range))
                                               : Pad(EqualisedColour(v, s));
                std::memcpy(colours + 3 * k, c.data(), 3);
              };
              const int groups = count / 8;
              for (int g = 0; g < groups; ++g) {
                for (unsigned lanes = scalarLanes[g]; lanes != 0; lanes &= lanes - 1) {
                  colourOne(8 * g + __builtin_ctz(lanes));
                }
              }
              for (int k = 8 * groups; k < count; ++k) colourOne(k);
            }
          },
          tbb::auto_partitioner());
      return true;
    }
  }
#endif
  tbb::parallel_for(
      tbb::blocked_range<int>(0, n, RunPassGrain(n)),
      [&](const tbb::blocked_range<int>& pixels) {
        const int begin = pixels.begin();
        const auto lookup = index.view();
        const T from = lowest;
        const T to = last;
        const PaddedColour* const colourOfRun = runColours.data();
        int32_t cells[kRunBlock];
        for (int block = begin; block < pixels.end(); block += kRunBlock) {
          const int count = std::min(kRunBlock, pixels.end() - block);
          const T* const values = data + block;
          lookup.CellsOrSidesOf(values, count, from, to, lowestValid, highestValid, cells);
          // By value, so that the colour stores cannot force reloads of the lookup per pixel.
          const int32_t* const cellOf = cells;
          WriteColours(
              count,
              [values, cellOf, colourOfRun, lookup, below, above, range, &s](int64_t k) {
                const T v = values[k];
                const int32_t cell = cellOf[k];
                if (cell >= 0) return colourOfRun[lookup.RunIn(v, cell)];
                if (cell == Index::kBelowDomain) return below;
                if (cell == Index::kAboveDomain) return above;
                return Pad(range ? EqualisedRangeColour(v, s, *range) : EqualisedColour(v, s));
              },
              out + 3 * static_cast<size_t>(block));
        }
      },
      tbb::auto_partitioner());
  return true;
}

template <typename T>
class HisttoLUTTbbMinMax {
 public:
  HisttoLUTTbbMinMax(const T* data, const EqualisedScale& scale, uint8_t* out)
      : data_(data), scale_(scale), out_(out) {}
  HisttoLUTTbbMinMax(HisttoLUTTbbMinMax& other, tbb::split)
      : data_(other.data_), scale_(other.scale_), out_(other.out_) {}

  void operator()(const tbb::blocked_range<int>& range) const {
    for (int i = range.begin(); i != range.end(); ++i) {
      WriteColour(out_, i, EqualisedColour(data_[i], scale_));
    }
  }
  void join(const HisttoLUTTbbMinMax&) {}

 private:
  const T* data_;
  EqualisedScale scale_;
  uint8_t* out_;
};

template <typename T>
class HisttoLUTTbbMinMaxAndColorRange {
 public:
  HisttoLUTTbbMinMaxAndColorRange(const T* data, const EqualisedScale& scale,
                                  const ColourRange& range, uint8_t* out)
      : data_(data), scale_(scale), range_(range), out_(out) {}
  HisttoLUTTbbMinMaxAndColorRange(HisttoLUTTbbMinMaxAndColorRange& other, tbb::split)
      : data_(other.data_), scale_(other.scale_), range_(other.range_), out_(other.out_) {}

  void operator()(const tbb::blocked_range<int>& range) const {
    for (int i = range.begin(); i != range.end(); ++i) {
      WriteColour(out_, i, EqualisedRangeColour(data_[i], scale_, range_));
    }
  }
  void join(const HisttoLUTTbbMinMaxAndColorRange&) {}

 private:
  const T* data_;
  EqualisedScale scale_;
  ColourRange range_;
  uint8_t* out_;
};

template <typename T>
Histogram HistogramFromCounts(const std::vector<uint32_t>& counts, double w, double low,
                              double high) {
  Histogram histogram(kHistogramBins, 0);
  for (int index = 0; index < static_cast<int>(counts.size()); ++index) {
    if (counts[index] == 0) continue;
    const int bin = HistogramBin(RawValueAtIndex<T>(index), w, low, high);
    if (bin >= 0) histogram[bin] += counts[index];
  }
  return histogram;
}

int BinCountOf(const EqualisedColouring& how) {
  return how.reserveIndex0 ? kEqualisedBins : kEqualisedBins + 1;
}

// The clamping form divides the difference; the others divide each bound. Both are kept as they
// are, also in the degenerate test.
double BinWidthOf(const EqualisedColouring& how, int binCount) {
  return how.widthFromDifference ? (how.high - how.low) / binCount
                                 : how.high / binCount - how.low / binCount;
}

// The one entry of a range that collapsed to a point: low as an unsigned 32-bit integer, at most
// the last entry.
uint32_t OneEntryIndex(double low) {
  return std::min<uint32_t>(numeric::LowUnsigned32(numeric::TruncateToInt64(low)),
                            kColourTableSize - 1);
}

// The histogram of the values in [low, high]: from the raw-value counts when the summary holds
// them, else by value runs where those pay off, else pixel by pixel; the same counts every way.
template <typename T>
Histogram EqualisationHistogram(const T* data, int n, const PixelSummary<T>& summary, double w,
                                double low, double high) {
  Histogram histogram;
  if constexpr (kHasValueColours<T>) {
    if (!summary.rawCounts.empty()) return HistogramFromCounts<T>(summary.rawCounts, w, low, high);
  }
  if constexpr (kHasValueRuns<T>) {
    if (n >= kMinPixelsForRuns && HistogramByRuns(data, n, w, low, high, histogram)) {
      return histogram;
    }
  }
  return BuildHistogram(data, n, w, low, high);
}

// Order-preserving codes of every value of T that EqualisedEntryStarts searches: 32-bit integers
// offset by 2^31 in 64 bits (one past the greatest value needs a code too), float and double by
// OrderedCode.
template <typename T>
struct SearchCode {
  using Code = std::conditional_t<sizeof(T) <= 4 && !std::is_integral_v<T>, uint32_t, uint64_t>;
  static Code Of(T v) {
    if constexpr (std::is_integral_v<T>) {
      return static_cast<Code>(static_cast<int64_t>(v) - std::numeric_limits<T>::min());
    } else {
      return OrderedCode<T>::Of(v);
    }
  }
  static T At(Code code) {
    if constexpr (std::is_integral_v<T>) {
      return static_cast<T>(static_cast<int64_t>(code) + std::numeric_limits<T>::min());
    } else {
      return OrderedCode<T>::At(code);
    }
  }
};

}  // namespace

template <typename T>
PixelSummary<T> SummarisePixels(const T* data, int n) {
  PixelSummary<T> summary;
  if constexpr (kHasValueColours<T>) {
    // Per value only when the image has more pixels than T has values: below that the 64K-entry
    // tables cost more than the pixels themselves.
    if (UseValueColours<T>(n)) {
      // Up to the highest value only: depth frames use a fraction of the 16-bit values, and every
      // per-value table after this one is as long as the counts.
      summary.rawCounts = CountRawValues(data, n, HighestValueColourIndex(data, n) + 1);
      summary.stats = StatisticsFromCounts<T>(summary.rawCounts);
      return summary;
    }
    // A smaller image still colours per value when its raw values, from the lowest (the marker,
    // the only invalid value of these types) up to the valid maximum, are fewer than its pixels.
    summary.stats = FindValueStatistics(data, n);
    if (summary.stats.validCount > 0) {
      const size_t values = ValueColourIndex(summary.stats.maximum) + 1;
      if (values <= static_cast<size_t>(n)) summary.rawCounts = CountRawValues(data, n, values);
    }
    return summary;
  }
  if constexpr (std::is_floating_point_v<T>) {
    summary.stats = FindFloatingValueStatistics(data, n);
  } else {
    summary.stats = FindValueStatistics(data, n);
  }
  return summary;
}

template <typename T>
void ColourByEqualisation(const T* data, int n, const PixelSummary<T>& summary,
                          const EqualisedColouring& how, uint8_t* out) {
  const ColourTable& colours = *how.colours;
  const double low = how.low;
  const double high = how.high;
  const int binCount = BinCountOf(how);
  const double w = BinWidthOf(how, binCount);
  // The per-value tables exist only when the summary counted the raw values.
  const bool byValue = !summary.rawCounts.empty();
  if (!(w > 1e-8)) {
    // The range collapsed to a point (or crossed, with no valid pixel): one entry for all.
    const uint32_t index = OneEntryIndex(low);
    if constexpr (kHasValueColours<T>) {
      // Counted per value (the counts may stop at the highest value): one 64K-entry table.
      if (summary.rawCounts.size() == static_cast<size_t>(kRawValueCount<T>) ||
          (byValue && UseValueColours<T>(n))) {
        const ColourEntry& valid = colours[index];
        const ColourEntry& invalid = InvalidColour(how.mapType);
        ColourByLookup(data, n, TabulateValueColours<T>([&](T v) -> const ColourEntry& {
                         return IsValidPixel(v) ? valid : invalid;
                       }),
                       out);
        return;
      }
    }
    ColourWithOneEntry(data, n, colours, index, how.mapType, out);
    return;
  }

  const bool byRuns = n >= kMinPixelsForRuns;
  const Histogram histogram = EqualisationHistogram(data, n, summary, w, low, high);

  const EqualisationTable slots = BuildEqualisationTable(histogram, how.validCount, binCount);
  const EqualisedScale scale{
      low, high, w, 1.0 / w, binCount, &slots, &colours, how.reserveIndex0, how.mapType};
  const ColourRange* range = how.range;

  if constexpr (kHasValueColours<T>) {
    if (byValue) {
      // Only the values that occur are worth colouring.
      std::vector<PaddedColour> valueColours(summary.rawCounts.size());
      for (int index = 0; index < static_cast<int>(valueColours.size()); ++index) {
        if (summary.rawCounts[index] == 0) continue;
        const T v = RawValueAtIndex<T>(index);
        const ColourEntry c =
            range ? EqualisedRangeColour(v, scale, *range) : EqualisedColour(v, scale);
        valueColours[index] = {c[0], c[1], c[2], 0};
      }
      ColourByLookup(data, n, valueColours, out);
      return;
    }
  }
  if constexpr (kHasValueRuns<T>) {
    if (byRuns && ColourByRuns(data, n, scale, range, out)) return;
  }
  const tbb::blocked_range<int> pixels(0, n, GrainSize(n));
  if (range != nullptr) {
    HisttoLUTTbbMinMaxAndColorRange<T> body(data, scale, *range, out);
    tbb::parallel_reduce(pixels, body, tbb::auto_partitioner());
  } else {
    HisttoLUTTbbMinMax<T> body(data, scale, out);
    tbb::parallel_reduce(pixels, body, tbb::auto_partitioner());
  }
}

template <typename T>
std::vector<double> EqualisedEntryStarts(const T* data, int n, const PixelSummary<T>& summary,
                                         const EqualisedColouring& how) {
  const double low = how.low;
  const double high = how.high;
  const int binCount = BinCountOf(how);
  const double w = BinWidthOf(how, binCount);
  std::vector<double> starts(kColourTableSize + 1, high);
  if (!(w > 1e-8)) {
    const uint32_t index = OneEntryIndex(low);
    for (uint32_t i = 0; i <= kColourTableSize; ++i) {
      starts[i] = i <= index ? std::min(low, high) : std::max(low, high);
    }
    return starts;
  }
  starts[0] = low;
  const Histogram histogram = EqualisationHistogram(data, n, summary, w, low, high);
  const EqualisationTable slots = BuildEqualisationTable(histogram, how.validCount, binCount);
  const EqualisedScale s{
      low, high, w, 1.0 / w, binCount, &slots, how.colours, how.reserveIndex0, how.mapType};
  // The entry of a valid value in [low, high], as EqualisedColour picks it.
  auto entryOf = [&](T raw) {
    const double v = static_cast<double>(raw);
    return v >= high ? kColourTableSize - 1 : EqualisedIndexInside(v, s);
  };
  // A value's entry can fall back by one where a bin without slots takes the first slot of the
  // bin above it, which that bin's own first values do not reach. The scale follows the least
  // entry from each value upward, g(v) = min of entryOf over [v, high], which never falls:
  // starts[i] is the lowest value with g(v) >= i.
  if constexpr (kHasValueColours<T>) {
    std::vector<std::pair<double, int>> entries;  // ascending valid values and their entries
    for (int index = 0; index < kRawValueCount<T>; ++index) {
      const T raw = RawValueAtIndex<T>(index);
      const double v = static_cast<double>(raw);
      if (IsValidPixel(raw) && v >= low && v <= high) entries.emplace_back(v, entryOf(raw));
    }
    for (size_t k = entries.size(); k-- > 1;) {
      entries[k - 1].second = std::min(entries[k - 1].second, entries[k].second);
    }
    int reached = 0;  // entries 1..reached have their start
    for (const auto& [v, entry] : entries) {
      while (reached < entry) starts[static_cast<size_t>(++reached)] = v;
    }
  } else {
    using C = SearchCode<T>;
    using Code = typename C::Code;
    const Code all = C::Of(std::numeric_limits<T>::lowest());
    const Code allEnd = C::Of(std::numeric_limits<T>::max()) + 1;
    const Code first = FirstCodeWhere<T, SearchCode<T>>(
        all, allEnd, [low](T v) { return static_cast<double>(v) >= low; });
    const Code end = FirstCodeWhere<T, SearchCode<T>>(
        first, allEnd, [high](T v) { return static_cast<double>(v) >= high; });
    // Bin b holds the codes [binStart[b], binStart[b + 1]) of [low, high).
    std::vector<Code> binStart(static_cast<size_t>(binCount) + 1, end);
    auto binOf = [&](T raw) {
      return EqualisedBinByReciprocal(static_cast<double>(raw), s.w, s.reciprocal, s.low, kBinNudge,
                                      s.binCount);
    };
    for (int b = 0; b < binCount; ++b) {
      binStart[b] = FirstCodeWhere<T, SearchCode<T>>(b == 0 ? first : binStart[b - 1], end,
                                                     [&](T v) { return binOf(v) >= b; });
    }
    // A 32-bit 0 is no measurement; the next value of the bin has its entry or a later one.
    auto measured = [](Code at, Code to) {
      return !IsValidPixel(C::At(at)) && at + 1 < to ? at + 1 : at;
    };
    // From the top bin down, with the least entry of every value above; within a bin the entry
    // never falls, so the least entry from each of its values upward is capped by that alone.
    int above = kColourTableSize - 1;
    for (int b = binCount - 1; b >= 0; --b) {
      const Code from = binStart[b];
      const Code to = binStart[b + 1];
      if (from >= to) continue;
      const int atFirst = std::min(above, entryOf(C::At(from)));
      const int atLast = std::min(above, entryOf(C::At(to - 1)));
      const double firstValue = static_cast<double>(C::At(measured(from, to)));
      for (int entry = 1; entry <= atFirst; ++entry)
        starts[static_cast<size_t>(entry)] = firstValue;
      Code at = from;
      for (int entry = atFirst + 1; entry <= atLast; ++entry) {
        at = FirstCodeWhere<T, SearchCode<T>>(at, to, [&](T v) { return entryOf(v) >= entry; });
        starts[static_cast<size_t>(entry)] = static_cast<double>(C::At(measured(at, to)));
      }
      above = atFirst;
    }
  }
  starts[kColourTableSize] = high;
  return starts;
}

#define KIVLUT_INSTANTIATE_EQUALISATION(T)                                                    \
  template PixelSummary<T> SummarisePixels<T>(const T*, int);                                 \
  template void ColourByEqualisation<T>(const T*, int, const PixelSummary<T>&,                \
                                        const EqualisedColouring&, uint8_t*);                 \
  template std::vector<double> EqualisedEntryStarts<T>(const T*, int, const PixelSummary<T>&, \
                                                       const EqualisedColouring&);
KIVLUT_INSTANTIATE_EQUALISATION(uint8_t)
KIVLUT_INSTANTIATE_EQUALISATION(int8_t)
KIVLUT_INSTANTIATE_EQUALISATION(uint16_t)
KIVLUT_INSTANTIATE_EQUALISATION(int16_t)
KIVLUT_INSTANTIATE_EQUALISATION(int32_t)
KIVLUT_INSTANTIATE_EQUALISATION(float)
KIVLUT_INSTANTIATE_EQUALISATION(double)
#undef KIVLUT_INSTANTIATE_EQUALISATION

}  // namespace KIVMV
