#ifndef KIVMV_KIV_CONFIGURATION_DETAIL_H_
#define KIVMV_KIV_CONFIGURATION_DETAIL_H_

// The parsers behind KivConfiguration.h, exposed so they can be tested without touching the
// process environment. Not part of the stable interface.

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

#endif  // KIVMV_KIV_CONFIGURATION_DETAIL_H_
