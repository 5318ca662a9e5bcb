// The switch that tests flip to make a stage of ComputeNormals or RangeImageDataTypeConvert throw,
// so that every status those turn an exception into is reached. Only a KIVLUT_FAULT_INJECTION
// build has it; elsewhere there is nothing to set and every check is an empty inline function.
#ifndef KIVMV_PLATFORM_SRC_PLATFORM_3D_FAULT_H_
#define KIVMV_PLATFORM_SRC_PLATFORM_3D_FAULT_H_

namespace KIVMV {
namespace detail {

enum class Platform3DFault {
  kNone,
  kAllocation,        // std::bad_alloc while the result is allocated
  kOpenCvAllocation,  // cv::Exception with code StsNoMem while the result is allocated
  kWork,              // std::runtime_error inside the parallel loop
};

#if KIVLUT_FAULT_INJECTION
// Process-wide; stays in force until set back to kNone.
void SetPlatform3DFault(Platform3DFault fault);
#endif

}  // namespace detail

namespace internal {

#if KIVLUT_FAULT_INJECTION
// Throws what a test asked for with detail::SetPlatform3DFault when `stage` is the armed one.
void ThrowIfPlatform3DFault(detail::Platform3DFault stage);
#else
inline void ThrowIfPlatform3DFault(detail::Platform3DFault) {}
#endif

}  // namespace internal
}  // namespace KIVMV

#endif  // KIVMV_PLATFORM_SRC_PLATFORM_3D_FAULT_H_
