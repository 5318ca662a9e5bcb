// The output colour arrays of the range-image, array and shading colourings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>

#include "KivColor.h"
#include "KivColorArray.h"
#include "KivRangeImage.h"
#include "common/colour_entry.h"
#include "common/fault_injection.h"
#include "common/numeric_helpers.h"
#include "common/stage_status.h"

namespace KIVMV {

// Makes `out` hold n colours of at least 3 bytes and returns its first byte. An array of the right
// length is reused in place; it is re-created when its length differs, and also when its buffer
// is smaller than 3 bytes a colour (fewer channels, or a matrix swapped in behind its back), since
// writing 3 bytes per colour into it would run past its end.
inline uint8_t* PrepareColourOutput(KivColorArray& out, int n) {
  ThrowIfInjected(FaultStage::kOutputSizing);
  const cv::Mat& bytes = out.Mat();
  const bool tooSmall = out.Channel() < 3 || !bytes.isContinuous() ||
                        bytes.total() * bytes.elemSize() < 3 * static_cast<size_t>(n);
  if (out.Length() != n || tooSmall) {
    out.Clear();
    out.Create(n, 3);
  }
  return out.Data();
}

// PrepareColourOutput as a stage of its own: LUT_OK with `colours` set, or `failureCode` when
// sizing the array throws.
inline long SizeColourOutput(KivColorArray& out, int n, long failureCode, uint8_t*& colours) {
  return RunStage(failureCode, [&] { colours = PrepareColourOutput(out, n); });
}

// A deep copy of `image` to work on, and the output sized for n colours, in one stage that fails
// with LUT_ERR_OUTPUT_FAILED: the routines that rewrite pixel values work on a copy, so that the
// caller's image is never modified, and take it before they touch the output.
inline long CopyAndSizeOutput(const KivRangeImage& image, int n, KivColorArray& out,
                              KivRangeImage& copy, uint8_t*& colours) {
  return RunStage(LUT_ERR_OUTPUT_FAILED, [&] {
    copy = image.DeepCopy();
    colours = PrepareColourOutput(out, n);
  });
}

// A caller's KivColor as stored in a colour array: component 2 first, component 0 last, each
// component's low byte. Against the tables' blue, green, red bytes this exchanges red and blue;
// callers rely on that order.
inline ColourEntry StoredColour(const KivColor& colour) {
  return {numeric::LowByte(colour[2]), numeric::LowByte(colour[1]), numeric::LowByte(colour[0])};
}

}  // namespace KIVMV
