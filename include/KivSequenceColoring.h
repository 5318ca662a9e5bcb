// Colour that holds still over a sequence of frames: a colouriser that carries its mapping from
// frame to frame, so that a static region keeps its colours while noise, dropouts, objects passing
// through and short-lived outliers come and go, and follows a lasting change of the scene.
//
// How the mapping follows the data (every parameter is in KivSequenceOptions):
// - Bounds. Each frame proposes bounds: its valid minimum and maximum, or its percentiles. A bound
//   looks at the median of the proposals of the last 2 x `holdFrames` - 1 frames, so that an
//   outlier lasting fewer than `holdFrames` frames never moves it; it stays where it is while that
//   median lies within `boundDeadBand` (a fraction of the current span) of it, and otherwise
//   follows it with the time constant `timeConstant` (in frames: each frame it covers
//   1 - exp(-1 / timeConstant) of the remaining distance).
// - Histogram (equalised mode). The share of the valid values in each of 1024 cells between the
//   bounds is carried over frames with the same time constant. Colours follow its cumulative
//   distribution, linearly within a cell, so that equal shares of the values get equal shares of
//   the table. The mapping in use changes only when that would move some height by at least
//   `entryTolerance` table entries; smaller drifts leave every colour as it is.
// - Each frame is coloured in one pass with the mapping carried up to the frame before it, and
//   that pass measures the frame for the next one. The first frame (and the first after Reset())
//   is measured first and coloured with its own mapping.
//
// The colours: linear mode gives a value at fraction p of the bounds entry min(255, trunc(256 p));
// valid values below and above the bounds take the below and above colours (the table's first and
// last entry unless given), no-data the no-data colour. No-data is as for KivColorRangeImage.
// With timeConstant 0 every frame is coloured with its own bounds and histogram.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "KivColorTable.h"
#include "KivColoring.h"
#include "KivExtStatus.h"
#include "KivLUTSettingExport.h"
#include "KivPlatform.h"

namespace KIVMV {

struct KivSequenceOptions {
  // The colouring each frame gets, as for KivColorRangeImage: mode, no-data, below and above
  // colours, channels, and where the bounds come from. kMeasured: each frame proposes its minimum
  // and maximum; kPercentile: its lowPercentile and highPercentile; kGiven: low and high, fixed
  // (only the histogram is carried). greyZeroIsNoData plays no part here.
  // Equalised by default: a stream's histogram is what is worth carrying.
  KivColoringOptions coloring = [] {
    KivColoringOptions equalised;
    equalised.mode = KivColoringMode::kEqualised;
    return equalised;
  }();
  // How the mapping follows the frames.
  double timeConstant = 10.0;   // frames, >= 0
  double boundDeadBand = 0.02;  // fraction of the span, 0 <= band < 1
  int holdFrames = 3;           // 1..1000: excursions shorter than this are not followed
  double entryTolerance = 1.0;  // table entries, >= 0
};

class KIVLUT_API KivSequenceColorizer {
 public:
  KivSequenceColorizer(const KivColorTable& table, const KivSequenceOptions& options);
  ~KivSequenceColorizer();
  KivSequenceColorizer(KivSequenceColorizer&&) noexcept;
  KivSequenceColorizer& operator=(KivSequenceColorizer&&) noexcept;
  KivSequenceColorizer(const KivSequenceColorizer&) = delete;
  KivSequenceColorizer& operator=(const KivSequenceColorizer&) = delete;

  // Colours the next frame of the sequence: a range image (Type() 0 or 1, any pixel type; integer
  // pixels need a finite ResolutionZ above 0 and a finite OffsetZ) or float values (NaN,
  // infinities and -FLT_MAX are no-data). `out` becomes Width() x Height() (Length() x 1) with
  // options.channels channels; `info` receives the mapping the frame was coloured with. Frames may
  // change size. KIV_EXT_ERR_SEQUENCE_OPTIONS for unusable options (and the codes of
  // KivColorRangeImage for the rest); a frame without a valid value is all no-data and leaves the
  // carried mapping as it was. A failure changes neither `out` nor the carried state.
  long ColorFrame(const KivRangeImage& frame, KivColorArray* out, KivColoringInfo* info = nullptr);
  long ColorFrame(const Kiv3DFloatArray& frame, KivColorArray* out,
                  KivColoringInfo* info = nullptr);

  // Forgets every frame: the next one starts afresh.
  void Reset();
  // The mapping the next frame will be coloured with (for a colour bar);
  // KIV_EXT_ERR_NO_SCALE before the first frame with a valid value.
  long CurrentMapping(KivColoringInfo* info) const;
  // Frames coloured since construction or Reset().
  int64_t FramesSeen() const;
  const KivColorTable& Table() const;
  const KivSequenceOptions& Options() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace KIVMV
