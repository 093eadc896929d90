// SPDX-License-Identifier: Apache-2.0
//
// A search over ranges of the enumeration: offers every combination of a range to the candidate lists of all
// folds. Two ways to count, one result.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "cpu/bit_planes.h"
#include "cpu/lane_planes.h"
#include "cpu/sample_rows.h"
#include "cpu/simd.h"
#include "device/candidate_list.h"
#include "device/commands.h"
#include "device/segments.h"

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

// Lanes: the last SNP's planes interleaved, a combination per vector lane; upper bounds turn most
// combinations away before their exact value is computed: a first one of 512 combinations at once in small
// integers, or exact counts of them (rows; null for none), a second one of 16. For what lane_search_fits.
bool lane_search_fits(const ScoringRules& rules, const Segments& segments);
std::unique_ptr<RangeSearch> make_lane_search(const Problem& problem, const WorkerSetupCommand& setup,
                                              const Segments& segments, const LanePlanes& planes,
                                              const SampleRows* rows, InstructionSet instruction_set);

// The rows of the first bound, where it applies (measures that have one, classes of sizes that suit it, few
// missing genotypes), or of counts; null for other orders than they are made for, and transposed problems.
// threads: that share the work.
std::unique_ptr<const SampleRows> make_sample_rows(const Problem& problem, const WorkerSetupCommand& setup,
                                                   const Segments& segments, const LanePlanes& planes,
                                                   size_t threads = 1);

// Sample by sample: the occupied cells of a combination by sorting the samples' cell numbers.
std::unique_ptr<RangeSearch> make_cell_search(const Problem& problem, const WorkerSetupCommand& setup,
                                              const Segments& segments);

// What a score-based search reads, laid out in the order of the sums: positions run from the last of the
// run's sample list to the first. A transposed problem has no genotypes here.
struct ScoreData {
  // setup.samples is the run's sample list; the problem has scores.
  ScoreData(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments);

  size_t n_samples;
  size_t n_segments;
  size_t width;                        // folds, padded to whole lanes
  std::vector<size_t> segment_of;      // [n_samples]
  std::vector<float> scores;           // [n_samples][width], 0 for the fold that tests the sample
  std::vector<uint8_t> genotype_rows;  // [snp][n_samples]

  const uint8_t* genotypes(int snp) const {
    return genotype_rows.data() + static_cast<size_t>(snp) * n_samples;
  }
};

// Score-based: the sums of all folds side by side, one lane per fold, each in the order of the record path.
// Adding 0 for the fold that leaves a sample out changes nothing.
std::unique_ptr<RangeSearch> make_score_search(const Problem& problem, const WorkerSetupCommand& setup,
                                               const ScoreData& data);

// The same with bit planes, two combinations at a time; for what score_planes_fit. Places of samples in the
// planes are in the order of the sums, controls first. A transposed problem has no genotypes here, either.
struct ScorePlanes {
  ScorePlanes(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments);

  size_t words = 0;
  size_t case_word = 0;            // first word of the cases
  size_t fold_groups = 0;          // of kFoldLanes folds
  std::vector<float> scores;       // [64 * words]
  std::vector<uint16_t> training;  // [64 * words][fold_groups]: a bit for each fold that trains on the sample
  std::vector<uint64_t> planes;    // [snp][3][words]

  const uint64_t* of_snp(int snp) const { return planes.data() + static_cast<size_t>(snp) * 3 * words; }
};

bool score_planes_fit(const ScoringRules& rules);
std::unique_ptr<RangeSearch> make_score_plane_search(const Problem& problem, const WorkerSetupCommand& setup,
                                                     const ScorePlanes& planes,
                                                     InstructionSet instruction_set);
