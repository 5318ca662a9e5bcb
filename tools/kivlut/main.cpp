// kivlut: colours range images, grey images and pictures from the shell. See UsageText().
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "batch.h"
#include "gallery_writer.h"
#include "options.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const kivlut::ParsedCommandLine parsed = kivlut::ParseCommandLine(args);
  if (parsed.help) {
    std::cout << kivlut::UsageText();
    return 0;
  }
  if (!parsed.options) {
    std::cerr << "kivlut: " << parsed.error << "\n";
    return 2;
  }
  const kivlut::Options& options = *parsed.options;
  if (options.operation == kivlut::Operation::kDemo) {
    return kivlut::WriteGallery(options.inputs[0], std::cerr);
  }
  std::vector<kivlut::Job> jobs;
  std::string error;
  if (!kivlut::PlanJobs(options, &jobs, &error)) {
    std::cerr << "kivlut: " << error << "\n";
    return 2;
  }
  return kivlut::RunJobs(options, jobs, std::cout, std::cerr, isatty(STDERR_FILENO) != 0);
}
