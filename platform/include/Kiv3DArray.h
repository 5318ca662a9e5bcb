#ifndef KIVMV_KIV_3D_ARRAY_H_
#define KIVMV_KIV_3D_ARRAY_H_

#include <cassert>
#include <cfloat>
#include <cmath>
#include <opencv2/core.hpp>

#include "KivPlatformExport.h"

namespace KIVMV {

// A float measurement is invalid when it is the -FLT_MAX "no data" marker or not finite.
inline bool IsValidFloatMeasurement(float v) {
  // The distance is taken in single precision on purpose: that is how stored data was flagged.
  const float distance = std::fabs(static_cast<float>(v - (-FLT_MAX)));
  return !(1e-8 > static_cast<double>(distance)) && std::isfinite(static_cast<double>(v));
}

// A flat array of floats in a 1 x Length() CV_32F matrix. Length() is read from the matrix.
// Copies share the elements like cv::Mat; use DeepCopy() for an independent array.
class KIVMV_PLATFORM_API Kiv3DFloatArray {
 public:
  // Length 0, but already a CV_32F matrix.
  Kiv3DFloatArray() : Kiv3DFloatArray(0) {}
  // Zero-filled; throws std::invalid_argument for a negative length.
  explicit Kiv3DFloatArray(int length);

  Kiv3DFloatArray(const Kiv3DFloatArray&) = default;
  Kiv3DFloatArray& operator=(const Kiv3DFloatArray&) = default;
  Kiv3DFloatArray(Kiv3DFloatArray&&) noexcept = default;
  Kiv3DFloatArray& operator=(Kiv3DFloatArray&&) noexcept = default;
  ~Kiv3DFloatArray() = default;

  Kiv3DFloatArray DeepCopy() const;

  int Length() const { return static_cast<int>(mat_.total()); }
  // First element, nullptr when empty.
  float* Data() const { return reinterpret_cast<float*>(mat_.data); }
  // Unchecked in release builds: this sits in per-point loops.
  float& operator[](int i) {
    assert(i >= 0 && i < Length());
    return Data()[i];
  }
  const float& operator[](int i) const {
    assert(i >= 0 && i < Length());
    return Data()[i];
  }
  // False for an index outside [0, Length()), otherwise IsValidFloatMeasurement(element).
  bool IsValid(int index) const {
    return index >= 0 && index < Length() && IsValidFloatMeasurement(Data()[index]);
  }

  cv::Mat& Mat() { return mat_; }
  const cv::Mat& Mat() const { return mat_; }

 private:
  cv::Mat mat_;
};

// A flat array of 32-bit ints in a 1 x Length() CV_32S matrix; same sharing rules as above.
class KIVMV_PLATFORM_API Kiv3DIntArray {
 public:
  Kiv3DIntArray() : Kiv3DIntArray(0) {}
  // Zero-filled; throws std::invalid_argument for a negative length.
  explicit Kiv3DIntArray(int length);

  Kiv3DIntArray(const Kiv3DIntArray&) = default;
  Kiv3DIntArray& operator=(const Kiv3DIntArray&) = default;
  Kiv3DIntArray(Kiv3DIntArray&&) noexcept = default;
  Kiv3DIntArray& operator=(Kiv3DIntArray&&) noexcept = default;
  ~Kiv3DIntArray() = default;

  Kiv3DIntArray DeepCopy() const;

  int Length() const { return static_cast<int>(mat_.total()); }
  int* Data() const { return reinterpret_cast<int*>(mat_.data); }
  int& operator[](int index) {
    assert(index >= 0 && index < Length());
    return Data()[index];
  }
  const int& operator[](int index) const {
    assert(index >= 0 && index < Length());
    return Data()[index];
  }

  cv::Mat& Mat() { return mat_; }
  const cv::Mat& Mat() const { return mat_; }

 private:
  cv::Mat mat_;
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_3D_ARRAY_H_
