// Every public method of KivLUTSetting called from eight threads at once must give, byte for byte,
// what the same call gives alone: the status, every output, every argument the method writes
// back, and the inputs it converts in place. The threads run one table of calls in shuffled
// orders, once all on one shared object and once each on an object of its own, while reading the
// same input objects. The dialog is left out: it belongs to the GUI thread.
#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "KivFastLoggerPrivate.h"
#include "KivLUTSetting.h"
#include "frame/end_messages.h"
#include "image/image_test_support.h"
#include "range/range_test_support.h"
#include "support/reference_helpers.h"

#if defined(__SANITIZE_THREAD__)
#define KIVLUT_UNDER_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KIVLUT_UNDER_THREAD_SANITIZER 1
#endif
#endif

namespace KIVMV {
namespace {

#ifdef KIVLUT_OPENMP_TSAN_TOOL
// The OpenMP runtime looks for its tools at the first parallel region; a caller's choice wins.
[[maybe_unused]] const bool kOpenMpToolSet =
    setenv("OMP_TOOL_LIBRARIES", KIVLUT_OPENMP_TSAN_TOOL, 0) == 0;
#endif

// ThreadSanitizer sees only instrumented code, and oneTBB's scheduler is not: it cannot see a
// loop's data handed to the pool's workers and back, and reports each parallel body as racing
// with its caller. Under it every oneTBB loop (the library's and OpenCV's) runs on the thread that
// called the method. The eight callers still run at once, and all each of them touches is checked
// against the others; how the work is split is checked with workers by the chunk counts.
std::optional<tbb::global_control> CallersOnlyUnderThreadSanitizer() {
#ifdef KIVLUT_UNDER_THREAD_SANITIZER
  return std::optional<tbb::global_control>(std::in_place,
                                            tbb::global_control::max_allowed_parallelism, 1);
#else
  return std::nullopt;
#endif
}

using testing_support::ForEachPixelType;
using testing_support::GreyImage;
using testing_support::MatBytes;
using testing_support::RandomGreyImage;
using testing_support::RandomRangeImage;
using testing_support::ReferenceIsValid;

constexpr int kThreads = 8;
// Each thread runs the table this many times (calls on large inputs once); with about 130 calls
// in the table that is a few thousand calls per run. ThreadSanitizer runs them ten times slower.
#ifdef KIVLUT_UNDER_THREAD_SANITIZER
constexpr int kRounds = 2;
#else
constexpr int kRounds = 3;
#endif
constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr int kPixels = kWidth * kHeight;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---- What a call produced, as bytes ----

class Result {
 public:
  long status = 0;
  std::vector<uint8_t> bytes;

  template <typename T>
  void Add(T value) {
    static_assert(std::is_arithmetic_v<T>);
    const auto* p = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), p, p + sizeof(T));
  }
  void AddMat(const cv::Mat& m) {
    Add(m.rows);
    Add(m.cols);
    Add(m.type());
    const std::vector<uint8_t> pixels = MatBytes(m);
    bytes.insert(bytes.end(), pixels.begin(), pixels.end());
  }
  void Add(const KivColorArray& a) {
    Add(a.Length());
    Add(a.Channel());
    Add(a.Width());
    Add(a.Height());
    AddMat(a.Mat());
  }
  void Add(const KivImage& image) { AddMat(image.Mat()); }
  void Add(const Kiv3DFloatArray& values) { AddMat(values.Mat()); }
  void Add(const KivColor& c) {
    for (int i = 0; i < 4; ++i) Add(c[i]);
  }
  // Field by field: the record's padding bytes are not part of it.
  void Add(const LinearColorMapLUT_Para& p) {
    for (double v : {p.value0, p.value1, p.value2, p.value3, p.value4}) Add(v);
    for (int32_t i : {p.index0, p.index1, p.index2, p.index3, p.index4}) Add(i);
  }
  void Add(const KivVarArray& vars) {
    Add(vars.Length());
    for (int i = 0; i < vars.Length(); ++i) {
      const KivVar& v = vars[i];
      if (v.IsInt()) {
        Add(1);
        Add(v.ToInt());
      } else if (v.IsDouble()) {
        Add(2);
        Add(v.ToDouble());
      } else if (v.IsImage()) {
        Add(3);
        Add(v.ToImage());
      } else {
        Add(0);
      }
    }
  }

  bool operator==(const Result& o) const { return status == o.status && bytes == o.bytes; }
  bool operator!=(const Result& o) const { return !(*this == o); }
};

// ---- Inputs, shared read-only by every thread ----

struct Inputs {
  KivRangeImage ranges[7];  // one per pixel-type code
  double lowHeight[7] = {};
  double highHeight[7] = {};
  KivRangeImage wrongType;  // Type() 2: refused before anything is read
  std::unique_ptr<GreyImage> grey8, grey16, grey16Large;
  Kiv3DIntArray ints{kPixels};
  Kiv3DFloatArray floats{kPixels};
  KivVector3dArray normals;
  KivColorArray colours3a, colours3b, colours4, colours1, coloursShort, largeA, largeB;
};

KivColorArray RandomColours(int length, int channels, std::mt19937_64& random) {
  KivColorArray a;
  a.Create(length, channels);
  cv::randu(a.Mat(), cv::Scalar::all(0), cv::Scalar::all(256));
  std::uniform_int_distribution<int> pick(0, 9);
  // Some all-white colours, the case where truncation shows (255 and 255 at 0.5 give 254).
  for (int i = 0; i < length; ++i) {
    if (pick(random) == 0) std::memset(a.Data() + static_cast<size_t>(i) * channels, 255, channels);
  }
  return a;
}

std::unique_ptr<Inputs> MakeInputs() {
  auto in = std::make_unique<Inputs>();
  std::mt19937_64 random(20240611);
  cv::theRNG().state = 20240611;
  ForEachPixelType([&](auto tag) {
    using T = typename decltype(tag)::type;
    KivRangeImage image = RandomRangeImage<T>(kWidth, kHeight, random);
    const int code = PixelTraits<T>::kDataType;
    const bool integer = std::is_integral_v<T>;
    image.SetResolution(0.1, 0.1, integer ? 0.01 : 1.0);
    image.SetOffset(1.0, 2.0, integer ? 100.0 : 0.0);
    double low = std::numeric_limits<double>::infinity(), high = -low;
    const T* pixels = image.Ptr<T>();
    for (int i = 0; i < kPixels; ++i) {
      if (!ReferenceIsValid(pixels[i])) continue;
      const double height =
          (static_cast<double>(pixels[i]) - image.OffsetZ()) * image.ResolutionZ();
      low = std::min(low, height);
      high = std::max(high, height);
    }
    in->lowHeight[code] = low;
    in->highHeight[code] = high;
    in->ranges[code] = image;
  });
  in->wrongType = in->ranges[KIV_DATA_U16];
  in->wrongType.SetType(2);

  in->grey8 = RandomGreyImage<uint8_t>(kWidth, kHeight, 0, random);
  in->grey16 = RandomGreyImage<uint16_t>(kWidth - 1, kHeight - 1, 5, random);  // padded rows
  // Large enough for the OpenMP loops of the 16-bit linear colouring.
  in->grey16Large = RandomGreyImage<uint16_t>(512, 512, 0, random);

  std::uniform_int_distribution<int> anyInt(-1000, 3000);
  for (int i = 0; i < kPixels; ++i) in->ints[i] = anyInt(random);

  std::uniform_int_distribution<int> pick(0, 99);
  std::normal_distribution<float> height(500.0f, 120.0f);
  for (int i = 0; i < kPixels; ++i) {
    const int kind = pick(random);
    float v = height(random);
    if (kind < 4)
      v = -FLT_MAX;
    else if (kind < 6)
      v = std::numeric_limits<float>::quiet_NaN();
    else if (kind < 7)
      v = std::numeric_limits<float>::infinity();
    else if (kind < 8)
      v = -std::numeric_limits<float>::infinity();
    in->floats[i] = v;
  }

  // Unit normals with a few NaN and +FLT_MAX x components (both blacken entries); odd length.
  in->normals.SetSize(kPixels - 1);
  std::uniform_real_distribution<float> component(-1.0f, 1.0f);
  for (int i = 0; i < in->normals.Length(); ++i) {
    KivVector3d n(component(random), component(random), component(random) + 1.5f);
    n = n.Normalized();
    const int kind = pick(random);
    if (kind < 2) n = KivVector3d(std::numeric_limits<float>::quiet_NaN(), n.Y(), n.Z());
    if (kind == 2) n = KivVector3d(FLT_MAX, n.Y(), n.Z());
    in->normals[i] = n;
  }

  in->colours3a = RandomColours(kPixels, 3, random);
  in->colours3b = RandomColours(kPixels, 3, random);
  in->colours4 = RandomColours(kPixels, 4, random);
  in->colours1 = RandomColours(kPixels, 1, random);
  in->coloursShort = RandomColours(kPixels - 7, 3, random);
  // Over 2^20 bytes: the blend's OpenMP loop runs in parallel.
  in->largeA = RandomColours(640 * 560, 3, random);
  in->largeB = RandomColours(640 * 560, 3, random);
  return in;
}

// Every shared input as bytes, to show that no call changed one.
Result Snapshot(const Inputs& in) {
  Result r;
  for (const KivRangeImage& image : in.ranges) r.AddMat(image.Mat());
  for (const KivImage* image : {&in.grey8->image, &in.grey16->image, &in.grey16Large->image}) {
    r.Add(*image);
  }
  r.AddMat(in.ints.Mat());
  r.Add(in.floats);
  for (int i = 0; i < in.normals.Length(); ++i) {
    r.Add(in.normals[i].X());
    r.Add(in.normals[i].Y());
    r.Add(in.normals[i].Z());
  }
  for (const KivColorArray* a : {&in.colours3a, &in.colours3b, &in.colours4, &in.colours1,
                                 &in.coloursShort, &in.largeA, &in.largeB}) {
    r.Add(*a);
  }
  return r;
}

// ---- The table of calls ----

struct Call {
  std::string method;  // the public method, one of 21
  std::string label;   // this call's inputs
  bool large = false;  // run once per thread instead of kRounds times
  std::function<Result(KivLUTSetting&)> run;
};

// An output colour array with the pixel count already right and every byte 0xA5, so that bytes a
// method leaves alone are the same in every run; or an empty one, which the method re-creates.
KivColorArray Output(bool prefilled, int length = kPixels, int channels = 3) {
  KivColorArray out;
  if (prefilled) {
    out.Create(length, channels);
    out.Mat().setTo(cv::Scalar::all(0xA5));
  }
  return out;
}

LinearColorMapLUT_Para Para(double v0, double v1, double v2, double v3, double v4,
                            const int32_t (&idx)[5]) {
  LinearColorMapLUT_Para p;
  p.value0 = v0;
  p.value1 = v1;
  p.value2 = v2;
  p.value3 = v3;
  p.value4 = v4;
  p.index0 = idx[0];
  p.index1 = idx[1];
  p.index2 = idx[2];
  p.index3 = idx[3];
  p.index4 = idx[4];
  return p;
}

const char* const kTypeNames[7] = {"u8", "s8", "u16", "s16", "s32", "f32", "f64"};

std::string Label(const std::string& what, int mapType) {
  return what + " map " + std::to_string(mapType);
}

void AddRangeCalls(Inputs& in, std::vector<Call>& t) {
  const KivColor below(255, 0, 255), above(255, 255, 255);
  for (int code = 0; code < 7; ++code) {
    KivRangeImage& image = in.ranges[code];
    const std::string type = kTypeNames[code];
    const double lo = in.lowHeight[code], hi = in.highHeight[code];
    const double low = lo + 0.25 * (hi - lo), high = lo + 0.75 * (hi - lo);
    const int m = (code * 3) % 11;

    t.push_back({"ColorMapLUT(range)", Label(type, m), false, [&image, m](KivLUTSetting& lut) {
                   KivColorArray out = Output(false);
                   Result r;
                   r.status = lut.ColorMapLUT(image, m, &out);
                   r.Add(out);
                   return r;
                 }});
    t.push_back({"ColorMapLUT(range, low, high)", Label(type, (m + 1) % 11), false,
                 [&image, m, low, high](KivLUTSetting& lut) {
                   KivColorArray out = Output(true);
                   Result r;
                   r.status = lut.ColorMapLUT(image, (m + 1) % 11, low, high, &out);
                   r.Add(out);
                   return r;
                 }});
    t.push_back({"ColorMapLUT(range, low, high, lo, hi, below, above)", Label(type, (m + 2) % 11),
                 false, [&image, m, low, high, below, above](KivLUTSetting& lut) {
                   KivColorArray out = Output(false);
                   Result r;
                   r.status =
                       lut.ColorMapLUT(image, (m + 2) % 11, low, high, 16, 240, below, above, &out);
                   r.Add(out);
                   return r;
                 }});
    t.push_back({"LinearColorMapLUT(range)", Label(type, (m + 3) % 11), false,
                 [&image, m](KivLUTSetting& lut) {
                   KivColorArray out = Output(true);
                   Result r;
                   r.status = lut.LinearColorMapLUT(image, (m + 3) % 11, &out);
                   r.Add(out);
                   return r;
                 }});
    t.push_back({"LinearColorMapLUT(range, low, high)", Label(type, (m + 4) % 11), false,
                 [&image, m, low, high](KivLUTSetting& lut) {
                   KivColorArray out = Output(false);
                   Result r;
                   r.status = lut.LinearColorMapLUT(image, (m + 4) % 11, low, high, &out);
                   r.Add(out);
                   return r;
                 }});
    t.push_back({"LinearColorMapLUT(range, low, high, indexLow, indexHigh, under, over)",
                 Label(type, (m + 5) % 11), false,
                 [&image, m, low, high, below, above](KivLUTSetting& lut) {
                   KivColorArray out = Output(true);
                   Result r;
                   r.status = lut.LinearColorMapLUT(image, (m + 5) % 11, low, high, 10, 200, below,
                                                    above, &out);
                   r.Add(out);
                   return r;
                 }});
    t.push_back({"LinearColorMapLUT(range, fractions)", Label(type, (m + 6) % 11), false,
                 [&image, m](KivLUTSetting& lut) {
                   KivColorArray out = Output(false);
                   Result r;
                   r.status = lut.LinearColorMapLUT(image, &out, (m + 6) % 11, 0.05, 0.1);
                   r.Add(out);
                   return r;
                 }});

    // The five-point scale: automatic (the record is written back) and by hand.
    const int pm = 1 + code % 10;
    const LinearColorMapLUT_Para manual =
        Para(lo + 0.05 * (hi - lo), lo + 0.3 * (hi - lo), lo + 0.5 * (hi - lo),
             lo + 0.7 * (hi - lo), lo + 0.95 * (hi - lo), {0, 200, 500, 800, 1023});
    for (bool automatic : {true, false}) {
      t.push_back({"LinearColorMapLUT(range, para)",
                   Label(type + (automatic ? " automatic" : " manual"), pm), false,
                   [&image, pm, automatic, manual](KivLUTSetting& lut) {
                     LinearColorMapLUT_Para para =
                         automatic ? Para(9, 9, 9, 9, 9, {5, 6, 7, 8, 9}) : manual;
                     KivColor under(10, 20, 30, 40), over(200, 210, 220, 230);
                     KivColorArray out = Output(true);
                     Result r;
                     r.status =
                         lut.LinearColorMapLUT(image, &out, para, under, over, pm, automatic);
                     r.Add(out);
                     r.Add(para);
                     r.Add(under);
                     r.Add(over);
                     return r;
                   }});
    }
    // The segmenting form: odd types by hand, without vectorB when sizeA is 0.
    const bool automatic = code % 2 == 0;
    const int sizeA = automatic ? 4 : (code == 3 ? 0 : 2), sizeB = code == 1 ? 16 : 8;
    t.push_back({"ColorMapLUT(range, para, segments)",
                 Label(type + (automatic ? " automatic" : " manual"), 11 - pm), false,
                 [&image, pm, automatic, manual, sizeA, sizeB](KivLUTSetting& lut) {
                   LinearColorMapLUT_Para para = manual;
                   KivColor under(1, 2, 3), over(250, 251, 252);
                   KivColorArray out = Output(true);
                   KivVarArray vectorA, vectorB;
                   vectorA.Append(KivVar(7));  // appended after
                   Result r;
                   r.status =
                       lut.ColorMapLUT(image, &out, para, under, over, 11 - pm, automatic, sizeA,
                                       sizeB, &vectorA, sizeA == 0 ? nullptr : &vectorB);
                   r.Add(out);
                   r.Add(para);
                   r.Add(vectorA);
                   r.Add(vectorB);
                   return r;
                 }});

    // Shading.
    t.push_back({"SetColorNormalMapPhong(range)", type, false, [&image](KivLUTSetting& lut) {
                   KivColorArray out = Output(false);
                   Result r;
                   r.status = lut.SetColorNormalMapPhong(image, &out);
                   r.Add(out);
                   return r;
                 }});
    const float gain = code % 2 == 0 ? 1.0f : 1.5f;  // above 1 bytes wrap
    t.push_back({"SetColorNormalMap(range, light, eye)", Label(type, m), false,
                 [&image, m, gain](KivLUTSetting& lut) {
                   KivVector3d light(0.0f, 0.0f, 1000.0f), eye(3.2f, 2.4f, 2000.0f);
                   KivColorArray out = Output(true);
                   Result r;
                   r.status =
                       lut.SetColorNormalMap(image, light, eye, m, gain, 0.3f, 0.6f, 0.3f, &out);
                   r.Add(out);
                   return r;
                 }});
  }

  // Calls refused by their checks, among the others.
  KivRangeImage& wrong = in.wrongType;
  t.push_back({"ColorMapLUT(range)", "Type() 2", false, [&wrong](KivLUTSetting& lut) {
                 KivColorArray out = Output(true);
                 Result r;
                 r.status = lut.ColorMapLUT(wrong, 1, &out);
                 r.Add(out);
                 return r;
               }});
  KivRangeImage& u16 = in.ranges[KIV_DATA_U16];
  t.push_back({"LinearColorMapLUT(range, para)", "u16 values out of order", false,
               [&u16](KivLUTSetting& lut) {
                 LinearColorMapLUT_Para para = Para(5, 4, 3, 2, 1, {0, 1, 2, 3, 4});
                 KivColor under, over;
                 KivColorArray out = Output(true);
                 Result r;
                 r.status = lut.LinearColorMapLUT(u16, &out, para, under, over, 2, false);
                 r.Add(out);
                 r.Add(para);
                 return r;
               }});
}

void AddGreyCalls(Inputs& in, std::vector<Call>& t) {
  struct Source {
    const char* name;
    KivImage* image;
    bool large;
  };
  const Source sources[] = {{"8-bit", &in.grey8->image, false},
                            {"16-bit padded", &in.grey16->image, false},
                            {"16-bit 512x512", &in.grey16Large->image, true}};
  auto result = [](long status, const KivImage& dst) {
    Result r;
    r.status = status;
    r.Add(dst);
    return r;
  };
  for (const Source& s : sources) {
    KivImage& src = *s.image;
    const bool eight = src.BitDepth() == KIV_IMAGE_8U;
    for (int m : s.large ? std::vector<int>{6} : std::vector<int>{eight ? 0 : 7, eight ? 4 : 2}) {
      t.push_back({"LinearSetColorLUT(image)", Label(s.name, m), s.large,
                   [&src, m, result](KivLUTSetting& lut) {
                     KivImage dst;
                     return result(lut.LinearSetColorLUT(src, &dst, m), dst);
                   }});
    }
    if (s.large) continue;
    for (int m : {eight ? 1 : 3, eight ? 0 : 9}) {
      t.push_back(
          {"SetColorLUT(image)", Label(s.name, m), false, [&src, m, result](KivLUTSetting& lut) {
             KivImage dst(7, 3, 3, KIV_IMAGE_8U);  // replaced by a new matrix
             return result(lut.SetColorLUT(src, &dst, m), dst);
           }});
    }
    const int low = eight ? 30 : 1000, high = eight ? 200 : 40000;
    for (int m : {eight ? 5 : 6, eight ? 8 : 1}) {
      t.push_back({"SetColorLUT(image, low, high, indexLow, indexHigh, below, above)",
                   Label(s.name, m), false, [&src, m, low, high, result](KivLUTSetting& lut) {
                     KivImage dst;
                     const KivColor below(0, 128, 255), above(12, 34, 56);
                     return result(lut.SetColorLUT(src, &dst, m, low, high, 10, 250, below, above),
                                   dst);
                   }});
    }
  }
}

void AddArrayCalls(Inputs& in, std::vector<Call>& t) {
  Kiv3DIntArray& ints = in.ints;
  for (auto [m, low, high] : {std::tuple{2, 0, 2000}, std::tuple{9, -500, 500}}) {
    t.push_back({"ColorMapLUT(int array)", Label("ints", m), false,
                 [&ints, m = m, low = low, high = high](KivLUTSetting& lut) {
                   KivColorArray out = Output(m == 2);
                   Result r;
                   r.status = lut.ColorMapLUT(ints, m, low, high, &out);
                   r.Add(out);
                   return r;
                 }});
  }
  Kiv3DFloatArray& floats = in.floats;
  for (auto [m, low, high] : {std::tuple{1, 300.0f, 700.0f}, std::tuple{4, -1e30f, 1e30f}}) {
    t.push_back({"SetColorLUT(float array)", Label("floats", m), false,
                 [&floats, m = m, low = low, high = high](KivLUTSetting& lut) {
                   KivColorArray out = Output(m == 1);
                   Result r;
                   r.status = lut.SetColorLUT(floats, low, high, m, &out);
                   r.Add(out);
                   return r;
                 }});
  }
  for (auto [m, low, high] : {std::tuple{6, 300.0f, 700.0f}, std::tuple{0, 0.0f, 1000.0f}}) {
    t.push_back({"LinearSetColorLUT(float array)", Label("floats", m), false,
                 [&floats, m = m, low = low, high = high](KivLUTSetting& lut) {
                   KivColorArray out = Output(m == 0);
                   Result r;
                   r.status = lut.LinearSetColorLUT(floats, low, high, m, &out);
                   r.Add(out);
                   return r;
                 }});
  }
  // Rescales the array in place: each call works on its own copy, which is part of the result.
  for (auto [m, automatic] : {std::tuple{3, true}, std::tuple{8, false}}) {
    t.push_back(
        {"LinearColorMapLUT(float array, para)",
         Label(automatic ? "floats automatic" : "floats manual", m), false,
         [&floats, m = m, automatic = automatic](KivLUTSetting& lut) {
           Kiv3DFloatArray values = floats.DeepCopy();
           LinearColorMapLUT_Para para = Para(-0.9, -0.4, 0.0, 0.4, 0.9, {0, 300, 511, 700, 1023});
           KivColor under(0, 0, 255), over(255, 0, 0);
           KivColorArray out = Output(true);
           Result r;
           r.status = lut.LinearColorMapLUT(values, &out, para, under, over, m, automatic);
           r.Add(out);
           r.Add(values);
           r.Add(para);
           return r;
         }});
  }

  KivVector3dArray& normals = in.normals;
  for (int channels : {3, 4}) {
    t.push_back({"SetColorNormalMap(normals)", std::to_string(channels) + " channels out", false,
                 [&normals, channels](KivLUTSetting& lut) {
                   // The last entry is never written: prefilled, it is the same in every run.
                   KivColorArray out = Output(true, normals.Length(), channels);
                   Result r;
                   r.status = lut.SetColorNormalMap(normals, &out);
                   r.Add(out);
                   return r;
                 }});
  }

  // Converts a differing input's channels in place: own copies, part of the result.
  struct Blend {
    const char* label;
    KivColorArray* a;
    KivColorArray* b;
    double alpha;
    bool large;
  };
  const Blend blends[] = {{"3+3 at 0.5", &in.colours3a, &in.colours3b, 0.5, false},
                          {"4+3 at 0.25", &in.colours4, &in.colours3b, 0.25, false},
                          {"3+1 at 0.75", &in.colours3a, &in.colours1, 0.75, false},
                          {"3+3 at NaN", &in.colours3a, &in.colours3b, kNaN, false},
                          {"lengths differ", &in.colours3a, &in.coloursShort, 0.5, false},
                          {"3+3 of 1 MB at 0.6", &in.largeA, &in.largeB, 0.6, true}};
  for (const Blend& blend : blends) {
    t.push_back({"ColorBlend", blend.label, blend.large, [blend](KivLUTSetting& lut) {
                   KivColorArray a = blend.a->DeepCopy(), b = blend.b->DeepCopy();
                   KivColorArray out = Output(!blend.large, blend.a->Length());
                   Result r;
                   r.status = lut.ColorBlend(a, b, blend.alpha, &out);
                   r.Add(out);
                   r.Add(a);
                   r.Add(b);
                   return r;
                 }});
  }
}

void AddGetColorCalls(std::vector<Call>& t) {
  for (int m = 0; m <= 10; ++m) {
    t.push_back({"GetColor", Label("value " + std::to_string(m) + "/10", m), false,
                 [m](KivLUTSetting& lut) {
                   KivColor colour(1, 2, 3, 77);
                   Result r;
                   r.status = lut.GetColor(m / 10.0, m, &colour);
                   r.Add(colour);
                   return r;
                 }});
  }
  t.push_back({"GetColor", "NaN", false, [](KivLUTSetting& lut) {
                 KivColor colour(1, 2, 3, 77);
                 Result r;
                 r.status = lut.GetColor(kNaN, 1, &colour);
                 r.Add(colour);
                 return r;
               }});
}

std::vector<Call> MakeTable(Inputs& in) {
  std::vector<Call> t;
  AddGetColorCalls(t);
  AddRangeCalls(in, t);
  AddGreyCalls(in, t);
  AddArrayCalls(in, t);
  return t;
}

// ---- Watching the log and standard output from every thread ----

// Standard output of the library while installed: the timing lines of SetColorLUT on float
// arrays, kept whole (each line is one write) to count them afterwards.
class StdoutCollector : public std::streambuf {
 public:
  StdoutCollector() : previous_(std::cout.rdbuf(this)) {}
  ~StdoutCollector() override { std::cout.rdbuf(previous_); }
  StdoutCollector(const StdoutCollector&) = delete;
  StdoutCollector& operator=(const StdoutCollector&) = delete;

  // Lines written so far, and how many of them are timing lines.
  void Count(long* lines, long* timingLines) {
    std::lock_guard<std::mutex> lock(mutex_);
    *lines = static_cast<long>(std::count(text_.begin(), text_.end(), '\n'));
    *timingLines = 0;
    for (size_t at = text_.find(kTimingPrefix); at != std::string::npos;
         at = text_.find(kTimingPrefix, at + 1)) {
      ++*timingLines;
    }
  }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    std::lock_guard<std::mutex> lock(mutex_);
    text_ += traits_type::to_char_type(c);
    return c;
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    std::lock_guard<std::mutex> lock(mutex_);
    text_.append(s, static_cast<size_t>(n));
    return n;
  }

 private:
  std::mutex mutex_;
  std::string text_;
  std::streambuf* previous_;
};

// Counts the log lines of every thread while installed.
class LogCounter {
 public:
  LogCounter() {
    KivFastLoggerPrivate::SetSink(
        [this](const std::string& message, const std::string&, const std::string&, int) {
          (message == "start" ? starts_ : ends_).fetch_add(1, std::memory_order_relaxed);
        });
  }
  ~LogCounter() { KivFastLoggerPrivate::SetSink({}); }
  LogCounter(const LogCounter&) = delete;
  LogCounter& operator=(const LogCounter&) = delete;

  long Starts() const { return starts_.load(); }
  long Ends() const { return ends_.load(); }

 private:
  std::atomic<long> starts_{0};
  std::atomic<long> ends_{0};
};

struct Counts {
  long starts = 0, ends = 0, stdoutLines = 0, timingLines = 0;
};

Counts Observe(LogCounter& log, StdoutCollector& out) {
  Counts c;
  c.starts = log.Starts();
  c.ends = log.Ends();
  out.Count(&c.stdoutLines, &c.timingLines);
  return c;
}

Counts operator-(const Counts& a, const Counts& b) {
  return {a.starts - b.starts, a.ends - b.ends, a.stdoutLines - b.stdoutLines,
          a.timingLines - b.timingLines};
}

// ---- The runs ----

// The table, its inputs, and what each call gives when it runs alone on the main thread.
class ConcurrencyRun {
 public:
  ConcurrencyRun()
      : pool_(CallersOnlyUnderThreadSanitizer()),
        inputs_(MakeInputs()),
        table_(MakeTable(*inputs_)) {
    inputsBefore_ = Snapshot(*inputs_);
    for (const Call& call : table_) {
      KivLUTSetting lut;
      const Counts before = Observe(log_, stdout_);
      Result first = call.run(lut);
      alone_.push_back(Observe(log_, stdout_) - before);
      // Alone and repeated on the same object: any difference here is not the threads' doing.
      repeatable_.push_back(call.run(lut) == first);
      reference_.push_back(std::move(first));
    }
  }

  const std::vector<Call>& Table() const { return table_; }
  const Result& Reference(size_t i) const { return reference_[i]; }
  bool Repeatable(size_t i) const { return repeatable_[i]; }
  bool InputsUnchanged() const { return Snapshot(*inputs_) == inputsBefore_; }

  // Eight threads run the table kRounds times each (large calls once), each in its own shuffled
  // order, on one shared object or on one object per thread. Returns a description of every
  // difference from the calls made alone, empty when there is none.
  std::string Stress(bool sharedObject) {
    std::vector<std::vector<size_t>> schedules(kThreads);
    for (int t = 0; t < kThreads; ++t) {
      for (size_t i = 0; i < table_.size(); ++i) {
        for (int k = 0; k < (table_[i].large ? 1 : kRounds); ++k) schedules[t].push_back(i);
      }
      std::shuffle(schedules[t].begin(), schedules[t].end(), std::mt19937_64(1000 + t));
    }
    Counts expected;
    for (const std::vector<size_t>& schedule : schedules) {
      for (size_t i : schedule) {
        expected.starts += alone_[i].starts;
        expected.ends += alone_[i].ends;
        expected.stdoutLines += alone_[i].stdoutLines;
        expected.timingLines += alone_[i].timingLines;
      }
    }

    KivLUTSetting shared;
    std::vector<std::vector<int>> mismatches(kThreads, std::vector<int>(table_.size(), 0));
    std::vector<std::vector<int>> thrown(kThreads, std::vector<int>(table_.size(), 0));
    std::mutex mutex;
    std::condition_variable ready;
    int waiting = 0;
    bool go = false;
    const Counts before = Observe(log_, stdout_);
    const auto started = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        KivLUTSetting own;
        KivLUTSetting& lut = sharedObject ? shared : own;
        {
          // Start together, so that the calls overlap from the first one.
          std::unique_lock<std::mutex> lock(mutex);
          ++waiting;
          ready.notify_all();
          ready.wait(lock, [&] { return go; });
        }
        for (size_t i : schedules[t]) {
          try {
            if (table_[i].run(lut) != reference_[i]) ++mismatches[t][i];
          } catch (...) {
            ++thrown[t][i];
          }
        }
      });
    }
    {
      std::unique_lock<std::mutex> lock(mutex);
      ready.wait(lock, [&] { return waiting == kThreads; });
      go = true;
    }
    ready.notify_all();
    for (std::thread& thread : threads) thread.join();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const Counts seen = Observe(log_, stdout_) - before;

    size_t calls = 0;
    for (const std::vector<size_t>& schedule : schedules) calls += schedule.size();
    std::printf("%d threads, %s: %zu calls in %.2f s\n", kThreads,
                sharedObject ? "one shared object" : "one object each", calls, seconds);

    // Per method: calls made, calls that differed, the first differing call's label.
    struct Tally {
      int calls = 0, differ = 0, threw = 0;
      std::string first;
    };
    std::map<std::string, Tally> tallies;
    for (int t = 0; t < kThreads; ++t) {
      for (size_t i : schedules[t]) ++tallies[table_[i].method].calls;
      for (size_t i = 0; i < table_.size(); ++i) {
        Tally& tally = tallies[table_[i].method];
        tally.differ += mismatches[t][i];
        tally.threw += thrown[t][i];
        if ((mismatches[t][i] || thrown[t][i]) && tally.first.empty())
          tally.first = table_[i].label;
      }
    }
    std::ostringstream report;
    for (const auto& [method, tally] : tallies) {
      if (tally.differ == 0 && tally.threw == 0) continue;
      report << method << ": " << tally.differ << " of " << tally.calls << " calls differ, "
             << tally.threw << " threw (first: " << tally.first << ")\n";
    }
    if (seen.starts != expected.starts || seen.ends != expected.ends) {
      report << "log lines: " << seen.starts << " \"start\" and " << seen.ends
             << " end lines, expected " << expected.starts << " and " << expected.ends << "\n";
    }
    if (seen.timingLines != expected.timingLines || seen.stdoutLines != expected.stdoutLines) {
      report << "standard output: " << seen.timingLines << " timing lines of " << seen.stdoutLines
             << ", expected " << expected.timingLines << " of " << expected.stdoutLines << "\n";
    }
    if (!InputsUnchanged()) report << "a shared input changed\n";
    return report.str();
  }

 private:
  std::optional<tbb::global_control> pool_;
  LogCounter log_;
  StdoutCollector stdout_;
  std::unique_ptr<Inputs> inputs_;
  std::vector<Call> table_;
  Result inputsBefore_;
  std::vector<Result> reference_;
  std::vector<Counts> alone_;
  std::vector<bool> repeatable_;
};

TEST(Concurrency, TableCoversEveryPublicMethodAndRepeatsAlone) {
  ConcurrencyRun run;
  const std::set<std::string> every = {
      "GetColor",
      "ColorMapLUT(range)",
      "ColorMapLUT(range, low, high)",
      "ColorMapLUT(range, low, high, lo, hi, below, above)",
      "LinearColorMapLUT(range)",
      "LinearColorMapLUT(range, low, high)",
      "LinearColorMapLUT(range, low, high, indexLow, indexHigh, under, over)",
      "LinearColorMapLUT(range, fractions)",
      "LinearColorMapLUT(range, para)",
      "LinearColorMapLUT(float array, para)",
      "ColorMapLUT(range, para, segments)",
      "LinearSetColorLUT(image)",
      "SetColorLUT(image)",
      "SetColorLUT(image, low, high, indexLow, indexHigh, below, above)",
      "ColorMapLUT(int array)",
      "SetColorLUT(float array)",
      "LinearSetColorLUT(float array)",
      "SetColorNormalMap(normals)",
      "SetColorNormalMapPhong(range)",
      "SetColorNormalMap(range, light, eye)",
      "ColorBlend",
  };
  ASSERT_EQ(every.size(), 21u);
  std::set<std::string> covered, succeeded;
  for (size_t i = 0; i < run.Table().size(); ++i) {
    const Call& call = run.Table()[i];
    covered.insert(call.method);
    if (run.Reference(i).status == LUT_OK) succeeded.insert(call.method);
    EXPECT_TRUE(run.Repeatable(i)) << call.method << " " << call.label << " differs when repeated";
  }
  EXPECT_EQ(covered, every);
  // Each method does its work in some call, not only its argument checks.
  EXPECT_EQ(succeeded, every);
  EXPECT_TRUE(run.InputsUnchanged());
}

TEST(Concurrency, EightThreadsOnOneSharedObjectMatchTheCallsMadeAlone) {
  ConcurrencyRun run;
  const std::string differences = run.Stress(true);
  EXPECT_TRUE(differences.empty()) << differences;
}

TEST(Concurrency, EightThreadsEachWithItsOwnObjectMatchTheCallsMadeAlone) {
  ConcurrencyRun run;
  const std::string differences = run.Stress(false);
  EXPECT_TRUE(differences.empty()) << differences;
}

}  // namespace
}  // namespace KIVMV
