// SPDX-License-Identifier: Apache-2.0
//
// Input that is not what it should be: a message with its place, status 1, and no output.
#include <gtest/gtest.h>

#include <csignal>

#include "tests/report/report_folder.h"

namespace tavo_test {
namespace {

std::string replaced(std::string text, const std::string& what, const std::string& with) {
  const size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), with);
}

// The text with cell `column` of the first line that begins with `start` replaced.
std::string with_cell(const std::string& text, const std::string& start, const std::string& column,
                      const std::string& cell) {
  std::string result;
  std::vector<std::string> columns;
  bool done = false;
  for (const std::string& line : split_lines(text)) {
    std::vector<std::string> cells(1);
    for (const char c : line) {
      if (c == '\t') {
        cells.emplace_back();
      } else {
        cells.back() += c;
      }
    }
    if (columns.empty()) {
      columns = cells;
    } else if (!done && line.starts_with(start)) {
      done = true;
      for (size_t i = 0; i < columns.size(); ++i) {
        cells[i] = columns[i] == column ? cell : cells[i];
      }
    }
    for (size_t i = 0; i < cells.size(); ++i) {
      result += (i == 0 ? "" : "\t") + cells[i];
    }
    result += "\n";
  }
  EXPECT_TRUE(done) << start;
  return result;
}

class ReportRefusals : public testing::Test {
 protected:
  void expect_refused(const std::string& text, const std::vector<std::string>& parts) {
    folder_.write("bad.tsv", text);
    folder_.write("out.json", "as it was");
    const RunResult run = folder_.report({"--in", "bad.tsv", "--format", "json", "--out", "out.json"});
    EXPECT_EQ(run.status, 1) << text.substr(0, 200);
    EXPECT_TRUE(run.err.starts_with("tavo-report: bad.tsv: ")) << run.err;
    for (const std::string& part : parts) {
      EXPECT_NE(run.err.find(part), std::string::npos) << part << " in " << run.err;
    }
    EXPECT_EQ(folder_.read("out.json"), "as it was");
  }

  ReportFolder folder_;
};

TEST_F(ReportRefusals, FilesThatAreNoResults) {
  expect_refused("", {"empty"});
  expect_refused("\n", {"line 1: found \"\", expected a table of tavo --tidy or a report"});
  expect_refused("x\ty\n1\t2\n", {"line 1: found \"x\\x09y\""});
  expect_refused(std::string(20000000, 'r'), {"line 1"});
  expect_refused(std::string("row\0a\tb\n", 8), {"line 1"});
  expect_refused("row\tsetting\n", {"line 1: no column \"value\""});
  expect_refused("row\t\tsetting\n", {"line 1: column 2: no name"});
  expect_refused("row\tsetting\tsetting\n", {"line 1: column 3: a second column \"setting\""});
  expect_refused("number\tn\n", {"line 1: no column \"snp\""});
  expect_refused("number\tsnp\tposition\tn\tstatus\n", {"line 1: no column \"p\""});
}

TEST_F(ReportRefusals, DamagedTablesOfASearch) {
  folder_.search({"--order", "1-2"});
  const std::string text = folder_.read("t.tsv");
  const struct {
    const char* row;
    const char* column;
    const char* cell;
    const char* part;
  } cases[] = {
      {"setting", "row", "sitting",
       "column 1 (row): found \"sitting\", expected setting, combination, fold, kept or cell"},
      {"setting", "order", "x", "(order): found \"x\", expected an integer from 1 to 64"},
      {"combination", "order", "3", "(order): found \"3\", expected an integer from 1 to 2"},
      {"combination", "order", "0", "(order): found \"0\""},
      {"combination", "rank", "NA", "(rank): found \"NA\", expected an integer from 1"},
      {"combination", "rank", "1.5", "(rank): found \"1.5\""},
      {"combination", "position1", "-4", "(position1): found \"-4\""},
      {"combination", "train_ba", "high", "(train_ba): found \"high\", expected a number or NA"},
      {"combination", "test_lr", "1e999", "(test_lr): found \"1e999\""},
      {"combination", "test_lr", "nan", "(test_lr): found \"nan\""},
      {"combination", "n", "", "(n): found \"\""},
      {"combination", "weighted_consistency", "0x1p3", "found \"0x1p3\""},
      {"fold", "fold", "0", "(fold): found \"0\""},
      {"fold", "fold", "99999999999", "(fold): found \"99999999999\""},
      {"cell", "genotype1", "3", "(genotype1): found \"3\", expected 0, 1, 2 or missing"},
      {"cell", "cases", "-1", "(cases): found \"-1\""},
      {"cell", "risk", "red", "(risk): found \"red\", expected high, low or none"},
      {"cell", "position1", "77", "found \"cell\", expected its combination in a row before"},
  };
  for (const auto& one : cases) {
    expect_refused(with_cell(text, one.row, one.column, one.cell), {": line ", ", column ", one.part});
  }
  expect_refused(replaced(text, "combination\tNA", "combination"), {" cells, expected "});
  expect_refused(text.substr(0, text.size() - 30), {" cells, expected "});
  expect_refused(replaced(text, "\ttest_lr", "\ttest_xx"), {"no column \"test_lr\""});
}

TEST_F(ReportRefusals, DamagedTablesOfARegression) {
  folder_.regress("logistic");
  const std::string text = folder_.read("t.tsv");
  const struct {
    const char* column;
    const char* cell;
    const char* part;
  } cases[] = {
      {"status", "good", "(status): found \"good\", expected ok or failed"},
      {"converged", "1", "(converged): found \"1\", expected true, false or NA"},
      {"p", "1.5", "(p): found \"1.5\", expected a probability"},
      {"p_het", "-0.1", "(p_het): found \"-0.1\", expected a probability"},
      {"p", "Inf", "(p): found \"Inf\", expected a probability"},
      {"beta_het", "x", "(beta_het): found \"x\", expected a number or NA"},
      {"position", "0", "(position): found \"0\""},
      {"position", "NA", "(position): found \"NA\""},
  };
  for (const auto& one : cases) {
    expect_refused(with_cell(text, "3\t", one.column, one.cell), {"line 4, column ", one.part});
  }
  expect_refused(text.substr(0, text.size() - 100), {"line 9: ", " cells, expected "});
}

TEST_F(ReportRefusals, DamagedReports) {
  folder_.search({"--order", "1-2", "--cv", "3"});
  const std::string text = folder_.read("r.csv");
  const size_t results = text.find("<<1-Order");
  const struct {
    std::string text;
    const char* part;
  } cases[] = {
      {text.substr(0, 100), "ends before its results"},
      {text.substr(0, results), "no block of combinations"},
      {text.substr(0, text.find("1,( ", results)), "the block is not complete"},
      {text.substr(0, text.size() - 120), ": line "},
      {replaced(text, "<<1-Order", "<<x-Order"), "expected the title of a block"},
      {replaced(text, "Rank,Best_Combi", "Rank,Worst_Combi"), "expected the header of a cross-validated run"},
      {replaced(text, "Aver_Train_Gamma", "Aver_Train_Delta"), "unknown column \"Delta\""},
      {replaced(text, "\n1,( ", "\nx,( "), "found \"x\", expected a rank from 1"},
      {replaced(text, "\n1,( ", "\n1,[ "), "expected a combination such as ( rs1 rs2 )"},
      {text.substr(0, results) + replaced(text.substr(results), ",0.", ",zero."), "expected a number"},
  };
  for (const auto& one : cases) {
    expect_refused(one.text, {one.part});
  }
  GenotypeData data = folder_.data();
  data.names[2] = "a b";
  folder_.write("g.dat", normal_file(data));
  folder_.search({"--order", "2", "--cv", "3"});
  expect_refused(folder_.read("r.csv"), {"line ", "names with blanks cannot be told apart"});
  folder_.search({"--mode", "3"});
  expect_refused(folder_.read("r.csv"), {"expected the header of a cross-validated run"});
  folder_.regress("logistic");
  expect_refused(folder_.read("r.csv"), {"the report of a regression"});
}

TEST_F(ReportRefusals, DamagedCompressedTables) {
  folder_.search();
  ASSERT_EQ(run_program("/usr/bin/gzip", {"t.tsv"}, folder_.path(".")).status, 0);
  const std::string bytes = folder_.read("t.tsv.gz");
  folder_.write("bad.tsv", bytes.substr(0, bytes.size() / 2));
  const RunResult run = folder_.report({"--in", "bad.tsv", "--format", "json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("truncated"), std::string::npos) << run.err;
}

TEST_F(ReportRefusals, WrongUsageGivesStatus2) {
  const struct {
    Words words;
    const char* part;
  } cases[] = {
      {{}, "--in is needed"},
      {{"--in", "t.tsv"}, "--out is needed for a page"},
      {{"--in", "t.tsv", "--out", "p", "--format", "pdf"}, "expected html or json"},
      {{"--in", "t.tsv", "--out"}, "needs a value"},
      {{"--in", "t.tsv", "--in", "u.tsv", "--out", "p"}, "given twice"},
      {{"--into", "x"}, "unknown option"},
      {{"--help", "--in", "x"}, "must stand alone"},
  };
  for (const auto& one : cases) {
    const RunResult run = folder_.report(one.words);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(one.part), std::string::npos) << run.err;
  }
  const RunResult help = folder_.report({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("Examples:"), std::string::npos);
  EXPECT_EQ(folder_.report({"--version"}).out.find("tavo-report "), 0u);
}

TEST_F(ReportRefusals, OutputsThatCannotBeWritten) {
  folder_.search();
  for (const Words& words : {Words{"--in", "t.tsv", "--format", "json", "--out", "absent/x.json"},
                             Words{"--in", "t.tsv", "--format", "json", "--out", "/dev/full"},
                             Words{"--in", "absent.tsv", "--format", "json"}}) {
    const RunResult run = folder_.report(words);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find(words[1] == "absent.tsv" ? words[1] : words[5]), std::string::npos) << run.err;
  }
  const std::string before = folder_.read("t.tsv");
  const RunResult run = folder_.report({"--in", "t.tsv", "--format", "json", "--out", "./t.tsv"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("--out is the same file as --in"), std::string::npos);
  EXPECT_EQ(folder_.read("t.tsv"), before);
}

// More than the readers hold at a time has come, so that the output is begun.
TEST_F(ReportRefusals, ASignalLeavesNothingBehind) {
  folder_.regress("linear");
  const std::string table = folder_.read("t.tsv");
  const std::string rows = table.substr(table.find('\n') + 1);
  std::string begun = table;
  while (begun.size() < 1 << 19) {
    begun += rows;
  }
  for (const int signal : {SIGINT, SIGTERM}) {
    const RunResult run =
        folder_.interrupted_report({"--in", "pipe", "--format", "json", "--out", "x.json"}, begun, signal);
    EXPECT_EQ(run.status, 128 + signal);
    EXPECT_EQ(run.err, std::string("tavo-report: interrupted by ") +
                           (signal == SIGINT ? "SIGINT" : "SIGTERM") + "; no result was written\n");
    EXPECT_EQ(folder_.names(), (Words{"g.dat", "r.csv", "t.tsv"}));
  }
}

}  // namespace
}  // namespace tavo_test
