// SPDX-License-Identifier: Apache-2.0
//
// A small search made from the bytes of an input: order, measure, missing method, tie rule, folds, samples
// that are left out, scores, length of the lists, then classes and genotypes.
#pragma once

#include <cstdint>
#include <vector>

#include "device/commands.h"
#include "device/problem.h"
#include "fuzz/fuzz_input.h"
#include "src/folds.h"

inline constexpr int kLargestOrder = 4;

class SearchProblem {
 public:
  explicit SearchProblem(FuzzInput input);
  SearchProblem(const SearchProblem&) = delete;
  SearchProblem& operator=(const SearchProblem&) = delete;

  const Problem& problem() const { return problem_; }
  const WorkerSetupCommand& setup() const { return setup_; }

  // Where a search may be cut in two.
  uint64_t cut() const { return cut_; }

 private:
  void draw_samples(FuzzInput& input, int n_folds, bool leave_out, bool with_scores);

  std::vector<uint32_t> words_;
  std::vector<uint8_t> classes_;
  std::vector<float> scores_;
  FoldLists folds_;
  std::vector<FoldView> views_;
  Problem problem_;
  WorkerSetupCommand setup_;
  uint64_t cut_ = 0;
};
