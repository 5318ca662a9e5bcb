#ifndef KIVMV_KIV_COLOR_H_
#define KIVMV_KIV_COLOR_H_

#include <cassert>
#include <type_traits>

#include "KivPlatformExport.h"

namespace KIVMV {

// Four int components; 0, 1, 2 are blue, green, red, 3 is free (usually alpha or unused).
class KIVMV_PLATFORM_API KivColor {
 public:
  KivColor() = default;
  KivColor(int c0, int c1, int c2, int c3 = 0) : c_{c0, c1, c2, c3} {}

  int& operator[](int i) {
    assert(i >= 0 && i < 4);
    return c_[i];
  }
  const int& operator[](int i) const {
    assert(i >= 0 && i < 4);
    return c_[i];
  }

  friend bool operator==(const KivColor& a, const KivColor& b) {
    return a.c_[0] == b.c_[0] && a.c_[1] == b.c_[1] && a.c_[2] == b.c_[2] && a.c_[3] == b.c_[3];
  }
  friend bool operator!=(const KivColor& a, const KivColor& b) { return !(a == b); }

 private:
  int c_[4] = {0, 0, 0, 0};
};

// Colour tables are stored and exchanged as packed arrays of four ints.
static_assert(sizeof(int) == 4, "KivColor components are 32-bit");
static_assert(sizeof(KivColor) == 16, "KivColor must be exactly four ints");
static_assert(std::is_standard_layout<KivColor>::value, "KivColor must be standard layout");

}  // namespace KIVMV

#endif  // KIVMV_KIV_COLOR_H_
