#include "pythonic_layer.h"

#include <pybind11/stl.h>

#include <memory>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "KivColorBar.h"
#include "KivColorTable.h"
#include "KivColoring.h"
#include "KivSequenceColoring.h"
#include "numpy_views.h"
#include "range_image_handle.h"

// KivRgb as an (r, g, b) tuple of ints 0..255; another length or a component out of range is a
// ValueError.
namespace pybind11 {
namespace detail {

template <>
struct type_caster<KIVMV::KivRgb> {
  PYBIND11_TYPE_CASTER(KIVMV::KivRgb, const_name("tuple[int, int, int]"));

  bool load(handle source, bool convert) {
    if (!isinstance<sequence>(source) || isinstance<str>(source) || isinstance<bytes>(source)) {
      return false;
    }
    const auto components = reinterpret_borrow<sequence>(source);
    if (components.size() != 3) {
      throw value_error("a colour is an (r, g, b) tuple, not " + std::to_string(components.size()) +
                        " values");
    }
    int rgb[3] = {0, 0, 0};
    for (size_t i = 0; i < 3; ++i) {
      make_caster<int> component;
      if (!component.load(components[i], convert)) return false;
      rgb[i] = cast_op<int>(component);
      if (rgb[i] < 0 || rgb[i] > 255) {
        throw value_error("a colour's components are 0..255, not " + std::to_string(rgb[i]));
      }
    }
    value = KIVMV::KivRgb{static_cast<uint8_t>(rgb[0]), static_cast<uint8_t>(rgb[1]),
                          static_cast<uint8_t>(rgb[2])};
    return true;
  }

  static handle cast(const KIVMV::KivRgb& colour, return_value_policy, handle) {
    return make_tuple(colour.r, colour.g, colour.b).release();
  }
};

}  // namespace detail
}  // namespace pybind11

namespace kivlut_python {

namespace {

using KIVMV::KivColorTable;
using KIVMV::KivRgb;
using namespace pybind11::literals;

// A colouring's scale with what drew it, so that a colour bar needs nothing else.
struct Coloring {
  KIVMV::KivColoringInfo info;
  KivColorTable table;
  std::string mode;
  std::optional<KivRgb> below;
  std::optional<KivRgb> above;
};

KivColorTable TableNamed(const std::string& name) {
  KivColorTable table;
  if (KivColorTable::ByName(name, &table) != KIVMV::KIV_EXT_OK) {
    std::string names;
    for (const std::string& known : KivColorTable::Names()) {
      names += (names.empty() ? "" : ", ") + known;
    }
    throw py::value_error("unknown cmap '" + name + "'; known: " + names +
                          " (add _r for the reversed table)");
  }
  return table;
}

// Blue-first pixels of the library to red-first ones for Python, and back.
cv::Mat SwapRedBlue(const cv::Mat& mat) {
  cv::Mat swapped;
  if (mat.channels() == 3) {
    cv::cvtColor(mat, swapped, cv::COLOR_BGR2RGB);
  } else if (mat.channels() == 4) {
    cv::cvtColor(mat, swapped, cv::COLOR_BGRA2RGBA);
  } else {
    swapped = mat;
  }
  return swapped;
}

// A uint8 picture (H, W, C) with C in `channels`, as a blue-first matrix.
cv::Mat PictureMat(const py::object& value, const char* argument,
                   std::initializer_list<int> channels) {
  const py::array array = RequireArray(value, argument, "a uint8 array (H, W, C)");
  if (!HoldsType<uint8_t>(array)) {
    throw py::type_error(std::string("argument '") + argument + "' must be a uint8 array, not " +
                         py::str(array.dtype()).cast<std::string>());
  }
  RequireDimensions(array, 3, argument);
  RequireIntCount(array, argument);
  const int c = static_cast<int>(array.shape(2));
  bool taken = false;
  for (const int allowed : channels) {
    taken = taken || c == allowed;
  }
  if (!taken) {
    throw py::value_error(std::string("argument '") + argument + "' has " + std::to_string(c) +
                          " channels, which it cannot have here");
  }
  const py::array pixels = CContiguous(array);
  const cv::Mat view(DimensionAsInt(array, 0, argument), DimensionAsInt(array, 1, argument),
                     CV_8UC(c), BytesOf(pixels));
  return SwapRedBlue(view);  // a new matrix: the view's array may go
}

py::array PictureArray(const cv::Mat& bgr) {
  const cv::Mat rgb = SwapRedBlue(bgr);
  return ArrayOwningMat(rgb, {rgb.rows, rgb.cols, rgb.channels()});
}

// (low, high) percentiles: a sequence of two numbers; another length is a ValueError.
std::pair<double, double> PercentilesOf(const py::object& value) {
  if (!py::isinstance<py::sequence>(value) || py::isinstance<py::str>(value)) {
    throw py::type_error("argument 'percentiles' must be a (low, high) tuple of numbers");
  }
  const auto pair = py::reinterpret_borrow<py::sequence>(value);
  if (pair.size() != 2) {
    throw py::value_error("argument 'percentiles' must hold 2 numbers, not " +
                          std::to_string(pair.size()));
  }
  return {pair[0].cast<double>(), pair[1].cast<double>()};
}

// The colouring colorize() and SequenceColorizer take: mode and bounds from their arguments, the
// colours of no-data, below and above (unset: the table's), alpha.
KIVMV::KivColoringOptions OptionsFor(const std::string& mode, std::optional<double> low,
                                     std::optional<double> high, const py::object& percentiles,
                                     const std::optional<KivRgb>& nodata_color,
                                     const std::optional<KivRgb>& below_color,
                                     const std::optional<KivRgb>& above_color, bool alpha) {
  const std::pair<double, double> percentileBounds = PercentilesOf(percentiles);
  KIVMV::KivColoringOptions options;
  options.noDataColor = nodata_color;
  options.belowColor = below_color;
  options.aboveColor = above_color;
  options.channels = alpha ? 4 : 3;
  if (low.has_value() != high.has_value()) {
    throw py::value_error("give both low and high, or neither");
  }
  if (mode == "equalize" || mode == "linear") {
    options.mode =
        mode == "equalize" ? KIVMV::KivColoringMode::kEqualised : KIVMV::KivColoringMode::kLinear;
    if (low) {
      options.bounds = KIVMV::KivBoundsSource::kGiven;
      options.low = *low;
      options.high = *high;
    }
  } else if (mode == "percentile") {
    if (low) {
      throw py::value_error("mode 'percentile' takes its bounds from `percentiles`, not low/high");
    }
    options.mode = KIVMV::KivColoringMode::kLinear;
    options.bounds = KIVMV::KivBoundsSource::kPercentile;
    options.lowPercentile = percentileBounds.first;
    options.highPercentile = percentileBounds.second;
  } else {
    throw py::value_error("mode must be 'equalize', 'linear' or 'percentile', not '" + mode + "'");
  }
  return options;
}

// Colours `data` (a RangeImage, a 2-D array of a pixel type taken as a range image with the given
// height scale, or a 1-D float32 array) with colourRange(image) or colourValues(values), each
// returning a status, called without the GIL; returns the picture, red first.
template <typename RangeCall, typename ValuesCall>
py::array ColourData(const py::object& data, double resolution_z, double offset_z,
                     RangeCall&& colourRange, ValuesCall&& colourValues,
                     const KIVMV::KivColorArray& out) {
  py::array keepAlive;
  int height = 0;
  int width = 0;
  long status = KIVMV::KIV_EXT_OK;
  const auto range = [&](const KIVMV::KivRangeImage& image) {
    height = image.Height();
    width = image.Width();
    py::gil_scoped_release release;
    status = colourRange(image);
  };
  if (py::isinstance<RangeImageHandle>(data)) {
    range(data.cast<RangeImageHandle&>().Image());
  } else {
    const py::array array = RequireArray(
        data, "data", "a kivlut.RangeImage, a 2-D array of a pixel type or a 1-D float32 array");
    if (array.ndim() == 2) {
      KIVMV::KivRangeImage image = RangeImageView(array, "data", &keepAlive);
      image.SetResolution(1.0, 1.0, resolution_z);
      image.SetOffset(0.0, 0.0, offset_z);
      range(image);
    } else if (array.ndim() == 1) {
      const KIVMV::Kiv3DFloatArray values = FloatArrayView(array, "data", &keepAlive);
      py::gil_scoped_release release;
      status = colourValues(values);
    } else {
      throw py::value_error("argument 'data' must be a 2-D image or a 1-D float32 array, not " +
                            std::to_string(array.ndim()) + "-D");
    }
  }
  ThrowOnExtStatus(status);
  const cv::Mat rgb = SwapRedBlue(out.Mat());
  const py::ssize_t length = static_cast<py::ssize_t>(rgb.total());
  return height > 0 && length == static_cast<py::ssize_t>(height) * width
             ? ArrayOwningMat(rgb, {height, width, rgb.channels()})
             : ArrayOwningMat(rgb, {length, rgb.channels()});
}

py::tuple Colorize(const py::object& data, const std::string& mode, const std::string& cmap,
                   std::optional<double> low, std::optional<double> high,
                   const py::object& percentiles, const std::optional<KivRgb>& nodata_color,
                   const std::optional<KivRgb>& below_color,
                   const std::optional<KivRgb>& above_color, bool alpha, double resolution_z,
                   double offset_z) {
  Coloring coloring;
  coloring.mode = mode;
  coloring.table = TableNamed(cmap);
  const KIVMV::KivColoringOptions options =
      OptionsFor(mode, low, high, percentiles, nodata_color, below_color, above_color, alpha);
  coloring.below = options.belowColor;
  coloring.above = options.aboveColor;

  KIVMV::KivColorArray out;
  py::array picture = ColourData(
      data, resolution_z, offset_z,
      [&](const KIVMV::KivRangeImage& image) {
        return KIVMV::KivColorRangeImage(image, coloring.table, options, &out, &coloring.info);
      },
      [&](const KIVMV::Kiv3DFloatArray& values) {
        return KIVMV::KivColorFloatArray(values, coloring.table, options, &out, &coloring.info);
      },
      out);
  return py::make_tuple(picture, py::cast(std::move(coloring)));
}

// kivlut.SequenceColorizer: a KivSequenceColorizer with what a colour bar of its frames needs. One
// frame at a time: the lock keeps two threads from colouring with the same carried state at once.
struct Sequence {
  Sequence(const KivColorTable& table, const KIVMV::KivSequenceOptions& options, std::string m)
      : colorizer(table, options), mode(std::move(m)) {}

  KIVMV::KivSequenceColorizer colorizer;
  std::string mode;
  std::mutex lock;
};

std::unique_ptr<Sequence> MakeSequence(const std::string& cmap, const std::string& mode,
                                       double time_constant, std::optional<double> low,
                                       std::optional<double> high, const py::object& percentiles,
                                       double dead_band, int hold_frames, double entry_tolerance,
                                       const std::optional<KivRgb>& nodata_color,
                                       const std::optional<KivRgb>& below_color,
                                       const std::optional<KivRgb>& above_color, bool alpha) {
  KIVMV::KivSequenceOptions options;
  options.coloring =
      OptionsFor(mode, low, high, percentiles, nodata_color, below_color, above_color, alpha);
  options.timeConstant = time_constant;
  options.boundDeadBand = dead_band;
  options.holdFrames = hold_frames;
  options.entryTolerance = entry_tolerance;
  return std::make_unique<Sequence>(TableNamed(cmap), options, mode);
}

Coloring ColoringOf(const Sequence& sequence, KIVMV::KivColoringInfo info) {
  Coloring coloring;
  coloring.info = std::move(info);
  coloring.table = sequence.colorizer.Table();
  coloring.mode = sequence.mode;
  coloring.below = sequence.colorizer.Options().coloring.belowColor;
  coloring.above = sequence.colorizer.Options().coloring.aboveColor;
  return coloring;
}

py::tuple ColourNextFrame(Sequence& sequence, const py::object& frame, double resolution_z,
                          double offset_z) {
  KIVMV::KivColorArray out;
  KIVMV::KivColoringInfo info;
  py::array picture = ColourData(
      frame, resolution_z, offset_z,
      [&](const KIVMV::KivRangeImage& image) {
        const std::lock_guard<std::mutex> hold(sequence.lock);
        return sequence.colorizer.ColorFrame(image, &out, &info);
      },
      [&](const KIVMV::Kiv3DFloatArray& values) {
        const std::lock_guard<std::mutex> hold(sequence.lock);
        return sequence.colorizer.ColorFrame(values, &out, &info);
      },
      out);
  return py::make_tuple(picture, py::cast(ColoringOf(sequence, std::move(info))));
}

py::array Colorbar(const Coloring& coloring, const std::optional<std::string>& cmap, bool vertical,
                   int length, int thickness, const std::string& unit, int ticks, bool end_caps,
                   const std::optional<KivRgb>& below_color,
                   const std::optional<KivRgb>& above_color, const KivRgb& text_color,
                   const KivRgb& background, double font_scale) {
  const KivColorTable table = cmap ? TableNamed(*cmap) : coloring.table;
  KIVMV::KivColorBarOptions options;
  options.vertical = vertical;
  options.length = length;
  options.thickness = thickness;
  options.unit = unit;
  options.ticks = ticks;
  options.endCaps = end_caps;
  options.belowColor = below_color ? below_color : coloring.below;
  options.aboveColor = above_color ? above_color : coloring.above;
  options.textColor = text_color;
  options.background = background;
  options.fontScale = font_scale;
  cv::Mat bar;
  ThrowOnExtStatus(KIVMV::KivDrawColorBar(table, coloring.info, options, &bar));
  return PictureArray(bar);
}

py::array AttachColorbar(const py::object& picture, const py::object& bar, bool vertical,
                         const KivRgb& background) {
  const cv::Mat pictureBgr = PictureMat(picture, "picture", {3, 4});
  const cv::Mat barBgr = PictureMat(bar, "bar", {3});
  KIVMV::KivColorBarOptions options;
  options.vertical = vertical;
  options.background = background;
  cv::Mat joined;
  ThrowOnExtStatus(KIVMV::KivAttachColorBar(pictureBgr, barBgr, options, &joined));
  return PictureArray(joined);
}

[[noreturn]] void ThrowOsError(const std::string& message) {
  PyErr_SetString(PyExc_OSError, message.c_str());
  throw py::error_already_set();
}

py::array ReadImage(const std::string& path) {
  cv::Mat image;
  try {
    image = cv::imread(path, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception& error) {
    ThrowOsError("cannot read '" + path + "': " + error.what());
  }
  if (image.empty()) {
    ThrowOsError("cannot read '" + path + "' as an image");
  }
  if (image.channels() == 1) {
    return ArrayOwningMat(image, {image.rows, image.cols});
  }
  return PictureArray(image);
}

void WriteImage(const std::string& path, const py::object& picture) {
  const py::array array = RequireArray(picture, "picture", "a numpy array");
  int depth = -1;
  if (HoldsType<uint8_t>(array)) depth = CV_8U;
  if (HoldsType<uint16_t>(array)) depth = CV_16U;
  if (HoldsType<float>(array)) depth = CV_32F;
  if (depth < 0) {
    throw py::type_error("argument 'picture' must be uint8, uint16 or float32, not " +
                         py::str(array.dtype()).cast<std::string>());
  }
  if (array.ndim() != 2 && array.ndim() != 3) {
    throw py::value_error("argument 'picture' must be (H, W) or (H, W, C)");
  }
  const int channels = array.ndim() == 3 ? static_cast<int>(array.shape(2)) : 1;
  if (channels != 1 && channels != 3 && channels != 4) {
    throw py::value_error("argument 'picture' must have 1, 3 or 4 channels");
  }
  RequireIntCount(array, "picture");
  const py::array pixels = CContiguous(array);
  const cv::Mat view(DimensionAsInt(array, 0, "picture"), DimensionAsInt(array, 1, "picture"),
                     CV_MAKETYPE(depth, channels), BytesOf(pixels));
  bool written = false;
  try {
    written = cv::imwrite(path, SwapRedBlue(view));
  } catch (const cv::Exception& error) {
    ThrowOsError("cannot write '" + path + "': " + error.what());
  }
  if (!written) {
    ThrowOsError("cannot write '" + path + "'");
  }
}

void BindColoring(py::module_& module) {
  py::class_<Coloring>(module, "ColoringInfo",
                       "What a colorize() call measured and used; colorbar() draws from it.")
      .def_property_readonly("mode", [](const Coloring& c) { return c.mode; })
      .def_property_readonly("cmap", [](const Coloring& c) { return c.table.Name(); })
      .def_property_readonly(
          "minimum", [](const Coloring& c) { return c.info.minimum; },
          "The smallest valid value (NaN when there is none).")
      .def_property_readonly("maximum", [](const Coloring& c) { return c.info.maximum; })
      .def_property_readonly("valid_count", [](const Coloring& c) { return c.info.validCount; })
      .def_property_readonly("no_data_count", [](const Coloring& c) { return c.info.noDataCount; })
      .def_property_readonly(
          "low", [](const Coloring& c) { return c.info.low; },
          "The lower bound the colouring ran between.")
      .def_property_readonly("high", [](const Coloring& c) { return c.info.high; })
      .def_property_readonly(
          "entry_start",
          [](const Coloring& c) {
            py::array_t<double> starts(static_cast<py::ssize_t>(c.info.entryStart.size()));
            std::copy(c.info.entryStart.begin(), c.info.entryStart.end(), starts.mutable_data());
            return starts;
          },
          "257 values: where each of the 256 colours begins, the last being `high` (empty when\n"
          "there was no valid value).")
      .def_property_readonly(
          "below_color", [](const Coloring& c) { return c.below.value_or(c.table.At(0)); },
          "The colour of valid values below `low`: the one given, else the table's first entry.")
      .def_property_readonly(
          "above_color",
          [](const Coloring& c) { return c.above.value_or(c.table.At(KivColorTable::kSize - 1)); },
          "The colour of valid values above `high`: the one given, else the table's last entry.")
      .def(
          "table_position",
          [](const Coloring& c, double value) { return c.info.TablePosition(value); }, "value"_a,
          "Where `value` lands along the colour table, 0 to 1 (NaN without a scale).")
      .def("__repr__", [](const Coloring& c) {
        return py::str(
                   "kivlut.ColoringInfo(mode={!r}, cmap={!r}, low={!r}, high={!r}, "
                   "valid_count={})")
            .format(c.mode, c.table.Name(), c.info.low, c.info.high, c.info.validCount)
            .cast<std::string>();
      });
}

void BindSequence(py::module_& module) {
  py::class_<Sequence>(module, "SequenceColorizer",
                       R"(Colours frame after frame with colours that hold still.

SequenceColorizer(cmap="rainbow", mode="equalize", *, time_constant=10.0, low=None, high=None,
                  percentiles=(1.0, 99.0), dead_band=0.02, hold_frames=3, entry_tolerance=1.0,
                  nodata_color=None, below_color=None, above_color=None, alpha=False)

The mapping (bounds, and for "equalize" the histogram) is carried from frame to frame: a bound
follows the median of its last 2 x hold_frames - 1 proposals (so outliers lasting fewer than
hold_frames frames are ignored), not at all while that lies within dead_band (a fraction of the
span), else covering 1 - exp(-1 / time_constant) of the distance each frame; the histogram is
smoothed with the same time constant, and the colours change only when some height would move
by entry_tolerance table entries or more. time_constant=0 colours every frame for itself.
The other arguments are as for kivlut.colorize().

    stable = kivlut.SequenceColorizer("turbo", "equalize", time_constant=10)
    for depth in frames:
        rgb, info = stable.colorize(depth)
)")
      .def(py::init(&MakeSequence), "cmap"_a = "rainbow", "mode"_a = "equalize", py::kw_only(),
           "time_constant"_a = 10.0, "low"_a = py::none(), "high"_a = py::none(),
           "percentiles"_a = py::make_tuple(1.0, 99.0), "dead_band"_a = 0.02, "hold_frames"_a = 3,
           "entry_tolerance"_a = 1.0, "nodata_color"_a = py::none(), "below_color"_a = py::none(),
           "above_color"_a = py::none(), "alpha"_a = false)
      .def("colorize", &ColourNextFrame, "frame"_a, py::kw_only(), "resolution_z"_a = 1.0,
           "offset_z"_a = 0.0,
           "Colours the next frame (as kivlut.colorize() takes data) and carries it into the\n"
           "mapping; returns (picture RGB or RGBA, info). Raises LUTError when the frame or the\n"
           "options are refused (KIV_EXT_ERR_SEQUENCE_OPTIONS for the latter); the carried\n"
           "mapping is then as it was.")
      .def(
          "reset",
          [](Sequence& self) {
            const std::lock_guard<std::mutex> hold(self.lock);
            self.colorizer.Reset();
          },
          "Forgets every frame: the next one starts afresh.")
      .def(
          "current_mapping",
          [](Sequence& self) {
            KIVMV::KivColoringInfo info;
            {
              const std::lock_guard<std::mutex> hold(self.lock);
              ThrowOnExtStatus(self.colorizer.CurrentMapping(&info));
            }
            return ColoringOf(self, std::move(info));
          },
          "The mapping the next frame will be coloured with, for kivlut.colorbar(); raises\n"
          "LUTError (KIV_EXT_ERR_NO_SCALE) before the first frame with a valid value.")
      .def_property_readonly(
          "frames_seen",
          [](Sequence& self) {
            const std::lock_guard<std::mutex> hold(self.lock);
            return self.colorizer.FramesSeen();
          },
          "Frames coloured since construction or reset().");
}

}  // namespace

void BindPythonicLayer(py::module_& module) {
  BindColoring(module);
  module.def(
      "cmaps", [] { return KivColorTable::Names(); },
      "The table names colorize() and colorbar() take (any case; add _r to reverse).");
  module.def("colorize", &Colorize, "data"_a, "mode"_a = "equalize", "cmap"_a = "rainbow",
             py::kw_only(), "low"_a = py::none(), "high"_a = py::none(),
             "percentiles"_a = py::make_tuple(1.0, 99.0), "nodata_color"_a = py::none(),
             "below_color"_a = py::none(), "above_color"_a = py::none(), "alpha"_a = false,
             "resolution_z"_a = 1.0, "offset_z"_a = 0.0,
             R"(Colour heights through a colour table; returns (picture, info).

data: a kivlut.RangeImage, a 2-D array of uint8, int8, uint16, int16, int32, float32 or float64
    (a range image: height = raw x resolution_z + offset_z; no-data 0 for the integer types,
    NaN, infinities and -FLT_MAX for floats), or a 1-D float32 array.
mode: "equalize" (histogram equalisation), "linear" (evenly between the bounds) or "percentile"
    (linear between the `percentiles` of the valid values).
cmap: a name from kivlut.cmaps(), any case, "_r" appended for the reversed table.
low, high: both or neither: heights to colour between instead of the measured extremes.
percentiles: (low, high), each 0..100, for mode "percentile".
nodata_color, below_color, above_color: (r, g, b) for no-data and for valid values below and
    above the bounds; default the table's no-data colour and its two ends.
alpha: RGBA output, alpha 0 on no-data and 255 elsewhere.
resolution_z, offset_z: the height of a raw value of a plain 2-D array.

picture: uint8 (H, W, 3) RGB or (H, W, 4) RGBA ((N, 3|4) for a 1-D input), for matplotlib's
    imshow and PIL's Image.fromarray. info: a kivlut.ColoringInfo (bounds, counts, scale).
Raises LUTError (a KIV_EXT_ERR_ status) when the colouring refuses its input.)");
  BindSequence(module);
  module.def("colorbar", &Colorbar, "info"_a, py::kw_only(), "cmap"_a = py::none(),
             "vertical"_a = true, "length"_a = 256, "thickness"_a = 20, "unit"_a = "mm",
             "ticks"_a = 5, "end_caps"_a = true, "below_color"_a = py::none(),
             "above_color"_a = py::none(), "text_color"_a = KivRgb{0, 0, 0},
             "background"_a = KivRgb{255, 255, 255}, "font_scale"_a = 0.4,
             R"(The colour bar of a colouring, uint8 (h, w, 3) RGB.

info: what colorize() returned. cmap, below_color, above_color: default to the ones the
colouring used. vertical: low values at the bottom (else on the left). length: pixels along the
colours (16..8192); thickness: across them (4..512). unit: written after the labels (ASCII).
ticks: about this many labelled ticks (2..20). end_caps: triangles in the below/above colours.
text_color, background: (r, g, b). font_scale: of OpenCV's Hershey font (0.1..4).)");
  module.def(
      "attach_colorbar", &AttachColorbar, "picture"_a, "bar"_a, py::kw_only(), "vertical"_a = true,
      "background"_a = KivRgb{255, 255, 255},
      "The picture ((H, W, 3) RGB or (H, W, 4) RGBA, uint8) with the bar on its right (below\n"
      "it when vertical=False), centred on the background; uint8 RGB.");
  module.def(
      "read_image", &ReadImage, "path"_a,
      "An image file as OpenCV reads it unchanged: 16-bit PNG, float PFM and TIFF keep their\n"
      "depth; (H, W) for one channel, RGB(A) for colour. Raises OSError.");
  module.def("write_image", &WriteImage, "path"_a, "picture"_a,
             "Writes (H, W) or (H, W, 3|4) RGB(A) pixels, uint8, uint16 or float32, with OpenCV\n"
             "(format from the extension). Raises OSError.");
}

}  // namespace kivlut_python
