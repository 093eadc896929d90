// SPDX-License-Identifier: Apache-2.0
//
// Genotype files that are cut, wrong or hostile, and what a run says about them; outputs that cannot be made.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/cli/cli_run.h"
#include "tests/support/sweep.h"

namespace tavo_test {
namespace {

constexpr int kSamples = 6;
constexpr int kSnps = 17;  // two words of genotypes a sample
constexpr int kLabel = 5;
constexpr size_t kBodyAt = 16 + kSnps * kLabel;
constexpr size_t kRecord = 4 + 2 * 4;

GenotypeData six_samples() {
  return balanced_data(kSamples, kSnps);
}

// Standard output from the first line about the data on.
std::string data_messages(const RunResult& run) {
  const std::string enter = "Enter to MDR methods...\n";
  const size_t at = run.out.find(enter);
  return at == std::string::npos ? "never reached the data: " + run.out : run.out.substr(at + enter.size());
}

RunResult run_file(const std::string& bytes, const Words& more = {}) {
  const CliFolder folder;
  folder.write("bad.dat", bytes);
  return folder.run_mdr(Words{"--in", "bad.dat"} + more);
}

// The run ends with these messages of the reader, status 0 and the closing lines.
void expect_reader_refuses(const RunResult& run, const std::string& messages) {
  EXPECT_EQ(data_messages(run), messages + "Cannot open the text file!!" + kClosingLines);
  EXPECT_EQ(run.status, 0) << run.out << run.err;
}

const std::string kNormalHead = "Label 5 bytes, Row 6, Col 17, Cntblk 2\nAllocated 136 bytes\n";
const std::string kTransposedHead = "Label 5 bytes, Row 6, Col 17, Cntblk 1\nAllocated 68 bytes\n";

TEST(GenotypeFile, AnAbsentFile) {
  const CliFolder folder;
  expect_reader_refuses(folder.run_mdr({"--in", "absent.dat"}), "");
  expect_reader_refuses(folder.run_mdr({"--in", "absent.dat", "--transpose", "1"}), "");
  EXPECT_FALSE(folder.exists("r.csv"));
}

TEST(GenotypeFile, ShorterThanItsHeader) {
  const std::string bytes = normal_file(six_samples());
  for (const size_t length : {size_t{0}, size_t{3}, size_t{4}, size_t{10}, size_t{15}}) {
    expect_reader_refuses(run_file(bytes.substr(0, length)), "");
    expect_reader_refuses(run_file(bytes.substr(0, length), {"--transpose", "1"}), "");
  }
}

TEST(GenotypeFile, AnotherMagic) {
  for (const char* magic : {"OVAT", "tavo", "TAVp"}) {
    std::string bytes = normal_file(six_samples());
    bytes.replace(0, 4, magic);
    expect_reader_refuses(run_file(bytes), "");
    bytes = transposed_file(six_samples());
    bytes.replace(0, 4, magic);
    expect_reader_refuses(run_file(bytes, {"--transpose", "1"}), "");
  }
}

TEST(GenotypeFile, CutInItsNames) {
  const std::string bytes = normal_file(six_samples(), kLabel);
  for (const size_t whole : {size_t{0}, size_t{2}, size_t{16}}) {
    const std::string message = "FileIO::Read SNP count does not match " + std::to_string(whole) + " != 17\n";
    for (const size_t rest : {size_t{0}, size_t{4}}) {
      const std::string cut = bytes.substr(0, 16 + whole * kLabel + rest);
      expect_reader_refuses(run_file(cut), kNormalHead + message);
      expect_reader_refuses(run_file(cut, {"--transpose", "1"}), kTransposedHead + message);
    }
  }
}

TEST(GenotypeFile, CutInAClass) {
  const std::string bytes = normal_file(six_samples(), kLabel);
  for (const size_t sample : {size_t{0}, size_t{3}, size_t{5}}) {
    const std::string message =
        "FileIO::Cannot read class of " + std::to_string(sample) + "th sample, ret is 0\n";
    for (const size_t rest : {size_t{0}, size_t{3}}) {
      expect_reader_refuses(run_file(bytes.substr(0, kBodyAt + sample * kRecord + rest)),
                            kNormalHead + message);
    }
  }
}

TEST(GenotypeFile, CutInGenotypes) {
  const std::string bytes = normal_file(six_samples(), kLabel);
  for (const size_t sample : {size_t{0}, size_t{5}}) {
    for (const size_t rest : {size_t{4}, size_t{7}, size_t{8}, size_t{11}}) {
      const std::string message = "FileIO::Size is not match at " + std::to_string(sample) + "th sample, " +
                                  std::to_string((rest - 4) / 4) + " != 2\n";
      expect_reader_refuses(run_file(bytes.substr(0, kBodyAt + sample * kRecord + rest)),
                            kNormalHead + message);
    }
  }
}

TEST(GenotypeFile, TransposedAndCut) {
  const std::string bytes = transposed_file(six_samples(), kLabel);
  ASSERT_EQ(bytes.size(), kBodyAt + 4 * kSamples + 4 * kSnps);
  // In the class block, behind it, inside a word, and one byte before the end.
  for (const size_t length :
       {kBodyAt, kBodyAt + 6, kBodyAt + 23, kBodyAt + 24, kBodyAt + 30, bytes.size() - 1}) {
    expect_reader_refuses(run_file(bytes.substr(0, length), {"--transpose", "1"}),
                          kTransposedHead + " *** TRANSPOSED FILES *** \n");
  }
}

TEST(GenotypeFile, WholeFilesAreRead) {
  for (const std::string& tail : {std::string(), std::string("more bytes")}) {
    const RunResult run = run_file(normal_file(six_samples(), kLabel) + tail, {"--cv", "2"});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(begins_with(data_messages(run), kNormalHead + "CUDA::SENDBASEDATA ENTER\n"))
        << run.out << run.err;
  }
}

TEST(GenotypeFile, ALineFeedBehindTheLastNameIsStripped) {
  GenotypeData data = balanced_data(20, 3);
  data.names = {"a\n", "b", "last\n"};
  const CliFolder folder(data);
  const RunResult run = folder.run_mdr({"--cv", "2"});
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(begins_with(
      data_messages(run),
      "Label 6 bytes, Row 20, Col 3, Cntblk 1\nAllocated 12 bytes\nStripped\nCUDA::SENDBASEDATA ENTER\n"))
      << run.out;
  const std::string report = read_file(folder.path("r.csv"));
  EXPECT_TRUE(contains(report, ",( a\n b ),"));
  EXPECT_TRUE(contains(report, ",( b last ),"));
}

TEST(GenotypeFile, OnlyALineFeedBehindTheLastNameIsStripped) {
  GenotypeData data = balanced_data(20, 3);
  data.names = {"a\n", "b\n", "la\nst"};
  const CliFolder folder(data);
  EXPECT_FALSE(contains(folder.run_mdr({"--cv", "2"}).out, "Stripped"));
  EXPECT_TRUE(contains(read_file(folder.path("r.csv")), ",( b\n la\nst ),"));
}

TEST(GenotypeFile, NameSlotsOf255BytesAreTaken) {
  GenotypeData data = balanced_data(20, 3);
  data.names[1] = std::string(254, 'n');
  const CliFolder folder(data);
  EXPECT_EQ(folder.run_mdr({"--cv", "2"}).status, 0);
  EXPECT_TRUE(contains(read_file(folder.path("r.csv")), ",( rs0 " + data.names[1] + " ),"));
}

TEST(GenotypeFile, SamplesWithoutCovariatesAreLeftOut) {
  const CliFolder folder;
  std::string table = "family\tperson\tage\n";
  for (int s = 0; s < 40; ++s) {
    table += "f\tp\t" + (s == 2 || s == 39 ? std::string("NA") : std::to_string(20 + s * 7 % 31)) + "\n";
  }
  folder.write("cov.txt", table);
  const RunResult run =
      folder.run({"--in", "g.dat", "--out", "r.csv", "--regression", "logistic", "--covariate", "cov.txt",
                  "--thread", "8", "--block", "2", "--gpu", "2", "--device", "cpu"});
  EXPECT_TRUE(
      begins_with(data_messages(run),
                  "Label 4 bytes, Row 40, Col 6, Cntblk 1\nAllocated 24 bytes\n"
                  "2th entry has ignored by covarite missing\n39th entry has ignored by covarite missing\n"
                  "Arranged individual count is 38\n"))
      << run.out << run.err;
}

struct Header {
  const char* what;
  uint32_t rows;
  uint32_t columns;
  uint32_t label;
};

std::string header_bytes(const Header& header) {
  return "TAVO" + le32(header.rows) + le32(header.columns) + le32(header.label);
}

// Refused before memory is taken for what the header claims, within seconds, and with a reason.
void expect_hostile_refused(const char* what, const std::string& bytes) {
  for (const char* transpose : {"0", "1"}) {
    const CliFolder folder;
    folder.write("bad.dat", bytes);
    const auto begin = std::chrono::steady_clock::now();
    Words words{"-c", "exec \"$0\" \"$@\"", tavo_program().string()};
    if (!kSanitized) {
      words[1] = "ulimit -v 4000000; " + words[1];
    }
    const RunResult run =
        run_program("/bin/sh", words + mdr_words() + Words{"--in", "bad.dat", "--transpose", transpose},
                    folder.path("."));
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(run.status, 0) << what << run.out << run.err;
    EXPECT_TRUE(run.out.ends_with("Cannot open the text file!!" + kClosingLines)) << what << run.out;
    EXPECT_EQ(notices_with(run, {"bad.dat"}), 1) << what << " should have a reason: " << run.err;
    EXPECT_LT(seconds.count(), 5.0) << what;
    EXPECT_FALSE(folder.exists("r.csv")) << what;
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, 512 * 1024) << what;
  }
}

TEST(HostileHeader, NumbersThatAreNotPositive) {
  const std::string body(4096, '\0');
  for (const Header& header :
       {Header{"no sample", 0, 3, 8}, Header{"negative samples", 0xffffffffu, 3, 8},
        Header{"lowest samples", 0x80000000u, 3, 8}, Header{"no SNP", 6, 0, 8},
        Header{"negative SNPs", 6, 0xfffffff0u, 8}, Header{"lowest SNPs", 6, 0x80000000u, 8},
        Header{"label of 0", 6, 3, 0}, Header{"negative label", 6, 3, 0xffffffffu}}) {
    expect_hostile_refused(header.what, header_bytes(header) + body);
  }
}

TEST(HostileHeader, LabelsWiderThan255) {
  const std::string body(4096, '\0');
  expect_hostile_refused("label of 256", header_bytes({"", 6, 3, 256}) + body);
  expect_hostile_refused("label of 1024", header_bytes({"", 6, 3, 1024}) + body);
  expect_hostile_refused("highest label", header_bytes({"", 6, 3, 0x7fffffffu}) + body);
}

TEST(HostileHeader, LabelsWithoutTheirEnd) {
  const GenotypeData data = balanced_data(20, 3);
  for (const size_t snp : {size_t{0}, size_t{2}}) {
    std::string bytes = normal_file(data, 8);
    bytes.replace(16 + 8 * snp, 8, "xxxxxxxx");
    // Long enough for both layouts.
    expect_hostile_refused("name without NUL", bytes + std::string(4096, '\0'));
  }
}

TEST(HostileHeader, SizesBeyondTheFileOrTheNumbers) {
  const std::string body(4096, '\0');
  for (const Header& header :
       {Header{"many samples", 0x7fffffffu, 16, 8}, Header{"many SNPs", 6, 0x7fffffffu, 8},
        Header{"many of both", 0x7fffffffu, 0x7fffffffu, 255},
        Header{"words past 32 bits", 0x40000000u, 64, 1}, Header{"names past 32 bits", 1, 0x01010102u, 255},
        Header{"bytes that wrap to 0", 0x10000u, 0x10000u, 1},
        Header{"block count that wraps", 0x7ffffff1u, 0x7ffffff1u, 1}}) {
    expect_hostile_refused(header.what, header_bytes(header) + body);
  }
}

TEST(ResultFile, CannotBeMadeInAFolderThatDoesNotExist) {
  const CliFolder folder;
  const RunResult run = folder.run_mdr({"--out", "absent/r.csv"});
  EXPECT_EQ(data_messages(run),
            "Label 4 bytes, Row 40, Col 6, Cntblk 1\nAllocated 24 bytes\nCannot save the text file!!" +
                kClosingLines);
  EXPECT_EQ(run.status, 0);
  EXPECT_FALSE(folder.exists("absent"));
  EXPECT_TRUE(folder.names_with("tmp_cv_").empty());
}

TEST(ResultFile, IsNotMadeWhenTheDataCannotBeRead) {
  const CliFolder folder;
  folder.write("r.csv", "an older result\n");
  EXPECT_EQ(folder.run_mdr({"--in", "absent.dat"}).status, 0);
  EXPECT_EQ(read_file(folder.path("r.csv")), "an older result\n");
}

TEST(TransposedLayout, RunsWithZeroMeasuresAndSaysSo) {
  const CliFolder folder;
  folder.write("t.dat", transposed_file(balanced_data(40, 6)));
  const RunResult run = folder.run_mdr({"--in", "t.dat", "--transpose", "1", "--cv", "3", "--top", "2"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_TRUE(begins_with(run.out, "Transposed mode activated\n"));
  EXPECT_TRUE(
      begins_with(data_messages(run),
                  "Label 4 bytes, Row 40, Col 6, Cntblk 3\nAllocated 72 bytes\n *** TRANSPOSED FILES *** \n"
                  "CUDA::SENDBASEDATA ENTER\n"))
      << run.out;
  EXPECT_EQ(notices_with(run, {"tavo-convert"}), 1) << run.err;
  int rows = 0;
  for (const std::string& line : folder.lines("r.csv")) {
    const std::vector<std::string> fields = split(line, ',');
    if (fields.size() < 21 || begins_with(line, "Rank") || begins_with(line, "CV")) {
      continue;
    }
    ++rows;
    // A row of the best sets has the consistency, 0 / 0, before its measures.
    for (size_t i = fields.size() == 21 ? 3 : 2; i < fields.size(); ++i) {
      EXPECT_EQ(fields[i], "0.000000") << line;
    }
  }
  EXPECT_GE(rows, 3 * 1);
}

TEST(TransposedLayout, RefusesScores) {
  const CliFolder folder;
  folder.write("t.dat", transposed_file(balanced_data(40, 6)));
  std::string scores = "score\n";
  for (int s = 0; s < 40; ++s) {
    scores += s % 2 == 0 ? "1\n" : "-1\n";
  }
  folder.write("score.txt", scores);
  const RunResult run = folder.run_mdr({"--in", "t.dat", "--transpose", "1", "--score", "score.txt"});
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  EXPECT_TRUE(contains(run.out, "Can't apply score when you running data at transpose mode\n")) << run.out;
  EXPECT_FALSE(contains(run.out, "## tavo complete"));
}

}  // namespace
}  // namespace tavo_test
