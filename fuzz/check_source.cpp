// SPDX-License-Identifier: Apache-2.0
#include "fuzz/check_source.h"

#include <algorithm>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "lib/packed_genotypes.h"
#include "tools/names.h"

namespace {
constexpr int64_t kBlock = 16;
}

void check_source(GenotypeSource& source) {
  const int64_t n_samples = source.n_samples();
  const int64_t n_variants = source.variants().size();
  require(n_samples > 0 && n_variants > 0, "samples and variants");
  for (const Sample& sample : source.samples()) {
    require(field_fault(sample.iid, kLongestIdentifier).empty(), "identifiers that can be written");
  }
  const int64_t n_words = packed_words(n_samples);
  std::vector<uint32_t> rows(static_cast<size_t>(n_words * kBlock));
  for (int64_t first = 0; first < n_variants; first += kBlock) {
    const int64_t count = std::min(kBlock, n_variants - first);
    require(source.read(first, count, rows.data()).ok(), "genotypes of what was accepted");
    for (int64_t i = 0; i < count; ++i) {
      require(name_fault(source.variants().at(first + i).name).empty(), "names that can be written");
      for (int64_t lane = n_samples; lane < n_words * kGenotypesPerWord; ++lane) {
        require(packed_genotype(rows.data() + i * n_words, static_cast<size_t>(lane)) == 0,
                "nothing behind the last sample");
      }
    }
  }
}
