// SPDX-License-Identifier: Apache-2.0
//
// VCF and BCF against what the records say, written out by hand; and files that are damaged or cut.
#include <gtest/gtest.h>
#include <htslib/vcf.h>

#include "tests/convert/convert_folder.h"
#include "tests/convert/table_text.h"
#include "tools/convert.h"

namespace tavo_test {
namespace {

const std::string kMeta =
    "##fileformat=VCFv4.2\n"
    "##FILTER=<ID=low,Description=\"low\">\n"
    "##contig=<ID=1>\n"
    "##contig=<ID=X>\n"
    "##FORMAT=<ID=GT,Number=1,Type=String,Description=\"Genotype\">\n"
    "##FORMAT=<ID=DP,Number=1,Type=Integer,Description=\"Depth\">\n";
const std::string kColumns = "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\tFORMAT\ta\tb\tc\td\te\n";
const std::string kRecords =
    "1\t100\trs1\tA\tG\t.\tPASS\t.\tGT\t0/0\t0/1\t1|1\t./.\t./1\n"
    "1\t200\t.\tC\tT\t50\tlow\t.\tGT:DP\t0:3\t1:4\t.:5\t1|0:6\t0/.:7\n"
    "1\t300\trs3\tA\tC,G\t.\t.\t.\tGT\t0/1\t1/2\t2/2\t0/2\t.\n"
    "1\t400\trs4\tA\t.\t.\t.\t.\tGT\t0/0\t0/0\t0/0\t0/0\t0/0\n"
    "1\t500\trs5\tA\tT\t.\t.\t.\tDP\t1\t2\t3\t4\t5\n"
    "X\t600\trs6\tAT\tA\t.\t.\t.\tDP:GT\t1:0/0\t2:1\t3:0\t4:1/1\t5:0|1\n";
const std::string kPhenotypes = "FID IID P\na a 2\n0 b 1\nc c 1\n0 d 2\ne e 1\n";

std::string vcf_text() {
  return kMeta + kColumns + kRecords;
}

// The data set that a text is expected to become. rows: for each variant its name and the codes of a to e.
GenotypeData expected(const std::vector<std::pair<std::string, std::string>>& rows) {
  GenotypeData data;
  data.n_samples = 5;
  data.n_snps = static_cast<int>(rows.size());
  data.classes = {1, 0, 0, 1, 0};
  for (size_t s = 0; s < 5; ++s) {
    for (const auto& [name, codes] : rows) {
      data.genotypes.push_back(static_cast<uint8_t>(codes[s] - '0'));
    }
  }
  for (const auto& [name, codes] : rows) {
    data.names.push_back(name);
  }
  return data;
}

// One copy of a chromosome (b and c of rs6, a and b of the second record) counts like two equal ones.
const GenotypeData kExpected = expected({{"rs1", "01233"}, {"1:200:C:T", "02313"}, {"rs6", "02021"}});
const GenotypeData kExpectedSplit = expected(
    {{"rs1", "01233"}, {"1:200:C:T", "02313"}, {"rs3:C", "11003"}, {"rs3:G", "01213"}, {"rs6", "02021"}});

// The text as htslib writes it in another form: "wb" BCF, "wbu" BCF without compression, "wz" bgzip.
void write_as(const std::filesystem::path& from, const std::filesystem::path& to, const char* mode) {
  htsFile* in = hts_open(from.c_str(), "r");
  htsFile* out = hts_open(to.c_str(), mode);
  bcf_hdr_t* header = bcf_hdr_read(in);
  bcf1_t* record = bcf_init();
  EXPECT_EQ(bcf_hdr_write(out, header), 0);
  while (bcf_read(in, header, record) == 0) {
    EXPECT_EQ(bcf_write(out, header, record), 0);
  }
  bcf_destroy(record);
  bcf_hdr_destroy(header);
  EXPECT_EQ(hts_close(in), 0);
  EXPECT_EQ(hts_close(out), 0);
}

class Vcf : public testing::Test {
 protected:
  Vcf() {
    folder_.write("v.vcf", vcf_text());
    folder_.write("p.txt", kPhenotypes);
  }

  // The message for a text in place of the records.
  std::string refusal_with(const std::string& records) const {
    folder_.write("bad.vcf", kMeta + kColumns + records);
    return folder_.refusal_of("--vcf bad.vcf --pheno p.txt --out g --split");
  }

  ConvertFolder folder_;
};

TEST_F(Vcf, CountsTheAlternateAllele) {
  EXPECT_EQ(folder_.output_of("--vcf v.vcf --pheno p.txt --out g"),
            "v.vcf: 6 records, 3 variants; 1 multi-allelic records skipped (--split takes them); 1 records "
            "without an alternate allele skipped; 1 records without GT skipped\n"
            "p.txt: the phenotype is P, 1 control, 2 case; 0, -9 and NA missing\n"
            "g: 5 samples (2 cases, 3 controls), 3 SNPs, 4 missing genotypes (26.67%), normal layout\n");
  EXPECT_EQ(folder_.read("g"), normal_file(kExpected));
  folder_.output_of("--vcf v.vcf --pheno p.txt --out t --transpose 1");
  EXPECT_EQ(folder_.read("t"), transposed_file(kExpected));
}

TEST_F(Vcf, SplitsMultiAllelicRecords) {
  const std::string out = folder_.output_of("--vcf v.vcf --pheno p.txt --out g --make-bed b --split");
  EXPECT_TRUE(
      out.starts_with("v.vcf: 6 records, 5 variants; 1 multi-allelic records split; 1 records without "
                      "an alternate allele skipped; 1 records without GT skipped\n"));
  EXPECT_EQ(folder_.read("g"), normal_file(kExpectedSplit));
  EXPECT_EQ(folder_.read("b.bim"),
            "1\trs1\t0\t100\tG\tA\n1\t1:200:C:T\t0\t200\tT\tC\n1\trs3:C\t0\t300\tC\tA\n"
            "1\trs3:G\t0\t300\tG\tA\nX\trs6\t0\t600\tA\tAT\n");
  EXPECT_EQ(folder_.read("b.fam"),
            "a\ta\t0\t0\t0\t2\nb\tb\t0\t0\t0\t1\nc\tc\t0\t0\t0\t1\nd\td\t0\t0\t0\t2\ne\te\t0\t0\t0\t1\n");
}

TEST_F(Vcf, CountsTheReferenceAlleleWhenAsked) {
  folder_.output_of("--vcf v.vcf --pheno p.txt --out g --count ref");
  EXPECT_EQ(folder_.read("g"),
            normal_file(expected({{"rs1", "21033"}, {"1:200:C:T", "20313"}, {"rs6", "20201"}})));
}

TEST_F(Vcf, EveryFormGivesTheSame) {
  write_as(folder_ / "v.vcf", folder_ / "v.bcf", "wb");
  write_as(folder_ / "v.vcf", folder_ / "u.bcf", "wbu");
  write_as(folder_ / "v.vcf", folder_ / "v.vcf.gz", "wz");
  folder_.write("plain.gz", gzip(vcf_text()));
  for (const std::string name : {"v.bcf", "u.bcf", "v.vcf.gz", "plain.gz"}) {
    folder_.output_of("--vcf " + name + " --pheno p.txt --out g --split");
    EXPECT_EQ(folder_.read("g"), normal_file(kExpectedSplit)) << name;
  }
}

// A sample's fields may end early: what is not there is missing, and where no sample has it, too.
TEST_F(Vcf, GenotypesThatNoSampleHasAreMissing) {
  const std::string records =
      "1\t1\trs1\tA\tG\t.\t.\t.\tDP:GT\t1\t2\t3\t4\t5\n1\t2\trs2\tA\tG\t.\t.\t.\tDP:GT\t1\t2:0/1\t3\t4:1/"
      "1\t5\n";
  folder_.write("v.vcf", kMeta + kColumns + records);
  folder_.output_of("--vcf v.vcf --pheno p.txt --out g");
  EXPECT_EQ(folder_.read("g"), normal_file(expected({{"rs1", "33333"}, {"rs2", "31323"}})));
  write_as(folder_ / "v.vcf", folder_ / "v.bcf", "wb");
  folder_.output_of("--vcf v.bcf --pheno p.txt --out b");
  EXPECT_EQ(folder_.read("b"), folder_.read("g"));
}

// A binary file may hold text where the genotypes belong.
TEST_F(Vcf, RefusesGenotypesOfAnotherType) {
  htsFile* in = hts_open((folder_ / "v.vcf").c_str(), "r");
  htsFile* out = hts_open((folder_ / "v.bcf").c_str(), "wb");
  bcf_hdr_t* header = bcf_hdr_read(in);
  bcf1_t* record = bcf_init();
  ASSERT_EQ(bcf_hdr_write(out, header), 0);
  ASSERT_EQ(bcf_read(in, header, record), 0);
  ASSERT_EQ(bcf_update_format(header, record, "GT", "abcde", 5, BCF_HT_STR), 0);
  ASSERT_EQ(bcf_write(out, header, record), 0);
  bcf_destroy(record);
  bcf_hdr_destroy(header);
  hts_close(in);
  hts_close(out);
  EXPECT_EQ(folder_.refusal_of("--vcf v.bcf --pheno p.txt --out g"),
            "v.bcf: record 1: GT holds no genotypes");
}

TEST_F(Vcf, LongAllelesAreShortenedInNames) {
  const std::string insertion(300, 'C');
  folder_.write("v.vcf", kMeta + kColumns + "1\t5\t.\tA\t" + insertion + "\t.\t.\t.\tGT\t0/1\t0\t0\t0\t0\n");
  folder_.output_of("--vcf v.vcf --pheno p.txt --out g --make-bed b");
  EXPECT_EQ(folder_.read("b.bim"), "1\t1:5:A:CCCCCCCCCCCCCCCCCCCC...300\t0\t5\t" + insertion + "\tA\n");
}

TEST_F(Vcf, RefusesRecordsThatMakeNoSense) {
  const std::string start = "1\t7\trs\tA\tG\t.\t.\t.\tGT\t";
  EXPECT_EQ(refusal_with(start + "0/0\t0/2\t0\t0\t0\n"),
            "bad.vcf: line 8: sample \"b\" has allele 2, the record has alleles 0 to 1");
  EXPECT_EQ(refusal_with(start + "0/0\t0/1/1\t0\t0\t0\n"),
            "bad.vcf: line 8: sample \"b\" has 3 alleles in its genotype, expected 1 or 2");
  std::string many = "0";
  for (int i = 1; i < 20; ++i) {
    many += "/0";
  }
  EXPECT_EQ(refusal_with(start + "0/0\t" + many + "\t0\t0\t0\n"),
            "bad.vcf: line 8: a genotype of 20 alleles, expected 1 or 2");
  EXPECT_EQ(refusal_with(start + "0/0\t0/1\t0\t0\n"), "bad.vcf: line 8: the record is damaged or ends early");
  EXPECT_EQ(refusal_with("1\tx\trs\tA\tG\t.\t.\t.\tGT\t0\t0\t0\t0\t0\n"),
            "bad.vcf: line 8: the position is 0 or no number, expected at least 1");
  EXPECT_EQ(refusal_with("1\t7\t" + std::string(255, 'n') + "\tA\tG\t.\t.\t.\tGT\t0\t0\t0\t0\t0\n"),
            "bad.vcf: line 8: the SNP name \"" + std::string(40, 'n') +
                "...\" has 255 bytes, expected at most 254");
  EXPECT_EQ(refusal_with(""), "bad.vcf: 0 records, 0 variants; expected at least one variant");
}

TEST_F(Vcf, RefusesWhatIsNoVcf) {
  folder_.write("empty", "");
  folder_.write("t.csv", "rs1,Class\n0,1\n");
  folder_.write("none.vcf",
                kMeta + "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n1\t7\trs\tA\tG\t.\t.\t.\n");
  folder_.write("blank.vcf", kMeta + "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\tFORMAT\ta b\n");
  EXPECT_EQ(folder_.refusal_of("--vcf absent --pheno p.txt --out g"),
            "cannot open absent: No such file or directory");
  EXPECT_EQ(folder_.refusal_of("--vcf http://localhost/v.vcf --pheno p.txt --out g"),
            "cannot open http://localhost/v.vcf: No such file or directory");
  EXPECT_EQ(folder_.refusal_of("--vcf . --pheno p.txt --out g"), ".: expected a VCF or BCF file");
  EXPECT_EQ(folder_.refusal_of("--vcf empty --pheno p.txt --out g"),
            "empty: found \"empty\", expected a VCF or BCF file");
  EXPECT_EQ(folder_.refusal_of("--vcf t.csv --pheno p.txt --out g"),
            "t.csv: found \"unknown text\", expected a VCF or BCF file");
  folder_.write("c.cram", std::string("CRAM\3\0", 6) + std::string(20, '\0'));
  EXPECT_EQ(folder_.refusal_of("--vcf c.cram --pheno p.txt --out g"),
            "c.cram: found \"CRAM version 3.0 compressed sequence dat...\", expected a VCF or BCF file");
  EXPECT_EQ(folder_.refusal_of("--vcf none.vcf --pheno p.txt --out g"),
            "none.vcf: no sample, expected at least one column of genotypes");
  EXPECT_EQ(folder_.refusal_of("--vcf blank.vcf --pheno p.txt --out g"),
            "blank.vcf: the name of sample 1: found \"a b\", expected neither blanks nor control characters");
}

// Converts within this process; the message, or "" for success.
std::string message_of(const ConvertFolder& folder, const std::string& input, ConvertReport* report) {
  ConvertOptions options;
  options.format = InputFormat::kVcf;
  options.input = (folder / input).string();
  options.output = (folder / "g").string();
  options.pheno = (folder / "p.txt").string();
  const StopFlag stop = 0;
  *report = ConvertReport();
  return convert(options, stop, report).message();
}

// A compressed or binary file that is cut is refused wherever the cut is.
TEST_F(Vcf, RefusesEveryShorterCompressedFile) {
  write_as(folder_ / "v.vcf", folder_ / "v.bcf", "wb");
  write_as(folder_ / "v.vcf", folder_ / "v.vcf.gz", "wz");
  folder_.write("plain.gz", gzip(vcf_text()));
  ConvertReport report;
  for (const std::string name : {"v.bcf", "v.vcf.gz", "plain.gz"}) {
    const std::string whole = folder_.read(name);
    ASSERT_EQ(message_of(folder_, name, &report), "");
    EXPECT_TRUE(report.warnings.empty());
    std::filesystem::remove(folder_ / "g");
    for (size_t size = 0; size < whole.size(); ++size) {
      folder_.write("cut", whole.substr(0, size));
      EXPECT_NE(message_of(folder_, "cut", &report), "") << name << " " << size;
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ / "g"));
  }
}

// A text that is cut between two lines is a shorter file. Within a line it is refused or, where the rest of
// the line still is a record, marked with a warning.
TEST_F(Vcf, NoticesEveryCutWithinALineOfText) {
  const std::string whole = vcf_text();
  ConvertReport report;
  for (size_t size = 0; size < whole.size(); ++size) {
    folder_.write("cut", whole.substr(0, size));
    const std::string message = message_of(folder_, "cut", &report);
    if (message.empty() && whole[size - 1] != '\n') {
      EXPECT_EQ(report.warnings,
                Words{(folder_ / "cut").string() + ": the last line has no line end; is the file whole?"})
          << size;
    }
  }
}

// Damage of any kind ends in a message or in a file, never in a crash.
TEST_F(Vcf, DamageIsReadOrRefused) {
  write_as(folder_ / "v.vcf", folder_ / "u.bcf", "wbu");
  std::mt19937 random(12);
  ConvertReport report;
  int n_refused = 0;
  for (const std::string name : {"u.bcf", "v.vcf"}) {
    const std::string whole = folder_.read(name);
    for (int i = 0; i < 400; ++i) {
      std::string damaged = whole;
      for (int k = 0; k < 1 + i % 3; ++k) {
        damaged[random() % damaged.size()] = static_cast<char>(random());
      }
      folder_.write("damaged", damaged);
      n_refused += message_of(folder_, "damaged", &report).empty() ? 0 : 1;
    }
  }
  EXPECT_GT(n_refused, 100);
}

}  // namespace
}  // namespace tavo_test
