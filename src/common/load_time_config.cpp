#include "common/load_time_config.h"

#include <opencv2/core/utility.hpp>

#include "KivConfiguration.h"

namespace KIVMV {
namespace {

LoadTimeConfig ReadConfiguration() {
  // The service's status results carry nothing the library acts on: a value it cannot read keeps
  // its default.
  LoadTimeConfig config;
  KivGetStaticEfficiency(&config.efficiency);
  KivGetStaticTBB(&config.chunkCount);
  KivGetStaticGPU(&config.gpu);
  KivGetStaticWinVersion(&config.winVersion);
  return config;
}

// Initialised while the library loads, before any public call can run.
const LoadTimeConfig kLoadTimeConfig = ReadConfiguration();

}  // namespace

const LoadTimeConfig& GetLoadTimeConfig() { return kLoadTimeConfig; }

int ConfiguredWorkerCount() {
  const int chunks = kLoadTimeConfig.chunkCount;
  return chunks < 1 ? cv::getNumberOfCPUs() : chunks;
}

int GrainSize(int count) {
  const int grain = count / ConfiguredWorkerCount();
  return grain < 1 ? 1 : grain;
}

}  // namespace KIVMV
