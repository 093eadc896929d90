// SPDX-License-Identifier: Apache-2.0
#include "cuda/tile_loop.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "cuda/mdr_search.h"
#include "cuda/mdr_tiles.h"
#include "cuda/search_layout.h"
#include "lib/comb_rank.h"

namespace {

// Tau-c's product of the sample number with itself wraps around beyond this, and no longer grows with D.
constexpr int64_t kMostTauCSamples = 46340;

// Launches of more tiles than this take several to a unit: the work of a prefix is then shared by them.
constexpr uint64_t kUnitsWanted = 2048;

// The bound's sums must fit 32 bits.
bool bound_holds(const ScoringRules& rules, int64_t cases, int64_t controls, int64_t samples) {
  return has_bound(rules.measure, rules.tie) && cases * controls <= std::numeric_limits<int32_t>::max() &&
         (rules.measure != kTauC || samples <= kMostTauCSamples);
}

}  // namespace

TileLoop::TileLoop(SearchKernel kernel, int n_snps, const WorkerSetupCommand& setup, const Segments& segments,
                   const PlaneView& planes, const DeviceBuffer<uint8_t>& has_missing, uint64_t capacity,
                   cudaStream_t stream)
    : kernel_(kernel),
      rules_(setup.rules),
      planes_(planes),
      n_pairs_(counted_pairs(segments)),
      capacity_(capacity),
      has_missing_(has_missing.data()) {
  int32_t all[2] = {0, 0};
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    all[segment % 2] += static_cast<int32_t>(segments.samples[segment].size());
  }
  for (size_t f = 0; f < setup.folds.size(); ++f) {
    training_controls_.push_back(all[0] - static_cast<int32_t>(segments.samples[2 * f].size()));
    training_cases_.push_back(all[1] - static_cast<int32_t>(segments.samples[2 * f + 1].size()));
    fold_n_.push_back(static_cast<int32_t>(setup.folds[f].training.size()));
  }
  bounded_ = bound_holds(rules_, all[1], all[0], int64_t{all[0]} + all[1]);

  std::vector<uint8_t> missing(static_cast<size_t>(n_snps));
  cuda_safe_call(
      cudaMemcpyAsync(missing.data(), has_missing.data(), missing.size(), cudaMemcpyDeviceToHost, stream));
  cuda_safe_call(cudaStreamSynchronize(stream));
  some_missing_ = std::find(missing.begin(), missing.end(), 1) != missing.end();
  some_complete_ = std::find(missing.begin(), missing.end(), 0) != missing.end();

  if (bounded_ && some_complete_) {
    survivors_.reserve(capacity_, "candidates");
    if (rules_.order <= 3 && n_snps >= rules_.order) {
      send_bounds(std::vector<CandidateList>(setup.folds.size(), CandidateList(1)), stream);
      make_values(n_snps, stream);
    }
  }
}

void TileLoop::make_values(int n_snps, cudaStream_t stream) {
  const size_t n_folds = training_cases_.size();
  ValueArguments arguments{planes_, n_snps, n_pairs_, static_cast<int>(n_folds), bounds_.data(), nullptr};
  snp_values_.reserve(2 * n_folds * static_cast<size_t>(n_snps), "values of SNPs");
  arguments.values = snp_values_.data();
  cuMdrSnpValues(arguments, stream);
  const size_t of_pairs = 4 * n_folds * snp_pairs(n_snps);
  if (rules_.order == 3 && of_pairs * sizeof(int32_t) <= memory_budget()) {
    pair_values_.reserve(of_pairs, "values of pairs");
    arguments.values = pair_values_.data();
    cuMdrPairValues(arguments, stream);
    has_pair_values_ = true;
  }
}

void TileLoop::send_bounds(const std::vector<CandidateList>& lists, cudaStream_t stream) {
  constexpr auto kLeast = static_cast<double>(std::numeric_limits<int32_t>::min());
  constexpr auto kMost = static_cast<double>(std::numeric_limits<int32_t>::max());
  std::vector<FoldBound> bounds;
  for (size_t f = 0; f < lists.size(); ++f) {
    const int32_t cases = training_cases_[f];
    const int32_t controls = training_controls_[f];
    const bool plain = has_plain_weights(rules_.measure);
    FoldBound bound{};
    bound.case_weight = plain ? 1 : controls;
    bound.control_weight = plain ? 1 : cases;
    bound.total = cell_value(bound, cases, controls);
    bound.terms = bound_terms(rules_.measure, lists[f].floor().value);
    const int32_t n = rules_.own_thresholds() ? cases + controls : fold_n_[f];
    const float need = bound_need(bound.terms, static_cast<float>(cases), static_cast<float>(controls),
                                  static_cast<float>(n));
    bound.need = static_cast<int32_t>(std::clamp(std::floor(static_cast<double>(need)), kLeast, kMost));
    bounds.push_back(bound);
  }
  upload<FoldBound>(bounds_, bounds, "folds", stream);
}

void TileLoop::queue_shape(TileSearchArguments arguments, bool complete, TileChoice choice,
                           cudaStream_t stream) const {
  const SearchRange& range = arguments.range;
  arguments.shape = tile_shape(rules_.order, complete, has_pair_values_);
  arguments.choice = choice;
  const int length = rules_.order - 1;
  int first[kMostTileOrder];
  int last[kMostTileOrder];
  comb_unrank(range.n_snps, rules_.order, range.first_rank, first);
  comb_unrank(range.n_snps, rules_.order, range.first_rank + range.n_ranks - 1, last);
  arguments.first_prefix = comb_rank(range.n_snps - 1, length, first);
  arguments.n_prefixes = comb_rank(range.n_snps - 1, length, last) - arguments.first_prefix + 1;
  // First SNPs rise along the range, and last SNPs are at least this far behind them.
  const bool one_prefix = arguments.n_prefixes == 1;
  const int lowest = one_prefix ? first[length] : first[0] + length;
  const int highest = one_prefix ? last[length] : range.n_snps - 1;
  arguments.first_last_tile = lowest / arguments.shape.lasts;
  arguments.n_last_tiles = highest / arguments.shape.lasts - arguments.first_last_tile + 1;
  arguments.tiles_per_unit = 1;
  const uint64_t tiles = tile_units(arguments);
  arguments.tiles_per_unit =
      static_cast<int>(std::clamp<uint64_t>(tiles / kUnitsWanted, 1, kMostTilesPerUnit));
  cuMdrSearchTiles(kernel_, arguments, stream);
}

void TileLoop::queue(const SearchRange& range, const std::vector<CandidateList>& lists,
                     unsigned long long* count, cudaStream_t stream) {
  TileSearchArguments arguments{};
  arguments.range = range;
  arguments.bounded = bounded_;
  arguments.planes = planes_;
  arguments.n_pairs = n_pairs_;
  arguments.has_missing = has_missing_;
  arguments.survivors = {survivors_.data(), count, capacity_};
  if (!bounded_) {
    queue_shape(arguments, false, TileChoice::kAll, stream);
    return;
  }
  send_bounds(lists, stream);
  arguments.bounds = bounds_.data();
  arguments.snp_values = snp_values_.data();
  arguments.pair_values = pair_values_.data();
  if (some_missing_) {
    queue_shape(arguments, false, some_complete_ ? TileChoice::kIncomplete : TileChoice::kAll, stream);
  }
  if (some_complete_) {
    queue_shape(arguments, true, some_missing_ ? TileChoice::kComplete : TileChoice::kAll, stream);
    cuMdrSearchListed({range, planes_, ~0u}, arguments.survivors, stream);
  }
}
