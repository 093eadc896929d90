// SPDX-License-Identifier: Apache-2.0
//
// Reading text tables: every form that is accepted gives the same rows, every mistake is refused with its
// place.
#include "tools/text_table.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/convert/table_text.h"
#include "tests/support/run_program.h"

namespace tavo_test {
namespace {

// What a table gave: its rows, or the message that ended it (without the path).
struct ReadTable {
  GenotypeData data;
  std::vector<std::string> warnings;
  std::string failure;
};

ReadTable read_table(const std::string& bytes, const std::string& class_name = "Class") {
  const TempDir dir;
  const std::string path = (dir / "t").string();
  write_file(path, bytes);
  ReadTable result;
  TextTable table;
  Status status = table.open(path, class_name);
  result.warnings = table.warnings();
  bool more = status.ok();
  TableRow row;
  while (more) {
    status = table.next(&row, &more);
    if (status.ok() && more) {
      EXPECT_EQ(row.genotypes.size(), table.snp_names().size());
      result.data.classes.push_back(row.class_value);
      result.data.genotypes.insert(result.data.genotypes.end(), row.genotypes.begin(), row.genotypes.end());
      ++result.data.n_samples;
    }
  }
  result.data.names = table.snp_names();
  result.data.n_snps = static_cast<int>(table.snp_names().size());
  result.failure = status.message();
  if (const size_t at = result.failure.find(path); at != std::string::npos) {
    result.failure.replace(at, path.size(), "t");
  }
  return result;
}

std::string failure_of(const std::string& bytes, const std::string& class_name = "Class") {
  return read_table(bytes, class_name).failure;
}

void expect_same(const ReadTable& table, const GenotypeData& expected) {
  EXPECT_EQ(table.failure, "");
  EXPECT_EQ(table.data.n_samples, expected.n_samples);
  EXPECT_EQ(table.data.names, expected.names);
  EXPECT_EQ(table.data.classes, expected.classes);
  EXPECT_EQ(table.data.genotypes, expected.genotypes);
}

GenotypeData table_data(int n_samples = 23, int n_snps = 17) {
  std::mt19937 random(11);
  return random_data(random, n_samples, n_snps, 0.2);
}

TEST(TextTable, ReadsEverySeparatorAndMissingText) {
  const GenotypeData data = table_data();
  expect_same(read_table(table_text(data, {.missing = {"NA", "-9", "-1", ""}})), data);
  expect_same(read_table(table_text(data, {.separator = ",", .missing = {"", "NA", "-1", "-9"}})), data);
  expect_same(read_table(table_text(data, {.separator = " ", .missing = {"NA", "-9", "-1"}})), data);
  expect_same(read_table(table_text(data, {.separator = "    "})), data);
}

TEST(TextTable, BlanksMayStandAroundTheFieldsOfABlankSeparatedTable) {
  const ReadTable table = read_table("  a b   Class \n 0  1 1\n2\tNA \t0  \n");
  EXPECT_EQ(table.failure, "");
  EXPECT_EQ(table.data.names, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(table.data.genotypes, (std::vector<uint8_t>{0, 1, 2, 3}));
  EXPECT_EQ(table.data.classes, (std::vector<uint8_t>{1, 0}));
}

TEST(TextTable, TheHeaderAloneDecidesTheSeparator) {
  // A tab before a comma, a comma before blanks.
  EXPECT_EQ(read_table("a,1\tb c\tClass\n0\t1\t1\n").data.names, (std::vector<std::string>{"a,1", "b c"}));
  EXPECT_EQ(read_table("a x,b,Class\n0,1,1\n").data.names, (std::vector<std::string>{"a x", "b"}));
  EXPECT_EQ(failure_of("a,b,Class\n0\t1\t1\n"),
            "t: line 2, column 2 (b): missing, the line has 1 field, expected 3");
}

TEST(TextTable, LineEndsAndTheLastLine) {
  const GenotypeData data = table_data();
  expect_same(read_table(table_text(data, {.line_end = "\r\n"})), data);
  expect_same(read_table(table_text(data, {.last_line_end = false})), data);
  expect_same(read_table(table_text(data, {.line_end = "\r\n", .last_line_end = false})), data);
  expect_same(read_table(table_text(data) + "\n\r\n\n"), data);
  expect_same(read_table("\xef\xbb\xbf" + table_text(data)), data);
}

TEST(TextTable, TheClassColumnStandsAnywhere) {
  const GenotypeData data = table_data();
  for (const int column : {0, 1, 16, 17}) {
    expect_same(read_table(table_text(data, {.class_column = column})), data);
  }
  expect_same(read_table(table_text(data, {.class_name = "target", .class_column = 3}), "target"), data);
  // Compared exactly: this "class" is a SNP.
  EXPECT_EQ(read_table("class\tClass\n2\t1\n").data.names, std::vector<std::string>{"class"});
}

TEST(TextTable, ReadsGzipWhateverItsNameAndAlsoInSeveralStreams) {
  const GenotypeData data = table_data(500, 33);
  const std::string text = table_text(data);
  expect_same(read_table(gzip(text)), data);
  expect_same(read_table(gzip(text.substr(0, 100)) + gzip("") + gzip(text.substr(100))), data);
}

// Lines of every length around the buffers' borders.
TEST(TextTable, LongTablesCrossTheBuffers) {
  const GenotypeData data = table_data(40, 9000);
  expect_same(read_table(table_text(data)), data);
  expect_same(read_table(gzip(table_text(data, {.line_end = "\r\n"}))), data);
}

TEST(TextTable, RefusesADamagedGzipStream) {
  const std::string text = table_text(table_data(400, 33));
  const std::string packed = gzip(text);
  for (const size_t kept : {size_t{2}, size_t{10}, packed.size() / 2, packed.size() - 8, packed.size() - 1}) {
    EXPECT_TRUE(failure_of(packed.substr(0, kept)).starts_with("t: the gzip stream is truncated")) << kept;
  }
  EXPECT_TRUE(failure_of(packed.substr(0, packed.size() / 2)).find(" after line ") != std::string::npos);
  std::string corrupt = packed;
  corrupt[packed.size() - 6] = static_cast<char>(corrupt[packed.size() - 6] ^ 1);  // its check sum
  EXPECT_EQ(failure_of(corrupt), "t: the gzip stream is corrupt (incorrect data check)");
  corrupt = packed;
  corrupt[2] = 7;  // an unknown method
  EXPECT_EQ(failure_of(corrupt), "t: the gzip stream is corrupt (unknown compression method)");
  EXPECT_EQ(failure_of(packed + "x"),
            "t: bytes that are no gzip stream follow the gzip stream after line 401");
  EXPECT_EQ(failure_of(packed + "xyz"),
            "t: bytes that are no gzip stream follow the gzip stream after line 401");
  EXPECT_TRUE(
      failure_of(packed + packed.substr(0, 30)).starts_with("t: the gzip stream is truncated after line"));
}

TEST(TextTable, RefusesWhatCannotBeOpenedOrRead) {
  TextTable missing;
  EXPECT_EQ(missing.open("no/such/file", "Class").message(),
            "cannot open no/such/file: No such file or directory");
  const TempDir dir;
  TextTable folder;
  EXPECT_EQ(folder.open(dir.path().string(), "Class").message(),
            "cannot read " + dir.path().string() + ": Is a directory");
}

TEST(TextTable, RefusesAnEmptyTable) {
  const std::string expected =
      "t: line 1: empty, expected a header line of SNP names and the class column \"Class\"";
  EXPECT_EQ(failure_of(""), expected);
  EXPECT_EQ(failure_of("\n"), expected);
  EXPECT_EQ(failure_of(" \n0 1\n"), expected);
  EXPECT_EQ(failure_of(gzip("")), expected);
  EXPECT_EQ(failure_of("\x1f"), "t: line 1, column 1: the SNP name \"\\x1f\" holds a control character");
  const std::string no_sample = "t: no sample, expected at least one line after the header";
  EXPECT_EQ(failure_of("a\tClass"), no_sample);
  EXPECT_EQ(failure_of("a\tClass\n"), no_sample);
  EXPECT_EQ(failure_of("a\tClass\n\n\r\n"), no_sample);
}

TEST(TextTable, RefusesAHeaderWithoutOneClassColumnAndSnps) {
  EXPECT_EQ(
      failure_of("a\tb\ttarget\n0\t1\t1\n"),
      "t: line 1: no class column \"Class\" among 3 columns, the last is \"target\"; --class names the class "
      "column");
  EXPECT_EQ(failure_of("a\tClass\tb\tClass\n0\t1\t1\t1\n"),
            "t: line 1, column 4: a second class column \"Class\", expected one; the first is column 2");
  EXPECT_EQ(failure_of("Class\n1\n"),
            "t: line 1: only the class column \"Class\", expected at least one SNP column");
}

TEST(TextTable, RefusesUnfitNames) {
  const std::string longest(254, 'n');
  EXPECT_EQ(read_table(longest + "\tClass\n0\t1\n").data.names, std::vector<std::string>{longest});
  EXPECT_EQ(failure_of("a\t" + longest + "n\tClass\n0\t0\t1\n"),
            "t: line 1, column 2: the SNP name \"" + std::string(40, 'n') +
                "...\" has 255 bytes, expected at most 254");
  EXPECT_EQ(failure_of("a,,Class\n0,0,1\n"), "t: line 1, column 2: an empty SNP name");
  EXPECT_EQ(failure_of(std::string("a\tb\0c\tClass\n0\t0\t1\n", 18)),
            "t: line 1, column 2: the SNP name \"b\\x00c\" holds a control character");
  // Lines that end with CR alone are one line.
  EXPECT_EQ(failure_of("a\tb\rClass\r0\t0\t1\r", "b"),
            "t: line 1, column 2: the SNP name \"b\\x0dClass\\x0d0\" holds a control character");
}

TEST(TextTable, WarnsOfRepeatedNames) {
  EXPECT_TRUE(read_table("a\tb\tClass\n0\t0\t1\n").warnings.empty());
  const ReadTable once = read_table("a\tb\ta\tClass\n0\t1\t2\t1\n");
  ASSERT_EQ(once.warnings.size(), 1u);
  EXPECT_TRUE(once.warnings[0].ends_with("t: line 1, column 3: the SNP name \"a\" stands in column 1 too"));
  EXPECT_EQ(once.data.names, (std::vector<std::string>{"a", "b", "a"}));
  EXPECT_EQ(once.failure, "");
  const ReadTable thrice = read_table("a\tb\ta\tb\tb\tClass\n0\t1\t2\t0\t0\t1\n");
  ASSERT_EQ(thrice.warnings.size(), 1u);
  EXPECT_TRUE(thrice.warnings[0].ends_with("\"a\" stands in column 1 too (3 names are repeated)"));
}

TEST(TextTable, RefusesRowsOfAnotherLength) {
  const std::string start = "a\tb\tClass\n0\t1\t1\n";
  EXPECT_EQ(failure_of(start + "0\t1\n"),
            "t: line 3, column 3 (Class): missing, the line has 2 fields, expected 3");
  EXPECT_EQ(failure_of(start + "0\t1\t1\t2\n"), "t: line 3, column 4: the line has 4 fields, expected 3");
  EXPECT_EQ(failure_of(start + "0\t1\t1\t\n"), "t: line 3, column 4: the line has 4 fields, expected 3");
  // The field that moved into the class column is not what is wrong.
  EXPECT_EQ(failure_of(start + "0\t1\t2\t1\n"), "t: line 3, column 4: the line has 4 fields, expected 3");
  EXPECT_EQ(failure_of("a b Class\n0 1 1\n   \n"),
            "t: line 3, column 1 (a): missing, the line has 0 fields, expected 3");
  EXPECT_EQ(failure_of(start + "\n\n0\t1\t1\n"), "t: line 3: empty, expected 3 fields");
}

TEST(TextTable, RefusesOtherValuesWithTheirPlace) {
  const std::string start = "a\tClass\tb\n0\t1\t1\n";
  const std::string genotype = ", expected 0, 1, 2 or missing (NA, -9, -1 or empty)";
  EXPECT_EQ(failure_of(start + "3\t1\t0\n"), "t: line 3, column 1 (a): found \"3\"" + genotype);
  for (const std::string text : {"-2", "na", "00", " 1", "0.0", "1e0", "A", "?"}) {
    EXPECT_EQ(failure_of(start + "0\t1\t" + text + "\n"),
              "t: line 3, column 3 (b): found \"" + text + "\"" + genotype);
  }
  for (const std::string text : {"2", "NA", "", "-1", "-9", "01", "case"}) {
    EXPECT_EQ(failure_of(start + "0\t" + text + "\t1\n"),
              "t: line 3, column 2 (Class): found \"" + text + "\", expected 0 or 1");
  }
  EXPECT_EQ(failure_of(start + std::string("0\t1\t\0\n", 6)),
            "t: line 3, column 3 (b): found \"\\x00\"" + genotype);
  EXPECT_EQ(failure_of(start + "0\t1\t1\r\r\n"), "t: line 3, column 3 (b): found \"1\\x0d\"" + genotype);
  EXPECT_EQ(failure_of("a b Class\n0 x 1\n"),
            "t: line 2, column 2 (b): found \"x\", expected 0, 1, 2 or missing (NA, -9, -1)");
}

TEST(TextTable, RefusesLinesWithoutEnd) {
  const std::string start = "a b Class\n0 1 1\n";
  EXPECT_EQ(failure_of(start + "0 1 1" + std::string(5000000, ' ')),
            "t: line 3: longer than 1120 bytes, expected 3 short fields");
  EXPECT_TRUE(
      failure_of(start + "0 " + std::string(5000000, '1'))
          .starts_with("t: line 3, column 2 (b): found \"" + std::string(40, '1') + "...\", expected 0, 1"));
  // The limit itself, with either line end.
  const std::string padded = "0 1 1" + std::string(1115, ' ');
  EXPECT_EQ(failure_of(start + padded + "\n"), "");
  EXPECT_EQ(failure_of(start + padded + "\r\n"), "");
  EXPECT_EQ(failure_of(start + padded + " \n"), "t: line 3: longer than 1120 bytes, expected 3 short fields");
  EXPECT_EQ(failure_of(start + padded + " \r\n"),
            "t: line 3: longer than 1120 bytes, expected 3 short fields");
}

// A few hundred kilobytes that unpack to a header without end.
TEST(TextTable, RefusesAHeaderWithoutEnd) {
  EXPECT_EQ(failure_of(gzip(std::string((size_t{1} << 28) + 2, 'x'))),
            "t: line 1: longer than 268435456 bytes, expected a header line of SNP names");
}

// Random damage to a good table: read to an end or refused, never a crash, never a row of another length.
TEST(TextTable, RandomDamageIsReadOrRefused) {
  std::mt19937 random(5);
  const std::string plain = table_text(table_data(20, 20), {.line_end = "\r\n"});
  const std::string packed = gzip(plain);
  int refused = 0;
  for (int i = 0; i < 600; ++i) {
    std::string bytes = i % 2 == 0 ? plain : packed;
    for (int k = 0; k < 3; ++k) {
      bytes[random() % bytes.size()] = static_cast<char>(random());
    }
    const ReadTable table = read_table(bytes);
    refused += table.failure.empty() ? 0 : 1;
    EXPECT_TRUE(table.failure.empty() || table.failure.starts_with("t: ")) << table.failure;
  }
  EXPECT_GT(refused, 300);
}

}  // namespace
}  // namespace tavo_test
