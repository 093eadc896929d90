// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "lib/mdr.h"
#include "tests/unit/packed_rows.h"

namespace {

// What the three computed entries become; checks that the others stay.
std::vector<double> measures(int n, int cases, int controls, const std::vector<int>& table, double threshold,
                             int tie) {
  const int n_entries = static_cast<int>(table.size());
  std::vector<double> out(16, 77.0);
  calculateMeasuresAll(&n, &cases, &controls, table.data(), &n_entries, &threshold, &tie, out.data());
  for (size_t i = 3; i < out.size(); ++i) {
    EXPECT_EQ(out[i], 77.0) << "entry " << i;
  }
  out.resize(3);
  return out;
}

TEST(Measures, ATableWorkedByHand) {
  // Cells (controls, cases): (10, 30) high, (40, 20) low. Expected cases 20 and 30, controls 20 and 30.
  const auto out = measures(100, 50, 50, {10, 30, 40, 20}, 1.0, kTieHigh);
  EXPECT_DOUBLE_EQ(out[0], (30.0 / 50.0 + 40.0 / 50.0) / 2.0);
  EXPECT_DOUBLE_EQ(out[1], 70.0 / 100.0);
  EXPECT_DOUBLE_EQ(out[2], 100.0 / 20.0 + 100.0 / 20.0 + 100.0 / 30.0 + 100.0 / 30.0);
}

TEST(Measures, ACellWithCasesAndNoControlsCountsAsLowRiskUnderTheLowTieRule) {
  // Under the high rule the 8 cases are true positives, under the low one they are false negatives.
  const std::vector<int> table = {0, 8, 6, 2, 4, 10};
  EXPECT_DOUBLE_EQ(measures(30, 20, 10, table, 2.0, kTieHigh)[1], (8.0 + 6.0 + 10.0) / 30.0);
  EXPECT_DOUBLE_EQ(measures(30, 20, 10, table, 2.0, kTieLow)[1], (6.0 + 10.0) / 30.0);
}

TEST(Measures, AnEmptyCellAddsNothing) {
  const std::vector<int> without = {10, 30, 40, 20};
  const std::vector<int> with = {0, 0, 10, 30, 0, 0, 40, 20, 0, 0};
  for (const int tie : {+kTieHigh, +kTieLow, 0}) {
    EXPECT_EQ(measures(100, 50, 50, with, 1.0, tie), measures(100, 50, 50, without, 1.0, tie));
  }
}

TEST(Measures, ClassifiedSamplesOfOneClassHaveBalancedAccuracyOneHalf) {
  EXPECT_EQ(measures(9, 9, 0, {0, 4, 0, 5}, 1.0, kTieHigh)[0], 0.5);
  EXPECT_EQ(measures(9, 0, 9, {4, 0, 5, 0}, 1.0, kTieHigh)[0], 0.5);
  // The only controls are in a cell that the tie rule leaves unlabelled.
  EXPECT_EQ(measures(12, 6, 6, {6, 6}, 1.0, 0)[0], 0.5);
}

TEST(Measures, SamplesInUnlabelledCellsLowerTheAccuracyAsIfMisclassified) {
  // The tied cell holds 20 of 60 samples.
  const std::vector<int> table = {10, 10, 5, 15, 15, 5};
  EXPECT_DOUBLE_EQ(measures(60, 30, 30, table, 1.0, 0)[1], 30.0 / 60.0);
  EXPECT_DOUBLE_EQ(measures(60, 30, 30, table, 1.0, kTieHigh)[1], 40.0 / 60.0);
}

TEST(Measures, ACellWithAnExpectedCountOfZeroAddsNothingToTheChiSquare) {
  EXPECT_EQ(measures(9, 9, 0, {0, 4, 0, 5}, 1.0, kTieHigh)[2], 0.0);
  EXPECT_EQ(measures(9, 0, 9, {4, 0, 5, 0}, 1.0, kTieHigh)[2], 0.0);
}

TEST(Measures, TheChiSquareIsThatOfAllCellsNotOfTheTwoByTwoTable) {
  // Both cells are high-risk, so the 2x2 table has no low-risk side, yet the cells differ.
  const auto out = measures(40, 20, 20, {10, 12, 10, 8}, 0.5, kTieHigh);
  EXPECT_DOUBLE_EQ(out[2], 1.0 / 11.0 + 1.0 / 11.0 + 1.0 / 9.0 + 1.0 / 9.0);
}

TEST(Measures, ATableWithoutCellsHasNoneCorrect) {
  EXPECT_EQ(measures(9, 4, 5, {}, 0.8, kTieHigh), std::vector<double>({0.5, 0.0, 0.0}));
}

TEST(Measures, WithoutSamplesTheResultIsAPositiveNan) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto out = measures(0, 0, 0, {0, 0, 0, 0}, nan, kTieHigh);
  EXPECT_EQ(out[0], 0.5);
  EXPECT_TRUE(std::isnan(out[1]) && !std::signbit(out[1]));
  EXPECT_TRUE(std::isnan(out[2]) && !std::signbit(out[2]));
}

TEST(Measures, LargeCountsDoNotWrapAround) {
  const int million = 1000000;
  const auto out = measures(4 * million, 2 * million, 2 * million,
                            {million / 2, million, 3 * (million / 2), million}, 1.0, kTieHigh);
  EXPECT_DOUBLE_EQ(out[0], (0.5 + 0.75) / 2.0);
  EXPECT_NEAR(out[2], 2.0 * 62500000000.0 / 750000.0 + 2.0 * 62500000000.0 / 1250000.0, 1e-6);
}

TEST(Measures, SignAndRealnumAreSafeAgainstNan) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(sign(2.0, 1.0), 1);
  EXPECT_EQ(sign(1.0, 2.0), -1);
  EXPECT_EQ(sign(nan, 1.0), 0);
  EXPECT_EQ(sign(1.0, nan), 0);
  EXPECT_EQ(realnum(1e308), 1);
  EXPECT_EQ(realnum(nan), 0);
  EXPECT_EQ(realnum(-infinity), 0);
  EXPECT_EQ(realnum(infinity), 0);
}

// Counting and scoring by hand what the scorer puts together.
std::vector<double> scored(int missing, const tavo_test::GenotypeRows& rows,
                           const std::vector<uint8_t>& classes, int n, int cases, int controls,
                           double threshold) {
  const std::vector<uint32_t> words = tavo_test::packed_rows(rows);
  const int n_words = tavo_test::words_per_row(rows);
  const std::vector<int> snps = {0, 1};
  std::vector<int> samples;
  for (size_t s = 0; s < rows.size(); ++s) {
    samples.push_back(static_cast<int>(s));
  }
  const int tie = kTieHigh;
  std::vector<double> out(16, 77.0);
  CombinationScorer scorer(2, missing);
  // Twice: the second run must not see the first one's counts.
  for (int run = 0; run < 2; ++run) {
    scorer.score(snps.data(), &n_words, words.data(), classes.data(), samples.data(), &n, &cases, &controls,
                 &threshold, &tie, out.data());
  }
  out.resize(3);
  return out;
}

TEST(CombinationScorer, WithAvailableItTakesTotalsAndThresholdFromItsOwnCount) {
  // The last three samples are missing a genotype. Of the others 2 are cases and 4 controls: threshold 0.5.
  const tavo_test::GenotypeRows rows = {{0, 0}, {0, 0}, {0, 0}, {1, 0}, {1, 0},
                                        {2, 1}, {3, 0}, {0, 3}, {3, 3}};
  const std::vector<uint8_t> classes = {1, 0, 0, 1, 0, 0, 1, 1, 1};
  const auto out = scored(kMissingAvailable, rows, classes, 9, 5, 4, 1.25);
  // Cell (0, 0) ties and is high, cell (1, 0) is high, cell (2, 1) is low.
  EXPECT_DOUBLE_EQ(out[0], (2.0 / 2.0 + 1.0 / 4.0) / 2.0);
  EXPECT_DOUBLE_EQ(out[1], 3.0 / 6.0);
}

TEST(CombinationScorer, WithTheOtherMethodsTotalsAndThresholdAreTheCallers) {
  const tavo_test::GenotypeRows rows = {{0, 0}, {0, 0}, {0, 0}, {1, 0}, {1, 0}, {2, 1}};
  const std::vector<uint8_t> classes = {1, 0, 0, 1, 0, 0};
  for (const int missing : {+kMissingNone, +kMissingLevel, +kMissingComplete}) {
    const auto out = scored(missing, rows, classes, 6, 2, 4, 0.75);
    // Only cell (1, 0) is above 0.75.
    EXPECT_DOUBLE_EQ(out[0], (1.0 / 2.0 + 3.0 / 4.0) / 2.0);
    EXPECT_DOUBLE_EQ(out[1], 4.0 / 6.0);
  }
}

}  // namespace
