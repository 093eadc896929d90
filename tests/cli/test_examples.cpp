// SPDX-License-Identifier: Apache-2.0
//
// The example data sets, from their original form to the report: the planted combination is its first line.
#include <gtest/gtest.h>

#include <ostream>

#include "tests/cli/cli_run.h"
#include "tests/support/sweep.h"

namespace tavo_test {
namespace {

struct Example {
  const char* name;
  const char* file;
  const char* class_column;
  const char* order;
  const char* planted;
  // Balanced accuracy of the planted combination over all samples, by an exhaustive search of another
  // program.
  const char* balanced_accuracy;
};

void PrintTo(const Example& example, std::ostream* out) {
  *out << example.name;
}

class Examples : public testing::TestWithParam<Example> {
 protected:
  void SetUp() override {
    const RunResult run =
        run_program(convert_program(),
                    {"--in", (source_root() / "examples" / GetParam().file).string(), "--out",
                     folder_.path("e.dat").string(), "--class", GetParam().class_column},
                    folder_.path("."));
    ASSERT_EQ(run.status, 0) << run.err;
  }

  // The first row after the line that begins with `title`, its header left out.
  std::string first_row(const std::string& title) {
    const std::vector<std::string> lines = folder_.lines("e.csv");
    for (size_t i = 0; i + 2 < lines.size(); ++i) {
      if (lines[i].starts_with(title)) {
        return lines[i + 2];
      }
    }
    return "";
  }

  RunResult search(const Words& more) {
    return folder_.run(Words{"--in", "e.dat", "--out", "e.csv", "--measure", "ba", "--order",
                             GetParam().order, "--top", "5", "--thread", "256", "--block", "16", "--device",
                             "cpu"} +
                       more);
  }

  CliFolder folder_;
};

TEST_P(Examples, ThePlantedCombinationIsTheFirstLineOfTheReport) {
  const RunResult run = search({});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  const std::vector<std::string> row = split(first_row("<<"), ',');
  ASSERT_GE(row.size(), 3u);
  EXPECT_EQ(row[0], "1");
  EXPECT_EQ(row[1], GetParam().planted);
  // In the list of every one of the ten folds, as the best.
  EXPECT_EQ(row[2], "10.000000");
}

// Combination by combination: not a thousand SNPs under a sanitizer.
class ExhaustiveExamples : public Examples {};

TEST_P(ExhaustiveExamples, HaveTheirKnownBalancedAccuracy) {
  const RunResult run = search({"--mode", "3"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  const std::vector<std::string> row = split(first_row("<<"), ',');
  ASSERT_GE(row.size(), 4u);
  EXPECT_EQ(row[1], GetParam().planted);
  EXPECT_EQ(row[3], GetParam().balanced_accuracy);
}

const Example kLarge = {"PairAmong1000", "gametes-2way-1000snps.tsv.gz", "target", "2", "( P1 P2 )",
                        "0.780000"};

std::vector<Example> examples(bool with_large) {
  std::vector<Example> sets = {
      {"Pair", "gametes-2way-20snps.tsv.gz", "target", "2", "( P1 P2 )", "0.793125"},
      {"Triple", "gametes-3way-20snps.tsv.gz", "target", "3", "( P1 P2 P3 )", "0.700625"},
      {"MissingGenotypes", "gametes-2way-20snps-missing.tsv.gz", "Class", "2", "( M0P0 M0P1 )", "0.812964"}};
  if (with_large) {
    sets.push_back(kLarge);
  }
  return sets;
}

std::string name_of(const testing::TestParamInfo<Example>& set) {
  return set.param.name;
}

INSTANTIATE_TEST_SUITE_P(Sets, Examples, testing::ValuesIn(examples(true)), name_of);
INSTANTIATE_TEST_SUITE_P(Sets, ExhaustiveExamples, testing::ValuesIn(examples(!kSanitized)), name_of);

}  // namespace
}  // namespace tavo_test
