#include "range/statistics.h"

namespace KIVMV {

#if KIVLUT_HAS_AVX2_PATHS
__attribute__((target("avx2")))
#endif
void ScanFloatCodesAvx2(const float* data, int begin, int end,
                        FloatingCodes<float>::Partial& part) {
  FloatingCodes<float>::Scan(data, begin, end, part);
}

}  // namespace KIVMV
