// SPDX-License-Identifier: Apache-2.0
//
// tavo-simulate as a user runs it.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <sstream>

#include "tests/support/run_program.h"
#include "tools/simulate.h"

namespace tavo_test {
namespace {

using Words = std::vector<std::string>;

Words words_of(const std::string& line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

class Simulate : public ::testing::Test {
 protected:
  RunResult run(const std::string& line) const {
    return run_program(simulate_program(), words_of(line), folder_.path());
  }
  std::string output_of(const std::string& line) const {
    const RunResult result = run(line);
    EXPECT_EQ(result.status, 0) << line << ": " << result.err;
    return result.out;
  }
  // Standard error of a run that is expected to end with the status and to leave nothing.
  std::string complaint_of(const std::string& line, int status) const {
    const size_t before = n_files();
    const RunResult result = run(line);
    EXPECT_EQ(result.status, status) << line;
    EXPECT_EQ(result.out, "") << line;
    EXPECT_EQ(n_files(), before) << line;
    return result.err;
  }
  std::string read(const std::string& name) const { return read_file(folder_ / name); }
  size_t n_files() const {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
  }

  TempDir folder_;
};

const std::string kSmall = "--samples 60 --snps 20 --seed 4 ";

TEST_F(Simulate, BothFormatsHoldTheSameData) {
  output_of(kSmall + "--missing 0.1 --model maf=0.4,heritability=0.2 --out d.tavo --make-bed d");
  output_of(kSmall + "--missing 0.1 --model maf=0.4,heritability=0.2 --out t.tavo --transpose 1");
  for (const std::string from : {"--bfile d", "--in t.tavo --in-transpose 1"}) {
    const Words words = words_of(from + " --out again.tavo");
    ASSERT_EQ(run_program(convert_program(), words, folder_.path()).status, 0) << from;
    EXPECT_EQ(read("again.tavo"), read("d.tavo")) << from;
  }
}

TEST_F(Simulate, TheSameSeedGivesTheSameBytes) {
  const std::string words =
      kSmall + "--model maf=0.4,heritability=0.2 --covariates 2 --covariate-effect 1,0 --missing 0.02 ";
  output_of(words + "--out a --make-bed a --covar-out a.cov --truth a.tsv");
  output_of(words + "--out b --make-bed b --covar-out b.cov --truth b.tsv");
  for (const std::string ending : {"", ".bed", ".bim", ".fam", ".cov", ".tsv"}) {
    EXPECT_EQ(read("a" + ending), read("b" + ending)) << ending;
  }
  output_of("--seed 5 " + words.substr(words.find("--model")) +
            "--samples 60 --snps 20 --out c --covar-out c.cov");
  EXPECT_NE(read("a"), read("c"));
  EXPECT_NE(read("a.cov"), read("c.cov"));
}

TEST_F(Simulate, TheSearchFindsWhatWasPlanted) {
  for (const std::string order : {"2", "3"}) {
    const std::string said =
        output_of("--samples 800 --snps 30 --out d.tavo --truth t.tsv --model order=" + order +
                  ",maf=0.4,heritability=0.2,prevalence=0.4");
    const std::vector<std::string> truth = split_lines(read("t.tsv"));
    ASSERT_EQ(truth.size(), order == "2" ? 10u : 28u);
    EXPECT_EQ(truth[0],
              "model\tdescription\tpositions\tsnps\tmaf\tprevalence\theritability\tgenotype\tpopulation\t"
              "penetrance\tcases\tcontrols");
    std::istringstream row(truth[1]);
    std::string model, description, positions, snps;
    row >> model >> description >> positions >> snps;
    std::replace(snps.begin(), snps.end(), ',', ' ');
    const Words words =
        words_of("--in d.tavo --out r.csv --measure ba --thread 8 --block 8 --device cpu --order " + order);
    ASSERT_EQ(run_program(tavo_program(), words, folder_.path()).status, 0);
    EXPECT_NE(read("r.csv").find("\n1,( " + snps + " ),"), std::string::npos) << read("r.csv");
    EXPECT_EQ(said.find("model 1: snp"), 0u) << said;
  }
}

TEST_F(Simulate, TheTruthAddsUp) {
  output_of(kSmall + "--out d --truth t.tsv --model at=3+17,maf=0.3,heritability=0.1,prevalence=0.2");
  const std::vector<std::string> truth = split_lines(read("t.tsv"));
  double population = 0.0, sick = 0.0, cases = 0.0, controls = 0.0;
  for (size_t i = 1; i < truth.size(); ++i) {
    std::istringstream row(truth[i]);
    std::string model, description, positions, snps, maf, genotype;
    double prevalence = 0.0, heritability = 0.0, p = 0.0, f = 0.0, in_cases = 0.0, in_controls = 0.0;
    ASSERT_TRUE(row >> model >> description >> positions >> snps >> maf >> prevalence >> heritability >>
                genotype >> p >> f >> in_cases >> in_controls);
    EXPECT_EQ(positions, "3,17");
    EXPECT_EQ(snps, "snp3,snp17");
    EXPECT_EQ(maf, "0.3,0.3");
    EXPECT_EQ(genotype, std::to_string((i - 1) % 3) + "," + std::to_string((i - 1) / 3));
    EXPECT_NEAR(prevalence, 0.2, 1e-12);
    EXPECT_NEAR(heritability, 0.1, 1e-12);
    population += p;
    sick += p * f;
    cases += in_cases;
    controls += in_controls;
  }
  EXPECT_NEAR(population, 1.0, 1e-12);
  EXPECT_NEAR(sick, 0.2, 1e-12);
  EXPECT_NEAR(cases, 1.0, 1e-12);
  EXPECT_NEAR(controls, 1.0, 1e-12);
}

TEST_F(Simulate, CasesAreANumberOrAShare) {
  EXPECT_NE(output_of(kSmall + "--cases 7 --out d").find("(7 cases, 53 controls)"), std::string::npos);
  EXPECT_NE(output_of(kSmall + "--cases 0.25 --out d").find("(15 cases, 45 controls)"), std::string::npos);
  EXPECT_NE(output_of(kSmall + "--cases 1.0 --out d").find("(60 cases, 0 controls)"), std::string::npos);
  EXPECT_NE(output_of(kSmall + "--cases 0 --out d").find("(0 cases, 60 controls)"), std::string::npos);
}

TEST_F(Simulate, CovariatesAreWhatARegressionReads) {
  output_of(
      kSmall +
      "--out d.tavo --covariates 3 --covar-out d.cov --covariate-effect 0.5 --covariate-correlation 0.2");
  const Words words = words_of(
      "--in d.tavo --out r.csv --regression logistic --covariate d.cov --thread 8 --block 8 --device cpu");
  const RunResult result = run_program(tavo_program(), words, folder_.path());
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("Covarite file [60 entries, 3 covarites] read complete"), std::string::npos);
}

TEST_F(Simulate, RefusesWhatCannotBe) {
  EXPECT_EQ(complaint_of("--samples 10 --snps 3 --out d --model maf=0.1,heritability=0.9", 1)
                .find("tavo-simulate: --model order=2,maf=0.1,heritability=0.9,prevalence=0.5: the model of "
                      "this order, "
                      "maf and prevalence reaches a heritability of at most 0.0"),
            0u);
  EXPECT_EQ(complaint_of("--samples 10 --snps 3 --out d --model maf=0.4,heritability=0.1 --model "
                         "maf=0.4,heritability=0.1",
                         1),
            "tavo-simulate: the models have 4 SNPs, but --snps is 3\n");
  EXPECT_EQ(complaint_of("--samples 10 --snps 3 --out d --model at=1+1,maf=0.4,heritability=0.1", 1),
            "tavo-simulate: --model at=1+1,maf=0.4,heritability=0.1: position 1 is taken already\n");
  EXPECT_EQ(complaint_of("--samples 10 --snps 3 --out d --model at=1,maf=0.4,heritability=0.1", 1),
            "tavo-simulate: --model at=1,maf=0.4,heritability=0.1: 1 positions, expected 2\n");
  EXPECT_EQ(complaint_of("--samples 10 --snps 3 --out d --truth d --model maf=0.4,heritability=0.1", 1),
            "tavo-simulate: d: --truth is the same file as --out\n");
  EXPECT_NE(complaint_of("--samples 10 --snps 3 --out d --model file=none", 1).find("none"),
            std::string::npos);
  EXPECT_NE(complaint_of("--samples 10 --snps 3 --out no/d", 1).find("cannot create no/d"),
            std::string::npos);
}

TEST_F(Simulate, RefusesWordsThatMakeNoSense) {
  const std::string start = "tavo-simulate: ";
  const std::string end = " (tavo-simulate --help lists the options)\n";
  const std::pair<std::string, std::string> cases[] = {
      {"--samples 10 --snps 3", "--out or --make-bed is needed"},
      {"--out d --samples 10", "--samples and --snps are needed"},
      {"--out d --samples 0 --snps 3",
       "option --samples: found \"0\", expected an integer from 1 to 2147483647"},
      {"--out d --samples 10 --snps 3e9",
       "option --snps: found \"3e9\", expected an integer from 1 to 2147483647"},
      {"--out d --samples 10 --snps 3 --cases 11",
       "option --cases: found \"11\", expected a number of samples from 0 to 10, or a share with a point, "
       "from 0.0 "
       "to 1.0"},
      {"--out d --samples 10 --snps 3 --maf 0.2-0.1",
       "option --maf: found \"0.2-0.1\", expected a frequency or a range such as 0.05-0.5, above 0 and at "
       "most 0.5"},
      {"--out d --samples 10 --snps 3 --missing 1",
       "option --missing: found \"1\", expected a share from 0 to below 1"},
      {"--out d --samples 10 --snps 3 --seed -1",
       "option --seed: found \"-1\", expected an integer from 0 to 2^63 - 1"},
      {"--out d --samples 10 --snps 3 --model epistatic",
       "option --model: found \"epistatic\", expected KEY=VALUE parts separated by commas"},
      {"--out d --samples 10 --snps 3 --model maf=0.4,h2=0.1",
       "option --model: found \"h2\", expected order, maf, heritability, prevalence, at or file"},
      {"--out d --samples 10 --snps 3 --model maf=0.4",
       "option --model: \"maf=0.4\" needs maf and heritability, or file=PATH"},
      {"--out d --samples 10 --snps 3 --model maf=0.4,file=t",
       "option --model: file=PATH goes with at only, and has a path"},
      {"--out d --samples 10 --snps 3 --model order=6,maf=0.4,heritability=0.1",
       "option --model order: found \"6\", expected an integer from 2 to 5"},
      {"--out d --samples 10 --snps 3 --model at=1+4,maf=0.4,heritability=0.1",
       "option --model at: found \"1+4\", expected positions from 1 to 3 joined by +"},
      {"--out d --samples 10 --snps 3 --model maf=0.4,maf=0.3", "option --model: maf is given twice"},
      {"--out d --samples 10 --snps 3 --covariates 8 --covar-out c",
       "option --covariates: found \"8\", expected an integer from 1 to 7"},
      {"--out d --samples 10 --snps 3 --covariates 2 --covar-out c --covariate-effect 1,2,3",
       "option --covariate-effect: found \"1,2,3\", expected a number, or 2 separated by commas"},
      {"--out d --samples 10 --snps 3 --covariates 2", "--covariates and --covar-out go together"},
      {"--out d --samples 10 --snps 3 --covariate-effect 1",
       "--covariate-effect and --covariate-correlation need --covariates"},
      {"--out d --samples 10 --snps 3 --truth t", "--truth needs --model"},
      {"--out d --out e --samples 10 --snps 3", "option --out is given twice"},
      {"--help --out d", "--help must stand alone on the command line"},
  };
  for (const auto& [words, message] : cases) {
    EXPECT_EQ(complaint_of(words, 2), start + message + end) << words;
  }
}

TEST_F(Simulate, DifferentPrevalencesGiveAWarning) {
  write_file(folder_ / "t", "maf 0.3\npenetrance 0.1 0.2 0.3\n");
  const RunResult result = run(kSmall + "--out d --model file=t --model maf=0.4,heritability=0.1");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(
      result.err,
      "tavo-simulate: warning: the models have different prevalences: each one's genotypes follow its own, "
      "given the status\n");
}

TEST(SimulateTask, AStopLeavesNothingBehind) {
  const TempDir folder;
  SimulateOptions options;
  const std::string path = (folder / "d").string();
  ASSERT_TRUE(
      parse_simulate_options({"--out", path, "--make-bed", path, "--samples", "10", "--snps", "20"}, &options)
          .ok());
  SimulateReport report;
  StopFlag stop = SIGTERM;
  EXPECT_EQ(simulate(options, stop, &report).message(), "interrupted by SIGTERM; no result was written");
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  stop = 0;
  EXPECT_TRUE(simulate(options, stop, &report).ok());
}

TEST_F(Simulate, SaysHowItIsUsed) {
  EXPECT_EQ(output_of("--help").find("usage: tavo-simulate "), 0u);
  EXPECT_EQ(output_of("--version").find("tavo-simulate "), 0u);
}

}  // namespace
}  // namespace tavo_test
