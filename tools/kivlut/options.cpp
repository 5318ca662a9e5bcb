// The command line. Every option is one row of a table (name, argument, the operations it
// belongs to, how its values are stored, its help); parsing, the refusal of an option that does
// not belong to the operation, and the OPTIONS section of --help are all read from it.
#include "options.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <set>
#include <sstream>

#include "frame_io.h"

namespace kivlut {
namespace {

struct OperationWord {
  Operation operation;
  const char* word;
};

constexpr OperationWord kOperationWords[] = {
    {Operation::kEqualize, "equalize"}, {Operation::kLinear, "linear"},
    {Operation::kScale, "scale"},       {Operation::kNormals, "normals"},
    {Operation::kShade, "shade"},       {Operation::kGrey, "grey"},
    {Operation::kBlend, "blend"},       {Operation::kDemo, "demo"}};

// Maps 7..10 have no name and colour in grey.
constexpr int kHighestMap = 10;

// "a, b, c" with `beforeLast` in place of the last ", ".
std::string Listed(const std::vector<std::string>& words, const std::string& beforeLast) {
  std::string text;
  for (size_t i = 0; i < words.size(); ++i) {
    if (i > 0) text += i + 1 == words.size() ? beforeLast : ", ";
    text += words[i];
  }
  return text;
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

// N comma-separated values, each parsed by ParseElement.
template <typename T, size_t N, auto ParseElement>
std::optional<std::array<T, N>> ParseList(const std::string& text) {
  const std::vector<std::string> parts = SplitCommas(text);
  if (parts.size() != N) return std::nullopt;
  std::array<T, N> values{};
  for (size_t i = 0; i < N; ++i) {
    const auto value = ParseElement(parts[i]);
    if (!value) return std::nullopt;
    values[i] = static_cast<T>(*value);
  }
  return values;
}

std::optional<Rgb> ParseRgb(const std::string& text) {
  const auto values = ParseList<int, 3, ParseInteger>(text);
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

std::optional<int> ParseCount(const std::string& text) {
  const auto count = ParseInteger(text);
  if (!count || *count < 0) return std::nullopt;
  return count;
}

std::optional<std::string> ParseText(const std::string& text) { return text; }

// How the word of a value becomes a T, and what a bad word should have been.
template <typename T>
struct ValueKind {
  std::optional<T> (*parse)(const std::string&);
  std::string expected;
};

const ValueKind<std::string> kText{ParseText, ""};
const ValueKind<double> kNumber{ParseNumber, "a number"};
const ValueKind<int> kWholeNumber{ParseInteger, "a whole number"};
const ValueKind<int> kCount{ParseCount, "a count >= 0"};
const ValueKind<Rgb> kColour{ParseRgb, "R,G,B with each 0..255"};
const ValueKind<std::array<float, 3>> kPoint{ParseList<float, 3, ParseFloatNumber>, "X,Y,Z"};
const ValueKind<std::array<float, 4>> kCoefficients{ParseList<float, 4, ParseFloatNumber>,
                                                    "GAIN,AMBIENT,DIFFUSE,SPECULAR"};
const ValueKind<std::array<double, 5>> kBreakValues{ParseList<double, 5, ParseNumber>,
                                                    "five numbers V0,...,V4"};
const ValueKind<std::array<int, 5>> kBreakIndices{ParseList<int, 5, ParseInteger>,
                                                  "five whole numbers I0,...,I4"};

ValueKind<int> MapKind() {
  const std::vector<std::string> names(std::begin(kMapNames), std::end(kMapNames));
  return {ParseMapType, "0.." + std::to_string(kHighestMap) + " or " + Listed(names, ", ")};
}

ValueKind<RawLayout> RawLayoutKind() {
  std::string types;
  for (int type = KIVMV::KIV_DATA_U8; type <= KIVMV::KIV_DATA_F64; ++type) {
    types += std::string(type > KIVMV::KIV_DATA_U8 ? " " : "") +
             PixelTypeName(static_cast<KIVMV::KivDataType>(type));
  }
  return {ParseRawLayout, "WIDTHxHEIGHT:TYPE, TYPE one of " + types};
}

using Values = std::vector<std::string>;
// Stores the values of the option named first; returns why they are bad, or "" when they are
// fine.
using Setter = std::function<std::string(const std::string&, const Values&, Options&)>;

std::string BadValue(const std::string& option, const std::string& value,
                     const std::string& expected) {
  return option + ": bad value '" + value + "' (expected " + expected + ")";
}

// Parses every value by `kind`, the first bad one refused, and hands them all to `store`.
template <typename T, typename Store>
Setter Parsed(ValueKind<T> kind, Store store) {
  return [kind, store](const std::string& option, const Values& words, Options& o) {
    std::vector<T> values;
    for (const std::string& word : words) {
      const std::optional<T> value = kind.parse(word);
      if (!value) return BadValue(option, word, kind.expected);
      values.push_back(*value);
    }
    store(o, values);
    return std::string();
  };
}

// The one value into `field`.
template <typename T, typename Field>
Setter Store(Field Options::*field, ValueKind<T> kind) {
  return Parsed(kind, [field](Options& o, const std::vector<T>& v) { o.*field = v[0]; });
}

// The two values, low and high, into `field`.
template <typename T>
Setter StorePair(std::optional<std::pair<T, T>> Options::*field, ValueKind<T> kind) {
  return Parsed(kind, [field](Options& o, const std::vector<T>& v) {
    o.*field = std::make_pair(v[0], v[1]);
  });
}

// One axis of the resolution or of the offset.
Setter StoreAxis(std::array<double, 3> Axes::*axes, int axis) {
  return Parsed(kNumber, [axes, axis](Options& o, const std::vector<double>& v) {
    (o.axes.*axes)[axis] = v[0];
  });
}

// A switch: given means true.
Setter Raise(bool Options::*field) {
  return [field](const std::string&, const Values&, Options& o) {
    o.*field = true;
    return std::string();
  };
}

// The operations an option belongs to; an option given to another operation is an error, so a
// misspelt intention never runs silently with defaults.
using OperationSet = std::set<Operation>;
const OperationSet kAllButDemo = {Operation::kEqualize, Operation::kLinear, Operation::kScale,
                                  Operation::kNormals,  Operation::kShade,  Operation::kGrey,
                                  Operation::kBlend};
const OperationSet kMappedOperations = {Operation::kEqualize, Operation::kLinear, Operation::kScale,
                                        Operation::kShade, Operation::kGrey};
const OperationSet kRangeOperations = {Operation::kEqualize, Operation::kLinear, Operation::kScale,
                                       Operation::kNormals, Operation::kShade};
const OperationSet kBoundedOperations = {Operation::kEqualize, Operation::kLinear,
                                         Operation::kGrey};
const OperationSet kOutsideColourOperations = {Operation::kEqualize, Operation::kLinear,
                                               Operation::kGrey, Operation::kScale};
const OperationSet kArrayOperations = {Operation::kEqualize, Operation::kLinear, Operation::kScale};

OperationSet Only(Operation operation) { return {operation}; }

struct OptionEntry {
  const char* name;
  const char* argument;  // the values in --help, one word each; "" for a switch
  OperationSet operations;
  Setter set;
  // Its --help text, a line break where the text continues on the next line; nullptr when the
  // option is explained together with the one above it.
  const char* help;
  const char* heading = nullptr;  // --help's left column when it is not "NAME ARGUMENT"
};

// In the order --help lists them.
const std::vector<OptionEntry>& OptionTable() {
  static const std::vector<OptionEntry> table = {
      {"-o", "OUTPUT", kAllButDemo, Store(&Options::output, kText), "output picture or folder"},
      {"--map", "MAP", kMappedOperations, Store(&Options::mapType, MapKind()),
       "colour map 0..10 or grey, rainbow, hot, diverging, isoluminant, rgb,\n"
       "jet (default rainbow; 7..10 colour in grey)"},
      {"--raw", "WxH:TYPE", kAllButDemo, Store(&Options::raw, RawLayoutKind()),
       "read inputs as headerless little-endian pixels, TYPE one of\nu8 s8 u16 s16 s32 f32 f64"},
      {"--resolution-x", "V", kRangeOperations, StoreAxis(&Axes::resolution, 0),
       "the range image's resolution and offset per axis (default 1 and 0)",
       "--resolution-x/-y/-z V, --offset-x/-y/-z V"},
      {"--resolution-y", "V", kRangeOperations, StoreAxis(&Axes::resolution, 1), nullptr},
      {"--resolution-z", "V", kRangeOperations, StoreAxis(&Axes::resolution, 2), nullptr},
      {"--offset-x", "V", kRangeOperations, StoreAxis(&Axes::offset, 0), nullptr},
      {"--offset-y", "V", kRangeOperations, StoreAxis(&Axes::offset, 1), nullptr},
      {"--offset-z", "V", kRangeOperations, StoreAxis(&Axes::offset, 2), nullptr},
      {"--bounds", "LOW HIGH", kBoundedOperations, StorePair(&Options::bounds, kNumber),
       "bounds in physical units (grey: whole grey levels)"},
      {"--index", "LO HI", kBoundedOperations, StorePair(&Options::indexRange, kWholeNumber),
       "table entries used inside the bounds (0..255)"},
      {"--below", "R,G,B", kOutsideColourOperations, Store(&Options::below, kColour),
       "colour of values below the bounds (default 0,0,0)"},
      {"--above", "R,G,B", kOutsideColourOperations, Store(&Options::above, kColour),
       "colour of values above the bounds (default 255,255,255)"},
      {"--percentile", "LOW HIGH", Only(Operation::kLinear),
       StorePair(&Options::percentile, kNumber),
       "linear: bounds at these percentiles of the valid pixels"},
      {"--array", "", kArrayOperations, Raise(&Options::asArray),
       "equalize, linear, scale: colour the pixels as a flat array (integer\n"
       "pixels as a Kiv3DIntArray of raw values, float pixels as a\nKiv3DFloatArray of heights)"},
      {"--equalize", "", Only(Operation::kGrey), Raise(&Options::equalizeGrey),
       "grey: equalised instead of linear"},
      {"--auto", "", Only(Operation::kScale), Raise(&Options::automatic), "scale, see above",
       "--auto, --values, --indices, --legend FILE, --segmented"},
      {"--values", "V0,...,V4", Only(Operation::kScale), Store(&Options::scaleValues, kBreakValues),
       nullptr},
      {"--indices", "I0,...,I4", Only(Operation::kScale),
       Store(&Options::scaleIndices, kBreakIndices), nullptr},
      {"--legend", "FILE", Only(Operation::kScale), Store(&Options::legendPath, kText), nullptr},
      {"--segmented", "", Only(Operation::kScale), Raise(&Options::segmented), nullptr},
      {"--light", "X,Y,Z", Only(Operation::kShade), Store(&Options::light, kPoint),
       "shade, see above", "--light, --eye, --coefficients"},
      {"--eye", "X,Y,Z", Only(Operation::kShade), Store(&Options::eye, kPoint), nullptr},
      {"--coefficients", "GAIN,AMBIENT,DIFFUSE,SPECULAR", Only(Operation::kShade),
       Store(&Options::coefficients, kCoefficients), nullptr},
      {"--alpha", "ALPHA", Only(Operation::kBlend), Store(&Options::alpha, kNumber),
       "blend weight of A (default 0.5)"},
      {"--stats", "", kAllButDemo, Raise(&Options::stats),
       "print what the mapping measured: minimum, maximum, valid pixels,\nbounds used"},
      {"--jobs", "N", kAllButDemo, Store(&Options::jobs, kCount),
       "files coloured at once (default: one per core)"},
  };
  return table;
}

// Other spellings of an option, each with the name it stands for.
constexpr std::pair<const char*, const char*> kAliases[] = {{"--output", "-o"}};

const OptionEntry* FindOption(const std::string& name) {
  std::string canonical = name;
  for (const auto& alias : kAliases) {
    if (name == alias.first) canonical = alias.second;
  }
  for (const OptionEntry& entry : OptionTable()) {
    if (canonical == entry.name) return &entry;
  }
  return nullptr;
}

size_t ValueCount(const OptionEntry& entry) {
  std::istringstream words(entry.argument);
  size_t count = 0;
  for (std::string word; words >> word;) ++count;
  return count;
}

// "-o, --output OUTPUT": the name, its other spellings, the argument.
std::string Heading(const OptionEntry& entry) {
  if (entry.heading != nullptr) return entry.heading;
  std::string heading = entry.name;
  for (const auto& alias : kAliases) {
    if (std::string(alias.second) == entry.name) heading += std::string(", ") + alias.first;
  }
  if (*entry.argument != '\0') heading += std::string(" ") + entry.argument;
  return heading;
}

// One entry of OPTIONS: the heading indented by 4, the text from column 27, further lines of the
// text indented to it; a heading too wide to leave two spaces before the text stands alone.
std::string HelpEntry(const std::string& heading, const std::string& text) {
  constexpr size_t kTextColumn = 27;
  std::string entry = "    " + heading;
  if (entry.size() + 2 <= kTextColumn) {
    entry.resize(kTextColumn, ' ');
  } else {
    entry += "\n" + std::string(kTextColumn, ' ');
  }
  for (const char c : text) {
    entry += c == '\n' ? "\n" + std::string(kTextColumn, ' ') : std::string(1, c);
  }
  return entry + "\n";
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
  for (const OperationWord& entry : kOperationWords) {
    if (entry.operation == operation) return entry.word;
  }
  return "?";
}

std::optional<int> ParseMapType(const std::string& text) {
  for (int i = 0; i < kNamedMapCount; ++i) {
    if (text == kMapNames[i]) return i;
  }
  const auto number = ParseInteger(text);
  if (number && *number >= 0 && *number <= kHighestMap) return number;
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
  Options options;
  std::vector<std::string> operationWords;
  const OperationWord* operation = nullptr;
  for (const OperationWord& entry : kOperationWords) {
    operationWords.push_back(entry.word);
    if (args[0] == entry.word) operation = &entry;
  }
  if (operation == nullptr) {
    parsed.error =
        "unknown operation '" + args[0] + "' (use " + Listed(operationWords, " or ") + ")";
    return parsed;
  }
  options.operation = operation->operation;
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
      const OptionEntry* entry = FindOption(name);
      if (entry == nullptr) {
        parsed.error = "unknown option '" + name + "' (try kivlut --help)";
        return parsed;
      }
      name = entry->name;
      if (!entry->operations.count(options.operation)) {
        parsed.error = name + " does not apply to " + OperationName(options.operation);
        return parsed;
      }
      const size_t needed = ValueCount(*entry);
      if (values.size() > needed) {
        parsed.error = name + " takes no value";
        return parsed;
      }
      while (values.size() < needed && i + 1 < args.size()) values.push_back(args[++i]);
      if (values.size() < needed) {
        parsed.error = name + ": missing value";
        return parsed;
      }
      const std::string problem = entry->set(name, values, options);
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
  std::string options = "OPTIONS\n";
  for (const OptionEntry& entry : OptionTable()) {
    if (entry.help != nullptr) options += HelpEntry(Heading(entry), entry.help);
  }
  options += HelpEntry("-h, --help", "this text");
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

)" + options +
         R"(
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
