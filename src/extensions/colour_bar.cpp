// Colour bars: the table's colours along a scale, ticks at round values where those values land
// on the table, labels, end caps, and the bar attached beside a picture.
#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "KivColorBar.h"
#include "common/fault_injection.h"
#include "extensions/colour_bar_layout.h"

namespace KIVMV {
namespace {

constexpr int kMargin = 4;        // background around everything the bar draws
constexpr int kTickLength = 5;    // tick marks, outside the outline
constexpr int kLabelGap = 3;      // between a tick mark's end and its label
constexpr int kLabelSpacing = 2;  // least free space between two labels along the bar
constexpr int kAttachGap = 8;     // between a picture and its bar
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;

bool GeometryUsable(const KivColorBarOptions& options) {
  return options.length >= 16 && options.length <= 8192 && options.thickness >= 4 &&
         options.thickness <= 512 && options.ticks >= 2 && options.ticks <= 20 &&
         std::isfinite(options.fontScale) && options.fontScale >= 0.1 && options.fontScale <= 4.0;
}

cv::Scalar Bgr(KivRgb c) { return cv::Scalar(c.b, c.g, c.r); }

// matplotlib sizes its extension triangles as a fraction of the bar; a twentieth of the length,
// kept between a few pixels and the bar's thickness, reads as a cap without stealing the scale.
int CapLength(const KivColorBarOptions& options) {
  return std::clamp(options.length / 20, 4, std::max(4, options.thickness));
}

// The pixel along the scale, counted from the low end, that shows a table position.
int PixelAlong(double position, int length) {
  return std::clamp(static_cast<int>(std::floor(position * length)), 0, length - 1);
}

struct LabelBox {
  cv::Size size;
  int baseline = 0;
};

void DrawCap(cv::Mat& bar, const std::vector<cv::Point>& corners, KivRgb fill, KivRgb outline) {
  // Corners carry one fractional bit, so the apex sits on the bar's centre line for any thickness.
  constexpr int kShift = 1;
  const std::vector<std::vector<cv::Point>> polygon{corners};
  cv::fillPoly(bar, polygon, Bgr(fill), cv::LINE_8, kShift);
  cv::polylines(bar, polygon, true, Bgr(outline), 1, cv::LINE_8, kShift);
}

long DrawChecked(const KivColorTable& table, const KivColoringInfo& info,
                 const KivColorBarOptions& options, cv::Mat* out, BarLayout* layout) {
  ThrowIfInjected(FaultStage::kColourBar);
  const int length = options.length;
  const int thickness = options.thickness;
  const bool vertical = options.vertical;

  std::vector<BarTick> ticks = BarTicks(info, options.ticks, options.unit);
  std::vector<LabelBox> boxes;
  int labelWidth = 0;
  int labelHeight = 0;
  int labelDescent = 0;
  for (const BarTick& tick : ticks) {
    LabelBox box;
    box.size = cv::getTextSize(tick.label, kFont, options.fontScale, 1, &box.baseline);
    labelWidth = std::max(labelWidth, box.size.width);
    labelHeight = std::max(labelHeight, box.size.height);
    labelDescent = std::max(labelDescent, box.baseline);
    boxes.push_back(box);
  }

  const int capLength = options.endCaps ? CapLength(options) : 0;
  const int labelsAcross = kTickLength + kLabelGap + (vertical ? labelWidth : labelHeight);
  // A label centred on a tick at the very end of the scale reaches half its extent beyond it.
  const int halfLabelAlong = (vertical ? labelHeight : labelWidth) / 2 + 1;
  const int endPad = std::max(capLength, halfLabelAlong);
  const int along = kMargin + endPad + 1 + length + 1 + endPad + kMargin;
  const int across = kMargin + 1 + thickness + 1 + labelsAcross + labelDescent + kMargin;

  cv::Mat bar(vertical ? along : across, vertical ? across : along, CV_8UC3,
              Bgr(options.background));
  const int start = kMargin + endPad + 1;  // first colour pixel along the bar's image axis
  const int side = kMargin + 1;            // first colour pixel across
  const cv::Rect colours = vertical ? cv::Rect(side, start, thickness, length)
                                    : cv::Rect(start, side, length, thickness);

  // Pixel p from the low end shows the entry under its centre: floor((p + 0.5) / length * 256),
  // in integers so that no rounding moves a boundary. Low values at the bottom or on the left.
  const uint8_t* entries = table.Bgr();
  for (int p = 0; p < length; ++p) {
    const int entry =
        std::min((2 * p + 1) * KivColorTable::kSize / (2 * length), KivColorTable::kSize - 1);
    const cv::Vec3b colour(entries[3 * entry], entries[3 * entry + 1], entries[3 * entry + 2]);
    const cv::Rect line = vertical ? cv::Rect(colours.x, colours.y + length - 1 - p, thickness, 1)
                                   : cv::Rect(colours.x + p, colours.y, 1, thickness);
    bar(line).setTo(cv::Scalar(colour[0], colour[1], colour[2]));
  }
  cv::rectangle(bar, cv::Point(colours.x - 1, colours.y - 1),
                cv::Point(colours.x + colours.width, colours.y + colours.height),
                Bgr(options.textColor), 1, cv::LINE_8);

  if (options.endCaps) {
    const KivRgb below = options.belowColor.value_or(table.At(0));
    const KivRgb above = options.aboveColor.value_or(table.At(KivColorTable::kSize - 1));
    // In half pixels: the caps' bases lie on the outline, their apexes on the centre line.
    const int a0 = 2 * (colours.x - 1), a1 = 2 * (colours.x + colours.width);
    const int b0 = 2 * (colours.y - 1), b1 = 2 * (colours.y + colours.height);
    const int cap = 2 * capLength;
    if (vertical) {
      const int centre = (a0 + a1) / 2;
      DrawCap(bar, {{a0, b1}, {a1, b1}, {centre, b1 + cap}}, below, options.textColor);
      DrawCap(bar, {{a0, b0}, {a1, b0}, {centre, b0 - cap}}, above, options.textColor);
    } else {
      const int centre = (b0 + b1) / 2;
      DrawCap(bar, {{a0, b0}, {a0, b1}, {a0 - cap, centre}}, below, options.textColor);
      DrawCap(bar, {{a1, b0}, {a1, b1}, {a1 + cap, centre}}, above, options.textColor);
    }
  }

  const cv::Scalar ink = Bgr(options.textColor);
  const int tickFrom = (vertical ? colours.x + thickness : colours.y + thickness) + 1;
  const int tickTo = tickFrom + kTickLength - 1;
  const int labelAcross = tickTo + 1 + kLabelGap;
  std::vector<int> tickAt(ticks.size());
  for (size_t i = 0; i < ticks.size(); ++i) {
    const int p = PixelAlong(ticks[i].position, length);
    tickAt[i] = vertical ? colours.y + length - 1 - p : colours.x + p;
    if (vertical) {
      cv::line(bar, cv::Point(tickFrom, tickAt[i]), cv::Point(tickTo, tickAt[i]), ink, 1,
               cv::LINE_8);
    } else {
      cv::line(bar, cv::Point(tickAt[i], tickFrom), cv::Point(tickAt[i], tickTo), ink, 1,
               cv::LINE_8);
    }
  }

  // The labels at both ends first, so the reader sees what the scale spans, then the others from
  // the low end; a label that would run into one already drawn is left out and its tick mark
  // stays, so a crowded stretch of an equalised scale still shows where values lie.
  std::vector<size_t> order{0};
  if (ticks.size() > 1) order.push_back(ticks.size() - 1);
  for (size_t i = 1; i + 1 < ticks.size(); ++i) order.push_back(i);
  std::vector<bool> labelled(ticks.size(), false);
  std::vector<std::pair<int, int>> taken;  // extents along the bar's image axis
  for (const size_t i : order) {
    const cv::Size size = boxes[i].size;
    const int extent = vertical ? size.height : size.width;
    const int first = tickAt[i] - extent / 2;
    const int last = first + extent;
    bool free = true;
    for (const auto& [a, b] : taken) {
      free = free && (last + kLabelSpacing < a || first > b + kLabelSpacing);
    }
    if (!free) continue;
    taken.emplace_back(first, last);
    labelled[i] = true;
    // putText places the baseline: the label's bottom edge, below the tick's row by half a
    // label height on a vertical bar, under the tick marks on a horizontal one.
    const cv::Point origin =
        vertical ? cv::Point(labelAcross, last) : cv::Point(first, labelAcross + labelHeight);
    cv::putText(bar, ticks[i].label, origin, kFont, options.fontScale, ink, 1, cv::LINE_AA);
  }

  if (layout != nullptr) {
    layout->colours = colours;
    layout->capLength = capLength;
    layout->ticks = std::move(ticks);
    layout->labelled = std::move(labelled);
  }
  *out = bar;
  return KIV_EXT_OK;
}

// A 4-channel picture over the background by its alpha, rounded to the nearest byte.
cv::Mat OverBackground(const cv::Mat& picture, KivRgb background) {
  if (picture.type() == CV_8UC3) return picture;
  const int bg[3] = {background.b, background.g, background.r};
  cv::Mat flat(picture.size(), CV_8UC3);
  for (int y = 0; y < picture.rows; ++y) {
    const cv::Vec4b* in = picture.ptr<cv::Vec4b>(y);
    cv::Vec3b* outRow = flat.ptr<cv::Vec3b>(y);
    for (int x = 0; x < picture.cols; ++x) {
      const int alpha = in[x][3];
      for (int c = 0; c < 3; ++c) {
        outRow[x][c] = static_cast<uint8_t>((in[x][c] * alpha + bg[c] * (255 - alpha) + 127) / 255);
      }
    }
  }
  return flat;
}

long AttachChecked(const cv::Mat& picture, const cv::Mat& bar, const KivColorBarOptions& options,
                   cv::Mat* out) {
  ThrowIfInjected(FaultStage::kColourBar);
  const cv::Mat flat = OverBackground(picture, options.background);
  const bool vertical = options.vertical;
  const int width = vertical ? flat.cols + kAttachGap + bar.cols : std::max(flat.cols, bar.cols);
  const int height = vertical ? std::max(flat.rows, bar.rows) : flat.rows + kAttachGap + bar.rows;
  cv::Mat joined(height, width, CV_8UC3, Bgr(options.background));
  const cv::Point pictureAt =
      vertical ? cv::Point(0, (height - flat.rows) / 2) : cv::Point((width - flat.cols) / 2, 0);
  const cv::Point barAt = vertical ? cv::Point(flat.cols + kAttachGap, (height - bar.rows) / 2)
                                   : cv::Point((width - bar.cols) / 2, flat.rows + kAttachGap);
  flat.copyTo(joined(cv::Rect(pictureAt, flat.size())));
  bar.copyTo(joined(cv::Rect(barAt, bar.size())));
  *out = joined;
  return KIV_EXT_OK;
}

}  // namespace

long DrawColourBar(const KivColorTable& table, const KivColoringInfo& info,
                   const KivColorBarOptions& options, cv::Mat* out, BarLayout* layout) {
  if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
  if (!ColourBarScaleUsable(info)) return KIV_EXT_ERR_NO_SCALE;
  if (!GeometryUsable(options)) return KIV_EXT_ERR_BAR_GEOMETRY;
  try {
    return DrawChecked(table, info, options, out, layout);
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

long KivDrawColorBar(const KivColorTable& table, const KivColoringInfo& info,
                     const KivColorBarOptions& options, cv::Mat* out) {
  return DrawColourBar(table, info, options, out, nullptr);
}

long KivAttachColorBar(const cv::Mat& picture, const cv::Mat& bar,
                       const KivColorBarOptions& options, cv::Mat* out) {
  if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
  if (picture.empty() || bar.empty()) return KIV_EXT_ERR_EMPTY_INPUT;
  if ((picture.type() != CV_8UC3 && picture.type() != CV_8UC4) || bar.type() != CV_8UC3 ||
      picture.dims != 2 || bar.dims != 2) {
    return KIV_EXT_ERR_INPUT_TYPE;
  }
  try {
    return AttachChecked(picture, bar, options, out);
  } catch (...) {
    return KIV_EXT_ERR_INTERNAL;
  }
}

long KivAttachColorBar(const KivColorArray& picture, int width, int height, const cv::Mat& bar,
                       const KivColorBarOptions& options, cv::Mat* out) {
  if (out == nullptr) return KIV_EXT_ERR_NULL_OUTPUT;
  if (width <= 0 || height <= 0 || picture.Length() <= 0) return KIV_EXT_ERR_EMPTY_INPUT;
  const cv::Mat& stored = picture.Mat();
  const int channels = picture.Channel();
  // The array's sizes are kept beside its matrix; both must agree with the geometry asked for,
  // or the view below would read past the bytes.
  if (static_cast<int64_t>(width) * height != picture.Length() ||
      (channels != 3 && channels != 4) || picture.Data() == nullptr ||
      stored.type() != CV_8UC(channels) || !stored.isContinuous() ||
      stored.total() != static_cast<size_t>(picture.Length())) {
    return KIV_EXT_ERR_SIZE_MISMATCH;
  }
  const cv::Mat view(height, width, CV_8UC(channels), picture.Data());
  return KivAttachColorBar(view, bar, options, out);
}

}  // namespace KIVMV
