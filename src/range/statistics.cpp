#include "range/statistics.h"

namespace KIVMV {

#if KIVLUT_HAS_AVX2_PATHS
__attribute__((target("avx2"))) void ScanFloatCodesAvx2(const float* data, int begin, int end,
                                                        FloatingCodes<float>::Partial& part) {
  FloatingCodes<float>::Scan(data, begin, end, part);
}
#else
void ScanFloatCodesAvx2(const float* data, int begin, int end,
                        FloatingCodes<float>::Partial& part) {
  FloatingCodes<float>::Scan(data, begin, end, part);
}
#endif

}  // namespace KIVMV
