// SPDX-License-Identifier: Apache-2.0
//
// The lane search for processors with AVX-512 F, BW, VL, DQ and VPOPCNTDQ. Only static functions, and no
// library templates: this file is compiled for those processors alone.
#include <immintrin.h>

#include "cpu/lane_bounds_body.h"
#include "cpu/lane_kernels.h"
#include "cpu/lane_values_body.h"

namespace {

// Sums for 16 lanes.
struct Sums {
  __m512i low;
  __m512i high;
};

// The samples of the prefix that have the genotype, in eight lanes of a word of the planes.
template <size_t kGenotype>
inline __m512i samples_with(__m512i prefix, const uint64_t* planes) {
  const __m512i low = _mm512_loadu_si512(planes);
  const __m512i high = _mm512_loadu_si512(planes + kLanes);
  // The bits that are set where of (prefix, low, high) the prefix is, and the others are the genotype.
  constexpr int kTable = kGenotype == 0 ? 0x10 : kGenotype == 1 ? 0x40 : 0x20;
  return _mm512_ternarylogic_epi64(prefix, low, high, kTable);
}

// Counts them over a segment's words.
template <size_t kGenotype>
inline Sums count_segment(const uint64_t* prefix, const uint64_t* block, size_t first, size_t last) {
  Sums sums = {_mm512_setzero_si512(), _mm512_setzero_si512()};
  for (size_t w = first; w < last; ++w) {
    const __m512i mask = _mm512_set1_epi64(static_cast<long long>(prefix[w]));
    const uint64_t* planes = block + w * 2 * kLanes;
    sums.low = _mm512_add_epi64(sums.low, _mm512_popcnt_epi64(samples_with<kGenotype>(mask, planes)));
    sums.high = _mm512_add_epi64(sums.high, _mm512_popcnt_epi64(samples_with<kGenotype>(mask, planes + 8)));
  }
  return sums;
}

// Controls in the lower, cases in the upper 16 bits of 16 words.
inline __m512i paired(const Sums& controls, const Sums& cases) {
  const __m512i low = _mm512_or_si512(controls.low, _mm512_slli_epi64(cases.low, 16));
  const __m512i high = _mm512_or_si512(controls.high, _mm512_slli_epi64(cases.high, 16));
  return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi64_epi32(low)), _mm512_cvtepi64_epi32(high),
                            1);
}

template <size_t kGenotype>
inline __m512i count_pair(const LaneCountInput& in, const uint64_t* prefix, size_t pair) {
  const auto first = static_cast<size_t>(in.first_word[2 * pair]);
  const auto middle = static_cast<size_t>(in.first_word[2 * pair + 1]);
  const auto last = static_cast<size_t>(in.first_word[2 * pair + 2]);
  return paired(count_segment<kGenotype>(prefix, in.block, first, middle),
                count_segment<kGenotype>(prefix, in.block, middle, last));
}

// What is left of a whole when two parts are taken away. Neither half of a pair can borrow from the other.
inline __m512i remainder(__m512i whole, __m512i one, __m512i two) {
  return _mm512_sub_epi32(_mm512_sub_epi32(whole, one), two);
}

void count(const LaneCountInput& in, uint32_t* counts) {
  const size_t cell_stride = in.n_pairs * kLanes;
  const size_t genotype_stride = in.prefix_cells * cell_stride;
  const size_t counted_cells = in.marginals != nullptr ? in.prefix_cells - 1 : in.prefix_cells;
  for (size_t cell = 0; cell < in.prefix_cells; ++cell) {
    const uint64_t* prefix = in.prefix + cell * in.words;
    for (size_t pair = 0; pair < in.n_pairs; ++pair) {
      uint32_t* out = counts + cell * cell_stride + pair * kLanes;
      __m512i one;
      __m512i two;
      if (cell < counted_cells) {
        one = count_pair<1>(in, prefix, pair);
        two = count_pair<2>(in, prefix, pair);
      } else {
        // The last cell of three: the two before it are counted.
        const uint32_t* own = in.marginals + pair * kLanes;
        const uint32_t* before = out - 2 * cell_stride;
        const uint32_t* next = out - cell_stride;
        one = remainder(_mm512_loadu_si512(own + cell_stride), _mm512_loadu_si512(before + genotype_stride),
                        _mm512_loadu_si512(next + genotype_stride));
        two = remainder(_mm512_loadu_si512(own + 2 * cell_stride),
                        _mm512_loadu_si512(before + 2 * genotype_stride),
                        _mm512_loadu_si512(next + 2 * genotype_stride));
      }
      const __m512i zero =
          in.complete
              ? remainder(_mm512_set1_epi32(static_cast<int>(in.prefix_pairs[cell * in.n_pairs + pair])), one,
                          two)
              : count_pair<0>(in, prefix, pair);
      _mm512_storeu_si512(out, zero);
      _mm512_storeu_si512(out + genotype_stride, one);
      _mm512_storeu_si512(out + 2 * genotype_stride, two);
    }
  }
}

}  // namespace

const LaneKernels& lane_kernels_avx512() {
  static constexpr LaneKernels kKernels = {count, lane_derive, lane_bound, lane_derived_bound, lane_values};
  return kKernels;
}
