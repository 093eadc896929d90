// SPDX-License-Identifier: Apache-2.0
//
// What regression runs print and write, line by line. Their numbers are the matter of tests/parity.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

Words regression(const std::string& kind, const Words& more = {}) {
  return Words{"--in",    "g.dat", "--out", "r.csv", "--regression", kind, "--thread", "8",
               "--block", "4",     "--gpu", "2",     "--device",     "cpu"} +
         more;
}

// The samples' covariates "age" and "dose"; the lines in `missing` lack the second.
std::string covariates(int n_samples, const std::vector<int>& missing = {}) {
  std::string text = "FID\tIID\tage\tdose\n";
  for (int i = 0; i < n_samples; ++i) {
    const bool lacks = std::find(missing.begin(), missing.end(), i) != missing.end();
    text += "f\ti\t" + std::to_string(i * 37 % 61 - 30) + "\t" +
            (lacks ? "NA" : std::to_string(i * 17 % 11)) + "\n";
  }
  return text;
}

// The places of the lines in the text, in this order.
void expect_in_order(const std::string& text, const Words& lines) {
  size_t place = 0;
  for (const std::string& line : lines) {
    const size_t found = text.find(line, place);
    ASSERT_NE(found, std::string::npos) << "after the others: " << line << "\n" << text;
    place = found + line.size();
  }
}

TEST(LogisticRun, PrintsItsCourse) {
  const CliFolder folder(balanced_data(60, 70));
  folder.write("cov.txt", covariates(60, {7}));
  const RunResult run = folder.run(regression("logistic", {"--covariate", "cov.txt", "--top", "5"}));
  ASSERT_EQ(run.status, 0) << run.out;
  expect_in_order(
      run.out,
      {"7 th covarite is missing!\n", "Covarite file [59 entries, 2 covarites] read complete\n",
       "1 cv and start from 0th CV\n", "Enter to MDR methods...\n",
       "7th entry has ignored by covarite missing\n", "Arranged individual count is 59\n",
       "new_comb 2097152*1 size\n", "result_top_num 5\n", "Regression routine entered : method is Logistic\n",
       "new_stat 2097152*32 size\n", "CUDA::SENDBASEDATA (2 covars) ENTER\n", "Order is 1\n", "0, [", "64, [",
       "Termination complete...\n", "Regression method is 1\n", "TAVO Analysis finished!!\n"});
  EXPECT_TRUE(contains(run.out, "Enter to logistic NP 5\n"));
  EXPECT_FALSE(contains(run.out, "Ordered sendbase"));
  expect_in_order(run.err, {"One loop taken ", " ms,  TOTLOC 70\n", "Enter to terminate thread...\n"});
}

TEST(LogisticRun, ReportsUnderItsHead) {
  const CliFolder folder(balanced_data(60, 70));
  folder.write("cov.txt", covariates(60));
  ASSERT_EQ(folder.run(regression("logistic", {"--covariate", "cov.txt", "--top", "5"})).status, 0);
  const std::vector<std::string> lines = folder.lines("r.csv");
  ASSERT_EQ(lines.size(), 25u);
  EXPECT_EQ(lines[0], "====================================   Time   =====================================");
  EXPECT_TRUE(begins_with(lines[1], "Total time,"));
  EXPECT_EQ(lines[2], std::string(79, '='));
  EXPECT_EQ(lines[3], "");
  EXPECT_EQ(lines[4], "====================================  Options  ====================================");
  EXPECT_TRUE(begins_with(lines[5], "Command,"));
  EXPECT_EQ(lines[5].back(), ' ');
  EXPECT_EQ(lines[6], "1.input_file,g.dat");
  EXPECT_EQ(lines[7], "2.result_file,r.csv");
  EXPECT_EQ(lines[8], "3.covariate_file,cov.txt");
  EXPECT_EQ(lines[9], "4.regression_method,Logistic");
  EXPECT_EQ(lines[10], "5.gpu_count,2");
  EXPECT_EQ(lines[11], "6.thread_count,8");
  EXPECT_EQ(lines[12], "7.block_count,4");
  EXPECT_EQ(lines[13], "8.top_report,5");
  EXPECT_EQ(lines[14], std::string(78, '='));
  EXPECT_EQ(lines[15], "");
  EXPECT_EQ(lines[16], "====================================  Results  ====================================");
  EXPECT_EQ(lines[17], "<<-1-Order Best Combination Sets>>");  // the order was not given
  EXPECT_EQ(lines[18], "num,SNP,coverged,iter,model_dev,null_dev,p,snp1_1,snp1_2");
  for (size_t r = 0; r < 5; ++r) {
    const Words fields = split(lines[19 + r], ',');
    ASSERT_EQ(fields.size(), 10u);  // one more than the header has
    EXPECT_EQ(fields[0], std::to_string(r));
    EXPECT_TRUE(begins_with(fields[1], "( rs")) << fields[1];
    EXPECT_EQ(fields[2], "N");  // the p-value stands where the flag is read
  }
  EXPECT_EQ(lines[24], std::string(79, '='));
}

TEST(LogisticRun, OfPairsHasTheirColumnsAndNamesThePositionOfItsOrder) {
  const CliFolder folder(balanced_data(80, 6));
  const RunResult run = folder.run(regression("logistic", {"--order", "2", "--top", "3", "--distinct", "1"}));
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(has_line(run.out, "Ordered sendbase")) << run.out;
  EXPECT_TRUE(has_line(run.out, "Distinct calculation mode in logistic regression"));
  EXPECT_TRUE(has_line(run.out, "Order is 2"));
  EXPECT_TRUE(has_line(run.out, "Enter to ordered logistic NP 9, distincted to 1 blocks and 16,32 threads"));
  const std::vector<std::string> lines = folder.lines("r.csv");
  ASSERT_EQ(lines.size(), 23u);
  EXPECT_EQ(lines[8], "3.covariate_file,-");
  EXPECT_EQ(lines[17], "<<16-Order Best Combination Sets>>");
  EXPECT_EQ(lines[18],
            "num,SNP,coverged,iter,model_dev,null_dev,p,snp1_1,snp1_2,snp2_1,snp2_2,snp1_1*snp2_1,"
            "snp1_1*snp2_2,snp1_2*snp2_1,snp1_2*snp2_2");
  EXPECT_EQ(split(lines[19], ',').size(), 16u);
}

TEST(LogisticRun, DistinctOrNotGivesTheSamePairs) {
  const CliFolder folder(balanced_data(80, 6));
  ASSERT_EQ(folder.run(regression("logistic", {"--order", "2", "--distinct", "1"})).status, 0);
  const std::vector<std::string> distinct = folder.lines("r.csv");
  ASSERT_EQ(folder.run(regression("logistic", {"--order", "2", "--distinct", "0"})).status, 0);
  const std::vector<std::string> lines = folder.lines("r.csv");
  ASSERT_EQ(lines.size(), distinct.size());
  EXPECT_TRUE(std::equal(lines.begin() + 17, lines.end(), distinct.begin() + 17));
}

TEST(LogisticRun, WithoutATopListEndsAfterItsHeader) {
  const CliFolder folder(balanced_data(40, 6));
  ASSERT_EQ(folder.run(regression("logistic", {"--top", "0"})).status, 0);
  const std::vector<std::string> lines = folder.lines("r.csv");
  ASSERT_EQ(lines.size(), 20u);
  EXPECT_EQ(lines[19], std::string(79, '='));
}

TEST(LogisticRun, HasNoMoreRowsThanItems) {
  const CliFolder folder(balanced_data(40, 6));
  ASSERT_EQ(folder.run(regression("logistic", {"--top", "100"})).status, 0);
  EXPECT_EQ(folder.lines("r.csv").size(), 20u + 6u);
}

TEST(LogisticRun, SaysThatFitsFailedOrThatSamplesAreFew) {
  const CliFolder folder(balanced_data(4, 6));
  folder.write("cov.txt", covariates(4));
  const RunResult run = folder.run(regression("logistic", {"--covariate", "cov.txt"}));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(notices_with(run, {"4 samples", "5 columns"}), 1) << run.err;
}

TEST(LogisticRun, SaysThatSinglePrecisionHasItsLimits) {
  const CliFolder folder(balanced_data(2002, 3));
  EXPECT_EQ(notices_with(folder.run(regression("logistic")), {"single precision", "--precision double"}), 1);
  EXPECT_EQ(notices_with(folder.run(regression("logistic", {"--precision", "double"})), {"precision"}), 0);
  const CliFolder small(balanced_data(60, 3));
  EXPECT_EQ(notices_with(small.run(regression("logistic")), {"precision"}), 0);
  std::string years = "FID\tIID\tyear\n";
  for (int i = 0; i < 60; ++i) {
    years += "f\ti\t" + std::to_string(1950 + i % 40) + "\n";
  }
  small.write("cov.txt", years);
  EXPECT_EQ(
      notices_with(small.run(regression("logistic", {"--covariate", "cov.txt"})), {"left out", "scale"}), 1);
}

TEST(LogisticRun, IsTheSameForAnyNumberOfWorkersInEitherPrecision) {
  const CliFolder folder(balanced_data(120, 30, 0.02));
  folder.write("cov.txt", covariates(120, {0, 50, 119}));
  for (const Words& kind :
       {Words{"--order", "1"}, Words{"--order", "2"}, Words{"--order", "1", "--precision", "double"},
        Words{"--order", "2", "--precision", "double"}}) {
    std::vector<std::string> first;
    std::string first_table;
    for (const char* workers : {"1", "2", "3", "7"}) {
      ASSERT_EQ(folder
                    .run(regression("logistic", {"--covariate", "cov.txt", "--tidy", "t.tsv"}) + kind +
                         Words{"--gpu", workers})
                    .status,
                0);
      std::vector<std::string> lines = folder.lines("r.csv");
      lines.erase(lines.begin(), lines.begin() + 17);
      first = first.empty() ? lines : first;
      EXPECT_EQ(lines, first) << workers;
      const std::string table = read_file(folder.path("t.tsv"));
      first_table = first_table.empty() ? table : first_table;
      EXPECT_EQ(table, first_table) << workers;
    }
  }
}

TEST(LinearRun, PrintsItsCourseAndIgnoresIterations) {
  const CliFolder folder(balanced_data(60, 5));
  const RunResult run = folder.run(regression("linear"));
  ASSERT_EQ(run.status, 0) << run.out;
  expect_in_order(run.out, {"Other regression doesn't use iteration option, this option will be ignored\n",
                            "Regression routine entered : method is Linear\n", "Enter to linear NP 3\n",
                            "Termination complete...\n", "Regression method is 2\n"});
  const std::vector<std::string> lines = folder.lines("r.csv");
  ASSERT_EQ(lines.size(), 23u);
  EXPECT_EQ(lines[8], "3.score_file,-");
  EXPECT_EQ(lines[9], "4.regression_method,Linear");
  EXPECT_EQ(lines[12], "7.block_count,4");
  EXPECT_EQ(lines[13], std::string(78, '='));
  EXPECT_EQ(lines[16], "<<Regression result>>");
  EXPECT_EQ(lines[17], "num,SNP,col,or,beta,p");
  EXPECT_TRUE(begins_with(lines[18], "1,(rs0),rs0,"));
}

TEST(LinearRun, SaysThatPhenotypesAreNone) {
  const CliFolder classes(balanced_data(60, 5));
  EXPECT_EQ(notices_with(classes.run(regression("linear")), {"30 of 60", "phenotype", "classes"}), 1);
  GenotypeData data = balanced_data(60, 5);
  data.classes.assign(60, 0);
  EXPECT_EQ(notices_with(CliFolder(data).run(regression("linear")), {"phenotype"}), 0);
}

TEST(Covariates, ThatAreOddAreNamedWithTheirPlace) {
  const CliFolder folder(balanced_data(60, 5));
  const std::string good = covariates(60);
  const size_t place = good.find("\n", good.find("\n") + 1) + 1;  // the second line of data
  const size_t end = good.find("\n", place);
  const auto run_with = [&](const std::string& value) {
    folder.write("cov.txt", good.substr(0, place) + "f\ti\t" + value + "\t1" + good.substr(end));
    return folder.run(regression("logistic", {"--covariate", "cov.txt"}));
  };
  for (const std::string& value :
       {std::string("nan"), std::string("-inf"), std::string("1e39"), std::string("."), std::string("3,5"),
        std::string(), std::string("3\0junk", 6)}) {
    const RunResult run = run_with(value);
    EXPECT_EQ(run.status, 0) << value;
    EXPECT_EQ(notices_with(run, {"cov.txt, line 3, field 3", "no finite number"}), 1) << value << run.err;
    EXPECT_EQ(notices_with(run, {"single precision"}), 0) << value << run.err;
  }
  for (const char* value : {"3", " 3", "3 ", "-3e-50", "0x1p3"}) {
    EXPECT_EQ(notices_with(run_with(value), {"cov.txt"}), 0) << value;
  }
}

TEST(Covariates, ThatAreSeparatedByBlanksAreNone) {
  const CliFolder folder(balanced_data(60, 5));
  std::string text = covariates(60);
  folder.write("cov.txt", text);
  EXPECT_EQ(notices_with(folder.run(regression("logistic", {"--covariate", "cov.txt"})), {"cov.txt"}), 0);
  std::replace(text.begin(), text.end(), '\t', ' ');
  folder.write("cov.txt", text);
  EXPECT_EQ(notices_with(folder.run(regression("logistic", {"--covariate", "cov.txt"})),
                         {"cov.txt", "no covariate", "tabs"}),
            1);
}

TEST(LinearRun, OfPairsIsRefusedAfterItsHead) {
  const CliFolder folder(balanced_data(60, 5));
  const RunResult run = folder.run(regression("linear", {"--order", "2"}));
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(has_line(run.out, "Can't support ordered linear regression at this time")) << run.out;
  const std::vector<std::string> lines = folder.lines("r.csv");
  ASSERT_EQ(lines.size(), 18u);
  EXPECT_EQ(lines.back(), "num,SNP,col,or,beta,p");
}

TEST(LinearRun, DoesNotNeedAScoreFile) {
  const CliFolder folder(balanced_data(60, 5));
  const RunResult run = folder.run(regression("linear", {"--score", "absent.txt"}));
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(has_line(run.out, "Can't open score file, use original phenotype...")) << run.out;
}

TEST(TidyTable, HasOneRowPerSnpAndNamesEveryColumn) {
  const CliFolder folder(balanced_data(80, 9));
  folder.write("cov.txt", covariates(80));
  ASSERT_EQ(
      folder.run(regression("logistic", {"--covariate", "cov.txt", "--tidy", "t.tsv", "--top", "2"})).status,
      0);
  const std::vector<std::string> lines = folder.lines("t.tsv");
  ASSERT_EQ(lines.size(), 10u);
  EXPECT_EQ(lines[0],
            "number\tsnp\tposition\tn\tstatus\tconverged\titerations\tdeviance\tnull_deviance\tlr_statistic\t"
            "df_reported\tp_reported\tdf\tp\tbeta_intercept\tse_intercept\tstatistic_intercept\tp_intercept\t"
            "beta_het\tse_het\tstatistic_het\tp_het\tbeta_hom\tse_hom\tstatistic_hom\tp_hom\t"
            "beta_covariate_age\tse_covariate_age\tstatistic_covariate_age\tp_covariate_age\t"
            "beta_covariate_dose\tse_covariate_dose\tstatistic_covariate_dose\tp_covariate_dose");
  for (size_t r = 1; r < lines.size(); ++r) {
    const Words fields = split(lines[r], '\t');
    EXPECT_EQ(fields.size(), 34u);
    EXPECT_EQ(fields[0], std::to_string(r));
    EXPECT_EQ(fields[1], "rs" + std::to_string(r - 1));
    EXPECT_EQ(fields[2], std::to_string(r));
    EXPECT_EQ(fields[3], "80");
  }
}

// SNP 0 has homozygotes among the cases only: their estimate runs away.
TEST(TidyTable, HasNoEstimateOfWhatSinglePrecisionCutsOff) {
  GenotypeData data = balanced_data(80, 2);
  for (size_t i = 0; i < 80; ++i) {
    uint8_t& genotype = data.genotypes[2 * i];
    genotype = genotype == 2 && data.classes[i] == 0 ? 0 : genotype;
  }
  const CliFolder folder(data);
  ASSERT_EQ(folder.run(regression("logistic", {"--tidy", "t.tsv"})).status, 0);
  const std::vector<std::string> lines = folder.lines("t.tsv");
  const Words names = split(lines.at(0), '\t');
  const Words fields = split(lines.at(1), '\t');
  ASSERT_EQ(fields.size(), names.size());
  const auto field = [&](const std::string& name) {
    return fields[static_cast<size_t>(std::find(names.begin(), names.end(), name) - names.begin())];
  };
  EXPECT_EQ(field("status"), "ok");
  EXPECT_EQ(field("df"), "2");
  EXPECT_NE(field("p_het"), "NA");
  for (const char* name : {"beta_hom", "se_hom", "statistic_hom", "p_hom"}) {
    EXPECT_EQ(field(name), "NA") << name;
  }
}

TEST(TidyTable, OfPairsHasTheBest) {
  const CliFolder folder(balanced_data(80, 9));
  ASSERT_EQ(folder.run(regression("logistic", {"--order", "2", "--tidy", "t.tsv", "--top", "4"})).status, 0);
  const std::vector<std::string> lines = folder.lines("t.tsv");
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_TRUE(begins_with(lines[0], "number\tsnp1\tsnp2\tposition1\tposition2\tn\tstatus\tconverged\t"));
}

TEST(TidyTable, ThatCannotBeCreatedIsRefusedBeforeTheWork) {
  const CliFolder folder(balanced_data(40, 4));
  const RunResult run = folder.run(regression("logistic", {"--tidy", "absent/t.tsv"}));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(notices_with(run, {"absent/t.tsv"}), 1) << run.err;
  EXPECT_FALSE(contains(run.out, "Order is"));
}

}  // namespace
}  // namespace tavo_test
