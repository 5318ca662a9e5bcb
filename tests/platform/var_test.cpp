#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <stdexcept>

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

TEST(VarArray, OutOfRangeIndexThrows) {
  KivVarArray array;
  array.Append(KivVar(1));
  EXPECT_THROW(array[1], std::out_of_range);
  EXPECT_THROW(array[-1], std::out_of_range);
}

}  // namespace
}  // namespace KIVMV
