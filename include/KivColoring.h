// Colouring with options: range images, float arrays and grey images through any KivColorTable,
// by histogram equalisation or linearly between given, measured or percentile bounds, with the
// colours of no-data, below and above chosen freely, 3- or 4-channel output, and the statistics
// and scale of the colouring handed back (what KivColorBar.h draws a colour bar from).
//
// With one of KivLUTSetting's seven tables and default options the bytes equal KivLUTSetting's:
//   equalised, measured bounds  == ColorMapLUT(image, map, out)
//   equalised, given bounds     == ColorMapLUT(image, map, low, high, out)
//   linear, measured bounds     == LinearColorMapLUT(image, map, out)
//   linear, given bounds        == LinearColorMapLUT(image, map, low, high, out)
// Where KivLUTSetting's behaviour would mislead, these functions differ, and say so:
// - No-data stays no-data in every mode. KivLUTSetting's fraction bounds clip no-data pixels into
//   the range and paint them like the nearest heights, and its float-array equalised colouring
//   paints non-finite values with table entry 0; here they take the no-data colour.
// - Percentile bounds are percentiles of the valid values only.
// - KivColorNormalMap colours every normal, a missing one with the no-data colour at its own
//   position only, the same for any worker count (KivLUTSetting's normal map blackens one position
//   in every work chunk and never writes the last entry).
//
// Colours given are red, green, blue (KivRgb); outputs are blue first, BGR or BGRA. Every function
// returns KIV_EXT_OK or a KIV_EXT_ERR_ code (KivExtStatus.h), never throws, leaves its inputs as
// they are and, on failure, its output too.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "KivColorTable.h"
#include "KivExtStatus.h"
#include "KivLUTSettingExport.h"
#include "KivPlatform.h"

namespace KIVMV {

enum class KivColoringMode {
  kEqualised,  // histogram equalisation: crowded heights spread over many colours
  kLinear,     // evenly between the bounds
};

enum class KivBoundsSource {
  kMeasured,    // the minimum and maximum of the valid values
  kGiven,       // KivColoringOptions::low and high, physical units
  kPercentile,  // lowPercentile and highPercentile of the valid values
};

struct KivColoringOptions {
  KivColoringMode mode = KivColoringMode::kLinear;
  KivBoundsSource bounds = KivBoundsSource::kMeasured;
  double low = 0.0;   // kGiven: heights in the image's physical units (raw x ResolutionZ after
  double high = 0.0;  // OffsetZ for integer pixels, as KivLUTSetting takes bounds)
  double lowPercentile = 1.0;    // kPercentile, 0..100
  double highPercentile = 99.0;  // kPercentile, 0..100, not below lowPercentile
  // Unset: the table's no-data colour, and its first and last entry below and above the bounds.
  std::optional<KivRgb> noDataColor;
  std::optional<KivRgb> belowColor;
  std::optional<KivRgb> aboveColor;
  int channels = 3;               // 3: BGR; 4: BGRA, alpha 0 on no-data and 255 elsewhere
  bool greyZeroIsNoData = false;  // grey images: treat the value 0 as no-data
};

// What a colouring measured and used. Values are in the physical units of the input.
struct KIVLUT_API KivColoringInfo {
  KivColoringMode mode = KivColoringMode::kLinear;
  double minimum = 0.0;  // of the valid values (NaN when there is none)
  double maximum = 0.0;
  int64_t validCount = 0;
  int64_t noDataCount = 0;
  double low = 0.0;  // the bounds the colouring ran between
  double high = 0.0;
  // entryStart[i], i = 0..256: the lowest value coloured with table entry i, with entryStart[0] =
  // low and entryStart[256] = high; non-decreasing (an entry no value takes repeats its
  // neighbour's start). Evenly spaced for linear colourings, where the histogram put them for
  // equalised ones. Empty when the colouring had no valid value.
  std::vector<double> entryStart;

  // Where a value lands along the table, 0 (start of entry 0) to 1 (end of entry 255): the entry
  // holding it, and linearly within that entry. Values outside the bounds give 0 or 1, NaN and
  // an empty scale NaN.
  double TablePosition(double value) const;
};

// A range image of any of the seven pixel types (Type() 0 or 1), one colour per pixel; `out`
// becomes Width() x Height() with options.channels channels. Integer pixels need a finite
// ResolutionZ above 0 and a finite OffsetZ (KIV_EXT_ERR_INPUT_TYPE otherwise).
KIVLUT_API long KivColorRangeImage(const KivRangeImage& image, const KivColorTable& table,
                                   const KivColoringOptions& options, KivColorArray* out,
                                   KivColoringInfo* info = nullptr);

// Float values: NaN, infinities and -FLT_MAX (KivLUTSetting's float marker) are no-data. `out`
// becomes Length() x 1.
KIVLUT_API long KivColorFloatArray(const Kiv3DFloatArray& values, const KivColorTable& table,
                                   const KivColoringOptions& options, KivColorArray* out,
                                   KivColoringInfo* info = nullptr);

// A one-channel grey image of 8 or 16 bits; every value is data unless greyZeroIsNoData.
// `out` becomes width x height.
KIVLUT_API long KivColorGreyImage(const KivImage& image, const KivColorTable& table,
                                  const KivColoringOptions& options, KivColorArray* out,
                                  KivColoringInfo* info = nullptr);

// Unit normals to colours, (x, y, z) in [-1, 1] to blue, green, red as KivLUTSetting's normal map
// does; a missing normal (zero length, or any component not finite) takes `noDataColor` (black by
// default). `out` becomes Length() x 1 with `channels` channels.
KIVLUT_API long KivColorNormalMap(const KivVector3dArray& normals, KivColorArray* out,
                                  KivRgb noDataColor = KivRgb{0, 0, 0}, int channels = 3);

}  // namespace KIVMV
