// SPDX-License-Identifier: Apache-2.0
#include "cpu/record_path.h"

#include <algorithm>

#include "lib/packed_genotypes.h"

namespace {
// Tables up to this many cells are held whole; beyond, most cells are empty and only the occupied ones are
// kept.
constexpr int64_t kDenseCells = 4096;
}  // namespace

RecordPath::RecordPath(const Problem& problem, const ScoringRules& rules, const FoldView& fold)
    : problem_(problem),
      rules_(rules),
      fold_(fold),
      cells_(rules.cells()),
      counted_cells_(rules.counted_cells()) {
  int64_t weight = 1;
  for (int j = 0; j < rules_.order; ++j) {
    weights_.push_back(weight);
    weight *= rules_.base();
  }
}

template <typename Count>
SetTotals RecordPath::visit(std::span<const int> samples, const int* comb, Count count) const {
  SetTotals totals{};
  if (problem_.transposed) {
    return totals;
  }
  for (const int sample : samples) {
    const uint32_t* row = problem_.row(static_cast<size_t>(sample));
    int64_t cell = 0;
    bool complete = true;
    for (int j = 0; j < rules_.order && complete; ++j) {
      const unsigned genotype = packed_genotype(row, static_cast<size_t>(comb[j]));
      complete = genotype != kMissingGenotype;
      cell += genotype * weights_[static_cast<size_t>(j)];
    }
    if (!complete) {
      continue;
    }
    const bool is_case = problem_.classes[sample] == 1;
    ++(is_case ? totals.cases : totals.controls);
    if (cell < counted_cells_) {
      count(cell, is_case ? 1 : 0);
    }
  }
  return totals;
}

void RecordPath::count_dense(const int* comb) {
  const auto entries = static_cast<size_t>(2 * cells_);
  training_.assign(entries, 0);
  testing_.assign(entries, 0);
  const auto into = [](std::vector<int32_t>& table) {
    return [&table](int64_t cell, int is_case) { ++table[static_cast<size_t>(2 * cell + is_case)]; };
  };
  training_totals_ = visit(fold_.training, comb, into(training_));
  testing_totals_ = visit(fold_.testing, comb, into(testing_));
}

void RecordPath::count_occupied(const int* comb) {
  counted_.clear();
  const auto into = [this](int first_column) {
    return [this, first_column](int64_t cell, int is_case) {
      counted_.emplace_back(cell, first_column + is_case);
    };
  };
  training_totals_ = visit(fold_.training, comb, into(0));
  testing_totals_ = visit(fold_.testing, comb, into(2));
  std::sort(counted_.begin(), counted_.end());
  training_.clear();
  testing_.clear();
  int64_t last_cell = -1;
  int64_t occupied = 0;
  for (const auto& [cell, column] : counted_) {
    if (cell != last_cell) {
      training_.insert(training_.end(), 2, 0);
      testing_.insert(testing_.end(), 2, 0);
      last_cell = cell;
      ++occupied;
    }
    std::vector<int32_t>& table = column < 2 ? training_ : testing_;
    ++table[table.size() - 2 + static_cast<size_t>(column % 2)];
  }
  if (occupied < cells_) {
    // An empty cell adds nothing, except that without any sample its expected counts are 0 / 0: one of them
    // stands for all.
    training_.insert(training_.end(), 2, 0);
    testing_.insert(testing_.end(), 2, 0);
  }
}

void RecordPath::evaluate(const int* comb, float* record) {
  if (cells_ <= kDenseCells) {
    count_dense(comb);
  } else {
    count_occupied(comb);
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
  write_record(training_.data(), testing_.data(), static_cast<int64_t>(training_.size() / 2),
               training_totals_, testing_totals_, threshold, rules_.tie, record);
}
