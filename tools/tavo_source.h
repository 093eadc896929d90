// SPDX-License-Identifier: Apache-2.0
//
// A genotype file of this program, in either layout.
#pragma once

#include <string>

#include "tools/genotype_header.h"
#include "tools/genotype_source.h"

class TavoSource : public GenotypeSource {
 public:
  // assumed: the layout where the file's size fits both.
  Status open(const std::string& path, Layout assumed);

  Status read(int64_t first, int64_t count, uint32_t* rows) override;

 private:
  Status read_classes();

  InputFile file_;
  GenotypeHeader header_;
};
