#ifndef KIVMV_KIV_MAT_MEMBER_H_
#define KIVMV_KIV_MAT_MEMBER_H_

#include <opencv2/core.hpp>

#include "KivPlatformExport.h"

namespace KIVMV {
namespace platform_detail {

// The cv::Mat member of the platform's images and arrays. It is a cv::Mat whose moves are
// noexcept, which cv::Mat's own are not declared to be although they only hand the header over,
// so that the classes holding one need no special members of their own and a growing std::vector
// of images moves them instead of copying. Copies share the elements like cv::Mat.
class KIVMV_PLATFORM_API MatMember : public cv::Mat {
 public:
  MatMember() = default;
  MatMember(const cv::Mat& mat) : cv::Mat(mat) {}
  MatMember(const MatMember&) = default;
  MatMember& operator=(const MatMember&) = default;
  MatMember(MatMember&&) noexcept = default;
  MatMember& operator=(MatMember&&) noexcept = default;
  ~MatMember() = default;
  using cv::Mat::operator=;
};

}  // namespace platform_detail
}  // namespace KIVMV

#endif  // KIVMV_KIV_MAT_MEMBER_H_
