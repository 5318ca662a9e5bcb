// What the colourings of KivColoring.h and the sequence colouriser share about their inputs: the
// checks of a range image or a float array and of the mode and bounds asked for, and the physical
// units the caller speaks.
#pragma once

#include <cmath>

#include "KivColoring.h"
#include "KivExtStatus.h"
#include "KivPlatform.h"
#include "range/checked_pixel_count.h"

namespace KIVMV {

// How raw values become the physical units the caller speaks: (raw - offset) x resolution for
// the integer pixels of a range image, the value itself for everything else.
struct PhysicalUnits {
  bool scaled = false;
  double resolution = 1.0;
  double offset = 0.0;

  double Physical(double raw) const { return scaled ? (raw - offset) * resolution : raw; }
  double Raw(double physical) const { return scaled ? physical / resolution + offset : physical; }
};

// A range image a colouring can take: Type() 0 or 1, a known pixel type, pixels, and for integer
// pixels a scale that keeps the order of the raw values. KIV_EXT_OK with its pixel count in *n
// and its units in *units.
inline long CheckRangeInput(const KivRangeImage& image, int* n, PhysicalUnits* units) {
  if (image.Type() != 0 && image.Type() != 1) return KIV_EXT_ERR_INPUT_TYPE;
  if (!IsKnownSampleType(image.DataType())) return KIV_EXT_ERR_INPUT_TYPE;
  if (image.Width() <= 0 || image.Height() <= 0) return KIV_EXT_ERR_EMPTY_INPUT;
  *n = CheckedPixelCount(image);
  if (*n < 0) return KIV_EXT_ERR_INPUT_TYPE;
  if (*n == 0) return KIV_EXT_ERR_EMPTY_INPUT;
  const bool integral = image.DataType() <= KIV_DATA_S32;
  if (integral && !(std::isfinite(image.ResolutionZ()) && image.ResolutionZ() > 0.0 &&
                    std::isfinite(image.OffsetZ()))) {
    return KIV_EXT_ERR_INPUT_TYPE;
  }
  *units = PhysicalUnits{integral, image.ResolutionZ(), image.OffsetZ()};
  return KIV_EXT_OK;
}

// A float array a colouring can take: values, one contiguous float each.
inline long CheckFloatInput(const Kiv3DFloatArray& values, int* n) {
  *n = values.Length();
  if (*n <= 0 || values.Data() == nullptr) return KIV_EXT_ERR_EMPTY_INPUT;
  if (values.Mat().type() != CV_32FC1 || !values.Mat().isContinuous()) {
    return KIV_EXT_ERR_INPUT_TYPE;
  }
  return KIV_EXT_OK;
}

// The output channels, the mode and the bounds asked for.
inline long CheckColouringChoice(const KivColoringOptions& o) {
  if (o.channels != 3 && o.channels != 4) return KIV_EXT_ERR_CHANNELS;
  if (o.mode != KivColoringMode::kLinear && o.mode != KivColoringMode::kEqualised) {
    return KIV_EXT_ERR_INPUT_TYPE;
  }
  switch (o.bounds) {
    case KivBoundsSource::kMeasured:
      return KIV_EXT_OK;
    case KivBoundsSource::kGiven:
      return std::isfinite(o.low) && std::isfinite(o.high) && o.low <= o.high ? KIV_EXT_OK
                                                                              : KIV_EXT_ERR_BOUNDS;
    case KivBoundsSource::kPercentile:
      return o.lowPercentile >= 0.0 && o.lowPercentile <= o.highPercentile &&
                     o.highPercentile <= 100.0
                 ? KIV_EXT_OK
                 : KIV_EXT_ERR_PERCENTILES;
  }
  return KIV_EXT_ERR_BOUNDS;
}

}  // namespace KIVMV
