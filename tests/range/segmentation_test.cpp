#include "range/segmentation.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "range/range_test_support.h"
#include "support/reference_helpers.h"

namespace KIVMV {
namespace {

using segmentation_detail::ClampCount;
using testing_support::MatBytes;
using testing_support::TestSizes;

constexpr float kFloatNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kFloatInf = std::numeric_limits<float>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// All outputs of one call, so that a test can run it in one line and compare whole results.
struct Segmentation {
  cv::Mat masks[4];
  cv::Mat segments[4];
  int counts[4] = {-1, -1, -1, -1};
};

Segmentation Segment(const cv::Mat& src, const double (&t)[5]) {
  Segmentation s;
  generateSegmentedImages(src, s.masks[0], s.masks[1], s.masks[2], s.masks[3], t[0], t[1], t[2],
                          t[3], t[4], s.segments[0], s.segments[1], s.segments[2], s.segments[3],
                          s.counts[0], s.counts[1], s.counts[2], s.counts[3]);
  return s;
}

// The rule restated one element at a time: the break values as the float nearest to them (every
// break value these tests pass is within float range), half-open segments except the last.
Segmentation ReferenceSegment(const cv::Mat& src, const double (&t)[5]) {
  float b[5];
  for (int k = 0; k < 5; ++k) b[k] = static_cast<float>(t[k]);
  Segmentation s;
  for (int k = 0; k < 4; ++k) {
    s.masks[k] = cv::Mat(src.rows, src.cols, CV_8UC1);
    s.segments[k] = cv::Mat(src.rows, src.cols, CV_32FC1);
    s.counts[k] = 0;
  }
  for (int y = 0; y < src.rows; ++y) {
    for (int x = 0; x < src.cols; ++x) {
      const float v = src.at<float>(y, x);
      for (int k = 0; k < 4; ++k) {
        bool inside = false;
        if (!std::isnan(v)) {
          inside = v >= b[k] && (k == 3 ? v <= b[4] : v < b[k + 1]);
        }
        s.masks[k].at<uint8_t>(y, x) = inside ? 255 : 0;
        s.segments[k].at<float>(y, x) = inside ? v : -FLT_MAX;
        if (!inside) ++s.counts[k];
      }
    }
  }
  return s;
}

// The same cut through the OpenCV operations a caller would string together: compare with a
// scalar, and, complement, count.
Segmentation OpenCvSegment(const cv::Mat& src, const double (&t)[5]) {
  Segmentation s;
  const int upper[4] = {cv::CMP_LT, cv::CMP_LT, cv::CMP_LT, cv::CMP_LE};
  for (int k = 0; k < 4; ++k) {
    cv::Mat low, high;
    cv::compare(src, cv::Scalar(t[k]), low, cv::CMP_GE);
    cv::compare(src, cv::Scalar(t[k + 1]), high, upper[k]);
    cv::bitwise_and(low, high, s.masks[k]);
    s.segments[k] = src.clone();
    cv::Mat outside;
    cv::bitwise_not(s.masks[k], outside);
    s.segments[k].setTo(cv::Scalar(-FLT_MAX), outside);
    s.counts[k] = cv::countNonZero(outside);
  }
  return s;
}

void ExpectSameSegmentation(const Segmentation& expected, const Segmentation& actual,
                            const std::string& what) {
  for (int k = 0; k < 4; ++k) {
    SCOPED_TRACE(what + ", segment " + std::to_string(k + 1));
    ASSERT_EQ(CV_8UC1, actual.masks[k].type());
    ASSERT_EQ(CV_32FC1, actual.segments[k].type());
    ASSERT_EQ(expected.masks[k].size(), actual.masks[k].size());
    ASSERT_EQ(expected.segments[k].size(), actual.segments[k].size());
    EXPECT_EQ(MatBytes(expected.masks[k]), MatBytes(actual.masks[k]));
    EXPECT_EQ(MatBytes(expected.segments[k]), MatBytes(actual.segments[k]));
    EXPECT_EQ(expected.counts[k], actual.counts[k]);
  }
}

// Normalised heights as the five-point scale hands them over: mostly in [-1, 1], with the invalid
// marker, NaN, infinities, exact break values and a few values far outside.
cv::Mat RandomNormalised(int width, int height, const double (&t)[5], std::mt19937_64& random) {
  cv::Mat m(height, width, CV_32FC1);
  std::uniform_int_distribution<int> pick(0, 99);
  std::uniform_real_distribution<float> inside(-1.0f, 1.0f);
  std::uniform_int_distribution<int> which(0, 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int kind = pick(random);
      float v = inside(random);
      if (kind < 5)
        v = -FLT_MAX;
      else if (kind < 7)
        v = kFloatNaN;
      else if (kind < 8)
        v = kFloatInf;
      else if (kind < 9)
        v = -kFloatInf;
      else if (kind < 19)
        v = static_cast<float>(t[which(random)]);
      else if (kind < 21)
        v = FLT_MAX;
      else if (kind < 23)
        v = -1e30f;
      m.at<float>(y, x) = v;
    }
  }
  return m;
}

TEST(Segmentation, ClampCountHoldsAtIntMax) {
  EXPECT_EQ(0, ClampCount(0));
  EXPECT_EQ(12345, ClampCount(12345));
  EXPECT_EQ(INT_MAX, ClampCount(INT_MAX));
  EXPECT_EQ(INT_MAX, ClampCount(int64_t{INT_MAX} + 1));
  EXPECT_EQ(INT_MAX, ClampCount(INT64_MAX));
}

TEST(Segmentation, MatchesReferenceOnRandomData) {
  std::mt19937_64 random(11);
  const double breakSets[][5] = {
      {-1.0, -0.5, 0.0, 0.5, 1.0},     {-1.0, -0.8137, -0.2210, 0.4499, 1.0},
      {-0.7, -0.7, 0.1, 0.1, 0.9},      // empty first and third segments
      {0.3, 0.3, 0.3, 0.3, 0.3},        // only the closed last segment can hold anything
      {-0.2, 0.4, -0.6, 0.8, 0.0},      // not ascending: each mask on its own
      {-1e30, -0.25, 0.0, 0.25, 1e30},  // far ends
  };
  for (const auto& t : breakSets) {
    for (const auto& [width, height] : TestSizes()) {
      const cv::Mat src = RandomNormalised(width, height, t, random);
      const cv::Mat before = src.clone();
      const std::string what =
          std::to_string(width) + "x" + std::to_string(height) + " from " + std::to_string(t[0]);
      const Segmentation actual = Segment(src, t);
      ExpectSameSegmentation(ReferenceSegment(src, t), actual, what);
      ExpectSameSegmentation(OpenCvSegment(src, t), actual, what + " (OpenCV)");
      EXPECT_EQ(MatBytes(before), MatBytes(src));
    }
  }
}

TEST(Segmentation, BoundaryValuesFallIntoTheSegmentAbove) {
  const double t[5] = {-1.0, -0.5, 0.0, 0.5, 1.0};
  // Expected mask per value: 0 = none, 1..4 = that segment.
  const struct {
    float value;
    int segment;
  } cases[] = {
      {-1.0f, 1},
      {std::nextafter(-1.0f, -2.0f), 0},
      {-0.75f, 1},
      {-0.5f, 2},
      {std::nextafter(-0.5f, -1.0f), 1},
      {0.0f, 3},
      {-0.0f, 3},
      {std::nextafter(0.0f, -1.0f), 2},
      {0.5f, 4},
      {std::nextafter(0.5f, 0.0f), 3},
      {1.0f, 4},  // only the last segment keeps its upper end
      {std::nextafter(1.0f, 2.0f), 0},
      {-FLT_MAX, 0},
      {FLT_MAX, 0},
      {kFloatNaN, 0},
      {kFloatInf, 0},
      {-kFloatInf, 0},
  };
  cv::Mat src(1, static_cast<int>(std::size(cases)), CV_32FC1);
  for (int i = 0; i < src.cols; ++i) src.at<float>(0, i) = cases[i].value;
  const Segmentation s = Segment(src, t);
  int outside[4] = {0, 0, 0, 0};
  for (int i = 0; i < src.cols; ++i) {
    SCOPED_TRACE(cases[i].value);
    for (int k = 0; k < 4; ++k) {
      const bool inside = cases[i].segment == k + 1;
      EXPECT_EQ(inside ? 255 : 0, s.masks[k].at<uint8_t>(0, i)) << "segment " << k + 1;
      const float kept = s.segments[k].at<float>(0, i);
      if (inside) {
        EXPECT_EQ(0, std::memcmp(&cases[i].value, &kept, sizeof kept));
      } else {
        EXPECT_EQ(-FLT_MAX, kept);
        ++outside[k];
      }
    }
  }
  for (int k = 0; k < 4; ++k) EXPECT_EQ(outside[k], s.counts[k]);
}

TEST(Segmentation, BreakValuesAreComparedAsFloats) {
  // 0.1f widened is just above 0.1; the break value one double step above that still rounds to
  // 0.1f, so the sample sits on the break and belongs to the segment above it.
  const float sample = 0.1f;
  const double justAbove = std::nextafter(static_cast<double>(sample), 1.0);
  const double t[5] = {-1.0, justAbove, 0.5, 0.75, 1.0};
  ASSERT_LT(static_cast<double>(sample), justAbove);
  const cv::Mat src(1, 1, CV_32FC1, cv::Scalar(sample));
  const Segmentation s = Segment(src, t);
  EXPECT_EQ(0, s.masks[0].at<uint8_t>(0, 0));
  EXPECT_EQ(255, s.masks[1].at<uint8_t>(0, 0));
  ExpectSameSegmentation(OpenCvSegment(src, t), s, "float comparison");

  // A double break value between two floats rounds to the nearer one: a quarter of the way up
  // from 0.25f to the next float it is 0.25f (the sample is on it), three quarters up it is the
  // next float (the sample is below it).
  const double low = 0.25f;
  const double step = static_cast<double>(std::nextafter(0.25f, 1.0f)) - low;
  const cv::Mat quarter(1, 1, CV_32FC1, cv::Scalar(0.25f));
  const double nearLow[5] = {-1.0, low + 0.25 * step, 0.5, 0.75, 1.0};
  const double nearHigh[5] = {-1.0, low + 0.75 * step, 0.5, 0.75, 1.0};
  EXPECT_EQ(255, Segment(quarter, nearLow).masks[1].at<uint8_t>(0, 0));
  EXPECT_EQ(255, Segment(quarter, nearHigh).masks[0].at<uint8_t>(0, 0));
}

TEST(Segmentation, NonFiniteBreakValues) {
  cv::Mat src(1, 6, CV_32FC1);
  const float values[] = {-kFloatInf, -FLT_MAX, 0.0f, 1.0f, FLT_MAX, kFloatInf};
  for (int i = 0; i < 6; ++i) src.at<float>(0, i) = values[i];

  // Infinite ends take in the infinities; the -FLT_MAX marker lies above -inf.
  const double open[5] = {-kInf, -0.5, 0.5, 0.75, kInf};
  const Segmentation s = Segment(src, open);
  EXPECT_EQ(255, s.masks[0].at<uint8_t>(0, 0));
  EXPECT_EQ(255, s.masks[0].at<uint8_t>(0, 1));
  EXPECT_EQ(255, s.masks[3].at<uint8_t>(0, 5));
  EXPECT_EQ(255, s.masks[3].at<uint8_t>(0, 4));
  EXPECT_EQ(4, s.counts[0]);

  // Break values beyond the float range become infinities or FLT_MAX.
  const double huge[5] = {-1e300, 0.5, 0.75, 0.9, 1e300};
  const Segmentation h = Segment(src, huge);
  EXPECT_EQ(255, h.masks[0].at<uint8_t>(0, 0));
  EXPECT_EQ(255, h.masks[3].at<uint8_t>(0, 5));
  ExpectSameSegmentation(OpenCvSegment(src, huge), h, "huge break values");

  // A NaN break value empties both masks it bounds.
  const double nan[5] = {-1.0, kNaN, 0.5, 0.75, 2.0};
  const Segmentation n = Segment(src, nan);
  EXPECT_EQ(0, cv::countNonZero(n.masks[0]));
  EXPECT_EQ(0, cv::countNonZero(n.masks[1]));
  EXPECT_EQ(6, n.counts[0]);
  EXPECT_EQ(6, n.counts[1]);
  EXPECT_EQ(255, n.masks[3].at<uint8_t>(0, 3));
  ExpectSameSegmentation(OpenCvSegment(src, nan), n, "NaN break value");
}

TEST(Segmentation, OtherMatrixTypesRaiseTheAssertion) {
  const cv::Mat wrong[] = {
      cv::Mat(), cv::Mat(3, 4, CV_64FC1, cv::Scalar(0.0)), cv::Mat(3, 4, CV_32FC3, cv::Scalar(0.0)),
      cv::Mat(3, 4, CV_8UC1, cv::Scalar(0)), cv::Mat(3, 4, CV_32SC1, cv::Scalar(0))};
  const double t[5] = {-1.0, -0.5, 0.0, 0.5, 1.0};
  for (const cv::Mat& src : wrong) {
    SCOPED_TRACE(src.type());
    Segmentation s;
    const cv::Mat untouched(2, 2, CV_8UC1, cv::Scalar(9));
    s.masks[0] = untouched;
    try {
      generateSegmentedImages(src, s.masks[0], s.masks[1], s.masks[2], s.masks[3], t[0], t[1], t[2],
                              t[3], t[4], s.segments[0], s.segments[1], s.segments[2],
                              s.segments[3], s.counts[0], s.counts[1], s.counts[2], s.counts[3]);
      ADD_FAILURE() << "no exception";
    } catch (const cv::Exception& e) {
      EXPECT_EQ(cv::Error::StsAssert, e.code);
      EXPECT_NE(std::string::npos, e.err.find("src.type() == CV_32FC1")) << e.err;
      EXPECT_NE(std::string::npos, e.func.find("generateSegmentedImages")) << e.func;
      EXPECT_NE(std::string::npos, std::string(e.what()).find("generateSegmentedImages"));
    }
    EXPECT_EQ(untouched.data, s.masks[0].data);
    EXPECT_EQ(-1, s.counts[0]);
  }
}

TEST(Segmentation, EmptyFloatMatrixGivesEmptyResults) {
  const double t[5] = {-1.0, -0.5, 0.0, 0.5, 1.0};
  for (const cv::Size size : {cv::Size(0, 0), cv::Size(5, 0), cv::Size(0, 3)}) {
    const cv::Mat src(size, CV_32FC1);
    ASSERT_EQ(CV_32FC1, src.type());
    const Segmentation s = Segment(src, t);
    for (int k = 0; k < 4; ++k) {
      EXPECT_EQ(0u, s.masks[k].total());
      EXPECT_EQ(0u, s.segments[k].total());
      EXPECT_EQ(0, s.counts[k]);
    }
  }
}

TEST(Segmentation, SubMatrixIsCutLikeItsCopy) {
  std::mt19937_64 random(3);
  const double t[5] = {-1.0, -0.3, 0.05, 0.6, 1.0};
  const cv::Mat big = RandomNormalised(40, 30, t, random);
  const cv::Mat roi = big(cv::Rect(5, 4, 17, 13));
  ASSERT_FALSE(roi.isContinuous());
  const Segmentation s = Segment(roi, t);
  ExpectSameSegmentation(ReferenceSegment(roi.clone(), t), s, "sub-matrix");
  for (int k = 0; k < 4; ++k) EXPECT_TRUE(s.segments[k].isContinuous());
}

TEST(Segmentation, ThreeDimensionalMatrix) {
  const int sizes[] = {3, 4, 5};
  cv::Mat src(3, sizes, CV_32FC1);
  std::mt19937_64 random(5);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  for (size_t i = 0; i < src.total(); ++i) src.ptr<float>()[i] = value(random);
  const double t[5] = {-1.0, -0.5, 0.0, 0.5, 1.0};
  const Segmentation s = Segment(src, t);
  const Segmentation flat = ReferenceSegment(src.reshape(1, 1), t);
  for (int k = 0; k < 4; ++k) {
    ASSERT_EQ(3, s.masks[k].dims);
    ASSERT_EQ(3, s.segments[k].dims);
    EXPECT_EQ(MatBytes(flat.masks[k]), MatBytes(s.masks[k].reshape(1, 1)));
    EXPECT_EQ(MatBytes(flat.segments[k]), MatBytes(s.segments[k].reshape(1, 1)));
    EXPECT_EQ(flat.counts[k], s.counts[k]);
  }
}

TEST(Segmentation, OutputsMayAliasTheSourceAndReplaceOldMatrices) {
  std::mt19937_64 random(9);
  const double t[5] = {-1.0, -0.5, 0.0, 0.5, 1.0};
  const cv::Mat original = RandomNormalised(13, 7, t, random);
  const Segmentation expected = ReferenceSegment(original, t);

  // The source matrix is also the first segment's output.
  cv::Mat shared = original.clone();
  const cv::Mat keep = shared;  // the source's pixels, to see that they are not written
  const cv::Mat keepCopy = shared.clone();
  Segmentation s;
  s.masks[2] = cv::Mat(100, 100, CV_16UC3, cv::Scalar(1));
  generateSegmentedImages(shared, s.masks[0], s.masks[1], s.masks[2], s.masks[3], t[0], t[1], t[2],
                          t[3], t[4], shared, s.segments[1], s.segments[2], s.segments[3],
                          s.counts[0], s.counts[1], s.counts[2], s.counts[3]);
  s.segments[0] = shared;
  ExpectSameSegmentation(expected, s, "aliased");
  EXPECT_EQ(MatBytes(keepCopy), MatBytes(keep));
}

}  // namespace
}  // namespace KIVMV
