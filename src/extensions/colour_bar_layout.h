// Where a colour bar put its parts, for the tests that read the picture back.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "KivColorBar.h"
#include "extensions/colour_bar_scale.h"

namespace KIVMV {

struct BarLayout {
  cv::Rect colours;   // the table's colours; the outline runs one pixel outside
  int capLength = 0;  // pixels each end cap reaches beyond the outline, 0 without caps
  std::vector<BarTick> ticks;
  std::vector<bool> labelled;  // per tick: false where the label would have overlapped
};

// KivDrawColorBar, also telling where it drew (layout may be null).
long DrawColourBar(const KivColorTable& table, const KivColoringInfo& info,
                   const KivColorBarOptions& options, cv::Mat* out, BarLayout* layout);

}  // namespace KIVMV
