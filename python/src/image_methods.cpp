// LUTSetting's methods on single values, grey images, flat arrays, normals and colour arrays.
#include "lut_setting_bindings.h"
#include "platform_casters.h"

namespace kivlut_python {

namespace {

using KIVMV::KivColor;
using KIVMV::KivColorArray;
using KIVMV::KivLUTSetting;
using namespace pybind11::literals;

void BindGetColor(LutSettingClass& lut) {
  lut.def(
      "get_color",
      [](KivLUTSetting& self, double value, int map_type) {
        KivColor colour;
        CallReleased([&] { return self.GetColor(value, map_type, &colour); });
        return py::make_tuple(colour[0], colour[1], colour[2]);
      },
      "value"_a, "map_type"_a,
      "GetColor(value, mapType, out): the colour at `value` in [0, 1] as (c0, c1, c2) = (blue,\n"
      "green, red); the table entry is value x 255 truncated.");
}

void BindGreyImages(LutSettingClass& lut) {
  lut.def(
      "linear_set_color_lut",
      [](KivLUTSetting& self, const py::array& grey_array, int map_type) {
        py::array keepAlive;
        KIVMV::KivImage grey = GreyImageView(grey_array, "grey", &keepAlive);
        KIVMV::KivImage dst;
        CallReleased([&] { return self.LinearSetColorLUT(grey, &dst, map_type); });
        return ImageAsArray(dst);
      },
      "grey"_a.noconvert(), "map_type"_a,
      "LinearSetColorLUT(src, dst, mapType) on a 2-D uint8 or uint16 grey image: 8-bit levels\n"
      "index the table, 16-bit images are stretched between their minimum and maximum. Returns\n"
      "(H, W, 3) blue first, or (H, W) grey under maps 0 and 7..10.");
  lut.def(
      "set_color_lut",
      [](KivLUTSetting& self, const py::array& grey_array, int map_type) {
        py::array keepAlive;
        KIVMV::KivImage grey = GreyImageView(grey_array, "grey", &keepAlive);
        KIVMV::KivImage dst;
        CallReleased([&] { return self.SetColorLUT(grey, &dst, map_type); });
        return ImageAsArray(dst);
      },
      "grey"_a.noconvert(), "map_type"_a,
      "SetColorLUT(src, dst, mapType) on a 2-D uint8 or uint16 grey image: histogram-equalised\n"
      "between the valid (non-zero) minimum and maximum. Returns (H, W, 3) or (H, W).");
  lut.def(
      "set_color_lut",
      [](KivLUTSetting& self, const py::array& grey_array, int map_type, int low, int high,
         int index_low, int index_high, KivColor below, KivColor above) {
        py::array keepAlive;
        KIVMV::KivImage grey = GreyImageView(grey_array, "grey", &keepAlive);
        KIVMV::KivImage dst;
        CallReleased([&] {
          return self.SetColorLUT(grey, &dst, map_type, low, high, index_low, index_high, below,
                                  above);
        });
        return ImageAsArray(dst);
      },
      "grey"_a.noconvert(), "map_type"_a, "low"_a, "high"_a, "index_low"_a, "index_high"_a,
      "below"_a, "above"_a,
      "SetColorLUT(src, dst, mapType, low, high, indexLow, indexHigh, below, above): linear\n"
      "between grey levels low and high over entries indexLow - 1 .. indexHigh - 1; levels\n"
      "outside take `below` or `above`, written component 2 first.");
}

void BindFlatArrays(LutSettingClass& lut) {
  lut.def(
      "set_color_lut",
      [](KivLUTSetting& self, const py::array& values, float min_value, float max_value,
         int map_type) {
        py::array keepAlive;
        KIVMV::Kiv3DFloatArray array = FloatArrayView(values, "values", &keepAlive);
        KivColorArray out;
        CallReleased([&] { return self.SetColorLUT(array, min_value, max_value, map_type, &out); });
        return ColoursAsList(out);
      },
      "values"_a.noconvert(), "min_value"_a, "max_value"_a, "map_type"_a,
      "SetColorLUT(values, minValue, maxValue, mapType, out) on a 1-D float32 array:\n"
      "histogram-equalised between the bounds narrowed to the data; prints its time on standard\n"
      "output as C++ does. Returns (N, 3).");
  lut.def(
      "linear_set_color_lut",
      [](KivLUTSetting& self, const py::array& values, float min_value, float max_value,
         int map_type) {
        py::array keepAlive;
        KIVMV::Kiv3DFloatArray array = FloatArrayView(values, "values", &keepAlive);
        KivColorArray out;
        CallReleased(
            [&] { return self.LinearSetColorLUT(array, min_value, max_value, map_type, &out); });
        return ColoursAsList(out);
      },
      "values"_a.noconvert(), "min_value"_a, "max_value"_a, "map_type"_a,
      "LinearSetColorLUT(values, minValue, maxValue, mapType, out) on a 1-D float32 array: below\n"
      "takes entry 0, above 255, inside 1..255; invalid elements black. Returns (N, 3).");
}

void BindNormalsAndBlend(LutSettingClass& lut) {
  lut.def(
      "set_color_normal_map",
      [](KivLUTSetting& self, const py::array& normals) {
        KIVMV::KivVector3dArray vectors = NormalsFromArray(normals, "normals");
        KivColorArray out;
        CallReleased([&] { return self.SetColorNormalMap(vectors, &out); });
        return ColoursAsList(out);
      },
      "normals"_a.noconvert(),
      "SetColorNormalMap(normals, out) on (N, 3) float32 normals: byte 0 from z, 1 from y, 2\n"
      "from x. As in C++ the entries are split into one chunk per worker and the last entry is\n"
      "never written (it stays 0 here). Returns (N, 3).");
  lut.def(
      "color_blend",
      [](KivLUTSetting& self, const py::array& a, const py::array& b, double alpha) {
        // Copies: C++ converts a 1- or 4-channel input to 3 channels in place, which a numpy
        // array cannot follow, so the caller's arrays are left as they are.
        KivColorArray first = ColourArrayFromArray(a, "a");
        KivColorArray second = ColourArrayFromArray(b, "b");
        KivColorArray out;
        CallReleased([&] { return self.ColorBlend(first, second, alpha, &out); });
        const cv::Mat& mat = out.Mat();
        if (a.ndim() == 3 && static_cast<py::ssize_t>(mat.total()) == a.shape(0) * a.shape(1)) {
          return ArrayOwningMat(mat, {a.shape(0), a.shape(1), mat.channels()});
        }
        return ColoursAsList(out);
      },
      "a"_a.noconvert(), "b"_a.noconvert(), "alpha"_a,
      "ColorBlend(a, b, alpha, out): trunc(a x alpha) + trunc(b x (1 - alpha)) byte by byte, on\n"
      "uint8 colour arrays (N, C) or (H, W, C) with C = 1, 3 or 4 of equal length. Returns a's\n"
      "shape with the channels C++ gives the blend. Both inputs are left unchanged.");
}

}  // namespace

void BindImageMethods(LutSettingClass& lut) {
  BindGetColor(lut);
  BindGreyImages(lut);
  BindFlatArrays(lut);
  BindNormalsAndBlend(lut);
}

}  // namespace kivlut_python
