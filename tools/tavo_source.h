// SPDX-License-Identifier: Apache-2.0
//
// A genotype file of this program, in either layout.
#pragma once

#include <optional>
#include <string>

#include "tools/genotype_header.h"
#include "tools/genotype_source.h"

class TavoSource : public GenotypeSource {
 public:
  // told: the layout where the file's size fits both; without it the normal one is assumed, with a warning.
  Status open(const std::string& path, std::optional<Layout> told);

  Status read(int64_t first, int64_t count, uint32_t* rows) override;

 private:
  Status read_classes();

  InputFile file_;
  GenotypeHeader header_;
};
