#include "shading/phong_lighting.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "Kiv3DDataOperation.h"
#include "KivLUTSetting.h"
#include "common/fault_injection.h"
#include "common/load_time_config.h"
#include "frame/end_messages.h"
#include "range/range_test_support.h"
#include "shading/normal_map.h"
#include "support/log_capture.h"
#include "support/reference_helpers.h"

// The example's scene and rendering, so that the pictures test checks exactly what it writes.
#define KIVLUT_SHADE_EXAMPLE_NO_MAIN
#include "../../examples/shade_range_image.cpp"

namespace KIVMV {
namespace {

using testing_support::ForEachPixelType;
using testing_support::LoadRealFrames;
using testing_support::LogCapture;
using testing_support::Marker;
using testing_support::RandomRangeImage;
using testing_support::TestSizes;
using testing_support::X86Truncate;

using Bytes = std::vector<uint8_t>;

constexpr float kNaNf = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfF = std::numeric_limits<float>::infinity();

uint32_t Bits(float v) {
  uint32_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  return bits;
}

Bytes ArrayBytes(const KivColorArray& colours) {
  const size_t size = static_cast<size_t>(colours.Length()) * colours.Channel();
  return Bytes(colours.Data(), colours.Data() + size);
}

// ---------------------------------------------------------------------------------------------
// Plain restatements of the point grid and the shading, straight from the rules.

// IEEE round to nearest into float, infinities beyond the range.
float RefNarrow(double v) {
  if (std::isnan(v)) return kNaNf;
  if (std::fabs(v) >= 0x1.ffffffp127) return v > 0 ? kInfF : -kInfF;
  if (std::fabs(v) > FLT_MAX) return v > 0 ? FLT_MAX : -FLT_MAX;
  return static_cast<float>(v);
}

double RefThroughFloat(double v) { return RefNarrow(v); }

template <typename T>
std::vector<KivVector3d> RefPointGrid(const KivRangeImage& image) {
  const double ox = RefThroughFloat(image.OffsetX()), oy = RefThroughFloat(image.OffsetY()),
               oz = RefThroughFloat(image.OffsetZ());
  const double rx = RefThroughFloat(image.ResolutionX()), ry = RefThroughFloat(image.ResolutionY()),
               rz = RefThroughFloat(image.ResolutionZ());
  const cv::Mat& m = image.Mat();
  const T* v = reinterpret_cast<const T*>(m.data);
  std::vector<KivVector3d> points;
  for (int row = 0; row < m.rows; ++row) {
    for (int col = 0; col < m.cols; ++col) {
      const T value = v[row * m.cols + col];
      float z = -FLT_MAX;
      if (value != Marker<T>()) {
        z = std::is_integral_v<T> ? RefNarrow((static_cast<double>(value) - oz) * rz)
                                  : RefNarrow(static_cast<double>(value) - oz);
      }
      points.emplace_back(RefNarrow((col - oy) * ry), RefNarrow((row - ox) * rx), z);
    }
  }
  return points;
}

std::vector<KivVector3d> RefPointGridOf(const KivRangeImage& image) {
  std::vector<KivVector3d> points;
  VisitPixelType(image.Mat().type(), [&](auto tag) {
    using T = typename decltype(tag)::type;
    points = RefPointGrid<T>(image);
  });
  return points;
}

struct Lighting {
  KivVector3d light, eye;
  float gain, ambient, diffuse, specular;
};

uint8_t RefByte(float v) {
  return static_cast<uint8_t>(static_cast<uint64_t>(X86Truncate(v)) & 0xFF);
}

KivVector3d RefShade(const KivVector3d& p, const KivVector3d& n, const KivVector3d& c,
                     const Lighting& l) {
  const float w = (l.ambient + l.diffuse) + l.specular;
  const KivVector3d lightDir = (l.light - p).Normalized();
  const KivVector3d eyeDir = (l.eye - p).Normalized();
  const KivVector3d i = KivVector3d() - lightDir;
  const KivVector3d d = c * static_cast<float>(std::fabs(static_cast<double>(i.Dot(n))));
  const KivVector3d r = i - (n * n.Dot(i)) * 2.0f;
  float factor = 0.0f;
  if (eyeDir.Dot(r) < 0) {
    factor = static_cast<float>(std::pow(0.0, 8.0));
  } else {
    const KivVector3d again = i - (n * n.Dot(i)) * 2.0f;
    factor = RefNarrow(std::pow(static_cast<double>(eyeDir.Dot(again)), 8.0));
  }
  const KivVector3d s = KivVector3d(255.0f, 255.0f, 255.0f) * factor;
  return (((c * l.ambient) + (d * l.diffuse)) + (s * l.specular)) * l.gain / w;
}

// The whole method restated: the platform's normals and the public equalised colouring as inputs.
Bytes RefLighting(KivRangeImage& image, int mode, const Lighting& l, int* width, int* height) {
  const std::vector<KivVector3d> points = RefPointGridOf(image);
  KivVector3dArray normals;
  Kiv3DDataOperation operation;
  EXPECT_EQ(operation.ComputeNormals(image, &normals, nullptr), 0);
  KivColorArray base;
  KivLUTSetting lut;
  EXPECT_EQ(lut.ColorMapLUT(image, mode, &base), LUT_OK);
  *width = base.Width();
  *height = base.Height();
  const int ch = base.Channel();
  Bytes out(static_cast<size_t>(base.Length()) * ch, 0);
  for (int i = 0; i < base.Length(); ++i) {
    const uint8_t* b = base.Data() + static_cast<size_t>(i) * ch;
    const KivVector3d shaded = RefShade(points[i], normals[i], KivVector3d(b[0], b[1], b[2]), l);
    uint8_t* o = out.data() + static_cast<size_t>(i) * ch;
    o[0] = RefByte(shaded.X());
    o[1] = RefByte(shaded.Y());
    o[2] = RefByte(shaded.Z());
  }
  return out;
}

long Shade(KivRangeImage& image, int mode, Lighting l, KivColorArray* out) {
  KivLUTSetting lut;
  return lut.SetColorNormalMap(image, l.light, l.eye, mode, l.gain, l.ambient, l.diffuse,
                               l.specular, out);
}

PhongTerms TermsOf(const Lighting& l) {
  return {l.light,
          l.eye,
          KivVector3d(255.0f, 255.0f, 255.0f),
          l.gain,
          l.ambient,
          l.diffuse,
          l.specular,
          PhongWeightSum(l.ambient, l.diffuse, l.specular)};
}

// ---------------------------------------------------------------------------------------------
// The small helpers.

TEST(PhongLighting, GrainIsEntriesPerWorkerButAtLeastOne) {
  EXPECT_EQ(PhongGrain(10, 4), 2);
  EXPECT_EQ(PhongGrain(3, 7), 1);  // fewer entries than workers
  EXPECT_EQ(PhongGrain(100, 1), 100);
  EXPECT_EQ(PhongGrain(1, 1), 1);
  EXPECT_EQ(PhongGrain(3072000, 3), 1024000);
}

// ---------------------------------------------------------------------------------------------
// The shading of one entry.

// A surface at the origin facing up, lit and seen from straight above.
const KivVector3d kPoint(0.0f, 0.0f, 0.0f);
const KivVector3d kUp(0.0f, 0.0f, 1.0f);

Bytes ShadeOne(const KivVector3d& base, const Lighting& l, const KivVector3d& point = kPoint,
               const KivVector3d& normal = kUp) {
  const uint8_t colour[3] = {static_cast<uint8_t>(base.X()), static_cast<uint8_t>(base.Y()),
                             static_cast<uint8_t>(base.Z())};
  Bytes out(3, 0xEE);
  ShadePhongEntry(point, normal, colour, TermsOf(l), out.data());
  return out;
}

TEST(PhongLighting, GainAboveOneWrapsAround) {
  // 200 x 1 x 2 / 1 = 400, which keeps its low byte: 144.
  const Lighting l{{0, 0, 10}, {0, 0, 10}, 2.0f, 1.0f, 0.0f, 0.0f};
  EXPECT_EQ(ShadeOne({200, 200, 200}, l), (Bytes{144, 144, 144}));
  EXPECT_EQ(ShadeOne({100, 128, 127}, l), (Bytes{200, 0, 254}));
}

TEST(PhongLighting, AllWeightsZeroGiveZero) {
  const Lighting l{{0, 0, 10}, {3, 1, 10}, 1.0f, 0.0f, 0.0f, 0.0f};
  EXPECT_EQ(PhongWeightSum(0.0f, 0.0f, 0.0f), 0.0f);
  EXPECT_EQ(ShadeOne({200, 10, 255}, l), (Bytes{0, 0, 0}));
}

TEST(PhongLighting, SpecularOnlyWhereTheEyeMeetsTheReflection) {
  // Light and eye straight above: the reflection points at the eye, factor 1, 255 everywhere.
  const Lighting above{{0, 0, 10}, {0, 0, 10}, 1.0f, 0.0f, 0.0f, 1.0f};
  EXPECT_EQ(ShadeOne({10, 20, 30}, above), (Bytes{255, 255, 255}));
  // Eye below the surface: V . R < 0, so pow(0, 8) = 0.
  const Lighting below{{0, 0, 10}, {0, 0, -10}, 1.0f, 0.0f, 0.0f, 1.0f};
  EXPECT_EQ(ShadeOne({10, 20, 30}, below), (Bytes{0, 0, 0}));
  // Diffuse only, light straight above: |cos| = 1, the base colour itself.
  const Lighting diffuse{{0, 0, 10}, {5, 5, 5}, 1.0f, 0.0f, 1.0f, 0.0f};
  EXPECT_EQ(ShadeOne({10, 20, 30}, diffuse), (Bytes{10, 20, 30}));
  // Light from below: the absolute value of the cosine still lights the face.
  const Lighting fromBelow{{0, 0, -10}, {5, 5, 5}, 1.0f, 0.0f, 1.0f, 0.0f};
  EXPECT_EQ(ShadeOne({10, 20, 30}, fromBelow), (Bytes{10, 20, 30}));
}

TEST(PhongLighting, NonFiniteResultsGiveZero) {
  const Lighting l{{0, 0, 10}, {1, 2, 10}, 1.0f, 0.3f, 0.3f, 0.3f};
  EXPECT_EQ(ShadeOne({200, 100, 50}, l, kPoint, KivVector3d(kNaNf, kNaNf, kNaNf)),
            (Bytes{0, 0, 0}));
  // A light on the surface point: L is the platform's normalisation of a zero vector (NaN here).
  const Lighting onPoint{{0, 0, 0}, {1, 2, 10}, 1.0f, 0.3f, 0.3f, 0.3f};
  const Lighting reference = onPoint;
  const KivVector3d shaded = RefShade(kPoint, kUp, {200, 100, 50}, reference);
  EXPECT_EQ(ShadeOne({200, 100, 50}, onPoint),
            (Bytes{RefByte(shaded.X()), RefByte(shaded.Y()), RefByte(shaded.Z())}));
}

TEST(PhongLighting, UnitGainIsAWeightedMeanWithinTheByteRange) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<float> coord(-50.0f, 50.0f), weight(0.0f, 1.0f);
  std::uniform_int_distribution<int> byte(0, 255);
  for (int trial = 0; trial < 20000; ++trial) {
    const KivVector3d normal =
        KivVector3d(coord(random), coord(random), coord(random)).Normalized();
    const KivVector3d point(coord(random), coord(random), coord(random));
    const Lighting l{{coord(random), coord(random), 100.0f},
                     {coord(random), coord(random), 120.0f},
                     1.0f,
                     weight(random),
                     weight(random),
                     weight(random)};
    const KivVector3d base(byte(random), byte(random), byte(random));
    const KivVector3d shaded = PhongShade(point, normal, base, TermsOf(l));
    for (float c : {shaded.X(), shaded.Y(), shaded.Z()}) {
      EXPECT_GE(c, 0.0f);
      EXPECT_LT(c, 256.0f);
    }
    const KivVector3d expected = RefShade(point, normal, base, l);
    EXPECT_EQ(shaded, expected);
  }
}

// ---------------------------------------------------------------------------------------------
// The point grid.

TEST(PointGrid, RowsTakeTheXPairAndColumnsTheYPair) {
  KivRangeImage image(3, 2, KIV_DATA_U16);
  image.SetResolution(0.5, 0.25, 0.01);
  image.SetOffset(1.0, 2.0, 100.0);
  image.Ptr<uint16_t>()[1 * 3 + 2] = 600;
  KivVector3dArray points;
  BuildPointGrid(image, &points);
  ASSERT_EQ(points.Length(), 6);
  const KivVector3d p = points[1 * 3 + 2];
  EXPECT_EQ(p.X(), static_cast<float>((2 - 2.0) * 0.25));  // column with the Y pair
  EXPECT_EQ(p.Y(), static_cast<float>((1 - 1.0) * 0.5));   // row with the X pair
  EXPECT_EQ(p.Z(), static_cast<float>((600 - 100.0) * static_cast<double>(0.01f)));
  EXPECT_EQ(Bits(points[0].Z()), 0xFF7FFFFFu) << "0 is the unsigned marker";
  EXPECT_EQ(points[0].X(), -0.5f);
  EXPECT_EQ(points[0].Y(), -0.5f);
}

TEST(PointGrid, MarkersAreTestedByExactEquality) {
  KivRangeImage s32(3, 1, KIV_DATA_S32);
  s32.Ptr<int32_t>()[0] = 0;  // a height here, unlike the statistics' wrap-around rule
  s32.Ptr<int32_t>()[1] = INT_MIN;
  s32.Ptr<int32_t>()[2] = INT_MIN + 1;
  s32.SetResolution(1.0, 1.0, 2.0);
  KivVector3dArray points;
  BuildPointGrid(s32, &points);
  EXPECT_EQ(points[0].Z(), 0.0f);
  EXPECT_EQ(Bits(points[1].Z()), 0xFF7FFFFFu);
  EXPECT_EQ(points[2].Z(), static_cast<float>((INT_MIN + 1.0) * 2.0));

  // Float heights: only -FLT_MAX is the marker; NaN stays a (NaN) height; no Z resolution.
  KivRangeImage f32(4, 1, KIV_DATA_F32);
  f32.SetResolution(1.0, 1.0, 1000.0);
  f32.SetOffset(0.0, 0.0, 0.5);
  float* v = f32.Ptr<float>();
  v[0] = -FLT_MAX, v[1] = kNaNf, v[2] = 2.0f, v[3] = std::nextafter(-FLT_MAX, 0.0f);
  BuildPointGrid(f32, &points);
  EXPECT_EQ(Bits(points[0].Z()), 0xFF7FFFFFu);
  EXPECT_TRUE(std::isnan(points[1].Z()));
  EXPECT_EQ(points[2].Z(), 1.5f);
  EXPECT_NE(Bits(points[3].Z()), 0xFF7FFFFFu);

  // Double heights beyond the float range become infinities.
  KivRangeImage f64(3, 1, KIV_DATA_F64);
  f64.Ptr<double>()[0] = -DBL_MAX;
  f64.Ptr<double>()[1] = DBL_MAX;
  f64.Ptr<double>()[2] = -1e39;
  BuildPointGrid(f64, &points);
  EXPECT_EQ(Bits(points[0].Z()), 0xFF7FFFFFu);
  EXPECT_EQ(points[1].Z(), kInfF);
  EXPECT_EQ(points[2].Z(), -kInfF);
}

TEST(PointGrid, ParametersAreNarrowedToFloatFirst) {
  KivRangeImage image(2, 1, KIV_DATA_U8);
  image.SetResolution(1.0, 0.1, 0.1);
  image.SetOffset(0.0, 0.0, 0.3);
  image.Ptr<uint8_t>()[1] = 7;
  KivVector3dArray points;
  BuildPointGrid(image, &points);
  const double r = static_cast<double>(0.1f), o = static_cast<double>(0.3f);
  EXPECT_EQ(points[1].X(), static_cast<float>(1.0 * r));
  EXPECT_EQ(points[1].Z(), static_cast<float>((7.0 - o) * r));
}

TEST(PointGrid, MultiChannelMatrixLeavesTheSizedGrid) {
  KivRangeImage image(4, 3, KIV_DATA_U8);
  image.Mat() = cv::Mat(3, 4, CV_8UC3, cv::Scalar(9, 9, 9));
  KivVector3dArray points;
  points.SetSize(2);
  points[0] = KivVector3d(1, 2, 3);
  BuildPointGrid(image, &points);
  ASSERT_EQ(points.Length(), 12);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(points[i], KivVector3d(0, 0, 0)) << i;
}

TEST(PointGrid, RowStepIsNotUsed) {
  cv::Mat parent(6, 8, CV_8U);
  for (int i = 0; i < 48; ++i) parent.data[i] = static_cast<uint8_t>(i + 1);
  KivRangeImage image(3, 2, KIV_DATA_U8);
  image.Mat() = parent(cv::Rect(1, 1, 3, 2));
  KivVector3dArray points;
  BuildPointGrid(image, &points);
  ASSERT_EQ(points.Length(), 6);
  // Six pixels in a row from the first one, the gap to the next matrix row ignored.
  for (int i = 0; i < 6; ++i) EXPECT_EQ(points[i].Z(), static_cast<float>(9 + 1 + i)) << i;
}

TEST(PointGrid, MatchesTheReferenceOnEveryPixelType) {
  std::mt19937_64 random(13);
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [width, height] : TestSizes()) {
      KivRangeImage image = RandomRangeImage<T>(width, height, random);
      image.SetResolution(0.3, 0.7, 0.013);
      image.SetOffset(-4.5, 11.25, 17.0);
      KivVector3dArray points;
      BuildPointGrid(image, &points);
      const std::vector<KivVector3d> expected = RefPointGrid<T>(image);
      ASSERT_EQ(points.Length(), static_cast<int>(expected.size()));
      ASSERT_EQ(std::memcmp(&points[0], expected.data(), expected.size() * sizeof(KivVector3d)), 0)
          << "type " << image.DataType() << ", " << width << "x" << height;
    }
  });
}

// ---------------------------------------------------------------------------------------------
// The parallel body.

TEST(PhongLighting, SharedVectorsShareTheirStorage) {
  KivVector3dArray vectors;
  vectors.SetSize(5);
  vectors[4] = KivVector3d(1, 2, 3);
  const SharedVectors shared(std::move(vectors));
  const SharedVectors copy = shared;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.Data(), shared.Data());
  EXPECT_EQ(copy.Length(), 5);
  EXPECT_EQ(copy.Data()[4], KivVector3d(1, 2, 3));
  EXPECT_EQ(SharedVectors().Data(), nullptr);
  EXPECT_EQ(SharedVectors().Length(), 0);
}

// Vectors that every copy duplicates and counts, for comparison with the shared ones.
std::atomic<int> copiedVectorCopies{0};
class CountedCopiedVectors {
 public:
  explicit CountedCopiedVectors(KivVector3dArray&& vectors) : vectors_(std::move(vectors)) {}
  CountedCopiedVectors(const CountedCopiedVectors& other) : vectors_(other.vectors_) {
    ++copiedVectorCopies;
  }
  CountedCopiedVectors(CountedCopiedVectors&&) = default;
  int Length() const { return vectors_.Length(); }
  const KivVector3d* Data() const { return vectors_.Length() > 0 ? &vectors_[0] : nullptr; }

 private:
  KivVector3dArray vectors_;
};

struct LightingInputs {
  KivColorArray base;
  KivVector3dArray points, normals;
};

LightingInputs RandomLightingInputs(int n, std::mt19937_64& random) {
  LightingInputs in;
  in.base.Create(n, 3);
  in.points.SetSize(n);
  in.normals.SetSize(n);
  std::uniform_int_distribution<int> byte(0, 255);
  std::uniform_real_distribution<float> coord(-20.0f, 20.0f);
  for (int i = 0; i < 3 * n; ++i) in.base.Data()[i] = static_cast<uint8_t>(byte(random));
  for (int i = 0; i < n; ++i) {
    in.points[i] = KivVector3d(coord(random), coord(random), coord(random));
    in.normals[i] = i % 17 == 3 ? KivVector3d(kNaNf, kNaNf, kNaNf)
                                : KivVector3d(coord(random), coord(random), 30.0f).Normalized();
  }
  return in;
}

TEST(PhongLighting, ParallelLoopMatchesTheSerialKernelWhateverTheStorage) {
  std::mt19937_64 random(19);
  const Lighting l{{3, -4, 60}, {-2, 5, 80}, 1.7f, 0.3f, 0.6f, 0.5f};
  for (int n : {1, 2, 7, 1001, 65536 + 3}) {
    LightingInputs in = RandomLightingInputs(n, random);
    Bytes serial(3 * static_cast<size_t>(n), 0);
    for (int i = 0; i < n; ++i) {
      ShadePhongEntry(in.points[i], in.normals[i], in.base.Data() + 3 * i, TermsOf(l),
                      serial.data() + 3 * i);
    }
    for (int workers : {1, 2, 3, 7, 64}) {
      KivColorArray shared, copied;
      shared.Create(n, 3);
      copied.Create(n, 3);
      LightEntries(in.base, shared, SharedVectors(KivVector3dArray(in.points)),
                   SharedVectors(KivVector3dArray(in.normals)), l.gain, l.ambient, l.diffuse,
                   l.specular, l.light, l.eye, workers);
      copiedVectorCopies = 0;
      LightEntries(in.base, copied, CountedCopiedVectors(KivVector3dArray(in.points)),
                   CountedCopiedVectors(KivVector3dArray(in.normals)), l.gain, l.ambient, l.diffuse,
                   l.specular, l.light, l.eye, workers);
      EXPECT_EQ(ArrayBytes(shared), serial) << n << " / " << workers;
      EXPECT_EQ(ArrayBytes(copied), serial) << n << " / " << workers;
      // Each split copies both arrays; the grain keeps the pieces, and so the splits, few.
      const int grain = PhongGrain(n, workers);
      EXPECT_LE(copiedVectorCopies.load(), 2 * (2 * (n / grain) + 1)) << n << " / " << workers;
    }
  }
}

TEST(PhongLighting, ShortInputsAreRefusedNotOverrun) {
  std::mt19937_64 random(3);
  LightingInputs in = RandomLightingInputs(10, random);
  KivColorArray out;
  out.Create(10, 3);
  KivVector3dArray shortNormals;
  shortNormals.SetSize(9);
  const Lighting l{{0, 0, 10}, {0, 0, 10}, 1.0f, 1.0f, 0.0f, 0.0f};
  EXPECT_THROW(LightEntries(in.base, out, SharedVectors(KivVector3dArray(in.points)),
                            SharedVectors(std::move(shortNormals)), l.gain, l.ambient, l.diffuse,
                            l.specular, l.light, l.eye, 2),
               std::length_error);
  KivColorArray oneChannel;
  oneChannel.Create(10, 1);
  EXPECT_THROW(LightEntries(in.base, oneChannel, SharedVectors(KivVector3dArray(in.points)),
                            SharedVectors(KivVector3dArray(in.normals)), l.gain, l.ambient,
                            l.diffuse, l.specular, l.light, l.eye, 2),
               std::length_error);
}

// ---------------------------------------------------------------------------------------------
// The public method.

Lighting SceneLighting(const KivRangeImage& image, float gain, float ka, float kd, float ks) {
  // Above the middle of the grid, whatever the image's size and scale.
  const float cx = static_cast<float>(image.Width() * image.ResolutionY() / 2.0);
  const float cy = static_cast<float>(image.Height() * image.ResolutionX() / 2.0);
  return {
      {cx * 0.3f + 1.0f, cy * 0.5f, 5000.0f}, {cx, cy * 1.2f + 2.0f, 8000.0f}, gain, ka, kd, ks};
}

void ExpectMatchesReference(KivRangeImage& image, int mode, const Lighting& l,
                            const std::string& what) {
  int width = 0, height = 0;
  const Bytes expected = RefLighting(image, mode, l, &width, &height);
  KivColorArray out;
  out.Create(3, 4);
  ASSERT_EQ(Shade(image, mode, l, &out), LUT_OK) << what;
  EXPECT_EQ(out.Width(), width) << what;
  EXPECT_EQ(out.Height(), height) << what;
  EXPECT_EQ(out.Channel(), 3) << what;
  EXPECT_EQ(ArrayBytes(out), expected) << what;
}

TEST(PhongLightingMethod, MatchesTheReferenceOnEveryPixelType) {
  std::mt19937_64 random(43);
  const struct {
    int mode;
    float gain, ka, kd, ks;
  } settings[] = {{1, 1.0f, 0.3f, 0.7f, 0.4f},
                  {6, 2.5f, 1.0f, 0.2f, 0.9f},
                  {0, 10.0f, 0.0f, 0.0f, 1.0f},
                  {10, 0.5f, 0.0f, 0.0f, 0.0f}};
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [width, height] : TestSizes()) {
      KivRangeImage image = RandomRangeImage<T>(width, height, random);
      image.SetResolution(0.5, 0.25, std::is_floating_point_v<T> ? 1.0 : 0.01);
      image.SetOffset(3.0, -2.0, 10.0);
      for (const auto& s : settings) {
        const Lighting l = SceneLighting(image, s.gain, s.ka, s.kd, s.ks);
        ExpectMatchesReference(image, s.mode, l,
                               "type " + std::to_string(image.DataType()) + ", " +
                                   std::to_string(width) + "x" + std::to_string(height) +
                                   ", mode " + std::to_string(s.mode));
      }
    }
  });
}

TEST(PhongLightingMethod, SmoothSceneMatchesTheReference) {
  KivRangeImage scene = shade_example::MakeShadingScene();
  ExpectMatchesReference(scene, 1, SceneLighting(scene, 1.0f, 0.3f, 0.7f, 0.4f), "scene");
  ExpectMatchesReference(scene, 4, SceneLighting(scene, 3.0f, 0.5f, 0.5f, 0.5f), "scene, gain 3");
}

TEST(PhongLightingMethod, RealFrames) {
  const std::vector<testing_support::RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << "no shared data folder: the real range images are skipped";
  for (const testing_support::RealFrame& frame : frames) {
    KivRangeImage image = frame.image;
    ExpectMatchesReference(image, 1, SceneLighting(image, 1.0f, 0.3f, 0.7f, 0.4f), frame.name);
  }
}

// The normal map of the real frames, here because this test links the image reader.
TEST(NormalMapOfRangeImage, RealFrames) {
  const std::vector<testing_support::RealFrame> frames = LoadRealFrames();
  if (frames.empty()) GTEST_SKIP() << "no shared data folder: the real range images are skipped";
  for (const testing_support::RealFrame& frame : frames) {
    KivRangeImage image = frame.image;
    KivVector3dArray normals;
    Kiv3DDataOperation operation;
    ASSERT_EQ(operation.ComputeNormals(image, &normals, nullptr), 0) << frame.name;
    Bytes expected(3 * static_cast<size_t>(normals.Length()), 0);
    ColourNormalMapSerial(normals.Data(), expected.data(),
                          NormalMapChunkBoundaries(normals.Length(), ConfiguredWorkerCount()));
    KivLUTSetting lut;
    KivColorArray out;
    ASSERT_EQ(lut.SetColorNormalMapPhong(image, &out), LUT_OK) << frame.name;
    EXPECT_EQ(ArrayBytes(out), expected) << frame.name;
  }
}

TEST(PhongLightingMethod, ArgumentChecks) {
  KivRangeImage image(5, 4, KIV_DATA_F32);
  KivRangeImage empty(0, 4, KIV_DATA_F32);
  const KivVector3d light(1, 2, 30), eye(2, 1, 40), zero(0, 0, 0);
  const KivVector3d noData(FLT_MAX, FLT_MAX, FLT_MAX);
  const float nan = kNaNf;
  const struct {
    KivRangeImage* image;
    KivVector3d light, eye;
    int mode;
    float a, b, c, d;
    long expected;
  } cases[] = {
      {&empty, zero, zero, -1, 0, -1, -1, -1, LUT_ERR_RANGE_IMAGE_EMPTY},
      {&image, zero, zero, -1, 0, -1, -1, -1, LUT_ERR_PARAM_1},
      {&image, noData, eye, 1, 1, 0.5f, 0.5f, 0.5f, LUT_ERR_PARAM_1},
      {&image, light, zero, -1, 0, -1, -1, -1, LUT_ERR_PARAM_2},
      {&image, light, noData, 1, 1, 0.5f, 0.5f, 0.5f, LUT_ERR_PARAM_2},
      {&image, light, eye, -1, 1, 0.5f, 0.5f, 0.5f, LUT_ERR_PARAM_3},
      {&image, light, eye, 11, 1, 0.5f, 0.5f, 0.5f, LUT_ERR_PARAM_3},
      {&image, light, eye, 10, 1, 0.5f, 0.5f, 0.5f, LUT_OK},
      {&image, light, eye, 1, 0, 0.5f, 0.5f, 0.5f, LUT_ERR_PARAM_4},
      {&image, light, eye, 1, -1, 0.5f, 0.5f, 0.5f, LUT_ERR_PARAM_4},
      {&image, light, eye, 1, 10.001f, 0.5f, 0.5f, 0.5f, LUT_ERR_PARAM_4},
      {&image, light, eye, 1, 10, 0.5f, 0.5f, 0.5f, LUT_OK},
      {&image, light, eye, 1, nan, 0.5f, 0.5f, 0.5f, LUT_OK},
      {&image, light, eye, 1, 1, -0.01f, 0.5f, 0.5f, LUT_ERR_PARAM_5},
      {&image, light, eye, 1, 1, 1.01f, 0.5f, 0.5f, LUT_ERR_PARAM_5},
      {&image, light, eye, 1, 1, 0, 0.5f, 0.5f, LUT_OK},
      {&image, light, eye, 1, 1, 1, 0.5f, 0.5f, LUT_OK},
      {&image, light, eye, 1, 1, nan, 0.5f, 0.5f, LUT_OK},
      {&image, light, eye, 1, 1, 0.5f, -0.01f, 0.5f, LUT_ERR_PARAM_6},
      {&image, light, eye, 1, 1, 0.5f, 1.01f, 0.5f, LUT_ERR_PARAM_6},
      {&image, light, eye, 1, 1, 0.5f, 0, 1, LUT_OK},
      {&image, light, eye, 1, 1, 0.5f, 0.5f, -0.01f, LUT_ERR_PARAM_7},
      {&image, light, eye, 1, 1, 0.5f, 0.5f, 1.01f, LUT_ERR_PARAM_7},
      {&image, light, eye, 1, 1, 0, 0, 0, LUT_OK},
  };
  for (const auto& c : cases) {
    LogCapture capture;
    KivLUTSetting lut;
    KivVector3d a = c.light, b = c.eye;
    KivColorArray out;
    out.Create(2, 3);
    const long status = lut.SetColorNormalMap(*c.image, a, b, c.mode, c.a, c.b, c.c, c.d, &out);
    EXPECT_EQ(status, c.expected) << c.mode << " " << c.a << " " << c.b << " " << c.c << " " << c.d;
    if (status != LUT_OK) {
      EXPECT_EQ(out.Length(), 2);
      EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorNormalMap:696:start"}));
    } else {
      EXPECT_EQ(out.Length(), 20);
    }
  }
}

TEST(PhongLightingMethod, AllWeightsZeroGiveZeroBytes) {
  std::mt19937_64 random(47);
  KivRangeImage image = RandomRangeImage<float>(33, 31, random);
  KivColorArray out;
  ASSERT_EQ(Shade(image, 1, SceneLighting(image, 1.0f, 0.0f, 0.0f, 0.0f), &out), LUT_OK);
  EXPECT_EQ(ArrayBytes(out), Bytes(3 * 33 * 31, 0));
}

TEST(PhongLightingMethod, GainTwoWithAmbientOnlyDoublesTheBaseModulo256) {
  KivRangeImage scene = shade_example::MakeShadingScene();
  KivColorArray base;
  KivLUTSetting lut;
  ASSERT_EQ(lut.ColorMapLUT(scene, 2, &base), LUT_OK);
  KivColorArray out;
  ASSERT_EQ(Shade(scene, 2, SceneLighting(scene, 2.0f, 1.0f, 0.0f, 0.0f), &out), LUT_OK);
  KivVector3dArray normals;
  Kiv3DDataOperation operation;
  ASSERT_EQ(operation.ComputeNormals(scene, &normals, nullptr), 0);
  int checked = 0, wrapped = 0;
  for (int i = 0; i < base.Length(); ++i) {
    // Where the normal is missing the diffuse term is NaN, and NaN x 0 keeps the sum NaN: 0.
    if (std::isnan(normals[i].X())) continue;
    for (int k = 0; k < 3; ++k) {
      const int b = base.Data()[3 * i + k];
      ASSERT_EQ(out.Data()[3 * i + k], (2 * b) % 256) << i;
      wrapped += 2 * b > 255;
      ++checked;
    }
  }
  EXPECT_GT(checked, 0);
  EXPECT_GT(wrapped, 0) << "some base bytes above 127 wrap";
}

TEST(PhongLightingMethod, CoefficientsAndMode10AtTheirLimitsRun) {
  KivRangeImage scene = shade_example::MakeShadingScene();
  KivColorArray out;
  EXPECT_EQ(Shade(scene, 10, SceneLighting(scene, 10.0f, 1.0f, 1.0f, 1.0f), &out), LUT_OK);
  EXPECT_EQ(Shade(scene, 0, SceneLighting(scene, 1e-6f, 0.0f, 0.0f, 1.0f), &out), LUT_OK);
}

TEST(PhongLightingMethod, ComputeNormalsFailureIsPassedOn) {
  LogCapture capture;
  KivRangeImage image(6, 4, KIV_DATA_U16);
  image.SetOffset(0.0, std::numeric_limits<double>::infinity(), 0.0);
  KivColorArray out;
  out.Create(2, 3);
  EXPECT_EQ(Shade(image, 1, {{1, 1, 10}, {2, 2, 10}, 1, 1, 0, 0}, &out),
            kKivPlatformInvalidArgument);
  EXPECT_EQ(out.Length(), 2);
  // Neither the base colouring nor the end message.
  EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorNormalMap:696:start"}));

  // A multi-channel pixel matrix passes the method's checks; the platform refuses its normals.
  KivRangeImage multi(4, 3, KIV_DATA_U8);
  multi.Mat() = cv::Mat(3, 4, CV_8UC3, cv::Scalar::all(5));
  EXPECT_EQ(Shade(multi, 1, {{1, 1, 10}, {2, 2, 10}, 1, 1, 0, 0}, &out),
            kKivPlatformInvalidArgument);
}

TEST(PhongLightingMethod, BaseColouringFailureIsPassedOn) {
  LogCapture capture;
  KivRangeImage image(6, 4, KIV_DATA_U16);
  image.SetType(2);  // only the base colouring looks at the type
  KivColorArray out;
  EXPECT_EQ(Shade(image, 1, {{1, 1, 10}, {2, 2, 10}, 1, 1, 0, 0}, &out), LUT_ERR_RANGE_IMAGE_TYPE);
  EXPECT_EQ(capture.Tags(),
            (std::vector<std::string>{"SetColorNormalMap:696:start", "ColorMapLUT:447:start"}));
  EXPECT_EQ(out.Length(), 0);
}

TEST(PhongLightingMethod, SuccessLogsTheBaseColouringAsACallOfItsOwn) {
  KivRangeImage image(7, 5, KIV_DATA_F32);
  LogCapture capture;
  KivColorArray out;
  ASSERT_EQ(Shade(image, 3, {{1, 1, 10}, {2, 2, 10}, 1, 1, 0, 0}, &out), LUT_OK);
  const std::vector<std::string> tags = {
      "SetColorNormalMap:696:start", "ColorMapLUT:447:start",
      std::string("ColorMapLUT:463:") + kNonLinearEndMessage,
      std::string("SetColorNormalMap:765:") + kLightingEndMessage};
  EXPECT_EQ(capture.Tags(), tags);
  for (const testing_support::LogLine& line : capture.Lines()) {
    EXPECT_EQ(line.className, "KivLUTSetting");
  }
}

TEST(PhongLightingMethod, EachStageFailureHasItsCode) {
  const std::string start = "SetColorNormalMap:696:start";
  const std::string base = "ColorMapLUT:447:start";
  const std::string baseEnd = std::string("ColorMapLUT:463:") + kNonLinearEndMessage;
  const struct {
    FaultStage stage;
    long expected;
    std::vector<std::string> tags;
  } cases[] = {
      {FaultStage::kPointGrid, LUT_ERR_NORMAL_MAP_FAILED, {start}},
      {FaultStage::kLightingOutput, LUT_ERR_OUTPUT_FAILED, {start, base, baseEnd}},
      {FaultStage::kLighting, LUT_ERR_NORMAL_MAP_FAILED, {start, base, baseEnd}},
  };
  KivRangeImage image(9, 4, KIV_DATA_S16);
  for (const auto& c : cases) {
    LogCapture capture;
    KivColorArray out;
    {
      ScopedFault fault(c.stage);
      EXPECT_EQ(Shade(image, 1, {{1, 1, 10}, {2, 2, 10}, 1, 1, 0, 0}, &out), c.expected);
    }
    EXPECT_EQ(capture.Tags(), c.tags);
    EXPECT_EQ(Shade(image, 1, {{1, 1, 10}, {2, 2, 10}, 1, 1, 0, 0}, &out), LUT_OK);
  }

  LogCapture capture;
  EXPECT_EQ(Shade(image, 1, {{1, 1, 10}, {2, 2, 10}, 1, 1, 0, 0}, nullptr), LUT_ERR_OUTPUT_FAILED);
  EXPECT_EQ(capture.Tags(), (std::vector<std::string>{start, base, baseEnd}));
}

TEST(PhongLightingMethod, InputsAreNotChanged) {
  std::mt19937_64 random(53);
  KivRangeImage image = RandomRangeImage<int16_t>(31, 17, random);
  const KivRangeImage before = image.DeepCopy();
  KivVector3d light(3, 4, 500), eye(5, 6, 700);
  KivLUTSetting lut;
  KivColorArray out;
  ASSERT_EQ(lut.SetColorNormalMap(image, light, eye, 2, 1.5f, 0.2f, 0.3f, 0.4f, &out), LUT_OK);
  EXPECT_EQ(cv::norm(image.Mat(), before.Mat(), cv::NORM_INF), 0.0);
  EXPECT_EQ(light, KivVector3d(3, 4, 500));
  EXPECT_EQ(eye, KivVector3d(5, 6, 700));
}

// ---------------------------------------------------------------------------------------------
// The example's pictures.

TEST(ShadingPictures, WriteAndReadBackEqualToTheArrays) {
  KivColorArray normalMap, phong;
  ASSERT_EQ(shade_example::RenderShadings(&normalMap, &phong), LUT_OK);
  ASSERT_EQ(normalMap.Length(), shade_example::kWidth * shade_example::kHeight);
  ASSERT_EQ(phong.Length(), shade_example::kWidth * shade_example::kHeight);
  // One folder per process: ctest may run the three chunk counts at once.
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("kivlut_shading_" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  const struct {
    const char* file;
    const KivColorArray& colours;
  } pictures[] = {{"shading_normal_map.png", normalMap}, {"shading_phong.png", phong}};
  for (const auto& picture : pictures) {
    const std::string path = (dir / picture.file).string();
    ASSERT_TRUE(cv::imwrite(path, shade_example::AsPicture(picture.colours))) << path;
    const cv::Mat read = cv::imread(path, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(read.type(), CV_8UC3) << path;
    ASSERT_EQ(read.cols, shade_example::kWidth);
    ASSERT_EQ(read.rows, shade_example::kHeight);
    ASSERT_TRUE(read.isContinuous());
    EXPECT_EQ(std::memcmp(read.data, picture.colours.Data(), 3 * picture.colours.Length()), 0)
        << path;
  }
  std::filesystem::remove_all(dir);
}

TEST(ShadingPictures, DocsPicturesAreTheExamplesOutput) {
  KivColorArray normalMap, phong;
  ASSERT_EQ(shade_example::RenderShadings(&normalMap, &phong), LUT_OK);
  const std::filesystem::path docs =
      std::filesystem::path(__FILE__).parent_path() / ".." / ".." / "docs";
  const struct {
    const char* file;
    const KivColorArray& colours;
  } pictures[] = {{"shading_normal_map.png", normalMap}, {"shading_phong.png", phong}};
  for (const auto& picture : pictures) {
    const cv::Mat read = cv::imread((docs / picture.file).string(), cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(read.empty()) << (docs / picture.file);
    ASSERT_EQ(read.type(), CV_8UC3);
    ASSERT_EQ(read.total(), static_cast<size_t>(picture.colours.Length()));
    EXPECT_EQ(std::memcmp(read.data, picture.colours.Data(), 3 * picture.colours.Length()), 0)
        << picture.file << ": regenerate with shade_range_image docs";
  }
}

}  // namespace
}  // namespace KIVMV
