// Hostile input: a missing output, a pixel matrix that does not hold what the size fields promise,
// sizes whose product overflows int, odd matrix layouts and outputs of the wrong channel count.
// Every public method must answer each with a status code, never write outside its output, and
// leave the inputs it only reads as they were. Outputs are windows of larger matrices with canary
// bytes around them, so a write past either end shows; the sanitizer build catches reads.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "KivLUTSetting.h"
#include "KivPlatformStatus.h"
#include "range/range_test_support.h"

namespace KIVMV {
namespace {

using testing_support::RandomPixel;
using testing_support::RandomRangeImage;

constexpr int kWidth = 7;
constexpr int kHeight = 5;
constexpr int kCount = kWidth * kHeight;
constexpr uint8_t kCanary = 0xA5;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---------------------------------------------------------------------------------------------
// Bytes and guards

// A matrix's bytes row after row (padding skipped); empty for a matrix without rows and columns.
std::vector<uint8_t> Bytes(const cv::Mat& m) {
  std::vector<uint8_t> bytes;
  if (m.data == nullptr) return bytes;
  if (m.dims > 2) {
    if (!m.isContinuous()) return bytes;
    return std::vector<uint8_t>(m.data, m.data + m.total() * m.elemSize());
  }
  const size_t row = static_cast<size_t>(m.cols) * m.elemSize();
  for (int y = 0; y < m.rows; ++y) bytes.insert(bytes.end(), m.ptr(y), m.ptr(y) + row);
  return bytes;
}

// A recognisable byte pattern, different per seed, so that untouched bytes can be told apart.
void FillPattern(cv::Mat& m, int seed) {
  uint8_t* p = m.ptr();
  const size_t n = m.total() * m.elemSize();
  ASSERT_TRUE(m.isContinuous());
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(seed + 37 * i);
}

std::vector<uint8_t> Pattern(size_t n, int seed) {
  std::vector<uint8_t> bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(seed + 37 * i);
  return bytes;
}

// The object's first int, which for our standard-layout platform types is its first size field
// (KivRangeImage::Width, KivColorArray::Length). Only size fields can say more than the matrix
// holds, and no public member sets them apart from it, so the tests reach them this way.
template <typename T>
int& FirstSizeField(T& object) {
  static_assert(std::is_standard_layout<T>::value, "the first member must be reachable");
  return *reinterpret_cast<int*>(&object);
}

// An output colour array whose bytes are a window of one row inside a larger matrix: a canary row
// above and below and canary colours on either side.
class GuardedColours {
 public:
  GuardedColours(int length, int channels, int seed) : length_(length), channels_(channels) {
    array_.Create(length, channels);
    frame_ = cv::Mat(3, length + 2 * kSide, CV_8UC(channels), cv::Scalar::all(kCanary));
    window_ = frame_(cv::Rect(kSide, 1, length, 1));
    cv::Mat window = window_;
    FillPattern(window, seed);
    windowBefore_ = Bytes(window_);
    array_.Mat() = window_;
  }

  KivColorArray* Get() { return &array_; }
  KivColorArray& Array() { return array_; }
  const uint8_t* WindowData() const { return window_.data; }
  std::vector<uint8_t> WindowBytes() const { return Bytes(window_); }
  bool WindowUntouched() const { return Bytes(window_) == windowBefore_; }

  // Every byte of the larger matrix outside the window still holds the canary.
  bool CanariesIntact() const {
    const size_t stride = static_cast<size_t>(channels_);
    for (int y = 0; y < frame_.rows; ++y) {
      const uint8_t* row = frame_.ptr<uint8_t>(y);
      for (int x = 0; x < frame_.cols; ++x) {
        if (y == 1 && x >= kSide && x < kSide + length_) continue;
        for (size_t c = 0; c < stride; ++c) {
          if (row[static_cast<size_t>(x) * stride + c] != kCanary) return false;
        }
      }
    }
    return true;
  }

 private:
  static constexpr int kSide = 5;
  int length_;
  int channels_;
  KivColorArray array_;
  cv::Mat frame_;
  cv::Mat window_;
  std::vector<uint8_t> windowBefore_;
};

// ---------------------------------------------------------------------------------------------
// Inputs of every method

struct Inputs {
  KivRangeImage image;
  Kiv3DFloatArray floats;    // read only
  Kiv3DFloatArray rescaled;  // the five-point form on an array rescales it in place
  Kiv3DIntArray ints;
  KivVector3dArray normals;
  KivColorArray a;
  KivColorArray b;
  LinearColorMapLUT_Para manualPara;
  LinearColorMapLUT_Para autoPara;  // automatic mode writes its break values back
  KivColor under{255, 0, 255};
  KivColor over{255, 255, 255};
  KivVector3d light{0.0f, 0.0f, 5000.0f};
  KivVector3d eye{3.0f, 2.0f, 8000.0f};
  KivVarArray chart;
  KivVarArray legend;
};

// The same inputs for the same type and image size on every call; the arrays hold kCount
// elements whatever the image's size.
Inputs MakeInputs(KivDataType type, int width = kWidth, int height = kHeight) {
  std::mt19937_64 random(1234 + static_cast<unsigned>(type));
  Inputs in;
  VisitPixelType(type, [&](auto tag) {
    using T = typename decltype(tag)::type;
    in.image = RandomRangeImage<T>(width, height, random);
  });
  in.image.SetResolution(0.5, 0.5, 1.0);
  const int n = kCount;
  in.floats = Kiv3DFloatArray(n);
  in.rescaled = Kiv3DFloatArray(n);
  in.ints = Kiv3DIntArray(n);
  in.normals.SetSize(n);
  in.a.Create(n, 3);
  in.b.Create(n, 3);
  std::uniform_int_distribution<int> anyInt(-1000, 1000);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  std::uniform_int_distribution<int> anyByte(0, 255);
  for (int i = 0; i < n; ++i) {
    in.floats[i] = RandomPixel<float>(random);
    in.rescaled[i] = RandomPixel<float>(random);
    in.ints[i] = anyInt(random);
    in.normals[i] = KivVector3d(unit(random), unit(random), unit(random));
  }
  if (n > 2) in.normals[2] = KivVector3d(static_cast<float>(kNaN), 0.0f, 1.0f);
  for (size_t i = 0; i < static_cast<size_t>(3 * n); ++i) {
    in.a.Data()[i] = static_cast<uint8_t>(anyByte(random));
    in.b.Data()[i] = static_cast<uint8_t>(anyByte(random));
  }
  in.manualPara = {200.0, 400.0, 500.0, 600.0, 800.0, 0, 200, 500, 800, 1023};
  return in;
}

template <typename T>
void AppendRaw(std::vector<uint8_t>& bytes, const T& value) {
  const uint8_t* p = reinterpret_cast<const uint8_t*>(&value);
  bytes.insert(bytes.end(), p, p + sizeof(T));
}

// Everything of an image a colouring must not change: its fields, its matrix and the pixels.
std::vector<uint8_t> ImageState(const KivRangeImage& image) {
  std::vector<uint8_t> state = Bytes(image.Mat());
  AppendRaw(state, image.Width());
  AppendRaw(state, image.Height());
  AppendRaw(state, image.Type());
  AppendRaw(state, static_cast<int>(image.DataType()));
  AppendRaw(state, image.Data());
  AppendRaw(state, image.Mat().type());
  for (double v : {image.ResolutionX(), image.ResolutionY(), image.ResolutionZ(), image.OffsetX(),
                   image.OffsetY(), image.OffsetZ()}) {
    AppendRaw(state, v);
  }
  return state;
}

std::vector<uint8_t> ColoursState(const KivColorArray& colours) {
  std::vector<uint8_t> state = Bytes(colours.Mat());
  AppendRaw(state, colours.Length());
  AppendRaw(state, colours.Channel());
  AppendRaw(state, colours.Data());
  return state;
}

// The inputs that no method changes, by name.
std::vector<std::pair<std::string, std::vector<uint8_t>>> ReadOnlyState(const Inputs& in) {
  std::vector<uint8_t> normals;
  for (int i = 0; i < in.normals.Length(); ++i) AppendRaw(normals, in.normals[i]);
  std::vector<uint8_t> scalars;
  const LinearColorMapLUT_Para& p = in.manualPara;
  for (double v : {p.value0, p.value1, p.value2, p.value3, p.value4}) AppendRaw(scalars, v);
  for (int32_t i : {p.index0, p.index1, p.index2, p.index3, p.index4}) AppendRaw(scalars, i);
  AppendRaw(scalars, in.under);
  AppendRaw(scalars, in.over);
  AppendRaw(scalars, in.light);
  AppendRaw(scalars, in.eye);
  return {{"image", ImageState(in.image)},
          {"floats", Bytes(in.floats.Mat())},
          {"ints", Bytes(in.ints.Mat())},
          {"normals", normals},
          {"a", ColoursState(in.a)},
          {"b", ColoursState(in.b)},
          {"record, colours, light and eye", scalars}};
}

void ExpectReadOnlyInputsKept(const std::vector<std::pair<std::string, std::vector<uint8_t>>>& was,
                              const Inputs& in, const std::string& what) {
  const auto now = ReadOnlyState(in);
  ASSERT_EQ(was.size(), now.size());
  for (size_t k = 0; k < was.size(); ++k) {
    EXPECT_TRUE(was[k].second == now[k].second) << what << " changed " << was[k].first;
  }
}

// ---------------------------------------------------------------------------------------------
// Every method with a colour-array output

enum class Family {
  kRangeMapping,  // range-image colourings: a bad pixel matrix is LUT_ERR_RANGE_IMAGE_EMPTY
  kRangeShading,  // shading of a range image: the platform's normals refuse a bad matrix
  kOther,         // arrays, normals and blending
};

struct OutputCase {
  const char* name;
  Family family;
  long nullOutputStatus;
  bool reusesOutput;     // false: the output is re-sized to the base colouring whatever it held
  bool floatPixelsOnly;  // other pixel types end the call with -1 once the output is sized
  std::function<long(KivLUTSetting&, Inputs&, KivColorArray*)> call;
};

std::vector<OutputCase> OutputCases() {
  return {
      {"ColorMapLUT(image, map)", Family::kRangeMapping, LUT_ERR_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.ColorMapLUT(in.image, 1, out);
       }},
      {"ColorMapLUT(image, map, low, high)", Family::kRangeMapping, LUT_ERR_OUTPUT_FAILED, true,
       false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.ColorMapLUT(in.image, 2, 300.0, 700.0, out);
       }},
      {"ColorMapLUT(image, map, low, high, lo, hi, below, above)", Family::kRangeMapping,
       LUT_ERR_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.ColorMapLUT(in.image, 3, 300.0, 700.0, 10, 200, in.under, in.over, out);
       }},
      {"LinearColorMapLUT(image, map)", Family::kRangeMapping, LUT_ERR_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.LinearColorMapLUT(in.image, 4, out);
       }},
      {"LinearColorMapLUT(image, map, low, high)", Family::kRangeMapping, LUT_ERR_OUTPUT_FAILED,
       true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.LinearColorMapLUT(in.image, 5, 300.0, 700.0, out);
       }},
      {"LinearColorMapLUT(image, map, low, high, indexLow, indexHigh, under, over)",
       Family::kRangeMapping, LUT_ERR_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.LinearColorMapLUT(in.image, 6, 300.0, 700.0, 10, 200, in.under, in.over, out);
       }},
      {"LinearColorMapLUT(image, out, map, fractions)", Family::kRangeMapping,
       LUT_ERR_OUTPUT_FAILED, true, true,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.LinearColorMapLUT(in.image, out, 1, 0.1, 0.2);
       }},
      {"LinearColorMapLUT(image, para, automatic)", Family::kRangeMapping, LUT_ERR_OUTPUT_FAILED,
       true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.LinearColorMapLUT(in.image, out, in.autoPara, in.under, in.over, 2, true);
       }},
      {"LinearColorMapLUT(image, para, manual)", Family::kRangeMapping, LUT_ERR_OUTPUT_FAILED, true,
       false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.LinearColorMapLUT(in.image, out, in.manualPara, in.under, in.over, 6, false);
       }},
      {"ColorMapLUT(image, para, segments)", Family::kRangeMapping, LUT_ERR_OUTPUT_FAILED, true,
       false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.ColorMapLUT(in.image, out, in.manualPara, in.under, in.over, 1, false, 4, 2,
                                &in.chart, &in.legend);
       }},
      {"SetColorNormalMapPhong(image)", Family::kRangeShading, LUT_ERR_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.SetColorNormalMapPhong(in.image, out);
       }},
      {"SetColorNormalMap(image, light, eye)", Family::kRangeShading, LUT_ERR_OUTPUT_FAILED, false,
       false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.SetColorNormalMap(in.image, in.light, in.eye, 1, 1.0f, 0.3f, 0.6f, 0.3f, out);
       }},
      {"LinearColorMapLUT(float array, para)", Family::kOther, LUT_ERR_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.LinearColorMapLUT(in.rescaled, out, in.autoPara, in.under, in.over, 3, true);
       }},
      {"ColorMapLUT(int array)", Family::kOther, LUT_ERR_ARRAY_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.ColorMapLUT(in.ints, 1, -300, 400, out);
       }},
      {"SetColorLUT(float array)", Family::kOther, LUT_ERR_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.SetColorLUT(in.floats, 100.0f, 900.0f, 2, out);
       }},
      {"LinearSetColorLUT(float array)", Family::kOther, LUT_ERR_ARRAY_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.LinearSetColorLUT(in.floats, 100.0f, 900.0f, 3, out);
       }},
      {"SetColorNormalMap(normals)", Family::kOther, LUT_ERR_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.SetColorNormalMap(in.normals, out);
       }},
      {"ColorBlend", Family::kOther, LUT_ERR_BLEND_OUTPUT_FAILED, true, false,
       [](KivLUTSetting& lut, Inputs& in, KivColorArray* out) {
         return lut.ColorBlend(in.a, in.b, 0.3, out);
       }},
  };
}

bool UsesImage(const OutputCase& c) { return c.family != Family::kOther; }

long ExpectedStatus(const OutputCase& c, KivDataType type) {
  return c.floatPixelsOnly && type != KIV_DATA_F32 ? -1 : LUT_OK;
}

// The pixel types every output case runs on: the range-image cases on all seven, the others once.
std::vector<KivDataType> TypesFor(const OutputCase& c) {
  if (!UsesImage(c)) return {KIV_DATA_F32};
  return {KIV_DATA_U8,  KIV_DATA_S8,  KIV_DATA_U16, KIV_DATA_S16,
          KIV_DATA_S32, KIV_DATA_F32, KIV_DATA_F64};
}

std::string Describe(const OutputCase& c, KivDataType type) {
  return std::string(c.name) + " on pixel type " + std::to_string(static_cast<int>(type));
}

// The call on an output that already holds `initial`, n colours of 3 bytes (empty: a default,
// empty output).
std::pair<long, std::vector<uint8_t>> Reference(const OutputCase& c, KivDataType type,
                                                const std::vector<uint8_t>& initial) {
  Inputs in = MakeInputs(type);
  KivColorArray out;
  if (!initial.empty()) {
    out.Create(kCount, 3);
    std::memcpy(out.Data(), initial.data(), initial.size());
  }
  KivLUTSetting lut;
  const long status = c.call(lut, in, &out);
  return {status, Bytes(out.Mat())};
}

// ---------------------------------------------------------------------------------------------
// Null pointers

TEST(HostileInput, NullOutputPointerGivesItsStatus) {
  KivLUTSetting lut;
  EXPECT_EQ(lut.GetColor(0.5, 1, nullptr), LUT_ERR_PARAM_3);
  for (const OutputCase& c : OutputCases()) {
    for (KivDataType type : TypesFor(c)) {
      Inputs in = MakeInputs(type);
      const auto before = ReadOnlyState(in);
      EXPECT_EQ(c.call(lut, in, nullptr), c.nullOutputStatus) << Describe(c, type);
      ExpectReadOnlyInputsKept(before, in, Describe(c, type));
    }
  }
}

TEST(HostileInput, NullDestinationImageGivesParam2) {
  KivLUTSetting lut;
  for (KivImageType depth : {KIV_IMAGE_8U, KIV_IMAGE_16U}) {
    KivImage src(9, 4, 1, depth);
    cv::randu(src.Mat(), 0, depth == KIV_IMAGE_8U ? 256 : 65536);
    const std::vector<uint8_t> before = Bytes(src.Mat());
    EXPECT_EQ(lut.LinearSetColorLUT(src, nullptr, 1), LUT_ERR_PARAM_2);
    EXPECT_EQ(lut.SetColorLUT(src, nullptr, 1), LUT_ERR_PARAM_2);
    EXPECT_EQ(lut.SetColorLUT(src, nullptr, 1, 10, 200, 1, 255, KivColor(), KivColor()),
              LUT_ERR_PARAM_2);
    EXPECT_EQ(Bytes(src.Mat()), before);
  }
}

// ---------------------------------------------------------------------------------------------
// Outputs: guarded, too few channels, four channels, a matrix swapped behind the array's back

TEST(HostileInput, OutputIsWrittenOnlyInsideItsBytes) {
  for (const OutputCase& c : OutputCases()) {
    for (KivDataType type : TypesFor(c)) {
      const std::string what = Describe(c, type);
      const std::vector<uint8_t> initial = Pattern(3 * kCount, 11);
      const auto expected = Reference(c, type, initial);
      EXPECT_EQ(expected.first, ExpectedStatus(c, type)) << what;

      Inputs in = MakeInputs(type);
      const auto before = ReadOnlyState(in);
      GuardedColours out(kCount, 3, 11);
      KivLUTSetting lut;
      EXPECT_EQ(c.call(lut, in, out.Get()), expected.first) << what;
      EXPECT_TRUE(out.CanariesIntact()) << what;
      EXPECT_EQ(Bytes(out.Array().Mat()), expected.second) << what;
      EXPECT_EQ(out.Array().Channel(), 3) << what;
      if (c.reusesOutput) {
        EXPECT_EQ(out.Array().Data(), out.WindowData()) << what << ": not written in place";
      } else {
        EXPECT_TRUE(out.WindowUntouched()) << what;
      }
      ExpectReadOnlyInputsKept(before, in, what);
    }
  }
}

TEST(HostileInput, OneChannelOutputOfTheRightLengthIsRecreated) {
  for (const OutputCase& c : OutputCases()) {
    for (KivDataType type : TypesFor(c)) {
      const std::string what = Describe(c, type);
      const auto expected = Reference(c, type, {});

      Inputs in = MakeInputs(type);
      GuardedColours out(kCount, 1, 23);
      KivLUTSetting lut;
      EXPECT_EQ(c.call(lut, in, out.Get()), expected.first) << what;
      EXPECT_EQ(out.Array().Channel(), 3) << what;
      EXPECT_EQ(out.Array().Length(), kCount) << what;
      EXPECT_EQ(Bytes(out.Array().Mat()), expected.second) << what;
      // The old bytes were dropped, not written through.
      EXPECT_TRUE(out.WindowUntouched()) << what;
      EXPECT_TRUE(out.CanariesIntact()) << what;
    }
  }
}

// An array of the right length with 4 channels is written in place: the colours are packed, 3 bytes
// each, into the first three quarters of its bytes, and the last quarter keeps what it held.
TEST(HostileInput, FourChannelOutputIsWrittenInPlaceThreeBytesAColour) {
  for (const OutputCase& c : OutputCases()) {
    for (KivDataType type : TypesFor(c)) {
      const std::string what = Describe(c, type);
      const std::vector<uint8_t> pattern = Pattern(4 * kCount, 41);
      Inputs in = MakeInputs(type);
      GuardedColours out(kCount, 4, 41);
      KivLUTSetting lut;
      const long status = c.call(lut, in, out.Get());
      EXPECT_TRUE(out.CanariesIntact()) << what;
      if (!c.reusesOutput) {
        const auto expected = Reference(c, type, {});
        EXPECT_EQ(status, expected.first) << what;
        EXPECT_EQ(out.Array().Channel(), 3) << what;
        EXPECT_EQ(Bytes(out.Array().Mat()), expected.second) << what;
        EXPECT_TRUE(out.WindowUntouched()) << what;
        continue;
      }
      const std::vector<uint8_t> firstThreeQuarters(pattern.begin(), pattern.begin() + 3 * kCount);
      const auto expected = Reference(c, type, firstThreeQuarters);
      EXPECT_EQ(status, expected.first) << what;
      EXPECT_EQ(out.Array().Channel(), 4) << what;
      EXPECT_EQ(out.Array().Data(), out.WindowData()) << what;
      const std::vector<uint8_t> written = out.WindowBytes();
      ASSERT_EQ(written.size(), pattern.size()) << what;
      EXPECT_EQ(std::vector<uint8_t>(written.begin(), written.begin() + 3 * kCount),
                expected.second)
          << what;
      EXPECT_EQ(std::vector<uint8_t>(written.begin() + 3 * kCount, written.end()),
                std::vector<uint8_t>(pattern.begin() + 3 * kCount, pattern.end()))
          << what;
    }
  }
}

// The array's sizes say n colours of 3 bytes but its matrix was released, or replaced by a view
// with padded rows: it is re-created rather than written through.
TEST(HostileInput, OutputWhoseMatrixDoesNotHoldItsSizesIsRecreated) {
  for (const OutputCase& c : OutputCases()) {
    const KivDataType type = KIV_DATA_F32;
    const std::string what = Describe(c, type);
    const auto expected = Reference(c, type, {});
    KivLUTSetting lut;
    {
      Inputs in = MakeInputs(type);
      KivColorArray out;
      out.Create(kCount, 3);
      out.Mat() = cv::Mat();
      EXPECT_EQ(c.call(lut, in, &out), expected.first) << what;
      EXPECT_EQ(out.Length(), kCount) << what;
      EXPECT_EQ(Bytes(out.Mat()), expected.second) << what << ", released matrix";
    }
    {
      Inputs in = MakeInputs(type);
      cv::Mat parent(kHeight + 2, kWidth + 2, CV_8UC3, cv::Scalar::all(kCanary));
      KivColorArray out;
      out.Create(kCount, 3);
      out.Mat() = parent(cv::Rect(1, 1, kWidth, kHeight));
      ASSERT_FALSE(out.Mat().isContinuous());
      EXPECT_EQ(c.call(lut, in, &out), expected.first) << what;
      EXPECT_EQ(Bytes(out.Mat()), expected.second) << what << ", view with padded rows";
      EXPECT_EQ(cv::countNonZero(parent.reshape(1) != kCanary), 0) << what;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Range images whose pixel matrix does not match their size fields

struct BadMatrix {
  const char* name;
  std::function<void(KivRangeImage&)> spoil;
};

std::vector<BadMatrix> BadMatrices() {
  return {
      {"released matrix", [](KivRangeImage& image) { image.Mat() = cv::Mat(); }},
      {"a row too few",
       [](KivRangeImage& image) {
         image.Mat() = cv::Mat(kHeight - 1, kWidth, image.Mat().type(), cv::Scalar::all(1));
       }},
      {"a column too few",
       [](KivRangeImage& image) {
         image.Mat() = cv::Mat(kHeight, kWidth - 1, image.Mat().type(), cv::Scalar::all(1));
       }},
      {"another sample type",
       [](KivRangeImage& image) {
         const int other = (image.Mat().depth() + 1) % 7;
         image.Mat() = cv::Mat(kHeight, kWidth, CV_MAKETYPE(other, 1), cv::Scalar::all(1));
       }},
      {"same sample size, another type",
       [](KivRangeImage& image) {
         // Four bytes a pixel of another kind: float pixels behind an int image and the reverse,
         // bytes in fours behind every other type.
         const int depth = image.Mat().depth();
         const int type = depth == CV_32F ? CV_32SC1 : depth == CV_32S ? CV_32FC1 : CV_8UC4;
         image.Mat() = cv::Mat(kHeight, kWidth, type, cv::Scalar::all(1));
       }},
      {"three channels",
       [](KivRangeImage& image) {
         image.Mat() =
             cv::Mat(kHeight, kWidth, CV_MAKETYPE(image.Mat().depth(), 3), cv::Scalar::all(1));
       }},
  };
}

long BadMatrixStatus(const OutputCase& c) {
  return c.family == Family::kRangeMapping ? LUT_ERR_RANGE_IMAGE_EMPTY
                                           : kKivPlatformInvalidArgument;
}

TEST(HostileInput, RangeImageWhoseMatrixDoesNotMatchItsSizesIsRefused) {
  for (const OutputCase& c : OutputCases()) {
    if (!UsesImage(c)) continue;
    for (KivDataType type : TypesFor(c)) {
      for (const BadMatrix& bad : BadMatrices()) {
        const std::string what = Describe(c, type) + ", " + bad.name;
        Inputs in = MakeInputs(type);
        bad.spoil(in.image);
        const auto before = ReadOnlyState(in);
        GuardedColours out(kCount, 3, 5);
        KivLUTSetting lut;
        EXPECT_EQ(c.call(lut, in, out.Get()), BadMatrixStatus(c)) << what;
        EXPECT_EQ(out.Array().Data(), out.WindowData()) << what;
        EXPECT_TRUE(out.WindowUntouched()) << what;
        EXPECT_TRUE(out.CanariesIntact()) << what;
        ExpectReadOnlyInputsKept(before, in, what);
      }
    }
  }
}

// Width x height beyond an int, or wrapping to 0 in 32 bits, while the matrix holds only a few
// pixels. The shading methods test the wrapped 32-bit product first, so only the second is empty
// for them; the platform's normals then refuse the first.
TEST(HostileInput, RangeImageSizesWhoseProductOverflowsAreRefused) {
  struct Sizes {
    int width;   // written into the size field
    int height;  // the matrix has this many rows of one pixel
    long shadingStatus;
  };
  const Sizes sizes[] = {
      {INT_MAX, 2, kKivPlatformInvalidArgument},
      {65536, 65536, LUT_ERR_RANGE_IMAGE_EMPTY},
      {-1, 3, kKivPlatformInvalidArgument},
  };
  for (const OutputCase& c : OutputCases()) {
    if (!UsesImage(c)) continue;
    for (KivDataType type : {KIV_DATA_U16, KIV_DATA_F32, KIV_DATA_F64}) {
      for (const Sizes& s : sizes) {
        const std::string what = Describe(c, type) + ", width " + std::to_string(s.width) +
                                 " x height " + std::to_string(s.height);
        Inputs in = MakeInputs(type, 1, s.height);
        ASSERT_EQ(FirstSizeField(in.image), 1) << "the first field is no longer the width";
        FirstSizeField(in.image) = s.width;
        ASSERT_EQ(in.image.Width(), s.width);
        const auto before = ReadOnlyState(in);
        GuardedColours out(kCount, 3, 7);
        KivLUTSetting lut;
        const long expected =
            c.family == Family::kRangeMapping ? LUT_ERR_RANGE_IMAGE_EMPTY : s.shadingStatus;
        EXPECT_EQ(c.call(lut, in, out.Get()), expected) << what;
        EXPECT_TRUE(out.WindowUntouched()) << what;
        EXPECT_TRUE(out.CanariesIntact()) << what;
        ExpectReadOnlyInputsKept(before, in, what);
      }
    }
  }
}

// A view with padded rows of the right size and type. The colourings need contiguous pixels and
// refuse it; the platform's normals read row by row, so the normal map of the view is the normal
// map of its contiguous copy; the lighting's base colouring refuses it.
TEST(HostileInput, RangeImageViewWithPaddedRows) {
  for (const OutputCase& c : OutputCases()) {
    if (!UsesImage(c)) continue;
    for (KivDataType type : TypesFor(c)) {
      const std::string what = Describe(c, type) + ", view with padded rows";
      Inputs in = MakeInputs(type);
      const KivRangeImage contiguous = in.image.DeepCopy();
      cv::Mat parent(kHeight + 2, kWidth + 3, in.image.Mat().type(), cv::Scalar::all(3));
      in.image.Mat().copyTo(parent(cv::Rect(2, 1, kWidth, kHeight)));
      in.image.Mat() = parent(cv::Rect(2, 1, kWidth, kHeight));
      ASSERT_FALSE(in.image.Mat().isContinuous());
      const std::vector<uint8_t> parentBefore = Bytes(parent);
      const auto before = ReadOnlyState(in);

      GuardedColours out(kCount, 3, 9);
      KivLUTSetting lut;
      const long status = c.call(lut, in, out.Get());
      EXPECT_TRUE(out.CanariesIntact()) << what;
      EXPECT_EQ(Bytes(parent), parentBefore) << what;
      ExpectReadOnlyInputsKept(before, in, what);
      if (std::string(c.name) == "SetColorNormalMapPhong(image)") {
        Inputs copy = MakeInputs(type);
        copy.image = contiguous;
        KivColorArray expected;
        expected.Create(kCount, 3);
        std::memcpy(expected.Data(), Pattern(3 * kCount, 9).data(), 3 * kCount);
        ASSERT_EQ(c.call(lut, copy, &expected), LUT_OK) << what;
        EXPECT_EQ(status, LUT_OK) << what;
        EXPECT_EQ(Bytes(out.Array().Mat()), Bytes(expected.Mat())) << what;
      } else {
        EXPECT_EQ(status, LUT_ERR_RANGE_IMAGE_EMPTY) << what;
        EXPECT_TRUE(out.WindowUntouched()) << what;
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Float and int arrays whose matrix is not what their element type says

struct ArrayCase {
  const char* name;
  long badMatrixStatus;
  std::function<long(KivLUTSetting&, Kiv3DFloatArray&, Kiv3DIntArray&, KivColorArray*)> call;
};

std::vector<ArrayCase> FloatArrayCases() {
  return {
      {"SetColorLUT(float array)", LUT_ERR_ARRAY_EMPTY,
       [](KivLUTSetting& lut, Kiv3DFloatArray& values, Kiv3DIntArray&, KivColorArray* out) {
         return lut.SetColorLUT(values, 100.0f, 900.0f, 2, out);
       }},
      {"LinearSetColorLUT(float array)", LUT_ERR_ARRAY_EMPTY,
       [](KivLUTSetting& lut, Kiv3DFloatArray& values, Kiv3DIntArray&, KivColorArray* out) {
         return lut.LinearSetColorLUT(values, 100.0f, 900.0f, 3, out);
       }},
      {"LinearColorMapLUT(float array, para)", LUT_ERR_RANGE_IMAGE_EMPTY,
       [](KivLUTSetting& lut, Kiv3DFloatArray& values, Kiv3DIntArray&, KivColorArray* out) {
         LinearColorMapLUT_Para para;
         KivColor under, over;
         return lut.LinearColorMapLUT(values, out, para, under, over, 3, true);
       }},
  };
}

// A 1 x n matrix of the given type; total() and so Length() stay n.
cv::Mat Row(int type) { return cv::Mat(1, kCount, type, cv::Scalar::all(2)); }

// A view of n elements with padded rows: Length() is n, but the elements are not contiguous.
cv::Mat PaddedView(int type) {
  const cv::Mat parent(kHeight + 1, kWidth + 4, type, cv::Scalar::all(2));
  return parent(cv::Rect(1, 1, kWidth, kHeight));
}

TEST(HostileInput, FloatArrayWhoseMatrixIsNotFloatsIsRefused) {
  const std::pair<const char*, cv::Mat> matrices[] = {
      {"bytes", Row(CV_8UC1)},
      {"doubles", Row(CV_64FC1)},
      {"ints", Row(CV_32SC1)},
      {"three channels", Row(CV_32FC3)},
      {"view with padded rows", PaddedView(CV_32FC1)},
  };
  for (const ArrayCase& c : FloatArrayCases()) {
    for (const auto& m : matrices) {
      const std::string what = std::string(c.name) + ", " + m.first;
      Kiv3DFloatArray values;
      values.Mat() = m.second;
      ASSERT_EQ(values.Length(), kCount);
      Kiv3DIntArray unused;
      const std::vector<uint8_t> before = Bytes(values.Mat());
      GuardedColours out(kCount, 3, 13);
      KivLUTSetting lut;
      EXPECT_EQ(c.call(lut, values, unused, out.Get()), c.badMatrixStatus) << what;
      EXPECT_TRUE(out.WindowUntouched()) << what;
      EXPECT_TRUE(out.CanariesIntact()) << what;
      EXPECT_EQ(Bytes(values.Mat()), before) << what;
    }
  }
}

// A contiguous matrix of floats of any shape is n floats: it is coloured like the 1 x n row.
TEST(HostileInput, FloatArrayOfAnotherShapeIsColouredLikeItsRow) {
  for (const ArrayCase& c : FloatArrayCases()) {
    Inputs in = MakeInputs(KIV_DATA_F32);
    Kiv3DFloatArray shaped = in.floats.DeepCopy();
    shaped.Mat() = shaped.Mat().reshape(1, kHeight);
    ASSERT_EQ(shaped.Mat().rows, kHeight);
    Kiv3DIntArray unused;
    KivColorArray expected, out;
    KivLUTSetting lut;
    ASSERT_EQ(c.call(lut, in.floats, unused, &expected), LUT_OK) << c.name;
    EXPECT_EQ(c.call(lut, shaped, unused, &out), LUT_OK) << c.name;
    EXPECT_EQ(Bytes(out.Mat()), Bytes(expected.Mat())) << c.name;
  }
}

TEST(HostileInput, IntArrayWhoseMatrixIsNotIntsIsRefused) {
  const std::pair<const char*, cv::Mat> matrices[] = {
      {"bytes", Row(CV_8UC1)},
      {"floats", Row(CV_32FC1)},
      {"doubles", Row(CV_64FC1)},
      {"three channels", Row(CV_32SC3)},
      {"view with padded rows", PaddedView(CV_32SC1)},
  };
  for (const auto& m : matrices) {
    Kiv3DIntArray values;
    values.Mat() = m.second;
    ASSERT_EQ(values.Length(), kCount);
    const std::vector<uint8_t> before = Bytes(values.Mat());
    GuardedColours out(kCount, 3, 17);
    KivLUTSetting lut;
    EXPECT_EQ(lut.ColorMapLUT(values, 1, -5, 5, out.Get()), LUT_ERR_PARAM_1) << m.first;
    EXPECT_TRUE(out.WindowUntouched()) << m.first;
    EXPECT_TRUE(out.CanariesIntact()) << m.first;
    EXPECT_EQ(Bytes(values.Mat()), before) << m.first;
  }
}

// ---------------------------------------------------------------------------------------------
// ColorBlend inputs whose bytes do not match their sizes

TEST(HostileInput, BlendInputsWhoseBytesDoNotMatchTheirSizesAreRefused) {
  struct Spoil {
    const char* name;
    std::function<void(KivColorArray& a, KivColorArray& b)> apply;
  };
  // b is only read: whatever is wrong with a or b, b keeps its bytes.
  const Spoil spoils[] = {
      {"released matrix of a", [](KivColorArray& a, KivColorArray&) { a.Mat() = cv::Mat(); }},
      {"one byte a colour behind a's three",
       [](KivColorArray& a, KivColorArray&) { a.Mat() = cv::Mat(1, kCount, CV_8UC1); }},
      {"view with padded rows as b",
       [](KivColorArray&, KivColorArray& b) {
         const cv::Mat parent(kHeight + 1, kWidth + 2, CV_8UC3, cv::Scalar::all(4));
         b.Mat() = parent(cv::Rect(1, 1, kWidth, kHeight));
       }},
      {"released matrix of a four-channel a beside a three-channel b",
       [](KivColorArray& a, KivColorArray&) {
         a.Create(kCount, 4);
         a.Mat() = cv::Mat();
       }},
      {"three-byte matrix behind a one-channel a beside a three-channel b",
       [](KivColorArray& a, KivColorArray&) {
         a.Create(kCount, 1);
         a.Mat() = cv::Mat(1, kCount, CV_8UC3, cv::Scalar::all(9));
       }},
      {"lengths far beyond the bytes",
       [](KivColorArray& a, KivColorArray& b) {
         FirstSizeField(a) = 1 << 28;
         FirstSizeField(b) = 1 << 28;
       }},
  };
  for (const Spoil& spoil : spoils) {
    Inputs in = MakeInputs(KIV_DATA_F32);
    ASSERT_EQ(FirstSizeField(in.a), kCount) << "the first field is no longer the length";
    spoil.apply(in.a, in.b);
    const std::vector<uint8_t> bBefore = ColoursState(in.b);
    GuardedColours out(kCount, 3, 19);
    KivLUTSetting lut;
    EXPECT_EQ(lut.ColorBlend(in.a, in.b, 0.25, out.Get()), LUT_ERR_BLEND_FAILED) << spoil.name;
    // Refused before the output was sized: a length taken from the size fields alone could ask
    // for gigabytes.
    EXPECT_EQ(out.Array().Data(), out.WindowData()) << spoil.name;
    EXPECT_EQ(out.Array().Length(), kCount) << spoil.name;
    EXPECT_TRUE(out.WindowUntouched()) << spoil.name;
    EXPECT_TRUE(out.CanariesIntact()) << spoil.name;
    EXPECT_EQ(ColoursState(in.b), bBefore) << spoil.name;
  }
}

// The output may be one of the inputs: each byte is read before it is written.
TEST(HostileInput, BlendIntoOneOfItsInputs) {
  for (int channels : {1, 3, 4}) {
    KivColorArray a, b;
    a.Create(kCount, channels);
    b.Create(kCount, channels);
    cv::randu(a.Mat(), 0, 256);
    cv::randu(b.Mat(), 0, 256);
    KivColorArray expected;
    KivLUTSetting lut;
    ASSERT_EQ(lut.ColorBlend(a, b, 0.3, &expected), LUT_OK);
    const std::vector<uint8_t> bBefore = ColoursState(b);
    EXPECT_EQ(lut.ColorBlend(a, b, 0.3, &a), LUT_OK) << channels;
    EXPECT_EQ(Bytes(a.Mat()), Bytes(expected.Mat())) << channels;
    EXPECT_EQ(ColoursState(b), bBefore) << channels;
  }
}

// ---------------------------------------------------------------------------------------------
// Grey images

using GreyCall = std::function<long(KivLUTSetting&, KivImage&, KivImage*, int mapType)>;

std::vector<std::pair<const char*, GreyCall>> GreyCases() {
  return {
      {"LinearSetColorLUT(image)",
       [](KivLUTSetting& lut, KivImage& src, KivImage* dst, int mapType) {
         return lut.LinearSetColorLUT(src, dst, mapType);
       }},
      {"SetColorLUT(image)", [](KivLUTSetting& lut, KivImage& src, KivImage* dst,
                                int mapType) { return lut.SetColorLUT(src, dst, mapType); }},
      {"SetColorLUT(image, bounds, colours)",
       [](KivLUTSetting& lut, KivImage& src, KivImage* dst, int mapType) {
         return lut.SetColorLUT(src, dst, mapType, 20, 180, 5, 250, KivColor(255, 0, 255),
                                KivColor(0, 255, 0));
       }},
  };
}

KivImage RandomGrey(int width, int height, KivImageType depth, unsigned seed) {
  KivImage image(width, height, 1, depth);
  cv::theRNG().state = seed;
  cv::randu(image.Mat(), 0, depth == KIV_IMAGE_8U ? 256 : 4000);
  return image;
}

// OpenCV refuses to build a matrix whose step is smaller than its row (cv::Mat asserts
// step >= cols x element size even in release builds), and so does KivImage's buffer
// constructor, so no image reaches the library that way. The nearest layouts are checked below:
// a view with padded rows, a non-contiguous matrix, and matrices with no rows or no columns.
TEST(HostileInput, ImageStepSmallerThanItsRowCannotBeBuilt) {
  std::vector<uint8_t> buffer(64, 1);
  EXPECT_THROW(cv::Mat(4, 10, CV_8UC1, buffer.data(), 5), cv::Exception);
  EXPECT_THROW(KivImage(buffer.data(), 10, 4, 1, 5, KIV_IMAGE_8U), std::invalid_argument);
}

TEST(HostileInput, GreyImageViewWithPaddedRowsIsColouredLikeItsCopy) {
  for (KivImageType depth : {KIV_IMAGE_8U, KIV_IMAGE_16U}) {
    const KivImage parent = RandomGrey(kWidth + 5, kHeight + 3, depth, 77);
    for (const auto& [name, call] : GreyCases()) {
      for (int mapType : {0, 1, 2, 6, 7}) {
        const std::string what = std::string(name) + " map " + std::to_string(mapType) + " depth " +
                                 std::to_string(static_cast<int>(depth));
        KivImage view = parent;
        view.Mat() = parent.Mat()(cv::Rect(3, 2, kWidth, kHeight));
        ASSERT_FALSE(view.Mat().isContinuous());
        KivImage copy = view.DeepCopy();
        ASSERT_TRUE(copy.Mat().isContinuous());
        const std::vector<uint8_t> parentBefore = Bytes(parent.Mat());

        KivLUTSetting lut;
        KivImage expected, dst;
        const long expectedStatus = call(lut, copy, &expected, mapType);
        ASSERT_EQ(expectedStatus, LUT_OK) << what;
        EXPECT_EQ(call(lut, view, &dst, mapType), expectedStatus) << what;
        EXPECT_EQ(dst.Mat().type(), expected.Mat().type()) << what;
        EXPECT_EQ(Bytes(dst.Mat()), Bytes(expected.Mat())) << what;
        EXPECT_EQ(Bytes(parent.Mat()), parentBefore) << what;
      }
    }
  }
}

TEST(HostileInput, GreyImageWithoutPixelsInOneDirectionIsEmpty) {
  int sizes3d[] = {2, 3, 4};
  const std::pair<const char*, cv::Mat> matrices[] = {
      {"0 rows, 5 columns", cv::Mat(0, 5, CV_8UC1)},
      {"4 rows, 0 columns", cv::Mat(4, 0, CV_16UC1)},
      // A 3-D matrix reports -1 rows and columns.
      {"three dimensions", cv::Mat(3, sizes3d, CV_8UC1, cv::Scalar::all(1))},
  };
  for (const auto& [name, call] : GreyCases()) {
    for (const auto& m : matrices) {
      const std::string what = std::string(name) + ", " + m.first;
      KivImage src;
      src.Mat() = m.second;
      KivImage dst = RandomGrey(3, 2, KIV_IMAGE_8U, 5);
      const uint8_t* dstData = dst.Data();
      KivLUTSetting lut;
      EXPECT_EQ(call(lut, src, &dst, 1), LUT_ERR_IMAGE_EMPTY) << what;
      EXPECT_EQ(dst.Data(), dstData) << what;
    }
  }
}

TEST(HostileInput, GreyImageOfAnotherFormatLeavesTheDestinationAlone) {
  const std::pair<long, cv::Mat> matrices[] = {
      {LUT_ERR_IMAGE_CHANNELS, cv::Mat(4, 6, CV_8UC3, cv::Scalar::all(7))},
      {LUT_ERR_IMAGE_CHANNELS, cv::Mat(4, 6, CV_16UC2, cv::Scalar::all(7))},
      {LUT_ERR_IMAGE_BIT_DEPTH, cv::Mat(4, 6, CV_32FC1, cv::Scalar::all(7))},
      {LUT_ERR_IMAGE_BIT_DEPTH, cv::Mat(4, 6, CV_8SC1, cv::Scalar::all(7))},
  };
  for (const auto& [name, call] : GreyCases()) {
    for (const auto& m : matrices) {
      KivImage src;
      src.Mat() = m.second;
      KivImage dst = RandomGrey(3, 2, KIV_IMAGE_8U, 5);
      const std::vector<uint8_t> dstBefore = Bytes(dst.Mat());
      const uint8_t* dstData = dst.Data();
      KivLUTSetting lut;
      EXPECT_EQ(call(lut, src, &dst, 1), m.first) << name << " type " << m.second.type();
      EXPECT_EQ(dst.Data(), dstData) << name;
      EXPECT_EQ(Bytes(dst.Mat()), dstBefore) << name;
    }
  }
}

// A destination wrapped around a caller's buffer receives a new matrix; the buffer, and the bytes
// around it, are never written.
TEST(HostileInput, GreyDestinationOverACallersBufferIsNotWrittenInto) {
  constexpr int kSide = 64;
  for (KivImageType depth : {KIV_IMAGE_8U, KIV_IMAGE_16U}) {
    for (const auto& [name, call] : GreyCases()) {
      for (int mapType : {0, 3}) {
        KivImage src = RandomGrey(kWidth, kHeight, depth, 31);
        const std::vector<uint8_t> srcBefore = Bytes(src.Mat());
        std::vector<uint8_t> memory(2 * kSide + 3 * kCount, kCanary);
        KivImage dst(memory.data() + kSide, kWidth, kHeight, 3, 3 * kWidth, KIV_IMAGE_8U);
        KivImage expected;
        KivLUTSetting lut;
        ASSERT_EQ(call(lut, src, &expected, mapType), LUT_OK) << name;
        EXPECT_EQ(call(lut, src, &dst, mapType), LUT_OK) << name;
        EXPECT_EQ(Bytes(dst.Mat()), Bytes(expected.Mat())) << name;
        EXPECT_EQ(memory, std::vector<uint8_t>(memory.size(), kCanary)) << name;
        EXPECT_EQ(Bytes(src.Mat()), srcBefore) << name;
      }
    }
  }
}

// The destination may be the source itself: it then holds the colours of what it held.
TEST(HostileInput, GreyDestinationThatIsTheSource) {
  for (KivImageType depth : {KIV_IMAGE_8U, KIV_IMAGE_16U}) {
    for (const auto& [name, call] : GreyCases()) {
      for (int mapType : {0, 1, 8}) {
        KivImage original = RandomGrey(kWidth, kHeight, depth, 43);
        KivImage expected;
        KivLUTSetting lut;
        ASSERT_EQ(call(lut, original, &expected, mapType), LUT_OK) << name;
        KivImage image = original.DeepCopy();
        EXPECT_EQ(call(lut, image, &image, mapType), LUT_OK) << name;
        EXPECT_EQ(image.Mat().type(), expected.Mat().type()) << name;
        EXPECT_EQ(Bytes(image.Mat()), Bytes(expected.Mat())) << name << " map " << mapType;
      }
    }
  }
}

}  // namespace
}  // namespace KIVMV
