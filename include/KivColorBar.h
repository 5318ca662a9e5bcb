// Colour bars: a picture of a table with ticks and labels in physical units, drawn from the
// KivColoringInfo of a colouring, so that it shows which colour is which height. For an equalised
// colouring the ticks sit where those heights land on the bar, unevenly, as the colours do.
// Colours below and above the bounds appear as triangular end caps, as matplotlib draws them.
// Labels are ASCII in OpenCV's Hershey font: write "um" for micrometres.
#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <string>

#include "KivColorTable.h"
#include "KivColoring.h"
#include "KivExtStatus.h"
#include "KivLUTSettingExport.h"

namespace KIVMV {

struct KivColorBarOptions {
  bool vertical = true;     // low values at the bottom; horizontal: low values on the left
  int length = 256;         // pixels along the scale (the colours alone, caps excluded), 16..8192
  int thickness = 20;       // pixels across the colours, 4..512
  std::string unit = "mm";  // written after the labels; may be empty
  int ticks = 5;            // about this many labelled ticks at round values, 2..20
  bool endCaps = true;      // below/above caps at both ends: for colourings that used such colours
  std::optional<KivRgb> belowColor;  // the caps' colours; unset: the table's first and last entry
  std::optional<KivRgb> aboveColor;
  KivRgb textColor{0, 0, 0};
  KivRgb background{255, 255, 255};
  double fontScale = 0.4;  // of the Hershey font, 0.1..4
};

// A colour bar for a colouring: a CV_8UC3 (BGR) image, sized to hold the bar, caps, ticks and
// labels. KIV_EXT_ERR_NO_SCALE when the info has no scale (no valid value),
// KIV_EXT_ERR_BAR_GEOMETRY for sizes outside their ranges.
KIVLUT_API long KivDrawColorBar(const KivColorTable& table, const KivColoringInfo& info,
                                const KivColorBarOptions& options, cv::Mat* out);

// The picture (CV_8UC3 or CV_8UC4) with the bar beside it: on its right for a vertical bar, below
// it for a horizontal one, centred, on the bar's background. A 4-channel picture is composited
// over the background first. The result is CV_8UC3.
KIVLUT_API long KivAttachColorBar(const cv::Mat& picture, const cv::Mat& bar,
                                  const KivColorBarOptions& options, cv::Mat* out);

// The same for a colour array as KivColoring.h writes it: `width` x `height` colours.
KIVLUT_API long KivAttachColorBar(const KivColorArray& picture, int width, int height,
                                  const cv::Mat& bar, const KivColorBarOptions& options,
                                  cv::Mat* out);

}  // namespace KIVMV
