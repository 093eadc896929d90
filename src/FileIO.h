// SPDX-License-Identifier: Apache-2.0
//
// The genotype file and the writer of result files.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "src/growing_file.h"
#include "util/output_file.h"
#include "util/status.h"

// Loads a genotype file (docs/formats.md) and owns the packed matrix, the classes or phenotypes and the SNP
// names. Opened once, read-only afterwards. Reads what g_regression, g_transpose and the covariate variables
// of run_config.h say about the run.
class MdrReader {
 public:
  MdrReader() = default;
  MdrReader(const MdrReader&) = delete;
  MdrReader& operator=(const MdrReader&) = delete;

  // Loads the file; transposed non-zero: in the transposed layout. has_score is accepted and makes no
  // difference. False when the file cannot be used: the layout's own messages are on standard output, the
  // reason of any other refusal on standard error. Memory is taken as data arrives, so a header alone cannot
  // ask for much.
  bool Open(const char* path, bool has_score, int transposed);

  int GetLineCount() const { return open_ ? row_ : 0; }           // samples kept
  int file_samples() const { return open_ ? file_samples_ : 0; }  // before any were left out
  int GetColCount() const { return open_ ? col_ : 0; }            // SNPs

  // The genotype code, 0 to 3. 0 <= sample < GetLineCount(), 0 <= snp < GetColCount().
  int GetSNPdata(int sample, int snp) const;

  // The SNP names in file order.
  std::vector<std::string> ReadHeader() const;

  // Leaves the loaded data as it is.
  void Reset() {}
  void Close();

  const std::vector<uint8_t>& classes() const { return classes_; }      // [samples], MDR runs only
  const std::vector<float>& phenotypes() const { return phenotypes_; }  // [samples], regressions only
  const std::vector<uint32_t>& words() const { return words_; }         // packed rows of block_count() words
  int64_t block_count() const { return block_count_; }
  bool transposed() const { return transposed_; }

  // Scores of a score-based run, [samples], owned by the caller; null otherwise.
  const float* scores() const { return scores_; }

  // Makes the run score-based: installs the scores and the classes that they stand for.
  void set_scores(const float* scores, std::vector<uint8_t> classes) {
    scores_ = scores;
    classes_ = std::move(classes);
  }

 private:
  class Source;
  bool read_labels(Source& source, int64_t label_width);
  bool read_transposed(Source& source);
  bool read_samples(Source& source);
  void store_class(const uint8_t* bytes);

  bool open_ = false;
  bool transposed_ = false;
  int file_samples_ = 0;
  int row_ = 0;
  int col_ = 0;
  int64_t block_count_ = 0;
  std::vector<std::string> names_;
  std::vector<uint8_t> classes_;
  std::vector<float> phenotypes_;
  std::vector<uint32_t> words_;
  const float* scores_ = nullptr;
};

// Writes lines of text to one file. Every write is checked; the first failure is kept for Close.
class MdrWriter {
 public:
  // Creates or truncates the file. True when it could be opened.
  bool Save(const char* path);

  // As Save, but the file changes only in Close, when all of the text was written. Something that is no
  // regular file (a pipe, a terminal) is written directly.
  bool SaveWhenComplete(const char* path);

  // Writes the text and a line feed.
  void WriteLine(const std::string& text);

  // From now on lines go to this file first, which outlives the writer; Close copies all that it holds.
  void KeepLinesIn(GrowingFile* lines) { lines_ = lines; }

  // False after a failure, which Close will say.
  bool ok() const { return status_.ok() && (lines_ == nullptr || lines_->status().ok()); }

  // Ends the file. A failure says what could not be opened or written.
  Status Close();

 private:
  OutputFile file_;
  GrowingFile* lines_ = nullptr;
  Status status_;
};
