#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "Kiv3DArray.h"
#include "Kiv3DDataConvert.h"
#include "Kiv3DDataOperation.h"
#include "KivPlatformStatus.h"
#include "KivRangeImage.h"
#include "KivVector3d.h"
#include "platform/range_pixel_access.h"
#include "platform_3d_fault.h"

namespace KIVMV {
namespace {

using testing_support::PixelAt;
using testing_support::SameBytes;
using testing_support::SetPixel;
using testing_support::WithPixelType;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

double MarkerOf(int type) {
  const double markers[] = {0.0, -128.0, 0.0, -32768.0, -2147483648.0, -FLT_MAX, -DBL_MAX};
  return markers[type];
}

bool IsNaNVector(const KivVector3d& v) {
  return std::isnan(v.X()) && std::isnan(v.Y()) && std::isnan(v.Z());
}

bool SameFloat(float expected, float actual) {
  if (std::isnan(expected) && std::isnan(actual)) return true;
  return std::memcmp(&expected, &actual, sizeof(float)) == 0;
}

struct Normals {
  long status;
  KivVector3dArray normals;
  Kiv3DFloatArray bends;
};

Normals Compute(KivRangeImage& image) {
  Normals result{};
  Kiv3DDataOperation operation;
  result.status = operation.ComputeNormals(image, &result.normals, &result.bends);
  return result;
}

// ---- Analytic surfaces --------------------------------------------------------------------------

// A plane raw = base + p * col + q * row under the image's geometry has slopes
// dz/dx = p * ResolutionZ / ResolutionY and dz/dy = q * ResolutionZ / ResolutionX, so its normal is
// (-dz/dx, -dz/dy, 1) normalised, at every pixel, border included (one-sided differences are exact
// on a plane).
TEST(Normals, PlaneOfKnownSlopeEverywhere) {
  const struct {
    int type;
    int width;
    int height;
    double base;
    double p;
    double q;
    double resolution[3];
    double offset[3];
  } cases[] = {
      {KIV_DATA_U8, 9, 7, 10.0, 3.0, 5.0, {1.0, 1.0, 1.0}, {0.0, 0.0, 0.0}},
      {KIV_DATA_S8, 9, 7, -100.0, 2.0, -3.0, {0.5, 2.0, 1.5}, {3.0, -4.0, 7.0}},
      {KIV_DATA_U16, 31, 17, 1000.0, 40.0, -25.0, {0.2, 0.3, 0.001}, {15.0, 8.0, 500.0}},
      {KIV_DATA_S16, 12, 5, -5000.0, -300.0, 700.0, {1.0, 1.0, 0.01}, {0.0, 0.0, 0.0}},
      {KIV_DATA_S32, 6, 6, 0.0, 100000.0, 1.0, {1.0, 1.0, 0.00001}, {0.0, 0.0, -3.0}},
      // Negative resolutions mirror the surface; the normal still faces +z.
      {KIV_DATA_S32, 6, 6, 50.0, 4.0, 1.0, {-1.0, 1.0, -2.0}, {0.0, 0.0, 0.0}},
      {KIV_DATA_F32, 10, 8, 2.5, 0.75, -1.25, {0.5, 0.25, 1.0}, {1.0, 2.0, 0.5}},
      {KIV_DATA_F64, 10, 8, -7.0, 0.1, 0.3, {2.0, 3.0, 4.0}, {0.0, 0.0, 0.0}},
      // Horizontal and very steep planes.
      {KIV_DATA_F64, 5, 4, 1.0, 0.0, 0.0, {1.0, 1.0, 1.0}, {0.0, 0.0, 0.0}},
      {KIV_DATA_F64, 5, 4, 1.0, 1e6, 0.0, {1.0, 1.0, 1.0}, {0.0, 0.0, 0.0}},
      // Two pixels per direction: every difference is one-sided.
      {KIV_DATA_U16, 2, 2, 100.0, 7.0, 3.0, {1.0, 1.0, 1.0}, {0.0, 0.0, 0.0}},
  };
  // The stored components are floats (half an ulp of a unit component is 6e-8); the double
  // arithmetic before them adds far less, so 1e-6 leaves a wide margin without hiding a wrong
  // slope, which moves a component by more than 1e-3 in every case above.
  const double tolerance = 1e-6;
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "type " << c.type << " p " << c.p << " q " << c.q);
    KivRangeImage image(c.width, c.height, static_cast<KivDataType>(c.type));
    image.SetResolution(c.resolution[0], c.resolution[1], c.resolution[2]);
    image.SetOffset(c.offset[0], c.offset[1], c.offset[2]);
    for (int row = 0; row < c.height; ++row) {
      for (int col = 0; col < c.width; ++col)
        SetPixel(image, row, col, c.base + c.p * col + c.q * row);
    }
    const double dzdx = c.p * c.resolution[2] / c.resolution[1];
    const double dzdy = c.q * c.resolution[2] / c.resolution[0];
    const double length = std::sqrt(dzdx * dzdx + dzdy * dzdy + 1.0);
    const double expected[3] = {-dzdx / length, -dzdy / length, 1.0 / length};

    Normals result = Compute(image);
    ASSERT_EQ(kKivPlatformOk, result.status);
    ASSERT_EQ(c.width * c.height, result.normals.Length());
    ASSERT_EQ(c.width * c.height, result.bends.Length());
    for (int row = 0; row < c.height; ++row) {
      for (int col = 0; col < c.width; ++col) {
        const KivVector3d& n = result.normals[row * c.width + col];
        EXPECT_NEAR(expected[0], n.X(), tolerance) << row << ", " << col;
        EXPECT_NEAR(expected[1], n.Y(), tolerance) << row << ", " << col;
        EXPECT_NEAR(expected[2], n.Z(), tolerance) << row << ", " << col;
        // A plane does not bend; edge pixels lack one of the two triangles.
        const bool edge = row == 0 || col == 0 || row == c.height - 1 || col == c.width - 1;
        const float bend = result.bends[row * c.width + col];
        if (edge) {
          EXPECT_TRUE(std::isnan(bend)) << row << ", " << col;
        } else {
          EXPECT_NEAR(0.0, bend, tolerance) << row << ", " << col;
        }
      }
    }
  }
}

// The upper half of a sphere of radius R centred on the grid: z = zc + sqrt(R^2 - x^2 - y^2),
// whose exact normal is (x, y, z - zc) / R. Pixels outside the disc hold the marker.
template <typename T>
KivRangeImage Sphere(int size, double radius, double zc) {
  KivRangeImage image(size, size, std::is_same_v<T, float> ? KIV_DATA_F32 : KIV_DATA_F64);
  const double centre = (size - 1) / 2.0;
  image.SetOffset(centre, centre, 0.0);
  for (int row = 0; row < size; ++row) {
    for (int col = 0; col < size; ++col) {
      const double x = col - centre, y = row - centre;
      const double inside = radius * radius - x * x - y * y;
      image.Mat().ptr<T>(row)[col] =
          inside > 0.0 ? static_cast<T>(zc + std::sqrt(inside)) : -std::numeric_limits<T>::max();
    }
  }
  return image;
}

TEST(Normals, SphereWithinTheTruncationErrorOfCentralDifferences) {
  const double radius = 60.0;
  const int size = 151;
  const double centre = (size - 1) / 2.0;
  const double zc = 10.0;
  // Within 0.75 R the central difference of the height errs in slope by h^2/6 * |z'''|, at most
  // 3 h^2 / R^2 = 8.3e-4 here (z''' = -3x(R^2 - y^2)/z^5 with z >= 0.66 R); a unit normal moves
  // by no more than its slopes do. Float heights near 70 add 4e-6 / h in slope.
  const double tolerance = 3.0 / (radius * radius);
  for (int type : {KIV_DATA_F32, KIV_DATA_F64}) {
    SCOPED_TRACE(type);
    KivRangeImage image =
        type == KIV_DATA_F32 ? Sphere<float>(size, radius, zc) : Sphere<double>(size, radius, zc);
    Normals result = Compute(image);
    ASSERT_EQ(kKivPlatformOk, result.status);
    double worst = 0.0;
    int checked = 0;
    for (int row = 0; row < size; ++row) {
      for (int col = 0; col < size; ++col) {
        const double x = col - centre, y = row - centre;
        const double r2 = x * x + y * y;
        const KivVector3d& n = result.normals[row * size + col];
        if (r2 >= radius * radius) {
          EXPECT_TRUE(IsNaNVector(n)) << row << ", " << col;
          continue;
        }
        // Every pixel of the disc, rim included, gets a unit normal facing the viewer.
        ASSERT_FALSE(IsNaNVector(n)) << row << ", " << col;
        EXPECT_NEAR(1.0, std::sqrt(n.X() * n.X() + n.Y() * n.Y() + n.Z() * n.Z()), 1e-6);
        EXPECT_GE(n.Z(), 0.0f);
        if (r2 > 0.75 * 0.75 * radius * radius) continue;
        const double z = std::sqrt(radius * radius - r2);
        const double exact[3] = {x / radius, y / radius, z / radius};
        worst = std::max({worst, std::fabs(exact[0] - n.X()), std::fabs(exact[1] - n.Y()),
                          std::fabs(exact[2] - n.Z())});
        ++checked;
      }
    }
    EXPECT_GT(checked, 6000);  // pi * 45^2 pixels
    EXPECT_LT(worst, tolerance);
    // The bend angle at the apex is the angle between the normals half a step away on either
    // diagonal: about sqrt(2) h / R.
    const float apexBend = result.bends[static_cast<int>(centre) * size + static_cast<int>(centre)];
    EXPECT_NEAR(std::sqrt(2.0) / radius, apexBend, 0.01 * std::sqrt(2.0) / radius);
  }
}

// ---- Invalid pixels and small images ------------------------------------------------------------

TEST(Normals, HolesGiveNaNAndTheirNeighboursFallBackToOneSidedDifferences) {
  const int width = 15, height = 11;
  for (int type = 0; type <= 6; ++type) {
    SCOPED_TRACE(type);
    KivRangeImage image(width, height, static_cast<KivDataType>(type));
    image.SetResolution(1.0, 1.0, 0.5);
    for (int row = 0; row < height; ++row) {
      for (int col = 0; col < width; ++col) SetPixel(image, row, col, 20 + 2 * col + 3 * row);
    }
    std::vector<bool> invalid(width * height, false);
    auto punch = [&](int row, int col, double value) {
      SetPixel(image, row, col, value);
      invalid[row * width + col] = true;
    };
    // A block hole, a single-pixel hole, and the two column neighbours of pixel (8, 5).
    for (int row = 3; row <= 5; ++row) {
      for (int col = 4; col <= 7; ++col) punch(row, col, MarkerOf(type));
    }
    punch(0, 0, MarkerOf(type));
    punch(8, 4, MarkerOf(type));
    punch(8, 6, MarkerOf(type));
    if (type >= KIV_DATA_F32) {
      punch(9, 10, kNaN);
      punch(9, 12, kInf);
      punch(2, 13, -kInf);
    }
    const double dzdx = 2 * 0.5, dzdy = 3 * 0.5;
    const double length = std::sqrt(dzdx * dzdx + dzdy * dzdy + 1.0);
    Normals result = Compute(image);
    ASSERT_EQ(kKivPlatformOk, result.status);
    for (int row = 0; row < height; ++row) {
      for (int col = 0; col < width; ++col) {
        const KivVector3d& n = result.normals[row * width + col];
        auto bad = [&](int r, int c) {
          return r < 0 || c < 0 || r >= height || c >= width || invalid[r * width + c];
        };
        const bool noColumnNeighbour = bad(row, col - 1) && bad(row, col + 1);
        const bool noRowNeighbour = bad(row - 1, col) && bad(row + 1, col);
        if (invalid[row * width + col] || noColumnNeighbour || noRowNeighbour) {
          EXPECT_TRUE(IsNaNVector(n)) << row << ", " << col;
        } else {
          EXPECT_NEAR(-dzdx / length, n.X(), 1e-6) << row << ", " << col;
          EXPECT_NEAR(-dzdy / length, n.Y(), 1e-6) << row << ", " << col;
          EXPECT_NEAR(1.0 / length, n.Z(), 1e-6) << row << ", " << col;
        }
        const bool bendable = !bad(row, col) && !bad(row, col - 1) && !bad(row, col + 1) &&
                              !bad(row - 1, col) && !bad(row + 1, col);
        EXPECT_EQ(!bendable, std::isnan(result.bends[row * width + col])) << row << ", " << col;
      }
    }
    EXPECT_TRUE(IsNaNVector(result.normals[8 * width + 5]));
  }
}

TEST(Normals, ImagesOnepixelWideOrHighHaveNoNormals) {
  const int shapes[][2] = {{1, 1}, {1, 9}, {9, 1}};
  for (const auto& shape : shapes) {
    for (int type = 0; type <= 6; ++type) {
      SCOPED_TRACE(::testing::Message() << shape[0] << "x" << shape[1] << " type " << type);
      KivRangeImage image(shape[0], shape[1], static_cast<KivDataType>(type));
      for (int row = 0; row < shape[1]; ++row) {
        for (int col = 0; col < shape[0]; ++col) SetPixel(image, row, col, 5 + row + col);
      }
      Normals result = Compute(image);
      ASSERT_EQ(kKivPlatformOk, result.status);
      ASSERT_EQ(shape[0] * shape[1], result.normals.Length());
      ASSERT_EQ(shape[0] * shape[1], result.bends.Length());
      for (int i = 0; i < result.normals.Length(); ++i) {
        EXPECT_TRUE(IsNaNVector(result.normals[i])) << i;
        EXPECT_TRUE(std::isnan(result.bends[i])) << i;
      }
    }
  }
}

// With no spacing between rows every row lies in one vertical plane: where the height changes along
// the column the surface is a wall facing -y, and where it does not the tangents are parallel and
// there is no normal.
TEST(Normals, ZeroRowSpacingGivesWallsOrNoNormal) {
  for (int rowSlope : {0, 1}) {
    SCOPED_TRACE(rowSlope);
    KivRangeImage image(4, 4, KIV_DATA_F32);
    image.SetResolution(0.0, 1.0, 1.0);
    for (int row = 0; row < 4; ++row) {
      for (int col = 0; col < 4; ++col) SetPixel(image, row, col, col * col + rowSlope * row);
    }
    Normals result = Compute(image);
    ASSERT_EQ(kKivPlatformOk, result.status);
    for (int i = 0; i < 16; ++i) {
      if (rowSlope == 0) {
        EXPECT_TRUE(IsNaNVector(result.normals[i])) << i;
      } else {
        EXPECT_TRUE(result.normals[i] == KivVector3d(0.0f, -1.0f, 0.0f)) << i;
      }
    }
  }
}

TEST(Normals, ImagesWithoutPixelsGiveEmptyArrays) {
  const int shapes[][2] = {{0, 0}, {0, 4}, {4, 0}};
  for (const auto& shape : shapes) {
    KivRangeImage image(shape[0], shape[1], KIV_DATA_U16);
    KivVector3dArray normals;
    normals.SetSize(3);
    Kiv3DFloatArray bends(2);
    Kiv3DDataOperation operation;
    ASSERT_EQ(kKivPlatformOk, operation.ComputeNormals(image, &normals, &bends));
    EXPECT_EQ(0, normals.Length());
    EXPECT_EQ(0, bends.Length());
  }
}

// ---- Agreement with a plain serial loop ---------------------------------------------------------

struct ReferencePoint {
  bool valid;
  double p[3];
};

ReferencePoint PointOf(const KivRangeImage& image, int row, int col) {
  ReferencePoint point{false, {0.0, 0.0, 0.0}};
  if (row < 0 || col < 0 || row >= image.Height() || col >= image.Width()) return point;
  const double v = PixelAt(image, row, col);
  if (!std::isfinite(v) || v == MarkerOf(image.DataType())) return point;
  point.valid = true;
  point.p[0] = (col - image.OffsetY()) * image.ResolutionY();
  point.p[1] = (row - image.OffsetX()) * image.ResolutionX();
  point.p[2] = image.ResolutionZ() == 0.0 ? 0.0 : (v - image.OffsetZ()) * image.ResolutionZ();
  return point;
}

void Difference(const ReferencePoint& a, const ReferencePoint& b, double out[3]) {
  for (int k = 0; k < 3; ++k) out[k] = a.p[k] - b.p[k];
}

void CrossOf(const double a[3], const double b[3], double out[3]) {
  out[0] = a[1] * b[2] - a[2] * b[1];
  out[1] = a[2] * b[0] - a[0] * b[2];
  out[2] = a[0] * b[1] - a[1] * b[0];
}

bool UnitOf(const double v[3], double out[3]) {
  const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (!(length > 0.0) || !std::isfinite(length)) return false;
  for (int k = 0; k < 3; ++k) out[k] = v[k] / length;
  return true;
}

bool TangentOf(const ReferencePoint& minus, const ReferencePoint& centre,
               const ReferencePoint& plus, double out[3]) {
  if (minus.valid && plus.valid) {
    Difference(plus, minus, out);
  } else if (plus.valid) {
    Difference(plus, centre, out);
  } else if (minus.valid) {
    Difference(centre, minus, out);
  } else {
    return false;
  }
  return true;
}

void ReferenceNormals(const KivRangeImage& image, std::vector<float>* normals,
                      std::vector<float>* bends) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  normals->assign(static_cast<std::size_t>(image.Width()) * image.Height() * 3, nan);
  bends->assign(static_cast<std::size_t>(image.Width()) * image.Height(), nan);
  for (int row = 0; row < image.Height(); ++row) {
    for (int col = 0; col < image.Width(); ++col) {
      const std::size_t i = static_cast<std::size_t>(row) * image.Width() + col;
      const ReferencePoint c = PointOf(image, row, col);
      if (!c.valid) continue;
      const ReferencePoint left = PointOf(image, row, col - 1);
      const ReferencePoint right = PointOf(image, row, col + 1);
      const ReferencePoint up = PointOf(image, row - 1, col);
      const ReferencePoint down = PointOf(image, row + 1, col);
      double tc[3], tr[3], n[3], unit[3];
      if (TangentOf(left, c, right, tc) && TangentOf(up, c, down, tr)) {
        CrossOf(tc, tr, n);
        if (UnitOf(n, unit)) {
          const double sign = unit[2] < 0.0 ? -1.0 : 1.0;
          for (int k = 0; k < 3; ++k) (*normals)[i * 3 + k] = static_cast<float>(sign * unit[k]);
        }
      }
      if (!(left.valid && right.valid && up.valid && down.valid)) continue;
      double a[3], b[3], forward[3], backward[3], fu[3], bu[3], sine[3];
      Difference(right, c, a);
      Difference(down, c, b);
      CrossOf(a, b, forward);
      Difference(c, left, a);
      Difference(c, up, b);
      CrossOf(a, b, backward);
      if (UnitOf(forward, fu) && UnitOf(backward, bu)) {
        CrossOf(fu, bu, sine);
        const double s = std::sqrt(sine[0] * sine[0] + sine[1] * sine[1] + sine[2] * sine[2]);
        (*bends)[i] =
            static_cast<float>(std::atan2(s, fu[0] * bu[0] + fu[1] * bu[1] + fu[2] * bu[2]));
      }
    }
  }
}

// Random pixels: markers, NaN, infinities, the type's extremes, and a rough surface of ordinary
// heights.
template <typename T>
T RandomPixel(std::mt19937_64& random, int row, int col) {
  const int kind = std::uniform_int_distribution<int>(0, 99)(random);
  using Limits = std::numeric_limits<T>;
  if (kind < 6) return Limits::lowest();  // the marker of every type
  if (kind < 8) return Limits::max();
  if constexpr (std::is_floating_point_v<T>) {
    if (kind < 10) return Limits::quiet_NaN();
    if (kind < 11) return Limits::infinity();
    if (kind < 12) return -Limits::infinity();
    if (kind < 14)
      return static_cast<T>(std::uniform_real_distribution<double>(-1e30, 1e30)(random));
  }
  const double surface =
      40.0 + 0.5 * row - 0.3 * col + std::normal_distribution<double>(0, 3)(random);
  // Clamped first: the unsigned types cannot hold the negative part of the slope.
  return static_cast<T>(
      std::min(static_cast<double>(Limits::max()),
               std::max(static_cast<double>(Limits::lowest()), std::round(surface))));
}

KivRangeImage RandomImage(int type, int width, int height, std::mt19937_64& random) {
  return testing_support::ImageFrom(type, width, height, [&](auto t, int row, int col) {
    return RandomPixel<decltype(t)>(random, row, col);
  });
}

TEST(Normals, MatchReferenceLoopOnRandomImages) {
  std::mt19937_64 random(424242);
  const int sizes[][2] = {{1, 1}, {1, 17}, {23, 1}, {2, 2}, {7, 5}, {33, 31}, {101, 3}, {160, 120}};
  std::uniform_real_distribution<double> resolution(-3.0, 3.0), offset(-100.0, 100.0);
  for (int type = 0; type <= 6; ++type) {
    for (const auto& size : sizes) {
      SCOPED_TRACE(::testing::Message() << "type " << type << " " << size[0] << "x" << size[1]);
      KivRangeImage image = RandomImage(type, size[0], size[1], random);
      image.SetResolution(resolution(random), resolution(random), resolution(random));
      image.SetOffset(offset(random), offset(random), offset(random));
      image.SetType(3);
      const KivRangeImage before = image.DeepCopy();
      const unsigned char* pixels = image.Data();

      Normals result = Compute(image);
      ASSERT_EQ(kKivPlatformOk, result.status);
      std::vector<float> normals, bends;
      ReferenceNormals(image, &normals, &bends);
      ASSERT_EQ(normals.size(), static_cast<std::size_t>(result.normals.Length()) * 3);
      ASSERT_EQ(bends.size(), static_cast<std::size_t>(result.bends.Length()));
      int mismatches = 0;
      for (std::size_t i = 0; i < bends.size(); ++i) {
        const float* got = result.normals.Data() + i * 3;
        const bool same =
            SameFloat(normals[i * 3], got[0]) && SameFloat(normals[i * 3 + 1], got[1]) &&
            SameFloat(normals[i * 3 + 2], got[2]) && SameFloat(bends[i], result.bends[i]);
        if (!same && ++mismatches < 5) ADD_FAILURE() << "pixel " << i;
      }
      EXPECT_EQ(0, mismatches);

      // Every normal is either three NaNs or a unit vector facing the viewer.
      for (int i = 0; i < result.normals.Length(); ++i) {
        const KivVector3d& n = result.normals[i];
        if (std::isnan(n.X()) || std::isnan(n.Y()) || std::isnan(n.Z())) {
          EXPECT_TRUE(IsNaNVector(n)) << i;
          continue;
        }
        EXPECT_NEAR(1.0, std::sqrt(n.X() * n.X() + n.Y() * n.Y() + n.Z() * n.Z()), 1e-6) << i;
        EXPECT_GE(n.Z(), 0.0f) << i;
      }

      // The image is read only.
      EXPECT_TRUE(SameBytes(before, image));
      EXPECT_EQ(pixels, image.Data());
      EXPECT_EQ(before.ResolutionZ(), image.ResolutionZ());
      EXPECT_EQ(before.OffsetX(), image.OffsetX());
      EXPECT_EQ(3, image.Type());
    }
  }
}

TEST(Normals, SameAsTheFloatConversionOfTheImage) {
  // Raw values times 0.25 are exact in float, so both images describe the same points bit for bit.
  std::mt19937_64 random(99);
  KivRangeImage raw(40, 30, KIV_DATA_U16);
  raw.SetResolution(0.5, 0.75, 0.25);
  raw.SetOffset(3.0, 4.0, 100.0);
  for (int row = 0; row < 30; ++row) {
    for (int col = 0; col < 40; ++col) {
      const int kind = std::uniform_int_distribution<int>(0, 19)(random);
      SetPixel(
          raw, row, col,
          kind == 0 ? 0.0 : 1000 + 5 * row + std::uniform_int_distribution<int>(0, 30)(random));
    }
  }
  KivRangeImage converted;
  Kiv3DDataConvert convert;
  ASSERT_EQ(kKivPlatformOk, convert.RangeImageDataTypeConvert(raw, &converted, KIV_DATA_F32));
  Normals fromRaw = Compute(raw);
  Normals fromFloat = Compute(converted);
  ASSERT_EQ(kKivPlatformOk, fromRaw.status);
  ASSERT_EQ(kKivPlatformOk, fromFloat.status);
  for (int i = 0; i < 40 * 30; ++i) {
    EXPECT_TRUE(SameFloat(fromRaw.normals[i].X(), fromFloat.normals[i].X())) << i;
    EXPECT_TRUE(SameFloat(fromRaw.normals[i].Y(), fromFloat.normals[i].Y())) << i;
    EXPECT_TRUE(SameFloat(fromRaw.normals[i].Z(), fromFloat.normals[i].Z())) << i;
    EXPECT_TRUE(SameFloat(fromRaw.bends[i], fromFloat.bends[i])) << i;
  }
}

// ---- Outputs and rejected calls -----------------------------------------------------------------

TEST(Normals, OutputsAreResizedAndTheFigureIsOptional) {
  KivRangeImage image(6, 5, KIV_DATA_S16);
  KivVector3dArray normals;
  normals.SetSize(100);
  Kiv3DFloatArray bends(3);
  const Kiv3DFloatArray sharing = bends;  // shares the old elements, like cv::Mat
  bends[0] = 8.0f;
  Kiv3DDataOperation operation;
  ASSERT_EQ(kKivPlatformOk, operation.ComputeNormals(image, &normals, &bends));
  EXPECT_EQ(30, normals.Length());
  EXPECT_EQ(30, bends.Length());
  EXPECT_EQ(3, sharing.Length());
  EXPECT_EQ(8.0f, sharing[0]);

  KivVector3dArray alone;
  ASSERT_EQ(kKivPlatformOk, operation.ComputeNormals(image, &alone, nullptr));
  ASSERT_EQ(30, alone.Length());
  for (int i = 0; i < 30; ++i) EXPECT_TRUE(alone[i] == normals[i]) << i;
}

// A rejected call leaves both outputs as they were.
void ExpectRejected(long expectedStatus, KivRangeImage& image) {
  KivVector3dArray normals;
  normals.SetSize(2);
  normals[1] = KivVector3d(1.0f, 2.0f, 3.0f);
  Kiv3DFloatArray bends(1);
  bends[0] = 4.0f;
  Kiv3DDataOperation operation;
  EXPECT_EQ(expectedStatus, operation.ComputeNormals(image, &normals, &bends));
  ASSERT_EQ(2, normals.Length());
  EXPECT_TRUE(normals[1] == KivVector3d(1.0f, 2.0f, 3.0f));
  ASSERT_EQ(1, bends.Length());
  EXPECT_EQ(4.0f, bends[0]);
}

TEST(Normals, NullNormalsAreRejected) {
  KivRangeImage image(3, 3, KIV_DATA_U8);
  Kiv3DFloatArray bends(1);
  bends[0] = 4.0f;
  Kiv3DDataOperation operation;
  EXPECT_EQ(kKivPlatformNullArgument, operation.ComputeNormals(image, nullptr, &bends));
  EXPECT_EQ(kKivPlatformNullArgument, operation.ComputeNormals(image, nullptr, nullptr));
  ASSERT_EQ(1, bends.Length());
  EXPECT_EQ(4.0f, bends[0]);
}

TEST(Normals, PixelMatrixNotMatchingTheImageIsRejected) {
  const struct {
    const char* what;
    cv::Mat mat;
  } cases[] = {
      {"wrong depth", cv::Mat(2, 3, CV_16UC1, cv::Scalar(1))},
      {"two channels", cv::Mat(2, 3, CV_32FC2, cv::Scalar(1))},
      {"too many rows", cv::Mat(3, 3, CV_32FC1, cv::Scalar(1))},
      {"too few columns", cv::Mat(2, 2, CV_32FC1, cv::Scalar(1))},
      {"no pixels", cv::Mat()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    KivRangeImage image(3, 2, KIV_DATA_F32);
    image.Mat() = c.mat;
    ExpectRejected(kKivPlatformInvalidArgument, image);
  }
}

TEST(Normals, NonFiniteGeometryIsRejected) {
  for (int axis = 0; axis < 6; ++axis) {
    for (double bad : {kNaN, kInf, -kInf}) {
      SCOPED_TRACE(::testing::Message() << "axis " << axis << " value " << bad);
      KivRangeImage image(3, 3, KIV_DATA_U16);
      double values[6] = {1.0, 1.0, 1.0, 0.0, 0.0, 0.0};
      values[axis] = bad;
      image.SetResolution(values[0], values[1], values[2]);
      image.SetOffset(values[3], values[4], values[5]);
      ExpectRejected(kKivPlatformInvalidArgument, image);
    }
  }
}

TEST(Normals, PaddedRowsAreRead) {
  cv::Mat wide(6, 10, CV_32FC1);
  for (int row = 0; row < 6; ++row) {
    for (int col = 0; col < 10; ++col)
      wide.at<float>(row, col) = static_cast<float>(col * col + 2 * row);
  }
  KivRangeImage padded(7, 6, KIV_DATA_F32);
  padded.Mat() = wide(cv::Rect(3, 0, 7, 6));
  KivRangeImage compact(7, 6, KIV_DATA_F32);
  padded.Mat().copyTo(compact.Mat());
  Normals a = Compute(padded);
  Normals b = Compute(compact);
  ASSERT_EQ(kKivPlatformOk, a.status);
  ASSERT_EQ(kKivPlatformOk, b.status);
  for (int i = 0; i < 42; ++i) EXPECT_TRUE(a.normals[i] == b.normals[i]) << i;
}

#if KIVLUT_FAULT_INJECTION
TEST(Normals, FailuresInsideTheWorkBecomeStatuses) {
  const struct {
    detail::Platform3DFault fault;
    long status;
  } cases[] = {
      {detail::Platform3DFault::kAllocation, kKivPlatformOutOfMemory},
      {detail::Platform3DFault::kOpenCvAllocation, kKivPlatformOutOfMemory},
      {detail::Platform3DFault::kWork, kKivPlatformInternalError},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.fault));
    KivRangeImage image(8, 8, KIV_DATA_U16);
    detail::SetPlatform3DFault(c.fault);
    ExpectRejected(c.status, image);
    detail::SetPlatform3DFault(detail::Platform3DFault::kNone);
  }
  KivRangeImage image(8, 8, KIV_DATA_U16);
  EXPECT_EQ(kKivPlatformOk, Compute(image).status);
}
#else
TEST(Normals, FailuresInsideTheWorkBecomeStatuses) {
  GTEST_SKIP() << "the fault seams exist only in a KIVLUT_FAULT_INJECTION build";
}
#endif

}  // namespace
}  // namespace KIVMV
