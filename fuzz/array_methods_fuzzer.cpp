// libFuzzer target: up to four calls of the methods that do not take a range image (GetColor,
// the three grey-image colourings, the integer- and float-array colourings, ColorBlend and the
// normal map of a vector array), each on objects built from the input: grey images of any size,
// sample type and channel count, some around a caller's padded buffer; arrays whose matrices
// contradict their lengths; outputs that are null, empty, of the wrong length or channel count,
// or hold a matrix swapped in behind their back. Every call must return a documented status (the
// argument checks exactly), leave its inputs alone (except where the method says otherwise), and
// on success leave an output of the documented size.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KivLUTSetting.h"
#include "fuzz_checks.h"
#include "fuzz_objects.h"
#include "fuzz_plans.h"

namespace kivfuzz {
namespace {

using namespace KIVMV;

const char* MethodName(int method) {
  static const char* const kNames[] = {
      "GetColor",
      "LinearSetColorLUT(KivImage)",
      "SetColorLUT(KivImage)",
      "SetColorLUT(KivImage, low, high, indexLow, indexHigh, below, above)",
      "ColorMapLUT(Kiv3DIntArray)",
      "SetColorLUT(Kiv3DFloatArray)",
      "LinearSetColorLUT(Kiv3DFloatArray)",
      "ColorBlend",
      "SetColorNormalMap(KivVector3dArray)",
  };
  return method >= 0 && method < kArrayMethods ? kNames[method] : "?";
}

void RequireStatus(long status, long expected, const char* name) {
  Require(IsLibraryStatus(status), name, "undocumented status", status);
  if (expected != LUT_OK) {
    Require(status == expected, name,
            ("the argument checks should have answered " + std::to_string(expected)).c_str(),
            status);
  }
}

// The output colour array of a call (built for it, or the one the previous call of the input
// wrote), or null. Once the call returned, what it wrote becomes the next call's "previous".
class Output {
 public:
  Output(const ColourArrayPlan& plan, int needed, KivColorArray& previous) : previous_(previous) {
    if (plan.kind == kColourNull) return;
    if (plan.kind == kColourPrevious) {
      pointer = &previous;
      return;
    }
    built_ = BuildColourArray(plan, needed);
    pointer = &built_;
  }
  ~Output() {
    if (pointer != nullptr && pointer != &previous_) previous_ = *pointer;
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  KivColorArray* pointer = nullptr;

 private:
  KivColorArray& previous_;
  KivColorArray built_;
};

// ---- GetColor ----------------------------------------------------------------------------------

void RunGetColor(const ArrayCallPlan& call, KivLUTSetting& lut) {
  const char* name = MethodName(kGetColor);
  const KivColor sentinel(-7, -7, -7, 0x5A5A);
  KivColor colour = sentinel;
  const long status = lut.GetColor(call.value, call.mapType, call.nullOutput ? nullptr : &colour);
  long expected = LUT_OK;
  if (!(call.value >= 0.0 && call.value <= 1.0)) {
    expected = LUT_ERR_PARAM_1;
  } else if (!MapTypeAccepted(call.mapType)) {
    expected = LUT_ERR_PARAM_2;
  } else if (call.nullOutput) {
    expected = LUT_ERR_PARAM_3;
  }
  Require(status == expected, name, "unexpected status", status);
  if (status != LUT_OK) {
    Require(colour == sentinel, name, "a refused call wrote the colour", status);
    return;
  }
  for (int c = 0; c < 3; ++c) {
    Require(colour[c] >= 0 && colour[c] <= 255, name, "a component is not a byte", status);
  }
  Require(colour[3] == 0x5A5A, name, "component 3 was written", status);
}

// ---- Grey images -------------------------------------------------------------------------------

// What the frame and then the routine answer before any work; LUT_OK when every check passes.
long GreyCheck(const ArrayCallPlan& call, const KivImage& src, const KivImage* dst) {
  if (src.Width() <= 0 || src.Height() < 1) return LUT_ERR_IMAGE_EMPTY;
  if (!MapTypeAccepted(call.mapType)) return LUT_ERR_PARAM_1;
  if (dst == nullptr) return LUT_ERR_PARAM_2;
  if (call.method == kSetColorLUTImageBands) {
    if (call.high < call.low || call.low < 0 || call.high < 0) return LUT_ERR_PARAM_2;
    if (call.indexLow < 0 || call.indexHigh < call.indexLow) return LUT_ERR_PARAM_4;
    if (call.indexHigh > 255) return LUT_ERR_PARAM_5;
  }
  if (src.Channels() != 1) return LUT_ERR_IMAGE_CHANNELS;
  if (src.BitDepth() != KIV_IMAGE_8U && src.BitDepth() != KIV_IMAGE_16U) {
    return LUT_ERR_IMAGE_BIT_DEPTH;
  }
  return LUT_OK;
}

void RunGreyImage(const ArrayCallPlan& call, KivLUTSetting& lut) {
  const char* name = MethodName(call.method);
  const std::unique_ptr<GreyImage> src = BuildGreyImage(call.src);
  std::unique_ptr<GreyImage> target;
  KivImage* dst = nullptr;
  switch (call.dst.kind) {
    case kGreyDefault:
      target = std::make_unique<GreyImage>();
      dst = &target->image;
      break;
    case kGreyOwning:
    case kGreyCallerBuffer: {
      GreyImagePlan plan = call.dst.image;
      plan.callerBuffer = call.dst.kind == kGreyCallerBuffer;
      target = BuildGreyImage(plan);
      dst = &target->image;
      break;
    }
    case kGreySource:
      dst = &src->image;
      break;
    default:
      break;
  }
  const long expected = GreyCheck(call, src->image, dst);
  const int width = src->image.Width();
  const int height = src->image.Height();
  const MatSnapshot source(src->image.Mat());
  const std::vector<uint8_t> sourceBuffer = src->buffer;
  const std::vector<uint8_t> targetBuffer = target ? target->buffer : std::vector<uint8_t>();
  std::unique_ptr<MatSnapshot> destination;
  if (dst != nullptr) destination = std::make_unique<MatSnapshot>(dst->Mat());

  long status = LUT_OK;
  switch (call.method) {
    case kLinearSetColorLUTImage:
      status = lut.LinearSetColorLUT(src->image, dst, call.mapType);
      break;
    case kSetColorLUTImage:
      status = lut.SetColorLUT(src->image, dst, call.mapType);
      break;
    default:
      status = lut.SetColorLUT(src->image, dst, call.mapType, call.low, call.high, call.indexLow,
                               call.indexHigh, ToColour(call.below), ToColour(call.above));
      break;
  }
  RequireStatus(status, expected, name);
  Require(src->buffer == sourceBuffer, name, "the source's caller buffer was written", status);
  if (target) {
    Require(target->buffer == targetBuffer, name, "the destination's caller buffer was written",
            status);
  }
  if (dst != &src->image || status != LUT_OK) {
    Require(source.Unchanged(src->image.Mat()), name, "the source changed", status);
  }
  if (status != LUT_OK) {
    if (dst != nullptr) {
      Require(destination->Unchanged(dst->Mat()), name, "a refused call changed the destination",
              status);
    }
    return;
  }
  Require(dst->Width() == width && dst->Height() == height, name,
          "the destination does not have the source's size", status);
  Require(dst->Channels() == 1 || dst->Channels() == 3, name,
          "the destination has neither 1 nor 3 channels", status);
  Require(dst->BitDepth() == KIV_IMAGE_8U, name, "the destination is not 8-bit", status);
}

// ---- Flat arrays -------------------------------------------------------------------------------

// Elements the library may read as Length() continuous values of `type`.
bool PlainElements(const cv::Mat& m, int type) {
  return m.type() == type && m.isContinuous() && m.data != nullptr;
}

void RunIntArray(const ArrayCallPlan& call, KivLUTSetting& lut, KivColorArray& previous) {
  const char* name = MethodName(call.method);
  Kiv3DIntArray values = BuildIntArray(call.array);
  Output out(call.out, values.Length(), previous);
  long expected = LUT_OK;
  if (!MapTypeAccepted(call.mapType)) {
    expected = LUT_ERR_PARAM_2;
  } else if (values.Length() <= 0 || !PlainElements(values.Mat(), CV_32SC1)) {
    // A matrix that is not Length() continuous ints counts as no values.
    expected = LUT_ERR_PARAM_1;
  } else if (out.pointer == nullptr) {
    expected = LUT_ERR_ARRAY_OUTPUT_FAILED;
  }
  const MatSnapshot before(values.Mat());
  const long status = lut.ColorMapLUT(values, call.mapType, call.low, call.high, out.pointer);
  RequireStatus(status, expected, name);
  Require(before.Unchanged(values.Mat()), name, "the values changed", status);
  if (status == LUT_OK) RequireColourArray(*out.pointer, values.Length(), 3, name, status);
}

void RunFloatArray(const ArrayCallPlan& call, KivLUTSetting& lut, KivColorArray& previous) {
  const char* name = MethodName(call.method);
  Kiv3DFloatArray values = BuildFloatArray(call.array);
  Output out(call.out, values.Length(), previous);
  const bool equalised = call.method == kSetColorLUTFloatArray;
  long expected = LUT_OK;
  // A matrix that is not Length() continuous floats counts as an empty array.
  if (values.Length() <= 0 || !PlainElements(values.Mat(), CV_32FC1)) {
    expected = LUT_ERR_ARRAY_EMPTY;
  } else if (call.minValue > call.maxValue) {
    expected = LUT_ERR_PARAM_1;
  } else if (!MapTypeAccepted(call.mapType)) {
    expected = LUT_ERR_PARAM_3;
  } else if (out.pointer == nullptr) {
    expected = equalised ? LUT_ERR_OUTPUT_FAILED : LUT_ERR_ARRAY_OUTPUT_FAILED;
  }
  const MatSnapshot before(values.Mat());
  const long status =
      equalised
          ? lut.SetColorLUT(values, call.minValue, call.maxValue, call.mapType, out.pointer)
          : lut.LinearSetColorLUT(values, call.minValue, call.maxValue, call.mapType, out.pointer);
  RequireStatus(status, expected, name);
  // The equalised colouring answers LUT_OK once its checks pass, whatever the colouring met.
  if (equalised) Require(expected != LUT_OK || status == LUT_OK, name, "not LUT_OK", status);
  Require(before.Unchanged(values.Mat()), name, "the values changed", status);
  if (status == LUT_OK) RequireColourArray(*out.pointer, values.Length(), 3, name, status);
}

void RunColorBlend(const ArrayCallPlan& call, KivLUTSetting& lut, KivColorArray& previous) {
  const char* name = MethodName(call.method);
  KivColorArray a = BuildColourArray(call.a, 0);
  ColourArrayPlan bPlan = call.b;
  if (call.sameLength) bPlan.kind = kColourRightLength;
  KivColorArray bOwn = BuildColourArray(bPlan, a.Length());
  KivColorArray& b = call.alias == 1 ? a : bOwn;
  Output out(call.out, a.Length(), previous);
  if (call.alias == 2) out.pointer = &a;
  if (call.alias == 3) out.pointer = &b;
  long expected = LUT_OK;
  if (a.Length() != b.Length()) {
    expected = LUT_ERR_SIZE_MISMATCH;
  } else if (call.value < 0.0 || call.value > 1.0) {
    expected = LUT_ERR_PARAM_1;
  } else if (out.pointer == nullptr) {
    expected = LUT_ERR_BLEND_OUTPUT_FAILED;
  }
  const bool sameChannels = a.Channel() == b.Channel();
  const MatSnapshot aBefore(a.Mat());
  const MatSnapshot bBefore(b.Mat());
  const long status = lut.ColorBlend(a, b, call.value, out.pointer);
  RequireStatus(status, expected, name);
  // Only a conversion to a common channel count, or the output itself, may change the inputs.
  const bool written = call.alias >= 2 && expected == LUT_OK;
  if ((sameChannels || expected != LUT_OK) && !written) {
    Require(aBefore.Unchanged(a.Mat()) && bBefore.Unchanged(b.Mat()), name,
            "an input changed although no conversion was due", status);
  }
  if (status == LUT_OK) {
    KivColorArray& blended = *out.pointer;
    RequireColourArray(blended, a.Length(), 1, name, status);
    // An output of the right length that holds enough bytes is written in place, so it may keep
    // more channels than a has.
    Require(blended.Length() == 0 || blended.Channel() >= a.Channel(), name,
            "the output has fewer channels than a", status);
    Require(blended.Length() == 0 || blended.Mat().total() * blended.Mat().elemSize() >=
                                         static_cast<size_t>(a.Length()) * a.Channel(),
            name, "the output holds fewer bytes than the blend writes", status);
  }
}

void RunNormalMap(const ArrayCallPlan& call, KivLUTSetting& lut, KivColorArray& previous) {
  const char* name = MethodName(call.method);
  KivVector3dArray normals = BuildVectorArray(call.array);
  Output out(call.out, normals.Length(), previous);
  long expected = LUT_OK;
  if (normals.Length() <= 0) {
    expected = LUT_ERR_PARAM_1;
  } else if (out.pointer == nullptr) {
    expected = LUT_ERR_OUTPUT_FAILED;
  }
  const auto elements = [&normals] {
    const float* first = normals.Data();
    return first == nullptr ? std::vector<float>()
                            : std::vector<float>(first, first + 3 * normals.Length());
  };
  const std::vector<float> before = elements();
  const long status = lut.SetColorNormalMap(normals, out.pointer);
  RequireStatus(status, expected, name);
  const std::vector<float> after = elements();
  Require(before.size() == after.size() &&
              (before.empty() ||
               std::memcmp(before.data(), after.data(), before.size() * sizeof(float)) == 0),
          name, "the normals changed", status);
  if (status == LUT_OK) RequireColourArray(*out.pointer, normals.Length(), 3, name, status);
}

void Run(const ArrayCallPlan& call, KivLUTSetting& lut, KivColorArray& previous) {
  switch (call.method) {
    case kGetColor:
      return RunGetColor(call, lut);
    case kLinearSetColorLUTImage:
    case kSetColorLUTImage:
    case kSetColorLUTImageBands:
      return RunGreyImage(call, lut);
    case kColorMapLUTIntArray:
      return RunIntArray(call, lut, previous);
    case kSetColorLUTFloatArray:
    case kLinearSetColorLUTFloats:
      return RunFloatArray(call, lut, previous);
    case kColorBlend:
      return RunColorBlend(call, lut, previous);
    case kSetColorNormalMapVectors:
      return RunNormalMap(call, lut, previous);
    default:
      return;
  }
}

}  // namespace
}  // namespace kivfuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kivfuzz::SilenceLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto plan = kivfuzz::Decode<kivfuzz::ArrayInputPlan>(data, size);
  KIVMV::KivLUTSetting lut;
  KIVMV::KivColorArray previous;
  for (const kivfuzz::ArrayCallPlan& call : plan.calls) kivfuzz::Run(call, lut, previous);
  return 0;
}
