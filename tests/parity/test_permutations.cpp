// SPDX-License-Identifier: Apache-2.0
//
// Permutation tests of whole searches against a naive second implementation, on bits, and what must not
// change them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "lib/float_math.h"
#include "tests/reference/naive_run.h"
#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"

namespace {

using tavo_test::GenotypeData;
using Words = std::vector<std::string>;
using Table = std::vector<Words>;

Table read_table(const std::filesystem::path& path) {
  Table table;
  for (const std::string& line : tavo_test::split_lines(tavo_test::read_file(path))) {
    Words& cells = table.emplace_back();
    for (size_t start = 0; start <= line.size();) {
      const size_t end = std::min(line.find('\t', start), line.size());
      cells.push_back(line.substr(start, end - start));
      start = end + 1;
    }
  }
  return table;
}

double number(const std::string& cell) {
  return cell == "NA" ? std::nan("") : std::strtod(cell.c_str(), nullptr);
}

bool same(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

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
  const auto expected = naive::permuted_bests(data, run, kPermutations, tavo_logf);
  const Table table = read_table(folder_ / "out.csv.permutations.tsv");
  ASSERT_EQ(table.front(), (Words{"permutation", "order", "testing", "consistency"}));
  ASSERT_EQ(table.size(), 1 + expected.size() * expected.front().size());
  size_t line = 1;
  for (size_t r = 0; r < expected.size(); ++r) {
    for (size_t i = 0; i < expected[r].size(); ++i, ++line) {
      const Words& row = table[line];
      ASSERT_EQ(row.size(), 4u);
      EXPECT_EQ(row[0], std::to_string(r + 1));
      EXPECT_EQ(row[1], std::to_string(run.min_order + static_cast<int>(i)));
      EXPECT_TRUE(same(number(row[2]), expected[r][i].testing))
          << row[2] << " and " << expected[r][i].testing;
      EXPECT_TRUE(same(number(row[3]), expected[r][i].consistency)) << row[3];
    }
  }
}

// The p-values of the tidy table follow from the null values by counting.
TEST_P(PermutationTests, GiveEveryRankedCombinationItsPValues) {
  write_data();
  run({});
  const Table nulls = read_table(folder_ / "out.csv.permutations.tsv");
  const Table tidy = read_table(folder_ / "out.tsv");
  const auto column = [&](const std::string& name) {
    return static_cast<size_t>(std::find(tidy[0].begin(), tidy[0].end(), name) - tidy[0].begin());
  };
  int combinations = 0;
  for (const Words& row : tidy) {
    if (row[0] != "combination") {
      continue;
    }
    ++combinations;
    const std::string order = row[column("order")];
    std::string measure =
        GetParam().words[1 + static_cast<size_t>(
                                 std::find(GetParam().words.begin(), GetParam().words.end(), "--measure") -
                                 GetParam().words.begin())];
    std::replace(measure.begin(), measure.end(), '-', '_');
    const double consistency = number(row[column("weighted_consistency")]);
    const double testing = number(row[column("test_" + measure)]);
    const auto p = [&](const std::string& of_order, size_t statistic, double observed) {
      std::vector<bool> reached(kPermutations, false);
      for (size_t i = 1; i < nulls.size(); ++i) {
        if (of_order.empty() || nulls[i][1] == of_order) {
          const auto r = static_cast<size_t>(std::atoi(nulls[i][0].c_str()) - 1);
          // Equal but for rounding counts.
          reached[r] = reached[r] || number(nulls[i][statistic]) >= observed - 1e-6 * std::fabs(observed);
        }
      }
      return (1.0 + static_cast<double>(std::count(reached.begin(), reached.end(), true))) /
             (1.0 + kPermutations);
    };
    EXPECT_EQ(number(row[column("p_testing")]), p(order, 2, testing));
    EXPECT_EQ(number(row[column("p_testing_all_orders")]), p("", 2, testing));
    EXPECT_EQ(number(row[column("p_consistency")]), p(order, 3, consistency));
    EXPECT_EQ(number(row[column("p_consistency_all_orders")]), p("", 3, consistency));
  }
  EXPECT_EQ(combinations > 0, GetParam().run.min_order <= 11);
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
