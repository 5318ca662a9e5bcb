// Pixel access by type code for the platform's range-image tests: reading and writing pixels as
// doubles, building images pixel by pixel, and comparing pixel bytes.
#pragma once

#include <cstdint>
#include <cstring>

#include "KivDataType.h"
#include "KivRangeImage.h"

namespace KIVMV {
namespace testing_support {

// Calls f(T{}) with the C++ type of a pixel-type code.
template <typename F>
void WithPixelType(int type, F&& f) {
  switch (type) {
    case KIV_DATA_U8:
      return f(uint8_t{});
    case KIV_DATA_S8:
      return f(int8_t{});
    case KIV_DATA_U16:
      return f(uint16_t{});
    case KIV_DATA_S16:
      return f(int16_t{});
    case KIV_DATA_S32:
      return f(int32_t{});
    case KIV_DATA_F32:
      return f(float{});
    default:
      return f(double{});
  }
}

inline double PixelAt(const KivRangeImage& image, int row, int col) {
  double value = 0.0;
  WithPixelType(image.DataType(), [&](auto t) {
    using T = decltype(t);
    value = static_cast<double>(image.Mat().ptr<T>(row)[col]);
  });
  return value;
}

// Stores a double into a pixel; the caller passes only values the type can hold.
inline void SetPixel(KivRangeImage& image, int row, int col, double value) {
  WithPixelType(image.DataType(), [&](auto t) {
    using T = decltype(t);
    image.Mat().ptr<T>(row)[col] = static_cast<T>(value);
  });
}

// A width x height image of `type` whose pixel (row, col) is pixel(T{}, row, col).
template <typename Pixel>
KivRangeImage ImageFrom(int type, int width, int height, Pixel&& pixel) {
  KivRangeImage image(width, height, static_cast<KivDataType>(type));
  WithPixelType(type, [&](auto t) {
    using T = decltype(t);
    for (int row = 0; row < height; ++row) {
      for (int col = 0; col < width; ++col) image.Mat().ptr<T>(row)[col] = pixel(t, row, col);
    }
  });
  return image;
}

// Same size, pixel type and pixel bytes (row padding aside).
inline bool SameBytes(const KivRangeImage& a, const KivRangeImage& b) {
  if (a.Width() != b.Width() || a.Height() != b.Height() || a.DataType() != b.DataType()) {
    return false;
  }
  const std::size_t rowBytes = static_cast<std::size_t>(a.Width()) * a.Mat().elemSize();
  for (int row = 0; row < a.Height(); ++row) {
    if (std::memcmp(a.Mat().ptr(row), b.Mat().ptr(row), rowBytes) != 0) return false;
  }
  return true;
}

}  // namespace testing_support
}  // namespace KIVMV
