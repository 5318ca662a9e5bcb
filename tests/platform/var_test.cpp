#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <stdexcept>

#include "KivImage.h"
#include "KivVar.h"

namespace KIVMV {
namespace {

TEST(Var, DefaultIsEmpty) {
  KivVar var;
  EXPECT_TRUE(var.IsEmpty());
  EXPECT_FALSE(var.IsInt());
  EXPECT_FALSE(var.IsDouble());
  EXPECT_EQ(0, var.ToInt());
  EXPECT_EQ(0.0, var.ToDouble());
}

TEST(Var, HoldsInt) {
  KivVar var(-42);
  EXPECT_TRUE(var.IsInt());
  EXPECT_FALSE(var.IsEmpty());
  EXPECT_FALSE(var.IsDouble());
  EXPECT_EQ(-42, var.ToInt());
  EXPECT_EQ(-42.0, var.ToDouble());
  EXPECT_EQ(INT_MAX, KivVar(INT_MAX).ToInt());
  EXPECT_EQ(static_cast<double>(INT_MIN), KivVar(INT_MIN).ToDouble());
}

TEST(Var, HoldsDouble) {
  KivVar var(2.75);
  EXPECT_FALSE(var.IsInt());
  EXPECT_TRUE(var.IsDouble());
  EXPECT_FALSE(var.IsEmpty());
  EXPECT_EQ(2.75, var.ToDouble());
}

TEST(Var, DoubleToIntTruncatesTowardZero) {
  EXPECT_EQ(2, KivVar(2.99).ToInt());
  EXPECT_EQ(-2, KivVar(-2.99).ToInt());
  EXPECT_EQ(0, KivVar(-0.5).ToInt());
  EXPECT_EQ(INT_MAX, KivVar(2147483647.9).ToInt());
  EXPECT_EQ(INT_MIN, KivVar(-2147483648.9).ToInt());
}

TEST(Var, DoubleToIntOutOfRangeOrNaNIsZero) {
  EXPECT_EQ(0, KivVar(2147483648.0).ToInt());
  EXPECT_EQ(0, KivVar(-2147483649.0).ToInt());
  EXPECT_EQ(0, KivVar(1e300).ToInt());
  EXPECT_EQ(0, KivVar(std::numeric_limits<double>::quiet_NaN()).ToInt());
  EXPECT_EQ(0, KivVar(std::numeric_limits<double>::infinity()).ToInt());
  EXPECT_EQ(0, KivVar(-std::numeric_limits<double>::infinity()).ToInt());
}

TEST(Var, CopyAndAssignment) {
  KivVar a(5);
  KivVar b(a);
  EXPECT_TRUE(b.IsInt());
  EXPECT_EQ(5, b.ToInt());
  b = KivVar(1.5);
  EXPECT_TRUE(b.IsDouble());
  EXPECT_TRUE(a.IsInt());
  b = KivVar();
  EXPECT_TRUE(b.IsEmpty());
}

TEST(Var, NumbersAreNotImages) {
  EXPECT_FALSE(KivVar().IsImage());
  EXPECT_FALSE(KivVar(3).IsImage());
  EXPECT_FALSE(KivVar(3.5).IsImage());
  const KivImage none = KivVar(3).ToImage();
  EXPECT_EQ(0, none.Width());
  EXPECT_EQ(0, none.Height());
  EXPECT_EQ(nullptr, none.Data());
}

TEST(Var, HoldsImageSharingItsPixels) {
  KivImage image(5, 3, 3, KIV_IMAGE_8U);
  image.Mat().setTo(cv::Scalar(7, 8, 9));
  const KivVar var(image);
  EXPECT_TRUE(var.IsImage());
  EXPECT_FALSE(var.IsInt());
  EXPECT_FALSE(var.IsDouble());
  EXPECT_FALSE(var.IsEmpty());
  EXPECT_EQ(0, var.ToInt());
  EXPECT_EQ(0.0, var.ToDouble());

  const KivImage held = var.ToImage();
  EXPECT_EQ(5, held.Width());
  EXPECT_EQ(3, held.Height());
  EXPECT_EQ(3, held.Channels());
  EXPECT_EQ(KIV_IMAGE_8U, held.BitDepth());
  EXPECT_EQ(image.Data(), held.Data());
  image.Mat().at<cv::Vec3b>(2, 4) = cv::Vec3b(1, 2, 3);
  EXPECT_EQ(cv::Vec3b(1, 2, 3), var.ToImage().Mat().at<cv::Vec3b>(2, 4));
}

TEST(Var, HoldsDeepCopyOfImageIndependently) {
  KivImage image(4, 2, 1, KIV_IMAGE_16U);
  image.Mat().setTo(cv::Scalar(1000));
  const KivVar var(image.DeepCopy());
  image.Mat().setTo(cv::Scalar(5));
  const KivImage held = var.ToImage();
  EXPECT_NE(image.Data(), held.Data());
  EXPECT_EQ(KIV_IMAGE_16U, held.BitDepth());
  EXPECT_EQ(0, cv::countNonZero(held.Mat() != 1000));
}

TEST(Var, ImageCopyAndReassignment) {
  KivVar a(KivImage(2, 2, 1, KIV_IMAGE_8U));
  KivVar b(a);
  EXPECT_TRUE(b.IsImage());
  EXPECT_EQ(a.ToImage().Data(), b.ToImage().Data());
  b = KivVar(7);
  EXPECT_TRUE(b.IsInt());
  EXPECT_EQ(7, b.ToInt());
  EXPECT_TRUE(a.IsImage());
  a = KivVar();
  EXPECT_TRUE(a.IsEmpty());
  EXPECT_EQ(nullptr, a.ToImage().Data());
}

TEST(VarArray, AppendIndexClear) {
  KivVarArray array;
  EXPECT_EQ(0, array.Length());
  array.Append(KivVar(1));
  array.Append(KivVar(2.5));
  array.Append(KivVar());
  EXPECT_EQ(3, array.Length());
  EXPECT_TRUE(array[0].IsInt());
  EXPECT_EQ(1, array[0].ToInt());
  EXPECT_EQ(2.5, array[1].ToDouble());
  EXPECT_TRUE(array[2].IsEmpty());
  array.Clear();
  EXPECT_EQ(0, array.Length());
}

TEST(VarArray, HoldsImagesBesideNumbers) {
  KivVarArray array;
  KivImage chart(800, 600, 3, KIV_IMAGE_8U);
  array.Append(KivVar(chart));
  array.Append(KivVar(42));
  array.Append(chart);
  EXPECT_EQ(3, array.Length());
  EXPECT_TRUE(array[0].IsImage());
  EXPECT_EQ(800, array[0].ToImage().Width());
  EXPECT_EQ(600, array[0].ToImage().Height());
  EXPECT_TRUE(array[1].IsInt());
  EXPECT_EQ(42, array[1].ToInt());
  EXPECT_TRUE(array[2].IsImage());
  EXPECT_EQ(chart.Data(), array[2].ToImage().Data());
}

TEST(VarArray, OutOfRangeIndexThrows) {
  KivVarArray array;
  array.Append(KivVar(1));
  EXPECT_THROW(array[1], std::out_of_range);
  EXPECT_THROW(array[-1], std::out_of_range);
}

}  // namespace
}  // namespace KIVMV
