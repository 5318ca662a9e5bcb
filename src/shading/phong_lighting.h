// Phong shading of a range image: every pixel becomes a point, the platform gives its surface
// normal, the equalised colouring gives its base colour, and one point light seen from one eye
// position shades that colour.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

#include "KivColorArray.h"
#include "KivRangeImage.h"
#include "KivVector3d.h"
#include "common/numeric_helpers.h"

namespace KIVMV {

using numeric::NarrowToFloat;

// The z of a point whose pixel holds its type's invalid marker.
inline constexpr float kInvalidPointZ = -FLT_MAX;

// The point of every pixel, point (row, col) at row x cols + col of the pixel matrix. The six
// resolutions and offsets are first narrowed to float. x = (col - OffsetY) x ResolutionY and
// y = (row - OffsetX) x ResolutionX: the X pair goes with the row and the Y pair with the column.
// z = (v - OffsetZ) x ResolutionZ for integer pixels, v - OffsetZ for float and double pixels,
// and kInvalidPointZ for a pixel exactly equal to its type's marker (so a signed 32-bit 0 is a
// height here). Pixels are read rows x cols in a row, the matrix's row step unused. A matrix of
// any other type (more than one channel) leaves the points zero. Throws std::length_error when
// rows x cols does not fit an int.
void BuildPointGrid(const KivRangeImage& image, KivVector3dArray* points);

// The loop's grain: entries / workers, so that the partitioner makes about one task a worker,
// but at least 1 (a grain of 0 would let a one-entry range split forever; results do not depend
// on the grain).
inline int PhongGrain(int entries, int workers) {
  const int grain = workers > 0 ? entries / workers : entries;
  return grain < 1 ? 1 : grain;
}

// What the shading of every entry shares: the light and eye positions, the light's colour, the
// gain coefA and the ambient, diffuse and specular weights coefB, coefC and coefD, and their sum.
struct PhongTerms {
  KivVector3d light;
  KivVector3d eye;
  KivVector3d lightColour;
  float gain;
  float ambient;
  float diffuse;
  float specular;
  float weightSum;
};

// The sum the shaded colour is divided by, (ambient + diffuse) + specular in float: 0 when all
// three weights are 0, and then every component is 0 / 0 and its byte 0.
inline float PhongWeightSum(float ambient, float diffuse, float specular) {
  return (ambient + diffuse) + specular;
}

// The shaded colour of one entry before it becomes bytes, every step a float operation of the
// platform vector in this order.
inline KivVector3d PhongShade(const KivVector3d& point, const KivVector3d& normal,
                              const KivVector3d& base, const PhongTerms& terms) {
  const KivVector3d zero(0.0f, 0.0f, 0.0f);
  const KivVector3d toLight = (terms.light - point).Normalized();
  const KivVector3d toEye = (terms.eye - point).Normalized();
  const KivVector3d incident = zero - toLight;
  // The cosine's absolute value is taken in double and narrowed back.
  const float cosine = static_cast<float>(std::fabs(static_cast<double>(incident.Dot(normal))));
  const KivVector3d diffuse = base * cosine;
  const KivVector3d reflected = incident - (normal * normal.Dot(incident)) * 2.0f;
  const float alignment = toEye.Dot(reflected);
  // Below 0 the eye is behind the reflection: pow(0, 8). Otherwise, NaN included, the power of the
  // alignment in double; reflecting again would give the same vector, so it is reused.
  const double power =
      alignment < 0.0f ? std::pow(0.0, 8.0) : std::pow(static_cast<double>(alignment), 8.0);
  const KivVector3d specular = terms.lightColour * NarrowToFloat(power);
  return (((base * terms.ambient) + (diffuse * terms.diffuse)) + (specular * terms.specular)) *
         terms.gain / terms.weightSum;
}

// The bytes of a shaded colour: each component truncated toward zero to 64 bits, low 8 bits. A
// gain above 1 can push a component past 255; it wraps (400 gives 144). A non-finite one gives 0.
inline void StoreShadedColour(const KivVector3d& shaded, uint8_t* out) {
  out[0] = numeric::TruncateToLowByte(shaded.X());
  out[1] = numeric::TruncateToLowByte(shaded.Y());
  out[2] = numeric::TruncateToLowByte(shaded.Z());
}

// One entry: base colour bytes 0, 1, 2 as floats, shaded, stored into bytes 0, 1, 2 of `out`.
inline void ShadePhongEntry(const KivVector3d& point, const KivVector3d& normal,
                            const uint8_t* base, const PhongTerms& terms, uint8_t* out) {
  const KivVector3d colour(static_cast<float>(base[0]), static_cast<float>(base[1]),
                           static_cast<float>(base[2]));
  StoreShadedColour(PhongShade(point, normal, colour, terms), out);
}

// Read-only vectors that a body and all its split copies share: a copy takes the handle, not the
// vectors, so splitting a body costs a reference count instead of two frame-sized copies.
class SharedVectors {
 public:
  SharedVectors() = default;
  explicit SharedVectors(KivVector3dArray&& vectors)
      : vectors_(std::make_shared<const KivVector3dArray>(std::move(vectors))) {}

  int Length() const { return vectors_ ? vectors_->Length() : 0; }
  // The first vector; nullptr when there are none.
  const KivVector3d* Data() const { return Length() > 0 ? &(*vectors_)[0] : nullptr; }

 private:
  std::shared_ptr<const KivVector3dArray> vectors_;
};

// The parallel body: the base colours, the output, its own point grid and normals, the four
// coefficients, the light and eye positions, the channel count and the light's colour (255, 255,
// 255). A split copies every member; with SharedVectors the grid and normals are shared. The join
// has nothing to combine: each body writes only the entries of its own ranges.
template <typename ColourArray, typename Vectors = SharedVectors>
class PhongLightingModelTBB {
 public:
  PhongLightingModelTBB(const ColourArray* base, ColourArray* out, Vectors points, Vectors normals,
                        float coefA, float coefB, float coefC, float coefD,
                        const KivVector3d& light, const KivVector3d& eye, int channels)
      : base_(base),
        out_(out),
        points_(std::move(points)),
        normals_(std::move(normals)),
        coefA_(coefA),
        coefB_(coefB),
        coefC_(coefC),
        coefD_(coefD),
        light_(light),
        eye_(eye),
        channels_(channels) {}

  PhongLightingModelTBB(PhongLightingModelTBB& other, tbb::split)
      : PhongLightingModelTBB(static_cast<const PhongLightingModelTBB&>(other)) {}
  PhongLightingModelTBB(const PhongLightingModelTBB&) = default;

  void operator()(const tbb::blocked_range<int>& range) {
    const PhongTerms terms{light_, eye_,   lightColour_, coefA_,
                           coefB_, coefC_, coefD_,       PhongWeightSum(coefB_, coefC_, coefD_)};
    const uint8_t* base = base_->Data();
    uint8_t* out = out_->Data();
    const KivVector3d* points = points_.Data();
    const KivVector3d* normals = normals_.Data();
    const size_t stride = static_cast<size_t>(channels_);
    for (int i = range.begin(); i < range.end(); ++i) {
      const size_t entry = static_cast<size_t>(i);
      ShadePhongEntry(points[entry], normals[entry], base + entry * stride, terms,
                      out + entry * stride);
    }
  }

  void join(const PhongLightingModelTBB&) {}

 private:
  const ColourArray* base_;
  ColourArray* out_;
  Vectors points_;
  Vectors normals_;
  float coefA_;
  float coefB_;
  float coefC_;
  float coefD_;
  KivVector3d light_;
  KivVector3d eye_;
  int channels_;
  KivVector3d lightColour_{255.0f, 255.0f, 255.0f};
};

// Shades the base.Length() entries of `base` into `out` (already sized like `base`) with a
// parallel reduction over grain PhongGrain(length, workers). Throws std::length_error when the
// point grid or the normals hold fewer entries than `base`, or either colour array fewer than 3
// bytes an entry, instead of reading or writing past them.
template <typename Vectors>
void LightEntries(const KivColorArray& base, KivColorArray& out, Vectors points, Vectors normals,
                  float coefA, float coefB, float coefC, float coefD, const KivVector3d& light,
                  const KivVector3d& eye, int workers) {
  const int n = base.Length();
  const int channels = base.Channel();
  if (points.Length() < n || normals.Length() < n || channels < 3 || out.Channel() != channels ||
      out.Length() < n) {
    throw std::length_error("Phong lighting: inputs shorter than the base colours");
  }
  if (n < 1) return;
  PhongLightingModelTBB<KivColorArray, Vectors> body(&base, &out, std::move(points),
                                                     std::move(normals), coefA, coefB, coefC, coefD,
                                                     light, eye, channels);
  tbb::parallel_reduce(tbb::blocked_range<int>(0, n, PhongGrain(n, workers)), body,
                       tbb::auto_partitioner());
}

// The Phong shading behind SetColorNormalMap on a range image, once the method's argument checks
// have passed: point grid, ComputeNormals (a non-zero status is returned unchanged), the base
// colours of the public ColorMapLUT(img, mode, &base) (a non-zero status is returned unchanged),
// the output sized with SetSize(base width, base height, base channels), the worker count read
// from the configuration service, and the lighting loop. A null output, or an exception while it
// is sized: LUT_ERR_OUTPUT_FAILED. An exception while the grid is built or the lighting runs:
// LUT_ERR_NORMAL_MAP_FAILED.
long ShadeRangeImage(KivRangeImage& image, const KivVector3d& light, const KivVector3d& eye,
                     int mode, float coefA, float coefB, float coefC, float coefD,
                     KivColorArray* out);

}  // namespace KIVMV
