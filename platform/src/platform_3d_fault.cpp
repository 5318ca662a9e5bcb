#include "platform_3d_fault.h"

#if KIVLUT_FAULT_INJECTION

#include <atomic>
#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>

namespace KIVMV {
namespace {

std::atomic<detail::Platform3DFault> injectedFault{detail::Platform3DFault::kNone};

}  // namespace

void detail::SetPlatform3DFault(Platform3DFault fault) { injectedFault.store(fault); }

void internal::ThrowIfPlatform3DFault(detail::Platform3DFault stage) {
  if (injectedFault.load(std::memory_order_relaxed) != stage) return;
  switch (stage) {
    case detail::Platform3DFault::kAllocation:
      throw std::bad_alloc();
    case detail::Platform3DFault::kOpenCvAllocation:
      throw cv::Exception(cv::Error::StsNoMem, "injected fault", __func__, __FILE__, __LINE__);
    case detail::Platform3DFault::kWork:
      throw std::runtime_error("injected fault");
    case detail::Platform3DFault::kNone:
      return;
  }
}

}  // namespace KIVMV

#endif  // KIVLUT_FAULT_INJECTION
