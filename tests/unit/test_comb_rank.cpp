// SPDX-License-Identifier: Apache-2.0
#include "lib/comb_rank.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <vector>

#include "lib/comb.h"

namespace {

TEST(CombRank, CountsFollowPascalsRule) {
  for (int n = 1; n <= 60; ++n) {
    EXPECT_EQ(comb_count(n, 0), 1U);
    EXPECT_EQ(comb_count(n, n), 1U);
    EXPECT_EQ(comb_count(n, n + 1), 0U);
    for (int k = 1; k < n; ++k) {
      EXPECT_EQ(comb_count(n, k).value(), comb_count(n - 1, k - 1).value() + comb_count(n - 1, k).value());
    }
  }
}

TEST(CombRank, ACountHasAValueExactlyWhenItFits63Bits) {
  EXPECT_EQ(comb_count(1000000, 3), 166666166667000000U);
  EXPECT_EQ(comb_count(1000000, 4), std::nullopt);
  EXPECT_EQ(comb_count(66, 33), 7219428434016265740U);
  EXPECT_EQ(comb_count(67, 33), std::nullopt);  // 14226520737620288370: 64 bits would hold it
  EXPECT_EQ(comb_count(2147483647, 2), 2305843005992468481U);
  EXPECT_EQ(comb_count(2147483647, 3), std::nullopt);
  EXPECT_EQ(comb_count(2147483647, 2147483646), 2147483647U);
  EXPECT_EQ(comb_count(1000000, 500000), std::nullopt);
}

TEST(CombRank, RanksAreThePositionsInTheEnumeration) {
  for (int n = 1; n <= 12; ++n) {
    for (int k = 1; k <= n; ++k) {
      std::vector<int> comb(static_cast<size_t>(k));
      std::vector<int> unranked(comb.size());
      std::iota(comb.begin(), comb.end(), 0);
      uint64_t position = 0;
      do {
        EXPECT_EQ(comb_rank(n, k, comb.data()), position);
        comb_unrank(n, k, position, unranked.data());
        EXPECT_EQ(unranked, comb);
        ++position;
      } while (comb_nextstep(&k, &n, comb.data()) == 0);
      EXPECT_EQ(comb_count(n, k), position);
    }
  }
}

TEST(CombRank, UnrankingAndRankingGiveTheRankBack) {
  constexpr unsigned kSeed = 20240301;
  std::mt19937_64 random(kSeed);
  const std::vector<std::pair<int, int>> sizes = {
      {1000000, 3}, {1000000, 2}, {2147483647, 2}, {500, 5}, {66, 33}, {100, 10}, {5000, 4}, {2147483647, 1}};
  for (const auto& [n, k] : sizes) {
    const uint64_t count = comb_count(n, k).value();
    std::vector<uint64_t> ranks = {0, 1, count / 2, count - 2, count - 1};
    for (int i = 0; i < 200; ++i) {
      ranks.push_back(random() % count);
    }
    std::vector<int> comb(static_cast<size_t>(k));
    for (const uint64_t rank : ranks) {
      comb_unrank(n, k, rank, comb.data());
      for (size_t i = 0; i + 1 < comb.size(); ++i) {
        EXPECT_LT(comb[i], comb[i + 1]);
      }
      EXPECT_GE(comb.front(), 0);
      EXPECT_LT(comb.back(), n);
      EXPECT_EQ(comb_rank(n, k, comb.data()), rank) << n << " over " << k << ", seed " << kSeed;
    }
  }
}

TEST(CombRank, TheLastRankIsTheLastCombination) {
  std::vector<int> comb(3);
  comb_unrank(1000000, 3, comb_count(1000000, 3).value() - 1, comb.data());
  EXPECT_EQ(comb, std::vector<int>({999997, 999998, 999999}));
}

}  // namespace
