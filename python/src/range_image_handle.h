// kivlut.RangeImage: a KivRangeImage over a numpy array's pixels, and the array that owns them.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <array>

#include "KivPlatform.h"

namespace kivlut_python {

namespace py = pybind11;

class RangeImageHandle {
 public:
  // `pixels`: 2-D, one of the seven pixel types; wrapped when C-contiguous, copied otherwise.
  RangeImageHandle(const py::array& pixels, const std::array<double, 3>& resolution,
                   const std::array<double, 3>& offset, int type);

  KIVMV::KivRangeImage& Image() { return image_; }
  const KIVMV::KivRangeImage& Image() const { return image_; }
  // The array the image's pixels live in: the caller's own when it was wrapped.
  const py::array& Pixels() const { return pixels_; }

 private:
  py::array pixels_;
  KIVMV::KivRangeImage image_;
};

// The pixel type of a 2-D array of one of the seven types; a TypeError naming `argument` otherwise.
KIVMV::KivDataType PixelTypeOf(const py::array& pixels, const char* argument);
// A range image over `pixels` (see RangeImageHandle); `keepAlive` receives the array it points
// into.
KIVMV::KivRangeImage RangeImageView(const py::array& pixels, const char* argument,
                                    py::array* keepAlive);

void BindRangeImage(py::module_& module);

}  // namespace kivlut_python
