// SPDX-License-Identifier: Apache-2.0
//
// What the searches send to the device, laid out on the host. Plain C++: nothing here depends on CUDA.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "cuda/plane_body.h"
#include "device/commands.h"
#include "device/segments.h"

// Where the samples are in the bit planes: by segment, each padded to chunks of kSamplesPerChunk.
struct PlaneLayout {
  explicit PlaneLayout(const Segments& by_fold);

  std::vector<PlaneSegment> segments;
  std::vector<int> sample_at;  // [chunks * kSamplesPerChunk], -1 for padding

  int n_chunks() const { return static_cast<int>(sample_at.size() / kSamplesPerChunk); }
  int n_words() const { return n_chunks() * kWordsPerChunk; }
};

// Pairs of segments that hold samples: those of the folds, and that of the samples that no fold tests.
int counted_pairs(const Segments& segments);

// The samples in the order of the score sums: position 0 is the last of the run's sample list. A transposed
// problem has no positions.
struct PositionLayout {
  PositionLayout(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments);

  std::vector<int> sample_at;    // [positions]
  std::vector<int> fold_of;      // [positions], the fold that tests the sample; n_folds for none
  std::vector<uint8_t> is_case;  // [positions]
  int width = 0;                 // folds, padded to whole kFoldLanes
  std::vector<float>
      fold_scores;  // [positions][width], 0 for the fold that tests the sample; empty without scores
};

// [k + 1][n + 1]: n choose k at [k][n]; those that do not fit stand at the largest number.
std::vector<uint64_t> binomial_table(int n, int k);

// Bit m: the count table holds cell m, numbered in base 3. For cells below 32, all that can be left out.
uint32_t counted_cell_bits(const ScoringRules& rules);
