// KivLUTSetting: colour pictures from machine-vision measurement data.
//
// Every method borrows its inputs by reference, writes its output through a pointer, and returns a
// status code (KivLUTStatus.h): LUT_OK or an eight-digit failure code. No method throws.
// Including this header is enough to call every method.
#pragma once

#include <memory>

#include "KivLUTSettingExport.h"
#include "KivLUTStatus.h"
#include "KivPlatform.h"
#include "LinearColorMapLUT_Para.h"

namespace KIVMV {

class KivLUTSettingImpl;

class KIVLUT_API KivLUTSetting {
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

  // The five-point scale (LinearColorMapLUT_Para). The valid values are rescaled to [-1, 1]
  // (range images on a float copy in physical units; the image itself is not changed) and coloured
  // piecewise linearly through a 1024-entry table of mapType (1..10; 0 is refused with
  // LUT_ERR_PARAM_1): the break values value0..value4 map to the entries index0..index4, each
  // value taking the entry one before its linear position (entry 0 at the least). Values below
  // value0 take underColor, above value4 overColor (both stored with components 2, 1, 0 in bytes
  // 0, 1, 2), invalid ones the map's invalid colour. A value exactly at value0 (below value1) or
  // at value3 (above value2) lies in no segment and its element keeps the bytes it held. With
  // `automatic` the break values come from the data (minimum, the negative and positive
  // root-mean-square spreads, their mean, maximum) with entries 0, 127, 511, 895, 1023, and the
  // record is not checked; otherwise the record must be ordered: LUT_ERR_PARA_BOUND_1/_3/_4 for
  // the values, LUT_ERR_PARA_INDEX_1.._4 for the entries, LUT_ERR_PARA_COUNT for index4 above
  // 1023. A null `out` gives LUT_ERR_OUTPUT_FAILED.
  // On a range image, break values are heights (physical units); automatic mode writes the ones it
  // used back into `para`.
  long LinearColorMapLUT(KivRangeImage& image, KivColorArray* out, LinearColorMapLUT_Para& para,
                         KivColor& underColor, KivColor& overColor, int mapType, bool automatic);
  // On a float array, which is rescaled in place: its valid elements are mapped onto [-1, 1] in
  // single precision (so a value may round a hair past either end; an array whose valid values
  // are all equal is left as it is). Break values given by hand are values of that rescaled
  // domain; nothing is written back. Map types 7..10 share the tables of 3..6.
  // LUT_ERR_RANGE_IMAGE_EMPTY: an empty array.
  long LinearColorMapLUT(Kiv3DFloatArray& values, KivColorArray* out, LinearColorMapLUT_Para& para,
                         KivColor& underColor, KivColor& overColor, int mapType, bool automatic);
  // The break values t0..t4 (heights, or from the data) cut the rescaled image into four segments
  // [t0, t1), [t1, t2), [t2, t3), [t3, t4]; each is equalised through its quarter of the grey
  // table (black to grey 63, ..., grey 192 to white). `out` is the whole picture: each pixel from
  // its segment, invalid pixels in the map's invalid colour, pixels below t0 or above t4 in
  // underColor or overColor. Appended to a non-null vectorA, after what it holds: the histogram
  // chart (KivImage 800 x 600, 3 channels, marking [t1, t3]), the four coloured segments (KivImage
  // width x height, 3 channels), then the four counts of pixels outside each segment (int).
  // Appended to a non-null vectorB when sizeA and sizeB are non-zero: sizeB + 1 legend entries
  // from index4 down to index2, then sizeA from index2 towards index0 (ints). Nothing is written
  // back into `para`. LUT_ERR_PARAM_6 / _7: sizeA / sizeB not 2, 4, 8 or 16 (neither checked when
  // sizeA is 0). Logs under the name "LinearColorMapLUT".
  long ColorMapLUT(KivRangeImage& image, KivColorArray* out, LinearColorMapLUT_Para& para,
                   KivColor& underColor, KivColor& overColor, int mapType, bool automatic,
                   int sizeA, int sizeB, KivVarArray* vectorA, KivVarArray* vectorB);

  // Grey images (KivImage, 1 channel, 8- or 16-bit unsigned samples) to colour images. The
  // destination receives a new matrix (it then shares that matrix; a destination made from a
  // caller's buffer is never written into), or has its own written in place when it alone holds
  // one of the result's size and type apart from the source's pixels: 8-bit, 3 channels blue
  // first, or 1 channel for map 0.
  // Checks: no pixels (LUT_ERR_IMAGE_EMPTY), channels other than 1 (LUT_ERR_IMAGE_CHANNELS), other
  // sample types (LUT_ERR_IMAGE_BIT_DEPTH); the destination is untouched when a check fails. A
  // null `dst` gives LUT_ERR_PARAM_2 after the documented checks.

  // Linear: 8-bit grey levels index the table directly; 16-bit images are stretched between their
  // own minimum and maximum. Maps 0 and 7 to 10 give grey. LUT_ERR_PARAM_1: mapType outside 0..10.
  // Checked in this order: no pixels, mapType, a null dst, then channels and sample type. A
  // failing colouring gives LUT_ERR_ARRAY_APPLY_FAILED and leaves dst untouched.
  long LinearSetColorLUT(KivImage& src, KivImage* dst, int mapType);
  // Histogram-equalised over all 256 entries between the image's valid (non-zero) minimum and
  // maximum; zero pixels take the first entry, or black when the valid pixels hold at most one
  // grey level. An 8-bit image under maps 0 and 7 to 10 is copied as grey without equalisation; a
  // 16-bit one is equalised through the grey table. LUT_ERR_PARAM_1: mapType outside 0..10; a
  // null `dst` is refused before the channel and sample-type checks; LUT_ERR_ARRAY_APPLY_FAILED:
  // the colouring failed (the destination is left as it was).
  long SetColorLUT(KivImage& src, KivImage* dst, int mapType);
  // Linear between low and high (narrowed to the valid, non-zero, grey levels for 8-bit images;
  // for 16-bit ones 0 is an ordinary level) over entries indexLow - 1 .. indexHigh - 1; grey
  // levels below low take `below`, above high `above`, written component 2 first. An 8-bit image
  // under maps 0 and 7 to 10 is copied as grey. In order: LUT_ERR_PARAM_1: mapType outside
  // 0..10; LUT_ERR_PARAM_2: a null `dst`, then high < low or a negative bound; LUT_ERR_PARAM_4:
  // indexLow < 0 or indexHigh < indexLow; LUT_ERR_PARAM_5: indexHigh > 255; only then channels and
  // sample type. LUT_ERR_ARRAY_APPLY_FAILED: the colouring failed (the destination is left alone).
  long SetColorLUT(KivImage& src, KivImage* dst, int mapType, int low, int high, int indexLow,
                   int indexHigh, KivColor below, KivColor above);

  // Flat arrays to colour arrays of one 3-byte colour (blue first) per element; `out` is re-created
  // when its length differs. Float elements equal to -FLT_MAX, NaN or infinite are invalid.

  // Integer values between low and high over the whole table; values above high are pure red and
  // values below low black, whatever the map. Runs on the calling thread; `out` is also re-created
  // when it holds fewer than 3 bytes a colour. LUT_ERR_PARAM_2: mapType outside 0..10;
  // LUT_ERR_PARAM_1: an empty array, or one whose matrix is not Length() contiguous ints; a null
  // `out` gives LUT_ERR_ARRAY_OUTPUT_FAILED.
  long ColorMapLUT(Kiv3DIntArray& values, int mapType, int low, int high, KivColorArray* out);
  // Histogram-equalised between the bounds narrowed to the data; invalid elements take entry 0.
  // Prints "SetColorLUT耗时：<ms>ms" (GBK) on standard output. LUT_ERR_ARRAY_EMPTY: an empty
  // array, or one whose matrix is not Length() contiguous floats; LUT_ERR_PARAM_1: minValue >
  // maxValue; LUT_ERR_PARAM_3: mapType outside 0..10; LUT_OK once the checks pass, whatever the
  // colouring met.
  long SetColorLUT(Kiv3DFloatArray& values, float minValue, float maxValue, int mapType,
                   KivColorArray* out);
  // Linear between the bounds as given: below takes entry 0, above 255, inside 1..255; invalid
  // elements are black for every map. LUT_ERR_ARRAY_EMPTY, LUT_ERR_PARAM_1 and LUT_ERR_PARAM_3 as
  // above; a null `out` gives LUT_ERR_ARRAY_OUTPUT_FAILED.
  long LinearSetColorLUT(Kiv3DFloatArray& values, float minValue, float maxValue, int mapType,
                         KivColorArray* out);

  // Surface-normal shading. These three log their end message only when they succeed.

  // Normals to colours, byte 0 from z, 1 from y, 2 from x, each component v as the low byte of
  // trunc((v x 0.5 + 0.5) x 255): 1 gives 255, 0 gives 127, -1 gives 0; nothing is clamped, and
  // NaN or infinity gives 0. The entries are split into one chunk per configured worker; the last
  // entry is never written (it keeps what `out` held), and a NaN x at position k of the array
  // blackens position k of every chunk. `out` is re-created with Length() entries of 3 bytes when
  // its length differs or it has fewer than 3 channels; with 4 channels it is written in place, 3
  // bytes an entry. LUT_ERR_PARAM_1: no normals; a null `out`: LUT_ERR_OUTPUT_FAILED.
  long SetColorNormalMap(KivVector3dArray& normals, KivColorArray* out);
  // In spite of its name no lighting: the normal map (as above) of the platform's normals of
  // `img`. LUT_ERR_RANGE_IMAGE_EMPTY: Height() x Width(), as a wrapping 32-bit product, is 0; a
  // failing ComputeNormals status is returned as it is and `out` is untouched.
  long SetColorNormalMapPhong(KivRangeImage& img, KivColorArray* out);
  // Phong lighting (white light, shininess 8) of the equalised colouring ColorMapLUT(img, mode),
  // which is logged as a call of its own, with a point light at `vectorA` and the eye at `vectorB`
  // in the image's point coordinates: x = (column - OffsetY) x ResolutionY, y = (row - OffsetX) x
  // ResolutionX, z = (raw - OffsetZ) x ResolutionZ (float and double heights: height - OffsetZ).
  // coefA is the gain, coefB, coefC and coefD the ambient, diffuse and specular weights; the
  // colour is divided by their sum. Bytes are truncated and wrap: a gain above 1 can take 200 to
  // 144; all three weights 0 give black. `out` is re-sized to the base colouring's shape. Checks
  // in order: LUT_ERR_RANGE_IMAGE_EMPTY (Height() x Width() as above); LUT_ERR_PARAM_1 /
  // LUT_ERR_PARAM_2: vectorA / vectorB is (0, 0, 0) or all FLT_MAX; LUT_ERR_PARAM_3: mode outside
  // 0..10; LUT_ERR_PARAM_4: coefA not in (0, 10]; LUT_ERR_PARAM_5, _6, _7: coefB, coefC, coefD
  // outside [0, 1] (NaN passes these). Then the statuses of ComputeNormals and of the base
  // colouring are returned as they are; a null `out`: LUT_ERR_OUTPUT_FAILED.
  long SetColorNormalMap(KivRangeImage& img, KivVector3d& vectorA, KivVector3d& vectorB, int mode,
                         float coefA, float coefB, float coefC, float coefD, KivColorArray* out);

  // Blends two colour arrays of equal length byte by byte: trunc(a x alpha) + trunc(b x (1 -
  // alpha)), so 255 and 255 at 0.5 give 254. Once the checks pass, an input with 1 or 4 channels
  // is converted to 3 channels in place (the caller's array changes) when the two channel counts
  // differ. `out` takes a's length and channels; it is re-created when its length differs or it
  // holds too few bytes. LUT_ERR_SIZE_MISMATCH: lengths differ (checked first); LUT_ERR_PARAM_1:
  // alpha outside [0, 1] (NaN passes); a null `out` gives LUT_ERR_BLEND_OUTPUT_FAILED; a failing
  // conversion or blend gives LUT_ERR_BLEND_FAILED.
  long ColorBlend(KivColorArray& a, KivColorArray& b, double alpha, KivColorArray* out);

 private:
  // The object's own implementation, or `spare` if it could not be allocated.
  KivLUTSettingImpl& OwnImpl(KivLUTSettingImpl& spare);

  // Stateless, so copies of a KivLUTSetting may share it.
  std::shared_ptr<KivLUTSettingImpl> impl_;
};

}  // namespace KIVMV
