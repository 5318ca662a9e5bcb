// One operation of kivlut applied to the pixels of one input (two for blend) through the library.
#pragma once

#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "KivSequenceColoring.h"
#include "options.h"

namespace kivlut {

// What the mapping measured, for --stats.
struct MappingStats {
  double minimum = 0.0;  // of the valid values, in physical units
  double maximum = 0.0;
  long long valid = 0;  // valid pixels
  long long total = 0;  // all pixels
  std::string bounds;   // the bounds the mapping used, as text ("0.666 .. 1.731")
  // The same bounds as numbers in the units of minimum and maximum, for --json; NaN where the
  // mapping has no such pair.
  double low = std::numeric_limits<double>::quiet_NaN();
  double high = std::numeric_limits<double>::quiet_NaN();
};

struct OperationResult {
  bool ok = false;
  cv::Mat picture;  // 8-bit, blue first (BGRA with --transparent), the input's width and height,
                    // wider or taller with --colorbar
  cv::Mat legend;   // scale --legend: the histogram chart
  MappingStats stats;
  long status = KIVMV::LUT_OK;  // the library's status when it refused
  std::string error;            // one line: "LUT_ERR_PARAM_2 (11200002) from ColorMapLUT"
};

// `inputs` are the pixels as read (ReadPixels); blend takes two, every other operation one.
// Unless options.exact, a no-data pixel of a range input has the no-data colour in the picture
// whatever KivLUTSetting's method paints there, and float heights are coloured in the same
// physical units as --stats and --bounds speak.
// With `sequence` (--stable, equalize and linear) the frame is the next of that colouriser's
// sequence: coloured with the mapping it carries, which the frame then updates; the colour bar
// and the statistics are those of the frame's own KivColoringInfo.
OperationResult RunOperation(const Options& options, const std::vector<cv::Mat>& inputs,
                             KIVMV::KivSequenceColorizer* sequence = nullptr);

// The colouriser of --stable: the table of --map (reversed, with the no-data colour, as a
// picture's), the operation's mode, measured, percentile or given bounds, time constant
// options.stable. nullptr with the reason when the table cannot be had.
std::unique_ptr<KIVMV::KivSequenceColorizer> MakeSequenceColorizer(const Options& options,
                                                                   std::string* error);

// The picture colour `rgb` as the KivColor the library's below/above arguments take: those
// methods write components 2, 1, 0 into bytes 0, 1, 2, so red goes in component 0.
KIVMV::KivColor SwappedLibraryColour(const Rgb& rgb);

// One line for --stats: "min 0.666 max 1.731 valid 270000/307200 bounds 0.666 .. 1.731".
std::string FormatStats(const MappingStats& stats);

}  // namespace kivlut
