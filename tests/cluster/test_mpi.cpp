// SPDX-License-Identifier: Apache-2.0
//
// Whole runs of several ranks by mpirun, all on this machine: their files are those of one process, and a
// rank that is lost ends the job with a message that names it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

namespace fs = std::filesystem;

// More ranks than processors, and root in containers.
const Environment kAnywhere{{"OMPI_ALLOW_RUN_AS_ROOT", "1"},
                            {"OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1"},
                            {"OMPI_MCA_rmaps_base_oversubscribe", "1"},
                            {"OMPI_MCA_btl_vader_single_copy_mechanism", "none"}};

// That environment and more.
Environment anywhere_with(const Environment& more) {
  Environment all = kAnywhere;
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

Words ranks_of(int n, const Words& words) {
  return Words{"-n", std::to_string(n), tavo_program().string()} + words;
}

// The lines of a result file but for its time.
Words lasting_lines(const fs::path& path) {
  Words lines = split_lines(read_file(path));
  std::erase_if(lines, [](const std::string& line) { return begins_with(line, "Total time,"); });
  for (std::string& line : lines) {
    // The program's name in front of the options.
    line = begins_with(line, "Command,") ? line.substr(line.find(" --")) : line;
  }
  return lines;
}

std::string covariate_text(int n_samples) {
  std::string text = "FID\tIID\tage\n";
  for (int i = 0; i < n_samples; ++i) {
    text += "f\ti\t" + (i % 29 == 3 ? "NA" : std::to_string(0.01 * (i * 37 % 100))) + "\n";
  }
  return text;
}

struct Kind {
  const char* name;
  int ranks;
  Words words;
};

const Kind kKinds[] = {
    {"Search", 4, {"--measure", "gamma", "--order", "2-3"}},
    {"ScoreBased", 2, {"--measure", "ba", "--order", "2", "--score", "scores.txt"}},
    {"AboveThreshold", 2, {"--measure", "ba", "--order", "2", "--mode", "0", "--block", "16"}},
    {"Permutations", 2, {"--measure", "ba", "--order", "2", "--permutations", "5", "--seed", "3"}},
    {"PermutationsOfScores",
     3,
     {"--measure", "ba", "--order", "1-2", "--score", "scores.txt", "--permutations", "40", "--stop-after",
      "4"}},
    {"Exhaustive", 2, {"--measure", "ba", "--order", "2", "--mode", "3"}},
    {"LogisticPairs", 2, {"--regression", "logistic", "--order", "2"}},
    {"Logistic", 4, {"--regression", "logistic", "--covariate", "cov.txt", "--shared-input", "1"}},
    {"Linear", 4, {"--regression", "linear"}},
};

class Jobs : public testing::TestWithParam<Kind> {
 protected:
  Jobs() : folder_(balanced_data(90, 70, 0.01)) {
    std::string scores = "score\n";
    for (int i = 0; i < 90; ++i) {
      scores += std::to_string(0.001 * (i * 7919 % 1000) - 0.5) + "\n";
    }
    folder_.write("scores.txt", scores);
    folder_.write("cov.txt", covariate_text(90));
  }

  std::string read(const std::string& name) const {
    return folder_.exists(name) ? read_file(folder_.path(name)) : "none";
  }

  CliFolder folder_;
};

TEST_P(Jobs, LeaveTheFilesOfOneProcess) {
  const Words words = Words{"--in",     "g.dat", "--out",   "r.csv", "--tidy", "r.tsv", "--cv",     "3",
                            "--thread", "8",     "--block", "2",     "--gpu",  "2",     "--device", "cpu"} +
                      GetParam().words;
  ASSERT_EQ(folder_.run(words).status, 0);
  const Words alone = lasting_lines(folder_.path("r.csv"));
  const std::string tidy = read("r.tsv");
  const std::string null_values = read("r.csv.permutations.tsv");
  for (const char* name : {"r.csv", "r.tsv", "r.csv.permutations.tsv"}) {
    fs::remove(folder_.path(name));
  }
  const RunResult job = run_program(TAVO_MPIRUN, ranks_of(GetParam().ranks, words), folder_.path(""),
                                    anywhere_with({{"TAVO_RANK_DELAYS", "4"}}));
  ASSERT_EQ(job.status, 0) << job.err;
  EXPECT_EQ(notices_with(job, {std::to_string(GetParam().ranks) + " ranks on 1 host"}), 1) << job.err;
  EXPECT_EQ(lasting_lines(folder_.path("r.csv")), alone);
  EXPECT_EQ(read("r.tsv"), tidy);
  EXPECT_EQ(read("r.csv.permutations.tsv"), null_values);
  // Only rank 0 speaks.
  EXPECT_EQ(job.out.find("## tavo complete"), job.out.rfind("## tavo complete"));
}

INSTANTIATE_TEST_SUITE_P(Kinds, Jobs, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return kind.param.name; });

TEST(JobsOfRefusedOptions, EndWithOneMessage) {
  const CliFolder folder;
  const RunResult job = run_program(TAVO_MPIRUN, ranks_of(3, {"--in", "g.dat", "--shared-input", "2"}),
                                    folder.path(""), kAnywhere);
  EXPECT_EQ(job.status, 1);
  const size_t first = job.out.find("Invalid value `2` of --shared-input");
  EXPECT_NE(first, std::string::npos) << job.out;
  EXPECT_EQ(job.out.find("Invalid value", first + 1), std::string::npos);
}

// As a wrong launcher leaves it: processes that MPI knows nothing of.
TEST(LaunchersOfAnotherMpi, AreRefusedOnceForAllProcesses) {
  const CliFolder folder(balanced_data(20, 5));
  for (const char* rank : {"0", "1"}) {
    const RunResult process = folder.run(mdr_words(), {{"PMI_RANK", rank}, {"PMI_SIZE", "2"}});
    EXPECT_EQ(process.status, 1);
    EXPECT_EQ(notices_with(process, {"the launcher has started 2 processes, but MPI knows of one"}),
              *rank == '0' ? 1 : 0)
        << process.err;
    EXPECT_FALSE(folder.exists("r.csv"));
  }
  EXPECT_EQ(folder.run(mdr_words(), {{"PMI_RANK", "0"}, {"PMI_SIZE", "1"}}).status, 0);
}

TEST(RanksWithOtherArguments, EndTheJob) {
  const CliFolder folder(balanced_data(20, 5));
  std::string command = "exec " + tavo_program().string();
  for (const std::string& word : mdr_words()) {
    command += " " + word;
  }
  const RunResult job =
      run_program(TAVO_MPIRUN, {"-n", "2", "sh", "-c", command + " --top $((5 + OMPI_COMM_WORLD_RANK))"},
                  folder.path(""), kAnywhere);
  EXPECT_EQ(job.status, 255);
  EXPECT_EQ(
      notices_with(job, {"rank 1 (", "): was started with other arguments than rank 0, or is another build"}),
      1)
      << job.err;
  EXPECT_FALSE(folder.exists("r.csv"));
}

// The process that is this rank of a job in the folder; 0 when there is none yet.
pid_t process_of(int rank, const fs::path& folder) {
  const std::string wanted = "OMPI_COMM_WORLD_RANK=" + std::to_string(rank);
  std::error_code gone;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", gone)) {
    if (fs::read_symlink(entry.path() / "cwd", gone) != folder) {
      continue;
    }
    std::ifstream file(entry.path() / "environ", std::ios::binary);
    for (std::string variable; std::getline(file, variable, '\0');) {
      if (variable == wanted) {
        return static_cast<pid_t>(std::stol(entry.path().filename()));
      }
    }
  }
  return 0;
}

class LostRanks : public testing::Test {
 protected:
  LostRanks() : folder_(balanced_data(150, 220)) {}

  // Runs so many ranks, and sends the signal to the last one when the run has kept a checkpoint.
  RunResult run_and_signal(int ranks, int signal) const {
    const fs::path folder = fs::canonical(folder_.path(""));
    const auto kept = [&] { return folder_.exists("ck") ? read_file(folder_.path("ck")) : ""; };
    const std::string before = kept();
    const auto send = [&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      const pid_t process = kept() != before ? process_of(ranks - 1, folder) : 0;
      return process != 0 && kill(process, signal) == 0;
    };
    // mpirun itself gets no signal.
    return interrupt_program_when(TAVO_MPIRUN, ranks_of(ranks, words_), folder_.path(""), environment_, send,
                                  0);
  }

  CliFolder folder_;
  const Words words_ = mdr_words() + Words{"--order", "3", "--measure", "gamma", "--checkpoint", "ck"};
  // Slow enough that there is something left to do.
  const Environment environment_ =
      anywhere_with({{"TAVO_SIMD", "scalar"}, {"TAVO_CHECKPOINT_SECONDS", "0"}, {"TAVO_RANK_SILENCE", "2"}});
};

TEST_F(LostRanks, EndTheJobAndAnyNumberOfRanksGoesOn) {
  ASSERT_EQ(folder_.run(words_, environment_).status, 0);
  const Words whole = lasting_lines(folder_.path("r.csv"));
  for (const int ranks : {3, 2}) {
    const RunResult killed = run_and_signal(ranks, SIGKILL);
    EXPECT_NE(killed.status, 0);
    EXPECT_GE(
        notices_with(killed, {"rank " + std::to_string(ranks - 1) + " (", ") has ended before the job"}), 1)
        << killed.err;
    ASSERT_TRUE(folder_.exists("ck"));
  }
  const RunResult job = run_program(TAVO_MPIRUN, ranks_of(4, words_), folder_.path(""), environment_);
  ASSERT_EQ(job.status, 0) << job.err;
  EXPECT_EQ(notices_with(job, {"are known from the checkpoint"}), 1) << job.err;
  EXPECT_EQ(lasting_lines(folder_.path("r.csv")), whole);
  EXPECT_FALSE(folder_.exists("ck"));
}

TEST_F(LostRanks, ThatHangAreNoticedByTheirSilence) {
  const RunResult job = run_and_signal(2, SIGSTOP);
  EXPECT_EQ(job.status, 255);
  EXPECT_EQ(notices_with(job, {"rank 1 (", "has given no sign of life for 2 seconds"}), 1) << job.err;
  EXPECT_TRUE(folder_.exists("ck"));
}

}  // namespace
}  // namespace tavo_test
