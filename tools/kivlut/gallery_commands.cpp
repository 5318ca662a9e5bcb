// The gallery's commands: every named map under every mapping and its variants, then one picture
// per remaining feature, each as the words a user would type.
#include "gallery_commands.h"

#include <utility>

#include "options.h"

namespace kivlut {
namespace {

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

}  // namespace

std::vector<GalleryCommand> GalleryCommands() {
  std::vector<GalleryCommand> commands;
  const auto add = [&commands](const std::string& caption, std::vector<std::string> args) {
    commands.push_back({caption, std::move(args)});
  };
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add(name + ", equalised over the measured heights",
        RangeCommand("equalize", name, {}, "equalize_" + name + ".png"));
    add(name + ", equalised between 19 and 27 mm",
        RangeCommand("equalize", name, kWideBounds, "equalize_bounds_" + name + ".png"));
    add(name +
            ", equalised between 19.9 and 26.4 mm over entries 32..224, magenta below, white above",
        RangeCommand("equalize", name, kBandedRange, "equalize_banded_" + name + ".png"));
  }
  add("rainbow, equalised, read from the raw file",
      RangeCommand("equalize", "rainbow", {"--raw", "640x480:u16"}, "equalize_raw_rainbow.png",
                   kSceneRawFile));
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add(name + ", the pixels as a flat array, equalised",
        RangeCommand("equalize", name, {"--array"}, "equalize_array_" + name + ".png"));
  }
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add(name + ", linear between the measured minimum and maximum",
        RangeCommand("linear", name, {}, "linear_" + name + ".png"));
    add(name + ", linear between 19 and 27 mm",
        RangeCommand("linear", name, kWideBounds, "linear_bounds_" + name + ".png"));
    add(name + ", linear between 19.9 and 26.4 mm over entries 32..224, magenta below, white above",
        RangeCommand("linear", name, kBandedRange, "linear_banded_" + name + ".png"));
    add(name + ", linear between the 2nd and the 98th percentile",
        RangeCommand("linear", name, {"--percentile", "2", "98"},
                     "linear_percentile_" + name + ".png"));
  }
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add(name + ", the pixels as a flat array, linear",
        RangeCommand("linear", name, {"--array"}, "linear_array_" + name + ".png"));
  }
  // The five-point scale has no grey map 0.
  for (int map = 1; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add(name + ", five-point scale with break values from the data",
        RangeCommand("scale", name, {"--auto"}, "scale_auto_" + name + ".png"));
  }
  add("jet, five-point scale set by hand: 19.2, 20.5, 22, 24, 26.5 mm at entries 0, 200, 512, 800, "
      "1023, magenta below, white above",
      RangeCommand("scale", "jet",
                   {"--values", "19.2,20.5,22,24,26.5", "--indices", "0,200,512,800,1023",
                    "--below", "255,0,255", "--above", "255,255,255"},
                   "scale_manual_jet.png"));
  add("rainbow, automatic five-point scale, with its histogram chart in legend.png",
      RangeCommand("scale", "rainbow", {"--auto", "--legend", "legend.png"},
                   "scale_legend_rainbow.png"));
  add("rainbow, the four value segments, each equalised",
      RangeCommand("scale", "rainbow", {"--auto", "--segmented"}, "scale_segmented_rainbow.png"));
  add("surface normals: x, y, z as red, green, blue; a missing normal blackens its position in "
      "every work chunk",
      RangeCommand("normals", "", {}, "normals.png"));
  add("rainbow, equalised and lit: light above a corner, eye above the centre",
      RangeCommand("shade", "rainbow", {}, "shade_rainbow.png"));
  add("jet, lit from the far corner, gain 0.9, ambient 0.25, diffuse 0.6, specular 0.4",
      RangeCommand(
          "shade", "jet",
          {"--light", "64,48,60", "--eye", "32,24,120", "--coefficients", "0.9,0.25,0.6,0.4"},
          "shade_lit_jet.png"));
  for (int map = 0; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    add(name + ", 8-bit levels index the table",
        GreyCommand(name, {}, "grey_linear_" + name + ".png"));
    add(name + ", 8-bit levels equalised",
        GreyCommand(name, {"--equalize"}, "grey_equalize_" + name + ".png"));
    add(name +
            ", levels 30..220 over entries 16..240, magenta below (no data is level 0 here), white "
            "above",
        GreyCommand(name, kGreyBandedRange, "grey_banded_" + name + ".png"));
  }
  add("half the linear rainbow colouring, half the normal map",
      {"blend", "linear_rainbow.png", "normals.png", "--alpha", "0.5", "-o", "blend.png"});
  return commands;
}

}  // namespace kivlut
