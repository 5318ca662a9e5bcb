#ifndef KIVMV_KIV_3D_DATA_CONVERT_H_
#define KIVMV_KIV_3D_DATA_CONVERT_H_

#include "KivPlatformExport.h"
#include "KivPlatformStatus.h"
#include "KivRangeImage.h"

namespace KIVMV {

// Conversions between the pixel types of range images.
class KIVMV_PLATFORM_API Kiv3DDataConvert {
 public:
  virtual ~Kiv3DDataConvert() = default;

  // Converts `src` to pixel type `type` (a KivDataType code, 0..6) into `dst`. `src` and `dst`
  // may be the same object; otherwise `src` is not changed. `dst` receives a new pixel matrix, so
  // images that shared pixels with `dst` before the call keep the old ones.
  //
  // Pixel validity: a pixel is invalid when it equals its type's marker (u8 0, s8 -128, u16 0,
  // s16 -32768, s32 INT_MIN, float -FLT_MAX, double -DBL_MAX) or is not finite. Every invalid
  // pixel becomes the target type's marker, and a valid pixel never does: values are saturated
  // into the target's valid range, which excludes the marker (u8 1..255, s8 -127..127,
  // u16 1..65535, s16 -32767..32767, s32 INT_MIN+1..INT_MAX, float and double from the value just
  // above the marker up to the type's maximum).
  //
  // - Float or double target: each valid pixel v becomes its physical height
  //   (v - OffsetZ) * ResolutionZ, computed in double (a ResolutionZ of 0 gives 0 even where the
  //   difference overflows), then saturated and, for float, rounded to nearest. The result has
  //   ResolutionZ 1 and OffsetZ 0. The same rule holds for float and double sources, so a float
  //   image with ResolutionZ 1 and OffsetZ 0 keeps its values.
  // - Integer target: each valid value is rounded half away from zero and saturated; ResolutionZ
  //   and OffsetZ are kept, so the physical height changes only by that rounding and saturation.
  //   Raw units are not restored from an image whose scale was folded into its values: an integer
  //   image converted to float and back holds its physical heights in units of 1.
  // Width, height, Type(), ResolutionX/Y and OffsetX/Y are kept in every case. Source rows may
  // be padded (the matrix's own row step is honoured); the result is contiguous.
  //
  // Returns kKivPlatformOk (an image with no pixels gives an empty image of the target type),
  // kKivPlatformNullArgument for a null `dst`, kKivPlatformUnsupportedType for `type` outside
  // 0..6, kKivPlatformInvalidArgument when the pixel matrix of `src` is not Height() x Width()
  // single-channel pixels of its DataType(), when a target row would not fit an int, or, for a
  // float or double target, when ResolutionZ or OffsetZ is not finite; kKivPlatformOutOfMemory or
  // kKivPlatformInternalError when the work fails. On any failure `dst` is unchanged. Never
  // throws.
  long RangeImageDataTypeConvert(KivRangeImage& src, KivRangeImage* dst, int type);
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_3D_DATA_CONVERT_H_
