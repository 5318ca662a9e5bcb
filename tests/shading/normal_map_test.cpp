#include "shading/normal_map.h"

#include <gtest/gtest.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kiv3DDataOperation.h"
#include "KivLUTSetting.h"
#include "common/fault_injection.h"
#include "common/load_time_config.h"
#include "frame/end_messages.h"
#include "range/range_test_support.h"
#include "support/log_capture.h"
#include "support/reference_helpers.h"

namespace KIVMV {
namespace {

using testing_support::ForEachPixelType;
using testing_support::LogCapture;
using testing_support::RandomRangeImage;
using testing_support::TestSizes;
using testing_support::X86Truncate;

using Bytes = std::vector<uint8_t>;

constexpr float kNaNf = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfF = std::numeric_limits<float>::infinity();

// ---------------------------------------------------------------------------------------------
// A plain restatement of the normal-map colouring, straight from the rules.

std::vector<int32_t> RefBoundaries(int n, int workers) {
  const int c = (n - 1) / workers + 1;
  std::vector<int32_t> list{0};
  long long cur = 0;
  for (int k = 0; k < workers && cur < n; ++k) {
    cur += c;
    if (cur >= n) cur = n - 1;
    list.push_back(static_cast<int32_t>(cur));
  }
  return list;
}

uint8_t RefByte(float v) {
  const double scaled = (static_cast<double>(v) * 0.5 + 0.5) * 255.0;
  return static_cast<uint8_t>(static_cast<uint64_t>(X86Truncate(scaled)) & 0xFF);
}

// `out` starts as the output held before the call; n entries of `stride` bytes.
void RefNormalMap(const std::vector<float>& normals, int workers, Bytes& out) {
  const int n = static_cast<int>(normals.size() / 3);
  const std::vector<int32_t> b = RefBoundaries(n, workers);
  for (size_t j = 0; j + 1 < b.size(); ++j) {
    for (int i = b[j]; i < b[j + 1]; ++i) {
      const int k = i - b[j];
      const float x = normals[3 * static_cast<size_t>(k)];
      const float d = std::fabs(x - FLT_MAX);
      const bool black = !(static_cast<double>(d) > 1e-8) && !std::isfinite(x);
      uint8_t* colour = &out[3 * static_cast<size_t>(i)];
      if (black) {
        colour[0] = colour[1] = colour[2] = 0;
      } else {
        colour[0] = RefByte(normals[3 * static_cast<size_t>(i) + 2]);
        colour[1] = RefByte(normals[3 * static_cast<size_t>(i) + 1]);
        colour[2] = RefByte(normals[3 * static_cast<size_t>(i)]);
      }
    }
  }
}

KivVector3dArray ToArray(const std::vector<float>& floats) {
  KivVector3dArray array;
  array.SetSize(static_cast<int>(floats.size() / 3));
  for (int i = 0; i < array.Length(); ++i) {
    const size_t at = 3 * static_cast<size_t>(i);
    array[i] = KivVector3d(floats[at], floats[at + 1], floats[at + 2]);
  }
  return array;
}

std::vector<float> ToFloats(const KivVector3dArray& array) {
  std::vector<float> floats;
  for (int i = 0; i < array.Length(); ++i) {
    floats.push_back(array[i].X());
    floats.push_back(array[i].Y());
    floats.push_back(array[i].Z());
  }
  return floats;
}

Bytes ArrayBytes(const KivColorArray& colours) {
  const size_t size = static_cast<size_t>(colours.Length()) * colours.Channel();
  return Bytes(colours.Data(), colours.Data() + size);
}

// Mostly unit normals, with NaN normals (what the platform gives where there is none), infinities,
// FLT_MAX and components outside [-1, 1].
std::vector<float> RandomNormals(int n, std::mt19937_64& random) {
  std::uniform_int_distribution<int> pick(0, 99);
  std::normal_distribution<float> direction(0.0f, 1.0f);
  std::vector<float> floats;
  for (int i = 0; i < n; ++i) {
    const int kind = pick(random);
    float v[3];
    if (kind < 5) {
      v[0] = v[1] = v[2] = kNaNf;
    } else if (kind < 7) {
      v[0] = kInfF, v[1] = -kInfF, v[2] = 0.5f;
    } else if (kind < 8) {
      v[0] = FLT_MAX, v[1] = -FLT_MAX, v[2] = 1.0f;
    } else if (kind < 10) {
      v[0] = 2.5f, v[1] = -1.7f, v[2] = 1e20f;
    } else {
      for (float& c : v) c = direction(random);
      const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
      for (float& c : v) c = length > 0.0f ? c / length : 0.0f;
    }
    floats.insert(floats.end(), v, v + 3);
  }
  return floats;
}

// ---------------------------------------------------------------------------------------------
// The small helpers.

TEST(NormalMap, ComponentByteIsTruncatedWithoutClamping) {
  const struct {
    float v;
    int expected;
  } cases[] = {
      {1.0f, 255},  {0.0f, 127},   {-1.0f, 0},  {0.5f, 191},  {-0.5f, 63},
      {2.0f, 126},  {-2.0f, 129},  {kNaNf, 0},  {kInfF, 0},   {-kInfF, 0},
      {FLT_MAX, 0}, {-FLT_MAX, 0}, {3.0f, 254}, {1e-7f, 127}, {0.99999994f, 254},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(NormalComponentByte(c.v), c.expected) << c.v;
    EXPECT_EQ(NormalComponentByte(c.v), RefByte(c.v)) << c.v;
  }
}

TEST(NormalMap, OnlyANaNXBlackens) {
  EXPECT_TRUE(BlackensNormalEntry(kNaNf));
  EXPECT_TRUE(BlackensNormalEntry(-kNaNf));
  EXPECT_FALSE(BlackensNormalEntry(kInfF));
  EXPECT_FALSE(BlackensNormalEntry(-kInfF));
  EXPECT_FALSE(BlackensNormalEntry(FLT_MAX));
  EXPECT_FALSE(BlackensNormalEntry(-FLT_MAX));
  EXPECT_FALSE(BlackensNormalEntry(0.0f));
  EXPECT_FALSE(BlackensNormalEntry(1.0f));
}

TEST(NormalMap, PixelProductWrapsIn32Bits) {
  EXPECT_EQ(WrappedPixelProduct(0, 5), 0);
  EXPECT_EQ(WrappedPixelProduct(5, 0), 0);
  EXPECT_EQ(WrappedPixelProduct(3, 4), 12);
  EXPECT_EQ(WrappedPixelProduct(65536, 65536), 0);
  EXPECT_EQ(WrappedPixelProduct(-1, 5), -5);
  EXPECT_EQ(WrappedPixelProduct(65536, 32768), INT32_MIN);
}

TEST(NormalMap, ChunkBoundaries) {
  const struct {
    int n, workers;
    std::vector<int32_t> expected;
  } cases[] = {
      {10, 4, {0, 3, 6, 9, 9}}, {8, 4, {0, 2, 4, 6, 7}}, {5, 1, {0, 4}},
      {1, 1, {0, 0}},           {1, 4, {0, 0, 0, 0, 0}}, {3, 7, {0, 1, 2, 2, 2, 2, 2, 2}},
      {7, 3, {0, 3, 6, 6}},     {2, 2, {0, 1, 1}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(NormalMapChunkBoundaries(c.n, c.workers), c.expected) << c.n << " / " << c.workers;
  }
  for (int n = 1; n < 200; n += 7) {
    for (int workers = 1; workers < 40; workers += 3) {
      const std::vector<int32_t> b = NormalMapChunkBoundaries(n, workers);
      EXPECT_EQ(b, RefBoundaries(n, workers));
      ASSERT_EQ(b.size(), static_cast<size_t>(workers) + 1);
      EXPECT_EQ(b.back(), n - 1);
      for (size_t j = 1; j < b.size(); ++j) EXPECT_LE(b[j - 1], b[j]);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The colouring.

TEST(NormalMap, KnownNormals) {
  // The last entry is never coloured, so each normal is followed by one more.
  const std::vector<float> floats = {0, 0, 1, 1, 0, 0, 0, -1, 0, -1, 0, 0, 0, 0, 0};
  KivVector3dArray normals = ToArray(floats);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
  ASSERT_EQ(out.Length(), 5);
  ASSERT_EQ(out.Channel(), 3);
  // With more than one chunk, position 1 of a later chunk reads the x of entry 1 (1.0): no NaN
  // anywhere, so nothing is blackened.
  const Bytes expected = {255, 127, 127, 127, 127, 255, 127, 0, 127, 127, 127, 0, 0, 0, 0};
  EXPECT_EQ(ArrayBytes(out), expected);
}

TEST(NormalMap, OneNormalColoursNothing) {
  KivVector3dArray normals = ToArray({0, 0, 1});
  KivColorArray out;
  out.Create(1, 3);
  out.Data()[0] = 11, out.Data()[1] = 22, out.Data()[2] = 33;
  KivLUTSetting lut;
  EXPECT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
  EXPECT_EQ(ArrayBytes(out), (Bytes{11, 22, 33}));
}

TEST(NormalMap, LastEntryKeepsWhatTheOutputHeld) {
  std::mt19937_64 random(5);
  for (int n : {2, 3, 10, 101, 1000}) {
    KivVector3dArray normals = ToArray(RandomNormals(n, random));
    KivColorArray out;
    out.Create(n, 3);
    std::fill(out.Data(), out.Data() + 3 * n, uint8_t{0xAB});
    KivLUTSetting lut;
    ASSERT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
    const uint8_t* last = out.Data() + 3 * (n - 1);
    EXPECT_EQ(last[0], 0xAB);
    EXPECT_EQ(last[1], 0xAB);
    EXPECT_EQ(last[2], 0xAB);

    // A new output: the last entry is what Create put there (zeros on this platform).
    KivColorArray fresh;
    ASSERT_EQ(lut.SetColorNormalMap(normals, &fresh), LUT_OK);
    EXPECT_EQ(fresh.Data()[3 * (n - 1)], 0);
  }
}

TEST(NormalMap, NaNInXBlackensThatPositionOfEveryChunk) {
  const int workers = ConfiguredWorkerCount();
  const int n = 4 * workers + 3;
  const std::vector<int32_t> b = RefBoundaries(n, workers);
  ASSERT_GE(b[1] - b[0], 3) << "chunks of at least three entries";
  // Unit normals (0, 0, 1) everywhere, and a NaN x at position 1 of the array.
  std::vector<float> floats;
  for (int i = 0; i < n; ++i) floats.insert(floats.end(), {0.0f, 0.0f, 1.0f});
  floats[3 * 1] = kNaNf;
  KivVector3dArray normals = ToArray(floats);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
  const uint8_t* bytes = out.Data();
  for (size_t j = 0; j + 1 < b.size(); ++j) {
    for (int i = b[j]; i < b[j + 1]; ++i) {
      const uint8_t* c = bytes + 3 * i;
      if (i - b[j] == 1) {
        EXPECT_EQ(Bytes(c, c + 3), (Bytes{0, 0, 0})) << "entry " << i << " of chunk " << j;
      } else {
        EXPECT_EQ(Bytes(c, c + 3), (Bytes{255, 127, 127})) << "entry " << i;
      }
    }
  }

  // A NaN x past the first chunk blackens nothing but its own byte 2 conversion (NaN gives 0).
  if (workers > 1) {
    floats[3 * 1] = 0.0f;
    const int inSecondChunk = b[1] + 1;
    floats[3 * static_cast<size_t>(inSecondChunk)] = kNaNf;
    normals = ToArray(floats);
    ASSERT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
    const uint8_t* c = out.Data() + 3 * inSecondChunk;
    EXPECT_EQ(Bytes(c, c + 3), (Bytes{255, 127, 0}));
    for (int i = 0; i < n - 1; ++i) {
      if (i == inSecondChunk) continue;
      const uint8_t* other = out.Data() + 3 * i;
      EXPECT_EQ(Bytes(other, other + 3), (Bytes{255, 127, 127})) << "entry " << i;
    }
  }
}

TEST(NormalMap, FltMaxXIsColouredWithByteTwoZero) {
  const std::vector<float> floats = {FLT_MAX, 0, 1, 0, 0, 1};
  KivVector3dArray normals = ToArray(floats);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
  EXPECT_EQ(Bytes(out.Data(), out.Data() + 3), (Bytes{255, 127, 0}));
}

TEST(NormalMap, MatchesTheReferenceOnRandomNormals) {
  std::mt19937_64 random(17);
  const int workers = ConfiguredWorkerCount();
  for (int n : {1, 2, 3, 7, 8, 10, 33, 101, 1000, 4097, 640 * 480}) {
    const std::vector<float> floats = RandomNormals(n, random);
    KivVector3dArray normals = ToArray(floats);
    KivColorArray out;
    out.Create(n, 3);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int i = 0; i < 3 * n; ++i) out.Data()[i] = static_cast<uint8_t>(byte(random));
    Bytes expected = ArrayBytes(out);
    RefNormalMap(floats, workers, expected);
    KivLUTSetting lut;
    ASSERT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK) << n;
    EXPECT_EQ(ArrayBytes(out), expected) << n;
  }
}

TEST(NormalMap, ParallelBodyMatchesSerialChunksWhateverTheRangeItIsGiven) {
  std::mt19937_64 random(23);
  for (int workers : {1, 3, 7, 64}) {
    const int n = 1001;
    const std::vector<float> floats = RandomNormals(n, random);
    const std::vector<int32_t> boundaries = NormalMapChunkBoundaries(n, workers);
    const int chunks = static_cast<int>(boundaries.size()) - 1;
    Bytes serial(3 * n, 9), whole(3 * n, 9), split(3 * n, 9);
    ColourNormalMapSerial(floats.data(), serial.data(), boundaries);
    // One call with every chunk at once, and one parallel loop of single chunks.
    const ColorNormalMapBody wholeBody(floats.data(), whole.data(), boundaries);
    wholeBody(tbb::blocked_range<int>(0, chunks, chunks));
    tbb::parallel_for(tbb::blocked_range<int>(0, chunks, 1),
                      ColorNormalMapBody(floats.data(), split.data(), boundaries),
                      tbb::simple_partitioner());
    Bytes expected(3 * n, 9);
    RefNormalMap(floats, workers, expected);
    EXPECT_EQ(serial, expected) << workers;
    EXPECT_EQ(whole, expected) << workers;
    EXPECT_EQ(split, expected) << workers;
  }
}

// ---------------------------------------------------------------------------------------------
// The output.

TEST(NormalMap, OutputOfTheRightLengthIsUsedInPlace) {
  std::mt19937_64 random(29);
  const int n = 37;
  const std::vector<float> floats = RandomNormals(n, random);
  KivVector3dArray normals = ToArray(floats);
  KivLUTSetting lut;

  // Four channels: written at 3 bytes an entry, the rest of the buffer untouched.
  KivColorArray four;
  four.Create(n, 4);
  std::fill(four.Data(), four.Data() + 4 * n, uint8_t{0x5A});
  const uint8_t* before = four.Data();
  Bytes expected(4 * n, 0x5A);
  RefNormalMap(floats, ConfiguredWorkerCount(), expected);
  ASSERT_EQ(lut.SetColorNormalMap(normals, &four), LUT_OK);
  EXPECT_EQ(four.Data(), before);
  EXPECT_EQ(four.Channel(), 4);
  EXPECT_EQ(four.Length(), n);
  EXPECT_EQ(Bytes(four.Data(), four.Data() + 4 * n), expected);

  // One channel would be overrun: re-created with three.
  KivColorArray one;
  one.Create(n, 1);
  ASSERT_EQ(lut.SetColorNormalMap(normals, &one), LUT_OK);
  EXPECT_EQ(one.Channel(), 3);
  EXPECT_EQ(one.Length(), n);

  // Another length: re-created with n entries of three.
  KivColorArray other;
  other.Create(n + 5, 4);
  ASSERT_EQ(lut.SetColorNormalMap(normals, &other), LUT_OK);
  EXPECT_EQ(other.Channel(), 3);
  EXPECT_EQ(other.Length(), n);
  Bytes fresh(3 * n, 0);
  RefNormalMap(floats, ConfiguredWorkerCount(), fresh);
  EXPECT_EQ(ArrayBytes(other), fresh);
}

TEST(NormalMap, NormalsAreNotChanged) {
  std::mt19937_64 random(31);
  const std::vector<float> floats = RandomNormals(333, random);
  KivVector3dArray normals = ToArray(floats);
  KivColorArray out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
  const std::vector<float> after = ToFloats(normals);
  ASSERT_EQ(after.size(), floats.size());
  EXPECT_EQ(std::memcmp(after.data(), floats.data(), floats.size() * sizeof(float)), 0);
}

// ---------------------------------------------------------------------------------------------
// Failures and the log.

TEST(NormalMap, NoNormalsIsParamOneAndLogsOnlyStart) {
  LogCapture capture;
  KivLUTSetting lut;
  KivVector3dArray empty;
  KivColorArray out;
  out.Create(4, 3);
  std::fill(out.Data(), out.Data() + 12, uint8_t{7});
  EXPECT_EQ(lut.SetColorNormalMap(empty, &out), LUT_ERR_PARAM_1);
  EXPECT_EQ(lut.SetColorNormalMap(empty, nullptr), LUT_ERR_PARAM_1);
  EXPECT_EQ(ArrayBytes(out), Bytes(12, 7));
  EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorNormalMap:567:start",
                                                      "SetColorNormalMap:567:start"}));
}

TEST(NormalMap, SuccessLogsStartAndEnd) {
  LogCapture capture;
  KivLUTSetting lut;
  KivVector3dArray normals = ToArray({0, 0, 1, 0, 1, 0, 1, 0, 0});
  KivColorArray out;
  ASSERT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
  const std::vector<testing_support::LogLine> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, "start");
  EXPECT_EQ(lines[0].className, "KivLUTSetting");
  EXPECT_EQ(lines[0].methodName, "SetColorNormalMap");
  EXPECT_EQ(lines[0].line, 567);
  EXPECT_EQ(lines[1].message, kNormalMapEndMessage);
  EXPECT_EQ(lines[1].className, "KivLUTSetting");
  EXPECT_EQ(lines[1].methodName, "SetColorNormalMap");
  EXPECT_EQ(lines[1].line, 580);
}

TEST(NormalMap, NullOutputIsOutputFailedWithoutTheEndMessage) {
  LogCapture capture;
  KivLUTSetting lut;
  KivVector3dArray normals = ToArray({0, 0, 1, 0, 1, 0});
  EXPECT_EQ(lut.SetColorNormalMap(normals, nullptr), LUT_ERR_OUTPUT_FAILED);
  EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorNormalMap:567:start"}));
}

TEST(NormalMap, EachStageFailureHasItsCode) {
  const struct {
    FaultStage stage;
    long expected;
  } cases[] = {
      {FaultStage::kOutputSizing, LUT_ERR_OUTPUT_FAILED},
      {FaultStage::kNormalMap, LUT_ERR_NORMAL_MAP_FAILED},
  };
  KivVector3dArray normals = ToArray({0, 0, 1, 0, 1, 0, 1, 0, 0});
  for (const auto& c : cases) {
    LogCapture capture;
    KivLUTSetting lut;
    KivColorArray out;
    {
      ScopedFault fault(c.stage);
      EXPECT_EQ(lut.SetColorNormalMap(normals, &out), c.expected);
    }
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorNormalMap:567:start"}));
    // Without the fault the same call succeeds.
    EXPECT_EQ(lut.SetColorNormalMap(normals, &out), LUT_OK);
  }

  // Through the range-image method too.
  KivRangeImage image(4, 3, KIV_DATA_F32);
  for (const auto& c : cases) {
    LogCapture capture;
    KivLUTSetting lut;
    KivColorArray out;
    {
      ScopedFault fault(c.stage);
      EXPECT_EQ(lut.SetColorNormalMapPhong(image, &out), c.expected);
    }
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorNormalMapPhong:587:start"}));
  }
}

// ---------------------------------------------------------------------------------------------
// SetColorNormalMapPhong: the normal map of the platform's normals of a range image.

TEST(NormalMapOfRangeImage, EmptyImage) {
  LogCapture capture;
  KivLUTSetting lut;
  KivColorArray out;
  for (const auto& size : {std::pair<int, int>{0, 5}, {5, 0}, {0, 0}}) {
    KivRangeImage image(size.first, size.second, KIV_DATA_U16);
    EXPECT_EQ(lut.SetColorNormalMapPhong(image, &out), LUT_ERR_RANGE_IMAGE_EMPTY);
  }
  EXPECT_EQ(out.Length(), 0);
  for (const std::string& tag : capture.Tags()) EXPECT_EQ(tag, "SetColorNormalMapPhong:587:start");
  EXPECT_EQ(capture.Tags().size(), 3u);
}

TEST(NormalMapOfRangeImage, ComputeNormalsFailureIsPassedOn) {
  LogCapture capture;
  KivLUTSetting lut;
  KivRangeImage image(6, 4, KIV_DATA_F32);
  image.SetResolution(std::numeric_limits<double>::quiet_NaN(), 1.0, 1.0);
  KivColorArray out;
  out.Create(3, 3);
  std::fill(out.Data(), out.Data() + 9, uint8_t{0x42});
  EXPECT_EQ(lut.SetColorNormalMapPhong(image, &out), kKivPlatformInvalidArgument);
  EXPECT_EQ(ArrayBytes(out), Bytes(9, 0x42));
  EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorNormalMapPhong:587:start"}));

  // A matrix that does not match the image is refused by the platform as well.
  KivRangeImage mismatched(6, 4, KIV_DATA_U8);
  mismatched.Mat() = cv::Mat(4, 6, CV_8UC3, cv::Scalar::all(1));
  EXPECT_EQ(lut.SetColorNormalMapPhong(mismatched, &out), kKivPlatformInvalidArgument);
}

// The real sensor frames are checked in phong_lighting_test, which links the image reader.
TEST(NormalMapOfRangeImage, MatchesTheReferenceOnEveryPixelType) {
  std::mt19937_64 random(41);
  const int workers = ConfiguredWorkerCount();
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    for (const auto& [width, height] : TestSizes()) {
      KivRangeImage image = RandomRangeImage<T>(width, height, random);
      image.SetResolution(0.5, 0.25, std::is_floating_point_v<T> ? 1.0 : 0.01);
      image.SetOffset(3.0, -2.0, 10.0);
      KivVector3dArray normals;
      Kiv3DDataOperation operation;
      ASSERT_EQ(operation.ComputeNormals(image, &normals, nullptr), 0);
      const int n = width * height;
      Bytes expected(3 * static_cast<size_t>(n), 0);
      RefNormalMap(ToFloats(normals), workers, expected);

      LogCapture capture;
      KivLUTSetting lut;
      KivColorArray out;
      ASSERT_EQ(lut.SetColorNormalMapPhong(image, &out), LUT_OK);
      EXPECT_EQ(ArrayBytes(out), expected)
          << "type " << image.DataType() << ", " << width << "x" << height;
      const std::vector<std::string> tags = {
          "SetColorNormalMapPhong:587:start",
          std::string("SetColorNormalMapPhong:598:") + kNormalMapEndMessage};
      EXPECT_EQ(capture.Tags(), tags);
    }
  });
}

}  // namespace
}  // namespace KIVMV
