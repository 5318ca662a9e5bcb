#include "operations.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <sstream>

#include "Kiv3DDataConvert.h"
#include "Kiv3DDataOperation.h"
#include "KivColorBar.h"
#include "KivColorTable.h"
#include "KivColoring.h"
#include "frame_io.h"

namespace kivlut {
namespace {

using KIVMV::KivColor;
using KIVMV::KivColorArray;
using KIVMV::KivColoringInfo;
using KIVMV::KivColoringOptions;
using KIVMV::KivColorTable;
using KIVMV::KivLUTSetting;
using KIVMV::KivRangeImage;
using KIVMV::KivRgb;

OperationResult Failure(std::string error, long status = KIVMV::LUT_OK) {
  OperationResult result;
  result.status = status;
  result.error = std::move(error);
  return result;
}

std::string StatusText(long status, const char* method) {
  return std::string(KIVMV::KivLUTStatusName(status)) + " (" + std::to_string(status) + ") from " +
         method;
}

std::string ExtStatusText(long status, const char* function) {
  return std::string(KIVMV::KivExtStatusName(status)) + " (" + std::to_string(status) + ") from " +
         function;
}

std::string Number(double value) {
  std::ostringstream text;
  text.precision(6);
  text << value;
  return text.str();
}

std::string Range(double low, double high, const char* origin) {
  return Number(low) + " .. " + Number(high) + " (" + origin + ")";
}

// The colour array of a range mapping as a picture of the image's shape.
bool ToPicture(const KivColorArray& colours, int width, int height, cv::Mat* picture,
               std::string* error) {
  const int channels = colours.Channel();
  if (colours.Data() == nullptr || colours.Length() != width * height ||
      (channels != 3 && channels != 4) || !colours.Mat().isContinuous()) {
    *error = "the library returned " + std::to_string(colours.Length()) + " colours of " +
             std::to_string(channels) + " channels for " + std::to_string(width) + "x" +
             std::to_string(height) + " pixels";
    return false;
  }
  *picture = cv::Mat(height, width, CV_8UC(channels), colours.Data()).clone();
  return true;
}

// Heights in physical units, invalid pixels as the target type's marker.
bool ConvertHeights(KivRangeImage& image, KIVMV::KivDataType type, KivRangeImage* heights,
                    std::string* error) {
  KIVMV::Kiv3DDataConvert convert;
  const long status = convert.RangeImageDataTypeConvert(image, heights, type);
  if (status != 0) {
    *error = "cannot convert the pixels to " + std::string(PixelTypeName(type)) +
             " heights (platform status " + std::to_string(status) + ")";
    return false;
  }
  return true;
}

// Minimum, maximum and count of the valid heights, by the platform's validity rule, and which
// pixels are no-data (255 in `noData`).
bool MeasureHeights(KivRangeImage& image, MappingStats* stats, cv::Mat* noData,
                    std::string* error) {
  KivRangeImage heights;
  if (!ConvertHeights(image, KIVMV::KIV_DATA_F64, &heights, error)) return false;
  const double* values = heights.Ptr<double>();
  const size_t count = static_cast<size_t>(heights.Width()) * heights.Height();
  stats->total = static_cast<long long>(count);
  stats->valid = 0;
  stats->minimum = 0.0;
  stats->maximum = 0.0;
  *noData = cv::Mat(heights.Height(), heights.Width(), CV_8UC1, cv::Scalar(0));
  uint8_t* marks = noData->ptr<uint8_t>();
  for (size_t i = 0; i < count; ++i) {
    const double v = values[i];
    if (v == -DBL_MAX) {
      marks[i] = 255;
      continue;
    }
    if (stats->valid == 0 || v < stats->minimum) stats->minimum = v;
    if (stats->valid == 0 || v > stats->maximum) stats->maximum = v;
    ++stats->valid;
  }
  return true;
}

KIVMV::Kiv3DFloatArray FloatArrayOf(const KivRangeImage& floatHeights) {
  const int length = floatHeights.Width() * floatHeights.Height();
  KIVMV::Kiv3DFloatArray values(length);
  if (length > 0) {
    std::memcpy(values.Data(), floatHeights.Data(), sizeof(float) * static_cast<size_t>(length));
  }
  return values;
}

// The raw values of an integer range image, widened to int (every integer pixel type fits); the
// conversion writes into the array's own buffer.
KIVMV::Kiv3DIntArray IntArrayOf(const KivRangeImage& image) {
  KIVMV::Kiv3DIntArray values(image.Width() * image.Height());
  const cv::Mat& pixels = image.Mat();
  cv::Mat widened(pixels.rows, pixels.cols, CV_32SC1, values.Data());
  pixels.convertTo(widened, CV_32S);
  return values;
}

bool IsIntegerType(KIVMV::KivDataType type) { return type <= KIVMV::KIV_DATA_S32; }

// The bounds of the percentile form, found the way the library finds them: element
// trunc(N x lower) and element trunc((1 - upper) x N) of the sorted valid values.
std::pair<float, float> PercentileBounds(const KivRangeImage& floatHeights, double upper,
                                         double lower) {
  std::vector<float> valid;
  const float* values = floatHeights.Ptr<float>();
  const size_t count = static_cast<size_t>(floatHeights.Width()) * floatHeights.Height();
  for (size_t i = 0; i < count; ++i) {
    if (std::isfinite(values[i]) && values[i] != -FLT_MAX) valid.push_back(values[i]);
  }
  if (valid.empty()) return {0.0f, 0.0f};
  const size_t last = valid.size() - 1;
  const double n = static_cast<double>(valid.size());
  size_t lowIndex = std::min(last, static_cast<size_t>(n * lower));
  size_t highIndex = std::min(last, static_cast<size_t>((1.0 - upper) * n));
  highIndex = std::max(highIndex, lowIndex);
  std::nth_element(valid.begin(), valid.begin() + lowIndex, valid.end());
  const float low = valid[lowIndex];
  std::nth_element(valid.begin(), valid.begin() + highIndex, valid.end());
  float high = valid[highIndex];
  if (high == low) high = low + 1e-6f;
  return {low, high};
}

struct RangeContext {
  const Options& options;
  KivRangeImage image;
  KivLUTSetting lut;
  KivColorArray colours;
  OperationResult result;
  cv::Mat noData;  // 255 where the input pixel is no-data
  KivColorTable table;
  std::optional<KivColoringInfo> info;  // when the colouring went through KivColoring.h
  bool boundsMeasured = true;           // the colouring used no colour below or above its bounds
  KIVMV::KivSequenceColorizer* sequence = nullptr;  // --stable: the frame is the next of these
};

bool Refused(long status, const char* method, OperationResult* result) {
  if (status == KIVMV::LUT_OK) return false;
  result->status = status;
  result->error = StatusText(status, method);
  return true;
}

bool ExtRefused(long status, const char* function, OperationResult* result) {
  if (status == KIVMV::KIV_EXT_OK) return false;
  result->status = status;
  result->error = ExtStatusText(status, function);
  return true;
}

uint8_t Byte(int value) { return static_cast<uint8_t>(std::clamp(value, 0, 255)); }

KivRgb ToKivRgb(const Rgb& rgb) { return KivRgb{Byte(rgb.red), Byte(rgb.green), Byte(rgb.blue)}; }

// Whether the picture needs the API beyond KivLUTSetting: a table or a rendering KivLUTSetting's
// methods do not offer.
bool UsesColouringOptions(const Options& o) {
  return !o.tableName.empty() || o.reverse || o.invalid.has_value() || o.transparent || o.colorbar;
}

// The table of the picture: by name, else KivLUTSetting's table of the map number; reversed and
// with the chosen no-data colour when asked.
bool ChooseTable(const Options& o, KivColorTable* table, std::string* error) {
  if (!o.tableName.empty()) {
    if (KivColorTable::ByName(o.tableName, table) != KIVMV::KIV_EXT_OK) {
      *error = "--map: no colour table is called \"" + o.tableName + "\"";
      return false;
    }
  } else {
    *table = KivColorTable::Described(o.mapType);
  }
  if (o.reverse) *table = table->Reversed();
  if (o.invalid) table->SetNoDataColor(ToKivRgb(*o.invalid));
  return true;
}

// The options that KivLUTSetting's own methods cannot honour for this operation, as a sentence,
// or empty.
std::string UnsupportedOptions(const Options& o) {
  const bool mapping = o.operation == Operation::kEqualize || o.operation == Operation::kLinear;
  const bool range = mapping || o.operation == Operation::kScale ||
                     o.operation == Operation::kNormals || o.operation == Operation::kShade;
  if (!range && UsesColouringOptions(o)) {
    return std::string(OperationName(o.operation)) +
           " keeps KivLUTSetting's pictures: named maps such as viridis, --reverse, --invalid, "
           "--transparent and --colorbar are for the range operations";
  }
  if (o.exact && UsesColouringOptions(o)) {
    return "--exact gives KivLUTSetting's own pictures: it cannot be combined with a named map "
           "such as viridis, --reverse, --invalid, --transparent or --colorbar";
  }
  if (!mapping && (!o.tableName.empty() || o.reverse || o.colorbar)) {
    return std::string(OperationName(o.operation)) +
           " keeps KivLUTSetting's tables: named maps such as viridis, --reverse and --colorbar "
           "are for equalize and linear";
  }
  if (o.indexRange && (!o.tableName.empty() || o.reverse || o.colorbar)) {
    return "--index places KivLUTSetting's table on part of the scale: it cannot be combined "
           "with a named map such as viridis, --reverse or --colorbar";
  }
  return "";
}

void SetBounds(MappingStats* stats, double low, double high, const char* origin) {
  stats->low = low;
  stats->high = high;
  stats->bounds = Range(low, high, origin);
}

// Statistics and bounds as the colouring measured and used them. Given bounds are shown as given:
// the raw unit KivLUTSetting adds to the upper one on integer images is its own affair.
void TakeInfo(const KivColoringInfo& info, const Options& o, MappingStats* stats) {
  stats->valid = info.validCount;
  if (info.validCount > 0) {
    stats->minimum = info.minimum;
    stats->maximum = info.maximum;
  }
  if (o.percentile && o.operation == Operation::kLinear && !o.asArray) {
    SetBounds(stats, info.low, info.high, "percentiles");
  } else if (o.bounds) {
    SetBounds(stats, o.bounds->first, o.bounds->second, "given");
  } else {
    SetBounds(stats, info.low, info.high, "measured");
  }
}

KivColoringOptions ColouringOptionsOf(const Options& o, KIVMV::KivColoringMode mode) {
  KivColoringOptions co;
  co.mode = mode;
  if (mode == KIVMV::KivColoringMode::kLinear && o.percentile && !o.asArray) {
    co.bounds = KIVMV::KivBoundsSource::kPercentile;
    co.lowPercentile = o.percentile->first;
    co.highPercentile = o.percentile->second;
  } else if (o.bounds) {
    co.bounds = KIVMV::KivBoundsSource::kGiven;
    co.low = o.bounds->first;
    co.high = o.bounds->second;
  }
  if (o.invalid) co.noDataColor = ToKivRgb(*o.invalid);
  co.channels = o.transparent ? 4 : 3;
  return co;
}

// equalize and linear through KivColoring.h: the range image itself, or its heights as a flat
// float array for --array.
bool ColourWithOptions(RangeContext& c, KIVMV::KivColoringMode mode) {
  const Options& o = c.options;
  const KivColoringOptions co = ColouringOptionsOf(o, mode);
  KivColoringInfo info;
  if (o.asArray) {
    KivRangeImage heights;
    if (!ConvertHeights(c.image, KIVMV::KIV_DATA_F32, &heights, &c.result.error)) return false;
    if (ExtRefused(KIVMV::KivColorFloatArray(FloatArrayOf(heights), c.table, co, &c.colours, &info),
                   "KivColorFloatArray", &c.result)) {
      return false;
    }
  } else if (ExtRefused(KIVMV::KivColorRangeImage(c.image, c.table, co, &c.colours, &info),
                        "KivColorRangeImage", &c.result)) {
    return false;
  }
  c.boundsMeasured = co.bounds == KIVMV::KivBoundsSource::kMeasured;
  c.info = info;
  TakeInfo(info, o, &c.result.stats);
  return true;
}

KIVMV::KivSequenceOptions SequenceOptionsOf(const Options& o) {
  KIVMV::KivSequenceOptions so;
  so.coloring =
      ColouringOptionsOf(o, o.operation == Operation::kEqualize ? KIVMV::KivColoringMode::kEqualised
                                                                : KIVMV::KivColoringMode::kLinear);
  so.timeConstant = o.stable.value_or(0.0);
  // --index is refused with --stable, so an index range here is the one --below or --above
  // implied: their colours, the other at its default, as the per-frame colouring takes them.
  if (o.indexRange) {
    so.coloring.belowColor = ToKivRgb(o.below);
    so.coloring.aboveColor = ToKivRgb(o.above);
  }
  return so;
}

// The next frame of the --stable sequence, coloured with the mapping carried up to it.
bool ColourStableFrame(RangeContext& c) {
  const Options& o = c.options;
  KivColoringInfo info;
  if (ExtRefused(c.sequence->ColorFrame(c.image, &c.colours, &info),
                 "KivSequenceColorizer::ColorFrame", &c.result)) {
    return false;
  }
  // Carried bounds may lag the frame: the bar's caps show whenever some value of this frame lies
  // outside the bounds it was coloured with, and always for given or percentile bounds.
  const bool measured = !o.bounds && !o.percentile;
  c.boundsMeasured =
      measured && info.validCount > 0 && info.minimum >= info.low && info.maximum <= info.high;
  c.info = info;
  MappingStats& stats = c.result.stats;
  stats.valid = info.validCount;
  if (info.validCount > 0) {
    stats.minimum = info.minimum;
    stats.maximum = info.maximum;
  }
  SetBounds(&stats, info.low, info.high,
            o.bounds ? "given" : (o.percentile ? "percentiles, carried" : "measured, carried"));
  return true;
}

bool RunEqualize(RangeContext& c) {
  const Options& o = c.options;
  MappingStats& stats = c.result.stats;
  if (c.sequence != nullptr) return ColourStableFrame(c);
  if (!o.exact && !o.indexRange && UsesColouringOptions(o)) {
    return ColourWithOptions(c, KIVMV::KivColoringMode::kEqualised);
  }
  if (o.asArray) {
    KivRangeImage heights;
    if (!ConvertHeights(c.image, KIVMV::KIV_DATA_F32, &heights, &c.result.error)) return false;
    KIVMV::Kiv3DFloatArray values = FloatArrayOf(heights);
    const float low = static_cast<float>(o.bounds ? o.bounds->first : stats.minimum);
    const float high = static_cast<float>(o.bounds ? o.bounds->second : stats.maximum);
    stats.bounds = Range(low, high, o.bounds ? "given, narrowed to the data" : "measured");
    // SetColorLUT narrows given bounds to the valid values.
    stats.low = stats.valid > 0 ? std::max<double>(low, stats.minimum) : low;
    stats.high = stats.valid > 0 ? std::min<double>(high, stats.maximum) : high;
    return !Refused(c.lut.SetColorLUT(values, low, high, o.mapType, &c.colours), "SetColorLUT",
                    &c.result);
  }
  long status;
  if (!o.bounds) {
    SetBounds(&stats, stats.minimum, stats.maximum, "measured");
    status = c.lut.ColorMapLUT(c.image, o.mapType, &c.colours);
  } else if (!o.indexRange) {
    SetBounds(&stats, o.bounds->first, o.bounds->second, "given");
    status = c.lut.ColorMapLUT(c.image, o.mapType, o.bounds->first, o.bounds->second, &c.colours);
  } else {
    SetBounds(&stats, o.bounds->first, o.bounds->second, "given");
    status =
        c.lut.ColorMapLUT(c.image, o.mapType, o.bounds->first, o.bounds->second,
                          o.indexRange->first, o.indexRange->second, SwappedLibraryColour(o.below),
                          SwappedLibraryColour(o.above), &c.colours);
  }
  return !Refused(status, "ColorMapLUT", &c.result);
}

// A height in physical units as the nearest raw value of an integer image, within int.
int RawValueOf(double height, const KivRangeImage& image) {
  const double resolution = image.ResolutionZ();
  const double raw = resolution != 0.0 ? height / resolution + image.OffsetZ() : image.OffsetZ();
  return static_cast<int>(std::lround(std::clamp(raw, -2147483648.0, 2147483647.0)));
}

double HeightOf(int raw, const KivRangeImage& image) {
  return (raw - image.OffsetZ()) * image.ResolutionZ();
}

bool RunLinear(RangeContext& c) {
  const Options& o = c.options;
  MappingStats& stats = c.result.stats;
  if (c.sequence != nullptr) return ColourStableFrame(c);
  // KivLUTSetting's fraction bounds paint no-data like the nearest heights, so outside --exact the
  // percentile form goes through KivColoring.h, which keeps it no-data.
  const bool percentile = o.percentile && !o.asArray;
  if (!o.exact && !o.indexRange && (UsesColouringOptions(o) || percentile)) {
    return ColourWithOptions(c, KIVMV::KivColoringMode::kLinear);
  }
  if (o.asArray) {
    if (IsIntegerType(c.image.DataType())) {
      KIVMV::Kiv3DIntArray values = IntArrayOf(c.image);
      // The flat integer form knows neither markers nor units: bounds, given or measured, become
      // the nearest raw values, so that --bounds speaks the same unit as --stats.
      int low = 0;
      int high = 0;
      if (o.bounds) {
        low = RawValueOf(o.bounds->first, c.image);
        high = RawValueOf(o.bounds->second, c.image);
      } else if (stats.valid > 0) {
        const int a = RawValueOf(stats.minimum, c.image);
        const int b = RawValueOf(stats.maximum, c.image);
        low = std::min(a, b);
        high = std::max(a, b);
      }
      stats.low = HeightOf(low, c.image);
      stats.high = HeightOf(high, c.image);
      stats.bounds = Range(stats.low, stats.high,
                           o.bounds ? "given, nearest raw values" : "measured, raw values");
      return !Refused(c.lut.ColorMapLUT(values, o.mapType, low, high, &c.colours), "ColorMapLUT",
                      &c.result);
    }
    KivRangeImage heights;
    if (!ConvertHeights(c.image, KIVMV::KIV_DATA_F32, &heights, &c.result.error)) return false;
    KIVMV::Kiv3DFloatArray values = FloatArrayOf(heights);
    const float low = static_cast<float>(o.bounds ? o.bounds->first : stats.minimum);
    const float high = static_cast<float>(o.bounds ? o.bounds->second : stats.maximum);
    SetBounds(&stats, low, high, o.bounds ? "given" : "measured");
    return !Refused(c.lut.LinearSetColorLUT(values, low, high, o.mapType, &c.colours),
                    "LinearSetColorLUT", &c.result);
  }
  long status;
  if (o.percentile) {
    // The percentile form reads float pixels as they are, so other images go through float
    // heights first and the percentiles are heights.
    KivRangeImage heights = c.image;
    if (c.image.DataType() != KIVMV::KIV_DATA_F32 &&
        !ConvertHeights(c.image, KIVMV::KIV_DATA_F32, &heights, &c.result.error)) {
      return false;
    }
    const double lower = o.percentile->first / 100.0;
    const double upper = (100.0 - o.percentile->second) / 100.0;
    status = c.lut.LinearColorMapLUT(heights, &c.colours, o.mapType, upper, lower);
    if (status == KIVMV::LUT_OK) {
      const auto bounds = PercentileBounds(heights, upper, lower);
      SetBounds(&stats, bounds.first, bounds.second, "percentiles");
    }
  } else if (!o.bounds) {
    SetBounds(&stats, stats.minimum, stats.maximum, "measured");
    status = c.lut.LinearColorMapLUT(c.image, o.mapType, &c.colours);
  } else if (!o.indexRange) {
    SetBounds(&stats, o.bounds->first, o.bounds->second, "given");
    status =
        c.lut.LinearColorMapLUT(c.image, o.mapType, o.bounds->first, o.bounds->second, &c.colours);
  } else {
    SetBounds(&stats, o.bounds->first, o.bounds->second, "given");
    status = c.lut.LinearColorMapLUT(c.image, o.mapType, o.bounds->first, o.bounds->second,
                                     o.indexRange->first, o.indexRange->second,
                                     SwappedLibraryColour(o.below), SwappedLibraryColour(o.above),
                                     &c.colours);
  }
  return !Refused(status, "LinearColorMapLUT", &c.result);
}

KIVMV::LinearColorMapLUT_Para ScaleRecord(const Options& o) {
  KIVMV::LinearColorMapLUT_Para para;
  if (o.scaleValues) {
    para.value0 = (*o.scaleValues)[0];
    para.value1 = (*o.scaleValues)[1];
    para.value2 = (*o.scaleValues)[2];
    para.value3 = (*o.scaleValues)[3];
    para.value4 = (*o.scaleValues)[4];
  }
  para.index0 = o.scaleIndices[0];
  para.index1 = o.scaleIndices[1];
  para.index2 = o.scaleIndices[2];
  para.index3 = o.scaleIndices[3];
  para.index4 = o.scaleIndices[4];
  return para;
}

std::string BreakValues(const KIVMV::LinearColorMapLUT_Para& p, const char* origin) {
  return Number(p.value0) + " " + Number(p.value1) + " " + Number(p.value2) + " " +
         Number(p.value3) + " " + Number(p.value4) + " (" + origin + ")";
}

bool RunScale(RangeContext& c) {
  const Options& o = c.options;
  KIVMV::LinearColorMapLUT_Para para = ScaleRecord(o);
  KivColor under = SwappedLibraryColour(o.below);
  KivColor over = SwappedLibraryColour(o.above);
  const char* origin = o.automatic ? "automatic" : "given";
  if (o.asArray) {
    KivRangeImage heights;
    if (!ConvertHeights(c.image, KIVMV::KIV_DATA_F32, &heights, &c.result.error)) return false;
    KIVMV::Kiv3DFloatArray values = FloatArrayOf(heights);
    c.result.stats.bounds = o.automatic ? std::string("derived from the data, rescaled to [-1, 1]")
                                        : BreakValues(para, "given, of the rescaled values");
    return !Refused(
        c.lut.LinearColorMapLUT(values, &c.colours, para, under, over, o.mapType, o.automatic),
        "LinearColorMapLUT", &c.result);
  }
  if (!o.segmented) {
    if (Refused(
            c.lut.LinearColorMapLUT(c.image, &c.colours, para, under, over, o.mapType, o.automatic),
            "LinearColorMapLUT", &c.result)) {
      return false;
    }
    c.result.stats.bounds = BreakValues(para, origin);
    c.result.stats.low = para.value0;
    c.result.stats.high = para.value4;
  }
  if (o.segmented || !o.legendPath.empty()) {
    KIVMV::LinearColorMapLUT_Para segmentPara = ScaleRecord(o);
    KivColorArray segmented;
    KIVMV::KivVarArray extras;
    if (Refused(c.lut.ColorMapLUT(c.image, &segmented, segmentPara, under, over, o.mapType,
                                  o.automatic, 0, 0, &extras, nullptr),
                "ColorMapLUT", &c.result)) {
      return false;
    }
    if (extras.Length() < 1 || !extras[0].IsImage()) {
      c.result.error = "ColorMapLUT returned no histogram chart";
      return false;
    }
    c.result.legend = extras[0].ToImage().Mat().clone();
    if (o.segmented) {
      c.colours = segmented;
      c.result.stats.bounds = o.automatic ? std::string("derived from the data (automatic)")
                                          : BreakValues(segmentPara, origin);
      c.result.stats.low = o.automatic ? NAN : segmentPara.value0;
      c.result.stats.high = o.automatic ? NAN : segmentPara.value4;
    }
  }
  return true;
}

bool RunShade(RangeContext& c) {
  const Options& o = c.options;
  const KivRangeImage& image = c.image;
  // Defaults in the image's point coordinates: the light above the top-left corner and the eye
  // above the centre, both one image diagonal higher than the highest point.
  const double width = image.Width() * image.ResolutionY();
  const double height = image.Height() * image.ResolutionX();
  const double diagonal = std::hypot(width, height);
  const double left = (0.0 - image.OffsetY()) * image.ResolutionY();
  const double top = (0.0 - image.OffsetX()) * image.ResolutionX();
  const double peak = c.result.stats.valid > 0 ? c.result.stats.maximum : 0.0;
  const std::array<float, 3> light =
      o.light ? *o.light
              : std::array<float, 3>{static_cast<float>(left), static_cast<float>(top),
                                     static_cast<float>(peak + diagonal)};
  const std::array<float, 3> eye =
      o.eye ? *o.eye
            : std::array<float, 3>{static_cast<float>(left + width / 2),
                                   static_cast<float>(top + height / 2),
                                   static_cast<float>(peak + 2 * diagonal)};
  KIVMV::KivVector3d lightAt(light[0], light[1], light[2]);
  KIVMV::KivVector3d eyeAt(eye[0], eye[1], eye[2]);
  c.result.stats.bounds = "light " + Number(light[0]) + "," + Number(light[1]) + "," +
                          Number(light[2]) + " eye " + Number(eye[0]) + "," + Number(eye[1]) + "," +
                          Number(eye[2]);
  const auto& k = o.coefficients;
  return !Refused(c.lut.SetColorNormalMap(c.image, lightAt, eyeAt, o.mapType, k[0], k[1], k[2],
                                          k[3], &c.colours),
                  "SetColorNormalMap", &c.result);
}

// The normal map: KivLUTSetting's blackens one position in every work chunk, so outside --exact
// the platform's normals go through KivColorNormalMap, which marks only the missing ones.
bool RunNormals(RangeContext& c, KivRgb noData) {
  if (c.options.exact) {
    return !Refused(c.lut.SetColorNormalMapPhong(c.image, &c.colours), "SetColorNormalMapPhong",
                    &c.result);
  }
  KIVMV::Kiv3DDataOperation operation;
  KIVMV::KivVector3dArray normals;
  const long status = operation.ComputeNormals(c.image, &normals, nullptr);
  if (status != 0) {
    c.result.status = status;
    c.result.error = "the platform cannot compute the normals (status " + std::to_string(status) +
                     ") for the normal map";
    return false;
  }
  return !ExtRefused(KIVMV::KivColorNormalMap(normals, &c.colours, noData), "KivColorNormalMap",
                     &c.result);
}

// No-data pixels in `noData` take `colour` (alpha 0 in a picture of four channels).
void PaintNoData(const cv::Mat& noData, KivRgb colour, cv::Mat* picture) {
  const cv::Scalar value = picture->channels() == 4 ? cv::Scalar(colour.b, colour.g, colour.r, 0)
                                                    : cv::Scalar(colour.b, colour.g, colour.r);
  picture->setTo(value, noData);
}

// Alpha 255 on data and 0 on no-data.
cv::Mat WithAlpha(const cv::Mat& picture, const cv::Mat& noData) {
  cv::Mat alpha;
  cv::bitwise_not(noData, alpha);
  std::vector<cv::Mat> planes;
  cv::split(picture, planes);
  planes.resize(3);
  planes.push_back(alpha);
  cv::Mat merged;
  cv::merge(planes, merged);
  return merged;
}

// The colour bar of the colouring beside the picture, in the input's physical units.
bool AttachColourBar(RangeContext& c) {
  if (!c.info || c.info->entryStart.empty()) {
    c.result.error = "--colorbar: the frame has no valid height, so there is no scale to draw";
    return false;
  }
  KIVMV::KivColorBarOptions bar;
  bar.unit = c.options.unit;
  // Measured bounds leave no value below or above them, so the caps would show unused colours.
  bar.endCaps = !c.boundsMeasured;
  bar.length = std::clamp(c.result.picture.rows * 3 / 4, 64, 2048);
  cv::Mat drawn;
  if (ExtRefused(KIVMV::KivDrawColorBar(c.table, *c.info, bar, &drawn), "KivDrawColorBar",
                 &c.result)) {
    return false;
  }
  cv::Mat attached;
  if (ExtRefused(KIVMV::KivAttachColorBar(c.result.picture, drawn, bar, &attached),
                 "KivAttachColorBar", &c.result)) {
    return false;
  }
  c.result.picture = attached;
  return true;
}

OperationResult RunRangeOperation(const Options& options, const cv::Mat& pixels,
                                  KIVMV::KivSequenceColorizer* sequence) {
  std::string error;
  std::optional<KivRangeImage> image = ToRangeImage(pixels, options.axes, &error);
  if (!image) return Failure(error);
  RangeContext c{options,
                 *image,
                 KivLUTSetting(),
                 KivColorArray(),
                 OperationResult(),
                 cv::Mat(),
                 KivColorTable(),
                 std::nullopt,
                 true,
                 sequence};
  if (!ChooseTable(options, &c.table, &c.result.error)) return c.result;
  const KIVMV::KivDataType type = c.image.DataType();
  if ((type == KIVMV::KIV_DATA_F32 || type == KIVMV::KIV_DATA_F64) &&
      (c.image.ResolutionZ() != 1.0 || c.image.OffsetZ() != 0.0)) {
    // KivLUTSetting reads float pixels as they are, while --stats and --bounds speak the physical
    // units the z resolution and offset give: such an image is coloured as its physical heights.
    KivRangeImage heights;
    if (!ConvertHeights(c.image, type, &heights, &c.result.error)) return c.result;
    c.image = heights;
  }
  if (!MeasureHeights(c.image, &c.result.stats, &c.noData, &c.result.error)) return c.result;
  bool done = false;
  switch (options.operation) {
    case Operation::kEqualize:
      done = RunEqualize(c);
      break;
    case Operation::kLinear:
      done = RunLinear(c);
      break;
    case Operation::kScale:
      done = RunScale(c);
      break;
    case Operation::kNormals:
      done = RunNormals(c, options.invalid ? ToKivRgb(*options.invalid) : KivRgb{0, 0, 0});
      break;
    case Operation::kShade:
      done = RunShade(c);
      break;
    default:
      c.result.error = "not a range-image operation";
      break;
  }
  if (!done || !ToPicture(c.colours, c.image.Width(), c.image.Height(), &c.result.picture,
                          &c.result.error)) {
    return c.result;
  }
  if (!options.exact) {
    // KivLUTSetting's fraction bounds, float-array colourings, Phong lighting and normal map paint
    // no-data otherwise; painting every no-data pixel again changes nothing where it did not.
    const KivRgb noData = options.operation == Operation::kNormals
                              ? (options.invalid ? ToKivRgb(*options.invalid) : KivRgb{0, 0, 0})
                              : c.table.NoDataColor();
    PaintNoData(c.noData, noData, &c.result.picture);
    if (options.transparent && c.result.picture.channels() == 3) {
      c.result.picture = WithAlpha(c.result.picture, c.noData);
    }
  }
  if (options.colorbar && !AttachColourBar(c)) return c.result;
  c.result.ok = true;
  return c.result;
}

std::string DescribePixels(const cv::Mat& pixels) {
  static const char* kDepths[] = {"8-bit",          "signed 8-bit", "16-bit",       "signed 16-bit",
                                  "32-bit integer", "32-bit float", "64-bit float", "16-bit float"};
  return std::to_string(pixels.channels()) + " channel(s) of " + kDepths[pixels.depth() & 7];
}

OperationResult RunGrey(const Options& o, const cv::Mat& pixels) {
  OperationResult result;
  KIVMV::KivImage source;
  source.Mat() = pixels;
  KIVMV::KivImage picture;
  KivLUTSetting lut;
  const char* method = "SetColorLUT";
  long status;
  MappingStats& stats = result.stats;
  stats.total = static_cast<long long>(pixels.total());
  if (pixels.channels() == 1 && (pixels.depth() == CV_8U || pixels.depth() == CV_16U)) {
    cv::Mat asDouble;
    pixels.convertTo(asDouble, CV_64F);
    stats.valid = cv::countNonZero(pixels);
    cv::minMaxLoc(asDouble, &stats.minimum, &stats.maximum, nullptr, nullptr, pixels != 0);
  }
  if (o.bounds) {
    const double low = o.bounds->first;
    const double high = o.bounds->second;
    if (low != std::trunc(low) || high != std::trunc(high) || std::fabs(low) > INT_MAX ||
        std::fabs(high) > INT_MAX) {
      return Failure("--bounds: grey levels must be whole numbers");
    }
    const std::pair<int, int> index = o.indexRange.value_or(std::make_pair(0, 255));
    stats.bounds = Range(low, high, "given");
    status = lut.SetColorLUT(source, &picture, o.mapType, static_cast<int>(low),
                             static_cast<int>(high), index.first, index.second,
                             SwappedLibraryColour(o.below), SwappedLibraryColour(o.above));
  } else if (o.equalizeGrey) {
    stats.bounds = Range(stats.minimum, stats.maximum, "non-zero levels");
    status = lut.SetColorLUT(source, &picture, o.mapType);
  } else {
    method = "LinearSetColorLUT";
    if (pixels.depth() == CV_16U) {
      double low = 0.0;
      double high = 0.0;
      cv::minMaxLoc(pixels, &low, &high);
      stats.bounds = Range(low, high, "measured");
    } else {
      stats.bounds = "0 .. 255 (grey levels index the table)";
    }
    status = lut.LinearSetColorLUT(source, &picture, o.mapType);
  }
  if (status != KIVMV::LUT_OK) {
    std::string error = StatusText(status, method);
    if (status == KIVMV::LUT_ERR_IMAGE_CHANNELS || status == KIVMV::LUT_ERR_IMAGE_BIT_DEPTH) {
      error += ": grey takes one-channel 8- or 16-bit images, not " + DescribePixels(pixels);
    }
    return Failure(error, status);
  }
  result.picture = picture.Mat().clone();
  result.ok = true;
  return result;
}

bool ToColourArray(const cv::Mat& pixels, KivColorArray* colours, std::string* error) {
  const int channels = pixels.channels();
  if (pixels.depth() != CV_8U || (channels != 1 && channels != 3 && channels != 4)) {
    *error = "blend takes 8-bit pictures of 1, 3 or 4 channels, not " + DescribePixels(pixels);
    return false;
  }
  colours->SetSize(pixels.cols, pixels.rows, channels);
  pixels.copyTo(colours->Mat());
  return true;
}

OperationResult RunBlend(const Options& o, const cv::Mat& a, const cv::Mat& b) {
  KivColorArray first;
  KivColorArray second;
  std::string error;
  if (!ToColourArray(a, &first, &error) || !ToColourArray(b, &second, &error)) {
    return Failure(error);
  }
  KivColorArray blended;
  KivLUTSetting lut;
  const long status = lut.ColorBlend(first, second, o.alpha, &blended);
  if (status != KIVMV::LUT_OK) return Failure(StatusText(status, "ColorBlend"), status);
  OperationResult result;
  const int channels = blended.Channel();
  if (blended.Length() != a.cols * a.rows || blended.Data() == nullptr ||
      !blended.Mat().isContinuous()) {
    return Failure("ColorBlend returned " + std::to_string(blended.Length()) + " colours");
  }
  result.picture = cv::Mat(a.rows, a.cols, CV_8UC(channels), blended.Data()).clone();
  result.stats.total = result.stats.valid = blended.Length();
  result.stats.bounds = "alpha " + Number(o.alpha);
  result.ok = true;
  return result;
}

}  // namespace

KivColor SwappedLibraryColour(const Rgb& rgb) { return KivColor(rgb.red, rgb.green, rgb.blue); }

std::string FormatStats(const MappingStats& stats) {
  std::string line = "min " + Number(stats.minimum) + " max " + Number(stats.maximum) + " valid " +
                     std::to_string(stats.valid) + "/" + std::to_string(stats.total);
  if (!stats.bounds.empty()) line += " bounds " + stats.bounds;
  return line;
}

std::unique_ptr<KIVMV::KivSequenceColorizer> MakeSequenceColorizer(const Options& options,
                                                                   std::string* error) {
  KivColorTable table;
  if (!ChooseTable(options, &table, error)) return nullptr;
  return std::make_unique<KIVMV::KivSequenceColorizer>(table, SequenceOptionsOf(options));
}

OperationResult RunOperation(const Options& options, const std::vector<cv::Mat>& inputs,
                             KIVMV::KivSequenceColorizer* sequence) {
  try {
    const std::string unsupported = UnsupportedOptions(options);
    if (!unsupported.empty()) return Failure(unsupported);
    const size_t needed = options.operation == Operation::kBlend ? 2 : 1;
    if (inputs.size() != needed) {
      return Failure(std::string(OperationName(options.operation)) + " takes " +
                     std::to_string(needed) + " input(s)");
    }
    switch (options.operation) {
      case Operation::kGrey:
        return RunGrey(options, inputs[0]);
      case Operation::kBlend:
        return RunBlend(options, inputs[0], inputs[1]);
      case Operation::kDemo:
        return Failure("demo is not a per-file operation");
      default:
        return RunRangeOperation(options, inputs[0], sequence);
    }
  } catch (const std::exception& e) {
    return Failure(std::string("unexpected failure: ") + e.what());
  }
}

}  // namespace kivlut
