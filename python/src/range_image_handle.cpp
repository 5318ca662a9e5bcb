#include "range_image_handle.h"

#include <pybind11/stl.h>

#include "numpy_views.h"

namespace kivlut_python {

KIVMV::KivDataType PixelTypeOf(const py::array& pixels, const char* argument) {
  if (HoldsType<uint8_t>(pixels)) return KIVMV::KIV_DATA_U8;
  if (HoldsType<int8_t>(pixels)) return KIVMV::KIV_DATA_S8;
  if (HoldsType<uint16_t>(pixels)) return KIVMV::KIV_DATA_U16;
  if (HoldsType<int16_t>(pixels)) return KIVMV::KIV_DATA_S16;
  if (HoldsType<int32_t>(pixels)) return KIVMV::KIV_DATA_S32;
  if (HoldsType<float>(pixels)) return KIVMV::KIV_DATA_F32;
  if (HoldsType<double>(pixels)) return KIVMV::KIV_DATA_F64;
  throw py::type_error(std::string("argument '") + argument +
                       "' must be a 2-D array of uint8, int8, uint16, int16, int32, float32 or "
                       "float64, not " +
                       py::str(pixels.dtype()).cast<std::string>());
}

KIVMV::KivRangeImage RangeImageView(const py::array& pixels, const char* argument,
                                    py::array* keepAlive) {
  const KIVMV::KivDataType type = PixelTypeOf(pixels, argument);
  RequireDimensions(pixels, 2, argument);
  RequireIntCount(pixels, argument);
  const int height = DimensionAsInt(pixels, 0, argument);
  const int width = DimensionAsInt(pixels, 1, argument);
  *keepAlive = CContiguous(pixels);
  // The platform's image records its size apart from its matrix, so it is made at the right size
  // (a zero-filled buffer of its own) and then pointed at the array's pixels.
  KIVMV::KivRangeImage image(width, height, type);
  if (width > 0 && height > 0) {
    image.Mat() =
        cv::Mat(height, width, CV_MAKETYPE(static_cast<int>(type), 1), BytesOf(*keepAlive));
  }
  return image;
}

RangeImageHandle::RangeImageHandle(const py::array& pixels, const std::array<double, 3>& resolution,
                                   const std::array<double, 3>& offset, int type)
    : image_(RangeImageView(pixels, "array", &pixels_)) {
  image_.SetResolution(resolution[0], resolution[1], resolution[2]);
  image_.SetOffset(offset[0], offset[1], offset[2]);
  image_.SetType(type);
}

namespace {

constexpr const char* kRangeImageDoc = R"(A range (height) image over a numpy array's pixels.

RangeImage(array, resolution=(1.0, 1.0, 1.0), offset=(0.0, 0.0, 0.0), type=0)

array: 2-D uint8, int8, uint16, int16, int32, float32 or float64 (rows = height). A C-contiguous
    array is wrapped without a copy: the image sees later changes to it, and keeps it alive.
    Any other array is copied once.
resolution: (x, y, z) scale of columns, rows and raw heights; for the integer types a height is
    raw x resolution z + offset z, and the bounds the methods take are heights.
offset: (x, y, z) offsets of columns, rows and heights.
type: the image's type tag; the methods take 0 and 1 and refuse any other.

No-data: 0 for the integer types, NaN, infinities and -FLT_MAX for float32 and float64.)";

}  // namespace

void BindRangeImage(py::module_& module) {
  py::class_<RangeImageHandle>(module, "RangeImage", kRangeImageDoc)
      .def(py::init([](const py::object& array, const std::array<double, 3>& resolution,
                       const std::array<double, 3>& offset, int type) {
             const py::array pixels = RequireArray(
                 array, "array",
                 "a 2-D numpy array of uint8, int8, uint16, int16, int32, float32 or float64");
             return RangeImageHandle(pixels, resolution, offset, type);
           }),
           py::arg("array"), py::arg("resolution") = std::array<double, 3>{1.0, 1.0, 1.0},
           py::arg("offset") = std::array<double, 3>{0.0, 0.0, 0.0}, py::arg("type") = 0)
      .def_property_readonly(
          "array", [](const RangeImageHandle& self) { return self.Pixels(); },
          "The pixels, as the numpy array the image reads (the caller's own when it was wrapped).")
      .def_property_readonly("width",
                             [](const RangeImageHandle& self) { return self.Image().Width(); })
      .def_property_readonly("height",
                             [](const RangeImageHandle& self) { return self.Image().Height(); })
      .def_property_readonly("dtype",
                             [](const RangeImageHandle& self) { return self.Pixels().dtype(); })
      .def_property_readonly("resolution",
                             [](const RangeImageHandle& self) {
                               const KIVMV::KivRangeImage& image = self.Image();
                               return py::make_tuple(image.ResolutionX(), image.ResolutionY(),
                                                     image.ResolutionZ());
                             })
      .def_property_readonly("offset",
                             [](const RangeImageHandle& self) {
                               const KIVMV::KivRangeImage& image = self.Image();
                               return py::make_tuple(image.OffsetX(), image.OffsetY(),
                                                     image.OffsetZ());
                             })
      .def_property(
          "type", [](const RangeImageHandle& self) { return self.Image().Type(); },
          [](RangeImageHandle& self, int type) { self.Image().SetType(type); },
          "The image's type tag (0 or 1 for the methods to take it).")
      .def("__repr__", [](const RangeImageHandle& self) {
        const KIVMV::KivRangeImage& image = self.Image();
        return "kivlut.RangeImage(" + std::to_string(image.Width()) + " x " +
               std::to_string(image.Height()) + ", " +
               py::str(self.Pixels().dtype()).cast<std::string>() + ")";
      });
}

}  // namespace kivlut_python
