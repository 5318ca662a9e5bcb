// Writes the seed corpora of the fuzz targets: OUTDIR/range_methods/, OUTDIR/array_methods/ and
// OUTDIR/sequence_colouring/, one file per input. Each input is described as a plan (what to build,
// which calls to make) and encoded with the same layout the targets read, so the seeds reach every
// method, every pixel type and each argument check from the first run.
//
//   make_seed_corpus OUTDIR
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_plans.h"

namespace kivfuzz {
namespace {

constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Bytes that look like measurements of `sampleSize`-byte values: a smooth surface with noise, so
// that histograms have crowded and empty bins.
std::vector<uint8_t> SurfaceBlock(int samples, int sampleSize, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> block;
  for (int i = 0; i < samples; ++i) {
    const double wave = 0.5 + 0.4 * std::sin(i * 0.37) + 0.05 * (random() % 100) / 100.0;
    const uint64_t value = static_cast<uint64_t>(wave * (sampleSize == 1 ? 200.0 : 40000.0));
    for (int b = 0; b < sampleSize; ++b) block.push_back(static_cast<uint8_t>(value >> (8 * b)));
  }
  return block;
}

// Element i is start + step x i, in the element's type.
ValuesPlan Ramp(double start, double step) {
  ValuesPlan values;
  values.fill = 1;
  values.start = start;
  values.step = step;
  return values;
}

ValuesPlan Block(std::vector<uint8_t> bytes) {
  ValuesPlan values;
  values.block = std::move(bytes);
  return values;
}

// Markers, NaN and infinities at a few positions.
void Scatter(ValuesPlan& values, std::initializer_list<std::pair<uint32_t, int>> sprinkles) {
  for (const auto& [position, kind] : sprinkles) values.sprinkles.push_back({position, kind});
}

void SprinkleInvalids(ValuesPlan& values) {
  Scatter(values, {{0, kMarker},
                   {5, kNaN},
                   {11, kPlusInf},
                   {17, kMinusInf},
                   {23, kMarker},
                   {29, kTypeMax},
                   {31, kTypeLowest},
                   {37, kZero}});
}

int SampleSizeOf(int dataType) {
  static constexpr int kSizes[] = {1, 1, 2, 2, 4, 4, 8};
  return kSizes[dataType];
}

// A range image of measurements: integer types from a surface block, float types as a ramp in
// metres, with invalid pixels sprinkled in.
RangeImagePlan Image(int dataType, int width, int height) {
  RangeImagePlan image;
  image.dataType = dataType;
  image.width = width;
  image.height = height;
  image.resolution[0] = 0.5;
  image.resolution[1] = 0.5;
  image.resolution[2] = dataType >= 5 ? 1.0 : 0.015625;
  if (dataType >= 5) {
    image.values = Ramp(-1.5, 0.015625);
  } else {
    image.values = Block(SurfaceBlock(97, SampleSizeOf(dataType), 17u + dataType));
  }
  SprinkleInvalids(image.values);
  return image;
}

ColourArrayPlan OutputOf(int kind, int channels = 3) {
  ColourArrayPlan out;
  out.kind = kind;
  out.channels = channels;
  return out;
}

RangeCallPlan Call(int method, int mapType) {
  RangeCallPlan call;
  call.method = method;
  call.mapType = mapType;
  call.out = OutputOf(kColourDefault);
  return call;
}

// Bounds inside the heights of Image(dataType, ...): its raw values times ResolutionZ.
std::pair<double, double> BoundsFor(int dataType) {
  switch (dataType) {
    case 0:
    case 1:
      return {0.5, 2.5};
    case 2:
    case 3:
    case 4:
      return {100.0, 500.0};
    default:
      return {-0.5, 0.75};
  }
}

// An ordered record with its break values spread from low to high.
ParaPlan Record(double low, double high, bool automatic) {
  ParaPlan para;
  para.automatic = automatic;
  const int indices[5] = {0, 127, 511, 895, 1023};
  for (int i = 0; i < 5; ++i) {
    para.values[i] = low + (high - low) * i / 4.0;
    para.indices[i] = indices[i];
  }
  para.under.c[0] = 255;
  para.under.c[2] = 255;
  para.over.c[0] = para.over.c[1] = para.over.c[2] = 255;
  return para;
}

ParaPlan Record(bool automatic) { return Record(-1.0, 1.0, automatic); }

struct Seed {
  std::string name;
  std::vector<uint8_t> bytes;
};

std::vector<Seed> RangeSeeds() {
  std::vector<Seed> seeds;
  const auto add = [&](const std::string& name, const RangeInputPlan& plan) {
    seeds.push_back({name, Encode(plan)});
  };

  // Every method on every pixel type, with arguments that reach its work: two inputs a type, six
  // calls each, on changing shapes.
  const std::pair<int, int> shapes[] = {{17, 13}, {1, 1},   {1, 23}, {19, 1},
                                        {7, 5},   {33, 31}, {64, 48}};
  for (int type = 0; type <= 6; ++type) {
    for (int group = 0; group < 2; ++group) {
      RangeInputPlan plan;
      const auto [width, height] = shapes[(type + group) % 7];
      plan.image = Image(type, width, height);
      const auto [low, high] = BoundsFor(type);
      for (int method = 6 * group; method < 6 * group + 6; ++method) {
        RangeCallPlan call = Call(method, 1 + (method + type) % 10);
        call.low = low;
        call.high = high;
        call.indexLow = 16;
        call.indexHigh = 240;
        call.below.c[0] = 255;
        call.above.c[1] = 255;
        call.upperFraction = 0.05;
        call.lowerFraction = 0.1;
        call.para = Record(low, high, (method + type) % 2 == 0);
        call.array.length = width * height;
        call.array.values = Ramp(-2.0, 0.125);
        SprinkleInvalids(call.array.values);
        call.sizeA = 4;
        call.sizeB = 8;
        call.vectorA.present = true;
        call.vectorB.present = true;
        call.out = OutputOf(method % 3 == 0 ? kColourRightLength : kColourDefault);
        call.twice = (method + type) % 2 == 1;
        plan.calls.push_back(call);
      }
      add("type" + std::to_string(type) + "-methods" + std::to_string(6 * group) + "to" +
              std::to_string(6 * group + 5),
          plan);
    }
  }

  // Frames past the size where the value-run tables and the vector loops take over: the
  // equalised, linear and five-point colourings of 16-bit, float and double heights.
  for (const int type : {2, 5, 6}) {
    RangeInputPlan plan;
    constexpr int kWidth = 96, kHeight = 64;
    plan.image = Image(type, kWidth, kHeight);
    const auto [low, high] = BoundsFor(type);
    for (const int method : {kColorMapLUT, kColorMapLUTBounds, kColorMapLUTBoundsColours,
                             kLinearColorMapLUT, kLinearParaImage, kLinearParaArray}) {
      RangeCallPlan call = Call(method, 1 + (method + type) % 10);
      call.low = low;
      call.high = high;
      call.indexLow = 16;
      call.indexHigh = 240;
      call.para = Record(low, high, method != kLinearParaArray);
      call.array.length = kWidth * kHeight;
      call.array.values = Ramp(-2.0, 0.125);
      SprinkleInvalids(call.array.values);
      plan.calls.push_back(call);
    }
    add("type" + std::to_string(type) + "-large-frame", plan);
  }

  // The argument checks, one failing at a time.
  {
    RangeInputPlan plan;
    plan.image = Image(2, 9, 9);
    plan.image.type = 2;
    plan.calls = {Call(kColorMapLUT, 1), Call(kSetColorNormalMapPhong, 0)};
    add("check-type", plan);
  }
  {
    RangeInputPlan plan;
    plan.image = Image(5, 0, 9);
    plan.calls = {Call(kLinearColorMapLUT, 1), Call(kSetColorNormalMapLighting, 1)};
    add("check-empty", plan);
  }
  {
    RangeInputPlan plan;
    plan.image = Image(3, 5, 4);
    plan.calls = {Call(kColorMapLUT, 11), Call(kLinearColorMapLUT, -1), Call(kLinearParaImage, 0)};
    add("check-map-type", plan);
  }
  {
    RangeInputPlan plan;
    plan.image = Image(6, 8, 8);
    RangeCallPlan reversed = Call(kColorMapLUTBounds, 2);
    reversed.low = 2.0;
    reversed.high = 1.0;
    RangeCallPlan nanBound = Call(kColorMapLUTBounds, 2);
    nanBound.low = kNotANumber;
    RangeCallPlan nanLinear = Call(kLinearColorMapLUTBounds, 3);
    nanLinear.high = kNotANumber;
    RangeCallPlan infinite = Call(kColorMapLUTBoundsColours, 4);
    infinite.low = -kInfinity;
    infinite.high = kInfinity;
    infinite.indexLow = 300;
    plan.calls = {reversed, nanBound, nanLinear, infinite};
    add("check-bounds", plan);
  }
  {
    RangeInputPlan plan;
    plan.image = Image(2, 6, 6);
    RangeCallPlan fractions = Call(kLinearColorMapLUTFractions, 1);
    fractions.upperFraction = 0.1;
    RangeCallPlan outside = Call(kLinearColorMapLUTFractions, 1);
    outside.lowerFraction = 1.5;
    RangeCallPlan colours = Call(kLinearColorMapLUTColours, 5);
    colours.indexLow = 0;
    colours.indexHigh = 256;
    plan.calls = {fractions, outside, colours};
    add("check-fractions-indices", plan);
  }
  {
    RangeInputPlan plan;
    plan.image = Image(5, 12, 10);
    RangeCallPlan unordered = Call(kLinearParaImage, 3);
    unordered.para = Record(false);
    std::swap(unordered.para.values[1], unordered.para.values[3]);
    RangeCallPlan indices = Call(kLinearParaImage, 3);
    indices.para = Record(false);
    indices.para.indices[4] = 1024;
    RangeCallPlan legend = Call(kColorMapLUTSegmented, 6);
    legend.para = Record(true);
    legend.sizeA = 4;
    legend.sizeB = 3;
    RangeCallPlan noVectors = Call(kColorMapLUTSegmented, 6);
    noVectors.para = Record(false);
    plan.calls = {unordered, indices, legend, noVectors};
    add("check-para", plan);
  }
  {
    RangeInputPlan plan;
    plan.image = Image(4, 10, 10);
    RangeCallPlan origin = Call(kSetColorNormalMapLighting, 1);
    origin.light[0] = origin.light[1] = origin.light[2] = 0.0f;
    RangeCallPlan gain = Call(kSetColorNormalMapLighting, 1);
    gain.coefficients[0] = 0.0f;
    RangeCallPlan nanWeights = Call(kSetColorNormalMapLighting, 2);
    nanWeights.coefficients[1] = std::numeric_limits<float>::quiet_NaN();
    nanWeights.coefficients[3] = std::numeric_limits<float>::quiet_NaN();
    RangeCallPlan wrap = Call(kSetColorNormalMapLighting, 0);
    wrap.coefficients[0] = 10.0f;
    plan.calls = {origin, gain, nanWeights, wrap};
    add("check-lighting", plan);
  }

  // Pixel matrices that contradict the size fields.
  for (int shape = 1; shape < kMatShapes; ++shape) {
    RangeInputPlan plan;
    plan.image = Image(shape % 7, 11, 7);
    plan.image.mat.shape = shape;
    plan.image.mat.rows = 3;
    plan.image.mat.cols = 4;
    plan.image.mat.depth = 6;
    plan.image.mat.channels = 3;
    plan.image.mat.padding = 5;
    plan.calls = {Call(kColorMapLUT, 1), Call(kLinearColorMapLUTFractions, 1),
                  Call(kLinearParaImage, 2), Call(kSetColorNormalMapPhong, 0)};
    plan.calls[2].para = Record(true);
    add("mat-shape" + std::to_string(shape), plan);
  }

  // Resolutions and offsets the geometry cannot use.
  {
    RangeInputPlan plan;
    plan.image = Image(2, 8, 6);
    plan.image.resolution[0] = kNotANumber;
    plan.image.resolution[2] = 0.0;
    plan.image.offset[2] = kInfinity;
    plan.calls = {Call(kSetColorNormalMapPhong, 0), Call(kSetColorNormalMapLighting, 1),
                  Call(kColorMapLUTBounds, 1), Call(kLinearParaImage, 1)};
    plan.calls[3].para = Record(true);
    add("geometry-nonfinite", plan);
  }
  {
    RangeInputPlan plan;
    plan.image = Image(4, 9, 9);
    plan.image.resolution[2] = -1e30;
    plan.image.offset[2] = 3e9;
    plan.calls = {Call(kColorMapLUTBoundsColours, 1), Call(kLinearColorMapLUTColours, 2)};
    plan.calls[0].low = -1e300;
    plan.calls[0].high = 1e300;
    add("geometry-huge", plan);
  }

  // Outputs of every kind, each call reusing what the one before left.
  {
    RangeInputPlan plan;
    plan.image = Image(1, 13, 3);
    plan.calls.clear();
    for (int kind = 0; kind < kColourArrayKinds; ++kind) {
      RangeCallPlan call = Call(kind % 2 == 0 ? kColorMapLUT : kLinearColorMapLUTBounds, 1);
      call.out = OutputOf(kind, kind % 3 == 0 ? 1 : 4);
      call.out.length = 39;
      call.out.height = 1;
      call.out.swappedRows = 2;
      call.out.swappedCols = 5;
      call.out.swappedType = kind % 4;
      plan.calls.push_back(call);
      if (plan.calls.size() == kMaxRangeCalls) break;
    }
    add("outputs", plan);
  }
  {
    RangeInputPlan plan;
    plan.image = Image(5, 4, 4);
    plan.calls = {Call(kColorMapLUT, 1), Call(kSetColorNormalMapLighting, 3),
                  Call(kLinearParaArray, 4)};
    plan.calls[0].out = OutputOf(kColourNull);
    plan.calls[1].out = OutputOf(kColourNull);
    plan.calls[2].out = OutputOf(kColourNull);
    plan.calls[2].para = Record(true);
    plan.calls[2].array.length = 16;
    plan.calls[2].array.values = Ramp(1.0, 1.0);
    add("outputs-null", plan);
  }
  {
    // Every float element invalid but one, and an array whose matrix is not plain floats.
    RangeInputPlan plan;
    plan.image = Image(5, 3, 3);
    plan.image.values = Ramp(kNotANumber, 0.0);
    Scatter(plan.image.values, {{4, kOne}});
    RangeCallPlan array = Call(kLinearParaArray, 10);
    array.para = Record(false);
    array.array.length = 9;
    array.array.mangle = 3;
    array.array.values = Ramp(0.0, 1.0);
    plan.calls = {Call(kColorMapLUT, 2), Call(kLinearColorMapLUT, 2), array,
                  Call(kLinearColorMapLUTFractions, 2)};
    add("single-valid", plan);
  }
  return seeds;
}

// ---- Array target ------------------------------------------------------------------------------

GreyImagePlan Grey(int depth, int width, int height) {
  GreyImagePlan grey;
  grey.depth = depth;
  grey.width = width;
  grey.height = height;
  grey.values = Block(SurfaceBlock(89, depth == 2 ? 2 : 1, 41u + depth));
  Scatter(grey.values, {{3, kZero}, {7, kTypeMax}});
  return grey;
}

ArrayCallPlan ArrayCall(int method, int mapType) {
  ArrayCallPlan call;
  call.method = method;
  call.mapType = mapType;
  call.out = OutputOf(kColourDefault);
  call.dst.kind = kGreyDefault;
  return call;
}

std::vector<Seed> ArraySeeds() {
  std::vector<Seed> seeds;
  const auto add = [&](const std::string& name, std::vector<ArrayCallPlan> calls) {
    ArrayInputPlan plan;
    plan.calls = std::move(calls);
    seeds.push_back({name, Encode(plan)});
  };

  {
    ArrayCallPlan valid = ArrayCall(kGetColor, 5);
    ArrayCallPlan nan = ArrayCall(kGetColor, 1);
    nan.value = kNotANumber;
    ArrayCallPlan map = ArrayCall(kGetColor, 11);
    map.value = 1.0;
    ArrayCallPlan null = ArrayCall(kGetColor, 2);
    null.nullOutput = true;
    add("getcolor", {valid, nan, map, null});
  }

  // The three grey methods on 8- and 16-bit images, each map family.
  for (int method : {kLinearSetColorLUTImage, kSetColorLUTImage, kSetColorLUTImageBands}) {
    for (int depth : {0, 2}) {
      ArrayCallPlan call = ArrayCall(method, depth == 0 ? 1 : 0);
      call.src = Grey(depth, 23, 17);
      call.low = depth == 0 ? 20 : 3000;
      call.high = depth == 0 ? 200 : 40000;
      call.indexLow = 10;
      call.indexHigh = 250;
      call.below.c[2] = 255;
      call.above.c[0] = 255;
      ArrayCallPlan grey = call;
      grey.mapType = 8;
      add("grey" + std::to_string(method) + "-depth" + std::to_string(depth), {call, grey});
    }
  }
  {
    // Caller buffers with padded rows as source and destination, and the source as destination.
    ArrayCallPlan padded = ArrayCall(kSetColorLUTImage, 3);
    padded.src = Grey(0, 31, 9);
    padded.src.callerBuffer = true;
    padded.src.padding = 5;
    padded.dst.kind = kGreyCallerBuffer;
    padded.dst.image = Grey(0, 31, 9);
    padded.dst.image.channels = 3;
    padded.dst.image.padding = 3;
    ArrayCallPlan linear = padded;
    linear.method = kLinearSetColorLUTImage;
    linear.src.depth = 2;
    linear.src.values = Block(SurfaceBlock(89, 2, 5));
    ArrayCallPlan self = ArrayCall(kSetColorLUTImageBands, 6);
    self.src = Grey(2, 7, 7);
    self.dst.kind = kGreySource;
    self.high = 60000;
    ArrayCallPlan reuse = ArrayCall(kLinearSetColorLUTImage, 2);
    reuse.src = Grey(0, 16, 16);
    reuse.dst.kind = kGreyOwning;
    reuse.dst.image = Grey(0, 16, 16);
    reuse.dst.image.channels = 3;
    add("grey-buffers", {padded, linear, self, reuse});
  }
  {
    // Images the grey methods refuse: several channels, a float image, no pixels, no destination.
    ArrayCallPlan channels = ArrayCall(kLinearSetColorLUTImage, 1);
    channels.src = Grey(0, 8, 8);
    channels.src.channels = 3;
    ArrayCallPlan floats = ArrayCall(kSetColorLUTImage, 1);
    floats.src = Grey(5, 8, 8);
    ArrayCallPlan empty = ArrayCall(kSetColorLUTImageBands, 1);
    empty.src = Grey(0, 0, 8);
    ArrayCallPlan null = ArrayCall(kSetColorLUTImageBands, 1);
    null.src = Grey(2, 8, 8);
    null.dst.kind = kGreyNull;
    add("grey-refused", {channels, floats, empty, null});
  }
  {
    // Windows into wider images, and a matrix of three dimensions.
    ArrayCallPlan window = ArrayCall(kSetColorLUTImage, 1);
    window.src = Grey(0, 21, 11);
    window.src.view = kGreyWindow;
    ArrayCallPlan bufferWindow = ArrayCall(kLinearSetColorLUTImage, 4);
    bufferWindow.src = Grey(2, 13, 6);
    bufferWindow.src.callerBuffer = true;
    bufferWindow.src.padding = 2;
    bufferWindow.src.view = kGreyWindow;
    bufferWindow.dst.kind = kGreySource;
    ArrayCallPlan threeDims = ArrayCall(kSetColorLUTImageBands, 3);
    threeDims.src = Grey(0, 5, 4);
    threeDims.src.view = kGreyThreeDims;
    ArrayCallPlan destination = ArrayCall(kSetColorLUTImageBands, 3);
    destination.src = Grey(0, 5, 4);
    destination.dst.kind = kGreyOwning;
    destination.dst.image = Grey(0, 5, 4);
    destination.dst.image.view = kGreyThreeDims;
    add("grey-views", {window, bufferWindow, threeDims, destination});
  }
  {
    ArrayCallPlan bands = ArrayCall(kSetColorLUTImageBands, 2);
    bands.src = Grey(0, 12, 12);
    bands.low = 300;
    bands.high = 100;
    ArrayCallPlan negative = bands;
    negative.low = -1;
    negative.high = 10;
    ArrayCallPlan index = bands;
    index.low = 0;
    index.indexLow = 200;
    index.indexHigh = 100;
    ArrayCallPlan top = bands;
    top.low = 0;
    top.indexHigh = 256;
    add("grey-band-checks", {bands, negative, index, top});
  }

  // Integer arrays.
  {
    ArrayCallPlan call = ArrayCall(kColorMapLUTIntArray, 1);
    call.low = -100;
    call.high = 1000;
    call.array.length = 300;
    call.array.values = Ramp(-300.0, 5.0);
    Scatter(call.array.values, {{1, kTypeMax}, {2, kTypeLowest}});
    ArrayCallPlan reversed = call;
    reversed.low = 50;
    reversed.high = -50;
    reversed.out = OutputOf(kColourSwapped, 1);
    reversed.out.length = 300;
    reversed.out.swappedRows = 1;
    reversed.out.swappedCols = 10;
    ArrayCallPlan empty = ArrayCall(kColorMapLUTIntArray, 11);
    empty.array.length = 0;
    ArrayCallPlan mangled = call;
    mangled.array.mangle = 1;
    add("int-array", {call, reversed, empty, mangled});
  }

  // Float arrays through both methods.
  for (int method : {kSetColorLUTFloatArray, kLinearSetColorLUTFloats}) {
    ArrayCallPlan call = ArrayCall(method, 4);
    call.minValue = -1.0f;
    call.maxValue = 3.0f;
    call.array.length = 257;
    call.array.values = Ramp(-2.0, 0.03125);
    SprinkleInvalids(call.array.values);
    ArrayCallPlan reversed = call;
    reversed.minValue = 2.0f;
    reversed.maxValue = 1.0f;
    ArrayCallPlan nanBounds = call;
    nanBounds.minValue = std::numeric_limits<float>::quiet_NaN();
    nanBounds.out = OutputOf(kColourRightLength, 1);
    ArrayCallPlan mangled = call;
    mangled.array.mangle = 1 + method % 3;
    mangled.out = OutputOf(kColourNull);
    add("float-array" + std::to_string(method), {call, reversed, nanBounds, mangled});
  }
  {
    ArrayCallPlan wide = ArrayCall(kLinearSetColorLUTFloats, 0);
    wide.minValue = -FLT_MAX;
    wide.maxValue = FLT_MAX;
    wide.array.length = 40;
    wide.array.values = Ramp(-1e38, 5e36);
    ArrayCallPlan allInvalid = ArrayCall(kSetColorLUTFloatArray, 2);
    allInvalid.minValue = 0.0f;
    allInvalid.maxValue = 0.0f;
    allInvalid.array.length = 5;
    allInvalid.array.values = Ramp(kNotANumber, 0.0);
    add("float-array-extremes", {wide, allInvalid});
  }

  // Colour blends of every channel pairing.
  for (int aChannels : {1, 3, 4}) {
    for (int bChannels : {1, 3, 4}) {
      if (aChannels == bChannels && aChannels != 3) continue;
      ArrayCallPlan call = ArrayCall(kColorBlend, 0);
      call.value = 0.5;
      call.a = OutputOf(kColourCreated, aChannels);
      call.a.length = 50;
      call.a.bytes = SurfaceBlock(37, 1, 3u * aChannels);
      call.b = OutputOf(kColourCreated, bChannels);
      call.b.length = 50;
      call.b.bytes = SurfaceBlock(41, 1, 5u * bChannels);
      add("blend" + std::to_string(aChannels) + std::to_string(bChannels), {call});
    }
  }
  {
    ArrayCallPlan lengths = ArrayCall(kColorBlend, 0);
    lengths.value = 2.0;
    lengths.a = OutputOf(kColourCreated, 3);
    lengths.a.length = 10;
    lengths.sameLength = false;
    lengths.b = OutputOf(kColourCreated, 3);
    lengths.b.length = 11;
    ArrayCallPlan nan = lengths;
    nan.value = kNotANumber;
    nan.sameLength = true;
    ArrayCallPlan alias = nan;
    alias.value = 0.25;
    alias.alias = 2;
    ArrayCallPlan swapped = alias;
    swapped.alias = 0;
    swapped.a = OutputOf(kColourSwapped, 4);
    swapped.a.length = 10;
    swapped.a.swappedRows = 1;
    swapped.a.swappedCols = 3;
    ArrayCallPlan threeDims = swapped;
    threeDims.a.swappedRows = 2;
    threeDims.a.swappedType = 4;
    threeDims.out = OutputOf(kColourSwapped, 3);
    threeDims.out.length = 10;
    threeDims.out.swappedRows = 5;
    threeDims.out.swappedCols = 2;
    threeDims.out.swappedType = 4;
    add("blend-checks", {lengths, nan, alias, swapped});
    add("blend-three-dims", {threeDims});
  }

  // Normal maps.
  {
    ArrayCallPlan call = ArrayCall(kSetColorNormalMapVectors, 0);
    call.array.length = 101;
    call.array.values = Ramp(-1.0, 0.01);
    Scatter(call.array.values, {{0, kNaN}, {4, kPlusInf}, {9, kFloatMax}, {12, kNaN}});
    ArrayCallPlan four = call;
    four.out = OutputOf(kColourRightLength, 4);
    ArrayCallPlan single = call;
    single.array.length = 1;
    single.out = OutputOf(kColourNull);
    ArrayCallPlan empty = call;
    empty.array.length = 0;
    add("normals", {call, four, single, empty});
  }
  return seeds;
}

// Sequences of every pixel type under each mode and bounds source, a frame that changes size, a
// Reset() between frames, and options the colouriser must refuse.
std::vector<Seed> SequenceSeeds() {
  std::vector<Seed> seeds;
  const auto add = [&seeds](const std::string& name, const SequenceInputPlan& plan) {
    seeds.push_back({name, Encode(plan)});
  };
  for (int dataType = 0; dataType <= 6; ++dataType) {
    for (int mode = 0; mode <= 1; ++mode) {
      SequenceInputPlan plan;
      plan.mode = mode;
      plan.bounds = dataType % 3;
      plan.low = -1.0;
      plan.high = 2.0;
      plan.lowPercentile = 5.0;
      plan.highPercentile = 95.0;
      plan.timeConstant = 2.0;
      plan.holdFrames = 1 + dataType % 3;
      plan.channels = 3 + mode;
      for (int k = 0; k < 3; ++k) {
        plan.frames.push_back(Image(dataType, 13 + 2 * k, 9));
        plan.resetBefore.push_back(k == 2 && dataType % 2 == 1 ? 1 : 0);
      }
      add("type" + std::to_string(dataType) + "_mode" + std::to_string(mode), plan);
    }
  }
  SequenceInputPlan refused;
  refused.timeConstant = -1.0;
  refused.frames.push_back(Image(2, 5, 5));
  refused.resetBefore.push_back(0);
  add("refused_options", refused);
  SequenceInputPlan empty = refused;
  empty.timeConstant = 0.0;
  empty.frames[0].width = 0;
  add("empty_frame", empty);
  return seeds;
}

bool WriteSeeds(const std::filesystem::path& folder, const std::vector<Seed>& seeds) {
  std::filesystem::create_directories(folder);
  for (const Seed& seed : seeds) {
    std::ofstream file(folder / seed.name, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(seed.bytes.data()),
               static_cast<std::streamsize>(seed.bytes.size()));
    if (!file) {
      std::fprintf(stderr, "make_seed_corpus: cannot write %s\n",
                   (folder / seed.name).string().c_str());
      return false;
    }
  }
  return true;
}

// Every seed must read back as the plan it was written from: decoded and encoded again, the
// bytes are the same.
template <class Plan>
bool RoundTrips(const std::vector<Seed>& seeds) {
  for (const Seed& seed : seeds) {
    const Plan plan = Decode<Plan>(seed.bytes.data(), seed.bytes.size());
    if (Encode(plan) != seed.bytes) {
      std::fprintf(stderr, "make_seed_corpus: seed %s does not read back\n", seed.name.c_str());
      return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace kivfuzz

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_seed_corpus OUTDIR\n");
    return 2;
  }
  const std::filesystem::path root = argv[1];
  const auto range = kivfuzz::RangeSeeds();
  const auto array = kivfuzz::ArraySeeds();
  const auto sequence = kivfuzz::SequenceSeeds();
  if (!kivfuzz::RoundTrips<kivfuzz::RangeInputPlan>(range) ||
      !kivfuzz::RoundTrips<kivfuzz::ArrayInputPlan>(array) ||
      !kivfuzz::RoundTrips<kivfuzz::SequenceInputPlan>(sequence)) {
    return 1;
  }
  if (!kivfuzz::WriteSeeds(root / "range_methods", range) ||
      !kivfuzz::WriteSeeds(root / "array_methods", array) ||
      !kivfuzz::WriteSeeds(root / "sequence_colouring", sequence)) {
    return 1;
  }
  std::printf("make_seed_corpus: %zu range, %zu array and %zu sequence inputs in %s\n",
              range.size(), array.size(), sequence.size(), root.string().c_str());
  return 0;
}
