#include "range/legend_chart.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <string>

#include "common/numeric_helpers.h"

namespace KIVMV {

namespace legend_chart_detail {

int ChartX(double position) {
  constexpr double kLeft = -kOffChartMargin;
  constexpr double kRight = kChartCols + kOffChartMargin;
  // Written as "inside" so that NaN, which fails every comparison, is held at the left.
  if (!(position >= kLeft)) return static_cast<int>(kLeft);
  if (position > kRight) return static_cast<int>(kRight);
  return static_cast<int>(numeric::TruncateToInt64(position));
}

BinSpan SelectedBins(double low, double high, double origin, double width, int binCount) {
  const double first = std::floor((low - origin) / width);
  const double last = std::floor((high - origin) / width);
  if (std::isnan(first) || std::isnan(last)) return {0, -1};
  // Held one bin beyond each end: a range wholly outside the axis selects nothing.
  const double limit = static_cast<double>(binCount);
  return {static_cast<int>(numeric::TruncateToInt64(std::clamp(first, -1.0, limit))),
          static_cast<int>(numeric::TruncateToInt64(std::clamp(last, -1.0, limit)))};
}

ChartHistogram ComputeChartHistogram(const cv::Mat& values, int binCount) {
  ChartHistogram histogram;
  if (values.empty()) return histogram;
  CV_Assert(values.type() == CV_32FC1 && values.dims == 2);
  if (binCount < 1) return histogram;

  // -99999 keeps the invalid marker (-FLT_MAX) out; infinities are left out too, since an axis
  // that reaches infinity has no bins to put anything in.
  cv::Mat valid(values.size(), CV_8UC1);
  for (int y = 0; y < values.rows; ++y) {
    const float* v = values.ptr<float>(y);
    uchar* m = valid.ptr<uchar>(y);
    for (int x = 0; x < values.cols; ++x) m[x] = std::isfinite(v[x]) && v[x] > -99999.0f ? 255 : 0;
  }
  if (cv::countNonZero(valid) == 0) return histogram;
  cv::minMaxLoc(values, &histogram.minimum, &histogram.maximum, nullptr, nullptr, valid);
  histogram.counts.assign(static_cast<size_t>(binCount), 0.0);

  if (histogram.maximum > histogram.minimum) {
    histogram.hasAxis = true;
    // Both ends are float samples, so they are exact as floats.
    const float range[] = {static_cast<float>(histogram.minimum),
                           static_cast<float>(histogram.maximum)};
    const float* ranges[] = {range};
    const int channels[] = {0};
    const int sizes[] = {binCount};
    cv::Mat bins;
    cv::calcHist(&values, 1, channels, valid, bins, 1, sizes, ranges, true, false);
    for (int i = 0; i < binCount; ++i) histogram.counts[static_cast<size_t>(i)] = bins.at<float>(i);
  }

  // calcHist leaves out its upper bound; the samples at the maximum belong on the chart too.
  double atMaximum = 0.0;
  for (int y = 0; y < values.rows; ++y) {
    const float* v = values.ptr<float>(y);
    const uchar* m = valid.ptr<uchar>(y);
    for (int x = 0; x < values.cols; ++x) {
      if (m[x] != 0 && v[x] == histogram.maximum) atMaximum += 1.0;
    }
  }
  histogram.counts.back() += atMaximum;
  return histogram;
}

}  // namespace legend_chart_detail

namespace {

using legend_chart_detail::BinSpan;
using legend_chart_detail::ChartHistogram;
using legend_chart_detail::ChartX;

const cv::Scalar kBackground(240, 240, 240);
const cv::Scalar kSelectedBar(255, 0, 0);
const cv::Scalar kOtherBar(180, 180, 180);
const cv::Scalar kCentreLine(0, 0, 255);
const cv::Scalar kRangeOutline(0, 255, 0);
const cv::Scalar kText(0, 0, 0);

// The axis names sit on one baseline in the band between the caption and the tallest bar, whose
// top is row 49 or 50.
constexpr int kAxisNameBaseline = 46;
constexpr double kAxisNameScale = 0.5;
constexpr int kAxisNameThickness = 1;
constexpr int kTextMargin = 20;

void DrawBars(cv::Mat& image, const ChartHistogram& histogram, int binCount, float w,
              const BinSpan& selected) {
  const double largest = *std::max_element(histogram.counts.begin(), histogram.counts.end());
  if (!(largest > 0.0)) return;
  const double h = 550.0 / largest;
  for (int i = 0; i < binCount; ++i) {
    const double count = histogram.counts[static_cast<size_t>(i)];
    const int left = static_cast<int>(numeric::TruncateToInt64(static_cast<float>(i) * w));
    const int right = static_cast<int>(numeric::TruncateToInt64(static_cast<float>(i + 1) * w));
    const int top = static_cast<int>(numeric::TruncateToInt64(600.0 - count * h));
    const bool inside = i >= selected.first && i <= selected.last;
    cv::rectangle(image, cv::Point(left, top), cv::Point(right, kChartRows - 1),
                  inside ? kSelectedBar : kOtherBar, cv::FILLED, cv::LINE_8);
  }
}

void DrawAxisNames(cv::Mat& image) {
  cv::putText(image, "Frequency", cv::Point(kTextMargin, kAxisNameBaseline),
              cv::FONT_HERSHEY_SIMPLEX, kAxisNameScale, kText, kAxisNameThickness, cv::LINE_8);
  int baseline = 0;
  const cv::Size size = cv::getTextSize("Value Range", cv::FONT_HERSHEY_SIMPLEX, kAxisNameScale,
                                        kAxisNameThickness, &baseline);
  cv::putText(image, "Value Range",
              cv::Point(kChartCols - kTextMargin - size.width, kAxisNameBaseline),
              cv::FONT_HERSHEY_SIMPLEX, kAxisNameScale, kText, kAxisNameThickness, cv::LINE_8);
}

}  // namespace

double DrawHistogramChart(const cv::Mat& values, int binCount, double rangeLow, double rangeHigh,
                          cv::Mat& chart) {
  const double centre = (rangeLow + rangeHigh) * 0.5;
  const ChartHistogram histogram = legend_chart_detail::ComputeChartHistogram(values, binCount);

  cv::Mat image(kChartRows, kChartCols, CV_8UC3, kBackground);
  if (!histogram.counts.empty()) {
    const float w = 800.0f / static_cast<float>(binCount);
    const double binValueWidth = (histogram.maximum - histogram.minimum) / binCount;
    const BinSpan selected =
        histogram.hasAxis ? legend_chart_detail::SelectedBins(
                                rangeLow, rangeHigh, histogram.minimum, binValueWidth, binCount)
                          : BinSpan{0, -1};
    DrawBars(image, histogram, binCount, w, selected);
    if (histogram.hasAxis) {
      auto xOf = [&](double v) { return ChartX((v - histogram.minimum) / binValueWidth * w); };
      const int centreX = xOf(centre);
      cv::line(image, cv::Point(centreX, 600), cv::Point(centreX, 0), kCentreLine, 2, cv::LINE_8);
      cv::rectangle(image, cv::Point(xOf(rangeLow), 0), cv::Point(xOf(rangeHigh), kChartRows - 1),
                    kRangeOutline, 2, cv::LINE_8);
    }
  }
  cv::putText(image, cv::format("Center: %.2f  Range: [%.2f ~ %.2f]", centre, rangeLow, rangeHigh),
              cv::Point(20, 30), cv::FONT_HERSHEY_SIMPLEX, 0.7, kText, 2, cv::LINE_8);
  DrawAxisNames(image);

  chart = image.clone();
  return centre;
}

}  // namespace KIVMV
