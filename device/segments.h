// SPDX-License-Identifier: Apache-2.0
//
// The order in which the searches lay out the samples. Each fold's testing samples of one class form a
// segment, so a combination is counted once per segment, and the training counts of a fold are the totals
// less its own segments.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "device/problem.h"

// Of the CPU's planes; a backend with words of another size pads the segments by itself.
inline constexpr int kSamplesPerPlaneWord = 64;

// Segment 2f holds the testing controls of fold f, 2f + 1 its cases. The last two segments hold the samples
// that no fold of the search tests.
struct Segments {
  int n_folds = 0;
  std::vector<std::vector<int>> samples;  // [2 * (n_folds + 1)] sample numbers
  std::vector<int> first_word;            // [2 * (n_folds + 1) + 1]: segments padded to whole plane words

  int count() const { return static_cast<int>(samples.size()); }
  int words() const { return first_word.back(); }

  // folds: at least one; every fold trains on all samples that it does not test.
  Segments(const Problem& problem, std::span<const FoldView> folds);
};
