// What the tests of the kivlut program share: which program runs, and reading what it printed.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace kivlut_testing {

// One run of the program: its exit status and what it wrote to standard output and error.
struct ToolRun {
  int exitStatus = -1;
  std::string out;
  std::string err;
};

#ifdef KIVLUT_TOOL
// The kivlut that KIVLUT_INSTALLED_TOOL names (an installed one, as run_against_installed.cmake
// sets it), otherwise the build tree's (KIVLUT_TOOL, defined for the tests that run the program).
inline std::string ToolUnderTest() {
  const char* installed = std::getenv("KIVLUT_INSTALLED_TOOL");
  return installed != nullptr && *installed != '\0' ? installed : KIVLUT_TOOL;
}
#endif

inline std::string ReadText(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

// A word for the shell, in single quotes.
inline std::string Quote(const std::string& word) {
  std::string quoted = "'";
  for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

inline bool StartsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Runs `tool` with `args` through the shell, `environment` (assignments, may be empty) before it,
// its standard output and error caught in files of `folder` that are gone afterwards.
inline ToolRun RunTool(const std::string& tool, const std::vector<std::string>& args,
                       const std::string& environment, const std::filesystem::path& folder) {
  const std::filesystem::path out = folder / "stdout.txt";
  const std::filesystem::path err = folder / "stderr.txt";
  std::string command = environment + " " + Quote(tool);
  for (const auto& arg : args) command += " " + Quote(arg);
  command += " >" + Quote(out.string()) + " 2>" + Quote(err.string());
  const int raw = std::system(command.c_str());
  ToolRun run;
  run.exitStatus = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = ReadText(out);
  run.err = ReadText(err);
  std::filesystem::remove(out);
  std::filesystem::remove(err);
  return run;
}

// A refusal before any work: exit status 2, nothing on standard output, and one line on standard
// error that names the program and holds `message`.
inline void ExpectRefusedUpFront(const ToolRun& run, const std::string& message) {
  EXPECT_EQ(run.exitStatus, 2);
  EXPECT_TRUE(run.out.empty()) << run.out;
  EXPECT_EQ(Lines(run.err).size(), 1u) << run.err;
  EXPECT_TRUE(StartsWith(run.err, "kivlut: ")) << run.err;
  EXPECT_TRUE(Contains(run.err, message)) << run.err;
}

}  // namespace kivlut_testing
