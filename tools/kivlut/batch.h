// Running one operation over files and folders: where each output goes, parallel work across
// files, progress, and the exit status.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "operations.h"
#include "options.h"

namespace kivlut {

// One unit of work: the inputs of one picture (two for blend) and where it goes.
struct Job {
  std::vector<std::filesystem::path> inputs;
  std::filesystem::path output;
};

// The jobs of a command line: a folder input contributes each frame file in it (sorted by name;
// in natural order, f2 before f10, when ColoursInSequence),
// with options.recursive those of its subfolders too; without -o each output is
// NAME.OPERATION.png beside its input; -o is a file for one input file, else a folder (created
// when missing) that receives NAME.OPERATION.png per input, in the input's subfolder under it
// for frames of subfolders. A missing input file is a job of its own that fails when run. False
// with the reason on error (an empty folder, two inputs with one output, -o an existing file for
// several inputs). With -o OUT.avi or OUT.mp4 every job's output is that video, in the order of
// the inputs. `notes`, when given, receives lines worth telling the user (subfolders left
// out without --recursive).
bool PlanJobs(const Options& options, std::vector<Job>* jobs, std::string* error,
              std::vector<std::string>* notes = nullptr);

// Runs every job, across files in parallel (options.jobs workers, 0: one per core), or, when
// ColoursInSequence(options), one after another in the planned order through one
// KivSequenceColorizer (--stable) and into one video (-o OUT.avi, OUT.mp4). Each failure
// is one line on `err` naming the file and the problem; the other jobs still run. Progress goes
// to `err`: a bar redrawn in place when `err` is a terminal (`interactive`), otherwise one plain
// line per finished file; with several jobs the last line is "N written, M failed". --stats and
// --json lines go to `out`. Returns 0 when every job succeeded, 1 otherwise.
int RunJobs(const Options& options, const std::vector<Job>& jobs, std::ostream& out,
            std::ostream& err, bool interactive);

// One line of --json: {"file": ..., "min": ..., "max": ..., "valid": ..., "bounds": [LOW, HIGH],
// "unit": ...}; min and max null without valid pixels, NaN bounds null, unit null when empty.
std::string JsonStatsLine(const std::string& file, const MappingStats& stats,
                          const std::string& unit);

}  // namespace kivlut
