// Which kivlut a test of the program runs: the one KIVLUT_INSTALLED_TOOL names (an installed
// kivlut, as run_against_installed.cmake sets it), otherwise the one of the build tree.
#pragma once

#include <cstdlib>
#include <string>

inline std::string ToolUnderTest() {
  const char* installed = std::getenv("KIVLUT_INSTALLED_TOOL");
  return installed != nullptr && *installed != '\0' ? installed : KIVLUT_TOOL;
}
