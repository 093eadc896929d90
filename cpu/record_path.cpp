// SPDX-License-Identifier: Apache-2.0
#include "cpu/record_path.h"

#include <algorithm>
#include <utility>

#include "lib/packed_genotypes.h"

namespace {
// Tables up to this many cells are held whole; beyond, most cells are empty and only the occupied ones are
// kept.
constexpr int64_t kDenseCells = 4096;
}  // namespace

RecordPath::RecordPath(const Problem& problem, const ScoringRules& rules, const FoldView& fold,
                       std::shared_ptr<GenotypeColumns> columns)
    : problem_(problem),
      rules_(rules),
      fold_(fold),
      cells_(rules.cells()),
      counted_cells_(rules.counted_cells()),
      columns_(columns != nullptr ? std::move(columns) : std::make_shared<GenotypeColumns>(problem)),
      genotypes_(static_cast<size_t>(rules.order)) {
  int64_t weight = 1;
  for (int j = 0; j < rules_.order; ++j) {
    weights_.push_back(weight);
    weight *= rules_.base();
  }
}

template <typename Count>
SetTotals RecordPath::visit(std::span<const int> samples, bool is_training, Count count) const {
  SetTotals totals{};
  if (problem_.transposed) {
    return totals;
  }
  for (size_t i = samples.size(); i-- > 0;) {
    const int sample = samples[i];
    int64_t cell = 0;
    bool complete = true;
    for (size_t j = 0; j < genotypes_.size(); ++j) {
      const unsigned genotype = genotypes_[j][sample];
      complete = complete && genotype != kMissingGenotype;
      cell += genotype * weights_[j];
    }
    if (!complete) {
      continue;
    }
    const bool is_case = problem_.classes[sample] == 1;
    ++(is_case ? totals.cases : totals.controls);
    if (cell < counted_cells_) {
      count(Counted{cell, is_training, is_case ? 1 : 0, sample});
    }
  }
  return totals;
}

void RecordPath::count(const Counted& counted, size_t cell) {
  const size_t entry = 2 * cell + static_cast<size_t>(counted.is_case);
  ++(counted.is_training ? training_ : testing_)[entry];
  if (counted.is_training && problem_.scores != nullptr) {
    scores_[entry] += problem_.scores[counted.sample];
  }
}

void RecordPath::count_dense() {
  const auto entries = static_cast<size_t>(2 * cells_);
  training_.assign(entries, 0);
  testing_.assign(entries, 0);
  scores_.assign(problem_.scores != nullptr ? entries : 0, 0.0f);
  const auto add = [this](const Counted& counted) { count(counted, static_cast<size_t>(counted.cell)); };
  training_totals_ = visit(fold_.training, true, add);
  testing_totals_ = visit(fold_.testing, false, add);
}

void RecordPath::count_occupied() {
  counted_.clear();
  const auto collect = [this](const Counted& counted) { counted_.push_back(counted); };
  training_totals_ = visit(fold_.training, true, collect);
  testing_totals_ = visit(fold_.testing, false, collect);
  // Stable: within a cell the samples stay in the order of the sums.
  std::stable_sort(counted_.begin(), counted_.end(),
                   [](const Counted& a, const Counted& b) { return a.cell < b.cell; });
  training_.clear();
  testing_.clear();
  scores_.clear();
  size_t occupied = 0;
  const auto add_cell = [this] {
    training_.insert(training_.end(), 2, 0);
    testing_.insert(testing_.end(), 2, 0);
    scores_.insert(scores_.end(), problem_.scores != nullptr ? 2 : 0, 0.0f);
  };
  for (size_t i = 0; i < counted_.size(); ++i) {
    if (i == 0 || counted_[i].cell != counted_[i - 1].cell) {
      add_cell();
      ++occupied;
    }
    count(counted_[i], occupied - 1);
  }
  if (static_cast<int64_t>(occupied) < cells_) {
    // An empty cell adds nothing, except that without any sample its expected counts are 0 / 0: one of them
    // stands for all.
    add_cell();
  }
}

void RecordPath::evaluate(const int* comb, float* record) {
  if (!problem_.transposed) {
    columns_->take(comb, genotypes_.size(), genotypes_.data());
  }
  if (cells_ <= kDenseCells) {
    count_dense();
  } else {
    count_occupied();
  }
  float threshold = fold_.threshold;
  if (rules_.own_thresholds()) {
    training_totals_.n = training_totals_.cases + training_totals_.controls;
    testing_totals_.n = testing_totals_.cases + testing_totals_.controls;
    threshold = own_threshold(training_totals_);
  } else {
    training_totals_.n = static_cast<int32_t>(fold_.training.size());
    testing_totals_.n = static_cast<int32_t>(fold_.testing.size());
  }
  const auto n_cells = static_cast<int64_t>(training_.size() / 2);
  if (problem_.scores != nullptr) {
    write_score_record(training_.data(), testing_.data(), scores_.data(), n_cells, rules_.tie, record);
  } else {
    write_record(training_.data(), testing_.data(), n_cells, training_totals_, testing_totals_, threshold,
                 rules_.tie, record);
  }
}
