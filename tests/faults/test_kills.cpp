// SPDX-License-Identifier: Apache-2.0
//
// Runs with a checkpoint that are killed at random moments, again and again: each goes on from where the one
// before it was, and the result is that of a run that was left alone.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>

#include "tests/faults/fault_folder.h"
#include "tests/support/sweep.h"

namespace tavo_test {
namespace {

using Clock = std::chrono::steady_clock;

// A kind of run that can keep a checkpoint. A row each; all are killed equally often.
struct KilledRun {
  const char* name;
  Words words;
  int n_snps;  // so that a run takes some tenths of a second
};

const KilledRun kRuns[] = {
    {"Search", {"--measure", "gamma", "--order", "2-3"}, 100},
    {"ScoreBased", {"--measure", "ba", "--order", "2-3", "--score", "scores.txt"}, 75},
    {"AboveThreshold", {"--measure", "ba", "--order", "2", "--mode", "0"}, 250},
    {"Exhaustive", {"--measure", "ba", "--order", "2-3", "--mode", "3"}, 60},
    {"Permutations", {"--measure", "ba", "--order", "2", "--permutations", "40"}, 60},
    {"Logistic", {"--regression", "logistic", "--order", "2"}, 130},
    {"Linear", {"--regression", "linear"}, 4000},
};

constexpr int kKills = 50 / kSweepStep;  // of all rows together
constexpr int kKillsOfARow =
    (kKills + static_cast<int>(std::size(kRuns)) - 1) / static_cast<int>(std::size(kRuns));

class KilledRuns : public testing::TestWithParam<KilledRun> {
 protected:
  KilledRuns() {
    std::mt19937 random(11);
    folder_.write("g.tavo", normal_file(random_data(random, 150, GetParam().n_snps, 0.01)));
    std::string scores = "score\n";
    for (int i = 0; i < 150; ++i) {
      scores += std::to_string(0.001 * static_cast<double>(i * 7919 % 1000) - 0.5) + "\n";
    }
    folder_.write("scores.txt", scores);
  }

  Words words(const std::string& out) const {
    return Words{"--in",     "g.tavo", "--out",   out, "--tidy", out + ".tsv", "--cv",     "3",
                 "--thread", "64",     "--block", "8", "--gpu",  "2",          "--device", "cpu"} +
           GetParam().words;
  }

  FaultFolder folder_;
  // After every pass of the search; slow enough that a kill comes before the end.
  const Environment often_{{"TAVO_CHECKPOINT_SECONDS", "0"}, {"TAVO_SIMD", "scalar"}};
};

TEST_P(KilledRuns, EndWithTheResultOfOneThatWasLeftAlone) {
  ASSERT_EQ(folder_.run(tavo_program(), words("whole.csv"), often_).status, 0);
  const Words whole = result_lines(folder_.path("whole.csv"));
  const std::string table = folder_.read("whole.csv.tsv");
  const Words kept = words("part.csv") + Words{"--checkpoint", "ck"};
  const auto begun = Clock::now();
  ASSERT_EQ(folder_.run(tavo_program(), kept, often_).status, 0);
  const double seconds = std::chrono::duration<double>(Clock::now() - begun).count();

  std::mt19937 random(17);
  std::uniform_real_distribution<double> moment(0.0, 0.7 * seconds);
  int killed = 0;
  int went_on = 0;
  int ended = 0;
  for (int runs = 0; killed < kKillsOfARow && runs < 4 * kKillsOfARow; ++runs) {
    const std::chrono::duration<double> wait(moment(random));
    // Every other run is left alone until there is something to go on from, however slow the machine.
    const bool after_a_checkpoint = runs % 2 == 0;
    const auto begin = Clock::now();
    const RunResult result = interrupt_program_when(
        tavo_program(), kept, folder_.path(""), often_,
        [&] {
          if (after_a_checkpoint && !folder_.exists("ck")) {
            return false;
          }
          std::this_thread::sleep_until(begin + wait);
          return true;
        },
        SIGKILL);
    went_on += result.err.find("are known from the checkpoint") != std::string::npos ? 1 : 0;
    if (result.status == 128 + SIGKILL) {
      ++killed;
      // What stands under the result's name is nothing, the empty file that shows it can be written, or all
      // of it.
      const std::string left = folder_.exists("part.csv") ? folder_.read("part.csv") : "";
      ASSERT_TRUE(left.empty() || result_lines(folder_.path("part.csv")) == whole);
      continue;
    }
    ASSERT_EQ(result.status, 0) << result.err;
    ++ended;
    ASSERT_EQ(result_lines(folder_.path("part.csv")), whole) << "after " << killed << " kills";
    ASSERT_EQ(folder_.read("part.csv.tsv").size(), table.size());
    ASSERT_FALSE(folder_.exists("ck"));
    folder_.remove("part.csv");
    folder_.remove("part.csv.tsv");
  }
  const RunResult last = folder_.run(tavo_program(), kept, often_);
  ASSERT_EQ(last.status, 0) << last.err;
  EXPECT_EQ(result_lines(folder_.path("part.csv")), whole);
  EXPECT_EQ(folder_.read("part.csv.tsv"), table);
  EXPECT_EQ(killed, kKillsOfARow);
  EXPECT_GE(went_on, killed / 5);
  std::cout << killed << " kills, " << went_on << " runs went on from a checkpoint, " << ended + 1
            << " ended\n";
}

INSTANTIATE_TEST_SUITE_P(Kinds, KilledRuns, testing::ValuesIn(kRuns),
                         [](const auto& run) { return run.param.name; });

}  // namespace
}  // namespace tavo_test
