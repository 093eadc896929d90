// SPDX-License-Identifier: Apache-2.0
//
// Runs that are ended by a signal, and runs that lose their standard output.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

using Clock = std::chrono::steady_clock;

// From the signal to the end, also on a busy machine and under a sanitizer. Unhurried runs take minutes.
constexpr std::chrono::seconds kPatience{20};

// Enough SNPs that no run comes to its end.
class Signals : public ::testing::Test {
 protected:
  void expect_interrupted(const Words& words, int signal, const char* name,
                          const std::string& file = "r.csv") const {
    const Clock::time_point started = Clock::now();
    const RunResult result =
        interrupt_program(tavo_program(), mdr_words() + words, folder_.path(""), file, signal);
    EXPECT_LT(Clock::now() - started, kPatience);
    EXPECT_EQ(result.status, 128 + signal);
    const std::string line = std::string("tavo: interrupted by ") + name + "; no result was written\n";
    EXPECT_TRUE(result.err.ends_with(line)) << result.err;
    EXPECT_EQ(result.err.find("interrupted"), result.err.size() - line.size() + 6);
    EXPECT_FALSE(contains(result.out, "complete")) << result.out;
    EXPECT_EQ(folder_.names_with(""), (std::vector<std::string>{"g.dat"}));
  }

  // The run waits for more from the file `pipe`, to which the shell command has written. Opening it for
  // writing waits for the program to open it, too; half a second later the program is reading.
  void expect_interrupted_at_pipe(const std::string& command, const std::string& words) const {
    ASSERT_EQ(mkfifo(folder_.path("pipe").c_str(), 0600), 0);
    const RunResult result =
        interrupt_program("/bin/sh",
                          {"-c", "(exec > pipe; " + command +
                                     "; sleep 0.5; echo > ready; exec sleep 60) & echo $! > sleeper; exec " +
                                     tavo_program().string() + " " + words +
                                     " --out r.csv --measure ba --thread 8 --block 2 --device cpu"},
                          folder_.path(""), "ready", SIGTERM);
    kill(std::stoi(read_file(folder_.path("sleeper"))), SIGKILL);
    EXPECT_EQ(result.status, 128 + SIGTERM);
    EXPECT_TRUE(result.err.ends_with("tavo: interrupted by SIGTERM; no result was written\n")) << result.err;
  }

  CliFolder folder_{balanced_data(64, 4000)};
};

TEST_F(Signals, EndASearch) {
  expect_interrupted({"--order", "3"}, SIGINT, "SIGINT");
  expect_interrupted({"--order", "3", "--tie", "1"}, SIGTERM, "SIGTERM");
}

// timeout signals the process, and then its group.
TEST_F(Signals, ThatComeTwiceAtOnceAreOne) {
  const auto run_for_a_second = [&](const char* signal, const Words& words) {
    return run_program("/usr/bin/timeout",
                       Words{"-s", signal, "1", tavo_program().string()} + mdr_words() + words,
                       folder_.path(""));
  };
  for (const char* signal : {"INT", "TERM", "HUP"}) {
    const RunResult result =
        run_for_a_second(signal, {"--order", "3", "--checkpoint", std::string("ck") + signal});
    EXPECT_EQ(notices_with(result, {std::string("interrupted by SIG") + signal}), 1) << result.err;
    EXPECT_TRUE(folder_.exists(std::string("ck") + signal));
  }
}

// However large the launches are: a checkpoint has what was fitted before them.
TEST_F(Signals, LoseLittleOfARegressionWithOneLaunch) {
  const Words words = mdr_words() + Words{"--regression", "logistic", "--order",      "2", "--thread", "1024",
                                          "--block",      "8192",     "--checkpoint", "ck"};
  const Words command = Words{"-s", "INT", "3", tavo_program().string()} + words;
  ASSERT_EQ(
      notices_with(run_program("/usr/bin/timeout", command, folder_.path("")), {"ck holds what is done"}), 1);
  const RunResult again = run_program("/usr/bin/timeout", command, folder_.path(""));
  EXPECT_EQ(notices_with(again, {"fits are known from the checkpoint"}), 1) << again.err;
  EXPECT_FALSE(contains(again.err, "tavo: 0 of ")) << again.err;
}

TEST_F(Signals, EndASearchThatHasLeftListFiles) {
  expect_interrupted({"--order", "1-4", "--top", "3"}, SIGINT, "SIGINT", "[");
}

TEST_F(Signals, EndARunAboveAThreshold) {
  expect_interrupted({"--order", "3", "--mode", "0"}, SIGINT, "SIGINT");
}

TEST_F(Signals, EndAnExhaustiveRun) {
  expect_interrupted({"--order", "3", "--mode", "2"}, SIGINT, "SIGINT");
  expect_interrupted({"--order", "3", "--mode", "3"}, SIGTERM, "SIGTERM");
}

TEST_F(Signals, EndAScoreBasedSearch) {
  std::string scores = "score\n";
  for (int i = 0; i < 64; ++i) {
    scores += i % 2 == 0 ? "0.5\n" : "-0.25\n";
  }
  folder_.write("s", scores);
  const RunResult result =
      interrupt_program(tavo_program(), mdr_words() + Words{"--order", "3", "--score", "s"}, folder_.path(""),
                        "r.csv", SIGTERM);
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_EQ(folder_.names_with(""), (std::vector<std::string>{"g.dat", "s"}));
}

TEST_F(Signals, EndRegressions) {
  expect_interrupted({"--regression", "logistic", "--order", "2", "--tidy", "t.tsv"}, SIGTERM, "SIGTERM");
  // Two SNPs in a batch, each with a line, and many of them: slow enough to be caught.
  const Words slow = {"--thread", "1", "--block", "1", "--tidy", "t.tsv", "--precision", "double"};
  folder_.write("g.dat", normal_file(balanced_data(64, 60000)));
  expect_interrupted(Words{"--regression", "linear"} + slow, SIGINT, "SIGINT");
}

// While the data are read, what stands under the name of the result is not touched.
TEST_F(Signals, EndTheReadingOfAPipe) {
  folder_.write("r.csv", "an older result\n");
  expect_interrupted_at_pipe("true", "--in pipe");
  EXPECT_EQ(read_file(folder_.path("r.csv")), "an older result\n");
}

// They have a reader of their own.
TEST_F(Signals, EndTheReadingOfScoresFromAPipe) {
  expect_interrupted_at_pipe("echo score", "--in g.dat --score pipe");
  EXPECT_FALSE(folder_.exists("r.csv"));
}

// All genotypes are there, but whoever wrote them holds the pipe open; and nobody reads the table.
TEST_F(Signals, EndTheWaitForTheEndOfAPipe) {
  ASSERT_EQ(mkfifo(folder_.path("table").c_str(), 0600), 0);
  expect_interrupted_at_pipe("cat g.dat", "--in pipe --tidy table");
}

// Whoever reads standard output may go away, or the disk it goes to be full: the result is written all the
// same, and the status says that something is missing.
TEST(LostOutput, DoesNotCostTheResult) {
  const CliFolder folder;
  std::string words;
  for (const std::string& word : mdr_words()) {
    words += " " + word;
  }
  const RunResult whole = folder.run_mdr({"--order", "1-2"});
  ASSERT_EQ(whole.status, 0);
  const size_t n_lines = folder.lines("r.csv").size();
  for (const std::string sink : {"| true", "> /dev/full"}) {
    std::filesystem::remove(folder.path("r.csv"));
    const RunResult result = run_program(
        "/bin/sh",
        {"-c", "(sleep 0.2; " + tavo_program().string() + words + " --order 1-2; echo $? > status) " + sink},
        folder.path(""));
    EXPECT_EQ(folder.lines("r.csv").size(), n_lines) << sink;
    EXPECT_EQ(read_file(folder.path("status")), "1\n") << sink;
    EXPECT_TRUE(contains(result.err, "tavo: standard output could not be written to its end")) << result.err;
  }
}

TEST(LostOutput, MakesAnAnswerAFailure) {
  const CliFolder folder;
  for (const std::string question : {"--help", "--version"}) {
    const RunResult result = run_program(
        "/bin/sh", {"-c", tavo_program().string() + " " + question + " > /dev/full"}, folder.path(""));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "tavo: standard output could not be written to its end\n");
  }
}

TEST(ToolSignals, EndASimulation) {
  const TempDir folder;
  const RunResult result =
      interrupt_writing(simulate_program(), {"--make-bed", "d", "--samples", "5000", "--snps", "500000"},
                        folder.path(), SIGINT);
  EXPECT_EQ(result.status, 128 + SIGINT);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "tavo-simulate: interrupted by SIGINT; no result was written\n");
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(ToolSignals, EndAConversion) {
  const TempDir folder;
  const Words words = {"--out", "d", "--samples", "5000", "--snps", "20000"};
  ASSERT_EQ(run_program(simulate_program(), words, folder.path()).status, 0);
  const RunResult result = interrupt_writing(
      convert_program(), {"--in", "d", "--out", "e", "--make-bed", "e"}, folder.path(), SIGTERM);
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_EQ(result.err, "tavo-convert: interrupted by SIGTERM; no result was written\n");
  EXPECT_FALSE(std::filesystem::exists(folder / "e"));
  EXPECT_FALSE(std::filesystem::exists(folder / "e.bed"));
}

}  // namespace
}  // namespace tavo_test
