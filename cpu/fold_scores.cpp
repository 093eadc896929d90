// SPDX-License-Identifier: Apache-2.0
#include "cpu/fold_scores.h"

#include "lib/cv_measures.h"

FoldScores::FoldScores(const WorkerSetupCommand& setup, const Segments& segments)
    : rules_(setup.rules),
      folds_(setup.folds.begin(), setup.folds.end()),
      n_segments_(static_cast<size_t>(segments.count())) {}

void FoldScores::offer(uint64_t rank, const int32_t* counts, int64_t n_cells, const uint8_t* counted,
                       std::vector<CandidateList>& lists) {
  const auto cells = static_cast<size_t>(n_cells);
  cell_totals_.assign(2 * cells, 0);
  for (size_t m = 0; m < cells; ++m) {
    const int32_t* row = counts + m * n_segments_;
    for (size_t segment = 0; segment < n_segments_; segment += 2) {
      cell_totals_[2 * m] += row[segment];
      cell_totals_[2 * m + 1] += row[segment + 1];
    }
  }
  for (size_t f = 0; f < folds_.size(); ++f) {
    SetTotals totals{};
    for (size_t m = 0; m < cells; ++m) {
      totals.controls += cell_totals_[2 * m] - counts[m * n_segments_ + 2 * f];
      totals.cases += cell_totals_[2 * m + 1] - counts[m * n_segments_ + 2 * f + 1];
    }
    float threshold = folds_[f].threshold;
    totals.n = static_cast<int32_t>(folds_[f].training.size());
    if (rules_.own_thresholds()) {
      totals.n = totals.cases + totals.controls;
      threshold = own_threshold(totals);
    }
    Confusion table{};
    float chi_square = 0.0f;
    for (size_t m = 0; m < cells; ++m) {
      if (counted != nullptr && counted[m] == 0) {
        continue;
      }
      const int32_t controls = cell_totals_[2 * m] - counts[m * n_segments_ + 2 * f];
      const int32_t cases = cell_totals_[2 * m + 1] - counts[m * n_segments_ + 2 * f + 1];
      add_cell(&table, cell_label(cell_ratio(controls, cases, threshold), threshold, rules_.tie), controls,
               cases);
      if (rules_.measure == kChiSquare) {
        chi_square = add_chi_square(chi_square, controls, cases, totals);
      }
    }
    lists[f].offer(rank, training_measure(rules_.measure, table, totals, chi_square));
  }
}
