#include "range/segmentation.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>

#include "common/numeric_helpers.h"

namespace KIVMV {

namespace segmentation_detail {

int ClampCount(int64_t count) { return count > INT_MAX ? INT_MAX : static_cast<int>(count); }

}  // namespace segmentation_detail

void generateSegmentedImages(const cv::Mat& src, cv::Mat& mask1, cv::Mat& mask2, cv::Mat& mask3,
                             cv::Mat& mask4, double t0, double t1, double t2, double t3, double t4,
                             cv::Mat& segment1, cv::Mat& segment2, cv::Mat& segment3,
                             cv::Mat& segment4, int& count1, int& count2, int& count3,
                             int& count4) {
  CV_Assert(src.type() == CV_32FC1);
  using numeric::NarrowToFloat;
  const float b0 = NarrowToFloat(t0), b1 = NarrowToFloat(t1), b2 = NarrowToFloat(t2),
              b3 = NarrowToFloat(t3), b4 = NarrowToFloat(t4);

  // Fresh matrices, assigned to the caller's only at the end: an output that aliases src (or
  // another output) must not be written while src is still being read.
  cv::Mat masks[4], segments[4];
  for (int k = 0; k < 4; ++k) {
    masks[k].create(src.dims, src.size.p, CV_8UC1);
    segments[k].create(src.dims, src.size.p, CV_32FC1);
  }
  int64_t inside[4] = {0, 0, 0, 0};

  if (src.total() > 0) {
    const cv::Mat* arrays[] = {&src,         &masks[0],    &masks[1],    &masks[2],    &masks[3],
                               &segments[0], &segments[1], &segments[2], &segments[3], nullptr};
    cv::Mat planes[9];
    cv::NAryMatIterator it(arrays, planes);
    const size_t n = it.size;
    for (size_t p = 0; p < it.nplanes; ++p, ++it) {
      const float* v = planes[0].ptr<float>();
      for (size_t i = 0; i < n; ++i) {
        const float x = v[i];
        // Comparisons with NaN are false, so NaN falls outside every mask.
        const bool in[4] = {x >= b0 && x < b1, x >= b1 && x < b2, x >= b2 && x < b3,
                            x >= b3 && x <= b4};
        for (int k = 0; k < 4; ++k) {
          planes[1 + k].ptr<uchar>()[i] = in[k] ? 255 : 0;
          planes[5 + k].ptr<float>()[i] = in[k] ? x : -FLT_MAX;
          inside[k] += in[k] ? 1 : 0;
        }
      }
    }
  }

  const int64_t total = static_cast<int64_t>(src.total());
  using segmentation_detail::ClampCount;
  count1 = ClampCount(total - inside[0]);
  count2 = ClampCount(total - inside[1]);
  count3 = ClampCount(total - inside[2]);
  count4 = ClampCount(total - inside[3]);
  mask1 = masks[0];
  mask2 = masks[1];
  mask3 = masks[2];
  mask4 = masks[3];
  segment1 = segments[0];
  segment2 = segments[1];
  segment3 = segments[2];
  segment4 = segments[3];
}

}  // namespace KIVMV
