// SPDX-License-Identifier: Apache-2.0
//
// Runs with too little memory (ulimit -v), from far too little to enough: a message and a status, never a
// crash, and no result that looks whole. The sanitizers take more address space than any limit: there are no
// such tests there.
#include <gtest/gtest.h>

#include <iostream>

#include "tests/faults/fault_folder.h"

namespace tavo_test {
namespace {

constexpr int kSteps = 20;

struct LimitedRun {
  const char* name;
  std::filesystem::path program;
  Words words;
  const char* output;
};

// Every analysis, and every program; sizes so that memory beyond the program's own is what decides.
std::vector<LimitedRun> limited_runs() {
  const Words tavo = {"--in",    "g.tavo", "--out", "out", "--thread", "256",
                      "--block", "16",     "--gpu", "4",   "--device", "cpu"};
  return {
      {"Search", tavo_program(), tavo + Words{"--measure", "ba", "--order", "2"}, "out"},
      {"LargeSearch",
       tavo_program(),
       {"--in", "g.tavo", "--out", "out", "--thread", "256", "--block", "16", "--gpu", "2", "--device", "cpu",
        "--measure", "gamma", "--order", "1", "--cv", "30"},
       "out"},
      {"SearchByThreshold", tavo_program(),
       tavo + Words{"--in", "medium.tavo", "--measure", "ba", "--order", "1", "--mode", "0"}, "out"},
      {"ScoreBased", tavo_program(),
       tavo + Words{"--in", "medium.tavo", "--measure", "ba", "--order", "2", "--score", "s.txt"}, "out"},
      {"Exhaustive", tavo_program(),
       Words{"--in", "few.tavo", "--out", "out", "--thread", "1", "--block", "1", "--measure", "ba",
             "--order", "11", "--mode", "3", "--device", "cpu"},
       "out"},
      {"Regression", tavo_program(), tavo + Words{"--regression", "logistic", "--tidy", "t.tsv"}, "out"},
      {"Convert", convert_program(), {"--in", "g.tavo", "--out", "out", "--transpose", "1"}, "out"},
      {"Table", convert_program(), {"--in", "table.txt", "--out", "out"}, "out"},
      {"Score", score_program(), {"--in", "g.tavo", "--out", "out"}, "out"},
      {"Simulate", simulate_program(), {"--out", "out", "--snps", "1000", "--samples", "1000"}, "out"},
      {"Report", report_program(), {"--in", "big.tsv", "--out", "out", "--format", "json"}, "out"},
  };
}

class LimitedRuns : public testing::TestWithParam<size_t> {
 protected:
  void SetUp() override {
    std::mt19937 random(5);
    folder_.write("g.tavo", normal_file(random_data(random, 1000, 600, 0.01)));
    folder_.write("medium.tavo", normal_file(random_data(random, 300, 200, 0.01)));
    folder_.write("few.tavo", normal_file(random_data(random, 100, 12, 0.0)));
    std::string scores = "score\n";
    for (int i = 0; i < 1000; ++i) {
      scores += i % 3 == 0 ? "1\n" : "-0.5\n";
    }
    folder_.write("s.txt", scores);
    ASSERT_EQ(
        folder_
            .run(tavo_program(), {"--in", "g.tavo", "--out", "r.csv", "--regression", "logistic", "--tidy",
                                  "big.tsv", "--thread", "8", "--block", "8", "--device", "cpu"})
            .status,
        0);
  }

  RunResult run_with(int kilobytes, const Words& words, const std::filesystem::path& program) const {
    // Small stacks: what the threads compute with, not their stacks, is what memory is too little for.
    const std::string limited =
        "ulimit -s 512; ulimit -v " + std::to_string(kilobytes) + "; exec \"$0\" \"$@\"";
    // A run that waits for ever has status 124.
    return folder_.run("/usr/bin/timeout", Words{"120", "/bin/sh", "-c", limited, program.string()} + words);
  }

  FaultFolder folder_;
};

// The least memory in steps of a kilobyte, to a hundredth, with which the program does what the words say.
TEST_P(LimitedRuns, EndWithAMessage) {
  const LimitedRun run = limited_runs()[GetParam()];
  const auto works = [&](int kilobytes, const Words& words) {
    folder_.remove("out");
    return run_with(kilobytes, words, run.program).status == 0;
  };
  ASSERT_TRUE(works(4 << 20, run.words));
  const std::string whole = folder_.read("out");
  const auto least = [&](const Words& words) {
    int below = 1 << 10;
    int enough = 4 << 20;
    while (enough - below > enough / 100) {
      const int middle = below + (enough - below) / 2;
      (works(middle, words) ? enough : below) = middle;
    }
    return enough;
  };
  // Below this the program itself cannot be loaded, which the system says.
  const int lowest = least({"--version"});
  const int enough = least(run.words);
  int failed = 0;
  for (int step = 0; step < kSteps; ++step) {
    const int kilobytes =
        lowest + static_cast<int>(static_cast<int64_t>(enough + enough / 20 - lowest) * step / (kSteps - 1));
    folder_.remove("out");
    const RunResult result = run_with(kilobytes, run.words, run.program);
    const std::string left = folder_.exists("out") ? folder_.read("out") : "";
    ASSERT_EQ(unclean(result), "") << kilobytes << " KiB";
    if (result.status == 0) {
      ASSERT_EQ(left.size() + 100 > whole.size(), true)
          << kilobytes << " KiB: " << left.size() << " bytes of " << whole.size();
      continue;
    }
    ++failed;
    ASSERT_TRUE(result.status == 1 || result.status == 255) << kilobytes << " KiB: " << result.status;
    ASSERT_TRUE(result.err.find("memory") != std::string::npos ||
                result.err.find("thread") != std::string::npos)
        << kilobytes << " KiB\n"
        << result.err;
    ASSERT_TRUE(left.empty()) << kilobytes << " KiB: " << left.substr(0, 200);
  }
  std::cout << run.name << ": " << failed << " of " << kSteps << " steps from " << lowest << " to "
            << enough + enough / 20 << " KiB failed\n";
}

INSTANTIATE_TEST_SUITE_P(Kinds, LimitedRuns, testing::Range(size_t{0}, limited_runs().size()),
                         [](const auto& run) { return limited_runs()[run.param].name; });

}  // namespace
}  // namespace tavo_test
