// SPDX-License-Identifier: Apache-2.0
//
// Top lists and candidate lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "device/candidate_list.h"
#include "src/top_list.h"

namespace {

std::array<double, kRecordSize> record_with(int measure, float value) {
  std::array<double, kRecordSize> record{};
  record[static_cast<size_t>(measure)] = value;
  return record;
}

void insert(TopList& top, int snp, float value) {
  top.insert(&snp, record_with(3, value).data());
}

TEST(TopList, ARecordWhoseValueIsNoNumberNeverEnters) {
  TopList top(1, 3, 3);
  insert(top, 4, std::nanf(""));
  EXPECT_EQ(top.filled(), 0u);
}

TEST(TopList, OnlyValuesAboveZeroEnter) {
  TopList top(1, 3, 3);
  insert(top, 1, 0.0f);
  insert(top, 2, -0.5f);
  insert(top, 3, 0.001f);
  EXPECT_EQ(top.filled(), 1u);
  EXPECT_EQ(top.entries(1)[0].comb[0], 3);
}

TEST(TopList, OfTwoEqualValuesTheOneEvaluatedFirstRanksHigher) {
  TopList top(1, 3, 3);
  insert(top, 7, 0.5f);
  insert(top, 8, 0.5f);
  insert(top, 9, 0.9f);
  insert(top, 10, 0.5f);
  const std::vector<TopList::Entry> entries = top.entries(3);
  EXPECT_EQ(entries[0].comb[0], 9);
  EXPECT_EQ(entries[1].comb[0], 7);
  EXPECT_EQ(entries[2].comb[0], 8);
}

TEST(TopList, AListOfOneIsReplacedByWhateverIsStrictlyBetter) {
  TopList top(1, 1, 3);
  insert(top, 1, 0.5f);
  insert(top, 2, 0.5f);
  EXPECT_EQ(top.entries(1)[0].comb[0], 1);
  insert(top, 3, 0.6f);
  EXPECT_EQ(top.entries(1)[0].comb[0], 3);
}

TEST(TopList, AListOfNoneStaysEmpty) {
  TopList top(1, 0, 3);
  insert(top, 1, 0.5f);
  EXPECT_EQ(top.filled(), 0u);
}

TEST(CandidateList, KeepsTheBestByValueThenRankWhateverTheOrderOfOffers) {
  std::mt19937 random(20261121);
  for (int round = 0; round < 200; ++round) {
    std::vector<RankedValue> offers;
    for (uint64_t rank = 0; rank < 60; ++rank) {
      const int step = static_cast<int>(random() % 8) - 2;  // ties, zeros, negative values
      offers.push_back({rank, step == 5 ? std::nanf("") : static_cast<float>(step) * 0.25f});
    }
    std::vector<RankedValue> expected;
    std::copy_if(offers.begin(), offers.end(), std::back_inserter(expected),
                 [](const RankedValue& offer) { return offer.value > 0.0f; });
    std::stable_sort(expected.begin(), expected.end(),
                     [](const RankedValue& a, const RankedValue& b) { return a.value > b.value; });
    const size_t capacity = 1 + random() % 20;
    expected.resize(std::min(expected.size(), capacity));

    std::shuffle(offers.begin(), offers.end(), random);
    CandidateList list(capacity);
    for (const RankedValue& offer : offers) {
      list.offer(offer.rank, offer.value);
    }
    const std::vector<RankedValue> kept = list.sorted();
    ASSERT_EQ(kept.size(), expected.size());
    for (size_t i = 0; i < kept.size(); ++i) {
      EXPECT_EQ(kept[i].rank, expected[i].rank);
      EXPECT_EQ(kept[i].value, expected[i].value);
    }
  }
}

TEST(CandidateList, AnEqualValuePassesTheFloorOnlyAtALowerRank) {
  CandidateList list(2, {0.5f, 100});
  list.offer(100, 0.5f);
  list.offer(150, 0.5f);
  EXPECT_TRUE(list.entries().empty());
  list.offer(99, 0.5f);
  list.offer(500, 0.75f);
  EXPECT_EQ(list.entries().size(), 2u);
  EXPECT_EQ(list.floor().value, 0.5f);
  EXPECT_EQ(list.floor().rank, 99u);
}

TEST(CandidateList, AFloorFromOutsideIsNotLowered) {
  CandidateList list(1, {0.5f, 10});
  list.offer(3, 0.5f);
  EXPECT_EQ(list.floor().rank, 3u);
  list.offer(20, 0.5f);
  EXPECT_EQ(list.sorted()[0].rank, 3u);
}

}  // namespace
