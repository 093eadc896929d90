// SPDX-License-Identifier: Apache-2.0
//
// The lane search for processors without AVX-512, behind the row filter, which lets few combinations pass:
// counting in plain loops that the compiler vectorises where it can. Only static functions, and no library
// templates.
#include "cpu/lane_bounds_body.h"
#include "cpu/lane_kernels.h"
#include "cpu/lane_values_body.h"

namespace {

// Controls in the lower, cases in the upper 16 bits.
void count_pair(const LaneCountInput& in, const uint64_t* prefix, size_t genotype, size_t pair,
                uint32_t* out) {
  for (size_t lane = 0; lane < kLanes; ++lane) {
    out[lane] = 0;
  }
  for (size_t half = 0; half < 2; ++half) {
    const auto first = static_cast<size_t>(in.first_word[2 * pair + half]);
    const auto last = static_cast<size_t>(in.first_word[2 * pair + half + 1]);
    for (size_t w = first; w < last; ++w) {
      const uint64_t* planes = in.block + w * 2 * kLanes;
      for (size_t lane = 0; lane < kLanes; ++lane) {
        const uint64_t samples = prefix[w] & genotype_bits(planes + lane, genotype);
        out[lane] += static_cast<uint32_t>(__builtin_popcountll(samples)) << (16 * half);
      }
    }
  }
}

void count(const LaneCountInput& in, uint32_t* counts) {
  const size_t cell_stride = in.n_pairs * kLanes;
  const size_t genotype_stride = in.prefix_cells * cell_stride;
  for (size_t cell = 0; cell < in.prefix_cells; ++cell) {
    const uint64_t* prefix = in.prefix + cell * in.words;
    for (size_t pair = 0; pair < in.n_pairs; ++pair) {
      uint32_t* zero = counts + cell * cell_stride + pair * kLanes;
      uint32_t* one = zero + genotype_stride;
      uint32_t* two = one + genotype_stride;
      count_pair(in, prefix, 1, pair, one);
      count_pair(in, prefix, 2, pair, two);
      if (in.complete) {
        for (size_t lane = 0; lane < kLanes; ++lane) {
          zero[lane] = in.prefix_pairs[cell * in.n_pairs + pair] - one[lane] - two[lane];
        }
      } else {
        count_pair(in, prefix, 0, pair, zero);
      }
    }
  }
}

inline constexpr LaneKernels kPlainKernels = {count, lane_derive, lane_bound, lane_derived_bound,
                                              lane_values};

}  // namespace
