// SPDX-License-Identifier: Apache-2.0
//
// The beginning of a genotype file: header, layout and SNP names.
#pragma once

#include <functional>
#include <string>

#include "lib/genotype_file.h"
#include "tools/input_file.h"
#include "util/status.h"

struct GenotypeHeader {
  int64_t n_samples = 0;
  int64_t n_snps = 0;
  int label_width = 0;
  Layout layout = Layout::kNormal;
  bool layout_is_certain = false;  // the file's size fits this layout only

  int64_t body_offset() const { return genotype_body_offset(n_snps, label_width); }
};

// "normal", "transposed".
std::string layout_name(Layout layout);

// Whether the file begins like a genotype file. No text table does: the bytes of the label width hold a NUL.
bool is_genotype_file(const std::string& path);

// Reads and checks the header. The file's size tells the layout where the two differ in size; otherwise it is
// `assumed`. Refuses a file whose size fits neither.
Status read_genotype_header(const InputFile& file, Layout assumed, GenotypeHeader* header);

// Hands every name to `take`, in file order. A slot without a NUL is refused.
Status read_genotype_names(const InputFile& file, const GenotypeHeader& header,
                           const std::function<Status(int64_t index, std::string_view name)>& take);
