// SPDX-License-Identifier: Apache-2.0
//
// Runs that are cut off and go on from their checkpoint: the result is that of a run that was left alone.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

class CheckpointRuns : public ::testing::Test {
 protected:
  // After every pass of the search, not every ten seconds; slow enough that a signal comes before the end.
  const Environment often_{{"TAVO_CHECKPOINT_SECONDS", "0"}, {"TAVO_SIMD", "scalar"}};

  // Lines of a result file but for those that say when and how it was made.
  static std::vector<std::string> results(const CliFolder& folder, const std::string& name) {
    std::vector<std::string> kept;
    for (const std::string& line : folder.lines(name)) {
      if (!begins_with(line, "Total time,") && !begins_with(line, "Command,") &&
          !contains(line, "result_file")) {
        kept.push_back(line);
      }
    }
    return kept;
  }
  std::vector<std::string> results(const std::string& name) const { return results(folder_, name); }

  // A run that the signal ends as soon as it has written a checkpoint.
  RunResult cut_off(const CliFolder& folder, const Words& words, int signal) const {
    const std::string before = folder.exists("ck") ? read_file(folder.path("ck")) : "";
    return interrupt_program_when(
        tavo_program(), words, folder.path(""), often_,
        [&] { return folder.exists("ck") && read_file(folder.path("ck")) != before; }, signal);
  }
  RunResult cut_off(const Words& words, int signal) const { return cut_off(folder_, words, signal); }

  // The run by itself; cut off `cuts` times, and then to its end. Both results are the same, and nothing but
  // them is left.
  void expect_goes_on(const CliFolder& folder, const Words& all, int signal, int cuts) const {
    ASSERT_EQ(folder.run(all + Words{"--out", "whole.csv", "--tidy", "whole.tsv"}).status, 0);
    const Words kept = all + Words{"--out", "part.csv", "--tidy", "part.tsv", "--checkpoint", "ck"};
    std::filesystem::remove(folder.path("part.csv"));
    std::filesystem::remove(folder.path("part.tsv"));
    for (int cut = 0; cut < cuts; ++cut) {
      const RunResult result = cut_off(folder, kept, signal);
      ASSERT_EQ(result.status, 128 + signal) << result.err;
      EXPECT_FALSE(folder.exists("part.tsv"));
      EXPECT_TRUE(folder.lines("part.csv").empty());
    }
    const RunResult last = folder.run(kept);
    ASSERT_EQ(last.status, 0) << last.err;
    EXPECT_GE(notices_with(last, {"known from the checkpoint"}), 1) << last.err;
    EXPECT_EQ(results(folder, "part.csv"), results(folder, "whole.csv"));
    EXPECT_GT(results(folder, "part.csv").size(), 20u);
    EXPECT_EQ(read_file(folder.path("part.tsv")), read_file(folder.path("whole.tsv")));
    EXPECT_EQ(folder.names_with("ck"), Words{});
    EXPECT_EQ(folder.names_with(".tmp"), Words{});
  }
  void expect_goes_on(const Words& words, int signal, int cuts) const {
    expect_goes_on(folder_, mdr_words() + words, signal, cuts);
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

TEST_F(CheckpointRuns, GoOnAmongPermutations) {
  expect_goes_on({"--order", "1-2", "--permutations", "30", "--stop-after", "20"}, SIGKILL, 4);
  EXPECT_EQ(read_file(folder_.path("part.csv.permutations.tsv")),
            read_file(folder_.path("whole.csv.permutations.tsv")));
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
  expect_refused({"--permutations", "9"}, "--permutations is ");
  GenotypeData other = balanced_data(200, 160);
  std::swap(other.classes.front(), other.classes.back());
  folder_.write("g.dat", normal_file(other, 8));
  expect_refused({}, "classes is ");
}

TEST_F(CheckpointRuns, AreRefusedWhereTheyCannotGoOn) {
  folder_.write("r.csv", "an older result\n");
  EXPECT_EQ(folder_.run_mdr({"--checkpoint", "none/ck"}).status, 1);
  EXPECT_EQ(folder_.run_mdr({"--checkpoint", "g.dat"}).status, 1);
  const RunResult same = folder_.run_mdr({"--checkpoint", "r.csv"});
  EXPECT_EQ(same.status, 1);
  EXPECT_EQ(notices_with(same, {"--checkpoint and --out name the same file"}), 1) << same.err;
  for (const char* name : {"ck.rows", "ck.tmp", "ck.lock", "./ck.tidy"}) {
    const RunResult taken = folder_.run_mdr({"--checkpoint", "ck", "--tidy", name});
    EXPECT_EQ(taken.status, 1);
    EXPECT_EQ(notices_with(taken, {"the checkpoint needs the name of the --tidy file"}), 1) << taken.err;
  }
  // A run that is refused has not touched its result.
  EXPECT_EQ(read_file(folder_.path("r.csv")), "an older result\n");
}

// Fewer SNPs: each takes its time.
class CheckpointOtherRuns : public CheckpointRuns {
 protected:
  CliFolder small_{balanced_data(120, 50)};
};

TEST_F(CheckpointOtherRuns, AboveAThresholdGoOn) {
  expect_goes_on(small_,
                 mdr_words() + Words{"--mode", "0", "--order", "1-2", "--cv", "4", "--measure", "gamma"},
                 SIGKILL, 2);
}

TEST_F(CheckpointOtherRuns, ExhaustiveOnesGoOn) {
  expect_goes_on(small_, mdr_words() + Words{"--mode", "3", "--order", "2-3", "--top", "30"}, SIGKILL, 3);
  expect_goes_on(small_, mdr_words() + Words{"--mode", "2", "--order", "1-3"}, SIGTERM, 3);
}

class CheckpointRegressions : public CheckpointRuns {
 protected:
  static constexpr int kSamples = 80;
  static constexpr int kSnps = 300;

  CheckpointRegressions() {
    // Quantitative phenotypes in place of the classes.
    std::string bytes = normal_file(balanced_data(kSamples, kSnps), 8);
    const size_t record = 4 + 4 * ((kSnps + 15) / 16);
    for (size_t i = 0; i < kSamples; ++i) {
      const float trait = 0.25f * static_cast<float>(i * 7919 % 61) - 3.0f;
      std::memcpy(bytes.data() + bytes.size() - (kSamples - i) * record, &trait, sizeof(trait));
    }
    traits_.write("g.dat", bytes);
  }

  // Few items at a time.
  static Words words(const std::string& kind) {
    return {"--in",    "g.dat", "--regression", kind, "--thread", "4",
            "--block", "1",     "--gpu",        "2",  "--device", "cpu"};
  }

  CliFolder traits_;
  CliFolder classes_{balanced_data(kSamples, kSnps)};
  CliFolder pairs_{balanced_data(kSamples, 60)};
};

TEST_F(CheckpointRegressions, GoOn) {
  expect_goes_on(traits_, words("linear"), SIGKILL, 3);
  expect_goes_on(traits_, words("linear") + Words{"--precision", "double"}, SIGTERM, 2);
  expect_goes_on(classes_, words("logistic") + Words{"--top", "40"}, SIGKILL, 3);
  expect_goes_on(pairs_, words("logistic") + Words{"--order", "2", "--top", "40"}, SIGKILL, 2);
}

TEST_F(CheckpointRegressions, WithoutTheirRowsAreRefused) {
  const Words run = words("linear") + Words{"--out", "r.csv", "--checkpoint", "ck"};
  ASSERT_EQ(cut_off(traits_, run, SIGKILL).status, 128 + SIGKILL);
  const std::string rows = read_file(traits_.path("ck.rows"));
  const std::string kept = read_file(traits_.path("ck"));
  const auto expect_refused = [&] {
    const RunResult result = traits_.run(run);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(notices_with(result, {"ck.rows: does not hold the rows that the checkpoint counts on"}), 1)
        << result.err;
    EXPECT_EQ(read_file(traits_.path("ck")), kept);
  };
  std::filesystem::remove(traits_.path("ck.rows"));
  expect_refused();
  traits_.write("ck.rows", rows.substr(0, 30));
  expect_refused();
  traits_.write("ck.rows", "x" + rows.substr(1));
  expect_refused();
  traits_.write("ck.rows", rows);
  EXPECT_EQ(traits_.run(run + Words{"--tidy", "t.tsv"}).status, 1);
  EXPECT_EQ(traits_.run(run + Words{"--precision", "double"}).status, 1);
  EXPECT_EQ(traits_.run(run).status, 0);
}

}  // namespace
}  // namespace tavo_test
