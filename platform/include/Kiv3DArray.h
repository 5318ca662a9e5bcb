#ifndef KIVMV_KIV_3D_ARRAY_H_
#define KIVMV_KIV_3D_ARRAY_H_

#include <cassert>
#include <cfloat>
#include <cmath>

#include "KivMatMember.h"
#include "KivPlatformExport.h"

namespace KIVMV {

// A float measurement is invalid when it is the -FLT_MAX "no data" marker or not finite.
inline bool IsValidFloatMeasurement(float v) {
  // The distance is taken in single precision on purpose: that is how stored data was flagged.
  const float distance = std::fabs(static_cast<float>(v - (-FLT_MAX)));
  return !(1e-8 > static_cast<double>(distance)) && std::isfinite(static_cast<double>(v));
}

namespace platform_detail {

// What the two flat arrays below share: a 1 x Length() matrix of T, and access to its elements.
template <typename T>
class KIVMV_PLATFORM_API FlatArray {
 public:
  int Length() const { return static_cast<int>(mat_.total()); }
  // First element, nullptr when empty.
  T* Data() const { return reinterpret_cast<T*>(mat_.data); }
  // Unchecked in release builds: this sits in per-point loops.
  T& operator[](int i) {
    assert(i >= 0 && i < Length());
    return Data()[i];
  }
  const T& operator[](int i) const {
    assert(i >= 0 && i < Length());
    return Data()[i];
  }

  cv::Mat& Mat() { return mat_; }
  const cv::Mat& Mat() const { return mat_; }

 protected:
  explicit FlatArray(const cv::Mat& mat) : mat_(mat) {}

 private:
  MatMember mat_;
};

}  // namespace platform_detail

// A flat array of floats in a 1 x Length() CV_32F matrix. Length() is read from the matrix.
// Copies share the elements like cv::Mat; use DeepCopy() for an independent array.
class KIVMV_PLATFORM_API Kiv3DFloatArray : public platform_detail::FlatArray<float> {
 public:
  // Length 0, but already a CV_32F matrix.
  Kiv3DFloatArray() : Kiv3DFloatArray(0) {}
  // Zero-filled; throws std::invalid_argument for a negative length.
  explicit Kiv3DFloatArray(int length);

  Kiv3DFloatArray DeepCopy() const;

  // False for an index outside [0, Length()), otherwise IsValidFloatMeasurement(element).
  bool IsValid(int index) const {
    return index >= 0 && index < Length() && IsValidFloatMeasurement(Data()[index]);
  }
};

// A flat array of 32-bit ints in a 1 x Length() CV_32S matrix; same sharing rules as above.
class KIVMV_PLATFORM_API Kiv3DIntArray : public platform_detail::FlatArray<int> {
 public:
  Kiv3DIntArray() : Kiv3DIntArray(0) {}
  // Zero-filled; throws std::invalid_argument for a negative length.
  explicit Kiv3DIntArray(int length);

  Kiv3DIntArray DeepCopy() const;
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_3D_ARRAY_H_
