// SPDX-License-Identifier: Apache-2.0
#include "cuda/search_layout.h"

#include <gtest/gtest.h>

#include <limits>

#include "cuda/search_common.h"
#include "lib/comb_rank.h"
#include "lib/mdr.h"

namespace {

TEST(BinomialTable, HoldsTheCountsOfCombinations) {
  const std::vector<uint64_t> table = binomial_table(70, 6);
  for (int k = 0; k <= 6; ++k) {
    for (int n = 0; n <= 70; ++n) {
      EXPECT_EQ(table[static_cast<size_t>(k) * 71 + static_cast<size_t>(n)], comb_count(n, k).value());
    }
  }
}

TEST(BinomialTable, WhatDoesNotFitStandsAtTheLargestNumber) {
  const std::vector<uint64_t> table = binomial_table(200, 40);
  EXPECT_EQ(table.back(), std::numeric_limits<uint64_t>::max());
}

TEST(Unrank, AgreesWithTheHost) {
  for (const auto& [n, k] :
       std::vector<std::pair<int, int>>{{1, 1}, {9, 1}, {12, 2}, {5, 5}, {11, 4}, {60, 58}}) {
    const std::vector<uint64_t> table = binomial_table(n, k);
    SearchRange range{};
    range.n_snps = n;
    range.order = k;
    range.binomials = table.data();
    for (uint64_t rank = 0; rank < comb_count(n, k).value(); ++rank) {
      std::vector<int> found(static_cast<size_t>(k), -1);
      std::vector<int> expected(static_cast<size_t>(k));
      unrank(range, n, k, rank, found.data());
      comb_unrank(n, k, rank, expected.data());
      ASSERT_EQ(found, expected) << n << " choose " << k << ", rank " << rank;
    }
  }
}

TEST(Unrank, AgreesWithTheHostFarOut) {
  const int n = 500000;
  const std::vector<uint64_t> table = binomial_table(n, 3);
  SearchRange range{};
  range.n_snps = n;
  range.order = 3;
  range.binomials = table.data();
  const uint64_t total = comb_count(n, 3).value();
  for (uint64_t step = 0; step < 2000; ++step) {
    const uint64_t rank = step == 1999 ? total - 1 : total / 2000 * step + step;
    int found[3];
    int expected[3];
    unrank(range, n, 3, rank, found);
    comb_unrank(n, 3, rank, expected);
    ASSERT_TRUE(std::equal(found, found + 3, expected)) << rank;
  }
}

TEST(CountedCells, AreAllButThoseThatATableOfPairsOrTriplesDrops) {
  EXPECT_EQ(counted_cell_bits({2, kMissingAvailable, 1, 0}), ~0u);
  EXPECT_EQ(counted_cell_bits({4, kMissingLevel, 1, 0}), ~0u);
  // Cells of a pair in base 4 are first + 4 * second; nine are held: all with second 0 or 1, and (0, 2).
  EXPECT_EQ(counted_cell_bits({2, kMissingLevel, 1, 0}) & 0x1ffu, 0b001111111u);
}

TEST(PlaneLayout, PadsSegmentsToChunks) {
  Problem problem;
  const std::vector<uint8_t> classes(300, 0);
  problem.n_samples = 300;
  problem.classes = classes.data();
  std::vector<int> testing;
  for (int s = 0; s < 129; ++s) {
    testing.push_back(s);
  }
  std::vector<int> training;
  for (int s = 129; s < 300; ++s) {
    training.push_back(s);
  }
  const FoldView fold{training, testing, 1.0f};
  const PlaneLayout layout(Segments(problem, {&fold, 1}));
  ASSERT_EQ(layout.segments.size(), 4u);
  const int expected[4][2] = {{0, 5}, {2, 0}, {2, 6}, {4, 0}};
  for (size_t segment = 0; segment < 4; ++segment) {
    EXPECT_EQ(layout.segments[segment].first_chunk, expected[segment][0]);
    EXPECT_EQ(layout.segments[segment].n_words, expected[segment][1]);
  }
  EXPECT_EQ(layout.n_words(), 16);
  EXPECT_EQ(layout.sample_at[128], 128);
  EXPECT_EQ(layout.sample_at[129], -1);
  EXPECT_EQ(layout.sample_at[256], 129);
  EXPECT_EQ(layout.sample_at.size(), 512u);
}

}  // namespace
