// SPDX-License-Identifier: Apache-2.0
//
// A search over ranges of ranks, all folds at once: the device's side of the search path.
#pragma once

#include <optional>
#include <vector>

#include "cuda/device_data.h"
#include "cuda/occupied_search_body.h"
#include "cuda/plane_body.h"
#include "cuda/score_body.h"
#include "cuda/search_layout.h"
#include "cuda/tile_loop.h"
#include "device/candidate_list.h"
#include "device/commands.h"

class RangeLoop {
 public:
  // Lays out the samples and sends them to the device. data outlives the loop. Throws a CudaError.
  RangeLoop(DeviceData& data, const WorkerSetupCommand& setup);

  // Offers every combination of the range to the lists, one per fold, that passes their floors. In as many
  // launches as the candidate buffer asks for.
  void run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists);

 private:
  enum class Path { kPlanes, kScores, kOccupied };

  static Path choose_path(const Problem& problem, const ScoringRules& rules);
  void send_planes(const WorkerSetupCommand& setup, const Segments& segments);
  void send_positions(const WorkerSetupCommand& setup, const Segments& segments);

  // Searches one range at once; returns the number of candidates, or of combinations that passed a bound
  // where those are more. More than capacity_: some are lost.
  uint64_t launch(uint64_t first_rank, uint64_t n_ranks, const std::vector<CandidateList>& lists);
  void queue_kernel(const SearchRange& range, const std::vector<CandidateList>& lists);
  void collect(uint64_t n, std::vector<CandidateList>& lists);

  DeviceData& data_;
  const ScoringRules rules_;
  const int n_folds_;
  const Path path_;
  const uint64_t capacity_;  // candidates per launch
  uint64_t most_per_launch_ = 0;
  uint64_t next_launch_ = 0;  // ranks; follows how many of them pass

  DeviceBuffer<uint64_t> binomials_;
  DeviceBuffer<int> fold_n_;
  DeviceBuffer<float> thresholds_;
  DeviceBuffer<SearchFloor> floors_;
  DeviceBuffer<SearchCandidate> candidates_;
  DeviceBuffer<unsigned long long> counts_;  // candidates, and combinations that passed a bound
  PageLockedBuffer<SearchCandidate> host_candidates_;
  PageLockedBuffer<unsigned long long> host_counts_;

  // kPlanes.
  DeviceBuffer<uint32_t> planes_;
  DeviceBuffer<PlaneSegment> segments_;
  DeviceBuffer<uint8_t> has_missing_;
  PlaneView plane_view_{};
  std::optional<TileLoop> tiles_;  // where the fused search takes the run
  // kScores, kOccupied.
  int n_positions_ = 0;
  int n_words_ = 0;  // of the codes of a SNP
  int width_ = 0;
  DeviceBuffer<uint32_t> codes_;
  DeviceBuffer<int> sample_at_;
  DeviceBuffer<int> fold_of_;
  DeviceBuffer<uint8_t> is_case_;
  DeviceBuffer<float> fold_scores_;
  DeviceBuffer<PlacedSample> placed_;
};
