// SPDX-License-Identifier: Apache-2.0
//
// What a genotype file holds, counted in one pass with little memory.
#pragma once

#include <cstdint>
#include <string>

#include "tools/genotype_header.h"
#include "tools/packed_rows.h"
#include "util/status.h"

struct GenotypeInfo {
  GenotypeHeader header;
  std::string first_name;
  std::string last_name;
  int64_t cases = 0;     // class 1
  int64_t controls = 0;  // class 0
  int64_t other_classes = 0;
  CodeCounts genotypes{};

  int64_t total() const { return header.n_samples * header.n_snps; }
};

// Reads the file. Its size tells the layout where the two differ in size; otherwise it is read as `assumed`.
// Refuses a file that is not one of genotypes, or whose size fits neither layout.
Status read_genotype_info(const std::string& path, Layout assumed, GenotypeInfo* info);

// "name: value" lines for people and scripts.
std::string genotype_info_text(const std::string& path, const GenotypeInfo& info);
