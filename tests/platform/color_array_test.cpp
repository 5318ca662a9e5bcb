#include <gtest/gtest.h>

#include <cstddef>
#include <stdexcept>

#include "KivColorArray.h"

namespace KIVMV {
namespace {

bool AllBytesZero(const cv::Mat& m) {
  for (int r = 0; r < m.rows; ++r) {
    const unsigned char* row = m.ptr<unsigned char>(r);
    for (std::size_t i = 0; i < static_cast<std::size_t>(m.cols) * m.elemSize(); ++i) {
      if (row[i] != 0) return false;
    }
  }
  return true;
}

TEST(ColorArray, DefaultIsEmpty) {
  KivColorArray colors;
  EXPECT_EQ(0, colors.Length());
  EXPECT_EQ(0, colors.Channel());
  EXPECT_EQ(0, colors.Width());
  EXPECT_EQ(0, colors.Height());
  EXPECT_EQ(nullptr, colors.Data());
}

TEST(ColorArray, CreateMakesOneZeroFilledRow) {
  for (int channels : {1, 3, 4}) {
    KivColorArray colors;
    colors.Create(5, channels);
    EXPECT_EQ(5, colors.Length());
    EXPECT_EQ(channels, colors.Channel());
    EXPECT_EQ(5, colors.Width());
    EXPECT_EQ(1, colors.Height());
    EXPECT_EQ(CV_8UC(channels), colors.Mat().type());
    EXPECT_EQ(1, colors.Mat().rows);
    EXPECT_EQ(5, colors.Mat().cols);
    EXPECT_EQ(colors.Mat().data, colors.Data());
    EXPECT_TRUE(AllBytesZero(colors.Mat()));
  }
}

TEST(ColorArray, CreateWithZeroLength) {
  KivColorArray colors;
  colors.Create(0, 3);
  EXPECT_EQ(0, colors.Length());
  EXPECT_EQ(3, colors.Channel());
  EXPECT_EQ(0, colors.Width());
  EXPECT_EQ(0, colors.Height());
  EXPECT_EQ(nullptr, colors.Data());
}

TEST(ColorArray, BytesAreBlueGreenRedInterleaved) {
  KivColorArray colors;
  colors.Create(2, 3);
  colors.Mat().at<cv::Vec3b>(0, 1) = cv::Vec3b(10, 20, 30);
  const unsigned char* d = colors.Data();
  EXPECT_EQ(10, d[3]);
  EXPECT_EQ(20, d[4]);
  EXPECT_EQ(30, d[5]);
}

TEST(ColorArray, SetSizeMakesZeroFilledGrid) {
  KivColorArray colors;
  colors.SetSize(3, 2, 4);
  EXPECT_EQ(6, colors.Length());
  EXPECT_EQ(3, colors.Width());
  EXPECT_EQ(2, colors.Height());
  EXPECT_EQ(4, colors.Channel());
  EXPECT_EQ(2, colors.Mat().rows);
  EXPECT_EQ(3, colors.Mat().cols);
  EXPECT_EQ(CV_8UC4, colors.Mat().type());
  EXPECT_TRUE(AllBytesZero(colors.Mat()));

  colors.SetSize(0, 5, 1);
  EXPECT_EQ(0, colors.Length());
  EXPECT_EQ(0, colors.Width());
  EXPECT_EQ(5, colors.Height());
  EXPECT_EQ(nullptr, colors.Data());
}

TEST(ColorArray, ClearReleasesEverything) {
  KivColorArray colors;
  colors.SetSize(4, 4, 3);
  colors.Clear();
  EXPECT_EQ(0, colors.Length());
  EXPECT_EQ(0, colors.Channel());
  EXPECT_EQ(0, colors.Width());
  EXPECT_EQ(0, colors.Height());
  EXPECT_EQ(nullptr, colors.Data());
  EXPECT_TRUE(colors.Mat().empty());
}

TEST(ColorArray, InvalidArgumentsThrow) {
  KivColorArray colors;
  EXPECT_THROW(colors.Create(-1, 3), std::invalid_argument);
  for (int channels : {-1, 0, 2, 5}) {
    EXPECT_THROW(colors.Create(4, channels), std::invalid_argument) << channels;
    EXPECT_THROW(colors.SetSize(2, 2, channels), std::invalid_argument) << channels;
  }
  EXPECT_THROW(colors.SetSize(-1, 2, 3), std::invalid_argument);
  EXPECT_THROW(colors.SetSize(2, -1, 3), std::invalid_argument);
  EXPECT_THROW(colors.SetSize(65536, 65536, 1), std::invalid_argument);
  // A failed call leaves the array as it was.
  EXPECT_EQ(0, colors.Length());
  EXPECT_EQ(0, colors.Channel());
}

TEST(ColorArray, CopySharesBytes) {
  KivColorArray colors;
  colors.Create(3, 3);
  KivColorArray copy(colors);
  KivColorArray assigned;
  assigned = colors;
  EXPECT_EQ(colors.Data(), copy.Data());
  copy.Data()[2] = 77;
  EXPECT_EQ(77, colors.Data()[2]);
  EXPECT_EQ(77, assigned.Data()[2]);
  EXPECT_EQ(3, assigned.Length());
}

TEST(ColorArray, DeepCopyIsIndependent) {
  KivColorArray colors;
  colors.SetSize(2, 3, 4);
  colors.Data()[7] = 9;
  KivColorArray copy = colors.DeepCopy();
  EXPECT_NE(colors.Data(), copy.Data());
  EXPECT_EQ(6, copy.Length());
  EXPECT_EQ(2, copy.Width());
  EXPECT_EQ(3, copy.Height());
  EXPECT_EQ(4, copy.Channel());
  EXPECT_EQ(9, copy.Data()[7]);
  copy.Data()[7] = 1;
  EXPECT_EQ(9, colors.Data()[7]);
}

}  // namespace
}  // namespace KIVMV
