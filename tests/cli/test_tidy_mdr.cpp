// SPDX-License-Identifier: Apache-2.0
//
// The tidy table of MDR runs against the report of the same run and against counts made here.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <map>

#include "tests/cli/cli_run.h"
#include "tests/support/tsv_table.h"

namespace tavo_test {
namespace {

constexpr const char* kMeasures[] = {"ba",    "accuracy",  "homogeneity", "gamma", "tau_b",
                                     "tau_c", "somers_d1", "somers_d2",   "nmi",   "lr"};
// The measures of the report's columns, in their order.
const std::vector<int> kBestMeasures = {0, 2, 3, 4, 5, 6, 7, 8, 9};
const std::vector<int> kFoldMeasures = {1, 0, 2, 3, 4, 5, 6, 7, 8, 9};

enum class Type { kFloat, kDouble };

// A cell as the report prints its number: records of folds hold floats, averages and exhaustive runs doubles.
std::string six_decimals(const std::string& cell, Type type = Type::kDouble) {
  if (cell == "NA") {
    return "nan";
  }
  const double value = type == Type::kFloat ? static_cast<double>(std::strtof(cell.c_str(), nullptr))
                                            : std::strtod(cell.c_str(), nullptr);
  char text[64];
  std::snprintf(text, sizeof(text), "%f", value);
  return text;
}

// "( rs1 rs4 )" of a row.
std::string combination_of(const TsvRow& row) {
  std::string text = "(";
  for (int j = 1; j <= std::stoi(row.at("order")); ++j) {
    const std::string name = row.at("snp" + std::to_string(j));
    text += " " + name;
    EXPECT_EQ(name, "rs" + std::to_string(std::stoi(row.at("position" + std::to_string(j))) - 1));
  }
  return text + " )";
}

// The rows of one block of a report, split at commas.
std::vector<Words> block(const std::vector<std::string>& lines, const std::string& title) {
  std::vector<Words> rows;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i] == title) {
      for (i += 2; i < lines.size() && lines[i][0] != '='; ++i) {
        rows.push_back(split(lines[i], ','));
      }
    }
  }
  return rows;
}

// A row's measures as the report prints them: training and testing value of each.
Words measures_of(const TsvRow& row, const std::vector<int>& measures) {
  const Type type = row.at("row") == "fold" ? Type::kFloat : Type::kDouble;
  Words texts;
  for (const int measure : measures) {
    texts.push_back(six_decimals(row.at(std::string("train_") + kMeasures[measure]), type));
    texts.push_back(six_decimals(row.at(std::string("test_") + kMeasures[measure]), type));
  }
  return texts;
}

bool is_zero_row(const Words& fields) {
  return std::all_of(fields.begin() + 2, fields.end(), [](const auto& f) { return f == "0.000000"; });
}

std::vector<TsvRow> rows_of(const TsvTable& table, const std::string& kind, int order) {
  std::vector<TsvRow> rows;
  for (const TsvRow& row : table.with("row", kind)) {
    if (row.at("order") == std::to_string(order)) {
      rows.push_back(row);
    }
  }
  return rows;
}

std::string setting(const TsvTable& table, const std::string& name) {
  const std::vector<TsvRow> rows = table.with("setting", name);
  return rows.empty() ? "" : rows[0].at("value");
}

TsvTable tidy_of(const CliFolder& folder, const Words& more) {
  const RunResult run = folder.run_mdr(Words{"--tidy", "t.tsv"} + more);
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  return parse_tsv(read_file(folder.path("t.tsv")));
}

std::string scores_of(const GenotypeData& data) {
  std::string text = "score\n";
  for (size_t s = 0; s < data.classes.size(); ++s) {
    const double residual = static_cast<double>(s * 7919 % 101) / 64.0 - 0.75;
    text += std::to_string(data.classes[s] == 1 ? residual + 0.5 : residual) + "\n";
  }
  return text;
}

// Every number of both blocks of a cross-validated report stands in the table, and nothing else does.
void expect_table_of_report(const CliFolder& folder, const TsvTable& table, int first_order, int last_order,
                            bool scored) {
  const std::vector<std::string> lines = folder.lines("r.csv");
  for (int order = first_order; order <= last_order; ++order) {
    const std::string number = std::to_string(order);
    std::vector<Words> best = block(lines, "<<" + number + "-Order Best Combination Sets>>");
    std::erase_if(best, is_zero_row);
    const std::vector<TsvRow> combinations = rows_of(table, "combination", order);
    ASSERT_EQ(combinations.size(), best.size());
    for (size_t r = 0; r < best.size(); ++r) {
      const TsvRow& row = combinations[r];
      EXPECT_EQ(row.at("rank"), best[r][0]);
      EXPECT_EQ(combination_of(row), best[r][1]);
      EXPECT_EQ(six_decimals(row.at("weighted_consistency")), best[r][2]);
      const std::vector<int> measures = scored ? std::vector<int>{0} : kBestMeasures;
      const Words values = measures_of(row, measures);
      EXPECT_EQ(values, Words(best[r].begin() + 3, best[r].begin() + 3 + static_cast<long>(values.size())));
    }
    std::vector<Words> folds = block(lines, "<" + number + "-Order Combinations of SNPs>");
    std::erase_if(folds, is_zero_row);
    const std::vector<TsvRow> listed = rows_of(table, "fold", order);
    // The report cuts lists to the number of ranked combinations; the table has them whole.
    ASSERT_GE(listed.size(), folds.size());
    std::map<std::string, std::vector<TsvRow>> of_fold;
    for (const TsvRow& row : listed) {
      of_fold[row.at("fold")].push_back(row);
      EXPECT_EQ(row.at("rank"), std::to_string(of_fold[row.at("fold")].size()));
    }
    std::map<std::string, size_t> next;
    for (const Words& fields : folds) {
      ASSERT_LT(next[fields[0]], of_fold[fields[0]].size());
      const TsvRow& row = of_fold[fields[0]][next[fields[0]]++];
      EXPECT_EQ(combination_of(row), fields[1]);
      if (scored) {
        EXPECT_EQ(measures_of(row, {0}), Words(fields.begin() + 4, fields.begin() + 6));
        EXPECT_EQ(row.at("train_gamma"), "NA");
      } else {
        EXPECT_EQ(measures_of(row, kFoldMeasures), Words(fields.begin() + 2, fields.begin() + 22));
      }
    }
  }
}

TEST(TidyMdr, HasTheNumbersOfACrossValidatedReport) {
  const CliFolder folder(balanced_data(90, 8, 0.06));
  for (const Words& more :
       {Words{"--order", "1-3", "--cv", "5", "--top", "6"}, Words{"--order", "2", "--measure", "lr"},
        Words{"--order", "1-2", "--measure", "gamma", "--missing", "complete", "--top", "40"},
        Words{"--order", "2-3", "--measure", "nmi", "--missing", "none", "--tie", "2", "--shuffling", "1"},
        Words{"--order", "2", "--cv", "4", "--cvfrom", "2", "--tie", "1"}}) {
    const TsvTable table = tidy_of(folder, more);
    const std::string& orders = more[1];
    expect_table_of_report(folder, table, orders[0] - '0', orders.back() - '0', false);
    EXPECT_EQ(setting(table, "analysis"), "mdr");
    EXPECT_EQ(setting(table, "samples"), "90");
    EXPECT_EQ(setting(table, "snps"), "8");
  }
}

TEST(TidyMdr, HasTheNumbersOfAScoreBasedReport) {
  const GenotypeData data = balanced_data(90, 8, 0.03);
  const CliFolder folder(data);
  folder.write("s.txt", scores_of(data));
  const TsvTable table = tidy_of(folder, {"--order", "1-2", "--score", "s.txt", "--cv", "4"});
  expect_table_of_report(folder, table, 1, 2, true);
  EXPECT_EQ(setting(table, "analysis"), "gmdr");
  EXPECT_EQ(setting(table, "score_file"), "s.txt");
}

// Data in which SNPs 2 and 4 predict the class of nine samples out of ten.
GenotypeData data_with_a_pair(double missing) {
  GenotypeData data = balanced_data(120, 9, missing);
  for (int s = 0; s < data.n_samples; ++s) {
    const bool risk = (data.at(s, 2) == 1) != (data.at(s, 4) == 1);
    data.classes[static_cast<size_t>(s)] = (s % 10 == 0) != risk ? 1 : 0;
  }
  return data;
}

TEST(TidyMdr, HasTheNumbersOfTheAllResultsMode) {
  const CliFolder folder(data_with_a_pair(0.0));
  const TsvTable table = tidy_of(folder, {"--order", "1-2", "--mode", "0", "--cv", "3", "--measure", "ba"});
  const std::vector<TsvRow> listed = rows_of(table, "fold", 2);
  const std::vector<Words> folds = block(folder.lines("r.csv"), "<2-Order Combinations of SNPs>");
  ASSERT_EQ(listed.size(), folds.size());
  ASSERT_FALSE(folds.empty());
  for (size_t r = 0; r < folds.size(); ++r) {
    EXPECT_EQ(combination_of(listed[r]), folds[r][1]);
    EXPECT_EQ(measures_of(listed[r], kFoldMeasures), Words(folds[r].begin() + 2, folds[r].begin() + 22));
  }
  ASSERT_FALSE(rows_of(table, "combination", 2).empty());
  for (const TsvRow& row : rows_of(table, "combination", 2)) {
    EXPECT_NE(row.at("p"), "NA");
  }
  EXPECT_EQ(table.with("setting", "permutation_threshold").size(), 2u);
}

TEST(TidyMdr, HasTheNumbersOfExhaustiveReports) {
  const CliFolder folder(data_with_a_pair(0.04));
  for (const char* mode : {"2", "3"}) {
    const TsvTable table = tidy_of(folder, {"--order", "1-2", "--mode", mode, "--measure", "ba"});
    const std::vector<std::string> lines = folder.lines("r.csv");
    for (const int order : {1, 2}) {
      const std::string number = std::to_string(order);
      const std::vector<Words> kept = block(lines, "<" + number + "-Order Combinations of SNPs>");
      const std::vector<TsvRow> rows = rows_of(table, "kept", order);
      ASSERT_EQ(rows.size(), kept.size());
      for (size_t r = 0; r < kept.size(); ++r) {
        EXPECT_EQ(combination_of(rows[r]), kept[r][0]);
        EXPECT_EQ(six_decimals(rows[r].at("train_accuracy")), kept[r][1]);
        EXPECT_EQ(six_decimals(rows[r].at("train_ba")), kept[r][2]);
        EXPECT_EQ(six_decimals(rows[r].at("train_homogeneity")), kept[r][3]);
        EXPECT_EQ(rows[r].at("test_ba"), "NA");
        EXPECT_EQ(rows[r].at("train_gamma"), "NA");
      }
      const std::vector<Words> best = block(lines, "<<" + number + "-Order Best Combination Sets>>");
      const std::vector<TsvRow> ranked = rows_of(table, "combination", order);
      ASSERT_EQ(ranked.size(), best.size());
      for (size_t r = 0; r < best.size(); ++r) {
        EXPECT_EQ(combination_of(ranked[r]), best[r][1]);
        EXPECT_EQ(six_decimals(ranked[r].at("train_ba")), best[r][3]);
        EXPECT_EQ(mode == std::string("2") ? six_decimals(ranked[r].at("p")) : ranked[r].at("p"),
                  mode == std::string("2") ? best[r].back() : "NA");
      }
    }
    ASSERT_FALSE(rows_of(table, "combination", 2).empty());
    EXPECT_EQ(combination_of(rows_of(table, "combination", 2)[0]), "( rs2 rs4 )");
  }
}

TEST(TidyMdr, CountsTheFoldsOfACombination) {
  const CliFolder folder(balanced_data(80, 8));
  const TsvTable table = tidy_of(folder, {"--order", "2", "--cv", "6", "--top", "5"});
  for (const TsvRow& row : table.with("row", "combination")) {
    int listed = 0;
    int first = 0;
    for (const TsvRow& entry : table.with("row", "fold")) {
      if (entry.at("combination") == row.at("combination")) {
        ++listed;
        first += entry.at("rank") == "1" ? 1 : 0;
      }
    }
    EXPECT_GT(listed, 0);
    EXPECT_EQ(row.at("folds_listed"), std::to_string(listed));
    EXPECT_EQ(row.at("folds_first"), std::to_string(first));
  }
}

// The cells of every combination, counted here from the genotypes; the risk of a cell by its cases and
// controls in whole numbers, or by its sum of scores.
void expect_cells(const GenotypeData& data, const TsvTable& table, const std::vector<double>& scores) {
  std::map<std::string, std::map<std::string, TsvRow>> written;
  for (const TsvRow& row : table.with("row", "cell")) {
    std::string genotypes;
    for (int j = 1; j <= std::stoi(row.at("order")); ++j) {
      genotypes += row.at("genotype" + std::to_string(j));
    }
    EXPECT_TRUE(written[row.at("combination")].emplace(genotypes, row).second);
  }
  int compared = 0;
  for (const TsvRow& row : table.with("row", "combination")) {
    std::map<std::string, std::array<long, 2>> counts;
    std::map<std::string, double> sums;
    std::array<long, 2> totals{};
    for (int s = 0; s < data.n_samples; ++s) {
      std::string genotypes;
      for (int j = 1; j <= std::stoi(row.at("order")); ++j) {
        const int snp = std::stoi(row.at("position" + std::to_string(j))) - 1;
        genotypes += std::to_string(data.at(s, snp));
      }
      if (genotypes.find('3') != std::string::npos) {
        continue;
      }
      const bool is_case =
          scores.empty() ? data.classes[static_cast<size_t>(s)] == 1 : scores[static_cast<size_t>(s)] > 0.0;
      ++counts[genotypes][is_case ? 1 : 0];
      ++totals[is_case ? 1 : 0];
      sums[genotypes] += scores.empty() ? 0.0 : scores[static_cast<size_t>(s)];
    }
    EXPECT_EQ(row.at("n"), std::to_string(totals[0] + totals[1]));
    EXPECT_EQ(row.at("cases"), std::to_string(totals[1]));
    EXPECT_EQ(row.at("controls"), std::to_string(totals[0]));
    const std::map<std::string, TsvRow>& cells = written[row.at("combination")];
    ASSERT_EQ(cells.size(), counts.size()) << row.at("combination");
    for (const auto& [genotypes, count] : counts) {
      const TsvRow& cell = cells.at(genotypes);
      EXPECT_EQ(cell.at("cases"), std::to_string(count[1]));
      EXPECT_EQ(cell.at("controls"), std::to_string(count[0]));
      EXPECT_EQ(cell.at("rank"), row.at("rank"));
      // Ties, and cells without controls, are high risk by --tie 0.
      const bool low = count[0] > 0 &&
                       (scores.empty() ? count[1] * totals[0] < totals[1] * count[0] : sums[genotypes] < 0.0);
      EXPECT_EQ(cell.at("risk"), low ? "low" : "high") << row.at("combination") << " " << genotypes;
      if (!scores.empty()) {
        EXPECT_NEAR(std::stod(cell.at("score_sum")), sums[genotypes], 1e-4);
      }
      ++compared;
    }
  }
  EXPECT_GT(compared, 50);
}

TEST(TidyMdr, CountsTheGenotypeCellsOfTheBest) {
  const GenotypeData data = balanced_data(90, 8, 0.06);
  const CliFolder folder(data);
  expect_cells(data, tidy_of(folder, {"--order", "1-3", "--top", "6"}), {});
  expect_cells(data, tidy_of(folder, {"--order", "1-3", "--top", "6", "--mode", "3"}), {});
  folder.write("s.txt", scores_of(data));
  std::vector<double> scores;
  for (const std::string& line : folder.lines("s.txt")) {
    if (line != "score") {
      scores.push_back(std::stod(line));
    }
  }
  expect_cells(data, tidy_of(folder, {"--order", "1-2", "--score", "s.txt"}), scores);
}

TEST(TidyMdr, LeavesOutPlacesThatNothingFilled) {
  const CliFolder folder(balanced_data(20, 3));
  const TsvTable table = tidy_of(folder, {"--order", "1-2", "--measure", "gamma", "--top", "10"});
  for (const char* kind : {"combination", "fold", "cell"}) {
    for (const TsvRow& row : table.with("row", kind)) {
      if (row.at("order") == "2") {
        EXPECT_NE(row.at("position1"), row.at("position2"));
      }
    }
  }
  const TsvTable empty = tidy_of(folder, {"--order", "2", "--cv", "1"});
  EXPECT_EQ(empty.rows.size(), empty.with("row", "setting").size());
}

TEST(TidyMdr, IsTheSameForEveryNumberOfWorkers) {
  const CliFolder folder(balanced_data(60, 9));
  tidy_of(folder, {"--order", "1-3", "--gpu", "1"});
  const std::string one = read_file(folder.path("t.tsv"));
  tidy_of(folder, {"--order", "1-3", "--gpu", "3", "--thread", "1", "--block", "1"});
  EXPECT_EQ(read_file(folder.path("t.tsv")), one);
}

TEST(TidyMdr, DoesNotLetANameBreakTheTable) {
  GenotypeData data = balanced_data(40, 4);
  data.names = {"a\tb", "c\nd", "</script>", "\"e,f"};
  const CliFolder folder(data);
  const TsvTable table = tidy_of(folder, {"--order", "1", "--top", "4"});
  std::vector<std::string> names(4);
  for (const TsvRow& row : table.with("row", "combination")) {
    names.at(static_cast<size_t>(std::stoi(row.at("position1")) - 1)) = row.at("snp1");
  }
  for (size_t j = 0; j < 4; ++j) {
    EXPECT_TRUE(names[j].empty() || names[j] == (Words{"a b", "c d", "</script>", "\"e,f"})[j]) << names[j];
  }
}

TEST(TidyMdr, ThatCannotBeWrittenGivesStatus1) {
  const CliFolder folder(balanced_data(40, 5));
  const RunResult absent = folder.run_mdr({"--tidy", "absent/t.tsv"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(notices_with(absent, {"absent/t.tsv"}), 1) << absent.err;
  EXPECT_FALSE(contains(absent.out, "loop]"));
  const RunResult full = folder.run_mdr({"--tidy", "/dev/full"});
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(notices_with(full, {"/dev/full"}), 1) << full.err;
  for (const char* taken : {"g.dat", "./r.csv"}) {
    const std::string before = read_file(folder.path("g.dat"));
    EXPECT_EQ(folder.run_mdr({"--tidy", taken}).status, 1) << taken;
    EXPECT_EQ(read_file(folder.path("g.dat")), before);
  }
}

TEST(TidyMdr, AppearsOnlyWhenComplete) {
  const CliFolder folder(balanced_data(40, 5));
  folder.write("t.tsv", "as it was");
  const RunResult run = folder.run_mdr({"--tidy", "t.tsv", "--out", "/dev/full"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(read_file(folder.path("t.tsv")), "as it was");
  EXPECT_EQ(folder.names_with("t.tsv").size(), 1u);
}

}  // namespace
}  // namespace tavo_test
