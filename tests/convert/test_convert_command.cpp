// SPDX-License-Identifier: Apache-2.0
//
// tavo-convert as a user runs it: words, messages, files and status.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <random>
#include <sstream>

#include "tests/convert/convert_folder.h"
#include "tests/convert/table_text.h"
#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"
#include "tools/convert.h"

namespace tavo_test {
namespace {

GenotypeData command_data(int n_samples, int n_snps) {
  std::mt19937 random(21);
  return random_data(random, n_samples, n_snps, 0.1);
}

TEST(ConvertCommand, ConvertsIntoBothLayouts) {
  const ConvertFolder folder;
  for (const int size : {1, 15, 16, 17, 32, 33}) {
    const GenotypeData data = command_data(50 - size, size);
    write_file(folder / "t.tsv", table_text(data));
    const RunResult normal = folder.run({"--in", "t.tsv", "--out", "n.dat"});
    EXPECT_EQ(normal.status, 0) << normal.err;
    EXPECT_EQ(normal.err, "");
    EXPECT_EQ(read_file(folder / "n.dat"), normal_file(data));
    EXPECT_EQ(folder.run({"--in", "t.tsv", "--out", "n0.dat", "--transpose", "0"}).status, 0);
    EXPECT_EQ(read_file(folder / "n0.dat"), normal_file(data));
    EXPECT_EQ(folder.run({"--OUT", "t.dat", "--Transpose", "1", "--in", "t.tsv"}).status, 0);
    EXPECT_EQ(read_file(folder / "t.dat"), transposed_file(data));
  }
  EXPECT_EQ(folder.names(), (Words{"n.dat", "n0.dat", "t.dat", "t.tsv"}));
}

TEST(ConvertCommand, SaysWhatItWrote) {
  const ConvertFolder folder;
  write_file(folder / "t.csv", "rs1,y,rs2\n0,1,\n1,0,2\n2,0,2\n");
  const RunResult run = folder.run({"--in", "t.csv", "--out", "g", "--class", "y"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "g: 3 samples (1 cases, 2 controls), 2 SNPs, 1 missing genotypes (16.67%), normal layout\n");
  const RunResult info = folder.run({"--info", "g"});
  EXPECT_EQ(info.status, 0);
  EXPECT_EQ(info.out,
            "file: g\n"
            "layout: normal (the file's size fits no other)\n"
            "samples: 3\n"
            "SNPs: 2\n"
            "label width: 4 bytes\n"
            "cases: 1 (33.33%)\n"
            "controls: 2 (66.67%)\n"
            "other classes: 0 (0.00%)\n"
            "missing genotypes: 1 (16.67%)\n"
            "genotype 0: 1 (16.67%)\n"
            "genotype 1: 1 (16.67%)\n"
            "genotype 2: 3 (50.00%)\n"
            "first SNP: rs1\n"
            "last SNP: rs2\n");
}

TEST(ConvertCommand, InfoSaysHowItKnowsTheLayout) {
  const ConvertFolder folder;
  write_file(folder / "square", normal_file(command_data(20, 20)));
  write_file(folder / "long", transposed_file(command_data(50, 20)));
  const std::string assumed = " (assumed: the file's size fits both layouts, --transpose tells)";
  EXPECT_TRUE(has_line(folder.run({"--info", "square"}).out, "layout: normal" + assumed));
  EXPECT_TRUE(
      has_line(folder.run({"--info", "square", "--transpose", "1"}).out, "layout: transposed" + assumed));
  const RunResult sure = folder.run({"--info", "long", "--transpose", "0"});
  EXPECT_TRUE(has_line(sure.out, "layout: transposed (the file's size fits no other)"));
  EXPECT_EQ(sure.err,
            "tavo-convert: warning: long: the file's size fits the transposed layout only, --transpose is "
            "ignored\n");
  EXPECT_EQ(folder.run({"--info", "long", "--transpose", "1"}).err, "");
}

struct Example {
  std::string name;
  std::string class_name;
  int snps;
  int missing;
  std::string last_snp;
};

// The numbers of examples/README.md.
TEST(ConvertCommand, ConvertsTheExamples) {
  const ConvertFolder folder;
  for (const Example& example : {Example{"gametes-2way-20snps", "target", 20, 0, "P2"},
                                 Example{"gametes-2way-1000snps", "target", 1000, 0, "P2"},
                                 Example{"gametes-3way-20snps", "target", 20, 0, "P3"},
                                 Example{"gametes-2way-20snps-missing", "Class", 20, 3107, "M0P1"}}) {
    SCOPED_TRACE(example.name);
    const std::string table = (source_root() / "examples" / (example.name + ".tsv.gz")).string();
    for (const std::string layout : {"0", "1"}) {
      const RunResult run =
          folder.run({"--in", table, "--out", "g", "--class", example.class_name, "--transpose", layout});
      EXPECT_EQ(run.status, 0) << run.err;
      EXPECT_EQ(run.err, "");
      const std::string info = folder.run({"--info", "g"}).out;
      EXPECT_TRUE(has_line(info, std::string("layout: ") + (layout == "0" ? "normal" : "transposed") +
                                     " (the file's size fits no other)"));
      EXPECT_TRUE(has_line(info, "samples: 1600"));
      EXPECT_TRUE(has_line(info, "SNPs: " + std::to_string(example.snps)));
      EXPECT_TRUE(has_line(info, "cases: 800 (50.00%)"));
      EXPECT_TRUE(has_line(info, "controls: 800 (50.00%)"));
      EXPECT_TRUE(has_line(info, "other classes: 0 (0.00%)"));
      EXPECT_TRUE(has_line(
          info, example.missing == 0 ? "missing genotypes: 0 (0.00%)" : "missing genotypes: 3107 (9.71%)"));
      EXPECT_TRUE(has_line(info, "first SNP: N0"));
      EXPECT_TRUE(has_line(info, "last SNP: " + example.last_snp));
    }
  }
}

TEST(ConvertCommand, WarnsAndConvertsOnRepeatedNames) {
  const ConvertFolder folder;
  write_file(folder / "t", "a b a Class\n0 1 2 1\n0 1 2 0\n");
  const RunResult run = folder.run({"--in", "t", "--out", "g"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            "tavo-convert: warning: t: line 1, column 3: the SNP name \"a\" stands in column 1 too\n");
  EXPECT_TRUE(std::filesystem::exists(folder / "g"));
}

TEST(ConvertCommand, ARefusedTableLeavesTheTargetAlone) {
  const ConvertFolder folder;
  write_file(folder / "t", table_text(command_data(30000, 20)) + "0\t9\n");
  write_file(folder / "cut.gz", gzip(table_text(command_data(3000, 20))).substr(0, 9000));
  write_file(folder / "g", "before");
  for (const std::string layout : {"0", "1"}) {
    const RunResult row = folder.run({"--in", "t", "--out", "g", "--transpose", layout});
    EXPECT_EQ(row.status, 1);
    EXPECT_EQ(row.out, "");
    EXPECT_EQ(row.err,
              "tavo-convert: t: line 30002, column 3 (rs2): missing, the line has 2 fields, expected 21\n");
    const RunResult cut = folder.run({"--in", "cut.gz", "--out", "g", "--transpose", layout});
    EXPECT_EQ(cut.status, 1);
    EXPECT_TRUE(cut.err.starts_with("tavo-convert: cut.gz: the gzip stream is truncated after line "))
        << cut.err;
    EXPECT_EQ(read_file(folder / "g"), "before");
  }
  EXPECT_EQ(folder.names(), (Words{"cut.gz", "g", "t"}));
}

TEST(ConvertCommand, RefusesFilesThatCannotBeUsed) {
  const ConvertFolder folder;
  write_file(folder / "t", "a Class\n0 1\n");
  const RunResult absent = folder.run({"--in", "absent", "--out", "g"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.err, "tavo-convert: cannot open absent: No such file or directory\n");
  const RunResult same = folder.run({"--in", "t", "--out", "./t"});
  EXPECT_EQ(same.status, 1);
  EXPECT_EQ(same.err, "tavo-convert: ./t: --out is the same file as --in\n");
  EXPECT_EQ(read_file(folder / "t"), "a Class\n0 1\n");
  const RunResult target = folder.run({"--in", "t", "--out", "no/g"});
  EXPECT_EQ(target.status, 1);
  EXPECT_EQ(target.err, "tavo-convert: cannot create no/g: No such file or directory\n");
  const RunResult info = folder.run({"--info", "t"});
  EXPECT_EQ(info.status, 1);
  EXPECT_EQ(info.out, "");
  EXPECT_EQ(info.err, "tavo-convert: t: 12 bytes, expected a header of 16\n");
  EXPECT_EQ(folder.names(), Words{"t"});
}

TEST(ConvertCommand, RefusesWrongUsage) {
  const ConvertFolder folder;
  write_file(folder / "t", "a Class\n0 1\n");
  const std::vector<std::pair<Words, std::string>> cases = {
      {{}, "--in, --bfile or --vcf and --out or --make-bed are needed, or --info"},
      {{"--in", "t"}, "--in, --bfile or --vcf and --out or --make-bed are needed, or --info"},
      {{"--out", "g"}, "--in, --bfile or --vcf and --out or --make-bed are needed, or --info"},
      {{"--in", "t", "--out"}, "option --out needs a value"},
      {{"--in", "t", "--out", ""}, "option --out needs a value"},
      {{"--in", "t", "--out", "g", "--class", ""}, "option --class needs a value"},
      {{"--in", "t", "--in", "t", "--out", "g"}, "option --in is given twice"},
      {{"--in", "t", "--out", "g", "--transpose", "2"}, "option --transpose: found \"2\", expected 0 or 1"},
      {{"--in", "t", "--out", "g", "--transpose", "yes"},
       "option --transpose: found \"yes\", expected 0 or 1"},
      {{"--in", "t", "--out", "g", "--order", "2"}, "unknown option \"--order\""},
      {{"-in", "t", "--out", "g"}, "unknown option \"-in\""},
      {{"t", "g"}, "unknown option \"t\""},
      {{"--info", "g", "--in", "t"}, "--info goes with --transpose only"},
      {{"--info", "g", "--class", "y"}, "--info goes with --transpose only"},
      {{"--help", "--in", "t"}, "--help must stand alone on the command line"},
      {{"--in", "t", "--version"}, "--version must stand alone on the command line"},
  };
  for (const auto& [words, message] : cases) {
    const RunResult run = folder.run(words);
    EXPECT_EQ(run.status, 2) << message;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "tavo-convert: " + message + " (tavo-convert --help lists the options)\n");
  }
  EXPECT_EQ(folder.names(), Words{"t"});
}

TEST(ConvertCommand, HelpAndVersion) {
  const ConvertFolder folder;
  const RunResult help = folder.run({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.err, "");
  for (const std::string option : {"--in",
                                   "--bfile",
                                   "--vcf",
                                   "--class",
                                   "--in-transpose",
                                   "--split",
                                   "--count",
                                   "--out",
                                   "--make-bed",
                                   "--transpose",
                                   "--pheno",
                                   "--pheno-name",
                                   "--quantitative",
                                   "--covar",
                                   "--covar-name",
                                   "--covar-out",
                                   "--keep PATH, --remove",
                                   "--extract PATH, --exclude",
                                   "--mind",
                                   "--geno",
                                   "--maf",
                                   "--info",
                                   "--help, --version"}) {
    EXPECT_NE(help.out.find("\n  " + option), std::string::npos) << option;
  }
  const RunResult version = folder.run({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_TRUE(version.out.starts_with("tavo-convert ")) << version.out;
}

// The code blocks below a heading of a document, in their order, up to the next heading.
std::vector<std::string> code_blocks(const std::filesystem::path& document, const std::string& heading) {
  std::vector<std::string> blocks;
  bool below = false;
  bool inside = false;
  for (const std::string& line : split_lines(read_file(document))) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (inside && below) {
        blocks.emplace_back();
      }
    } else if (!inside && line.starts_with("#")) {
      below = line == heading;
    } else if (inside && below) {
      blocks.back() += line + "\n";
    }
  }
  return blocks;
}

// The bytes of lines that hold an offset and two digits for each byte.
std::string bytes_of_dump(const std::string& dump) {
  std::string bytes;
  for (const std::string& line : split_lines(dump)) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    while (words >> word) {
      bytes.push_back(static_cast<char>(std::stoi(word, nullptr, 16)));
    }
  }
  return bytes;
}

TEST(ConvertCommand, TheWorkedExampleOfTheDocumentHolds) {
  const ConvertFolder folder;
  const Words blocks = code_blocks(source_root() / "docs/formats.md", "### Worked example");
  ASSERT_EQ(blocks.size(), 3u);
  write_file(folder / "t", blocks[0]);
  EXPECT_EQ(folder.run({"--in", "t", "--out", "n"}).status, 0);
  EXPECT_EQ(folder.run({"--in", "t", "--out", "s", "--transpose", "1"}).status, 0);
  EXPECT_EQ(read_file(folder / "n"), bytes_of_dump(blocks[1]));
  EXPECT_EQ(read_file(folder / "s"), bytes_of_dump(blocks[2]));
}

// The limit is in blocks of 512 bytes.
TEST(ConvertCommand, AFileBeyondTheUsersLimitFails) {
  const ConvertFolder folder;
  write_file(folder / "g", normal_file(command_data(20, 100)));
  const RunResult run = run_program(
      "/bin/sh", {"-c", "ulimit -f 1; exec " + convert_program().string() + " --in g --make-bed p"},
      folder.path());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "tavo-convert: cannot write p.bim: File too large\n");
  EXPECT_EQ(folder.names(), Words{"g"});
}

TEST(ConvertTask, AStopLeavesNothingBehind) {
  const ConvertFolder folder;
  write_file(folder / "t", table_text(command_data(10, 10)));
  write_file(folder / "g.tavo", normal_file(command_data(10, 11)));
  for (const std::string input : {"t", "g.tavo"}) {
    ConvertOptions options;
    options.input = (folder / input).string();
    options.output = (folder / "g").string();
    ConvertReport report;
    StopFlag stop = SIGINT;
    EXPECT_EQ(convert(options, stop, &report).message(), "interrupted by SIGINT; no result was written");
    EXPECT_EQ(folder.names(), (Words{"g.tavo", "t"}));
    stop = 0;
    EXPECT_TRUE(convert(options, stop, &report).ok());
    EXPECT_EQ(folder.names(), (Words{"g", "g.tavo", "t"}));
    std::filesystem::remove(folder / "g");
  }
}

}  // namespace
}  // namespace tavo_test
