// SPDX-License-Identifier: Apache-2.0
//
// A folder with results to report on, and runs of tavo-report in it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"

namespace tavo_test {

using Words = std::vector<std::string>;

class ReportFolder {
 public:
  // Writes data as g.dat: class and SNPs 2 and 4 (from 0) belong together in nine samples out of ten.
  explicit ReportFolder(double missing = 0.0, int n_samples = 120, int n_snps = 8);

  // A search of g.dat on one CPU worker into r.csv and t.tsv; `more` follows.
  void search(const Words& more = {}) const;
  // A regression of g.dat into r.csv and t.tsv.
  void regress(const std::string& kind, const Words& more = {}) const;

  RunResult report(const Words& words) const;
  // A signal while it waits for the end of `pipe`, into which `begun` went.
  RunResult interrupted_report(const Words& words, const std::string& begun, int signal) const;
  // By a tavo-report that was built without the plotting library.
  RunResult report_without_pages(const Words& words) const;
  // The JSON of a report on `input`; `more` follows.
  nlohmann::json json(const std::string& input, const Words& more = {}) const;
  // The JSON that stands in a page.
  nlohmann::json page_data(const std::string& page) const;

  std::filesystem::path path(const std::string& name) const { return dir_ / name; }
  std::string read(const std::string& name) const { return read_file(path(name)); }
  void write(const std::string& name, const std::string& text) const { write_file(path(name), text); }
  // The names of the files, sorted.
  Words names() const;
  bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }

  const GenotypeData& data() const { return data_; }

 private:
  TempDir dir_;
  GenotypeData data_;
};

}  // namespace tavo_test
