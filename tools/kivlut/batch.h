// Running one operation over files and folders: where each output goes, parallel work across
// files, progress, and the exit status.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "options.h"

namespace kivlut {

// One unit of work: the inputs of one picture (two for blend) and where it goes.
struct Job {
  std::vector<std::filesystem::path> inputs;
  std::filesystem::path output;
};

// The jobs of a command line: a folder input contributes each frame file in it (sorted by name);
// without -o each output is NAME.OPERATION.png beside its input; -o is a file for one input
// file, else a folder (created when missing) that receives NAME.OPERATION.png per input.
// False with the reason on error (a missing input, -o an existing file for several inputs).
bool PlanJobs(const Options& options, std::vector<Job>* jobs, std::string* error);

// Runs every job, across files in parallel (options.jobs workers, 0: one per core). Each failure
// is one line on `err` naming the file and the problem; the other jobs still run. Progress goes
// to `err`: a bar redrawn in place when `err` is a terminal (`interactive`), otherwise one plain
// line per finished file. --stats lines go to `out`. Returns 0 when every job succeeded, 1
// otherwise.
int RunJobs(const Options& options, const std::vector<Job>& jobs, std::ostream& out,
            std::ostream& err, bool interactive);

}  // namespace kivlut
