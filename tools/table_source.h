// SPDX-License-Identifier: Apache-2.0
//
// A text table, read once into a temporary file of packed genotypes: a table comes sample by sample, perhaps
// from a pipe.
#pragma once

#include <string>

#include "tools/genotype_source.h"
#include "util/scratch_file.h"
#include "util/stop_signal.h"

class TableSource : public GenotypeSource {
 public:
  // scratch_folder: where the temporary file goes. Gives up with a failure when `stop` becomes non-zero.
  Status open(const std::string& path, const std::string& class_name, const std::string& scratch_folder,
              const StopFlag& stop);

  Status read(int64_t first, int64_t count, uint32_t* rows) override;

 private:
  ScratchFile scratch_;
};
