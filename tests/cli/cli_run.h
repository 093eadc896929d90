// SPDX-License-Identifier: Apache-2.0
//
// What the command-line tests share: a small data set, runs of the program in a folder of their own, and ways
// to look at the lines that a run left.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"

namespace tavo_test {

using Words = std::vector<std::string>;

// The lines that end every run that was not refused. The message before them has no line feed.
inline const std::string kClosingLines = "------------------\n## tavo complete\n------------------\n";

Words operator+(Words first, const Words& second);

// Random data with as many cases as controls (n_samples even), the same at every call.
GenotypeData balanced_data(int n_samples, int n_snps, double missing = 0.0);

// A folder with the genotype file "g.dat", and runs of the program in it.
class CliFolder {
 public:
  CliFolder();
  explicit CliFolder(const GenotypeData& data);

  // Runs the program with the words as they are.
  RunResult run(const Words& words, const Environment& environment = {}) const;
  // Runs a complete search of g.dat into r.csv on two CPU workers; `more` follows and can override.
  RunResult run_mdr(const Words& more = {}, const Environment& environment = {}) const;

  std::filesystem::path path(const std::string& name) const { return dir_ / name; }
  void write(const std::string& name, const std::string& bytes) const { write_file(path(name), bytes); }
  bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }
  // The lines of a text file in the folder; none where it does not exist.
  std::vector<std::string> lines(const std::string& name) const;
  // Names of the files in the folder that hold `part`, sorted.
  std::vector<std::string> names_with(const std::string& part) const;

 private:
  TempDir dir_;
};

// The words that run_mdr begins with: 12 words of the option table, then --device cpu.
Words mdr_words();

bool contains(const std::string& text, const std::string& part);
bool has_line(const std::string& text, const std::string& line);
bool begins_with(const std::string& text, const std::string& start);
std::vector<std::string> split(const std::string& text, char delimiter);

// Lines of standard error that begin with "tavo: " and hold every one of the parts.
int notices_with(const RunResult& run, const Words& parts);

// The place in `text` of the line `line`; npos where there is none.
size_t line_at(const std::string& text, const std::string& line);

}  // namespace tavo_test
