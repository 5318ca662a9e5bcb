#include <cmath>
#include <stdexcept>

#include "KivVar.h"

namespace KIVMV {

int KivVar::ToInt() const {
  if (kind_ == Kind::kInt) return int_;
  if (kind_ == Kind::kDouble) {
    // Converting a double whose truncation is outside int range is UB; report 0 instead.
    const double t = std::trunc(double_);
    if (!(t >= -2147483648.0 && t <= 2147483647.0)) return 0;  // NaN fails both comparisons.
    return static_cast<int>(t);
  }
  return 0;
}

double KivVar::ToDouble() const {
  if (kind_ == Kind::kInt) return static_cast<double>(int_);
  if (kind_ == Kind::kDouble) return double_;
  return 0.0;
}

KivImage KivVar::ToImage() const { return kind_ == Kind::kImage ? image_ : KivImage(); }

const KivVar& KivVarArray::operator[](int i) const {
  if (i < 0 || i >= Length()) throw std::out_of_range("KivVarArray: index out of range");
  return values_[static_cast<std::size_t>(i)];
}

}  // namespace KIVMV
