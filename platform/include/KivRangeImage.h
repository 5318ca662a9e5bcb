#ifndef KIVMV_KIV_RANGE_IMAGE_H_
#define KIVMV_KIV_RANGE_IMAGE_H_

#include "KivDataType.h"
#include "KivMatMember.h"
#include "KivPlatformExport.h"

namespace KIVMV {

// A range (height) image: Width() x Height() single-channel pixels of one of the seven
// KivDataType types, plus the scale/offset that turn pixel coordinates and values into world
// units, and a free-form integer Type() tag.
//
// The pixels live in a cv::Mat (rows = height, cols = width, 1 channel). Copy construction and
// copy assignment share the pixels exactly like cv::Mat does: writing through one copy is seen
// by the other. Use DeepCopy() for an independent image.
//
// Width() and Height() are stored separately from the matrix because an image may be empty in
// one direction only (e.g. width 0, height 5) and must still report what it was created with.
// Mat() gives raw access to the pixels; replacing it with a matrix of another geometry or type is
// the caller's responsibility and does not update Width()/Height()/DataType().
class KIVMV_PLATFORM_API KivRangeImage {
 public:
  // 0 x 0, KIV_DATA_U8.
  KivRangeImage();
  // Zero-filled; throws std::invalid_argument for negative sizes, an unknown data type, or a row
  // pitch that does not fit an int.
  KivRangeImage(int width, int height, KivDataType dataType);

  // Independent copy of pixels and metadata.
  KivRangeImage DeepCopy() const;

  int Width() const { return width_; }
  int Height() const { return height_; }
  // Row pitch in bytes (Width() * sample size for images created here).
  int Step() const { return static_cast<int>(mat_.step[0]); }

  // Caller-defined tag; any value is accepted.
  int Type() const { return type_; }
  void SetType(int type) { type_ = type; }

  KivDataType DataType() const { return dataType_; }

  // First byte of the pixel buffer, nullptr when the image has no pixels.
  unsigned char* Data() const { return mat_.data; }
  // Typed view of Data(); T must match DataType().
  template <typename T>
  T* Ptr() const {
    return reinterpret_cast<T*>(mat_.data);
  }

  double ResolutionX() const { return resolution_[0]; }
  double ResolutionY() const { return resolution_[1]; }
  double ResolutionZ() const { return resolution_[2]; }
  double OffsetX() const { return offset_[0]; }
  double OffsetY() const { return offset_[1]; }
  double OffsetZ() const { return offset_[2]; }
  void SetResolution(double x, double y, double z);
  void SetOffset(double x, double y, double z);

  cv::Mat& Mat() { return mat_; }
  const cv::Mat& Mat() const { return mat_; }

 private:
  int width_ = 0;
  int height_ = 0;
  KivDataType dataType_ = KIV_DATA_U8;
  int type_ = 0;
  double resolution_[3] = {1.0, 1.0, 1.0};
  double offset_[3] = {0.0, 0.0, 0.0};
  platform_detail::MatMember mat_;
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_RANGE_IMAGE_H_
