// LUTSetting's methods on range images.
#include <pybind11/stl.h>

#include "lut_setting_bindings.h"
#include "platform_casters.h"
#include "range_image_handle.h"

namespace kivlut_python {

namespace {

using KIVMV::KivColor;
using KIVMV::KivColorArray;
using KIVMV::KivLUTSetting;
using KIVMV::LinearColorMapLUT_Para;
using namespace pybind11::literals;

py::array PictureOf(const RangeImageHandle& image, const KivColorArray& colours) {
  return ColoursAsImage(colours, image.Image().Height(), image.Image().Width());
}

// What the segmenting ColorMapLUT appended: images as arrays, numbers as they are.
py::list ListOf(const KIVMV::KivVarArray& values) {
  py::list list;
  for (int i = 0; i < values.Length(); ++i) {
    const KIVMV::KivVar& value = values[i];
    if (value.IsInt()) {
      list.append(value.ToInt());
    } else if (value.IsDouble()) {
      list.append(value.ToDouble());
    } else if (value.IsImage()) {
      list.append(ImageAsArray(value.ToImage()));
    } else {
      list.append(py::none());
    }
  }
  return list;
}

void BindEqualised(LutSettingClass& lut) {
  lut.def(
      "color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, int map_type) {
        KivColorArray out;
        CallReleased([&] { return self.ColorMapLUT(image.Image(), map_type, &out); });
        return PictureOf(image, out);
      },
      "image"_a, "map_type"_a,
      "ColorMapLUT(image, mapType, out): histogram-equalised between the image's valid minimum\n"
      "and maximum. Returns (H, W, 3) uint8, blue first.");
  lut.def(
      "color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, int map_type, double low, double high) {
        KivColorArray out;
        CallReleased([&] { return self.ColorMapLUT(image.Image(), map_type, low, high, &out); });
        return PictureOf(image, out);
      },
      "image"_a, "map_type"_a, "low"_a, "high"_a,
      "ColorMapLUT(image, mapType, low, high, out): equalised between given heights, each "
      "replaced\n"
      "by the data's extreme unless it lies inside the data range by more than half a raw unit.");
  lut.def(
      "color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, int map_type, double low, double high,
         int lo, int hi, KivColor below, KivColor above) {
        KivColorArray out;
        CallReleased([&] {
          return self.ColorMapLUT(image.Image(), map_type, low, high, lo, hi, below, above, &out);
        });
        return PictureOf(image, out);
      },
      "image"_a, "map_type"_a, "low"_a, "high"_a, "lo"_a, "hi"_a, "below"_a, "above"_a,
      "ColorMapLUT(image, mapType, low, high, lo, hi, below, above, out): equalised over table\n"
      "entries lo..hi between bounds clamped to the data. Valid pixels below low take `below`,\n"
      "above high `above`, written with components 2, 1, 0 in bytes 0, 1, 2.");
  lut.def(
      "color_map_lut",
      [](KivLUTSetting& self, const py::array& values, int map_type, int low, int high) {
        py::array keepAlive;
        KIVMV::Kiv3DIntArray array = IntArrayView(values, "values", &keepAlive);
        KivColorArray out;
        CallReleased([&] { return self.ColorMapLUT(array, map_type, low, high, &out); });
        return ColoursAsList(out);
      },
      "values"_a.noconvert(), "map_type"_a, "low"_a, "high"_a,
      "ColorMapLUT(values, mapType, low, high, out) on a 1-D int32 array: linear between low and\n"
      "high over the whole table; values above high pure red, below low black. Returns (N, 3).");
  lut.def(
      "color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, LinearColorMapLUT_Para& para,
         KivColor under_color, KivColor over_color, int map_type, bool automatic, int size_a,
         int size_b) {
        KivColorArray out;
        KIVMV::KivVarArray vectorA;
        KIVMV::KivVarArray vectorB;
        CallReleased([&] {
          return self.ColorMapLUT(image.Image(), &out, para, under_color, over_color, map_type,
                                  automatic, size_a, size_b, &vectorA, &vectorB);
        });
        return py::make_tuple(PictureOf(image, out), ListOf(vectorA), ListOf(vectorB));
      },
      "image"_a, "para"_a, "under_color"_a, "over_color"_a, "map_type"_a, "automatic"_a, "size_a"_a,
      "size_b"_a,
      "ColorMapLUT(image, out, para, underColor, overColor, mapType, automatic, sizeA, sizeB,\n"
      "vectorA, vectorB): the four segments of the five-point scale, each equalised through its\n"
      "quarter of the grey table. Returns (picture, vector_a, vector_b): vector_a holds the\n"
      "histogram chart (600, 800, 3), the four segment pictures (H, W, 3) and the four counts of\n"
      "pixels outside each segment; vector_b the legend entries (empty unless size_a and size_b\n"
      "are non-zero). `para` is not written.");
}

void BindLinear(LutSettingClass& lut) {
  lut.def(
      "linear_color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, int map_type) {
        KivColorArray out;
        CallReleased([&] { return self.LinearColorMapLUT(image.Image(), map_type, &out); });
        return PictureOf(image, out);
      },
      "image"_a, "map_type"_a,
      "LinearColorMapLUT(image, mapType, out): linear between the valid minimum and maximum.");
  lut.def(
      "linear_color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, int map_type, double low, double high) {
        KivColorArray out;
        CallReleased(
            [&] { return self.LinearColorMapLUT(image.Image(), map_type, low, high, &out); });
        return PictureOf(image, out);
      },
      "image"_a, "map_type"_a, "low"_a, "high"_a,
      "LinearColorMapLUT(image, mapType, low, high, out): values below low take entry 0, above\n"
      "high entry 255, inside entries 1..255.");
  lut.def(
      "linear_color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, int map_type, double low, double high,
         int index_low, int index_high, KivColor under_color, KivColor over_color) {
        KivColorArray out;
        CallReleased([&] {
          return self.LinearColorMapLUT(image.Image(), map_type, low, high, index_low, index_high,
                                        under_color, over_color, &out);
        });
        return PictureOf(image, out);
      },
      "image"_a, "map_type"_a, "low"_a, "high"_a, "index_low"_a, "index_high"_a, "under_color"_a,
      "over_color"_a,
      "LinearColorMapLUT(image, mapType, low, high, indexLow, indexHigh, underColor, overColor,\n"
      "out): entries indexLow - 1 .. indexHigh - 1 inside the bounds; valid pixels outside take\n"
      "under_color or over_color (components 2, 1, 0 in bytes 0, 1, 2).");
  lut.def(
      "linear_color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, int map_type, double upper_fraction,
         double lower_fraction) {
        KivColorArray out;
        CallReleased([&] {
          return self.LinearColorMapLUT(image.Image(), &out, map_type, upper_fraction,
                                        lower_fraction);
        });
        return PictureOf(image, out);
      },
      "image"_a, "map_type"_a, py::kw_only(), "upper_fraction"_a, "lower_fraction"_a,
      "LinearColorMapLUT(image, out, mapType, upperFraction, lowerFraction), float32 images only:\n"
      "bounds cut at fractions of the sorted valid values, from the top and from the bottom.\n"
      "The fractions are keyword-only, so this form cannot be taken for the (low, high) one.\n"
      "Another pixel type raises LUTError with status -1.");
  lut.def(
      "linear_color_map_lut",
      [](KivLUTSetting& self, RangeImageHandle& image, LinearColorMapLUT_Para& para,
         KivColor under_color, KivColor over_color, int map_type, bool automatic) {
        KivColorArray out;
        CallReleased([&] {
          return self.LinearColorMapLUT(image.Image(), &out, para, under_color, over_color,
                                        map_type, automatic);
        });
        return PictureOf(image, out);
      },
      "image"_a, "para"_a, "under_color"_a, "over_color"_a, "map_type"_a, "automatic"_a,
      "LinearColorMapLUT(image, out, para, underColor, overColor, mapType, automatic): the\n"
      "five-point scale on a range image, break values in heights. With automatic=True the break\n"
      "values come from the data and are written back into `para`, as in C++.");
  lut.def(
      "linear_color_map_lut",
      [](KivLUTSetting& self, const py::array& values, LinearColorMapLUT_Para& para,
         KivColor under_color, KivColor over_color, int map_type, bool automatic) {
        // The scale rescales the caller's array in place, so it must be the array itself: a copy
        // would leave the caller's values as they were without a word.
        if (HoldsType<float>(values) && values.ndim() == 1 &&
            (!values.writeable() || !(values.flags() & py::array::c_style))) {
          throw py::value_error(
              "argument 'values' must be writable and C-contiguous: the five-point scale "
              "rescales it in place");
        }
        py::array keepAlive;
        KIVMV::Kiv3DFloatArray array = FloatArrayView(values, "values", &keepAlive);
        KivColorArray out;
        CallReleased([&] {
          return self.LinearColorMapLUT(array, &out, para, under_color, over_color, map_type,
                                        automatic);
        });
        return ColoursAsList(out);
      },
      "values"_a.noconvert(), "para"_a, "under_color"_a, "over_color"_a, "map_type"_a,
      "automatic"_a,
      "LinearColorMapLUT(values, out, para, underColor, overColor, mapType, automatic) on a 1-D\n"
      "float32 array, which is rescaled in place onto [-1, 1] as in C++ (it must be writable and\n"
      "C-contiguous). Break values given by hand are values of the rescaled domain; nothing is\n"
      "written back into `para`. Returns (N, 3).");
}

void BindShading(LutSettingClass& lut) {
  lut.def(
      "set_color_normal_map_phong",
      [](KivLUTSetting& self, RangeImageHandle& image) {
        KivColorArray out;
        CallReleased([&] { return self.SetColorNormalMapPhong(image.Image(), &out); });
        return PictureOf(image, out);
      },
      "image"_a,
      "SetColorNormalMapPhong(img, out): in spite of its name no lighting, the normal map of the\n"
      "image's normals. Returns (H, W, 3).");
  lut.def(
      "set_color_normal_map",
      [](KivLUTSetting& self, RangeImageHandle& image, KIVMV::KivVector3d vector_a,
         KIVMV::KivVector3d vector_b, int mode, float coef_a, float coef_b, float coef_c,
         float coef_d) {
        KivColorArray out;
        CallReleased([&] {
          return self.SetColorNormalMap(image.Image(), vector_a, vector_b, mode, coef_a, coef_b,
                                        coef_c, coef_d, &out);
        });
        return PictureOf(image, out);
      },
      "image"_a, "vector_a"_a, "vector_b"_a, "mode"_a, "coef_a"_a, "coef_b"_a, "coef_c"_a,
      "coef_d"_a,
      "SetColorNormalMap(img, vectorA, vectorB, mode, coefA, coefB, coefC, coefD, out): Phong\n"
      "lighting of the equalised colouring under `mode`, light at vector_a, eye at vector_b\n"
      "(3-tuples in the image's point coordinates); coef_a the gain, coef_b..d the ambient,\n"
      "diffuse and specular weights. Returns (H, W, 3).");
}

}  // namespace

void BindRangeMethods(LutSettingClass& lut) {
  BindEqualised(lut);
  BindLinear(lut);
  BindShading(lut);
}

}  // namespace kivlut_python
