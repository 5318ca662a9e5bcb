#include "numpy_views.h"

#include <climits>
#include <cstring>
#include <utility>

#include "KivExtStatus.h"
#include "KivLUTStatus.h"

namespace kivlut_python {

namespace {

std::string DtypeName(const py::array& array) { return py::str(array.dtype()).cast<std::string>(); }

[[noreturn]] void ThrowWrongDtype(const py::array& array, const char* argument,
                                  const char* expected) {
  throw py::type_error(std::string("argument '") + argument + "' must be " + expected + ", not " +
                       DtypeName(array));
}

py::dtype DtypeOfDepth(int depth) {
  switch (depth) {
    case CV_8U:
      return py::dtype::of<uint8_t>();
    case CV_8S:
      return py::dtype::of<int8_t>();
    case CV_16U:
      return py::dtype::of<uint16_t>();
    case CV_16S:
      return py::dtype::of<int16_t>();
    case CV_32S:
      return py::dtype::of<int32_t>();
    case CV_32F:
      return py::dtype::of<float>();
    default:
      return py::dtype::of<double>();
  }
}

}  // namespace

unsigned char* BytesOf(const py::array& array) {
  return static_cast<unsigned char*>(const_cast<void*>(array.data()));
}

void ThrowOnLutStatus(long status) {
  if (status != KIVMV::LUT_OK) {
    throw StatusError{status, KIVMV::KivLUTStatusName(status)};
  }
}

void ThrowOnExtStatus(long status) {
  if (status != KIVMV::KIV_EXT_OK) {
    throw StatusError{status, KIVMV::KivExtStatusName(status)};
  }
}

py::array RequireArray(py::handle value, const char* argument, const char* expected) {
  if (!py::isinstance<py::array>(value)) {
    throw py::type_error(std::string("argument '") + argument + "' must be " + expected + ", not " +
                         py::str(py::type::of(value).attr("__name__")).cast<std::string>());
  }
  return py::reinterpret_borrow<py::array>(value);
}

void RequireDimensions(const py::array& array, int ndim, const char* argument) {
  if (array.ndim() != ndim) {
    throw py::value_error(std::string("argument '") + argument + "' must have " +
                          std::to_string(ndim) + " dimension" + (ndim == 1 ? "" : "s") + ", not " +
                          std::to_string(array.ndim()));
  }
}

void RequireIntCount(const py::array& array, const char* argument) {
  if (array.size() > INT_MAX) {
    throw py::value_error(std::string("argument '") + argument + "' has " +
                          std::to_string(array.size()) +
                          " elements, more than the library takes (2**31 - 1)");
  }
}

int DimensionAsInt(const py::array& array, int axis, const char* argument) {
  const py::ssize_t size = array.shape(axis);
  if (size > INT_MAX) {
    throw py::value_error(std::string("argument '") + argument + "' is " + std::to_string(size) +
                          " long along axis " + std::to_string(axis) +
                          ", more than the library takes (2**31 - 1)");
  }
  return static_cast<int>(size);
}

py::array CContiguous(const py::array& array) {
  if (array.flags() & py::array::c_style) {
    return array;
  }
  return py::module_::import("numpy").attr("ascontiguousarray")(array);
}

KIVMV::KivImage GreyImageView(const py::array& grey, const char* argument, py::array* keepAlive) {
  const bool eightBit = HoldsType<uint8_t>(grey);
  if (!eightBit && !HoldsType<uint16_t>(grey)) {
    ThrowWrongDtype(grey, argument, "a 2-D uint8 or uint16 array");
  }
  RequireDimensions(grey, 2, argument);
  RequireIntCount(grey, argument);
  const int height = DimensionAsInt(grey, 0, argument);
  const int width = DimensionAsInt(grey, 1, argument);
  *keepAlive = CContiguous(grey);
  const int step = width * static_cast<int>(grey.itemsize());
  return KIVMV::KivImage(BytesOf(*keepAlive), width, height, 1, step,
                         eightBit ? KIVMV::KIV_IMAGE_8U : KIVMV::KIV_IMAGE_16U);
}

KIVMV::Kiv3DFloatArray FloatArrayView(const py::array& values, const char* argument,
                                      py::array* keepAlive) {
  if (!HoldsType<float>(values)) {
    ThrowWrongDtype(values, argument, "a 1-D float32 array");
  }
  RequireDimensions(values, 1, argument);
  const int length = DimensionAsInt(values, 0, argument);
  *keepAlive = CContiguous(values);
  KIVMV::Kiv3DFloatArray view;
  if (length > 0) {
    view.Mat() = cv::Mat(1, length, CV_32F, BytesOf(*keepAlive));
  }
  return view;
}

KIVMV::Kiv3DIntArray IntArrayView(const py::array& values, const char* argument,
                                  py::array* keepAlive) {
  if (!HoldsType<int32_t>(values)) {
    ThrowWrongDtype(values, argument, "a 1-D int32 array");
  }
  RequireDimensions(values, 1, argument);
  const int length = DimensionAsInt(values, 0, argument);
  *keepAlive = CContiguous(values);
  KIVMV::Kiv3DIntArray view;
  if (length > 0) {
    view.Mat() = cv::Mat(1, length, CV_32S, BytesOf(*keepAlive));
  }
  return view;
}

KIVMV::KivVector3dArray NormalsFromArray(const py::array& normals, const char* argument) {
  if (!HoldsType<float>(normals)) {
    ThrowWrongDtype(normals, argument, "an (N, 3) float32 array");
  }
  RequireDimensions(normals, 2, argument);
  if (normals.shape(1) != 3) {
    throw py::value_error(std::string("argument '") + argument + "' must have shape (N, 3), not (" +
                          std::to_string(normals.shape(0)) + ", " +
                          std::to_string(normals.shape(1)) + ")");
  }
  RequireIntCount(normals, argument);
  const int length = DimensionAsInt(normals, 0, argument);
  const auto xyz = normals.unchecked<float, 2>();
  KIVMV::KivVector3dArray vectors;
  vectors.SetSize(length);
  for (int i = 0; i < length; ++i) {
    vectors[i] = KIVMV::KivVector3d(xyz(i, 0), xyz(i, 1), xyz(i, 2));
  }
  return vectors;
}

KIVMV::KivColorArray ColourArrayFromArray(const py::array& colours, const char* argument) {
  if (!HoldsType<uint8_t>(colours)) {
    ThrowWrongDtype(colours, argument, "a uint8 array of shape (N, C) or (H, W, C)");
  }
  if (colours.ndim() != 2 && colours.ndim() != 3) {
    throw py::value_error(std::string("argument '") + argument +
                          "' must have shape (N, C) or (H, W, C), not " +
                          std::to_string(colours.ndim()) + " dimensions");
  }
  const py::ssize_t channels = colours.shape(colours.ndim() - 1);
  if (channels != 1 && channels != 3 && channels != 4) {
    throw py::value_error(std::string("argument '") + argument +
                          "' must have 1, 3 or 4 channels (its last axis), not " +
                          std::to_string(channels));
  }
  RequireIntCount(colours, argument);
  KIVMV::KivColorArray array;
  if (colours.ndim() == 3) {
    array.SetSize(DimensionAsInt(colours, 1, argument), DimensionAsInt(colours, 0, argument),
                  static_cast<int>(channels));
  } else {
    array.Create(DimensionAsInt(colours, 0, argument), static_cast<int>(channels));
  }
  const py::array bytes = CContiguous(colours);
  if (bytes.nbytes() > 0) {
    std::memcpy(array.Data(), bytes.data(), static_cast<size_t>(bytes.nbytes()));
  }
  return array;
}

py::array ArrayOwningMat(const cv::Mat& mat, std::vector<py::ssize_t> shape) {
  py::ssize_t count = 1;
  for (const py::ssize_t size : shape) {
    count *= size;
  }
  if (count != static_cast<py::ssize_t>(mat.total() * mat.channels())) {
    throw std::logic_error("kivlut: an output's shape does not match its matrix");
  }
  const py::dtype dtype = DtypeOfDepth(mat.depth());
  if (count == 0 || mat.data == nullptr) {
    return py::array(dtype, shape);
  }
  // The matrix header moves to the heap and the array's base capsule owns it, so the buffer lives
  // as long as the array and nothing is copied.
  auto* held = new cv::Mat(mat.isContinuous() ? mat : mat.clone());
  const py::capsule owner(held, [](void* p) { delete static_cast<cv::Mat*>(p); });
  std::vector<py::ssize_t> strides(shape.size());
  py::ssize_t stride = static_cast<py::ssize_t>(held->elemSize1());
  for (size_t i = shape.size(); i-- > 0;) {
    strides[i] = stride;
    stride *= shape[i];
  }
  return py::array(dtype, std::move(shape), std::move(strides), held->data, owner);
}

py::array ColoursAsImage(const KIVMV::KivColorArray& colours, int height, int width) {
  const cv::Mat& mat = colours.Mat();
  const py::ssize_t length = static_cast<py::ssize_t>(mat.total());
  const py::ssize_t channels = mat.channels();
  if (length == static_cast<py::ssize_t>(height) * width) {
    return ArrayOwningMat(mat, {height, width, channels});
  }
  return ArrayOwningMat(mat, {length, channels});
}

py::array ColoursAsList(const KIVMV::KivColorArray& colours) {
  const cv::Mat& mat = colours.Mat();
  return ArrayOwningMat(mat, {static_cast<py::ssize_t>(mat.total()), mat.channels()});
}

py::array ImageAsArray(const KIVMV::KivImage& image) {
  const cv::Mat& mat = image.Mat();
  if (mat.channels() == 1) {
    return ArrayOwningMat(mat, {mat.rows, mat.cols});
  }
  return ArrayOwningMat(mat, {mat.rows, mat.cols, mat.channels()});
}

}  // namespace kivlut_python
