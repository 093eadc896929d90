// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <vector>

#include "lib/cv_measures.h"
#include "lib/mdr.h"
#include "tests/unit/packed_rows.h"

namespace {

using tavo_test::GenotypeRows;
using tavo_test::packed_rows;
using tavo_test::random_classes;
using tavo_test::random_rows;
using tavo_test::words_per_row;

constexpr int kUntouched = -7;

struct Counted {
  std::vector<int> table;
  int cases = kUntouched;
  int controls = kUntouched;
};

int table_size(int base, size_t k) {
  int size = 2;
  for (size_t j = 0; j < k; ++j) {
    size *= base;
  }
  return size;
}

// Counts with the function of a missing code, on a table with room behind it that must stay empty.
Counted count(int missing, const GenotypeRows& rows, const std::vector<uint8_t>& classes,
              const std::vector<int>& snps, const std::vector<int>& samples) {
  const int base = table_base(missing);
  const int k = static_cast<int>(snps.size());
  const int n_words = words_per_row(rows);
  const int n_listed = static_cast<int>(samples.size());
  const std::vector<uint32_t> words = packed_rows(rows);
  std::vector<int> weight = {2};
  while (weight.size() < snps.size()) {
    weight.push_back(weight.back() * base);
  }
  const auto n_entries = static_cast<size_t>(table_size(base, snps.size()));
  Counted counted;
  counted.table.assign(3 * n_entries, 0);
  count_function(missing)(&n_words, weight.data(), snps.data(), &k, &base, samples.data(), &n_listed,
                          words.data(), classes.data(), &counted.cases, &counted.controls,
                          counted.table.data());
  for (size_t i = n_entries; i < counted.table.size(); ++i) {
    EXPECT_EQ(counted.table[i], 0) << "written beyond the table at " << i;
  }
  counted.table.resize(n_entries);
  return counted;
}

std::vector<int> everyone(const GenotypeRows& rows) {
  std::vector<int> samples;
  for (size_t s = 0; s < rows.size(); ++s) {
    samples.push_back(static_cast<int>(s));
  }
  return samples;
}

// The count of samples by genotypes and class, without any cell number.
std::map<std::pair<std::vector<int>, int>, int> tally(const GenotypeRows& rows,
                                                      const std::vector<uint8_t>& classes,
                                                      const std::vector<int>& snps,
                                                      const std::vector<int>& samples) {
  std::map<std::pair<std::vector<int>, int>, int> counts;
  for (const int s : samples) {
    std::vector<int> genotypes;
    for (const int j : snps) {
      genotypes.push_back(rows[static_cast<size_t>(s)][static_cast<size_t>(j)]);
    }
    ++counts[{genotypes, classes[static_cast<size_t>(s)]}];
  }
  return counts;
}

TEST(CountTable, TheFirstSnpIsTheLeastSignificantDigit) {
  const GenotypeRows rows = {{1, 0, 2}};
  Counted counted = count(kMissingAvailable, rows, {1}, {0, 1, 2}, {0});
  EXPECT_EQ(counted.table[2 * (1 + 3 * 0 + 9 * 2) + 1], 1);
  EXPECT_EQ(counted.cases, 1);
  EXPECT_EQ(counted.controls, 0);
}

TEST(CountTable, EveryFunctionCountsGenotypesAsListed) {
  constexpr unsigned kSeed = 20240303;
  std::mt19937 random(kSeed);
  for (const int missing : {+kMissingNone, +kMissingLevel, +kMissingComplete, +kMissingAvailable, 9}) {
    const int base = table_base(missing);
    // Genotypes that the method has a digit for, and missing ones where it leaves them out.
    const int highest = missing == kMissingLevel || missing == kMissingAvailable ? 3 : 2;
    for (const std::vector<int>& snps :
         {std::vector<int>{17}, {0, 18}, {15, 16}, {3, 4, 5}, {1, 15, 16, 33}, {2, 9, 20, 31, 32}}) {
      const GenotypeRows rows = random_rows(random, 60, 34, highest);
      const std::vector<uint8_t> classes = random_classes(random, 60);
      const std::vector<int> samples = {59, 3, 0, 17, 18, 19, 20, 31, 32, 44, 45, 46, 7, 8, 9};
      std::vector<int> expected(static_cast<size_t>(table_size(base, snps.size())), 0);
      int totals[2] = {0, 0};
      for (const auto& [key, n] : tally(rows, classes, snps, samples)) {
        int cell = 0;
        bool left_out = false;
        for (size_t j = snps.size(); j-- > 0;) {
          cell = cell * base + key.first[j];
          left_out = left_out || (missing == kMissingAvailable && key.first[j] == 3);
        }
        if (!left_out) {
          expected[static_cast<size_t>(2 * cell + key.second)] += n;
          totals[key.second] += n;
        }
      }
      const Counted counted = count(missing, rows, classes, snps, samples);
      EXPECT_EQ(counted.table, expected) << "missing code " << missing << ", seed " << kSeed;
      const bool sets_totals = missing == kMissingAvailable;
      EXPECT_EQ(counted.cases, sets_totals ? totals[1] : kUntouched);
      EXPECT_EQ(counted.controls, sets_totals ? totals[0] : kUntouched);
    }
  }
}

TEST(CountTable, TheFormForTwoSnpsAgreesWithTheGeneralOne) {
  std::mt19937 random(20240304);
  const GenotypeRows rows = random_rows(random, 80, 20, 3);
  const std::vector<uint8_t> classes = random_classes(random, 80);
  const std::vector<uint32_t> words = packed_rows(rows);
  const std::vector<int> samples = everyone(rows);
  const int n_words = words_per_row(rows);
  const int n_listed = 80;
  const int weights[2] = {2, 6};
  const int s1 = 4;
  const int s2 = 17;
  std::vector<int> table(18, 0);
  int cases = kUntouched;
  int controls = kUntouched;
  countTable_available_2(&n_words, &weights[0], &weights[1], &s1, &s2, samples.data(), &n_listed,
                         words.data(), classes.data(), &cases, &controls, table.data());
  const Counted general = count(kMissingAvailable, rows, classes, {s1, s2}, samples);
  EXPECT_EQ(table, general.table);
  EXPECT_EQ(cases, general.cases);
  EXPECT_EQ(controls, general.controls);
  EXPECT_GT(cases, 0);
  EXPECT_LT(cases + controls, 80) << "no sample was missing a genotype";
}

TEST(CountTable, WithAvailableASampleIsLeftOutOnlyWhereItsMissingSnpTakesPart) {
  const GenotypeRows rows = {{0, 1, 2}, {2, 3, 1}, {1, 1, 1}};
  const std::vector<uint8_t> classes = {0, 1, 1};
  for (const std::vector<int>& snps : {std::vector<int>{1}, {0, 1}, {1, 2}, {0, 1, 2}}) {
    const Counted counted = count(kMissingAvailable, rows, classes, snps, {0, 1, 2});
    EXPECT_EQ(counted.cases, 1);
    EXPECT_EQ(counted.controls, 1);
  }
  for (const std::vector<int>& snps : {std::vector<int>{0}, {2}, {0, 2}}) {
    const Counted counted = count(kMissingAvailable, rows, classes, snps, {0, 1, 2});
    EXPECT_EQ(counted.cases, 2);
    EXPECT_EQ(counted.controls, 1);
  }
}

TEST(CountTable, WithMissingAsALevelTwoSnpsHaveThirtyTwoEntries) {
  const GenotypeRows rows = {{3, 3}, {0, 3}, {3, 0}};
  const Counted counted = count(kMissingLevel, rows, {1, 0, 1}, {0, 1}, {0, 1, 2});
  std::vector<int> expected(32, 0);
  expected[31] = 1;      // both missing, a case
  expected[2 * 12] = 1;  // the second missing, a control
  expected[2 * 3 + 1] = 1;
  EXPECT_EQ(counted.table, expected);
}

TEST(CountTable, AnUncheckedMissingGenotypeRaisesTheNextSnpByOne) {
  const Counted counted = count(kMissingNone, {{3, 1}}, {1}, {0, 1}, {0});
  std::vector<int> expected(18, 0);
  expected[2 * (0 + 3 * 2) + 1] = 1;
  EXPECT_EQ(counted.table, expected);
}

TEST(CountTable, AnUncheckedMissingGenotypeThatLeadsBeyondTheTableIsNotCounted) {
  // Sample 0 is missing at the last SNP; sample 1 at the first, which carries the second beyond its highest
  // digit.
  const GenotypeRows rows = {{0, 3}, {3, 2}, {2, 2}};
  for (const int missing : {+kMissingNone, +kMissingComplete}) {
    const Counted counted = count(missing, rows, {0, 1, 1}, {0, 1}, {0, 1, 2});
    std::vector<int> expected(18, 0);
    expected[17] = 1;
    EXPECT_EQ(counted.table, expected);
  }
  EXPECT_EQ(count(kMissingNone, {{3}}, {1}, {0}, {0}).table, std::vector<int>(6, 0));
}

TEST(CountTable, TheCodeThatNoOptionGivesLeavesEmptyTablesSoThatEveryCellIsATie) {
  std::mt19937 random(20240305);
  const GenotypeRows rows = random_rows(random, 30, 4, 2);
  const Counted counted = count(kMissingEM, rows, random_classes(random, 30), {0, 1}, everyone(rows));
  EXPECT_EQ(counted.table, std::vector<int>(18, 0));
  EXPECT_EQ(counted.cases, kUntouched);
  EXPECT_EQ(counted.controls, kUntouched);
  for (size_t cell = 0; cell < 9; ++cell) {
    EXPECT_EQ(risk_label(counted.table[2 * cell], counted.table[2 * cell + 1], 0.8, 0), kUnlabelled);
  }
}

TEST(CountTable, MakeIndexAddsWeightedBytesOfColumns) {
  const std::vector<uint8_t> bytes = {0, 1, 2, 9, 2, 2, 0};  // columns at 0 and 4, of 3 samples
  const std::vector<int> weight = {2, 6};
  const std::vector<int> offset = {0, 4};
  const int k = 2;
  const int n_samples = 3;
  std::vector<int> index(3, kUntouched);
  makeIndex(weight.data(), offset.data(), &k, bytes.data(), &n_samples, index.data());
  EXPECT_EQ(index, std::vector<int>({12, 14, 4}));
}

TEST(RiskLabel, ARatioAboveTheThresholdIsHighAndBelowItLow) {
  EXPECT_EQ(risk_label(2, 3, 1.0, kTieLow), kHighRisk);
  EXPECT_EQ(risk_label(3, 2, 1.0, kTieHigh), kLowRisk);
}

TEST(RiskLabel, ARatioEqualToTheThresholdFollowsTheTieRule) {
  EXPECT_EQ(risk_label(4, 2, 0.5, kTieHigh), kHighRisk);
  EXPECT_EQ(risk_label(4, 2, 0.5, kTieLow), kLowRisk);
  EXPECT_EQ(risk_label(4, 2, 0.5, 0), kUnlabelled);
  EXPECT_EQ(risk_label(4, 2, 0.5, 3), kUnlabelled);
}

TEST(RiskLabel, CasesWithoutControlsFollowTheTieRuleNotTheirRatio) {
  EXPECT_EQ(risk_label(0, 50, 1.0, kTieLow), kLowRisk);
  EXPECT_EQ(risk_label(0, 50, 1.0, kTieHigh), kHighRisk);
  EXPECT_EQ(risk_label(0, 50, 1.0, 0), kUnlabelled);
}

TEST(RiskLabel, AnEmptyCellIsATie) {
  EXPECT_EQ(risk_label(0, 0, 1.0, kTieHigh), kHighRisk);
  EXPECT_EQ(risk_label(0, 0, 1.0, kTieLow), kLowRisk);
}

TEST(RiskLabel, AThresholdThatIsNoNumberMakesEveryCellATie) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(risk_label(3, 5, nan, kTieHigh), kHighRisk);
  EXPECT_EQ(risk_label(3, 5, nan, kTieLow), kLowRisk);
  EXPECT_EQ(risk_label(0, 5, nan, 0), kUnlabelled);
}

}  // namespace
