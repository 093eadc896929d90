// SPDX-License-Identifier: Apache-2.0
//
// What is refused beyond the option messages: status 1, a message on standard output that names the option or
// the file, and nothing begun.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

// Status 1, every part in the message, and neither the analysis nor its result file begun.
void expect_refused(const CliFolder& folder, const Words& words, const Words& parts) {
  const RunResult run = folder.run(words);
  EXPECT_EQ(run.status, 1) << ::testing::PrintToString(words) << run.out << run.err;
  for (const std::string& part : parts) {
    EXPECT_TRUE(contains(run.out, part))
        << ::testing::PrintToString(words) << " should name " << part << ": " << run.out;
  }
  EXPECT_TRUE(run.out.ends_with("\n")) << run.out;
  EXPECT_FALSE(contains(run.out, "Enter to MDR methods...")) << ::testing::PrintToString(words) << run.out;
  EXPECT_FALSE(contains(run.out, "## tavo complete")) << run.out;
  EXPECT_FALSE(folder.exists("r.csv")) << ::testing::PrintToString(words);
}

// Passes every check and ends where the genotype file should be opened.
void expect_reaches_the_data(const CliFolder& folder, const Words& words) {
  const RunResult run = folder.run(words);
  EXPECT_EQ(run.status, 0) << ::testing::PrintToString(words) << run.out << run.err;
  EXPECT_TRUE(has_line(run.out, "Enter to MDR methods...")) << run.out;
  EXPECT_TRUE(run.out.ends_with("Cannot open the text file!!" + kClosingLines)) << run.out;
}

Words absent_data() {
  return {"--in", "absent.dat"};
}

TEST(Refusals, AnOptionWithoutAValue) {
  const CliFolder folder;
  for (const char* name :
       {"--in",        "--out",  "--score",     "--covariate", "--transpose", "--distinct", "--regression",
        "--order",     "--cv",   "--cvfrom",    "--gpu",       "--measure",   "--missing",  "--iter",
        "--tie",       "--top",  "--shuffling", "--thread",    "--block",     "--device",   "--mode",
        "--precision", "--tidy", "--seed",      "--progress",  "--checkpoint"}) {
    expect_refused(folder, {name}, {name});
    expect_refused(folder, mdr_words() + Words{name}, {name});
  }
  expect_refused(folder, {"--\n"}, {"--\n"});
}

Words repeated(const Words& words, int times) {
  Words all;
  for (int i = 0; i < times; ++i) {
    all = all + words;
  }
  return all;
}

TEST(Refusals, MoreThan32WordsOfTheOptionTable) {
  const CliFolder folder;
  // 1 program name + 12 words of the option table + 2 each.
  expect_refused(folder, mdr_words() + repeated({"--cv", "10"}, 10), {"32"});
  expect_refused(folder, mdr_words() + repeated({"--cv", "10"}, 40), {"32"});
  expect_reaches_the_data(folder, mdr_words() + repeated({"--cv", "10"}, 8) + absent_data());
}

TEST(Refusals, TheOtherOptionsDoNotCountTowardsThe32) {
  const CliFolder folder;
  const Words others{"--mode", "1", "--device", "auto", "--seed", "3", "--progress", "off"};
  expect_reaches_the_data(folder, mdr_words() + repeated({"--cv", "10"}, 8) + others + absent_data());
  expect_reaches_the_data(folder, repeated(others, 10) + mdr_words() + absent_data());
  expect_refused(folder, others + mdr_words() + repeated({"--cv", "10"}, 10), {"32"});
}

TEST(Refusals, PathsOf256BytesAndMore) {
  const CliFolder folder;
  for (const size_t length : {size_t{256}, size_t{257}, size_t{3000}}) {
    const std::string path(length, 'p');
    for (const char* name : {"--in", "--out", "--score"}) {
      expect_refused(folder, mdr_words() + Words{name, path}, {name});
    }
    expect_refused(
        folder,
        {"--regression", "logistic", "--thread", "8", "--block", "2", "--in", "g.dat", "--covariate", path},
        {"--covariate"});
  }
}

TEST(Refusals, PathsOf255BytesAreTaken) {
  const CliFolder folder;
  const std::string path = "g" + std::string(250, 'p') + ".dat";
  ASSERT_EQ(path.size(), 255u);
  expect_reaches_the_data(folder, mdr_words() + Words{"--in", path});
  expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--out", path, "--score", path});
  std::filesystem::rename(folder.path("g.dat"), folder.path(path));
  const RunResult run = folder.run_mdr({"--in", path});
  EXPECT_TRUE(contains(run.out, "Row 40, Col 6")) << run.out;
}

Words regression_words() {
  return {"--regression", "logistic", "--order", "1",     "--thread",    "8",
          "--block",      "2",        "--gpu",   "2",     "--device",    "cpu",
          "--in",         "g.dat",    "--out",   "r.csv", "--covariate", "cov.txt"};
}

std::string covariate_table(int n_covariates, int n_lines) {
  std::string text = "family\tperson";
  for (int j = 0; j < n_covariates; ++j) {
    text += "\tname" + std::to_string(j);
  }
  text += "\n";
  for (int i = 0; i < n_lines; ++i) {
    text += "f\tp";
    for (int j = 0; j < n_covariates; ++j) {
      text += "\t" + std::to_string(i + j);
    }
    text += "\n";
  }
  return text;
}

TEST(Refusals, MoreCovariatesThanAModelCanHave) {
  const CliFolder folder;
  folder.write("cov.txt", covariate_table(300, 40));
  expect_refused(folder, regression_words(), {"cov.txt", "10"});
  folder.write("cov.txt", covariate_table(11, 40));
  expect_refused(folder, regression_words(), {"cov.txt", "10"});
  for (const int n_covariates : {8, 10}) {
    folder.write("cov.txt", covariate_table(n_covariates, 40));
    expect_refused(folder, regression_words(), {"cov.txt", "7"});
  }
  folder.write("cov.txt", covariate_table(7, 40));
  const RunResult run = folder.run(regression_words() + absent_data());
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(has_line(run.out, "Covarite file [40 entries, 7 covarites] read complete")) << run.out;
}

TEST(Refusals, ACovariateFileWithOtherThanOneLinePerSample) {
  const CliFolder folder(balanced_data(40, 6));
  for (const int n_lines : {0, 39, 41}) {
    folder.write("cov.txt", covariate_table(2, n_lines));
    const RunResult run = folder.run(regression_words());
    EXPECT_EQ(run.status, 1) << run.out;
    EXPECT_EQ(notices_with(run, {"cov.txt", std::to_string(n_lines), "40"}), 1) << run.err;
    EXPECT_FALSE(folder.exists("r.csv"));
  }
}

TEST(Refusals, AnOrderThatNoRegressionHas) {
  const CliFolder folder(balanced_data(40, 6));
  for (const char* order : {"0", "3", "11", "-1", "x", "", "+1", " 1", "12", "3-1"}) {
    const RunResult run = folder.run({"--regression", "logistic", "--thread", "8", "--block", "2", "--in",
                                      "g.dat", "--out", "r.csv", "--order", order});
    EXPECT_EQ(run.status, 1) << order << run.out;
    EXPECT_TRUE(contains(run.out, "--order")) << run.out;
    EXPECT_FALSE(folder.exists("r.csv"));
  }
}

TEST(Refusals, ATransposedFileOfARegression) {
  const GenotypeData data = balanced_data(40, 6);
  const CliFolder folder(data);
  folder.write("t.dat", transposed_file(data));
  for (const char* kind : {"logistic", "linear"}) {
    const RunResult run = folder.run({"--regression", kind, "--thread", "8", "--block", "2", "--in", "t.dat",
                                      "--out", "r.csv", "--transpose", "1"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(has_line(run.out, "Doesn't support TRANSPOSED MODE in regression")) << run.out;
    EXPECT_FALSE(contains(run.out, "Label")) << run.out;
    EXPECT_FALSE(folder.exists("r.csv"));
  }
}

TEST(Refusals, RegressionOptionsOfASearch) {
  const CliFolder folder;
  const RunResult run = folder.run_mdr({"--precision", "double"});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(has_line(run.out, "--precision option only used for regression!")) << run.out;
}

TEST(Refusals, APrecisionThatIsNone) {
  const CliFolder folder;
  expect_refused(
      folder,
      {"--regression", "logistic", "--thread", "8", "--block", "2", "--in", "g.dat", "--precision", "half"},
      {"half", "--precision", "single", "double"});
}

TEST(Refusals, OutputsOfARegressionInPlaceOfItsInputs) {
  const CliFolder folder(balanced_data(40, 6));
  folder.write("cov.txt", covariate_table(2, 40));
  const Words words = {"--regression", "logistic", "--thread",    "8",      "--block", "2",
                       "--in",         "g.dat",    "--covariate", "cov.txt"};
  for (const Words& outputs :
       {Words{"--out", "cov.txt"}, Words{"--out", "r.csv", "--tidy", "g.dat"},
        Words{"--out", "r.csv", "--tidy", "cov.txt"}, Words{"--out", "r.csv", "--tidy", "./r.csv"}}) {
    const std::string before = read_file(folder.path("cov.txt")) + read_file(folder.path("g.dat"));
    EXPECT_EQ(folder.run(words + outputs).status, 1) << outputs.back();
    EXPECT_EQ(read_file(folder.path("cov.txt")) + read_file(folder.path("g.dat")), before);
  }
}

TEST(Refusals, ATableInPlaceOfTheResultLeavesAnOldResultAlone) {
  const CliFolder folder(balanced_data(40, 6));
  const Words words = {"--regression", "logistic", "--thread", "8",     "--block", "2",
                       "--in",         "g.dat",    "--out",    "r.csv", "--tidy"};
  EXPECT_EQ(folder.run(words + Words{"./r.csv"}).status, 1);
  EXPECT_FALSE(folder.exists("r.csv"));
  folder.write("r.csv", "an old result");
  const RunResult run = folder.run(words + Words{"./r.csv"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(notices_with(run, {"--tidy", "--out", "same"}), 1) << run.err;
  EXPECT_EQ(read_file(folder.path("r.csv")), "an old result");
}

TEST(Refusals, CovariatesThatLeaveNoSample) {
  const CliFolder folder(balanced_data(40, 6));
  std::string text = "family\tperson\tage\n";
  for (int i = 0; i < 40; ++i) {
    text += "f\tp\tNA\n";
  }
  folder.write("cov.txt", text);
  const RunResult run = folder.run(regression_words());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(notices_with(run, {"cov.txt", "no sample"}), 1) << run.err;
  EXPECT_FALSE(folder.exists("r.csv"));
}

TEST(Refusals, ACovariateLineWithoutEnd) {
  const CliFolder folder;
  const std::string head = "family\tperson\tage\n";
  const auto run_with = [&](const std::string& line) {
    folder.write("cov.txt", head + line);
    return folder.run(regression_words() + absent_data());
  };
  EXPECT_EQ(run_with("f\tp\t1" + std::string(65535 - 5, ' ') + "\n").status, 0);
  EXPECT_EQ(run_with("f\tp\t1" + std::string(65535 - 5, ' ')).status, 0);
  for (const size_t length : {65536, 65537, 200000}) {
    for (const char* end : {"", "\n", "\nf\tp\t2\n"}) {
      const RunResult run = run_with("f\tp\t1" + std::string(length - 5, ' ') + end);
      EXPECT_EQ(run.status, 1) << length;
      EXPECT_TRUE(has_line(run.out, "Covariate file cov.txt, line 2: longer than 65535 characters!"))
          << length;
    }
  }
}

TEST(Refusals, AShortCovariateLine) {
  const CliFolder folder;
  const std::string head = "family\tperson\tage\tsex\nf1\tp1\t31\t1\n";
  for (const char* line : {"f2\tp2\t40\n", "f2\tp2\n", "f2\n", "f2\tp2\t40", "f2\tp2\t40\r\n"}) {
    folder.write("cov.txt", head + line);
    expect_refused(folder, regression_words(), {"cov.txt"});
  }
}

TEST(Refusals, ACovariateFileThatCannotBeRead) {
  const CliFolder folder;
  expect_refused(folder, regression_words(), {"cov.txt"});
  std::filesystem::create_directory(folder.path("cov.txt"));
  expect_refused(folder, regression_words(), {"cov.txt"});
}

TEST(Refusals, FoldCountsBelowOne) {
  const CliFolder folder;
  for (const char* value : {"0", "-1", "-2147483648", "none"}) {
    expect_refused(folder, mdr_words() + Words{"--cv", value}, {"--cv", "1"});
  }
  expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--cv", "1"});
}

TEST(Refusals, AFirstFoldThatDoesNotExist) {
  const CliFolder folder;
  for (const char* value : {"-1", "10", "11", "2147483647"}) {
    expect_refused(folder, mdr_words() + Words{"--cvfrom", value}, {"--cvfrom"});
  }
  expect_refused(folder, mdr_words() + Words{"--cvfrom", "5", "--cv", "5"}, {"--cvfrom"});
  expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--cvfrom", "9"});
  expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--cvfrom", "12", "--cv", "13"});
}

TEST(Refusals, WorkerCountsThatMeanNothing) {
  const CliFolder folder;
  for (const char* value : {"0", "-2", "-100", "two"}) {
    expect_refused(folder, mdr_words() + Words{"--gpu", value}, {"--gpu"});
  }
  expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--gpu", "-1"});
}

TEST(Refusals, NegativeTopCounts) {
  const CliFolder folder;
  for (const char* value : {"-1", "-2147483648"}) {
    expect_refused(folder, mdr_words() + Words{"--top", value}, {"--top"});
  }
  expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--top", "0"});
}

TEST(Refusals, OrdersBelowOne) {
  const CliFolder folder;
  for (const char* value : {"0", "-1", "-2", "0-2", "2-0", "2-", "two", "", "-"}) {
    expect_refused(folder, mdr_words() + Words{"--order", value}, {"--order"});
  }
}

TEST(Refusals, OrdersAboveWhatTheCountTablesHold) {
  const CliFolder folder;
  for (const char* value : {"19", "2-19", "19-20", "19-2", "40", "1000000"}) {
    expect_refused(folder, mdr_words() + Words{"--order", value}, {"--order", "18"});
  }
  for (const char* value : {"15", "2-15", "18"}) {
    expect_refused(folder, mdr_words() + Words{"--missing", "mc", "--order", value}, {"--order", "14"});
    expect_refused(folder, mdr_words() + Words{"--order", value, "--missing", "MC"}, {"--order", "14"});
  }
  for (const char* value : {"18", "2-18", "15", "3-2"}) {
    expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--order", value});
    expect_reaches_the_data(folder,
                            mdr_words() + absent_data() + Words{"--missing", "none", "--order", value});
  }
  expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--missing", "mc", "--order", "14"});
}

TEST(Refusals, ValuesOfTheDeviceOption) {
  const CliFolder folder;
  for (const char* value : {"gpu", "", "cpu ", "0"}) {
    expect_refused(folder, mdr_words() + Words{"--device", value}, {"--device", "auto", "cpu", "cuda"});
  }
}

TEST(Refusals, ValuesOfTheProgressOption) {
  const CliFolder folder;
  for (const char* value : {"yes", "", "1", "offf"}) {
    expect_refused(folder, mdr_words() + Words{"--progress", value}, {"--progress", "auto", "on", "off"});
  }
  for (const char* value : {"auto", "on", "off"}) {
    expect_reaches_the_data(folder, mdr_words() + absent_data() + Words{"--progress", value});
  }
}

TEST(Refusals, ValuesOfTheModeOption) {
  const CliFolder folder;
  for (const char* value : {"one", "", "1x", "1.5", "-1", "4"}) {
    expect_refused(folder, mdr_words() + Words{"--mode", value}, {"--mode", "0", "3"});
  }
}

TEST(Refusals, ValuesOfTheSeedOption) {
  const CliFolder folder;
  for (const char* value : {"now", "", "12x", "1.5"}) {
    expect_refused(folder, mdr_words() + Words{"--seed", value}, {"--seed"});
  }
}

TEST(Refusals, TheOtherOptionsStandAtOddPositionsToo) {
  const std::string misplaced = "Option --seed does not lies on appropriate position!\n";
  expect_refused(CliFolder(), Words{"\r", "--seed", "3"}, {misplaced});
  expect_refused(CliFolder(), mdr_words() + Words{"--out", "--seed", "3"}, {misplaced});
}

TEST(Refusals, CudaWithoutADevice) {
  const Environment no_gpu = {{"CUDA_VISIBLE_DEVICES", ""}};  // also where the machine has one
  const CliFolder folder;
  const RunResult run = folder.run_mdr({"--device", "cuda"}, no_gpu);
  EXPECT_EQ(run.out,
            "Transposed mode deactivated\nThere is no available device for running CUDA architecture!\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_FALSE(folder.exists("r.csv"));
  // The number of devices asked for does not make one.
  EXPECT_EQ(folder.run_mdr({"--device", "cuda", "--gpu", "4"}, no_gpu).out, run.out);
}

TEST(Refusals, TheDeviceIsLookedForAfterTheOptionsAreChecked) {
  const CliFolder folder;
  const RunResult run = folder.run({"--device", "cuda", "--thread", "8", "--block", "2"});
  EXPECT_EQ(run.out, "Transposed mode deactivated\nYou have to select a measure for snp selection!\n");
  EXPECT_EQ(run.status, 1);
}

TEST(Refusals, AnUnknownInstructionSetIsAnError) {
  const CliFolder folder;
  const RunResult run = folder.run_mdr({}, {{"TAVO_SIMD", "mmx"}});
  EXPECT_NE(run.status, 0);
  EXPECT_TRUE(contains(run.out + run.err, "TAVO_SIMD")) << run.out << run.err;
  EXPECT_FALSE(contains(run.out, "## tavo complete"));
}

}  // namespace
}  // namespace tavo_test
