// SPDX-License-Identifier: Apache-2.0
#include "lib/cv_measures.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

namespace {

using Record = std::array<float, kRecordSize>;

Record record_of(const std::vector<int32_t>& train, const std::vector<int32_t>& test, SetTotals train_totals,
                 SetTotals test_totals, float threshold, int tie) {
  Record record;
  record.fill(-7.0f);
  write_record(train.data(), test.data(), static_cast<int64_t>(train.size() / 2), train_totals, test_totals,
               threshold, tie, record.data());
  return record;
}

TEST(CvMeasures, WithoutClassifiedSamplesTrainingBalancedAccuracyIsUndefinedAndTestingIsOneHalf) {
  const Record record = record_of({2, 2, 3, 3}, {1, 1, 0, 2}, {5, 5, 10}, {3, 1, 4}, 1.0f, 0);
  EXPECT_TRUE(std::isnan(record[kBalancedAccuracy]));
  EXPECT_EQ(record[kAccuracy], 0.0f);
  EXPECT_EQ(record[kTestingEntry + kBalancedAccuracy], 0.5f);
}

TEST(CvMeasures, ACellWithoutTrainingControlsIsATie) {
  EXPECT_EQ(cell_label(cell_ratio(0, 9, 1.5f), 1.5f, kHighRisk), kHighRisk);
  EXPECT_EQ(cell_label(cell_ratio(0, 9, 1.5f), 1.5f, kLowRisk), kLowRisk);
  EXPECT_EQ(cell_label(cell_ratio(0, 9, 1.5f), 1.5f, 0), kUnlabelled);
  EXPECT_EQ(cell_label(cell_ratio(1, 9, 1.5f), 1.5f, kLowRisk), kHighRisk);
  EXPECT_EQ(cell_label(cell_ratio(9, 1, 1.5f), 1.5f, kHighRisk), kLowRisk);
}

TEST(CvMeasures, AgainstAnInfiniteThresholdEveryCellIsATieOrLowRisk) {
  const float infinity = float_infinity();
  EXPECT_EQ(cell_label(cell_ratio(0, 3, infinity), infinity, kHighRisk), kHighRisk);
  EXPECT_EQ(cell_label(cell_ratio(1, 3, infinity), infinity, kHighRisk), kLowRisk);
}

TEST(CvMeasures, AnUndefinedThresholdMakesEveryCellATie) {
  EXPECT_EQ(cell_label(cell_ratio(1, 3, float_nan()), float_nan(), kLowRisk), kLowRisk);
}

TEST(CvMeasures, WithoutCellsAllCountersStayZero) {
  const Record record = record_of({}, {}, {0, 0, 4}, {0, 0, 2}, 1.0f, kHighRisk);
  EXPECT_EQ(record[kChiSquare], 0.0f);
  EXPECT_EQ(record[kTestingEntry + kChiSquare], 0.0f);
  EXPECT_EQ(record[kAccuracy], 0.0f);
}

TEST(CvMeasures, EntriesWithoutAMeasureAreZero) {
  const Record record = record_of({4, 1, 1, 4}, {1, 0, 0, 1}, {5, 5, 10}, {1, 1, 2}, 1.0f, kHighRisk);
  for (int i = 10; i < kMeasureCount; ++i) {
    EXPECT_EQ(record[static_cast<size_t>(i)], 0.0f);
    EXPECT_EQ(record[static_cast<size_t>(kTestingEntry + i)], 0.0f);
  }
}

TEST(CvMeasures, GammaWithoutErrorsIsNotOne) {
  const Confusion perfect{20, 0, 0, 30};
  EXPECT_EQ(gamma_measure(perfect), (600.0f - 0.25f) / (600.0f + 0.25f));
}

TEST(CvMeasures, SamplesInUnlabelledCellsLowerTheAccuracy) {
  // The second cell is a tie and is not classified.
  const Record record = record_of({4, 0, 2, 2}, {0, 0, 0, 0}, {2, 6, 8}, {0, 0, 0}, 1.0f, 0);
  EXPECT_EQ(record[kAccuracy], 4.0f / 8.0f);
}

TEST(CvMeasures, ACellWithAZeroExpectedCountAddsNothingToTheChiSquare) {
  EXPECT_EQ(add_chi_square(1.25f, 0, 0, {5, 5, 10}), 1.25f);
  EXPECT_EQ(add_chi_square(1.25f, 3, 0, {0, 5, 5}), 1.25f);
}

TEST(CvMeasures, LrWithAZeroExpectedCountIsZeroInBothSets) {
  // A threshold of 0 makes the one cell high-risk; with N = a + b every sample is expected there, none
  // elsewhere.
  const Record record = record_of({2, 3}, {1, 1}, {3, 2, 6}, {1, 1, 2}, 0.0f, kHighRisk);
  const Confusion training{3, 2, 0, 0};
  float value = -1.0f;
  ASSERT_FALSE(likelihood_ratio(training, 1.0f, &value));
  EXPECT_EQ(value, -1.0f);
  const Record none = record_of({2, 3}, {1, 1}, {3, 2, 5}, {1, 1, 2}, 0.0f, kHighRisk);
  EXPECT_EQ(none[kLr], 0.0f);
  EXPECT_EQ(none[kTestingEntry + kLr], 0.0f);
  EXPECT_NE(record[kLr], 0.0f);
}

TEST(CvMeasures, TestingLrUsesTheTrainingProportion) {
  const Record record = record_of({6, 2, 1, 5}, {2, 1, 0, 3}, {7, 7, 14}, {4, 2, 6}, 1.0f, kHighRisk);
  const Confusion training{5, 1, 2, 6};
  const Confusion testing{3, 0, 1, 2};
  float expected = 0.0f;
  ASSERT_TRUE(likelihood_ratio(testing, predicted_high_share(training, 14), &expected));
  EXPECT_EQ(record[kTestingEntry + kLr], expected);
}

TEST(CvMeasures, CountProductsWrapAroundAt32Bits) {
  const Confusion large{50000, 50000, 50000, 50000};
  // 4 * 50000^2 = 10^10 = 1410065408 modulo 2^32.
  EXPECT_EQ(class_product(large), 1410065408);
  EXPECT_EQ(prediction_product(large), 1410065408);
  const Confusion one_sided{100000, 0, 0, 100000};
  EXPECT_EQ(cross_difference(one_sided), 1410065408.0f);
}

TEST(CvMeasures, RecordsHoldTheValueThatRanks) {
  const std::vector<int32_t> train = {10, 3, 4, 9, 7, 7, 0, 2};
  const SetTotals totals{21, 21, 42};
  const Record record = record_of(train, train, totals, totals, 1.0f, kLowRisk);
  Confusion table{};
  float chi = 0.0f;
  for (size_t m = 0; m < train.size(); m += 2) {
    add_cell(&table, cell_label(cell_ratio(train[m], train[m + 1], 1.0f), 1.0f, kLowRisk), train[m],
             train[m + 1]);
    chi = add_chi_square(chi, train[m], train[m + 1], totals);
  }
  for (int measure = 0; measure <= kLr; ++measure) {
    EXPECT_EQ(bits_of_float(record[static_cast<size_t>(measure)]),
              bits_of_float(training_measure(measure, table, totals, chi)))
        << measure;
  }
}

}  // namespace
