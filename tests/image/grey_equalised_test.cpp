#include "image/grey_equalised.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KivLUTSetting.h"
#include "common/fault_injection.h"
#include "frame/kiv_lut_setting_impl.h"
#include "image/image_test_support.h"
#include "support/log_capture.h"
#include "support/reference_equalisation.h"
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
using testing_support::ReferenceAllotSlots;
using testing_support::TableOf;
using testing_support::X86Truncate;

// ---------------------------------------------------------------------------------------------
// A plain serial restatement of the equalised grey colouring, one pixel at a time.

// One colour per pixel as the destination holds it: three channels, or the first alone.
cv::Mat ResultFromColours(int rows, int cols, const std::vector<ColourEntry>& colours,
                          bool firstChannelOnly) {
  const int channels = firstChannelOnly ? 1 : 3;
  cv::Mat out(rows, cols, CV_MAKETYPE(CV_8U, channels));
  for (size_t i = 0; i < colours.size(); ++i) {
    for (int c = 0; c < channels; ++c) out.data[i * channels + c] = colours[i][c];
  }
  return out;
}

cv::Mat ReferenceEqualised(const cv::Mat& src, int mapType) {
  const bool eightBit = src.depth() == CV_8U;
  const bool ownTable = mapType >= 1 && mapType <= 6;
  const std::vector<int> v = GreyLevels(src);
  const int n = static_cast<int>(v.size());

  // 8-bit grey maps: copies of the grey levels, one channel for map 0, else three equal ones.
  if (eightBit && !ownTable) {
    std::vector<ColourEntry> grey(n);
    for (int i = 0; i < n; ++i) {
      const uint8_t g = static_cast<uint8_t>(v[i]);
      grey[i] = {g, g, g};
    }
    return ResultFromColours(src.rows, src.cols, grey, mapType == 0);
  }

  const ColourTable& table = TableOf(mapType);
  // Statistics: a grey level of 0 is invalid.
  int minimum = eightBit ? 255 : 65535, maximum = 0;
  uint32_t count = 0;
  for (int g : v) {
    if (g == 0) continue;
    minimum = std::min(minimum, g);
    maximum = std::max(maximum, g);
    ++count;
  }
  const double low = minimum, high = maximum;
  const int B = 256;  // entry 0 is not reserved
  const double w = high / B - low / B;

  std::vector<ColourEntry> colours(n);
  if (!(w > 1e-8)) {
    // One entry for every valid pixel; invalid ones take the invalid colour of map type 5.
    const uint32_t index = std::min<uint32_t>(static_cast<uint32_t>(X86Truncate(low)), 255);
    for (int i = 0; i < n; ++i) colours[i] = v[i] != 0 ? table[index] : InvalidColorTable[5];
    return ResultFromColours(src.rows, src.cols, colours, mapType == 0);
  }

  // Histogram of the pixels in [low, high]; bin 256 falls back to 255.
  std::vector<uint32_t> hist(256, 0);
  for (int g : v) {
    const double x = g;
    if (!(low <= x && x <= high)) continue;
    const int64_t b = X86Truncate(std::floor(x / w - low / w + 1e-14));
    hist[std::clamp<int64_t>(b, 0, 255)]++;
  }
  const auto slots = ReferenceAllotSlots(hist, count, B, w, low);
  auto slotOf = [&](double x, int b) { return slots.SlotOf(x, b); };

  for (int i = 0; i < n; ++i) {
    const double x = v[i];
    if (v[i] == 0) {
      colours[i] = table[0];
    } else if (x >= high) {
      colours[i] = table[255];
    } else if (x < low) {
      colours[i] = table[0];
    } else {
      int64_t b = X86Truncate(std::floor((x - low) / w + 1e-14));
      if (b == B) b = B - 1;
      b = std::clamp<int64_t>(b, 0, B - 1);
      colours[i] = table[std::clamp<int64_t>(slotOf(x, static_cast<int>(b)), 0, 255)];
    }
  }
  return ResultFromColours(src.rows, src.cols, colours, mapType == 0);
}

// ---------------------------------------------------------------------------------------------
// Destinations in the states a caller may hand over.

enum class Destination { kEmpty, kShared, kCallerBuffer, kSource };

struct DestinationUnderTest {
  KivImage image;
  KivImage sharer;                   // kShared: another image on the same pixels
  std::vector<uint8_t> buffer;       // kCallerBuffer: the caller's bytes
  std::vector<uint8_t> sharedBytes;  // what the sharer held
};

std::unique_ptr<DestinationUnderTest> MakeDestination(Destination kind) {
  auto d = std::make_unique<DestinationUnderTest>();
  switch (kind) {
    case Destination::kEmpty:
    case Destination::kSource:
      break;
    case Destination::kShared:
      d->image = KivImage(3, 2, 3, KIV_IMAGE_8U);
      d->image.Mat().setTo(cv::Scalar(11, 22, 33));
      d->sharer = d->image;
      d->sharedBytes = MatBytes(d->sharer.Mat());
      break;
    case Destination::kCallerBuffer:
      d->buffer.assign(7 * 5 * 3 + 5 * 4, 0x5A);
      d->image = KivImage(d->buffer.data(), 7, 5, 3, 7 * 3 + 4, KIV_IMAGE_8U);
      break;
  }
  return d;
}

// The caller's other images and buffers keep their bytes.
void ExpectCallerBytesKept(const DestinationUnderTest& d, Destination kind) {
  if (kind == Destination::kShared) {
    EXPECT_EQ(MatBytes(d.sharer.Mat()), d.sharedBytes);
  }
  if (kind == Destination::kCallerBuffer) {
    EXPECT_TRUE(std::all_of(d.buffer.begin(), d.buffer.end(), [](uint8_t b) { return b == 0x5A; }));
    EXPECT_NE(d.image.Mat().data, d.buffer.data());
  }
}

// Every byte of a source's pixels, padding included: the caller's buffer, or the matrix's block.
std::vector<uint8_t> SourceBytes(const GreyImage& grey, const cv::Mat& pixels) {
  if (!grey.buffer.empty()) return grey.buffer;
  return std::vector<uint8_t>(pixels.data, pixels.data + pixels.total() * pixels.elemSize());
}
std::vector<uint8_t> SourceBytes(const GreyImage& grey) {
  return SourceBytes(grey, grey.image.Mat());
}

void ExpectMatchesReference(GreyImage& grey, int mapType, Destination kind) {
  const cv::Mat want = ReferenceEqualised(grey.image.Mat(), mapType);
  const cv::Mat source = grey.image.Mat();  // the pixels, also once the image is the destination
  const std::vector<uint8_t> sourceBefore = SourceBytes(grey, source);
  auto d = MakeDestination(kind);
  KivImage* dst = kind == Destination::kSource ? &grey.image : &d->image;
  KivLUTSetting lut;
  ASSERT_EQ(lut.SetColorLUT(grey.image, dst, mapType), LUT_OK);
  ASSERT_EQ(dst->Mat().type(), want.type());
  ASSERT_EQ(dst->Mat().size(), want.size());
  const std::vector<uint8_t> got = MatBytes(dst->Mat()), expected = MatBytes(want);
  for (size_t i = 0; i < got.size(); ++i) {
    ASSERT_EQ(got[i], expected[i]) << "byte " << i;
  }
  ExpectCallerBytesKept(*d, kind);
  // The source's pixels stay; with the source as destination only the image's matrix changes.
  EXPECT_EQ(SourceBytes(grey, source), sourceBefore);
}

TEST(GreyEqualised, MatchesReferenceOnRandomImages) {
  std::mt19937_64 random(17);
  for (const auto& [width, height] : GreyImageSizes()) {
    for (int depth : {8, 16}) {
      for (int padding : {0, 1 + static_cast<int>(random() % 5)}) {
        for (int mapType = 0; mapType <= 10; ++mapType) {
          auto grey = depth == 8 ? RandomGreyImage<uint8_t>(width, height, padding, random)
                                 : RandomGreyImage<uint16_t>(width, height, padding, random);
          const Destination kind = static_cast<Destination>(random() % 4);
          SCOPED_TRACE(testing::Message()
                       << depth << "-bit " << width << "x" << height << " padding " << padding
                       << " map " << mapType << " destination " << static_cast<int>(kind));
          ExpectMatchesReference(*grey, mapType, kind);
        }
      }
    }
  }
}

TEST(GreyEqualised, MatchesReferenceOnNarrowAndSparseImages) {
  // Few distinct levels, so that many bins are empty and the nearest-bin search decides.
  std::mt19937_64 random(23);
  for (int depth : {8, 16}) {
    for (int levels : {1, 2, 3, 5, 40}) {
      for (int mapType : {0, 1, 2, 3, 4, 5, 6, 8}) {
        auto grey = depth == 8 ? RandomGreyImage<uint8_t>(37, 29, 3, random)
                               : RandomGreyImage<uint16_t>(37, 29, 0, random);
        std::vector<int> palette;
        for (int k = 0; k < levels; ++k) {
          palette.push_back(static_cast<int>(random() % (depth == 8 ? 256 : 65536)));
        }
        cv::Mat& pixels = grey->image.Mat();
        for (int y = 0; y < pixels.rows; ++y) {
          for (int x = 0; x < pixels.cols; ++x) {
            // A skewed choice: the first level dominates.
            const int pick = random() % 3 == 0 ? static_cast<int>(random() % levels) : 0;
            if (depth == 8) {
              pixels.at<uint8_t>(y, x) = static_cast<uint8_t>(palette[pick]);
            } else {
              pixels.at<uint16_t>(y, x) = static_cast<uint16_t>(palette[pick]);
            }
          }
        }
        SCOPED_TRACE(testing::Message()
                     << depth << "-bit, " << levels << " levels, map " << mapType);
        ExpectMatchesReference(*grey, mapType, Destination::kEmpty);
      }
    }
  }
}

TEST(GreyEqualised, MatchesReferenceOnRealFrames) {
  const std::vector<testing_support::RealFrame> frames = LoadRealGreyFrames();
  if (frames.empty()) GTEST_SKIP() << "no shared data folder: the real frames are skipped";
  for (const testing_support::RealFrame& frame : frames) {
    for (bool eightBit : {false, true}) {
      for (int mapType : {0, 1, 2, 5, 6, 9}) {
        GreyImage grey;
        grey.image = GreyImageFrom(frame.image, eightBit);
        SCOPED_TRACE(testing::Message()
                     << frame.name << (eightBit ? " 8-bit" : " 16-bit") << " map " << mapType);
        ExpectMatchesReference(grey, mapType, Destination::kEmpty);
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Edge cases.

template <typename T>
KivImage GreyFrom(int width, int height, const std::vector<int>& levels) {
  KivImage image(width, height, 1, sizeof(T) == 1 ? KIV_IMAGE_8U : KIV_IMAGE_16U);
  for (int i = 0; i < width * height; ++i) {
    image.Mat().at<T>(i / width, i % width) = static_cast<T>(levels[i]);
  }
  return image;
}

std::vector<uint8_t> PixelBytes(const cv::Mat& m, int i) {
  const int channels = m.channels();
  return std::vector<uint8_t>(m.data + i * channels, m.data + (i + 1) * channels);
}

std::vector<uint8_t> Bytes(const ColourEntry& e) { return {e[0], e[1], e[2]}; }

TEST(GreyEqualised, EightBitGreyMapsAreCopiesWithoutEqualisation) {
  std::mt19937_64 random(3);
  auto grey = RandomGreyImage<uint8_t>(9, 7, 4, random);  // padded rows
  KivLUTSetting lut;
  KivImage zero, seven;
  ASSERT_EQ(lut.SetColorLUT(grey->image, &zero, 0), LUT_OK);
  ASSERT_EQ(zero.Mat().type(), CV_8UC1);
  EXPECT_EQ(MatBytes(zero.Mat()), MatBytes(grey->image.Mat()));
  ASSERT_EQ(lut.SetColorLUT(grey->image, &seven, 7), LUT_OK);
  ASSERT_EQ(seven.Mat().type(), CV_8UC3);
  const std::vector<int> levels = GreyLevels(grey->image.Mat());
  for (size_t i = 0; i < levels.size(); ++i) {
    const uint8_t g = static_cast<uint8_t>(levels[i]);
    EXPECT_EQ(PixelBytes(seven.Mat(), static_cast<int>(i)), (std::vector<uint8_t>{g, g, g}));
  }
}

TEST(GreyEqualised, SixteenBitMapZeroIsEqualisedNotScaled) {
  // A crowded cluster of neighbouring levels and one far outlier. Scaled to 8 bits the whole
  // cluster would fall on grey level 0; equalised, its bin owns 255 of the 256 slots, so its 20
  // levels keep 20 different grey levels.
  std::vector<int> levels;
  for (int i = 0; i < 200; ++i) levels.push_back(1000 + i % 20);
  levels.push_back(60000);
  KivImage image = GreyFrom<uint16_t>(201, 1, levels);
  KivImage out;
  KivLUTSetting lut;
  ASSERT_EQ(lut.SetColorLUT(image, &out, 0), LUT_OK);
  ASSERT_EQ(out.Mat().type(), CV_8UC1);
  EXPECT_EQ(MatBytes(out.Mat()), MatBytes(ReferenceEqualised(image.Mat(), 0)));
  EXPECT_EQ(out.Mat().at<uint8_t>(0, 0), 0);      // the minimum takes the first entry
  EXPECT_EQ(out.Mat().at<uint8_t>(0, 200), 255);  // the maximum the last
  EXPECT_EQ(out.Mat().at<uint8_t>(0, 19), 21);    // 1019: trunc(19 / w x 255), w = 59000 / 256
  std::vector<uint8_t> distinct = MatBytes(out.Mat());
  std::sort(distinct.begin(), distinct.end());
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
  EXPECT_EQ(distinct.size(), 21u);
}

TEST(GreyEqualised, AllZeroImageIsBlackUnderEveryMap) {
  // No valid pixel: the bounds cross and every pixel takes the invalid colour of map type 5,
  // black, also under maps whose first entry is not black (rainbow starts at blue).
  ASSERT_EQ(Bytes(InvalidColorTable[5]), (std::vector<uint8_t>{0, 0, 0}));
  ASSERT_NE(Bytes(kRainbowTable[0]), (std::vector<uint8_t>{0, 0, 0}));
  KivLUTSetting lut;
  for (bool eightBit : {true, false}) {
    KivImage image(5, 3, 1, eightBit ? KIV_IMAGE_8U : KIV_IMAGE_16U);
    for (int mapType = 0; mapType <= 10; ++mapType) {
      KivImage out;
      ASSERT_EQ(lut.SetColorLUT(image, &out, mapType), LUT_OK);
      EXPECT_EQ(out.Mat().channels(), mapType == 0 ? 1 : 3);
      const std::vector<uint8_t> bytes = MatBytes(out.Mat());
      EXPECT_EQ(bytes.size(), 15u * out.Mat().channels());
      EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0; }))
          << (eightBit ? "8" : "16") << "-bit map " << mapType;
    }
  }
}

TEST(GreyEqualised, SingleGreyLevelTakesOneEntry) {
  // One valid level: w = 0, every valid pixel takes entry min(level, 255), zeros are black.
  KivLUTSetting lut;
  KivImage eight = GreyFrom<uint8_t>(3, 1, {7, 0, 7});
  KivImage out;
  ASSERT_EQ(lut.SetColorLUT(eight, &out, kRainbowMap), LUT_OK);
  EXPECT_EQ(PixelBytes(out.Mat(), 0), Bytes(kRainbowTable[7]));
  EXPECT_EQ(PixelBytes(out.Mat(), 1), (std::vector<uint8_t>{0, 0, 0}));
  KivImage sixteen = GreyFrom<uint16_t>(2, 1, {5000, 5000});
  ASSERT_EQ(lut.SetColorLUT(sixteen, &out, kJetMap), LUT_OK);
  EXPECT_EQ(PixelBytes(out.Mat(), 1), Bytes(kJetTable[255]));
}

TEST(GreyEqualised, RgbAndJetTablesColourTheLowestLevelWithTheirFirstEntry) {
  std::vector<int> levels;
  for (int i = 0; i < 64; ++i) levels.push_back(20 + 3 * i);
  levels.push_back(0);
  KivLUTSetting lut;
  for (bool eightBit : {true, false}) {
    KivImage image =
        eightBit ? GreyFrom<uint8_t>(65, 1, levels) : GreyFrom<uint16_t>(65, 1, levels);
    for (int mapType : {kRgbMap, kJetMap}) {
      const ColourTable& table = mapType == kRgbMap ? kRgbTable : kJetTable;
      KivImage out;
      ASSERT_EQ(lut.SetColorLUT(image, &out, mapType), LUT_OK);
      EXPECT_EQ(PixelBytes(out.Mat(), 0), Bytes(table[0]));     // the minimum
      EXPECT_EQ(PixelBytes(out.Mat(), 63), Bytes(table[255]));  // the maximum
      EXPECT_EQ(PixelBytes(out.Mat(), 64), Bytes(table[0]));    // a zero: entry 0 of the table
      EXPECT_EQ(MatBytes(out.Mat()), MatBytes(ReferenceEqualised(image.Mat(), mapType)));
    }
  }
}

TEST(GreyEqualised, OneByOneImage) {
  KivLUTSetting lut;
  for (int level : {0, 1, 255}) {
    KivImage image = GreyFrom<uint8_t>(1, 1, {level});
    for (int mapType = 0; mapType <= 10; ++mapType) {
      KivImage out;
      ASSERT_EQ(lut.SetColorLUT(image, &out, mapType), LUT_OK);
      EXPECT_EQ(MatBytes(out.Mat()), MatBytes(ReferenceEqualised(image.Mat(), mapType)));
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Checks, stage codes and logging.

// A destination holding known bytes, to see that a failing call leaves it alone.
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
    EXPECT_EQ(image.Mat().size(), cv::Size(4, 2));
    EXPECT_EQ(MatBytes(image.Mat()), MatBytes(cv::Mat(2, 4, CV_8UC3, cv::Scalar(1, 2, 3))));
  }
};

TEST(GreyEqualised, FrameChecksInOrder) {
  KivLUTSetting lut;
  WatchedDestination dst;
  KivImage none;
  EXPECT_EQ(lut.SetColorLUT(none, &dst.image, 99), LUT_ERR_IMAGE_EMPTY);  // before the map type
  KivImage noRows(4, 0, 1, KIV_IMAGE_8U), noColumns(0, 4, 1, KIV_IMAGE_8U);
  EXPECT_EQ(lut.SetColorLUT(noRows, &dst.image, 1), LUT_ERR_IMAGE_EMPTY);
  EXPECT_EQ(lut.SetColorLUT(noColumns, nullptr, 1), LUT_ERR_IMAGE_EMPTY);
  KivImage colour(4, 4, 3, KIV_IMAGE_8U);
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 11), LUT_ERR_PARAM_1);  // before the channels
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, -1), LUT_ERR_PARAM_1);
  EXPECT_EQ(lut.SetColorLUT(colour, nullptr, 1), LUT_ERR_PARAM_2);  // the frame's last check
  EXPECT_EQ(lut.SetColorLUT(colour, &dst.image, 1), LUT_ERR_IMAGE_CHANNELS);
  KivImage signedEight(4, 4, 1, KIV_IMAGE_8S);
  EXPECT_EQ(lut.SetColorLUT(signedEight, &dst.image, 1), LUT_ERR_IMAGE_BIT_DEPTH);
  KivImage colourSigned(4, 4, 3, KIV_IMAGE_8S);
  EXPECT_EQ(lut.SetColorLUT(colourSigned, &dst.image, 1), LUT_ERR_IMAGE_CHANNELS);
  for (KivImageType type : {KIV_IMAGE_16S, KIV_IMAGE_32S, KIV_IMAGE_32F, KIV_IMAGE_64F}) {
    KivImage other(4, 4, 1, type);
    EXPECT_EQ(lut.SetColorLUT(other, &dst.image, 0), LUT_ERR_IMAGE_BIT_DEPTH);
  }
  dst.ExpectUntouched();
}

TEST(GreyEqualised, RoutineChecksInOrder) {
  KivLUTSettingImpl impl;
  WatchedDestination dst;
  KivImage none, colour(4, 4, 3, KIV_IMAGE_8U), signedEight(4, 4, 1, KIV_IMAGE_8S);
  KivImage grey(4, 4, 1, KIV_IMAGE_16U);
  EXPECT_EQ(impl.SetColorLUT(none, nullptr, 99), LUT_ERR_IMAGE_EMPTY);
  EXPECT_EQ(impl.SetColorLUT(colour, nullptr, 99), LUT_ERR_IMAGE_CHANNELS);
  EXPECT_EQ(impl.SetColorLUT(signedEight, nullptr, 99), LUT_ERR_IMAGE_BIT_DEPTH);
  // The routine's own map-type check, which callers of the frame never reach.
  EXPECT_EQ(impl.SetColorLUT(grey, &dst.image, 11), LUT_ERR_PARAM_6);
  EXPECT_EQ(impl.SetColorLUT(grey, &dst.image, -1), LUT_ERR_PARAM_6);
  EXPECT_EQ(impl.SetColorLUT(grey, nullptr, 3), LUT_ERR_PARAM_2);
  dst.ExpectUntouched();
  EXPECT_EQ(impl.SetColorLUT(grey, &dst.image, 3), LUT_OK);
  EXPECT_NE(dst.image.Mat().data, dst.data);
}

TEST(GreyEqualised, EachStageThatThrowsReturnsArrayApplyFailed) {
  std::mt19937_64 random(5);
  const struct {
    int depth;
    int mapType;
    std::vector<FaultStage> stages;
  } paths[] = {
      {8, 0, {FaultStage::kOutputSizing}},  // the grey copies have no other stage
      {8, 7, {FaultStage::kOutputSizing}},
      {8, 3, {FaultStage::kOutputSizing, FaultStage::kStatistics, FaultStage::kColouring}},
      {16, 0, {FaultStage::kOutputSizing, FaultStage::kStatistics, FaultStage::kColouring}},
      {16, 6, {FaultStage::kOutputSizing, FaultStage::kStatistics, FaultStage::kColouring}},
  };
  KivLUTSetting lut;
  for (const auto& path : paths) {
    for (FaultStage stage : path.stages) {
      auto grey = path.depth == 8 ? RandomGreyImage<uint8_t>(11, 7, 2, random)
                                  : RandomGreyImage<uint16_t>(11, 7, 0, random);
      const std::vector<uint8_t> sourceBefore = SourceBytes(*grey);
      WatchedDestination dst;
      {
        ScopedFault fault(stage);
        EXPECT_EQ(lut.SetColorLUT(grey->image, &dst.image, path.mapType),
                  LUT_ERR_ARRAY_APPLY_FAILED)
            << path.depth << "-bit map " << path.mapType << " stage " << static_cast<int>(stage);
      }
      dst.ExpectUntouched();
      EXPECT_EQ(SourceBytes(*grey), sourceBefore);
      EXPECT_EQ(lut.SetColorLUT(grey->image, &dst.image, path.mapType), LUT_OK);
    }
  }
}

const std::string kEndMessage =
    "\xd4\xb4\xcd\xbc\xcf\xf1\xd1\xd5\xc9\xab\xb7\xc7\xcf\xdf\xd0\xd4\xd3\xb3"
    "\xc9\xe4\xbd\xe1\xca\xf8";  // 源图像颜色非线性映射结束 in GBK

TEST(GreyEqualised, LogsStartAndEndTags) {
  KivLUTSetting lut;
  KivImage image = GreyFrom<uint8_t>(2, 2, {1, 2, 3, 4}), out;
  {
    testing_support::LogCapture capture;
    ASSERT_EQ(lut.SetColorLUT(image, &out, 1), LUT_OK);
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorLUT:198:start",
                                                        "SetColorLUT:211:" + kEndMessage}));
    const std::vector<testing_support::LogLine> lines = capture.Lines();
    for (const auto& line : lines) EXPECT_EQ(line.className, "KivLUTSetting");
  }
  {
    // A check of the frame fails: only "start".
    testing_support::LogCapture capture;
    ASSERT_EQ(lut.SetColorLUT(image, &out, 11), LUT_ERR_PARAM_1);
    ASSERT_EQ(lut.SetColorLUT(image, nullptr, 1), LUT_ERR_PARAM_2);
    EXPECT_EQ(capture.Tags(),
              (std::vector<std::string>{"SetColorLUT:198:start", "SetColorLUT:198:start"}));
  }
  {
    // The routine ran and refused: its status comes after the end message.
    testing_support::LogCapture capture;
    KivImage colour(2, 2, 3, KIV_IMAGE_8U);
    ASSERT_EQ(lut.SetColorLUT(colour, &out, 1), LUT_ERR_IMAGE_CHANNELS);
    EXPECT_EQ(capture.Tags(), (std::vector<std::string>{"SetColorLUT:198:start",
                                                        "SetColorLUT:211:" + kEndMessage}));
  }
}

TEST(GreyEqualised, ResultIsANewMatrixEvenForAMatchingDestination) {
  KivLUTSetting lut;
  KivImage image = GreyFrom<uint8_t>(4, 2, {1, 2, 3, 4, 5, 6, 7, 8});
  // A destination of exactly the result's size and type, shared with another image.
  KivImage dst(4, 2, 3, KIV_IMAGE_8U);
  const KivImage sharer = dst;
  ASSERT_EQ(lut.SetColorLUT(image, &dst, 2), LUT_OK);
  EXPECT_NE(dst.Mat().data, sharer.Mat().data);
  EXPECT_EQ(cv::countNonZero(sharer.Mat().reshape(1)), 0);
  // The destination shares the new matrix: a copy of it sees the same pixels.
  const KivImage copy = dst;
  EXPECT_EQ(copy.Mat().data, dst.Mat().data);
}

TEST(GreyEqualised, ConcurrentCallsOnOneObjectAndOneSource) {
  std::mt19937_64 random(41);
  auto eight = RandomGreyImage<uint8_t>(97, 61, 3, random);
  auto sixteen = RandomGreyImage<uint16_t>(97, 61, 0, random);
  KivLUTSetting lut;
  const int kThreads = 4;
  std::vector<KivImage> outs(kThreads);
  std::vector<long> status(kThreads, -1);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      GreyImage& grey = t % 2 ? *sixteen : *eight;
      for (int round = 0; round < 20; ++round) {
        status[t] = lut.SetColorLUT(grey.image, &outs[t], 1 + t);
        if (status[t] != LUT_OK) break;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    ASSERT_EQ(status[t], LUT_OK);
    const cv::Mat& source = (t % 2 ? *sixteen : *eight).image.Mat();
    EXPECT_EQ(MatBytes(outs[t].Mat()), MatBytes(ReferenceEqualised(source, 1 + t))) << t;
  }
}

// ---------------------------------------------------------------------------------------------
// A destination that alone owns a matrix of the result's shape is written in place.

// A destination of `want`'s size and type that alone owns its pixels, all `fill`.
KivImage OwnedDestinationLike(const cv::Mat& want, uint8_t fill) {
  KivImage dst(want.cols, want.rows, want.channels(), KIV_IMAGE_8U);
  dst.Mat().setTo(cv::Scalar::all(fill));
  return dst;
}

bool AllBytesAre(const cv::Mat& m, uint8_t value) {
  const std::vector<uint8_t> bytes = MatBytes(m);
  return std::all_of(bytes.begin(), bytes.end(), [value](uint8_t b) { return b == value; });
}

TEST(GreyEqualised, OwnedMatchingDestinationIsWrittenInPlace) {
  std::mt19937_64 random(43);
  for (const auto& [width, height] : GreyImageSizes()) {
    for (int depth : {8, 16}) {
      for (int mapType = 0; mapType <= 10; ++mapType) {
        const int padding = mapType % 2 == 0 ? 0 : 3;
        auto grey = depth == 8 ? RandomGreyImage<uint8_t>(width, height, padding, random)
                               : RandomGreyImage<uint16_t>(width, height, padding, random);
        SCOPED_TRACE(testing::Message()
                     << depth << "-bit " << width << "x" << height << " map " << mapType);
        const cv::Mat want = ReferenceEqualised(grey->image.Mat(), mapType);
        KivImage dst = OwnedDestinationLike(want, 0x77);
        const uint8_t* buffer = dst.Data();
        KivLUTSetting lut;
        ASSERT_EQ(lut.SetColorLUT(grey->image, &dst, mapType), LUT_OK);
        EXPECT_EQ(dst.Data(), buffer);
        ASSERT_EQ(dst.Mat().type(), want.type());
        EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(want));
        // A second call into the same matrix gives the same bytes again.
        ASSERT_EQ(lut.SetColorLUT(grey->image, &dst, mapType), LUT_OK);
        EXPECT_EQ(dst.Data(), buffer);
        EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(want));
      }
    }
  }
}

// Every stage that fails leaves a destination it would have written in place as it was.
TEST(GreyEqualised, FailingStageLeavesAnOwnedMatchingDestinationUntouched) {
  std::mt19937_64 random(47);
  const struct {
    int depth;
    int mapType;
    std::vector<FaultStage> stages;
  } paths[] = {
      {8, 0, {FaultStage::kOutputSizing}},
      {8, 8, {FaultStage::kOutputSizing}},
      {8, 2, {FaultStage::kOutputSizing, FaultStage::kStatistics, FaultStage::kColouring}},
      {16, 0, {FaultStage::kOutputSizing, FaultStage::kStatistics, FaultStage::kColouring}},
      {16, 4, {FaultStage::kOutputSizing, FaultStage::kStatistics, FaultStage::kColouring}},
  };
  KivLUTSetting lut;
  // Fewer pixels than 16-bit levels, and enough for every level and for parallel loops.
  for (const auto& [width, height] : {std::pair<int, int>{33, 31}, {640, 480}}) {
    for (const auto& path : paths) {
      for (FaultStage stage : path.stages) {
        auto grey = path.depth == 8 ? RandomGreyImage<uint8_t>(width, height, 0, random)
                                    : RandomGreyImage<uint16_t>(width, height, 0, random);
        const cv::Mat want = ReferenceEqualised(grey->image.Mat(), path.mapType);
        KivImage dst = OwnedDestinationLike(want, 0x77);
        const uint8_t* buffer = dst.Data();
        {
          ScopedFault fault(stage);
          EXPECT_EQ(lut.SetColorLUT(grey->image, &dst, path.mapType), LUT_ERR_ARRAY_APPLY_FAILED)
              << path.depth << "-bit map " << path.mapType << " stage " << static_cast<int>(stage);
        }
        EXPECT_EQ(dst.Data(), buffer);
        EXPECT_TRUE(AllBytesAre(dst.Mat(), 0x77));
        ASSERT_EQ(lut.SetColorLUT(grey->image, &dst, path.mapType), LUT_OK);
        EXPECT_EQ(dst.Data(), buffer);
        EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(want));
      }
    }
  }
}

// A source that reads pixels out of the destination's own buffer keeps that buffer from being
// written: the result goes to a new matrix and equals the colouring of the pixels as they were.
TEST(GreyEqualised, DestinationOverlappingTheSourceIsNotWrittenInPlace) {
  std::mt19937_64 random(53);
  for (int depth : {8, 16}) {
    for (int mapType : {3, 9}) {
      // Pixels at the start of the destination's bytes, or some way into them (even offsets keep
      // 16-bit samples aligned).
      for (size_t offset : {0, 2, 500}) {
        const auto inside = testing_support::MakeSourceInsideDestination(depth, offset, random);
        ASSERT_NE(inside, nullptr);
        KivImage& dst = inside->destination;
        KivImage& source = inside->source;
        const cv::Mat want = ReferenceEqualised(source.Mat().clone(), mapType);
        const uint8_t* buffer = dst.Data();
        KivLUTSetting lut;
        ASSERT_EQ(lut.SetColorLUT(source, &dst, mapType), LUT_OK);
        // The old buffer went with the old matrix; `source` is not read again.
        EXPECT_NE(dst.Data(), buffer);
        EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(want))
            << depth << "-bit map " << mapType << " offset " << offset;
      }
    }
  }
}

// Images that hold every 8-bit level (each pixel count at least the 256 levels) and images of
// fewer pixels than levels, whose pixels the engine colours one by one, against the reference.
TEST(GreyEqualised, EveryEightBitLevelMatchesReference) {
  std::mt19937_64 random(59);
  for (const auto& [width, height] :
       {std::pair<int, int>{16, 16}, {257, 1}, {1, 300}, {31, 29}, {5, 3}, {1, 255}, {641, 479}}) {
    for (int mapType = 1; mapType <= 6; ++mapType) {
      KivImage image(width, height, 1, KIV_IMAGE_8U);
      uint8_t* levels = image.Mat().data;
      const int n = width * height;
      for (int i = 0; i < n; ++i) levels[i] = static_cast<uint8_t>(i < 256 ? i : random());
      std::shuffle(levels, levels + n, random);
      KivImage dst;
      KivLUTSetting lut;
      ASSERT_EQ(lut.SetColorLUT(image, &dst, mapType), LUT_OK);
      EXPECT_EQ(MatBytes(dst.Mat()), MatBytes(ReferenceEqualised(image.Mat(), mapType)))
          << width << "x" << height << " map " << mapType;
    }
  }
}

// Levels between two extremes, with zeros: with many pixels per level the levels are coloured once
// and the pixels by lookup, with few the pixels one by one; both into a new matrix and into a
// destination's own one, whose result is copied in.
TEST(GreyEqualised, NarrowLevelRangesMatchReferenceIntoNewAndOwnedDestinations) {
  std::mt19937_64 random(73);
  for (int depth : {8, 16}) {
    for (const auto& [width, height] :
         {std::pair<int, int>{1, 1}, {9, 1}, {33, 31}, {257, 64}, {640, 480}}) {
      for (int span : {0, 1, 2, 15, 16, 200, 255, 4000}) {
        const int top = depth == 8 ? 255 : 65535;
        if (span > top - 1) continue;
        const int low = 1 + static_cast<int>(random() % static_cast<uint64_t>(top - span));
        KivImage image(width, height, 1, depth == 8 ? KIV_IMAGE_8U : KIV_IMAGE_16U);
        for (int y = 0; y < height; ++y) {
          for (int x = 0; x < width; ++x) {
            const int level =
                random() % 10 == 0 ? 0 : low + static_cast<int>(random() % (span + 1));
            if (depth == 8) {
              image.Mat().at<uint8_t>(y, x) = static_cast<uint8_t>(level);
            } else {
              image.Mat().at<uint16_t>(y, x) = static_cast<uint16_t>(level);
            }
          }
        }
        for (int mapType : {0, 4, 6}) {
          if (depth == 8 && mapType == 0) continue;  // an 8-bit map 0 is a plain copy
          const cv::Mat want = ReferenceEqualised(image.Mat(), mapType);
          SCOPED_TRACE(testing::Message()
                       << depth << "-bit " << width << "x" << height << " levels " << low << ".."
                       << low + span << " map " << mapType);
          KivLUTSetting lut;
          KivImage fresh;
          ASSERT_EQ(lut.SetColorLUT(image, &fresh, mapType), LUT_OK);
          EXPECT_EQ(MatBytes(fresh.Mat()), MatBytes(want));
          KivImage owned = OwnedDestinationLike(want, 0x77);
          const uint8_t* buffer = owned.Data();
          ASSERT_EQ(lut.SetColorLUT(image, &owned, mapType), LUT_OK);
          EXPECT_EQ(owned.Data(), buffer);
          EXPECT_EQ(MatBytes(owned.Mat()), MatBytes(want));
        }
      }
    }
  }
}

}  // namespace
}  // namespace KIVMV
