// sRGB <-> CIELAB under D65, for tables built from colour stops: interpolating in CIELAB keeps
// equal steps of position near equal steps of perceived colour, which sRGB interpolation does not.
//
// sRGB is IEC 61966-2-1's: its companding, its primaries and its white, D65 at x = 0.3127,
// y = 0.3290. The matrix is derived from those chromaticities at full precision rather than
// copied with the standard's four rounded digits, so that sRGB white lands exactly on the white
// point (L* = 100, a* = b* = 0).
#pragma once

#include <array>

#include "KivColorTable.h"

namespace KIVMV {
namespace cielab {

struct CieLab {
  double l = 0.0;
  double a = 0.0;
  double b = 0.0;
};

// Tristimulus values of the D65 white, Y = 1.
inline constexpr std::array<double, 3> kD65White{0.9504559271, 1.0, 1.0890577508};

// Companded sRGB channel in [0, 1] to linear light and back; both sides continue the curve
// outside [0, 1] (odd-symmetric below 0) so out-of-gamut colours convert without NaN.
double SrgbToLinear(double companded);
double LinearToSrgb(double linear);

// Companded sRGB (three channels, nominally in [0, 1]) to CIELAB and back.
CieLab SrgbToCieLab(const std::array<double, 3>& rgb);
std::array<double, 3> CieLabToSrgb(const CieLab& lab);

// The same through 8-bit colours: each channel is divided by 255; on the way back it is clipped
// to [0, 255] and rounded to nearest.
CieLab RgbToCieLab(KivRgb rgb);
KivRgb CieLabToRgb(const CieLab& lab);

}  // namespace cielab
}  // namespace KIVMV
