#include "range/five_point_scale.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <limits>

#include "common/cpu_features.h"
#include "common/fault_injection.h"
#include "common/load_time_config.h"
#include "range/para_normalisation.h"
#include "tables/padded_colour.h"
#include "tables/padded_colour_avx2.h"

namespace KIVMV {
namespace {

#if KIVLUT_HAS_AVX2_PATHS
// The words a call colours with: the table's entries as padded colours, then the colour below
// d0, the one above d4 and the invalid one, so that every matched element is one gather.
constexpr int kUnderWord = kParaTableSize;
constexpr int kOverWord = kParaTableSize + 1;
constexpr int kInvalidWord = kParaTableSize + 2;
using FivePointWords = std::array<uint32_t, kParaTableSize + 3>;

FivePointWords WordsOf(const FivePointScale& s) {
  FivePointWords words{};
  const auto word = [](const ColourEntry& c) { return static_cast<uint32_t>(ColourWord(Pad(c))); };
  for (int k = 0; k < kParaTableSize; ++k) {
    words[static_cast<size_t>(k)] = word((*s.table)[static_cast<size_t>(k)]);
  }
  words[kUnderWord] = word(s.under);
  words[kOverWord] = word(s.over);
  words[kInvalidWord] = word(s.invalid);
  return words;
}

// FivePointColour of four values in double lanes: the same tests in the same order and the same
// division, product and truncation, giving the index of the element's word. Lanes that match no
// segment are flagged in `unmatched` (one bit a lane); their index means nothing.
struct FivePointLanes {
  __m256d d[5];         // the break values: segment k runs from d[k] to d[k + 1] ...
  __m256d span[4];      // ... over ib - ia entries ...
  __m256d indexLow[4];  // ... from entry ia
};

constexpr double kStepLimit = 1099511627776.0;  // 2^40

__attribute__((target("avx2"))) inline __m128i FivePointIndices(__m128 values,
                                                                const FivePointLanes& l,
                                                                int& unmatched) {
  const __m256d v = _mm256_cvtps_pd(values);
  const __m256d magnitude = _mm256_castsi256_pd(_mm256_set1_epi64x(0x7FFFFFFFFFFFFFFF));
  const __m256d marker = _mm256_set1_pd(static_cast<double>(PixelTraits<float>::kMarker));
  const __m256d nearMarker = _mm256_cmp_pd(_mm256_and_pd(_mm256_sub_pd(v, marker), magnitude),
                                           _mm256_set1_pd(1e-8), _CMP_LE_OQ);
  const __m256d finite =
      _mm256_cmp_pd(_mm256_and_pd(v, magnitude),
                    _mm256_set1_pd(std::numeric_limits<double>::infinity()), _CMP_LT_OQ);
  const __m256d valid = _mm256_andnot_pd(nearMarker, finite);
  const __m256d* d = l.d;
  const __m256d under = _mm256_cmp_pd(d[0], v, _CMP_GT_OQ);
  const __m256d over = _mm256_cmp_pd(v, d[4], _CMP_GT_OQ);
  // The segments by their tests, the top one winning where several hold.
  __m256d segment[4];
  segment[3] =
      _mm256_and_pd(_mm256_cmp_pd(d[3], v, _CMP_LT_OQ), _mm256_cmp_pd(v, d[4], _CMP_LE_OQ));
  segment[2] =
      _mm256_and_pd(_mm256_cmp_pd(d[2], v, _CMP_LE_OQ), _mm256_cmp_pd(v, d[3], _CMP_LT_OQ));
  segment[1] =
      _mm256_and_pd(_mm256_cmp_pd(d[1], v, _CMP_LT_OQ), _mm256_cmp_pd(v, d[2], _CMP_LT_OQ));
  segment[0] =
      _mm256_and_pd(_mm256_cmp_pd(d[0], v, _CMP_LT_OQ), _mm256_cmp_pd(v, d[1], _CMP_LE_OQ));
  __m256d a = d[0], b = d[1], span = l.span[0], indexLow = l.indexLow[0];
  __m256d matched = segment[0];
  for (int k = 1; k < 4; ++k) {
    a = _mm256_blendv_pd(a, d[k], segment[k]);
    b = _mm256_blendv_pd(b, d[k + 1], segment[k]);
    span = _mm256_blendv_pd(span, l.span[k], segment[k]);
    indexLow = _mm256_blendv_pd(indexLow, l.indexLow[k], segment[k]);
    matched = _mm256_or_pd(matched, segment[k]);
  }
  // SegmentEntry: the step is the truncation of (v - a) / (b - a) x span, the integer indefinite
  // (which FivePointEntry sends to entry 0) where that has no 64-bit value. A step beyond +-2^40
  // is clamped to the same entry as the step itself, so the clamp changes nothing, and every
  // number below is a whole number that a double holds exactly.
  const __m256d x = _mm256_mul_pd(_mm256_div_pd(_mm256_sub_pd(v, a), _mm256_sub_pd(b, a)), span);
  const __m256d hasStep =
      _mm256_and_pd(_mm256_cmp_pd(x, _mm256_set1_pd(-9223372036854775808.0), _CMP_GE_OQ),
                    _mm256_cmp_pd(x, _mm256_set1_pd(9223372036854775808.0), _CMP_LT_OQ));
  const __m256d step = _mm256_round_pd(
      _mm256_min_pd(_mm256_max_pd(x, _mm256_set1_pd(-kStepLimit)), _mm256_set1_pd(kStepLimit)),
      _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
  const __m256d one = _mm256_set1_pd(1.0);
  __m256d entry = _mm256_add_pd(_mm256_sub_pd(indexLow, one), step);
  entry = _mm256_blendv_pd(entry, _mm256_setzero_pd(),
                           _mm256_cmp_pd(step, _mm256_sub_pd(one, indexLow), _CMP_LT_OQ));
  entry = _mm256_blendv_pd(
      entry, _mm256_set1_pd(kParaTableSize - 1),
      _mm256_cmp_pd(step, _mm256_sub_pd(_mm256_set1_pd(kParaTableSize), indexLow), _CMP_GT_OQ));
  entry = _mm256_and_pd(entry, hasStep);  // 0.0 where there is no step
  entry = _mm256_blendv_pd(entry, _mm256_set1_pd(kOverWord), over);
  entry = _mm256_blendv_pd(entry, _mm256_set1_pd(kUnderWord), under);
  entry = _mm256_blendv_pd(_mm256_set1_pd(kInvalidWord), entry, valid);
  const __m256d unmatchedLanes =
      _mm256_andnot_pd(_mm256_or_pd(matched, _mm256_or_pd(under, over)), valid);
  unmatched = _mm256_movemask_pd(unmatchedLanes);
  return _mm256_cvtpd_epi32(entry);
}

// Elements [begin, end) eight at a time; a group with an element that matches no segment, and a
// last group of fewer than eight, are left to `colourOne`.
template <typename ColourOne>
__attribute__((target("avx2"))) void ColourFivePointAvx2(const float* data, int begin, int end,
                                                         const FivePointScale& s,
                                                         const FivePointWords& words, uint8_t* out,
                                                         ColourOne&& colourOne) {
  FivePointLanes l;
  for (int k = 0; k < 5; ++k) l.d[k] = _mm256_set1_pd(s.value[static_cast<size_t>(k)]);
  for (int k = 0; k < 4; ++k) {
    l.span[k] = _mm256_set1_pd(
        static_cast<double>(s.index[static_cast<size_t>(k) + 1] - s.index[static_cast<size_t>(k)]));
    l.indexLow[k] = _mm256_set1_pd(static_cast<double>(s.index[static_cast<size_t>(k)]));
  }
  const int* const table = reinterpret_cast<const int*>(words.data());
  int i = begin;
  for (; i + 8 <= end; i += 8) {
    const __m256 values = _mm256_loadu_ps(data + i);
    int unmatchedLow = 0, unmatchedHigh = 0;
    const __m128i low = FivePointIndices(_mm256_castps256_ps128(values), l, unmatchedLow);
    const __m128i high = FivePointIndices(_mm256_extractf128_ps(values, 1), l, unmatchedHigh);
    if ((unmatchedLow | unmatchedHigh) != 0) {
      for (int k = i; k < i + 8; ++k) colourOne(k);
      continue;
    }
    const __m256i index = _mm256_set_m128i(high, low);
    StoreEightColoursAvx2(_mm256_i32gather_epi32(table, index, 4),
                          out + 3 * static_cast<size_t>(i));
  }
  for (; i < end; ++i) colourOne(i);
}
#endif

// Below this many elements the word table costs more than the vector loop saves.
constexpr int kVectorFrom = 256;

}  // namespace

void ColourFivePoint(const float* data, int n, const FivePointScale& scale, uint8_t* out) {
  ThrowIfInjected(FaultStage::kColouring);
#if KIVLUT_HAS_AVX2_PATHS
  const bool vector = RunsAvx2() && n >= kVectorFrom;
  const FivePointWords words = vector ? WordsOf(scale) : FivePointWords{};
#endif
  const auto colourRange = [&](int begin, int end) {
    // A local copy: byte stores may alias the caller's, and would force a reload per element.
    const FivePointScale local = scale;
    const auto colourOne = [data, out, &local](int i) {
      if (const ColourEntry* colour = FivePointColour(data[i], local)) {
        std::memcpy(out + 3 * static_cast<size_t>(i), colour->data(), 3);
      }
    };
#if KIVLUT_HAS_AVX2_PATHS
    if (vector) {
      ColourFivePointAvx2(data, begin, end, local, words, out, colourOne);
      return;
    }
#endif
    for (int i = begin; i < end; ++i) colourOne(i);
  };
  if (n < kParaParallelFrom) {
    colourRange(0, n);
    return;
  }
  tbb::parallel_for(
      tbb::blocked_range<int>(0, n, GrainSize(n)),
      [&colourRange](const tbb::blocked_range<int>& range) {
        colourRange(range.begin(), range.end());
      },
      tbb::auto_partitioner());
}

}  // namespace KIVMV
