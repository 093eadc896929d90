// SPDX-License-Identifier: Apache-2.0
//
// A search over ranges of the enumeration: offers every combination of a range to the candidate lists of all
// folds. Two ways to count, one result.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "cpu/bit_planes.h"
#include "cpu/segments.h"
#include "device/candidate_list.h"
#include "device/commands.h"

class RangeSearch {
 public:
  virtual ~RangeSearch() = default;
  virtual void run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists) = 0;
};

// Orders up to this are counted with bit planes, higher ones sample by sample: the number of cells grows as
// 3^order and soon passes the number of samples.
inline constexpr int kMaxPlaneOrder = 6;

// Bit planes: a cell count is AND and popcount; the planes of all SNPs but the last are joined once for a run
// of combinations that differ in the last only. setup.rules.order <= kMaxPlaneOrder.
std::unique_ptr<RangeSearch> make_plane_search(const Problem& problem, const WorkerSetupCommand& setup,
                                               const Segments& segments, const BitPlanes& planes);

// Sample by sample: the occupied cells of a combination by sorting the samples' cell numbers.
std::unique_ptr<RangeSearch> make_cell_search(const Problem& problem, const WorkerSetupCommand& setup,
                                              const Segments& segments);
