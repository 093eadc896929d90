// SPDX-License-Identifier: Apache-2.0
//
// Recorded count tables and records of single combinations.
#include <gtest/gtest.h>

#include "cpu/record_path.h"
#include "tests/support/vectors.h"

namespace {

using tavo_test::Json;

// Bits, but for the entries whose logarithms may differ within the recorded bound.
void expect_record(const Json& out, const float* record) {
  const Json& expected = out.at("record");
  for (size_t i = 0; i < kRecordSize; ++i) {
    const float wanted = static_cast<float>(tavo_test::number(expected.at(i)));
    if (const std::string key = std::to_string(i); out.contains("tol") && out.at("tol").contains(key)) {
      EXPECT_NEAR(record[i], wanted, out.at("tol").at(key).get<double>()) << "entry " << i;
    } else {
      EXPECT_EQ(bits_of_float(record[i]), bits_of_float(canonical_nan(wanted)))
          << "entry " << i << ": " << record[i];
    }
  }
}

void run_kernel(const Json& in, const Json& out) {
  const std::vector<uint32_t> words = in.at("words").get<std::vector<uint32_t>>();
  const std::vector<uint8_t> classes = in.at("response").get<std::vector<uint8_t>>();
  const std::vector<int> training = tavo_test::integers(in.at("train"));
  const std::vector<int> testing = tavo_test::integers(in.at("test"));
  const std::vector<int> comb = tavo_test::integers(in.at("comb"));
  Problem problem;
  problem.words = words.data();
  problem.words_per_row = in.at("szJmp").get<int>();
  problem.n_samples = in.at("N").get<int>();
  problem.n_snps = in.at("M").get<int>();
  problem.classes = classes.data();
  std::vector<float> scores;
  if (!in.at("scores").is_null()) {
    for (const double score : tavo_test::numbers(in.at("scores"))) {
      scores.push_back(static_cast<float>(score));
    }
    problem.scores = scores.data();
  }
  ScoringRules rules;
  rules.order = in.at("order").get<int>();
  rules.missing = in.at("missing").get<int>();
  rules.tie = in.at("tie").get<int>();
  ASSERT_EQ(rules.base(), in.at("base").get<int>());
  ASSERT_EQ(2 * rules.cells(), in.at("nct").get<int>());
  RecordPath path(problem, rules,
                  {training, testing, static_cast<float>(tavo_test::number(in.at("run_threshold")))});
  float record[kRecordSize];
  path.evaluate(comb.data(), record);
  EXPECT_EQ(path.training_table(), out.at("train_table").get<std::vector<int32_t>>());
  EXPECT_EQ(path.testing_table(), out.at("test_table").get<std::vector<int32_t>>());
  EXPECT_EQ(path.training_totals().cases, out.at("train_cases").get<int>());
  EXPECT_EQ(path.training_totals().controls, out.at("train_controls").get<int>());
  EXPECT_EQ(path.testing_totals().cases, out.at("test_cases").get<int>());
  EXPECT_EQ(path.testing_totals().controls, out.at("test_controls").get<int>());
  EXPECT_EQ(path.training_totals().n, out.at("n_train").get<int>());
  EXPECT_EQ(path.testing_totals().n, out.at("n_test").get<int>());
  if (!scores.empty()) {
    const std::vector<double> sums = tavo_test::numbers(out.at("score_sums"));
    ASSERT_EQ(path.score_sums().size(), sums.size());
    for (size_t i = 0; i < sums.size(); ++i) {
      EXPECT_EQ(bits_of_float(path.score_sums()[i]), bits_of_float(static_cast<float>(sums[i])))
          << "entry " << i;
    }
  }
  expect_record(out, record);
}

TEST(RecordedCases, CountTablesAndRecords) {
  const auto measures = [](const Json& in, const Json& out) {
    const auto train = in.at("train_table").get<std::vector<int32_t>>();
    const auto test = in.at("test_table").get<std::vector<int32_t>>();
    const auto totals = [](const std::vector<int32_t>& table, int n) {
      SetTotals sums{0, 0, n};
      for (size_t m = 0; m < table.size(); m += 2) {
        sums.controls += table[m];
        sums.cases += table[m + 1];
      }
      return sums;
    };
    float record[kRecordSize];
    write_record(train.data(), test.data(), static_cast<int64_t>(train.size() / 2),
                 totals(train, in.at("n_train").get<int>()), totals(test, in.at("n_test").get<int>()),
                 static_cast<float>(tavo_test::number(in.at("threshold"))), in.at("tie").get<int>(), record);
    expect_record(out, record);
  };
  tavo_test::run_cases("kernels", {{"kernel", run_kernel}, {"mdr_measures", measures}});
}

}  // namespace
