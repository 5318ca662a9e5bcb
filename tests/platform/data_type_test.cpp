#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include "KivDataType.h"

namespace KIVMV {
namespace {

TEST(DataType, ValuesAreFixed) {
  EXPECT_EQ(0, KIV_DATA_U8);
  EXPECT_EQ(1, KIV_DATA_S8);
  EXPECT_EQ(2, KIV_DATA_U16);
  EXPECT_EQ(3, KIV_DATA_S16);
  EXPECT_EQ(4, KIV_DATA_S32);
  EXPECT_EQ(5, KIV_DATA_F32);
  EXPECT_EQ(6, KIV_DATA_F64);
}

TEST(DataType, ImageTypesMatchOpenCvDepths) {
  EXPECT_EQ(CV_8U, KIV_IMAGE_8U);
  EXPECT_EQ(CV_8S, KIV_IMAGE_8S);
  EXPECT_EQ(CV_16U, KIV_IMAGE_16U);
  EXPECT_EQ(CV_16S, KIV_IMAGE_16S);
  EXPECT_EQ(CV_32S, KIV_IMAGE_32S);
  EXPECT_EQ(CV_32F, KIV_IMAGE_32F);
  EXPECT_EQ(CV_64F, KIV_IMAGE_64F);
}

TEST(DataType, SampleSizes) {
  for (int t = 0; t <= 6; ++t) {
    EXPECT_TRUE(IsKnownSampleType(t));
    EXPECT_EQ(static_cast<int>(CV_ELEM_SIZE(CV_MAKETYPE(t, 1))), SampleSize(t)) << t;
  }
  EXPECT_FALSE(IsKnownSampleType(-1));
  EXPECT_FALSE(IsKnownSampleType(7));
  EXPECT_EQ(0, SampleSize(7));
  EXPECT_EQ(0, SampleSize(-1));
}

}  // namespace
}  // namespace KIVMV
