// SPDX-License-Identifier: Apache-2.0
//
// The host's side of the fused search: which launches cover a range of ranks, and what they read.
#pragma once

#include <cstdint>
#include <vector>

#include "cuda/device_buffer.h"
#include "cuda/search_kernel.h"
#include "cuda/tile_search_body.h"
#include "device/candidate_list.h"
#include "device/commands.h"
#include "device/segments.h"

class TileLoop {
 public:
  // planes and has_missing, [n_snps], are on the device and outlive this; they are complete once the stream
  // has come there. For runs that tiles_fit. Throws a CudaError.
  TileLoop(SearchKernel kernel, int n_snps, const WorkerSetupCommand& setup, const Segments& segments,
           const PlaneView& planes, const DeviceBuffer<uint8_t>& has_missing, uint64_t capacity,
           cudaStream_t stream);

  // Queues the search of a range for the floors of the lists: candidates to the range's sink, and the exact
  // values of what passed a bound by a launch behind. count: on the device, cleared; counts the combinations
  // that passed, and where it ends above the capacity candidates are lacking.
  void queue(const SearchRange& range, const std::vector<CandidateList>& lists, unsigned long long* count,
             cudaStream_t stream);

 private:
  void make_values(int n_snps, cudaStream_t stream);
  void send_bounds(const std::vector<CandidateList>& lists, cudaStream_t stream);
  void queue_shape(TileSearchArguments arguments, bool complete, TileChoice choice,
                   cudaStream_t stream) const;

  const SearchKernel kernel_;
  const ScoringRules rules_;
  const PlaneView planes_;
  const int n_pairs_;
  const uint64_t capacity_;  // survivors per launch
  const uint8_t* has_missing_;
  bool some_complete_ = false;  // of the SNPs
  bool some_missing_ = false;
  bool bounded_ = false;
  bool has_pair_values_ = false;

  std::vector<int32_t> training_cases_;  // [folds]
  std::vector<int32_t> training_controls_;
  std::vector<int32_t> fold_n_;
  DeviceBuffer<FoldBound> bounds_;
  DeviceBuffer<int32_t> snp_values_;
  DeviceBuffer<int32_t> pair_values_;  // of order 3, where the device has room for them
  DeviceBuffer<uint64_t> survivors_;
};
