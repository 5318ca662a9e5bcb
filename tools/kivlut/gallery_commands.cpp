// The gallery's commands: every named map under every mapping and its variants, then one picture
// per remaining feature, each as the words a user would type.
#include "gallery_commands.h"

#include "options.h"

namespace kivlut {
namespace {

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

// `kivlut OPERATION INPUT [--map MAP] EXTRA... [AXES] -o OUTPUT`. The range operations read the
// 16-bit scene unless `input` says otherwise, with the axes that make its heights millimetres;
// grey reads the 8-bit copy, whose levels have no axes.
std::vector<std::string> Command(const std::string& operation, const std::string& map,
                                 const std::vector<std::string>& extra, const std::string& output,
                                 const std::string& input = "") {
  const bool grey = operation == "grey";
  const std::string source = !input.empty() ? input : grey ? kScene8BitFile : kSceneFile;
  std::vector<std::string> words = {operation, source};
  if (!map.empty()) words.insert(words.end(), {"--map", map});
  words.insert(words.end(), extra.begin(), extra.end());
  if (!grey) {
    words.insert(words.end(),
                 {"--resolution-x", "0.1", "--resolution-y", "0.1", "--resolution-z", "0.001"});
  }
  words.insert(words.end(), {"-o", output});
  return words;
}

// A way of colouring the scene that the gallery shows under every named map: map NAME writes
// FILE_PREFIX + NAME + ".png", captioned NAME + CAPTION.
struct EveryMapVariant {
  const char* operation;
  std::vector<std::string> extra;
  const char* filePrefix;
  const char* caption;
};

// Map by map from `firstMap`, one command per variant.
void AddEveryMap(int firstMap, const std::vector<EveryMapVariant>& variants,
                 std::vector<GalleryCommand>* commands) {
  for (int map = firstMap; map < kNamedMapCount; ++map) {
    const std::string name = kMapNames[map];
    for (const EveryMapVariant& variant : variants) {
      commands->push_back({name + variant.caption, Command(variant.operation, name, variant.extra,
                                                           variant.filePrefix + name + ".png")});
    }
  }
}

}  // namespace

std::vector<GalleryCommand> GalleryCommands() {
  std::vector<GalleryCommand> commands;
  AddEveryMap(0,
              {{"equalize", {}, "equalize_", ", equalised over the measured heights"},
               {"equalize", kWideBounds, "equalize_bounds_", ", equalised between 19 and 27 mm"},
               {"equalize", kBandedRange, "equalize_banded_",
                ", equalised between 19.9 and 26.4 mm over entries 32..224, magenta below, white "
                "above"}},
              &commands);
  commands.push_back({"rainbow, equalised, read from the raw file",
                      Command("equalize", "rainbow", {"--raw", "640x480:u16"},
                              "equalize_raw_rainbow.png", kSceneRawFile)});
  AddEveryMap(
      0, {{"equalize", {"--array"}, "equalize_array_", ", the pixels as a flat array, equalised"}},
      &commands);
  AddEveryMap(0,
              {{"linear", {}, "linear_", ", linear between the measured minimum and maximum"},
               {"linear", kWideBounds, "linear_bounds_", ", linear between 19 and 27 mm"},
               {"linear", kBandedRange, "linear_banded_",
                ", linear between 19.9 and 26.4 mm over entries 32..224, magenta below, white "
                "above"},
               {"linear",
                {"--percentile", "2", "98"},
                "linear_percentile_",
                ", linear between the 2nd and the 98th percentile"}},
              &commands);
  AddEveryMap(0, {{"linear", {"--array"}, "linear_array_", ", the pixels as a flat array, linear"}},
              &commands);
  // The five-point scale has no grey map 0.
  AddEveryMap(
      1,
      {{"scale", {"--auto"}, "scale_auto_", ", five-point scale with break values from the data"}},
      &commands);
  commands.push_back(
      {"jet, five-point scale set by hand: 19.2, 20.5, 22, 24, 26.5 mm at entries 0, 200, 512, "
       "800, 1023, magenta below, white above",
       Command("scale", "jet",
               {"--values", "19.2,20.5,22,24,26.5", "--indices", "0,200,512,800,1023", "--below",
                "255,0,255", "--above", "255,255,255"},
               "scale_manual_jet.png")});
  commands.push_back({"rainbow, automatic five-point scale, with its histogram chart in legend.png",
                      Command("scale", "rainbow", {"--auto", "--legend", "legend.png"},
                              "scale_legend_rainbow.png")});
  commands.push_back(
      {"rainbow, the four value segments, each equalised",
       Command("scale", "rainbow", {"--auto", "--segmented"}, "scale_segmented_rainbow.png")});
  // Published maps beyond KivLUTSetting's seven, through KivColoring.h: a few, to keep the demo
  // quick; holes take the map's neutral grey.
  commands.push_back({"viridis, equalised over the measured heights",
                      Command("equalize", "viridis", {}, "equalize_viridis.png")});
  commands.push_back({"turbo, linear between the measured minimum and maximum",
                      Command("linear", "turbo", {}, "linear_turbo.png")});
  commands.push_back({"magma reversed, linear between the 2nd and the 98th percentile",
                      Command("linear", "magma", {"--reverse", "--percentile", "2", "98"},
                              "linear_percentile_magma_r.png")});
  commands.push_back(
      {"turbo, equalised, with its colour bar in millimetres: the ticks sit where those heights "
       "landed",
       Command("equalize", "turbo", {"--colorbar", "--unit", "mm"},
               "equalize_colorbar_turbo.png")});
  commands.push_back(
      {"cividis, linear between 19 and 27 mm, holes magenta, with its colour bar",
       Command("linear", "cividis",
               {"--bounds", "19", "27", "--invalid", "255,0,255", "--colorbar", "--unit", "mm"},
               "linear_colorbar_cividis.png")});
  commands.push_back(
      {"surface normals: x, y, z as red, green, blue; missing normals and holes "
       "black",
       Command("normals", "", {}, "normals.png")});
  commands.push_back({"rainbow, equalised and lit: light above a corner, eye above the centre",
                      Command("shade", "rainbow", {}, "shade_rainbow.png")});
  commands.push_back(
      {"jet, lit from the far corner, gain 0.9, ambient 0.25, diffuse 0.6, specular 0.4",
       Command("shade", "jet",
               {"--light", "64,48,60", "--eye", "32,24,120", "--coefficients", "0.9,0.25,0.6,0.4"},
               "shade_lit_jet.png")});
  AddEveryMap(0,
              {{"grey", {}, "grey_linear_", ", 8-bit levels index the table"},
               {"grey", {"--equalize"}, "grey_equalize_", ", 8-bit levels equalised"},
               {"grey", kGreyBandedRange, "grey_banded_",
                ", levels 30..220 over entries 16..240, magenta below (no data is level 0 here), "
                "white above"}},
              &commands);
  commands.push_back(
      {"half the linear rainbow colouring, half the normal map",
       {"blend", "linear_rainbow.png", "normals.png", "--alpha", "0.5", "-o", "blend.png"}});
  return commands;
}

}  // namespace kivlut
