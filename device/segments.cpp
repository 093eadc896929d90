// SPDX-License-Identifier: Apache-2.0
#include "device/segments.h"

Segments::Segments(const Problem& problem, std::span<const FoldView> folds)
    : n_folds(static_cast<int>(folds.size())), samples(2 * (folds.size() + 1)) {
  std::vector<bool> tested(static_cast<size_t>(problem.n_samples), false);
  const auto add = [&](size_t group, int sample) {
    samples[2 * group + (problem.classes[sample] == 1 ? 1 : 0)].push_back(sample);
  };
  for (size_t f = 0; f < folds.size(); ++f) {
    for (const int sample : folds[f].testing) {
      tested[static_cast<size_t>(sample)] = true;
      add(f, sample);
    }
  }
  for (const int sample : folds.front().training) {
    if (!tested[static_cast<size_t>(sample)]) {
      add(folds.size(), sample);
    }
  }
  first_word.push_back(0);
  for (const std::vector<int>& segment : samples) {
    const int words = (static_cast<int>(segment.size()) + kSamplesPerPlaneWord - 1) / kSamplesPerPlaneWord;
    first_word.push_back(first_word.back() + words);
  }
}
