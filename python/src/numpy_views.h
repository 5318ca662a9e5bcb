// Between numpy arrays and the platform's types: the checks every argument goes through (a
// TypeError for a dtype, a ValueError for a shape, both naming the argument), views that let the
// library read a caller's array without a copy, and arrays that take over the library's outputs
// without one.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "KivPlatform.h"

namespace kivlut_python {

namespace py = pybind11;

// A status other than success from the library, turned into kivlut.LUTError at the boundary.
struct StatusError {
  long status;
  std::string name;
};

// Throws StatusError for a failing KivLUTSetting status (named by KivLUTStatusName).
void ThrowOnLutStatus(long status);
// The same for the statuses of the extension API (named by KivExtStatusName).
void ThrowOnExtStatus(long status);

// `value` as an array, or a TypeError naming `argument` and what was expected.
py::array RequireArray(py::handle value, const char* argument, const char* expected);
// A ValueError naming `argument` unless the array has `ndim` dimensions.
void RequireDimensions(const py::array& array, int ndim, const char* argument);
// A ValueError unless the array's element count fits an int, as the platform counts them; checked
// before anything is allocated or copied for the array, whatever its strides.
void RequireIntCount(const py::array& array, const char* argument);
// The dimension as an int, or a ValueError: the platform's sizes are ints.
int DimensionAsInt(const py::array& array, int axis, const char* argument);

// True when the array's dtype is T in native byte order.
template <typename T>
bool HoldsType(const py::array& array) {
  return py::isinstance<py::array_t<T>>(array);
}

// The first byte of an array's buffer. The library only reads its sources, never writes them, so a
// read-only array serves as well as a writable one.
unsigned char* BytesOf(const py::array& array);
// The array itself when its elements are C-contiguous, else a C-contiguous copy.
py::array CContiguous(const py::array& array);

// A one-channel grey image (2-D uint8 or uint16) seen by the library without a copy; `keepAlive`
// receives the array whose buffer the image points into.
KIVMV::KivImage GreyImageView(const py::array& grey, const char* argument, py::array* keepAlive);
// A 1-D float32 array seen as a Kiv3DFloatArray without a copy (of a contiguous copy when the
// elements are strided).
KIVMV::Kiv3DFloatArray FloatArrayView(const py::array& values, const char* argument,
                                      py::array* keepAlive);
// A 1-D int32 array seen as a Kiv3DIntArray, likewise.
KIVMV::Kiv3DIntArray IntArrayView(const py::array& values, const char* argument,
                                  py::array* keepAlive);
// (N, 3) float32 normals, copied: the platform keeps them as an array of vectors.
KIVMV::KivVector3dArray NormalsFromArray(const py::array& normals, const char* argument);
// A uint8 colour array of shape (N, C) or (H, W, C), C = 1, 3 or 4, copied: the library may
// convert it in place.
KIVMV::KivColorArray ColourArrayFromArray(const py::array& colours, const char* argument);

// An array over the bytes of `mat` (continuous, 8-bit or any depth), sharing them: it keeps the
// matrix's buffer alive. `shape` must cover exactly the matrix's elements times its channels.
py::array ArrayOwningMat(const cv::Mat& mat, std::vector<py::ssize_t> shape);
// A colour array of one colour per pixel as (height, width, channels); as (length, channels) when
// its length is not height x width.
py::array ColoursAsImage(const KIVMV::KivColorArray& colours, int height, int width);
// A colour array of one colour per element as (length, channels).
py::array ColoursAsList(const KIVMV::KivColorArray& colours);
// A grey image result: (height, width, channels), or (height, width) with one channel.
py::array ImageAsArray(const KIVMV::KivImage& image);

}  // namespace kivlut_python
