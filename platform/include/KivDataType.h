#ifndef KIVMV_KIV_DATA_TYPE_H_
#define KIVMV_KIV_DATA_TYPE_H_

namespace KIVMV {

// Pixel types of range images. The values are part of the file and wire formats and equal the
// OpenCV depth codes, so they may be cast to and from int freely. The underlying type is fixed
// so that out-of-range values coming from callers can be held and rejected without UB.
enum KivDataType : int {
  KIV_DATA_U8 = 0,
  KIV_DATA_S8 = 1,
  KIV_DATA_U16 = 2,
  KIV_DATA_S16 = 3,
  KIV_DATA_S32 = 4,
  KIV_DATA_F32 = 5,
  KIV_DATA_F64 = 6,
};

// Sample types of 2-D images; same numbers as the OpenCV depths (CV_8U .. CV_64F).
enum KivImageType : int {
  KIV_IMAGE_8U = 0,
  KIV_IMAGE_8S = 1,
  KIV_IMAGE_16U = 2,
  KIV_IMAGE_16S = 3,
  KIV_IMAGE_32S = 4,
  KIV_IMAGE_32F = 5,
  KIV_IMAGE_64F = 6,
};

// True for the seven defined codes 0..6.
constexpr bool IsKnownSampleType(int type) { return type >= 0 && type <= 6; }

// Bytes per sample of one of the seven codes; 0 for an unknown code.
constexpr int SampleSize(int type) {
  switch (type) {
    case 0:
    case 1:
      return 1;
    case 2:
    case 3:
      return 2;
    case 4:
    case 5:
      return 4;
    case 6:
      return 8;
    default:
      return 0;
  }
}

}  // namespace KIVMV

#endif  // KIVMV_KIV_DATA_TYPE_H_
