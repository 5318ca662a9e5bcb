#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "KivFastLoggerPrivate.h"

namespace KIVMV {
namespace {

struct Record {
  std::string message;
  std::string className;
  std::string methodName;
  int line = 0;
};

// Collects everything a sink receives; restores the default destination when destroyed.
class RecordingSink {
 public:
  RecordingSink() {
    KivFastLoggerPrivate::SetSink([this](const std::string& message, const std::string& className,
                                         const std::string& methodName, int line) {
      std::lock_guard<std::mutex> lock(mutex_);
      records_.push_back({message, className, methodName, line});
    });
  }
  ~RecordingSink() { KivFastLoggerPrivate::SetSink({}); }

  std::vector<Record> records() {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
  }

 private:
  std::mutex mutex_;
  std::vector<Record> records_;
};

TEST(FastLogger, SinkReceivesExactBytes) {
  RecordingSink sink;
  KivFastLoggerPrivate logger;
  // GBK bytes that are not valid UTF-8 must arrive untouched.
  const std::string message = "\xd1\xd5\xc9\xab start \xff\x80";
  EXPECT_EQ(kKivPlatformOk, logger.Log(message.c_str(), "KivLUTSetting",
                                       "Get\xd1\xd5"
                                       "Color",
                                       313));
  const auto records = sink.records();
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ(message, records[0].message);
  EXPECT_EQ(message.size(), records[0].message.size());
  EXPECT_EQ("KivLUTSetting", records[0].className);
  EXPECT_EQ(std::string("Get\xd1\xd5") + "Color", records[0].methodName);
  EXPECT_EQ(313, records[0].line);
}

TEST(FastLogger, NullArgumentsBecomeEmptyStrings) {
  RecordingSink sink;
  KivFastLoggerPrivate logger;
  EXPECT_EQ(kKivPlatformOk, logger.Log(nullptr, nullptr, nullptr, -1));
  EXPECT_EQ(kKivPlatformOk, logger.Log("m", nullptr, "f", 0));
  const auto records = sink.records();
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ("", records[0].message);
  EXPECT_EQ("", records[0].className);
  EXPECT_EQ("", records[0].methodName);
  EXPECT_EQ(-1, records[0].line);
  EXPECT_EQ("m", records[1].message);
  EXPECT_EQ("", records[1].className);
  EXPECT_EQ("f", records[1].methodName);
}

TEST(FastLogger, EmptySinkRestoresDefault) {
  std::atomic<int> calls{0};
  KivFastLoggerPrivate::SetSink(
      [&calls](const std::string&, const std::string&, const std::string&, int) { ++calls; });
  KivFastLoggerPrivate logger;
  logger.Log("one", "C", "M", 1);
  EXPECT_EQ(1, calls.load());
  KivFastLoggerPrivate::SetSink({});
  logger.Log("two", "C", "M", 2);
  EXPECT_EQ(1, calls.load());
}

TEST(FastLogger, NewSinkReplacesOld) {
  int first = 0;
  int second = 0;
  KivFastLoggerPrivate::SetSink(
      [&first](const std::string&, const std::string&, const std::string&, int) { ++first; });
  KivFastLoggerPrivate::SetSink(
      [&second](const std::string&, const std::string&, const std::string&, int) { ++second; });
  KivFastLoggerPrivate().Log("x", "C", "M", 1);
  KivFastLoggerPrivate::SetSink({});
  EXPECT_EQ(0, first);
  EXPECT_EQ(1, second);
}

TEST(FastLogger, SinkMayResetItselfWithoutDeadlock) {
  int calls = 0;
  KivFastLoggerPrivate::SetSink(
      [&calls](const std::string&, const std::string&, const std::string&, int) {
        ++calls;
        KivFastLoggerPrivate::SetSink({});
      });
  KivFastLoggerPrivate logger;
  logger.Log("a", "C", "M", 1);
  logger.Log("b", "C", "M", 2);
  EXPECT_EQ(1, calls);
}

TEST(FastLogger, SwappingSinksWhileLoggingLosesNothing) {
  std::atomic<int> a{0};
  std::atomic<int> b{0};
  auto sinkA = [&a](const std::string&, const std::string&, const std::string&, int) { ++a; };
  auto sinkB = [&b](const std::string&, const std::string&, const std::string&, int) { ++b; };
  KivFastLoggerPrivate::SetSink(sinkA);

  constexpr int kThreads = 4;
  constexpr int kCalls = 2000;
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&go] {
      while (!go.load()) std::this_thread::yield();
      KivFastLoggerPrivate logger;
      for (int i = 0; i < kCalls; ++i) logger.Log("msg", "C", "M", i);
    });
  }
  go = true;
  for (int i = 0; i < 200; ++i) {
    if (i % 2 == 0) {
      KivFastLoggerPrivate::SetSink(sinkB);
    } else {
      KivFastLoggerPrivate::SetSink(sinkA);
    }
  }
  for (auto& thread : threads) thread.join();
  KivFastLoggerPrivate::SetSink({});
  EXPECT_EQ(kThreads * kCalls, a.load() + b.load());
}

// The default file writer reads KIV_LOG_FILE once per process, so these run in a freshly started
// child (the "threadsafe" death-test style re-executes the test binary). The child checks the
// file itself, prints what went wrong on stderr and exits non-zero on failure.
class FastLoggerFile : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

std::string ChildLogPath() {
  return ::testing::TempDir() + "kivplatform_log_" + std::to_string(getpid()) + ".log";
}

std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

bool IsDigits(const std::string& s, std::size_t pos, std::size_t count) {
  if (pos + count > s.size()) return false;
  for (std::size_t i = pos; i < pos + count; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
  }
  return true;
}

// "YYYY-MM-DDTHH:MM:SS.ffffffZ " followed by "[thread <id>] "; returns the rest of the line, or
// sets ok to false.
std::string StripPrefix(const std::string& line, std::string* thread, bool* ok) {
  *ok = false;
  if (line.size() < 28) return {};
  const bool timeOk = IsDigits(line, 0, 4) && line[4] == '-' && IsDigits(line, 5, 2) &&
                      line[7] == '-' && IsDigits(line, 8, 2) && line[10] == 'T' &&
                      IsDigits(line, 11, 2) && line[13] == ':' && IsDigits(line, 14, 2) &&
                      line[16] == ':' && IsDigits(line, 17, 2) && line[19] == '.' &&
                      IsDigits(line, 20, 6) && line[26] == 'Z' && line[27] == ' ';
  if (!timeOk) return {};
  const std::string open = "[thread ";
  if (line.compare(28, open.size(), open) != 0) return {};
  const std::size_t close = line.find("] ", 28 + open.size());
  if (close == std::string::npos || close == 28 + open.size()) return {};
  *thread = line.substr(28 + open.size(), close - 28 - open.size());
  *ok = true;
  return line.substr(close + 2);
}

[[noreturn]] void Finish(bool ok, const std::string& path) {
  std::remove(path.c_str());
  std::exit(ok ? 0 : 1);
}

[[noreturn]] void ManyThreadsChild() {
  const std::string path = ChildLogPath();
  {
    // Existing content must be kept: the file is opened for appending.
    std::ofstream seed(path, std::ios::binary | std::ios::trunc);
    seed << "existing line\n";
  }
  setenv("KIV_LOG_FILE", path.c_str(), 1);

  constexpr int kThreads = 8;
  constexpr int kCalls = 1000;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      KivFastLoggerPrivate logger;
      for (int i = 0; i < kCalls; ++i) {
        const std::string message =
            "t" + std::to_string(t) + " i" + std::to_string(i) + " \xd1\xd5\xc9\xab";
        if (logger.Log(message.c_str(), "KivLUTSetting", "GetColor", 300 + t) != 0) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  if (failures != 0) {
    std::fprintf(stderr, "Log returned non-zero %d times\n", failures.load());
    Finish(false, path);
  }

  const std::vector<std::string> lines = ReadLines(path);
  if (lines.size() != static_cast<std::size_t>(1 + kThreads * kCalls) ||
      lines[0] != "existing line") {
    std::fprintf(stderr, "unexpected line count %zu\n", lines.size());
    Finish(false, path);
  }
  std::vector<int> next(kThreads, 0);
  std::map<int, std::string> threadIds;
  for (std::size_t n = 1; n < lines.size(); ++n) {
    std::string thread;
    bool ok = false;
    const std::string rest = StripPrefix(lines[n], &thread, &ok);
    int t = -1;
    int i = -1;
    int tag = -1;
    char tail[16] = {};
    if (!ok ||
        std::sscanf(rest.c_str(), "KivLUTSetting::GetColor:%d t%d i%d %15s", &tag, &t, &i, tail) !=
            4 ||
        t < 0 || t >= kThreads || tag != 300 + t || i != next[t] ||
        std::string(tail) != "\xd1\xd5\xc9\xab" ||
        rest != "KivLUTSetting::GetColor:" + std::to_string(300 + t) + " t" + std::to_string(t) +
                    " i" + std::to_string(i) + " \xd1\xd5\xc9\xab") {
      std::fprintf(stderr, "malformed line %zu: %s\n", n, lines[n].c_str());
      Finish(false, path);
    }
    ++next[t];
    auto inserted = threadIds.emplace(t, thread);
    if (inserted.first->second != thread) {
      std::fprintf(stderr, "thread tag changed on line %zu\n", n);
      Finish(false, path);
    }
  }
  std::set<std::string> distinct;
  for (const auto& entry : threadIds) distinct.insert(entry.second);
  if (distinct.size() != static_cast<std::size_t>(kThreads)) {
    std::fprintf(stderr, "expected %d distinct thread tags, got %zu\n", kThreads, distinct.size());
    Finish(false, path);
  }
  Finish(true, path);
}

TEST_F(FastLoggerFile, ManyThreadsWriteWholeLines) {
  EXPECT_EXIT(ManyThreadsChild(), ::testing::ExitedWithCode(0), "");
}

[[noreturn]] void SinkThenDefaultChild() {
  const std::string path = ChildLogPath();
  std::remove(path.c_str());
  setenv("KIV_LOG_FILE", path.c_str(), 1);
  int sinkCalls = 0;
  KivFastLoggerPrivate::SetSink([&sinkCalls](const std::string&, const std::string&,
                                             const std::string&, int) { ++sinkCalls; });
  KivFastLoggerPrivate logger;
  logger.Log("to sink", "C", "M", 1);
  KivFastLoggerPrivate::SetSink({});
  const long status = logger.Log("to file", "C", "M", 2);
  const std::vector<std::string> lines = ReadLines(path);
  std::string thread;
  bool ok = false;
  const std::string rest = lines.size() == 1 ? StripPrefix(lines[0], &thread, &ok) : "";
  if (status != 0 || sinkCalls != 1 || !ok || rest != "C::M:2 to file") {
    std::fprintf(stderr, "status %ld, sink calls %d, %zu lines\n", status, sinkCalls, lines.size());
    Finish(false, path);
  }
  Finish(true, path);
}

TEST_F(FastLoggerFile, EmptySinkFallsBackToFile) {
  EXPECT_EXIT(SinkThenDefaultChild(), ::testing::ExitedWithCode(0), "");
}

[[noreturn]] void NullArgumentsChild() {
  const std::string path = ChildLogPath();
  std::remove(path.c_str());
  setenv("KIV_LOG_FILE", path.c_str(), 1);
  const long status = KivFastLoggerPrivate().Log(nullptr, nullptr, nullptr, 7);
  const std::vector<std::string> lines = ReadLines(path);
  std::string thread;
  bool ok = false;
  const std::string rest = lines.size() == 1 ? StripPrefix(lines[0], &thread, &ok) : "";
  Finish(status == 0 && ok && rest == ":::7 ", path);
}

TEST_F(FastLoggerFile, NullArgumentsWriteEmptyFields) {
  EXPECT_EXIT(NullArgumentsChild(), ::testing::ExitedWithCode(0), "");
}

[[noreturn]] void UnwritableFileChild() {
  setenv("KIV_LOG_FILE", "/nonexistent-kivplatform-dir/sub/log.txt", 1);
  const long status = KivFastLoggerPrivate().Log("x", "C", "M", 1);
  std::exit(status == kKivPlatformIoError ? 0 : 1);
}

TEST_F(FastLoggerFile, UnopenableFileIsReported) {
  EXPECT_EXIT(UnwritableFileChild(), ::testing::ExitedWithCode(0), "");
}

[[noreturn]] void UnsetChild() {
  unsetenv("KIV_LOG_FILE");
  const long status = KivFastLoggerPrivate().Log("x", "C", "M", 1);
  std::exit(status == kKivPlatformOk ? 0 : 1);
}

TEST_F(FastLoggerFile, UnsetVariableWritesNothing) {
  EXPECT_EXIT(UnsetChild(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace KIVMV
