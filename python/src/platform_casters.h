// KivColor and KivVector3d as Python tuples: a colour is a 3- or 4-tuple of ints in component
// order (component 0 first), a vector a 3-tuple of floats. Any sequence is taken, a string is not;
// a sequence of another length is a ValueError whichever form of a method was meant, as no form
// takes a sequence of that length there.
#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "KivPlatform.h"

namespace pybind11 {
namespace detail {

template <>
struct type_caster<KIVMV::KivColor> {
  PYBIND11_TYPE_CASTER(KIVMV::KivColor,
                       const_name("tuple[int, int, int] | tuple[int, int, int, int]"));

  bool load(handle source, bool convert) {
    if (!isinstance<sequence>(source) || isinstance<str>(source) || isinstance<bytes>(source)) {
      return false;
    }
    const auto components = reinterpret_borrow<sequence>(source);
    if (components.size() != 3 && components.size() != 4) {
      throw value_error("a colour (KivColor) is a 3- or 4-tuple of ints, not " +
                        std::to_string(components.size()) + " values");
    }
    int c[4] = {0, 0, 0, 0};
    for (size_t i = 0; i < components.size(); ++i) {
      make_caster<int> component;
      if (!component.load(components[i], convert)) {
        return false;
      }
      c[i] = cast_op<int>(component);
    }
    value = KIVMV::KivColor(c[0], c[1], c[2], c[3]);
    return true;
  }

  static handle cast(const KIVMV::KivColor& colour, return_value_policy, handle) {
    return make_tuple(colour[0], colour[1], colour[2], colour[3]).release();
  }
};

template <>
struct type_caster<KIVMV::KivVector3d> {
  PYBIND11_TYPE_CASTER(KIVMV::KivVector3d, const_name("tuple[float, float, float]"));

  bool load(handle source, bool convert) {
    if (!isinstance<sequence>(source) || isinstance<str>(source) || isinstance<bytes>(source)) {
      return false;
    }
    const auto components = reinterpret_borrow<sequence>(source);
    if (components.size() != 3) {
      throw value_error("a vector (KivVector3d) is a 3-tuple of floats, not " +
                        std::to_string(components.size()) + " values");
    }
    float xyz[3] = {0.0f, 0.0f, 0.0f};
    for (size_t i = 0; i < 3; ++i) {
      make_caster<float> component;
      if (!component.load(components[i], convert)) {
        return false;
      }
      xyz[i] = cast_op<float>(component);
    }
    value = KIVMV::KivVector3d(xyz[0], xyz[1], xyz[2]);
    return true;
  }

  static handle cast(const KIVMV::KivVector3d& vector, return_value_policy, handle) {
    return make_tuple(vector.X(), vector.Y(), vector.Z()).release();
  }
};

}  // namespace detail
}  // namespace pybind11
