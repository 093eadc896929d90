// SPDX-License-Identifier: Apache-2.0
#include "src/folds.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(Folds, ClassesOtherThanTheCaseValueAreControls) {
  EXPECT_EQ(code_classes({0, 1, 2, 255, 1}, 1), (std::vector<uint8_t>{0, 1, 0, 0, 1}));
}

TEST(Folds, TheSampleListHasAllCasesThenAllControlsInFileOrder) {
  const SampleList list = make_sample_list({0, 1, 0, 1, 1}, {});
  EXPECT_EQ(list.samples, (std::vector<int>{1, 3, 4, 0, 2}));
  EXPECT_EQ(list.n_cases, 3);
  EXPECT_EQ(list.n_controls, 2);
  EXPECT_EQ(list.threshold(), 1.5f);
}

TEST(Folds, SamplesLeftOutAreInNoList) {
  const SampleList list = make_sample_list({0, 1, 0, 1, 1}, {0, 1, 1, 0, 0});
  EXPECT_EQ(list.samples, (std::vector<int>{3, 4, 0}));
}

TEST(Folds, WithoutShufflingAFoldHoldsTheIndicesCongruentToItWithinEachClass) {
  const std::vector<int> labels = deal_folds(7, 5, 3);
  for (size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(labels[i], static_cast<int>(i % 3));
  }
  for (size_t j = 0; j < 5; ++j) {
    EXPECT_EQ(labels[7 + j], static_cast<int>(j % 3));
  }
}

TEST(Folds, ShufflingKeepsFoldSizesAndTheFirstControl) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    const std::vector<int> dealt = deal_folds(23, 31, 5);
    std::vector<int> labels = dealt;
    shuffle_folds(labels, 23, 31, seed);
    EXPECT_EQ(labels[23], 0);
    EXPECT_TRUE(std::is_permutation(labels.begin(), labels.begin() + 23, dealt.begin()));
    EXPECT_TRUE(std::is_permutation(labels.begin() + 23, labels.end(), dealt.begin() + 23));
    std::vector<int> again = dealt;
    shuffle_folds(again, 23, 31, seed);
    EXPECT_EQ(labels, again);
  }
}

TEST(Folds, ShufflingWithoutSamplesOfAClassDoesNothing) {
  std::vector<int> none;
  shuffle_folds(none, 0, 0, 3u);
  EXPECT_TRUE(none.empty());
  std::vector<int> one_control = {0};
  shuffle_folds(one_control, 0, 1, 3u);
  EXPECT_EQ(one_control, std::vector<int>{0});
}

TEST(Folds, EverySampleTestsInOneFoldAndTrainsInAllOthers) {
  const SampleList list = make_sample_list({1, 0, 1, 0, 0, 1, 0}, {});
  const FoldLists folds = split_folds(list, deal_folds(list.n_cases, list.n_controls, 3), 3);
  std::vector<int> tested(7, 0);
  for (size_t f = 0; f < 3; ++f) {
    EXPECT_EQ(folds.training[f].size() + folds.testing[f].size(), 7u);
    for (const int sample : folds.testing[f]) {
      ++tested[static_cast<size_t>(sample)];
      EXPECT_EQ(std::count(folds.training[f].begin(), folds.training[f].end(), sample), 0);
    }
  }
  EXPECT_EQ(tested, std::vector<int>(7, 1));
}

TEST(Folds, OneFoldTestsAllAndTrainsNone) {
  const SampleList list = make_sample_list({1, 0, 1}, {});
  const FoldLists folds = split_folds(list, deal_folds(2, 1, 1), 1);
  EXPECT_TRUE(folds.training[0].empty());
  EXPECT_EQ(folds.testing[0].size(), 3u);
}

TEST(Folds, ViewsBeginAtTheFirstFoldToCompute) {
  const SampleList list = make_sample_list({1, 0, 1, 0}, {});
  const FoldLists folds = split_folds(list, deal_folds(2, 2, 2), 2);
  const std::vector<FoldView> views = folds.views(1);
  ASSERT_EQ(views.size(), 1u);
  EXPECT_EQ(views[0].testing.data(), folds.testing[1].data());
  EXPECT_EQ(views[0].threshold, 1.0f);
}

}  // namespace
