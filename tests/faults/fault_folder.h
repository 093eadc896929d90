// SPDX-License-Identifier: Apache-2.0
//
// What the fault tests share: a folder with one small file of every kind that the programs read, and what
// every run must keep to, whatever its input.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"

namespace tavo_test {

using Words = std::vector<std::string>;

Words operator+(Words first, const Words& second);

// Six samples, five SNPs, one missing genotype.
GenotypeData small_data();

class FaultFolder {
 public:
  // Writes normal.tavo, transposed.tavo, covariates.txt, scores.txt, table.txt, table.txt.gz, plink.bed,
  // plink.bim, plink.fam and calls.vcf, all of small_data().
  FaultFolder();

  // Runs tavo in the folder with result file r.csv, one worker, on the processor.
  RunResult tavo(const Words& words, const Environment& environment = {}) const;
  RunResult run(const std::filesystem::path& program, const Words& words,
                const Environment& environment = {}) const;

  std::filesystem::path path(const std::string& name) const { return folder_ / name; }
  std::string read(const std::string& name) const { return read_file(path(name)); }
  // A new file: one that is written over is brought to disk by some file systems, which takes long.
  void write(const std::string& name, const std::string& bytes) const {
    remove(name);
    write_file(path(name), bytes);
  }
  bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }
  void remove(const std::string& name) const { std::filesystem::remove_all(path(name)); }

 private:
  TempDir folder_;
};

std::filesystem::path report_program();

// What is wrong with how a run ended, whatever it was given; empty when nothing is: no signal ended it, no
// sanitizer found anything, no exception was left over, and a failure says why on standard error.
std::string unclean(const RunResult& result);

// Whether the bytes are a result file that looks whole: its last line ends the last section.
bool looks_whole(const std::string& result_file);

// The lines of a result file but for those that say when and how it was made.
Words result_lines(const std::filesystem::path& path);

}  // namespace tavo_test
