// sRGB <-> CIELAB under D65; cielab.h says which sRGB and which white.
#include "extensions/cielab.h"

#include <cmath>

namespace KIVMV {
namespace cielab {
namespace {

// Linear sRGB to XYZ, from the sRGB primaries (0.64, 0.33), (0.30, 0.60), (0.15, 0.06) and the
// D65 white above; each row sums to that white's tristimulus value. The inverse below is this
// matrix's exact inverse to ten places.
constexpr double kRgbToXyz[3][3] = {
    {0.4123907993, 0.3575843394, 0.1804807884},
    {0.2126390059, 0.7151686788, 0.0721923154},
    {0.0193308187, 0.1191947798, 0.9505321522},
};
constexpr double kXyzToRgb[3][3] = {
    {3.2409699419, -1.5373831776, -0.4986107603},
    {-0.9692436363, 1.8759675015, 0.0415550574},
    {0.0556300797, -0.2039769589, 1.0569715142},
};

// CIE's constant for the straight segment of L* near black: delta = 6/29.
constexpr double kDelta = 6.0 / 29.0;

double LabF(double t) {
  return t > kDelta * kDelta * kDelta ? std::cbrt(t) : t / (3.0 * kDelta * kDelta) + 4.0 / 29.0;
}

double LabFInverse(double f) {
  return f > kDelta ? f * f * f : 3.0 * kDelta * kDelta * (f - 4.0 / 29.0);
}

}  // namespace

double SrgbToLinear(double companded) {
  const double m = std::fabs(companded);
  const double linear = m <= 0.04045 ? m / 12.92 : std::pow((m + 0.055) / 1.055, 2.4);
  return std::copysign(linear, companded);
}

double LinearToSrgb(double linear) {
  const double m = std::fabs(linear);
  const double companded = m <= 0.0031308 ? 12.92 * m : 1.055 * std::pow(m, 1.0 / 2.4) - 0.055;
  return std::copysign(companded, linear);
}

CieLab SrgbToCieLab(const std::array<double, 3>& rgb) {
  const double lin[3] = {SrgbToLinear(rgb[0]), SrgbToLinear(rgb[1]), SrgbToLinear(rgb[2])};
  double f[3];
  for (int row = 0; row < 3; ++row) {
    const double xyz =
        kRgbToXyz[row][0] * lin[0] + kRgbToXyz[row][1] * lin[1] + kRgbToXyz[row][2] * lin[2];
    f[row] = LabF(xyz / kD65White[row]);
  }
  return CieLab{116.0 * f[1] - 16.0, 500.0 * (f[0] - f[1]), 200.0 * (f[1] - f[2])};
}

std::array<double, 3> CieLabToSrgb(const CieLab& lab) {
  const double fy = (lab.l + 16.0) / 116.0;
  const double f[3] = {fy + lab.a / 500.0, fy, fy - lab.b / 200.0};
  double xyz[3];
  for (int row = 0; row < 3; ++row) xyz[row] = LabFInverse(f[row]) * kD65White[row];
  std::array<double, 3> rgb;
  for (int row = 0; row < 3; ++row) {
    rgb[row] = LinearToSrgb(kXyzToRgb[row][0] * xyz[0] + kXyzToRgb[row][1] * xyz[1] +
                            kXyzToRgb[row][2] * xyz[2]);
  }
  return rgb;
}

CieLab RgbToCieLab(KivRgb rgb) {
  return SrgbToCieLab({rgb.r / 255.0, rgb.g / 255.0, rgb.b / 255.0});
}

KivRgb CieLabToRgb(const CieLab& lab) {
  const std::array<double, 3> rgb = CieLabToSrgb(lab);
  // Colours between two in-gamut stops can leave the sRGB gamut: each channel is clipped on its
  // own. NaN, which only a NaN input makes, clips to 0 rather than reaching the cast.
  auto byte = [](double channel) -> uint8_t {
    const double scaled = channel * 255.0;
    if (!(scaled > 0.0)) return 0;
    if (scaled >= 255.0) return 255;
    return static_cast<uint8_t>(std::floor(scaled + 0.5));
  };
  return KivRgb{byte(rgb[0]), byte(rgb[1]), byte(rgb[2])};
}

}  // namespace cielab
}  // namespace KIVMV
