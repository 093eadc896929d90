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
#include "tests/support/genotype_file.h"
#include "tests/support/regression_data.h"
#include "tests/support/run_program.h"

namespace tavo_test {
namespace {

using Words = std::vector<std::string>;

// The genotype file: classes as integers, or quantitative phenotypes as floats.
std::string file_of(const RegressionData& data, bool quantitative) {
  const auto n_snps = data.genotypes.at(0).size();
  std::string bytes = "TAVO" + le32(static_cast<uint32_t>(data.genotypes.size())) +
                      le32(static_cast<uint32_t>(n_snps)) + le32(8);
  for (size_t j = 0; j < n_snps; ++j) {
    std::string name = "rs" + std::to_string(j);
    name.resize(8, '\0');
    bytes += name;
  }
  const size_t width = (n_snps + 15) / 16;
  for (size_t i = 0; i < data.genotypes.size(); ++i) {
    uint32_t value = static_cast<uint32_t>(static_cast<int>(data.phenotypes[i]));
    if (quantitative) {
      std::memcpy(&value, &data.phenotypes[i], 4);
    }
    bytes += le32(value);
    for (size_t w = 0; w < width; ++w) {
      bytes += le32(data.words[i * width + w]);
    }
  }
  return bytes;
}

// missing: samples whose line has an NA.
std::string covariate_file(const RegressionData& data, const std::vector<bool>& missing) {
  const auto n_covariates = static_cast<size_t>(data.problem.n_covariates);
  std::string text = "FID\tIID";
  for (size_t c = 0; c < n_covariates; ++c) {
    text += "\tcov" + std::to_string(c);
  }
  text += "\n";
  for (size_t i = 0; i < data.genotypes.size(); ++i) {
    text += "f\ti";
    for (size_t c = 0; c < n_covariates; ++c) {
      char value[40];
      std::snprintf(value, sizeof(value), "\t%.9g",
                    static_cast<double>(data.covariates[i * n_covariates + c]));
      text += missing[i] && c + 1 == n_covariates ? "\tNA" : value;
    }
    text += "\n";
  }
  return text;
}

// The samples without a missing covariate.
void keep_complete(const RegressionData& data, const std::vector<bool>& missing, RegressionData* kept) {
  const auto n_covariates = static_cast<size_t>(data.problem.n_covariates);
  for (size_t i = 0; i < data.genotypes.size(); ++i) {
    if (!missing[i]) {
      kept->genotypes.push_back(data.genotypes[i]);
      kept->phenotypes.push_back(data.phenotypes[i]);
      for (size_t c = 0; c < n_covariates; ++c) {
        kept->covariates.push_back(data.covariates[i * n_covariates + c]);
      }
    }
  }
  kept->finish(data.problem.n_covariates);
}

std::vector<std::string> lines_of(const std::filesystem::path& path) {
  std::istringstream text(read_file(path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string formatted(const char* format, double value) {
  char text[400];
  std::snprintf(text, sizeof(text), format, value);
  return std::isnan(value) ? "nan" : text;
}

struct NaiveRow {
  std::vector<int> snps;
  double slots[32] = {};
};

// The rows that a logistic report lists below its header.
std::vector<std::string> naive_rows(const Problem& problem, const RegressionRules& rules, size_t top) {
  const int order = rules.order();
  const auto np = static_cast<size_t>(problem.n_covariates + (order == 2 ? 9 : 3));
  float null_dev = 0.0f;
  float null_df = 0.0f;
  regression_null_logistic(problem.n_samples, problem.n_covariates + 1, problem.covariates, 20,
                           problem.phenotypes, &null_dev, &null_df);
  const auto model_df = static_cast<float>(problem.n_samples - 1 - order);
  std::vector<NaiveRow> rows;
  for (int i = 0; i < problem.n_snps; ++i) {
    for (int j = order == 2 ? i + 1 : i; j < (order == 2 ? problem.n_snps : i + 1); ++j) {
      NaiveRow& row = rows.emplace_back();
      row.snps = order == 2 ? std::vector<int>{i, j} : std::vector<int>{i};
      const ItemFit fit = naive_logistic(problem, rules, row.snps.data());
      if (fit.state == FitState::kFailed) {
        row.slots[0] = row.slots[1] = row.slots[2] = -1.0;
      } else if (fit.state == FitState::kFitted) {
        for (size_t k = 0; k < np; ++k) {
          const auto coefficient = static_cast<float>(fit.coefficients[k]);
          row.slots[k] = static_cast<double>(order == 2 ? coefficient : tavo_expf(coefficient));
          if (order == 1) {
            row.slots[np + k] = static_cast<double>(coefficient / static_cast<float>(fit.standard_errors[k]));
          }
        }
        if (order == 2) {
          row.slots[np] = fit.converged ? 1.0 : 0.0;
          row.slots[np + 1] = fit.iterations;
          row.slots[np + 2] = fit.last_step;
        }
        row.slots[0] = fit.deviance;
      }
      row.slots[np] = static_cast<double>(
          static_cast<float>(LRtest(static_cast<float>(row.slots[0]), model_df, null_dev, null_df)));
    }
  }
  std::stable_sort(rows.begin(), rows.end(), [np](const NaiveRow& a, const NaiveRow& b) {
    return std::isnan(b.slots[np]) ? !std::isnan(a.slots[np]) : a.slots[np] < b.slots[np];
  });
  rows.resize(std::min(top, rows.size()));
  std::vector<std::string> lines;
  for (size_t r = 0; r < rows.size(); ++r) {
    const NaiveRow& row = rows[r];
    std::string line = std::to_string(r) + ",(";
    for (const int snp : row.snps) {
      line += " rs" + std::to_string(snp);
    }
    const double whole = row.slots[np + 1];
    line += std::string(" ),") + (row.slots[np] == 1.0 ? "Y" : "N") + "," +
            std::to_string(std::fabs(whole) < 2147483648.0 ? static_cast<int>(whole) : -2147483647 - 1);
    for (const double value : {row.slots[np + 2], row.slots[0], static_cast<double>(null_dev),
                               LRtest(static_cast<float>(row.slots[0]), model_df, null_dev, null_df),
                               row.slots[1], row.slots[2]}) {
      line += "," + formatted("%.20f", value);
    }
    for (size_t slot = 3; order == 2 && slot <= 8; ++slot) {
      line += "," + formatted("%.20f", row.slots[slot]);
    }
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
    write_file(folder.path() / "g.dat", file_of(all, false));
    const int thread = 1 + static_cast<int>(random() % 9);
    Words words = regression_words("logistic", workers, thread, 2) + Words{"--order", std::to_string(order)};
    if (n_covariates > 0) {
      write_file(folder.path() / "cov.txt", covariate_file(all, missing));
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
    EXPECT_EQ(rows, naive_rows(data.problem, rules, top));
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
  write_file(folder.path() / "g.dat", file_of(data, true));
  write_file(folder.path() / "cov.txt", covariate_file(data, std::vector<bool>(200, false)));
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
    write_file(folder.path() / "g.dat", file_of(data, kind == "linear"));
    write_file(folder.path() / "cov.txt",
               covariate_file(data, std::vector<bool>(data.genotypes.size(), false)));
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
