// SPDX-License-Identifier: Apache-2.0
//
// The genotype columns of a group of items, side by side: which lanes have a dummy of 1, for every sample.
#pragma once

#include <cstdint>
#include <vector>

#include "device/problem.h"

class ItemLanes {
 public:
  // problem outlives the object. order: SNPs of an item, 1 or 2.
  ItemLanes(const Problem& problem, int order);

  // Takes items[count][order], count <= lanes <= kMaxFitLanes; the remaining lanes repeat the first item.
  void take(const int* items, size_t count, size_t lanes);

  // Lane `to` becomes the item of lane `from` of source, which may be this object.
  void take_lane(const ItemLanes& source, size_t from, size_t to);

  // No lane has an item that matters: the next lanes that come decide on exclusive().
  void forget() { exclusive_ = true; }

  // [n_samples][2 * order]. Dummies of one SNP: heterozygous, homozygous for the counted allele; a missing
  // genotype has neither. Dummies of a SNP of a pair: the low and the high bit of the genotype code, so a
  // missing genotype (code 3) has both.
  const uint16_t* dummies() const { return dummies_.data(); }

  // Whether no sample has both dummies of a SNP, in any lane.
  bool exclusive() const { return exclusive_; }

  // The dummies of `lanes` lanes from `first` on, as lanes from 0 on.
  void part(size_t first, size_t lanes, std::vector<uint16_t>* dummies) const;

 private:
  const uint32_t* words_at(size_t word);
  void take_neighbours(int first_snp, size_t lanes);
  void take_any(const int* items, size_t count, size_t lanes);

  const Problem& problem_;
  const size_t order_;
  bool exclusive_ = true;
  std::vector<uint16_t> dummies_;

  // Words of the rows, [kWordsAtATime][n_samples] from first_word_ on: each row is far from the next, and
  // gives the words of several groups at a time.
  static constexpr size_t kWordsAtATime = 4;
  size_t first_word_ = 0;
  std::vector<uint32_t> words_;
};
