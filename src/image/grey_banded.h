// Banded linear colouring of 8- and 16-bit grey images: grey levels between two bounds spread over
// a run of table entries, levels below and above take the caller's two colours.
#pragma once

#include <cstdint>
#include <vector>

#include "KivColor.h"
#include "KivImage.h"
#include "range/linear_mapping.h"
#include "range/raw_value_lut.h"
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

// Colours n grey levels, 3 bytes each: per level through a table of every raw value when the
// image has at least as many pixels as T has values, else pixel by pixel. Both give the same
// bytes, since the rule depends on the value alone.
template <typename T>
void ColourBandedPixels(const T* data, int n, const SerialLinearMapping& mapping, uint8_t* out) {
  if (UseValueColours<T>(n)) {
    const std::vector<PaddedColour> colours = TabulateValueColours<T>(
        [&](T v) -> const ColourEntry& { return BandedColour(v, mapping); });
    ColourByLookup(data, n, colours, out);
    return;
  }
  // A local copy: byte stores may alias the caller's, and would force a reload per pixel.
  const SerialLinearMapping local = mapping;
  for (int i = 0; i < n; ++i) {
    WriteColour(out + 3 * static_cast<size_t>(i), BandedColour(data[i], local));
  }
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
