// SPDX-License-Identifier: Apache-2.0
#include "src/permutation_null.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>

namespace {

const double kNaN = std::nan("");

TEST(PermutationPValue, CountsTheRunItself) {
  const std::vector<double> null = {0.5, 0.6, 0.55, 0.7};
  EXPECT_EQ(permutation_p_value(null, 0.8, 0), 1.0 / 5);
  EXPECT_EQ(permutation_p_value(null, 0.6, 0), 3.0 / 5);  // equal values count
  EXPECT_EQ(permutation_p_value(null, 0.1, 0), 1.0);
  EXPECT_EQ(permutation_p_value({}, 0.1, 0), 1.0);
}

// 822 of 1,500 correct, with the folds as they fall.
TEST(PermutationPValue, TakesFractionsThatAreRoundedInAnotherWayAsEqual) {
  const std::vector<double> null = {0.5479999899864196, 0.5480000138282776, 0.5473333001136780};
  EXPECT_EQ(permutation_p_value(null, 0.5480000138282776, 0), 3.0 / 4);
  EXPECT_EQ(permutation_p_value(null, 0.5479999899864196, 0), 3.0 / 4);
  EXPECT_TRUE(reaches(-0.25000001, -0.25));
  EXPECT_FALSE(reaches(-0.26, -0.25));
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(reaches(kInfinity, kInfinity));
  EXPECT_FALSE(reaches(1e300, kInfinity));
  EXPECT_TRUE(reaches(-kInfinity, -kInfinity));
}

TEST(PermutationPValue, OfNoNumberIsNone) {
  EXPECT_TRUE(std::isnan(permutation_p_value(std::vector<double>{0.5}, kNaN, 0)));
  EXPECT_EQ(permutation_p_value(std::vector<double>{kNaN, 0.5, kNaN}, 0.5, 0), 2.0 / 4);
}

TEST(PermutationPValue, StopsCountingAtTheLastThatIsNeeded) {
  const std::vector<double> null = {1, 0, 1, 0, 0, 1, 1};
  EXPECT_EQ(permutation_p_value(null, 1.0, 2), 2.0 / 3);
  EXPECT_EQ(permutation_p_value(null, 1.0, 3), 3.0 / 6);
  EXPECT_EQ(permutation_p_value(null, 1.0, 4), 4.0 / 7);
  EXPECT_EQ(permutation_p_value(null, 1.0, 5), 5.0 / 8);  // not reached: the usual estimate
}

TEST(PermutationThreshold, IsExceededByPValuesOfFivePercent) {
  std::vector<double> null(99);
  std::iota(null.begin(), null.end(), 1.0);
  const double threshold = permutation_threshold(null);
  EXPECT_EQ(threshold, 95.0);
  EXPECT_LE(permutation_p_value(null, threshold + 0.5, 0), 0.05);
  EXPECT_GT(permutation_p_value(null, threshold, 0), 0.05);
}

TEST(PermutationThreshold, NeedsNineteenPermutations) {
  EXPECT_TRUE(std::isnan(permutation_threshold(std::vector<double>(18, 1.0))));
  EXPECT_EQ(permutation_threshold(std::vector<double>(19, 1.0)), 1.0);
}

TEST(PermutationNull, OverAllOrdersIsTheLargestOfEach) {
  PermutationNull null;
  null.add({{0.5, 9.0}, {0.6, 8.0}});
  null.add({{0.7, kNaN}, {kNaN, kNaN}});
  EXPECT_EQ(null.of_order(1, &BestOfOrder::consistency)[0], 8.0);
  const std::vector<double> testing = null.of_all_orders(&BestOfOrder::testing);
  EXPECT_EQ(testing, (std::vector<double>{0.6, 0.7}));
  const std::vector<double> consistency = null.of_all_orders(&BestOfOrder::consistency);
  EXPECT_EQ(consistency[0], 9.0);
  EXPECT_TRUE(std::isnan(consistency[1]));
}

TEST(StopRule, WaitsForEveryStatisticOfEveryOrder) {
  const std::vector<BestOfOrder> observed = {{0.6, 9.0}, {0.7, 8.0}};
  StopRule rule(observed, 2);
  const std::vector<BestOfOrder> low = {{0.1, 1.0}, {0.1, 1.0}};
  const std::vector<BestOfOrder> first_order = {{0.9, 9.5}, {0.1, 1.0}};
  const std::vector<BestOfOrder> second_order = {{0.1, 1.0}, {0.7, 8.0}};
  for (const auto& best : {first_order, first_order, second_order, low}) {
    rule.add(best);
    EXPECT_FALSE(rule.is_met());
  }
  rule.add(second_order);
  EXPECT_TRUE(rule.is_met());
}

TEST(StopRule, NeverStopsWithoutANumber) {
  const std::vector<BestOfOrder> observed = {{0.1, 0.1}};
  StopRule rule(observed, 0);
  rule.add(observed);
  EXPECT_FALSE(rule.is_met());
}

TEST(StopRule, HasNothingToWaitForWhereNoCombinationWasRanked) {
  const std::vector<BestOfOrder> observed = {{kNaN, kNaN}};
  EXPECT_TRUE(StopRule(observed, 1).is_met());
}

}  // namespace
