// Sequence colouring: KivSequenceColorizer's checks, and the one pass that colours a frame through
// the carried mapping while it measures the frame for the next one.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

#include "KivSequenceColoring.h"
#include "common/load_time_config.h"
#include "common/pixel_rules.h"
#include "extensions/carried_mapping.h"
#include "extensions/colouring_inputs.h"

namespace KIVMV {
namespace {

using Units = PhysicalUnits;

// What a pixel is painted with; `out` null: measure only.
struct Paint {
  uint8_t* out = nullptr;
  int channels = 3;
  const uint8_t* entries = nullptr;  // 256 colours, 3 bytes each, blue first
  uint8_t noData[3] = {0, 0, 0};
  uint8_t below[3] = {0, 0, 0};
  uint8_t above[3] = {0, 0, 0};
};

// A CellMapping in a frame's raw units and in the arithmetic of its pixel type.
template <typename T>
struct RawMapping {
  using Real = SequenceReal<T>;
  Real low;
  Real high;
  Real scale;  // cells per raw unit; 0 for bounds that coincide or are beyond measure
  const float* base;
  const float* slope;
};

template <typename T>
RawMapping<T> InRawUnits(const CellMapping& mapping, const Units& units) {
  using Real = SequenceReal<T>;
  const double low = units.Raw(mapping.low);
  const double high = units.Raw(mapping.high);
  const Real scale = static_cast<Real>(kSequenceCells / (high - low));
  return {static_cast<Real>(low), static_cast<Real>(high),
          std::isfinite(scale) && scale > 0 ? scale : Real{0}, mapping.base.data(),
          mapping.slope.data()};
}

struct PartMeasure {
  int64_t valid = 0;
  int64_t below = 0;
  int64_t above = 0;
  double minimum = std::numeric_limits<double>::infinity();  // raw
  double maximum = -std::numeric_limits<double>::infinity();
  std::vector<int64_t> cells = std::vector<int64_t>(kSequenceCells, 0);
};

// Colours pixels [begin, end) through `m` into paint.out (when set) and counts them into `part`.
// Every pixel's colour depends on its own value only, and the counts are sums, so the result is
// the same however the pixels are split between workers.
inline constexpr int kBelow = -1;
inline constexpr int kAbove = -2;
inline constexpr int kNoData = -3;

// Where one raw value goes under `m`: its cell, or kBelow, kAbove or kNoData; and, when the paint
// has colours, the colour it takes. The one definition of a pixel's colour: the loop over pixels
// and the table of every 8- and 16-bit value both call it.
template <typename T>
int Place(T raw, const RawMapping<T>& m, const Paint& paint, const uint8_t** colour) {
  using Real = SequenceReal<T>;
  if (!IsValidPixel(raw)) {
    *colour = paint.noData;
    return kNoData;
  }
  const Real c = static_cast<Real>(raw);
  if (c < m.low) {
    *colour = paint.below;
    return kBelow;
  }
  if (c > m.high) {
    *colour = paint.above;
    return kAbove;
  }
  // Between the bounds t lies in [0, cells] up to rounding; NaN only for bounds beyond measure.
  // Both are settled before any conversion to int.
  const Real t = (c - m.low) * m.scale;
  const int cell = t < Real{kSequenceCells} ? static_cast<int>(t) : kSequenceCells - 1;
  if (paint.entries != nullptr) {
    const float across = std::min(1.0f, static_cast<float>(t - static_cast<Real>(cell)));
    const float position = m.base[cell] + m.slope[cell] * across;
    *colour = paint.entries + 3 * std::min(255, static_cast<int>(position));
  }
  return cell;
}

// The counts of one worker's pixels. kCountCells: the cells are counted; a linear colouring
// between measured or given bounds needs only the extremes and skips that store per pixel.
template <typename T, bool kCountCells>
struct Tally {
  std::array<uint32_t, kSequenceCells> cells{};
  T lowest = std::numeric_limits<T>::max();
  T highest = std::numeric_limits<T>::lowest();
  int64_t valid = 0;
  int64_t below = 0;
  int64_t above = 0;

  void Add(T raw, int place) {
    if (place == kNoData) return;
    ++valid;
    lowest = std::min(lowest, raw);
    highest = std::max(highest, raw);
    if (place >= 0) {
      if constexpr (kCountCells) ++cells[place];
    } else if (place == kBelow) {
      ++below;
    } else {
      ++above;
    }
  }

  void AddTo(PartMeasure& part) const {
    part.valid += valid;
    part.below += below;
    part.above += above;
    if (valid > 0) {
      part.minimum = std::min(part.minimum, static_cast<double>(lowest));
      part.maximum = std::max(part.maximum, static_cast<double>(highest));
    }
    for (int c = 0; c < kSequenceCells; ++c) part.cells[c] += cells[c];
  }
};

// Every value of an 8- or 16-bit pixel type placed once, for frames with many more pixels than
// the type has values: a pixel then costs two loads.
template <typename T>
struct ValueTable {
  static constexpr int kValues = 1 << (8 * sizeof(T));
  static constexpr int kFirst = static_cast<int>(std::numeric_limits<T>::min());

  ValueTable(const RawMapping<T>& m, const Paint& paint)
      : place(kValues), colour(3 * static_cast<size_t>(kValues), 0) {
    tbb::parallel_for(
        tbb::blocked_range<int>(0, kValues, 4096), [&](const tbb::blocked_range<int>& values) {
          for (int v = values.begin(); v != values.end(); ++v) {
            const uint8_t* c = nullptr;
            place[v] = static_cast<int16_t>(Place(static_cast<T>(v + kFirst), m, paint, &c));
            if (c != nullptr) std::memcpy(&colour[3 * static_cast<size_t>(v)], c, 3);
          }
        });
  }

  std::vector<int16_t> place;
  std::vector<uint8_t> colour;
};

template <typename T>
inline constexpr bool kHasValueTable = std::is_integral_v<T> && sizeof(T) <= 2;

// Colours pixels [begin, end) through `m` into paint.out (when set) and counts them into `part`,
// through `table` when there is one. Every pixel's colour depends on its own value only, and the
// counts are sums, so the result is the same however the pixels are split between workers.
// kChannels: 3 or 4 bytes a pixel written, 0 for measuring only; fixed per instance, so the loop
// carries no test of it.
template <typename T, bool kCountCells, int kChannels>
void ColourAndMeasureRange(const T* data, int begin, int end, const RawMapping<T>& m,
                           const Paint& paint, const ValueTable<T>* table, PartMeasure& part) {
  Tally<T, kCountCells> tally;
  for (int i = begin; i < end; ++i) {
    const T raw = data[i];
    const uint8_t* colour = nullptr;
    int place;
    if constexpr (kHasValueTable<T>) {
      if (table != nullptr) {
        const size_t v = static_cast<size_t>(static_cast<int>(raw) - ValueTable<T>::kFirst);
        place = table->place[v];
        colour = &table->colour[3 * v];
      } else {
        place = Place(raw, m, paint, &colour);
      }
    } else {
      place = Place(raw, m, paint, &colour);
    }
    if constexpr (kChannels > 0) {
      uint8_t* pixel = paint.out + static_cast<size_t>(kChannels) * i;
      pixel[0] = colour[0];
      pixel[1] = colour[1];
      pixel[2] = colour[2];
      if constexpr (kChannels == 4) pixel[3] = place == kNoData ? 0 : 255;
    }
    tally.Add(raw, place);
  }
  tally.AddTo(part);
}

FrameMeasure InPhysicalUnits(PartMeasure part, const Units& units) {
  FrameMeasure measure;
  measure.valid = part.valid;
  measure.below = part.below;
  measure.above = part.above;
  measure.minimum = units.Physical(part.minimum);
  measure.maximum = units.Physical(part.maximum);
  measure.cells = std::move(part.cells);
  return measure;
}

template <int kChannels>
using Channels = std::integral_constant<int, kChannels>;

template <typename T>
FrameMeasure ColourAndMeasure(const T* data, int n, const Units& units, const CellMapping& mapping,
                              const Paint& paint, bool countCells) {
  const RawMapping<T> m = InRawUnits<T>(mapping, units);
  std::unique_ptr<ValueTable<T>> table;
  if constexpr (kHasValueTable<T>) {
    if (paint.out != nullptr && n >= 4 * ValueTable<T>::kValues) {
      table = std::make_unique<ValueTable<T>>(m, paint);
    }
  }
  PartMeasure total = tbb::parallel_reduce(
      tbb::blocked_range<int>(0, n, GrainSize(n)), PartMeasure{},
      [&](const tbb::blocked_range<int>& pixels, PartMeasure part) {
        const auto run = [&](auto countCells, auto channels) {
          ColourAndMeasureRange<T, decltype(countCells)::value, decltype(channels)::value>(
              data, pixels.begin(), pixels.end(), m, paint, table.get(), part);
        };
        using Yes = std::true_type;
        using No = std::false_type;
        const int channels = paint.out == nullptr ? 0 : paint.channels;
        if (channels == 0) {
          countCells ? run(Yes{}, Channels<0>{}) : run(No{}, Channels<0>{});
        } else if (channels == 3) {
          countCells ? run(Yes{}, Channels<3>{}) : run(No{}, Channels<3>{});
        } else {
          countCells ? run(Yes{}, Channels<4>{}) : run(No{}, Channels<4>{});
        }
        return part;
      },
      [](PartMeasure a, const PartMeasure& b) {
        a.valid += b.valid;
        a.below += b.below;
        a.above += b.above;
        a.minimum = std::min(a.minimum, b.minimum);
        a.maximum = std::max(a.maximum, b.maximum);
        for (int c = 0; c < kSequenceCells; ++c) a.cells[c] += b.cells[c];
        return a;
      },
      tbb::simple_partitioner());
  return InPhysicalUnits(std::move(total), units);
}

// The valid count and extremes of a frame, for a frame measured before it is coloured.
template <typename T>
FrameMeasure Extremes(const T* data, int n, const Units& units) {
  CellMapping none;
  none.low = none.high = std::numeric_limits<double>::quiet_NaN();
  return ColourAndMeasure(data, n, units, none, Paint{}, false);
}

void StoreRgb(uint8_t* bgr, KivRgb colour) {
  bgr[0] = colour.b;
  bgr[1] = colour.g;
  bgr[2] = colour.r;
}

long CheckSequenceOptions(const KivSequenceOptions& o) {
  if (const long checked = CheckColouringChoice(o.coloring); checked != KIV_EXT_OK) {
    return checked;
  }
  const bool usable = std::isfinite(o.timeConstant) && o.timeConstant >= 0.0 &&
                      o.boundDeadBand >= 0.0 && o.boundDeadBand < 1.0 && o.holdFrames >= 1 &&
                      o.holdFrames <= 1000 && std::isfinite(o.entryTolerance) &&
                      o.entryTolerance >= 0.0;
  return usable ? KIV_EXT_OK : KIV_EXT_ERR_SEQUENCE_OPTIONS;
}

KivColoringInfo InfoOf(const CellMapping& mapping, KivColoringMode mode) {
  KivColoringInfo info;
  info.mode = mode;
  info.low = mapping.low;
  info.high = mapping.high;
  info.entryStart = EntryStarts(mapping);
  return info;
}

}  // namespace

struct KivSequenceColorizer::State {
  State(const KivColorTable& t, const KivSequenceOptions& o) : table(t), options(o), carried(o) {}

  // Colours n values into `result` (sized by the caller) and carries the frame into the mapping.
  template <typename T>
  void Colour(const T* data, int n, const Units& units, KivColorArray& result,
              KivColoringInfo& info) {
    Paint paint;
    paint.out = result.Data();
    paint.channels = options.coloring.channels;
    paint.entries = table.Bgr();
    StoreRgb(paint.noData, options.coloring.noDataColor.value_or(table.NoDataColor()));
    StoreRgb(paint.below, options.coloring.belowColor.value_or(table.At(0)));
    StoreRgb(paint.above, options.coloring.aboveColor.value_or(table.At(KivColorTable::kSize - 1)));

    // Without a carried mapping, or without carrying, a frame is measured for itself first:
    // extremes, then its cells between the bounds it proposes, then it is coloured.
    const bool fresh = !carried.HasMapping() || options.timeConstant == 0.0;
    const bool countCells = options.coloring.mode == KivColoringMode::kEqualised ||
                            options.coloring.bounds == KivBoundsSource::kPercentile;
    FrameMeasure measure;
    if (fresh) {
      const Paint measureOnly{};
      const FrameMeasure extremes = Extremes(data, n, units);
      if (extremes.valid > 0) {
        CarriedMapping trial = carried;
        trial.StartFrom(extremes.minimum, extremes.maximum);
        trial.TakeFrame(ColourAndMeasure(data, n, units, trial.Mapping(), measureOnly, countCells),
                        true);
        carried = std::move(trial);
      }
      measure = ColourAndMeasure(data, n, units, carried.Mapping(), paint, false);
    } else {
      const CellMapping used = carried.Mapping();
      measure = ColourAndMeasure(data, n, units, used, paint, countCells);
      carried.TakeFrame(measure, false);
      info = InfoOf(used, options.coloring.mode);
    }
    if (fresh) info = InfoOf(carried.Mapping(), options.coloring.mode);
    if (measure.valid == 0 && !carried.HasMapping()) {
      info = KivColoringInfo{};
      info.mode = options.coloring.mode;
      info.low = info.high = std::numeric_limits<double>::quiet_NaN();
    }
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    info.validCount = measure.valid;
    info.noDataCount = static_cast<int64_t>(n) - measure.valid;
    info.minimum = measure.valid > 0 ? measure.minimum : kNaN;
    info.maximum = measure.valid > 0 ? measure.maximum : kNaN;
    ++frames;
  }

  KivColorTable table;
  KivSequenceOptions options;
  CarriedMapping carried;
  int64_t frames = 0;
};

KivSequenceColorizer::KivSequenceColorizer(const KivColorTable& table,
                                           const KivSequenceOptions& options)
    : state_(std::make_unique<State>(table, options)) {}
KivSequenceColorizer::~KivSequenceColorizer() = default;
KivSequenceColorizer::KivSequenceColorizer(KivSequenceColorizer&&) noexcept = default;
KivSequenceColorizer& KivSequenceColorizer::operator=(KivSequenceColorizer&&) noexcept = default;

namespace {

// Runs `colour(result, info)` on a fresh array and a copy of the state, and keeps both only when
// it succeeds, so that a failure changes neither the caller's array nor the sequence.
template <typename StateT, typename Colour>
long ColourFrameSafely(std::unique_ptr<StateT>& state, KivColorArray* out, KivColoringInfo* info,
                       Colour&& colour) {
  try {
    StateT next = *state;
    KivColorArray result;
    KivColoringInfo used;
    colour(next, result, used);
    *state = std::move(next);
    *out = result;
    if (info != nullptr) *info = std::move(used);
    return KIV_EXT_OK;
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

}  // namespace

long KivSequenceColorizer::ColorFrame(const KivRangeImage& frame, KivColorArray* out,
                                      KivColoringInfo* info) {
  try {
    if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
    if (!state_) return KIV_EXT_ERR_INTERNAL;  // a moved-from colouriser
    int n = 0;
    Units units;
    if (const long checked = CheckRangeInput(frame, &n, &units); checked != KIV_EXT_OK) {
      return checked;
    }
    if (const long checked = CheckSequenceOptions(state_->options); checked != KIV_EXT_OK) {
      return checked;
    }
    return ColourFrameSafely(
        state_, out, info, [&](State& state, KivColorArray& result, KivColoringInfo& used) {
          result.SetSize(frame.Width(), frame.Height(), state.options.coloring.channels);
          VisitPixelType(frame.DataType(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            state.Colour(frame.Ptr<T>(), n, units, result, used);
          });
        });
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

long KivSequenceColorizer::ColorFrame(const Kiv3DFloatArray& frame, KivColorArray* out,
                                      KivColoringInfo* info) {
  try {
    if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
    if (!state_) return KIV_EXT_ERR_INTERNAL;
    int n = 0;
    if (const long checked = CheckFloatInput(frame, &n); checked != KIV_EXT_OK) return checked;
    if (const long checked = CheckSequenceOptions(state_->options); checked != KIV_EXT_OK) {
      return checked;
    }
    return ColourFrameSafely(state_, out, info,
                             [&](State& state, KivColorArray& result, KivColoringInfo& used) {
                               result.Create(n, state.options.coloring.channels);
                               state.Colour(frame.Data(), n, Units{}, result, used);
                             });
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

void KivSequenceColorizer::Reset() {
  if (!state_) return;
  state_->carried.Reset();
  state_->frames = 0;
}

long KivSequenceColorizer::CurrentMapping(KivColoringInfo* info) const {
  if (info == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
  if (!state_ || !state_->carried.HasMapping()) return KIV_EXT_ERR_NO_SCALE;
  try {
    *info = InfoOf(state_->carried.Mapping(), state_->options.coloring.mode);
    return KIV_EXT_OK;
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

int64_t KivSequenceColorizer::FramesSeen() const { return state_ ? state_->frames : 0; }

const KivColorTable& KivSequenceColorizer::Table() const { return state_->table; }

const KivSequenceOptions& KivSequenceColorizer::Options() const { return state_->options; }

}  // namespace KIVMV
