// SPDX-License-Identifier: Apache-2.0
//
// From the counts of one combination per cell and segment to the ranking measure of every fold, and into the
// folds' candidate lists.
#pragma once

#include <cstdint>
#include <vector>

#include "device/candidate_list.h"
#include "device/commands.h"
#include "device/segments.h"

class FoldScores {
 public:
  FoldScores(const WorkerSetupCommand& setup, const Segments& segments);

  // counts: [n_cells][segments], the cells of the combination that can hold samples in ascending cell order;
  // counted[n_cells] or null for all: whether the count table has the cell (its samples count in the class
  // totals all the same). Offers the training value of each fold to lists[fold].
  void offer(uint64_t rank, const int32_t* counts, int64_t n_cells, const uint8_t* counted,
             std::vector<CandidateList>& lists);

 private:
  ScoringRules rules_;
  std::vector<FoldView> folds_;
  size_t n_segments_;
  std::vector<int32_t> cell_totals_;  // [n_cells][2]: the combination's counts by class, all segments
};
