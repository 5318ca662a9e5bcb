// Colouring with options: range images, float arrays and grey images through any KivColorTable.
//
// The table's colours run through the very kernels of KivLUTSetting's ColorMapLUT and
// LinearColorMapLUT, with the same bounds, so a described table with default options gives their
// bytes. The options are one parallel pass afterwards that repaints no-data, below and above
// pixels and adds alpha; it reads the same validity rule and the same bound comparisons as the
// kernel, so it repaints exactly the pixels the kernel gave the invalid colour, entry 0 or
// entry 255 for those reasons.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <opencv2/core.hpp>
#include <type_traits>
#include <vector>

#include "KivColoring.h"
#include "common/load_time_config.h"
#include "common/pixel_rules.h"
#include "extensions/colouring_inputs.h"
#include "range/checked_pixel_count.h"
#include "range/equalisation.h"
#include "range/linear_mapping.h"
#include "range/raw_units.h"
#include "range/statistics.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

using Units = PhysicalUnits;

ColourEntry Stored(KivRgb c) { return {c.b, c.g, c.r}; }

ColourTable ColoursOf(const KivColorTable& table) {
  ColourTable colours;
  std::memcpy(colours.data(), table.Bgr(), sizeof colours);
  return colours;
}

// The bounds the kernel compared with: in float for the linear kernel, in double for the
// equalised one. A value equal to a bound lies inside.
struct KernelBounds {
  bool inFloat;
  double low;
  double high;

  template <typename T>
  bool Below(T v) const {
    return inFloat ? static_cast<float>(v) < static_cast<float>(low) : static_cast<double>(v) < low;
  }
  template <typename T>
  bool Above(T v) const {
    return inFloat ? static_cast<float>(v) > static_cast<float>(high)
                   : static_cast<double>(v) > high;
  }
};

// What the pass after the kernel paints.
struct Repaint {
  ColourEntry noData;
  bool below;
  ColourEntry belowColour;
  bool above;
  ColourEntry aboveColour;
  int channels;
};

inline void PutColour(uint8_t* pixel, const ColourEntry& c, int channels, uint8_t alpha) {
  pixel[0] = c[0];
  pixel[1] = c[1];
  pixel[2] = c[2];
  if (channels == 4) pixel[3] = alpha;
}

// Pixel i's final colour from the kernel's bytes at kernel + 3i; `out` may be `kernel` itself
// when there are three channels, since each pixel reads its own bytes before writing them.
template <typename T>
void RepaintPixels(const T* data, int n, const uint8_t* kernel, const KernelBounds& bounds,
                   const Repaint& how, uint8_t* out) {
  tbb::parallel_for(
      tbb::blocked_range<int>(0, n, GrainSize(n)),
      [&](const tbb::blocked_range<int>& pixels) {
        for (int i = pixels.begin(); i != pixels.end(); ++i) {
          const T v = data[i];
          uint8_t* pixel = out + static_cast<size_t>(how.channels) * i;
          if (!IsValidPixel(v)) {
            PutColour(pixel, how.noData, how.channels, 0);
          } else if (how.below && bounds.Below(v)) {
            PutColour(pixel, how.belowColour, how.channels, 255);
          } else if (how.above && bounds.Above(v)) {
            PutColour(pixel, how.aboveColour, how.channels, 255);
          } else {
            const uint8_t* own = kernel + 3 * static_cast<size_t>(i);
            PutColour(pixel, {own[0], own[1], own[2]}, how.channels, 255);
          }
        }
      },
      tbb::auto_partitioner());
}

// The value at `percent` of the sorted valid values, interpolated linearly between neighbours.
double PercentileOf(std::vector<double>& values, double percent) {
  const double position = percent / 100.0 * static_cast<double>(values.size() - 1);
  const size_t below = static_cast<size_t>(position);
  std::nth_element(values.begin(), values.begin() + below, values.end());
  const double a = values[below];
  if (below + 1 >= values.size()) return a;
  const double b = *std::min_element(values.begin() + below + 1, values.end());
  return a + (b - a) * (position - static_cast<double>(below));
}

template <typename T>
std::vector<double> ValidValues(const T* data, int n, uint32_t validCount) {
  std::vector<double> values;
  values.reserve(validCount);
  for (int i = 0; i < n; ++i) {
    if (IsValidPixel(data[i])) values.push_back(static_cast<double>(data[i]));
  }
  return values;
}

// Colours n values of type T into `out` (n x options.channels bytes) and fills `info`.
template <typename T>
void ColourValues(const T* data, int n, const Units& units, const KivColorTable& table,
                  const KivColoringOptions& options, uint8_t* out, KivColoringInfo& info) {
  const ColourTable colours = ColoursOf(table);
  // KivLUTSetting's tables keep their own invalid colour in the kernel; every other table's
  // no-data pixels are repainted anyway.
  const int invalidMap = table.DescribedMapType() >= 0 ? table.DescribedMapType() : kGreyMap;
  const PixelSummary<T> summary = SummarisePixels(data, n);
  const uint32_t validCount = summary.stats.validCount;
  const bool linear = options.mode == KivColoringMode::kLinear;

  info = KivColoringInfo{};
  info.mode = options.mode;
  info.validCount = validCount;
  info.noDataCount = static_cast<int64_t>(n) - validCount;
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  info.minimum = validCount > 0 ? units.Physical(static_cast<double>(summary.stats.minimum)) : kNaN;
  info.maximum = validCount > 0 ? units.Physical(static_cast<double>(summary.stats.maximum)) : kNaN;
  info.low = info.high = kNaN;

  Repaint repaint{options.noDataColor ? Stored(*options.noDataColor) : Stored(table.NoDataColor()),
                  options.belowColor.has_value(),
                  options.belowColor ? Stored(*options.belowColor) : ColourEntry{},
                  options.aboveColor.has_value(),
                  options.aboveColor ? Stored(*options.aboveColor) : ColourEntry{},
                  options.channels};
  const bool repaintNeeded = options.channels != 3 || repaint.below || repaint.above ||
                             repaint.noData != InvalidColour(invalidMap) || validCount == 0;
  std::vector<uint8_t> kernelBytes;
  if (options.channels != 3) kernelBytes.resize(3 * static_cast<size_t>(n));
  uint8_t* const kernelOut = options.channels == 3 ? out : kernelBytes.data();

  if (validCount == 0) {
    // Nothing to measure or scale: every pixel is no-data.
    if (options.bounds == KivBoundsSource::kGiven) {
      info.low = options.low;
      info.high = options.high;
    }
    RepaintPixels(data, n, kernelOut, KernelBounds{false, 0.0, 0.0}, repaint, out);
    return;
  }

  // The bounds in raw units, as KivLUTSetting's forms convert given ones.
  double low = static_cast<double>(summary.stats.minimum);
  double high = static_cast<double>(summary.stats.maximum);
  if (options.bounds == KivBoundsSource::kGiven) {
    const auto convert = linear ? FloatScaledRawBounds : TruncatedRawBounds;
    const RawBounds raw = units.scaled
                              ? convert(options.low, options.high, units.resolution, units.offset)
                              : RawBounds{options.low, options.high};
    low = raw.low;
    high = raw.high;
    if (!linear) {
      // KivLUTSetting's given bounds yield to the data's own unless well inside them.
      const double margin = std::is_integral_v<T> ? 0.5 : 0.0001;
      const double minimum = static_cast<double>(summary.stats.minimum);
      const double maximum = static_cast<double>(summary.stats.maximum);
      low = low - minimum > margin ? low : minimum;
      high = maximum - high > margin ? high : maximum;
    }
  } else if (options.bounds == KivBoundsSource::kPercentile) {
    std::vector<double> values = ValidValues(data, n, validCount);
    low = PercentileOf(values, options.lowPercentile);
    high = PercentileOf(values, options.highPercentile);
  }

  KernelBounds bounds{linear, low, high};
  if (linear) {
    const float lo = static_cast<float>(low);
    const float hi = static_cast<float>(high);
    ColourLinearParallel(data, n, lo, hi, colours, invalidMap, kernelOut);
    info.low = units.Physical(lo);
    info.high = units.Physical(hi);
    // The kernel's entry of a value at fraction p of the way is trunc(255 p), with 0 taken up by
    // 1 and 255 reached at the upper bound only: 255 steps, the first entry below the range.
    info.entryStart.assign(KivColorTable::kSize + 1, info.high);
    info.entryStart[0] = info.entryStart[1] = info.low;
    for (int k = 2; k < KivColorTable::kSize - 1; ++k) {
      info.entryStart[k] = info.low + (info.high - info.low) * k / 255.0;
    }
  } else {
    const EqualisedColouring how{&colours,
                                 low,
                                 high,
                                 validCount,
                                 /*reserveIndex0=*/true,
                                 invalidMap,
                                 /*widthFromDifference=*/false,
                                 /*range=*/nullptr};
    ColourByEqualisation(data, n, summary, how, kernelOut);
    info.low = units.Physical(low);
    info.high = units.Physical(high);
    info.entryStart = EqualisedEntryStarts(data, n, summary, how);
    for (double& start : info.entryStart) start = units.Physical(start);
  }
  if (repaintNeeded) RepaintPixels(data, n, kernelOut, bounds, repaint, out);
}

// Runs `colour(result bytes, info)` on a fresh array and hands array and info over only when it
// succeeds, so that a failure leaves the caller's objects as they were.
template <typename Colour>
long ColourIntoFresh(KivColorArray* out, KivColoringInfo* info, Colour&& colour) {
  try {
    KivColorArray result;
    KivColoringInfo measured;
    colour(result, measured);
    *out = result;
    if (info != nullptr) *info = std::move(measured);
    return KIV_EXT_OK;
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

}  // namespace

long KivColorRangeImage(const KivRangeImage& image, const KivColorTable& table,
                        const KivColoringOptions& options, KivColorArray* out,
                        KivColoringInfo* info) {
  try {
    if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
    int n = 0;
    Units units;
    if (const long checked = CheckRangeInput(image, &n, &units); checked != KIV_EXT_OK) {
      return checked;
    }
    if (const long checked = CheckColouringChoice(options); checked != KIV_EXT_OK) return checked;
    return ColourIntoFresh(out, info, [&](KivColorArray& result, KivColoringInfo& measured) {
      result.SetSize(image.Width(), image.Height(), options.channels);
      VisitPixelType(image.DataType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        ColourValues(image.Ptr<T>(), n, units, table, options, result.Data(), measured);
      });
    });
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

long KivColorFloatArray(const Kiv3DFloatArray& values, const KivColorTable& table,
                        const KivColoringOptions& options, KivColorArray* out,
                        KivColoringInfo* info) {
  try {
    if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
    int n = 0;
    if (const long checked = CheckFloatInput(values, &n); checked != KIV_EXT_OK) return checked;
    if (const long checked = CheckColouringChoice(options); checked != KIV_EXT_OK) return checked;
    return ColourIntoFresh(out, info, [&](KivColorArray& result, KivColoringInfo& measured) {
      result.Create(n, options.channels);
      ColourValues(values.Data(), n, Units{}, table, options, result.Data(), measured);
    });
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

namespace {

// A grey image's values as a pixel type whose validity rule takes every grey value as a
// measurement (the 8- and 16-bit range rules take 0 for no-data): 8-bit grey as signed 16-bit,
// 16-bit grey as float, both exact. With greyZeroIsNoData a 0 becomes the type's marker.
template <typename Grey, typename T>
std::vector<T> GreyValues(const cv::Mat& pixels, bool zeroIsNoData) {
  std::vector<T> values(pixels.total());
  size_t i = 0;
  for (int y = 0; y < pixels.rows; ++y) {
    const Grey* row = pixels.ptr<Grey>(y);
    for (int x = 0; x < pixels.cols; ++x, ++i) {
      values[i] = zeroIsNoData && row[x] == 0 ? PixelTraits<T>::kMarker : static_cast<T>(row[x]);
    }
  }
  return values;
}

}  // namespace

long KivColorGreyImage(const KivImage& image, const KivColorTable& table,
                       const KivColoringOptions& options, KivColorArray* out,
                       KivColoringInfo* info) {
  try {
    if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
    const cv::Mat& pixels = image.Mat();
    if (pixels.empty() || pixels.rows <= 0 || pixels.cols <= 0) return KIV_EXT_ERR_EMPTY_INPUT;
    if (pixels.channels() != 1 || (pixels.depth() != CV_8U && pixels.depth() != CV_16U) ||
        pixels.dims != 2 || pixels.total() > static_cast<size_t>(std::numeric_limits<int>::max())) {
      return KIV_EXT_ERR_INPUT_TYPE;
    }
    if (const long checked = CheckColouringChoice(options); checked != KIV_EXT_OK) return checked;
    const int n = static_cast<int>(pixels.total());
    return ColourIntoFresh(out, info, [&](KivColorArray& result, KivColoringInfo& measured) {
      result.SetSize(pixels.cols, pixels.rows, options.channels);
      if (pixels.depth() == CV_8U) {
        const std::vector<int16_t> values =
            GreyValues<uint8_t, int16_t>(pixels, options.greyZeroIsNoData);
        ColourValues(values.data(), n, Units{}, table, options, result.Data(), measured);
      } else {
        const std::vector<float> values =
            GreyValues<uint16_t, float>(pixels, options.greyZeroIsNoData);
        ColourValues(values.data(), n, Units{}, table, options, result.Data(), measured);
      }
    });
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

}  // namespace KIVMV
