// SPDX-License-Identifier: Apache-2.0
//
// What tavo-report makes of results: every number of a table stands in its JSON, and a page holds what it
// says.
#include <gtest/gtest.h>

#include <map>

#include "report/page.h"
#include "tests/report/report_folder.h"
#include "tests/support/required.h"
#include "tests/support/tsv_table.h"

namespace tavo_test {
namespace {

using nlohmann::json;

double number(const std::string& cell) {
  return std::strtod(cell.c_str(), nullptr);
}

// A JSON object's member as a cell of a table: missing ones are NA.
void expect_cell(const json& object, const std::string& name, const std::string& cell) {
  if (cell == "NA") {
    EXPECT_TRUE(!object.contains(name) || object[name].is_null()) << name;
  } else {
    ASSERT_TRUE(object.contains(name)) << name;
    EXPECT_EQ(object[name].get<double>(), number(cell)) << name;
  }
}

void expect_snps(const json& object, const TsvRow& row) {
  for (size_t j = 0; j < object["snps"].size(); ++j) {
    EXPECT_EQ(object["snps"][j], row.at("snp" + std::to_string(j + 1)));
    EXPECT_EQ(std::to_string(object["positions"][j].get<int>()), row.at("position" + std::to_string(j + 1)));
  }
}

void expect_measures(const json& object, const TsvRow& row) {
  for (const auto& [column, cell] : row) {
    if (column.starts_with("train_")) {
      expect_cell(object["train"], column.substr(6), cell);
      expect_cell(object["test"], column.substr(6), row.at("test_" + column.substr(6)));
    }
  }
}

// Every row of the table stands in the JSON, in its order, and nothing else.
void expect_all_of_table(const json& results, const TsvTable& table) {
  std::map<std::string, size_t> combinations;
  std::map<std::string, size_t> entries;
  std::map<std::string, size_t> cells;
  for (const TsvRow& row : table.rows) {
    if (row.at("row") == "setting") {
      if (row.at("order") == "NA") {
        EXPECT_EQ(results["settings"][row.at("setting")], row.at("value"));
      }
      continue;
    }
    json order;
    for (const json& one : results["orders"]) {
      if (std::to_string(one["order"].get<int>()) == row.at("order")) {
        order = one;
      }
    }
    const std::string key = row.at("order");
    if (row.at("row") == "combination") {
      const json& one = order["combinations"].at(combinations[key]++);
      expect_snps(one, row);
      expect_measures(one, row);
      for (const char* name : {"rank", "weighted_consistency", "folds_listed", "folds_first", "p",
                               "threshold", "n", "cases", "controls"}) {
        expect_cell(one, name, row.at(name));
      }
      for (const char* name :
           {"p_testing", "p_consistency", "p_testing_all_orders", "p_consistency_all_orders"}) {
        if (row.count(name) > 0) {
          expect_cell(one, name, row.at(name));
        }
      }
    } else if (row.at("row") == "cell") {
      for (const json& one : order["combinations"]) {
        if (one["positions"].size() == static_cast<size_t>(std::stoi(row.at("order"))) &&
            std::to_string(one["rank"].get<int>()) == row.at("rank")) {
          const json& cell = one["cells"].at(cells[row.at("combination")]++);
          EXPECT_EQ(std::to_string(cell["genotypes"][0].get<int>()), row.at("genotype1"));
          EXPECT_EQ(cell["risk"], row.at("risk"));
          for (const char* name : {"cases", "controls", "score_sum"}) {
            expect_cell(cell, name, row.at(name));
          }
        }
      }
    } else {
      const json& one = order["lists"].at(entries[key]++);
      expect_snps(one, row);
      expect_measures(one, row);
      expect_cell(one, "fold", row.at("fold"));
      expect_cell(one, "rank", row.at("rank"));
    }
  }
  for (const json& one : results["orders"]) {
    const std::string key = std::to_string(one["order"].get<int>());
    EXPECT_EQ(one["combinations"].size(), combinations[key]);
    EXPECT_EQ(one["lists"].size(), entries[key]);
    for (const json& combination : one["combinations"]) {
      std::string name;
      for (const json& position : combination["positions"]) {
        name += (name.empty() ? "" : ":") + std::to_string(position.get<int>());
      }
      EXPECT_EQ(combination.contains("cells") ? combination["cells"].size() : 0, cells[name]);
    }
  }
  EXPECT_FALSE(combinations.empty());
}

TEST(ReportJson, HoldsEveryNumberOfATable) {
  const ReportFolder folder(0.05);
  std::string scores = "score\n";
  for (const uint8_t value : folder.data().classes) {
    scores += value == 1 ? "0.5\n" : "-0.5\n";
  }
  folder.write("s.txt", scores);
  for (const Words& more :
       {Words{"--order", "1-3", "--cv", "4"}, Words{"--order", "1-2", "--mode", "0", "--cv", "3"},
        Words{"--mode", "2"}, Words{"--order", "1-2", "--mode", "3"},
        Words{"--order", "1-2", "--permutations", "20"}, Words{"--order", "1-2", "--score", "s.txt"}}) {
    folder.search(more);
    const json results = folder.json("t.tsv");
    EXPECT_EQ(results["kind"], more.back() == "s.txt" ? "gmdr" : "mdr");
    expect_all_of_table(results, parse_tsv(folder.read("t.tsv")));
  }
}

TEST(ReportJson, HoldsEveryCellOfARegression) {
  const ReportFolder folder;
  for (const Words& more : {Words{"--order", "1"}, Words{"--order", "2", "--top", "12"}}) {
    folder.regress("logistic", more);
    const json results = folder.json("t.tsv");
    EXPECT_EQ(results["kind"], more[1] == "1" ? "logistic" : "logistic_pairs");
    const TsvTable table = parse_tsv(folder.read("t.tsv"));
    ASSERT_EQ(results["rows"].size(), table.rows.size());
    for (size_t r = 0; r < table.rows.size(); ++r) {
      const json& row = results["rows"][r];
      EXPECT_EQ(row.size(), table.columns.size());
      for (const auto& [name, cell] : table.rows[r]) {
        if (row.at(name).is_string()) {
          EXPECT_EQ(row[name], cell);
        } else if (row.at(name).is_boolean()) {
          EXPECT_EQ(row[name].get<bool>() ? "true" : "false", cell);
        } else {
          expect_cell(row, name, cell);
        }
      }
    }
  }
}

TEST(ReportJson, OfAReportHasItsNumbers) {
  const ReportFolder folder(0.05);
  for (const char* mode : {"1", "0"}) {
    folder.search({"--order", "1-2", "--cv", "4", "--mode", mode});
    const json whole = folder.json("t.tsv");
    const json less = folder.json("r.csv");
    EXPECT_EQ(less["source"], "report");
    EXPECT_EQ(less["settings"]["measure"], "ba");
    // An order without a combination has no rows in either.
    ASSERT_EQ(less["orders"].size(), whole["orders"].size());
    for (size_t o = 0; o < less["orders"].size(); ++o) {
      const json& combinations = less["orders"][o]["combinations"];
      ASSERT_EQ(combinations.size(), whole["orders"][o]["combinations"].size());
      for (size_t r = 0; r < combinations.size(); ++r) {
        const json& one = whole["orders"][o]["combinations"][r];
        EXPECT_EQ(combinations[r]["snps"], one["snps"]);
        EXPECT_NEAR(combinations[r]["weighted_consistency"].get<double>(),
                    one["weighted_consistency"].get<double>(), 1e-6);
        for (const auto& [name, value] : one["train"].items()) {
          EXPECT_NEAR(combinations[r]["train"][name].get<double>(), value.get<double>(), 1e-5) << name;
          EXPECT_NEAR(combinations[r]["test"][name].get<double>(), one["test"][name].get<double>(), 1e-5)
              << name;
        }
      }
    }
  }
}

TEST(ReportJson, RecountsTheCellsOfTheRun) {
  const ReportFolder folder(0.08);
  for (const Words& more :
       {Words{"--order", "1-3"}, Words{"--missing", "complete", "--order", "1-2"}, Words{"--missing", "none"},
        Words{"--tie", "1", "--order", "1-3"}, Words{"--tie", "2", "--order", "1-3"}, Words{"--mode", "3"},
        Words{"--mode", "3", "--missing", "complete"}}) {
    folder.search(more);
    const json table = folder.json("t.tsv");
    EXPECT_EQ(folder.json("t.tsv", {"--genotypes", "g.dat"}), table);
    // Without the cells of the table, and from the report.
    std::string without;
    for (const std::string& line : split_lines(folder.read("t.tsv"))) {
      without += line.starts_with("cell\t") ? "" : line + "\n";
    }
    folder.write("without.tsv", without);
    EXPECT_EQ(folder.json("without.tsv", {"--genotypes", "g.dat"}), table);
    if (more[0] != "--mode") {
      const json report = folder.json("r.csv", {"--genotypes", "g.dat"});
      const json& last = table["orders"].back()["combinations"][0];
      const json& from_report = report["orders"].back()["combinations"][0];
      EXPECT_EQ(from_report["cells"], last["cells"]) << more[0];
      EXPECT_EQ(from_report["positions"], last["positions"]);
      EXPECT_EQ(from_report["threshold"], last["threshold"]);
    }
  }
}

TEST(ReportJson, RefusesTheGenotypesOfAnotherRun) {
  const ReportFolder folder;
  folder.search();
  GenotypeData other = folder.data();
  other.names[2] = "other";
  folder.write("other.dat", normal_file(other));
  const RunResult run = folder.report({"--in", "t.tsv", "--format", "json", "--genotypes", "other.dat"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("other.dat: SNP 3 is \"other\", in the results it is \"rs2\""), std::string::npos)
      << run.err;
}

TEST(ReportJson, KeepsTheCellsOfAScoreBasedRun) {
  const ReportFolder folder;
  std::string scores = "score\n";
  for (const uint8_t value : folder.data().classes) {
    scores += value == 1 ? "0.5\n" : "-0.5\n";
  }
  folder.write("s.txt", scores);
  folder.search({"--score", "s.txt"});
  const json table = folder.json("t.tsv");
  EXPECT_EQ(folder.json("t.tsv", {"--genotypes", "g.dat"}), table);
  const RunResult run = folder.report({"--in", "t.tsv", "--format", "json", "--genotypes", "g.dat"});
  EXPECT_NE(run.err.find("warning: g.dat: the cells of a score-based run are not recounted"),
            std::string::npos);
}

TEST(ReportJson, ReadsCompressedTables) {
  const ReportFolder folder;
  folder.search();
  const json plain = folder.json("t.tsv");
  ASSERT_EQ(run_program("/usr/bin/gzip", {"t.tsv"}, folder.path(".")).status, 0);
  EXPECT_EQ(folder.json("t.tsv.gz"), plain);
}

// Pages are tried in a browser elsewhere; here, what they hold.
class ReportPage : public testing::Test {
 protected:
  void SetUp() override { TAVO_NEEDS(has_page(), "the plotting library of pages (npm ci --prefix report)"); }
};

TEST_F(ReportPage, HoldsTheResultsAndAsksNobody) {
  const ReportFolder folder;
  folder.search({"--order", "1-2"});
  ASSERT_EQ(folder.report({"--in", "t.tsv", "--out", "p.html"}).status, 0);
  // A page has the lists of ranked combinations only.
  json whole = folder.json("t.tsv");
  json shown = folder.page_data("p.html");
  for (size_t o = 0; o < 2; ++o) {
    EXPECT_LE(shown["orders"][o]["lists"].size(), whole["orders"][o]["lists"].size());
    EXPECT_GE(shown["orders"][o]["lists"].size(), 10u);
    shown["orders"][o].erase("lists");
    whole["orders"][o].erase("lists");
  }
  EXPECT_EQ(shown, whole);
  const std::string page = folder.read("p.html");
  EXPECT_NE(page.find("<title>t.tsv</title>"), std::string::npos);
  EXPECT_NE(page.find("default-src 'none'"), std::string::npos);
  for (const char* reference : {"<link", "<iframe", "<script src", "@import"}) {
    EXPECT_EQ(page.find(reference), std::string::npos) << reference;
  }
}

TEST_F(ReportPage, NoNameBreaksOutOfIt) {
  const ReportFolder folder;
  GenotypeData data = folder.data();
  data.names = {"</script><script>x()</script>",
                "<img src=x onerror=x()>",
                "{{SCRIPT}}",
                "\"'onload='x()",
                "<!--",
                "]]>",
                "&amp;",
                "\xff\xfe"};
  folder.write("g.dat", normal_file(data));
  folder.search({"--order", "1-2"});
  ASSERT_EQ(
      folder.report({"--in", "t.tsv", "--out", "p.html", "--title", "</title><script>x()</script>{{DATA}}"})
          .status,
      0);
  const std::string page = folder.read("p.html");
  for (const char* markup : {"<script>x()", "<img src=x", "</title><script>"}) {
    EXPECT_EQ(page.find(markup), std::string::npos) << markup;
  }
  const std::string all = folder.page_data("p.html").dump(-1, ' ', false, json::error_handler_t::replace);
  EXPECT_NE(all.find("<img src=x onerror=x()>"), std::string::npos);
  EXPECT_NE(all.find("{{SCRIPT}}"), std::string::npos);
}

TEST_F(ReportPage, OfARegressionPlacesItsSnps) {
  const ReportFolder folder;
  folder.regress("logistic");
  std::string map;
  for (int j = 0; j < 7; ++j) {
    map += std::to_string(2 - j / 4) + "\trs" + std::to_string(j) + "\t0\t" + std::to_string(100 * j + 7) +
           "\tA\tG\n";
  }
  folder.write("m.bim", map);
  const RunResult run = folder.report({"--in", "t.tsv", "--map", "m.bim", "--out", "p.html"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("warning: m.bim: does not have 1 SNPs"), std::string::npos) << run.err;
  const json data = folder.page_data("p.html");
  EXPECT_EQ(data["n_unplaced"], 1);
  const json& test = data["tests"][0];
  // Chromosome 1 (rs4 to rs6, up to 607) comes before chromosome 2.
  std::map<std::string, int64_t> x;
  for (size_t i = 0; i < test["names"].size(); ++i) {
    x[test["names"][i]] = test["x"][i];
  }
  EXPECT_EQ(
      x,
      (std::map<std::string, int64_t>{
          {"rs0", 614}, {"rs1", 714}, {"rs2", 814}, {"rs3", 914}, {"rs4", 407}, {"rs5", 507}, {"rs6", 607}}));
  EXPECT_EQ(test["n"], 8);
  EXPECT_EQ(test["n_placed"], 7);
}

TEST_F(ReportPage, OfARegressionHasTheBestRowsInOrder) {
  const ReportFolder folder;
  folder.regress("logistic");
  ASSERT_EQ(folder.report({"--in", "t.tsv", "--out", "p.html"}).status, 0);
  const json data = folder.page_data("p.html");
  size_t p = 0;
  while (data["columns"].at(p) != "p") {
    ++p;
  }
  ASSERT_EQ(data["rows"].size(), 8u);
  for (size_t r = 1; r < 8; ++r) {
    EXPECT_LE(data["rows"][r - 1][p].get<double>(), data["rows"][r][p].get<double>());
  }
}

TEST(Report, SaysWhenItHasNoPages) {
  const ReportFolder folder;
  folder.search();
  const RunResult run = folder.report_without_pages({"--in", "t.tsv", "--out", "p.html"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("this build cannot make pages"), std::string::npos);
  EXPECT_FALSE(folder.exists("p.html"));
}

}  // namespace
}  // namespace tavo_test
