// SPDX-License-Identifier: Apache-2.0
#include "lib/comb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <set>
#include <vector>

#include "lib/permutation.h"
#include "lib/rng.h"

namespace {

using Combination = std::vector<int>;

// All ascending k-subsets of 0 .. n-1 in lexicographic order, found by looking at every subset.
std::vector<Combination> all_subsets(int n, int k) {
  std::vector<Combination> subsets;
  for (unsigned mask = 0; mask < (1U << n); ++mask) {
    Combination subset;
    for (int i = 0; i < n; ++i) {
      if ((mask >> i) & 1U) {
        subset.push_back(i);
      }
    }
    if (static_cast<int>(subset.size()) == k) {
      subsets.push_back(subset);
    }
  }
  std::sort(subsets.begin(), subsets.end());
  return subsets;
}

std::vector<Combination> split(const std::vector<int>& flat, int k, int count) {
  std::vector<Combination> combinations;
  for (int c = 0; c < count; ++c) {
    combinations.emplace_back(flat.begin() + c * k, flat.begin() + (c + 1) * k);
  }
  return combinations;
}

// The blocks that combSNP delivers to a caller that keeps to the protocol, the empty last one included.
std::vector<std::vector<Combination>> blocks_of(int k, int n, int max_count) {
  std::vector<std::vector<Combination>> blocks;
  std::vector<int> state(static_cast<size_t>(k), -1);
  std::vector<int> out(static_cast<size_t>(k * max_count));
  int count = 0;
  do {
    combSNP(&k, &n, &max_count, state.data(), &count, out.data());
    blocks.push_back(split(out, k, count));
    if (count > 0) {
      state = blocks.back().back();
    }
  } while (count > 0);
  return blocks;
}

std::vector<Combination> joined(const std::vector<std::vector<Combination>>& blocks) {
  std::vector<Combination> all;
  for (const auto& block : blocks) {
    all.insert(all.end(), block.begin(), block.end());
  }
  return all;
}

std::vector<Combination> sample(int k, int n, int want) {
  int count = -1;
  std::vector<int> out(static_cast<size_t>(k) * static_cast<size_t>(want));
  sampleCombSNP(&k, &n, &want, &count, out.data());
  return split(out, k, count);
}

TEST(Comb, AllSnpsTogetherAreExactlyOneCombination) {
  for (int n = 1; n <= 8; ++n) {
    Combination all(static_cast<size_t>(n));
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(joined(blocks_of(n, n, 5)), std::vector<Combination>{all});
  }
}

TEST(Comb, SingleSnpsAreEnumeratedInTheirOrder) {
  const std::vector<Combination> expected = {{0}, {1}, {2}, {3}, {4}};
  EXPECT_EQ(joined(blocks_of(1, 5, 2)), expected);
}

TEST(Comb, ABlockSizeThatDoesNotDivideTheCountGivesAShortLastBlockAndThenNone) {
  const auto blocks = blocks_of(2, 4, 4);
  ASSERT_EQ(blocks.size(), 3U);
  EXPECT_EQ(blocks[0].size(), 4U);
  EXPECT_EQ(blocks[1].size(), 2U);
  EXPECT_EQ(blocks[2].size(), 0U);
}

TEST(Comb, BlocksResumedAfterTheLastDeliveredCombinationHaveNoGapAndNoRepeat) {
  for (int n = 1; n <= 9; ++n) {
    for (int k = 1; k <= n; ++k) {
      const std::vector<Combination> expected = all_subsets(n, k);
      for (const int max_count : {1, 2, 3, 7, static_cast<int>(expected.size()), 1000}) {
        EXPECT_EQ(joined(blocks_of(k, n, max_count)), expected) << n << " over " << k << " by " << max_count;
      }
    }
  }
}

TEST(Comb, FewerSnpsThanTheOrderGiveNoCombination) {
  const int k = 3;
  const int n = 2;
  const int max_count = 4;
  std::vector<int> state(3, -1);
  std::vector<int> out(12, -7);
  int count = -1;
  combSNP(&k, &n, &max_count, state.data(), &count, out.data());
  EXPECT_EQ(count, 0);
  count = -1;
  EXPECT_EQ(combSNP2(&k, &n, &max_count, state.data(), &count, out.data()), 1);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(out, std::vector<int>(12, -7));
}

TEST(Comb, TheStepVisitsEverySubsetOnceAndThenReportsTheEnd) {
  const int k = 3;
  const int n = 7;
  Combination comb = {0, 1, 2};
  std::vector<Combination> seen = {comb};
  while (comb_nextstep(&k, &n, comb.data()) == 0) {
    seen.push_back(comb);
  }
  EXPECT_EQ(seen, all_subsets(n, k));
}

TEST(Comb, TheStepTouchesOnlyTheEntriesOfTheCursor) {
  const int k = 2;
  const int n = 4;
  std::vector<int> guarded = {-9, 2, 3, -9};
  EXPECT_EQ(comb_nextstep(&k, &n, &guarded[1]), 1);
  EXPECT_EQ(guarded.front(), -9);
  EXPECT_EQ(guarded.back(), -9);
}

TEST(Comb, ACursorOfTheNextCombinationIsPassedBackUnchanged) {
  for (int n = 2; n <= 7; ++n) {
    for (const int max_count : {1, 2, 4, 100}) {
      const int k = 2;
      std::vector<int> state(2, -1);
      std::vector<int> out(static_cast<size_t>(k * max_count));
      std::vector<Combination> seen;
      int ended = 0;
      while (ended == 0) {
        int count = 0;
        ended = combSNP2(&k, &n, &max_count, state.data(), &count, out.data());
        if (ended == 0) {
          EXPECT_EQ(count, max_count) << "only the last block may be short";
        }
        const auto block = split(out, k, count);
        seen.insert(seen.end(), block.begin(), block.end());
        ASSERT_LE(seen.size(), 21U);
      }
      EXPECT_EQ(seen, all_subsets(n, k));
    }
  }
}

TEST(Comb, ACursorOfTheNextCombinationIsDeliveredEvenIntoAnEmptyBlock) {
  const int k = 2;
  const int n = 4;
  const int max_count = 0;
  for (const Combination& start : {Combination{-1, -1}, Combination{1, 3}}) {
    Combination state = start;
    std::vector<int> out(2, -7);
    int count = -1;
    EXPECT_EQ(combSNP2(&k, &n, &max_count, state.data(), &count, out.data()), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(out, start[0] == -1 ? Combination({0, 1}) : start);
    EXPECT_EQ(state, start[0] == -1 ? Combination({0, 2}) : Combination({2, 3}));
  }
}

TEST(Comb, TheEstimateTruncatesEachFactor) {
  EXPECT_EQ(comb_estimate(2, 10), 40.0);  // 45 subsets
  EXPECT_EQ(comb_estimate(1, 10), 10.0);
  EXPECT_EQ(comb_estimate(3, 3), 0.0);
  EXPECT_EQ(comb_estimate(5, 1000000), 1e6 * 499999.0 * 333332.0 * 249999.0 * 199999.0);
}

TEST(Comb, WantingMoreThanTheTruncatedEstimateEnumeratesEvenBelowTheTrueCount) {
  init_rng(5489);
  const auto all = all_subsets(10, 2);
  EXPECT_EQ(sample(2, 10, 41), std::vector<Combination>(all.begin(), all.begin() + 41));
  EXPECT_EQ(sample(2, 10, 100), all);
  EXPECT_EQ(int32_rand(), 3499211612U) << "an enumeration draws nothing";
}

TEST(Comb, WantingAsManyAsTheEstimateSamples) {
  init_rng(5489);
  const auto sampled = sample(2, 10, 40);
  auto first = all_subsets(10, 2);
  first.resize(40);
  ASSERT_EQ(sampled.size(), 40U);
  EXPECT_NE(sampled, first);
  EXPECT_NE(int32_rand(), 3499211612U) << "sampling drew nothing";
}

TEST(Comb, SampledIndicesAreDistinctWithinACombination) {
  init_rng(5489);
  for (const Combination& comb : sample(4, 20, 500)) {
    const std::set<int> distinct(comb.begin(), comb.end());
    EXPECT_EQ(distinct.size(), 4U);
    EXPECT_GE(*distinct.begin(), 0);
    EXPECT_LT(*distinct.rbegin(), 20);
  }
}

TEST(Comb, EachSampleContinuesFromTheOrderThatTheLastOneLeft) {
  const int n = 30;
  const int k = 3;
  init_rng(5489);
  const auto sampled = sample(k, n, 50);
  std::vector<int> order(30);
  std::iota(order.begin(), order.end(), 0);
  const std::vector<int> fresh = order;
  init_rng(5489);
  for (const Combination& comb : sampled) {
    permuteIndex(order.data(), &n, &k);
    EXPECT_EQ(comb, Combination(order.begin(), order.begin() + k));
  }
  EXPECT_NE(order, fresh);
}

TEST(Comb, TheKeyHasACommaBeforeEachIndexAndOneAtTheEnd) {
  const Combination comb = {3, 17, 40};
  EXPECT_EQ(comb_key(comb.data(), 3), ",3,17,40,");
}

TEST(Comb, AKeyIsCutAt255Characters) {
  const Combination comb(40, 1234567);
  std::string whole;
  for (const int index : comb) {
    whole += "," + std::to_string(index);
  }
  EXPECT_EQ(comb_key(comb.data(), 31), whole.substr(0, 31 * 8) + ",");
  EXPECT_EQ(comb_key(comb.data(), 32), whole.substr(0, 255));
  EXPECT_EQ(comb_key(comb.data(), 40), whole.substr(0, 255));
}

TEST(Comb, FieldOneOfTheKeyOfThreeSeventeenFortyIsSeventeen) {
  EXPECT_EQ(comb_key_field(",3,17,40,", 0), 3);
  EXPECT_EQ(comb_key_field(",3,17,40,", 1), 17);
  EXPECT_EQ(comb_key_field(",3,17,40,", 2), 40);
}

TEST(Comb, AFieldThatTheKeyDoesNotHaveIsZero) {
  EXPECT_EQ(comb_key_field(",3,17,40,", 3), 0);
  EXPECT_EQ(comb_key_field(",3,17,40,", 99), 0);
  EXPECT_EQ(comb_key_field(",3,17,40,", -1), 0);
  EXPECT_EQ(comb_key_field("", 0), 0);
}

}  // namespace
