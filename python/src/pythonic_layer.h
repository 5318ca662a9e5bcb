// The pythonic layer on the colourings of KivColoring.h and the colour bars of KivColorBar.h:
// kivlut.colorize, colorbar, attach_colorbar, cmaps, read_image and write_image, RGB on the
// Python side as matplotlib and PIL take it.
#pragma once

#include <pybind11/pybind11.h>

namespace kivlut_python {

void BindPythonicLayer(pybind11::module_& module);

}  // namespace kivlut_python
