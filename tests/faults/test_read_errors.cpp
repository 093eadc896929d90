// SPDX-License-Identifier: Apache-2.0
//
// Inputs that cannot be read, or only in part: pipes that close in the middle, folders, files without
// permission, files whose reads fail, and files that shrink while they are read. Each program says so and
// leaves no result.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

#include "tests/faults/fault_folder.h"

namespace tavo_test {
namespace {

// What a pipe can be in place of a file.
enum class Pipe {
  kRefused,     // nothing: the size, or a second look, is needed
  kWhole,       // as good as the file; one that closes early is refused
  kOfSomeRows,  // so is one that closes early, unless between two rows
};

// An input of a program: the words of a run that reads `file`.
struct Input {
  const char* name;
  std::filesystem::path program;
  Words words;
  const char* file;
  Pipe pipe;
  int refusal;  // the status of a run whose input cannot be used
};

std::vector<Input> inputs() {
  const Words tavo = {"--thread", "8", "--block", "2", "--gpu", "1", "--device", "cpu", "--out", "out"};
  const Words search = tavo + Words{"--measure", "ba", "--cv", "2"};
  return {
      // A genotype file that cannot be used ends the run with status 0 and no result.
      {"Genotypes", tavo_program(), search + Words{"--in", "normal.tavo"}, "normal.tavo", Pipe::kWhole, 0},
      {"TransposedGenotypes", tavo_program(),
       search + Words{"--mode", "3", "--transpose", "1", "--in", "transposed.tavo"}, "transposed.tavo",
       Pipe::kWhole, 0},
      {"Covariates", tavo_program(),
       tavo + Words{"--regression", "logistic", "--in", "normal.tavo", "--covariate", "covariates.txt"},
       "covariates.txt", Pipe::kWhole, 1},
      {"Scores", tavo_program(), search + Words{"--in", "normal.tavo", "--score", "scores.txt"}, "scores.txt",
       Pipe::kWhole, 1},
      {"Checkpoint", tavo_program(), search + Words{"--in", "normal.tavo", "--checkpoint", "ck"}, "ck",
       Pipe::kRefused, 1},
      {"Table", convert_program(), {"--in", "table.txt", "--out", "out"}, "table.txt", Pipe::kOfSomeRows, 1},
      {"CompressedTable",
       convert_program(),
       {"--in", "table.txt.gz", "--out", "out"},
       "table.txt.gz",
       Pipe::kWhole,
       1},
      {"Bed", convert_program(), {"--bfile", "plink", "--out", "out"}, "plink.bed", Pipe::kRefused, 1},
      {"Bim", convert_program(), {"--bfile", "plink", "--out", "out"}, "plink.bim", Pipe::kWhole, 1},
      {"Fam", convert_program(), {"--bfile", "plink", "--out", "out"}, "plink.fam", Pipe::kWhole, 1},
      {"Vcf",
       convert_program(),
       {"--vcf", "calls.vcf", "--pheno", "phenotypes.txt", "--out", "out"},
       "calls.vcf",
       Pipe::kOfSomeRows,
       1},
      {"Phenotypes",
       convert_program(),
       {"--vcf", "calls.vcf", "--pheno", "phenotypes.txt", "--out", "out"},
       "phenotypes.txt",
       Pipe::kWhole,
       1},
      {"ConvertedGenotypes",
       convert_program(),
       {"--in", "normal.tavo", "--out", "out"},
       "normal.tavo",
       Pipe::kRefused,
       1},
      {"ScoredGenotypes",
       score_program(),
       {"--in", "normal.tavo", "--out", "out"},
       "normal.tavo",
       Pipe::kRefused,
       1},
      {"Report",
       report_program(),
       {"--in", "t.tsv", "--out", "out", "--format", "json"},
       "t.tsv",
       Pipe::kOfSomeRows,
       1},
  };
}

class Inputs : public testing::TestWithParam<size_t> {
 protected:
  void SetUp() override {
    ASSERT_EQ(folder_.tavo({"--in", "normal.tavo", "--measure", "ba", "--cv", "2", "--tidy", "t.tsv"}).status,
              0);
    if (file() != "ck") {
      whole_ = folder_.read(file());
    }
  }

  Input input() const { return inputs()[GetParam()]; }
  std::string file() const { return input().file; }
  RunResult run() const {
    folder_.remove("out");
    if (geteuid() != 0) {
      return folder_.run(input().program, input().words);
    }
    // Root as who it is, but for the right to read what it has no permission for.
    return folder_.run("/usr/bin/setpriv", Words{"--bounding-set", "-dac_override,-dac_read_search", "--",
                                                 input().program.string()} +
                                               input().words);
  }

  // The run is refused: with words, the status, and without a result.
  void expect_refused(const std::string& why) const {
    const RunResult result = run();
    EXPECT_EQ(unclean(result), "") << why;
    const bool score_file_that_is_none = input().name == std::string("Scores") &&
                                         result.out.find("Can't open score file") != std::string::npos;
    if (score_file_that_is_none) {
      EXPECT_EQ(result.status, 0);  // the run goes on with the classes, and says so
      return;
    }
    EXPECT_EQ(result.status, input().refusal) << why << "\n" << result.out << result.err;
    EXPECT_FALSE(result.out.empty() && result.err.empty()) << why;
    EXPECT_FALSE(folder_.exists("out") && !folder_.read("out").empty()) << why;
  }

  // Runs the program on these words, for at most 20 s, with a pipe in the file's place. When the program has
  // opened the pipe, `opened` is called, and then the bytes are written.
  RunResult run_with_pipe(const Words& words, const std::string& bytes,
                          const std::function<void()>& opened) const {
    std::atomic<bool> over = false;
    std::thread writer([&] {
      // A program that refuses the pipe may close it before the bytes are written. This thread is told so by
      // `write`, not by a signal that would end all tests; the signal of a thread goes with the thread.
      sigset_t broken_pipe;
      sigemptyset(&broken_pipe);
      sigaddset(&broken_pipe, SIGPIPE);
      pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);
      // Not blocking: some formats are refused without a look at the pipe.
      for (int tries = 0; tries < 4000 && !over; ++tries) {
        const int pipe = open(folder_.path(file()).c_str(), O_WRONLY | O_NONBLOCK);
        if (pipe >= 0) {
          opened();
          const ssize_t written = write(pipe, bytes.data(), bytes.size());
          EXPECT_TRUE(written == static_cast<ssize_t>(bytes.size()) || over ||
                      input().pipe == Pipe::kRefused);
          close(pipe);
          return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    });
    const RunResult result = folder_.run("/usr/bin/timeout", Words{"20", input().program.string()} + words);
    over = true;
    writer.join();
    return result;
  }

  FaultFolder folder_;
  std::string whole_;
};

TEST_P(Inputs, ThatAreFolders) {
  folder_.remove(file());
  std::filesystem::create_directory(folder_.path(file()));
  expect_refused("a folder");
}

TEST_P(Inputs, ThatMayNotBeRead) {
  folder_.write(file(), whole_);
  std::filesystem::permissions(folder_.path(file()), std::filesystem::perms::none);
  expect_refused("no permission");
}

// A read of the memory of a process at address 0 fails like a read of a broken disk.
TEST_P(Inputs, WhoseReadsFail) {
  folder_.remove(file());
  std::filesystem::create_symlink("/proc/self/mem", folder_.path(file()));
  expect_refused("reads fail");
}

TEST_P(Inputs, ThatAreEmpty) {
  folder_.write(file(), "");
  expect_refused("empty");
}

// A writer that gives a pipe its first bytes and goes away, or all of them.
TEST_P(Inputs, ThatArePipes) {
  if (file() == "ck") {
    whole_ = "tavo checkpoint\t1\n";
  }
  folder_.remove(file());
  ASSERT_EQ(mkfifo(folder_.path(file()).c_str(), 0600), 0);
  for (const size_t length : {size_t{0}, size_t{1}, whole_.size() / 2, whole_.size() - 3, whole_.size()}) {
    folder_.remove("out");
    const RunResult result = run_with_pipe(input().words, whole_.substr(0, length), [] {});
    ASSERT_NE(result.status, 124) << "it waits for the pipe, " << length << " of " << whole_.size()
                                  << " bytes";
    ASSERT_EQ(unclean(result), "");
    const bool left = folder_.exists("out") && !folder_.read("out").empty();
    if (length == whole_.size() && input().pipe != Pipe::kRefused) {
      EXPECT_EQ(result.status, 0) << result.out << result.err;
      EXPECT_TRUE(left) << result.out << result.err;
    } else if (length < whole_.size() - 3 && input().pipe != Pipe::kOfSomeRows) {
      EXPECT_EQ(result.status, input().refusal) << length << " bytes\n" << result.out << result.err;
      EXPECT_FALSE(left) << length << " bytes";
    } else {
      // Where the last number has lost digits, or a row, that cannot be seen.
      EXPECT_EQ(left, result.status == 0 && input().refusal != 0);
    }
  }
}

// The folder of the result goes while the program waits for its input.
class PipedInputs : public Inputs {};

TEST_P(PipedInputs, LoseTheFolderOfTheResult) {
  folder_.remove(file());
  ASSERT_EQ(mkfifo(folder_.path(file()).c_str(), 0600), 0);
  std::filesystem::create_directory(folder_.path("d"));
  Words words = input().words;
  std::replace(words.begin(), words.end(), std::string("out"), std::string("d/out"));
  const RunResult result = run_with_pipe(words, whole_, [&] { folder_.remove("d"); });
  ASSERT_EQ(unclean(result), "");
  if (input().program == tavo_program()) {
    // Its result must be possible before it begins, and it has words of its own for one that is not.
    EXPECT_NE(result.out.find("Cannot save the text file!!"), std::string::npos) << result.out << result.err;
  } else {
    EXPECT_EQ(result.status, 1) << result.out << result.err;
    EXPECT_NE(result.err.find(": No such file or directory"), std::string::npos) << result.err;
  }
  EXPECT_FALSE(folder_.exists("d"));
}

std::vector<size_t> piped_inputs() {
  std::vector<size_t> piped;
  for (size_t i = 0; i < inputs().size(); ++i) {
    if (inputs()[i].pipe != Pipe::kRefused) {
      piped.push_back(i);
    }
  }
  return piped;
}

std::string name_of(const testing::TestParamInfo<size_t>& input) {
  return inputs()[input.param].name;
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, PipedInputs, testing::ValuesIn(piped_inputs()), name_of);
INSTANTIATE_TEST_SUITE_P(OfEveryKind, Inputs, testing::Range(size_t{0}, inputs().size()), name_of);

// ---- files that shrink while they are read

class ShrinkingFiles : public testing::Test {
 protected:
  ShrinkingFiles() {
    std::mt19937 random(9);
    folder_.write("large.tavo", normal_file(random_data(random, 400, 6000, 0.01)));
    EXPECT_EQ(folder_.run(convert_program(), {"--in", "large.tavo", "--make-bed", "large"}).status, 0);
  }

  // Runs the program and cuts the file in two after a random while, many times.
  void expect_clean(const std::filesystem::path& program, const Words& words, const std::string& file,
                    int refusal) const {
    const std::string whole = folder_.read(file);
    ASSERT_EQ(folder_.run(program, words + Words{"--out", "out"}).status, 0);
    const std::string expected = folder_.read("out");
    std::mt19937 random(13);
    for (int round = 0; round < 12; ++round) {
      folder_.write(file, whole);
      folder_.remove("out");
      const auto wait = std::chrono::microseconds(random() % 20000);
      const RunResult result = interrupt_program_when(
          program, words + Words{"--out", "out"}, folder_.path(""), {},
          [&] {
            std::this_thread::sleep_for(wait);
            std::filesystem::resize_file(folder_.path(file), whole.size() / 2);
            return true;
          },
          0);
      ASSERT_EQ(unclean(result), "");
      const std::string left = folder_.exists("out") ? folder_.read("out") : "";
      if (left.empty()) {
        ASSERT_EQ(result.status, refusal) << result.out << result.err;
      } else {
        ASSERT_EQ(result.status, 0) << result.err;
        ASSERT_EQ(left.size(), expected.size());
      }
    }
  }

  FaultFolder folder_;
};

TEST_F(ShrinkingFiles, OfTheConverter) {
  expect_clean(convert_program(), {"--bfile", "large"}, "large.bed", 1);
  expect_clean(convert_program(), {"--in", "large.tavo", "--transpose", "1"}, "large.tavo", 1);
}

TEST_F(ShrinkingFiles, OfARegression) {
  expect_clean(tavo_program(),
               {"--in", "large.tavo", "--regression", "logistic", "--iter", "1", "--top", "5", "--thread",
                "64", "--block", "64", "--gpu", "1", "--device", "cpu"},
               "large.tavo", 0);
}

}  // namespace
}  // namespace tavo_test
