// The parsers behind KivConfiguration.h, apart from the process environment so that tests can
// give them any text.
#ifndef KIVMV_PLATFORM_SRC_SETTING_PARSERS_H_
#define KIVMV_PLATFORM_SRC_SETTING_PARSERS_H_

namespace KIVMV {
namespace detail {

// A whole decimal number (optional sign, leading whitespace allowed, nothing after it) within int
// range; otherwise fallback. Null gives fallback.
int ParseIntSetting(const char* text, int fallback);
// "1"/"true"/"yes"/"on" -> true and "0"/"false"/"no"/"off" -> false, case-insensitively;
// anything else (or null) gives fallback.
bool ParseBoolSetting(const char* text, bool fallback);

}  // namespace detail
}  // namespace KIVMV

#endif  // KIVMV_PLATFORM_SRC_SETTING_PARSERS_H_
