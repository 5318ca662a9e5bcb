// What a kivlut command line asks for, and how it is parsed.
#pragma once

#include <array>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KivLUTSetting.h"

namespace kivlut {

enum class Operation { kEqualize, kLinear, kScale, kNormals, kShade, kGrey, kBlend, kDemo };

// The word that names an operation on the command line ("equalize", ...), also the middle part of
// the default output name NAME.OPERATION.png.
const char* OperationName(Operation operation);

// Layout of a headerless raw file: WIDTHxHEIGHT:TYPE, row-major, little-endian, no padding.
struct RawLayout {
  int width = 0;
  int height = 0;
  KIVMV::KivDataType type = KIVMV::KIV_DATA_U16;
};

// Resolution and offset per axis, copied into every range image read (x, y, z).
struct Axes {
  std::array<double, 3> resolution = {1.0, 1.0, 1.0};
  std::array<double, 3> offset = {0.0, 0.0, 0.0};
};

// A colour as it should appear in the picture.
struct Rgb {
  int red = 0;
  int green = 0;
  int blue = 0;
};

struct Options {
  Operation operation = Operation::kEqualize;
  std::vector<std::string> inputs;  // files or folders; blend: exactly two pictures
  std::string output;               // -o; empty: NAME.OPERATION.png beside each input
  int mapType = 1;                  // --map, 0..10
  std::optional<RawLayout> raw;     // --raw
  Axes axes;                        // --resolution-x/y/z, --offset-x/y/z
  bool stats = false;               // --stats
  int jobs = 0;                     // --jobs; 0: one per core

  // equalize, linear, grey
  std::optional<std::pair<double, double>> bounds;      // --bounds LOW HIGH
  std::optional<std::pair<int, int>> indexRange;        // --index LO HI
  Rgb below{0, 0, 0};                                   // --below R,G,B
  Rgb above{255, 255, 255};                             // --above R,G,B
  std::optional<std::pair<double, double>> percentile;  // linear --percentile LOW HIGH (percent)
  bool asArray = false;                                 // --array: the flat-array forms
  bool equalizeGrey = false;                            // grey --equalize

  // equalize, linear: through the API beyond KivLUTSetting (KivColoring.h) unless --exact
  std::string tableName;       // --map viridis|magma|inferno|plasma|cividis|turbo|twilight,
                               // lower case; empty: the table of mapType
  bool reverse = false;        // --reverse
  std::optional<Rgb> invalid;  // --invalid R,G,B: the no-data colour
  bool transparent = false;    // --transparent: alpha 0 on no-data
  bool colorbar = false;       // --colorbar
  std::string unit;            // --unit TEXT, written on the colour bar and in --json
  bool exact = false;          // --exact: KivLUTSetting's output bytes unchanged

  // output and inputs
  bool json = false;       // --json: one JSON object per file on standard output, nothing else
  bool recursive = false;  // --recursive: folders with their subfolders

  // sequences and videos
  std::optional<double> stable;  // equalize, linear --stable N: one KivSequenceColorizer over
                                 // the frames in natural order, time constant N frames
  double fps = 10.0;             // --fps F: the frame rate of -o OUT.avi or OUT.mp4

  // scale
  bool automatic = false;                                      // --auto
  std::optional<std::array<double, 5>> scaleValues;            // --values V0,V1,V2,V3,V4
  std::array<int, 5> scaleIndices = {0, 127, 511, 895, 1023};  // --indices I0,...,I4
  std::string legendPath;                                      // --legend FILE
  bool segmented = false;  // --segmented: the four-segment picture

  // shade
  std::optional<std::array<float, 3>> light;  // --light X,Y,Z; default above a corner
  std::optional<std::array<float, 3>> eye;    // --eye X,Y,Z; default above the centre
  std::array<float, 4> coefficients = {1.0f, 0.3f, 0.6f, 0.3f};  // --coefficients GAIN,A,D,S

  // blend
  double alpha = 0.5;  // --alpha
};

// The containers -o may name instead of a picture: one video of every frame.
enum class VideoContainer { kAvi, kMp4 };

// The video that -o names by its extension (.avi, .mp4, any case); nullopt for pictures.
std::optional<VideoContainer> VideoContainerOf(const std::string& output);

// Whether a run colours its frames one after another in natural name order (--stable, or a
// video output) instead of in parallel.
bool ColoursInSequence(const Options& options);

// Either options to run, a request for help, or the one-line reason the command line is wrong.
struct ParsedCommandLine {
  std::optional<Options> options;
  bool help = false;
  std::string error;
};

// args excludes the program name.
ParsedCommandLine ParseCommandLine(const std::vector<std::string>& args);

// What a run of these options should be told about though it is not wrong ("only --resolution-z
// is set ..."), one line each.
std::vector<std::string> CommandLineWarnings(const Options& options);

// The man-style usage text printed by --help.
std::string UsageText();

// The colour maps that have a name, indexed by their number; maps above them have only a number.
inline constexpr const char* kMapNames[] = {"grey",        "rainbow", "hot", "diverging",
                                            "isoluminant", "rgb",     "jet"};
inline constexpr int kNamedMapCount = static_cast<int>(std::size(kMapNames));

// A colour-map number 0..10 or one of kMapNames; nullopt for anything else.
std::optional<int> ParseMapType(const std::string& text);

// The name of a named map ("rainbow"), "map7".."map10" above.
std::string MapName(int mapType);

}  // namespace kivlut
