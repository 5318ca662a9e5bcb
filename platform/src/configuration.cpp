#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "KivConfiguration.h"
#include "setting_parsers.h"

namespace KIVMV {
namespace detail {

int ParseIntSetting(const char* text, int fallback) {
  if (text == nullptr) return fallback;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || errno == ERANGE) return fallback;
  if (value < INT_MIN || value > INT_MAX) return fallback;
  return static_cast<int>(value);
}

bool ParseBoolSetting(const char* text, bool fallback) {
  if (text == nullptr) return fallback;
  std::string word(text);
  for (char& c : word) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (word == "1" || word == "true" || word == "yes" || word == "on") return true;
  if (word == "0" || word == "false" || word == "no" || word == "off") return false;
  return fallback;
}

}  // namespace detail

namespace {

struct StaticSettings {
  int efficiency = 0;
  int tbbChunks = 0;
  bool gpu = false;
  int winVersion = 0;
};

// Read on first use; the function-local static makes that thread-safe and happen exactly once.
const StaticSettings& Settings() {
  static const StaticSettings settings = [] {
    StaticSettings s;
    s.efficiency = detail::ParseIntSetting(std::getenv("KIV_EFFICIENCY"), s.efficiency);
    s.tbbChunks = detail::ParseIntSetting(std::getenv("KIV_TBB_CHUNKS"), s.tbbChunks);
    s.gpu = detail::ParseBoolSetting(std::getenv("KIV_GPU"), s.gpu);
    s.winVersion = detail::ParseIntSetting(std::getenv("KIV_WIN_VERSION"), s.winVersion);
    return s;
  }();
  return settings;
}

template <typename T>
long Deliver(T* out, T value) {
  if (out == nullptr) return kKivPlatformNullArgument;
  *out = value;
  return kKivPlatformOk;
}

}  // namespace

long KivGetStaticEfficiency(int* value) { return Deliver(value, Settings().efficiency); }

long KivGetStaticTBB(int* value) { return Deliver(value, Settings().tbbChunks); }

long KivGetStaticGPU(bool* value) { return Deliver(value, Settings().gpu); }

long KivGetStaticWinVersion(int* value) { return Deliver(value, Settings().winVersion); }

}  // namespace KIVMV
