// SPDX-License-Identifier: Apache-2.0
//
// The example data set end to end, and the same conversions by plink1.9 and bcftools where they are
// installed.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/convert/convert_folder.h"
#include "tests/convert/plink_files.h"
#include "tests/support/required.h"

namespace tavo_test {
namespace {

constexpr const char* kPlink = "/usr/bin/plink1.9";
constexpr const char* kBcftools = "/usr/bin/bcftools";

// Runs another program in the folder and expects that it worked.
void run_peer(const ConvertFolder& folder, const char* program, const std::string& line) {
  const RunResult result = run_program(program, words_of(line), folder.path());
  ASSERT_EQ(result.status, 0) << program << " " << line << ": " << result.err;
}

std::string example(const std::string& name) {
  return (source_root() / "examples/regenie" / name).string();
}

// As --make-bed of plink1.9, which writes the fields of a .fam file with blanks between.
std::string with_tabs(std::string text) {
  for (char& c : text) {
    c = c == ' ' ? '\t' : c;
  }
  return text;
}

TEST(ExampleSet, CasesAndControls) {
  const ConvertFolder folder;
  const std::string out = folder.output_of("--bfile " + example("example") + " --pheno " +
                                           example("phenotype_bin_wNA.txt") + " --pheno-name Y1 --covar " +
                                           example("covariates.txt") + " --covar-out c --out g --make-bed b");
  EXPECT_TRUE(out.ends_with(
      "\nno phenotype: 50 samples dropped, 450 left\n"
      "g: 450 samples (111 cases, 339 controls), 1000 SNPs, 0 missing genotypes (0.00%), normal layout\n"
      "b.bed: 450 samples (111 cases, 339 controls), 1000 SNPs, 0 missing genotypes (0.00%), PLINK 1 binary\n"
      "c: 3 covariates of 450 samples, 0 of them with a missing one\n"))
      << out;
  folder.output_of("--in g --make-bed d");
  EXPECT_EQ(folder.read("d.bed"), folder.read("b.bed"));
  EXPECT_EQ(folder.read("b.bim"), read_file(example("example.bim")));
  // tavo reads both files; what it makes of them is not the matter here.
  const RunResult run =
      run_program(tavo_program(),
                  words_of("--in g --out r.csv --regression logistic --covariate c --thread 16 "
                           "--block 1 --device cpu"),
                  folder.path());
  EXPECT_EQ(run.out.find("th covarite is missing"), std::string::npos);
  EXPECT_NE(run.out.find("Covarite file [450 entries, 3 covarites] read complete"), std::string::npos);
  EXPECT_NE(run.out.find("Arranged individual count is 450"), std::string::npos);
}

TEST(ExampleSet, QuantitativePhenotypes) {
  const ConvertFolder folder;
  const std::string whole = "--bfile " + example("example") + " --quantitative --out g";
  folder.output_of(whole + " --pheno " + example("phenotype.txt") + " --pheno-name Y2");
  EXPECT_TRUE(folder.output_of(whole).starts_with(example("example.fam")));
  EXPECT_EQ(
      folder.refusal_of("--bfile " + example("example") + " --out g"),
      example("example.fam") +
          ": sample 1 (1 1), field 6: found \"-0.4267761781290719\", expected 1 control, 2 case; 0, -9 and "
          "NA missing; --quantitative takes numbers, --pheno another file");
  EXPECT_EQ(
      folder.refusal_of(whole + " --covar " + example("covariates_wBin.txt") + " --covar-out c"),
      example("covariates_wBin.txt") + ": line 2, field 7 (V5): found \"urban\", expected a number or NA");
}

class Peers : public testing::Test {
 protected:
  void SetUp() override {
    TAVO_NEEDS(std::filesystem::exists(kPlink), "plink1.9 (Debian package plink1.9)");
    std::mt19937 random(31);
    GenotypeData data = random_data(random, 203, 150, 0.12);
    // Some variants are rare, so that --maf has something to drop.
    for (size_t i = 0; i < data.genotypes.size(); ++i) {
      if (i % 150 < 40 && data.genotypes[i] != 3 && random() % 8 != 0) {
        data.genotypes[i] = 0;
      }
    }
    write_plink_files(folder_ / "p", data);
    folder_.write("k", "F1 I1\nF203 I203\nF77 I77\nF78 I78\n");
    folder_.write("x", "rs3\nrs149\nrs77\n");
  }

  ConvertFolder folder_;
};

TEST_F(Peers, PlinkFiltersTheSame) {
  for (const std::string filters :
       {"--maf 0.05", "--geno 0.12", "--mind 0.12", "--mind 0.12 --geno 0.11 --maf 0.1", "--keep k",
        "--remove k", "--extract x", "--exclude x",
        "--remove k --exclude x --mind 0.13 --geno 0.1 --maf 0.02"}) {
    folder_.output_of("--bfile p --make-bed a " + filters);
    run_peer(folder_, kPlink, "--bfile p --keep-allele-order --make-bed --out b " + filters);
    EXPECT_EQ(folder_.read("a.bed"), folder_.read("b.bed")) << filters;
    EXPECT_EQ(folder_.read("a.bim"), folder_.read("b.bim")) << filters;
    EXPECT_EQ(folder_.read("a.fam"), with_tabs(folder_.read("b.fam"))) << filters;
  }
}

// The table of copies of the first allele that plink1.9 writes, converted, is the file itself converted.
TEST_F(Peers, PlinkRecodesTheSame) {
  run_peer(folder_, kPlink, "--bfile p --keep-allele-order --recode A --out r");
  std::string table;
  for (const std::string& line : split_lines(folder_.read("r.raw"))) {
    Words fields = words_of(line);
    ASSERT_EQ(fields.size(), 156u);
    const std::string phenotype = fields[5];
    table += phenotype == "PHENOTYPE" ? "Class" : phenotype == "2" ? "1" : "0";
    for (size_t i = 6; i < fields.size(); ++i) {
      // A name in the header is followed by the counted allele.
      table += " " + (phenotype == "PHENOTYPE" ? fields[i].substr(0, fields[i].find('_')) : fields[i]);
    }
    table += "\n";
  }
  folder_.write("t", table);
  folder_.output_of("--in t --out a");
  folder_.output_of("--bfile p --out b");
  EXPECT_EQ(folder_.read("a"), folder_.read("b"));
}

TEST_F(Peers, VcfOfPlinkAndBcfOfBcftools) {
  run_peer(folder_, kPlink,
           "--bfile p --recode vcf-iid bgz --a2-allele p.bim 6 2 --real-ref-alleles --out v");
  std::string phenotypes = "FID IID P\n";
  for (const std::string& line : split_lines(folder_.read("p.fam"))) {
    const Words fields = words_of(line);
    phenotypes += "0 " + fields[1] + " " + fields[5] + "\n";
  }
  folder_.write("y", phenotypes);
  folder_.output_of("--bfile p --out a");
  folder_.output_of("--vcf v.vcf.gz --pheno y --out b --make-bed c");
  EXPECT_EQ(folder_.read("a"), folder_.read("b"));
  EXPECT_EQ(folder_.read("c.bed"), folder_.read("p.bed"));
  EXPECT_EQ(folder_.read("c.bim"), folder_.read("p.bim"));
  TAVO_NEEDS(std::filesystem::exists(kBcftools), "bcftools (Debian package bcftools)");
  run_peer(folder_, kBcftools, "view v.vcf.gz -Ob -o v.bcf");
  folder_.output_of("--vcf v.bcf --pheno y --out d");
  EXPECT_EQ(folder_.read("a"), folder_.read("d"));
}

// bcftools norm splits multi-allelic records; other alternate alleles become the reference there as well.
TEST(Bcftools, SplitsTheSame) {
  TAVO_NEEDS(std::filesystem::exists(kBcftools), "bcftools (Debian package bcftools)");
  const ConvertFolder folder;
  std::string text =
      "##fileformat=VCFv4.2\n##contig=<ID=1>\n"
      "##FORMAT=<ID=GT,Number=1,Type=String,Description=\"Genotype\">\n"
      "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\tFORMAT";
  std::string phenotypes = "FID IID P\n";
  for (int s = 0; s < 37; ++s) {
    text += "\ts" + std::to_string(s);
    phenotypes += "0 s" + std::to_string(s) + " " + std::to_string(s % 2) + "\n";
  }
  std::mt19937 random(41);
  const char* const alternates[] = {"C", "C,G", "C,G,T"};
  for (int j = 0; j < 60; ++j) {
    text += "\n1\t" + std::to_string(10 + j) + "\t.\tA\t" + alternates[j % 3] + "\t.\t.\t.\tGT";
    for (int s = 0; s < 37; ++s) {
      const auto allele = [&] {
        return random() % 9 == 0 ? "." : std::to_string(random() % static_cast<unsigned>(2 + j % 3));
      };
      text += "\t" + allele();
      text += random() % 10 == 0 ? "" : (random() % 2 == 0 ? "/" : "|") + allele();
    }
  }
  folder.write("v.vcf", text + "\n");
  folder.write("y", phenotypes);
  run_peer(folder, kBcftools, "norm -m -any v.vcf -Oz -o n.vcf.gz");
  folder.output_of("--vcf v.vcf --pheno y --out a --split");
  folder.output_of("--vcf n.vcf.gz --pheno y --out b");
  EXPECT_EQ(folder.read("a"), folder.read("b"));
}

}  // namespace
}  // namespace tavo_test
