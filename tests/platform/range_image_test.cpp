#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <stdexcept>

#include "KivRangeImage.h"

namespace KIVMV {
namespace {

bool AllBytesZero(const unsigned char* data, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (data[i] != 0) return false;
  }
  return true;
}

TEST(RangeImage, DefaultIsEmptyU8) {
  KivRangeImage image;
  EXPECT_EQ(0, image.Width());
  EXPECT_EQ(0, image.Height());
  EXPECT_EQ(KIV_DATA_U8, image.DataType());
  EXPECT_EQ(0, image.Type());
  EXPECT_EQ(nullptr, image.Data());
  EXPECT_TRUE(image.Mat().empty());
  EXPECT_EQ(1.0, image.ResolutionX());
  EXPECT_EQ(1.0, image.ResolutionY());
  EXPECT_EQ(1.0, image.ResolutionZ());
  EXPECT_EQ(0.0, image.OffsetX());
  EXPECT_EQ(0.0, image.OffsetY());
  EXPECT_EQ(0.0, image.OffsetZ());
}

TEST(RangeImage, EveryDataTypeIsZeroFilledWithMatchingMat) {
  const int expectedMatTypes[] = {CV_8UC1,  CV_8SC1,  CV_16UC1, CV_16SC1,
                                  CV_32SC1, CV_32FC1, CV_64FC1};
  const int sampleSizes[] = {1, 1, 2, 2, 4, 4, 8};
  for (int t = 0; t <= 6; ++t) {
    KivRangeImage image(7, 3, static_cast<KivDataType>(t));
    EXPECT_EQ(7, image.Width());
    EXPECT_EQ(3, image.Height());
    EXPECT_EQ(t, image.DataType());
    EXPECT_EQ(0, image.Type());
    EXPECT_EQ(7 * sampleSizes[t], image.Step()) << t;
    EXPECT_EQ(expectedMatTypes[t], image.Mat().type()) << t;
    EXPECT_EQ(3, image.Mat().rows);
    EXPECT_EQ(7, image.Mat().cols);
    EXPECT_EQ(image.Mat().data, image.Data());
    ASSERT_NE(nullptr, image.Data());
    EXPECT_TRUE(AllBytesZero(image.Data(), static_cast<std::size_t>(image.Step()) * 3)) << t;
    EXPECT_EQ(1.0, image.ResolutionX());
    EXPECT_EQ(0.0, image.OffsetZ());
  }
}

TEST(RangeImage, ZeroWidthOrHeightKeepsRequestedSize) {
  KivRangeImage narrow(0, 5, KIV_DATA_F32);
  EXPECT_EQ(0, narrow.Width());
  EXPECT_EQ(5, narrow.Height());
  EXPECT_EQ(KIV_DATA_F32, narrow.DataType());
  EXPECT_EQ(nullptr, narrow.Data());
  EXPECT_EQ(0, narrow.Step());
  EXPECT_TRUE(narrow.Mat().empty());

  KivRangeImage flat(5, 0, KIV_DATA_U16);
  EXPECT_EQ(5, flat.Width());
  EXPECT_EQ(0, flat.Height());
  EXPECT_EQ(nullptr, flat.Data());
  EXPECT_EQ(10, flat.Step());

  KivRangeImage copy = narrow.DeepCopy();
  EXPECT_EQ(0, copy.Width());
  EXPECT_EQ(5, copy.Height());
  EXPECT_EQ(5, copy.Mat().rows);
  EXPECT_EQ(CV_32FC1, copy.Mat().type());
}

TEST(RangeImage, InvalidArgumentsThrow) {
  EXPECT_THROW(KivRangeImage(-1, 2, KIV_DATA_U8), std::invalid_argument);
  EXPECT_THROW(KivRangeImage(2, -1, KIV_DATA_U8), std::invalid_argument);
  EXPECT_THROW(KivRangeImage(2, 2, static_cast<KivDataType>(7)), std::invalid_argument);
  EXPECT_THROW(KivRangeImage(2, 2, static_cast<KivDataType>(-1)), std::invalid_argument);
  EXPECT_THROW(KivRangeImage(INT_MAX / 4, 1, KIV_DATA_F64), std::invalid_argument);
}

TEST(RangeImage, TypeAcceptsAnyInt) {
  KivRangeImage image(1, 1, KIV_DATA_U8);
  image.SetType(-17);
  EXPECT_EQ(-17, image.Type());
  image.SetType(INT_MAX);
  EXPECT_EQ(INT_MAX, image.Type());
}

TEST(RangeImage, ResolutionAndOffset) {
  KivRangeImage image(2, 2, KIV_DATA_S16);
  image.SetResolution(0.5, 0.25, 0.125);
  image.SetOffset(-1.5, 2.5, 100.0);
  EXPECT_EQ(0.5, image.ResolutionX());
  EXPECT_EQ(0.25, image.ResolutionY());
  EXPECT_EQ(0.125, image.ResolutionZ());
  EXPECT_EQ(-1.5, image.OffsetX());
  EXPECT_EQ(2.5, image.OffsetY());
  EXPECT_EQ(100.0, image.OffsetZ());
}

TEST(RangeImage, CopySharesPixels) {
  KivRangeImage image(4, 2, KIV_DATA_S32);
  KivRangeImage copy(image);
  KivRangeImage assigned;
  assigned = image;
  EXPECT_EQ(image.Data(), copy.Data());
  EXPECT_EQ(image.Data(), assigned.Data());
  copy.Ptr<int>()[5] = 42;
  EXPECT_EQ(42, image.Mat().at<int>(1, 1));
  EXPECT_EQ(42, assigned.Ptr<int>()[5]);
}

TEST(RangeImage, DeepCopyIsIndependent) {
  KivRangeImage image(3, 2, KIV_DATA_F64);
  image.SetType(9);
  image.SetResolution(2, 3, 4);
  image.SetOffset(5, 6, 7);
  image.Ptr<double>()[4] = 1.25;

  KivRangeImage copy = image.DeepCopy();
  EXPECT_NE(image.Data(), copy.Data());
  EXPECT_EQ(3, copy.Width());
  EXPECT_EQ(2, copy.Height());
  EXPECT_EQ(KIV_DATA_F64, copy.DataType());
  EXPECT_EQ(9, copy.Type());
  EXPECT_EQ(image.Step(), copy.Step());
  EXPECT_EQ(3.0, copy.ResolutionY());
  EXPECT_EQ(7.0, copy.OffsetZ());
  EXPECT_EQ(1.25, copy.Ptr<double>()[4]);

  copy.Ptr<double>()[4] = -8.0;
  EXPECT_EQ(1.25, image.Ptr<double>()[4]);
}

}  // namespace
}  // namespace KIVMV
