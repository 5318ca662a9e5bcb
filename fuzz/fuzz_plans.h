// What one fuzz input asks for, as plain values: the objects to build and the calls to make. The
// Visit functions read a plan from fuzz bytes (FuzzReader) or write the bytes of a plan
// (FuzzWriter), so the targets and the seed-corpus generator share one layout. Nothing here needs
// the library; fuzz_objects.h turns plans into its objects.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "fuzz_input.h"

namespace kivfuzz {

inline constexpr int kMaxSide = 512;          // image width and height
inline constexpr int kMaxLength = 512 * 512;  // array lengths
inline constexpr size_t kMaxBlock = 4096;     // bytes tiled over pixels or elements
inline constexpr int kMaxSprinkles = 24;      // special values put at chosen elements
inline constexpr int kMaxRangeCalls = 6;      // calls on one range image per input
inline constexpr int kMaxArrayCalls = 4;      // calls per input of the array target

// ---- Element values ----------------------------------------------------------------------------

// The special value put at one element, in the element's own type.
enum SprinkleKind : int {
  kMarker,    // the type's invalid marker (0, -128, 0, -32768, INT_MIN, -FLT_MAX, -DBL_MAX)
  kNaN,       // integers: the marker
  kPlusInf,   // integers: the type's maximum
  kMinusInf,  // integers: the type's lowest
  kZero,
  kNegativeZero,
  kTypeMax,
  kTypeLowest,
  kOne,
  kFloatMax,  // +FLT_MAX, where a "distance from FLT_MAX" test hides
  kSprinkleKinds
};

struct Sprinkle {
  uint32_t position = 0;  // taken modulo the element count
  int kind = kMarker;
};

// How the elements of a matrix or array are filled: the block's bytes repeated over the element
// bytes, or a ramp start + step x i; then the sprinkles.
struct ValuesPlan {
  int fill = 0;  // 0 block, 1 ramp
  std::vector<uint8_t> block;
  double start = 0.0;
  double step = 1.0;
  std::vector<Sprinkle> sprinkles;
};

template <class Archive>
void Visit(Archive& archive, ValuesPlan& plan) {
  if (Choice(archive, plan.fill, 2) == 0) {
    archive.Block(plan.block, kMaxBlock);
  } else {
    Real(archive, plan.start);
    Real(archive, plan.step);
  }
  int count = static_cast<int>(plan.sprinkles.size());
  archive.Integer(count, 0, kMaxSprinkles);
  plan.sprinkles.resize(static_cast<size_t>(count));
  for (Sprinkle& s : plan.sprinkles) {
    archive.Integer(s.position, uint32_t{0}, UINT32_MAX);
    Choice(archive, s.kind, kSprinkleKinds);
  }
}

// ---- Range images ------------------------------------------------------------------------------

// Pixel matrices that disagree with the image's size fields.
enum MatShape : int {
  kMatOwn,           // as the constructor made it
  kMatEmpty,         // no matrix at all
  kMatOtherSize,     // of the pixel type, but another number of rows and columns
  kMatOtherType,     // of the right size, any depth 0..7 and 1..4 channels
  kMatPaddedRows,    // of the right size and type, a view into wider rows (not continuous)
  kMatManyChannels,  // of the right size and depth, 2..4 channels
  kMatThreeDims,     // a height x width x 2 matrix of the pixel type (rows and cols read -1)
  kMatShapes
};

struct MatPlan {
  int shape = kMatOwn;
  int rows = 0;
  int cols = 0;
  int depth = 0;
  int channels = 1;
  int padding = 1;
};

template <class Archive>
void Visit(Archive& archive, MatPlan& plan) {
  switch (Choice(archive, plan.shape, kMatShapes)) {
    case kMatOtherSize:
      Extent(archive, plan.rows, 64);
      Extent(archive, plan.cols, 64);
      break;
    case kMatOtherType:
      archive.Integer(plan.depth, 0, 7);
      archive.Integer(plan.channels, 1, 4);
      break;
    case kMatPaddedRows:
      archive.Integer(plan.padding, 1, 8);
      break;
    case kMatManyChannels:
      archive.Integer(plan.channels, 2, 4);
      break;
    default:
      break;
  }
}

struct RangeImagePlan {
  int dataType = 0;  // 0..6
  int width = 1;
  int height = 1;
  int type = 0;  // Type(), any int
  double resolution[3] = {1.0, 1.0, 1.0};
  double offset[3] = {0.0, 0.0, 0.0};
  ValuesPlan values;
  MatPlan mat;
};

template <class Archive>
void Visit(Archive& archive, RangeImagePlan& plan) {
  archive.Integer(plan.dataType, 0, 6);
  Extent(archive, plan.width, kMaxSide);
  Extent(archive, plan.height, kMaxSide);
  NearInt(archive, plan.type, -1, 2);
  for (double& r : plan.resolution) Real(archive, r);
  for (double& o : plan.offset) Real(archive, o);
  Visit(archive, plan.values);
  Visit(archive, plan.mat);
}

// ---- Flat arrays -------------------------------------------------------------------------------

// A Kiv3DFloatArray, Kiv3DIntArray or KivVector3dArray (3 floats an element).
struct ArrayPlan {
  int length = 1;
  ValuesPlan values;
  // 0 as constructed; 1 matrix of another type (CV_8U); 2 rows x cols matrix; 3 a non-continuous
  // view of the right length. Not used for vector arrays.
  int mangle = 0;
};

template <class Archive>
void Visit(Archive& archive, ArrayPlan& plan, bool mangled) {
  Extent(archive, plan.length, kMaxLength);
  Visit(archive, plan.values);
  if (mangled) Choice(archive, plan.mangle, 4);
}

// ---- Colour arrays -----------------------------------------------------------------------------

inline constexpr int kChannelChoices[] = {1, 3, 4};

// An output or input colour array.
enum ColourArrayKind : int {
  kColourNull,         // a null output pointer (outputs only)
  kColourDefault,      // default-constructed, empty
  kColourCreated,      // Create(length, channels)
  kColourRightLength,  // Create(the length the call needs, channels)
  kColourSized2D,      // SetSize(width, height, channels)
  kColourSwapped,      // Create(length, channels), then a smaller or odd matrix put behind it
  kColourPrevious,     // the output of the previous call of this input (outputs only)
  kColourArrayKinds
};

struct ColourArrayPlan {
  int kind = kColourDefault;
  int length = 0;  // Create; SetSize width
  int height = 0;  // SetSize height
  int channels = 1;
  int swappedRows = 0;
  int swappedCols = 0;
  // 0 CV_8UC1, 1 CV_8UC3, 2 CV_32FC1, 3 non-continuous CV_8UC3, 4 rows x cols x 3 bytes (3-D)
  int swappedType = 0;
  std::vector<uint8_t> bytes;  // repeated over the colours of an input array
};

template <class Archive>
void Visit(Archive& archive, ColourArrayPlan& plan, bool input) {
  Choice(archive, plan.kind, kColourArrayKinds);
  int channelChoice = plan.channels == 1 ? 0 : plan.channels == 3 ? 1 : 2;
  switch (plan.kind) {
    case kColourCreated:
      Extent(archive, plan.length, kMaxLength);
      break;
    case kColourSized2D:
      Extent(archive, plan.length, kMaxSide);
      Extent(archive, plan.height, kMaxSide);
      break;
    case kColourSwapped:
      Extent(archive, plan.length, kMaxLength);
      Extent(archive, plan.swappedRows, 64);
      Extent(archive, plan.swappedCols, 64);
      archive.Integer(plan.swappedType, 0, 4);
      break;
    default:
      break;
  }
  if (plan.kind == kColourCreated || plan.kind == kColourRightLength ||
      plan.kind == kColourSized2D || plan.kind == kColourSwapped) {
    archive.Integer(channelChoice, 0, 2);
    plan.channels = kChannelChoices[channelChoice];
  }
  if (input) archive.Block(plan.bytes, kMaxBlock);
}

// ---- The five-point record and its companions
// ----------------------------------------------------

struct ParaPlan {
  double values[5] = {0.0, 0.0, 0.0, 0.0, 0.0};
  int indices[5] = {0, 0, 0, 0, 0};
  // Sort both lists before the call, so that a record given by hand often passes the checks.
  bool sorted = false;
  bool automatic = false;
  ColourValue under;
  ColourValue over;
};

template <class Archive>
void Visit(Archive& archive, ParaPlan& plan) {
  Flag(archive, plan.automatic);
  Flag(archive, plan.sorted);
  for (double& v : plan.values) Real(archive, v);
  for (int& i : plan.indices) NearInt(archive, i, -2, 1026);
  Colour(archive, plan.under);
  Colour(archive, plan.over);
}

// ---- Range-method calls ------------------------------------------------------------------------

enum RangeMethod : int {
  kColorMapLUT,                 // (image, mapType, out)
  kColorMapLUTBounds,           // (image, mapType, low, high, out)
  kColorMapLUTBoundsColours,    // (image, mapType, low, high, lo, hi, below, above, out)
  kLinearColorMapLUT,           // (image, mapType, out)
  kLinearColorMapLUTBounds,     // (image, mapType, low, high, out)
  kLinearColorMapLUTColours,    // (image, mapType, low, high, indexLow, indexHigh, ..., out)
  kLinearColorMapLUTFractions,  // (image, out, mapType, upperFraction, lowerFraction)
  kLinearParaImage,             // (image, out, para, under, over, mapType, automatic)
  kLinearParaArray,             // (Kiv3DFloatArray, out, para, under, over, mapType, automatic)
  kColorMapLUTSegmented,        // (image, out, para, ..., sizeA, sizeB, vectorA, vectorB)
  kSetColorNormalMapPhong,      // (image, out)
  kSetColorNormalMapLighting,   // (image, light, eye, mode, gain, ambient, diffuse, specular, out)
  kRangeMethods
};

// A KivVarArray argument: null, empty, or already holding `prefill` ints.
struct VarArrayPlan {
  bool present = false;
  int prefill = 0;
};

template <class Archive>
void Visit(Archive& archive, VarArrayPlan& plan) {
  if (Flag(archive, plan.present)) archive.Integer(plan.prefill, 0, 3);
}

struct RangeCallPlan {
  int method = kColorMapLUT;
  int mapType = 1;
  double low = 0.0;
  double high = 1.0;
  int indexLow = 0;
  int indexHigh = 255;
  ColourValue below;
  ColourValue above;
  double upperFraction = 0.0;
  double lowerFraction = 0.0;
  ParaPlan para;
  ArrayPlan array;  // kLinearParaArray
  int sizeA = 0;
  int sizeB = 0;
  VarArrayPlan vectorA;
  VarArrayPlan vectorB;
  float light[3] = {1.0f, 1.0f, 100.0f};
  float eye[3] = {0.0f, 0.0f, 200.0f};
  float coefficients[4] = {1.0f, 0.3f, 0.6f, 0.3f};
  ColourArrayPlan out;
  bool twice = false;  // call again on fresh copies of the arguments and compare
};

// sizeA and sizeB: usually one of the accepted 0, 2, 4, 8, 16, sometimes anything near them.
template <class Archive>
void LegendSize(Archive& archive, int& size) {
  static constexpr int kAccepted[] = {0, 2, 4, 8, 16};
  int pick = 5;
  for (int i = 0; i < 5; ++i) {
    if (size == kAccepted[i]) pick = i;
  }
  if (Choice(archive, pick, 6) < 5) {
    size = kAccepted[pick];
  } else {
    NearInt(archive, size, -2, 20);
  }
}

template <class Archive>
void Visit(Archive& archive, RangeCallPlan& plan) {
  Choice(archive, plan.method, kRangeMethods);
  switch (plan.method) {
    case kColorMapLUT:
    case kLinearColorMapLUT:
      MapType(archive, plan.mapType);
      break;
    case kColorMapLUTBounds:
    case kLinearColorMapLUTBounds:
      MapType(archive, plan.mapType);
      Real(archive, plan.low);
      Real(archive, plan.high);
      break;
    case kColorMapLUTBoundsColours:
    case kLinearColorMapLUTColours:
      MapType(archive, plan.mapType);
      Real(archive, plan.low);
      Real(archive, plan.high);
      NearInt(archive, plan.indexLow, -2, 258);
      NearInt(archive, plan.indexHigh, -2, 258);
      Colour(archive, plan.below);
      Colour(archive, plan.above);
      break;
    case kLinearColorMapLUTFractions:
      MapType(archive, plan.mapType);
      Real(archive, plan.upperFraction);
      Real(archive, plan.lowerFraction);
      break;
    case kLinearParaImage:
      MapType(archive, plan.mapType);
      Visit(archive, plan.para);
      break;
    case kLinearParaArray:
      MapType(archive, plan.mapType);
      Visit(archive, plan.para);
      Visit(archive, plan.array, true);
      break;
    case kColorMapLUTSegmented:
      MapType(archive, plan.mapType);
      Visit(archive, plan.para);
      LegendSize(archive, plan.sizeA);
      LegendSize(archive, plan.sizeB);
      Visit(archive, plan.vectorA);
      Visit(archive, plan.vectorB);
      break;
    case kSetColorNormalMapLighting:
      MapType(archive, plan.mapType);
      for (float& v : plan.light) Real32(archive, v);
      for (float& v : plan.eye) Real32(archive, v);
      for (float& c : plan.coefficients) Real32(archive, c);
      break;
    default:
      break;
  }
  Visit(archive, plan.out, false);
  Flag(archive, plan.twice);
}

struct RangeInputPlan {
  RangeImagePlan image;
  std::vector<RangeCallPlan> calls;
};

template <class Archive>
void Visit(Archive& archive, RangeInputPlan& plan) {
  Visit(archive, plan.image);
  int count = static_cast<int>(plan.calls.size());
  archive.Integer(count, 1, kMaxRangeCalls);
  plan.calls.resize(static_cast<size_t>(count));
  for (RangeCallPlan& call : plan.calls) Visit(archive, call);
}

// ---- Array-method calls ------------------------------------------------------------------------

enum ArrayMethod : int {
  kGetColor,                  // (value, mapType, out)
  kLinearSetColorLUTImage,    // (src, dst, mapType)
  kSetColorLUTImage,          // (src, dst, mapType)
  kSetColorLUTImageBands,     // (src, dst, mapType, low, high, indexLow, indexHigh, below, above)
  kColorMapLUTIntArray,       // (values, mapType, low, high, out)
  kSetColorLUTFloatArray,     // (values, minValue, maxValue, mapType, out)
  kLinearSetColorLUTFloats,   // (values, minValue, maxValue, mapType, out)
  kColorBlend,                // (a, b, alpha, out)
  kSetColorNormalMapVectors,  // (normals, out)
  kArrayMethods
};

// What a grey image's matrix is.
enum GreyView : int {
  kGreyWhole,      // the image's own matrix (owning, or around the caller's buffer)
  kGreyWindow,     // a window into it, one sample in from the left (padded rows, not at the start)
  kGreyThreeDims,  // replaced by a height x width x 2 matrix (Width() and Height() read -1)
  kGreyViews
};

// A grey image (KivImage): owning, or around a caller's buffer whose rows are `padding` samples
// longer than needed.
struct GreyImagePlan {
  int width = 1;
  int height = 1;
  int depth = 0;  // 0..6
  int channels = 1;
  bool callerBuffer = false;
  int padding = 0;
  int view = kGreyWhole;
  ValuesPlan values;
};

template <class Archive>
void Visit(Archive& archive, GreyImagePlan& plan) {
  Extent(archive, plan.width, kMaxSide);
  Extent(archive, plan.height, kMaxSide);
  archive.Integer(plan.depth, 0, 6);
  archive.Integer(plan.channels, 1, 4);
  if (Flag(archive, plan.callerBuffer)) archive.Integer(plan.padding, 0, 16);
  Choice(archive, plan.view, kGreyViews);
  Visit(archive, plan.values);
}

// The destination of a grey-image call.
enum GreyDestinationKind : int {
  kGreyNull,
  kGreyDefault,       // an empty KivImage
  kGreyOwning,        // an owning image of any size and type
  kGreyCallerBuffer,  // an image around a caller's buffer, which must never be written
  kGreySource,        // the source image itself
  kGreyDestinationKinds
};

struct GreyDestinationPlan {
  int kind = kGreyDefault;
  GreyImagePlan image;
};

template <class Archive>
void Visit(Archive& archive, GreyDestinationPlan& plan) {
  Choice(archive, plan.kind, kGreyDestinationKinds);
  if (plan.kind == kGreyOwning || plan.kind == kGreyCallerBuffer) Visit(archive, plan.image);
}

struct ArrayCallPlan {
  int method = kGetColor;
  int mapType = 1;
  double value = 0.5;       // GetColor value, ColorBlend alpha
  bool nullOutput = false;  // GetColor
  GreyImagePlan src;
  GreyDestinationPlan dst;
  int low = 0;
  int high = 255;
  int indexLow = 0;
  int indexHigh = 255;
  ColourValue below;
  ColourValue above;
  float minValue = 0.0f;
  float maxValue = 1.0f;
  ArrayPlan array;  // int, float or vector elements
  ColourArrayPlan a;
  ColourArrayPlan b;
  bool sameLength = true;  // ColorBlend: b takes a's length
  int alias = 0;           // ColorBlend: 0 none, 1 b is a, 2 out is a, 3 out is b
  ColourArrayPlan out;
};

template <class Archive>
void Visit(Archive& archive, ArrayCallPlan& plan) {
  switch (Choice(archive, plan.method, kArrayMethods)) {
    case kGetColor:
      Real(archive, plan.value);
      MapType(archive, plan.mapType);
      Flag(archive, plan.nullOutput);
      return;
    case kLinearSetColorLUTImage:
    case kSetColorLUTImage:
      MapType(archive, plan.mapType);
      Visit(archive, plan.src);
      Visit(archive, plan.dst);
      return;
    case kSetColorLUTImageBands:
      MapType(archive, plan.mapType);
      Visit(archive, plan.src);
      Visit(archive, plan.dst);
      NearInt(archive, plan.low, -2, 70000);
      NearInt(archive, plan.high, -2, 70000);
      NearInt(archive, plan.indexLow, -2, 258);
      NearInt(archive, plan.indexHigh, -2, 258);
      Colour(archive, plan.below);
      Colour(archive, plan.above);
      return;
    case kColorMapLUTIntArray:
      MapType(archive, plan.mapType);
      NearInt(archive, plan.low, -70000, 70000);
      NearInt(archive, plan.high, -70000, 70000);
      Visit(archive, plan.array, true);
      break;
    case kSetColorLUTFloatArray:
    case kLinearSetColorLUTFloats:
      MapType(archive, plan.mapType);
      Real32(archive, plan.minValue);
      Real32(archive, plan.maxValue);
      Visit(archive, plan.array, true);
      break;
    case kColorBlend:
      Real(archive, plan.value);
      Visit(archive, plan.a, true);
      Flag(archive, plan.sameLength);
      Visit(archive, plan.b, true);
      archive.Integer(plan.alias, 0, 3);
      break;
    case kSetColorNormalMapVectors:
      Visit(archive, plan.array, false);
      break;
    default:
      break;
  }
  Visit(archive, plan.out, false);
}

struct ArrayInputPlan {
  std::vector<ArrayCallPlan> calls;
};

template <class Archive>
void Visit(Archive& archive, ArrayInputPlan& plan) {
  int count = static_cast<int>(plan.calls.size());
  archive.Integer(count, 1, kMaxArrayCalls);
  plan.calls.resize(static_cast<size_t>(count));
  for (ArrayCallPlan& call : plan.calls) Visit(archive, call);
}

// ---- The sequence colouriser -------------------------------------------------------------------

inline constexpr int kMaxFrames = 4;  // frames per input of the sequence target

// One KivSequenceColorizer and the frames it colours, each maybe after a Reset().
struct SequenceInputPlan {
  int mode = 0;    // KivColoringMode as an int: 0 equalised, 1 linear, others refused
  int bounds = 0;  // KivBoundsSource as an int: 0 measured, 1 given, 2 percentile, others refused
  double low = 0.0;
  double high = 0.0;
  double lowPercentile = 1.0;
  double highPercentile = 99.0;
  double timeConstant = 10.0;
  double deadBand = 0.02;
  int holdFrames = 3;
  double entryTolerance = 1.0;
  int channels = 3;
  std::vector<RangeImagePlan> frames;
  std::vector<int> resetBefore;  // 0 or 1 per frame
};

template <class Archive>
void Visit(Archive& archive, SequenceInputPlan& plan) {
  NearInt(archive, plan.mode, -1, 2);
  NearInt(archive, plan.bounds, -1, 3);
  Real(archive, plan.low);
  Real(archive, plan.high);
  Real(archive, plan.lowPercentile);
  Real(archive, plan.highPercentile);
  Real(archive, plan.timeConstant);
  Real(archive, plan.deadBand);
  NearInt(archive, plan.holdFrames, -1, 6);
  Real(archive, plan.entryTolerance);
  NearInt(archive, plan.channels, 2, 5);
  int count = static_cast<int>(plan.frames.size());
  archive.Integer(count, 1, kMaxFrames);
  plan.frames.resize(static_cast<size_t>(count));
  plan.resetBefore.resize(static_cast<size_t>(count));
  for (size_t k = 0; k < plan.frames.size(); ++k) {
    Visit(archive, plan.frames[k]);
    Choice(archive, plan.resetBefore[k], 2);
  }
}

// The bytes of a plan, for the seed corpus and the regression cases.
template <class Plan>
std::vector<uint8_t> Encode(Plan plan) {
  FuzzWriter writer;
  Visit(writer, plan);
  return writer.Bytes();
}

// A plan from fuzz bytes.
template <class Plan>
Plan Decode(const uint8_t* data, size_t size) {
  FuzzReader reader(data, size);
  Plan plan;
  Visit(reader, plan);
  return plan;
}

}  // namespace kivfuzz
