// SPDX-License-Identifier: Apache-2.0
//
// A data set in memory as a source of genotypes, and as a selection that a writer takes.
#pragma once

#include "tests/support/genotype_file.h"
#include "tools/genotype_source.h"
#include "tools/genotype_writer.h"
#include "tools/selection.h"

namespace tavo_test {

class MemorySource : public GenotypeSource {
 public:
  explicit MemorySource(const GenotypeData& data);
  Status read(int64_t first, int64_t count, uint32_t* rows) override;

 private:
  GenotypeData data_;
};

// Everything that a writer of a data set needs, in one place.
struct WholeSelection {
  explicit WholeSelection(const GenotypeData& data);
  WholeSelection(const WholeSelection&) = delete;
  WholeSelection& operator=(const WholeSelection&) = delete;

  MemorySource source;
  Phenotypes phenotypes;
  Selection selection;
};

// Feeds the writer with the whole data set, `at_a_time` variants in a block; does not commit.
Status feed(GenotypeWriter& writer, WholeSelection& whole, int64_t at_a_time = 48);

// Opens, feeds and commits.
Status write_whole_set(GenotypeWriter& writer, const GenotypeData& data, int64_t at_a_time = 48);

}  // namespace tavo_test
