// The matrix a grey-image colouring writes its result into.
#pragma once

#include <opencv2/core.hpp>

#include "KivImage.h"

namespace KIVMV {

// The destination's own matrix when it alone holds a buffer that OpenCV allocated, of exactly this
// shape and type, and that is not the source's: writing into it then shows nowhere else, and a
// live preview colouring many frames a second is spared the page faults of a fresh 36 MB buffer on
// every call. Otherwise a new matrix. A destination wrapped around a caller's memory, or sharing
// its pixels with another image, is never written into.
inline cv::Mat ResultMatrix(const KivImage& dst, const cv::Mat& source, int type) {
  const cv::Mat& current = dst.Mat();
  const bool reusable = current.u != nullptr && current.u->refcount == 1 && current.dims == 2 &&
                        current.rows == source.rows && current.cols == source.cols &&
                        current.type() == type && current.isContinuous() &&
                        current.data == current.datastart && current.datastart != source.datastart;
  return reusable ? current : cv::Mat(source.rows, source.cols, type);
}

}  // namespace KIVMV
