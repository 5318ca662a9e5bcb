// The dialog on a real X server: starts its own Xvfb on a free display, runs the screenshot
// program there (it checks the preview against SetColorLUT and the screen against the preview,
// saves dialog.png and presses OK), and stops the server.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

constexpr int kScreenWidth = 1280;
constexpr int kScreenHeight = 800;

// The full path of an executable found on PATH, or "".
std::string FindOnPath(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
  std::string folder;
  while (std::getline(folders, folder, ':')) {
    const std::string candidate = folder + "/" + name;
    if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::string();
}

// Waits up to `timeout` for a child; its exit status, or nothing if it is still running.
std::optional<int> WaitFor(pid_t pid, std::chrono::milliseconds timeout) {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (true) {
    int status = 0;
    const pid_t done = ::waitpid(pid, &status, WNOHANG);
    if (done == pid) return status;
    if (done < 0 || std::chrono::steady_clock::now() >= end) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void Stop(pid_t pid) {
  ::kill(pid, SIGTERM);
  if (!WaitFor(pid, std::chrono::seconds(5))) {
    ::kill(pid, SIGKILL);
    WaitFor(pid, std::chrono::seconds(5));
  }
}

// An Xvfb of its own: -displayfd makes the server pick a free display number and report it
// once it accepts connections, so there is neither a guess nor a race with other servers.
class Xvfb {
 public:
  explicit Xvfb(const std::string& program) {
    int fds[2];
    if (::pipe(fds) != 0) {
      error_ = "pipe failed";
      return;
    }
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    const std::string fd = std::to_string(fds[1]);
    const std::string screen =
        std::to_string(kScreenWidth) + "x" + std::to_string(kScreenHeight) + "x24";
    std::vector<std::string> args = {program, "-displayfd", fd,    "-screen", "0",
                                     screen,  "-nolisten",  "tcp", "-noreset"};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const int spawned =
        ::posix_spawn(&pid_, program.c_str(), nullptr, nullptr, argv.data(), environ);
    ::close(fds[1]);
    if (spawned != 0) {
      error_ = "cannot start " + program + ": " + std::strerror(spawned);
      pid_ = 0;
      ::close(fds[0]);
      return;
    }
    std::string number;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (number.find('\n') == std::string::npos && std::chrono::steady_clock::now() < end) {
      pollfd readable{fds[0], POLLIN, 0};
      if (::poll(&readable, 1, 200) <= 0) continue;
      char buffer[32];
      const ssize_t got = ::read(fds[0], buffer, sizeof buffer);
      if (got <= 0) break;
      number.append(buffer, static_cast<size_t>(got));
    }
    ::close(fds[0]);
    if (number.find('\n') == std::string::npos) {
      error_ = "Xvfb did not report a display";
      return;
    }
    display_ = ":" + number.substr(0, number.find('\n'));
  }
  ~Xvfb() {
    if (pid_ > 0) Stop(pid_);
  }
  Xvfb(const Xvfb&) = delete;
  Xvfb& operator=(const Xvfb&) = delete;

  const std::string& Display() const { return display_; }
  const std::string& Error() const { return error_; }

 private:
  pid_t pid_ = 0;
  std::string display_;
  std::string error_;
};

// Runs `program args...` with `overrides` (NAME=value) in its environment; its exit status, or
// -1 when it could not start or ran longer than `timeout`.
int RunProgram(const std::vector<std::string>& command, const std::vector<std::string>& overrides,
               std::chrono::seconds timeout) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string variable = *entry;
    bool replaced = false;
    for (const std::string& o : overrides) {
      replaced = replaced || variable.compare(0, o.find('=') + 1, o, 0, o.find('=') + 1) == 0;
    }
    if (!replaced) environment.push_back(variable);
  }
  environment.insert(environment.end(), overrides.begin(), overrides.end());
  std::vector<std::string> args = command;
  std::vector<char*> argv;
  std::vector<char*> envp;
  for (std::string& a : args) argv.push_back(a.data());
  for (std::string& e : environment) envp.push_back(e.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  pid_t pid = 0;
  if (::posix_spawn(&pid, args[0].c_str(), nullptr, nullptr, argv.data(), envp.data()) != 0) {
    return -1;
  }
  const std::optional<int> status = WaitFor(pid, timeout);
  if (!status) {
    Stop(pid);
    return -1;
  }
  return WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
}

TEST(DialogOnXvfb, ShowsPreviewsAndSavesAScreenshot) {
  const std::string xvfb = FindOnPath("Xvfb");
  if (xvfb.empty()) GTEST_SKIP() << "Xvfb is not installed (Debian package xvfb)";
  Xvfb server(xvfb);
  ASSERT_TRUE(server.Error().empty()) << server.Error();

  const std::filesystem::path output =
      std::filesystem::temp_directory_path() / ("kivlut-dialog-" + std::to_string(::getpid()));
  std::filesystem::remove_all(output);
  // The dialog draws no OpenGL: keep the machine's GLX and DRI drivers, and their leaks, out.
  const int status = RunProgram({KIVLUT_DIALOG_SCREENSHOT, output.string(), "1"},
                                {"DISPLAY=" + server.Display(), "QT_QPA_PLATFORM=xcb",
                                 "QT_XCB_GL_INTEGRATION=none", "WAYLAND_DISPLAY="},
                                std::chrono::seconds(120));
  EXPECT_EQ(status, 0) << "the screenshot program failed on " << server.Display();

  const cv::Mat picture = cv::imread((output / "dialog.png").string(), cv::IMREAD_COLOR);
  ASSERT_FALSE(picture.empty()) << "no dialog.png";
  // The window takes 65 % by 70 % of the screen, truncated.
  EXPECT_EQ(picture.cols, static_cast<int>(kScreenWidth * 0.65));
  EXPECT_EQ(picture.rows, static_cast<int>(kScreenHeight * 0.7));
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(picture, mean, deviation);
  EXPECT_GT(deviation[0] + deviation[1] + deviation[2], 10.0) << "the screenshot is blank";
  std::filesystem::remove_all(output);
}

}  // namespace
