// SPDX-License-Identifier: Apache-2.0
//
// Score-based runs against what theory says of them.
#include <gtest/gtest.h>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

// Rank, combination, consistency and both balanced accuracies of the ranked combinations.
std::vector<Words> ranking(const std::vector<std::string>& lines) {
  std::vector<Words> rows;
  bool inside = false;
  for (const std::string& line : lines) {
    if (line.starts_with("Rank,")) {
      inside = true;
    } else if (line.starts_with("=")) {
      inside = false;
    } else if (inside) {
      const std::vector<std::string> fields = split(line, ',');
      rows.emplace_back(fields.begin(), fields.begin() + 5);
    }
  }
  return rows;
}

// With scores of class - mean, a cell's sum is positive exactly when its cases over its controls are above
// the cases over the controls of all samples: the rule of a plain run whose threshold is the overall one.
// With as many cases as controls the scores are halves, whose sums are exact.
TEST(ScoreBasedRuns, ScoresOfClassLessMeanRankLikeThePlainRun) {
  const GenotypeData data = balanced_data(160, 14);
  const CliFolder folder(data);
  std::string scores = "score\n";
  for (const uint8_t value : data.classes) {
    scores += value == 1 ? "0.5\n" : "-0.5\n";
  }
  folder.write("s.txt", scores);
  for (const char* tie : {"0", "1"}) {
    const Words both = {"--order", "1-3", "--top", "25", "--missing", "none", "--tie", tie, "--cv", "4"};
    ASSERT_EQ(folder.run_mdr(both + Words{"--out", "plain.csv"}).status, 0);
    ASSERT_EQ(folder.run_mdr(both + Words{"--out", "scored.csv", "--score", "s.txt"}).status, 0);
    const std::vector<Words> plain = ranking(folder.lines("plain.csv"));
    ASSERT_GT(plain.size(), 50u);
    EXPECT_EQ(ranking(folder.lines("scored.csv")), plain);
  }
}

// Only the sign of a cell's sum counts.
TEST(ScoreBasedRuns, AllScoresTimesAPowerOfTwoChangeNothing) {
  const GenotypeData data = balanced_data(120, 10, 0.05);
  const CliFolder folder(data);
  std::string scores = "score\n";
  std::string scaled = "score\n";
  for (size_t s = 0; s < data.classes.size(); ++s) {
    const double score = (static_cast<double>(s * 7919 % 1009) - 500.0) / 64.0;
    scores += std::to_string(score) + "\n";
    scaled += std::to_string(score * 1024.0) + "\n";
  }
  folder.write("s.txt", scores);
  folder.write("t.txt", scaled);
  ASSERT_EQ(folder.run_mdr({"--score", "s.txt", "--out", "s.csv"}).status, 0);
  ASSERT_EQ(folder.run_mdr({"--score", "t.txt", "--out", "t.csv"}).status, 0);
  EXPECT_FALSE(ranking(folder.lines("s.csv")).empty());
  EXPECT_EQ(ranking(folder.lines("s.csv")), ranking(folder.lines("t.csv")));
}

TEST(ScoreBasedRuns, AnotherMeasureLeavesTheListsEmptyWithANotice) {
  const GenotypeData data = balanced_data(40, 6);
  const CliFolder folder(data);
  std::string scores = "score\n";
  for (const uint8_t value : data.classes) {
    scores += value == 1 ? "1\n" : "-1\n";
  }
  folder.write("s.txt", scores);
  const RunResult run = folder.run_mdr({"--score", "s.txt", "--measure", "gamma"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(notices_with(run, {"balanced accuracy only"}), 1) << run.err;
  for (const Words& row : ranking(folder.lines("r.csv"))) {
    EXPECT_EQ(row[3], "0.000000");
  }
}

TEST(ScoreBasedRuns, ScoresThatAreTooFewAreRefused) {
  const CliFolder folder(balanced_data(40, 6));
  folder.write("s.txt", "score\n1\n2\n3\n");
  const RunResult run = folder.run_mdr({"--score", "s.txt"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(notices_with(run, {"s.txt", "3 scores", "40 samples"}), 1) << run.err;
  EXPECT_FALSE(folder.exists("r.csv"));
}

TEST(ScoreBasedRuns, TextThatIsNoNumberGetsOneNoticeWithItsLine) {
  const CliFolder folder(balanced_data(4, 6));
  folder.write("s.txt", "score\n1\nx\n-1\ny\n");
  const RunResult run = folder.run_mdr({"--score", "s.txt", "--cv", "2"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(notices_with(run, {"s.txt", "line 3", "\"x\""}), 1) << run.err;
  EXPECT_EQ(notices_with(run, {"\"y\""}), 0) << run.err;
}

}  // namespace
}  // namespace tavo_test
