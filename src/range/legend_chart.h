// The histogram chart that accompanies the five-point scale.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace KIVMV {

inline constexpr int kChartRows = 600;
inline constexpr int kChartCols = 800;

// Draws the 600 x 800 BGR histogram chart of the valid samples of a single-channel float matrix
// with `binCount` bins, marking the selected value range [rangeLow, rangeHigh] and its centre, and
// clones it into `chart`. Returns the centre, the mean of the range's two ends.
//
// - Valid samples are the finite ones above -99999. The histogram runs from their minimum to
//   their maximum in equal bins; samples equal to the maximum are counted in the last bin.
// - Bin i is drawn as a filled bar from x = trunc(i * w) to trunc((i + 1) * w), w = 800 / binCount
//   (float), from y = trunc(600 - count * 550 / largest count) down to the bottom row 599; an
//   empty bin therefore still shows as a line on row 599. A bin is blue (255, 0, 0) when it
//   overlaps the selected range, that is when floor((rangeLow - min) / bin value width) <= i <=
//   floor((rangeHigh - min) / bin value width), and grey (180, 180, 180) otherwise.
// - A value v sits at x = trunc((v - min) / bin value width * w): the red centre line (2 pixels,
//   from y = 600 to y = 0) at the centre, the green outline (2 pixels, rows 0 to 599) between the
//   positions of rangeLow and rangeHigh. Positions beyond the chart are held just outside it.
// - Caption "Center: %.2f  Range: [%.2f ~ %.2f]" at (20, 30); the axis names "Frequency" at the
//   left and "Value Range" at the right in the band between the caption and the tallest bar.
// - Without a value axis (no valid sample, all valid samples equal, an empty matrix, binCount < 1)
//   there is no centre line, no outline and no blue bar; all-equal samples still make one full
//   grey bar in the last bin. The captions are always drawn.
//
// Throws cv::Exception for a non-empty matrix that is not a 2-D CV_32FC1 matrix.
double DrawHistogramChart(const cv::Mat& values, int binCount, double rangeLow, double rangeHigh,
                          cv::Mat& chart);

namespace legend_chart_detail {

// How far outside the chart a position beyond it is held: more than any stroke is wide, so a
// line held there is not seen and an outline held there keeps its visible edges.
inline constexpr int kOffChartMargin = 16;

// A horizontal position in pixels: truncated toward zero, held within [-16, 816]; NaN gives -16.
int ChartX(double position);

// The first and last bin overlapping [low, high] on an axis of binCount bins of `width` value
// units from `origin`, held within [-1, binCount]; first > last when none does (NaN included).
struct BinSpan {
  int first;
  int last;
};
BinSpan SelectedBins(double low, double high, double origin, double width, int binCount);

// The per-bin counts the chart draws: calcHist over the valid samples between their minimum and
// maximum, with the samples equal to the maximum added to the last bin. No counts when there is no
// valid sample or binCount < 1; when all valid samples are equal, every one is in the last bin.
struct ChartHistogram {
  std::vector<double> counts;  // binCount entries, or none
  double minimum = 0.0;
  double maximum = 0.0;
  bool hasAxis = false;  // maximum > minimum
};
ChartHistogram ComputeChartHistogram(const cv::Mat& values, int binCount);

}  // namespace legend_chart_detail

}  // namespace KIVMV
