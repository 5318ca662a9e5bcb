#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "KivImage.h"

namespace KIVMV {
namespace {

TEST(Image, DefaultIsEmpty) {
  KivImage image;
  EXPECT_EQ(0, image.Width());
  EXPECT_EQ(0, image.Height());
  EXPECT_EQ(nullptr, image.Data());
  EXPECT_EQ(0, image.Step());
  EXPECT_TRUE(image.Mat().empty());
}

TEST(Image, OwningConstructorIsZeroFilled) {
  KivImage image(5, 4, 3, KIV_IMAGE_16U);
  EXPECT_EQ(5, image.Width());
  EXPECT_EQ(4, image.Height());
  EXPECT_EQ(3, image.Channels());
  EXPECT_EQ(KIV_IMAGE_16U, image.BitDepth());
  EXPECT_EQ(5 * 3 * 2, image.Step());
  EXPECT_EQ(CV_16UC3, image.Mat().type());
  EXPECT_EQ(0, cv::countNonZero(image.Mat().reshape(1)));
}

TEST(Image, EveryTypeMapsToTheOpenCvDepth) {
  for (int t = 0; t <= 6; ++t) {
    KivImage image(2, 2, 1, static_cast<KivImageType>(t));
    EXPECT_EQ(t, image.BitDepth());
    EXPECT_EQ(t, image.Mat().depth());
  }
}

TEST(Image, WrapsCallerBufferWithPaddedStep) {
  // 5 x 3 pixels of 3 bytes, rows padded to 20 bytes.
  std::vector<unsigned char> buffer(3 * 20, 0xAB);
  KivImage image(buffer.data(), 5, 3, 3, 20, KIV_IMAGE_8U);
  EXPECT_EQ(buffer.data(), image.Data());
  EXPECT_EQ(5, image.Width());
  EXPECT_EQ(3, image.Height());
  EXPECT_EQ(3, image.Channels());
  EXPECT_EQ(KIV_IMAGE_8U, image.BitDepth());
  EXPECT_EQ(20, image.Step());
  EXPECT_EQ(buffer.data(), image.Mat().data);

  image.Mat().at<cv::Vec3b>(2, 4) = cv::Vec3b(1, 2, 3);
  EXPECT_EQ(1, buffer[2 * 20 + 4 * 3]);
  EXPECT_EQ(2, buffer[2 * 20 + 4 * 3 + 1]);
  EXPECT_EQ(3, buffer[2 * 20 + 4 * 3 + 2]);
  // Padding is not part of the image.
  EXPECT_EQ(0xAB, buffer[2 * 20 + 15]);
}

TEST(Image, WrapsWiderSamplesWithPaddedStep) {
  std::vector<float> buffer(2 * 8, 0.0f);
  KivImage image(reinterpret_cast<unsigned char*>(buffer.data()), 3, 2, 2, 32, KIV_IMAGE_32F);
  EXPECT_EQ(32, image.Step());
  EXPECT_EQ(KIV_IMAGE_32F, image.BitDepth());
  image.Mat().at<cv::Vec2f>(1, 2)[1] = 6.5f;
  EXPECT_EQ(6.5f, buffer[8 + 5]);
}

TEST(Image, AssigningNewMatLeavesCallerBufferUntouched) {
  std::vector<unsigned char> buffer(4 * 16);
  for (std::size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<unsigned char>(i);
  const std::vector<unsigned char> before = buffer;

  KivImage image(buffer.data(), 4, 4, 1, 16, KIV_IMAGE_8U);
  // Same size and type as the wrapped buffer: still must not be written into.
  image.Mat() = cv::Mat(4, 4, CV_8UC1, cv::Scalar(200));
  EXPECT_NE(buffer.data(), image.Data());
  EXPECT_EQ(4, image.Step());
  EXPECT_EQ(200, image.Data()[0]);
  EXPECT_EQ(before, buffer);

  image.Mat() = cv::Mat(2, 3, CV_16SC2, cv::Scalar(-5, 7));
  EXPECT_EQ(3, image.Width());
  EXPECT_EQ(2, image.Height());
  EXPECT_EQ(2, image.Channels());
  EXPECT_EQ(KIV_IMAGE_16S, image.BitDepth());
  EXPECT_EQ(3 * 2 * 2, image.Step());
  EXPECT_EQ(before, buffer);
}

TEST(Image, ZeroSizeWrapKeepsShape) {
  KivImage image(nullptr, 0, 7, 3, 0, KIV_IMAGE_32S);
  EXPECT_EQ(0, image.Width());
  EXPECT_EQ(7, image.Height());
  EXPECT_EQ(3, image.Channels());
  EXPECT_EQ(KIV_IMAGE_32S, image.BitDepth());
  EXPECT_EQ(nullptr, image.Data());

  KivImage copy = image.DeepCopy();
  EXPECT_EQ(7, copy.Height());
  EXPECT_EQ(3, copy.Channels());
  EXPECT_EQ(KIV_IMAGE_32S, copy.BitDepth());
}

TEST(Image, InvalidArgumentsThrow) {
  unsigned char buffer[64] = {};
  EXPECT_THROW(KivImage(buffer, -1, 2, 1, 8, KIV_IMAGE_8U), std::invalid_argument);
  EXPECT_THROW(KivImage(buffer, 2, -1, 1, 8, KIV_IMAGE_8U), std::invalid_argument);
  EXPECT_THROW(KivImage(buffer, 2, 2, 0, 8, KIV_IMAGE_8U), std::invalid_argument);
  EXPECT_THROW(KivImage(buffer, 2, 2, 5, 16, KIV_IMAGE_8U), std::invalid_argument);
  EXPECT_THROW(KivImage(buffer, 2, 2, 1, 8, static_cast<KivImageType>(7)), std::invalid_argument);
  EXPECT_THROW(KivImage(buffer, 2, 2, 1, 8, static_cast<KivImageType>(-1)), std::invalid_argument);
  // Step below one row: 4 pixels x 3 channels x 2 bytes = 24.
  EXPECT_THROW(KivImage(buffer, 4, 2, 3, 22, KIV_IMAGE_16U), std::invalid_argument);
  // Step not a multiple of the sample size.
  EXPECT_THROW(KivImage(buffer, 2, 2, 1, 9, KIV_IMAGE_32F), std::invalid_argument);
  EXPECT_THROW(KivImage(buffer, 0, 2, 1, -4, KIV_IMAGE_8U), std::invalid_argument);
  EXPECT_THROW(KivImage(nullptr, 2, 2, 1, 2, KIV_IMAGE_8U), std::invalid_argument);
  EXPECT_THROW(KivImage(-1, 2, 1, KIV_IMAGE_8U), std::invalid_argument);
  EXPECT_THROW(KivImage(2, 2, 0, KIV_IMAGE_8U), std::invalid_argument);
  EXPECT_THROW(KivImage(2, 2, 1, static_cast<KivImageType>(9)), std::invalid_argument);

  // The exact minimum step is fine.
  EXPECT_NO_THROW(KivImage(buffer, 4, 2, 3, 24, KIV_IMAGE_16U));
}

TEST(Image, CopySharesPixels) {
  KivImage image(3, 3, 1, KIV_IMAGE_8U);
  KivImage copy(image);
  KivImage assigned;
  assigned = image;
  EXPECT_EQ(image.Data(), copy.Data());
  EXPECT_EQ(image.Data(), assigned.Data());
  copy.Data()[4] = 99;
  EXPECT_EQ(99, image.Mat().at<unsigned char>(1, 1));
}

TEST(Image, DeepCopyOfWrappedBufferIsIndependent) {
  std::vector<std::uint16_t> buffer(2 * 4, 0);
  buffer[5] = 1234;
  KivImage image(reinterpret_cast<unsigned char*>(buffer.data()), 3, 2, 1, 8, KIV_IMAGE_16U);
  KivImage copy = image.DeepCopy();
  EXPECT_NE(image.Data(), copy.Data());
  EXPECT_EQ(3, copy.Width());
  EXPECT_EQ(2, copy.Height());
  EXPECT_EQ(KIV_IMAGE_16U, copy.BitDepth());
  EXPECT_EQ(1234, copy.Mat().at<std::uint16_t>(1, 1));
  copy.Mat().at<std::uint16_t>(1, 1) = 1;
  EXPECT_EQ(1234, buffer[5]);
}

}  // namespace
}  // namespace KIVMV
