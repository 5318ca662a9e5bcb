// The command line. Every option is one row of a table (name, argument, the operations it
// belongs to, how its values are stored, its help); parsing, the refusal of an option that does
// not belong to the operation, and the OPTIONS section of --help are all read from it.
#include "options.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
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

// The five-point scale's tables start at map 1: KivLUTSetting refuses map 0 there.
constexpr int kLowestScaleMap = 1;

// The tables beyond KivLUTSetting's that equalize and linear colour with (KivColorTable::ByName).
constexpr const char* kTableNames[] = {"viridis", "magma", "inferno", "plasma",
                                       "cividis", "turbo", "twilight"};

// The last table entry an --index range may name, and the five-point scale's last entry.
constexpr int kLastIndex = 255;
constexpr int kLastScaleIndex = 1023;

std::string Lowered(const std::string& text) {
  std::string lowered = text;
  for (char& c : lowered) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lowered;
}

bool IsTableName(const std::string& lowered) {
  for (const char* name : kTableNames) {
    if (lowered == name) return true;
  }
  return false;
}

// The operations that colour through the API beyond KivLUTSetting: the other tables, --reverse,
// the no-data colour, transparency, the colour bar.
bool TakesOtherTables(Operation operation) {
  return operation == Operation::kEqualize || operation == Operation::kLinear;
}

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

// What --map takes for `operation`, for the message of a bad value.
std::string MapChoices(Operation operation) {
  std::vector<std::string> names(std::begin(kMapNames), std::end(kMapNames));
  if (TakesOtherTables(operation)) {
    names.insert(names.end(), std::begin(kTableNames), std::end(kTableNames));
  }
  const int lowest = operation == Operation::kScale ? kLowestScaleMap : 0;
  return std::to_string(lowest) + ".." + std::to_string(kHighestMap) + " or " + Listed(names, ", ");
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

// --map: a number or a name of KivLUTSetting's maps into mapType, or one of the other tables
// (any case) into tableName; the last --map given wins.
Setter StoreMap() {
  return [](const std::string& option, const Values& words, Options& o) {
    const std::string lowered = Lowered(words[0]);
    if (IsTableName(lowered)) {
      if (!TakesOtherTables(o.operation)) {
        return std::string(OperationName(o.operation)) +
               " colours with KivLUTSetting's maps only: " + option + " " + words[0] +
               " is for equalize and linear (use " + MapChoices(o.operation) + ")";
      }
      o.tableName = lowered;
      return std::string();
    }
    const std::optional<int> map = ParseMapType(words[0]);
    if (!map) return BadValue(option, words[0], MapChoices(o.operation));
    o.mapType = *map;
    o.tableName.clear();
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
const OperationSet kOtherTableOperations = {Operation::kEqualize, Operation::kLinear};
// Everything but blend, whose two pictures are files and measure no heights.
const OperationSet kFrameOperations = {Operation::kEqualize, Operation::kLinear, Operation::kScale,
                                       Operation::kNormals,  Operation::kShade,  Operation::kGrey};

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
      {"-o", "OUTPUT", kAllButDemo, Store(&Options::output, kText),
       "output picture or folder\n"
       "OUT.avi (MJPG) or OUT.mp4 (mp4v): one video of every frame, in natural\n"
       "name order, instead of pictures"},
      {"--map", "MAP", kMappedOperations, StoreMap(),
       "colour map 0..10 or grey, rainbow, hot, diverging, isoluminant, rgb,\n"
       "jet (default rainbow; 7..10 colour in grey; scale takes 1..10); for\n"
       "equalize and linear also viridis, magma, inferno, plasma, cividis,\n"
       "turbo, twilight; names in any case"},
      {"--reverse", "", kOtherTableOperations, Raise(&Options::reverse),
       "equalize, linear: the map's colours in the opposite order"},
      {"--invalid", "R,G,B", kOtherTableOperations, Store(&Options::invalid, kColour),
       "equalize, linear: colour of no-data pixels (default: the map's own\n"
       "no-data colour)"},
      {"--transparent", "", kOtherTableOperations, Raise(&Options::transparent),
       "equalize, linear: a picture with alpha, 0 on no-data pixels (write it\n"
       "as PNG)"},
      {"--colorbar", "", kOtherTableOperations, Raise(&Options::colorbar),
       "equalize, linear: a colour bar in the input's units beside the picture"},
      {"--unit", "TEXT", kRangeOperations, Store(&Options::unit, kText),
       "the unit of the heights, written on the colour bar and in --json\n"
       "(default none)"},
      {"--exact", "", kRangeOperations, Raise(&Options::exact),
       "KivLUTSetting's own output bytes, unchanged: no-data pixels and the\n"
       "normal map's chunk bands as its methods paint them (see\n"
       "docs/kivlut.md); takes none of the other tables, --reverse,\n"
       "--invalid, --transparent"},
      {"--raw", "WxH:TYPE", kAllButDemo, Store(&Options::raw, RawLayoutKind()),
       "read inputs as headerless little-endian pixels, TYPE one of\nu8 s8 u16 s16 s32 f32 f64"},
      {"--resolution-x", "V", kRangeOperations, StoreAxis(&Axes::resolution, 0),
       "the range image's resolution and offset per axis (default 1 and 0);\n"
       "a resolution must be above 0, zero and negative ones are refused;\n"
       "shade and normals need all three (z alone: a warning)",
       "--resolution-x/-y/-z V, --offset-x/-y/-z V"},
      {"--resolution-y", "V", kRangeOperations, StoreAxis(&Axes::resolution, 1), nullptr},
      {"--resolution-z", "V", kRangeOperations, StoreAxis(&Axes::resolution, 2), nullptr},
      {"--offset-x", "V", kRangeOperations, StoreAxis(&Axes::offset, 0), nullptr},
      {"--offset-y", "V", kRangeOperations, StoreAxis(&Axes::offset, 1), nullptr},
      {"--offset-z", "V", kRangeOperations, StoreAxis(&Axes::offset, 2), nullptr},
      {"--bounds", "LOW HIGH", kBoundedOperations, StorePair(&Options::bounds, kNumber),
       "bounds in physical units, LOW below HIGH (grey: whole grey levels)"},
      {"--index", "LO HI", kBoundedOperations, StorePair(&Options::indexRange, kWholeNumber),
       "table entries used inside the bounds, 0 <= LO <= HI <= 255 (default\n"
       "0 255 with --below or --above)"},
      {"--below", "R,G,B", kOutsideColourOperations, Store(&Options::below, kColour),
       "colour of values below the bounds (default 0,0,0); with --bounds\n"
       "alone the whole table is used inside them"},
      {"--above", "R,G,B", kOutsideColourOperations, Store(&Options::above, kColour),
       "colour of values above the bounds (default 255,255,255)"},
      {"--percentile", "LOW HIGH", Only(Operation::kLinear),
       StorePair(&Options::percentile, kNumber),
       "linear: bounds at these percentiles of the valid pixels,\n"
       "0 <= LOW < HIGH <= 100"},
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
       "blend weight of A, 0..1 (default 0.5)"},
      {"--stats", "", kAllButDemo, Raise(&Options::stats),
       "print what the mapping measured: minimum, maximum, valid pixels,\nbounds used"},
      {"--json", "", kFrameOperations, Raise(&Options::json),
       "print the same as one JSON object per file on standard output:\n"
       "file, min, max, valid, bounds [LOW, HIGH], unit (NaN and unknown\n"
       "as null); nothing else goes there"},
      {"--recursive", "", kFrameOperations, Raise(&Options::recursive),
       "folder inputs with their subfolders; with -o the subfolders are\n"
       "repeated under OUTPUT"},
      {"--stable", "N", kOtherTableOperations, Store(&Options::stable, kNumber),
       "equalize, linear: the frames are a sequence, coloured in natural name\n"
       "order (f2 before f10) by one colouriser that carries bounds and\n"
       "histogram from frame to frame with a time constant of N frames (> 0);\n"
       "one frame after another whatever --jobs says; not with linear\n"
       "--bounds, --index, --array, --exact"},
      {"--fps", "F", kFrameOperations, Store(&Options::fps, kNumber),
       "with -o OUT.avi or OUT.mp4: the video's frame rate (default 10)"},
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

std::string Shown(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// Values that are wrong whatever the file, refused before any file is read: a run over a folder
// must not end in one identical library status line per frame.
std::string CheckValues(const Options& o) {
  static const char* kAxisNames[] = {"--resolution-x", "--resolution-y", "--resolution-z"};
  for (int axis = 0; axis < 3; ++axis) {
    if (!(o.axes.resolution[axis] > 0.0)) {
      return std::string(kAxisNames[axis]) + " must be above 0, got " +
             Shown(o.axes.resolution[axis]);
    }
  }
  if (o.bounds && !(o.bounds->first < o.bounds->second)) {
    return "--bounds: LOW must be below HIGH, got " + Shown(o.bounds->first) + " and " +
           Shown(o.bounds->second);
  }
  if (o.bounds && o.operation == Operation::kGrey) {
    for (const double level : {o.bounds->first, o.bounds->second}) {
      if (level != std::trunc(level) || std::fabs(level) > INT_MAX) {
        return "--bounds: grey levels must be whole numbers, got " + Shown(level);
      }
    }
  }
  if (o.indexRange) {
    const auto [low, high] = *o.indexRange;
    if (low < 0 || low > high || high > kLastIndex) {
      return "--index: needs 0 <= LO <= HI <= " + std::to_string(kLastIndex) + ", got " +
             std::to_string(low) + " and " + std::to_string(high);
    }
  }
  if (o.percentile) {
    const auto [low, high] = *o.percentile;
    if (!(low >= 0.0 && low < high && high <= 100.0)) {
      return "--percentile: needs 0 <= LOW < HIGH <= 100, got " + Shown(low) + " and " +
             Shown(high);
    }
  }
  if (o.operation == Operation::kScale) {
    if (o.mapType < kLowestScaleMap) {
      return "scale takes maps " + std::to_string(kLowestScaleMap) + ".." +
             std::to_string(kHighestMap) + ": KivLUTSetting's five-point scale has no map " +
             std::to_string(o.mapType) + " (" + MapName(o.mapType) + ")";
    }
    if (o.scaleValues) {
      const auto& v = *o.scaleValues;
      if (!std::is_sorted(v.begin(), v.end())) {
        return "--values: V0 <= V1 <= V2 <= V3 <= V4 needed, got " + Shown(v[0]) + "," +
               Shown(v[1]) + "," + Shown(v[2]) + "," + Shown(v[3]) + "," + Shown(v[4]);
      }
    }
    const auto& i = o.scaleIndices;
    if (i[0] < 0 || !std::is_sorted(i.begin(), i.end()) || i[4] > kLastScaleIndex) {
      return "--indices: 0 <= I0 <= I1 <= I2 <= I3 <= I4 <= " + std::to_string(kLastScaleIndex) +
             " needed, got " + std::to_string(i[0]) + "," + std::to_string(i[1]) + "," +
             std::to_string(i[2]) + "," + std::to_string(i[3]) + "," + std::to_string(i[4]);
    }
  }
  if (o.operation == Operation::kShade) {
    const auto& k = o.coefficients;
    if (!(k[0] > 0.0f && k[0] <= 10.0f)) {
      return "--coefficients: GAIN must be above 0 and at most 10, got " + Shown(k[0]);
    }
    for (int c = 1; c < 4; ++c) {
      if (!(k[c] >= 0.0f && k[c] <= 1.0f)) {
        static const char* kNames[] = {"GAIN", "AMBIENT", "DIFFUSE", "SPECULAR"};
        return std::string("--coefficients: ") + kNames[c] + " must be 0..1, got " + Shown(k[c]);
      }
    }
  }
  if (o.operation == Operation::kBlend && !(o.alpha >= 0.0 && o.alpha <= 1.0)) {
    return "--alpha must be 0..1, got " + Shown(o.alpha);
  }
  return "";
}

// --stable and a video output: what a sequence colouriser or a video cannot honour.
std::string CheckSequence(const Options& o, const std::set<std::string>& given) {
  const auto has = [&given](const char* name) { return given.count(name) > 0; };
  if (o.stable) {
    if (!(*o.stable > 0.0)) {
      return "--stable: N must be above 0 (a time constant in frames), got " + Shown(*o.stable);
    }
    if (o.exact) return "--stable colours through KivSequenceColorizer: --exact does not apply";
    if (o.asArray) return "--stable colours range images: --array does not apply";
    if (has("--index")) return "--stable uses the whole table: --index does not apply";
    if (o.operation == Operation::kLinear && has("--bounds")) {
      return "--stable carries measured or percentile bounds: linear with --bounds has nothing "
             "to carry (leave out --stable or --bounds)";
    }
  }
  const bool video = VideoContainerOf(o.output).has_value();
  if (has("--fps")) {
    if (!video) return "--fps sets the frame rate of a video: give -o OUT.avi or -o OUT.mp4";
    if (!(o.fps > 0.0)) return "--fps must be above 0, got " + Shown(o.fps);
  }
  if (video) {
    if (o.operation == Operation::kBlend) {
      return "blend writes one picture: -o " + o.output + " names a video, give a picture name";
    }
    if (o.transparent)
      return "a video has no alpha: --transparent does not apply to -o " + o.output;
    if (has("--legend")) {
      return "--legend writes a chart beside each picture: with -o " + o.output +
             " there is none (write pictures, or leave out --legend)";
    }
  }
  return "";
}

// Combinations that have no meaning, and the defaults one option gives another.
std::string CheckCombination(Options& o, const std::set<std::string>& given) {
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
  const bool outsideColours = has("--below") || has("--above");
  if (outsideColours && o.operation != Operation::kScale) {
    if (!has("--bounds")) return "--below and --above need --bounds";
    if (o.asArray) return "--array takes none of --below, --above (its forms have no such colours)";
    // Inside the bounds the whole table, as without the colours.
    if (!o.indexRange) o.indexRange = std::make_pair(0, kLastIndex);
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
  if (o.exact && (!o.tableName.empty() || o.reverse || o.invalid || o.transparent)) {
    return "--exact keeps KivLUTSetting's own output: it takes none of --map " +
           (o.tableName.empty() ? std::string("viridis") : o.tableName) +
           ", --reverse, --invalid, --transparent";
  }
  const std::string sequence = CheckSequence(o, given);
  if (!sequence.empty()) return sequence;
  if (o.json && o.stats) {
    return "--json and --stats exclude each other (--json prints the same numbers as JSON)";
  }
  if (has("--unit") && !o.colorbar && !o.json) {
    return "--unit is written on the colour bar and in --json: give --colorbar or --json";
  }
  return CheckValues(o);
}

}  // namespace

const char* OperationName(Operation operation) {
  for (const OperationWord& entry : kOperationWords) {
    if (entry.operation == operation) return entry.word;
  }
  return "?";
}

std::optional<int> ParseMapType(const std::string& text) {
  const std::string lowered = Lowered(text);
  for (int i = 0; i < kNamedMapCount; ++i) {
    if (lowered == kMapNames[i]) return i;
  }
  const auto number = ParseInteger(text);
  if (number && *number >= 0 && *number <= kHighestMap) return number;
  return std::nullopt;
}

std::optional<VideoContainer> VideoContainerOf(const std::string& output) {
  const std::string extension = Lowered(std::filesystem::path(output).extension().string());
  if (extension == ".avi") return VideoContainer::kAvi;
  if (extension == ".mp4") return VideoContainer::kMp4;
  return std::nullopt;
}

bool ColoursInSequence(const Options& options) {
  return options.stable.has_value() || VideoContainerOf(options.output).has_value();
}

std::vector<std::string> CommandLineWarnings(const Options& options) {
  std::vector<std::string> warnings;
  const bool relief =
      options.operation == Operation::kShade || options.operation == Operation::kNormals;
  const auto& resolution = options.axes.resolution;
  if (relief && resolution[2] != 1.0 && resolution[0] == 1.0 && resolution[1] == 1.0) {
    warnings.push_back(
        "only --resolution-z is set: x and y keep 1, so the relief is out of proportion (set "
        "--resolution-x and --resolution-y too)");
  }
  return warnings;
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
    files are all processed, in parallel; with --recursive those of its subfolders too), maps it
    with OPERATION and writes a colour picture.
    Without -o the picture goes beside its input as NAME.OPERATION.png. With -o, OUTPUT is the
    picture for a single input file (its extension picks the format: anything OpenCV writes),
    and a folder for several inputs or a folder input. Pictures are written to a temporary file
    and renamed, so a failure never leaves a half-written picture.

    Standard output carries only what --stats or --json ask for; progress, failures, warnings
    and anything the library itself prints go to standard error. Every value an option takes is
    checked before any file is read.

    Range-image inputs: 8- and 16-bit PNG and TIFF, 32-bit float TIFF, PFM, or raw. Each type
    has its invalid marker (0 for unsigned types, the most negative value for signed ones,
    -FLT_MAX / -DBL_MAX), and NaN and infinities are invalid too. Bounds and break values are
    physical heights, (raw - offset-z) x resolution-z for integer pixels.

OPERATIONS
    equalize   histogram-equalised colouring (ColorMapLUT); bounds from the data, or
               --bounds LOW HIGH, optionally with --below/--above colours and --index LO HI.
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
    each failure is one line naming the file, with the library's status name; a missing or
    unreadable file is such a failure), 2 for a bad command line or a bad option value. A run
    of several files ends with the line "N written, M failed" on standard error.

EXAMPLES
    kivlut equalize depth.png --map jet --resolution-z 0.001
    kivlut linear frames/ --percentile 2 98 -o coloured/
    kivlut scale depth.pfm --auto --legend legend.png
    kivlut shade part.raw --raw 640x480:u16 --resolution-x 0.1 --resolution-y 0.1 \
        --resolution-z 0.001 --map hot
    kivlut linear frames/ --recursive --map Viridis --colorbar --unit mm -o coloured/
    kivlut equalize depth.png --json --unit mm > stats.jsonl
    kivlut equalize frames/ --stable 10 --map turbo --colorbar --unit mm -o coloured/
    kivlut linear frames/ --stable 5 --percentile 2 98 -o frames.avi --fps 25
    kivlut demo gallery/
)";
}

}  // namespace kivlut
