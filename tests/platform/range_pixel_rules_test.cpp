#include "range_pixel_rules.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>

#include "KivDataType.h"

namespace KIVMV {
namespace {

using internal::RangePixel;

// The marker and valid range of each pixel type, written out.
template <typename T>
struct Rule {
  double marker;
  double lowest;
  double highest;
};

template <typename T>
void ExpectRule(const Rule<T>& rule) {
  EXPECT_EQ(rule.marker, static_cast<double>(RangePixel<T>::kMarker));
  EXPECT_EQ(rule.lowest, RangePixel<T>::kLowest);
  EXPECT_EQ(rule.highest, RangePixel<T>::kHighest);
}

TEST(RangePixelRules, MarkersAndValidRanges) {
  ExpectRule(Rule<uint8_t>{0.0, 1.0, 255.0});
  ExpectRule(Rule<int8_t>{-128.0, -127.0, 127.0});
  ExpectRule(Rule<uint16_t>{0.0, 1.0, 65535.0});
  ExpectRule(Rule<int16_t>{-32768.0, -32767.0, 32767.0});
  ExpectRule(Rule<int32_t>{INT_MIN, -2147483647.0, 2147483647.0});
  // The float and double just above the marker (bit pattern 0xFF7FFFFE for the float).
  ExpectRule(Rule<float>{-FLT_MAX, -3.4028232635611926e38, FLT_MAX});
  ExpectRule(Rule<double>{-DBL_MAX, -1.7976931348623155e308, DBL_MAX});
  EXPECT_EQ(std::nextafter(-FLT_MAX, 0.0f), static_cast<float>(RangePixel<float>::kLowest));
  EXPECT_EQ(std::nextafter(-DBL_MAX, 0.0), RangePixel<double>::kLowest);
}

TEST(RangePixelRules, VisitsThePixelTypeOfEachCode) {
  for (int code = KIV_DATA_U8; code <= KIV_DATA_F64; ++code) {
    int calls = 0;
    int depth = -1;
    int size = 0;
    EXPECT_TRUE(internal::VisitRangePixelType(code, [&](auto pixel) {
      using T = decltype(pixel);
      ++calls;
      depth = cv::traits::Depth<T>::value;
      size = static_cast<int>(sizeof(T));
    }));
    EXPECT_EQ(1, calls) << code;
    EXPECT_EQ(code, depth);
    EXPECT_EQ(SampleSize(code), size) << code;
  }
}

TEST(RangePixelRules, UnknownCodesVisitNothing) {
  for (int code : {-1, 7, 16, INT_MIN, INT_MAX}) {
    bool called = false;
    EXPECT_FALSE(internal::VisitRangePixelType(code, [&](auto) { called = true; })) << code;
    EXPECT_FALSE(called) << code;
  }
}

TEST(RangePixelRules, ValiditySaturationAndRounding) {
  EXPECT_FALSE(internal::IsValidPixel<uint8_t>(0));
  EXPECT_TRUE(internal::IsValidPixel<uint8_t>(1));
  EXPECT_FALSE(internal::IsValidPixel<int32_t>(INT_MIN));
  EXPECT_FALSE(internal::IsValidPixel(-FLT_MAX));
  EXPECT_FALSE(internal::IsValidPixel(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_FALSE(internal::IsValidPixel(std::numeric_limits<float>::infinity()));
  EXPECT_TRUE(internal::IsValidPixel(std::nextafter(-DBL_MAX, 0.0)));

  EXPECT_EQ(1, internal::SaturateToValid<uint8_t>(-5.0));
  EXPECT_EQ(-127, internal::SaturateToValid<int8_t>(-1e300));
  EXPECT_EQ(std::nextafter(-FLT_MAX, 0.0f),
            internal::SaturateToValid<float>(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ(3, internal::RoundToValidInteger<int16_t>(2.5));
  EXPECT_EQ(-3, internal::RoundToValidInteger<int16_t>(-2.5));
  EXPECT_EQ(-2147483647, internal::RoundToValidInteger<int32_t>(-2147483648.0));
}

}  // namespace
}  // namespace KIVMV
