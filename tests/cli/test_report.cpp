// SPDX-License-Identifier: Apache-2.0
//
// The report of a cross-validated run, line by line.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <regex>
#include <string>
#include <vector>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

const std::string kTime =
    "====================================   Time   =====================================";
const std::string kOptions =
    "====================================  Options  ====================================";
const std::string kResults =
    "====================================  Results  ====================================";
const std::string kBar(79, '=');

const std::string kBestHeader =
    "Rank,Best_Combi,WCVC,Aver_Train_BA,Aver_Test_BA,Aver_Train_Chisq,Aver_Test_Chisq,Aver_Train_Gamma,"
    "Aver_Test_Gamma,Aver_Train_Tau_b,Aver_Test_Tau_b,Aver_Train_Tau_c,Aver_Test_Tau_c,Aver_Train_Somers_dx,"
    "Aver_Test_Somers_dx,Aver_Train_Somers_dy,Aver_Test_Somers_dy,Aver_Train_nmi, Aver_Test_nmi, "
    "Aver_Train_lr, "
    "Aver_Test_lr";
const std::string kFoldHeader =
    "CV,Best_Combi,Train_Acc,Test_Acc,Train_BA,Test_BA,Train_Chisq,Test_Chisq,Train_Gamma,Test_Gamma,Train_"
    "Tau_b,"
    "Test_Tau_b,Train_Tau_c,Test_Tau_c,Train_Somers_dx,Test_Somers_dx,Train_Somers_dy,Test_Somers_dy,Train_"
    "nmi, "
    "Test_nmi, Train_lr, Test_lr";

constexpr size_t kFirstOption = 6;   // line of option 1
constexpr size_t kFirstResult = 29;  // line behind the banner of the results

std::vector<std::string> report_of(const Words& more, const CliFolder& folder = CliFolder()) {
  const RunResult run = folder.run_mdr(more);
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  std::vector<std::string> lines = folder.lines("r.csv");
  EXPECT_GE(lines.size(), kFirstResult) << run.out;
  lines.resize(std::max(lines.size(), kFirstResult));
  return lines;
}

std::string option_line(const std::vector<std::string>& lines, int number) {
  return lines.at(kFirstOption + static_cast<size_t>(number) - 1);
}

std::vector<std::string> result_lines(const std::vector<std::string>& lines) {
  return {lines.begin() + static_cast<std::ptrdiff_t>(kFirstResult), lines.end()};
}

TEST(Report, HeadOfARunWithDefaults) {
  const std::vector<std::string> lines = report_of({});
  std::string command = "Command," + tavo_program().string() + " ";
  for (const std::string& word : mdr_words()) {
    command += word + " ";
  }
  EXPECT_TRUE(std::regex_match(lines[1], std::regex("Total time,[0-9]+\\.[0-9]{2} sec"))) << lines[1];
  std::vector<std::string> head(lines.begin(), lines.begin() + kFirstResult);
  head[1] = "Total time";
  EXPECT_EQ(head, (std::vector<std::string>{kTime,
                                            "Total time",
                                            kBar,
                                            "",
                                            kOptions,
                                            command,
                                            "1.input_file,g.dat",
                                            "2.result_file,r.csv",
                                            "3.score_file,-",
                                            "4.combination order,2",
                                            "5.cross validation count,10",
                                            "6.column number of response variable,1",
                                            "7.case_num,1",
                                            "8.method to make threshold for testing,1",
                                            "9.measure for snp selection,ba",
                                            "10.missing method,3",
                                            "11.tie,0",
                                            "12.p-value for making permutation threshold,0.0010",
                                            "13.number of final significant snps for presentation,10",
                                            "14.selected snp for permutation test,100",
                                            "15.repeated number for permutation test,100",
                                            "16.seleced cvfold,0",
                                            "17.suffling,0",
                                            "18.gpu_count,2",
                                            "19.thread_count,8",
                                            "20.block_count,2",
                                            std::string(78, '='),
                                            "",
                                            kResults}));
}

TEST(Report, BannersHaveTheirWidths) {
  const std::vector<std::string> lines = report_of({});
  EXPECT_EQ(lines[0].size(), 83u);
  EXPECT_EQ(lines[2].size(), 79u);
  EXPECT_EQ(lines[4].size(), 83u);
  EXPECT_EQ(lines[26].size(), 78u);
  EXPECT_EQ(lines[28].size(), 83u);
  EXPECT_EQ(lines.back().size(), 79u);
}

TEST(Report, OptionLinesShowWhatWasGiven) {
  const struct {
    Words words;
    int number;
    const char* line;
  } cases[] = {
      {{"--in", "./g.dat"}, 1, "1.input_file,./g.dat"},
      {{"--score", "absent.txt"}, 3, "3.score_file,absent.txt"},
      {{"--order", "2"}, 4, "4.combination order,2"},
      {{"--order", "1-2"}, 4, "4.combination order,1-2"},
      {{"--order", "02"}, 4, "4.combination order,02"},
      {{"--cv", "4"}, 5, "5.cross validation count,4"},
      {{"--cvfrom", "8"}, 5, "5.cross validation count,10"},
      {{"--measure", "NMI"}, 9, "9.measure for snp selection,NMI"},
      {{"--measure", "Tau-b"}, 9, "9.measure for snp selection,Tau-b"},
      {{"--missing", "available"}, 10, "10.missing method,0"},
      {{"--missing", "none"}, 10, "10.missing method,0"},
      {{"--missing", "MC"}, 10, "10.missing method,0"},
      {{"--missing", "complete"}, 10, "10.missing method,0"},
      {{"--tie", "1"}, 11, "11.tie,1"},
      {{"--tie", "-2"}, 11, "11.tie,-2"},
      {{"--top", "3"}, 13, "13.number of final significant snps for presentation,3"},
      {{"--top", "0"}, 13, "13.number of final significant snps for presentation,0"},
      {{"--shuffling", "1"}, 17, "17.suffling,1"},
      {{"--shuffling", "0"}, 17, "17.suffling,0"},
      {{"--gpu", "3"}, 18, "18.gpu_count,3"},
      {{"--thread", "37"}, 19, "19.thread_count,37"},
      {{"--block", "5"}, 20, "20.block_count,5"},
  };
  const CliFolder folder;
  for (const auto& one : cases) {
    EXPECT_EQ(option_line(report_of(one.words, folder), one.number), one.line);
  }
}

TEST(Report, TheResultFileIsNamedAsGiven) {
  const CliFolder folder;
  ASSERT_EQ(folder.run_mdr({"--out", "./other.csv"}).status, 0);
  const std::vector<std::string> lines = folder.lines("other.csv");
  ASSERT_GT(lines.size(), kFirstResult);
  EXPECT_EQ(option_line(lines, 2), "2.result_file,./other.csv");
}

TEST(Report, TheThreadCountIsThatAfterTheCapOfScores) {
  const CliFolder folder;
  std::string scores = "score\n";
  for (int s = 0; s < 40; ++s) {
    scores += s % 3 == 0 ? "0.5\n" : "-0.25\n";
  }
  folder.write("score.txt", scores);
  const std::vector<std::string> lines = report_of({"--score", "score.txt", "--thread", "256"}, folder);
  EXPECT_EQ(option_line(lines, 3), "3.score_file,score.txt");
  EXPECT_EQ(option_line(lines, 19), "19.thread_count,150");
}

// A block's rows: number, "( name name )", and `values` numbers of six decimals.
void expect_rows(const std::vector<std::string>& lines, size_t first, const std::vector<int>& numbers,
                 int order, int values) {
  const std::regex pattern("([0-9]+),\\( ((?:rs[0-5] ){" + std::to_string(order) +
                           "})\\)((?:,(?:-?[0-9]+\\.[0-9]{6}|nan|inf|-inf)){" + std::to_string(values) +
                           "})");
  for (size_t r = 0; r < numbers.size(); ++r) {
    ASSERT_LT(first + r, lines.size());
    std::smatch found;
    ASSERT_TRUE(std::regex_match(lines[first + r], found, pattern)) << lines[first + r];
    EXPECT_EQ(std::stoi(found[1]), numbers[r]) << lines[first + r];
  }
}

std::vector<int> ranks(int count) {
  std::vector<int> numbers;
  for (int r = 1; r <= count; ++r) {
    numbers.push_back(r);
  }
  return numbers;
}

std::vector<int> fold_numbers(int folds, int rows) {
  std::vector<int> numbers;
  for (int f = 1; f <= folds; ++f) {
    numbers.insert(numbers.end(), static_cast<size_t>(rows), f);
  }
  return numbers;
}

// The two blocks of an order from line `at` on; returns the line behind them.
size_t expect_blocks(const std::vector<std::string>& lines, size_t at, int order, int kept, int folds) {
  const std::string number = std::to_string(order);
  const size_t rows = static_cast<size_t>(kept);
  const size_t end = at + 6 + rows + rows * static_cast<size_t>(folds);
  EXPECT_GE(lines.size(), end);
  if (lines.size() < end) {
    return lines.size();
  }
  EXPECT_EQ(lines[at], "<<" + number + "-Order Best Combination Sets>>");
  EXPECT_EQ(lines[at + 1], kBestHeader);
  expect_rows(lines, at + 2, ranks(kept), order, 19);
  EXPECT_EQ(lines[at + 2 + rows], kBar);
  EXPECT_EQ(lines[at + 3 + rows], "<" + number + "-Order Combinations of SNPs>");
  EXPECT_EQ(lines[at + 4 + rows], kFoldHeader);
  expect_rows(lines, at + 5 + rows, fold_numbers(folds, kept), order, 20);
  EXPECT_EQ(lines[end - 1], kBar);
  return end;
}

TEST(Report, BlocksOfOneOrder) {
  const std::vector<std::string> lines = report_of({"--order", "2", "--top", "3"});
  EXPECT_EQ(expect_blocks(lines, kFirstResult, 2, 3, 10), lines.size());
}

TEST(Report, BlocksOfSeveralOrders) {
  const std::vector<std::string> lines = report_of({"--order", "1-3", "--top", "4", "--cv", "5"});
  const size_t second = expect_blocks(lines, kFirstResult, 1, 4, 5);
  const size_t third = expect_blocks(lines, second, 2, 4, 5);
  EXPECT_EQ(expect_blocks(lines, third, 3, 4, 5), lines.size());
}

TEST(Report, KeepsNoMoreRowsThanThereAreCombinations) {
  // 6 combinations of order 1, and every fold's list holds them all.
  const std::vector<std::string> lines = report_of({"--order", "1", "--cv", "5"});
  EXPECT_EQ(expect_blocks(lines, kFirstResult, 1, 6, 5), lines.size());
}

TEST(Report, AConsistencyIsTheSumOfSharesOfTheFolds) {
  const std::vector<std::string> lines = report_of({"--order", "1", "--cv", "5"});
  double above = 5.0;
  for (size_t r = 0; r < 6; ++r) {
    const double consistency = std::stod(split(lines.at(kFirstResult + 2 + r), ',').at(2));
    EXPECT_GT(consistency, 0.0);
    EXPECT_LE(consistency, above) << r;
    above = consistency;
  }
}

TEST(Report, FoldsNotSearchedKeepTheirRows) {
  const std::vector<std::string> lines = report_of({"--top", "2", "--cv", "5", "--cvfrom", "3"});
  ASSERT_EQ(expect_blocks(lines, kFirstResult, 2, 2, 5), lines.size());
  std::string zeros;
  for (int i = 0; i < 20; ++i) {
    zeros += ",0.000000";
  }
  const size_t first = kFirstResult + 2 + 2 + 3;
  for (size_t r = 0; r < 6; ++r) {
    EXPECT_EQ(lines[first + r], std::to_string(r / 2 + 1) + ",( rs0 rs0 )" + zeros);
  }
  EXPECT_FALSE(contains(lines[first + 6], "( rs0 rs0 )")) << lines[first + 6];
}

TEST(Report, WithoutCombinationsThereAreHeadersOnly) {
  const std::vector<std::string> above = report_of({"--order", "7"});
  EXPECT_EQ(expect_blocks(above, kFirstResult, 7, 0, 10), above.size());
  const std::vector<std::string> none = report_of({"--top", "0"});
  EXPECT_EQ(expect_blocks(none, kFirstResult, 2, 0, 10), none.size());
}

TEST(Report, AMinimumAboveTheMaximumLeavesNoBlock) {
  EXPECT_TRUE(result_lines(report_of({"--order", "3-2"})).empty());
}

TEST(Report, IsTheSameForEveryNumberOfWorkers) {
  const std::vector<std::string> one = result_lines(report_of({"--gpu", "1", "--order", "2-3"}));
  ASSERT_GT(one.size(), 200u);
  EXPECT_EQ(one, result_lines(report_of({"--gpu", "2", "--order", "2-3"})));
  EXPECT_EQ(one, result_lines(report_of({"--gpu", "5", "--order", "2-3", "--thread", "1", "--block", "1"})));
}

TEST(Report, ReplacesAnOlderFile) {
  const CliFolder folder;
  folder.write("r.csv", std::string(1000000, 'x'));
  const std::vector<std::string> lines = report_of({"--top", "1", "--cv", "2"}, folder);
  EXPECT_EQ(expect_blocks(lines, kFirstResult, 2, 1, 2), lines.size());
}

}  // namespace
}  // namespace tavo_test
