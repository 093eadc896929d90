// SPDX-License-Identifier: Apache-2.0
//
// The bit planes of a problem, filled by the body of their kernel in a host loop.
#pragma once

#include <vector>

#include "cuda/plane_body.h"
#include "cuda/search_layout.h"
#include "device/problem.h"
#include "device/segments.h"
#include "tests/cuda/surplus_threads.h"

namespace tavo_test {

inline GenotypeMatrix genotype_matrix(const Problem& problem) {
  return {problem.words, problem.words_per_row};
}

struct HostPlanes {
  HostPlanes(const Problem& problem, const Segments& segments)
      : layout(segments),
        n_columns(plane_columns(problem.n_snps)),
        words(chunk_stride(n_columns) * static_cast<size_t>(layout.n_chunks()), 0),
        has_missing(static_cast<size_t>(problem.n_snps), 0) {
    const PlaneBuildArguments build{genotype_matrix(problem), problem.n_snps,          n_columns,
                                    layout.n_words(),         layout.sample_at.data(), words.data(),
                                    has_missing.data()};
    const auto items = static_cast<uint64_t>(layout.n_words() * problem.words_per_row);
    for (uint64_t item = 0; item < items + kSurplusThreads && !problem.transposed; ++item) {
      build_planes(build, item);
    }
  }

  PlaneView view() const { return {words.data(), n_columns, layout.segments.data()}; }

  PlaneLayout layout;
  int n_columns;
  std::vector<uint32_t> words;
  std::vector<uint8_t> has_missing;
};

}  // namespace tavo_test
