// Banded linear colouring of 8- and 16-bit grey images: grey levels between two bounds spread over
// a run of table entries, levels below and above take the caller's two colours.
#pragma once

#include <cstdint>

#include "KivColor.h"
#include "KivImage.h"
#include "range/linear_mapping.h"
#include "tables/colour_tables.h"

namespace KIVMV {

// The rule per grey level v, with the range image's serial linear mapping for the entry (the value
// at low takes the entry before indexLow, or entry 0), but without its validity test: a grey level
// of 0 is a grey level like any other. (The rule's branch that writes zero bytes for a value at
// the marker that is also not finite cannot fire for integer pixels.) `under` and `over` are the
// caller's colours as stored, component 2 first.
template <typename T>
inline const ColourEntry& BandedColour(T grey, const SerialLinearMapping& m) {
  const double v = static_cast<double>(grey);
  if (m.low > v) return m.under;
  if (v > m.high) return m.over;
  return (*m.table)[static_cast<size_t>(SerialLinearEntry(v, m))];
}

// The routine behind KivLUTSetting::SetColorLUT(KivImage&, KivImage*, int, int, int, int, int,
// KivColor, KivColor), the map type last. Checks, in order: no pixels in the matrix
// (LUT_ERR_IMAGE_EMPTY); high < low or a negative bound (LUT_ERR_PARAM_2); indexHigh < indexLow
// or indexLow < 0 (LUT_ERR_PARAM_4); indexHigh > 255 (LUT_ERR_PARAM_5); CheckGreyImageFormat;
// mapType outside 0..10 (LUT_ERR_PARAM_6); a null dst (LUT_ERR_PARAM_2). An 8-bit image under
// map 0 or 7 to 10 is copied as grey as by ColourGreyImageEqualised; otherwise the bounds are
// narrowed to the valid (non-zero) minimum and maximum for an 8-bit image and used as given for a
// 16-bit one, whose maps 0 and 7 to 10 take the grey table (map 0 keeps the first channel). A
// failure while working gives LUT_ERR_ARRAY_APPLY_FAILED.
long ColourGreyImageBanded(const KivImage& src, KivImage* dst, int low, int high, int indexLow,
                           int indexHigh, const KivColor& below, const KivColor& above,
                           int mapType) noexcept;

}  // namespace KIVMV
