// SPDX-License-Identifier: Apache-2.0
//
// Whole regression runs. Logistic reports in single precision must be, byte for byte, what naive fits and a
// report written out line by line give; double precision must give what R recorded.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <sstream>

#include "cpu/simd.h"
#include "lib/dcdflib.h"
#include "lib/float_math.h"
#include "lib/regression.h"
#include "tests/reference/naive_regression.h"
#include "tests/reference/naive_regression_report.h"
#include "tests/support/genotype_file.h"
#include "tests/support/regression_data.h"
#include "tests/support/run_program.h"

namespace tavo_test {
namespace {

using Words = std::vector<std::string>;

std::vector<std::string> lines_of(const std::filesystem::path& path) {
  std::istringstream text(read_file(path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  return lines;
}

Words regression_words(const std::string& kind, int workers, int thread, int block) {
  return {"--in",         "g.dat",
          "--out",        "r.csv",
          "--regression", kind,
          "--thread",     std::to_string(thread),
          "--block",      std::to_string(block),
          "--gpu",        std::to_string(workers),
          "--device",     "cpu"};
}

Words operator+(Words first, const Words& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST(LogisticRuns, EqualTheNaiveReport) {
  std::mt19937 random(21);
  for (int run = 0; run < 24; ++run) {
    const int order = run % 3 == 2 ? 2 : 1;
    const int n_covariates = run % 4 == 0 ? 0 : 1 + static_cast<int>(random() % 4);
    const int n_samples = 30 + static_cast<int>(random() % 120);
    const int n_snps = order == 2 ? 7 : 40;
    const int workers = 1 + run % 7;
    RegressionData all;
    make_random(random, n_samples, n_snps, n_covariates, run % 2 == 0 ? 0.0 : 0.05, false, &all);
    std::vector<bool> missing(static_cast<size_t>(n_samples), false);
    for (size_t i = 0; n_covariates > 0 && i < missing.size(); ++i) {
      missing[i] = random() % 10 == 0;
    }
    RegressionData data;
    keep_complete(all, missing, &data);

    const TempDir folder;
    write_file(folder.path() / "g.dat", regression_file(all, false));
    const int thread = 1 + static_cast<int>(random() % 9);
    Words words = regression_words("logistic", workers, thread, 2) + Words{"--order", std::to_string(order)};
    if (n_covariates > 0) {
      write_file(folder.path() / "cov.txt", covariate_text(all, missing));
      words = words + Words{"--covariate", "cov.txt"};
    }
    RegressionRules rules;
    rules.model = order == 2 ? RegressionModel::kOrderedLogistic : RegressionModel::kLogistic;
    rules.iterations = run % 5 == 3 ? run : 20;
    const size_t top = run % 6 == 5 ? 0 : 1 + random() % 50;
    words = words + Words{"--iter",     std::to_string(rules.iterations), "--top", std::to_string(top),
                          "--distinct", std::to_string(run % 2)};
    const char* sets[] = {"scalar", "avx2", "avx512"};
    const InstructionSet codes[] = {InstructionSet::kScalar, InstructionSet::kAvx2, InstructionSet::kAvx512};
    const size_t set = static_cast<size_t>(run) % 3;
    SCOPED_TRACE("run " + std::to_string(run));
    const RunResult result = run_program(tavo_program(), words, folder.path(),
                                         {{"TAVO_SIMD", has(codes[set]) ? sets[set] : "scalar"}});
    ASSERT_EQ(result.status, 0) << result.out << result.err;

    std::vector<std::string> lines = lines_of(folder.path() / "r.csv");
    // 5 lines of Time and a blank, command, options 1 to 8, 3 lines to the results.
    ASSERT_GT(lines.size(), 19u);
    const std::vector<std::string> rows(lines.begin() + 19, lines.end() - 1);
    EXPECT_EQ(rows, naive_logistic_rows(data.problem, rules, top));
    EXPECT_EQ(lines.back(), std::string(79, '='));
    if (testing::Test::HasFailure()) {
      return;
    }
  }
}

TEST(LinearRuns, AgreeWithTheNaiveDecompositionForAnyNumberOfWorkers) {
  std::mt19937 random(22);
  RegressionData data;
  make_random(random, 200, 33, 2, 0.03, true, &data);
  const TempDir folder;
  write_file(folder.path() / "g.dat", regression_file(data, true));
  write_file(folder.path() / "cov.txt", covariate_text(data, std::vector<bool>(200, false)));
  std::vector<std::string> first;
  for (int workers = 1; workers <= 7; ++workers) {
    const RunResult result = run_program(
        tavo_program(), regression_words("linear", workers, workers, 3) + Words{"--covariate", "cov.txt"},
        folder.path());
    ASSERT_EQ(result.status, 0) << result.out << result.err;
    std::vector<std::string> lines = lines_of(folder.path() / "r.csv");
    ASSERT_EQ(lines.size(), 18u + 33u);
    EXPECT_EQ(lines[1], "Total time,0.00 sec");
    EXPECT_EQ(lines[16], "<<Regression result>>");
    EXPECT_EQ(lines[17], "num,SNP,col,or,beta,p");
    lines.erase(lines.begin(), lines.begin() + 18);
    first = workers == 1 ? lines : first;
    EXPECT_EQ(lines, first) << workers << " workers";
  }
  int without = 0;
  for (int snp = 0; snp < 33; ++snp) {
    const ItemFit fit = naive_linear(data.problem, &snp);
    std::istringstream text(first[static_cast<size_t>(snp)]);
    Words fields;
    for (std::string field; std::getline(text, field, ',');) {
      fields.push_back(field);
    }
    const std::string name = "rs" + std::to_string(snp);
    ASSERT_EQ(fields.size(), 16u);
    EXPECT_EQ(fields[0], std::to_string(snp + 1));
    EXPECT_EQ(fields[1], "(" + name + ")");
    EXPECT_EQ(fields[2], name);
    // The SNP's own columns, then those one before each covariate's.
    const size_t places[] = {3, 8, 13};
    int homozygous = 0;
    for (const std::vector<int>& genotypes : data.genotypes) {
      homozygous += genotypes[static_cast<size_t>(snp)] == 2 ? 1 : 0;
    }
    if (homozygous == 0) {
      // In single precision the decomposition does not see that a column is zero; the normal equations do.
      EXPECT_EQ(std::stod(fields[8]), 0.0);
      EXPECT_EQ(fields[9], "nan");
      EXPECT_EQ(std::stod(fields[10]), -9.0);
      ++without;
      continue;
    }
    for (size_t column = 1; column <= 3; ++column) {
      const size_t place = places[column - 1];
      const double se = fit.standard_errors[column];
      const double t = fit.coefficients[column] / se;
      EXPECT_NEAR(std::stod(fields[place]), fit.coefficients[column], 5e-4 * se);
      EXPECT_NEAR(std::stod(fields[place + 1]), t, 1e-3);
      EXPECT_NEAR(std::stod(fields[place + 2]), pT(t, 200.0 - 5.0), 1e-3);
    }
    EXPECT_EQ(fields[7], "cov0");
    EXPECT_EQ(fields[12], "cov1");
  }
  EXPECT_GT(without, 0);
  EXPECT_LT(without, 10);
}

// The columns of a tab-separated table by name.
using Table = std::vector<std::map<std::string, std::string>>;

Table table_of(const std::filesystem::path& path) {
  const std::vector<std::string> lines = lines_of(path);
  const auto split = [](const std::string& line) {
    Words fields;
    std::istringstream text(line);
    for (std::string field; std::getline(text, field, '\t');) {
      fields.push_back(field);
    }
    return fields;
  };
  const Words names = split(lines.at(0));
  Table table;
  for (size_t r = 1; r < lines.size(); ++r) {
    const Words fields = split(lines[r]);
    EXPECT_EQ(fields.size(), names.size()) << r;
    auto& row = table.emplace_back();
    for (size_t c = 0; c < fields.size(); ++c) {
      row[names[c]] = fields[c];
    }
  }
  return table;
}

// What users load into R holds what R finds itself.
TEST(TidyTables, OfDoublePrecisionHoldTheNumbersOfR) {
  for (const std::string kind : {"logistic", "linear", "pair"}) {
    const std::string phenotype = kind == "linear" ? "trait" : "case";
    RegressionData data;
    load_recorded(phenotype, 3, &data);
    const TempDir folder;
    write_file(folder.path() / "g.dat", regression_file(data, kind == "linear"));
    write_file(folder.path() / "cov.txt",
               covariate_text(data, std::vector<bool>(data.genotypes.size(), false)));
    const RunResult result =
        run_program(tavo_program(),
                    regression_words(kind == "linear" ? "linear" : "logistic", 2, 8, 1) +
                        Words{"--covariate", "cov.txt", "--precision", "double", "--tidy", "t.tsv", "--order",
                              kind == "pair" ? "2" : "1", "--top", "1000"},
                    folder.path());
    ASSERT_EQ(result.status, 0) << result.out << result.err;
    const Table table = table_of(folder.path() / "t.tsv");
    ASSERT_EQ(table.size(), kind == "pair" ? 28u : 8u);
    Words terms = {"intercept", "het", "hom"};
    if (kind == "pair") {
      terms = {"intercept",     "snp1_1",        "snp1_2",        "snp2_1",       "snp2_2",
               "snp1_1*snp2_1", "snp1_1*snp2_2", "snp1_2*snp2_1", "snp1_2*snp2_2"};
    }
    terms = terms + Words{"covariate_cov0", "covariate_cov1", "covariate_cov2"};
    int compared = 0;
    for (const std::vector<std::string>& recorded : recorded_table("fits.tsv")) {
      if (recorded[0] != kind || recorded[3] != "3") {
        continue;
      }
      const auto row = std::find_if(table.begin(), table.end(), [&](const auto& candidate) {
        return kind == "pair"
                   ? candidate.at("position1") == recorded[1] && candidate.at("position2") == recorded[2]
                   : candidate.at("position") == recorded[1];
      });
      ASSERT_NE(row, table.end());
      EXPECT_EQ(row->at("status"), "ok");
      EXPECT_EQ(row->at("n"), "400");
      const double deviance = std::stod(recorded[4]);
      EXPECT_NEAR(std::stod(row->at(kind == "linear" ? "rss" : "deviance")), deviance, 1e-10 * deviance);
      if (kind != "linear") {
        EXPECT_EQ(row->at("converged"), "true");
        const double statistic = std::stod(row->at("null_deviance")) - deviance;
        EXPECT_NEAR(std::stod(row->at("lr_statistic")), statistic, 1e-9);
        EXPECT_EQ(row->at("df_reported"), kind == "pair" ? "2" : "1");
        const int df = std::stoi(recorded[5]) - 4;
        EXPECT_EQ(row->at("df"), std::to_string(df));
        if (df > 0) {
          EXPECT_NEAR(std::stod(row->at("p")), chi_square_upper_tail(statistic, df), 1e-9);
        }
      }
      for (size_t j = 0; j < terms.size(); ++j) {
        const std::string& beta = row->at("beta_" + terms[j]);
        if (recorded[6 + 2 * j] == "NA") {
          EXPECT_EQ(beta, "NA");
          EXPECT_EQ(row->at("p_" + terms[j]), "NA");
          continue;
        }
        const double expected = std::stod(recorded[6 + 2 * j]);
        EXPECT_NEAR(std::stod(beta), expected, 1e-8 * std::max(1.0, std::fabs(expected)));
        const double se = std::stod(recorded[7 + 2 * j]);
        EXPECT_NEAR(std::stod(row->at("se_" + terms[j])), se, 1e-8 * std::max(1.0, se));
        ++compared;
      }
    }
    EXPECT_GT(compared, 20) << kind;
  }
}

}  // namespace
}  // namespace tavo_test
