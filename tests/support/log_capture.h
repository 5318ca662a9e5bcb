// Captures what the library logs while the object lives.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "KivFastLoggerPrivate.h"

namespace KIVMV {
namespace testing_support {

struct LogLine {
  std::string message;
  std::string className;
  std::string methodName;
  int line;
};

class LogCapture {
 public:
  LogCapture() {
    KivFastLoggerPrivate::SetSink([this](const std::string& message, const std::string& className,
                                         const std::string& methodName, int line) {
      std::lock_guard<std::mutex> lock(mutex_);
      lines_.push_back({message, className, methodName, line});
    });
  }
  ~LogCapture() { KivFastLoggerPrivate::SetSink({}); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }

  // Each line as "method:tag:message".
  std::vector<std::string> Tags() {
    std::vector<std::string> tags;
    for (const LogLine& line : Lines()) {
      tags.push_back(line.methodName + ":" + std::to_string(line.line) + ":" + line.message);
    }
    return tags;
  }

 private:
  std::mutex mutex_;
  std::vector<LogLine> lines_;
};

}  // namespace testing_support
}  // namespace KIVMV
