#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "Kiv3DArray.h"

namespace KIVMV {
namespace {

TEST(FloatArray, DefaultIsEmpty) {
  Kiv3DFloatArray values;
  EXPECT_EQ(0, values.Length());
  EXPECT_EQ(nullptr, values.Data());
  EXPECT_EQ(CV_32FC1, values.Mat().type());
  EXPECT_FALSE(values.IsValid(0));
}

TEST(FloatArray, LengthConstructorIsZeroFilled) {
  Kiv3DFloatArray values(6);
  EXPECT_EQ(6, values.Length());
  EXPECT_EQ(1, values.Mat().rows);
  EXPECT_EQ(6, values.Mat().cols);
  EXPECT_EQ(CV_32FC1, values.Mat().type());
  ASSERT_NE(nullptr, values.Data());
  EXPECT_EQ(reinterpret_cast<float*>(values.Mat().data), values.Data());
  for (int i = 0; i < 6; ++i) EXPECT_EQ(0.0f, values[i]);

  values[3] = 2.5f;
  EXPECT_EQ(2.5f, values.Data()[3]);
  const Kiv3DFloatArray& view = values;
  EXPECT_EQ(2.5f, view[3]);
}

TEST(FloatArray, NegativeLengthThrows) { EXPECT_THROW(Kiv3DFloatArray(-1), std::invalid_argument); }

TEST(FloatArray, ZeroLength) {
  Kiv3DFloatArray values(0);
  EXPECT_EQ(0, values.Length());
  EXPECT_EQ(nullptr, values.Data());
}

TEST(FloatArray, CopySharesDeepCopyDoesNot) {
  Kiv3DFloatArray values(3);
  Kiv3DFloatArray shared(values);
  shared[1] = 4.0f;
  EXPECT_EQ(4.0f, values[1]);

  Kiv3DFloatArray deep = values.DeepCopy();
  EXPECT_NE(values.Data(), deep.Data());
  EXPECT_EQ(3, deep.Length());
  EXPECT_EQ(4.0f, deep[1]);
  deep[1] = -1.0f;
  EXPECT_EQ(4.0f, values[1]);
}

TEST(FloatArray, ValidityRuleTable) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Row {
    float value;
    bool valid;
  };
  const Row rows[] = {
      {0.0f, true},
      {-0.0f, true},
      {1.0f, true},
      {-1.0f, true},
      {FLT_MAX, true},
      {-3.4e38f, true},
      {std::nextafter(-FLT_MAX, 0.0f), true},
      {-FLT_MAX, false},
      {nan, false},
      {inf, false},
      {-inf, false},
  };
  Kiv3DFloatArray values(static_cast<int>(sizeof(rows) / sizeof(rows[0])));
  for (int i = 0; i < values.Length(); ++i) values[i] = rows[i].value;
  for (int i = 0; i < values.Length(); ++i) {
    EXPECT_EQ(rows[i].valid, values.IsValid(i)) << "row " << i << " value " << rows[i].value;
    EXPECT_EQ(rows[i].valid, IsValidFloatMeasurement(rows[i].value)) << "row " << i;
  }
}

TEST(FloatArray, OutOfRangeIndexIsInvalid) {
  Kiv3DFloatArray values(2);
  values[0] = 1.0f;
  values[1] = 1.0f;
  EXPECT_TRUE(values.IsValid(0));
  EXPECT_TRUE(values.IsValid(1));
  EXPECT_FALSE(values.IsValid(-1));
  EXPECT_FALSE(values.IsValid(2));
  EXPECT_FALSE(values.IsValid(1 << 30));
}

TEST(IntArray, DefaultIsEmpty) {
  Kiv3DIntArray values;
  EXPECT_EQ(0, values.Length());
  EXPECT_EQ(nullptr, values.Data());
  EXPECT_EQ(CV_32SC1, values.Mat().type());
}

TEST(IntArray, LengthConstructorIsZeroFilled) {
  Kiv3DIntArray values(4);
  EXPECT_EQ(4, values.Length());
  EXPECT_EQ(1, values.Mat().rows);
  EXPECT_EQ(4, values.Mat().cols);
  EXPECT_EQ(CV_32SC1, values.Mat().type());
  for (int i = 0; i < 4; ++i) EXPECT_EQ(0, values[i]);
  values[2] = -7;
  EXPECT_EQ(-7, values.Data()[2]);
  EXPECT_EQ(-7, values.Mat().at<int>(0, 2));
  const Kiv3DIntArray& view = values;
  EXPECT_EQ(-7, view[2]);
}

TEST(IntArray, NegativeLengthThrows) { EXPECT_THROW(Kiv3DIntArray(-3), std::invalid_argument); }

TEST(IntArray, CopySharesDeepCopyDoesNot) {
  Kiv3DIntArray values(2);
  Kiv3DIntArray shared;
  shared = values;
  shared[0] = 11;
  EXPECT_EQ(11, values[0]);
  Kiv3DIntArray deep = values.DeepCopy();
  deep[0] = 12;
  EXPECT_EQ(11, values[0]);
  EXPECT_EQ(12, deep[0]);
}

}  // namespace
}  // namespace KIVMV
