// Frames written in every format come back with the same type, size and bytes; bad files give
// their documented one-line reasons; pictures are written so that a failure leaves nothing behind.
#include "frame_io.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "range/range_test_support.h"

namespace kivlut {
namespace {

namespace fs = std::filesystem;
using KIVMV::KivDataType;
using KIVMV::KivRangeImage;
using KIVMV::testing_support::RandomRangeImage;

// A fresh folder for one test, removed with everything in it afterwards.
class ScratchFolder {
 public:
  ScratchFolder() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = fs::temp_directory_path() /
            ("kivlut-frame-io-" + std::to_string(getpid()) + "-" + info->name());
    fs::remove_all(path_);
    fs::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const fs::path& path() const { return path_; }
  fs::path operator/(const std::string& name) const { return path_ / name; }

  // Every name in the folder, hidden ones included, sorted.
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  fs::path path_;
};

std::vector<unsigned char> FileBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                    std::istreambuf_iterator<char>());
}

void WriteFileBytes(const fs::path& file, const std::string& bytes) {
  std::ofstream out(file, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The pixel bytes of a matrix row after row, padding skipped.
std::vector<unsigned char> PixelBytes(const cv::Mat& m) {
  std::vector<unsigned char> bytes;
  const std::size_t row = static_cast<std::size_t>(m.cols) * m.elemSize();
  for (int y = 0; y < m.rows; ++y) bytes.insert(bytes.end(), m.ptr(y), m.ptr(y) + row);
  return bytes;
}

// A quiet NaN with a payload of its own, so that a reader that builds a fresh NaN is caught.
float PayloadNan() {
  const std::uint32_t bits = 0x7fc0beefu;
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

template <typename T>
KivRangeImage FrameWithMarkers(int width, int height, std::mt19937_64& random) {
  KivRangeImage image = RandomRangeImage<T>(width, height, random);
  T* pixels = image.Ptr<T>();
  // Whatever the random draw, the marker (and for floats a NaN with a payload) is in the frame.
  pixels[0] = KIVMV::testing_support::Marker<T>();
  if constexpr (std::is_floating_point_v<T>) {
    if (width * height > 1) pixels[width * height - 1] = static_cast<T>(PayloadNan());
  }
  return image;
}

struct FormatCase {
  FrameFormat format;
  const char* extension;
  std::vector<KivDataType> types;
};

std::vector<FormatCase> FormatCases() {
  using namespace KIVMV;
  return {
      {FrameFormat::kPng, ".png", {KIV_DATA_U8, KIV_DATA_U16}},
      {FrameFormat::kTiff, ".tiff", {KIV_DATA_U8, KIV_DATA_U16, KIV_DATA_F32}},
      {FrameFormat::kPfm, ".pfm", {KIV_DATA_F32}},
      {FrameFormat::kRaw,
       ".raw",
       {KIV_DATA_U8, KIV_DATA_S8, KIV_DATA_U16, KIV_DATA_S16, KIV_DATA_S32, KIV_DATA_F32,
        KIV_DATA_F64}},
  };
}

TEST(FrameIo, EveryFormatRoundTripsEveryTypeItHoldsByteForByte) {
  ScratchFolder folder;
  std::mt19937_64 random(7);
  const std::vector<std::pair<int, int>> sizes = {{1, 1}, {7, 5}, {1, 17}, {23, 1}, {640, 480}};
  for (const FormatCase& c : FormatCases()) {
    for (KivDataType type : c.types) {
      for (const auto& dimensions : sizes) {
        // Plain names: Clang 14 cannot capture structured bindings in the lambda below.
        const int width = dimensions.first;
        const int height = dimensions.second;
        SCOPED_TRACE(std::string(c.extension) + " " + PixelTypeName(type) + " " +
                     std::to_string(width) + "x" + std::to_string(height));
        KivRangeImage written;
        KIVMV::VisitPixelType(type, [&](auto tag) {
          using T = typename decltype(tag)::type;
          written = FrameWithMarkers<T>(width, height, random);
        });
        const fs::path file = folder / (std::string("frame") + c.extension);
        std::string error;
        ASSERT_TRUE(WriteRangeFrame(file, written, c.format, &error)) << error;
        EXPECT_EQ(folder.Names(), std::vector<std::string>{file.filename().string()});

        std::optional<RawLayout> layout;
        if (c.format == FrameFormat::kRaw) layout = RawLayout{width, height, type};
        const ReadResult read = ReadPixels(file, layout);
        ASSERT_TRUE(read.error.empty()) << read.error;
        const std::optional<KivRangeImage> back = ToRangeImage(read.pixels, Axes{}, &error);
        ASSERT_TRUE(back.has_value()) << error;
        EXPECT_EQ(back->DataType(), type);
        ASSERT_EQ(back->Width(), width);
        ASSERT_EQ(back->Height(), height);
        const std::size_t size = static_cast<std::size_t>(width) * height * KIVMV::SampleSize(type);
        EXPECT_EQ(std::memcmp(back->Data(), written.Data(), size), 0);
        fs::remove(file);
      }
    }
  }
}

TEST(FrameIo, FloatFormatsKeepNanInfinitiesAndTheMarker) {
  ScratchFolder folder;
  const float specials[] = {PayloadNan(),
                            std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(),
                            -FLT_MAX,
                            FLT_MAX,
                            -0.0f,
                            FLT_MIN / 4.0f};
  KivRangeImage image(4, 2, KIVMV::KIV_DATA_F32);
  std::memcpy(image.Data(), specials, sizeof specials);
  for (const auto& [format, name] :
       {std::pair{FrameFormat::kTiff, "f.tif"}, std::pair{FrameFormat::kPfm, "f.pfm"},
        std::pair{FrameFormat::kRaw, "f.raw"}}) {
    SCOPED_TRACE(name);
    std::string error;
    ASSERT_TRUE(WriteRangeFrame(folder / name, image, format, &error)) << error;
    std::optional<RawLayout> layout;
    if (format == FrameFormat::kRaw) layout = RawLayout{4, 2, KIVMV::KIV_DATA_F32};
    const ReadResult read = ReadPixels(folder / name, layout);
    ASSERT_TRUE(read.error.empty()) << read.error;
    ASSERT_EQ(read.pixels.type(), CV_32FC1);
    EXPECT_TRUE(std::isnan(read.pixels.at<float>(0, 0)));
    EXPECT_TRUE(std::isnan(read.pixels.at<float>(0, 1)));
    EXPECT_EQ(read.pixels.at<float>(0, 2), std::numeric_limits<float>::infinity());
    EXPECT_EQ(read.pixels.at<float>(0, 3), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(read.pixels.at<float>(1, 0), -FLT_MAX);
    EXPECT_EQ(PixelBytes(read.pixels),
              std::vector<unsigned char>(
                  reinterpret_cast<const unsigned char*>(specials),
                  reinterpret_cast<const unsigned char*>(specials) + sizeof specials));
  }
}

// PFM keeps its rows bottom-up: a file made by hand must come back with its last stored row at
// the top, and the file we write must store the image's bottom row first.
TEST(FrameIo, PfmRowsAreStoredBottomUp) {
  ScratchFolder folder;
  const float bottom[3] = {4.0f, 5.0f, 6.0f};
  const float top[3] = {1.0f, 2.0f, 3.0f};
  std::string file = "Pf\n3 2\n-1.0\n";
  file.append(reinterpret_cast<const char*>(bottom), sizeof bottom);
  file.append(reinterpret_cast<const char*>(top), sizeof top);
  WriteFileBytes(folder / "hand.pfm", file);

  const ReadResult read = ReadPixels(folder / "hand.pfm", std::nullopt);
  ASSERT_TRUE(read.error.empty()) << read.error;
  ASSERT_EQ(read.pixels.type(), CV_32FC1);
  ASSERT_EQ(read.pixels.size(), cv::Size(3, 2));
  for (int x = 0; x < 3; ++x) {
    EXPECT_EQ(read.pixels.at<float>(0, x), top[x]);
    EXPECT_EQ(read.pixels.at<float>(1, x), bottom[x]);
  }

  const std::optional<KivRangeImage> image = ToRangeImage(read.pixels, Axes{}, nullptr);
  ASSERT_TRUE(image.has_value());
  std::string error;
  ASSERT_TRUE(WriteRangeFrame(folder / "ours.pfm", *image, FrameFormat::kPfm, &error)) << error;
  const std::vector<unsigned char> ours = FileBytes(folder / "ours.pfm");
  ASSERT_GE(ours.size(), sizeof bottom + sizeof top);
  const unsigned char* data = ours.data() + ours.size() - sizeof bottom - sizeof top;
  EXPECT_EQ(std::memcmp(data, bottom, sizeof bottom), 0);
  EXPECT_EQ(std::memcmp(data + sizeof bottom, top, sizeof top), 0);
}

// The real PFM frames, read through a plain parser of the format, match what ReadPixels gives.
TEST(FrameIo, RealPfmFramesMatchAPlainReader) {
  const fs::path dir = KIVMV::testing_support::SharedDataDir() / "pcl";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "the shared data folder is absent";
  int checked = 0;
  for (const auto& entry : fs::directory_iterator(dir)) {
    if (entry.path().extension() != ".pfm") continue;
    SCOPED_TRACE(entry.path().filename().string());
    std::ifstream in(entry.path(), std::ios::binary);
    std::string magic;
    int width = 0, height = 0;
    double scale = 0.0;
    in >> magic >> width >> height >> scale;
    in.get();  // the single white-space character before the samples
    ASSERT_EQ(magic, "Pf");
    ASSERT_LT(scale, 0.0) << "little-endian files only";
    std::vector<float> stored(static_cast<std::size_t>(width) * height);
    in.read(reinterpret_cast<char*>(stored.data()),
            static_cast<std::streamsize>(stored.size() * sizeof(float)));
    ASSERT_TRUE(in.good());

    const ReadResult read = ReadPixels(entry.path(), std::nullopt);
    ASSERT_TRUE(read.error.empty()) << read.error;
    ASSERT_EQ(read.pixels.type(), CV_32FC1);
    ASSERT_EQ(read.pixels.size(), cv::Size(width, height));
    for (int y = 0; y < height; ++y) {
      const float* expected = stored.data() + static_cast<std::size_t>(height - 1 - y) * width;
      ASSERT_EQ(std::memcmp(read.pixels.ptr(y), expected, sizeof(float) * width), 0) << "row " << y;
    }
    ++checked;
  }
  EXPECT_GT(checked, 0);
}

TEST(FrameIo, RawFilesAreLittleEndianAndRowMajor) {
  ScratchFolder folder;
  KivRangeImage image(3, 2, KIVMV::KIV_DATA_S32);
  const std::int32_t values[6] = {INT_MIN, 1, -2, 0x01020304, 0, INT_MAX};
  std::memcpy(image.Data(), values, sizeof values);
  std::string error;
  ASSERT_TRUE(WriteRangeFrame(folder / "f.raw", image, FrameFormat::kRaw, &error)) << error;
  std::vector<unsigned char> expected;
  for (std::int32_t v : values) {
    const auto u = static_cast<std::uint32_t>(v);
    for (int shift = 0; shift < 32; shift += 8) {
      expected.push_back(static_cast<unsigned char>((u >> shift) & 0xffu));
    }
  }
  EXPECT_EQ(FileBytes(folder / "f.raw"), expected);

  // A padded view (a region of a wider matrix) is written without its padding.
  cv::Mat wide(2, 5, CV_16UC1);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 5; ++x)
      wide.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(y * 256 + x);
  }
  const std::optional<KivRangeImage> region =
      ToRangeImage(wide(cv::Rect(1, 0, 3, 2)), Axes{}, &error);
  ASSERT_TRUE(region.has_value()) << error;
  ASSERT_TRUE(WriteRangeFrame(folder / "r.raw", *region, FrameFormat::kRaw, &error)) << error;
  EXPECT_EQ(FileBytes(folder / "r.raw"),
            (std::vector<unsigned char>{1, 0, 2, 0, 3, 0, 1, 1, 2, 1, 3, 1}));
}

TEST(FrameIo, RawReadErrorsNameTheProblem) {
  ScratchFolder folder;
  WriteFileBytes(folder / "short.raw", std::string(1000, '\0'));
  const RawLayout vga{640, 480, KIVMV::KIV_DATA_U16};
  ReadResult read = ReadPixels(folder / "short.raw", vga);
  EXPECT_TRUE(read.pixels.empty());
  EXPECT_EQ(read.error, "size 1000 bytes, expected 614400 for 640x480:u16");

  WriteFileBytes(folder / "long.raw", std::string(7 * 5 * 8 + 1, '\0'));
  read = ReadPixels(folder / "long.raw", RawLayout{7, 5, KIVMV::KIV_DATA_F64});
  EXPECT_EQ(read.error, "size 281 bytes, expected 280 for 7x5:f64");

  read = ReadPixels(folder / "missing.raw", vga);
  EXPECT_TRUE(read.pixels.empty());
  EXPECT_EQ(read.error, "no such file or folder");

  read = ReadPixels(folder.path(), vga);
  EXPECT_EQ(read.error, "cannot read the file");

  read = ReadPixels(folder / "short.raw", RawLayout{0, 5, KIVMV::KIV_DATA_U8});
  EXPECT_EQ(read.error, "the raw layout 0x5:u8 has no pixels");
  read = ReadPixels(folder / "short.raw", RawLayout{10, 10, static_cast<KivDataType>(9)});
  EXPECT_EQ(read.error, "unknown raw pixel type 9");

  WriteFileBytes(folder / "exact.raw", std::string(1000, '\x01'));
  read = ReadPixels(folder / "exact.raw", RawLayout{25, 20, KIVMV::KIV_DATA_S16});
  ASSERT_TRUE(read.error.empty()) << read.error;
  EXPECT_EQ(read.pixels.type(), CV_16SC1);
  EXPECT_EQ(read.pixels.size(), cv::Size(25, 20));
  EXPECT_EQ(read.pixels.at<std::int16_t>(19, 24), 0x0101);
}

TEST(FrameIo, ReadErrorsNameTheProblem) {
  ScratchFolder folder;
  ReadResult read = ReadPixels(folder / "missing.png", std::nullopt);
  EXPECT_TRUE(read.pixels.empty());
  EXPECT_EQ(read.error, "no such file or folder");

  read = ReadPixels(folder.path(), std::nullopt);
  EXPECT_EQ(read.error, "cannot read the file");

  WriteFileBytes(folder / "text.png", "this is not a picture\n");
  read = ReadPixels(folder / "text.png", std::nullopt);
  EXPECT_TRUE(read.pixels.empty());
  EXPECT_EQ(read.error, "not an image OpenCV can decode");

  WriteFileBytes(folder / "empty.tif", "");
  read = ReadPixels(folder / "empty.tif", std::nullopt);
  EXPECT_EQ(read.error, "not an image OpenCV can decode");

  WriteFileBytes(folder / "frame.raw", std::string(64, '\0'));
  read = ReadPixels(folder / "frame.raw", std::nullopt);
  EXPECT_EQ(read.error,
            "not an image OpenCV can decode (a raw file needs --raw WIDTHxHEIGHT:TYPE)");

  // Without read permission; root reads everything, so there the case proves nothing.
  if (geteuid() != 0) {
    cv::imwrite((folder / "locked.png").string(), cv::Mat(2, 2, CV_8UC1, cv::Scalar(9)));
    fs::permissions(folder / "locked.png", fs::perms::none);
    read = ReadPixels(folder / "locked.png", std::nullopt);
    EXPECT_EQ(read.error, "cannot read the file");
    fs::permissions(folder / "locked.png", fs::perms::owner_all);
  }
}

TEST(FrameIo, ReadingGivesTheFilesOwnDepthAndChannels) {
  ScratchFolder folder;
  cv::Mat colour(3, 4, CV_8UC3, cv::Scalar(1, 2, 3));
  ASSERT_TRUE(cv::imwrite((folder / "colour.png").string(), colour));
  const ReadResult read = ReadPixels(folder / "colour.png", std::nullopt);
  ASSERT_TRUE(read.error.empty()) << read.error;
  EXPECT_EQ(read.pixels.type(), CV_8UC3);
  std::string error;
  EXPECT_FALSE(ToRangeImage(read.pixels, Axes{}, &error).has_value());
  EXPECT_EQ(error, "unsupported pixel type: 3 channels of 8-bit");
}

TEST(FrameIo, ToRangeImageRefusesWhatIsNotOneChannelOfASevenType) {
  struct {
    cv::Mat pixels;
    const char* error;
  } cases[] = {
      {cv::Mat(), "the image has no pixels"},
      {cv::Mat(0, 5, CV_16UC1), "the image has no pixels"},
      {cv::Mat(2, 2, CV_8UC3), "unsupported pixel type: 3 channels of 8-bit"},
      {cv::Mat(2, 2, CV_16UC4), "unsupported pixel type: 4 channels of 16-bit"},
      {cv::Mat(2, 2, CV_32FC2), "unsupported pixel type: 2 channels of 32-bit float"},
      {cv::Mat(2, 2, CV_16FC1), "unsupported pixel type: 1 channel of 16-bit float"},
      {cv::Mat(2, 2, CV_8SC3), "unsupported pixel type: 3 channels of signed 8-bit"},
  };
  for (const auto& c : cases) {
    std::string error;
    EXPECT_FALSE(ToRangeImage(c.pixels, Axes{}, &error).has_value()) << c.error;
    EXPECT_EQ(error, c.error);
  }
  const int dims[3] = {2, 2, 2};
  std::string error;
  EXPECT_FALSE(ToRangeImage(cv::Mat(3, dims, CV_8UC1), Axes{}, &error).has_value());
  EXPECT_EQ(error, "unsupported pixel layout: 3 dimensions");
  EXPECT_FALSE(ToRangeImage(cv::Mat(2, 2, CV_8UC3), Axes{}, nullptr).has_value());
}

TEST(FrameIo, ToRangeImageKeepsTypeSizeAndAxes) {
  for (int depth = 0; depth <= 6; ++depth) {
    SCOPED_TRACE(depth);
    cv::Mat pixels(5, 7, CV_MAKETYPE(depth, 1));
    cv::randu(pixels, cv::Scalar(-100), cv::Scalar(100));
    Axes axes;
    axes.resolution = {0.5, 0.25, 0.001};
    axes.offset = {-3.0, 4.0, 100.0};
    std::string error;
    const std::optional<KivRangeImage> image = ToRangeImage(pixels, axes, &error);
    ASSERT_TRUE(image.has_value()) << error;
    EXPECT_EQ(static_cast<int>(image->DataType()), depth);
    EXPECT_EQ(image->Width(), 7);
    EXPECT_EQ(image->Height(), 5);
    EXPECT_EQ(image->Step(), 7 * KIVMV::SampleSize(depth));
    EXPECT_EQ(image->ResolutionX(), 0.5);
    EXPECT_EQ(image->ResolutionY(), 0.25);
    EXPECT_EQ(image->ResolutionZ(), 0.001);
    EXPECT_EQ(image->OffsetX(), -3.0);
    EXPECT_EQ(image->OffsetY(), 4.0);
    EXPECT_EQ(image->OffsetZ(), 100.0);
    EXPECT_EQ(image->Data(), pixels.data) << "a continuous matrix is shared";
    EXPECT_EQ(PixelBytes(image->Mat()), PixelBytes(pixels));
  }
  cv::Mat wide(4, 9, CV_32FC1);
  cv::randu(wide, cv::Scalar(0), cv::Scalar(1));
  const cv::Mat region = wide(cv::Rect(2, 1, 5, 3));
  const std::optional<KivRangeImage> image = ToRangeImage(region, Axes{}, nullptr);
  ASSERT_TRUE(image.has_value());
  EXPECT_EQ(image->Step(), 5 * 4) << "a padded matrix is copied into one block";
  EXPECT_EQ(PixelBytes(image->Mat()), PixelBytes(region));
}

TEST(FrameIo, WriteRangeFrameRefusesTypesTheFormatCannotHold) {
  ScratchFolder folder;
  const struct {
    FrameFormat format;
    KivDataType type;
    const char* error;
  } cases[] = {
      {FrameFormat::kPng, KIVMV::KIV_DATA_F32, "PNG cannot hold f32 pixels"},
      {FrameFormat::kPng, KIVMV::KIV_DATA_S8, "PNG cannot hold s8 pixels"},
      {FrameFormat::kPng, KIVMV::KIV_DATA_S16, "PNG cannot hold s16 pixels"},
      {FrameFormat::kPng, KIVMV::KIV_DATA_S32, "PNG cannot hold s32 pixels"},
      {FrameFormat::kPng, KIVMV::KIV_DATA_F64, "PNG cannot hold f64 pixels"},
      {FrameFormat::kTiff, KIVMV::KIV_DATA_S8, "TIFF cannot hold s8 pixels"},
      {FrameFormat::kTiff, KIVMV::KIV_DATA_S16, "TIFF cannot hold s16 pixels"},
      {FrameFormat::kTiff, KIVMV::KIV_DATA_S32, "TIFF cannot hold s32 pixels"},
      {FrameFormat::kTiff, KIVMV::KIV_DATA_F64, "TIFF cannot hold f64 pixels"},
      {FrameFormat::kPfm, KIVMV::KIV_DATA_U8, "PFM cannot hold u8 pixels"},
      {FrameFormat::kPfm, KIVMV::KIV_DATA_U16, "PFM cannot hold u16 pixels"},
      {FrameFormat::kPfm, KIVMV::KIV_DATA_F64, "PFM cannot hold f64 pixels"},
  };
  for (const auto& c : cases) {
    std::string error;
    EXPECT_FALSE(WriteRangeFrame(folder / "f", KivRangeImage(3, 2, c.type), c.format, &error));
    EXPECT_EQ(error, c.error);
  }
  std::string error;
  EXPECT_FALSE(WriteRangeFrame(folder / "f", KivRangeImage(0, 4, KIVMV::KIV_DATA_U8),
                               FrameFormat::kRaw, &error));
  EXPECT_EQ(error, "the range image has no pixels");

  KivRangeImage mismatched(3, 2, KIVMV::KIV_DATA_U16);
  mismatched.Mat() = cv::Mat(2, 3, CV_8UC1);
  EXPECT_FALSE(WriteRangeFrame(folder / "f", mismatched, FrameFormat::kRaw, &error));
  EXPECT_EQ(error, "the range image's pixels do not match its width, height and type");

  EXPECT_FALSE(WriteRangeFrame(folder / "no-such-folder" / "f.png",
                               KivRangeImage(3, 2, KIVMV::KIV_DATA_U8), FrameFormat::kPng, &error));
  EXPECT_EQ(error, "cannot write the file: the folder does not exist");
  EXPECT_TRUE(folder.Names().empty());
}

TEST(FrameIo, WriteRangeFrameReplacesAnExistingFile) {
  ScratchFolder folder;
  WriteFileBytes(folder / "f.png", "old contents");
  KivRangeImage image(2, 2, KIVMV::KIV_DATA_U8);
  image.Ptr<std::uint8_t>()[3] = 200;
  std::string error;
  ASSERT_TRUE(WriteRangeFrame(folder / "f.png", image, FrameFormat::kPng, &error)) << error;
  const ReadResult read = ReadPixels(folder / "f.png", std::nullopt);
  ASSERT_TRUE(read.error.empty()) << read.error;
  EXPECT_EQ(read.pixels.at<std::uint8_t>(1, 1), 200);
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"f.png"});
}

cv::Mat SamplePicture(int seed) {
  cv::Mat picture(9, 13, CV_8UC3);
  cv::RNG random(static_cast<std::uint64_t>(seed) + 1);
  random.fill(picture, cv::RNG::UNIFORM, 0, 256);
  return picture;
}

TEST(FrameIo, WritePictureAtomicallyLeavesOnlyTheTarget) {
  ScratchFolder folder;
  const cv::Mat picture = SamplePicture(1);
  std::string error;
  for (const char* name : {"a.png", "b.PNG", "c.tif", "d.bmp"}) {
    ASSERT_TRUE(WritePictureAtomically(folder / name, picture, &error)) << name << ": " << error;
    const cv::Mat back = cv::imread((folder / name).string(), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(back.type(), CV_8UC3) << name;
    EXPECT_EQ(PixelBytes(back), PixelBytes(picture)) << name;
  }
  EXPECT_EQ(folder.Names(), (std::vector<std::string>{"a.png", "b.PNG", "c.tif", "d.bmp"}));

  // Writing again replaces the picture.
  const cv::Mat other = SamplePicture(2);
  ASSERT_TRUE(WritePictureAtomically(folder / "a.png", other, &error)) << error;
  EXPECT_EQ(PixelBytes(cv::imread((folder / "a.png").string(), cv::IMREAD_UNCHANGED)),
            PixelBytes(other));
  EXPECT_EQ(folder.Names().size(), 4u);
}

TEST(FrameIo, FailedPictureWritesLeaveNothingAndKeepTheOldTarget) {
  ScratchFolder folder;
  const cv::Mat picture = SamplePicture(3);
  std::string error;

  EXPECT_FALSE(WritePictureAtomically(folder / "missing" / "a.png", picture, &error));
  EXPECT_EQ(error, "cannot write the picture: the folder does not exist");
  EXPECT_TRUE(folder.Names().empty());

  EXPECT_FALSE(WritePictureAtomically(folder / "a.xyz", picture, &error));
  EXPECT_EQ(error, "cannot write .xyz files");
  EXPECT_FALSE(WritePictureAtomically(folder / "noextension", picture, &error));
  EXPECT_EQ(error, "cannot write files without an extension");
  EXPECT_FALSE(WritePictureAtomically(folder / "a.png", cv::Mat(), &error));
  EXPECT_EQ(error, "cannot write the picture: it has no pixels");
  EXPECT_TRUE(folder.Names().empty());

  // Existing targets stay byte for byte what they were.
  WriteFileBytes(folder / "old.xyz", "old xyz");
  EXPECT_FALSE(WritePictureAtomically(folder / "old.xyz", picture, &error));
  ASSERT_TRUE(WritePictureAtomically(folder / "old.png", picture, &error)) << error;
  const std::vector<unsigned char> before = FileBytes(folder / "old.png");

  // Five channels: the encoder throws after the write has begun.
  EXPECT_FALSE(WritePictureAtomically(folder / "old.png", cv::Mat(4, 4, CV_8UC(5)), &error));
  EXPECT_EQ(error.rfind("cannot write the picture: ", 0), 0u) << error;
  EXPECT_EQ(FileBytes(folder / "old.png"), before);
  EXPECT_EQ(FileBytes(folder / "old.xyz"),
            std::vector<unsigned char>({'o', 'l', 'd', ' ', 'x', 'y', 'z'}));

  // The target is a folder: the picture is encoded, the rename fails, the encoding is removed.
  fs::create_directory(folder / "taken.png");
  EXPECT_FALSE(WritePictureAtomically(folder / "taken.png", picture, &error));
  EXPECT_EQ(error.rfind("cannot rename .taken.kivlut-", 0), 0u) << error;
  EXPECT_NE(error.find(".png to taken.png: "), std::string::npos) << error;
  EXPECT_TRUE(fs::is_directory(folder / "taken.png"));

  EXPECT_EQ(folder.Names(), (std::vector<std::string>{"old.png", "old.xyz", "taken.png"}));
}

TEST(FrameIo, WriteBytesAtomicallyWritesExactlyTheBytesOrNothing) {
  ScratchFolder folder;
  std::string error;
  const std::string text("<p>one</p>\n\0two", 15);
  ASSERT_TRUE(WriteBytesAtomically(folder / "index.html", text.data(), text.size(), &error))
      << error;
  EXPECT_EQ(FileBytes(folder / "index.html"), std::vector<unsigned char>(text.begin(), text.end()));
  ASSERT_TRUE(WriteBytesAtomically(folder / "index.html", "x", 1, &error)) << error;
  EXPECT_EQ(FileBytes(folder / "index.html"), std::vector<unsigned char>{'x'});
  ASSERT_TRUE(WriteBytesAtomically(folder / "empty", nullptr, 0, &error)) << error;
  EXPECT_TRUE(FileBytes(folder / "empty").empty());

  EXPECT_FALSE(WriteBytesAtomically(folder / "missing" / "a.html", "x", 1, &error));
  EXPECT_EQ(error, "cannot write the file: the folder does not exist");
  // The target is a folder: the rename fails and the temporary file is removed.
  fs::create_directory(folder / "taken.html");
  EXPECT_FALSE(WriteBytesAtomically(folder / "taken.html", "x", 1, nullptr));
  EXPECT_EQ(folder.Names(), (std::vector<std::string>{"empty", "index.html", "taken.html"}));
}

TEST(FrameIo, ParallelWritersInOneFolderAllSucceed) {
  ScratchFolder folder;
  constexpr int kThreads = 8;
  constexpr int kPicturesEach = 12;
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPicturesEach; ++i) {
        const std::string name = "p" + std::to_string(t) + "_" + std::to_string(i) + ".png";
        std::string error;
        if (!WritePictureAtomically(folder / name, SamplePicture(t * 100 + i), &error)) {
          ++failures[t];
        }
        // Every thread also rewrites one shared name; the last rename wins whole.
        if (!WritePictureAtomically(folder / "shared.png", SamplePicture(t), &error)) {
          ++failures[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;

  const std::vector<std::string> names = folder.Names();
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kThreads * kPicturesEach + 1));
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kPicturesEach; ++i) {
      const fs::path file = folder / ("p" + std::to_string(t) + "_" + std::to_string(i) + ".png");
      EXPECT_EQ(PixelBytes(cv::imread(file.string(), cv::IMREAD_UNCHANGED)),
                PixelBytes(SamplePicture(t * 100 + i)))
          << file;
    }
  }
  const std::vector<unsigned char> shared =
      PixelBytes(cv::imread((folder / "shared.png").string(), cv::IMREAD_UNCHANGED));
  bool isOneOfThem = false;
  for (int t = 0; t < kThreads; ++t) isOneOfThem |= shared == PixelBytes(SamplePicture(t));
  EXPECT_TRUE(isOneOfThem);
}

TEST(FrameIo, ParsePixelTypeAcceptsNamesAndCodes) {
  const struct {
    const char* text;
    std::optional<KivDataType> type;
  } cases[] = {
      {"u8", KIVMV::KIV_DATA_U8},   {"s8", KIVMV::KIV_DATA_S8},   {"u16", KIVMV::KIV_DATA_U16},
      {"s16", KIVMV::KIV_DATA_S16}, {"s32", KIVMV::KIV_DATA_S32}, {"f32", KIVMV::KIV_DATA_F32},
      {"f64", KIVMV::KIV_DATA_F64}, {"U16", KIVMV::KIV_DATA_U16}, {"F32", KIVMV::KIV_DATA_F32},
      {"0", KIVMV::KIV_DATA_U8},    {"1", KIVMV::KIV_DATA_S8},    {"2", KIVMV::KIV_DATA_U16},
      {"3", KIVMV::KIV_DATA_S16},   {"4", KIVMV::KIV_DATA_S32},   {"5", KIVMV::KIV_DATA_F32},
      {"6", KIVMV::KIV_DATA_F64},   {"7", std::nullopt},          {"-1", std::nullopt},
      {"00", std::nullopt},         {"", std::nullopt},           {"u32", std::nullopt},
      {"s64", std::nullopt},        {"f16", std::nullopt},        {" u8", std::nullopt},
      {"u8 ", std::nullopt},        {"uint16", std::nullopt},     {"float", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(ParsePixelType(c.text), c.type) << '"' << c.text << '"';
}

TEST(FrameIo, PixelTypeNamesParseBack) {
  for (int type = 0; type <= 6; ++type) {
    const auto dataType = static_cast<KivDataType>(type);
    EXPECT_EQ(ParsePixelType(PixelTypeName(dataType)), dataType);
  }
  EXPECT_STREQ(PixelTypeName(KIVMV::KIV_DATA_U16), "u16");
  EXPECT_STREQ(PixelTypeName(static_cast<KivDataType>(7)), "unknown");
  EXPECT_STREQ(PixelTypeName(static_cast<KivDataType>(-1)), "unknown");
}

TEST(FrameIo, LooksLikeFrameByExtension) {
  const struct {
    const char* name;
    bool rawGiven;
    bool frame;
  } cases[] = {
      {"a.png", false, true},      {"a.PNG", false, true},
      {"dir/a.tif", false, true},  {"a.TIFF", false, true},
      {"a.tiff", false, true},     {"a.pfm", false, true},
      {"a.Pfm", false, true},      {"a.raw", false, false},
      {"a.raw", true, true},       {"a.RAW", true, true},
      {"a.jpg", false, false},     {"a.bmp", true, false},
      {"a.png.txt", false, false}, {"png", false, false},
      {"a", true, false},          {".a.kivlut-1-0.png", false, false},
      {".png", false, false},      {"a.equalize.png", false, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(LooksLikeFrame(c.name, c.rawGiven), c.frame)
        << c.name << (c.rawGiven ? " with --raw" : "");
  }
}

}  // namespace
}  // namespace kivlut
