// SPDX-License-Identifier: Apache-2.0
//
// Every beginning of a valid file of each kind: what is cut short is refused with a message, or is itself a
// valid file. Nothing crashes or hangs, and no output appears that looks whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <iostream>

#include "report/report.h"
#include "src/FileIO.h"
#include "src/score_file.h"
#include "tests/faults/fault_folder.h"
#include "tests/support/fake_backend.h"
#include "tools/convert.h"

namespace tavo_test {
namespace {

class Prefixes : public testing::Test {
 protected:
  // Calls check(length) for every length of the file's beginning, which stands under the file's name, from
  // nothing to all but one byte; the file is then whole again.
  template <typename Check>
  void for_each_prefix(const std::string& name, Check check) {
    const std::string whole = folder_.read(name);
    for (size_t length = 0; length < whole.size(); ++length) {
      folder_.write(name, whole.substr(0, length));
      SCOPED_TRACE(name + ", " + std::to_string(length) + " of " + std::to_string(whole.size()) + " bytes");
      check(whole.substr(0, length));
      ++beginnings_;
      if (HasFatalFailure()) {
        break;
      }
    }
    folder_.write(name, whole);
  }

  // tavo-convert in this process, into c.tavo.
  Status converted(const Words& words, ConvertReport* report) const {
    folder_.remove("c.tavo");
    Words placed = words;
    for (size_t i = 1; i < placed.size(); i += 2) {
      placed[i] = placed[i - 1] == "--class" ? placed[i] : folder_.path(placed[i]).string();
    }
    ConvertOptions options;
    const Status usage =
        parse_convert_options(placed + Words{"--out", folder_.path("c.tavo").string()}, &options);
    EXPECT_TRUE(usage.ok()) << usage.message();
    const volatile std::sig_atomic_t never = 0;
    return convert(options, never, report);
  }

  // What tavo-convert makes of every prefix: `whole_enough` says of a prefix whether it holds all that the
  // file did.
  template <typename WholeEnough>
  void expect_refused_unless(const Words& words, const std::string& name, WholeEnough whole_enough) {
    ConvertReport report;
    ASSERT_TRUE(converted(words, &report).ok());
    const std::string full = folder_.read("c.tavo");
    for_each_prefix(name, [&](const std::string& prefix) {
      ConvertReport of_prefix;
      const Status status = converted(words, &of_prefix);
      if (whole_enough(prefix)) {
        ASSERT_TRUE(status.ok()) << status.message();
        ASSERT_EQ(folder_.read("c.tavo"), full);
      } else {
        ASSERT_FALSE(status.ok());
        // The file, or the one of its set that it no longer goes with.
        const std::filesystem::path stem = folder_.path(name).replace_extension("");
        ASSERT_NE(status.message().find(stem.string()), std::string::npos) << status.message();
        ASSERT_FALSE(folder_.exists("c.tavo"));
      }
    });
  }

  void TearDown() override { std::cout << beginnings_ << " beginnings\n"; }

  FaultFolder folder_;
  int beginnings_ = 0;
};

bool never(const std::string&) {
  return false;
}

// ---- the genotype file

TEST_F(Prefixes, OfGenotypeFilesAreRefusedByTheReader) {
  for (const int transposed : {0, 1}) {
    const std::string name = transposed == 0 ? "normal.tavo" : "transposed.tavo";
    QuietStdout quiet;
    MdrReader reader;
    ASSERT_TRUE(reader.Open(folder_.path(name).c_str(), false, transposed));
    for_each_prefix(name, [&](const std::string&) {
      MdrReader of_prefix;
      ASSERT_FALSE(of_prefix.Open(folder_.path(name).c_str(), false, transposed));
      ASSERT_EQ(of_prefix.GetLineCount(), 0);
    });
  }
}

// The run itself ends with its own words and leaves no result. (Status 0 is what a file that cannot be used
// has.)
TEST_F(Prefixes, OfAGenotypeFileEndARun) {
  size_t count = 0;
  for_each_prefix("normal.tavo", [&](const std::string&) {
    if (count++ % 7 != 0) {
      return;
    }
    const RunResult result = folder_.tavo({"--in", "normal.tavo", "--measure", "ba"});
    ASSERT_EQ(unclean(result), "");
    ASSERT_EQ(result.status, 0);
    ASSERT_NE(result.out.find("Cannot open the text file!!"), std::string::npos) << result.out;
    ASSERT_FALSE(folder_.exists("r.csv"));
  });
}

TEST_F(Prefixes, OfGenotypeFilesAreRefusedByTheConverter) {
  expect_refused_unless({"--in", "normal.tavo"}, "normal.tavo", never);
  expect_refused_unless({"--in", "transposed.tavo"}, "transposed.tavo", never);
}

// ---- text beside the genotypes

TEST_F(Prefixes, OfACovariateFileAreRefusedUnlessEveryLineIsThere) {
  const Words words = {"--in", "normal.tavo", "--regression", "logistic", "--covariate", "covariates.txt"};
  const std::string whole = folder_.read("covariates.txt");
  const auto whole_lines = std::count(whole.begin(), whole.end(), '\n');
  ASSERT_EQ(folder_.tavo(words).status, 0);
  for_each_prefix("covariates.txt", [&](const std::string& prefix) {
    folder_.remove("r.csv");
    const RunResult result = folder_.tavo(words);
    ASSERT_EQ(unclean(result), "");
    // A last line without its line end is a line; so is one whose last number has lost digits.
    const auto lines = std::count(prefix.begin(), prefix.end(), '\n');
    if (result.status == 0) {
      ASSERT_GE(lines, whole_lines - 1);
      ASSERT_TRUE(looks_whole(folder_.read("r.csv")));
    } else {
      ASSERT_EQ(result.status, 1) << result.out << result.err;
      ASSERT_TRUE(lines < whole_lines - 1 || prefix.find("\nf\t6\t58\t") == std::string::npos);
      ASSERT_FALSE(folder_.exists("r.csv"));
    }
  });
}

TEST_F(Prefixes, OfAScoreFileAreRefusedUnlessEveryLineIsThere) {
  const std::string path = folder_.path("scores.txt").string();
  Status whole;
  ASSERT_TRUE(read_scores(path, 6, &whole).has_value());
  ASSERT_TRUE(whole.ok());
  for_each_prefix("scores.txt", [&](const std::string& prefix) {
    Status status;
    const std::optional<std::vector<float>> scores = read_scores(path, 6, &status);
    ASSERT_TRUE(scores.has_value());
    const size_t last = prefix.find("\n0.75\n");
    const bool all = last != std::string::npos && prefix.size() > last + 6;
    ASSERT_EQ(status.ok(), all) << status.message();
    ASSERT_TRUE(status.ok() || status.message().find(path) != std::string::npos) << status.message();
  });
}

// ---- what tavo-convert reads

// A table may lack the line end of its last row; and one of fewer rows is a table, too.
TEST_F(Prefixes, OfATextTableAreTablesOfFewerRowsOrRefused) {
  for_each_prefix("table.txt", [&](const std::string& prefix) {
    ConvertReport report;
    const Status status = converted({"--in", "table.txt"}, &report);
    const Words lines = split_lines(prefix);
    const bool complete = lines.size() >= 2 &&
                          std::count(lines.back().begin(), lines.back().end(), '\t') == 5 &&
                          lines.back().back() != '\t';
    ASSERT_EQ(status.ok(), complete) << status.message();
    ASSERT_EQ(folder_.exists("c.tavo"), complete);
    if (complete) {
      GenotypeData data = small_data();
      data.n_samples = static_cast<int>(lines.size()) - 1;
      ASSERT_EQ(folder_.read("c.tavo"), normal_file(data));
    } else {
      ASSERT_NE(status.message().find("table.txt"), std::string::npos) << status.message();
    }
  });
}

TEST_F(Prefixes, OfACompressedTableAreRefused) {
  expect_refused_unless({"--in", "table.txt.gz"}, "table.txt.gz", never);
}

TEST_F(Prefixes, OfPlinkFilesAreRefusedButForTheLastLineEnd) {
  const auto all_but_line_end = [](const std::string& whole) {
    return [whole](const std::string& prefix) {
      return prefix.size() + 1 == whole.size() && whole.back() == '\n';
    };
  };
  expect_refused_unless({"--bfile", "plink"}, "plink.bed", never);
  expect_refused_unless({"--bfile", "plink"}, "plink.bim", all_but_line_end(folder_.read("plink.bim")));
}

// With five samples in place of six the .bed file has as many bytes.
TEST_F(Prefixes, OfAFamFileAreRefusedUnlessTheBedFileSuits) {
  for_each_prefix("plink.fam", [&](const std::string& prefix) {
    ConvertReport report;
    const Status status = converted({"--bfile", "plink"}, &report);
    const Words lines = split_lines(prefix);
    const bool five = lines.size() >= 5 && std::count(lines[4].begin(), lines[4].end(), '\t') == 5 &&
                      lines[4].back() != '\t';
    const bool six = lines.size() == 6 && std::count(lines[5].begin(), lines[5].end(), '\t') == 5 &&
                     lines[5].back() != '\t';
    ASSERT_EQ(status.ok(), lines.size() == 6 ? six : five) << status.message();
    ASSERT_EQ(folder_.exists("c.tavo"), status.ok());
    ASSERT_TRUE(status.ok() || status.message().find("plink.") != std::string::npos) << status.message();
  });
}

// A VCF file of fewer records is a VCF file; one whose last line has no line end may be cut, and a warning
// says so.
TEST_F(Prefixes, OfAVcfFileAreRefusedWarnedOfOrFilesOfFewerRecords) {
  const Words words = {"--vcf", "calls.vcf", "--pheno", "phenotypes.txt"};
  ConvertReport whole;
  ASSERT_TRUE(converted(words, &whole).ok());
  int accepted = 0;
  for_each_prefix("calls.vcf", [&](const std::string& prefix) {
    ConvertReport report;
    const Status status = converted(words, &report);
    ASSERT_EQ(folder_.exists("c.tavo"), status.ok());
    if (status.ok()) {
      ++accepted;
      ASSERT_TRUE(prefix.back() == '\n' ||
                  std::any_of(report.warnings.begin(), report.warnings.end(), [](const std::string& line) {
                    return line.find("is the file whole?") != std::string::npos;
                  }));
    } else {
      ASSERT_NE(status.message().find("calls.vcf"), std::string::npos) << status.message();
    }
  });
  EXPECT_GE(accepted, 4);
}

// ---- what tavo-report reads

TEST_F(Prefixes, OfResultFilesAndTablesAreRefusedOrReported) {
  const std::vector<std::pair<std::string, Words>> runs = {
      {"search", {"--measure", "ba", "--cv", "2", "--top", "1"}},
      {"exhaustive", {"--measure", "ba", "--mode", "3", "--top", "1"}},
      {"regression", {"--regression", "logistic"}},
  };
  for (const auto& [name, words] : runs) {
    ASSERT_EQ(folder_.tavo(words + Words{"--in", "normal.tavo", "--tidy", name + ".tsv"}).status, 0);
    std::filesystem::rename(folder_.path("r.csv"), folder_.path(name + ".csv"));
    for (const std::string& file : {name + ".tsv", name + ".csv"}) {
      size_t accepted = 0;
      for_each_prefix(file, [&](const std::string& prefix) {
        // Into a file now and then only: bringing it to disk takes most of the time.
        const bool to_file = prefix.size() % 64 == 0;
        ReportOptions options;
        options.input = folder_.path(file).string();
        options.output = to_file ? folder_.path("report.json").string() : "/dev/null";
        options.json = true;
        std::vector<std::string> warnings;
        const Status status = make_report(options, &warnings);
        ASSERT_EQ(folder_.exists("report.json"), to_file && status.ok());
        folder_.remove("report.json");
        accepted += status.ok() ? 1 : 0;
        ASSERT_TRUE(status.ok() || status.message().find(options.input) != std::string::npos)
            << status.message();
      });
      // Most beginnings end within a row.
      EXPECT_LT(accepted, folder_.read(file).size() / 4) << file;
    }
  }
}

}  // namespace
}  // namespace tavo_test
