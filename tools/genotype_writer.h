// SPDX-License-Identifier: Apache-2.0
//
// Writes genotype files (docs/formats.md), sample by sample. Every front end that reads some format feeds it:
//
//   auto writer = make_genotype_writer(Layout::kNormal);
//   writer->begin(path, names);
//   for each sample: writer->add_sample(class, genotypes);
//   writer->finish();
//
// The file appears under its name only when finish succeeds.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "util/output_file.h"
#include "util/status.h"

enum class Layout {
  kNormal,      // sample-major; written as it comes, memory for one sample
  kTransposed,  // SNP-major; the packed matrix stays in memory until finish, 2 bits a genotype
};

// "normal", "transposed".
std::string layout_name(Layout layout);

// What makes the text unfit for a SNP name, as a message; "" when nothing does. A name has 1 to 254 bytes,
// none of them a control character: NUL ends a name in the file, and a line break would break the lines of
// every report.
std::string name_fault(std::string_view name);

class GenotypeWriter {
 public:
  virtual ~GenotypeWriter() = default;

  // Begins the file. names: of the SNPs, in file order, at least one.
  Status begin(const std::string& path, const std::vector<std::string>& names);

  // class_value: 1 case, 0 control. genotypes: [SNPs], each 0, 1, 2 or 3 (missing).
  Status add_sample(uint8_t class_value, std::span<const uint8_t> genotypes);

  // Completes the file. At least one sample.
  Status finish();

 protected:
  virtual Status put_sample(uint8_t class_value, std::span<const uint8_t> genotypes) = 0;
  virtual Status put_rest() = 0;

  OutputFile file_;
  size_t n_snps_ = 0;
  size_t n_samples_ = 0;  // added so far, put_sample's own not included
};

std::unique_ptr<GenotypeWriter> make_genotype_writer(Layout layout);
