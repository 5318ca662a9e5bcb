// The machined parts as a laser triangulation sensor sees them: the true surface first, then what
// the sensor makes of it (shadows of the laser, dropouts at steep edges, noise, 16-bit raw units).
#include "demo_scene.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace kivlut {
namespace {

// Columns run along x, rows along y; 0.1 mm per pixel both ways, one raw unit is 0.001 mm.

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr double kPitchMm = 0.1;
constexpr double kMmPerRawUnit = 0.001;

// The base plate: about 20 mm from the sensor's zero, tilted a little along both axes.
constexpr double kPlateMm = 20.0;
constexpr double kPlateSlopeX = 0.010;  // mm of height per mm along x
constexpr double kPlateSlopeY = 0.006;

// A block with two steps; the upper step's far edge along x carries a 45-degree chamfer.
constexpr int kBlockLeft = 60, kBlockRight = 260, kBlockTop = 50, kBlockBottom = 210;
constexpr int kUpperStepLeft = 160;
constexpr int kChamferLeft = 240;
constexpr double kLowerStepMm = 3.0;
constexpr double kUpperStepMm = 6.0;

// A rectangular slot milled into the plate.
constexpr int kSlotLeft = 300, kSlotRight = 620, kSlotTop = 230, kSlotBottom = 255;
constexpr double kSlotDepthMm = 1.5;

// A shaft (half-cylinder) lying along x on the plate, its axis at plate height.
constexpr int kShaftLeft = 40, kShaftRight = 600;
constexpr double kShaftAxisRow = 345.0;
constexpr double kShaftRadiusMm = 6.0;

// A drilled hole through the plate with a small 45-degree countersink: the sensor sees nothing
// inside it.
constexpr double kHoleColumn = 470.0, kHoleRow = 120.0;
constexpr double kHoleRadiusPx = 35.0;
constexpr double kCountersinkPx = 7.0;

// The laser comes in along +y, falling this many mm per mm of travel: a point is in shadow when an
// earlier point of its column rises above the ray that would reach it.
constexpr double kLaserSlope = 3.0;
// Steep edges scatter the laser line: beside a jump of more than this, some pixels drop out.
constexpr double kSteepJumpMm = 0.3;
constexpr double kEdgeDropout = 0.25;
constexpr double kRandomDropout = 0.0003;
constexpr double kNoiseSigmaRaw = 3.0;

constexpr double kNoData = -1.0;  // a height no surface has: the hole

double PlateHeight(int column, int row) {
  return kPlateMm + kPlateSlopeX * column * kPitchMm + kPlateSlopeY * row * kPitchMm;
}

// The true surface height in mm at a pixel, or kNoData inside the hole.
double SurfaceHeight(int column, int row) {
  double height = PlateHeight(column, row);
  if (column >= kBlockLeft && column < kBlockRight && row >= kBlockTop && row < kBlockBottom) {
    if (column < kUpperStepLeft) {
      height += kLowerStepMm;
    } else if (column < kChamferLeft) {
      height += kUpperStepMm;
    } else {
      height += kUpperStepMm - (column - kChamferLeft) * kPitchMm;
    }
  }
  if (column >= kSlotLeft && column < kSlotRight && row >= kSlotTop && row < kSlotBottom) {
    height -= kSlotDepthMm;
  }
  if (column >= kShaftLeft && column < kShaftRight) {
    const double across = (row - kShaftAxisRow) * kPitchMm;
    if (std::abs(across) < kShaftRadiusMm) {
      height += std::sqrt(kShaftRadiusMm * kShaftRadiusMm - across * across);
    }
  }
  const double fromHole = std::hypot(column - kHoleColumn, row - kHoleRow);
  if (fromHole <= kHoleRadiusPx) return kNoData;
  if (fromHole < kHoleRadiusPx + kCountersinkPx) {
    height -= (kHoleRadiusPx + kCountersinkPx - fromHole) * kPitchMm;
  }
  return height;
}

// Marks the pixels the laser cannot reach: scanning each column along +y, a pixel is hidden when
// the highest ray grazing an earlier pixel passes above it. A ray through (y0, h0) stands at
// h0 - slope * (y - y0) over y, so comparing height + slope * y compares the rays.
std::vector<bool> OcclusionShadow(const std::vector<double>& heights) {
  std::vector<bool> hidden(heights.size(), false);
  for (int column = 0; column < kWidth; ++column) {
    bool anyRay = false;
    double highestRay = 0.0;  // max over earlier rows of height + slope * y
    for (int row = 0; row < kHeight; ++row) {
      const double height = heights[static_cast<size_t>(row) * kWidth + column];
      if (height == kNoData) continue;
      const double ray = height + kLaserSlope * row * kPitchMm;
      if (anyRay && highestRay > ray + 1e-9) {
        hidden[static_cast<size_t>(row) * kWidth + column] = true;
      } else {
        highestRay = ray;
        anyRay = true;
      }
    }
  }
  return hidden;
}

// Whether a pixel sits beside a jump of the surface steep enough to scatter the laser line.
bool BesideSteepEdge(const std::vector<double>& heights, int column, int row) {
  const double here = heights[static_cast<size_t>(row) * kWidth + column];
  const int neighbours[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
  for (const auto& offset : neighbours) {
    const int c = column + offset[0];
    const int r = row + offset[1];
    if (c < 0 || c >= kWidth || r < 0 || r >= kHeight) continue;
    const double there = heights[static_cast<size_t>(r) * kWidth + c];
    if (there != kNoData && std::abs(there - here) > kSteepJumpMm) return true;
  }
  return false;
}

// A height in mm as the sensor reports it: raw units, kept clear of the no-data marker 0 and of
// the top of the 16-bit range.
uint16_t ToRaw(double heightMm) {
  const double raw = std::round(heightMm / kMmPerRawUnit);
  return static_cast<uint16_t>(std::clamp(raw, 1.0, 65535.0));
}

}  // namespace

KIVMV::KivRangeImage MakeMachinedPartsScene(unsigned seed) {
  std::vector<double> heights(static_cast<size_t>(kWidth) * kHeight);
  for (int row = 0; row < kHeight; ++row) {
    for (int column = 0; column < kWidth; ++column) {
      heights[static_cast<size_t>(row) * kWidth + column] = SurfaceHeight(column, row);
    }
  }
  const std::vector<bool> hidden = OcclusionShadow(heights);

  KIVMV::KivRangeImage image(kWidth, kHeight, KIVMV::KIV_DATA_U16);
  image.SetResolution(kPitchMm, kPitchMm, kMmPerRawUnit);
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(0.0, kNoiseSigmaRaw);
  std::uniform_real_distribution<double> chance(0.0, 1.0);
  for (int row = 0; row < kHeight; ++row) {
    uint16_t* line = image.Mat().ptr<uint16_t>(row);
    for (int column = 0; column < kWidth; ++column) {
      const size_t index = static_cast<size_t>(row) * kWidth + column;
      // Both draws happen for every pixel, so the noise of a pixel does not depend on its
      // neighbours' fate.
      const double jitter = noise(random);
      const double draw = chance(random);
      const double height = heights[index];
      const bool dropout =
          draw < (BesideSteepEdge(heights, column, row) && height != kNoData ? kEdgeDropout
                                                                             : kRandomDropout);
      if (height == kNoData || hidden[index] || dropout) {
        line[column] = 0;
      } else {
        line[column] = ToRaw(height + jitter * kMmPerRawUnit);
      }
    }
  }
  return image;
}

KIVMV::KivRangeImage EightBitCopy(const KIVMV::KivRangeImage& scene) {
  const cv::Mat& heights = scene.Mat();
  int lowest = 65535;
  int highest = 0;
  for (int row = 0; row < heights.rows; ++row) {
    const uint16_t* line = heights.ptr<uint16_t>(row);
    for (int column = 0; column < heights.cols; ++column) {
      if (line[column] == 0) continue;
      lowest = std::min<int>(lowest, line[column]);
      highest = std::max<int>(highest, line[column]);
    }
  }
  KIVMV::KivRangeImage levels(scene.Width(), scene.Height(), KIVMV::KIV_DATA_U8);
  const double span = highest > lowest ? highest - lowest : 1.0;
  for (int row = 0; row < heights.rows; ++row) {
    const uint16_t* line = heights.ptr<uint16_t>(row);
    uint8_t* out = levels.Mat().ptr<uint8_t>(row);
    for (int column = 0; column < heights.cols; ++column) {
      if (line[column] == 0) {
        out[column] = 0;
      } else {
        out[column] = static_cast<uint8_t>(1 + std::lround((line[column] - lowest) * 254.0 / span));
      }
    }
  }
  return levels;
}

}  // namespace kivlut
