// Sequence colouring: KivSequenceColorizer's checks, and the one pass that colours a frame through
// the carried mapping while it measures the frame for the next one.
#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "KivSequenceColoring.h"
#include "common/load_time_config.h"
#include "common/pixel_rules.h"
#include "extensions/carried_mapping.h"
#include "range/checked_pixel_count.h"

namespace KIVMV {
namespace {

// Raw values to physical units: (raw - offset) x resolution for integer pixels.
struct Units {
  bool scaled = false;
  double resolution = 1.0;
  double offset = 0.0;
};

// What a pixel is painted with; `out` null: measure only.
struct Paint {
  uint8_t* out = nullptr;
  int channels = 3;
  const uint8_t* entries = nullptr;  // 256 colours, 3 bytes each, blue first
  uint8_t noData[3] = {0, 0, 0};
  uint8_t below[3] = {0, 0, 0};
  uint8_t above[3] = {0, 0, 0};
};

inline void Put(uint8_t* pixel, const uint8_t* colour, int channels, uint8_t alpha) {
  pixel[0] = colour[0];
  pixel[1] = colour[1];
  pixel[2] = colour[2];
  if (channels == 4) pixel[3] = alpha;
}

FrameMeasure EmptyMeasure() {
  FrameMeasure measure;
  measure.minimum = std::numeric_limits<double>::infinity();
  measure.maximum = -std::numeric_limits<double>::infinity();
  return measure;
}

void Join(FrameMeasure& into, const FrameMeasure& part) {
  into.valid += part.valid;
  into.minimum = std::min(into.minimum, part.minimum);
  into.maximum = std::max(into.maximum, part.maximum);
  into.below += part.below;
  into.above += part.above;
  for (int c = 0; c < kSequenceCells; ++c) into.cells[c] += part.cells[c];
}

// Colours pixels [begin, end) through `mapping` into paint.out (when set) and counts them into
// `measure`. Every pixel's colour depends on its own value only, and the counts are sums, so the
// result is the same however the pixels are split between workers.
template <typename T>
void ColourAndMeasureRange(const T* data, int begin, int end, const Units& units,
                           const CellMapping& mapping, const Paint& paint, FrameMeasure& measure) {
  const double span = mapping.high - mapping.low;
  const double cellScale = span > 0.0 ? kSequenceCells / span : 0.0;
  for (int i = begin; i < end; ++i) {
    const T raw = data[i];
    uint8_t* pixel =
        paint.out != nullptr ? paint.out + static_cast<size_t>(paint.channels) * i : nullptr;
    if (!IsValidPixel(raw)) {
      if (pixel != nullptr) Put(pixel, paint.noData, paint.channels, 0);
      continue;
    }
    const double v = units.scaled ? (static_cast<double>(raw) - units.offset) * units.resolution
                                  : static_cast<double>(raw);
    ++measure.valid;
    measure.minimum = std::min(measure.minimum, v);
    measure.maximum = std::max(measure.maximum, v);
    if (v < mapping.low) {
      ++measure.below;
      if (pixel != nullptr) Put(pixel, paint.below, paint.channels, 255);
    } else if (v > mapping.high) {
      ++measure.above;
      if (pixel != nullptr) Put(pixel, paint.above, paint.channels, 255);
    } else {
      // t is at least 0 here, and infinite only when the span overflows: clamped in floating
      // point before any conversion to int.
      const double t = cellScale > 0.0 ? (v - mapping.low) * cellScale : 0.0;
      const int cell = t < kSequenceCells ? static_cast<int>(t) : kSequenceCells - 1;
      ++measure.cells[cell];
      if (pixel != nullptr) {
        const float across = std::min(1.0f, static_cast<float>(t - cell));
        const float position = mapping.base[cell] + mapping.slope[cell] * across;
        const int entry = std::min(255, static_cast<int>(position));
        Put(pixel, paint.entries + 3 * entry, paint.channels, 255);
      }
    }
  }
}

template <typename T>
FrameMeasure ColourAndMeasure(const T* data, int n, const Units& units, const CellMapping& mapping,
                              const Paint& paint) {
  return tbb::parallel_reduce(
      tbb::blocked_range<int>(0, n, GrainSize(n)), EmptyMeasure(),
      [&](const tbb::blocked_range<int>& pixels, FrameMeasure measure) {
        ColourAndMeasureRange(data, pixels.begin(), pixels.end(), units, mapping, paint, measure);
        return measure;
      },
      [](FrameMeasure a, const FrameMeasure& b) {
        Join(a, b);
        return a;
      },
      tbb::simple_partitioner());
}

void StoreRgb(uint8_t* bgr, KivRgb colour) {
  bgr[0] = colour.b;
  bgr[1] = colour.g;
  bgr[2] = colour.r;
}

long CheckSequenceOptions(const KivSequenceOptions& o) {
  if (o.channels != 3 && o.channels != 4) return KIV_EXT_ERR_CHANNELS;
  if (o.mode != KivColoringMode::kLinear && o.mode != KivColoringMode::kEqualised) {
    return KIV_EXT_ERR_INPUT_TYPE;
  }
  switch (o.bounds) {
    case KivBoundsSource::kMeasured:
      break;
    case KivBoundsSource::kGiven:
      if (!(std::isfinite(o.low) && std::isfinite(o.high) && o.low <= o.high)) {
        return KIV_EXT_ERR_BOUNDS;
      }
      break;
    case KivBoundsSource::kPercentile:
      if (!(o.lowPercentile >= 0.0 && o.lowPercentile <= o.highPercentile &&
            o.highPercentile <= 100.0)) {
        return KIV_EXT_ERR_PERCENTILES;
      }
      break;
    default:
      return KIV_EXT_ERR_BOUNDS;
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
    paint.channels = options.channels;
    paint.entries = table.Bgr();
    StoreRgb(paint.noData, options.noDataColor.value_or(table.NoDataColor()));
    StoreRgb(paint.below, options.belowColor.value_or(table.At(0)));
    StoreRgb(paint.above, options.aboveColor.value_or(table.At(KivColorTable::kSize - 1)));

    // Without a carried mapping, or without carrying, a frame is measured for itself first:
    // extremes, then its cells between the bounds it proposes, then it is coloured.
    const bool fresh = !carried.HasMapping() || options.timeConstant == 0.0;
    FrameMeasure measure;
    if (fresh) {
      const Paint measureOnly{};
      CellMapping everything;
      everything.low = -std::numeric_limits<double>::infinity();
      everything.high = std::numeric_limits<double>::infinity();
      const FrameMeasure extremes = ColourAndMeasure(data, n, units, everything, measureOnly);
      if (extremes.valid > 0) {
        CarriedMapping trial = carried;
        trial.StartFrom(extremes.minimum, extremes.maximum);
        trial.TakeFrame(ColourAndMeasure(data, n, units, trial.Mapping(), measureOnly), true);
        carried = std::move(trial);
      }
      measure = ColourAndMeasure(data, n, units, carried.Mapping(), paint);
    } else {
      const CellMapping used = carried.Mapping();
      measure = ColourAndMeasure(data, n, units, used, paint);
      carried.TakeFrame(measure, false);
      info = InfoOf(used, options.mode);
    }
    if (fresh) info = InfoOf(carried.Mapping(), options.mode);
    if (measure.valid == 0 && !carried.HasMapping()) {
      info = KivColoringInfo{};
      info.mode = options.mode;
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
    if (frame.Type() != 0 && frame.Type() != 1) return KIV_EXT_ERR_INPUT_TYPE;
    if (!IsKnownSampleType(frame.DataType())) return KIV_EXT_ERR_INPUT_TYPE;
    if (frame.Width() <= 0 || frame.Height() <= 0) return KIV_EXT_ERR_EMPTY_INPUT;
    const int n = CheckedPixelCount(frame);
    if (n < 0) return KIV_EXT_ERR_INPUT_TYPE;
    if (n == 0) return KIV_EXT_ERR_EMPTY_INPUT;
    const bool integral = frame.DataType() <= KIV_DATA_S32;
    if (integral && !(std::isfinite(frame.ResolutionZ()) && frame.ResolutionZ() > 0.0 &&
                      std::isfinite(frame.OffsetZ()))) {
      return KIV_EXT_ERR_INPUT_TYPE;
    }
    if (const long checked = CheckSequenceOptions(state_->options); checked != KIV_EXT_OK) {
      return checked;
    }
    const Units units{integral, frame.ResolutionZ(), frame.OffsetZ()};
    return ColourFrameSafely(
        state_, out, info, [&](State& state, KivColorArray& result, KivColoringInfo& used) {
          result.SetSize(frame.Width(), frame.Height(), state.options.channels);
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
    const int n = frame.Length();
    if (n <= 0 || frame.Data() == nullptr) return KIV_EXT_ERR_EMPTY_INPUT;
    if (frame.Mat().type() != CV_32FC1 || !frame.Mat().isContinuous()) {
      return KIV_EXT_ERR_INPUT_TYPE;
    }
    if (const long checked = CheckSequenceOptions(state_->options); checked != KIV_EXT_OK) {
      return checked;
    }
    return ColourFrameSafely(state_, out, info,
                             [&](State& state, KivColorArray& result, KivColoringInfo& used) {
                               result.Create(n, state.options.channels);
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
    *info = InfoOf(state_->carried.Mapping(), state_->options.mode);
    return KIV_EXT_OK;
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

int64_t KivSequenceColorizer::FramesSeen() const { return state_ ? state_->frames : 0; }

const KivColorTable& KivSequenceColorizer::Table() const { return state_->table; }

const KivSequenceOptions& KivSequenceColorizer::Options() const { return state_->options; }

}  // namespace KIVMV
