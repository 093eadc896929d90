// SPDX-License-Identifier: Apache-2.0
#include "cpu/record_path.h"

#include <gtest/gtest.h>

#include <cmath>

#include "lib/packed_genotypes.h"

namespace {

// Samples given genotype by genotype, in one fold.
class RecordPathTest : public testing::Test {
 protected:
  void add(uint8_t class_value, const std::vector<unsigned>& genotypes, bool tests = false) {
    const size_t width = static_cast<size_t>(packed_words(static_cast<int64_t>(genotypes.size())));
    words_.resize(words_.size() + width, 0);
    for (size_t j = 0; j < genotypes.size(); ++j) {
      put_packed_genotype(words_.data() + words_.size() - width, j, genotypes[j]);
    }
    (tests ? testing_ : training_).push_back(static_cast<int>(classes_.size()));
    classes_.push_back(class_value);
    problem_.words_per_row = static_cast<int64_t>(width);
    problem_.n_snps = static_cast<int>(genotypes.size());
  }

  RecordPath evaluate(const std::vector<int>& comb, int missing = 4) {
    problem_.words = words_.data();
    problem_.classes = classes_.data();
    problem_.n_samples = static_cast<int>(classes_.size());
    ScoringRules rules;
    rules.order = static_cast<int>(comb.size());
    rules.missing = missing;
    RecordPath path(problem_, rules, {training_, testing_, 1.0f});
    path.evaluate(comb.data(), record_);
    return path;
  }

  std::vector<uint32_t> words_;
  std::vector<uint8_t> classes_;
  std::vector<int> training_;
  std::vector<int> testing_;
  Problem problem_;
  float record_[kRecordSize] = {};
};

TEST_F(RecordPathTest, ACaseWithBothHighestGenotypesIsInTheLastCounterOfAPair) {
  add(1, {2, 2});
  const RecordPath path = evaluate({0, 1});
  std::vector<int32_t> expected(18, 0);
  expected[17] = 1;
  EXPECT_EQ(path.training_table(), expected);
}

TEST_F(RecordPathTest, TheFirstSnpIsTheLowestDigit) {
  add(0, {1, 0, 2});
  const RecordPath path = evaluate({0, 1, 2});
  EXPECT_EQ(path.training_table()[2 * (1 + 9 * 2)], 1);
}

TEST_F(RecordPathTest, ASampleWithAMissingGenotypeIsLeftOutOfItsCombinationsOnly) {
  add(1, {0, 3, 1});
  add(0, {0, 1, 1});
  EXPECT_EQ(evaluate({0, 1}).training_totals().cases, 0);
  EXPECT_EQ(evaluate({0, 1}).training_totals().controls, 1);
  EXPECT_EQ(evaluate({0, 2}).training_totals().cases, 1);
}

TEST_F(RecordPathTest, WhereEverySampleIsMissingTheTableIsEmpty) {
  add(1, {3, 1});
  add(0, {3, 1});
  const RecordPath path = evaluate({0, 1});
  EXPECT_EQ(path.training_table(), std::vector<int32_t>(18, 0));
  EXPECT_EQ(path.training_totals().cases + path.training_totals().controls, 0);
  EXPECT_TRUE(std::isnan(record_[kBalancedAccuracy]));
}

TEST_F(RecordPathTest, WithoutTestingSamplesTheirTableIsEmptyForEveryOrder) {
  add(1, {0, 1, 2, 1});
  add(0, {1, 1, 2, 0});
  for (const std::vector<int>& comb : std::vector<std::vector<int>>{{0}, {0, 1}, {0, 1, 2}, {0, 1, 2, 3}}) {
    const RecordPath path = evaluate(comb);
    EXPECT_EQ(path.testing_totals().n, 0);
    for (const int32_t count : path.testing_table()) {
      EXPECT_EQ(count, 0);
    }
    EXPECT_EQ(record_[kTestingEntry + kBalancedAccuracy], 0.5f);
  }
}

TEST_F(RecordPathTest, MissingAsALevelDropsCountsBeyondNineCellsOfAPairButNotFromTheTotals) {
  add(1, {2, 2});  // cell 2 + 4 * 2 = 10 of 16
  add(0, {0, 2});  // cell 8
  const RecordPath path = evaluate({0, 1}, 2);
  EXPECT_EQ(path.training_table().size(), 32u);
  EXPECT_EQ(path.training_table()[2 * 10 + 1], 0);
  EXPECT_EQ(path.training_table()[2 * 8], 1);
  EXPECT_EQ(path.training_totals().cases, 1);
}

// Orders whose tables are not held whole give the record of a table that is.
TEST_F(RecordPathTest, OccupiedCellsAloneGiveTheSameRecord) {
  for (unsigned s = 0; s < 60; ++s) {
    std::vector<unsigned> genotypes;
    for (unsigned j = 0; j < 8; ++j) {
      genotypes.push_back((s * (j + 3) + s / 7) % 3);
    }
    // The eighth SNP never varies: with it or without it the cells are the same.
    genotypes[7] = 0;
    add(static_cast<uint8_t>((s * s + s / 3) % 2), genotypes, s % 5 == 0);
  }
  evaluate({0, 1, 2, 3, 4, 5, 6});
  const std::vector<float> dense(record_, record_ + kRecordSize);
  const RecordPath sparse = evaluate({0, 1, 2, 3, 4, 5, 6, 7});
  EXPECT_LT(sparse.training_table().size(), 200u);
  for (size_t i = 0; i < kRecordSize; ++i) {
    EXPECT_EQ(bits_of_float(record_[i]), bits_of_float(dense[i])) << "entry " << i;
  }
}

}  // namespace
