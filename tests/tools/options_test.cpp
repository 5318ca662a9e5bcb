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
  for (const char* bad : {"11", "-1", "Jet", "", "1.5", "hot-metal"}) {
    EXPECT_FALSE(ParseMapType(bad).has_value()) << bad;
  }
  for (int map = 0; map < 7; ++map) EXPECT_EQ(ParseMapType(MapName(map)), map);
  EXPECT_EQ(MapName(8), "map8");
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

// Out-of-range values the library judges itself (so its status name reaches the user) parse.
TEST(Options, LeavesRangeChecksToTheLibrary) {
  EXPECT_EQ(Parse("linear a.png --bounds 5 1").bounds->first, 5.0);
  EXPECT_EQ(Parse("equalize a.png --bounds 0 1 --index 300 -4").indexRange->second, -4);
  EXPECT_EQ(Parse("blend a b --alpha 1.5").alpha, 1.5);
  EXPECT_EQ(Parse("shade a --coefficients 20,-1,2,3").coefficients[0], 20.0f);
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
           "grey)\n",
           "\n    --resolution-x/-y/-z V, --offset-x/-y/-z V\n                           the range "
           "image's resolution and offset per axis (default 1 and 0)\n    --bounds LOW HIGH  ",
           "\n    --percentile LOW HIGH  linear: bounds at these percentiles of the valid pixels\n",
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
      {"linear a.png --bounds 0 1 --below 1,2,3", "--below and --above need --bounds and --index"},
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

TEST(Options, NegativeNumbersAreValuesNotOptions) {
  const Options o = Parse("linear a.png --bounds -1e3 -5");
  EXPECT_EQ(o.bounds->first, -1000.0);
  EXPECT_EQ(o.bounds->second, -5.0);
}

}  // namespace
}  // namespace kivlut
