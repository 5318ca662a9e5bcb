#include "range/legend_chart.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

#include "range/range_test_support.h"
#include "support/reference_helpers.h"

namespace KIVMV {
namespace {

using legend_chart_detail::BinSpan;
using legend_chart_detail::ChartX;
using legend_chart_detail::ComputeChartHistogram;
using legend_chart_detail::SelectedBins;
using testing_support::MatBytes;
using testing_support::TestSizes;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr float kFloatNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kFloatInf = std::numeric_limits<float>::infinity();

const cv::Vec3b kBackground(240, 240, 240);
const cv::Vec3b kBlue(255, 0, 0);
const cv::Vec3b kGrey(180, 180, 180);
const cv::Vec3b kRed(0, 0, 255);
const cv::Vec3b kGreen(0, 255, 0);
const cv::Vec3b kBlack(0, 0, 0);

// ---------------------------------------------------------------------------------------------
// The chart restated with plain loops for everything but the drawing calls.

struct ReferenceHistogram {
  std::vector<double> counts;
  double minimum = 0.0;
  double maximum = 0.0;
};

ReferenceHistogram ReferenceCounts(const cv::Mat& values, int binCount) {
  ReferenceHistogram r;
  std::vector<float> valid;
  for (int y = 0; y < values.rows; ++y) {
    for (int x = 0; x < values.cols; ++x) {
      const float v = values.at<float>(y, x);
      if (std::isfinite(v) && static_cast<double>(v) > -99999.0) valid.push_back(v);
    }
  }
  if (valid.empty() || binCount < 1) return r;
  r.minimum = r.maximum = valid[0];
  for (const float v : valid) {
    r.minimum = std::min<double>(r.minimum, v);
    r.maximum = std::max<double>(r.maximum, v);
  }
  std::vector<int64_t> n(static_cast<size_t>(binCount), 0);
  // Equal bins over [minimum, maximum), located the way calcHist locates them, then the samples
  // at the maximum in the last bin.
  const double a = binCount / (r.maximum - r.minimum);
  const double b = -a * r.minimum;
  for (const float v : valid) {
    if (v == r.maximum) {
      ++n.back();
    } else if (r.maximum > r.minimum) {
      const double slot = std::floor(v * a + b);
      const int64_t i = std::min<int64_t>(binCount - 1, std::max<int64_t>(0, slot));
      ++n[static_cast<size_t>(i)];
    }
  }
  for (const int64_t c : n) r.counts.push_back(static_cast<double>(c));
  return r;
}

int ReferenceX(double position) {
  if (std::isnan(position) || position < -16.0) return -16;
  if (position > 816.0) return 816;
  return static_cast<int>(std::trunc(position));
}

cv::Mat ReferenceChart(const cv::Mat& values, int binCount, double low, double high) {
  cv::Mat chart(600, 800, CV_8UC3, cv::Scalar(240, 240, 240));
  const double centre = (low + high) * 0.5;
  const ReferenceHistogram r = ReferenceCounts(values, binCount);
  if (!r.counts.empty()) {
    const bool axis = r.maximum > r.minimum;
    const float w = 800.0f / binCount;
    const double valueWidth = (r.maximum - r.minimum) / binCount;
    double largest = 0.0;
    for (const double c : r.counts) largest = std::max(largest, c);
    double first = std::floor((low - r.minimum) / valueWidth);
    double last = std::floor((high - r.minimum) / valueWidth);
    if (!axis || std::isnan(first) || std::isnan(last)) {
      first = 1.0;
      last = 0.0;
    }
    if (largest > 0.0) {
      for (int i = 0; i < binCount; ++i) {
        const int left = static_cast<int>(std::trunc(i * w));
        const int right = static_cast<int>(std::trunc((i + 1) * w));
        const int top = static_cast<int>(std::trunc(600.0 - r.counts[i] * (550.0 / largest)));
        const bool inside = i >= first && i <= last;
        cv::rectangle(chart, cv::Point(left, top), cv::Point(right, 599),
                      inside ? cv::Scalar(255, 0, 0) : cv::Scalar(180, 180, 180), cv::FILLED,
                      cv::LINE_8);
      }
    }
    if (axis) {
      const int x = ReferenceX((centre - r.minimum) / valueWidth * w);
      cv::line(chart, cv::Point(x, 600), cv::Point(x, 0), cv::Scalar(0, 0, 255), 2, cv::LINE_8);
      cv::rectangle(chart, cv::Point(ReferenceX((low - r.minimum) / valueWidth * w), 0),
                    cv::Point(ReferenceX((high - r.minimum) / valueWidth * w), 599),
                    cv::Scalar(0, 255, 0), 2, cv::LINE_8);
    }
  }
  cv::putText(chart, cv::format("Center: %.2f  Range: [%.2f ~ %.2f]", centre, low, high),
              cv::Point(20, 30), cv::FONT_HERSHEY_SIMPLEX, 0.7, cv::Scalar(0, 0, 0), 2, cv::LINE_8);
  cv::putText(chart, "Frequency", cv::Point(20, 46), cv::FONT_HERSHEY_SIMPLEX, 0.5,
              cv::Scalar(0, 0, 0), 1, cv::LINE_8);
  int baseline = 0;
  const cv::Size size = cv::getTextSize("Value Range", cv::FONT_HERSHEY_SIMPLEX, 0.5, 1, &baseline);
  cv::putText(chart, "Value Range", cv::Point(780 - size.width, 46), cv::FONT_HERSHEY_SIMPLEX, 0.5,
              cv::Scalar(0, 0, 0), 1, cv::LINE_8);
  return chart;
}

// Normalised heights: mostly a bumpy spread in [-1, 1], with the invalid marker, NaN, infinities,
// values at and just above -99999, and repeats of the extremes.
cv::Mat RandomValues(int width, int height, std::mt19937_64& random) {
  cv::Mat m(height, width, CV_32FC1);
  std::uniform_int_distribution<int> pick(0, 99);
  std::normal_distribution<float> bump(0.3f, 0.2f);
  std::uniform_real_distribution<float> flat(-1.0f, 1.0f);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int kind = pick(random);
      float v = kind < 50 ? std::max(-1.0f, std::min(1.0f, bump(random))) : flat(random);
      if (kind < 5)
        v = -FLT_MAX;
      else if (kind < 7)
        v = kFloatNaN;
      else if (kind < 8)
        v = kFloatInf;
      else if (kind < 9)
        v = -kFloatInf;
      else if (kind < 10)
        v = -99999.0f;
      else if (kind < 11)
        v = 1.0f;
      else if (kind < 12)
        v = -1.0f;
      m.at<float>(y, x) = v;
    }
  }
  return m;
}

struct Range {
  double low;
  double high;
};

// Selected ranges: inside, the whole axis, beyond it, reversed, one-sided, not a number, huge.
const Range kRanges[] = {{-0.3, 0.4},    {-1.0, 1.0},   {-5.0, 5.0}, {0.4, -0.3},
                         {-3.0, -2.0},   {0.2, 0.2},    {kNaN, 0.5}, {-kInf, kInf},
                         {1e300, 2e300}, {-1e300, 0.0}, {0.7, 1.0}};

void ExpectChartLike(const cv::Mat& expected, const cv::Mat& actual, const std::string& what) {
  ASSERT_EQ(600, actual.rows) << what;
  ASSERT_EQ(800, actual.cols) << what;
  ASSERT_EQ(CV_8UC3, actual.type()) << what;
  const std::vector<uint8_t> e = MatBytes(expected), a = MatBytes(actual);
  if (e == a) return;
  int differing = 0;
  cv::Point firstAt(-1, -1);
  for (int y = 0; y < 600; ++y) {
    for (int x = 0; x < 800; ++x) {
      if (expected.at<cv::Vec3b>(y, x) != actual.at<cv::Vec3b>(y, x)) {
        if (differing++ == 0) firstAt = cv::Point(x, y);
      }
    }
  }
  ADD_FAILURE() << what << ": " << differing << " pixels differ, first at " << firstAt;
}

// ---------------------------------------------------------------------------------------------

TEST(LegendChart, ChartXTruncatesAndHoldsOffChart) {
  const struct {
    double position;
    int expected;
  } cases[] = {
      {0.0, 0},     {3.9, 3},     {-0.5, 0},   {-3.5, -3},   {799.99, 799}, {815.9, 815},
      {816.0, 816}, {816.5, 816}, {1e9, 816},  {-16.0, -16}, {-16.5, -16},  {-1e9, -16},
      {kInf, 816},  {-kInf, -16}, {kNaN, -16}, {1e300, 816}, {-1e300, -16},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.position);
    EXPECT_EQ(c.expected, ChartX(c.position));
  }
}

TEST(LegendChart, SelectedBinsAreThoseOverlappingTheRange) {
  // Ten bins of width 0.5 from -1: bin i holds [-1 + 0.5 i, -0.5 + 0.5 i).
  const struct {
    double low, high;
    int first, last;
  } cases[] = {
      {-1.0, 4.0, 0, 10},  // the maximum itself lands one past the last bin
      {-0.9, -0.6, 0, 0},      {-0.5, -0.5, 1, 1},    {-0.6, 0.1, 0, 2},
      {0.0, 0.49, 2, 2},       {-3.0, -2.0, -1, -1},                     // below the axis: nothing
      {5.0, 9.0, 10, 10},                                                // above it: nothing
      {-1e300, 1e300, -1, 10}, {-kInf, kInf, -1, 10}, {1.2, 0.3, 4, 2},  // reversed: empty
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.low) + " .. " + std::to_string(c.high));
    const BinSpan span = SelectedBins(c.low, c.high, -1.0, 0.5, 10);
    EXPECT_EQ(c.first, span.first);
    EXPECT_EQ(c.last, span.last);
  }
  for (const Range& r : {Range{kNaN, 1.0}, Range{0.0, kNaN}, Range{kNaN, kNaN}}) {
    const BinSpan span = SelectedBins(r.low, r.high, -1.0, 0.5, 10);
    EXPECT_GT(span.first, span.last);
  }
}

TEST(LegendChart, HistogramMatchesReferenceCounts) {
  std::mt19937_64 random(21);
  for (const int binCount : {256, 1, 7, 1000}) {
    for (const auto& [width, height] : TestSizes()) {
      const cv::Mat values = RandomValues(width, height, random);
      const ReferenceHistogram expected = ReferenceCounts(values, binCount);
      const auto actual = ComputeChartHistogram(values, binCount);
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height) + ", " +
                   std::to_string(binCount) + " bins");
      EXPECT_EQ(expected.counts, actual.counts);
      if (!expected.counts.empty()) {
        EXPECT_EQ(expected.minimum, actual.minimum);
        EXPECT_EQ(expected.maximum, actual.maximum);
        EXPECT_EQ(expected.maximum > expected.minimum, actual.hasAxis);
      }
    }
  }
}

TEST(LegendChart, SamplesAtTheMaximumAreInTheLastBin) {
  const float data[] = {0.0f, 0.5f, 1.0f, 1.0f, 1.0f, 0.25f};
  const cv::Mat values(1, 6, CV_32FC1, const_cast<float*>(data));
  const auto histogram = ComputeChartHistogram(values, 4);
  EXPECT_EQ((std::vector<double>{1, 1, 1, 3}), histogram.counts);
  EXPECT_TRUE(histogram.hasAxis);
}

TEST(LegendChart, MatchesReferenceChartOnRandomData) {
  std::mt19937_64 random(17);
  for (const int binCount : {256, 1, 3, 1000}) {
    for (const auto& [width, height] : TestSizes()) {
      const cv::Mat values = RandomValues(width, height, random);
      const cv::Mat before = values.clone();
      for (const Range& r : kRanges) {
        const std::string what = std::to_string(width) + "x" + std::to_string(height) + ", " +
                                 std::to_string(binCount) + " bins, [" + std::to_string(r.low) +
                                 ", " + std::to_string(r.high) + "]";
        cv::Mat chart;
        const double centre = DrawHistogramChart(values, binCount, r.low, r.high, chart);
        ExpectChartLike(ReferenceChart(values, binCount, r.low, r.high), chart, what);
        const double expectedCentre = (r.low + r.high) * 0.5;
        if (std::isnan(expectedCentre)) {
          EXPECT_TRUE(std::isnan(centre)) << what;
        } else {
          EXPECT_EQ(expectedCentre, centre) << what;
        }
      }
      EXPECT_EQ(MatBytes(before), MatBytes(values));
    }
  }
}

TEST(LegendChart, MatchesReferenceOnRealFrames) {
  const auto frames = testing_support::LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << "shared sensor frames not found; real-frame charts skipped";
  for (const auto& frame : frames) {
    cv::Mat values;
    frame.image.Mat().convertTo(values, CV_32F);
    double low = 0.0, high = 0.0;
    cv::minMaxLoc(values, &low, &high, nullptr, nullptr, values > 0);
    const Range r{low + (high - low) * 0.25, low + (high - low) * 0.6};
    cv::Mat chart;
    DrawHistogramChart(values, 256, r.low, r.high, chart);
    ExpectChartLike(ReferenceChart(values, 256, r.low, r.high), chart, frame.name);
  }
}

TEST(LegendChart, DrawsBarsLineOutlineAndCaptionsWhereExpected) {
  // Four bins over [0, 1] of 1, 2, 3 and 4 samples (the sample at the maximum in the last), and
  // the selected range [0.3, 0.6] over bins 1 and 2: w = 200, height scale 550 / 4.
  const float data[] = {0.0f, 0.3f, 0.3f, 0.6f, 0.6f, 0.6f, 0.9f, 0.9f, 0.9f, 1.0f, -FLT_MAX};
  const cv::Mat values(1, 11, CV_32FC1, const_cast<float*>(data));
  cv::Mat chart;
  EXPECT_EQ((0.3 + 0.6) * 0.5, DrawHistogramChart(values, 4, 0.3, 0.6, chart));
  ASSERT_EQ(600, chart.rows);
  ASSERT_EQ(800, chart.cols);
  ASSERT_EQ(CV_8UC3, chart.type());
  auto at = [&](int x, int y) { return chart.at<cv::Vec3b>(y, x); };

  // Bin 0: x 0..200 from y = 462 (600 - 137.5); bin 3: x 600..800 from y = 50.
  EXPECT_EQ(kGrey, at(100, 590));
  EXPECT_EQ(kGrey, at(100, 463));
  EXPECT_EQ(kBackground, at(100, 460));
  EXPECT_EQ(kBlue, at(300, 500));  // bin 1, top 325
  EXPECT_EQ(kBackground, at(300, 320));
  EXPECT_EQ(kBlue, at(420, 200));  // bin 2, top 187
  EXPECT_EQ(kBackground, at(420, 185));
  EXPECT_EQ(kGrey, at(700, 52));
  EXPECT_EQ(kBackground, at(700, 47));
  // The centre 0.45 at x = 360, the outline from x = 240 to x = 480 over the full height.
  EXPECT_EQ(kRed, at(360, 300));
  EXPECT_EQ(kRed, at(360, 100));
  EXPECT_EQ(kGreen, at(240, 300));
  EXPECT_EQ(kGreen, at(480, 300));
  EXPECT_EQ(kGreen, at(300, 0));
  EXPECT_EQ(kGreen, at(300, 599));
  EXPECT_EQ(kBackground, at(200, 100));
  EXPECT_EQ(kBackground, at(520, 100));

  // Black only in the caption band above the bars: the caption and the two axis names.
  auto blackIn = [&](cv::Rect box) {
    cv::Mat black;
    cv::inRange(chart(box), cv::Scalar(0, 0, 0), cv::Scalar(0, 0, 0), black);
    return cv::countNonZero(black);
  };
  EXPECT_GT(blackIn(cv::Rect(20, 10, 300, 22)), 200);  // "Center: 0.45  Range: ..."
  EXPECT_GT(blackIn(cv::Rect(20, 33, 90, 17)), 50);    // "Frequency"
  EXPECT_GT(blackIn(cv::Rect(680, 33, 100, 17)), 50);  // "Value Range"
  EXPECT_EQ(0, blackIn(cv::Rect(0, 51, 800, 549)));
  EXPECT_EQ(0, blackIn(cv::Rect(0, 0, 800, 8)));
  ExpectChartLike(ReferenceChart(values, 4, 0.3, 0.6), chart, "four bins");
}

TEST(LegendChart, CaptionsDoNotOverlapEachOtherOrTheBars) {
  const std::string caption =
      cv::format("Center: %.2f  Range: [%.2f ~ %.2f]", -12345.678, -99998.5, 75307.125);
  int baseline = 0;
  const cv::Size main = cv::getTextSize(caption, cv::FONT_HERSHEY_SIMPLEX, 0.7, 2, &baseline);
  const cv::Rect mainBox(20, 30 - main.height, main.width, main.height + baseline);
  for (const char* name : {"Frequency", "Value Range"}) {
    int nameBaseline = 0;
    const cv::Size size = cv::getTextSize(name, cv::FONT_HERSHEY_SIMPLEX, 0.5, 1, &nameBaseline);
    const int x = std::string(name) == "Frequency" ? 20 : 780 - size.width;
    const cv::Rect box(x, 46 - size.height, size.width, size.height);
    SCOPED_TRACE(name);
    // Apart from the caption (whose descenders stop before the axis names' capitals), on the
    // chart, and the capitals clear of the tallest bar, which starts at row 49 or 50.
    EXPECT_EQ(0, (box & cv::Rect(mainBox.x, mainBox.y, mainBox.width, main.height)).area());
    EXPECT_GE(box.x, 0);
    EXPECT_LE(box.x + box.width, 800);
    EXPECT_LT(box.y + box.height, 49);
  }
  EXPECT_LE(mainBox.x + mainBox.width, 800);
}

TEST(LegendChart, DegenerateInputStillGivesAFullChart) {
  const cv::Mat allInvalid(4, 5, CV_32FC1, cv::Scalar(-FLT_MAX));
  cv::Mat nonFinite(2, 3, CV_32FC1, cv::Scalar(kFloatNaN));
  nonFinite.at<float>(0, 1) = kFloatInf;
  nonFinite.at<float>(1, 2) = -kFloatInf;
  const cv::Mat allEqual(3, 7, CV_32FC1, cv::Scalar(0.25f));
  const cv::Mat single(1, 1, CV_32FC1, cv::Scalar(-0.5f));
  const cv::Mat atLimit(1, 2, CV_32FC1, cv::Scalar(-99999.0f));
  const struct {
    const char* name;
    cv::Mat values;
    int binCount;
    bool bars;
  } cases[] = {
      {"default empty matrix", cv::Mat(), 256, false},
      {"empty float matrix", cv::Mat(0, 4, CV_32FC1), 256, false},
      {"no valid sample", allInvalid, 256, false},
      {"only NaN and infinities", nonFinite, 256, false},
      {"samples at -99999", atLimit, 256, false},
      {"all samples equal", allEqual, 256, true},
      {"one sample", single, 256, true},
      {"no bins", allEqual, 0, false},
      {"negative bin count", allEqual, -3, false},
  };
  for (const auto& c : cases) {
    for (const Range& r : kRanges) {
      const std::string what =
          std::string(c.name) + ", [" + std::to_string(r.low) + ", " + std::to_string(r.high) + "]";
      cv::Mat chart(3, 3, CV_16UC1, cv::Scalar(7));
      DrawHistogramChart(c.values, c.binCount, r.low, r.high, chart);
      ExpectChartLike(ReferenceChart(c.values, c.binCount, r.low, r.high), chart, what);
      // No centre line, outline or blue bar without a value axis.
      cv::Mat marks;
      cv::inRange(chart, cv::Scalar(0, 0, 255), cv::Scalar(0, 0, 255), marks);
      EXPECT_EQ(0, cv::countNonZero(marks)) << what;
      cv::inRange(chart, cv::Scalar(0, 255, 0), cv::Scalar(0, 255, 0), marks);
      EXPECT_EQ(0, cv::countNonZero(marks)) << what;
      cv::inRange(chart, cv::Scalar(255, 0, 0), cv::Scalar(255, 0, 0), marks);
      EXPECT_EQ(0, cv::countNonZero(marks)) << what;
      // All equal samples make one full-height bar in the last bin.
      EXPECT_EQ(c.bars ? kGrey : kBackground, chart.at<cv::Vec3b>(300, 799)) << what;
      EXPECT_EQ(kBackground, chart.at<cv::Vec3b>(300, 400)) << what;
      // Empty bins still show on the bottom row when there are bars.
      EXPECT_EQ(c.bars ? kGrey : kBackground, chart.at<cv::Vec3b>(599, 0)) << what;
    }
  }
}

TEST(LegendChart, InfinityAndLimitSamplesTakeNoPart) {
  const float plain[] = {0.0f, 0.2f, 1.0f, 0.7f};
  const float extra[] = {0.0f, 0.2f, kFloatInf, 1.0f, -99999.0f, 0.7f, -FLT_MAX, kFloatNaN};
  cv::Mat a, b;
  DrawHistogramChart(cv::Mat(1, 4, CV_32FC1, const_cast<float*>(plain)), 256, 0.1, 0.8, a);
  DrawHistogramChart(cv::Mat(2, 4, CV_32FC1, const_cast<float*>(extra)), 256, 0.1, 0.8, b);
  EXPECT_EQ(MatBytes(a), MatBytes(b));

  // Just above the limit is a sample.
  const float near[] = {-99998.99f, 0.0f};
  cv::Mat c;
  DrawHistogramChart(cv::Mat(1, 2, CV_32FC1, const_cast<float*>(near)), 256, -99998.99, 0.0, c);
  EXPECT_EQ(kBlue, c.at<cv::Vec3b>(590, 2));
  EXPECT_EQ(kBlue, c.at<cv::Vec3b>(590, 797));
}

TEST(LegendChart, SubMatrixAndChartAliasingTheValues) {
  std::mt19937_64 random(4);
  const cv::Mat big = RandomValues(60, 40, random);
  const cv::Mat roi = big(cv::Rect(7, 3, 31, 29));
  ASSERT_FALSE(roi.isContinuous());
  cv::Mat chart;
  DrawHistogramChart(roi, 256, -0.2, 0.5, chart);
  ExpectChartLike(ReferenceChart(roi.clone(), 256, -0.2, 0.5), chart, "sub-matrix");

  // The caller's values matrix receives the chart; the pixels it held are not written.
  cv::Mat values = roi.clone();
  const cv::Mat keep = values;
  const cv::Mat keepCopy = values.clone();
  DrawHistogramChart(values, 256, -0.2, 0.5, values);
  ExpectChartLike(chart, values, "aliased");
  EXPECT_EQ(MatBytes(keepCopy), MatBytes(keep));
  EXPECT_NE(keep.data, values.data);
}

TEST(LegendChart, OtherMatrixTypesThrowAndLeaveTheChart) {
  const int sizes[] = {2, 3, 4};
  const cv::Mat wrong[] = {
      cv::Mat(3, 4, CV_64FC1, cv::Scalar(0.5)), cv::Mat(3, 4, CV_32FC3, cv::Scalar(0.5)),
      cv::Mat(3, 4, CV_8UC1, cv::Scalar(1)), cv::Mat(3, sizes, CV_32FC1, cv::Scalar(0.5))};
  for (const cv::Mat& values : wrong) {
    cv::Mat chart(2, 2, CV_8UC1, cv::Scalar(3));
    const uchar* before = chart.data;
    EXPECT_THROW(DrawHistogramChart(values, 256, 0.0, 1.0, chart), cv::Exception);
    EXPECT_THROW(DrawHistogramChart(values, 0, 0.0, 1.0, chart), cv::Exception);
    EXPECT_EQ(before, chart.data);
  }
}

}  // namespace
}  // namespace KIVMV
