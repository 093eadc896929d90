// SPDX-License-Identifier: Apache-2.0
//
// Random problems with their folds, for tests that hold one way of computing against another. The test links
// tavo_core.
#pragma once

#include <cstring>
#include <random>
#include <vector>

#include "device/commands.h"
#include "device/problem.h"
#include "src/folds.h"
#include "tests/support/genotype_file.h"

namespace tavo_test {

struct Scene {
  GenotypeData data;
  std::vector<uint32_t> words;
  std::vector<float> scores;  // empty unless draw_scores was called
  Problem problem;
  FoldLists folds;

  // leave_out: a fifth of the samples is in no fold.
  Scene(std::mt19937& random, int n_samples, int n_snps, double missing, int n_folds, bool leave_out)
      : data(random_data(random, n_samples, n_snps, missing)) {
    const std::string file = normal_file(data, 8);
    problem.words_per_row = (n_snps + 15) / 16;
    const size_t header = 16 + 8 * static_cast<size_t>(n_snps);
    const size_t row = 4 + 4 * static_cast<size_t>(problem.words_per_row);
    for (size_t s = 0; s < static_cast<size_t>(n_samples); ++s) {
      for (size_t w = 0; w < static_cast<size_t>(problem.words_per_row); ++w) {
        uint32_t word = 0;
        std::memcpy(&word, file.data() + header + s * row + 4 + 4 * w, 4);
        words.push_back(word);
      }
    }
    problem.words = words.data();
    problem.n_samples = n_samples;
    problem.n_snps = n_snps;
    problem.classes = data.classes.data();
    std::vector<uint8_t> left_out;
    if (leave_out) {
      for (int s = 0; s < n_samples; ++s) {
        left_out.push_back(random() % 5 == 0 ? 1 : 0);
      }
    }
    deal(left_out, n_folds);
  }
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // Deals the folds anew, after the classes changed.
  void deal(const std::vector<uint8_t>& left_out, int n_folds) {
    const SampleList list = make_sample_list(data.classes, left_out);
    folds = split_folds(list, deal_folds(list.n_cases, list.n_controls, n_folds), n_folds);
  }

  // Large numbers that cancel and swallow small ones on the way make the order of additions decide the sign
  // of a sum; exact zeros make ties; denormals must not be flushed.
  void draw_scores(std::mt19937& random) {
    for (int s = 0; s < problem.n_samples; ++s) {
      const float value = static_cast<float>(random() % 2001) / 1000.0f - 1.0f;
      const float sign = random() % 2 == 0 ? 1.0f : -1.0f;
      switch (random() % 8) {
        case 0:
          scores.push_back(0.0f);
          break;
        case 1:
        case 2:
        case 3:
          scores.push_back(sign * 1e8f);
          break;
        case 4:
          scores.push_back(value * 1e-42f);
          break;
        case 5:
          scores.push_back(sign);
          break;
        default:
          scores.push_back(value);
          break;
      }
    }
    problem.scores = scores.data();
  }
};

// The set-up of a search of the scene's samples.
inline WorkerSetupCommand search_setup(const ScoringRules& rules, const std::vector<FoldView>& folds,
                                       const Scene& scene, uint64_t list_size) {
  WorkerSetupCommand setup;
  setup.kind = LoopKind::kSearch;
  setup.rules = rules;
  setup.folds = folds;
  setup.samples = scene.folds.samples;
  setup.list_size = static_cast<int>(list_size);
  return setup;
}

}  // namespace tavo_test
