// SPDX-License-Identifier: Apache-2.0
//
// Permutation tests of whole searches against a naive second implementation, on bits, and what must not
// change them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <random>

#include "lib/float_math.h"
#include "tests/reference/naive_run.h"
#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"
#include "tests/support/tsv_table.h"

namespace {

using tavo_test::GenotypeData;
using tavo_test::TsvRow;
using Words = std::vector<std::string>;

// A kind of run: what differs from two folds of plain pairs.
struct Kind {
  const char* name;
  naive::Run run;
  Words words;
  double missing = 0.0;
  bool scored = false;
};

naive::Run run_of(int min_order, int max_order, int folds, int measure) {
  naive::Run run;
  run.min_order = min_order;
  run.max_order = max_order;
  run.folds = folds;
  run.measure = measure;
  return run;
}

std::vector<Kind> kinds() {
  std::vector<Kind> kinds;
  kinds.push_back(
      {"OrdersOneToThree", run_of(1, 3, 5, 0), {"--order", "1-3", "--cv", "5", "--measure", "ba"}});
  kinds.push_back({"Accuracy", run_of(2, 2, 10, 1), {"--measure", "accuracy"}});
  kinds.push_back({"NegativeMeasure", run_of(2, 2, 4, 4), {"--cv", "4", "--measure", "tau-b"}});
  kinds.push_back(
      {"LikelihoodRatio", run_of(1, 2, 3, 9), {"--order", "1-2", "--cv", "3", "--measure", "lr"}, 0.05});
  kinds.push_back(
      {"Complete", run_of(2, 2, 3, 0), {"--cv", "3", "--measure", "ba", "--missing", "complete"}, 0.02});
  kinds.back().run.missing = 2;
  kinds.push_back({"ShuffledFolds",
                   run_of(2, 2, 6, 0),
                   {"--cv", "6", "--measure", "ba", "--shuffling", "1", "--seed", "77", "--cvfrom", "1"}});
  kinds.back().run.shuffling = true;
  kinds.back().run.seed = 77;
  kinds.back().run.permutation_seed = 77;
  kinds.back().run.first_fold = 1;
  kinds.push_back(
      {"ScoreBased", run_of(1, 2, 5, 0), {"--order", "1-2", "--cv", "5", "--measure", "ba"}, 0.03, true});
  kinds.push_back({"ShortLists", run_of(2, 2, 10, 0), {"--measure", "ba", "--top", "3"}});
  kinds.back().run.top = 3;
  kinds.push_back(
      {"MoreOrdersThanSnps", run_of(11, 12, 2, 0), {"--order", "11-12", "--cv", "2", "--measure", "ba"}});
  return kinds;
}

class PermutationTests : public testing::TestWithParam<Kind> {
 protected:
  static constexpr int kPermutations = 8;

  // Writes the data of the kind of run; returns it.
  GenotypeData write_data() {
    std::mt19937 random(20261121);
    const GenotypeData data = tavo_test::random_data(random, 90, 11, GetParam().missing);
    tavo_test::write_file(folder_ / "in.tavo", tavo_test::normal_file(data));
    if (GetParam().scored) {
      std::string text = "score\n";
      for (int s = 0; s < data.n_samples; ++s) {
        scores_.push_back(static_cast<float>(static_cast<int>(random() % 2000) - 1000) / 512.0f);
        text += std::to_string(scores_.back()) + "\n";
        scores_.back() = std::strtof(std::to_string(scores_.back()).c_str(), nullptr);
      }
      tavo_test::write_file(folder_ / "scores.txt", text);
    }
    return data;
  }

  void run(const Words& more, const tavo_test::Environment& environment = {}) {
    Words words = {"--in",    "in.tavo",  "--out", "out.csv", "--tidy",
                   "out.tsv", "--thread", "16",    "--block", "2"};
    words.insert(words.end(), {"--device", "cpu", "--permutations", std::to_string(kPermutations)});
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    if (GetParam().scored) {
      words.insert(words.end(), {"--score", "scores.txt"});
    }
    words.insert(words.end(), more.begin(), more.end());
    const tavo_test::RunResult result =
        tavo_test::run_program(tavo_test::tavo_program(), words, folder_.path(), environment);
    ASSERT_EQ(result.status, 0) << result.out << result.err;
  }

  tavo_test::TempDir folder_;
  std::vector<float> scores_;
};

TEST_P(PermutationTests, AreThoseOfANaiveRepetition) {
  const GenotypeData data = write_data();
  run({"--gpu", "2"});
  naive::Run run = GetParam().run;
  run.scores = scores_;
  EXPECT_EQ(
      naive::null_table_difference(naive::permuted_bests(data, run, kPermutations, tavo_logf), run.min_order,
                                   tavo_test::read_file(folder_ / "out.csv.permutations.tsv")),
      "");
}

// The p-values of the tidy table follow from the null values by counting.
TEST_P(PermutationTests, GiveEveryRankedCombinationItsPValues) {
  const GenotypeData data = write_data();
  run({});
  naive::Run run = GetParam().run;
  run.scores = scores_;
  const auto nulls = naive::permuted_bests(data, run, kPermutations, tavo_logf);
  const Words& words = GetParam().words;
  std::string measure = *std::next(std::find(words.begin(), words.end(), "--measure"));
  std::replace(measure.begin(), measure.end(), '-', '_');
  int combinations = 0;
  for (const TsvRow& row :
       tavo_test::parse_tsv(tavo_test::read_file(folder_ / "out.tsv")).with("row", "combination")) {
    ++combinations;
    const auto order = static_cast<size_t>(std::stoi(row.at("order")) - run.min_order);
    const double testing = std::stod(row.at("test_" + measure));
    const double consistency = std::stod(row.at("weighted_consistency"));
    const auto expect_p = [&](const std::string& column, std::optional<size_t> of_order,
                              double naive::NullBest::*statistic, double observed) {
      EXPECT_EQ(std::stod(row.at(column)), naive::permutation_p(nulls, of_order, statistic, observed))
          << column;
    };
    expect_p("p_testing", order, &naive::NullBest::testing, testing);
    expect_p("p_testing_all_orders", std::nullopt, &naive::NullBest::testing, testing);
    expect_p("p_consistency", order, &naive::NullBest::consistency, consistency);
    expect_p("p_consistency_all_orders", std::nullopt, &naive::NullBest::consistency, consistency);
  }
  EXPECT_EQ(combinations > 0, run.min_order <= 11);
}

TEST_P(PermutationTests, AreTheSameForAnyWorkersAndInstructionSet) {
  write_data();
  run({"--gpu", "1"}, {{"TAVO_SIMD", "scalar"}});
  const std::string nulls = tavo_test::read_file(folder_ / "out.csv.permutations.tsv");
  const std::string tidy = tavo_test::read_file(folder_ / "out.tsv");
  run({"--gpu", "5"});
  EXPECT_EQ(tavo_test::read_file(folder_ / "out.csv.permutations.tsv"), nulls);
  EXPECT_EQ(tavo_test::read_file(folder_ / "out.tsv"), tidy);
}

INSTANTIATE_TEST_SUITE_P(Kinds, PermutationTests, testing::ValuesIn(kinds()),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
