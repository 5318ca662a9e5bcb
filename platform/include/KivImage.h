#ifndef KIVMV_KIV_IMAGE_H_
#define KIVMV_KIV_IMAGE_H_

#include "KivDataType.h"
#include "KivMatMember.h"
#include "KivPlatformExport.h"

namespace KIVMV {

// A 2-D image whose pixels are a cv::Mat held by the image. Every property (Width, Height,
// Channels, BitDepth, Step, Data) is read from that matrix, so assigning a new matrix through
// Mat() changes the image. An image that wraps a caller's buffer therefore just drops its
// reference to that buffer when a new cv::Mat is assigned; the caller's bytes are not written.
// (Assigning a cv::MatExpr, or passing Mat() as the output of an OpenCV function, follows OpenCV
// rules instead: with matching size and type the result is written into the existing buffer.)
//
// Copies share the pixels like cv::Mat; use DeepCopy() for an independent image. An empty
// default image reports the matrix defaults: 0 x 0, 1 channel, KIV_IMAGE_8U, step 0.
class KIVMV_PLATFORM_API KivImage {
 public:
  KivImage() = default;
  // Wraps the caller's buffer without copying; the buffer must outlive every image sharing it.
  // step is the row pitch in bytes. Throws std::invalid_argument for negative sizes, channels
  // outside 1..4, an unknown type, a step smaller than width * channels * sample size or not a
  // multiple of the sample size, or null data with a non-zero size.
  KivImage(unsigned char* data, int width, int height, int channels, int step, KivImageType type);
  // Owning, zero-filled image; same argument checks as above.
  KivImage(int width, int height, int channels, KivImageType type);

  KivImage DeepCopy() const;

  int Width() const { return mat_.cols; }
  int Height() const { return mat_.rows; }
  int Channels() const { return mat_.channels(); }
  KivImageType BitDepth() const { return static_cast<KivImageType>(mat_.depth()); }
  // First byte, nullptr when the matrix has no data.
  unsigned char* Data() const { return mat_.data; }
  // Row pitch in bytes.
  int Step() const { return static_cast<int>(mat_.step[0]); }

  cv::Mat& Mat() { return mat_; }
  const cv::Mat& Mat() const { return mat_; }

 private:
  platform_detail::MatMember mat_;
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_IMAGE_H_
