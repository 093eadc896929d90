// SPDX-License-Identifier: Apache-2.0
//
// Full disks, closed pipes and lost folders: a message, status 1, and no file that looks whole. A limit on
// the size of files stands for a full disk, since it needs no rights and fails at the same place.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

constexpr int kBlock = 512;

std::string command_of(const std::filesystem::path& program, const Words& words) {
  std::string command = program.string();
  for (const std::string& word : words) {
    command += " " + word;
  }
  return command;
}

RunResult shell(const std::string& command, const std::filesystem::path& folder,
                const Environment& environment = {}) {
  return run_program("/bin/sh", {"-c", command}, folder, environment);
}

// Runs the program where no file may be larger. Standard output is no file.
RunResult with_limit(size_t bytes, const std::filesystem::path& program, const Words& words,
                     const std::filesystem::path& folder, const Environment& environment = {}) {
  return shell(
      "ulimit -f " + std::to_string(bytes / kBlock) + "; exec " + command_of(program, words) + " > /dev/null",
      folder, environment);
}

// Runs the program and removes the folder "d" in it as soon as `ready` says so.
RunResult losing_folder(const std::filesystem::path& program, const Words& words,
                        const std::filesystem::path& folder, const std::function<bool()>& ready) {
  return interrupt_program_when(
      program, words, folder, {{"TAVO_SIMD", "scalar"}},
      [&] {
        const bool now = ready();
        if (now) {
          std::filesystem::remove_all(folder / "d");
        }
        return now;
      },
      0);
}

class LostWrites : public ::testing::Test {
 protected:
  static void expect_failure(const RunResult& result, const std::string& what) {
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_GE(notices_with(result, {what}), 1) << result.err;
  }

  CliFolder folder_{balanced_data(60, 30)};
};

TEST_F(LostWrites, OfAResult) {
  for (const Words& words :
       {Words{}, Words{"--mode", "0", "--cv", "3"}, Words{"--mode", "2"}, Words{"--mode", "3"},
        Words{"--regression", "logistic"}, Words{"--regression", "linear"},
        Words{"--regression", "linear", "--checkpoint", "ck"}}) {
    const RunResult result = with_limit(2 * kBlock, tavo_program(), mdr_words() + words, folder_.path(""));
    expect_failure(result, "cannot write ");
    EXPECT_TRUE(contains(result.err, "File too large")) << result.err;
    EXPECT_EQ(read_file(folder_.path("r.csv")), "");
    EXPECT_EQ(folder_.names_with(".tmp"), Words{});
  }
}

TEST_F(LostWrites, OfATidyTable) {
  ASSERT_EQ(folder_.run_mdr({"--tidy", "t.tsv"}).status, 0);
  const size_t size = read_file(folder_.path("r.csv")).size();
  const size_t limit = (size / kBlock + 2) * kBlock;
  ASSERT_GT(read_file(folder_.path("t.tsv")).size(), limit);
  std::filesystem::remove(folder_.path("t.tsv"));
  const RunResult result =
      with_limit(limit, tavo_program(), mdr_words() + Words{"--tidy", "t.tsv"}, folder_.path(""));
  expect_failure(result, "cannot write t.tsv: File too large");
  EXPECT_FALSE(folder_.exists("t.tsv"));
  EXPECT_NEAR(static_cast<double>(read_file(folder_.path("r.csv")).size()), static_cast<double>(size), 40.0);
}

// The result is what the run is for: without its checkpoint it goes on, and says so once.
TEST_F(LostWrites, OfACheckpoint) {
  const Words words = mdr_words() + Words{"--mode", "3", "--order", "3", "--top", "4"};
  const RunResult result = with_limit(16384, tavo_program(), words + Words{"--checkpoint", "ck"},
                                      folder_.path(""), {{"TAVO_CHECKPOINT_SECONDS", "0"}});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(notices_with(result, {"the checkpoint is not up to date: cannot write ck: File too large"}), 1)
      << result.err;
  EXPECT_GT(folder_.lines("r.csv").size(), 20u);
  EXPECT_EQ(folder_.names_with("ck"), Words{});
}

TEST_F(LostWrites, OfListFiles) {
  Words words = mdr_words();
  words[1] = folder_.path("g.dat");
  words[3] = folder_.path("r.csv");
  const RunResult result =
      shell("mkdir d; cd d; rmdir ../d; exec " + command_of(tavo_program(), words), folder_.path(""));
  expect_failure(result, "the list files in the working directory are incomplete: cannot create [");
  EXPECT_GT(folder_.lines("r.csv").size(), 20u);
}

TEST_F(LostWrites, IntoAFolderThatGoesAway) {
  const CliFolder folder(balanced_data(60, 400));
  std::filesystem::create_directory(folder.path("d"));
  const RunResult result =
      losing_folder(tavo_program(), mdr_words() + Words{"--order", "3", "--out", "d/r.csv"}, folder.path(""),
                    [&] { return folder.exists("d/r.csv"); });
  expect_failure(result, "cannot create d/r.csv: No such file or directory");
  EXPECT_FALSE(folder.exists("d"));
}

// Regressions are fast, but every item prints a line here: more than a pipe holds, which nobody reads before
// the folder has gone.
TEST_F(LostWrites, OfRegressionsIntoAFolderThatGoesAway) {
  const CliFolder many(balanced_data(60, 4000));
  const CliFolder few(balanced_data(60, 150));
  for (const auto& [folder, words] : {std::pair(&many, Words{"--regression", "linear"}),
                                      std::pair(&few, Words{"--regression", "logistic", "--order", "2"})}) {
    std::filesystem::create_directory(folder->path("d"));
    ASSERT_EQ(mkfifo(folder->path("lines").c_str(), 0600), 0);
    const Words all = mdr_words() + words +
                      Words{"--thread", "1", "--block", "1", "--precision", "double", "--out", "d/r.csv"};
    const RunResult result =
        shell(command_of(tavo_program(), all) +
                  " > lines & exec 3< lines; while [ ! -e d/r.csv ] && kill -0 $!; do sleep 0.01; done; "
                  "rm -r d; cat <&3 > read; wait $!",
              folder->path(""));
    expect_failure(result, "cannot create d/r.csv: No such file or directory");
    EXPECT_GT(read_file(folder->path("read")).size(), size_t{100000});
    EXPECT_FALSE(folder->exists("d"));
  }
}

// More than a pipe holds, of which nobody reads anything.
TEST_F(LostWrites, IntoAPipeThatIsClosed) {
  ASSERT_EQ(mkfifo(folder_.path("pipe").c_str(), 0600), 0);
  for (const Words& words : {Words{"--out", "pipe"}, Words{"--tidy", "pipe"}}) {
    const RunResult result =
        shell("(exec 3< pipe; exec 3<&-) & " +
                  command_of(tavo_program(), mdr_words() + Words{"--top", "400"} + words) +
                  "; status=$?; wait; exit $status",
              folder_.path(""));
    expect_failure(result, "cannot write pipe: Broken pipe");
  }
}

TEST_F(LostWrites, OfAnAnswer) {
  for (const auto& program : {tavo_program(), convert_program(), score_program(), simulate_program()}) {
    const RunResult limited =
        shell("ulimit -f 1; exec " + command_of(program, {"--help"}) + " > help", folder_.path(""));
    EXPECT_EQ(limited.status, 1) << program;
    EXPECT_TRUE(contains(limited.err, "standard output")) << limited.err;
    EXPECT_EQ(shell("exec " + command_of(program, {"--help"}) + " > /dev/full", folder_.path("")).status, 1);
    const RunResult closed = shell(
        "(sleep 0.1; " + command_of(program, {"--help"}) + "; echo $? > status) | true", folder_.path(""));
    EXPECT_EQ(read_file(folder_.path("status")), "1\n");
    EXPECT_TRUE(contains(closed.err, "standard output")) << closed.err;
  }
}

// The companion programs: nothing stands under the names that they were to write.
TEST_F(LostWrites, OfCompanions) {
  ASSERT_EQ(
      run_program(simulate_program(), {"--out", "big", "--samples", "200", "--snps", "500"}, folder_.path(""))
          .status,
      0);
  const struct {
    std::filesystem::path program;
    Words words;
  } cases[] = {
      {simulate_program(), {"--out", "d/x", "--samples", "200", "--snps", "500"}},
      {simulate_program(), {"--make-bed", "d/x", "--samples", "200", "--snps", "500"}},
      {simulate_program(),
       {"--out", "d/y", "--truth", "d/x", "--samples", "5", "--snps", "9", "--model",
        "maf=0.3,heritability=0.001,order=4"}},
      {convert_program(), {"--in", "big", "--out", "d/x"}},
      {convert_program(), {"--in", "big", "--out", "d/x", "--transpose", "1"}},
      {convert_program(), {"--in", "big", "--make-bed", "d/x"}},
      {score_program(), {"--in", "big", "--out", "d/x"}},
  };
  for (const auto& one : cases) {
    const std::string what = command_of(one.program.filename(), one.words);
    std::filesystem::create_directory(folder_.path("d"));
    const RunResult result = with_limit(kBlock, one.program, one.words, folder_.path(""));
    EXPECT_EQ(result.status, 1) << what;
    EXPECT_TRUE(contains(result.err, one.program.filename().string() + ": cannot write "))
        << what << result.err;
    EXPECT_TRUE(std::filesystem::is_empty(folder_.path("d"))) << what;
    std::filesystem::remove_all(folder_.path("d"));
  }
}

TEST_F(LostWrites, OfCompanionsIntoAFolderThatGoesAway) {
  using Clock = std::chrono::steady_clock;
  std::filesystem::create_directory(folder_.path("d"));
  const Clock::time_point started = Clock::now();
  // It is at work for longer than that, and it makes no difference when the folder goes.
  const RunResult result = losing_folder(
      simulate_program(), {"--out", "d/x", "--samples", "3000", "--snps", "20000"}, folder_.path(""),
      [&] { return Clock::now() - started > std::chrono::milliseconds(200); });
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "tavo-simulate: cannot create d/x: No such file or directory\n");
}

}  // namespace
}  // namespace tavo_test
