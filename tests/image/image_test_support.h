// Test inputs for the grey-image and array code: random grey images of both bit depths, also
// wrapped around caller buffers whose rows are padded, and the real frames of the shared data
// folder as grey images and float arrays.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include "KivImage.h"
#include "range/range_test_support.h"

namespace KIVMV {
namespace testing_support {

// Sizes every path must survive: 1x1, a row, a column, odd sizes, a camera frame.
inline std::vector<std::pair<int, int>> GreyImageSizes() {
  return {{1, 1}, {1, 9}, {13, 1}, {7, 5}, {33, 31}, {640, 480}};
}

// A 37 x 21 colour destination of random bytes and a grey source of `depth` bits whose pixels are
// the destination's own bytes from `offset` on: a source that the colouring must read before it
// writes anything. Returned in a unique_ptr so that the source's pointer stays valid.
struct SourceInsideDestination {
  KivImage destination;
  KivImage source;
};

inline std::unique_ptr<SourceInsideDestination> MakeSourceInsideDestination(
    int depth, size_t offset, std::mt19937_64& random) {
  constexpr int kWidth = 37, kHeight = 21;
  auto made = std::make_unique<SourceInsideDestination>();
  made->destination = KivImage(kWidth, kHeight, 3, KIV_IMAGE_8U);
  const size_t sampleBytes = depth == 8 ? 1 : 2;
  const size_t bytes = made->destination.Mat().total() * made->destination.Mat().elemSize();
  if (offset + sampleBytes * kWidth * kHeight > bytes) return nullptr;
  uint8_t* data = made->destination.Mat().data;
  for (size_t i = 0; i < bytes; ++i) data[i] = static_cast<uint8_t>(random());
  made->source = KivImage(data + offset, kWidth, kHeight, 1, static_cast<int>(sampleBytes) * kWidth,
                          depth == 8 ? KIV_IMAGE_8U : KIV_IMAGE_16U);
  return made;
}

// A grey image that owns its pixels or, with padding > 0, wraps `buffer` (kept alive by the
// caller) whose rows are `padding` bytes longer than the pixels. Values are spread over the whole
// range with clusters, zeros and the maximum, so histograms have crowded and empty bins.
struct GreyImage {
  std::vector<uint8_t> buffer;
  KivImage image;
};

template <typename T>
std::unique_ptr<GreyImage> RandomGreyImage(int width, int height, int padding,
                                           std::mt19937_64& random) {
  static_assert(std::is_same_v<T, uint8_t> || std::is_same_v<T, uint16_t>);
  auto grey = std::make_unique<GreyImage>();
  const KivImageType type = sizeof(T) == 1 ? KIV_IMAGE_8U : KIV_IMAGE_16U;
  const int step = width * static_cast<int>(sizeof(T)) + padding * static_cast<int>(sizeof(T));
  if (padding > 0) {
    grey->buffer.assign(static_cast<size_t>(step) * height, 0xEE);  // padding bytes stay 0xEE
    grey->image = KivImage(grey->buffer.data(), width, height, 1, step, type);
  } else {
    grey->image = KivImage(width, height, 1, type);
  }
  const int maximum = sizeof(T) == 1 ? 255 : 65535;
  std::uniform_int_distribution<int> pick(0, 99);
  std::uniform_int_distribution<int> any(0, maximum);
  std::normal_distribution<double> cluster(maximum * 0.3, maximum * 0.05);
  cv::Mat& pixels = grey->image.Mat();
  for (int y = 0; y < height; ++y) {
    T* row = pixels.ptr<T>(y);
    for (int x = 0; x < width; ++x) {
      const int kind = pick(random);
      int v;
      if (kind < 5) {
        v = 0;
      } else if (kind < 7) {
        v = maximum;
      } else if (kind < 60) {
        v = static_cast<int>(std::lround(cluster(random)));
      } else {
        v = any(random);
      }
      row[x] = static_cast<T>(std::min(maximum, std::max(0, v)));
    }
  }
  return grey;
}

// The real 16-bit frames of the shared data folder as grey images (empty without the folder).
inline std::vector<RealFrame> LoadRealGreyFrames() {
  std::vector<RealFrame> frames;
  for (RealFrame& frame : LoadRealFrames()) {
    if (frame.image.DataType() == KIV_DATA_U16) frames.push_back(frame);
  }
  return frames;
}

// A real frame's pixels as a 16-bit grey image, and scaled down to an 8-bit one.
inline KivImage GreyImageFrom(const KivRangeImage& frame, bool eightBit) {
  KivImage image;
  if (eightBit) {
    frame.Mat().convertTo(image.Mat(), CV_8U, 1.0 / 32.0);
  } else {
    image.Mat() = frame.Mat().clone();
  }
  return image;
}

}  // namespace testing_support
}  // namespace KIVMV
