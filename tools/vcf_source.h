// SPDX-License-Identifier: Apache-2.0
//
// VCF and BCF, plain or compressed, read once into a temporary file of packed genotypes. Of a record the GT
// values are taken; the counted allele is ALT.
#pragma once

#include <string>

#include "tools/genotype_source.h"
#include "util/scratch_file.h"
#include "util/stop_signal.h"

class VcfSource : public GenotypeSource {
 public:
  // split: a record with several ALT alleles becomes one variant for each; otherwise it is skipped and
  // counted. scratch_folder: where the temporary file goes. Gives up with a failure when `stop` becomes
  // non-zero.
  Status open(const std::string& path, bool split, const std::string& scratch_folder, const StopFlag& stop);

  Status read(int64_t first, int64_t count, uint32_t* rows) override;

 private:
  ScratchFile scratch_;
};
