// SPDX-License-Identifier: Apache-2.0
//
// What tavo-convert writes: genotype files of both layouts and PLINK 1 binary, fed with blocks of variants.
//
//   auto writer = make_tavo_writer(path, Layout::kNormal);
//   writer->open();                          before the work, so that a target that cannot be written shows
//   writer->begin(selection);
//   for each block: writer->add(rows, count);
//   commit_together(writer->files());       perhaps with other files
//
// A file appears under its name only when it is committed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lib/genotype_file.h"
#include "tools/selection.h"
#include "util/output_file.h"
#include "util/status.h"

class GenotypeWriter {
 public:
  virtual ~GenotypeWriter() = default;

  virtual Status open() = 0;

  // Writes what stands in front of the genotypes. The selection must outlive the writer; at least one sample
  // and one variant.
  virtual Status begin(const Selection& selection) = 0;

  // The next variants: `count` rows of packed_words(n_samples) words, bits behind the last sample 0. A
  // multiple of 16 but for the last call.
  virtual Status add(const uint32_t* rows, int64_t count) = 0;

  // The files, to be committed together after n_variants rows.
  virtual std::vector<OutputFile*> files() = 0;
};

// A genotype file. The transposed layout has one byte for a class: quantitative phenotypes are refused.
std::unique_ptr<GenotypeWriter> make_tavo_writer(const std::string& path, Layout layout);

// PREFIX.bed, PREFIX.bim and PREFIX.fam. The counted allele becomes A1.
std::unique_ptr<GenotypeWriter> make_bed_writer(const std::string& prefix);
