// SPDX-License-Identifier: Apache-2.0
#include "cuda/range_loop.h"

#include <algorithm>

#include "cuda/gmdr_search.h"
#include "cuda/mdr_search.h"
#include "cuda/occupied_cells.h"

namespace {

// Candidates that a launch can hand back; more make it be repeated in parts.
constexpr uint64_t kCandidateCapacity = 1 << 18;

// Ranks per launch at most; a grid would take more.
constexpr uint64_t kMostRanksPerLaunch = uint64_t{1} << 32;
// Of the occupied-cells search, whose threads are slow.
constexpr uint64_t kMostOccupiedRanks = 1 << 17;

// SNPs padded to whole blocks.
size_t padded_snps(const Problem& problem) {
  return static_cast<size_t>((problem.n_snps + kSnpsPerBlock - 1) / kSnpsPerBlock * kSnpsPerBlock);
}

}  // namespace

RangeLoop::Path RangeLoop::choose_path(const Problem& problem, const ScoringRules& rules) {
  if (problem.scores != nullptr) {
    return rules.order <= kMaxCudaScoreOrder ? Path::kScores : Path::kOccupied;
  }
  return rules.order <= kMaxCudaPlaneOrder ? Path::kPlanes : Path::kOccupied;
}

RangeLoop::RangeLoop(DeviceData& data, const WorkerSetupCommand& setup)
    : data_(data),
      rules_(setup.rules),
      n_folds_(static_cast<int>(setup.folds.size())),
      path_(choose_path(*data.problem, setup.rules)),
      capacity_(std::max<uint64_t>(kCandidateCapacity, setup.folds.size())) {
  const cudaStream_t stream = data_.stream.get();
  const Segments segments(*data_.problem, setup.folds);
  std::vector<int> fold_n;
  std::vector<float> thresholds;
  for (const FoldView& fold : setup.folds) {
    fold_n.push_back(static_cast<int>(fold.training.size()));
    thresholds.push_back(fold.threshold);
  }
  upload<int>(fold_n_, fold_n, "folds", stream);
  upload<float>(thresholds_, thresholds, "folds", stream);
  const std::vector<uint64_t> binomials = binomial_table(data_.problem->n_snps, rules_.order);
  upload<uint64_t>(binomials_, binomials, "binomial coefficients", stream);
  floors_.reserve(setup.folds.size(), "folds");
  candidates_.reserve(capacity_, "candidates");
  host_candidates_.reserve(capacity_, "candidates");
  counts_.reserve(2, "candidates");
  host_counts_.reserve(2, "candidates");
  most_per_launch_ = kMostRanksPerLaunch;
  if (path_ == Path::kPlanes) {
    send_planes(setup, segments);
  } else {
    send_positions(setup, segments);
  }
  // With empty lists every combination can pass in every fold.
  next_launch_ = std::min(most_per_launch_, std::max<uint64_t>(1, capacity_ / setup.folds.size()));
  // A kernel that failed is reported here, not at the first range.
  data_.stream.wait();
}

void RangeLoop::send_planes(const WorkerSetupCommand& setup, const Segments& segments) {
  const cudaStream_t stream = data_.stream.get();
  const Problem& problem = *data_.problem;
  const PlaneLayout layout(segments);
  const int n_columns = plane_columns(problem.n_snps);
  const size_t words = chunk_stride(n_columns) * static_cast<size_t>(layout.n_chunks());
  planes_.reserve(words, "bit planes");
  clear(planes_, words, stream);
  has_missing_.reserve(static_cast<size_t>(problem.n_snps), "bit planes");
  clear(has_missing_, static_cast<size_t>(problem.n_snps), stream);
  upload<PlaneSegment>(segments_, layout.segments, "segments", stream);
  plane_view_ = {planes_.data(), n_columns, segments_.data()};
  if (!problem.transposed) {
    upload<int>(sample_at_, layout.sample_at, "segments", stream);
    cuMdrBuildPlanes({data_.matrix(), problem.n_snps, n_columns, layout.n_words(), sample_at_.data(),
                      planes_.data(), has_missing_.data()},
                     stream);
  }
  const SearchKernel kernel = search_kernel_for(data_.gpu, data_.forced_search, problem, rules_, segments);
  if (kernel != SearchKernel::kThreads) {
    tiles_.emplace(kernel, problem.n_snps, setup, segments, plane_view_, has_missing_, capacity_, stream);
  }
}

void RangeLoop::send_positions(const WorkerSetupCommand& setup, const Segments& segments) {
  const cudaStream_t stream = data_.stream.get();
  const PositionLayout layout(*data_.problem, setup, segments);
  n_positions_ = static_cast<int>(layout.sample_at.size());
  width_ = layout.width;
  upload<int>(sample_at_, layout.sample_at, "sample order", stream);
  upload<int>(fold_of_, layout.fold_of, "sample order", stream);
  upload<uint8_t>(is_case_, layout.is_case, "sample order", stream);
  if (path_ == Path::kScores) {
    upload<float>(fold_scores_, layout.fold_scores, "scores by fold", stream);
    n_words_ = static_cast<int>(packed_words(n_positions_));
    const size_t words = padded_snps(*data_.problem) * static_cast<size_t>(n_words_);
    codes_.reserve(words, "genotype codes");
    clear(codes_, words, stream);
    cuGmdrBuildCodes({data_.matrix(), n_positions_, n_words_, sample_at_.data(), codes_.data()}, stream);
    return;
  }
  const size_t bytes = std::max<size_t>(1, static_cast<size_t>(n_positions_) * sizeof(PlacedSample));
  most_per_launch_ = std::clamp<uint64_t>(memory_budget() / bytes, 1, kMostOccupiedRanks);
  placed_.reserve(most_per_launch_ * static_cast<size_t>(n_positions_), "samples by cell");
}

void RangeLoop::queue_kernel(const SearchRange& range, const std::vector<CandidateList>& lists) {
  const cudaStream_t stream = data_.stream.get();
  switch (path_) {
    case Path::kPlanes:
      if (tiles_) {
        tiles_->queue(range, lists, counts_.data() + 1, stream);
      } else {
        cuMdrSearch({range, plane_view_, counted_cell_bits(rules_)}, stream);
      }
      break;
    case Path::kScores:
      cuGmdrSearch({range, codes_.data(), n_positions_, n_words_, is_case_.data(), fold_of_.data(),
                    fold_scores_.data(), width_, counted_cell_bits(rules_)},
                   stream);
      break;
    case Path::kOccupied:
      cuOccupiedSearch({range, rules_.base(), rules_.counted_cells(), data_.matrix(), n_positions_,
                        sample_at_.data(), is_case_.data(), fold_of_.data(),
                        data_.with_scores() ? data_.gmdr.SC.data() : nullptr, placed_.data()},
                       stream);
      break;
  }
}

uint64_t RangeLoop::launch(uint64_t first_rank, uint64_t n_ranks, const std::vector<CandidateList>& lists) {
  const cudaStream_t stream = data_.stream.get();
  std::vector<SearchFloor> floors;
  for (const CandidateList& list : lists) {
    floors.push_back(list.floor());
  }
  upload<SearchFloor>(floors_, floors, "folds", stream);
  clear(counts_, 2, stream);
  SearchRange range{};
  range.n_snps = data_.problem->n_snps;
  range.order = rules_.order;
  range.binomials = binomials_.data();
  range.first_rank = first_rank;
  range.n_ranks = n_ranks;
  range.n_folds = n_folds_;
  range.fold_n = fold_n_.data();
  range.thresholds = thresholds_.data();
  range.floors = floors_.data();
  range.own_thresholds = rules_.own_thresholds();
  range.tie = rules_.tie;
  range.measure = rules_.measure;
  range.sink = {candidates_.data(), counts_.data(), capacity_};
  queue_kernel(range, lists);
  cuda_safe_call(cudaMemcpyAsync(host_counts_.data(), counts_.data(), 2 * sizeof(unsigned long long),
                                 cudaMemcpyDeviceToHost, stream));
  data_.stream.wait();
  return std::max(host_counts_.data()[0], host_counts_.data()[1]);
}

void RangeLoop::collect(uint64_t n, std::vector<CandidateList>& lists) {
  if (n == 0) {
    return;
  }
  cuda_safe_call(cudaMemcpyAsync(host_candidates_.data(), candidates_.data(), n * sizeof(SearchCandidate),
                                 cudaMemcpyDeviceToHost, data_.stream.get()));
  data_.stream.wait();
  for (uint64_t i = 0; i < n; ++i) {
    const SearchCandidate& candidate = host_candidates_.data()[i];
    lists[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
  }
}

void RangeLoop::run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists) {
  if (data_.with_scores() && rules_.measure != kBalancedAccuracy) {
    // Every other entry of a score-based record is 0, which passes no floor.
    return;
  }
  for (uint64_t done = 0; done < n_ranks;) {
    const uint64_t n = std::min(next_launch_, n_ranks - done);
    const uint64_t passed = launch(first_rank + done, n, lists);
    if (passed > capacity_) {
      // One rank has at most a candidate per fold, which fits: halving ends.
      next_launch_ = std::max<uint64_t>(1, n / 2);
      continue;
    }
    collect(host_counts_.data()[0], lists);
    done += n;
    if (passed < capacity_ / 8 && n == next_launch_) {
      next_launch_ = std::min(most_per_launch_, 4 * next_launch_);
    }
  }
}
