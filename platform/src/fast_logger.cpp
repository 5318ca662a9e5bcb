#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "KivFastLoggerPrivate.h"

namespace KIVMV {
namespace {

std::string OrEmpty(const char* text) {
  return text != nullptr ? std::string(text) : std::string();
}

// The state below is heap-allocated and never freed so that logging from other static
// destructors, or from threads still running at exit, never touches a destroyed object.

struct SinkSlot {
  std::mutex mutex;
  std::shared_ptr<const KivFastLoggerPrivate::Sink> sink;
};

SinkSlot& TheSinkSlot() {
  static SinkSlot* slot = new SinkSlot();
  return *slot;
}

std::shared_ptr<const KivFastLoggerPrivate::Sink> CurrentSink() {
  SinkSlot& slot = TheSinkSlot();
  std::lock_guard<std::mutex> lock(slot.mutex);
  return slot.sink;
}

class FileWriter {
 public:
  FileWriter() {
    const char* path = std::getenv("KIV_LOG_FILE");
    if (path == nullptr) return;
    enabled_ = true;
    // Opened once, in append mode, for the life of the process.
    file_ = std::fopen(path, "ab");
  }

  long Write(const std::string& line) {
    if (!enabled_) return kKivPlatformOk;
    if (file_ == nullptr) return kKivPlatformIoError;
    // One locked write + flush per line keeps lines from different threads whole.
    std::lock_guard<std::mutex> lock(mutex_);
    const bool written = std::fwrite(line.data(), 1, line.size(), file_) == line.size();
    const bool flushed = std::fflush(file_) == 0;
    return written && flushed ? kKivPlatformOk : kKivPlatformIoError;
  }

  bool enabled() const { return enabled_; }

 private:
  bool enabled_ = false;
  std::FILE* file_ = nullptr;
  std::mutex mutex_;
};

FileWriter& TheFileWriter() {
  static FileWriter* writer = new FileWriter();
  return *writer;
}

// 2026-11-22T03:04:05.123456Z
std::string UtcTimestamp() {
  using namespace std::chrono;
  const auto micros = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
  long long seconds = micros / 1000000;
  long long fraction = micros % 1000000;
  if (fraction < 0) {  // Before 1970: keep the fraction positive.
    fraction += 1000000;
    seconds -= 1;
  }
  const time_t t = static_cast<time_t>(seconds);
  struct tm parts {};
  gmtime_r(&t, &parts);
  char buffer[48];
  std::snprintf(buffer, sizeof(buffer), "%04d-%02d-%02dT%02d:%02d:%02d.%06lldZ",
                parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                parts.tm_sec, fraction);
  return buffer;
}

const std::string& ThreadTag() {
  thread_local const std::string tag = [] {
    std::ostringstream out;
    out << "[thread " << std::this_thread::get_id() << "]";
    return out.str();
  }();
  return tag;
}

}  // namespace

KivFastLoggerPrivate::KivFastLoggerPrivate() = default;

KivFastLoggerPrivate::~KivFastLoggerPrivate() = default;

long KivFastLoggerPrivate::Log(const char* message, const char* className, const char* methodName,
                               int line) {
  if (const auto sink = CurrentSink()) {
    // Called outside the lock so a slow sink never serialises the logging threads.
    (*sink)(OrEmpty(message), OrEmpty(className), OrEmpty(methodName), line);
    return kKivPlatformOk;
  }

  FileWriter& writer = TheFileWriter();
  if (!writer.enabled()) return kKivPlatformOk;

  std::string text = UtcTimestamp();
  text += ' ';
  text += ThreadTag();
  text += ' ';
  text += OrEmpty(className);
  text += "::";
  text += OrEmpty(methodName);
  text += ':';
  text += std::to_string(line);
  text += ' ';
  text += OrEmpty(message);
  text += '\n';
  return writer.Write(text);
}

void KivFastLoggerPrivate::SetSink(Sink sink) {
  std::shared_ptr<const Sink> next;
  if (sink) next = std::make_shared<const Sink>(std::move(sink));
  SinkSlot& slot = TheSinkSlot();
  std::shared_ptr<const Sink> previous;
  {
    std::lock_guard<std::mutex> lock(slot.mutex);
    previous = std::exchange(slot.sink, std::move(next));
  }
  // The old sink (and whatever it captured) is released here, outside the lock.
}

}  // namespace KIVMV
