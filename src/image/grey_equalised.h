// Histogram-equalised colouring of 8- and 16-bit grey images, and the set-up and result handling
// that the banded grey colouring (grey_banded.h) shares with it.
//
// The destination receives the result once everything else has succeeded. It is written in place
// only when it alone owns a buffer of the result's shape (see ResultMatrix), and then only after
// the last point of failure; a caller's buffer or one shared with other images is never written
// into, and a failing call leaves the destination exactly as it was.
#pragma once

#include <opencv2/core.hpp>

#include "KivImage.h"
#include "KivLUTStatus.h"
#include "common/pixel_rules.h"
#include "common/stage_status.h"
#include "tables/colour_tables.h"

namespace KIVMV {

// The routine behind KivLUTSetting::SetColorLUT(KivImage&, KivImage*, int). The grey levels are
// equalised between the valid (non-zero) minimum and maximum over all 256 table entries. An 8-bit
// image under map 0 or 7 to 10 is copied as grey instead (1 channel for map 0, else 3 equal
// ones); a 16-bit image is always equalised, through the grey table for those maps, and map 0
// keeps the first channel. Checks: CheckGreyImage, then mapType outside 0..10 (LUT_ERR_PARAM_6),
// then a null dst (LUT_ERR_PARAM_2). A failure while working gives LUT_ERR_ARRAY_APPLY_FAILED.
long ColourGreyImageEqualised(const KivImage& src, KivImage* dst, int mapType) noexcept;

// ---- Shared with the banded colouring ----

// Maps 1 to 6 have a table of their own; 0 and 7 to 10 colour grey.
inline bool HasOwnTable(int mapType) { return mapType >= kRainbowMap && mapType <= kJetMap; }

// Every stage of the grey-image colourings reports a failure as a failed colouring.
inline constexpr long kGreyStageFailure = LUT_ERR_ARRAY_APPLY_FAILED;

// The pixel count of a grey matrix, which the colouring engine indexes with an int. Throws
// std::length_error for a matrix too large for that.
int GreyPixelCount(const cv::Mat& pixels);

// The first stage of both colourings: checks the pixel count and picks the matrix the result is
// written into (see ResultMatrix): one channel for map 0, three blue first otherwise. Only the
// last step of a colouring writes into it, after everything that can fail, so a destination whose
// own buffer it is stays untouched by a failing call.
long PrepareGreyResult(const cv::Mat& source, const KivImage& dst, int mapType, cv::Mat& result);

// The uncoloured result of an 8-bit image under map 0 or 7 to 10: a copy of the source for map 0
// (1-channel `result`), three copies side by side (blue, green, red all equal) otherwise.
void CopyGrey(const cv::Mat& pixels, cv::Mat& result);

// Colours a checked grey image by its depth into the matrix PrepareGreyResult picks, and hands
// the result to `dst`: 16-bit images, and 8-bit ones under maps with a table, through
// colour(PixelTypeTag<uint16_t or uint8_t>, source, result), which returns a status; 8-bit ones
// under the grey maps as a plain copy. The destination receives the result only when everything
// succeeded.
template <typename Colour>
long ColourGreyImageByDepth(const KivImage& src, KivImage* dst, int mapType,
                            Colour&& colour) noexcept {
  const cv::Mat& source = src.Mat();
  cv::Mat result;
  long status = PrepareGreyResult(source, *dst, mapType, result);
  if (status != LUT_OK) return status;
  if (src.BitDepth() == KIV_IMAGE_16U) {
    status = colour(PixelTypeTag<uint16_t>{}, source, result);
  } else if (HasOwnTable(mapType)) {
    status = colour(PixelTypeTag<uint8_t>{}, source, result);
  } else {
    // 8-bit grey maps are final as plain copies: no table, no equalisation.
    status = RunStage(kGreyStageFailure, [&] { CopyGrey(source, result); });
  }
  if (status != LUT_OK) return status;
  dst->Mat() = result;
  return LUT_OK;
}

}  // namespace KIVMV
