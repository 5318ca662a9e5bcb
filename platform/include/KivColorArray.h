#ifndef KIVMV_KIV_COLOR_ARRAY_H_
#define KIVMV_KIV_COLOR_ARRAY_H_

#include "KivMatMember.h"
#include "KivPlatformExport.h"

namespace KIVMV {

// An array of 8-bit colours with 1, 3 or 4 interleaved channels; with 3 or 4 channels the bytes
// of each element are blue, green, red (, alpha).
//
// The bytes live in a cv::Mat of type CV_8UC(Channel()): 1 x Length() after Create(), Height() x
// Width() after SetSize(). Copies share the bytes like cv::Mat; use DeepCopy() for an independent
// array. The sizes are stored separately from the matrix, so replacing Mat() with a matrix of
// another geometry does not update Length()/Width()/Height()/Channel().
class KIVMV_PLATFORM_API KivColorArray {
 public:
  KivColorArray DeepCopy() const;

  // Zero-filled 1 x length array; Width() == length and Height() == 1, both 0 when length is 0.
  // Throws std::invalid_argument for a negative length or channels not in {1, 3, 4}.
  void Create(int length, int channels);
  // Zero-filled height x width array; Length() == width * height. Throws std::invalid_argument
  // for negative sizes, channels not in {1, 3, 4}, or width * height overflowing int.
  void SetSize(int width, int height, int channels);
  // Releases the bytes; afterwards every size, Channel() included, is 0.
  void Clear();

  int Length() const { return length_; }
  int Channel() const { return channels_; }
  int Width() const { return width_; }
  int Height() const { return height_; }
  // First byte, nullptr when empty.
  unsigned char* Data() const { return mat_.data; }

  cv::Mat& Mat() { return mat_; }
  const cv::Mat& Mat() const { return mat_; }

 private:
  int length_ = 0;
  int width_ = 0;
  int height_ = 0;
  int channels_ = 0;
  platform_detail::MatMember mat_;
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_COLOR_ARRAY_H_
