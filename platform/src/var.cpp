#include <cmath>
#include <stdexcept>

#include "KivVar.h"

namespace KIVMV {

int KivVar::ToInt() const {
  if (const int* i = std::get_if<int>(&value_)) return *i;
  if (const double* d = std::get_if<double>(&value_)) {
    // Converting a double whose truncation is outside int range is UB; report 0 instead.
    const double t = std::trunc(*d);
    if (!(t >= -2147483648.0 && t <= 2147483647.0)) return 0;  // NaN fails both comparisons.
    return static_cast<int>(t);
  }
  return 0;
}

double KivVar::ToDouble() const {
  if (const int* i = std::get_if<int>(&value_)) return static_cast<double>(*i);
  if (const double* d = std::get_if<double>(&value_)) return *d;
  return 0.0;
}

const KivVar& KivVarArray::operator[](int i) const {
  if (i < 0 || i >= Length()) throw std::out_of_range("KivVarArray: index out of range");
  return values_[static_cast<std::size_t>(i)];
}

}  // namespace KIVMV
