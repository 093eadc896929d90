// SPDX-License-Identifier: Apache-2.0
//
// The scan of the command line, and the checks after it in their order.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

const std::string kNormal = "Transposed mode deactivated\n";
const std::string kTransposed = "Transposed mode activated\n";
const std::string kNoMeasure = "You have to select a measure for snp selection!\n";

// A refusal that is complete: these bytes on standard output, nothing on standard error, status 1.
void expect_refused(const Words& words, const std::string& out) {
  const CliFolder folder;
  const RunResult run = folder.run(words);
  EXPECT_EQ(run.out, out) << ::testing::PrintToString(words);
  EXPECT_EQ(run.err, "") << ::testing::PrintToString(words);
  EXPECT_EQ(run.status, 1) << ::testing::PrintToString(words);
}

// The scan itself took every word: the next check, that of the measure, is the one that refuses.
void expect_scan_passes(const Words& words) {
  expect_refused(words, kNormal + kNoMeasure);
}

TEST(OptionScan, RefusesAnUnknownName) {
  expect_refused({"--nothing", "1"}, "Unrecognized option name `--nothing`\n");
  expect_refused({"--inn", "a.dat"}, "Unrecognized option name `--inn`\n");
  expect_refused({"--i", "a.dat"}, "Unrecognized option name `--i`\n");
  expect_refused({"--", "a.dat"}, "Unrecognized option name `--`\n");
  expect_refused({"---in", "a.dat"}, "Unrecognized option name `---in`\n");
}

TEST(OptionScan, PrintsAnUnknownNameAsItWasTyped) {
  expect_refused({"--NoThing", "1"}, "Unrecognized option name `--NoThing`\n");
}

TEST(OptionScan, RefusesAnOptionAtAnEvenPosition) {
  expect_refused({"x", "--in", "a.dat"}, "Unrecognized option value `x`\n");
  expect_refused({"\rx", "--in", "a.dat"}, "Option --in does not lies on appropriate position!\n");
  expect_refused({"\r", "--NoThing", "a.dat"}, "Option --NoThing does not lies on appropriate position!\n");
}

TEST(OptionScan, RefusesAValueAtAnOddPosition) {
  expect_refused({"--measure", "ba", "value2", "--in", "x"}, "Unrecognized option value `value2`\n");
  expect_refused({"a.dat"}, "Unrecognized option value `a.dat`\n");
  expect_refused({""}, "Unrecognized option value ``\n");
  expect_refused({" --in", "a.dat"}, "Unrecognized option value ` --in`\n");
}

TEST(OptionScan, OneDashDoesNotMarkAnOption) {
  expect_refused({"-in", "a.dat"}, "Unrecognized option value `-in`\n");
  expect_refused({"-", "a.dat"}, "Unrecognized option value `-`\n");
}

TEST(OptionScan, ReportsTheFirstFault) {
  expect_refused({"--measure", "nope", "--missing", "none at all"}, "Invalid selection name nope\n");
  expect_refused({"--missing", "none at all", "--measure", "nope"}, "Invalid missing method none at all\n");
  expect_refused({"--cv", "5", "stray", "--nothing", "1"}, "Unrecognized option value `stray`\n");
}

TEST(OptionScan, RefusesAnOptionAsValueAfterItWasTaken) {
  expect_refused({"--out", "--x"}, "Option --x does not lies on appropriate position!\n");
  expect_refused({"--out", "--in", "a.dat"}, "Option --in does not lies on appropriate position!\n");
  expect_refused({"--score", "--5"}, "Option --5 does not lies on appropriate position!\n");
  // A keyword is looked up while the value is taken, which is before the value's own round.
  expect_refused({"--measure", "--x"}, "Invalid selection name --x\n");
  expect_refused({"--missing", "--x"}, "Invalid missing method --x\n");
  expect_refused({"--regression", "--x"}, "Invalid regression option `--x`\n");
}

TEST(OptionScan, SkipsCarriageReturnsAtOddPositions) {
  expect_scan_passes({"\r"});
  expect_scan_passes({"--cv", "5", "\r"});
  expect_scan_passes({"\r", "anything at an even position", "--cv", "5"});
  expect_scan_passes({"\r and more", "\r", "--cv", "5", "\r"});
}

TEST(OptionScan, TakesALineBreakAsAnOptionNameAndIgnoresItsValue) {
  expect_scan_passes({"--\n", "anything"});
  expect_scan_passes({"--cv", "5", "--\n", "", "--top", "3"});
  expect_refused({"--\n", "--x"}, "Option --x does not lies on appropriate position!\n");
  expect_refused({"--\n\n", "x"}, "Unrecognized option name `--\n\n`\n");
}

TEST(OptionScan, RefusesUnknownKeywords) {
  expect_refused({"--measure", "NMI2"}, "Invalid selection name NMI2\n");
  expect_refused({"--measure", ""}, "Invalid selection name \n");
  expect_refused({"--measure", "0"}, "Invalid selection name 0\n");
  expect_refused({"--measure", "somers_d"}, "Invalid selection name somers_d\n");
  expect_refused({"--missing", "all"}, "Invalid missing method all\n");
  expect_refused({"--missing", "3"}, "Invalid missing method 3\n");
  expect_refused({"--regression", "Cox"}, "Invalid regression option `Cox`\n");
  expect_refused({"--regression", "1"}, "Invalid regression option `1`\n");
}

TEST(OptionScan, TakesEveryMeasureInAnyCase) {
  // The measure stands when the check behind it is reached.
  const std::string next = kNormal + "Covariate file must be assigned only for regression!\n";
  for (const char* name : {"ba", "accuracy", "homogeneity", "gamma", "tau-b", "tau-c", "somers_d1",
                           "somers_d2", "nmi", "lr", "BA", "Accuracy", "TAU-B", "Somers_D2", "NMI", "Lr"}) {
    expect_refused({"--measure", name, "--covariate", "cov.txt"}, next);
  }
  expect_refused({"--MEASURE", "NMI", "--Covariate", "cov.txt"}, next);
}

TEST(OptionScan, TakesEveryMissingMethodInAnyCase) {
  for (const char* name : {"none", "mc", "complete", "available", "NONE", "Mc", "Complete", "AVAILABLE"}) {
    expect_scan_passes({"--missing", name});
    expect_scan_passes({"--MISSING", name});
  }
}

TEST(OptionScan, TakesEveryNameInAnyCase) {
  expect_scan_passes({"--in", "a", "--out", "b", "--score", "c", "--covariate", "d", "--transpose", "0"});
  expect_scan_passes({"--IN", "a", "--Out", "b", "--scorE", "c", "--COVARIATE", "d", "--TransPose", "0"});
  expect_scan_passes(
      {"--distinct", "0", "--order", "2", "--cv", "5", "--cvfrom", "1", "--gpu", "1", "--iter", "3"});
  expect_scan_passes(
      {"--DISTINCT", "0", "--Order", "2", "--CV", "5", "--CVfrom", "1", "--GPU", "1", "--ITER", "3"});
  expect_scan_passes({"--tie", "1", "--top", "3", "--shuffling", "1", "--thread", "8", "--block", "2"});
  expect_scan_passes({"--TIE", "1", "--Top", "3", "--Shuffling", "1", "--THREAD", "8", "--Block", "2"});
}

TEST(OptionScan, TheLastValueOfARepeatedOptionCounts) {
  expect_refused({"--measure", "ba", "--distinct", "0", "--distinct", "1"},
                 kNormal + "--distinct option only used for regression!\n");
  expect_scan_passes({"--transpose", "1", "--transpose", "0"});
}

TEST(OptionChecks, NoWordsStopAtTheMeasure) {
  expect_refused({}, kNormal + kNoMeasure);
}

TEST(OptionChecks, TheLayoutIsNamedFirst) {
  expect_refused({"--transpose", "0"}, kNormal + kNoMeasure);
  expect_refused({"--transpose", "1"}, kTransposed + kNoMeasure);
  expect_refused({"--transpose", "-3"}, kTransposed + kNoMeasure);
}

TEST(OptionChecks, WithoutRegressionMeasureThenCovariateThenDistinct) {
  expect_refused({"--covariate", "c", "--distinct", "1"}, kNormal + kNoMeasure);
  expect_refused({"--covariate", "c", "--distinct", "1", "--measure", "ba"},
                 kNormal + "Covariate file must be assigned only for regression!\n");
  expect_refused({"--distinct", "1", "--measure", "ba"},
                 kNormal + "--distinct option only used for regression!\n");
  expect_refused({"--distinct", "-1", "--measure", "ba"},
                 kNormal + "--distinct option only used for regression!\n");
}

// Standard output of a run that ends at a genotype file that does not exist, with the device's own numbers
// masked.
std::vector<std::string> lines_before_the_data(const CliFolder& folder, const Words& words) {
  const RunResult run = folder.run(words + Words{"--in", "absent.dat", "--device", "cpu"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  std::vector<std::string> lines = split_lines(run.out);
  for (std::string& line : lines) {
    const size_t registers = line.find(" devs], ");
    if (begins_with(line, "CUDA is available [") && registers != std::string::npos) {
      const size_t begin = registers + 8;
      line.replace(begin, line.find(' ', begin) - begin, "R");
    }
    if (begins_with(line, "Shared memory ")) {
      line.replace(14, line.find(' ', 14) - 14, "S");
    }
  }
  return lines;
}

Words expected_before_the_data(const Words& before_device, const std::string& device,
                               const Words& after_device) {
  return before_device + Words{device, "Shared memory S bytes"} + after_device +
         Words{"Enter to MDR methods...", "Cannot open the text file!!------------------", "## tavo complete",
               "------------------"};
}

TEST(OptionChecks, LinesOfAnAcceptedRun) {
  const CliFolder folder;
  EXPECT_EQ(lines_before_the_data(folder, {"--measure", "ba", "--thread", "8", "--block", "2", "--gpu", "3"}),
            expected_before_the_data({"Transposed mode deactivated"},
                                     "CUDA is available [3 devs], R regs, max thread count is 2, 8",
                                     {"10 cv and start from 0th CV"}));
  EXPECT_EQ(lines_before_the_data(folder, {"--measure", "ba", "--thread", "1", "--block", "16", "--gpu", "1",
                                           "--cv", "5", "--cvfrom", "3", "--transpose", "1"}),
            expected_before_the_data({"Transposed mode activated"},
                                     "CUDA is available [1 devs], R regs, max thread count is 16, 1",
                                     {"5 cv and start from 3th CV"}));
}

TEST(OptionChecks, RegressionNeedsNoMeasureAndHasOneFold) {
  const CliFolder folder;
  const Words launch{"--thread", "8", "--block", "2", "--gpu", "1"};
  const std::string device = "CUDA is available [1 devs], R regs, max thread count is 2, 8";
  EXPECT_EQ(
      lines_before_the_data(folder, launch + Words{"--regression", "Logistic", "--cv", "5"}),
      expected_before_the_data({"Transposed mode deactivated"}, device, {"1 cv and start from 0th CV"}));
  EXPECT_EQ(lines_before_the_data(folder, launch + Words{"--regression", "LOGISTIC", "--distinct", "1"}),
            expected_before_the_data(
                {"Transposed mode deactivated"}, device,
                {"Distinct calculation mode in logistic regression", "1 cv and start from 0th CV"}));
}

TEST(OptionChecks, LinearRegressionAlwaysSaysThatIterationsAreIgnored) {
  const CliFolder folder;
  const Words words{"--regression", "linear", "--thread", "8", "--block", "2", "--gpu", "1"};
  const Words expected = expected_before_the_data(
      {"Transposed mode deactivated",
       "Other regression doesn't use iteration option, this option will be ignored"},
      "CUDA is available [1 devs], R regs, max thread count is 2, 8", {"1 cv and start from 0th CV"});
  EXPECT_EQ(lines_before_the_data(folder, words), expected);
  EXPECT_EQ(lines_before_the_data(folder, words + Words{"--iter", "7"}), expected);
}

TEST(OptionChecks, ThreadsAndBlocksAreRequired) {
  const CliFolder folder;
  const struct {
    Words words;
    std::string counts;
  } cases[] = {
      {{}, "0, 0"},
      {{"--thread", "8"}, "0, 8"},
      {{"--block", "2"}, "2, 0"},
      {{"--block", "0", "--thread", "8"}, "0, 8"},
      {{"--block", "2", "--thread", "-1"}, "2, -1"},
  };
  for (const auto& one : cases) {
    const RunResult run = folder.run(one.words + Words{"--measure", "ba", "--in", "g.dat", "--out", "r.csv",
                                                       "--gpu", "4", "--device", "cpu"});
    EXPECT_EQ(run.status, 1) << run.out;
    const std::vector<std::string> lines = split_lines(run.out);
    ASSERT_EQ(lines.size(), 4u) << run.out;
    EXPECT_EQ(lines[0], "Transposed mode deactivated");
    EXPECT_TRUE(begins_with(lines[1], "CUDA is available [4 devs], ")) << lines[1];
    EXPECT_TRUE(lines[1].ends_with(" regs, max thread count is " + one.counts)) << lines[1];
    EXPECT_TRUE(begins_with(lines[2], "Shared memory ")) << lines[2];
    EXPECT_EQ(lines[3], "Invalid CUDA parameter!");
    EXPECT_TRUE(run.out.ends_with("!\n"));
    EXPECT_FALSE(folder.exists("r.csv"));
  }
}

TEST(OptionChecks, ACovariateFileIsReadBeforeTheDeviceIsNamed) {
  const CliFolder folder;
  folder.write("cov.txt",
               "family\tperson\tage\tsex\tdose\n"
               "f1\tp1\t31\t1\t0.5\n"
               "f2\tp2\t1.5\tNA\t3\n"
               "f3\tp3\t40\t2\t1e-3\n"
               "f4\tp4\t22\t1\tNAN\n");
  const Words words{"--regression", "logistic", "--covariate", "cov.txt", "--thread", "8",
                    "--block",      "2",        "--gpu",       "1"};
  EXPECT_EQ(
      lines_before_the_data(folder, words),
      expected_before_the_data(
          {"Transposed mode deactivated", "1 th covarite is missing!", "3 th covarite is missing!",
           "Covarite file [2 entries, 3 covarites] read complete"},
          "CUDA is available [1 devs], R regs, max thread count is 2, 8", {"1 cv and start from 0th CV"}));
}

TEST(OptionChecks, ACovariateLineEndsAtAMissingField) {
  const CliFolder folder;
  folder.write("cov.txt", "family\tperson\tage\tsex\tdose\r\nf1\tp1\tNA\r\nf2\tp2\t1\t2\t3\r\n");
  const RunResult run = folder.run({"--regression", "linear", "--covariate", "cov.txt", "--thread", "8",
                                    "--block", "2", "--in", "absent.dat", "--device", "cpu"});
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(has_line(run.out, "0 th covarite is missing!")) << run.out;
  EXPECT_TRUE(has_line(run.out, "Covarite file [1 entries, 3 covarites] read complete")) << run.out;
}

}  // namespace
}  // namespace tavo_test
