// SPDX-License-Identifier: Apache-2.0
//
// Whole runs: standard output line by line, standard error, and the list files left in the working folder.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sched.h>
#include <thread>

#include <map>
#include <regex>
#include <string>
#include <vector>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

// The lines of a text without the "." and "*" marks that workers print in front of them.
struct Output {
  std::vector<std::string> lines;
  int dots = 0;
  int stars = 0;
};

Output without_marks(const std::string& text) {
  Output output;
  for (const std::string& line : split_lines(text)) {
    size_t begin = 0;
    while (begin < line.size() && (line[begin] == '.' || line[begin] == '*')) {
      (line[begin] == '.' ? output.dots : output.stars) += 1;
      ++begin;
    }
    output.lines.push_back(line.substr(begin));
  }
  return output;
}

// Numbers with a fraction stand for times, and those of the device depend on the machine.
std::string masked(std::string line) {
  line = std::regex_replace(line, std::regex("[0-9]+\\.[0-9]{3}(?![0-9])"), "T.TTT");
  line = std::regex_replace(line, std::regex("[0-9]+\\.[0-9]{4}(?![0-9])"), "T.TTTT");
  line = std::regex_replace(line, std::regex("\\], -?[0-9]+ regs"), "], R regs");
  return std::regex_replace(line, std::regex("^Shared memory -?[0-9]+ bytes$"), "Shared memory S bytes");
}

bool is_worker_line(const std::string& line) {
  static const std::regex pattern(
      "Thread [0-9]+ start\\.\\.\\.|(SET_DEVICE|SEND_DATA|COPY_BASEDATA) [0-9]+ END \\(.*|[0-9]+ INIT END "
      "\\(.*");
  return std::regex_match(line, pattern);
}

std::vector<std::string> worker_start(int worker) {
  const std::string g = std::to_string(worker);
  return {"Thread " + g + " start...", "SET_DEVICE " + g + " END (T.TTT ms taken)",
          "SEND_DATA " + g + " END (T.TTT ms taken)", "COPY_BASEDATA " + g + " END (T.TTT ms taken)",
          g + " INIT END (T.TTT ms taken)"};
}

std::vector<std::string> loops(int first, int count, int combinations) {
  std::vector<std::string> lines;
  for (int i = first; i < first + count; ++i) {
    const std::string number = std::to_string(i);
    lines.push_back("[" + std::string(8 - number.size(), ' ') + number + " loop] - T.TTT ms");
    lines.push_back("One loop taken T.TTT milliseconds, Pure T.TTT ms,  TOTLOC " +
                    std::to_string(combinations));
  }
  return lines;
}

void expect_whole_output(const RunResult& run, int workers, int folds, const std::vector<std::string>& head,
                         const std::vector<std::string>& all_loops, size_t n_loops) {
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  const Output output = without_marks(run.out);
  std::vector<std::string> others;
  std::vector<std::vector<std::string>> starts(static_cast<size_t>(workers));
  bool loop_seen = false;
  for (const std::string& line : output.lines) {
    const std::string text = masked(line);
    loop_seen = loop_seen || contains(text, " loop] - ");
    if (is_worker_line(text)) {
      EXPECT_FALSE(loop_seen) << "a worker was not ready at the first loop: " << line;
      const int worker = std::stoi(text.substr(text.find_first_of("0123456789")));
      ASSERT_LT(worker, workers) << line;
      starts[static_cast<size_t>(worker)].push_back(text);
    } else {
      others.push_back(text);
    }
  }
  for (int g = 0; g < workers; ++g) {
    EXPECT_EQ(starts[static_cast<size_t>(g)], worker_start(g));
  }
  std::vector<std::string> expected = head;
  expected.push_back("CUDA::SENDBASEDATA ENTER");
  expected.push_back("CUDA::SENDBASEDATA END");
  expected.insert(expected.end(), all_loops.begin(), all_loops.end());
  expected.push_back("Regression method is 0");
  expected.push_back("TAVO Analysis finished!!");
  expected.push_back("Total excuting time is T.TTTT second------------------");
  expected.push_back("## tavo complete");
  expected.push_back("------------------");
  EXPECT_EQ(others, expected) << run.out;
  EXPECT_EQ(output.dots, workers * static_cast<int>(n_loops)) << folds;
  EXPECT_EQ(output.stars, workers * static_cast<int>(n_loops)) << folds;
  EXPECT_LT(run.out.find("CUDA::SENDBASEDATA ENTER"), run.out.find("Thread 0 start..."));
  EXPECT_TRUE(run.out.ends_with("\n"));
}

std::vector<std::string> head_lines(int workers, const std::string& folds_line) {
  return {"Transposed mode deactivated",
          "CUDA is available [" + std::to_string(workers) + " devs], R regs, max thread count is 2, 8",
          "Shared memory S bytes",
          folds_line,
          "Enter to MDR methods...",
          "Label 4 bytes, Row 40, Col 6, Cntblk 1",
          "Allocated 24 bytes"};
}

TEST(RunOutput, LinesOfAWholeRun) {
  const CliFolder folder;
  expect_whole_output(folder.run_mdr(), 2, 10, head_lines(2, "10 cv and start from 0th CV"), loops(0, 10, 15),
                      10);
}

TEST(RunOutput, EveryOrderCountsItsOwnCombinations) {
  const CliFolder folder;
  expect_whole_output(folder.run_mdr({"--order", "1-3", "--cv", "4", "--gpu", "3"}), 3, 4,
                      head_lines(3, "4 cv and start from 0th CV"),
                      loops(0, 4, 6) + loops(4, 4, 15) + loops(8, 4, 20), 12);
}

TEST(RunOutput, FoldsBelowTheFirstAreNotSearched) {
  const CliFolder folder;
  expect_whole_output(folder.run_mdr({"--cv", "5", "--cvfrom", "3"}), 2, 5,
                      head_lines(2, "5 cv and start from 3th CV"), loops(0, 2, 15), 2);
  EXPECT_EQ(folder.names_with("tmp_cv_").size(), 2u);
  EXPECT_EQ(folder.names_with("tmp_cv_3.txt").size(), 1u);
  EXPECT_EQ(folder.names_with("tmp_cv_4.txt").size(), 1u);
}

TEST(RunOutput, StandardErrorNamesWhatRuns) {
  const CliFolder folder;
  EXPECT_EQ(folder.run_mdr({}, {{"TAVO_SIMD", "scalar"}}).err, "tavo: CPU, 2 workers, scalar\n");
  EXPECT_EQ(folder.run_mdr({"--gpu", "1"}, {{"TAVO_SIMD", "scalar"}}).status, 0);
  const RunResult chosen = folder.run_mdr({"--gpu", "3"});
  EXPECT_TRUE(std::regex_match(chosen.err, std::regex("tavo: CPU, 3 workers, [a-z0-9]+\n"))) << chosen.err;
}

TEST(RunOutput, WithoutACountEveryUsableCoreGetsAWorker) {
  const CliFolder folder;
  cpu_set_t cores;
  ASSERT_EQ(sched_getaffinity(0, sizeof(cores), &cores), 0);
  const RunResult run = folder.run_mdr({"--gpu", "-1"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  std::smatch found;
  ASSERT_TRUE(std::regex_search(run.out, found, std::regex("CUDA is available \\[([0-9]+) devs\\]")))
      << run.out;
  const int workers = std::stoi(found[1]);
  EXPECT_GE(workers, 1);
  EXPECT_LE(workers, CPU_COUNT(&cores));
  int started = 0;
  for (const std::string& line : split_lines(run.out)) {
    started += begins_with(line, "Thread ") && line.ends_with(" start...") ? 1 : 0;
  }
  EXPECT_EQ(started, workers);
}

// Lines of the list file of every fold, in the order of the folds.
std::map<int, std::vector<std::string>> list_files(const CliFolder& folder) {
  std::map<int, std::vector<std::string>> lists;
  static const std::regex name_pattern("\\[[0-9]{8}\\]tmp_cv_([0-9]+)\\.txt");
  for (const std::string& name : folder.names_with("tmp_cv_")) {
    std::smatch found;
    EXPECT_TRUE(std::regex_match(name, found, name_pattern)) << name;
    if (found.size() == 2) {
      EXPECT_TRUE(lists.emplace(std::stoi(found[1]), folder.lines(name)).second)
          << "two files of one fold: " << name;
    }
  }
  return lists;
}

// The rows of the report's per-fold block of order 2.
std::vector<std::string> fold_rows(const CliFolder& folder) {
  std::vector<std::string> rows;
  bool in_block = false;
  for (const std::string& line : folder.lines("r.csv")) {
    if (begins_with(line, "<2-Order Combinations of SNPs>")) {
      in_block = true;
    } else if (in_block && begins_with(line, "====")) {
      break;
    } else if (in_block && !begins_with(line, "CV,")) {
      rows.push_back(line);
    }
  }
  return rows;
}

TEST(ListFiles, OneForEveryFoldWithItsRankedCombinations) {
  const CliFolder folder;
  ASSERT_EQ(folder.run_mdr({"--cv", "4", "--top", "3"}).status, 0);
  const auto lists = list_files(folder);
  ASSERT_EQ(lists.size(), 4u);
  static const std::regex line_pattern(
      "([0-9]+),,([0-5]),([0-5]),((?:,(?:-?[0-9]+\\.[0-9]{6}|nan|inf)){20})");
  const std::vector<std::string> rows = fold_rows(folder);
  ASSERT_EQ(rows.size(), 12u);
  for (int fold = 0; fold < 4; ++fold) {
    ASSERT_TRUE(lists.contains(fold)) << fold;
    const std::vector<std::string>& lines = lists.at(fold);
    ASSERT_EQ(lines.size(), 3u) << fold;
    double above = 2.0;
    for (size_t r = 0; r < lines.size(); ++r) {
      std::smatch found;
      ASSERT_TRUE(std::regex_match(lines[r], found, line_pattern)) << lines[r];
      EXPECT_EQ(found[1].str(), std::to_string(r + 1));
      EXPECT_LT(found[2].str(), found[3].str());
      const std::string values = found[4].str();
      // The third value is the training balanced accuracy, by which the list is ranked.
      const double ranked_by = std::stod(split(values, ',').at(3));
      EXPECT_GT(ranked_by, 0.0);
      EXPECT_LE(ranked_by, above);
      above = ranked_by;
      EXPECT_EQ(std::to_string(fold + 1) + ",( rs" + found[2].str() + " rs" + found[3].str() + " )" + values,
                rows[static_cast<size_t>(fold) * 3 + r]);
    }
  }
}

TEST(ListFiles, HoldNoMoreLinesThanThereAreCombinations) {
  const CliFolder folder(balanced_data(40, 3));
  ASSERT_EQ(folder.run_mdr({"--cv", "2"}).status, 0);
  const auto lists = list_files(folder);
  ASSERT_EQ(lists.size(), 2u);
  EXPECT_EQ(lists.at(0).size(), 3u);
  EXPECT_EQ(lists.at(1).size(), 3u);
}

TEST(ListFiles, EveryOrderLeavesItsOwn) {
  const CliFolder folder;
  ASSERT_EQ(folder.run_mdr({"--cv", "3", "--order", "1-2"}).status, 0);
  EXPECT_EQ(folder.names_with("tmp_cv_").size(), 6u);
  for (const char* part : {"tmp_cv_0.txt", "tmp_cv_1.txt", "tmp_cv_2.txt"}) {
    EXPECT_EQ(folder.names_with(part).size(), 2u) << part;
  }
}

std::vector<std::string> shuffled_rows(const Words& words) {
  const CliFolder folder;
  const RunResult run = folder.run_mdr(words);
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  std::vector<std::string> rows = fold_rows(folder);
  for (const auto& [fold, lines] : list_files(folder)) {
    rows.insert(rows.end(), lines.begin(), lines.end());
  }
  return rows;
}

TEST(Shuffling, RepeatsWithASeed) {
  const std::vector<std::string> first = shuffled_rows({"--shuffling", "1", "--seed", "7"});
  ASSERT_EQ(first.size(), 200u);
  EXPECT_EQ(first, shuffled_rows({"--shuffling", "1", "--seed", "7"}));
  EXPECT_NE(first, shuffled_rows({"--shuffling", "1", "--seed", "8"}));
  EXPECT_NE(first, shuffled_rows({}));
}

TEST(Shuffling, ASeedAloneChangesNothing) {
  EXPECT_EQ(shuffled_rows({"--seed", "7"}), shuffled_rows({}));
  EXPECT_EQ(shuffled_rows({"--seed", "7", "--shuffling", "0"}), shuffled_rows({}));
}

TEST(Integers, TextThatIsNoNumberCountsAsZeroWithANotice) {
  const CliFolder folder;
  for (const char* name :
       {"--tie", "--top", "--shuffling", "--cvfrom", "--transpose", "--iter", "--distinct"}) {
    const RunResult run = folder.run_mdr({name, "some"});
    EXPECT_EQ(run.status, 0) << name << run.out;
    EXPECT_EQ(notices_with(run, {name, "counts as 0"}), 1) << name << ": " << run.err;
  }
  const RunResult run = folder.run_mdr({"--transpose", "yes", "--cvfrom", "first"});
  EXPECT_TRUE(begins_with(run.out, "Transposed mode deactivated\n")) << run.out;
  EXPECT_TRUE(has_line(run.out, "10 cv and start from 0th CV")) << run.out;
}

TEST(Integers, ANumberBringsNoNotice) {
  const CliFolder folder;
  const RunResult run = folder.run_mdr({"--tie", "0", "--top", "3", "--cvfrom", "1"});
  for (const char* name : {"--tie", "--top", "--cvfrom"}) {
    EXPECT_EQ(notices_with(run, {name, "counts as 0"}), 0) << run.err;
    EXPECT_EQ(notices_with(run, {name, "is read as"}), 0) << run.err;
  }
}

TEST(Scores, CapTheThreadCountByTheOrder) {
  GenotypeData data = balanced_data(40, 6);
  const CliFolder folder(data);
  std::string scores = "score\n";
  for (int s = 0; s < data.n_samples; ++s) {
    scores += s % 3 == 0 ? "0.5\n" : "-0.25\n";
  }
  folder.write("score.txt", scores);
  const struct {
    Words words;
    std::string count;
  } cases[] = {{{"--order", "2"}, "150"}, {{"--order", "3"}, "50"}, {{"--order", "4"}, "256"}, {{}, "150"}};
  for (const auto& one : cases) {
    const RunResult run = folder.run_mdr(Words{"--score", "score.txt", "--thread", "256"} + one.words);
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "Allocated 24 bytes\nSuccessfully applied score!\nThread count after is " +
                                      one.count + "!\nCUDA::SENDBASEDATA ENTER\n"))
        << run.out;
    EXPECT_TRUE(run.out.ends_with(" second" + kClosingLines)) << run.out;
  }
}

TEST(Scores, AnAbsentFileLeavesThePhenotype) {
  const CliFolder folder;
  ASSERT_EQ(folder.run_mdr().status, 0);
  const std::vector<std::string> plain = fold_rows(folder);
  const RunResult run = folder.run_mdr({"--score", "absent.txt", "--thread", "256"});
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(has_line(run.out, "Can't open score file, use original phenotype...")) << run.out;
  EXPECT_FALSE(contains(run.out, "Thread count after")) << run.out;
  EXPECT_EQ(fold_rows(folder), plain);
}

TEST(Usage, HelpNamesEveryOption) {
  const CliFolder folder;
  const RunResult run = folder.run({"--help"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  for (const char* name :
       {"--in",     "--out",  "--score",     "--covariate", "--transpose", "--distinct", "--regression",
        "--order",  "--cv",   "--cvfrom",    "--gpu",       "--measure",   "--missing",  "--iter",
        "--tie",    "--top",  "--shuffling", "--thread",    "--block",     "--help",     "--version",
        "--device", "--mode", "--seed",      "--progress"}) {
    EXPECT_TRUE(std::regex_search(run.out, std::regex(std::string(name) + "(?![a-z])"))) << name << "\n"
                                                                                         << run.out;
  }
  EXPECT_TRUE(run.out.ends_with("\n"));
  for (const char* keyword :
       {"ba", "accuracy", "homogeneity", "gamma", "tau-b", "tau-c", "somers_d1", "somers_d2", "nmi", "lr",
        "none", "mc", "complete", "available", "logistic", "linear"}) {
    EXPECT_TRUE(contains(run.out, keyword)) << keyword;
  }
}

TEST(Usage, VersionNamesWhatWasBuilt) {
  const CliFolder folder;
  const RunResult run = folder.run({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(std::regex_search(run.out, std::regex("tavo [0-9]+\\.[0-9]+\\.[0-9]+"))) << run.out;
  EXPECT_TRUE(std::regex_search(run.out, std::regex("cpu", std::regex::icase))) << run.out;
  EXPECT_TRUE(contains(run.out, "scalar")) << run.out;
}

TEST(InputFiles, AResultFileThatIsAnInputFileIsRefused) {
  const CliFolder folder;
  const std::string before = read_file(folder.path("g.dat"));
  std::filesystem::create_symlink(folder.path("g.dat"), folder.path("link"));
  for (const char* out : {"g.dat", "./g.dat", "link"}) {
    const RunResult run = folder.run_mdr({"--out", out});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(notices_with(run, {"--out", "g.dat"}), 1) << run.err;
    EXPECT_EQ(read_file(folder.path("g.dat")), before);
  }
}

TEST(ResultFile, APipeGetsTheWholeReport) {
  const CliFolder folder;
  ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
  std::string read;
  std::thread reader([&] { read = read_file(folder.path("pipe")); });
  const RunResult run = folder.run_mdr({"--out", "pipe"});
  reader.join();
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(read, "<<2-Order Best Combination Sets>>")) << read;
}

TEST(ResultFile, KeepsThePermissionsOfTheFileThatItReplaces) {
  const CliFolder folder;
  folder.write("r.csv", "");
  std::filesystem::permissions(folder.path("r.csv"),
                               std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  EXPECT_EQ(folder.run_mdr().status, 0);
  EXPECT_EQ(std::filesystem::status(folder.path("r.csv")).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(ResultFile, OnStandardOutputItFollowsWhatWasPrinted) {
  const RunResult run = CliFolder().run_mdr({"--out", "/dev/stdout"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(begins_with(run.out, "Transposed mode deactivated\n")) << run.out;
  EXPECT_TRUE(contains(run.out, "<<2-Order Best Combination Sets>>"));
}

TEST(OptionValues, NumbersThatDoNotFitAreTheSameInTheRunAndInTheReport) {
  const CliFolder folder;
  const RunResult run = folder.run_mdr({"--tie", "4294967298", "--top", "4294967297"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(notices_with(run, {"--tie", "2147483647"}), 1) << run.err;
  const std::string report = read_file(folder.path("r.csv"));
  EXPECT_TRUE(has_line(report, "11.tie,2147483647"));
  EXPECT_TRUE(has_line(report, "13.number of final significant snps for presentation,2147483647"));
}

}  // namespace
}  // namespace tavo_test
