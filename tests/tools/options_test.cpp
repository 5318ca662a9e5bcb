#include "options.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kivlut {
namespace {

std::vector<std::string> Words(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  std::string word;
  while (stream >> word) words.push_back(word);
  return words;
}

Options Parse(const std::string& line) {
  const ParsedCommandLine parsed = ParseCommandLine(Words(line));
  EXPECT_TRUE(parsed.options.has_value()) << line << ": " << parsed.error;
  return parsed.options.value_or(Options());
}

std::string ErrorOf(const std::string& line) {
  const ParsedCommandLine parsed = ParseCommandLine(Words(line));
  EXPECT_FALSE(parsed.options.has_value()) << line;
  return parsed.error;
}

TEST(Options, MapsByNumberAndName) {
  const struct {
    const char* text;
    int map;
  } cases[] = {{"grey", 0}, {"rainbow", 1}, {"hot", 2}, {"diverging", 3}, {"isoluminant", 4},
               {"rgb", 5},  {"jet", 6},     {"0", 0},   {"7", 7},         {"10", 10}};
  for (const auto& c : cases) {
    EXPECT_EQ(ParseMapType(c.text), c.map) << c.text;
    EXPECT_EQ(Parse(std::string("equalize a.png --map ") + c.text).mapType, c.map) << c.text;
  }
  for (const char* bad : {"11", "-1", "", "1.5", "hot-metal", "viridis"}) {
    EXPECT_FALSE(ParseMapType(bad).has_value()) << bad;
  }
  for (int map = 0; map < 7; ++map) EXPECT_EQ(ParseMapType(MapName(map)), map);
  EXPECT_EQ(MapName(8), "map8");
}

TEST(Options, MapNamesInAnyCase) {
  EXPECT_EQ(ParseMapType("Jet"), 6);
  EXPECT_EQ(ParseMapType("RAINBOW"), 1);
  EXPECT_EQ(ParseMapType("IsoLuminant"), 4);
  EXPECT_EQ(Parse("equalize a.png --map Jet").mapType, 6);
  EXPECT_EQ(Parse("scale a.png --auto --map HOT").mapType, 2);
}

// The tables beyond KivLUTSetting's go to tableName in lower case for equalize and linear; the
// last --map given wins.
TEST(Options, OtherTablesByName) {
  for (const char* name :
       {"viridis", "magma", "inferno", "plasma", "cividis", "turbo", "twilight"}) {
    for (const char* operation : {"equalize", "linear"}) {
      const Options o = Parse(std::string(operation) + " a.png --map " + name);
      EXPECT_EQ(o.tableName, name) << operation;
      EXPECT_EQ(o.mapType, 1) << operation << " " << name;
    }
  }
  EXPECT_EQ(Parse("linear a.png --map ViRiDiS").tableName, "viridis");
  EXPECT_EQ(Parse("linear a.png --map TURBO").tableName, "turbo");
  const Options numberLast = Parse("linear a.png --map magma --map jet");
  EXPECT_TRUE(numberLast.tableName.empty());
  EXPECT_EQ(numberLast.mapType, 6);
  const Options nameLast = Parse("linear a.png --map jet --map magma");
  EXPECT_EQ(nameLast.tableName, "magma");
  EXPECT_TRUE(Parse("equalize a.png").tableName.empty());
}

TEST(Options, OtherTablesAreRefusedWhereOnlyKivLUTSettingsMapsColour) {
  for (const char* line :
       {"scale a.png --auto --map viridis", "shade a.png --map Turbo", "grey a.png --map magma"}) {
    const std::string error = ErrorOf(line);
    EXPECT_NE(error.find("colours with KivLUTSetting's maps only"), std::string::npos) << error;
    EXPECT_NE(error.find("is for equalize and linear"), std::string::npos) << error;
  }
  EXPECT_EQ(ErrorOf("normals a.png --map viridis"), "--map does not apply to normals");
  EXPECT_EQ(ErrorOf("scale a.png --auto --map purple"),
            "--map: bad value 'purple' (expected 1..10 or grey, rainbow, hot, diverging, "
            "isoluminant, rgb, jet)");
  EXPECT_EQ(ErrorOf("linear a.png --map purple"),
            "--map: bad value 'purple' (expected 0..10 or grey, rainbow, hot, diverging, "
            "isoluminant, rgb, jet, viridis, magma, inferno, plasma, cividis, turbo, twilight)");
}

TEST(Options, SwitchesAndValuesOfTheColouringBeyondKivLUTSetting) {
  const Options o = Parse(
      "linear a.png --map plasma --reverse --invalid 10,20,30 --transparent --colorbar --unit mm "
      "--json --recursive");
  EXPECT_TRUE(o.reverse);
  ASSERT_TRUE(o.invalid.has_value());
  EXPECT_EQ(o.invalid->red, 10);
  EXPECT_EQ(o.invalid->green, 20);
  EXPECT_EQ(o.invalid->blue, 30);
  EXPECT_TRUE(o.transparent);
  EXPECT_TRUE(o.colorbar);
  EXPECT_EQ(o.unit, "mm");
  EXPECT_TRUE(o.json);
  EXPECT_TRUE(o.recursive);
  EXPECT_FALSE(o.exact);
  const Options plain = Parse("equalize a.png");
  EXPECT_FALSE(plain.reverse || plain.invalid || plain.transparent || plain.colorbar ||
               plain.exact || plain.json || plain.recursive);
  EXPECT_TRUE(plain.unit.empty());
  EXPECT_TRUE(Parse("normals a.png --exact").exact);
  EXPECT_TRUE(Parse("shade a.png --exact --json").json);
  EXPECT_TRUE(Parse("grey folder --recursive").recursive);
  EXPECT_EQ(Parse("scale a.png --auto --json --unit m").unit, "m");
}

TEST(Options, BelowAndAboveWithBoundsAloneUseTheWholeTable) {
  for (const char* line :
       {"equalize a.png --bounds 1 2 --below 1,2,3", "linear a.png --bounds 1 2 --above 1,2,3",
        "grey a.png --bounds 1 9 "
        "--below 1,2,3"}) {
    const Options o = Parse(line);
    ASSERT_TRUE(o.indexRange.has_value()) << line;
    EXPECT_EQ(*o.indexRange, std::make_pair(0, 255)) << line;
  }
  EXPECT_EQ(*Parse("linear a.png --bounds 1 2 --index 3 9 --below 1,2,3").indexRange,
            std::make_pair(3, 9));
  EXPECT_FALSE(Parse("linear a.png --bounds 1 2").indexRange.has_value());
  EXPECT_FALSE(Parse("scale a.png --auto --below 1,2,3").indexRange.has_value());
}

// Values wrong whatever the file are refused by the parser, each with what was wrong.
TEST(Options, RefusesValuesBeforeAnyFileIsRead) {
  const struct {
    const char* line;
    const char* message;
  } cases[] = {
      {"linear a.png --bounds 2 1", "--bounds: LOW must be below HIGH, got 2 and 1"},
      {"linear a.png --bounds 1 1", "--bounds: LOW must be below HIGH, got 1 and 1"},
      {"equalize a.png --bounds -1 -3", "--bounds: LOW must be below HIGH, got -1 and -3"},
      {"grey a.png --bounds 0.5 9", "--bounds: grey levels must be whole numbers, got 0.5"},
      {"equalize a.png --bounds 0 1 --index 0 300",
       "--index: needs 0 <= LO <= HI <= 255, got 0 and 300"},
      {"equalize a.png --bounds 0 1 --index -1 9", "--index: needs 0 <= LO <= HI <= 255"},
      {"equalize a.png --bounds 0 1 --index 9 8", "--index: needs 0 <= LO <= HI <= 255"},
      {"linear a.png --percentile 90 10",
       "--percentile: needs 0 <= LOW < HIGH <= 100, got 90 and 10"},
      {"linear a.png --percentile 60 60", "--percentile: needs 0 <= LOW < HIGH <= 100"},
      {"linear a.png --percentile -5 120",
       "--percentile: needs 0 <= LOW < HIGH <= 100, got -5 and 120"},
      {"linear a.png --percentile 0 100.5", "--percentile: needs"},
      {"scale a.png --auto --map 0",
       "scale takes maps 1..10: KivLUTSetting's five-point scale has "
       "no map 0 (grey)"},
      {"scale a.png --auto --map grey", "scale takes maps 1..10"},
      {"scale a.png --values 5,4,3,2,1",
       "--values: V0 <= V1 <= V2 <= V3 <= V4 needed, got 5,4,3,2,1"},
      {"scale a.png --values 1,2,3,4,5 --indices 0,10,5,30,40", "--indices: 0 <= I0 <= I1"},
      {"scale a.png --values 1,2,3,4,5 --indices 0,10,20,30,1024", "<= 1023 needed"},
      {"scale a.png --values 1,2,3,4,5 --indices -1,10,20,30,40", "--indices: 0 <= I0"},
      {"shade a.png --coefficients 0,0.3,0.6,0.3", "--coefficients: GAIN must be above 0"},
      {"shade a.png --coefficients 11,0.3,0.6,0.3",
       "--coefficients: GAIN must be above 0 and at most 10"},
      {"shade a.png --coefficients 1,1.5,0.6,0.3", "--coefficients: AMBIENT must be 0..1, got 1.5"},
      {"shade a.png --coefficients 1,0.3,0.6,-1", "--coefficients: SPECULAR must be 0..1"},
      {"blend a b --alpha 1.5", "--alpha must be 0..1, got 1.5"},
      {"blend a b --alpha -0.1", "--alpha must be 0..1"},
      {"equalize a.png --resolution-z 0", "--resolution-z must be above 0, got 0"},
      {"equalize a.png --resolution-z -0.001", "--resolution-z must be above 0, got -0.001"},
      {"normals a.png --resolution-x 0", "--resolution-x must be above 0"},
      {"shade a.png --resolution-y -2", "--resolution-y must be above 0"},
  };
  for (const auto& c : cases) {
    const std::string error = ErrorOf(c.line);
    EXPECT_NE(error.find(c.message), std::string::npos)
        << "'" << c.line << "' gave '" << error << "'";
  }
  // The edges of each range are fine.
  EXPECT_EQ(Parse("linear a.png --percentile 0 100").percentile->second, 100.0);
  EXPECT_EQ(Parse("equalize a.png --bounds 0 1 --index 0 255").indexRange->second, 255);
  EXPECT_EQ(Parse("equalize a.png --bounds 0 1 --index 7 7").indexRange->first, 7);
  EXPECT_EQ(Parse("scale a.png --auto --map 10").mapType, 10);
  EXPECT_EQ(Parse("scale a.png --values 1,1,1,1,1 --indices 0,0,0,0,1023").scaleIndices[4], 1023);
  EXPECT_EQ(Parse("shade a.png --coefficients 10,0,1,0").coefficients[0], 10.0f);
  EXPECT_EQ(Parse("blend a b --alpha 0").alpha, 0.0);
  EXPECT_EQ(Parse("blend a b --alpha 1").alpha, 1.0);
}

TEST(Options, CombinationsOfTheNewOptions) {
  EXPECT_NE(ErrorOf("linear a.png --exact --map viridis")
                .find("--exact keeps KivLUTSetting's own "
                      "output"),
            std::string::npos);
  for (const char* line :
       {"linear a.png --exact --reverse", "equalize a.png --exact --invalid 1,2,3",
        "equalize a.png --exact --transparent"}) {
    EXPECT_NE(ErrorOf(line).find("--exact keeps"), std::string::npos) << line;
  }
  EXPECT_NE(ErrorOf("linear a.png --json --stats").find("--json and --stats exclude each other"),
            std::string::npos);
  EXPECT_NE(ErrorOf("linear a.png --unit mm").find("give --colorbar or --json"), std::string::npos);
  EXPECT_EQ(ErrorOf("scale a.png --auto --reverse"), "--reverse does not apply to scale");
  EXPECT_EQ(ErrorOf("normals a.png --colorbar"), "--colorbar does not apply to normals");
  EXPECT_EQ(ErrorOf("shade a.png --invalid 1,2,3"), "--invalid does not apply to shade");
  EXPECT_EQ(ErrorOf("blend a b --recursive"), "--recursive does not apply to blend");
  EXPECT_EQ(ErrorOf("blend a b --json"), "--json does not apply to blend");
  EXPECT_NE(ErrorOf("linear a.png --invalid 1,2").find("--invalid: bad value '1,2'"),
            std::string::npos);
  EXPECT_NE(ErrorOf("equalize a.png --array --bounds 0 1 --below 1,2,3").find("--array takes none"),
            std::string::npos);
}

TEST(Options, WarnsWhenOnlyTheHeightResolutionIsSetForTheRelief) {
  for (const char* operation : {"shade", "normals"}) {
    const std::vector<std::string> warnings =
        CommandLineWarnings(Parse(std::string(operation) + " a.png --resolution-z 0.001"));
    ASSERT_EQ(warnings.size(), 1u) << operation;
    EXPECT_NE(warnings[0].find("only --resolution-z is set"), std::string::npos);
    EXPECT_TRUE(CommandLineWarnings(Parse(std::string(operation) +
                                          " a.png --resolution-x 0.1 --resolution-y 0.1 "
                                          "--resolution-z 0.001"))
                    .empty());
    EXPECT_TRUE(CommandLineWarnings(Parse(std::string(operation) + " a.png")).empty());
  }
  EXPECT_TRUE(CommandLineWarnings(Parse("equalize a.png --resolution-z 0.001")).empty());
}

TEST(Options, DefaultsWithoutOptions) {
  const Options o = Parse("equalize depth.png");
  EXPECT_EQ(o.operation, Operation::kEqualize);
  ASSERT_EQ(o.inputs, std::vector<std::string>{"depth.png"});
  EXPECT_TRUE(o.output.empty());
  EXPECT_EQ(o.mapType, 1);
  EXPECT_FALSE(o.bounds || o.indexRange || o.percentile || o.raw);
  EXPECT_EQ(o.axes.resolution, (std::array<double, 3>{1.0, 1.0, 1.0}));
  EXPECT_EQ(o.jobs, 0);
}

TEST(Options, EqualizeWithBoundsIndexAndColours) {
  const Options o = Parse(
      "equalize a.png b.png -o out --bounds -2.5 7 --index 10 200 --below 1,2,3 "
      "--above=250,251,252 --map jet --stats --jobs 3");
  EXPECT_EQ(o.inputs, (std::vector<std::string>{"a.png", "b.png"}));
  EXPECT_EQ(o.output, "out");
  ASSERT_TRUE(o.bounds && o.indexRange);
  EXPECT_EQ(o.bounds->first, -2.5);
  EXPECT_EQ(o.bounds->second, 7.0);
  EXPECT_EQ(o.indexRange->first, 10);
  EXPECT_EQ(o.indexRange->second, 200);
  EXPECT_EQ(o.below.red, 1);
  EXPECT_EQ(o.below.green, 2);
  EXPECT_EQ(o.below.blue, 3);
  EXPECT_EQ(o.above.blue, 252);
  EXPECT_EQ(o.mapType, 6);
  EXPECT_TRUE(o.stats);
  EXPECT_EQ(o.jobs, 3);
}

TEST(Options, RawLayoutAndAxes) {
  const Options o = Parse(
      "shade part.raw --raw 640x480:s16 --resolution-x 0.1 --resolution-y 0.2 --resolution-z "
      "0.001 --offset-x 1 --offset-y 2 --offset-z -3 --light 1,2,3 --eye 4,5,6 "
      "--coefficients 2,0.1,0.2,0.3");
  ASSERT_TRUE(o.raw);
  EXPECT_EQ(o.raw->width, 640);
  EXPECT_EQ(o.raw->height, 480);
  EXPECT_EQ(o.raw->type, KIVMV::KIV_DATA_S16);
  EXPECT_EQ(o.axes.resolution, (std::array<double, 3>{0.1, 0.2, 0.001}));
  EXPECT_EQ(o.axes.offset, (std::array<double, 3>{1.0, 2.0, -3.0}));
  EXPECT_EQ(*o.light, (std::array<float, 3>{1.0f, 2.0f, 3.0f}));
  EXPECT_EQ(*o.eye, (std::array<float, 3>{4.0f, 5.0f, 6.0f}));
  EXPECT_EQ(o.coefficients, (std::array<float, 4>{2.0f, 0.1f, 0.2f, 0.3f}));
}

TEST(Options, ScaleForms) {
  const Options automatic = Parse("scale a.pfm --auto --legend chart.png --map 3");
  EXPECT_TRUE(automatic.automatic);
  EXPECT_EQ(automatic.legendPath, "chart.png");
  EXPECT_EQ(automatic.scaleIndices, (std::array<int, 5>{0, 127, 511, 895, 1023}));
  const Options manual =
      Parse("scale a.pfm --values 1,2,3,4,5 --indices 0,10,20,30,40 --segmented");
  ASSERT_TRUE(manual.scaleValues);
  EXPECT_EQ(*manual.scaleValues, (std::array<double, 5>{1, 2, 3, 4, 5}));
  EXPECT_EQ(manual.scaleIndices, (std::array<int, 5>{0, 10, 20, 30, 40}));
  EXPECT_TRUE(manual.segmented);
}

TEST(Options, OtherOperations) {
  EXPECT_EQ(Parse("linear a.png --percentile 2 98").percentile->second, 98.0);
  EXPECT_TRUE(Parse("linear a.png --array").asArray);
  EXPECT_TRUE(Parse("grey a.png --equalize").equalizeGrey);
  EXPECT_EQ(Parse("normals a.png").operation, Operation::kNormals);
  const Options blend = Parse("blend a.png b.png --alpha 0.25");
  EXPECT_EQ(blend.alpha, 0.25);
  EXPECT_EQ(blend.inputs.size(), 2u);
  const Options demo = Parse("demo gallery");
  EXPECT_EQ(demo.operation, Operation::kDemo);
  EXPECT_EQ(demo.inputs, std::vector<std::string>{"gallery"});
}

// Values only a file can show wrong are the library's to judge, so its status name reaches the
// user.
TEST(Options, LeavesFileDependentChecksToTheLibrary) {
  EXPECT_EQ(Parse("shade a --light 0,0,0").light->at(0), 0.0f);
  EXPECT_EQ(Parse("equalize a --bounds 1e300 2e300").bounds->second, 2e300);
}

TEST(Options, HelpWins) {
  EXPECT_TRUE(ParseCommandLine(Words("--help")).help);
  EXPECT_TRUE(ParseCommandLine(Words("equalize a.png -h")).help);
  const std::string usage = UsageText();
  for (const char* word : {"NAME", "SYNOPSIS", "OPERATIONS", "OPTIONS", "EXIT STATUS", "equalize",
                           "linear", "scale", "normals", "shade", "grey", "blend", "demo",
                           "--percentile", "--raw", "--stats", "--legend"}) {
    EXPECT_NE(usage.find(word), std::string::npos) << word;
  }
}

// The OPTIONS section is laid out from the option table: headings at column 4, text at column 27,
// a wide heading on a line of its own, continuation lines indented to the text.
TEST(Options, HelpLaysOutEveryOptionEntry) {
  const std::string usage = UsageText();
  for (const char* entry : {
           "\nOPTIONS\n    -o, --output OUTPUT    output picture or folder\n",
           "\n    --map MAP              colour map 0..10 or grey, rainbow, hot, diverging, "
           "isoluminant, rgb,\n                           jet (default rainbow; 7..10 colour in "
           "grey; scale takes 1..10); for\n",
           "\n    --resolution-x/-y/-z V, --offset-x/-y/-z V\n                           the range "
           "image's resolution and offset per axis (default 1 and 0);\n",
           "\n    --percentile LOW HIGH  linear: bounds at these percentiles of the valid "
           "pixels,\n",
           "\n    --json                 print the same as one JSON object per file on standard "
           "output:\n",
           "\n    --unit TEXT            the unit of the heights, written on the colour bar and in "
           "--json\n",
           "\n    --auto, --values, --indices, --legend FILE, --segmented\n                      "
           "     scale, see above\n    --light, --eye, --coefficients\n",
           "\n    --jobs N               files coloured at once (default: one per core)\n    -h, "
           "--help             this text\n\nEXIT STATUS\n",
       }) {
    EXPECT_NE(usage.find(entry), std::string::npos) << entry;
  }
}

TEST(Options, OutputHasALongSpellingThatReportsAsTheShortOne) {
  EXPECT_EQ(Parse("equalize a.png --output b.png").output, "b.png");
  EXPECT_EQ(Parse("equalize a.png --output=c.png").output, "c.png");
  EXPECT_EQ(ErrorOf("demo out --output x"), "-o does not apply to demo");
  EXPECT_EQ(ErrorOf("equalize a.png --output"), "-o: missing value");
}

TEST(Options, BadCommandLinesNameTheProblem) {
  const struct {
    const char* line;
    const char* message;
  } cases[] = {
      {"", "no operation given (try kivlut --help)"},
      {"paint a.png", "unknown operation 'paint'"},
      {"equalize", "equalize: no input given"},
      {"equalize a.png --map purple", "--map: bad value 'purple'"},
      {"equalize a.png --map", "--map: missing value"},
      {"equalize a.png --bounds 1 x", "--bounds: bad value 'x' (expected a number)"},
      {"equalize a.png --bounds 1 inf", "--bounds: bad value 'inf'"},
      {"equalize a.png --index 1.5 3 --bounds 0 1", "--index: bad value '1.5'"},
      {"equalize a.png --bounds 0 1 --index 0 9 --below 1,2", "--below: bad value '1,2'"},
      {"equalize a.png --bounds 0 1 --index 0 9 --above 1,2,256", "--above: bad value"},
      {"equalize a.png --raw 640x480", "--raw: bad value '640x480'"},
      {"equalize a.png --raw 0x480:u16", "--raw: bad value"},
      {"equalize a.png --raw 64x48:u64", "--raw: bad value"},
      {"equalize a.png --jobs -1", "--jobs: bad value '-1'"},
      {"equalize a.png --resolution-z abc", "--resolution-z: bad value 'abc'"},
      {"equalize a.png --frobnicate", "unknown option '--frobnicate'"},
      {"equalize a.png --stats=yes", "--stats takes no value"},
      {"equalize a.png --percentile 2 98", "--percentile does not apply to equalize"},
      {"equalize a.png --alpha 0.5", "--alpha does not apply to equalize"},
      {"normals a.png --map jet", "--map does not apply to normals"},
      {"grey a.png --resolution-z 2", "--resolution-z does not apply to grey"},
      {"equalize a.png --index 0 9", "--index needs --bounds"},
      {"linear a.png --below 1,2,3", "--below and --above need --bounds"},
      {"linear a.png --bounds 0 1 --percentile 2 98", "exclude each other"},
      {"linear a.png --array --percentile 2 98", "--array takes none of"},
      {"grey a.png --equalize --bounds 0 9", "--equalize and --bounds exclude each other"},
      {"scale a.png", "scale needs either --auto or --values"},
      {"scale a.png --auto --values 1,2,3,4,5", "scale needs either --auto or --values"},
      {"scale a.png --auto --indices 0,1,2,3,4", "--indices does not apply with --auto"},
      {"scale a.png --values 1,2,3,4", "--values: bad value '1,2,3,4'"},
      {"shade a.png --light 1,2", "--light: bad value '1,2'"},
      {"shade a.png --eye 1,2,1e39", "--eye: bad value"},
      {"blend a.png", "blend takes exactly two pictures"},
      {"blend a.png b.png c.png", "blend takes exactly two pictures"},
      {"demo", "demo takes one output folder"},
      {"demo out -o x", "-o does not apply to demo"},
  };
  for (const auto& c : cases) {
    const std::string error = ErrorOf(c.line);
    EXPECT_NE(error.find(c.message), std::string::npos)
        << "'" << c.line << "' gave '" << error << "'";
  }
}

TEST(Options, StableAndVideoOutputs) {
  const Options stable = Parse("equalize frames --stable 2.5");
  ASSERT_TRUE(stable.stable.has_value());
  EXPECT_EQ(*stable.stable, 2.5);
  EXPECT_TRUE(ColoursInSequence(stable));
  EXPECT_FALSE(Parse("equalize frames").stable.has_value());
  EXPECT_FALSE(ColoursInSequence(Parse("equalize frames -o out")));
  EXPECT_TRUE(ColoursInSequence(Parse("linear frames -o out.avi")));
  EXPECT_EQ(Parse("linear frames -o out.avi").fps, 10.0);
  EXPECT_EQ(Parse("linear frames -o out.MP4 --fps 29.97").fps, 29.97);
  EXPECT_EQ(VideoContainerOf("a/b.avi"), VideoContainer::kAvi);
  EXPECT_EQ(VideoContainerOf("b.Avi"), VideoContainer::kAvi);
  EXPECT_EQ(VideoContainerOf("b.mp4"), VideoContainer::kMp4);
  EXPECT_EQ(VideoContainerOf("b.png"), std::nullopt);
  EXPECT_EQ(VideoContainerOf("avi"), std::nullopt);
  EXPECT_EQ(VideoContainerOf("out.avi/"), std::nullopt);
  EXPECT_EQ(VideoContainerOf(""), std::nullopt);
  // Where --stable has something to carry: equalised with given bounds carries its histogram,
  // linear with percentiles its bounds.
  EXPECT_TRUE(Parse("equalize a --stable 3 --bounds 0 1").stable.has_value());
  EXPECT_TRUE(Parse("equalize a --stable 3 --bounds 0 1 --below 1,2,3").stable.has_value());
  EXPECT_TRUE(Parse("linear a --stable 3 --percentile 2 98").stable.has_value());
  EXPECT_TRUE(Parse("linear a --stable 3 --map viridis --colorbar").stable.has_value());
  const struct {
    const char* line;
    const char* message;
  } refused[] = {
      {"equalize a --stable 0", "--stable: N must be above 0"},
      {"equalize a --stable nan", "--stable: bad value 'nan'"},
      {"scale a --auto --stable 3", "--stable does not apply to scale"},
      {"grey a --stable 3", "--stable does not apply to grey"},
      {"blend a b --stable 3", "--stable does not apply to blend"},
      {"linear a --stable 3 --bounds 0 1", "linear with --bounds has nothing to carry"},
      {"equalize a --stable 3 --bounds 0 1 --index 0 9", "--index does not apply"},
      {"equalize a --stable 3 --exact", "--exact does not apply"},
      {"equalize a --stable 3 --array", "--array does not apply"},
      {"equalize a --fps 5", "--fps sets the frame rate of a video"},
      {"equalize a -o v.avi --fps 0", "--fps must be above 0, got 0"},
      {"equalize a -o v.avi --transparent", "a video has no alpha"},
      {"scale a --auto -o v.mp4 --legend l.png", "--legend writes a chart"},
      {"blend a b -o v.avi", "blend writes one picture"},
      {"demo out --fps 3", "--fps does not apply to demo"},
  };
  for (const auto& c : refused) {
    const std::string error = ErrorOf(c.line);
    EXPECT_NE(error.find(c.message), std::string::npos)
        << "'" << c.line << "' gave '" << error << "'";
  }
}

TEST(Options, NegativeNumbersAreValuesNotOptions) {
  const Options o = Parse("linear a.png --bounds -1e3 -5");
  EXPECT_EQ(o.bounds->first, -1000.0);
  EXPECT_EQ(o.bounds->second, -5.0);
}

}  // namespace
}  // namespace kivlut
