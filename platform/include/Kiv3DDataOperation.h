#ifndef KIVMV_KIV_3D_DATA_OPERATION_H_
#define KIVMV_KIV_3D_DATA_OPERATION_H_

#include "Kiv3DArray.h"
#include "KivPlatformExport.h"
#include "KivPlatformStatus.h"
#include "KivRangeImage.h"
#include "KivVector3d.h"

namespace KIVMV {

// Geometric operations on range images.
class KIVMV_PLATFORM_API Kiv3DDataOperation {
 public:
  virtual ~Kiv3DDataOperation() = default;

  // One unit surface normal per pixel, at index row * Width() + col, oriented toward the viewer
  // (+z). The image is not changed.
  //
  // Geometry. Pixel (row, col) with value v is the point
  //   x = (col - OffsetY) * ResolutionY,  y = (row - OffsetX) * ResolutionX,
  //   z = (v - OffsetZ) * ResolutionZ  (a ResolutionZ of 0 gives 0),
  // in double, for every pixel type: the same physical height RangeImageDataTypeConvert gives, so
  // an image and its float conversion have the same normals up to the float rounding of z. A
  // pixel is invalid when it equals its type's marker or is not finite (see Kiv3DDataConvert.h).
  //
  // Normal. Tc is the derivative along the column index, Tr along the row index. Each is the
  // central difference P(+1) - P(-1) when both neighbours in that direction exist and are valid;
  // otherwise the one-sided difference to the valid neighbour, P(+1) - P or P - P(-1), preferring
  // the +1 side. The normal is Tc x Tr, normalised in double, negated when its z is negative, and
  // stored as floats. Its three components are NaN when the pixel is invalid, when a direction has
  // no valid neighbour (so every pixel of a 1 x 1, 1 x N or N x 1 image), or when the cross product
  // is zero or not finite (parallel tangents, e.g. a zero ResolutionX where the height does not
  // change down the column).
  //
  // `aux`, when not null, is replaced by a new array of Width() * Height() floats: the bend angle
  // at each pixel, in radians (0..pi), between the forward normal (P(col+1) - P) x (P(row+1) - P)
  // and the backward normal (P - P(col-1)) x (P - P(row-1)). It is 0 up to rounding on a plane and
  // about sqrt(2) * h / R on a sphere of radius R sampled at step h, so it reads as a local
  // curvature figure. It is NaN where either of those normals cannot be formed (an invalid pixel,
  // an edge pixel, an invalid neighbour, a zero or non-finite cross product).
  //
  // Rows are processed in parallel (KIV_TBB_CHUNKS chunks); the result does not depend on the
  // split. `normals` is resized to Width() * Height() and `aux` replaced only when the call
  // succeeds. Returns kKivPlatformOk (an image with no pixels gives empty arrays),
  // kKivPlatformNullArgument for a null `normals`, kKivPlatformInvalidArgument when the pixel
  // matrix is not Height() x Width() single-channel pixels of DataType(), when Width() * Height()
  // exceeds INT_MAX, or when a resolution or offset is not finite; kKivPlatformOutOfMemory or
  // kKivPlatformInternalError when the work fails. Never throws.
  long ComputeNormals(KivRangeImage& image, KivVector3dArray* normals, Kiv3DFloatArray* aux);
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_3D_DATA_OPERATION_H_
