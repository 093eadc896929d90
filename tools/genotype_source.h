// SPDX-License-Identifier: Apache-2.0
//
// What tavo-convert reads, whatever the format: samples, variants, and the genotypes in blocks of variants.
// One class for each format; tools/open_source.cpp is the list of them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "util/status.h"

// A sample as a line of a PLINK .fam file. What a format does not know has that format's text for it.
struct Sample {
  std::string fid;
  std::string iid;
  std::string father = "0";
  std::string mother = "0";
  std::string sex = "0";
  std::string phenotype;  // as it stands in the file; "" where the format has none
};

// A variant as a line of a PLINK .bim file. The genotypes are numbers of copies of the counted allele.
struct Variant {
  std::string_view chromosome = "0";
  std::string_view name;
  std::string_view centimorgan = "0";
  std::string_view position = "0";
  std::string_view counted_allele = "1";
  std::string_view other_allele = "2";
};

// The variants of a file, in one piece of text: millions of them fit memory.
class VariantTable {
 public:
  // The fields hold no tabs.
  void add(const Variant& variant);

  int64_t size() const { return static_cast<int64_t>(starts_.size()); }

  // The fields are valid while the table does not change.
  Variant at(int64_t index) const;

 private:
  std::string text_;
  std::vector<size_t> starts_;
};

// At most this many samples and variants: a genotype file counts them in 32 bits.
inline constexpr int64_t kMostItems = 0x7fffffff;

class GenotypeSource {
 public:
  GenotypeSource() = default;
  virtual ~GenotypeSource() = default;
  GenotypeSource(const GenotypeSource&) = delete;
  GenotypeSource& operator=(const GenotypeSource&) = delete;

  const std::vector<Sample>& samples() const { return samples_; }
  const VariantTable& variants() const { return variants_; }
  int64_t n_samples() const { return static_cast<int64_t>(samples_.size()); }

  // The class words of a format that has classes instead of a phenotype column, [samples]; else empty.
  const std::vector<uint32_t>& classes() const { return classes_; }

  // Whether the FID of a sample means anything. Where it does not, samples are found by their IID.
  bool has_family_ids() const { return has_family_ids_; }

  // What to tell the user: lines for standard output, and warnings.
  const std::vector<std::string>& notes() const { return notes_; }
  const std::vector<std::string>& warnings() const { return warnings_; }

  // Reads the variants first .. first + count - 1 into `rows`: packed_words(n_samples()) words for each, bits
  // behind the last sample 0. first is a multiple of 16. Any order, any number of times.
  virtual Status read(int64_t first, int64_t count, uint32_t* rows) = 0;

 protected:
  // Samples of a format without identifiers: FID and IID are their number in the file, from 1.
  void number_samples(int64_t count);

  std::vector<Sample> samples_;
  VariantTable variants_;
  std::vector<uint32_t> classes_;
  bool has_family_ids_ = false;
  std::vector<std::string> notes_;
  std::vector<std::string> warnings_;
};
