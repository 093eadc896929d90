// SPDX-License-Identifier: Apache-2.0
//
// From fits to rows, top lists and lines; and the batches that the driver hands to the workers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "device/worker.h"
#include "lib/dcdflib.h"
#include "lib/float_math.h"
#include "src/regression.h"
#include "src/run_config.h"
#include "tests/support/fake_backend.h"

namespace {

using tavo_test::FakeBackend;
using tavo_test::FakeScript;
using tavo_test::QuietStdout;

RegressionRules rules_of(RegressionModel model, Precision precision = Precision::kSingle) {
  RegressionRules rules;
  rules.model = model;
  rules.precision = precision;
  return rules;
}

ItemFit example_fit() {
  ItemFit fit;
  fit.converged = true;
  fit.iterations = 6;
  fit.last_step = 1e-7;
  fit.deviance = 123.5;
  for (int j = 0; j < kMaxModelColumns; ++j) {
    fit.coefficients[j] = 0.25 * j - 1.0;
    fit.standard_errors[j] = 0.5;
  }
  return fit;
}

TEST(RegressionRows, OfALogisticModelOfOneSnp) {
  const RegressionRow row = regression_row(example_fit(), rules_of(RegressionModel::kLogistic), 5);
  EXPECT_EQ(row[0], 123.5);  // in place of the intercept's odds ratio
  for (size_t j = 1; j < 5; ++j) {
    EXPECT_EQ(row[j], static_cast<double>(tavo_expf(0.25f * static_cast<float>(j) - 1.0f)));
  }
  for (size_t j = 0; j < 5; ++j) {
    EXPECT_EQ(row[5 + j], (0.25 * static_cast<double>(j) - 1.0) / 0.5);
  }
  EXPECT_TRUE(std::all_of(row.begin() + 10, row.end(), [](double slot) { return slot == 0.0; }));
}

TEST(RegressionRows, OfALinearModel) {
  const RegressionRow row = regression_row(example_fit(), rules_of(RegressionModel::kLinear), 3);
  EXPECT_EQ(row[0], -1.0);
  EXPECT_EQ(row[2], -0.5);
  EXPECT_EQ(row[3], -2.0);
  EXPECT_EQ(row[5], -1.0);
}

TEST(RegressionRows, OfAPair) {
  const RegressionRow row = regression_row(example_fit(), rules_of(RegressionModel::kOrderedLogistic), 9);
  EXPECT_EQ(row[0], 123.5);
  EXPECT_EQ(row[8], 1.0);  // a coefficient, no odds ratio
  EXPECT_EQ(row[9], 1.0);  // converged
  EXPECT_EQ(row[10], 6.0);
  EXPECT_EQ(row[11], 1e-7);
}

TEST(RegressionRows, OfFailedFits) {
  ItemFit fit = example_fit();
  fit.state = FitState::kFailed;
  const RegressionRow logistic = regression_row(fit, rules_of(RegressionModel::kLogistic), 3);
  const RegressionRow linear = regression_row(fit, rules_of(RegressionModel::kLinear), 3);
  const double failed[] = {-1.0, -1.0, -1.0, 0.0};
  EXPECT_TRUE(std::equal(failed, failed + 4, logistic.begin()));
  EXPECT_EQ(linear[0], -1.0);
  EXPECT_EQ(linear[1], 0.0);
  fit.state = FitState::kUnwritten;
  EXPECT_EQ(regression_row(fit, rules_of(RegressionModel::kLogistic), 3), RegressionRow{});
}

TEST(RegressionRows, OfDoublePrecisionAreNotRoundedToFloats) {
  ItemFit fit = example_fit();
  fit.coefficients[1] = 0.1;
  const RegressionRow row = regression_row(fit, rules_of(RegressionModel::kLogistic, Precision::kDouble), 3);
  EXPECT_EQ(row[1], std::exp(0.1));
}

FittedItem item_with(int snp, double p, double deviance = 0.0) {
  FittedItem item;
  item.snps = {snp};
  item.row[3] = p;
  item.row[0] = deviance;
  return item;
}

std::vector<int> snps_of(const RegressionTopList& list) {
  std::vector<int> snps;
  for (const FittedItem& item : list.entries()) {
    snps.push_back(item.snps[0]);
  }
  return snps;
}

TEST(RegressionTopLists, KeepTheSmallestPValuesTheEarlierFirst) {
  RegressionTopList list(3, 3, Precision::kSingle);
  const double p[] = {0.5, 0.2, 0.5, 0.2, 0.9, 0.1};
  for (int i = 0; i < 6; ++i) {
    list.offer(item_with(i, p[i]));
  }
  EXPECT_EQ(snps_of(list), (std::vector<int>{5, 1, 3}));
}

TEST(RegressionTopLists, PutWhatIsNoNumberLast) {
  RegressionTopList list(3, 3, Precision::kSingle);
  const double nan = std::nan("");
  const double p[] = {nan, nan, 1.0, nan};
  for (int i = 0; i < 4; ++i) {
    list.offer(item_with(i, p[i]));
  }
  EXPECT_EQ(snps_of(list), (std::vector<int>{2, 0, 1}));
  list.offer(item_with(9, 1.0));
  EXPECT_EQ(snps_of(list), (std::vector<int>{2, 9, 0}));
}

TEST(RegressionTopLists, OfSizeZeroKeepNothing) {
  RegressionTopList list(0, 3, Precision::kSingle);
  list.offer(item_with(1, 0.1));
  EXPECT_TRUE(list.entries().empty());
}

TEST(RegressionTopLists, OfDoublePrecisionBreakTiesByTheStatistic) {
  for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
    RegressionTopList list(3, 3, precision);
    list.offer(item_with(0, 0.0, 30.0));
    list.offer(item_with(1, 0.0, 10.0));
    list.offer(item_with(2, 0.0, 20.0));
    EXPECT_EQ(snps_of(list),
              precision == Precision::kDouble ? (std::vector<int>{1, 2, 0}) : (std::vector<int>{0, 1, 2}));
  }
}

TEST(LogisticPValues, UseOneDegreeOfFreedomPerSnp) {
  const NullModel null_model{110.0, 99.0f, 1};
  EXPECT_EQ(logistic_p_value(100.0, 1, 100, null_model, Precision::kSingle),
            LRtest(100.0f, 98.0f, 110.0f, 99.0f));
  EXPECT_EQ(logistic_p_value(100.0, 2, 100, null_model, Precision::kSingle),
            LRtest(100.0f, 97.0f, 110.0f, 99.0f));
  // Far out the lower tail is 1 and the upper one is not 0.
  const NullModel far{400.0, 99.0f, 1};
  EXPECT_EQ(logistic_p_value(100.0, 1, 100, far, Precision::kSingle), 0.0);
  EXPECT_GT(logistic_p_value(100.0, 1, 100, far, Precision::kDouble), 0.0);
}

TEST(LinearLines, ShowThePreviousColumnUnderEachCovariate) {
  std::strcpy(g_covLabel[0], "age");
  std::strcpy(g_covLabel[1], "sex");
  FittedItem item;
  item.snps = {1};
  for (size_t j = 0; j < 5; ++j) {
    item.row[j] = static_cast<double>(j);
    item.row[5 + j] = 0.0;
  }
  item.row[6] = std::nan("");
  const std::string line = linear_line(7, item, rules_of(RegressionModel::kLinear), 100, 2, {"rs1", "rs2"});
  EXPECT_EQ(line,
            "7,(rs2),rs2,1.00000000000000000000,nan,-9.00000000000000000000"
            ",,age,2.00000000000000000000,0.00000000000000000000,1.00000000000000000000"
            ",,sex,3.00000000000000000000,0.00000000000000000000,1.00000000000000000000");
}

class RegressionBatches : public testing::Test {
 protected:
  // Fits n_snps items and returns their SNPs in the order in which they came back.
  std::vector<int> fit(int workers, int n_snps, uint64_t launch_size, RegressionModel model) {
    g_cntDevCuda = workers;
    problem_.n_snps = n_snps;
    problem_.phenotypes = &phenotype_;
    std::vector<int> snps;
    {
      WorkerPool pool(backend_, problem_);
      RegressionLoop loop;
      loop.take = [&](FittedItem&& item) { snps.insert(snps.end(), item.snps.begin(), item.snps.end()); };
      status_ = regrProcess(pool, problem_, rules_of(model), launch_size, loop, &n_items_);
    }
    out_ = quiet_.text();
    return snps;
  }

  // "worker items" of every batch, in the order of the workers within a batch.
  std::vector<std::string> batches() const {
    std::vector<std::string> seen;
    for (const std::string& line : script_.seen) {
      if (line.starts_with("fit_items")) {
        seen.push_back(line.substr(10));
      }
    }
    return seen;
  }

  QuietStdout quiet_;
  FakeScript script_;
  FakeBackend backend_{script_};
  Problem problem_;
  float phenotype_ = 0.0f;
  Status status_;
  uint64_t n_items_ = 0;
  std::string out_;
};

std::vector<int> counting(int n) {
  std::vector<int> numbers(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    numbers[static_cast<size_t>(i)] = i;
  }
  return numbers;
}

TEST_F(RegressionBatches, OfOneWorkerTakeEverySnpOnceInOrder) {
  EXPECT_EQ(fit(1, 10, 4, RegressionModel::kLogistic), counting(10));
  EXPECT_EQ(n_items_, 10u);
  EXPECT_EQ(batches(), (std::vector<std::string>{"0 4", "0 4", "0 2"}));
  EXPECT_NE(out_.find("Order is 1\n0, ["), std::string::npos) << out_;
  for (const char* line : {"\n4, [", "\n8, [", "Enter to logistic NP 3\n"}) {
    EXPECT_NE(out_.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(script_.released, 1);
}

TEST_F(RegressionBatches, AreCutIntoAPartPerWorkerTheFirstWithTheRemainder) {
  EXPECT_EQ(fit(3, 11, 2, RegressionModel::kLogistic), counting(11));
  // Which worker takes which part is a matter of time.
  std::vector<char> sizes;
  for (const std::string& batch : batches()) {
    sizes.push_back(batch.back());
  }
  std::sort(sizes.begin(), sizes.end());
  EXPECT_EQ(sizes, (std::vector<char>{'1', '1', '2', '2', '2', '3'}));
}

// So that no run depends on the end of a launch that takes hours.
TEST_F(RegressionBatches, BeginWithASmallPartHoweverLargeTheLaunch) {
  EXPECT_EQ(fit(1, 3000, 100000, RegressionModel::kLogistic), counting(3000));
  EXPECT_EQ(batches(), (std::vector<std::string>{"0 1024", "0 1976"}));
}

// Sixteen launches of 2^60 are 2^64.
TEST_F(RegressionBatches, OfLaunchesWhoseNumberOverflowsAreCutOff) {
  EXPECT_EQ(fit(16, 5000, uint64_t{1} << 60, RegressionModel::kLogistic), counting(5000));
}

TEST_F(RegressionBatches, OfListedItemsEndForLaunchesWhoseNumberOverflows) {
  g_cntDevCuda = 8;
  problem_.n_snps = 3;
  problem_.phenotypes = &phenotype_;
  WorkerPool pool(backend_, problem_);
  int taken = 0;
  const std::vector<int> items = {0, 1, 0, 2};
  EXPECT_TRUE(fit_listed(pool, problem_, rules_of(RegressionModel::kOrderedLogistic), uint64_t{1} << 60,
                         items, [&](FittedItem&&) { ++taken; })
                  .ok());
  EXPECT_EQ(taken, 2);
}

TEST_F(RegressionBatches, OfALateWorkerWaitForTheirTurnAndNotForIt) {
  script_.late = std::chrono::milliseconds(30);
  EXPECT_EQ(fit(2, 40, 2, RegressionModel::kLogistic), counting(40));
  const std::vector<std::string> seen = batches();
  EXPECT_LT(std::count(seen.begin(), seen.end(), "0 2"), std::count(seen.begin(), seen.end(), "1 2"));
}

TEST_F(RegressionBatches, WithFewerItemsThanWorkersGoToTheFirst) {
  EXPECT_EQ(fit(4, 3, 100, RegressionModel::kLinear), counting(3));
  EXPECT_EQ(batches(), (std::vector<std::string>{"0 3"}));  // in one part
  EXPECT_NE(out_.find("Enter to linear NP 3\n"), std::string::npos);
}

TEST_F(RegressionBatches, OfPairsTakeThemInLexicographicOrder) {
  EXPECT_EQ(fit(1, 4, 100, RegressionModel::kOrderedLogistic),
            (std::vector<int>{0, 1, 0, 2, 0, 3, 1, 2, 1, 3, 2, 3}));
  EXPECT_NE(out_.find("Order is 2\n"), std::string::npos);
}

TEST_F(RegressionBatches, OfTooFewSnpsForAPairAreNone) {
  EXPECT_TRUE(fit(2, 1, 100, RegressionModel::kOrderedLogistic).empty());
  EXPECT_TRUE(status_.ok());
  EXPECT_TRUE(batches().empty());
}

TEST_F(RegressionBatches, EndWithTheFailureOfAWorker) {
  script_.fail_in = "fit_items";
  script_.fail_call = 1;
  fit(1, 10, 4, RegressionModel::kLogistic);
  EXPECT_FALSE(status_.ok());
  EXPECT_EQ(batches().size(), 2u);
}

}  // namespace
