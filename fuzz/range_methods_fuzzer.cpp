// libFuzzer target: one arbitrary range image (any pixel type, size, Type(), resolution and
// offset; pixels with markers, NaN and infinities; sometimes a pixel matrix that contradicts the
// size fields), then up to six calls of the range-image methods on it with parameters from the
// input. Every call must return a documented status (the frame's argument checks exactly), leave
// the image alone, and on success leave an output of the documented size.
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "KivLUTSetting.h"
#include "fuzz_checks.h"
#include "fuzz_objects.h"
#include "fuzz_plans.h"

namespace kivfuzz {
namespace {

using namespace KIVMV;

const char* MethodName(int method) {
  static const char* const kNames[] = {
      "ColorMapLUT(image, mapType)",
      "ColorMapLUT(image, mapType, low, high)",
      "ColorMapLUT(image, mapType, low, high, lo, hi, below, above)",
      "LinearColorMapLUT(image, mapType)",
      "LinearColorMapLUT(image, mapType, low, high)",
      "LinearColorMapLUT(image, mapType, low, high, indexLow, indexHigh, under, over)",
      "LinearColorMapLUT(image, mapType, upperFraction, lowerFraction)",
      "LinearColorMapLUT(image, para)",
      "LinearColorMapLUT(Kiv3DFloatArray, para)",
      "ColorMapLUT(image, para, sizeA, sizeB, vectorA, vectorB)",
      "SetColorNormalMapPhong(image)",
      "SetColorNormalMap(image, light, eye, mode, coefficients)",
  };
  return method >= 0 && method < kRangeMethods ? kNames[method] : "?";
}

bool IsParaMapType(int mapType) { return mapType >= 1 && mapType <= 10; }

bool IsLegendSize(int size) { return size == 2 || size == 4 || size == 8 || size == 16; }

bool IsFraction(double f) { return f >= 0.0 && f <= 1.0; }

bool IsUnsetPosition(const KivVector3d& p) {
  return p == KivVector3d(0.0f, 0.0f, 0.0f) || p == KivVector3d(FLT_MAX, FLT_MAX, FLT_MAX);
}

bool OutsideUnit(float c) { return c < 0.0f || c > 1.0f; }

// Height x Width as a wrapping 32-bit product, as the shading methods test it.
bool WrappedProductIsZero(int height, int width) {
  return static_cast<uint32_t>(height) * static_cast<uint32_t>(width) == 0u;
}

// What the frame's checks of a range image answer before anything else: Type() 0 or 1, then
// both sizes above 0.
long ImageCheck(const KivRangeImage& image) {
  if (image.Type() != 0 && image.Type() != 1) return LUT_ERR_RANGE_IMAGE_TYPE;
  if (image.Width() <= 0 || image.Height() <= 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  return LUT_OK;
}

// The status the frame's argument checks give, or LUT_OK when the call passes them (the routine
// may still refuse it with a code of its own).
long FrameCheck(const RangeCallPlan& call, const KivRangeImage& image,
                const Kiv3DFloatArray& array) {
  if (call.method == kSetColorNormalMapPhong) {
    return WrappedProductIsZero(image.Height(), image.Width()) ? LUT_ERR_RANGE_IMAGE_EMPTY : LUT_OK;
  }
  if (call.method == kSetColorNormalMapLighting) {
    if (WrappedProductIsZero(image.Height(), image.Width())) return LUT_ERR_RANGE_IMAGE_EMPTY;
    if (IsUnsetPosition(ToVector(call.light))) return LUT_ERR_PARAM_1;
    if (IsUnsetPosition(ToVector(call.eye))) return LUT_ERR_PARAM_2;
    if (!MapTypeAccepted(call.mapType)) return LUT_ERR_PARAM_3;
    const float gain = call.coefficients[0];
    if (gain <= 0.0f || gain > 10.0f) return LUT_ERR_PARAM_4;
    if (OutsideUnit(call.coefficients[1])) return LUT_ERR_PARAM_5;
    if (OutsideUnit(call.coefficients[2])) return LUT_ERR_PARAM_6;
    if (OutsideUnit(call.coefficients[3])) return LUT_ERR_PARAM_7;
    return LUT_OK;
  }
  if (call.method == kLinearParaArray) {
    if (array.Length() <= 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
    return IsParaMapType(call.mapType) ? LUT_OK : LUT_ERR_PARAM_1;
  }
  if (const long check = ImageCheck(image); check != LUT_OK) return check;
  switch (call.method) {
    case kLinearParaImage:
      return IsParaMapType(call.mapType) ? LUT_OK : LUT_ERR_PARAM_1;
    case kColorMapLUTSegmented:
      if (!IsParaMapType(call.mapType)) return LUT_ERR_PARAM_1;
      if (call.sizeA != 0 && !IsLegendSize(call.sizeA)) return LUT_ERR_PARAM_6;
      if (call.sizeA != 0 && !IsLegendSize(call.sizeB)) return LUT_ERR_PARAM_7;
      return LUT_OK;
    default:
      break;
  }
  if (!MapTypeAccepted(call.mapType)) return LUT_ERR_PARAM_1;
  switch (call.method) {
    case kColorMapLUTBounds:
      // Only low > high is refused: a NaN bound goes on.
      return call.low > call.high ? LUT_ERR_PARAM_2 : LUT_OK;
    case kColorMapLUTBoundsColours:
    case kLinearColorMapLUTBounds:
    case kLinearColorMapLUTColours:
      return call.high >= call.low ? LUT_OK : LUT_ERR_PARAM_2;
    case kLinearColorMapLUTFractions:
      if (!IsFraction(call.upperFraction)) return LUT_ERR_PARAM_2;
      if (!IsFraction(call.lowerFraction)) return LUT_ERR_PARAM_3;
      return LUT_OK;
    default:
      return LUT_OK;
  }
}

// Field by field, doubles by their bits (a NaN break value equals itself); the record's padding
// bytes are not compared.
bool SameRecord(const LinearColorMapLUT_Para& a, const LinearColorMapLUT_Para& b) {
  const double av[] = {a.value0, a.value1, a.value2, a.value3, a.value4};
  const double bv[] = {b.value0, b.value1, b.value2, b.value3, b.value4};
  return std::memcmp(av, bv, sizeof av) == 0 && a.index0 == b.index0 && a.index1 == b.index1 &&
         a.index2 == b.index2 && a.index3 == b.index3 && a.index4 == b.index4;
}

// The metadata of a range image, which no call may change.
struct ImageFields {
  int width, height, type, dataType;
  double resolution[3], offset[3];

  explicit ImageFields(const KivRangeImage& i)
      : width(i.Width()),
        height(i.Height()),
        type(i.Type()),
        dataType(i.DataType()),
        resolution{i.ResolutionX(), i.ResolutionY(), i.ResolutionZ()},
        offset{i.OffsetX(), i.OffsetY(), i.OffsetZ()} {}

  bool operator==(const ImageFields& o) const {
    return width == o.width && height == o.height && type == o.type && dataType == o.dataType &&
           std::memcmp(resolution, o.resolution, sizeof resolution) == 0 &&
           std::memcmp(offset, o.offset, sizeof offset) == 0;
  }
};

// A float array whose elements the library may read as Length() continuous floats.
bool PlainFloats(const Kiv3DFloatArray& array) {
  const cv::Mat& m = array.Mat();
  return m.type() == CV_32FC1 && m.isContinuous() && m.data != nullptr;
}

// Appended by the segmenting ColorMapLUT on success: the 800 x 600 chart, the four segments
// (width x height, 3 channels) and four ints.
void RequireSegmentOutputs(const KivVarArray& vectorA, int before, const KivRangeImage& image,
                           const char* name, long status) {
  Require(vectorA.Length() == before + 9, name, "vectorA did not receive nine entries", status);
  const KivImage chart = vectorA[before].ToImage();
  Require(chart.Width() == 800 && chart.Height() == 600 && chart.Channels() == 3, name,
          "the chart is not an 800 x 600 colour image", status);
  for (int k = 1; k <= 4; ++k) {
    const KivImage segment = vectorA[before + k].ToImage();
    Require(segment.Width() == image.Width() && segment.Height() == image.Height() &&
                segment.Channels() == 3,
            name, "a segment image does not have the image's size and 3 channels", status);
  }
  for (int k = 5; k <= 8; ++k) {
    Require(vectorA[before + k].IsInt(), name, "a segment count is not an int", status);
  }
}

// Everything a call receives besides the image, built afresh from the plan for each call.
struct CallArguments {
  CallArguments(const RangeCallPlan& call, int pixels, KivColorArray& previous)
      : para(ToRecord(call.para)) {
    if (call.out.kind == kColourPrevious) {
      out = &previous;
    } else if (call.out.kind != kColourNull) {
      built = BuildColourArray(call.out, pixels);
      out = &built;
    }
    if (call.method == kLinearParaArray) array = BuildFloatArray(call.array);
    for (int k = 0; k < call.vectorA.prefill; ++k) vectorA.Append(KivVar(k));
    for (int k = 0; k < call.vectorB.prefill; ++k) vectorB.Append(KivVar(k));
  }
  CallArguments(const CallArguments&) = delete;
  CallArguments& operator=(const CallArguments&) = delete;

  KivColorArray built;
  KivColorArray* out = nullptr;
  Kiv3DFloatArray array;
  LinearColorMapLUT_Para para;
  KivVarArray vectorA;
  KivVarArray vectorB;
};

class RangeSession {
 public:
  explicit RangeSession(const RangeImagePlan& plan) : image_(BuildRangeImage(plan)) {}

  void Run(const RangeCallPlan& call) {
    if (call.method < 0 || call.method >= kRangeMethods) return;
    const char* name = MethodName(call.method);
    const int pixels = image_.Width() * image_.Height();
    CallArguments args(call, pixels, previous_);
    const long expected = FrameCheck(call, image_, args.array);
    const ImageFields fields(image_);
    const MatSnapshot before(image_.Mat());
    const MatSnapshot elements(args.array.Mat());
    std::vector<int> invalid;  // of the float array, which is rescaled in place
    if (PlainFloats(args.array)) {
      for (int i = 0; i < args.array.Length(); ++i) {
        if (!args.array.IsValid(i)) invalid.push_back(i);
      }
    }
    const LinearColorMapLUT_Para record = args.para;

    const long status = Invoke(call, args);

    const bool shading =
        call.method == kSetColorNormalMapPhong || call.method == kSetColorNormalMapLighting;
    const bool allowed = IsLibraryStatus(status) ||
                         (call.method == kLinearColorMapLUTFractions && status == -1) ||
                         (shading && IsPlatformFailure(status));
    Require(allowed, name, "undocumented status", status);
    if (expected != LUT_OK) {
      Require(status == expected, name,
              ("the argument checks should have answered " + std::to_string(expected)).c_str(),
              status);
    }
    Require(fields == ImageFields(image_), name, "the image's fields changed", status);
    Require(before.Unchanged(image_.Mat()), name, "the image's pixels changed", status);
    if (call.method == kLinearParaArray) {
      // Rescaled in place: only the matrix header and the invalid elements (the marker, NaN,
      // infinities) stay as they were, and an array the library cannot read stays whole.
      Require(elements.SameHeader(args.array.Mat()), name, "the array's matrix was replaced",
              status);
      for (int i : invalid) {
        const size_t offset = static_cast<size_t>(i) * sizeof(float);
        Require(std::memcmp(&elements.bytes[offset], &args.array[i], sizeof(float)) == 0, name,
                "an invalid element was rewritten", status);
      }
      if (!PlainFloats(args.array)) {
        Require(elements.Unchanged(args.array.Mat()), name, "an unreadable array was changed",
                status);
      }
    }
    if (call.method == kColorMapLUTSegmented) {
      Require(SameRecord(record, args.para), name, "the record was written back", status);
      if (status == LUT_OK && call.vectorA.present) {
        RequireSegmentOutputs(args.vectorA, call.vectorA.prefill, image_, name, status);
      }
      if (status == LUT_OK && call.vectorB.present) {
        const int ticks = call.sizeA != 0 && call.sizeB != 0 ? call.sizeB + 1 + call.sizeA : 0;
        Require(args.vectorB.Length() == call.vectorB.prefill + ticks, name,
                "vectorB did not receive sizeB + 1 + sizeA ticks", status);
      }
    }
    if (status == LUT_OK) {
      Require(args.out != nullptr, name, "success without an output", status);
      const int length = call.method == kLinearParaArray ? args.array.Length() : pixels;
      RequireColourArray(*args.out, length, 3, name, status);
    }
    if (call.twice && call.out.kind != kColourPrevious) RequireRepeatable(call, args, status);
    if (args.out != nullptr && args.out != &previous_) previous_ = *args.out;
  }

 private:
  long Invoke(const RangeCallPlan& call, CallArguments& args) {
    KivColor below = ToColour(call.below);
    KivColor above = ToColour(call.above);
    KivColor under = ToColour(call.para.under);
    KivColor over = ToColour(call.para.over);
    KivColorArray* out = args.out;
    switch (call.method) {
      case kColorMapLUT:
        return lut_.ColorMapLUT(image_, call.mapType, out);
      case kColorMapLUTBounds:
        return lut_.ColorMapLUT(image_, call.mapType, call.low, call.high, out);
      case kColorMapLUTBoundsColours:
        return lut_.ColorMapLUT(image_, call.mapType, call.low, call.high, call.indexLow,
                                call.indexHigh, below, above, out);
      case kLinearColorMapLUT:
        return lut_.LinearColorMapLUT(image_, call.mapType, out);
      case kLinearColorMapLUTBounds:
        return lut_.LinearColorMapLUT(image_, call.mapType, call.low, call.high, out);
      case kLinearColorMapLUTColours:
        return lut_.LinearColorMapLUT(image_, call.mapType, call.low, call.high, call.indexLow,
                                      call.indexHigh, below, above, out);
      case kLinearColorMapLUTFractions:
        return lut_.LinearColorMapLUT(image_, out, call.mapType, call.upperFraction,
                                      call.lowerFraction);
      case kLinearParaImage:
        return lut_.LinearColorMapLUT(image_, out, args.para, under, over, call.mapType,
                                      call.para.automatic);
      case kLinearParaArray:
        return lut_.LinearColorMapLUT(args.array, out, args.para, under, over, call.mapType,
                                      call.para.automatic);
      case kColorMapLUTSegmented:
        return lut_.ColorMapLUT(image_, out, args.para, under, over, call.mapType,
                                call.para.automatic, call.sizeA, call.sizeB,
                                call.vectorA.present ? &args.vectorA : nullptr,
                                call.vectorB.present ? &args.vectorB : nullptr);
      case kSetColorNormalMapPhong:
        return lut_.SetColorNormalMapPhong(image_, out);
      default: {
        KivVector3d light = ToVector(call.light);
        KivVector3d eye = ToVector(call.eye);
        return lut_.SetColorNormalMap(image_, light, eye, call.mapType, call.coefficients[0],
                                      call.coefficients[1], call.coefficients[2],
                                      call.coefficients[3], out);
      }
    }
  }

  // The same call on fresh copies of its arguments gives the same status, output bytes and
  // record: nothing depends on scheduling or on memory the call did not write.
  void RequireRepeatable(const RangeCallPlan& call, const CallArguments& first, long status) {
    const char* name = MethodName(call.method);
    const int pixels = image_.Width() * image_.Height();
    CallArguments again(call, pixels, previous_);
    const long repeated = Invoke(call, again);
    Require(repeated == status, name, "a repeated call answered differently", repeated);
    if (first.out != nullptr) {
      Require(MatSnapshot(first.out->Mat()).bytes == MatSnapshot(again.out->Mat()).bytes, name,
              "a repeated call wrote other colours", status);
    }
    Require(SameRecord(first.para, again.para), name, "a repeated call wrote another record",
            status);
    if (call.method == kLinearParaArray) {
      Require(MatSnapshot(first.array.Mat()).bytes == MatSnapshot(again.array.Mat()).bytes, name,
              "a repeated call rescaled the array differently", status);
    }
  }

  KivLUTSetting lut_;
  KivRangeImage image_;
  KivColorArray previous_;
};

}  // namespace
}  // namespace kivfuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kivfuzz::SilenceLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto plan = kivfuzz::Decode<kivfuzz::RangeInputPlan>(data, size);
  kivfuzz::RangeSession session(plan.image);
  for (const kivfuzz::RangeCallPlan& call : plan.calls) session.Run(call);
  return 0;
}
