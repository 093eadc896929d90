// SPDX-License-Identifier: Apache-2.0
#include "lib/genotype_cells.h"

#include <map>

#include "lib/mdr.h"
#include "lib/packed_genotypes.h"

namespace {

double threshold_of(const CellTable& table, const CellRules& rules) {
  if (rules.risk == RiskRule::kScores) {
    return 0.0;
  }
  if (!rules.own_threshold) {
    return rules.threshold;
  }
  if (rules.risk == RiskRule::kSingleRatio) {
    return own_threshold({table.cases, table.controls, table.cases + table.controls});
  }
  return static_cast<double>(table.cases) / table.controls;
}

CellLabel label_of(const GenotypeCell& cell, double threshold, const CellRules& rules) {
  int label = kUnlabelled;
  switch (rules.risk) {
    case RiskRule::kSingleRatio: {
      const auto single = static_cast<float>(threshold);
      label = cell_label(cell_ratio(cell.controls, cell.cases, single), single, rules.tie);
      break;
    }
    case RiskRule::kDoubleRatio:
      label = risk_label(cell.controls, cell.cases, threshold, rules.tie);
      break;
    case RiskRule::kScores:
      label = score_cell_label(cell.controls, cell.control_scores, cell.case_scores, rules.tie);
      break;
  }
  return static_cast<CellLabel>(label);
}

}  // namespace

CellTable count_genotype_cells(std::span<const int> samples, std::span<const uint8_t> classes,
                               const float* scores, const GenotypeOf& genotype, int order,
                               const CellRules& rules) {
  CellTable table;
  std::map<int64_t, GenotypeCell> cells;
  // Scores are summed in the order of the records: descending.
  for (size_t i = samples.size(); i-- > 0;) {
    const int sample = samples[i];
    int64_t number = 0;
    int64_t weight = 1;
    bool complete = true;
    for (int j = 0; j < order && complete; ++j, weight *= rules.base) {
      const unsigned code = genotype(sample, j);
      complete = !rules.skip_missing || code != kMissingGenotype;
      number += static_cast<int64_t>(code) * weight;
    }
    if (!complete) {
      continue;
    }
    const bool is_case = classes[static_cast<size_t>(sample)] == 1;
    ++(is_case ? table.cases : table.controls);
    if (number >= rules.counted_cells) {
      continue;
    }
    GenotypeCell& cell = cells[number];
    ++(is_case ? cell.cases : cell.controls);
    if (scores != nullptr) {
      (is_case ? cell.case_scores : cell.control_scores) += scores[sample];
    }
  }
  table.threshold = threshold_of(table, rules);
  for (auto& [number, cell] : cells) {
    cell.number = number;
    cell.label = label_of(cell, table.threshold, rules);
    table.cells.push_back(cell);
  }
  return table;
}
