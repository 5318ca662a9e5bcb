// Eight padded colours (blue, green, red, spare byte) in the lanes of an AVX2 register, stored as
// eight 3-byte colours: the AVX2 counterpart of WriteColours for loops that form colours eight at
// a time.
#pragma once

#include <cstdint>

#include "common/cpu_features.h"

#if KIVLUT_HAS_AVX2_PATHS
#include <immintrin.h>

namespace KIVMV {

// Exactly 24 bytes from `out`: each 128-bit half packs its four colours into its low 12 bytes,
// the halves then join, and 16 + 8 bytes are stored.
__attribute__((target("avx2"))) inline void StoreEightColoursAvx2(__m256i words, uint8_t* out) {
  const __m256i packBytes =
      _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1, 2, 4, 5, 6, 8,
                       9, 10, 12, 13, 14, -1, -1, -1, -1);
  const __m256i joinHalves = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  const __m256i packed =
      _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(words, packBytes), joinHalves);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm256_extracti128_si256(packed, 1));
}

}  // namespace KIVMV
#endif
