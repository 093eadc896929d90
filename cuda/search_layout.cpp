// SPDX-License-Identifier: Apache-2.0
#include "cuda/search_layout.h"

#include <algorithm>
#include <limits>

#include "cuda/score_body.h"

PlaneLayout::PlaneLayout(const Segments& by_fold) {
  for (const std::vector<int>& samples : by_fold.samples) {
    const auto n_words = static_cast<int>((samples.size() + kSamplesPerWord - 1) / kSamplesPerWord);
    segments.push_back({n_chunks(), n_words});
    sample_at.insert(sample_at.end(), samples.begin(), samples.end());
    while (sample_at.size() % kSamplesPerChunk != 0) {
      sample_at.push_back(-1);
    }
  }
}

int counted_pairs(const Segments& segments) {
  const size_t n = segments.samples.size();
  const bool untested = !segments.samples[n - 2].empty() || !segments.samples[n - 1].empty();
  return segments.n_folds + (untested ? 1 : 0);
}

PositionLayout::PositionLayout(const Problem& problem, const WorkerSetupCommand& setup,
                               const Segments& segments) {
  const auto n_folds = static_cast<int>(setup.folds.size());
  width = (n_folds + kFoldLanes - 1) / kFoldLanes * kFoldLanes;
  if (problem.transposed) {
    return;
  }
  std::vector<int> fold_by_sample(static_cast<size_t>(problem.n_samples), n_folds);
  for (int segment = 0; segment < segments.count(); ++segment) {
    for (const int sample : segments.samples[static_cast<size_t>(segment)]) {
      fold_by_sample[static_cast<size_t>(sample)] = segment / 2;
    }
  }
  sample_at.assign(setup.samples.rbegin(), setup.samples.rend());
  for (const int sample : sample_at) {
    const int fold = fold_by_sample[static_cast<size_t>(sample)];
    fold_of.push_back(fold);
    is_case.push_back(problem.classes[sample] == 1 ? 1 : 0);
    for (int f = 0; f < width && problem.scores != nullptr; ++f) {
      fold_scores.push_back(f == fold ? 0.0f : problem.scores[sample]);
    }
  }
}

std::vector<uint64_t> binomial_table(int n, int k) {
  constexpr uint64_t kLargest = std::numeric_limits<uint64_t>::max();
  const size_t row = static_cast<size_t>(n) + 1;
  std::vector<uint64_t> table((static_cast<size_t>(k) + 1) * row, 0);
  std::fill_n(table.begin(), row, 1);
  for (size_t j = 1; j <= static_cast<size_t>(k); ++j) {
    for (size_t i = 1; i < row; ++i) {
      const uint64_t without = table[j * row + i - 1];
      const uint64_t with = table[(j - 1) * row + i - 1];
      table[j * row + i] = without > kLargest - with ? kLargest : without + with;
    }
  }
  return table;
}

uint32_t counted_cell_bits(const ScoringRules& rules) {
  if (rules.counted_cells() == rules.cells()) {
    return ~0u;
  }
  uint32_t bits = 0;
  for (int cell = 0; cell < 32; ++cell) {
    int64_t table_cell = 0;
    int64_t weight = 1;
    for (int digits = cell, j = 0; j < rules.order; ++j, digits /= 3) {
      table_cell += digits % 3 * weight;
      weight *= rules.base();
    }
    bits |= (table_cell < rules.counted_cells() ? 1u : 0u) << cell;
  }
  return bits;
}
