// SPDX-License-Identifier: Apache-2.0
//
// Where variants are in the genome: from a PLINK .bim file, a VCF, or a table with a header line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "util/status.h"

struct GenomePlace {
  int chromosome = 0;  // among VariantMap::chromosomes()
  int64_t position = 0;
};

class VariantMap {
 public:
  // A .bim file has lines of six fields; a VCF begins with ##fileformat; a table has a header line with
  // columns for the name (snp, id, name, rsid, marker), the chromosome (chr, chrom, chromosome) and the
  // position (pos, bp, position), in any case, with or without # before the first. Plain or gzip.
  Status open(const std::string& path);

  // Null where the name is not known. A name that stands twice has its first place.
  const GenomePlace* find(std::string_view name) const;

  // In the order of a genome: numbers, then X, Y, XY, MT, then others as they come.
  const std::vector<std::string>& chromosomes() const { return chromosomes_; }

 private:
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
  };

  void sort_chromosomes();

  std::vector<std::string> chromosomes_;
  std::unordered_map<std::string, GenomePlace, Hash, std::equal_to<>> places_;
};
