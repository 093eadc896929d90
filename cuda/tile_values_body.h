// SPDX-License-Identifier: Apache-2.0
//
// The values (FoldBound in tile_shape.h) of single SNPs and of pairs, from which the fused search derives
// those of cells that it does not count: made once per run.
#pragma once

#include "cuda/tile_search_body.h"

struct ValueArguments {
  PlaneView planes;
  int n_snps;
  int n_pairs;  // of segments
  int n_folds;
  const FoldBound* bounds;  // [n_folds]
  int32_t* values;          // out; for SNPs [n_folds][2][n_snps], for pairs [n_folds][4][snp_pairs(n_snps)]
};

// The samples that have the given genotypes at both planes in a segment, offsets as plane_at has them.
TAVO_HOST_DEVICE int32_t count_joint(const PlaneView& planes, uint32_t first, uint32_t second,
                                     PlaneSegment segment) {
  int32_t n = 0;
  for (int w = 0; w < segment.n_words; ++w) {
    const uint32_t* at = plane_word(planes, planes.words, segment, w);
    n += count_bits(at[first] & at[second]);
  }
  return n;
}

// The values of one pattern, [n_folds] that stand `stride` apart.
TAVO_HOST_DEVICE void value_pattern(const ValueArguments& a, uint32_t first, uint32_t second, int32_t* values,
                                    uint64_t stride) {
  int32_t totals[2] = {0, 0};
  for (int segment = 0; segment < 2 * a.n_pairs; ++segment) {
    totals[segment % 2] += count_joint(a.planes, first, second, a.planes.segments[segment]);
  }
  for (int fold = 0; fold < a.n_folds; ++fold) {
    const int32_t controls = count_joint(a.planes, first, second, a.planes.segments[2 * fold]);
    const int32_t cases = count_joint(a.planes, first, second, a.planes.segments[2 * fold + 1]);
    values[(uint64_t)fold * stride] = cell_value(a.bounds[fold], totals[1] - cases, totals[0] - controls);
  }
}

// Thread `item` of 2 * n_snps: one genotype of a SNP.
TAVO_HOST_DEVICE void value_snp(const ValueArguments& a, uint64_t item) {
  const auto n = (uint64_t)a.n_snps;
  if (item < 2 * n) {
    const uint32_t plane = plane_at(a.planes, (int)(item % n), 1 + (int)(item / n));
    value_pattern(a, plane, plane, a.values + item, 2 * n);
  }
}

// Thread `item` of n_snps * n_snps: the four patterns of SNPs item / n_snps and item % n_snps, in that order.
TAVO_HOST_DEVICE void value_pair(const ValueArguments& a, uint64_t item) {
  const auto n = (uint64_t)a.n_snps;
  if (item >= n * n || item % n <= item / n) {
    return;
  }
  const int first = (int)(item / n);
  const int second = (int)(item % n);
  const uint64_t n_pairs = snp_pairs(a.n_snps);
  for (int pattern = 0; pattern < 4; ++pattern) {
    value_pattern(a, plane_at(a.planes, first, 1 + pattern % 2), plane_at(a.planes, second, 1 + pattern / 2),
                  a.values + (uint64_t)pattern * n_pairs + pair_number(a.n_snps, first, second), 4 * n_pairs);
  }
}
