// SPDX-License-Identifier: Apache-2.0
//
// Which samples and variants of a source are taken, and what is known about them: what the filters narrow
// down and the writers write.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/genotype_source.h"
#include "tools/phenotypes.h"

struct Selection {
  const GenotypeSource* source = nullptr;
  const Phenotypes* phenotypes = nullptr;  // of all samples of the source
  std::vector<uint32_t> samples;           // indices in the source, ascending
  std::vector<uint32_t> variants;          // the same
  bool other_allele = false;               // the genotypes count the other allele

  int64_t n_samples() const { return static_cast<int64_t>(samples.size()); }
  int64_t n_variants() const { return static_cast<int64_t>(variants.size()); }

  // Of the kept ones, index from 0.
  const Sample& sample(int64_t index) const { return source->samples()[samples[static_cast<size_t>(index)]]; }
  uint32_t phenotype_word(int64_t index) const {
    return phenotypes->words[samples[static_cast<size_t>(index)]];
  }
  // With the allele that is counted.
  Variant variant(int64_t index) const;
};
