#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "KivColorBar.h"
#include "common/fault_injection.h"
#include "extensions/colour_bar_layout.h"

namespace KIVMV {
namespace {

// Every entry its own red, and green and blue not mirrored: a bar drawn upside down, shifted by
// one pixel or read through the wrong entry formula shows a different colour somewhere.
KivColorTable MarkedTable() {
  std::array<KivRgb, KivColorTable::kSize> colors;
  for (int i = 0; i < KivColorTable::kSize; ++i) {
    colors[i] = KivRgb{static_cast<uint8_t>(i), static_cast<uint8_t>((37 * i) % 256),
                       static_cast<uint8_t>(255 - i / 2)};
  }
  return KivColorTable(colors, KivRgb{128, 128, 128}, "marked");
}

KivColoringInfo Scale(double low, double high, double (*shape)(double)) {
  KivColoringInfo info;
  info.low = low;
  info.high = high;
  info.minimum = low;
  info.maximum = high;
  for (int i = 0; i <= KivColorTable::kSize; ++i) {
    info.entryStart.push_back(low + (high - low) * shape(i / 256.0));
  }
  info.entryStart.back() = high;
  return info;
}

double Even(double t) { return t; }
// Like an equalised colouring of data crowded at the low end: the low values take many entries.
double Squared(double t) { return t * t; }

KivColoringInfo EvenScale(double low, double high) { return Scale(low, high, Even); }

cv::Vec3b BgrOf(KivRgb c) { return cv::Vec3b(c.b, c.g, c.r); }

// The pixel along the scale, from the low end, that a table position falls on.
int ExpectedPixel(double position, int length) {
  const int p = static_cast<int>(std::floor(position * length));
  return p < length ? p : length - 1;
}

// Pixels along the scale, from the low end, where the tick column (one pixel beyond the outline,
// inside the tick marks) shows the text colour; runs of neighbours count once, by their middle.
std::vector<int> TickMarks(const cv::Mat& bar, const BarLayout& layout, bool vertical, KivRgb ink) {
  const cv::Rect c = layout.colours;
  const int length = vertical ? c.height : c.width;
  std::vector<int> marks;
  int runStart = -1;
  for (int p = 0; p <= length; ++p) {
    bool inked = false;
    if (p < length) {
      const cv::Point at = vertical ? cv::Point(c.x + c.width + 2, c.y + length - 1 - p)
                                    : cv::Point(c.x + p, c.y + c.height + 2);
      inked = bar.at<cv::Vec3b>(at) == BgrOf(ink);
    }
    if (inked && runStart < 0) runStart = p;
    if (!inked && runStart >= 0) {
      marks.push_back((runStart + p - 1) / 2);
      runStart = -1;
    }
  }
  return marks;
}

bool Near(const std::vector<int>& marks, int pixel) {
  for (int m : marks) {
    if (std::abs(m - pixel) <= 1) return true;
  }
  return false;
}

TEST(ColourBar, EachPixelShowsTheEntryUnderItsCentre) {
  const KivColorTable table = MarkedTable();
  for (const bool vertical : {true, false}) {
    for (const int length : {16, 200, 256, 301}) {
      KivColorBarOptions options;
      options.vertical = vertical;
      options.length = length;
      options.thickness = 9;
      cv::Mat bar;
      BarLayout layout;
      ASSERT_EQ(DrawColourBar(table, EvenScale(0.0, 1.0), options, &bar, &layout), KIV_EXT_OK);
      ASSERT_EQ(bar.type(), CV_8UC3);
      const cv::Rect c = layout.colours;
      ASSERT_EQ(vertical ? c.height : c.width, length);
      ASSERT_EQ(vertical ? c.width : c.height, 9);
      ASSERT_TRUE((cv::Rect(0, 0, bar.cols, bar.rows) & c) == c);
      for (int p = 0; p < length; ++p) {
        const int entry = static_cast<int>((p + 0.5) / length * 256);
        // Low values at the bottom of a vertical bar and on the left of a horizontal one.
        const cv::Point at =
            vertical ? cv::Point(c.x + 4, c.y + length - 1 - p) : cv::Point(c.x + p, c.y + 4);
        ASSERT_EQ(bar.at<cv::Vec3b>(at), BgrOf(table.At(entry)))
            << (vertical ? "vertical" : "horizontal") << " length " << length << " pixel " << p;
      }
    }
  }
}

TEST(ColourBar, OutlineInTextColour) {
  KivColorBarOptions options;
  options.textColor = KivRgb{10, 20, 30};
  cv::Mat bar;
  BarLayout layout;
  ASSERT_EQ(DrawColourBar(MarkedTable(), EvenScale(0, 1), options, &bar, &layout), KIV_EXT_OK);
  const cv::Rect c = layout.colours;
  const cv::Vec3b ink = BgrOf(options.textColor);
  for (int y = c.y; y < c.y + c.height; ++y) {
    EXPECT_EQ(bar.at<cv::Vec3b>(y, c.x - 1), ink);
    EXPECT_EQ(bar.at<cv::Vec3b>(y, c.x + c.width), ink);
  }
  for (int x = c.x; x < c.x + c.width; ++x) {
    EXPECT_EQ(bar.at<cv::Vec3b>(c.y - 1, x), ink);
    EXPECT_EQ(bar.at<cv::Vec3b>(c.y + c.height, x), ink);
  }
}

TEST(ColourBar, TicksSitWhereTheirValuesLandOnTheTable) {
  struct Case {
    const char* name;
    KivColoringInfo info;
    bool vertical;
    int length;
    bool uneven;
  };
  const Case cases[] = {
      {"even, vertical", EvenScale(-3.0, 17.0), true, 256, false},
      {"even, horizontal", EvenScale(0.37, 9.81), false, 400, false},
      {"uneven, vertical", Scale(0.0, 40.0, Squared), true, 300, true},
      {"uneven, horizontal", Scale(100.0, 160.0, Squared), false, 512, true},
  };
  for (const Case& c : cases) {
    KivColorBarOptions options;
    options.vertical = c.vertical;
    options.length = c.length;
    options.textColor = KivRgb{0, 0, 0};
    cv::Mat bar;
    BarLayout layout;
    ASSERT_EQ(DrawColourBar(MarkedTable(), c.info, options, &bar, &layout), KIV_EXT_OK) << c.name;
    ASSERT_GE(layout.ticks.size(), 2u) << c.name;
    const std::vector<int> marks = TickMarks(bar, layout, c.vertical, options.textColor);
    EXPECT_EQ(marks.size(), layout.ticks.size()) << c.name;
    bool offLinear = false;
    for (const BarTick& tick : layout.ticks) {
      const int expected = ExpectedPixel(c.info.TablePosition(tick.value), c.length);
      EXPECT_TRUE(Near(marks, expected))
          << c.name << ": no tick mark near pixel " << expected << " for " << tick.value;
      const double linear = (tick.value - c.info.low) / (c.info.high - c.info.low);
      offLinear = offLinear || std::abs(ExpectedPixel(linear, c.length) - expected) > 2;
    }
    // On the uneven scales the ticks must not sit where a linear bar would put them.
    EXPECT_EQ(offLinear, c.uneven) << c.name;
  }
}

TEST(ColourBar, CrowdedLabelsAreDroppedTheirTicksKept) {
  // Entries 0..249 hold 0..1, the last six 1..100: the round values 20..100 crowd the top.
  KivColoringInfo info;
  info.low = 0.0;
  info.high = 100.0;
  for (int i = 0; i <= 250; ++i) info.entryStart.push_back(i / 250.0);
  for (int i = 251; i <= 256; ++i) info.entryStart.push_back(1.0 + 99.0 * (i - 250) / 6.0);
  KivColorBarOptions options;
  options.length = 2048;
  options.ticks = 6;
  for (const bool vertical : {true, false}) {
    options.vertical = vertical;
    cv::Mat bar;
    BarLayout layout;
    ASSERT_EQ(DrawColourBar(MarkedTable(), info, options, &bar, &layout), KIV_EXT_OK);
    ASSERT_EQ(layout.labelled.size(), layout.ticks.size());
    const std::vector<int> marks = TickMarks(bar, layout, vertical, options.textColor);
    EXPECT_EQ(marks.size(), layout.ticks.size());
    int labels = 0;
    for (bool l : layout.labelled) labels += l ? 1 : 0;
    // Both ends keep their labels, so the bar tells what it spans.
    EXPECT_TRUE(layout.labelled.front());
    EXPECT_TRUE(layout.labelled.back());
    EXPECT_GE(labels, 2);
    EXPECT_LT(labels, static_cast<int>(layout.ticks.size()));
  }
}

TEST(ColourBar, CapsTakeTheirColoursAndGoWhenNotAsked) {
  const KivColorTable table = MarkedTable();
  for (const bool vertical : {true, false}) {
    KivColorBarOptions options;
    options.vertical = vertical;
    options.belowColor = KivRgb{1, 2, 3};
    cv::Mat bar;
    BarLayout layout;
    ASSERT_EQ(DrawColourBar(table, EvenScale(0, 1), options, &bar, &layout), KIV_EXT_OK);
    ASSERT_GE(layout.capLength, 4);
    const cv::Rect c = layout.colours;
    const int reach = 1 + layout.capLength / 2;  // halfway out from the outline
    const cv::Point low = vertical ? cv::Point(c.x + c.width / 2, c.y + c.height + reach)
                                   : cv::Point(c.x - 1 - reach, c.y + c.height / 2);
    const cv::Point high = vertical ? cv::Point(c.x + c.width / 2, c.y - 1 - reach)
                                    : cv::Point(c.x + c.width + reach, c.y + c.height / 2);
    EXPECT_EQ(bar.at<cv::Vec3b>(low), BgrOf(KivRgb{1, 2, 3}));
    EXPECT_EQ(bar.at<cv::Vec3b>(high), BgrOf(table.At(255)));
    // The cap narrows to its apex: beside the centre line near the apex lies background.
    const cv::Point besideApex =
        vertical ? cv::Point(c.x, c.y - layout.capLength) : cv::Point(c.x - layout.capLength, c.y);
    EXPECT_EQ(bar.at<cv::Vec3b>(besideApex), BgrOf(options.background));

    options.endCaps = false;
    options.belowColor.reset();
    ASSERT_EQ(DrawColourBar(table, EvenScale(0, 1), options, &bar, &layout), KIV_EXT_OK);
    EXPECT_EQ(layout.capLength, 0);
    const cv::Rect d = layout.colours;
    const cv::Point pastLow = vertical ? cv::Point(d.x + d.width / 2, d.y + d.height + 2)
                                       : cv::Point(d.x - 3, d.y + d.height / 2);
    const cv::Point pastHigh = vertical ? cv::Point(d.x + d.width / 2, d.y - 3)
                                        : cv::Point(d.x + d.width + 2, d.y + d.height / 2);
    EXPECT_EQ(bar.at<cv::Vec3b>(pastLow), BgrOf(options.background));
    EXPECT_EQ(bar.at<cv::Vec3b>(pastHigh), BgrOf(options.background));
  }
}

TEST(ColourBar, FlatScaleGetsOneLabel) {
  KivColoringInfo info;
  info.low = info.high = 12.5;
  info.entryStart.assign(257, 12.5);
  KivColorBarOptions options;
  cv::Mat bar;
  BarLayout layout;
  ASSERT_EQ(DrawColourBar(MarkedTable(), info, options, &bar, &layout), KIV_EXT_OK);
  ASSERT_EQ(layout.ticks.size(), 1u);
  EXPECT_EQ(layout.ticks[0].value, 12.5);
  EXPECT_EQ(layout.ticks[0].label, "12.5 mm");
  EXPECT_TRUE(layout.labelled[0]);
  EXPECT_EQ(TickMarks(bar, layout, true, options.textColor).size(), 1u);
}

TEST(ColourBar, StatusesAndOutputUntouchedOnFailure) {
  const KivColorTable table = MarkedTable();
  const KivColoringInfo good = EvenScale(0, 1);
  KivColoringInfo noStarts = good;
  noStarts.entryStart.clear();
  KivColoringInfo nanLow = good;
  nanLow.low = NAN;
  KivColoringInfo nanHigh = good;
  nanHigh.high = NAN;
  KivColoringInfo nanStart = good;
  nanStart.entryStart[100] = NAN;
  KivColoringInfo shortStarts = good;
  shortStarts.entryStart.pop_back();
  auto with = [](void (*change)(KivColorBarOptions&)) {
    KivColorBarOptions o;
    change(o);
    return o;
  };
  const KivColorBarOptions defaults;
  struct Case {
    const char* name;
    const KivColoringInfo& info;
    KivColorBarOptions options;
    long expected;
  };
  const Case cases[] = {
      {"no entry starts", noStarts, defaults, KIV_EXT_ERR_NO_SCALE},
      {"NaN low", nanLow, defaults, KIV_EXT_ERR_NO_SCALE},
      {"NaN high", nanHigh, defaults, KIV_EXT_ERR_NO_SCALE},
      {"NaN entry start", nanStart, defaults, KIV_EXT_ERR_NO_SCALE},
      {"256 entry starts", shortStarts, defaults, KIV_EXT_ERR_NO_SCALE},
      {"length 15", good, with([](KivColorBarOptions& o) { o.length = 15; }),
       KIV_EXT_ERR_BAR_GEOMETRY},
      {"length 8193", good, with([](KivColorBarOptions& o) { o.length = 8193; }),
       KIV_EXT_ERR_BAR_GEOMETRY},
      {"thickness 3", good, with([](KivColorBarOptions& o) { o.thickness = 3; }),
       KIV_EXT_ERR_BAR_GEOMETRY},
      {"thickness 513", good, with([](KivColorBarOptions& o) { o.thickness = 513; }),
       KIV_EXT_ERR_BAR_GEOMETRY},
      {"ticks 1", good, with([](KivColorBarOptions& o) { o.ticks = 1; }), KIV_EXT_ERR_BAR_GEOMETRY},
      {"ticks 21", good, with([](KivColorBarOptions& o) { o.ticks = 21; }),
       KIV_EXT_ERR_BAR_GEOMETRY},
      {"font scale NaN", good, with([](KivColorBarOptions& o) { o.fontScale = NAN; }),
       KIV_EXT_ERR_BAR_GEOMETRY},
      {"length 16", good, with([](KivColorBarOptions& o) { o.length = 16; }), KIV_EXT_OK},
      {"thickness 512", good, with([](KivColorBarOptions& o) { o.thickness = 512; }), KIV_EXT_OK},
      {"ticks 20", good, with([](KivColorBarOptions& o) { o.ticks = 20; }), KIV_EXT_OK},
  };
  for (const Case& c : cases) {
    cv::Mat out(3, 3, CV_8UC1, cv::Scalar(7));
    const uchar* before = out.data;
    EXPECT_EQ(KivDrawColorBar(table, c.info, c.options, &out), c.expected) << c.name;
    if (c.expected != KIV_EXT_OK) {
      EXPECT_EQ(out.data, before) << c.name;
      EXPECT_EQ(out.type(), CV_8UC1) << c.name;
      EXPECT_EQ(cv::countNonZero(out != 7), 0) << c.name;
    }
  }
  EXPECT_EQ(KivDrawColorBar(table, good, defaults, nullptr), KIV_EXT_ERR_NULL_OUTPUT);
  {
    ScopedFault fault(FaultStage::kColourBar);
    cv::Mat out;
    EXPECT_EQ(KivDrawColorBar(table, good, defaults, &out), KIV_EXT_ERR_INTERNAL);
    EXPECT_TRUE(out.empty());
  }
}

TEST(ColourBarScale, StepsAreNiceAndValuesMultiplesInsideTheBounds) {
  struct Case {
    double low, high;
    int ticks;
  };
  const Case cases[] = {{0, 10, 5},   {0.37, 9.81, 5},   {-3, 17, 4},     {1000, 1000.5, 6},
                        {0, 1e-4, 5}, {-250, -249, 3},   {0, 123456, 20}, {7, 8, 2},
                        {-1, 1, 11},  {0.001, 0.002, 5}, {1e6, 3e6, 5},   {5, 5.01, 7}};
  for (const Case& c : cases) {
    const KivColoringInfo info = EvenScale(c.low, c.high);
    const std::vector<BarTick> ticks = BarTicks(info, c.ticks, "mm");
    const double step = NiceTickStep(c.low, c.high, c.ticks);
    const double mantissa = step / std::pow(10.0, std::floor(std::log10(step) + 1e-12));
    EXPECT_TRUE(std::abs(mantissa - 1) < 1e-9 || std::abs(mantissa - 2) < 1e-9 ||
                std::abs(mantissa - 2.5) < 1e-9 || std::abs(mantissa - 5) < 1e-9)
        << c.low << ".." << c.high << " step " << step;
    ASSERT_GE(ticks.size(), 2u) << c.low << ".." << c.high;
    EXPECT_LE(ticks.size(), static_cast<size_t>(2 * c.ticks)) << c.low << ".." << c.high;
    std::vector<BarTick> nice;
    for (size_t i = 0; i < ticks.size(); ++i) {
      EXPECT_GE(ticks[i].value, c.low);
      EXPECT_LE(ticks[i].value, c.high);
      EXPECT_DOUBLE_EQ(ticks[i].position, info.TablePosition(ticks[i].value));
      if (i > 0) {
        EXPECT_GT(ticks[i].value, ticks[i - 1].value);
        EXPECT_NE(ticks[i].label, ticks[i - 1].label) << "labels must tell the ticks apart";
      }
      if (ticks[i].bound) {
        // A bound is a tick of its own only away from the round values.
        EXPECT_TRUE(i == 0 || i + 1 == ticks.size());
        EXPECT_EQ(ticks[i].value, i == 0 ? c.low : c.high);
      } else {
        nice.push_back(ticks[i]);
      }
    }
    ASSERT_GE(nice.size(), 1u) << c.low << ".." << c.high;
    for (size_t i = 0; i < nice.size(); ++i) {
      const double multiple = nice[i].value / step;
      EXPECT_NEAR(multiple, std::round(multiple), 1e-6) << nice[i].value << " step " << step;
      if (i > 0) {
        EXPECT_NEAR(nice[i].value - nice[i - 1].value, step, 1e-6 * step);
      }
    }
    const bool lowAway = nice.front().value - c.low > 0.25 * step;
    const bool highAway = c.high - nice.back().value > 0.25 * step;
    EXPECT_EQ(ticks.front().bound, lowAway) << c.low << ".." << c.high;
    EXPECT_EQ(ticks.back().bound, highAway) << c.low << ".." << c.high;
  }
}

TEST(ColourBarScale, LabelsUseTheFewestDecimalsAndAsciiUnits) {
  EXPECT_EQ(DecimalsForStep(5.0), 0);
  EXPECT_EQ(DecimalsForStep(200.0), 0);
  EXPECT_EQ(DecimalsForStep(2.5), 1);
  EXPECT_EQ(DecimalsForStep(0.1), 1);
  EXPECT_EQ(DecimalsForStep(0.25), 2);
  EXPECT_EQ(DecimalsForStep(0.0005), 4);
  EXPECT_EQ(TickLabel(2.5, 1, "mm"), "2.5 mm");
  EXPECT_EQ(TickLabel(-0.00001, 2, "mm"), "0.00 mm");
  EXPECT_EQ(TickLabel(40.0, 0, ""), "40");
  EXPECT_EQ(AsciiUnit("\xC2\xB5m"), "um");  // MICRO SIGN
  EXPECT_EQ(AsciiUnit("\xCE\xBCm"), "um");  // GREEK SMALL LETTER MU
  EXPECT_EQ(AsciiUnit("\xC2\xB0"), "deg");
  EXPECT_EQ(AsciiUnit("m\xC3\xA9tre\n"), "m?tre");
  for (const std::string unit : {"um", "\xC2\xB5m", "\xE2\x84\xAB", ""}) {
    for (const BarTick& tick : BarTicks(EvenScale(-0.5, 0.75), 5, unit)) {
      for (const char ch : tick.label) {
        EXPECT_TRUE(ch >= 0x20 && ch < 0x7F) << "label " << tick.label;
      }
    }
  }
}

cv::Mat RandomPicture(int rows, int cols, int type) {
  cv::Mat picture(rows, cols, type);
  cv::randu(picture, cv::Scalar::all(0), cv::Scalar::all(256));
  return picture;
}

TEST(ColourBarAttach, BarBesideOrBelowCentredPictureUnchanged) {
  cv::Mat bar;
  for (const bool vertical : {true, false}) {
    KivColorBarOptions options;
    options.vertical = vertical;
    options.length = 100;
    ASSERT_EQ(KivDrawColorBar(MarkedTable(), EvenScale(0, 1), options, &bar), KIV_EXT_OK);
    for (const cv::Size size : {cv::Size(31, 47), cv::Size(400, 300)}) {
      const cv::Mat picture = RandomPicture(size.height, size.width, CV_8UC3);
      const cv::Mat copy = picture.clone();
      cv::Mat out;
      ASSERT_EQ(KivAttachColorBar(picture, bar, options, &out), KIV_EXT_OK);
      ASSERT_EQ(out.type(), CV_8UC3);
      EXPECT_EQ(cv::countNonZero(cv::Mat(picture != copy).reshape(1)), 0);
      cv::Rect pictureAt, barAt;
      if (vertical) {
        ASSERT_GT(out.cols, picture.cols + bar.cols);
        ASSERT_LT(out.cols, picture.cols + bar.cols + 32);
        ASSERT_EQ(out.rows, std::max(picture.rows, bar.rows));
        pictureAt = cv::Rect(0, (out.rows - picture.rows) / 2, picture.cols, picture.rows);
        barAt = cv::Rect(out.cols - bar.cols, (out.rows - bar.rows) / 2, bar.cols, bar.rows);
      } else {
        ASSERT_GT(out.rows, picture.rows + bar.rows);
        ASSERT_LT(out.rows, picture.rows + bar.rows + 32);
        ASSERT_EQ(out.cols, std::max(picture.cols, bar.cols));
        pictureAt = cv::Rect((out.cols - picture.cols) / 2, 0, picture.cols, picture.rows);
        barAt = cv::Rect((out.cols - bar.cols) / 2, out.rows - bar.rows, bar.cols, bar.rows);
      }
      EXPECT_EQ(cv::countNonZero(cv::Mat(out(pictureAt) != picture).reshape(1)), 0);
      EXPECT_EQ(cv::countNonZero(cv::Mat(out(barAt) != bar).reshape(1)), 0);
      // Everything else is background.
      cv::Mat mask(out.size(), CV_8UC1, cv::Scalar(255));
      mask(pictureAt).setTo(0);
      mask(barAt).setTo(0);
      const cv::Vec3b white(255, 255, 255);
      for (int y = 0; y < out.rows; ++y) {
        for (int x = 0; x < out.cols; ++x) {
          if (mask.at<uchar>(y, x)) {
            ASSERT_EQ(out.at<cv::Vec3b>(y, x), white);
          }
        }
      }
    }
  }
}

TEST(ColourBarAttach, FourChannelPictureOverTheBackgroundByItsAlpha) {
  KivColorBarOptions options;
  options.background = KivRgb{40, 90, 200};
  cv::Mat bar;
  ASSERT_EQ(KivDrawColorBar(MarkedTable(), EvenScale(0, 1), options, &bar), KIV_EXT_OK);
  cv::Mat picture = RandomPicture(64, 48, CV_8UC4);
  picture.at<cv::Vec4b>(0, 0)[3] = 0;
  picture.at<cv::Vec4b>(0, 1)[3] = 255;
  cv::Mat out;
  ASSERT_EQ(KivAttachColorBar(picture, bar, options, &out), KIV_EXT_OK);
  const int top = (out.rows - picture.rows) / 2;
  const double bg[3] = {200, 90, 40};  // blue, green, red
  for (int y = 0; y < picture.rows; ++y) {
    for (int x = 0; x < picture.cols; ++x) {
      const cv::Vec4b p = picture.at<cv::Vec4b>(y, x);
      const cv::Vec3b o = out.at<cv::Vec3b>(top + y, x);
      for (int c = 0; c < 3; ++c) {
        const double expected = (p[c] * p[3] + bg[c] * (255 - p[3])) / 255.0;
        ASSERT_LE(std::abs(o[c] - expected), 0.5 + 1e-9) << x << "," << y << " channel " << c;
      }
    }
  }
  EXPECT_EQ(out.at<cv::Vec3b>(top, 0), cv::Vec3b(200, 90, 40));
}

TEST(ColourBarAttach, ColourArrayAsThePicture) {
  cv::Mat bar;
  const KivColorBarOptions options;
  ASSERT_EQ(KivDrawColorBar(MarkedTable(), EvenScale(0, 1), options, &bar), KIV_EXT_OK);
  for (const int channels : {3, 4}) {
    KivColorArray colours;
    colours.Create(30 * 20, channels);
    cv::randu(colours.Mat(), cv::Scalar::all(0), cv::Scalar::all(256));
    const cv::Mat picture(20, 30, CV_8UC(channels), colours.Data());
    cv::Mat fromArray, fromMat;
    ASSERT_EQ(KivAttachColorBar(colours, 30, 20, bar, options, &fromArray), KIV_EXT_OK);
    ASSERT_EQ(KivAttachColorBar(picture, bar, options, &fromMat), KIV_EXT_OK);
    ASSERT_EQ(fromArray.size(), fromMat.size());
    EXPECT_EQ(cv::countNonZero(cv::Mat(fromArray != fromMat).reshape(1)), 0);
  }
  KivColorArray colours;
  colours.Create(600, 3);
  cv::Mat out(2, 2, CV_8UC1, cv::Scalar(9));
  EXPECT_EQ(KivAttachColorBar(colours, 30, 21, bar, options, &out), KIV_EXT_ERR_SIZE_MISMATCH);
  EXPECT_EQ(KivAttachColorBar(colours, 0, 20, bar, options, &out), KIV_EXT_ERR_EMPTY_INPUT);
  KivColorArray grey;
  grey.Create(600, 1);
  EXPECT_EQ(KivAttachColorBar(grey, 30, 20, bar, options, &out), KIV_EXT_ERR_SIZE_MISMATCH);
  EXPECT_EQ(out.size(), cv::Size(2, 2));
  EXPECT_EQ(KivAttachColorBar(colours, 30, 20, bar, options, nullptr), KIV_EXT_ERR_NULL_OUTPUT);
}

TEST(ColourBarAttach, Statuses) {
  cv::Mat bar;
  const KivColorBarOptions options;
  ASSERT_EQ(KivDrawColorBar(MarkedTable(), EvenScale(0, 1), options, &bar), KIV_EXT_OK);
  const cv::Mat picture = RandomPicture(10, 10, CV_8UC3);
  cv::Mat out(2, 2, CV_8UC1, cv::Scalar(9));
  EXPECT_EQ(KivAttachColorBar(picture, bar, options, nullptr), KIV_EXT_ERR_NULL_OUTPUT);
  EXPECT_EQ(KivAttachColorBar(cv::Mat(), bar, options, &out), KIV_EXT_ERR_EMPTY_INPUT);
  EXPECT_EQ(KivAttachColorBar(picture, cv::Mat(), options, &out), KIV_EXT_ERR_EMPTY_INPUT);
  EXPECT_EQ(KivAttachColorBar(cv::Mat(10, 10, CV_8UC1), bar, options, &out),
            KIV_EXT_ERR_INPUT_TYPE);
  EXPECT_EQ(KivAttachColorBar(cv::Mat(10, 10, CV_16UC3), bar, options, &out),
            KIV_EXT_ERR_INPUT_TYPE);
  EXPECT_EQ(KivAttachColorBar(picture, cv::Mat(10, 10, CV_8UC4), options, &out),
            KIV_EXT_ERR_INPUT_TYPE);
  {
    ScopedFault fault(FaultStage::kColourBar);
    EXPECT_EQ(KivAttachColorBar(picture, bar, options, &out), KIV_EXT_ERR_INTERNAL);
  }
  EXPECT_EQ(out.size(), cv::Size(2, 2));
  EXPECT_EQ(out.at<uchar>(0, 0), 9);
}

}  // namespace
}  // namespace KIVMV
