// Planning: where each input's picture goes. Running: every job on the oneTBB pool, each one
// read -> map -> write on its own, with one mutex keeping the lines of different jobs whole.
#include "batch.h"

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "frame_io.h"
#include "natural_order.h"

namespace kivlut {
namespace fs = std::filesystem;

namespace {

// Width of the interactive progress bar, in characters between the brackets.
constexpr int kBarWidth = 30;

// One job per task: a frame takes milliseconds to seconds, far more than scheduling one.
constexpr std::size_t kJobGrain = 1;

// The operations that write pictures, whose output names NAME.OPERATION.png a folder may hold.
constexpr Operation kPictureOperations[] = {
    Operation::kEqualize, Operation::kLinear, Operation::kScale, Operation::kNormals,
    Operation::kShade,    Operation::kGrey,   Operation::kBlend};

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// A picture this tool wrote earlier (NAME.equalize.png, NAME.legend.png, ...). Running over a
// folder a second time must not colour the pictures of the first run.
bool IsOwnOutput(const fs::path& file) {
  const std::string name = file.filename().string();
  if (EndsWith(name, ".legend.png")) return true;
  for (Operation operation : kPictureOperations) {
    if (EndsWith(name, std::string(".") + OperationName(operation) + ".png")) return true;
  }
  return false;
}

fs::path DefaultOutputName(const fs::path& input, Operation operation) {
  return input.stem().string() + "." + OperationName(operation) + ".png";
}

enum class Kind { kMissing, kFolder, kFile };

Kind KindOf(const fs::path& path) {
  std::error_code code;
  const fs::file_status status = fs::status(path, code);
  if (code || !fs::exists(status)) return Kind::kMissing;
  return fs::is_directory(status) ? Kind::kFolder : Kind::kFile;
}

// A frame to colour and the folder it was found in relative to the input folder ("" for a file
// given by name and for the input folder's own frames), which -o repeats under its folder.
struct Frame {
  fs::path file;
  fs::path subfolder;
};

bool FrameOrder(const Frame& a, const Frame& b) { return a.file < b.file; }

// The order of a sequence: by the path below the input folder, digit runs as numbers.
bool NaturalFrameOrder(const Frame& a, const Frame& b) {
  return NaturalLess(a.file.generic_string(), b.file.generic_string());
}

// The frame files inside `folder`, sorted by name (by natural order when `natural`): those
// directly inside it, or with `recursive` those of every folder below it too. Without `recursive`
// the subfolders left out are counted in a note, so that they are not skipped silently.
bool ListFrames(const fs::path& folder, bool rawGiven, bool recursive, bool natural,
                std::vector<Frame>* frames, std::vector<std::string>* notes, std::string* error) {
  std::vector<Frame> found;
  std::size_t subfolders = 0;
  std::error_code code;
  const auto consider = [&](const fs::directory_entry& entry) {
    std::error_code typeCode;
    if (!recursive && entry.is_directory(typeCode) && !typeCode) ++subfolders;
    if (!entry.is_regular_file(typeCode) || typeCode) return;
    const fs::path& file = entry.path();
    if (LooksLikeFrame(file, rawGiven) && !IsOwnOutput(file)) {
      fs::path subfolder = file.parent_path().lexically_relative(folder);
      if (subfolder == ".") subfolder.clear();
      found.push_back({file, subfolder});
    }
  };
  if (recursive) {
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied,
                                        code);
    for (; !code && it != fs::recursive_directory_iterator(); it.increment(code)) consider(*it);
  } else {
    fs::directory_iterator it(folder, code);
    for (; !code && it != fs::directory_iterator(); it.increment(code)) consider(*it);
  }
  if (code) {
    *error = "cannot list the folder " + folder.string() + ": " + code.message();
    return false;
  }
  const std::string leftOut = std::to_string(subfolders) +
                              (subfolders == 1 ? " subfolder" : " subfolders") +
                              " not read (--recursive reads them)";
  if (found.empty()) {
    *error = "no frame files in " + folder.string() + (recursive ? " or its subfolders" : "") +
             (subfolders > 0 ? ": " + leftOut : "");
    return false;
  }
  if (subfolders > 0 && notes != nullptr) notes->push_back(folder.string() + ": " + leftOut);
  std::sort(found.begin(), found.end(), natural ? NaturalFrameOrder : FrameOrder);
  frames->insert(frames->end(), found.begin(), found.end());
  return true;
}

// `folder` with the folders above it, those that are missing created.
bool EnsureFolder(const fs::path& folder, std::string* error) {
  if (KindOf(folder) == Kind::kFolder) return true;
  std::error_code code;
  fs::create_directories(folder, code);
  if (code) {
    *error = "cannot create the folder " + folder.string() + ": " + code.message();
    return false;
  }
  return true;
}

// The folder an output file goes into, created when missing.
bool PrepareParentFolder(const fs::path& file, std::string* error) {
  const fs::path folder = file.parent_path();
  return folder.empty() || EnsureFolder(folder, error);
}

bool PlanBlend(const Options& options, std::vector<Job>* jobs, std::string* error) {
  if (options.inputs.size() != 2) {
    *error = "blend takes exactly two pictures, got " + std::to_string(options.inputs.size());
    return false;
  }
  Job job;
  for (const std::string& input : options.inputs) {
    // A missing picture fails when the job reads it, with its own line, like an unreadable one.
    if (KindOf(input) == Kind::kFolder) {
      *error = "blend takes two picture files, " + input + " is a folder";
      return false;
    }
    job.inputs.emplace_back(input);
  }
  const fs::path& first = job.inputs.front();
  if (options.output.empty()) {
    job.output = first.parent_path() / DefaultOutputName(first, Operation::kBlend);
  } else if (KindOf(options.output) == Kind::kFolder) {
    job.output = fs::path(options.output) / DefaultOutputName(first, Operation::kBlend);
  } else {
    job.output = options.output;
  }
  for (const fs::path& input : job.inputs) {
    std::error_code code;
    if (fs::equivalent(job.output, input, code) && !code) {
      *error = input.string() + " is both an input and the output";
      return false;
    }
  }
  if (!PrepareParentFolder(job.output, error)) return false;
  jobs->push_back(std::move(job));
  return true;
}

// -o as the folder of every output: created when missing, refused when it is an existing file.
bool PrepareOutputFolder(const fs::path& folder, std::string* error) {
  if (KindOf(folder) == Kind::kFile) {
    *error = "-o " + folder.string() + " is an existing file, several outputs need a folder";
    return false;
  }
  return EnsureFolder(folder, error);
}

// Every frame into the one video -o names, in the order found.
bool PlanVideo(const fs::path& video, const std::vector<Frame>& frames, std::vector<Job>* jobs,
               std::string* error) {
  if (KindOf(video) == Kind::kFolder) {
    *error = "-o " + video.string() + " is an existing folder: a video needs a file name";
    return false;
  }
  for (const Frame& found : frames) {
    std::error_code code;
    if (fs::equivalent(video, found.file, code) && !code) {
      *error = found.file.string() + " is both an input and the output";
      return false;
    }
    jobs->push_back(Job{{found.file}, video});
  }
  return PrepareParentFolder(video, error);
}

bool PlanFrames(const Options& options, std::vector<Job>* jobs, std::vector<std::string>* notes,
                std::string* error) {
  if (options.inputs.empty()) {
    *error = "no input files";
    return false;
  }
  std::vector<Frame> frames;
  bool singleFile = options.inputs.size() == 1;
  for (const std::string& input : options.inputs) {
    if (KindOf(input) == Kind::kFolder) {
      singleFile = false;
      if (!ListFrames(input, options.raw.has_value(), options.recursive, ColoursInSequence(options),
                      &frames, notes, error)) {
        return false;
      }
    } else {
      // A missing file is a job that fails with its own line, like an unreadable one, so the
      // other inputs are still coloured.
      frames.push_back({fs::path(input), fs::path()});
    }
  }

  const fs::path output = options.output;
  if (VideoContainerOf(options.output)) return PlanVideo(output, frames, jobs, error);
  // "out/" names a folder even when it does not exist yet.
  const bool outputIsFile = !output.empty() && singleFile && !output.filename().empty() &&
                            KindOf(output) != Kind::kFolder;

  std::map<fs::path, fs::path> inputOfOutput;
  std::vector<fs::path> subfolders;  // under -o, for the frames of subfolders
  for (const Frame& found : frames) {
    const fs::path& frame = found.file;
    Job job;
    job.inputs.push_back(frame);
    if (outputIsFile) {
      job.output = output;
    } else if (output.empty()) {
      job.output = frame.parent_path() / DefaultOutputName(frame, options.operation);
    } else if (found.subfolder.empty()) {
      job.output = output / DefaultOutputName(frame, options.operation);
    } else {
      job.output = output / found.subfolder / DefaultOutputName(frame, options.operation);
      subfolders.push_back(job.output.parent_path());
    }
    std::error_code code;
    if (fs::equivalent(job.output, frame, code) && !code) {
      *error = frame.string() + " is both the input and the output";
      return false;
    }
    const auto [it, added] = inputOfOutput.emplace(job.output.lexically_normal(), frame);
    if (!added) {
      *error = it->second.string() + " and " + frame.string() + " would both write " +
               job.output.string();
      return false;
    }
    jobs->push_back(std::move(job));
  }
  // Folders are made only once the plan holds, so a refused command line leaves nothing behind.
  if (outputIsFile) return PrepareParentFolder(output, error);
  if (!output.empty() && !PrepareOutputFolder(output, error)) return false;
  for (const fs::path& folder : subfolders) {
    if (!EnsureFolder(folder, error)) return false;
  }
  return true;
}

// The one line of a job in messages: its input, or both inputs of a blend.
std::string JobLabel(const Job& job) {
  std::string label;
  for (const fs::path& input : job.inputs) {
    if (!label.empty()) label += " + ";
    label += input.string();
  }
  return label;
}

// With one job the legend goes where --legend says; with several, each job's legend is
// NAME.legend.png beside its picture, NAME being the input's stem, so no job overwrites another's.
fs::path LegendPath(const Options& options, const Job& job, std::size_t jobCount) {
  if (jobCount == 1) return options.legendPath;
  return job.output.parent_path() / (job.inputs.front().stem().string() + ".legend.png");
}

// The length of the well-formed UTF-8 sequence starting at bytes[i], 0 when the bytes there are
// not one (a stray continuation byte, a cut sequence, an overlong form, a surrogate, a code point
// above U+10FFFF).
std::size_t Utf8Length(const unsigned char* bytes, std::size_t i, std::size_t size) {
  const unsigned char lead = bytes[i];
  std::size_t length = 0;
  unsigned long code = 0;
  if (lead < 0x80) return 1;
  if (lead >= 0xc2 && lead <= 0xdf) {
    length = 2;
    code = lead & 0x1fu;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    length = 3;
    code = lead & 0x0fu;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    length = 4;
    code = lead & 0x07u;
  } else {
    return 0;
  }
  for (std::size_t k = 1; k < length; ++k) {
    if (i + k >= size || (bytes[i + k] & 0xc0u) != 0x80u) return 0;
    code = (code << 6) | (bytes[i + k] & 0x3fu);
  }
  if (length == 3 && (code < 0x800 || (code >= 0xd800 && code <= 0xdfff))) return 0;
  if (length == 4 && (code < 0x10000 || code > 0x10ffff)) return 0;
  return length;
}

// A JSON string: quotes, backslashes and control characters escaped, bytes that are not UTF-8
// (a file name can hold any) replaced by U+FFFD so that the line stays valid JSON.
std::string JsonString(const std::string& text) {
  std::string quoted = "\"";
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size;) {
    const unsigned char c = bytes[i];
    const std::size_t length = Utf8Length(bytes, i, size);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      quoted += escaped;
    } else if (length == 0) {
      quoted += "\\ufffd";
    } else {
      quoted.append(text, i, length);
    }
    i += std::max<std::size_t>(length, 1);
  }
  return quoted + "\"";
}

// The shortest decimal that reads back as the same double; null for NaN and infinities, which
// JSON has no word for.
std::string JsonNumber(double value) {
  if (!std::isfinite(value)) return "null";
  char text[32];
  // Whole numbers as a script expects them ("50", not "5e+01"), up to where doubles stay whole.
  if (value == std::trunc(value) && std::fabs(value) < 1e15) {
    std::snprintf(text, sizeof text, "%.0f", value);
    return text;
  }
  for (int digits = 1; digits <= 17; ++digits) {
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    if (std::strtod(text, nullptr) == value) break;
  }
  return text;
}

// The bounds for --json: the pair the operation reports, or, where it reports none, the bounds
// given on the command line or, for a colouring between the data's extremes, those extremes.
std::pair<double, double> JsonBounds(const Options& options, const MappingStats& stats) {
  if (!std::isnan(stats.low) || !std::isnan(stats.high)) return {stats.low, stats.high};
  const double none = std::numeric_limits<double>::quiet_NaN();
  if (options.bounds) return *options.bounds;
  const bool extremes =
      (options.operation == Operation::kEqualize || options.operation == Operation::kLinear) &&
      !options.percentile && stats.valid > 0;
  if (extremes) return {stats.minimum, stats.maximum};
  return {none, none};
}

struct JobOutcome {
  bool ok = false;
  std::string failedFile;  // the input the error is about
  std::string error;
  std::string statsLine;
};

// One frame read, coloured (as the next of `sequence` when given) and written as its picture, or
// appended to `video` when given.
JobOutcome RunOneJob(const Options& options, const Job& job, std::size_t jobCount,
                     KIVMV::KivSequenceColorizer* sequence = nullptr, VideoFile* video = nullptr) {
  JobOutcome outcome;
  outcome.failedFile = JobLabel(job);
  std::vector<cv::Mat> pixels;
  for (const fs::path& input : job.inputs) {
    ReadResult read = ReadPixels(input, options.raw);
    if (read.pixels.empty()) {
      outcome.failedFile = input.string();
      outcome.error = read.error.empty() ? "cannot read the file" : read.error;
      return outcome;
    }
    pixels.push_back(std::move(read.pixels));
  }

  const OperationResult result = RunOperation(options, pixels, sequence);
  if (!result.ok) {
    outcome.error = result.error.empty() ? "the operation failed" : result.error;
    return outcome;
  }
  // The line names the input like every failure; the problem names the file that was not written.
  std::string problem;
  const bool written = video != nullptr
                           ? video->Append(result.picture, &problem)
                           : WritePictureAtomically(job.output, result.picture, &problem);
  if (!written) {
    outcome.error = job.output.string() + ": " + problem;
    return outcome;
  }
  if (!options.legendPath.empty() && !result.legend.empty()) {
    const fs::path legend = LegendPath(options, job, jobCount);
    if (!WritePictureAtomically(legend, result.legend, &problem)) {
      outcome.error = legend.string() + ": " + problem;
      return outcome;
    }
  }
  if (options.stats) outcome.statsLine = JobLabel(job) + ": " + FormatStats(result.stats);
  if (options.json) {
    MappingStats stats = result.stats;
    std::tie(stats.low, stats.high) = JsonBounds(options, stats);
    outcome.statsLine = JsonStatsLine(JobLabel(job), stats, options.unit);
  }
  outcome.ok = true;
  return outcome;
}

// Everything RunJobs writes, behind one mutex so that lines of different jobs never interleave.
class Reporter {
 public:
  Reporter(std::ostream& out, std::ostream& err, bool interactive, std::size_t total)
      : out_(out), err_(err), interactive_(interactive), total_(total) {}

  void Finished(const Job& job, const JobOutcome& outcome) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++done_;
    if (!outcome.ok) ++failed_;
    if (!outcome.ok) {
      EraseBar();
      err_ << "kivlut: " << outcome.failedFile << ": " << outcome.error << '\n';
    }
    if (!outcome.statsLine.empty()) {
      EraseBar();
      err_.flush();
      out_ << outcome.statsLine << '\n';
      out_.flush();
    }
    if (interactive_) {
      DrawBar();
    } else {
      err_ << "kivlut: [" << done_ << '/' << total_ << "] " << JobLabel(job);
      if (outcome.ok) {
        err_ << " -> " << job.output.string() << '\n';
      } else {
        err_ << " failed\n";
      }
    }
    err_.flush();
  }

  // A line of its own, about no single frame.
  void Message(const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    EraseBar();
    err_ << "kivlut: " << line << '\n';
    if (interactive_ && done_ > 0) DrawBar();
    err_.flush();
  }

  // Frames that will not be run, counted as failed, with the reason in one line.
  void Abandoned(std::size_t count, const std::string& reason) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (count == 0) return;
    done_ += count;
    failed_ += count;
    EraseBar();
    err_ << "kivlut: " << count << (count == 1 ? " frame" : " frames")
         << " not coloured: " << reason << '\n';
    if (interactive_) DrawBar();
    err_.flush();
  }

  void Close() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (interactive_ && barLength_ > 0) {
      err_ << '\n';
      barLength_ = 0;
    }
    // One file's outcome is its own line already; a batch ends with the count of both kinds.
    if (total_ > 1) {
      err_ << "kivlut: " << done_ - failed_ << " written, " << failed_ << " failed\n";
    }
    err_.flush();
  }

 private:
  // Blanks the bar so that a message line starts at the left edge; the bar is redrawn after it.
  void EraseBar() {
    if (!interactive_ || barLength_ == 0) return;
    err_ << '\r' << std::string(barLength_, ' ') << '\r';
    barLength_ = 0;
  }

  void DrawBar() {
    const std::size_t filled = total_ == 0 ? kBarWidth : done_ * kBarWidth / total_;
    std::string bar = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " +
                      std::to_string(done_) + "/" + std::to_string(total_) + " frames";
    err_ << '\r' << bar;
    barLength_ = bar.size();
  }

  std::mutex mutex_;
  std::ostream& out_;
  std::ostream& err_;
  const bool interactive_;
  const std::size_t total_;
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
  std::size_t barLength_ = 0;  // characters of the bar now on the line, 0 when none
};

JobOutcome RunGuarded(const Job& job, const std::function<JobOutcome()>& run) {
  JobOutcome outcome;
  // A job that throws fails alone: the others keep running and the exit status says so.
  try {
    outcome = run();
  } catch (const std::bad_alloc&) {
    outcome.failedFile = JobLabel(job);
    outcome.error = "out of memory";
  } catch (const std::exception& e) {
    outcome.failedFile = JobLabel(job);
    outcome.error = e.what();
  }
  return outcome;
}

// --stable and video outputs: one frame after another in the planned (natural) order, through one
// colouriser, which carries its state from frame to frame, and into one video.
int RunInOrder(const Options& options, const std::vector<Job>& jobs, std::ostream& out,
               std::ostream& err, bool interactive) {
  Reporter reporter(out, err, interactive, jobs.size());
  std::unique_ptr<KIVMV::KivSequenceColorizer> sequence;
  if (options.stable) {
    std::string error;
    sequence = MakeSequenceColorizer(options, &error);
    if (!sequence) {
      reporter.Abandoned(jobs.size(), error);
      reporter.Close();
      return 1;
    }
  }
  std::optional<VideoFile> video;
  if (VideoContainerOf(options.output)) video.emplace(options.output, options.fps);
  bool anyFailed = false;
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    const JobOutcome outcome = RunGuarded(jobs[i], [&] {
      return RunOneJob(options, jobs[i], jobs.size(), sequence.get(), video ? &*video : nullptr);
    });
    if (!outcome.ok) anyFailed = true;
    reporter.Finished(jobs[i], outcome);
    // OpenCV could not open the video: every later frame would fail the same way.
    if (video && video->Broken()) {
      reporter.Abandoned(jobs.size() - i - 1, options.output + " cannot be written");
      break;
    }
  }
  if (video) {
    std::string problem;
    if (!video->Broken() && !video->Finish(&problem)) {
      reporter.Message(options.output + ": " + problem);
      anyFailed = true;
    }
  }
  reporter.Close();
  return anyFailed ? 1 : 0;
}

}  // namespace

std::string JsonStatsLine(const std::string& file, const MappingStats& stats,
                          const std::string& unit) {
  const bool measured = stats.valid > 0;
  const double none = std::numeric_limits<double>::quiet_NaN();
  return "{\"file\": " + JsonString(file) +
         ", \"min\": " + JsonNumber(measured ? stats.minimum : none) +
         ", \"max\": " + JsonNumber(measured ? stats.maximum : none) +
         ", \"valid\": " + std::to_string(stats.valid) + ", \"bounds\": [" + JsonNumber(stats.low) +
         ", " + JsonNumber(stats.high) +
         "], \"unit\": " + (unit.empty() ? std::string("null") : JsonString(unit)) + "}";
}

bool PlanJobs(const Options& options, std::vector<Job>* jobs, std::string* error,
              std::vector<std::string>* notes) {
  std::string ignored;
  if (error == nullptr) error = &ignored;
  if (jobs == nullptr) {
    *error = "no job list to fill";
    return false;
  }
  std::vector<Job> planned;
  bool ok = false;
  try {
    if (options.operation == Operation::kDemo) {
      *error = "demo writes its gallery itself and has no jobs";
    } else if (options.operation == Operation::kBlend) {
      ok = PlanBlend(options, &planned, error);
    } else {
      ok = PlanFrames(options, &planned, notes, error);
    }
  } catch (const std::bad_alloc&) {
    *error = "out of memory while planning";
    ok = false;
  } catch (const std::exception& e) {
    *error = e.what();
    ok = false;
  }
  if (ok) *jobs = std::move(planned);
  return ok;
}

int RunJobs(const Options& options, const std::vector<Job>& jobs, std::ostream& out,
            std::ostream& err, bool interactive) {
  if (jobs.empty()) return 0;
  if (ColoursInSequence(options)) {
    try {
      return RunInOrder(options, jobs, out, err, interactive);
    } catch (const std::exception& e) {
      err << "kivlut: " << e.what() << '\n';
      return 1;
    }
  }
  Reporter reporter(out, err, interactive, jobs.size());
  std::atomic<bool> anyFailed{false};

  auto runRange = [&](const tbb::blocked_range<std::size_t>& range) {
    for (std::size_t i = range.begin(); i != range.end(); ++i) {
      const JobOutcome outcome =
          RunGuarded(jobs[i], [&] { return RunOneJob(options, jobs[i], jobs.size()); });
      if (!outcome.ok) anyFailed = true;
      reporter.Finished(jobs[i], outcome);
    }
  };

  try {
    const int workers = options.jobs > 0 ? options.jobs : tbb::task_arena::automatic;
    // --jobs above the core count is honoured: the pool grows for this run instead of TBB
    // warning on err and running fewer workers than asked.
    std::optional<tbb::global_control> morePool;
    const std::size_t poolLimit =
        tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism);
    if (options.jobs > 0 && static_cast<std::size_t>(options.jobs) > poolLimit) {
      morePool.emplace(tbb::global_control::max_allowed_parallelism,
                       static_cast<std::size_t>(options.jobs));
    }
    tbb::task_arena arena(workers);
    arena.execute([&] {
      tbb::parallel_for(tbb::blocked_range<std::size_t>(0, jobs.size(), kJobGrain), runRange,
                        tbb::simple_partitioner());
    });
    reporter.Close();
  } catch (const std::exception& e) {
    // Only the reporting itself can get here (every job catches its own failures).
    err << "kivlut: " << e.what() << '\n';
    return 1;
  }
  return anyFailed ? 1 : 0;
}

}  // namespace kivlut
