// SPDX-License-Identifier: Apache-2.0
//
// Phenotypes and covariates from files of their own: every coding, every mistake.
#include <gtest/gtest.h>

#include <bit>

#include "tests/convert/convert_folder.h"
#include "tests/convert/plink_files.h"

namespace tavo_test {
namespace {

// Four samples F1 I1 to F4 I4 and one variant.
GenotypeData four_samples() {
  GenotypeData data;
  data.n_samples = 4;
  data.n_snps = 1;
  data.classes = {1, 0, 0, 1};
  data.genotypes = {0, 1, 2, 3};
  data.names = {"rs1"};
  return data;
}

class Phenotype : public testing::Test {
 protected:
  Phenotype() { write_plink_files(folder_ / "p", four_samples()); }

  std::string refusal_with(const std::string& phenotypes, const std::string& more = "") const {
    folder_.write("y.txt", phenotypes);
    return folder_.refusal_of("--bfile p --out g --pheno y.txt " + more);
  }

  // The genotype file of the samples with these class words.
  std::string file_with(const std::vector<std::pair<int, uint32_t>>& words) const {
    std::string bytes = "TAVO" + le32(static_cast<uint32_t>(words.size())) + le32(1) + le32(4);
    bytes += std::string("rs1\0", 4);
    for (const auto& [sample, word] : words) {
      bytes += le32(word) + le32(four_samples().genotypes[static_cast<size_t>(sample)]);
    }
    return bytes;
  }

  ConvertFolder folder_;
};

TEST_F(Phenotype, TheFamColumnIsOneTwo) {
  EXPECT_EQ(folder_.output_of("--bfile p --out g"),
            "p.fam: the phenotype is the sixth column, 1 control, 2 case; 0, -9 and NA missing\n"
            "g: 4 samples (2 cases, 2 controls), 1 SNPs, 1 missing genotypes (25.00%), normal layout\n");
  folder_.write("p.fam", "F1 I1 0 0 1 2\nF2 I2 0 0 1 0\nF3 I3 0 0 1 -9\nF4 I4 0 0 1 1\n");
  EXPECT_EQ(folder_.output_of("--bfile p --out g"),
            "p.fam: the phenotype is the sixth column, 1 control, 2 case; 0, -9 and NA missing\n"
            "no phenotype: 2 samples dropped, 2 left\n"
            "g: 2 samples (1 cases, 1 controls), 1 SNPs, 1 missing genotypes (50.00%), normal layout\n");
  EXPECT_EQ(folder_.read("g"), file_with({{0, 1}, {3, 0}}));
  folder_.write("p.fam", "F1 I1 0 0 1 NA\nF2 I2 0 0 1 0\nF3 I3 0 0 1 -9\nF4 I4 0 0 1 0\n");
  EXPECT_EQ(folder_.refusal_of("--bfile p --out h"),
            "no phenotype: 4 samples dropped, 0 left, expected at least one; p.fam: the phenotype is "
            "the sixth column, 1 control, 2 case; 0, -9 and NA missing");
  folder_.write("y.txt", "FID IID A\nF8 I1 1\nF9 I2 2\n");
  EXPECT_EQ(folder_.refusal_of("--bfile p --out h --pheno y.txt"),
            "no phenotype: 4 samples dropped, 0 left, expected at least one; y.txt: the phenotype is A, 0 "
            "control, 1 "
            "case; -9 and NA missing (2 lines match no sample)");
}

// Cases of the 0/1 coding are controls in a .fam file, and its controls missing.
TEST_F(Phenotype, OneClassGivesAWarning) {
  folder_.write("p.fam", "F1 I1 0 0 1 1\nF2 I2 0 0 1 0\nF3 I3 0 0 1 1\nF4 I4 0 0 1 0\n");
  EXPECT_EQ(
      folder_.run_line("--bfile p --out g").err,
      "tavo-convert: warning: all 2 samples are controls; a search needs cases, too (in the .fam file 1 is "
      "a control, 2 a case; --pheno takes 0/1)\n");
  folder_.write("y.txt", "FID IID A\nF1 I1 1\nF2 I2 2\nF3 I3 2\n");
  folder_.write("k", "F2 I2\nF3 I3\n");
  EXPECT_EQ(folder_.run_line("--bfile p --out g --pheno y.txt --keep k").err,
            "tavo-convert: warning: all 2 samples are cases; a search needs controls, too\n");
  EXPECT_EQ(folder_.run_line("--bfile p --out g --pheno y.txt").err, "");
  EXPECT_EQ(folder_.run_line("--bfile p --out g --pheno y.txt --keep k --quantitative").err, "");
}

TEST_F(Phenotype, TheValuesTellTheCoding) {
  folder_.write("y.txt", "FID\tIID\tA\tB\nF4\tI4\t2\t0\nF2\tI2\t1\t1\nF1\tI1\t0\tNA\nF9\tI9\t7\t7\n");
  EXPECT_EQ(folder_.output_of("--bfile p --out g --pheno y.txt --pheno-name A"),
            "y.txt: the phenotype is A, 1 control, 2 case; 0, -9 and NA missing (1 lines match no sample)\n"
            "no phenotype: 2 samples dropped, 2 left\n"
            "g: 2 samples (1 cases, 1 controls), 1 SNPs, 1 missing genotypes (50.00%), normal layout\n");
  EXPECT_EQ(folder_.read("g"), file_with({{1, 0}, {3, 1}}));
  EXPECT_EQ(folder_.output_of("--bfile p --out g --pheno y.txt --pheno-name B"),
            "y.txt: the phenotype is B, 0 control, 1 case; -9 and NA missing (1 lines match no sample)\n"
            "no phenotype: 2 samples dropped, 2 left\n"
            "g: 2 samples (1 cases, 1 controls), 1 SNPs, 1 missing genotypes (50.00%), normal layout\n");
  EXPECT_EQ(folder_.read("g"), file_with({{1, 1}, {3, 0}}));
}

TEST_F(Phenotype, QuantitativeOnesAreFloats) {
  folder_.write("y.txt", "\xef\xbb\xbf#FID IID Q\r\nF1 I1 -0.5\r\nF2 I2 NA\r\nF3 I3 +1e2\r\nF4 I4 -9\r\n");
  EXPECT_EQ(
      folder_.output_of("--bfile p --out g --make-bed q --pheno y.txt --quantitative"),
      "y.txt: the phenotype is Q, a number; -9 and NA missing\n"
      "no phenotype: 2 samples dropped, 2 left\n"
      "g: 2 samples (phenotype -0.5 to 100, mean 49.75), 1 SNPs, 0 missing genotypes (0.00%), normal "
      "layout\n"
      "q.bed: 2 samples (phenotype -0.5 to 100, mean 49.75), 1 SNPs, 0 missing genotypes (0.00%), PLINK 1 "
      "binary\n");
  EXPECT_EQ(folder_.read("g"),
            file_with({{0, std::bit_cast<uint32_t>(-0.5f)}, {2, std::bit_cast<uint32_t>(100.0f)}}));
  EXPECT_EQ(folder_.read("q.fam"), "F1\tI1\t0\t0\t1\t-0.5\nF3\tI3\t0\t0\t1\t100\n");
  // Back from the .fam file, and through a genotype file.
  folder_.output_of("--bfile q --out h --quantitative");
  EXPECT_EQ(folder_.read("h"), folder_.read("g"));
  folder_.output_of("--in g --out i --quantitative");
  EXPECT_EQ(folder_.read("i"), folder_.read("g"));
  EXPECT_EQ(
      folder_.refusal_of("--in g --out j"),
      "g: sample 1: the class is 3204448256, expected 0 or 1; --quantitative takes the fields as floats");
  folder_.output_of("--bfile p --out k");
  EXPECT_EQ(folder_.refusal_of("--in k --out j --quantitative"),
            "k: the class fields hold small integers or nothing but 0, expected floats for --quantitative");
}

TEST_F(Phenotype, SamplesWithoutIdentifiersAreNumbers) {
  folder_.output_of("--bfile p --out g");
  folder_.write("y.txt", "FID IID P\n0 3 1\n1 1 0\n2 4 1\n");
  folder_.output_of("--in g --out h --pheno y.txt");
  EXPECT_EQ(folder_.read("h"), file_with({{0, 0}, {2, 1}}));
}

TEST_F(Phenotype, RefusesFilesThatCannotBeUsed) {
  const std::string header = "FID IID A B\n";
  EXPECT_EQ(folder_.refusal_of("--bfile p --out g --pheno absent"),
            "cannot open absent: No such file or directory");
  EXPECT_EQ(refusal_with(""), "y.txt: empty, expected a header line FID IID and names");
  EXPECT_EQ(refusal_with("F1 I1 1 0\n"),
            "y.txt: line 1: found \"F1\" \"I1\", expected a header line FID IID and names");
  EXPECT_EQ(refusal_with("FID IID\n"), "y.txt: line 1: only FID IID, expected at least one name behind them");
  EXPECT_EQ(refusal_with(header), "y.txt: line 1: 2 phenotypes, the first is \"A\"; --pheno-name names one");
  EXPECT_EQ(refusal_with(header, "--pheno-name C"),
            "y.txt: line 1: no column \"C\" among 2, the first is \"A\"");
  EXPECT_EQ(refusal_with("FID IID A A\n", "--pheno-name A"),
            "y.txt: line 1: the column \"A\" stands there twice, expected once");
  EXPECT_EQ(refusal_with(header + "F1 I1 1\n", "--pheno-name A"), "y.txt: line 2: 3 fields, expected 4");
  EXPECT_EQ(refusal_with(header + "F1 I1 1 1\nF2 I2 0 0\n\nF1 I1 1 1\n", "--pheno-name A"),
            "y.txt: line 5: a second line for the sample \"F1\" \"I1\", the first is line 2");
  EXPECT_EQ(refusal_with(header + "F1 I1 1 1\nF2 I2 0 yes\n", "--pheno-name B"),
            "y.txt: line 3, field 4 (B): found \"yes\", expected 0 control, 1 case; -9 and NA missing; "
            "--quantitative takes numbers");
  EXPECT_EQ(refusal_with(header + "F1 I1 2 1\nF2 I2 3 0\n", "--pheno-name A"),
            "y.txt: line 3, field 3 (A): found \"3\", expected 1 control, 2 case; 0, -9 and NA missing; "
            "--quantitative takes numbers");
  EXPECT_EQ(
      refusal_with(header + "F1 I1 1 1\nF2 I2 NA 0\n", "--pheno-name A"),
      "y.txt: the phenotype \"A\" is 1 in every sample that has one, expected two classes: 0 and 1, or 1 "
      "and 2");
  for (const std::string word : {"high", "inf", "nan", "0x1p3", "1e99", "1.5x", "+-1", "."}) {
    EXPECT_EQ(
        refusal_with(header + "F1 I1 " + word + " 1\n", "--quantitative --pheno-name A"),
        "y.txt: line 2, field 3 (A): found \"" + word + "\", expected a number, or NA or -9 for missing");
  }
}

TEST_F(Phenotype, CovariatesComeInTheOrderOfTheSamples) {
  folder_.write("c.txt",
                "FID IID age dose sex\nF4 I4 40 0.25 1\nF9 I9 tall x y\nF1 I1 10 NA 2\nF2 I2 20 1e-3 1\n");
  const std::string run = "--bfile p --out g --covar c.txt --covar-out cov ";
  EXPECT_TRUE(folder_.output_of(run).ends_with(
      "\ncov: 3 covariates of 4 samples, 2 of them with a missing one (1 lines match no sample)\n"));
  EXPECT_EQ(folder_.read("cov"),
            "FID\tIID\tage\tdose\tsex\nF1\tI1\t10\tNA\t2\nF2\tI2\t20\t1e-3\t1\nF3\tI3\tNA\tNA\tNA\n"
            "F4\tI4\t40\t0.25\t1\n");
  folder_.write("k.txt", "F4 I4\nF2 I2\n");
  EXPECT_TRUE(
      folder_.output_of(run + "--covar-name sex,age --keep k.txt")
          .ends_with(
              "\ncov: 2 covariates of 2 samples, 0 of them with a missing one (1 lines match no sample)\n"));
  EXPECT_EQ(folder_.read("cov"), "FID\tIID\tsex\tage\nF2\tI2\t1\t20\nF4\tI4\t1\t40\n");
  // Other family identifiers.
  folder_.write("c.txt", "FID IID age\n1 I1 10\n2 I2 20\n");
  const RunResult nobody = folder_.run_line(run);
  EXPECT_TRUE(nobody.out.ends_with("4 of them with a missing one (2 lines match no sample)\n")) << nobody.out;
  EXPECT_EQ(nobody.err,
            "tavo-convert: warning: cov: every sample lacks a covariate; a regression has nobody left\n");
}

TEST_F(Phenotype, RefusesCovariatesThatAreNoNumbers) {
  const std::string run = "--bfile p --out g --covar-out cov --covar c.txt ";
  folder_.write("c.txt", "FID IID age town\nF1 I1 10 urban\n");
  EXPECT_EQ(folder_.refusal_of(run),
            "c.txt: line 2, field 4 (town): found \"urban\", expected a number or NA");
  folder_.output_of(run + "--covar-name age");
  folder_.write("c.txt", "FID IID age\nF1 I1 NAN\n");
  EXPECT_EQ(folder_.refusal_of(run), "c.txt: line 2, field 3 (age): found \"NAN\", expected a number or NA");
  folder_.write("c.txt", "FID IID a b c d e f g h i j k\n");
  EXPECT_EQ(folder_.refusal_of(run),
            "c.txt: 11 covariates, expected at most 10; --covar-name takes some of them");
  folder_.write("c.txt", "FID IID a b c d e f g h\nF1 I1 1 2 3 4 5 6 7 8\n");
  EXPECT_EQ(folder_.run_line(run).err,
            "tavo-convert: warning: c.txt: 8 covariates, a regression takes at most 7\n");
}

}  // namespace
}  // namespace tavo_test
