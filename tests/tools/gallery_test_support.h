// What the gallery's tests share: a gallery command parsed as the program parses it, and the
// command line the contact sheet shows for it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options.h"

namespace kivlut {
namespace testing_support {

inline Options Parse(const std::vector<std::string>& args) {
  const ParsedCommandLine parsed = ParseCommandLine(args);
  EXPECT_TRUE(parsed.options.has_value()) << parsed.error;
  return parsed.options.value_or(Options());
}

inline std::string Joined(const std::vector<std::string>& args) {
  std::string text = "kivlut";
  for (const std::string& word : args) text += " " + word;
  return text;
}

}  // namespace testing_support
}  // namespace kivlut
