// SPDX-License-Identifier: Apache-2.0
//
// A first look at 64 combinations at once: an upper bound of every fold's value in 16-bit integers. Most
// combinations of a search end here.
//
// With P cases and Q controls in a fold's training samples, D = sum over the cells of max(Q cases - P
// controls, 0) decides the measures that have a bound (LaneLimit in lane_kernels.h). Here the weights are
// small integers a and b, the same for all folds, with a / b >= Q / P in each: then D <= (P / b) sum max(a
// cases - b controls, 0). The values a cases - b controls of a cell and a pair of segments add up, so the
// cells that are not counted follow from marginal values as counts do.
//
// Plain pointers only: the files behind this are compiled for wider processors than the rest.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr int kLargestByteValue = 16383;
constexpr int kLargestByteNeed = 32767 - kLargestByteValue;

// Last SNPs side by side.
constexpr size_t kByteLanes = 64;

struct ByteFilterInput {
  const uint8_t*
      prefix;  // [prefix_cells][prefix_bytes]: the planes of the prefix's patterns, 8 samples a byte
  size_t prefix_bytes;
  size_t prefix_cells;
  const int* prefix_row;         // [2 * n_pairs] first byte of each segment
  const uint8_t* block;          // [rows][2][kByteLanes]: genotypes 1 and 2 of the last SNPs, 8 samples a row
  const int* block_row;          // [2 * n_pairs + 1] first row of each segment
  size_t n_pairs;                // segments 2p (controls) and 2p + 1 (cases)
  int case_weight;               // a
  int control_weight;            // b
  const int16_t* prefix_values;  // [prefix_cells][n_pairs]
  // Of pairs of SNPs: [2][n_pairs][kByteLanes], genotypes 1 and 2 of the last SNPs on their own, from which
  // the first of three prefix cells follows. Else null: every prefix cell is counted.
  const int16_t* last_values;
  const int16_t* needs;  // [n_folds], at most kLargestByteNeed: the least sum that can pass; pair f holds the
                         // testing samples of fold f
  size_t n_folds;
  int16_t* values;  // scratch [3 * prefix_cells][n_pairs][kByteLanes]
};

// The lanes that may pass the floor of at least one fold, a bit each.
using ByteFilter = uint64_t (*)(const ByteFilterInput& input);

uint64_t byte_filter_avx512(const ByteFilterInput& input);
uint64_t byte_filter_avx2(const ByteFilterInput& input);
uint64_t byte_filter_portable(const ByteFilterInput& input);
