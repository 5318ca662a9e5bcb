// Plans to the library's objects: range images, grey images, flat arrays and colour arrays, with
// their pixels or elements filled as the plan says.
#pragma once

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <type_traits>
#include <vector>

#include "KivPlatform.h"
#include "LinearColorMapLUT_Para.h"
#include "fuzz_plans.h"

namespace kivfuzz {

// ---- Element values ----------------------------------------------------------------------------

// A double as an element of type T without undefined behaviour: integers saturate (NaN gives 0),
// floats beyond their range become infinities.
template <typename T>
T ElementFromDouble(double v) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::isnan(v)) return std::numeric_limits<T>::quiet_NaN();
    if (v > static_cast<double>(std::numeric_limits<T>::max())) {
      return std::numeric_limits<T>::infinity();
    }
    if (v < static_cast<double>(std::numeric_limits<T>::lowest())) {
      return -std::numeric_limits<T>::infinity();
    }
    return static_cast<T>(v);
  } else {
    if (std::isnan(v)) return 0;
    if (v >= static_cast<double>(std::numeric_limits<T>::max())) {
      return std::numeric_limits<T>::max();
    }
    if (v <= static_cast<double>(std::numeric_limits<T>::lowest())) {
      return std::numeric_limits<T>::lowest();
    }
    return static_cast<T>(v);
  }
}

// The invalid marker of a range-image pixel type (and of float arrays).
template <typename T>
T Marker() {
  if constexpr (std::is_floating_point_v<T>) return std::numeric_limits<T>::lowest();
  if constexpr (std::is_unsigned_v<T>) return 0;
  return std::numeric_limits<T>::lowest();
}

template <typename T>
T SprinkleValue(int kind) {
  using Limits = std::numeric_limits<T>;
  switch (kind) {
    case kMarker:
      return Marker<T>();
    case kNaN:
      if constexpr (std::is_floating_point_v<T>) return Limits::quiet_NaN();
      return Marker<T>();
    case kPlusInf:
      if constexpr (std::is_floating_point_v<T>) return Limits::infinity();
      return Limits::max();
    case kMinusInf:
      if constexpr (std::is_floating_point_v<T>) return -Limits::infinity();
      return Limits::lowest();
    case kNegativeZero:
      if constexpr (std::is_floating_point_v<T>) return static_cast<T>(-0.0);
      return 0;
    case kTypeMax:
      return Limits::max();
    case kTypeLowest:
      return Limits::lowest();
    case kOne:
      return 1;
    case kFloatMax:
      return ElementFromDouble<T>(static_cast<double>(FLT_MAX));
    case kZero:
    default:
      return 0;
  }
}

// Fills every element of `m` (any number of channels, rows need not be continuous) as `plan` says.
// Not traced by libFuzzer: this loop runs over every pixel of every input, and its comparisons
// say nothing about the library.
template <typename T>
__attribute__((no_sanitize("coverage"))) void FillMatAs(cv::Mat& m, const ValuesPlan& plan) {
  if (m.empty() || m.dims != 2) return;
  const size_t rowElements = static_cast<size_t>(m.cols) * static_cast<size_t>(m.channels());
  const size_t total = rowElements * static_cast<size_t>(m.rows);
  if (rowElements == 0) return;
  size_t byteIndex = 0;
  for (int r = 0; r < m.rows; ++r) {
    T* row = m.ptr<T>(r);
    for (size_t j = 0; j < rowElements; ++j) {
      const size_t index = static_cast<size_t>(r) * rowElements + j;
      if (plan.fill == 1) {
        row[j] = ElementFromDouble<T>(plan.start + plan.step * static_cast<double>(index));
      } else if (plan.block.empty()) {
        row[j] = 0;
      } else {
        unsigned char bytes[sizeof(T)];
        for (unsigned char& b : bytes) b = plan.block[byteIndex++ % plan.block.size()];
        std::memcpy(&row[j], bytes, sizeof(T));
      }
    }
  }
  for (const Sprinkle& s : plan.sprinkles) {
    const size_t index = s.position % total;
    m.ptr<T>(static_cast<int>(index / rowElements))[index % rowElements] = SprinkleValue<T>(s.kind);
  }
}

inline void FillMat(cv::Mat& m, const ValuesPlan& plan) {
  switch (m.depth()) {
    case CV_8U:
      return FillMatAs<uint8_t>(m, plan);
    case CV_8S:
      return FillMatAs<int8_t>(m, plan);
    case CV_16U:
      return FillMatAs<uint16_t>(m, plan);
    case CV_16S:
      return FillMatAs<int16_t>(m, plan);
    case CV_32S:
      return FillMatAs<int32_t>(m, plan);
    case CV_32F:
      return FillMatAs<float>(m, plan);
    case CV_64F:
      return FillMatAs<double>(m, plan);
    default:  // half floats: their bit patterns
      return FillMatAs<uint16_t>(m, plan);
  }
}

// ---- Range images ------------------------------------------------------------------------------

inline KIVMV::KivRangeImage BuildRangeImage(const RangeImagePlan& plan) {
  KIVMV::KivRangeImage image(plan.width, plan.height,
                             static_cast<KIVMV::KivDataType>(plan.dataType));
  image.SetType(plan.type);
  image.SetResolution(plan.resolution[0], plan.resolution[1], plan.resolution[2]);
  image.SetOffset(plan.offset[0], plan.offset[1], plan.offset[2]);
  const MatPlan& mat = plan.mat;
  switch (mat.shape) {
    case kMatEmpty:
      image.Mat() = cv::Mat();
      break;
    case kMatOtherSize:
      image.Mat() = cv::Mat(mat.rows, mat.cols, CV_MAKETYPE(plan.dataType, 1));
      break;
    case kMatOtherType:
      image.Mat() = cv::Mat(plan.height, plan.width, CV_MAKETYPE(mat.depth, mat.channels));
      break;
    case kMatPaddedRows: {
      // The view starts inside the wider rows when the padding is even.
      cv::Mat wide(plan.height, plan.width + mat.padding, CV_MAKETYPE(plan.dataType, 1),
                   cv::Scalar::all(0));
      const int left = mat.padding % 2 == 0 ? mat.padding / 2 : 0;
      image.Mat() = wide.colRange(left, left + plan.width);
      break;
    }
    case kMatManyChannels:
      image.Mat() = cv::Mat(plan.height, plan.width, CV_MAKETYPE(plan.dataType, mat.channels));
      break;
    case kMatThreeDims: {
      const int sizes[] = {plan.height, plan.width, 2};
      image.Mat() = cv::Mat(3, sizes, CV_MAKETYPE(plan.dataType, 1), cv::Scalar::all(0));
      break;
    }
    default:
      break;
  }
  FillMat(image.Mat(), plan.values);
  return image;
}

// ---- Flat arrays -------------------------------------------------------------------------------

// The matrix behind a Kiv3DFloatArray or Kiv3DIntArray of `depth`, as ArrayPlan::mangle says.
inline cv::Mat ArrayMatrix(const ArrayPlan& plan, int depth) {
  switch (plan.mangle) {
    case 1:
      return cv::Mat(1, plan.length, CV_8UC1, cv::Scalar::all(0));
    case 2:
      return cv::Mat(plan.length, 1, CV_MAKETYPE(depth, 1), cv::Scalar::all(0));
    case 3: {
      cv::Mat wide(plan.length, 2, CV_MAKETYPE(depth, 1), cv::Scalar::all(0));
      return wide.col(0);
    }
    default:
      return cv::Mat(1, plan.length, CV_MAKETYPE(depth, 1), cv::Scalar::all(0));
  }
}

inline KIVMV::Kiv3DFloatArray BuildFloatArray(const ArrayPlan& plan) {
  KIVMV::Kiv3DFloatArray array(plan.length);
  if (plan.mangle != 0) array.Mat() = ArrayMatrix(plan, CV_32F);
  FillMat(array.Mat(), plan.values);
  return array;
}

inline KIVMV::Kiv3DIntArray BuildIntArray(const ArrayPlan& plan) {
  KIVMV::Kiv3DIntArray array(plan.length);
  if (plan.mangle != 0) array.Mat() = ArrayMatrix(plan, CV_32S);
  FillMat(array.Mat(), plan.values);
  return array;
}

inline KIVMV::KivVector3dArray BuildVectorArray(const ArrayPlan& plan) {
  KIVMV::KivVector3dArray normals;
  normals.SetSize(plan.length);
  if (plan.length > 0) {
    cv::Mat view(1, 3 * plan.length, CV_32FC1, normals.Data());
    FillMat(view, plan.values);
  }
  return normals;
}

// ---- Grey images -------------------------------------------------------------------------------

// A KivImage and, for one around a caller's buffer, that buffer.
struct GreyImage {
  std::vector<uint8_t> buffer;
  KIVMV::KivImage image;
};

inline std::unique_ptr<GreyImage> BuildGreyImage(const GreyImagePlan& plan) {
  auto grey = std::make_unique<GreyImage>();
  const auto type = static_cast<KIVMV::KivImageType>(plan.depth);
  if (plan.callerBuffer) {
    const int sampleSize = KIVMV::SampleSize(plan.depth);
    const int step = (plan.width * plan.channels + plan.padding) * sampleSize;
    grey->buffer.assign(static_cast<size_t>(step) * static_cast<size_t>(plan.height), 0);
    grey->image =
        KIVMV::KivImage(grey->buffer.data(), plan.width, plan.height, plan.channels, step, type);
  } else {
    grey->image = KIVMV::KivImage(plan.width, plan.height, plan.channels, type);
  }
  FillMat(grey->image.Mat(), plan.values);
  if (plan.view == kGreyWindow && plan.width > 1) {
    cv::Mat& m = grey->image.Mat();
    m = m.colRange(1, m.cols);
  } else if (plan.view == kGreyThreeDims) {
    const int sizes[] = {plan.height, plan.width, 2};
    grey->image.Mat() = cv::Mat(3, sizes, CV_MAKETYPE(plan.depth, plan.channels), cv::Scalar(7));
  }
  return grey;
}

// ---- Colour arrays -----------------------------------------------------------------------------

// A colour array as `plan` says; `needed` is the length the call will ask for. The bytes of an
// input array are the plan's block repeated.
inline KIVMV::KivColorArray BuildColourArray(const ColourArrayPlan& plan, int needed) {
  KIVMV::KivColorArray colours;
  switch (plan.kind) {
    case kColourCreated:
      colours.Create(plan.length, plan.channels);
      break;
    case kColourRightLength:
      colours.Create(needed, plan.channels);
      break;
    case kColourSized2D:
      colours.SetSize(plan.length, plan.height, plan.channels);
      break;
    case kColourSwapped: {
      colours.Create(plan.length, plan.channels);
      const int rows = plan.swappedRows;
      const int cols = plan.swappedCols;
      switch (plan.swappedType) {
        case 0:
          colours.Mat() = cv::Mat(rows, cols, CV_8UC1, cv::Scalar::all(0));
          break;
        case 1:
          colours.Mat() = cv::Mat(rows, cols, CV_8UC3, cv::Scalar::all(0));
          break;
        case 2:
          colours.Mat() = cv::Mat(rows, cols, CV_32FC1, cv::Scalar::all(0));
          break;
        case 3: {
          cv::Mat wide(rows, 2 * cols, CV_8UC3, cv::Scalar::all(0));
          colours.Mat() = wide.colRange(0, cols);
          break;
        }
        default: {
          const int sizes[] = {rows, cols, 3};
          colours.Mat() = cv::Mat(3, sizes, CV_8UC1, cv::Scalar::all(0));
          break;
        }
      }
      break;
    }
    default:
      break;
  }
  if (!plan.bytes.empty() && !colours.Mat().empty()) {
    ValuesPlan bytes;
    bytes.block = plan.bytes;
    FillMat(colours.Mat(), bytes);
  }
  return colours;
}

// ---- Small values ------------------------------------------------------------------------------

inline KIVMV::KivColor ToColour(const ColourValue& c) {
  return KIVMV::KivColor(c.c[0], c.c[1], c.c[2], c.c[3]);
}

inline KIVMV::KivVector3d ToVector(const float (&v)[3]) {
  return KIVMV::KivVector3d(v[0], v[1], v[2]);
}

// Orders a five-point record's values (NaN last, as if it were the greatest) and its entries.
inline KIVMV::LinearColorMapLUT_Para ToRecord(const ParaPlan& plan) {
  double values[5];
  int indices[5];
  std::copy(std::begin(plan.values), std::end(plan.values), values);
  std::copy(std::begin(plan.indices), std::end(plan.indices), indices);
  if (plan.sorted) {
    const auto key = [](double v) {
      return std::isnan(v) ? std::numeric_limits<double>::infinity() : v;
    };
    std::sort(values, values + 5, [&](double a, double b) { return key(a) < key(b); });
    std::sort(indices, indices + 5);
  }
  KIVMV::LinearColorMapLUT_Para para;
  para.value0 = values[0];
  para.value1 = values[1];
  para.value2 = values[2];
  para.value3 = values[3];
  para.value4 = values[4];
  para.index0 = indices[0];
  para.index1 = indices[1];
  para.index2 = indices[2];
  para.index3 = indices[3];
  para.index4 = indices[4];
  return para;
}

}  // namespace kivfuzz
