// SPDX-License-Identifier: Apache-2.0
//
// The odd corners of docs/choosing.md: a run that enters one says so on standard error, one that does not is
// silent.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

struct Corner {
  Words words;
  Words parts;  // of its notice
};

class Corners : public ::testing::Test {
 protected:
  // Exactly one notice besides the line that says what runs, and it holds the parts.
  static void expect_notice(const CliFolder& folder, const Corner& corner) {
    const RunResult run = folder.run_mdr(corner.words);
    std::string all;
    for (const std::string& word : corner.words) {
      all += word + " ";
    }
    EXPECT_EQ(run.status, 0) << all << run.out;
    EXPECT_EQ(notices_with(run, corner.parts), 1) << all << run.err;
    EXPECT_EQ(notices_with(run, {}), 2) << all << run.err;
  }
};

TEST_F(Corners, AStraightRunHasNoNotice) {
  const CliFolder folder(balanced_data(40, 6, 0.1));
  for (const Words& words :
       std::vector<Words>{{}, {"--mode", "3"}, {"--mode", "2"}, {"--order", "1-3", "--cv", "4"}}) {
    const RunResult run = folder.run_mdr(words + Words{"--top", "3"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(notices_with(run, {}), 1) << run.err;
  }
}

TEST_F(Corners, OfCrossValidatedRunsGiveANotice) {
  const CliFolder folder(balanced_data(40, 6, 0.1));
  const Corner corners[] = {
      {{"--top", "0"}, {"with --top 0 no combination is kept"}},
      {{"--cvfrom", "2"}, {"--cvfrom 2", "first 2 of 10 folds are left out"}},
      {{"--seed", "3"}, {"a search has no use for --seed without --shuffling"}},
      {{"--iter", "9", "--seed", "3", "--shuffling", "1"}, {"a search has no use for --iter"}},
      {{"--order", "3-2"}, {"no order is from 3 to 2"}},
      {{"--order", "7"}, {"orders above 6 have no combinations"}},
      {{"--missing", "none"}, {"line 10", "`none`"}},
      {{"--missing", "Available"}, {"line 10", "`Available`"}},
  };
  for (const Corner& corner : corners) {
    expect_notice(folder, corner);
  }
  EXPECT_EQ(notices_with(folder.run_mdr({"--cv", "1"}), {"with --cv 1 all samples test and none train"}), 1);
  EXPECT_EQ(notices_with(folder.run_mdr({"--missing", "mc"}), {"9 and 27 cells"}), 1);
  EXPECT_EQ(notices_with(folder.run_mdr({"--missing", "mc", "--order", "1"}), {"9 and 27 cells"}), 0);
  EXPECT_EQ(notices_with(folder.run_mdr({"--missing", "complete"}), {"of 40 samples", "are left out"}), 1);
  EXPECT_EQ(notices_with(folder.run_mdr({"--mode", "0", "--measure", "nmi"}), {"threshold is 0"}), 1);
}

TEST_F(Corners, ListsThatAreNotFilled) {
  GenotypeData data = balanced_data(40, 6);
  std::fill(data.genotypes.begin(), data.genotypes.end(),
            uint8_t{0});  // one cell: no measure of association above 0
  expect_notice(CliFolder(data), {{"--measure", "tau-b"}, {"order 2: 10 of 10 lists are not full"}});
}

TEST_F(Corners, ATransposedFileIsNotCounted) {
  const CliFolder folder;
  folder.write("g.dat", transposed_file(balanced_data(40, 6)));
  const RunResult run = folder.run_mdr({"--transpose", "1"});
  EXPECT_EQ(notices_with(run, {"transposed layout is not counted", "tavo-convert"}), 1) << run.err;
}

// 32-bit products of counts: of all samples first, then of the classes.
TEST_F(Corners, ManySamplesTakeSomeMeasuresAway) {
  const auto run_of = [](int n_samples, int n_cases) {
    GenotypeData data = balanced_data(n_samples, 2);
    for (size_t i = 0; i < data.classes.size(); ++i) {
      data.classes[i] = static_cast<int>(i) < n_cases ? 1 : 0;
    }
    return CliFolder(data).run_mdr({"--top", "1"});
  };
  EXPECT_EQ(notices_with(run_of(46340, 23170), {"samples: products"}), 0);
  EXPECT_EQ(
      notices_with(run_of(46342, 23170), {"46342 samples: products of counts pass 32 bits, so tau-c cannot"}),
      1);
  EXPECT_EQ(
      notices_with(run_of(92700, 46350), {"92700 samples", "tau-c, tau-b and Somers' d cannot be used"}), 1);
}

TEST_F(Corners, OfExhaustiveRunsGiveANotice) {
  const CliFolder with_missing(balanced_data(40, 6, 0.1));
  const CliFolder without;
  for (const std::string mode : {"2", "3"}) {
    for (const std::string method : {"none", "complete"}) {
      const Words words = {"--mode", mode, "--missing", method};
      const Words parts = {"--missing " + method, "in wrong cells in this mode"};
      EXPECT_EQ(notices_with(with_missing.run_mdr(words), parts), 1) << mode << method;
      EXPECT_EQ(notices_with(without.run_mdr(words), parts), 0) << mode << method;
    }
    EXPECT_EQ(notices_with(without.run_mdr({"--mode", mode, "--measure", "lr"}), {"ranks nothing"}), 1);
  }
}

TEST_F(Corners, AThresholdThatEveryCombinationPassesFillsItsLists) {
  // The null distribution has no such measure: the threshold is 0, and 10,000 places are too few.
  const CliFolder folder(balanced_data(40, 160));
  EXPECT_EQ(notices_with(folder.run_mdr({"--mode", "0", "--measure", "lr", "--cv", "2"}),
                         {"2 of 2 lists are full, with 10000 combinations"}),
            1);
}

TEST_F(Corners, AnAbsentScoreFileGivesANotice) {
  const CliFolder folder;
  expect_notice(folder, {{"--score", "none.txt"}, {"none.txt", "cannot be opened", "without scores"}});
}

TEST_F(Corners, OfRegressionsGiveANotice) {
  const CliFolder folder;
  // Without --measure, which a regression has no use for.
  const auto run = [&](const Words& words) {
    return folder.run(Words{"--in", "g.dat", "--out", "r.csv", "--thread", "8", "--block", "2", "--gpu", "2",
                            "--device", "cpu", "--precision", "double", "--regression"} +
                      words);
  };
  const std::string columns = "columns of the result file hold something else";
  EXPECT_EQ(notices_with(run({"logistic"}), {columns, "--tidy"}), 1);
  EXPECT_EQ(notices_with(run({"linear"}), {columns}), 1);
  EXPECT_EQ(notices_with(run({"logistic", "--tidy", "t.tsv"}), {}), 1);
  EXPECT_EQ(notices_with(run({"logistic", "--order", "2-3"}), {"of --order 2-3 it takes 2"}), 1);
  EXPECT_EQ(notices_with(run({"linear", "--order", "2"}), {"no linear regression of pairs", "no rows"}), 1);
  EXPECT_EQ(notices_with(run({"logistic", "--distinct", "1"}), {"--distinct has an effect"}), 1);
  EXPECT_EQ(notices_with(run({"logistic", "--distinct", "1", "--order", "2"}), {"--distinct"}), 0);
  EXPECT_EQ(
      notices_with(
          run({"linear", "--measure", "ba", "--missing", "mc", "--top", "3", "--tie", "1", "--shuffling", "1",
               "--mode", "3"}),
          {"a linear regression has no use for --measure, --missing, --tie, --shuffling, --mode, --top"}),
      1);
  EXPECT_EQ(notices_with(run({"logistic", "--top", "3"}), {"no use"}), 0);
}

}  // namespace
}  // namespace tavo_test
