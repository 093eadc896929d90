// SPDX-License-Identifier: Apache-2.0
//
// The lane search for processors with AVX2 and POPCNT, behind the byte filter, which lets few combinations
// pass: plain loops that the compiler vectorises where it can. Only static functions, and no library
// templates.
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
      const uint64_t* plane = in.block + (w * 3 + genotype) * kLanes;
      for (size_t lane = 0; lane < kLanes; ++lane) {
        out[lane] += static_cast<uint32_t>(__builtin_popcountll(prefix[w] & plane[lane])) << (16 * half);
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

// One lane of the bound.
bool may_pass(const LaneBoundInput& in, size_t lane) {
  for (size_t f = 0; f < in.n_folds; ++f) {
    const LaneLimit& limit = in.limits[f];
    int32_t cases = limit.cases;
    int32_t controls = limit.controls;
    const auto training = [&](size_t cell) {
      return in.totals[cell * kLanes + lane] - in.counts[(cell * in.n_pairs + f) * kLanes + lane];
    };
    if (!in.complete) {
      uint32_t sum = 0;
      for (size_t cell = 0; cell < in.n_cells; ++cell) {
        sum += training(cell);
      }
      controls = static_cast<int32_t>(sum & 0xffffu);
      cases = static_cast<int32_t>(sum >> 16);
    }
    const int32_t of_case = in.plain_weights ? 1 : controls;
    const int32_t of_control = in.plain_weights ? 1 : cases;
    int32_t d = 0;
    for (size_t cell = 0; cell < in.n_cells; ++cell) {
      const uint32_t pair = training(cell);
      const int32_t value =
          static_cast<int32_t>(pair >> 16) * of_case - static_cast<int32_t>(pair & 0xffffu) * of_control;
      d += value > 0 ? value : 0;
    }
    const auto p = static_cast<float>(cases);
    const auto q = static_cast<float>(controls);
    const float n = in.own_samples ? q + p : limit.samples;
    if (static_cast<float>(d) + limit.q * q >= limit.pq * (q * p) + (limit.nn * (n * n) + limit.n * n)) {
      return true;
    }
  }
  return false;
}

uint32_t bound(const LaneBoundInput& in) {
  for (size_t cell = 0; cell < in.n_cells; ++cell) {
    for (size_t lane = 0; lane < kLanes; ++lane) {
      uint32_t total = 0;
      for (size_t pair = 0; pair < in.n_pairs; ++pair) {
        total += in.counts[(cell * in.n_pairs + pair) * kLanes + lane];
      }
      in.totals[cell * kLanes + lane] = total;
    }
  }
  uint32_t passing = 0;
  for (size_t lane = 0; lane < kLanes; ++lane) {
    passing |= may_pass(in, lane) ? 1u << lane : 0u;
  }
  return passing;
}

inline constexpr LaneKernels kPlainKernels = {count, bound, lane_values};

}  // namespace
