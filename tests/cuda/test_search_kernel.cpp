// SPDX-License-Identifier: Apache-2.0
#include "cuda/search_kernel.h"

#include <gtest/gtest.h>

#include <vector>

#include "cuda/tile_shape.h"
#include "lib/mdr.h"

namespace {

constexpr GpuTraits kHopper = {9, 0, 227 << 10};

// One fold of `testing` samples and as many in training, alternating classes.
struct Samples {
  explicit Samples(int testing, int n_folds = 1) : classes(2 * static_cast<size_t>(testing)) {
    for (int s = 0; s < 2 * testing; ++s) {
      classes[static_cast<size_t>(s)] = static_cast<uint8_t>(s / 2 % 2);
      (s % 2 == 0 ? test : train).push_back(s);
    }
    problem.n_samples = 2 * testing;
    problem.n_snps = 100;
    problem.classes = classes.data();
    folds.assign(static_cast<size_t>(n_folds), FoldView{train, {}, 1.0f});
    folds[0].testing = test;
  }

  SearchKernel kernel(GpuTraits gpu, ScoringRules rules, std::optional<SearchKernel> forced = {}) const {
    return search_kernel_for(gpu, forced, problem, rules, Segments(problem, folds));
  }

  std::vector<uint8_t> classes;
  std::vector<int> test;
  std::vector<int> train;
  Problem problem;
  std::vector<FoldView> folds;
};

TEST(SearchKernelFor, FollowsTheGpu) {
  const Samples samples(50);
  const ScoringRules rules = {2, kMissingNone, 1, 0};
  EXPECT_EQ(samples.kernel({7, 5, 64 << 10}, rules), SearchKernel::kPopcountTiles);
  EXPECT_EQ(samples.kernel({8, 0, 163 << 10}, rules), SearchKernel::kBinaryTiles);
  EXPECT_EQ(samples.kernel({8, 9, 99 << 10}, rules), SearchKernel::kBinaryTiles);
  EXPECT_EQ(samples.kernel(kHopper, rules), SearchKernel::kBinaryTiles);
  EXPECT_EQ(samples.kernel({10, 0, 227 << 10}, rules), SearchKernel::kByteTiles);
  EXPECT_EQ(samples.kernel({12, 0, 99 << 10}, rules), SearchKernel::kByteTiles);
  EXPECT_EQ(samples.kernel(kHopper, rules, SearchKernel::kPopcountTiles), SearchKernel::kPopcountTiles);
}

TEST(SearchKernelFor, LeavesWhatTheTilesDoNotTake) {
  const Samples samples(50);
  for (int order = 1; order <= 8; ++order) {
    const bool tiles = order >= 2 && order <= 4;
    EXPECT_EQ(samples.kernel(kHopper, {order, kMissingNone, 1, 0}) != SearchKernel::kThreads, tiles) << order;
    // Tables of base 4 drop cells of orders 2 and 3.
    EXPECT_EQ(samples.kernel(kHopper, {order, kMissingLevel, 1, 0}) != SearchKernel::kThreads, order == 4)
        << order;
  }
  EXPECT_EQ(samples.kernel({9, 0, 1000}, {2, kMissingNone, 1, 0}), SearchKernel::kThreads);
  // A class of 65,536 does not fit 16 bits.
  EXPECT_EQ(Samples(65534).kernel(kHopper, {2, kMissingNone, 1, 0}), SearchKernel::kBinaryTiles);
  EXPECT_EQ(Samples(65536).kernel(kHopper, {2, kMissingNone, 1, 0}), SearchKernel::kThreads);
  EXPECT_EQ(Samples(65536).kernel(kHopper, {2, kMissingNone, 1, 0}, SearchKernel::kByteTiles),
            SearchKernel::kThreads);
}

TEST(SearchKernelFor, TenFoldsFitEveryGpuFrom8On) {
  EXPECT_LE(tile_shared_bytes(10, 10), size_t{99} << 10);
  // Two blocks to a multiprocessor with 228 KiB, of which each block takes one more.
  EXPECT_LE(2 * (tile_shared_bytes(11, 10) + 1024), size_t{228} << 10);
}

// Columns and rows that a shape uses are within the tile, and every pair of an even and an odd row of a
// product has words of its own in the banks.
TEST(TileShape, FitsTheTile) {
  for (int order = kLeastTileOrder; order <= kMostTileOrder; ++order) {
    for (const int kind : {0, 1, 2}) {
      const bool complete = kind > 0;
      const TileShape shape = tile_shape(order, complete, kind > 1);
      EXPECT_LE(shape.patterns * shape.prefixes, kTileRows);
      EXPECT_LE(shape.lasts * (complete ? 2 : 3), kTileColumns);
      EXPECT_LE(shape.combinations, kMostTileCombinations);
      EXPECT_LE(shape.prefixes, kMostTilePrefixes);
      EXPECT_EQ(kTileThreads % shape.side_by_side, 0);
      EXPECT_TRUE(shape.side_by_side >= shape.combinations || shape.side_by_side == kTileThreads);
    }
  }
  EXPECT_EQ(tile_shape(2, true, false).patterns, 2);
  EXPECT_EQ(tile_shape(2, false, false).patterns, 3);
  EXPECT_EQ(tile_shape(3, true, false).patterns, 9);
  EXPECT_EQ(tile_shape(3, true, true).patterns, 4);
  EXPECT_EQ(tile_shape(3, false, true).patterns, 9);
  EXPECT_EQ(tile_shape(4, true, true).patterns, 27);
}

TEST(TileWord, HasAPlaceForEveryCountWithoutConflicts) {
  std::vector<int> seen(kTileWords, 0);
  for (int row = 0; row < kTileRows; ++row) {
    for (int pair = 0; pair < kTileColumns / 2; ++pair) {
      ++seen[static_cast<size_t>(tile_word(row, pair))];
    }
  }
  for (const int n : seen) {
    EXPECT_EQ(n, 1);
  }
  // What the lanes of a product store at once: eight rows, four neighbouring words.
  for (int first = 0; first < kTileRows; first += 8) {
    for (int j = 0; j < 4; ++j) {
      uint32_t banks = 0;
      for (int lane = 0; lane < kWarpLanes; ++lane) {
        banks |= 1u << tile_word(first + lane / 4, 4 * j + lane % 4) % 32;
      }
      EXPECT_EQ(banks, ~0u);
    }
  }
}

}  // namespace
