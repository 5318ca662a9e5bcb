// The built-in demo: a range image of machined parts as a laser triangulation sensor sees them, and
// a gallery in which every picture is made by running a kivlut command line through the same
// parser and operation code as the program, so the contact sheet shows what each command does.
#include "demo_gallery.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <exception>
#include <opencv2/core.hpp>
#include <optional>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "frame_io.h"
#include "operations.h"
#include "options.h"

namespace kivlut {
namespace {

// ----- The scene -------------------------------------------------------------------------------
// Columns run along x, rows along y; 0.1 mm per pixel both ways, one raw unit is 0.001 mm.

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr double kPitchMm = 0.1;
constexpr double kMmPerRawUnit = 0.001;

// The base plate: about 20 mm from the sensor's zero, tilted a little along both axes.
constexpr double kPlateMm = 20.0;
constexpr double kPlateSlopeX = 0.010;  // mm of height per mm along x
constexpr double kPlateSlopeY = 0.006;

// A block with two steps; the upper step's far edge along x carries a 45-degree chamfer.
constexpr int kBlockLeft = 60, kBlockRight = 260, kBlockTop = 50, kBlockBottom = 210;
constexpr int kUpperStepLeft = 160;
constexpr int kChamferLeft = 240;
constexpr double kLowerStepMm = 3.0;
constexpr double kUpperStepMm = 6.0;

// A rectangular slot milled into the plate.
constexpr int kSlotLeft = 300, kSlotRight = 620, kSlotTop = 230, kSlotBottom = 255;
constexpr double kSlotDepthMm = 1.5;

// A shaft (half-cylinder) lying along x on the plate, its axis at plate height.
constexpr int kShaftLeft = 40, kShaftRight = 600;
constexpr double kShaftAxisRow = 345.0;
constexpr double kShaftRadiusMm = 6.0;

// A drilled hole through the plate with a small 45-degree countersink: the sensor sees nothing
// inside it.
constexpr double kHoleColumn = 470.0, kHoleRow = 120.0;
constexpr double kHoleRadiusPx = 35.0;
constexpr double kCountersinkPx = 7.0;

// The laser comes in along +y, falling this many mm per mm of travel: a point is in shadow when an
// earlier point of its column rises above the ray that would reach it.
constexpr double kLaserSlope = 3.0;
// Steep edges scatter the laser line: beside a jump of more than this, some pixels drop out.
constexpr double kSteepJumpMm = 0.3;
constexpr double kEdgeDropout = 0.25;
constexpr double kRandomDropout = 0.0003;
constexpr double kNoiseSigmaRaw = 3.0;

constexpr double kNoData = -1.0;  // a height no surface has: the hole

double PlateHeight(int column, int row) {
  return kPlateMm + kPlateSlopeX * column * kPitchMm + kPlateSlopeY * row * kPitchMm;
}

// The true surface height in mm at a pixel, or kNoData inside the hole.
double SurfaceHeight(int column, int row) {
  double height = PlateHeight(column, row);
  if (column >= kBlockLeft && column < kBlockRight && row >= kBlockTop && row < kBlockBottom) {
    if (column < kUpperStepLeft) {
      height += kLowerStepMm;
    } else if (column < kChamferLeft) {
      height += kUpperStepMm;
    } else {
      height += kUpperStepMm - (column - kChamferLeft) * kPitchMm;
    }
  }
  if (column >= kSlotLeft && column < kSlotRight && row >= kSlotTop && row < kSlotBottom) {
    height -= kSlotDepthMm;
  }
  if (column >= kShaftLeft && column < kShaftRight) {
    const double across = (row - kShaftAxisRow) * kPitchMm;
    if (std::abs(across) < kShaftRadiusMm) {
      height += std::sqrt(kShaftRadiusMm * kShaftRadiusMm - across * across);
    }
  }
  const double fromHole = std::hypot(column - kHoleColumn, row - kHoleRow);
  if (fromHole <= kHoleRadiusPx) return kNoData;
  if (fromHole < kHoleRadiusPx + kCountersinkPx) {
    height -= (kHoleRadiusPx + kCountersinkPx - fromHole) * kPitchMm;
  }
  return height;
}

// Marks the pixels the laser cannot reach: scanning each column along +y, a pixel is hidden when
// the highest ray grazing an earlier pixel passes above it. A ray through (y0, h0) stands at
// h0 - slope * (y - y0) over y, so comparing height + slope * y compares the rays.
std::vector<bool> OcclusionShadow(const std::vector<double>& heights) {
  std::vector<bool> hidden(heights.size(), false);
  for (int column = 0; column < kWidth; ++column) {
    bool anyRay = false;
    double highestRay = 0.0;  // max over earlier rows of height + slope * y
    for (int row = 0; row < kHeight; ++row) {
      const double height = heights[static_cast<size_t>(row) * kWidth + column];
      if (height == kNoData) continue;
      const double ray = height + kLaserSlope * row * kPitchMm;
      if (anyRay && highestRay > ray + 1e-9) {
        hidden[static_cast<size_t>(row) * kWidth + column] = true;
      } else {
        highestRay = ray;
        anyRay = true;
      }
    }
  }
  return hidden;
}

// Whether a pixel sits beside a jump of the surface steep enough to scatter the laser line.
bool BesideSteepEdge(const std::vector<double>& heights, int column, int row) {
  const double here = heights[static_cast<size_t>(row) * kWidth + column];
  const int neighbours[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
  for (const auto& offset : neighbours) {
    const int c = column + offset[0];
    const int r = row + offset[1];
    if (c < 0 || c >= kWidth || r < 0 || r >= kHeight) continue;
    const double there = heights[static_cast<size_t>(r) * kWidth + c];
    if (there != kNoData && std::abs(there - here) > kSteepJumpMm) return true;
  }
  return false;
}

// A height in mm as the sensor reports it: raw units, kept clear of the no-data marker 0 and of
// the top of the 16-bit range.
uint16_t ToRaw(double heightMm) {
  const double raw = std::round(heightMm / kMmPerRawUnit);
  return static_cast<uint16_t>(std::clamp(raw, 1.0, 65535.0));
}

// ----- The gallery -----------------------------------------------------------------------------

constexpr const char* kSceneFile = "machined_parts.png";
constexpr const char* kSceneRawFile = "machined_parts.raw";
constexpr const char* kScene8BitFile = "machined_parts_8bit.png";
constexpr int kThumbnailWidth = 256;

// One picture of the contact sheet: the section it belongs to, what it shows, and the words a
// user types after `kivlut` to make it.
struct GalleryPicture {
  std::string section;
  std::string caption;
  std::vector<std::string> args;
};

std::vector<std::string> AxesWords() {
  return {"--resolution-x", "0.1", "--resolution-y", "0.1", "--resolution-z", "0.001"};
}

// `kivlut OPERATION INPUT --map MAP EXTRA... AXES -o OUTPUT`; no --map when `map` is empty.
std::vector<std::string> RangeCommand(const std::string& operation, const std::string& map,
                                      const std::vector<std::string>& extra,
                                      const std::string& output,
                                      const std::string& input = kSceneFile) {
  std::vector<std::string> words = {operation, input};
  if (!map.empty()) {
    words.push_back("--map");
    words.push_back(map);
  }
  words.insert(words.end(), extra.begin(), extra.end());
  for (const std::string& word : AxesWords()) words.push_back(word);
  words.push_back("-o");
  words.push_back(output);
  return words;
}

std::vector<std::string> GreyCommand(const std::string& map, const std::vector<std::string>& extra,
                                     const std::string& output) {
  std::vector<std::string> words = {"grey", kScene8BitFile, "--map", map};
  words.insert(words.end(), extra.begin(), extra.end());
  words.push_back("-o");
  words.push_back(output);
  return words;
}

// Bounds that fit the scene: the plate lies at 20 to 21 mm, the slot floor near 19 mm, the upper
// step and the shaft's crown at 26 to 27 mm.
const std::vector<std::string> kWideBounds = {"--bounds", "19", "27"};
const std::vector<std::string> kBandedRange = {"--bounds", "19.9",       "26.4",    "--index",
                                               "32",       "224",        "--below", "255,0,255",
                                               "--above",  "255,255,255"};
// The same in 8-bit levels of machined_parts_8bit.png (1 = lowest height, 255 = highest).
const std::vector<std::string> kGreyBandedRange = {"--bounds", "30",         "220",     "--index",
                                                   "16",       "240",        "--below", "255,0,255",
                                                   "--above",  "255,255,255"};

std::vector<GalleryPicture> GalleryPictures() {
  std::vector<GalleryPicture> pictures;
  const auto add = [&pictures](const std::string& section, const std::string& caption,
                               std::vector<std::string> args) {
    pictures.push_back({section, caption, std::move(args)});
  };
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add("equalize", name + ", equalised over the measured heights",
        RangeCommand("equalize", name, {}, "equalize_" + name + ".png"));
    add("equalize", name + ", equalised between 19 and 27 mm",
        RangeCommand("equalize", name, kWideBounds, "equalize_bounds_" + name + ".png"));
    add("equalize",
        name +
            ", equalised between 19.9 and 26.4 mm over entries 32..224, magenta below, white above",
        RangeCommand("equalize", name, kBandedRange, "equalize_banded_" + name + ".png"));
  }
  add("equalize", "rainbow, equalised, read from the raw file",
      RangeCommand("equalize", "rainbow", {"--raw", "640x480:u16"}, "equalize_raw_rainbow.png",
                   kSceneRawFile));
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add("equalize", name + ", the pixels as a flat array, equalised",
        RangeCommand("equalize", name, {"--array"}, "equalize_array_" + name + ".png"));
  }
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add("linear", name + ", linear between the measured minimum and maximum",
        RangeCommand("linear", name, {}, "linear_" + name + ".png"));
    add("linear", name + ", linear between 19 and 27 mm",
        RangeCommand("linear", name, kWideBounds, "linear_bounds_" + name + ".png"));
    add("linear",
        name + ", linear between 19.9 and 26.4 mm over entries 32..224, magenta below, white above",
        RangeCommand("linear", name, kBandedRange, "linear_banded_" + name + ".png"));
    add("linear", name + ", linear between the 2nd and the 98th percentile",
        RangeCommand("linear", name, {"--percentile", "2", "98"},
                     "linear_percentile_" + name + ".png"));
  }
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add("linear", name + ", the pixels as a flat array, linear",
        RangeCommand("linear", name, {"--array"}, "linear_array_" + name + ".png"));
  }
  // The five-point scale has no grey map 0.
  for (int map = 1; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add("scale", name + ", five-point scale with break values from the data",
        RangeCommand("scale", name, {"--auto"}, "scale_auto_" + name + ".png"));
  }
  add("scale",
      "jet, five-point scale set by hand: 19.2, 20.5, 22, 24, 26.5 mm at entries 0, 200, 512, 800, "
      "1023, magenta below, white above",
      RangeCommand("scale", "jet",
                   {"--values", "19.2,20.5,22,24,26.5", "--indices", "0,200,512,800,1023",
                    "--below", "255,0,255", "--above", "255,255,255"},
                   "scale_manual_jet.png"));
  add("scale", "rainbow, automatic five-point scale, with its histogram chart in legend.png",
      RangeCommand("scale", "rainbow", {"--auto", "--legend", "legend.png"},
                   "scale_legend_rainbow.png"));
  add("scale", "rainbow, the four value segments, each equalised",
      RangeCommand("scale", "rainbow", {"--auto", "--segmented"}, "scale_segmented_rainbow.png"));
  add("normals",
      "surface normals: x, y, z as red, green, blue; a missing normal blackens its position in "
      "every work chunk",
      RangeCommand("normals", "", {}, "normals.png"));
  add("shade", "rainbow, equalised and lit: light above a corner, eye above the centre",
      RangeCommand("shade", "rainbow", {}, "shade_rainbow.png"));
  add("shade", "jet, lit from the far corner, gain 0.9, ambient 0.25, diffuse 0.6, specular 0.4",
      RangeCommand(
          "shade", "jet",
          {"--light", "64,48,60", "--eye", "32,24,120", "--coefficients", "0.9,0.25,0.6,0.4"},
          "shade_lit_jet.png"));
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add("grey", name + ", 8-bit levels index the table",
        GreyCommand(name, {}, "grey_linear_" + name + ".png"));
    add("grey", name + ", 8-bit levels equalised",
        GreyCommand(name, {"--equalize"}, "grey_equalize_" + name + ".png"));
    add("grey",
        name +
            ", levels 30..220 over entries 16..240, magenta below (no data is level 0 here), white "
            "above",
        GreyCommand(name, kGreyBandedRange, "grey_banded_" + name + ".png"));
  }
  add("blend", "half the linear rainbow colouring, half the normal map",
      {"blend", "linear_rainbow.png", "normals.png", "--alpha", "0.5", "-o", "blend.png"});
  return pictures;
}

// What each section of the contact sheet holds.
struct Section {
  const char* name;
  const char* description;
};
const Section kSections[] = {
    {"input",
     "The scene: 16-bit heights (0.1 mm pitch, 1 unit = 0.001 mm, 0 = no data) and an "
     "8-bit copy scaled linearly between the lowest and the highest height. machined_parts.raw "
     "holds the same heights as headerless little-endian pixels (--raw 640x480:u16)."},
    {"equalize", "Histogram-equalised colouring: crowded height ranges spread over many colours."},
    {"linear", "Linear colouring between measured, given or percentile bounds."},
    {"scale", "The five-point scale: five break values coloured through 1024-entry tables."},
    {"normals", "The surface normals as colours."},
    {"shade", "The equalised colouring lit by a Phong model."},
    {"grey", "The 8-bit grey picture coloured."},
    {"blend", "Two gallery pictures mixed."},
};

std::string HtmlEscape(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// A word as a shell needs it: quoted when it holds anything beyond the plain characters.
std::string ShellWord(const std::string& word) {
  const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) ||
           std::string("-_.,/:=+").find(c) != std::string::npos;
  });
  if (plain) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string CommandText(const std::vector<std::string>& args) {
  std::string text = "kivlut";
  for (const std::string& word : args) text += " " + ShellWord(word);
  return text;
}

// One figure of the contact sheet.
struct Figure {
  std::string section;
  std::string file;
  std::string caption;
  std::string command;  // empty for the input pictures
};

std::string ContactSheet(const std::vector<Figure>& figures) {
  std::ostringstream html;
  html
      << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      << "<title>kivlut gallery: machined parts</title>\n<style>\n"
      << "body { font-family: sans-serif; margin: 1.5em; background: #fafafa; color: #222; }\n"
      << ".grid { display: grid; grid-template-columns: repeat(auto-fill, minmax("
      << kThumbnailWidth + 16 << "px, 1fr)); gap: 1em; }\n"
      << "figure { margin: 0; padding: 8px; background: #fff; border: 1px solid #ddd; }\n"
      << "figcaption { font-size: 0.9em; margin: 0.3em 0; }\n"
      << "code { display: block; font-size: 0.75em; color: #444; word-break: break-all; }\n"
      << "</style>\n</head>\n<body>\n"
      << "<h1>kivlut gallery: machined parts</h1>\n"
      << "<p>A generated 640 x 480 range image of machined parts (a tilted plate, a block with two "
      << "steps and a chamfer, a slot, a shaft and a drilled hole the sensor did not see) and "
      << "every picture below made by the kivlut command shown under it, run in this folder. "
      << "Click a picture for full size.</p>\n";
  for (const Section& section : kSections) {
    const bool any = std::any_of(figures.begin(), figures.end(),
                                 [&](const Figure& f) { return f.section == section.name; });
    if (!any) continue;
    html << "<h2 id=\"" << section.name << "\">" << section.name << "</h2>\n<p>"
         << HtmlEscape(section.description) << "</p>\n<div class=\"grid\">\n";
    for (const Figure& figure : figures) {
      if (figure.section != section.name) continue;
      const std::string file = HtmlEscape(figure.file);
      html << "<figure><a href=\"" << file << "\"><img src=\"" << file << "\" width=\""
           << kThumbnailWidth << "\" alt=\"" << HtmlEscape(figure.caption) << "\"></a>"
           << "<figcaption>" << HtmlEscape(figure.caption) << "</figcaption>";
      if (!figure.command.empty()) html << "<code>" << HtmlEscape(figure.command) << "</code>";
      html << "</figure>\n";
    }
    html << "</div>\n";
  }
  html << "</body>\n</html>\n";
  return html.str();
}

// The 16-bit heights scaled linearly onto levels 1..255 between the lowest and the highest valid
// height; no data (0) stays 0.
KIVMV::KivRangeImage EightBitCopy(const KIVMV::KivRangeImage& scene) {
  const cv::Mat& heights = scene.Mat();
  int lowest = 65535;
  int highest = 0;
  for (int row = 0; row < heights.rows; ++row) {
    const uint16_t* line = heights.ptr<uint16_t>(row);
    for (int column = 0; column < heights.cols; ++column) {
      if (line[column] == 0) continue;
      lowest = std::min<int>(lowest, line[column]);
      highest = std::max<int>(highest, line[column]);
    }
  }
  KIVMV::KivRangeImage levels(scene.Width(), scene.Height(), KIVMV::KIV_DATA_U8);
  const double span = highest > lowest ? highest - lowest : 1.0;
  for (int row = 0; row < heights.rows; ++row) {
    const uint16_t* line = heights.ptr<uint16_t>(row);
    uint8_t* out = levels.Mat().ptr<uint8_t>(row);
    for (int column = 0; column < heights.cols; ++column) {
      if (line[column] == 0) {
        out[column] = 0;
      } else {
        out[column] = static_cast<uint8_t>(1 + std::lround((line[column] - lowest) * 254.0 / span));
      }
    }
  }
  return levels;
}

// The output file a command names after -o, for messages about a command that did not parse.
std::string OutputWord(const std::vector<std::string>& args) {
  for (size_t i = 0; i + 1 < args.size(); ++i) {
    if (args[i] == "-o") return args[i + 1];
  }
  return "?";
}

// Runs one command in `outDir` as the program would there. On failure, false with the file that
// could not be made and the problem.
bool MakePicture(const std::filesystem::path& outDir, const std::vector<std::string>& args,
                 std::vector<std::string>* written, std::string* failedFile, std::string* problem) {
  *failedFile = OutputWord(args);
  const ParsedCommandLine parsed = ParseCommandLine(args);
  if (!parsed.options) {
    *problem = "bad command line: " + parsed.error;
    return false;
  }
  const Options& options = *parsed.options;
  std::vector<cv::Mat> inputs;
  for (const std::string& input : options.inputs) {
    ReadResult read = ReadPixels(outDir / input, options.raw);
    if (read.pixels.empty()) {
      *problem = input + ": " + read.error;
      return false;
    }
    inputs.push_back(std::move(read.pixels));
  }
  const OperationResult result = RunOperation(options, inputs);
  if (!result.ok) {
    *problem = result.error;
    return false;
  }
  std::string error;
  if (!WritePictureAtomically(outDir / options.output, result.picture, &error)) {
    *problem = error;
    return false;
  }
  written->push_back(options.output);
  if (!options.legendPath.empty()) {
    *failedFile = options.legendPath;
    if (result.legend.empty()) {
      *problem = "the operation returned no legend chart";
      return false;
    }
    if (!WritePictureAtomically(outDir / options.legendPath, result.legend, &error)) {
      *problem = error;
      return false;
    }
    written->push_back(options.legendPath);
  }
  return true;
}

int WriteGalleryUnguarded(const std::filesystem::path& outDir, std::ostream& log) {
  std::error_code created;
  std::filesystem::create_directories(outDir, created);
  if (created) {
    log << "kivlut: " << outDir.string() << ": cannot create the folder: " << created.message()
        << "\n";
    return 1;
  }
  int exitCode = 0;
  const auto fail = [&](const std::string& file, const std::string& problem) {
    log << "kivlut: " << (outDir / file).string() << ": " << problem << "\n";
    exitCode = 1;
  };
  const auto wrote = [&](const std::string& file) {
    log << "wrote " << (outDir / file).string() << "\n";
  };

  std::vector<Figure> figures;
  const KIVMV::KivRangeImage scene = MakeMachinedPartsScene();
  std::string error;
  if (WriteRangeFrame(outDir / kSceneFile, scene, FrameFormat::kPng, &error)) {
    wrote(kSceneFile);
    figures.push_back({"input", kSceneFile, "16-bit heights, as the sensor delivers them", ""});
  } else {
    fail(kSceneFile, error);
  }
  if (WriteRangeFrame(outDir / kSceneRawFile, scene, FrameFormat::kRaw, &error)) {
    wrote(kSceneRawFile);
  } else {
    fail(kSceneRawFile, error);
  }
  if (WriteRangeFrame(outDir / kScene8BitFile, EightBitCopy(scene), FrameFormat::kPng, &error)) {
    wrote(kScene8BitFile);
    figures.push_back({"input", kScene8BitFile, "8-bit levels, the input of grey", ""});
  } else {
    fail(kScene8BitFile, error);
  }

  for (const GalleryPicture& picture : GalleryPictures()) {
    std::vector<std::string> written;
    std::string failedFile;
    std::string problem;
    const bool made = MakePicture(outDir, picture.args, &written, &failedFile, &problem);
    const std::string command = CommandText(picture.args);
    for (size_t i = 0; i < written.size(); ++i) {
      wrote(written[i]);
      const std::string caption =
          i == 0 ? picture.caption : "the histogram chart of the command beside it";
      figures.push_back({picture.section, written[i], caption, command});
    }
    if (!made) fail(failedFile, problem);
  }

  const std::string sheet = ContactSheet(figures);
  if (WriteBytesAtomically(outDir / "index.html", sheet.data(), sheet.size(), &error)) {
    wrote("index.html");
  } else {
    fail("index.html", error);
  }
  return exitCode;
}

}  // namespace

KIVMV::KivRangeImage MakeMachinedPartsScene(unsigned seed) {
  std::vector<double> heights(static_cast<size_t>(kWidth) * kHeight);
  for (int row = 0; row < kHeight; ++row) {
    for (int column = 0; column < kWidth; ++column) {
      heights[static_cast<size_t>(row) * kWidth + column] = SurfaceHeight(column, row);
    }
  }
  const std::vector<bool> hidden = OcclusionShadow(heights);

  KIVMV::KivRangeImage image(kWidth, kHeight, KIVMV::KIV_DATA_U16);
  image.SetResolution(kPitchMm, kPitchMm, kMmPerRawUnit);
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(0.0, kNoiseSigmaRaw);
  std::uniform_real_distribution<double> chance(0.0, 1.0);
  for (int row = 0; row < kHeight; ++row) {
    uint16_t* line = image.Mat().ptr<uint16_t>(row);
    for (int column = 0; column < kWidth; ++column) {
      const size_t index = static_cast<size_t>(row) * kWidth + column;
      // Both draws happen for every pixel, so the noise of a pixel does not depend on its
      // neighbours' fate.
      const double jitter = noise(random);
      const double draw = chance(random);
      const double height = heights[index];
      const bool dropout =
          draw < (BesideSteepEdge(heights, column, row) && height != kNoData ? kEdgeDropout
                                                                             : kRandomDropout);
      if (height == kNoData || hidden[index] || dropout) {
        line[column] = 0;
      } else {
        line[column] = ToRaw(height + jitter * kMmPerRawUnit);
      }
    }
  }
  return image;
}

std::vector<std::vector<std::string>> GalleryCommands() {
  std::vector<std::vector<std::string>> commands;
  for (const GalleryPicture& picture : GalleryPictures()) commands.push_back(picture.args);
  return commands;
}

int WriteGallery(const std::filesystem::path& outDir, std::ostream& log) {
  try {
    return WriteGalleryUnguarded(outDir, log);
  } catch (const std::exception& e) {
    log << "kivlut: " << outDir.string() << ": the gallery stopped: " << e.what() << "\n";
    return 1;
  }
}

}  // namespace kivlut
