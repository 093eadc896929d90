// SPDX-License-Identifier: Apache-2.0
//
// What a genotype file holds, counted in one pass with little memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/genotype_writer.h"
#include "util/status.h"

struct GenotypeInfo {
  Layout layout = Layout::kNormal;
  bool layout_is_certain = false;  // the file's size fits this layout only
  int64_t n_samples = 0;
  int64_t n_snps = 0;
  int label_width = 0;
  std::string first_name;
  std::string last_name;
  int64_t cases = 0;     // class 1
  int64_t controls = 0;  // class 0
  int64_t other_classes = 0;
  int64_t genotypes[4] = {};  // how many there are of each code; 3 is missing

  int64_t total() const { return n_samples * n_snps; }
};

// Reads the file. Its size tells the layout where the two differ in size; otherwise it is read as `assumed`.
// Refuses a file that is not one of genotypes, or whose size fits neither layout.
Status read_genotype_info(const std::string& path, Layout assumed, GenotypeInfo* info);

// "name: value" lines for people and scripts.
std::string genotype_info_text(const std::string& path, const GenotypeInfo& info);
