#ifndef KIVMV_KIV_FAST_LOGGER_PRIVATE_H_
#define KIVMV_KIV_FAST_LOGGER_PRIVATE_H_

#include <functional>
#include <string>

#include "KivPlatformExport.h"
#include "KivPlatformStatus.h"

namespace KIVMV {

// Trace logger. Messages are narrow strings in the caller's encoding (GBK in practice) and are
// passed on byte for byte, never transcoded. A null argument is treated as an empty string.
//
// Where a message goes is process-wide:
// - a sink installed with SetSink() receives every call;
// - otherwise, if the environment variable KIV_LOG_FILE is set (read once per process), one line
//   per call is appended to that file:
//     <UTC time, ISO-8601 with microseconds> [thread <id>] <class>::<method>:<line> <message>\n
//   Lines from concurrent threads never interleave and each is flushed as it is written;
// - otherwise nothing is written.
class KIVMV_PLATFORM_API KivFastLoggerPrivate {
 public:
  KivFastLoggerPrivate();
  ~KivFastLoggerPrivate();

  // kKivPlatformOk, or kKivPlatformIoError when the log file cannot be opened or written.
  long Log(const char* message, const char* className, const char* methodName, int line);

  using Sink = std::function<void(const std::string& message, const std::string& className,
                                  const std::string& methodName, int line)>;
  // Installs a process-wide sink; an empty sink restores the default destination. A sink is
  // called outside any lock and concurrently from every logging thread, so it must be
  // thread-safe; a call that started before SetSink() returned may still reach the old sink.
  static void SetSink(Sink sink);
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_FAST_LOGGER_PRIVATE_H_
