// Which vector extensions the processor running us offers. One generic x86-64 binary carries a
// baseline and an AVX2 variant of its hottest loops and picks one at run time; both give the same
// bytes, and tests compare each with the plain loops.
#pragma once

#include <atomic>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define KIVLUT_HAS_AVX2_PATHS 1
#else
#define KIVLUT_HAS_AVX2_PATHS 0
#endif

namespace KIVMV {

// Lets a test run the baseline variants on a processor that has AVX2.
inline std::atomic<bool>& Avx2DisabledForTesting() {
  static std::atomic<bool> disabled{false};
  return disabled;
}

// Whether the AVX2 variants run: the processor is asked once, its answer cannot change.
inline bool RunsAvx2() {
#if KIVLUT_HAS_AVX2_PATHS
  static const bool offered = __builtin_cpu_supports("avx2");
  return offered && !Avx2DisabledForTesting().load(std::memory_order_relaxed);
#else
  return false;
#endif
}

}  // namespace KIVMV
