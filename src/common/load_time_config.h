// Configuration values read once, when the library is loaded.
#pragma once

namespace KIVMV {

struct LoadTimeConfig {
  int efficiency = 0;
  int chunkCount = 0;  // below 1 means "one chunk per processor"
  bool gpu = false;    // read for completeness; no operation uses it
  int winVersion = 0;  // read for completeness; no operation uses it
};

// The values read from the configuration service before any public call.
const LoadTimeConfig& GetLoadTimeConfig();

// The number of chunks parallel loops split their work into: the configured chunk count, or the
// processor count when that is below 1.
int ConfiguredWorkerCount();

// The grain of a oneTBB loop over `count` elements: count / workers, so each worker gets about
// one chunk. Never below 1: a zero grain lets a one-element range split forever, and the results
// of every loop do not depend on the grain.
int GrainSize(int count);

}  // namespace KIVMV
