// SPDX-License-Identifier: Apache-2.0
//
// Runs that are cut off and go on from their checkpoint: the result is that of a run that was left alone.
#include <gtest/gtest.h>

#include <csignal>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

class CheckpointRuns : public ::testing::Test {
 protected:
  // After every pass of the search, not every ten seconds; slow enough that a signal comes before the end.
  const Environment often_{{"TAVO_CHECKPOINT_SECONDS", "0"}, {"TAVO_SIMD", "scalar"}};

  // Lines of a result file but for those that say when and how it was made.
  std::vector<std::string> results(const std::string& name) const {
    std::vector<std::string> kept;
    for (const std::string& line : folder_.lines(name)) {
      if (!begins_with(line, "Total time,") && !begins_with(line, "Command,") &&
          !contains(line, "result_file")) {
        kept.push_back(line);
      }
    }
    return kept;
  }

  // A run that the signal ends as soon as it has written a checkpoint.
  RunResult cut_off(const Words& words, int signal) const {
    const std::string before = folder_.exists("ck") ? read_file(folder_.path("ck")) : "";
    return interrupt_program_when(
        tavo_program(), words, folder_.path(""), often_,
        [&] { return folder_.exists("ck") && read_file(folder_.path("ck")) != before; }, signal);
  }

  // The run by itself; cut off `cuts` times, and then to its end.
  void expect_goes_on(const Words& words, int signal, int cuts) const {
    const Words all = mdr_words() + words;
    ASSERT_EQ(folder_.run(all + Words{"--out", "whole.csv"}).status, 0);
    const Words kept = all + Words{"--out", "part.csv", "--checkpoint", "ck"};
    for (int cut = 0; cut < cuts; ++cut) {
      const RunResult result = cut_off(kept, signal);
      ASSERT_EQ(result.status, 128 + signal) << result.err;
    }
    const RunResult last = folder_.run(kept, often_);
    ASSERT_EQ(last.status, 0) << last.err;
    EXPECT_GE(notices_with(last, {"are known from the checkpoint"}), 1) << last.err;
    EXPECT_EQ(results("part.csv"), results("whole.csv"));
    EXPECT_GT(results("part.csv").size(), 20u);
    EXPECT_FALSE(folder_.exists("ck"));
  }

  CliFolder folder_{balanced_data(200, 160)};
};

TEST_F(CheckpointRuns, GoOnAfterAKill) {
  expect_goes_on({"--order", "3", "--measure", "gamma"}, SIGKILL, 3);
}

TEST_F(CheckpointRuns, GoOnInALaterOrderWithOtherWorkers) {
  expect_goes_on({"--order", "1-3", "--gpu", "1", "--tie", "1"}, SIGKILL, 2);
}

TEST_F(CheckpointRuns, GoOnWhenScoreBased) {
  std::string scores = "score\n";
  for (int i = 0; i < 200; ++i) {
    scores += std::to_string(0.001 * (i * 7919 % 1000) - 0.5) + "\n";
  }
  folder_.write("s", scores);
  expect_goes_on({"--order", "2-3", "--score", "s"}, SIGTERM, 2);
}

// Without a seed the folds are drawn by the time of day: the run that goes on has those of the first.
TEST_F(CheckpointRuns, GoOnWithTheFoldsOfTheFirstRun) {
  const Words words =
      mdr_words() + Words{"--order", "3", "--shuffling", "1", "--out", "part.csv", "--checkpoint", "ck"};
  ASSERT_EQ(cut_off(words, SIGKILL).status, 128 + SIGKILL);
  std::string seed;
  for (const std::string& line : folder_.lines("ck")) {
    seed = begins_with(line, "seed\t") ? line.substr(5) : seed;
  }
  ASSERT_NE(seed, "");
  ASSERT_EQ(folder_.run(words, often_).status, 0);
  ASSERT_EQ(
      folder_
          .run(mdr_words() + Words{"--order", "3", "--shuffling", "1", "--seed", seed, "--out", "whole.csv"})
          .status,
      0);
  EXPECT_EQ(results("part.csv"), results("whole.csv"));
}

TEST_F(CheckpointRuns, SayWhereTheCheckpointIsWhenTheyAreStopped) {
  const RunResult result = cut_off(mdr_words() + Words{"--order", "3", "--checkpoint", "ck"}, SIGTERM);
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_EQ(notices_with(result, {"ck holds what is done: the same command goes on from there"}), 1)
      << result.err;
  EXPECT_FALSE(folder_.exists("r.csv"));
}

TEST_F(CheckpointRuns, OfOtherDataOrOptionsAreRefused) {
  const Words words = mdr_words() + Words{"--order", "3", "--checkpoint", "ck"};
  ASSERT_EQ(cut_off(words, SIGKILL).status, 128 + SIGKILL);
  const std::string kept = read_file(folder_.path("ck"));
  const auto expect_refused = [&](const Words& more, const std::string& difference) {
    const RunResult result = folder_.run(words + more);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(notices_with(result, {"ck: of another run: its " + difference}), 1) << result.err;
    EXPECT_EQ(read_file(folder_.path("ck")), kept);
  };
  expect_refused({"--cv", "5"}, "--cv is ");
  expect_refused({"--top", "11"}, "--top is ");
  expect_refused({"--tie", "2"}, "--tie is ");
  GenotypeData other = balanced_data(200, 160);
  std::swap(other.classes.front(), other.classes.back());
  folder_.write("g.dat", normal_file(other, 8));
  expect_refused({}, "classes is ");
}

TEST_F(CheckpointRuns, AreRefusedWhereTheyCannotGoOn) {
  for (const Words& words : {Words{"--mode", "0"}, Words{"--mode", "3"}}) {
    const RunResult result = folder_.run_mdr(words + Words{"--checkpoint", "ck"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(notices_with(result, {"--checkpoint is for cross-validated searches"}), 1) << result.err;
  }
  EXPECT_EQ(folder_.run_mdr({"--checkpoint", "none/ck"}).status, 1);
  EXPECT_EQ(folder_.run_mdr({"--checkpoint", "g.dat"}).status, 1);
  const RunResult same = folder_.run_mdr({"--checkpoint", "r.csv"});
  EXPECT_EQ(same.status, 1);
  EXPECT_EQ(notices_with(same, {"--checkpoint and --out name the same file"}), 1) << same.err;
}

}  // namespace
}  // namespace tavo_test
