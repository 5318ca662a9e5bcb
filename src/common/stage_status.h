// How a routine's working stages turn failures into status codes. Nothing a stage throws (OpenCV,
// oneTBB, an allocation, a fault a test injects) may leave the library; each stage has the code
// its callers are told instead.
#pragma once

#include <type_traits>

#include "KivLUTStatus.h"
#include "common/fault_injection.h"

namespace KIVMV {

// Runs `work` and returns its status (LUT_OK when it returns nothing), or `failureCode` when it
// throws anything at all.
template <typename Work>
long RunStage(long failureCode, Work&& work) noexcept {
  try {
    if constexpr (std::is_void_v<std::invoke_result_t<Work&>>) {
      work();
      return LUT_OK;
    } else {
      return work();
    }
  } catch (...) {
    return failureCode;
  }
}

// The same for a stage that tests can make fail by name: `stage` throws first when armed.
template <typename Work>
long RunStage(FaultStage stage, long failureCode, Work&& work) noexcept {
  return RunStage(failureCode, [&]() -> decltype(work()) {
    ThrowIfInjected(stage);
    return work();
  });
}

}  // namespace KIVMV
