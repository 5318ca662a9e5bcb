// libFuzzer target: one KivSequenceColorizer with options from the input (refused ones included)
// colours up to four arbitrary range images (any pixel type, size, Type(), resolution and offset;
// markers, NaN and infinities; sometimes a pixel matrix that contradicts the size fields), with a
// Reset() before some of them. Every call must return a documented status, leave the frame alone,
// give an output of the frame's size on success and leave it alone on failure, and keep
// FramesSeen() counting the frames coloured since the last Reset().
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "KivSequenceColoring.h"
#include "fuzz_checks.h"
#include "fuzz_objects.h"
#include "fuzz_plans.h"

namespace kivfuzz {
namespace {

using namespace KIVMV;

constexpr const char* kMethod = "KivSequenceColorizer::ColorFrame(image)";

bool IsSequenceStatus(long status) {
  return status == KIV_EXT_OK || status == KIV_EXT_ERR_INPUT_TYPE ||
         status == KIV_EXT_ERR_EMPTY_INPUT || status == KIV_EXT_ERR_CHANNELS ||
         status == KIV_EXT_ERR_BOUNDS || status == KIV_EXT_ERR_PERCENTILES ||
         status == KIV_EXT_ERR_SEQUENCE_OPTIONS;
}

std::vector<uint8_t> PixelBytes(const KivRangeImage& image) {
  const cv::Mat& mat = image.Mat();
  if (mat.empty() || !mat.isContinuous()) return {};
  return std::vector<uint8_t>(mat.data, mat.data + mat.total() * mat.elemSize());
}

void Run(const SequenceInputPlan& plan) {
  KivColorTable table;
  KivColorTable::ByName("turbo", &table);
  KivSequenceOptions options;
  options.coloring.mode = static_cast<KivColoringMode>(plan.mode);
  options.coloring.bounds = static_cast<KivBoundsSource>(plan.bounds);
  options.coloring.low = plan.low;
  options.coloring.high = plan.high;
  options.coloring.lowPercentile = plan.lowPercentile;
  options.coloring.highPercentile = plan.highPercentile;
  options.timeConstant = plan.timeConstant;
  options.boundDeadBand = plan.deadBand;
  options.holdFrames = plan.holdFrames;
  options.entryTolerance = plan.entryTolerance;
  options.coloring.channels = plan.channels;
  KivSequenceColorizer colorizer(table, options);
  int64_t coloured = 0;
  for (size_t k = 0; k < plan.frames.size(); ++k) {
    if (plan.resetBefore[k] != 0) {
      colorizer.Reset();
      coloured = 0;
    }
    const KivRangeImage image = BuildRangeImage(plan.frames[k]);
    const std::vector<uint8_t> before = PixelBytes(image);
    KivColorArray out;
    out.Create(3, 1);
    out.Data()[0] = 77;
    KivColoringInfo info;
    const long status = colorizer.ColorFrame(image, &out, &info);
    Require(IsSequenceStatus(status), kMethod, "an undocumented status", status);
    Require(PixelBytes(image) == before, kMethod, "the frame changed", status);
    if (status == KIV_EXT_OK) {
      ++coloured;
      Require(out.Length() == image.Width() * image.Height() && out.Channel() == plan.channels,
              kMethod, "an output of another size", status);
      Require(info.validCount + info.noDataCount == out.Length(), kMethod,
              "counts that do not add up to the frame", status);
      KivColoringInfo next;
      const long mapping = colorizer.CurrentMapping(&next);
      Require(mapping == KIV_EXT_OK || (mapping == KIV_EXT_ERR_NO_SCALE && info.validCount == 0),
              kMethod, "no mapping after a frame with valid values", mapping);
    } else {
      Require(out.Length() == 3 && out.Channel() == 1 && out.Data()[0] == 77, kMethod,
              "a failure that changed the output", status);
    }
    Require(colorizer.FramesSeen() == coloured, kMethod, "FramesSeen() miscounted", status);
  }
}

}  // namespace
}  // namespace kivfuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kivfuzz::SilenceLibrary();
  kivfuzz::Run(kivfuzz::Decode<kivfuzz::SequenceInputPlan>(data, size));
  return 0;
}
