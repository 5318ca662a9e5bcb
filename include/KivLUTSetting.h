// KivLUTSetting: colour pictures from machine-vision measurement data.
//
// Every method borrows its inputs by reference, writes its output through a pointer, and returns a
// status code (KivLUTStatus.h): LUT_OK or an eight-digit failure code. No method throws.
// Including this header is enough to call every method.
#pragma once

#include <memory>

#include "KivLUTStatus.h"
#include "KivPlatform.h"

namespace KIVMV {

class KivLUTSettingImpl;

class KivLUTSetting {
 public:
  KivLUTSetting();
  ~KivLUTSetting();

  // The colour at `value`, a fraction of the mapped range in [0, 1], under colour map `mapType`
  // (0 grey, 1 rainbow, 2 hot metal, 3 diverging, 4 isoluminant, 5 RGB, 6 jet; 7 to 10 grey).
  // Components 0, 1, 2 of `out` receive blue, green, red; component 3 is left alone. The table
  // entry is value x 255 truncated, so only 1.0 reaches the last entry.
  // LUT_ERR_PARAM_1: value outside [0, 1] or NaN; LUT_ERR_PARAM_2: mapType outside 0..10;
  // LUT_ERR_PARAM_3: out is null.
  long GetColor(double value, int mapType, KivColor* out);

  // Range images (KivRangeImage, Type() 0 or 1, any of the seven pixel types) to colour arrays of
  // one 3-byte colour per pixel, in pixel order. `out` is re-created with width x height colours of
  // 3 channels when its length differs, and overwritten in place otherwise. Invalid pixels (the
  // type's marker, NaN, infinities) take the map's invalid colour: white for hot metal (2), black
  // for every other map. Bounds are physical values: for the integer pixel types they are turned
  // into raw units with ResolutionZ() and OffsetZ(). Checks, in order: Type() (LUT_ERR_RANGE_
  // IMAGE_TYPE), a zero size (LUT_ERR_RANGE_IMAGE_EMPTY), mapType outside 0..10 (LUT_ERR_PARAM_1),
  // then the method's own; a null `out` gives LUT_ERR_OUTPUT_FAILED.

  // Histogram-equalised colouring: each of 255 value bins between the bounds gets a run of table
  // entries in proportion to its share of the valid pixels.
  // This form uses the valid minimum and maximum of the image as bounds.
  long ColorMapLUT(KivRangeImage& image, int mapType, KivColorArray* out);
  // Bounds given; each is replaced by the data's extreme unless it lies inside the data range by
  // more than half a raw unit (0.0001 for float and double pixels). LUT_ERR_PARAM_2: low > high.
  long ColorMapLUT(KivRangeImage& image, int mapType, double low, double high, KivColorArray* out);
  // Bounds given and clamped to the data range; only table entries lo..hi (0 <= lo <= hi <= 255)
  // are used, and valid pixels below low or above high take `below` or `above`, written with
  // their components 2, 1, 0 in bytes 0, 1, 2. LUT_ERR_PARAM_2: not high >= low (a NaN bound
  // fails); LUT_ERR_PARAM_4: lo < 0 or hi < lo; LUT_ERR_PARAM_5: hi > 255.
  long ColorMapLUT(KivRangeImage& image, int mapType, double low, double high, int lo, int hi,
                   KivColor below, KivColor above, KivColorArray* out);

  // Linear colouring between two bounds.
  // Bounds are the valid minimum and maximum of the image.
  long LinearColorMapLUT(KivRangeImage& image, int mapType, KivColorArray* out);
  // Bounds given; values below take entry 0, values above entry 255, values inside entries 1..255.
  // LUT_ERR_PARAM_2: not high >= low.
  long LinearColorMapLUT(KivRangeImage& image, int mapType, double low, double high,
                         KivColorArray* out);
  // Bounds given, entries indexLow - 1 .. indexHigh - 1 used inside them, and valid pixels below
  // or above take underColor or overColor (components 2, 1, 0 in bytes 0, 1, 2). Runs on the
  // calling thread. LUT_ERR_PARAM_2: not high >= low, or indexHigh > 255; LUT_ERR_PARAM_3:
  // indexLow < 0 or indexHigh < indexLow.
  long LinearColorMapLUT(KivRangeImage& image, int mapType, double low, double high, int indexLow,
                         int indexHigh, KivColor underColor, KivColor overColor,
                         KivColorArray* out);
  // Float images only: bounds cut at fractions of the sorted valid values, upperFraction from the
  // top and lowerFraction from the bottom, each in [0, 1] (LUT_ERR_PARAM_2, LUT_ERR_PARAM_3).
  // Another pixel type returns -1. The caller's image is not changed.
  long LinearColorMapLUT(KivRangeImage& image, KivColorArray* out, int mapType,
                         double upperFraction, double lowerFraction);

 private:
  // The object's own implementation, or `spare` if it could not be allocated.
  KivLUTSettingImpl& OwnImpl(KivLUTSettingImpl& spare);

  // Stateless, so copies of a KivLUTSetting may share it.
  std::shared_ptr<KivLUTSettingImpl> impl_;
};

}  // namespace KIVMV
