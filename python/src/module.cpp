// The extension module behind the package kivlut: the error type, the five-point record, the
// faithful layer (RangeImage, LUTSetting) and the pythonic layer.
#include <pybind11/eval.h>
#include <pybind11/pybind11.h>

#include "KivLUTStatus.h"
#include "lut_setting_bindings.h"
#include "pythonic_layer.h"
#include "range_image_handle.h"

namespace kivlut_python {

namespace {

using KIVMV::LinearColorMapLUT_Para;
using namespace pybind11::literals;

constexpr const char* kLutErrorSource = R"py(
class LUTError(Exception):
    """A method refused its input or failed: `status` is the library's status code, `name` the
    constant's name (KivLUTStatusName, or KivExtStatusName for the pythonic layer)."""

    def __init__(self, status, name):
        super().__init__(f"{name} ({status})")
        self.status = status
        self.name = name

    def __reduce__(self):
        return (type(self), (self.status, self.name))
)py";

// The exception type lives as long as the interpreter: the module holds it, and so does this handle
// for the translator, which has no module at hand.
py::handle g_lut_error;

void BindLutError(py::module_& module) {
  py::dict scope;
  scope["__builtins__"] = py::module_::import("builtins");
  scope["__name__"] = "kivlut";
  py::exec(kLutErrorSource, scope);
  py::object type = scope["LUTError"];
  module.attr("LUTError") = type;
  g_lut_error = type.inc_ref();
  py::register_exception_translator([](std::exception_ptr error) {
    try {
      if (error) {
        std::rethrow_exception(error);
      }
    } catch (const StatusError& failure) {
      const py::object exception =
          py::reinterpret_borrow<py::object>(g_lut_error)(failure.status, failure.name);
      PyErr_SetObject(g_lut_error.ptr(), exception.ptr());
    }
  });
}

std::string ParaRepr(const LinearColorMapLUT_Para& p) {
  return py::str(
             "kivlut.LinearColorMapLUT_Para(value0={!r}, value1={!r}, value2={!r}, "
             "value3={!r}, value4={!r}, index0={}, index1={}, index2={}, index3={}, "
             "index4={})")
      .format(p.value0, p.value1, p.value2, p.value3, p.value4, p.index0, p.index1, p.index2,
              p.index3, p.index4)
      .cast<std::string>();
}

void BindPara(py::module_& module) {
  py::class_<LinearColorMapLUT_Para>(
      module, "LinearColorMapLUT_Para",
      "The five-point scale: break values value0..value4 (ascending) and the entries\n"
      "index0..index4 (0..1023, ascending) of the 1024-entry table they map to.")
      .def(py::init([](double value0, double value1, double value2, double value3, double value4,
                       int32_t index0, int32_t index1, int32_t index2, int32_t index3,
                       int32_t index4) {
             return LinearColorMapLUT_Para{value0, value1, value2, value3, value4,
                                           index0, index1, index2, index3, index4};
           }),
           "value0"_a = 0.0, "value1"_a = 0.0, "value2"_a = 0.0, "value3"_a = 0.0, "value4"_a = 0.0,
           "index0"_a = 0, "index1"_a = 0, "index2"_a = 0, "index3"_a = 0, "index4"_a = 0)
      .def_readwrite("value0", &LinearColorMapLUT_Para::value0)
      .def_readwrite("value1", &LinearColorMapLUT_Para::value1)
      .def_readwrite("value2", &LinearColorMapLUT_Para::value2)
      .def_readwrite("value3", &LinearColorMapLUT_Para::value3)
      .def_readwrite("value4", &LinearColorMapLUT_Para::value4)
      .def_readwrite("index0", &LinearColorMapLUT_Para::index0)
      .def_readwrite("index1", &LinearColorMapLUT_Para::index1)
      .def_readwrite("index2", &LinearColorMapLUT_Para::index2)
      .def_readwrite("index3", &LinearColorMapLUT_Para::index3)
      .def_readwrite("index4", &LinearColorMapLUT_Para::index4)
      .def("__repr__", &ParaRepr);
}

constexpr const char* kLutSettingDoc = R"(KivLUTSetting: colour pictures from measurement data.

Every method of the C++ class under its name in snake_case, with the same bytes, statuses and
quirks. Colours come back blue first, as the library stores them (as in cv2). A status other than
LUT_OK raises kivlut.LUTError; an array of a dtype no form takes raises TypeError, a wrong number
of dimensions ValueError, both naming the argument. The GIL is released while a method runs.

Colours given (below, above, under_color, over_color) are KivColor values: 3- or 4-tuples of
ints in component order (c0, c1, c2[, c3]). The methods that write "components 2, 1, 0 in bytes
0, 1, 2" store c2 as blue and c0 as red, so pass such a colour as (red, green, blue).)";

}  // namespace

}  // namespace kivlut_python

PYBIND11_MODULE(_kivlut, module) {
  using namespace kivlut_python;
  module.doc() =
      "KivLUTSetting for numpy: colour pictures from range images, grey images and arrays.";
  module.attr("LUT_OK") = KIVMV::LUT_OK;
  BindLutError(module);
  BindPara(module);
  BindRangeImage(module);
  LutSettingClass lut(module, "LUTSetting", kLutSettingDoc);
  lut.def(py::init<>());
  BindRangeMethods(lut);
  BindImageMethods(lut);
  BindPythonicLayer(module);
}
