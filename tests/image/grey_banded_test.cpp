#include "image/grey_banded.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "KivLUTSetting.h"
#include "common/fault_injection.h"
#include "frame/kiv_lut_setting_impl.h"
#include "image/image_test_support.h"
#include "support/log_capture.h"
#include "support/reference_helpers.h"
#include "tables/colour_tables.h"

namespace KIVMV {
namespace {

using testing_support::GreyImage;
using testing_support::GreyImageFrom;
using testing_support::GreyImageSizes;
using testing_support::GreyLevels;
using testing_support::LoadRealGreyFrames;
using testing_support::MatBytes;
using testing_support::RandomGreyImage;
using testing_support::TableOf;
using testing_support::X86Truncate;

// ---------------------------------------------------------------------------------------------
// A plain serial restatement of the banded grey colouring, one pixel at a time.

struct Request {
  int mapType = 1;
  int low = 0;
  int high = 255;
  int indexLow = 0;
  int indexHigh = 255;
  KivColor below;
  KivColor above;
};

// A caller's colour as written: component 2 first, each component's low byte.
std::vector<uint8_t> Written(const KivColor& c) {
  return {static_cast<uint8_t>(c[2] & 0xFF), static_cast<uint8_t>(c[1] & 0xFF),
          static_cast<uint8_t>(c[0] & 0xFF)};
}

cv::Mat ReferenceBanded(const cv::Mat& src, const Request& q) {
  const bool eightBit = src.depth() == CV_8U;
  const bool ownTable = q.mapType >= 1 && q.mapType <= 6;
  const std::vector<int> v = GreyLevels(src);
  const bool firstChannelOnly = q.mapType == 0;
  const int channels = firstChannelOnly ? 1 : 3;
  cv::Mat out(src.rows, src.cols, CV_MAKETYPE(CV_8U, channels));
  auto put = [&](size_t i, const std::vector<uint8_t>& bytes) {
    for (int c = 0; c < channels; ++c) out.data[i * channels + c] = bytes[c];
  };

  if (eightBit && !ownTable) {
    for (size_t i = 0; i < v.size(); ++i) {
      const uint8_t g = static_cast<uint8_t>(v[i]);
      put(i, {g, g, g});
    }
    return out;
  }

  double lo = q.low, hi = q.high;
  if (eightBit) {
    // Narrowed to the valid (non-zero) levels; with none the bounds cross.
    int minimum = 255, maximum = 0;
    for (int g : v) {
      if (g == 0) continue;
      minimum = std::min(minimum, g);
      maximum = std::max(maximum, g);
    }
    lo = std::max(q.low, minimum);
    hi = std::min(q.high, maximum);
  }
  const ColourTable& table = TableOf(q.mapType);
  for (size_t i = 0; i < v.size(); ++i) {
    const double x = v[i];
    if (lo > x) {
      put(i, Written(q.below));
    } else if (x > hi) {
      put(i, Written(q.above));
    } else {
      const int step = static_cast<int>(
          static_cast<uint64_t>(X86Truncate((x - lo) / (hi - lo) * (q.indexHigh - q.indexLow))) &
          0xFFu);
      const int k = step + q.indexLow;
      const int j = k - 1 < 0 ? 0 : k - 1;
      const ColourEntry& e = table[j];
      put(i, {e[0], e[1], e[2]});
    }
  }
  return out;
}

long CallBanded(KivImage& src, KivImage* dst, const Request& q) {
  KivLUTSetting lut;
  return lut.SetColorLUT(src, dst, q.mapType, q.low, q.high, q.indexLow, q.indexHigh, q.below,
                         q.above);
}

// ---------------------------------------------------------------------------------------------
// Random images and requests against the reference.

enum class Destination { kEmpty, kShared, kCallerBuffer, kSource };

void ExpectMatchesReference(GreyImage& grey, const Request& q, Destination kind) {
  const cv::Mat want = ReferenceBanded(grey.image.Mat(), q);
  const cv::Mat source = grey.image.Mat();
  const std::vector<uint8_t> sourceBefore =
      grey.buffer.empty()
          ? std::vector<uint8_t>(source.data, source.data + source.total() * source.elemSize())
          : grey.buffer;

  KivImage destination, sharer;
  std::vector<uint8_t> callerBuffer;
  if (kind == Destination::kShared) {
    destination = KivImage(2, 2, 3, KIV_IMAGE_8U);
    destination.Mat().setTo(cv::Scalar(9, 8, 7));
    sharer = destination;
  } else if (kind == Destination::kCallerBuffer) {
    callerBuffer.assign(6 * 4 * 3 + 4 * 2, 0xC3);
    destination = KivImage(callerBuffer.data(), 6, 4, 3, 6 * 3 + 2, KIV_IMAGE_8U);
  }
  KivImage* dst = kind == Destination::kSource ? &grey.image : &destination;

  ASSERT_EQ(CallBanded(grey.image, dst, q), LUT_OK);
  ASSERT_EQ(dst->Mat().type(), want.type());
  ASSERT_EQ(dst->Mat().size(), want.size());
  const std::vector<uint8_t> got = MatBytes(dst->Mat()), expected = MatBytes(want);
  for (size_t i = 0; i < got.size(); ++i) ASSERT_EQ(got[i], expected[i]) << "byte " << i;

  if (kind == Destination::kShared) {
    EXPECT_EQ(MatBytes(sharer.Mat()), MatBytes(cv::Mat(2, 2, CV_8UC3, cv::Scalar(9, 8, 7))));
  }
  EXPECT_TRUE(
      std::all_of(callerBuffer.begin(), callerBuffer.end(), [](uint8_t b) { return b == 0xC3; }));
  const std::vector<uint8_t> sourceAfter =
      grey.buffer.empty()
          ? std::vector<uint8_t>(source.data, source.data + source.total() * source.elemSize())
          : grey.buffer;
  EXPECT_EQ(sourceAfter, sourceBefore);
}

// Bounds around the data (inside, outside, equal, from 0, far above), index ranges of every
// width, and colours whose components need their low byte taken.
Request RandomRequest(const cv::Mat& pixels, int mapType, std::mt19937_64& random) {
  Request q;
  q.mapType = mapType;
  const std::vector<int> levels = GreyLevels(pixels);
  const int top = pixels.depth() == CV_8U ? 255 : 65535;
  auto someLevel = [&] {
    const int g = levels[random() % levels.size()] + static_cast<int>(random() % 7) - 3;
    return std::clamp(g, 0, top + 10);
  };
  int a = someLevel(), b = someLevel();
  if (random() % 6 == 0) b = a;
  if (random() % 6 == 0) a = 0;
  if (random() % 8 == 0) b = INT_MAX;
  q.low = std::min(a, b);
  q.high = std::max(a, b);
  q.indexLow = static_cast<int>(random() % 256);
  q.indexHigh = q.indexLow + static_cast<int>(random() % (256 - q.indexLow));
  if (random() % 5 == 0) {
    q.indexLow = 0;
    q.indexHigh = 255;
  }
  auto component = [&] { return static_cast<int>(random() % 700) - 200; };
  q.below = KivColor(component(), component(), component());
  q.above = KivColor(component(), component(), component());
  return q;
}

TEST(GreyBanded, MatchesReferenceOnRandomImages) {
  std::mt19937_64 random(29);
  for (const auto& [width, height] : GreyImageSizes()) {
    for (int depth : {8, 16}) {
      for (int padding : {0, 1 + static_cast<int>(random() % 5)}) {
        for (int mapType = 0; mapType <= 10; ++mapType) {
          auto grey = depth == 8 ? RandomGreyImage<uint8_t>(width, height, padding, random)
                                 : RandomGreyImage<uint16_t>(width, height, padding, random);
          const Request q = RandomRequest(grey->image.Mat(), mapType, random);
          const Destination kind = static_cast<Destination>(random() % 4);
          SCOPED_TRACE(testing::Message()
                       << depth << "-bit " << width << "x" << height << " padding " << padding
                       << " map " << mapType << " bounds " << q.low << ".." << q.high << " indices "
                       << q.indexLow << ".." << q.indexHigh << " destination "
                       << static_cast<int>(kind));
          ExpectMatchesReference(*grey, q, kind);
        }
      }
    }
  }
}

TEST(GreyBanded, MatchesReferenceOnRealFrames) {
  const std::vector<testing_support::RealFrame> frames = LoadRealGreyFrames();
  if (frames.empty()) GTEST_SKIP() << "no shared data folder: the real frames are skipped";
  std::mt19937_64 random(31);
  for (const testing_support::RealFrame& frame : frames) {
    for (bool eightBit : {false, true}) {
      for (int mapType : {0, 1, 3, 6, 10}) {
        GreyImage grey;
        grey.image = GreyImageFrom(frame.image, eightBit);
        const Request q = RandomRequest(grey.image.Mat(), mapType, random);
        SCOPED_TRACE(testing::Message()
                     << frame.name << (eightBit ? " 8-bit" : " 16-bit") << " map " << mapType
                     << " bounds " << q.low << ".." << q.high);
        ExpectMatchesReference(grey, q, Destination::kEmpty);
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Edge cases.

template <typename T>
KivImage GreyFrom(const std::vector<int>& levels) {
  const int width = static_cast<int>(levels.size());
  KivImage image(width, 1, 1, sizeof(T) == 1 ? KIV_IMAGE_8U : KIV_IMAGE_16U);
  for (int i = 0; i < width; ++i) image.Mat().at<T>(0, i) = static_cast<T>(levels[i]);
  return image;
}

std::vector<uint8_t> PixelBytes(const cv::Mat& m, int i) {
  const int channels = m.channels();
  return std::vector<uint8_t>(m.data + i * channels, m.data + (i + 1) * channels);
}

std::vector<uint8_t> Bytes(const ColourEntry& e) { return {e[0], e[1], e[2]}; }

TEST(GreyBanded, EightBitBoundsAreNarrowedToTheDataSixteenBitOnesAreNot) {
  std::vector<int> levels;
  for (int g = 10; g <= 200; ++g) levels.push_back(g);
  levels.push_back(0);
  Request q;  // bounds 0..255, entries 0..255
  q.mapType = kRainbowMap;
  q.below = KivColor(1, 2, 3);
  for (bool eightBit : {true, false}) {
    KivImage image = eightBit ? GreyFrom<uint8_t>(levels) : GreyFrom<uint16_t>(levels);
    KivImage out;
    ASSERT_EQ(CallBanded(image, &out, q), LUT_OK);
    EXPECT_EQ(MatBytes(out.Mat()), MatBytes(ReferenceBanded(image.Mat(), q)));
    if (eightBit) {
      // Spread over 10..200: 10 takes entry 0, 100 entry trunc(90 / 190 x 255) - 1, 200 entry 254.
      EXPECT_EQ(PixelBytes(out.Mat(), 0), Bytes(kRainbowTable[0]));
      EXPECT_EQ(PixelBytes(out.Mat(), 90), Bytes(kRainbowTable[119]));
      EXPECT_EQ(PixelBytes(out.Mat(), 190), Bytes(kRainbowTable[254]));
      // 0 is not a valid level: it lies below the narrowed bound.
      EXPECT_EQ(PixelBytes(out.Mat(), 191), (std::vector<uint8_t>{3, 2, 1}));
    } else {
      // Kept at 0..255: level v takes entry v - 1, and 0 is coloured like any other level.
      EXPECT_EQ(PixelBytes(out.Mat(), 0), Bytes(kRainbowTable[9]));
      EXPECT_EQ(PixelBytes(out.Mat(), 90), Bytes(kRainbowTable[99]));
      EXPECT_EQ(PixelBytes(out.Mat(), 190), Bytes(kRainbowTable[199]));
      EXPECT_EQ(PixelBytes(out.Mat(), 191), Bytes(kRainbowTable[0]));
    }
  }
}

TEST(GreyBanded, EqualBoundsTakeTheEntryBeforeIndexLow) {
  // v = low = high: 0 / 0 is NaN, which converts to INT64_MIN, whose low byte is 0.
  Request q;
  q.mapType = kHotMetalMap;
  q.low = q.high = 50;
  q.indexLow = 10;
  q.indexHigh = 20;
  q.below = KivColor(1, 1, 1);
  q.above = KivColor(2, 2, 2);
  for (bool eightBit : {true, false}) {
    const std::vector<int> levels = {50, 49, 51};
    KivImage image = eightBit ? GreyFrom<uint8_t>(levels) : GreyFrom<uint16_t>(levels);
    KivImage out;
    ASSERT_EQ(CallBanded(image, &out, q), LUT_OK);
    EXPECT_EQ(PixelBytes(out.Mat(), 0), Bytes(kHotMetalTable[9]));
    EXPECT_EQ(PixelBytes(out.Mat(), 1), Written(q.below));
    EXPECT_EQ(PixelBytes(out.Mat(), 2), Written(q.above));
  }
  q.indexLow = 0;
  KivImage image = GreyFrom<uint16_t>({50});
  KivImage out;
  ASSERT_EQ(CallBanded(image, &out, q), LUT_OK);
  EXPECT_EQ(PixelBytes(out.Mat(), 0), Bytes(kHotMetalTable[0]));
}

TEST(GreyBanded, FullIndexRangeUsesEntriesZeroTo254) {
  const std::vector<int> levels = {300, 301, 700, 1000};
  KivImage image = GreyFrom<uint16_t>(levels);
  Request q;
  q.mapType = kJetMap;
  q.low = 300;
  q.high = 1000;
  KivImage out;
  ASSERT_EQ(CallBanded(image, &out, q), LUT_OK);
  EXPECT_EQ(PixelBytes(out.Mat(), 0), Bytes(kJetTable[0]));
  EXPECT_EQ(PixelBytes(out.Mat(), 3), Bytes(kJetTable[254]));
  EXPECT_EQ(MatBytes(out.Mat()), MatBytes(ReferenceBanded(image.Mat(), q)));
}

TEST(GreyBanded, CallerColoursAreWrittenComponentTwoFirst) {
  KivImage image = GreyFrom<uint8_t>({5, 100, 200});
  Request q;
  q.mapType = kDivergingMap;
  q.low = 50;
  q.high = 150;
  q.below = KivColor(1, 2, 3);     // the first colour argument
  q.above = KivColor(300, -1, 7);  // the second; components keep their low byte
  KivImage out;
  ASSERT_EQ(CallBanded(image, &out, q), LUT_OK);
  EXPECT_EQ(PixelBytes(out.Mat(), 0), (std::vector<uint8_t>{3, 2, 1}));
  EXPECT_EQ(PixelBytes(out.Mat(), 2), (std::vector<uint8_t>{7, 255, 44}));
}

TEST(GreyBanded, ZeroIsAGreyLevelLikeAnyOther) {
  // Hot metal's invalid colour is white; a 16-bit 0 inside the bounds takes a table entry.
  KivImage image = GreyFrom<uint16_t>({0, 100});
  Request q;
  q.mapType = kHotMetalMap;
  q.low = 0;
  q.high = 100;
  KivImage out;
  ASSERT_EQ(CallBanded(image, &out, q), LUT_OK);
  EXPECT_EQ(PixelBytes(out.Mat(), 0), Bytes(kHotMetalTable[0]));
  // An 8-bit image of zeros only: the bounds cross, every pixel lies below.
  KivImage zeros(3, 2, 1, KIV_IMAGE_8U);
  q.below = KivColor(10, 20, 30);
  ASSERT_EQ(CallBanded(zeros, &out, q), LUT_OK);
  for (int i = 0; i < 6; ++i)
    EXPECT_EQ(PixelBytes(out.Mat(), i), (std::vector<uint8_t>{30, 20, 10}));
}

TEST(GreyBanded, GreyMapsCopyEightBitAndUseTheGreyTableForSixteenBit) {
  KivImage eight = GreyFrom<uint8_t>({0, 7, 99, 255});
  Request q;
  q.low = 50;
  q.high = 60;
  KivImage out;
  for (int mapType : {0, 7, 10}) {
    q.mapType = mapType;
    ASSERT_EQ(CallBanded(eight, &out, q), LUT_OK);
    ASSERT_EQ(out.Mat().channels(), mapType == 0 ? 1 : 3);
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(PixelBytes(out.Mat(), i),
                std::vector<uint8_t>(out.Mat().channels(), eight.Mat().at<uint8_t>(0, i)));
    }
  }
  // 16-bit, map 0: the first channel of the grey-table colouring.
  KivImage sixteen = GreyFrom<uint16_t>({40, 55, 70});
  q.mapType = 0;
  q.indexLow = 0;
  q.indexHigh = 255;
  q.below = KivColor(1, 2, 3);
  q.above = KivColor(4, 5, 6);
  ASSERT_EQ(CallBanded(sixteen, &out, q), LUT_OK);
  ASSERT_EQ(out.Mat().type(), CV_8UC1);
  EXPECT_EQ(out.Mat().at<uint8_t>(0, 0), 3);    // below, component 2
  EXPECT_EQ(out.Mat().at<uint8_t>(0, 1), 126);  // trunc(5 / 10 x 255) - 1
  EXPECT_EQ(out.Mat().at<uint8_t>(0, 2), 6);    // above, component 2
}

TEST(GreyBanded, OneByOneImage) {
  Request q;
  q.low = 0;
  q.high = 300;
  for (int level : {0, 1, 255}) {
    for (bool eightBit : {true, false}) {
      KivImage image = eightBit ? GreyFrom<uint8_t>({level}) : GreyFrom<uint16_t>({level});
      for (int mapType = 0; mapType <= 10; ++mapType) {
        q.mapType = mapType;
        KivImage out;
        ASSERT_EQ(CallBanded(image, &out, q), LUT_OK);
        EXPECT_EQ(MatBytes(out.Mat()), MatBytes(ReferenceBanded(image.Mat(), q)));
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Checks, stage codes and logging.

struct WatchedDestination {
  KivImage image{4, 2, 3, KIV_IMAGE_8U};
  uchar* data = nullptr;
  WatchedDestination() {
    image.Mat().setTo(cv::Scalar(1, 2, 3));
    data = image.Mat().data;
  }
  void ExpectUntouched() const {
    EXPECT_EQ(image.Mat().data, data);
    EXPECT_EQ(image.Mat().type(), CV_8UC3);
    EXPECT_EQ(MatBytes(image.Mat()), MatBytes(cv::Mat(2, 4, CV_8UC3, cv::Scalar(1, 2, 3))));
  }
};

TEST(GreyBanded, FrameChecksInOrder) {
  KivLUTSetting lut;
  WatchedDestination dst;
  const KivColor c;
  KivImage none, noRows(3, 0, 1, KIV_IMAGE_8U);
  EXPECT_EQ(lut.SetColorLUT(none, &dst.image, 99, -5, -9, 7, 2, c, c), LUT_ERR_IMAGE_EMPTY);
  EXPECT_EQ(lut.SetColorLUT(noRows, nullptr, 1, 0, 9, 0, 9, c, c), LUT_ERR_IMAGE_EMPTY);
  KivImage colour(3, 3, 3, KIV_IMAGE_8U);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 11, -5, -9, 7, 2, c, c), LUT_ERR_PARAM_1);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, -1, 0, 9, 0, 9, c, c), LUT_ERR_PARAM_1);
  EXPECT_EQ(lut.SetColorLUT(colour, nullptr, 1, -5, 9, 0, 9, c, c), LUT_ERR_PARAM_2);
  // The routine's checks: bounds and index range before the image's format.
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 1, 9, 5, 7, 2, c, c), LUT_ERR_PARAM_2);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 1, -1, 5, 0, 9, c, c), LUT_ERR_PARAM_2);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 1, 0, 5, 7, 2, c, c), LUT_ERR_PARAM_4);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 1, 0, 5, -1, 2, c, c), LUT_ERR_PARAM_4);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 1, 0, 5, 300, 256, c, c), LUT_ERR_PARAM_4);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 1, 0, 5, 0, 256, c, c), LUT_ERR_PARAM_5);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 1, 0, 5, 0, 255, c, c), LUT_ERR_IMAGE_CHANNELS);
  KivImage signedEight(3, 3, 1, KIV_IMAGE_8S), colourSigned(3, 3, 3, KIV_IMAGE_8S);
  EXPECT_EQ(lut.SetColorLUT(signedEight, &dst.image, 1, 0, 5, 0, 255, c, c),
            LUT_ERR_IMAGE_BIT_DEPTH);
  EXPECT_EQ(lut.SetColorLUT(colourSigned, &dst.image, 1, 0, 5, 0, 255, c, c),
            LUT_ERR_IMAGE_CHANNELS);
  KivImage floats(3, 3, 1, KIV_IMAGE_32F);
  EXPECT_EQ(lut.SetColorLUT(floats, &dst.image, 1, 0, 5, 0, 255, c, c), LUT_ERR_IMAGE_BIT_DEPTH);
  dst.ExpectUntouched();
}

TEST(GreyBanded, RoutineChecksInOrder) {
  KivLUTSettingImpl impl;
  WatchedDestination dst;
  const KivColor c;
  KivImage none, colour(3, 3, 3, KIV_IMAGE_8U), grey(3, 3, 1, KIV_IMAGE_16U);
  // The routine takes the map type last.
  EXPECT_EQ(impl.SetColorLUT(none, nullptr, -5, -9, 7, 2, c, c, 99), LUT_ERR_IMAGE_EMPTY);
  EXPECT_EQ(impl.SetColorLUT(colour, nullptr, 0, -1, 0, 9, c, c, 99), LUT_ERR_PARAM_2);
  EXPECT_EQ(impl.SetColorLUT(colour, nullptr, 0, 9, 0, 256, c, c, 99), LUT_ERR_PARAM_5);
  EXPECT_EQ(impl.SetColorLUT(colour, nullptr, 0, 9, 0, 255, c, c, 99), LUT_ERR_IMAGE_CHANNELS);
  EXPECT_EQ(impl.SetColorLUT(grey, nullptr, 0, 9, 0, 255, c, c, 11), LUT_ERR_PARAM_6);
  EXPECT_EQ(impl.SetColorLUT(grey, &dst.image, 0, 9, 0, 255, c, c, -1), LUT_ERR_PARAM_6);
  EXPECT_EQ(impl.SetColorLUT(grey, nullptr, 0, 9, 0, 255, c, c, 3), LUT_ERR_PARAM_2);
  dst.ExpectUntouched();
  EXPECT_EQ(impl.SetColorLUT(grey, &dst.image, 0, 9, 0, 255, c, c, 3), LUT_OK);
  EXPECT_NE(dst.image.Mat().data, dst.data);
}

TEST(GreyBanded, EachStageThatThrowsReturnsArrayApplyFailed) {
  std::mt19937_64 random(37);
  const struct {
    int depth;
    int mapType;
    std::vector<FaultStage> stages;
  } paths[] = {
      {8, 0, {FaultStage::kOutputSizing}},
      {8, 9, {FaultStage::kOutputSizing}},
      {8, 4, {FaultStage::kOutputSizing, FaultStage::kStatistics, FaultStage::kColouring}},
      // 16-bit bounds are used as given: no statistics stage.
      {16, 0, {FaultStage::kOutputSizing, FaultStage::kColouring}},
      {16, 5, {FaultStage::kOutputSizing, FaultStage::kColouring}},
  };
  Request q;
  q.low = 100;
  q.high = 40000;
  for (const auto& path : paths) {
    q.mapType = path.mapType;
    for (FaultStage stage : path.stages) {
      auto grey = path.depth == 8 ? RandomGreyImage<uint8_t>(11, 7, 2, random)
                                  : RandomGreyImage<uint16_t>(11, 7, 0, random);
      const std::vector<uint8_t> before = MatBytes(grey->image.Mat());
      WatchedDestination dst;
      {
        ScopedFault fault(stage);
        EXPECT_EQ(CallBanded(grey->image, &dst.image, q), LUT_ERR_ARRAY_APPLY_FAILED)
            << path.depth << "-bit map " << path.mapType << " stage " << static_cast<int>(stage);
      }
      dst.ExpectUntouched();
      EXPECT_EQ(MatBytes(grey->image.Mat()), before);
      EXPECT_EQ(CallBanded(grey->image, &dst.image, q), LUT_OK);
    }
  }
  // Without a statistics stage a fault there changes nothing.
  auto grey = RandomGreyImage<uint16_t>(5, 5, 0, random);
  KivImage out;
  ScopedFault fault(FaultStage::kStatistics);
  EXPECT_EQ(CallBanded(grey->image, &out, q), LUT_OK);
}

const std::string kEndMessage =
    "\xd4\xb4\xcd\xbc\xcf\xf1\xd1\xd5\xc9\xab\xb7\xc7\xcf\xdf\xd0\xd4\xd3\xb3"
    "\xc9\xe4\xbd\xe1\xca\xf8";  // 源图像颜色非线性映射结束 in GBK

TEST(GreyBanded, LogsStartAndEndTags) {
  KivImage image = GreyFrom<uint16_t>({1, 2, 3}), out;
  Request q;
  {
    testing_support::LogCapture capture;
    ASSERT_EQ(CallBanded(image, &out, q), LUT_OK);
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorLUT:238:start",
                                                        "SetColorLUT:253:" + kEndMessage}));
  }
  {
    testing_support::LogCapture capture;
    q.mapType = 11;
    ASSERT_EQ(CallBanded(image, &out, q), LUT_ERR_PARAM_1);
    q.mapType = 1;
    ASSERT_EQ(CallBanded(image, nullptr, q), LUT_ERR_PARAM_2);
    EXPECT_EQ(capture.Tags(),
              (std::vector<std::string>{"SetColorLUT:238:start", "SetColorLUT:238:start"}));
  }
  {
    // Refused by the routine: the end message is still logged.
    testing_support::LogCapture capture;
    q.indexLow = 9;
    q.indexHigh = 3;
    ASSERT_EQ(CallBanded(image, &out, q), LUT_ERR_PARAM_4);
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorLUT:238:start",
                                                        "SetColorLUT:253:" + kEndMessage}));
  }
}

// ---------------------------------------------------------------------------------------------
// A destination that alone owns a matrix of the result's shape is written in place.

KivImage OwnedDestinationLike(const cv::Mat& want, uint8_t fill) {
  KivImage dst(want.cols, want.rows, want.channels(), KIV_IMAGE_8U);
  dst.Mat().setTo(cv::Scalar::all(fill));
  return dst;
}

bool AllBytesAre(const cv::Mat& m, uint8_t value) {
  const std::vector<uint8_t> bytes = MatBytes(m);
  return std::all_of(bytes.begin(), bytes.end(), [value](uint8_t b) { return b == value; });
}

TEST(GreyBanded, OwnedMatchingDestinationIsWrittenInPlace) {
  std::mt19937_64 random(61);
  for (const auto& [width, height] : GreyImageSizes()) {
    for (int depth : {8, 16}) {
      for (int mapType = 0; mapType <= 10; ++mapType) {
        const int padding = mapType % 2 == 0 ? 0 : 3;
        auto grey = depth == 8 ? RandomGreyImage<uint8_t>(width, height, padding, random)
                               : RandomGreyImage<uint16_t>(width, height, padding, random);
        const Request q = RandomRequest(grey->image.Mat(), mapType, random);
        SCOPED_TRACE(testing::Message() << depth << "-bit " << width << "x" << height << " map "
                                        << mapType << " bounds " << q.low << ".." << q.high);
        const cv::Mat want = ReferenceBanded(grey->image.Mat(), q);
        KivImage dst = OwnedDestinationLike(want, 0x77);
        const uint8_t* buffer = dst.Data();
        ASSERT_EQ(CallBanded(grey->image, &dst, q), LUT_OK);
        EXPECT_EQ(dst.Data(), buffer);
        ASSERT_EQ(dst.Mat().type(), want.type());
        EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(want));
      }
    }
  }
}

TEST(GreyBanded, FailingStageLeavesAnOwnedMatchingDestinationUntouched) {
  std::mt19937_64 random(67);
  const struct {
    int depth;
    int mapType;
    std::vector<FaultStage> stages;
  } paths[] = {
      {8, 0, {FaultStage::kOutputSizing}},
      {8, 10, {FaultStage::kOutputSizing}},
      {8, 6, {FaultStage::kOutputSizing, FaultStage::kStatistics, FaultStage::kColouring}},
      {16, 0, {FaultStage::kOutputSizing, FaultStage::kColouring}},
      {16, 2, {FaultStage::kOutputSizing, FaultStage::kColouring}},
  };
  Request q;
  q.low = 20;
  q.high = 40000;
  q.indexLow = 3;
  q.indexHigh = 250;
  for (const auto& [width, height] : {std::pair<int, int>{33, 31}, {640, 480}}) {
    for (const auto& path : paths) {
      q.mapType = path.mapType;
      for (FaultStage stage : path.stages) {
        auto grey = path.depth == 8 ? RandomGreyImage<uint8_t>(width, height, 0, random)
                                    : RandomGreyImage<uint16_t>(width, height, 0, random);
        const cv::Mat want = ReferenceBanded(grey->image.Mat(), q);
        KivImage dst = OwnedDestinationLike(want, 0x77);
        const uint8_t* buffer = dst.Data();
        {
          ScopedFault fault(stage);
          EXPECT_EQ(CallBanded(grey->image, &dst, q), LUT_ERR_ARRAY_APPLY_FAILED)
              << path.depth << "-bit map " << path.mapType << " stage " << static_cast<int>(stage);
        }
        EXPECT_EQ(dst.Data(), buffer);
        EXPECT_TRUE(AllBytesAre(dst.Mat(), 0x77));
        ASSERT_EQ(CallBanded(grey->image, &dst, q), LUT_OK);
        EXPECT_EQ(dst.Data(), buffer);
        EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(want));
      }
    }
  }
}

TEST(GreyBanded, DestinationOverlappingTheSourceIsNotWrittenInPlace) {
  std::mt19937_64 random(71);
  for (int depth : {8, 16}) {
    for (int mapType : {5, 7}) {
      for (size_t offset : {0, 2, 500}) {
        const auto inside = testing_support::MakeSourceInsideDestination(depth, offset, random);
        ASSERT_NE(inside, nullptr);
        KivImage& dst = inside->destination;
        KivImage& source = inside->source;
        Request q;
        q.mapType = mapType;
        q.low = 30;
        q.high = depth == 8 ? 200 : 50000;
        q.indexLow = 7;
        q.indexHigh = 201;
        const cv::Mat want = ReferenceBanded(source.Mat().clone(), q);
        const uint8_t* buffer = dst.Data();
        ASSERT_EQ(CallBanded(source, &dst, q), LUT_OK);
        // The old buffer went with the old matrix; `source` is not read again.
        EXPECT_NE(dst.Data(), buffer);
        EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(want))
            << depth << "-bit map " << mapType << " offset " << offset;
      }
    }
  }
}

// The 8-bit bounds are narrowed to the smallest non-zero and the largest level, found in parallel
// for large images: images without a non-zero level, with only 255, and with the extremes in the
// last pixels the loops reach.
TEST(GreyBanded, EightBitNarrowingAtTheLevelExtremes) {
  Request q;
  q.mapType = 4;
  q.low = 0;
  q.high = 255;
  q.indexLow = 1;
  q.indexHigh = 254;
  q.below = KivColor(1, 2, 3);
  q.above = KivColor(4, 5, 6);
  for (const auto& [width, height] : {std::pair<int, int>{1, 1}, {13, 7}, {640, 480}}) {
    for (const std::vector<int>& fill : std::vector<std::vector<int>>{
             {0}, {255}, {0, 255}, {1}, {0, 1}, {254, 255}, {0, 1, 255}, {100, 101}}) {
      KivImage image(width, height, 1, KIV_IMAGE_8U);
      image.Mat().setTo(cv::Scalar(fill[0]));
      // The other levels in the last pixels, where a parallel loop ends.
      const int n = width * height;
      for (size_t k = 1; k < fill.size() && static_cast<int>(k) < n; ++k) {
        image.Mat().data[n - static_cast<int>(k)] = static_cast<uint8_t>(fill[k]);
      }
      for (const auto& [low, high] : {std::pair<int, int>{0, 255}, {1, 254}, {101, 101}}) {
        q.low = low;
        q.high = high;
        KivImage dst;
        ASSERT_EQ(CallBanded(image, &dst, q), LUT_OK);
        EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(ReferenceBanded(image.Mat(), q)))
            << width << "x" << height << " first level " << fill[0] << " levels " << fill.size()
            << " bounds " << low << ".." << high;
      }
    }
  }
}

}  // namespace
}  // namespace KIVMV
