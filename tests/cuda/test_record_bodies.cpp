// SPDX-License-Identifier: Apache-2.0
//
// The bodies of the record kernels, run in host loops.
#include <gtest/gtest.h>

#include "cuda/occupied_body.h"
#include "cuda/table_body.h"
#include "tests/cuda/comparisons.h"
#include "tests/cuda/host_planes.h"
#include "tests/cuda/surplus_threads.h"

namespace {

using tavo_test::Scene;

template <typename Arguments, typename Body>
void launch(const Arguments& arguments, Body body) {
  for (uint32_t t = 0; t < arguments.active + tavo_test::kSurplusThreads; ++t) {
    body(arguments, t);
  }
}

std::vector<float> table_records(const Scene& scene, const ScoringRules& rules, const FoldView& fold,
                                 const std::vector<int>& combinations) {
  const size_t active = combinations.size() / static_cast<size_t>(rules.order);
  const size_t nct = 2 * static_cast<size_t>(rules.cells());
  std::vector<int> c_num;
  for (int j = 0, weight = 2; j < rules.order; ++j, weight *= rules.base()) {
    c_num.push_back(weight);
  }
  struct Set {
    std::vector<int32_t> table, cases, controls, n;
  };
  const auto make_set = [&](std::span<const int> samples) {
    return Set{std::vector<int32_t>(active * nct, 0), std::vector<int32_t>(active, 0),
               std::vector<int32_t>(active, 0),
               std::vector<int32_t>(active, static_cast<int32_t>(samples.size()))};
  };
  Set train = make_set(fold.training);
  Set test = make_set(fold.testing);
  std::vector<float> sums(active * nct, 0.0f);
  const bool with_scores = scene.problem.scores != nullptr;
  for (const bool training : {true, false}) {
    Set& set = training ? train : test;
    CountArguments arguments{};
    arguments.active = static_cast<uint32_t>(active);
    arguments.combinations = combinations.data();
    arguments.order = rules.order;
    arguments.c_num = c_num.data();
    arguments.genotypes = tavo_test::genotype_matrix(scene.problem);
    arguments.response = scene.problem.classes;
    arguments.samples = (training ? fold.training : fold.testing).data();
    arguments.n_samples = static_cast<int>((training ? fold.training : fold.testing).size());
    arguments.nct = static_cast<int64_t>(nct);
    arguments.counted = 2 * rules.counted_cells();
    arguments.cases = set.cases.data();
    arguments.controls = set.controls.data();
    arguments.table = set.table.data();
    if (training && with_scores) {
      arguments.SC = scene.problem.scores;
      arguments.score_sums = sums.data();
    }
    launch(arguments, count_table);
  }
  std::vector<float> thresholds(active, fold.threshold);
  std::vector<float> records(active * kRecordSize, -7.0f);
  MeasureArguments measures{};
  measures.active = static_cast<uint32_t>(active);
  measures.n_train = train.n.data();
  measures.n_test = test.n.data();
  measures.th = thresholds.data();
  measures.case_train = train.cases.data();
  measures.control_train = train.controls.data();
  measures.case_test = test.cases.data();
  measures.control_test = test.controls.data();
  measures.table_train = train.table.data();
  measures.table_test = test.table.data();
  measures.score_sums = sums.data();
  measures.nct = static_cast<int64_t>(nct);
  measures.tie = rules.tie;
  measures.missing = rules.missing;
  measures.stat = records.data();
  if (rules.own_thresholds()) {
    launch(measures, set_value);
  } else {
    // Only element 0 may be read.
    for (size_t c = 1; c < active; ++c) {
      train.n[c] = test.n[c] = -1;
      thresholds[c] = -1.0f;
    }
  }
  launch(measures, with_scores ? measure_score_record : measure_record);

  RecordPath truth(scene.problem, rules, fold);
  for (size_t c = 0; c < active && rules.cells() <= 4096; ++c) {
    float record[kRecordSize];
    truth.evaluate(combinations.data() + c * static_cast<size_t>(rules.order), record);
    const auto row = static_cast<ptrdiff_t>(c * nct);
    const auto end = static_cast<ptrdiff_t>((c + 1) * nct);
    EXPECT_EQ(std::vector<int32_t>(train.table.begin() + row, train.table.begin() + end),
              truth.training_table());
    EXPECT_EQ(std::vector<int32_t>(test.table.begin() + row, test.table.begin() + end),
              truth.testing_table());
    EXPECT_EQ(train.cases[c], truth.training_totals().cases);
    EXPECT_EQ(train.controls[c], truth.training_totals().controls);
    EXPECT_EQ(test.cases[c], truth.testing_totals().cases);
    EXPECT_EQ(test.controls[c], truth.testing_totals().controls);
  }
  return records;
}

std::vector<float> occupied_records(const Scene& scene, const ScoringRules& rules, const FoldView& fold,
                                    const std::vector<int>& combinations) {
  const size_t active = combinations.size() / static_cast<size_t>(rules.order);
  const size_t n = fold.training.size() + fold.testing.size();
  std::vector<PlacedSample> placed(active * n);
  std::vector<int32_t> tables(active * 4 * (n + 1), -3);
  std::vector<float> sums(active * 2 * (n + 1), -3.0f);
  std::vector<float> records(active * kRecordSize, -7.0f);
  OccupiedRecordArguments arguments{};
  arguments.active = static_cast<uint32_t>(active);
  arguments.combinations = combinations.data();
  arguments.order = rules.order;
  arguments.base = rules.base();
  arguments.cells = rules.cells();
  arguments.genotypes = tavo_test::genotype_matrix(scene.problem);
  arguments.response = scene.problem.classes;
  arguments.SC = scene.problem.scores;
  arguments.training = fold.training.data();
  arguments.n_training = static_cast<int>(fold.training.size());
  arguments.testing = fold.testing.data();
  arguments.n_testing = static_cast<int>(fold.testing.size());
  arguments.threshold = fold.threshold;
  arguments.tie = rules.tie;
  arguments.missing = rules.missing;
  arguments.stat = records.data();
  arguments.placed = placed.data();
  arguments.tables = tables.data();
  arguments.score_sums = scene.problem.scores != nullptr ? sums.data() : nullptr;
  launch(arguments, occupied_record);
  return records;
}

class RecordBodies : public testing::TestWithParam<int> {};

TEST_P(RecordBodies, TablesGiveTheRecordsOfTheRecordPath) {
  tavo_test::sweep_records(GetParam(), table_records);
}

TEST_P(RecordBodies, OccupiedCellsGiveTheRecordsOfTheRecordPath) {
  // With mc, pairs and triples drop counts, which only a table can do.
  tavo_test::sweep_records(GetParam(), [](const Scene& scene, const ScoringRules& rules, const FoldView& fold,
                                          const std::vector<int>& combinations) {
    return (rules.counted_cells() == rules.cells() ? occupied_records : table_records)(scene, rules, fold,
                                                                                       combinations);
  });
}

INSTANTIATE_TEST_SUITE_P(Orders, RecordBodies, testing::Values(1, 2, 3, 4, 5, 7),
                         testing::PrintToStringParamName());

TEST(PlacedSamples, AreSortedByCellThenPosition) {
  std::mt19937 random(8);
  for (int n = 0; n < 70; ++n) {
    std::vector<PlacedSample> placed;
    for (int i = 0; i < n; ++i) {
      placed.push_back({static_cast<int64_t>(random() % 7) << 40, i});
    }
    std::shuffle(placed.begin(), placed.end(), random);
    sort_placed(placed.data(), n);
    EXPECT_TRUE(std::is_sorted(placed.begin(), placed.end(), placed_before)) << n;
  }
}

}  // namespace
