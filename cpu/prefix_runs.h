// SPDX-License-Identifier: Apache-2.0
//
// Runs of combinations that have all SNPs but the last in common, their prefix: what the searches share of
// walking through a range of the enumeration.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "lib/comb.h"
#include "lib/comb_rank.h"

// Calls take(comb, end, rank) for every run of combinations first_rank .. first_rank + n_ranks - 1 of `order`
// of n_snps SNPs, in their order: comb is the run's first combination and rank its rank; the run's last SNPs
// are comb.back() .. end - 1.
template <class Take>
void for_each_prefix_run(int order, int n_snps, uint64_t first_rank, uint64_t n_ranks, const Take& take) {
  std::vector<int> comb(static_cast<size_t>(order));
  comb_unrank(n_snps, order, first_rank, comb.data());
  for (uint64_t done = 0; done < n_ranks;) {
    const int first = comb.back();
    const int end = static_cast<int>(
        std::min<uint64_t>(static_cast<uint64_t>(n_snps), static_cast<uint64_t>(first) + (n_ranks - done)));
    take(comb, end, first_rank + done);
    done += static_cast<uint64_t>(end - first);
    comb.back() = n_snps - 1;
    if (comb_nextstep(&order, &n_snps, comb.data()) != 0) {
      return;
    }
  }
}

// The planes of all genotype patterns of a prefix, [3^(order - 1)][words], the first SNP's genotype the
// lowest digit. plane_of(snp, genotype): [words].
template <class PlaneOf>
void join_prefix_planes(const std::vector<int>& comb, size_t words, const PlaneOf& plane_of,
                        std::vector<uint64_t>* joined) {
  for (size_t cell = 0; cell * words < joined->size(); ++cell) {
    uint64_t* out = joined->data() + cell * words;
    std::fill_n(out, words, ~uint64_t{0});
    for (size_t j = 0, digits = cell; j + 1 < comb.size(); ++j, digits /= 3) {
      const uint64_t* plane = plane_of(comb[j], digits % 3);
      for (size_t w = 0; w < words; ++w) {
        out[w] &= plane[w];
      }
    }
  }
}
