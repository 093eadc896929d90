// SPDX-License-Identifier: Apache-2.0
#include "src/weighted_cvc.h"

#include <algorithm>
#include <map>
#include <utility>

#include "lib/comb.h"
#include "lib/utils.h"
#include "src/TFmMDR.h"
#include "src/p_values.h"

std::vector<MergedCombination> mdrColSum(const std::vector<WeightedEntry>& entries, size_t n_first) {
  std::vector<MergedCombination> distinct;
  std::map<std::vector<int>, size_t> first_position;
  for (size_t i = 0; i < entries.size(); ++i) {
    const WeightedEntry& entry = entries[i];
    const auto [known, is_new] = first_position.try_emplace(entry.snps, distinct.size());
    if (is_new || i < n_first) {
      distinct.push_back({entry.snps, entry.weight, 1, entry.record});
      continue;
    }
    MergedCombination& merged = distinct[known->second];
    std::transform(merged.record.begin(), merged.record.end(), entry.record.begin(), merged.record.begin(),
                   [](double sum, double value) { return sum + value; });
    merged.weight += entry.weight;
    ++merged.multiplicity;
  }
  return distinct;
}

namespace {

// The at most `top` combinations of the folds' lists with the largest weighted consistency in `measure`, best
// first, their records averaged over the folds that hold them.
std::vector<MergedCombination> rank_by_consistency(const std::vector<std::vector<KeptCombination>>& lists,
                                                   int measure, int top) {
  std::vector<WeightedEntry> entries;
  size_t n_first = 0;
  for (const std::vector<KeptCombination>& list : lists) {
    double largest = 0.0;
    for (const KeptCombination& kept : list) {
      largest = std::max(largest, kept.record[static_cast<size_t>(measure)]);
    }
    for (const KeptCombination& kept : list) {
      WeightedEntry& entry = entries.emplace_back();
      entry.snps = kept.snps;
      entry.weight = kept.record[static_cast<size_t>(measure)] / largest;
      std::copy_n(kept.record.begin(), kRecordSize, entry.record.begin());
    }
    if (n_first == 0) {
      n_first = entries.size();
    }
  }
  std::vector<MergedCombination> distinct = mdrColSum(entries, n_first);

  std::vector<double> weights;
  for (MergedCombination& merged : distinct) {
    for (double& value : merged.record) {
      value /= merged.multiplicity;
    }
    weights.push_back(merged.weight);
  }
  const int n = static_cast<int>(distinct.size());
  const size_t element_size = sizeof(double);
  std::vector<int> ascending(distinct.size());
  shellsortIndex(ascending.data(), weights.data(), &n, &element_size, cmp_double);

  const int n_ranked = std::min(top, n);
  std::vector<MergedCombination> ranked;
  ranked.reserve(static_cast<size_t>(std::max(n_ranked, 0)));
  for (int rank = 0; rank < n_ranked; ++rank) {
    ranked.push_back(std::move(distinct[static_cast<size_t>(ascending[static_cast<size_t>(n - 1 - rank)])]));
  }
  return ranked;
}

}  // namespace

void rank_kept_combinations(int measure, MDRResult* result) {
  const std::vector<MergedCombination> ranking =
      rank_by_consistency(result->kept, measure, result->top_count);
  result->top_count = static_cast<int>(ranking.size());
  result->clear_ranking();
  for (const MergedCombination& ranked : ranking) {
    result->best_snps.push_back(ranked.snps);
    result->best_keys.push_back(comb_key(ranked.snps.data(), static_cast<int>(ranked.snps.size())));
    result->weighted_cvc.push_back(ranked.weight);
    result->ranking_testing.push_back(ranked.record[kTestingEntry + static_cast<size_t>(measure)]);
    for (size_t m = 0; m < kMeasureCount; ++m) {
      if (m != kAccuracy) {
        result->measures[m].training.push_back(ranked.record[m]);
        result->measures[m].testing.push_back(ranked.record[kTestingEntry + m]);
      }
    }
  }
}

void TFmMDR::CalcWeightedCVC_CV(int measure, bool permutation, MDRResult* result) {
  rank_kept_combinations(measure, result);
  rank_p_values(measure, permutation, result);
}
