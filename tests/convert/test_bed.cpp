// SPDX-License-Identifier: Apache-2.0
//
// PLINK 1 binary in and out: exact round trips, and every way in which the three files can be wrong.
#include <gtest/gtest.h>

#include "tests/convert/convert_folder.h"
#include "tests/convert/plink_files.h"
#include "tools/convert.h"

namespace tavo_test {
namespace {

GenotypeData sized_data(int n_samples, int n_snps) {
  std::mt19937 random(static_cast<unsigned>(100 * n_samples + n_snps));
  return random_data(random, n_samples, n_snps, 0.2);
}

// The options of a command line, for a conversion within this process.
Status convert_in(const ConvertFolder& folder, const ConvertOptions& options) {
  ConvertOptions placed = options;
  placed.input = (folder / options.input).string();
  if (placed.output) {
    placed.output = (folder / *options.output).string();
  }
  if (placed.make_bed) {
    placed.make_bed = (folder / *options.make_bed).string();
  }
  const StopFlag stop = 0;
  ConvertReport report;
  return convert(placed, stop, &report);
}

ConvertOptions bed_options(const std::string& input) {
  ConvertOptions options;
  options.format = InputFormat::kBed;
  options.input = input;
  return options;
}

std::vector<int> sizes_around_the_borders() {
  std::vector<int> sizes;
  for (int n = 1; n <= 20; ++n) {
    sizes.push_back(n);
  }
  sizes.insert(sizes.end(), {31, 32, 33, 47, 48, 49, 63, 64, 65, 257});
  return sizes;
}

TEST(Bed, IntoBothLayoutsAndBack) {
  const ConvertFolder folder;
  for (const int n_samples : sizes_around_the_borders()) {
    const bool at_a_border = n_samples % 16 < 2 || n_samples % 16 == 15;
    for (const int n_snps : at_a_border ? std::vector{1, 15, 16, 17, 33} : std::vector{17}) {
      SCOPED_TRACE(std::to_string(n_samples) + " x " + std::to_string(n_snps));
      const GenotypeData data = sized_data(n_samples, n_snps);
      write_plink_files(folder / "p", data);
      for (const Layout layout : {Layout::kNormal, Layout::kTransposed}) {
        ConvertOptions options = bed_options("p");
        options.output = "g";
        options.layout = layout;
        ASSERT_EQ(convert_in(folder, options).message(), "");
        EXPECT_EQ(folder.read("g"), layout == Layout::kNormal ? normal_file(data) : transposed_file(data));
        ConvertOptions back;
        back.input = "g";
        back.input_layout = layout;
        back.make_bed = "q";
        ASSERT_EQ(convert_in(folder, back).message(), "");
        EXPECT_EQ(folder.read("q.bed"), folder.read("p.bed"));
      }
      ConvertOptions copy = bed_options("p");
      copy.make_bed = "r";
      ASSERT_EQ(convert_in(folder, copy).message(), "");
      for (const std::string ending : {".bed", ".bim", ".fam"}) {
        EXPECT_EQ(folder.read("r" + ending), folder.read("p" + ending));
      }
    }
  }
}

TEST(Bed, AGenotypeFileGetsDocumentedFields) {
  const ConvertFolder folder;
  GenotypeData data = sized_data(2, 2);
  data.classes = {1, 0};
  folder.write("g", normal_file(data));
  folder.output_of("--in g --make-bed p --in-transpose 0");
  EXPECT_EQ(folder.read("p.fam"), "1\t1\t0\t0\t0\t2\n2\t2\t0\t0\t0\t1\n");
  EXPECT_EQ(folder.read("p.bim"), "0\trs0\t0\t0\t1\t2\n0\trs1\t0\t0\t1\t2\n");
}

// As many samples as variants: one size for both layouts.
TEST(Bed, WarnsWhereTheLayoutIsAssumed) {
  const ConvertFolder folder;
  const GenotypeData data = sized_data(20, 20);
  folder.write("s", transposed_file(data));
  const RunResult assumed = folder.run_line("--in s --make-bed p");
  EXPECT_EQ(assumed.status, 1);
  EXPECT_TRUE(
      assumed.err.starts_with("tavo-convert: warning: s: the file's size fits both layouts, the normal one "
                              "is assumed; --in-transpose "
                              "tells\n"))
      << assumed.err;
  const RunResult told = folder.run_line("--in s --make-bed p --in-transpose 1");
  EXPECT_EQ(told.err, "");
  EXPECT_EQ(folder.read("p.bed"), bed_bytes(data));
}

TEST(Bed, CountsTheAlleleThatIsAskedFor) {
  const ConvertFolder folder;
  const GenotypeData data = sized_data(21, 18);
  GenotypeData other = data;
  for (uint8_t& code : other.genotypes) {
    code = code == 3 ? 3 : 2 - code;
  }
  write_plink_files(folder / "p", data);
  for (const std::string name : {"a1", "ALT"}) {
    folder.output_of("--bfile p --out g --count " + name);
    EXPECT_EQ(folder.read("g"), normal_file(data));
  }
  for (const std::string name : {"A2", "ref"}) {
    folder.output_of("--bfile p --out g --make-bed q --count " + name);
    EXPECT_EQ(folder.read("g"), normal_file(other));
    EXPECT_EQ(folder.read("q.bed"), bed_bytes(other));
    EXPECT_NE(folder.read("q.bim").find("\trs0\t0\t7\tG\tA\n"), std::string::npos);
  }
}

TEST(Bed, BothOutputsAtOnceAreThoseOfTwoRuns) {
  const ConvertFolder folder;
  write_plink_files(folder / "p", sized_data(37, 50));
  folder.output_of("--bfile p --out a --make-bed b");
  folder.output_of("--bfile p --out c");
  EXPECT_EQ(folder.read("a"), folder.read("c"));
  EXPECT_EQ(folder.read("b.bed"), folder.read("p.bed"));
}

// A set of five samples and three variants with one file replaced.
std::string refusal_with(const std::string& ending, const std::string& bytes) {
  const ConvertFolder folder;
  write_plink_files(folder / "p", sized_data(5, 3));
  folder.write("p" + ending, bytes);
  return folder.refusal_of("--bfile p --out g");
}

TEST(Bed, RefusesABedFileThatIsNone) {
  const std::string good = bed_bytes(sized_data(5, 3));
  EXPECT_EQ(refusal_with(".bed", ""), "p.bed: 0 bytes, expected at least 3");
  EXPECT_EQ(refusal_with(".bed", "\x6c\x1c\x01" + good.substr(3)),
            "p.bed: bytes 0 and 1: found 6c 1c, expected 6c 1b");
  EXPECT_EQ(refusal_with(".bed", std::string("\x6c\x1b\x00", 3) + good.substr(3)),
            "p.bed: byte 2: found 00, the old sample-major order, expected 01; plink1.9 --bfile p --make-bed "
            "--out NEW writes the file in variant-major order");
  EXPECT_EQ(refusal_with(".bed", "\x6c\x1b\x02" + good.substr(3)), "p.bed: byte 2: found 02, expected 01");
  EXPECT_EQ(
      refusal_with(".bed", good + "x"),
      "p.bed: 10 bytes, expected 9 for the 5 samples of the .fam file and the 3 variants of the .bim file");
}

TEST(Bed, RefusesEveryShorterFile) {
  const ConvertFolder folder;
  const GenotypeData data = sized_data(5, 3);
  write_plink_files(folder / "p", data);
  ConvertOptions options = bed_options("p");
  options.output = "g";
  for (const std::string ending : {".bed", ".bim", ".fam"}) {
    const std::string whole = folder.read("p" + ending);
    // Without its last line end a text file is whole; the last field of each has one byte.
    const size_t end = whole.size() - (ending == ".bed" ? 0 : 1);
    for (size_t size = 0; size < end; ++size) {
      folder.write("p" + ending, whole.substr(0, size));
      const std::string message = convert_in(folder, options).message();
      EXPECT_NE(message.find("p."), std::string::npos) << ending << " " << size << ": " << message;
    }
    folder.write("p" + ending, whole);
  }
  EXPECT_EQ(convert_in(folder, options).message(), "");
}

TEST(Bed, RefusesWrongFamFiles) {
  EXPECT_EQ(refusal_with(".fam", ""), "p.fam: no sample, expected at least one line");
  EXPECT_EQ(refusal_with(".fam", "F1 I1 0 0 1\n"), "p.fam: line 1: 5 fields, expected 6");
  EXPECT_EQ(refusal_with(".fam", "F1 I1 0 0 1 1\n\nF1 I2 0 0 1 1 1\n"),
            "p.fam: line 3: 7 fields, expected 6");
  EXPECT_EQ(
      refusal_with(".fam", "F1 I1 0 0 1 1\nF1 " + std::string(256, 'i') + " 0 0 1 1\n"),
      "p.fam: line 2, field 2: found \"" + std::string(40, 'i') + "...\" of 256 bytes, expected at most 255");
  EXPECT_EQ(refusal_with(".fam", std::string("F1 I\0 0 0 1 1\n", 14)),
            "p.fam: line 1, field 2: found \"I\\x00\", expected neither blanks nor control characters");
  const std::string four = "F1 I1 0 0 1 1\nF2 I2 0 0 1 2\nF3 I3 0 0 1 1\nF4 I4 0 0 1 1\n";
  EXPECT_EQ(refusal_with(".fam", four + "F2 I2 0 0 1 1\n"),
            "p.fam: samples 2 and 5 have the same identifiers \"F2\" \"I2\"");
  for (const std::string bad : {"3", "-1", "1.0", "case"}) {
    EXPECT_EQ(
        refusal_with(".fam", four + "F5 I5 0 0 1 " + bad + "\n"),
        "p.fam: sample 5 (F5 I5), field 6: found \"" + bad +
            "\", expected 1 control, 2 case; 0, -9 and NA missing; --quantitative takes numbers, --pheno "
            "another file");
  }
  EXPECT_EQ(refusal_with(".fam", four).substr(0, 6), "p.bed:");
}

TEST(Bed, RefusesWrongBimFiles) {
  EXPECT_EQ(refusal_with(".bim", "\n \n"), "p.bim: no variant, expected at least one line");
  EXPECT_EQ(refusal_with(".bim", "1 rs1 0 7 A\n"), "p.bim: line 1: 5 fields, expected 6");
  EXPECT_EQ(refusal_with(".bim", "1 rs1 0 7 A G\n1 rs2 0 8k A G\n"),
            "p.bim: line 2, field 4: found \"8k\", expected a position in base pairs");
  EXPECT_EQ(refusal_with(".bim", "1 " + std::string(255, 'n') + " 0 7 A G\n"),
            "p.bim: line 1, field 2: the SNP name \"" + std::string(40, 'n') +
                "...\" has 255 bytes, expected at most 254");
  EXPECT_EQ(refusal_with(".bim", "1 rs1 0 7 A \x07\n"),
            "p.bim: line 1, field 6: found \"\\x07\", expected neither blanks nor control characters");
}

TEST(Bed, RefusesWhatIsNotThereOrNoFile) {
  const ConvertFolder folder;
  EXPECT_EQ(folder.refusal_of("--bfile p --out g"), "cannot open p.fam: No such file or directory");
  write_plink_files(folder / "p", sized_data(5, 3));
  std::filesystem::remove(folder / "p.bed");
  EXPECT_EQ(folder.refusal_of("--bfile p --out g"), "cannot open p.bed: No such file or directory");
  std::filesystem::create_directory(folder / "p.bed");
  EXPECT_EQ(folder.refusal_of("--bfile p --out g"),
            "p.bed: not a regular file; its size is needed to tell its layout");
  EXPECT_EQ(folder.refusal_of("--bfile p --make-bed p"), "p.bed: --make-bed is the same file as --bfile");
  EXPECT_EQ(folder.refusal_of("--bfile p --out p.fam"), "p.fam: --out is the same file as --bfile");
  EXPECT_EQ(folder.refusal_of("--bfile p --out q.bim --make-bed q"),
            "q.bim: --make-bed is the same file as --out");
  std::filesystem::create_symlink(".", folder / "here");
  EXPECT_EQ(folder.refusal_of("--bfile p --out here/q.bim --make-bed q"),
            "q.bim: --make-bed is the same file as --out");
}

TEST(TavoInput, RefusesEveryShorterFile) {
  const ConvertFolder folder;
  const GenotypeData data = sized_data(9, 40);
  for (const std::string& whole : {normal_file(data), transposed_file(data)}) {
    ConvertOptions options;
    options.input = "g";
    options.make_bed = "p";
    for (size_t size = 0; size < whole.size(); ++size) {
      folder.write("g", whole.substr(0, size));
      EXPECT_NE(convert_in(folder, options).message(), "") << size;
    }
    EXPECT_EQ(folder.names(), Words{"g"});
    folder.write("g", whole);
    EXPECT_EQ(convert_in(folder, options).message(), "");
    EXPECT_EQ(folder.read("p.bed"), bed_bytes(data));
    for (const std::string ending : {".bed", ".bim", ".fam"}) {
      std::filesystem::remove(folder / ("p" + ending));
    }
  }
}

// Damage of any kind ends in a message or in files, never in a crash.
TEST(Bed, DamageIsReadOrRefused) {
  const ConvertFolder folder;
  const GenotypeData data = sized_data(9, 12);
  write_plink_files(folder / "p", data);
  folder.write("g", normal_file(data));
  std::mt19937 random(17);
  int n_refused = 0;
  for (const std::string name : {"p.bed", "p.bim", "p.fam", "g"}) {
    const std::string whole = folder.read(name);
    for (int i = 0; i < 100; ++i) {
      std::string damaged = whole;
      for (int k = 0; k < 1 + i % 3; ++k) {
        damaged[random() % damaged.size()] = static_cast<char>(random());
      }
      folder.write(name, damaged);
      ConvertOptions options = name == "g" ? ConvertOptions() : bed_options("p");
      options.input = name == "g" ? "g" : "p";
      options.output = "o";
      options.filters.maf = 0.01;
      n_refused += convert_in(folder, options).ok() ? 0 : 1;
    }
    folder.write(name, whole);
  }
  EXPECT_GT(n_refused, 100);
  EXPECT_LT(n_refused, 400);
}

}  // namespace
}  // namespace tavo_test
