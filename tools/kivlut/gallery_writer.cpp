// The gallery: the scene written as the commands' inputs, then every picture made by running its
// command line through the same parser and operation code as the program, so the contact sheet
// shows what each command does.
#include "gallery_writer.h"

#include <algorithm>
#include <cctype>
#include <exception>
#include <opencv2/core.hpp>
#include <ostream>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "demo_scene.h"
#include "frame_io.h"
#include "gallery_commands.h"
#include "operations.h"
#include "options.h"

namespace kivlut {
namespace {

constexpr int kThumbnailWidth = 256;

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

  // The commands' inputs; the raw file is not shown, its pixels being the PNG's.
  const KIVMV::KivRangeImage scene = MakeMachinedPartsScene();
  const struct {
    const char* file;
    KIVMV::KivRangeImage image;
    FrameFormat format;
    const char* caption;  // nullptr: not on the contact sheet
  } inputs[] = {
      {kSceneFile, scene, FrameFormat::kPng, "16-bit heights, as the sensor delivers them"},
      {kSceneRawFile, scene, FrameFormat::kRaw, nullptr},
      {kScene8BitFile, EightBitCopy(scene), FrameFormat::kPng, "8-bit levels, the input of grey"},
  };
  std::vector<Figure> figures;
  std::string error;
  for (const auto& input : inputs) {
    if (!WriteRangeFrame(outDir / input.file, input.image, input.format, &error)) {
      fail(input.file, error);
      continue;
    }
    wrote(input.file);
    if (input.caption != nullptr) figures.push_back({"input", input.file, input.caption, ""});
  }

  for (const GalleryCommand& command : GalleryCommands()) {
    std::vector<std::string> written;
    std::string failedFile;
    std::string problem;
    const bool made = MakePicture(outDir, command.args, &written, &failedFile, &problem);
    const std::string commandText = CommandText(command.args);
    for (size_t i = 0; i < written.size(); ++i) {
      wrote(written[i]);
      const std::string caption =
          i == 0 ? command.caption : "the histogram chart of the command beside it";
      figures.push_back({command.args[0], written[i], caption, commandText});
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

int WriteGallery(const std::filesystem::path& outDir, std::ostream& log) {
  try {
    return WriteGalleryUnguarded(outDir, log);
  } catch (const std::exception& e) {
    log << "kivlut: " << outDir.string() << ": the gallery stopped: " << e.what() << "\n";
    return 1;
  }
}

}  // namespace kivlut
