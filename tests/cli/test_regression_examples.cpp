// SPDX-License-Identifier: Apache-2.0
//
// Regressions of the PLINK example, from its files to the best SNPs: those that R's glm and lm find in the
// same data (with the three covariates; recorded from R 4.2).
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

class RegressionExample : public testing::Test {
 protected:
  // Converts the example; more: the phenotype's options.
  void convert(const Words& more) {
    const std::string folder = (source_root() / "examples/regenie").string();
    const RunResult run = run_program(
        convert_program(),
        Words{"--bfile", folder + "/example", "--covar", folder + "/covariates.txt", "--covar-out",
              folder_.path("c.txt").string(), "--out", folder_.path("e.tavo").string()} +
            more,
        folder_.path("."));
    ASSERT_EQ(run.status, 0) << run.out << run.err;
  }

  Words phenotype_file(const std::string& name) const {
    return {"--pheno", (source_root() / "examples/regenie" / name).string(), "--pheno-name", "Y1"};
  }

  void fit(const Words& more) {
    const RunResult run = folder_.run(Words{"--in", "e.tavo", "--out", "r.csv", "--covariate", "c.txt",
                                            "--thread", "64", "--block", "4", "--device", "cpu"} +
                                      more);
    ASSERT_EQ(run.status, 0) << run.out << run.err;
  }

  // Field `field` of the rows from line 19 on.
  Words column(size_t first_line, size_t field, size_t n_rows) const {
    const std::vector<std::string> lines = folder_.lines("r.csv");
    Words values;
    for (size_t i = first_line; i < std::min(lines.size(), first_line + n_rows); ++i) {
      values.push_back(split(lines[i], ',').at(field));
    }
    return values;
  }

  CliFolder folder_;
};

TEST_F(RegressionExample, LogisticFindsTheBestSnpsOfR) {
  convert(phenotype_file("phenotype_bin.txt"));
  for (const char* precision : {"single", "double"}) {
    fit({"--regression", "logistic", "--precision", precision});
    EXPECT_EQ(column(19, 1, 10), (Words{"( 619 )", "( 900 )", "( 698 )", "( 1000 )", "( 494 )", "( 32 )",
                                        "( 374 )", "( 265 )", "( 281 )", "( 930 )"}));
  }
  EXPECT_NEAR(338.55186608802205, std::stod(column(19, 5, 1).at(0)), 1e-6);
}

TEST_F(RegressionExample, LinearHasTheSmallestPValuesOfR) {
  convert(phenotype_file("phenotype.txt") + Words{"--quantitative"});
  fit({"--regression", "linear"});
  const std::vector<std::string> lines = folder_.lines("r.csv");
  std::vector<std::pair<double, std::string>> order;
  for (size_t i = 18; i < lines.size(); ++i) {
    const Words fields = split(lines[i], ',');
    order.emplace_back(std::stod(fields.at(5)), fields.at(2));
  }
  ASSERT_EQ(order.size(), 1000u);
  // -9 marks SNPs without heterozygotes.
  std::erase_if(order, [](const auto& entry) { return entry.first < 0.0; });
  std::sort(order.begin(), order.end());
  Words names;
  for (size_t i = 0; i < 10; ++i) {
    names.push_back(order[i].second);
  }
  EXPECT_EQ(names, (Words{"455", "568", "261", "158", "369", "972", "751", "789", "121", "963"}));
}

TEST_F(RegressionExample, PairsHaveTheLargestLikelihoodRatiosOfR) {
  std::string first_30;
  for (int i = 1; i <= 30; ++i) {
    first_30 += std::to_string(i) + "\n";
  }
  folder_.write("snps.txt", first_30);
  convert(phenotype_file("phenotype_bin.txt") + Words{"--extract", folder_.path("snps.txt").string()});
  for (const char* distinct : {"0", "1"}) {
    fit({"--regression", "logistic", "--order", "2", "--distinct", distinct, "--precision", "double"});
    EXPECT_EQ(column(19, 1, 6),
              (Words{"( 10 11 )", "( 11 25 )", "( 14 28 )", "( 1 25 )", "( 5 16 )", "( 6 30 )"}));
    const Words deviances = column(19, 5, 1);
    EXPECT_NEAR(std::stod(column(19, 6, 1).at(0)) - std::stod(deviances.at(0)), 27.26364, 1e-4);
  }
}

}  // namespace
}  // namespace tavo_test
