// kivlut: colours range images, grey images and pictures from the shell. See UsageText().
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <opencv2/core/utils/logger.hpp>
#include <streambuf>
#include <string>
#include <vector>

#include "batch.h"
#include "gallery_writer.h"
#include "options.h"

namespace {

// An output stream onto a file descriptor, unbuffered beyond one line: the tool's own standard
// output once descriptor 1 has been handed to standard error.
class DescriptorBuffer : public std::streambuf {
 public:
  explicit DescriptorBuffer(int descriptor) : descriptor_(descriptor) {}
  ~DescriptorBuffer() override { sync(); }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    pending_ += traits_type::to_char_type(c);
    if (c == '\n' && sync() != 0) return traits_type::eof();
    return c;
  }
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    pending_.append(text, static_cast<std::size_t>(count));
    if (pending_.find('\n') != std::string::npos && sync() != 0) return 0;
    return count;
  }
  int sync() override {
    std::size_t written = 0;
    while (written < pending_.size()) {
      const ssize_t step =
          ::write(descriptor_, pending_.data() + written, pending_.size() - written);
      if (step < 0 && errno == EINTR) continue;
      if (step <= 0) {
        pending_.clear();
        return -1;
      }
      written += static_cast<std::size_t>(step);
    }
    pending_.clear();
    return 0;
  }

 private:
  int descriptor_;
  std::string pending_;
};

}  // namespace

int main(int argc, char** argv) {
  // OpenCV's own warnings ("imread_(...): can't read data") would repeat kivlut's line for the
  // same file; kivlut's line names the file and the problem already.
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);

  // Standard output carries only what --stats and --json ask for. A KivLUTSetting method may
  // print on it (the float-array SetColorLUT prints its timing), so descriptor 1 goes to standard
  // error for the whole run and the tool writes its own output to the saved descriptor.
  const int ownOutput = ::dup(STDOUT_FILENO);
  if (ownOutput < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    std::cerr << "kivlut: cannot set up standard output\n";
    return 2;
  }
  // Whole lines, so that the library's lines do not wait for the end of the run.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  DescriptorBuffer ownBuffer(ownOutput);
  std::ostream out(&ownBuffer);

  const std::vector<std::string> args(argv + 1, argv + argc);
  const kivlut::ParsedCommandLine parsed = kivlut::ParseCommandLine(args);
  if (parsed.help) {
    out << kivlut::UsageText();
    out.flush();
    return 0;
  }
  if (!parsed.options) {
    std::cerr << "kivlut: " << parsed.error << "\n";
    return 2;
  }
  const kivlut::Options& options = *parsed.options;
  for (const std::string& warning : kivlut::CommandLineWarnings(options)) {
    std::cerr << "kivlut: warning: " << warning << "\n";
  }
  if (options.operation == kivlut::Operation::kDemo) {
    return kivlut::WriteGallery(options.inputs[0], std::cerr);
  }
  std::vector<kivlut::Job> jobs;
  std::vector<std::string> notes;
  std::string error;
  if (!kivlut::PlanJobs(options, &jobs, &error, &notes)) {
    std::cerr << "kivlut: " << error << "\n";
    return 2;
  }
  for (const std::string& note : notes) std::cerr << "kivlut: " << note << "\n";
  const int status = kivlut::RunJobs(options, jobs, out, std::cerr, isatty(STDERR_FILENO) != 0);
  out.flush();
  return status;
}
