// The faithful layer: kivlut.LUTSetting, every method of KivLUTSetting under its name in
// snake_case, the overloads told apart by their arguments as in C++, the output returned.
#pragma once

#include <pybind11/pybind11.h>

#include <utility>

#include "KivLUTSetting.h"
#include "numpy_views.h"

namespace kivlut_python {

using LutSettingClass = py::class_<KIVMV::KivLUTSetting>;

// The methods on range images (ColorMapLUT, LinearColorMapLUT, the image forms of the shading).
void BindRangeMethods(LutSettingClass& lut);
// GetColor, the methods on grey images and flat arrays, the normal map of normals, ColorBlend.
void BindImageMethods(LutSettingClass& lut);

// Runs a library call that returns a KivLUTSetting status with the GIL released, so other Python
// threads run meanwhile; raises kivlut.LUTError for a failing status.
template <typename Call>
void CallReleased(Call&& call) {
  long status;
  {
    py::gil_scoped_release release;
    status = std::forward<Call>(call)();
  }
  ThrowOnLutStatus(status);
}

}  // namespace kivlut_python
