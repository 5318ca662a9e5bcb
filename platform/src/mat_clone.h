#ifndef KIVMV_PLATFORM_SRC_MAT_CLONE_H_
#define KIVMV_PLATFORM_SRC_MAT_CLONE_H_

#include <opencv2/core.hpp>

namespace KIVMV {
namespace internal {

// cv::Mat::clone() turns an empty matrix such as 5 x 0 into a typeless 0 x 0 one; our containers
// report sizes and types from their matrices, so an empty one must keep its shape when copied.
inline cv::Mat CloneKeepingShape(const cv::Mat& m) {
  if (!m.empty() || m.dims > 2) return m.clone();
  return cv::Mat(m.rows, m.cols, m.type());
}

// Zero-filled rows x cols matrix that keeps its shape even when it has no elements.
inline cv::Mat ZeroMat(int rows, int cols, int type) {
  cv::Mat m(rows, cols, type);
  if (!m.empty()) m.setTo(cv::Scalar::all(0));
  return m;
}

// A copy of a platform container whose matrix holds elements of its own; everything else (sizes,
// scale, tags) is copied as it is.
template <typename Container>
Container DeepCopyOf(const Container& container) {
  Container copy(container);
  copy.Mat() = CloneKeepingShape(container.Mat());
  return copy;
}

}  // namespace internal
}  // namespace KIVMV

#endif  // KIVMV_PLATFORM_SRC_MAT_CLONE_H_
