#include "image/grey_linear.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "KivLUTSetting.h"
#include "common/fault_injection.h"
#include "frame/end_messages.h"
#include "frame/kiv_lut_setting_impl.h"
#include "image/image_test_support.h"
#include "support/log_capture.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

using testing_support::GreyImage;
using testing_support::GreyImageFrom;
using testing_support::GreyImageSizes;
using testing_support::LoadRealGreyFrames;
using testing_support::LogCapture;
using testing_support::RandomGreyImage;

// ---------------------------------------------------------------------------------------------
// A plain serial restatement of the colouring, one pixel at a time, straight from the rules.

// Truncation to 64 bits as x86-64 does it: NaN and out of range give INT64_MIN.
int64_t RefTruncate(double x) {
  if (!(x >= -9223372036854775808.0 && x < 9223372036854775808.0)) return INT64_MIN;
  return static_cast<int64_t>(x);
}

uint8_t RefLowByte(int64_t x) { return static_cast<uint8_t>(static_cast<uint64_t>(x) & 0xFF); }

const ColourTable& RefTable(int mapType) {
  switch (mapType) {
    case 1:
      return kRainbowTable;
    case 2:
      return kHotMetalTable;
    case 3:
      return kDivergingTable;
    case 4:
      return kIsoluminantTable;
    case 5:
      return kRgbTable;
    case 6:
      return kJetTable;
    default:
      return kGreyTable;
  }
}

// 8 bits: the grey level itself (map 0 one channel, maps 7 to 10 three copies) or the table entry
// of that level (maps 1 to 6). 16 bits: stretched between the image's minimum and maximum, the
// table entry, and for map 0 only its first byte.
cv::Mat RefLinear(const cv::Mat& grey, int mapType) {
  const int channels = mapType == 0 ? 1 : 3;
  cv::Mat out(grey.rows, grey.cols, CV_8UC(channels));
  double minimum = std::numeric_limits<double>::infinity();
  double maximum = -minimum;
  if (grey.depth() == CV_16U) {
    for (int y = 0; y < grey.rows; ++y) {
      for (int x = 0; x < grey.cols; ++x) {
        minimum = std::min(minimum, static_cast<double>(grey.at<uint16_t>(y, x)));
        maximum = std::max(maximum, static_cast<double>(grey.at<uint16_t>(y, x)));
      }
    }
  }
  for (int y = 0; y < grey.rows; ++y) {
    for (int x = 0; x < grey.cols; ++x) {
      ColourEntry entry{};
      if (grey.depth() == CV_8U) {
        const uint8_t g = grey.at<uint8_t>(y, x);
        entry = mapType >= 1 && mapType <= 6 ? RefTable(mapType)[g] : ColourEntry{g, g, g};
      } else {
        const double v = grey.at<uint16_t>(y, x);
        int index = 0;
        if (v > maximum) {
          index = 255;
        } else if (v < minimum) {
          index = 0;
        } else {
          index = RefLowByte(RefTruncate((v - minimum) / (maximum - minimum) * 255.0));
        }
        entry = RefTable(mapType)[static_cast<size_t>(index)];
      }
      uint8_t* at = out.ptr<uint8_t>(y) + channels * x;
      for (int k = 0; k < channels; ++k) at[k] = entry[static_cast<size_t>(k)];
    }
  }
  return out;
}

// Same type, size and pixel bytes (row padding ignored).
::testing::AssertionResult SameImage(const cv::Mat& expected, const cv::Mat& actual) {
  if (expected.type() != actual.type() || expected.size() != actual.size()) {
    return ::testing::AssertionFailure()
           << "type/size " << actual.type() << " " << actual.cols << "x" << actual.rows
           << ", expected " << expected.type() << " " << expected.cols << "x" << expected.rows;
  }
  const size_t rowBytes = expected.cols * expected.elemSize();
  for (int y = 0; y < expected.rows; ++y) {
    const uint8_t* e = expected.ptr<uint8_t>(y);
    const uint8_t* a = actual.ptr<uint8_t>(y);
    for (size_t i = 0; i < rowBytes; ++i) {
      if (e[i] != a[i]) {
        return ::testing::AssertionFailure()
               << "row " << y << " byte " << i << ": " << int{a[i]} << ", expected " << int{e[i]};
      }
    }
  }
  return ::testing::AssertionSuccess();
}

bool AllBytesAre(const std::vector<uint8_t>& bytes, uint8_t value) {
  return std::all_of(bytes.begin(), bytes.end(), [value](uint8_t b) { return b == value; });
}

// A destination around a caller's padded buffer, already holding pixels: the call must replace its
// matrix and never write the buffer.
struct WrappedDestination {
  static constexpr uint8_t kFill = 0x5A;
  std::vector<uint8_t> buffer = std::vector<uint8_t>(3 * (4 * 3 + 5), kFill);
  KivImage image{buffer.data(), 4, 3, 3, 4 * 3 + 5, KIV_IMAGE_8U};
};

// Colours `grey` through the public method and compares with the reference; the source (pixels
// and any padding of its caller's buffer) stays as it was, and the wrapped destination's buffer
// is never written.
void ExpectMatchesReference(GreyImage& grey, int mapType, const std::string& what) {
  const KivImage before = grey.image.DeepCopy();
  const std::vector<uint8_t> bufferBefore = grey.buffer;
  WrappedDestination dst;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearSetColorLUT(grey.image, &dst.image, mapType), LUT_OK) << what;
  EXPECT_TRUE(SameImage(RefLinear(before.Mat(), mapType), dst.image.Mat())) << what;
  EXPECT_TRUE(AllBytesAre(dst.buffer, WrappedDestination::kFill)) << what;
  EXPECT_TRUE(SameImage(before.Mat(), grey.image.Mat())) << what;
  EXPECT_EQ(grey.buffer, bufferBefore) << what;
}

// A 16-bit image whose values lie in [low, high], both present.
std::unique_ptr<GreyImage> NarrowSixteenBitImage(int width, int height, int padding, int low,
                                                 int high, std::mt19937_64& random) {
  auto grey = RandomGreyImage<uint16_t>(width, height, padding, random);
  std::uniform_int_distribution<int> value(low, high);
  cv::Mat& pixels = grey->image.Mat();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x)
      pixels.at<uint16_t>(y, x) = static_cast<uint16_t>(value(random));
  }
  pixels.at<uint16_t>(0, 0) = static_cast<uint16_t>(low);
  pixels.at<uint16_t>(height - 1, width - 1) = static_cast<uint16_t>(high);
  return grey;
}

std::string Describe(int width, int height, int padding, int mapType) {
  return std::to_string(width) + "x" + std::to_string(height) + " padding " +
         std::to_string(padding) + " map " + std::to_string(mapType);
}

// ---------------------------------------------------------------------------------------------
// Against the reference.

TEST(GreyLinear, EightBitMatchesReference) {
  std::mt19937_64 random(11);
  for (const auto& [width, height] : GreyImageSizes()) {
    for (int padding : {0, 3}) {
      auto grey = RandomGreyImage<uint8_t>(width, height, padding, random);
      for (int mapType = 0; mapType <= 10; ++mapType) {
        ExpectMatchesReference(*grey, mapType, Describe(width, height, padding, mapType));
      }
    }
  }
}

// A destination that alone owns a buffer of the result's shape is written in place; one that shares
// its pixels with another image, or wraps a caller's memory, gets a new matrix and the old pixels
// stay as they were.
TEST(GreyLinear, EightBitDestinationBufferIsReusedOnlyWhenItsOwnAlone) {
  std::mt19937_64 random(41);
  auto grey = RandomGreyImage<uint8_t>(37, 21, 0, random);
  const cv::Mat want = RefLinear(grey->image.Mat(), kJetMap);
  auto same = [&](const KivImage& image) {
    return image.Mat().type() == want.type() && image.Mat().size() == want.size() &&
           cv::norm(image.Mat(), want, cv::NORM_INF) == 0.0;
  };
  KivLUTSetting lut;

  KivImage owned(37, 21, 3, KIV_IMAGE_8U);
  const unsigned char* ownedBuffer = owned.Data();
  ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &owned, kJetMap), LUT_OK);
  EXPECT_EQ(owned.Data(), ownedBuffer);
  EXPECT_TRUE(same(owned));

  KivImage shared(37, 21, 3, KIV_IMAGE_8U);
  const KivImage other = shared;  // shares the pixels
  ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &shared, kJetMap), LUT_OK);
  EXPECT_NE(shared.Data(), other.Data());
  EXPECT_EQ(cv::countNonZero(other.Mat().reshape(1)), 0);  // still the zeros it was made with
  EXPECT_TRUE(same(shared));

  std::vector<unsigned char> callerMemory(37 * 21 * 3, 0x5A);
  KivImage wrapped(callerMemory.data(), 37, 21, 3, 37 * 3, KIV_IMAGE_8U);
  ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &wrapped, kJetMap), LUT_OK);
  EXPECT_NE(wrapped.Data(), callerMemory.data());
  EXPECT_TRUE(std::all_of(callerMemory.begin(), callerMemory.end(),
                          [](unsigned char b) { return b == 0x5A; }));
  EXPECT_TRUE(same(wrapped));
}

TEST(GreyLinear, SixteenBitMatchesReference) {
  std::mt19937_64 random(12);
  for (const auto& [width, height] : GreyImageSizes()) {
    for (int padding : {0, 3}) {
      auto grey = RandomGreyImage<uint16_t>(width, height, padding, random);
      for (int mapType = 0; mapType <= 10; ++mapType) {
        ExpectMatchesReference(*grey, mapType, Describe(width, height, padding, mapType));
      }
    }
  }
}

// Random value windows, narrower and wider than the pixel count, so that both the per-value and
// the per-pixel colouring of 16-bit images meet every map.
TEST(GreyLinear, SixteenBitRandomRangesMatchReference) {
  std::mt19937_64 random(13);
  std::uniform_int_distribution<int> start(0, 65535);
  std::uniform_int_distribution<int> mapTypes(0, 10);
  for (const auto& [width, height] : GreyImageSizes()) {
    for (int span : {1, 2, 37, 700, 5000, 65535}) {
      const int low = std::min(start(random), 65535 - span);
      const int padding = span % 2 == 0 ? 0 : 5;
      auto grey = NarrowSixteenBitImage(width, height, padding, low, low + span, random);
      const int mapType = mapTypes(random);
      ExpectMatchesReference(*grey, mapType,
                             Describe(width, height, padding, mapType) + " low " +
                                 std::to_string(low) + " span " + std::to_string(span));
    }
  }
}

TEST(GreyLinear, RealFramesMatchReference) {
  const auto frames = LoadRealGreyFrames();
  if (frames.empty()) GTEST_SKIP() << "no real frames: the shared data folder is missing";
  for (const auto& frame : frames) {
    for (bool eightBit : {false, true}) {
      GreyImage grey;
      grey.image = GreyImageFrom(frame.image, eightBit);
      for (int mapType = 0; mapType <= 10; ++mapType) {
        ExpectMatchesReference(
            grey, mapType,
            frame.name + (eightBit ? " 8-bit" : " 16-bit") + " map " + std::to_string(mapType));
      }
    }
  }
}

// Every value between the extremes present, for many pairs of extremes: the colours of the values
// are worked out value by value for narrow spans and run by run for wide ones, and here each one
// meets the reference's own division. Spans around
// 255 and its multiples put runs of one and of two values side by side; the full 16-bit range
// holds every value once.
TEST(GreyLinear, SixteenBitEveryValueBetweenTheExtremesMatchesReference) {
  std::mt19937_64 random(17);
  std::vector<std::pair<int, int>> extremes = {
      {0, 65535},      {0, 0},           {65535, 65535},
      {0, 1},          {1, 2},           {65534, 65535},
      {0, 255},        {0, 256},         {7, 7 + 254},
      {9, 9 + 509},    {100, 100 + 510}, {3, 3 + 511},
      {1, 65535},      {0, 65534},       {12345, 12345 + 25500},
      {50, 50 + 1023}, {50, 50 + 1024},  {60000, 60000 + 1025},
      {7, 7 + 5000},   {2, 2 + 255 * 7}};
  for (int span = 1; span <= 600; ++span) {
    const int low = static_cast<int>(random() % static_cast<uint64_t>(65536 - span));
    extremes.push_back({low, low + span});
  }
  for (int round = 0; round < 40; ++round) {
    const int a = static_cast<int>(random() % 65536), b = static_cast<int>(random() % 65536);
    extremes.push_back({std::min(a, b), std::max(a, b)});
  }
  for (const auto& [low, high] : extremes) {
    const int count = high - low + 1;
    // Twice the span, rounded up to whole rows of 256, so the per-value colouring is taken.
    const int width = 256;
    const int height = (2 * count + width - 1) / width;
    KivImage image(width, height, 1, KIV_IMAGE_16U);
    uint16_t* values = image.Mat().ptr<uint16_t>();
    for (int i = 0; i < width * height; ++i) values[i] = static_cast<uint16_t>(low + i % count);
    std::shuffle(values, values + width * height, random);
    for (int mapType : {0, 2, 6}) {
      KivImage dst;
      KivLUTSetting lut;
      ASSERT_EQ(lut.LinearSetColorLUT(image, &dst, mapType), LUT_OK);
      ASSERT_TRUE(SameImage(RefLinear(image.Mat(), mapType), dst.Mat()))
          << low << ".." << high << " map " << mapType;
    }
  }
}

// A 16-bit destination that alone owns a matrix of the result's shape is written in place, also
// for map 0's single channel; one that shares its pixels or overlaps the source gets a new matrix.
TEST(GreyLinear, SixteenBitDestinationBufferIsReusedOnlyWhenItsOwnAlone) {
  std::mt19937_64 random(42);
  for (int mapType : {0, 6, 9}) {
    for (const auto& [width, height] : {std::pair<int, int>{37, 21}, {640, 480}}) {
      auto grey = RandomGreyImage<uint16_t>(width, height, 0, random);
      const cv::Mat want = RefLinear(grey->image.Mat(), mapType);
      KivLUTSetting lut;

      KivImage owned(width, height, want.channels(), KIV_IMAGE_8U);
      const unsigned char* ownedBuffer = owned.Data();
      ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &owned, mapType), LUT_OK);
      EXPECT_EQ(owned.Data(), ownedBuffer);
      EXPECT_TRUE(SameImage(want, owned.Mat()));

      KivImage shared(width, height, want.channels(), KIV_IMAGE_8U);
      const KivImage other = shared;
      ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &shared, mapType), LUT_OK);
      EXPECT_NE(shared.Data(), other.Data());
      EXPECT_EQ(cv::countNonZero(other.Mat().reshape(1)), 0);
      EXPECT_TRUE(SameImage(want, shared.Mat()));
    }
  }
  // The source's pixels inside the destination's own buffer, at its start or further in.
  for (int depth : {8, 16}) {
    for (size_t offset : {0, 2, 500}) {
      const auto inside = testing_support::MakeSourceInsideDestination(depth, offset, random);
      ASSERT_NE(inside, nullptr);
      KivImage& dst = inside->destination;
      KivImage& source = inside->source;
      const cv::Mat want = RefLinear(source.Mat().clone(), kJetMap);
      const uint8_t* buffer = dst.Data();
      KivLUTSetting lut;
      ASSERT_EQ(lut.LinearSetColorLUT(source, &dst, kJetMap), LUT_OK);
      // The old buffer went with the old matrix; `source` is not read again.
      EXPECT_NE(dst.Data(), buffer);
      EXPECT_TRUE(SameImage(want, dst.Mat())) << depth << "-bit offset " << offset;
    }
  }
}

// A failing colouring leaves a destination it would have written in place as it was.
TEST(GreyLinear, ColouringFailureLeavesAnOwnedMatchingDestinationUntouched) {
  std::mt19937_64 random(43);
  for (int depth : {8, 16}) {
    for (int mapType : {0, 3, 8}) {
      for (const auto& [width, height] : {std::pair<int, int>{33, 31}, {640, 480}}) {
        auto grey = depth == 8 ? RandomGreyImage<uint8_t>(width, height, 0, random)
                               : RandomGreyImage<uint16_t>(width, height, 0, random);
        const cv::Mat want = RefLinear(grey->image.Mat(), mapType);
        KivImage dst(width, height, want.channels(), KIV_IMAGE_8U);
        dst.Mat().setTo(cv::Scalar::all(0x77));
        const uint8_t* buffer = dst.Data();
        KivLUTSetting lut;
        {
          ScopedFault fault(FaultStage::kColouring);
          EXPECT_EQ(lut.LinearSetColorLUT(grey->image, &dst, mapType), LUT_ERR_ARRAY_APPLY_FAILED);
        }
        EXPECT_EQ(dst.Data(), buffer);
        EXPECT_EQ(cv::countNonZero(dst.Mat().reshape(1) != 0x77), 0);
        ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &dst, mapType), LUT_OK);
        EXPECT_EQ(dst.Data(), buffer);
        EXPECT_TRUE(SameImage(want, dst.Mat()));
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Particular results.

TEST(GreyLinear, FlatSixteenBitImageTakesEntryZero) {
  for (const auto& [width, height] : GreyImageSizes()) {
    KivImage flat(width, height, 1, KIV_IMAGE_16U);
    flat.Mat().setTo(cv::Scalar(1234));
    for (int mapType = 0; mapType <= 10; ++mapType) {
      KivImage dst;
      KivLUTSetting lut;
      ASSERT_EQ(lut.LinearSetColorLUT(flat, &dst, mapType), LUT_OK);
      const ColourEntry& entry = RefTable(mapType)[0];
      if (mapType == 0) {
        ASSERT_EQ(dst.Mat().type(), CV_8UC1);
        EXPECT_EQ(cv::countNonZero(dst.Mat() != entry[0]), 0);
      } else {
        ASSERT_EQ(dst.Mat().type(), CV_8UC3);
        EXPECT_EQ(
            cv::norm(dst.Mat(),
                     cv::Mat(height, width, CV_8UC3, cv::Scalar(entry[0], entry[1], entry[2])),
                     cv::NORM_INF),
            0.0);
      }
    }
  }
}

TEST(GreyLinear, SixteenBitExtremesUnderHotMetal) {
  KivImage image(2, 1, 1, KIV_IMAGE_16U);
  image.Mat().at<uint16_t>(0, 0) = 0;
  image.Mat().at<uint16_t>(0, 1) = 65535;
  KivImage dst;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearSetColorLUT(image, &dst, kHotMetalMap), LUT_OK);
  ASSERT_EQ(dst.Mat().type(), CV_8UC3);
  EXPECT_EQ(dst.Mat().at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(dst.Mat().at<cv::Vec3b>(0, 1), cv::Vec3b(252, 255, 255));
}

TEST(GreyLinear, EightBitMapSevenGivesThreeGreyChannels) {
  std::mt19937_64 random(21);
  auto grey = RandomGreyImage<uint8_t>(33, 31, 0, random);
  KivImage dst;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &dst, 7), LUT_OK);
  ASSERT_EQ(dst.Mat().type(), CV_8UC3);
  cv::Mat planes[3];
  cv::split(dst.Mat(), planes);
  for (const cv::Mat& plane : planes)
    EXPECT_EQ(cv::norm(plane, grey->image.Mat(), cv::NORM_INF), 0);
}

TEST(GreyLinear, MapZeroGivesOneChannel) {
  std::mt19937_64 random(22);
  auto eight = RandomGreyImage<uint8_t>(7, 5, 2, random);
  KivImage dst;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearSetColorLUT(eight->image, &dst, 0), LUT_OK);
  ASSERT_EQ(dst.Mat().type(), CV_8UC1);
  EXPECT_EQ(cv::norm(dst.Mat(), eight->image.Mat(), cv::NORM_INF), 0);

  // 16 bits: the stretched grey value, 0 at the minimum and 255 at the maximum.
  KivImage sixteen(3, 1, 1, KIV_IMAGE_16U);
  sixteen.Mat().at<uint16_t>(0, 0) = 100;
  sixteen.Mat().at<uint16_t>(0, 1) = 150;
  sixteen.Mat().at<uint16_t>(0, 2) = 200;
  ASSERT_EQ(lut.LinearSetColorLUT(sixteen, &dst, 0), LUT_OK);
  ASSERT_EQ(dst.Mat().type(), CV_8UC1);
  EXPECT_EQ(dst.Mat().at<uint8_t>(0, 0), 0);
  EXPECT_EQ(dst.Mat().at<uint8_t>(0, 1), 127);
  EXPECT_EQ(dst.Mat().at<uint8_t>(0, 2), 255);
}

// 8-bit levels index the table as they are; a narrow 8-bit image uses only its own entries.
TEST(GreyLinear, EightBitIsNotStretched) {
  KivImage image(11, 1, 1, KIV_IMAGE_8U);
  for (int x = 0; x < 11; ++x) image.Mat().at<uint8_t>(0, x) = static_cast<uint8_t>(10 + x);
  KivImage dst;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearSetColorLUT(image, &dst, kRainbowMap), LUT_OK);
  for (int x = 0; x < 11; ++x) {
    const ColourEntry& entry = kRainbowTable[static_cast<size_t>(10 + x)];
    EXPECT_EQ(dst.Mat().at<cv::Vec3b>(0, x), cv::Vec3b(entry[0], entry[1], entry[2]));
  }
}

TEST(GreyLinear, SourceMayBeItsOwnDestination) {
  std::mt19937_64 random(23);
  for (int depth : {8, 16}) {
    auto grey = depth == 8 ? RandomGreyImage<uint8_t>(33, 31, 3, random)
                           : RandomGreyImage<uint16_t>(33, 31, 3, random);
    const std::vector<uint8_t> bufferBefore = grey->buffer;
    const cv::Mat expected = RefLinear(grey->image.Mat(), kJetMap);
    KivLUTSetting lut;
    ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &grey->image, kJetMap), LUT_OK);
    EXPECT_TRUE(SameImage(expected, grey->image.Mat()));
    EXPECT_EQ(grey->buffer, bufferBefore);  // the caller's pixels are only let go of
  }
}

// The destination is given a new matrix even when its old one has the right size and type; images
// that shared the old one keep it.
TEST(GreyLinear, DestinationReceivesNewMatrix) {
  std::mt19937_64 random(24);
  for (int depth : {8, 16}) {
    for (int mapType : {0, 2, 9}) {
      auto grey = depth == 8 ? RandomGreyImage<uint8_t>(7, 5, 0, random)
                             : RandomGreyImage<uint16_t>(7, 5, 0, random);
      KivImage dst(7, 5, mapType == 0 ? 1 : 3, KIV_IMAGE_8U);
      dst.Mat().setTo(cv::Scalar::all(77));
      const KivImage sharer = dst;
      const uint8_t* oldData = dst.Data();
      KivLUTSetting lut;
      ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &dst, mapType), LUT_OK);
      EXPECT_NE(dst.Data(), oldData);
      EXPECT_EQ(sharer.Data(), oldData);
      EXPECT_EQ(cv::countNonZero(sharer.Mat().reshape(1) != 77), 0);
      EXPECT_TRUE(SameImage(RefLinear(grey->image.Mat(), mapType), dst.Mat()));
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Checks, stage codes and logging.

struct Refusal {
  std::string what;
  KivImage src;
  int mapType;
  bool nullDestination;
  long expected;
  bool byRoutine = false;  // refused by the routine, which the frame logs the end of
};

std::vector<Refusal> FrameRefusals() {
  KivImage grey8(5, 4, 1, KIV_IMAGE_8U);
  KivImage colour(5, 4, 3, KIV_IMAGE_8U);
  KivImage signed16(5, 4, 1, KIV_IMAGE_16S);
  KivImage float32(5, 4, 1, KIV_IMAGE_32F);
  return {
      {"no pixels", KivImage(), 2, false, LUT_ERR_IMAGE_EMPTY},
      {"width 0", KivImage(0, 4, 1, KIV_IMAGE_8U), 2, false, LUT_ERR_IMAGE_EMPTY},
      {"height 0", KivImage(5, 0, 1, KIV_IMAGE_16U), 2, false, LUT_ERR_IMAGE_EMPTY},
      {"empty before map type", KivImage(), 11, true, LUT_ERR_IMAGE_EMPTY},
      {"3 channels", colour, 2, false, LUT_ERR_IMAGE_CHANNELS, true},
      {"signed 16 bits", signed16, 2, false, LUT_ERR_IMAGE_BIT_DEPTH, true},
      {"float", float32, 0, false, LUT_ERR_IMAGE_BIT_DEPTH, true},
      {"map 11", grey8, 11, false, LUT_ERR_PARAM_1},
      {"map -1", grey8, -1, false, LUT_ERR_PARAM_1},
      {"map INT_MIN", grey8, std::numeric_limits<int>::min(), false, LUT_ERR_PARAM_1},
      // The frame refuses the map type and a null destination before the routine looks at the
      // source's format.
      {"3 channels and map 11", colour, 11, false, LUT_ERR_PARAM_1},
      {"3 channels and no destination", colour, 2, true, LUT_ERR_PARAM_2},
      {"float and no destination", float32, 2, true, LUT_ERR_PARAM_2},
      {"map 11 and no destination", grey8, 11, true, LUT_ERR_PARAM_1},
      {"no destination", grey8, 2, true, LUT_ERR_PARAM_2},
  };
}

// A refused call returns its code and leaves the source and the destination as they were. The
// frame's refusals log only "start"; the routine's format checks come after the frame has handed
// over, so the end message follows.
TEST(GreyLinear, ChecksInOrderLeaveDestinationUntouched) {
  for (Refusal& refusal : FrameRefusals()) {
    WrappedDestination dst;
    const cv::Mat oldHeader = dst.image.Mat();
    const KivImage sourceBefore = refusal.src.DeepCopy();
    LogCapture capture;
    KivLUTSetting lut;
    const long status = lut.LinearSetColorLUT(
        refusal.src, refusal.nullDestination ? nullptr : &dst.image, refusal.mapType);
    EXPECT_EQ(status, refusal.expected) << refusal.what;
    std::vector<std::string> tags{"LinearSetColorLUT:218:start"};
    if (refusal.byRoutine)
      tags.push_back(std::string("LinearSetColorLUT:232:") + kLinearEndMessage);
    EXPECT_EQ(capture.Tags(), tags) << refusal.what;
    EXPECT_EQ(dst.image.Data(), oldHeader.data) << refusal.what;
    EXPECT_EQ(dst.image.Mat().size(), oldHeader.size()) << refusal.what;
    EXPECT_EQ(dst.image.Mat().type(), oldHeader.type()) << refusal.what;
    EXPECT_TRUE(AllBytesAre(dst.buffer, WrappedDestination::kFill)) << refusal.what;
    EXPECT_TRUE(SameImage(sourceBefore.Mat(), refusal.src.Mat())) << refusal.what;
  }
}

// The routine repeats the checks in its own order: source format before map type before the
// destination.
TEST(GreyLinear, RoutineChecksInOrder) {
  KivImage grey16(5, 4, 1, KIV_IMAGE_16U);
  KivImage colour(5, 4, 3, KIV_IMAGE_8U);
  KivImage float32(5, 4, 1, KIV_IMAGE_32F);
  KivImage empty;
  KivImage dst;
  KivLUTSettingImpl impl;
  EXPECT_EQ(impl.LinearSetColorLUT(empty, nullptr, 11), LUT_ERR_IMAGE_EMPTY);
  EXPECT_EQ(impl.LinearSetColorLUT(colour, nullptr, 11), LUT_ERR_IMAGE_CHANNELS);
  EXPECT_EQ(impl.LinearSetColorLUT(float32, nullptr, 11), LUT_ERR_IMAGE_BIT_DEPTH);
  EXPECT_EQ(impl.LinearSetColorLUT(grey16, nullptr, 11), LUT_ERR_PARAM_1);
  EXPECT_EQ(impl.LinearSetColorLUT(grey16, &dst, -3), LUT_ERR_PARAM_1);
  EXPECT_EQ(impl.LinearSetColorLUT(grey16, nullptr, 10), LUT_ERR_PARAM_2);
  EXPECT_TRUE(dst.Mat().empty());
  EXPECT_EQ(impl.LinearSetColorLUT(grey16, &dst, 10), LUT_OK);
  EXPECT_EQ(dst.Mat().type(), CV_8UC3);
}

// A failing colouring returns its stage code, still logs the end message, and leaves the
// destination as it was, for both depths and for maps with and without a table.
TEST(GreyLinear, ColouringFailureReturnsItsCode) {
  std::mt19937_64 random(31);
  for (int depth : {8, 16}) {
    for (int mapType : {0, 3, 8}) {
      auto grey = depth == 8 ? RandomGreyImage<uint8_t>(33, 31, 3, random)
                             : RandomGreyImage<uint16_t>(33, 31, 3, random);
      WrappedDestination dst;
      const uint8_t* oldData = dst.image.Data();
      LogCapture capture;
      KivLUTSetting lut;
      {
        ScopedFault fault(FaultStage::kColouring);
        EXPECT_EQ(lut.LinearSetColorLUT(grey->image, &dst.image, mapType),
                  LUT_ERR_ARRAY_APPLY_FAILED);
      }
      EXPECT_EQ(dst.image.Data(), oldData);
      EXPECT_TRUE(AllBytesAre(dst.buffer, WrappedDestination::kFill));
      EXPECT_EQ(capture.Tags(), (std::vector<std::string>{
                                    "LinearSetColorLUT:218:start",
                                    std::string("LinearSetColorLUT:232:") + kLinearEndMessage}));
      // Faults of stages this method does not have change nothing.
      for (FaultStage other : {FaultStage::kOutputSizing, FaultStage::kStatistics,
                               FaultStage::kBlending, FaultStage::kChannelConversion}) {
        ScopedFault fault(other);
        EXPECT_EQ(lut.LinearSetColorLUT(grey->image, &dst.image, mapType), LUT_OK);
      }
    }
  }
}

TEST(GreyLinear, SuccessLogsStartAndEnd) {
  std::mt19937_64 random(32);
  auto grey = RandomGreyImage<uint16_t>(7, 5, 0, random);
  KivImage dst;
  LogCapture capture;
  KivLUTSetting lut;
  ASSERT_EQ(lut.LinearSetColorLUT(grey->image, &dst, 4), LUT_OK);
  const auto lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, "start");
  EXPECT_EQ(lines[0].className, "KivLUTSetting");
  EXPECT_EQ(lines[0].methodName, "LinearSetColorLUT");
  EXPECT_EQ(lines[0].line, 218);
  EXPECT_EQ(lines[1].message, kLinearEndMessage);
  EXPECT_EQ(lines[1].className, "KivLUTSetting");
  EXPECT_EQ(lines[1].methodName, "LinearSetColorLUT");
  EXPECT_EQ(lines[1].line, 232);
}

// Any sequence of calls on one object gives what fresh objects give.
TEST(GreyLinear, OneObjectForManyCalls) {
  std::mt19937_64 random(33);
  auto grey = RandomGreyImage<uint16_t>(33, 31, 0, random);
  KivLUTSetting shared;
  for (int mapType = 10; mapType >= 0; --mapType) {
    KivImage viaShared;
    KivImage viaFresh;
    ASSERT_EQ(shared.LinearSetColorLUT(grey->image, &viaShared, mapType), LUT_OK);
    ASSERT_EQ(KivLUTSetting().LinearSetColorLUT(grey->image, &viaFresh, mapType), LUT_OK);
    EXPECT_TRUE(SameImage(viaFresh.Mat(), viaShared.Mat()));
  }
}

}  // namespace
}  // namespace KIVMV
