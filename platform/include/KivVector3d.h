#ifndef KIVMV_KIV_VECTOR3D_H_
#define KIVMV_KIV_VECTOR3D_H_

#include <type_traits>
#include <vector>

#include "KivPlatformExport.h"

namespace KIVMV {

// A single-precision 3-vector. Every operation is component by component in float with a fixed
// evaluation order; the arithmetic is compiled out of line in the platform library (built without
// FMA contraction) so results are bit-identical whatever flags the caller uses.
class KIVMV_PLATFORM_API KivVector3d {
 public:
  KivVector3d() = default;
  KivVector3d(float x, float y, float z) : x_(x), y_(y), z_(z) {}

  float X() const { return x_; }
  float Y() const { return y_; }
  float Z() const { return z_; }

  KivVector3d operator+(const KivVector3d& o) const;
  KivVector3d operator-(const KivVector3d& o) const;
  KivVector3d operator*(float s) const;
  KivVector3d operator/(float s) const;

  // Exact comparison per component, so a NaN component never compares equal.
  bool operator==(const KivVector3d& o) const;
  bool operator!=(const KivVector3d& o) const { return !(*this == o); }

  // (x*o.x + y*o.y) + z*o.z, each step rounded to float.
  float Dot(const KivVector3d& o) const;
  // Each component divided by sqrt(Dot(*this)) in float; a zero vector gives NaN components.
  KivVector3d Normalized() const;

 private:
  float x_ = 0.0f;
  float y_ = 0.0f;
  float z_ = 0.0f;
};

// Arrays of vectors are handed around as interleaved x, y, z floats.
static_assert(sizeof(KivVector3d) == 3 * sizeof(float), "KivVector3d must be three packed floats");
static_assert(std::is_standard_layout<KivVector3d>::value, "KivVector3d must be standard layout");
static_assert(std::is_trivially_copyable<KivVector3d>::value,
              "KivVector3d must be trivially copyable");

// A resizable array of vectors. Unlike the cv::Mat based containers, copies are independent.
class KIVMV_PLATFORM_API KivVector3dArray {
 public:
  // Resizes to length zero vectors (existing elements are discarded); throws
  // std::invalid_argument for a negative length.
  void SetSize(int length);
  int Length() const { return static_cast<int>(v_.size()); }

  KivVector3d& operator[](int i) { return v_[static_cast<std::size_t>(i)]; }
  const KivVector3d& operator[](int i) const { return v_[static_cast<std::size_t>(i)]; }

  // Interleaved x, y, z of all elements; nullptr when empty.
  float* Data() const;

 private:
  std::vector<KivVector3d> v_;
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_VECTOR3D_H_
