#include "options.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "frame_io.h"

namespace kivlut {
namespace {

const std::map<std::string, Operation>& OperationWords() {
  static const std::map<std::string, Operation> words = {
      {"equalize", Operation::kEqualize}, {"linear", Operation::kLinear},
      {"scale", Operation::kScale},       {"normals", Operation::kNormals},
      {"shade", Operation::kShade},       {"grey", Operation::kGrey},
      {"blend", Operation::kBlend},       {"demo", Operation::kDemo}};
  return words;
}

std::optional<double> ParseNumber(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &end);
  if (*end != '\0' || errno == ERANGE || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<int> ParseInteger(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || errno == ERANGE || value < INT_MIN || value > INT_MAX) return std::nullopt;
  return static_cast<int>(value);
}

std::vector<std::string> SplitCommas(const std::string& text) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream stream(text);
  while (std::getline(stream, part, ',')) parts.push_back(part);
  if (!text.empty() && text.back() == ',') parts.push_back("");
  return parts;
}

template <typename T, size_t N, typename Parse>
std::optional<std::array<T, N>> ParseList(const std::string& text, Parse parse) {
  const std::vector<std::string> parts = SplitCommas(text);
  if (parts.size() != N) return std::nullopt;
  std::array<T, N> values{};
  for (size_t i = 0; i < N; ++i) {
    const auto value = parse(parts[i]);
    if (!value) return std::nullopt;
    values[i] = static_cast<T>(*value);
  }
  return values;
}

std::optional<Rgb> ParseRgb(const std::string& text) {
  const auto values = ParseList<int, 3>(text, ParseInteger);
  if (!values) return std::nullopt;
  for (int v : *values) {
    if (v < 0 || v > 255) return std::nullopt;
  }
  return Rgb{(*values)[0], (*values)[1], (*values)[2]};
}

// Floats the library takes as float: a value that does not fit a float is a bad value, not
// infinity.
std::optional<double> ParseFloatNumber(const std::string& text) {
  const auto value = ParseNumber(text);
  if (!value || std::fabs(*value) > 3.0e38) return std::nullopt;
  return value;
}

std::optional<RawLayout> ParseRawLayout(const std::string& text) {
  const size_t times = text.find('x');
  const size_t colon = text.find(':');
  if (times == std::string::npos || colon == std::string::npos || colon < times) {
    return std::nullopt;
  }
  const auto width = ParseInteger(text.substr(0, times));
  const auto height = ParseInteger(text.substr(times + 1, colon - times - 1));
  const auto type = ParsePixelType(text.substr(colon + 1));
  if (!width || !height || !type || *width <= 0 || *height <= 0) return std::nullopt;
  return RawLayout{*width, *height, *type};
}

// The operations an option belongs to; an option given to another operation is an error, so a
// misspelt intention never runs silently with defaults.
using OperationSet = std::set<Operation>;
const OperationSet kRangeOperations = {Operation::kEqualize, Operation::kLinear, Operation::kScale,
                                       Operation::kNormals, Operation::kShade};
const OperationSet kAllButDemo = {Operation::kEqualize, Operation::kLinear, Operation::kScale,
                                  Operation::kNormals,  Operation::kShade,  Operation::kGrey,
                                  Operation::kBlend};
const OperationSet kMappedOperations = {Operation::kEqualize, Operation::kLinear, Operation::kScale,
                                        Operation::kShade, Operation::kGrey};

struct OptionRule {
  int valueCount;
  OperationSet operations;
  // Stores the values; returns the reason they are bad, or "" when they are fine.
  std::function<std::string(const std::vector<std::string>&, Options&)> apply;
};

std::string BadValue(const std::string& option, const std::string& value,
                     const std::string& expected) {
  return option + ": bad value '" + value + "' (expected " + expected + ")";
}

std::function<std::string(const std::vector<std::string>&, Options&)> AxisSetter(
    const std::string& name, bool resolution, int axis) {
  return [name, resolution, axis](const std::vector<std::string>& v, Options& o) -> std::string {
    const auto value = ParseNumber(v[0]);
    if (!value) return BadValue(name, v[0], "a number");
    (resolution ? o.axes.resolution : o.axes.offset)[axis] = *value;
    return "";
  };
}

const std::map<std::string, OptionRule>& OptionRules() {
  using Values = std::vector<std::string>;
  static const std::map<std::string, OptionRule> rules = {
      {"-o",
       {1, kAllButDemo,
        [](const Values& v, Options& o) {
          o.output = v[0];
          return std::string();
        }}},
      {"--map",
       {1, kMappedOperations,
        [](const Values& v, Options& o) {
          const auto map = ParseMapType(v[0]);
          if (!map) {
            return BadValue("--map", v[0],
                            "0..10 or grey, rainbow, hot, diverging, isoluminant, rgb, "
                            "jet");
          }
          o.mapType = *map;
          return std::string();
        }}},
      {"--raw",
       {1, kAllButDemo,
        [](const Values& v, Options& o) {
          const auto layout = ParseRawLayout(v[0]);
          if (!layout) {
            return BadValue("--raw", v[0],
                            "WIDTHxHEIGHT:TYPE, TYPE one of u8 s8 u16 s16 s32 f32 f64");
          }
          o.raw = *layout;
          return std::string();
        }}},
      {"--resolution-x", {1, kRangeOperations, AxisSetter("--resolution-x", true, 0)}},
      {"--resolution-y", {1, kRangeOperations, AxisSetter("--resolution-y", true, 1)}},
      {"--resolution-z", {1, kRangeOperations, AxisSetter("--resolution-z", true, 2)}},
      {"--offset-x", {1, kRangeOperations, AxisSetter("--offset-x", false, 0)}},
      {"--offset-y", {1, kRangeOperations, AxisSetter("--offset-y", false, 1)}},
      {"--offset-z", {1, kRangeOperations, AxisSetter("--offset-z", false, 2)}},
      {"--stats",
       {0, kAllButDemo,
        [](const Values&, Options& o) {
          o.stats = true;
          return std::string();
        }}},
      {"--jobs",
       {1, kAllButDemo,
        [](const Values& v, Options& o) {
          const auto jobs = ParseInteger(v[0]);
          if (!jobs || *jobs < 0) return BadValue("--jobs", v[0], "a count >= 0");
          o.jobs = *jobs;
          return std::string();
        }}},
      {"--bounds",
       {2,
        {Operation::kEqualize, Operation::kLinear, Operation::kGrey},
        [](const Values& v, Options& o) {
          const auto low = ParseNumber(v[0]);
          const auto high = ParseNumber(v[1]);
          if (!low) return BadValue("--bounds", v[0], "a number");
          if (!high) return BadValue("--bounds", v[1], "a number");
          o.bounds = std::make_pair(*low, *high);
          return std::string();
        }}},
      {"--index",
       {2,
        {Operation::kEqualize, Operation::kLinear, Operation::kGrey},
        [](const Values& v, Options& o) {
          const auto low = ParseInteger(v[0]);
          const auto high = ParseInteger(v[1]);
          if (!low) return BadValue("--index", v[0], "a whole number");
          if (!high) return BadValue("--index", v[1], "a whole number");
          o.indexRange = std::make_pair(*low, *high);
          return std::string();
        }}},
      {"--below",
       {1,
        {Operation::kEqualize, Operation::kLinear, Operation::kGrey, Operation::kScale},
        [](const Values& v, Options& o) {
          const auto rgb = ParseRgb(v[0]);
          if (!rgb) return BadValue("--below", v[0], "R,G,B with each 0..255");
          o.below = *rgb;
          return std::string();
        }}},
      {"--above",
       {1,
        {Operation::kEqualize, Operation::kLinear, Operation::kGrey, Operation::kScale},
        [](const Values& v, Options& o) {
          const auto rgb = ParseRgb(v[0]);
          if (!rgb) return BadValue("--above", v[0], "R,G,B with each 0..255");
          o.above = *rgb;
          return std::string();
        }}},
      {"--percentile",
       {2,
        {Operation::kLinear},
        [](const Values& v, Options& o) {
          const auto low = ParseNumber(v[0]);
          const auto high = ParseNumber(v[1]);
          if (!low) return BadValue("--percentile", v[0], "a number");
          if (!high) return BadValue("--percentile", v[1], "a number");
          o.percentile = std::make_pair(*low, *high);
          return std::string();
        }}},
      {"--array",
       {0,
        {Operation::kEqualize, Operation::kLinear, Operation::kScale},
        [](const Values&, Options& o) {
          o.asArray = true;
          return std::string();
        }}},
      {"--equalize",
       {0,
        {Operation::kGrey},
        [](const Values&, Options& o) {
          o.equalizeGrey = true;
          return std::string();
        }}},
      {"--auto",
       {0,
        {Operation::kScale},
        [](const Values&, Options& o) {
          o.automatic = true;
          return std::string();
        }}},
      {"--values",
       {1,
        {Operation::kScale},
        [](const Values& v, Options& o) {
          const auto values = ParseList<double, 5>(v[0], ParseNumber);
          if (!values) return BadValue("--values", v[0], "five numbers V0,...,V4");
          o.scaleValues = *values;
          return std::string();
        }}},
      {"--indices",
       {1,
        {Operation::kScale},
        [](const Values& v, Options& o) {
          const auto indices = ParseList<int, 5>(v[0], ParseInteger);
          if (!indices) {
            return BadValue("--indices", v[0], "five whole numbers I0,...,I4");
          }
          o.scaleIndices = *indices;
          return std::string();
        }}},
      {"--legend",
       {1,
        {Operation::kScale},
        [](const Values& v, Options& o) {
          o.legendPath = v[0];
          return std::string();
        }}},
      {"--segmented",
       {0,
        {Operation::kScale},
        [](const Values&, Options& o) {
          o.segmented = true;
          return std::string();
        }}},
      {"--light",
       {1,
        {Operation::kShade},
        [](const Values& v, Options& o) {
          const auto xyz = ParseList<float, 3>(v[0], ParseFloatNumber);
          if (!xyz) return BadValue("--light", v[0], "X,Y,Z");
          o.light = *xyz;
          return std::string();
        }}},
      {"--eye",
       {1,
        {Operation::kShade},
        [](const Values& v, Options& o) {
          const auto xyz = ParseList<float, 3>(v[0], ParseFloatNumber);
          if (!xyz) return BadValue("--eye", v[0], "X,Y,Z");
          o.eye = *xyz;
          return std::string();
        }}},
      {"--coefficients",
       {1,
        {Operation::kShade},
        [](const Values& v, Options& o) {
          const auto c = ParseList<float, 4>(v[0], ParseFloatNumber);
          if (!c) {
            return BadValue("--coefficients", v[0], "GAIN,AMBIENT,DIFFUSE,SPECULAR");
          }
          o.coefficients = *c;
          return std::string();
        }}},
      {"--alpha",
       {1,
        {Operation::kBlend},
        [](const Values& v, Options& o) {
          const auto alpha = ParseNumber(v[0]);
          if (!alpha) return BadValue("--alpha", v[0], "a number");
          o.alpha = *alpha;
          return std::string();
        }}},
  };
  return rules;
}

// Combinations that have no meaning; single values are the library's to judge, so that its own
// status names reach the user.
std::string CheckCombination(const Options& o, const std::set<std::string>& given) {
  const auto has = [&given](const char* name) { return given.count(name) > 0; };
  const std::string op = OperationName(o.operation);
  if (o.operation == Operation::kDemo) {
    if (o.inputs.size() != 1) return "demo takes one output folder: kivlut demo OUTDIR";
    return "";
  }
  if (o.inputs.empty()) return op + ": no input given";
  if (o.operation == Operation::kBlend && o.inputs.size() != 2) {
    return "blend takes exactly two pictures: kivlut blend A B --alpha ALPHA";
  }
  if (has("--index") && !has("--bounds")) return "--index needs --bounds";
  if ((has("--below") || has("--above")) && o.operation != Operation::kScale && !has("--index")) {
    return "--below and --above need --bounds and --index";
  }
  if (has("--percentile") && has("--bounds")) return "--percentile and --bounds exclude each other";
  if (o.asArray && (has("--index") || has("--percentile") || has("--legend") || o.segmented)) {
    return "--array takes none of --index, --percentile, --legend, --segmented";
  }
  if (o.equalizeGrey && has("--bounds")) return "--equalize and --bounds exclude each other";
  if (o.operation == Operation::kScale) {
    if (o.automatic == o.scaleValues.has_value()) return "scale needs either --auto or --values";
    if (o.automatic && has("--indices")) return "--indices does not apply with --auto";
  }
  return "";
}

}  // namespace

const char* OperationName(Operation operation) {
  switch (operation) {
    case Operation::kEqualize:
      return "equalize";
    case Operation::kLinear:
      return "linear";
    case Operation::kScale:
      return "scale";
    case Operation::kNormals:
      return "normals";
    case Operation::kShade:
      return "shade";
    case Operation::kGrey:
      return "grey";
    case Operation::kBlend:
      return "blend";
    case Operation::kDemo:
      return "demo";
  }
  return "?";
}

std::optional<int> ParseMapType(const std::string& text) {
  for (int i = 0; i < kNamedMapCount; ++i) {
    if (text == kMapNames[i]) return i;
  }
  const auto number = ParseInteger(text);
  if (number && *number >= 0 && *number <= 10) return number;
  return std::nullopt;
}

std::string MapName(int mapType) {
  if (mapType >= 0 && mapType < kNamedMapCount) return kMapNames[mapType];
  return "map" + std::to_string(mapType);
}

ParsedCommandLine ParseCommandLine(const std::vector<std::string>& args) {
  ParsedCommandLine parsed;
  if (args.empty()) {
    parsed.error = "no operation given (try kivlut --help)";
    return parsed;
  }
  for (const std::string& arg : args) {
    if (arg == "-h" || arg == "--help") {
      parsed.help = true;
      return parsed;
    }
  }
  const auto word = OperationWords().find(args[0]);
  if (word == OperationWords().end()) {
    parsed.error = "unknown operation '" + args[0] +
                   "' (use equalize, linear, scale, normals, shade, grey, blend or demo)";
    return parsed;
  }
  Options options;
  options.operation = word->second;
  std::set<std::string> given;
  for (size_t i = 1; i < args.size(); ++i) {
    std::string name = args[i];
    std::vector<std::string> values;
    if (name.size() > 1 && name[0] == '-' && !ParseNumber(name)) {
      const size_t equals = name.find('=');
      if (equals != std::string::npos) {
        values.push_back(name.substr(equals + 1));
        name = name.substr(0, equals);
      }
      if (name == "--output") name = "-o";
      const auto rule = OptionRules().find(name);
      if (rule == OptionRules().end()) {
        parsed.error = "unknown option '" + name + "' (try kivlut --help)";
        return parsed;
      }
      if (!rule->second.operations.count(options.operation)) {
        parsed.error = name + " does not apply to " + OperationName(options.operation);
        return parsed;
      }
      const size_t needed = static_cast<size_t>(rule->second.valueCount);
      if (values.size() > needed) {
        parsed.error = name + " takes no value";
        return parsed;
      }
      while (values.size() < needed && i + 1 < args.size()) values.push_back(args[++i]);
      if (values.size() < needed) {
        parsed.error = name + ": missing value";
        return parsed;
      }
      const std::string problem = rule->second.apply(values, options);
      if (!problem.empty()) {
        parsed.error = problem;
        return parsed;
      }
      given.insert(name);
    } else {
      options.inputs.push_back(args[i]);
    }
  }
  const std::string problem = CheckCombination(options, given);
  if (!problem.empty()) {
    parsed.error = problem;
    return parsed;
  }
  parsed.options = options;
  return parsed;
}

std::string UsageText() {
  return R"(NAME
    kivlut - colour range images, grey images and pictures with KivLUTSetting

SYNOPSIS
    kivlut OPERATION INPUT... [-o OUTPUT] [options]
    kivlut blend A B [--alpha ALPHA] [-o OUTPUT]
    kivlut demo OUTDIR
    kivlut --help

DESCRIPTION
    Reads each INPUT (a file, or a folder whose .png, .tif, .tiff, .pfm (and with --raw .raw)
    files are all processed, in parallel), maps it with OPERATION and writes a colour picture.
    Without -o the picture goes beside its input as NAME.OPERATION.png. With -o, OUTPUT is the
    picture for a single input file (its extension picks the format: anything OpenCV writes),
    and a folder for several inputs or a folder input. Pictures are written to a temporary file
    and renamed, so a failure never leaves a half-written picture.

    Range-image inputs: 8- and 16-bit PNG and TIFF, 32-bit float TIFF, PFM, or raw. Each type
    has its invalid marker (0 for unsigned types, the most negative value for signed ones,
    -FLT_MAX / -DBL_MAX), and NaN and infinities are invalid too. Bounds and break values are
    physical heights, (raw - offset-z) x resolution-z for integer pixels.

OPERATIONS
    equalize   histogram-equalised colouring (ColorMapLUT); bounds from the data, or
               --bounds LOW HIGH, or --bounds with --index LO HI and --below/--above colours.
    linear     linear colouring (LinearColorMapLUT) between the data's minimum and maximum,
               --bounds LOW HIGH (optionally with --index, --below, --above), or
               --percentile LOW HIGH (per cent of the valid pixels cut from each end).
    scale      the five-point scale: --auto, or --values V0,...,V4 with --indices I0,...,I4
               (entries 0..1023 of the 1024-entry tables; default 0,127,511,895,1023);
               --below/--above colour values outside V0..V4; --legend FILE writes the
               histogram chart; --segmented writes the four-segment picture instead.
    normals    the normal map of the range image's surface normals.
    shade      Phong shading of the equalised colouring: --light X,Y,Z and --eye X,Y,Z in the
               image's point coordinates (default: light above the top-left corner, eye above
               the centre), --coefficients GAIN,AMBIENT,DIFFUSE,SPECULAR (default 1,0.3,0.6,0.3).
    grey       grey images (8- or 16-bit, one channel): linear by default, --equalize for the
               equalised colouring, or --bounds LOW HIGH --index LO HI [--below] [--above].
    blend      mixes two 8-bit pictures of the same pixel count: A x ALPHA + B x (1 - ALPHA).
    demo       generates a range image of machined parts and writes into OUTDIR every map under
               every mapping, the legend chart, the normal map and the shading, with index.html.

OPTIONS
    -o, --output OUTPUT    output picture or folder
    --map MAP              colour map 0..10 or grey, rainbow, hot, diverging, isoluminant, rgb,
                           jet (default rainbow; 7..10 colour in grey)
    --raw WxH:TYPE         read inputs as headerless little-endian pixels, TYPE one of
                           u8 s8 u16 s16 s32 f32 f64
    --resolution-x/-y/-z V, --offset-x/-y/-z V
                           the range image's resolution and offset per axis (default 1 and 0)
    --bounds LOW HIGH      bounds in physical units (grey: whole grey levels)
    --index LO HI          table entries used inside the bounds (0..255)
    --below R,G,B          colour of values below the bounds (default 0,0,0)
    --above R,G,B          colour of values above the bounds (default 255,255,255)
    --percentile LOW HIGH  linear: bounds at these percentiles of the valid pixels
    --array                equalize, linear, scale: colour the pixels as a flat array (integer
                           pixels as a Kiv3DIntArray of raw values, float pixels as a
                           Kiv3DFloatArray of heights)
    --equalize             grey: equalised instead of linear
    --auto, --values, --indices, --legend FILE, --segmented
                           scale, see above
    --light, --eye, --coefficients
                           shade, see above
    --alpha ALPHA          blend weight of A (default 0.5)
    --stats                print what the mapping measured: minimum, maximum, valid pixels,
                           bounds used
    --jobs N               files coloured at once (default: one per core)
    -h, --help             this text

EXIT STATUS
    0 when every picture was written, 1 when any input failed (the others are still written;
    each failure is one line naming the file, with the library's status name), 2 for a bad
    command line.

EXAMPLES
    kivlut equalize depth.png --map jet --resolution-z 0.001
    kivlut linear frames/ --percentile 2 98 -o coloured/
    kivlut scale depth.pfm --auto --legend legend.png
    kivlut shade part.raw --raw 640x480:u16 --resolution-z 0.001 --map hot
    kivlut demo gallery/
)";
}

}  // namespace kivlut
