// A switch that tests flip to make one named stage of a routine throw, so that every stage code a
// routine returns can be reached. It exists only in builds configured with KIVLUT_FAULT_INJECTION;
// elsewhere ThrowIfInjected compiles to nothing and no symbol names the switch.
#pragma once

#if KIVLUT_FAULT_INJECTION
#include <atomic>
#include <stdexcept>
#endif

namespace KIVMV {

enum class FaultStage {
  kNone,
  kOutputSizing,       // reading, clearing or creating the output array
  kStatistics,         // reading the data type, minimum, maximum and valid count
  kColouring,          // histogram, tables and the colouring body
  kChannelConversion,  // bringing two colour arrays to a common channel count
  kBlending,           // the body of a colour blend
  kNormalMap,          // worker count, chunk list and loop of the normal-map colouring
  kDialogWindow,       // building the colour-map dialog's window for a facade call
  kPointGrid,          // the point grid of the Phong lighting
  kLightingOutput,     // sizing the output of the Phong lighting
  kLighting,           // worker count, body and loop of the Phong lighting
  kColourBar,          // drawing a colour bar, or attaching one to a picture
  kTableCatalogue,     // building a colour table by name or from colour stops
};

#if KIVLUT_FAULT_INJECTION

namespace fault_injection_detail {
// Visible to the dynamic linker, so that the libraries and the test program share one switch.
__attribute__((visibility("default"))) inline std::atomic<FaultStage> injected{FaultStage::kNone};
}  // namespace fault_injection_detail

// Throws std::runtime_error when a test has asked `stage` to fail. One relaxed load per stage.
inline void ThrowIfInjected(FaultStage stage) {
  if (fault_injection_detail::injected.load(std::memory_order_relaxed) == stage) {
    throw std::runtime_error("injected fault");
  }
}

// Makes `stage` throw until the object is destroyed.
class ScopedFault {
 public:
  explicit ScopedFault(FaultStage stage) { fault_injection_detail::injected.store(stage); }
  ~ScopedFault() { fault_injection_detail::injected.store(FaultStage::kNone); }
  ScopedFault(const ScopedFault&) = delete;
  ScopedFault& operator=(const ScopedFault&) = delete;
};

#else

inline void ThrowIfInjected(FaultStage) {}

#endif

}  // namespace KIVMV
