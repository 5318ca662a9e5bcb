#include "image/int_array_colouring.h"

#include <cstdint>
#include <vector>

#include "KivLUTStatus.h"
#include "common/colour_output.h"
#include "common/numeric_helpers.h"
#include "common/stage_status.h"
#include "tables/colour_tables.h"
#include "tables/padded_colour.h"

namespace KIVMV {
namespace {

// Above high: pure red, below low: black, for every map.
constexpr PaddedColour kAboveColour = {{0, 0, 255, 0}};
constexpr PaddedColour kBelowColour = {{0, 0, 0, 0}};

// Above this many values between the bounds the colours are not tabulated.
constexpr int64_t kMostTabulatedValues = int64_t{1} << 20;

// The table entry of a value between the bounds, in double precision: high - low may not fit an
// int. With low == high the value equal to both gives 0/0, whose indefinite truncation has 0 in
// its low byte.
uint8_t LinearIndex(double v, double low, double high) {
  return numeric::TruncateToLowByte((v - low) / (high - low) * 255.0);
}

}  // namespace

long ColorMapLUTOnIntArray(const Kiv3DIntArray& values, int mapType, int low, int high,
                           KivColorArray* out) {
  if (!IsMapType(mapType)) return LUT_ERR_PARAM_2;
  const int n = values.Length();
  if (n <= 0 || !HoldsIntElements(values)) return LUT_ERR_PARAM_1;
  if (out == nullptr) return LUT_ERR_ARRAY_OUTPUT_FAILED;

  uint8_t* colours = nullptr;
  if (const long sized = SizeColourOutput(*out, n, LUT_ERR_ARRAY_OUTPUT_FAILED, colours);
      sized != LUT_OK) {
    return sized;
  }

  return RunStage(FaultStage::kColouring, LUT_ERR_ARRAY_APPLY_FAILED, [&] {
    const ColourTable& table = SelectColourTable(mapType);
    // The colour depends on the value alone, so when there are no more values between the bounds
    // than elements, each one's colour is worked out once. low > high is not refused: every value
    // is then above high or below low.
    const int64_t span = int64_t{high} - low + 1;
    if (span >= 1 && span <= n && span <= kMostTabulatedValues) {
      std::vector<PaddedColour> colourOf(static_cast<size_t>(span));
      for (int64_t k = 0; k < span; ++k) {
        colourOf[static_cast<size_t>(k)] =
            Pad(table[LinearIndex(static_cast<double>(low + k), low, high)]);
      }
      WriteColours(
          n,
          [&](int64_t i) {
            const int v = values[static_cast<int>(i)];
            if (v > high) return kAboveColour;
            if (v < low) return kBelowColour;
            return colourOf[static_cast<size_t>(int64_t{v} - low)];
          },
          colours);
    } else {
      WriteColours(
          n,
          [&](int64_t i) {
            const double v = values[static_cast<int>(i)];
            if (v > high) return kAboveColour;
            if (v < low) return kBelowColour;
            return Pad(table[LinearIndex(v, low, high)]);
          },
          colours);
    }
  });
}

}  // namespace KIVMV
