// SPDX-License-Identifier: Apache-2.0
//
// The exhaustive analysis: every combination on all samples, without folds; the best, or those that beat a
// permutation threshold.
#include <algorithm>

#include "lib/comb.h"
#include "lib/mdr.h"
#include "lib/permutation.h"
#include "lib/utils.h"
#include "src/TFmMDR.h"
#include "src/corners.h"
#include "src/exhaustive.h"
#include "src/folds.h"
#include "src/p_values.h"
#include "util/stop_signal.h"

Status TFmMDR::CalcMdrMethodALL(const MdrReader& reader, const RunSettings& settings,
                                const ResultArray& results, Checkpoint& checkpoint) {
  const bool permutation = settings.mode == 2;
  ExhaustiveRules rules;
  rules.measure = settings.measure;
  rules.tie = tie_rule(settings.tie);
  rules.missing = settings.missing + 1;
  give_exhaustive_notices(reader, settings);
  const ExhaustiveData data = make_exhaustive_data(reader, settings.case_value, rules.missing);
  give_class_notices(reader.classes(), data.n_cases, data.n_controls);
  Progress progress(settings.progress);
  for (int order = settings.minimum_order_minus_1 + 1; order <= settings.maximum_order; ++order) {
    MDRResult* result = results[static_cast<size_t>(order) - 1].get();
    rules.order = order;
    Status status;
    if (permutation) {
      // A run that goes on draws it anew: the generator gives the same numbers.
      result->null_measures =
          null_distribution(data, rules, settings.null_combinations, settings.null_permutations);
      if (stop_signal() != 0) {
        return stopped(stop_signal());
      }
      result->threshold = null_threshold(result->null_measures, settings.null_level);
      status = keep_above_threshold(data, rules, settings.block_size, result->threshold, progress, checkpoint,
                                    result);
    } else {
      status = keep_best_of_blocks(data, rules, settings.block_size, progress, checkpoint, result);
    }
    if (!status.ok()) {
      return status;
    }
    CalcWeightedCVC_ALL(settings.measure, permutation, result);
  }
  return {};
}

void TFmMDR::CalcWeightedCVC_ALL(int measure, bool permutation, MDRResult* result) {
  const auto selected = static_cast<size_t>(measure);
  std::vector<double> values;
  std::vector<double> weights;
  std::vector<const KeptCombination*> all;
  for (const std::vector<KeptCombination>& group : result->kept) {
    double largest = 0.0;
    for (const KeptCombination& kept : group) {
      largest = std::max(largest, kept.record[selected]);
    }
    for (const KeptCombination& kept : group) {
      all.push_back(&kept);
      values.push_back(kept.record[selected]);
      weights.push_back(kept.record[selected] / largest);
    }
  }
  const int n = static_cast<int>(all.size());
  const size_t element_size = sizeof(double);
  std::vector<int> ascending(all.size());
  shellsortIndex(ascending.data(), values.data(), &n, &element_size, cmp_double);

  result->top_count = std::min(result->top_count, n);
  result->clear_ranking();
  for (int rank = 0; rank < result->top_count; ++rank) {
    const auto position = static_cast<size_t>(ascending[static_cast<size_t>(n - 1 - rank)]);
    const KeptCombination& kept = *all[position];
    result->best_snps.push_back(kept.snps);
    result->best_keys.push_back(kept.key);
    result->weighted_cvc.push_back(weights[position]);
    for (size_t m = 0; m < kMeasureCount; ++m) {
      if (m != kAccuracy) {
        result->measures[m].training.push_back(kept.record[m]);
      }
    }
  }
  rank_p_values(measure, permutation, result);
}
