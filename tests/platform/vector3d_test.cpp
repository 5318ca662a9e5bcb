#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <type_traits>

#include "KivVector3d.h"

namespace KIVMV {
namespace {

static_assert(sizeof(KivVector3d) == 12, "three packed floats");
static_assert(std::is_standard_layout<KivVector3d>::value, "standard layout");

void ExpectBitwise(float expected, float actual) {
  EXPECT_EQ(0, std::memcmp(&expected, &actual, sizeof(float)))
      << "expected " << expected << " got " << actual;
}

TEST(Vector3d, ConstructionAndAccess) {
  KivVector3d zero;
  EXPECT_EQ(0.0f, zero.X());
  EXPECT_EQ(0.0f, zero.Y());
  EXPECT_EQ(0.0f, zero.Z());
  KivVector3d v(1.5f, -2.0f, 3.25f);
  KivVector3d copy(v);
  EXPECT_EQ(1.5f, copy.X());
  EXPECT_EQ(-2.0f, copy.Y());
  EXPECT_EQ(3.25f, copy.Z());
}

TEST(Vector3d, ArithmeticIsComponentWiseInFloat) {
  const KivVector3d a(1.0f, 2.0f, 3.0f);
  const KivVector3d b(4.0f, 5.0f, 6.0f);
  EXPECT_EQ(KivVector3d(5.0f, 7.0f, 9.0f), a + b);
  EXPECT_EQ(KivVector3d(-3.0f, -3.0f, -3.0f), a - b);
  EXPECT_EQ(KivVector3d(2.0f, 4.0f, 6.0f), a * 2.0f);
  EXPECT_EQ(KivVector3d(0.5f, 1.0f, 1.5f), a / 2.0f);

  // Rounded to float at every step, not computed in double.
  const KivVector3d third = KivVector3d(1.0f, 2.0f, 10.0f) / 3.0f;
  ExpectBitwise(1.0f / 3.0f, third.X());
  ExpectBitwise(2.0f / 3.0f, third.Y());
  ExpectBitwise(10.0f / 3.0f, third.Z());
  const KivVector3d sum = KivVector3d(0.1f, 1e8f, 0.0f) + KivVector3d(0.2f, 1.0f, 0.0f);
  ExpectBitwise(0.1f + 0.2f, sum.X());
  ExpectBitwise(1e8f, sum.Y());
  const KivVector3d scaled = KivVector3d(0.1f, 0.0f, 0.0f) * 3.0f;
  ExpectBitwise(0.1f * 3.0f, scaled.X());
}

TEST(Vector3d, EqualityIsExact) {
  EXPECT_TRUE(KivVector3d(1, 2, 3) == KivVector3d(1, 2, 3));
  EXPECT_FALSE(KivVector3d(1, 2, 3) != KivVector3d(1, 2, 3));
  EXPECT_TRUE(KivVector3d(1, 2, 3) != KivVector3d(1, 2, std::nextafter(3.0f, 4.0f)));
  EXPECT_TRUE(KivVector3d(0.0f, 0, 0) == KivVector3d(-0.0f, 0, 0));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const KivVector3d withNan(nan, 0, 0);
  EXPECT_FALSE(withNan == withNan);
  EXPECT_TRUE(withNan != withNan);
}

TEST(Vector3d, DotValue) {
  EXPECT_EQ(32.0f, KivVector3d(1, 2, 3).Dot(KivVector3d(4, 5, 6)));
  EXPECT_EQ(0.0f, KivVector3d(1, 0, 0).Dot(KivVector3d(0, 1, 0)));
}

TEST(Vector3d, DotSumsXYFirstThenZ) {
  // Products 1e8, -1e8, 1: (1e8 + -1e8) + 1 == 1, whereas 1e8 + (-1e8 + 1) == 0 in float
  // because -1e8 + 1 rounds back to -1e8.
  const KivVector3d a(1e8f, -1e8f, 1.0f);
  const KivVector3d ones(1.0f, 1.0f, 1.0f);
  EXPECT_EQ(1.0f, a.Dot(ones));
  // And the other grouping starting from x + z loses the 1 as well.
  const KivVector3d b(1e8f, 1.0f, -1e8f);
  EXPECT_EQ(0.0f, b.Dot(ones));
}

TEST(Vector3d, DotRoundsEachProductToFloat) {
  // 4097 * 4097 = 16785409 is not representable in float (24-bit mantissa): it rounds to
  // 16785408; subtracting the exact 16785408 then yields 0, not the 1 a double would give.
  const KivVector3d a(4097.0f, 16785408.0f, 0.0f);
  const KivVector3d b(4097.0f, -1.0f, 0.0f);
  EXPECT_EQ(0.0f, a.Dot(b));
}

TEST(Vector3d, Normalized) {
  const KivVector3d n = KivVector3d(3.0f, 4.0f, 0.0f).Normalized();
  EXPECT_EQ(0.6f, n.X());
  EXPECT_EQ(0.8f, n.Y());
  EXPECT_EQ(0.0f, n.Z());

  const KivVector3d v(1.0f, 2.0f, 2.0f);
  const float length = std::sqrt(9.0f);
  EXPECT_EQ(KivVector3d(1.0f / length, 2.0f / length, 2.0f / length), v.Normalized());

  const KivVector3d w(0.3f, -0.7f, 1.1f);
  const float xx = 0.3f * 0.3f;
  const float yy = -0.7f * -0.7f;
  const float zz = 1.1f * 1.1f;
  const float sum = xx + yy;
  const float len = std::sqrt(sum + zz);
  const KivVector3d expected(0.3f / len, -0.7f / len, 1.1f / len);
  const KivVector3d got = w.Normalized();
  ExpectBitwise(expected.X(), got.X());
  ExpectBitwise(expected.Y(), got.Y());
  ExpectBitwise(expected.Z(), got.Z());
}

TEST(Vector3d, NormalizedZeroVectorIsNaN) {
  const KivVector3d n = KivVector3d().Normalized();
  EXPECT_TRUE(std::isnan(n.X()));
  EXPECT_TRUE(std::isnan(n.Y()));
  EXPECT_TRUE(std::isnan(n.Z()));
}

TEST(Vector3dArray, DefaultIsEmpty) {
  KivVector3dArray array;
  EXPECT_EQ(0, array.Length());
  EXPECT_EQ(nullptr, array.Data());
}

TEST(Vector3dArray, SetSizeGivesZeroVectors) {
  KivVector3dArray array;
  array.SetSize(3);
  array[1] = KivVector3d(1, 2, 3);
  array.SetSize(4);
  EXPECT_EQ(4, array.Length());
  for (int i = 0; i < 4; ++i) EXPECT_EQ(KivVector3d(), array[i]) << i;
  array.SetSize(0);
  EXPECT_EQ(0, array.Length());
  EXPECT_EQ(nullptr, array.Data());
}

TEST(Vector3dArray, NegativeSizeThrows) {
  KivVector3dArray array;
  EXPECT_THROW(array.SetSize(-1), std::invalid_argument);
}

TEST(Vector3dArray, DataIsInterleavedXYZ) {
  KivVector3dArray array;
  array.SetSize(2);
  array[0] = KivVector3d(1, 2, 3);
  array[1] = KivVector3d(4, 5, 6);
  const float* data = array.Data();
  ASSERT_NE(nullptr, data);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(static_cast<float>(i + 1), data[i]);
  array.Data()[4] = 50.0f;
  const KivVector3dArray& view = array;
  EXPECT_EQ(50.0f, view[1].Y());
}

TEST(Vector3dArray, CopiesAreIndependent) {
  KivVector3dArray array;
  array.SetSize(1);
  KivVector3dArray copy(array);
  copy[0] = KivVector3d(7, 8, 9);
  EXPECT_EQ(KivVector3d(), array[0]);
  KivVector3dArray assigned;
  assigned = copy;
  EXPECT_EQ(KivVector3d(7, 8, 9), assigned[0]);
}

}  // namespace
}  // namespace KIVMV
