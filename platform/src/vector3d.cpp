#include <cmath>
#include <stdexcept>

#include "KivVector3d.h"

namespace KIVMV {

KivVector3d KivVector3d::operator+(const KivVector3d& o) const {
  return KivVector3d(x_ + o.x_, y_ + o.y_, z_ + o.z_);
}

KivVector3d KivVector3d::operator-(const KivVector3d& o) const {
  return KivVector3d(x_ - o.x_, y_ - o.y_, z_ - o.z_);
}

KivVector3d KivVector3d::operator*(float s) const { return KivVector3d(x_ * s, y_ * s, z_ * s); }

KivVector3d KivVector3d::operator/(float s) const { return KivVector3d(x_ / s, y_ / s, z_ / s); }

bool KivVector3d::operator==(const KivVector3d& o) const {
  return x_ == o.x_ && y_ == o.y_ && z_ == o.z_;
}

float KivVector3d::Dot(const KivVector3d& o) const {
  // Named float temporaries pin both the rounding of every step and the order of the sums.
  const float xx = x_ * o.x_;
  const float yy = y_ * o.y_;
  const float zz = z_ * o.z_;
  const float xy = xx + yy;
  return xy + zz;
}

KivVector3d KivVector3d::Normalized() const {
  const float length = std::sqrt(Dot(*this));
  return KivVector3d(x_ / length, y_ / length, z_ / length);
}

void KivVector3dArray::SetSize(int length) {
  if (length < 0) throw std::invalid_argument("KivVector3dArray: length must not be negative");
  // assign() rather than resize() so every element is a zero vector, old ones included.
  v_.assign(static_cast<std::size_t>(length), KivVector3d());
}

float* KivVector3dArray::Data() const {
  if (v_.empty()) return nullptr;
  // Elements are three packed floats (see the static_asserts), so the storage reads as x, y, z...
  // The array is logically const; handing out a mutable pointer mirrors the other containers.
  return const_cast<float*>(reinterpret_cast<const float*>(v_.data()));
}

}  // namespace KIVMV
