// SPDX-License-Identifier: Apache-2.0
//
// The tiles of the fused search and what its kernels read. A tile is a few prefixes (all SNPs of a
// combination but the last) times a few neighbouring last SNPs. Its counts are a matrix product: a row is the
// samples that have one pattern of genotypes at one prefix, a column those that have one genotype at one last
// SNP, and an entry counts the samples of a segment in both.
//
// Where no SNP of a combination has a missing genotype, cells need not all be counted: genotype 0 of the last
// SNP is what the others leave of the row; of pairs and triples genotype 0 of a SNP of the prefix is what the
// others leave of the column, or of the pair that the other two SNPs make. Other combinations, and measures
// without a bound, have all cells counted. So there are two shapes, and a launch of each covers a range.
//
// As in table_body.h, arrays are the device's, and nothing here depends on CUDA.
#pragma once

#include "cuda/plane_body.h"
#include "lib/search_bound.h"

constexpr int kTileRows = 64;
constexpr int kTileColumns = 32;
constexpr int kTileThreads = 256;
constexpr int kWarpLanes = 32;
constexpr int kTileWarps = kTileThreads / kWarpLanes;

// The orders of the fused search; with 81 patterns a prefix of order 5 would not fit the rows.
constexpr int kLeastTileOrder = 2;
constexpr int kMostTileOrder = 4;
constexpr int kMaxPrefix = kMostTileOrder - 1;

// Samples of a segment that a 16-bit count takes, and of a class.
constexpr int kMostTileClass = 65535;

// Last SNPs that follow each other with the same prefixes: what a block works on before it takes new
// prefixes.
constexpr int kMostTilesPerUnit = 16;

struct TileShape {
  int order;
  bool complete;      // no combination has a missing genotype: genotype 0 of the last SNP is not counted
  int row_genotypes;  // of each SNP of a prefix: 3, or 2 where genotype 0 is not counted
  int patterns;       // rows of a prefix; row = pattern * prefixes + prefix
  int prefixes;
  int lasts;         // complete: column = 2 * last + genotype - 1; otherwise column = genotype * lasts + last
  int combinations;  // prefixes * lasts; combination = prefix * lasts + last
  // Threads that take a combination each, for one fold; what the block has beyond these take other folds.
  int side_by_side;

  constexpr int least_row_genotype() const { return 3 - row_genotypes; }
};

// order: kLeastTileOrder to kMostTileOrder.
// pair_values: those of all pairs are at hand; order 3.
constexpr TileShape tile_shape(int order, bool complete, bool pair_values) {
  TileShape shape{};
  shape.order = order;
  shape.complete = complete;
  shape.row_genotypes = complete && (order == 2 || (order == 3 && pair_values)) ? 2 : 3;
  shape.patterns = 1;
  for (int j = 1; j < order; ++j) {
    shape.patterns *= shape.row_genotypes;
  }
  shape.prefixes = kTileRows / shape.patterns;
  shape.lasts = kTileColumns / (complete ? 2 : 3);
  shape.combinations = shape.prefixes * shape.lasts;
  shape.side_by_side = kWarpLanes;
  while (shape.side_by_side < shape.combinations && shape.side_by_side < kTileThreads) {
    shape.side_by_side *= 2;
  }
  return shape;
}

// The most combinations of a tile of any shape.
constexpr int kMostTileCombinations = 512;
constexpr int kMostTilePrefixes = 32;

// What a fold asks of a combination of a bounded measure.
struct FoldBound {
  // Of complete combinations: the value of a cell is case_weight * cases - control_weight * controls of the
  // fold's training samples, total the value of all samples, need the least sum of the positive ones that
  // passes.
  int32_t case_weight;
  int32_t control_weight;
  int32_t total;
  int32_t need;
  BoundTerms terms;  // of the others
};

// Which combinations a launch takes.
enum class TileChoice { kAll, kComplete, kIncomplete };

struct TileSearchArguments {
  SearchRange range;
  TileShape shape;
  TileChoice choice;
  bool bounded;  // the measure has a bound that holds for these samples
  PlaneView planes;
  int n_pairs;  // of segments: those of the folds, and the untested samples where there are any
  const uint8_t* has_missing;  // [n_snps]
  const FoldBound* bounds;     // [n_folds]; bounded
  // Of shapes with two genotypes to a row: [n_folds][2][n_snps] the values of genotypes 1 and 2 of each SNP;
  // of triples [n_folds][4][pairs] those of each pair, pattern (genotype of the first - 1) + 2 * (of the
  // second - 1).
  const int32_t* snp_values;
  const int32_t* pair_values;
  // Ranks of complete combinations whose bound passes; their exact values are another launch's.
  RankSink survivors;
  // The prefixes of the range in the order of the enumeration, and the tiles of last SNPs that it can touch.
  uint64_t first_prefix;
  uint64_t n_prefixes;
  int first_last_tile;
  int n_last_tiles;
  int tiles_per_unit;
};

// Units of work of a launch, each `tiles_per_unit` tiles of the same prefixes.
constexpr uint64_t tile_groups(const TileSearchArguments& a) {
  return (static_cast<uint64_t>(a.n_last_tiles) + static_cast<uint64_t>(a.tiles_per_unit) - 1) /
         static_cast<uint64_t>(a.tiles_per_unit);
}
constexpr uint64_t tile_units(const TileSearchArguments& a) {
  const auto prefixes = static_cast<uint64_t>(a.shape.prefixes);
  return (a.n_prefixes + prefixes - 1) / prefixes * tile_groups(a);
}

// One prefix of a tile. Behind the last prefix of the range: no SNPs (number n_snps), no last SNPs.
struct TilePrefix {
  int snps[kMaxPrefix];
  int first_last;  // last SNPs run from here to n_snps - 1
  uint64_t rank;   // of the combination with first_last
  bool missing;    // one of its SNPs has a missing genotype
};

// The shared memory of a block.
struct TileShared {
  // [2 * n_pairs][kTileRows][kTileColumns / 2] words of two columns' counts; see tile_word.
  uint32_t* counts;
  int32_t* row_values;   // [n_folds][kTileRows], complete shapes
  TilePrefix* prefixes;  // [prefixes]
  uint32_t* passes;      // [kMostTileCombinations / 32], a bit each
};

constexpr int kTileWords = kTileRows * kTileColumns / 2;
constexpr size_t kTilePrefixBytes = kMostTilePrefixes * sizeof(TilePrefix);

constexpr size_t tile_shared_bytes(int n_pairs, int n_folds) {
  return kTilePrefixBytes + static_cast<size_t>(2 * n_pairs) * kTileWords * sizeof(uint32_t) +
         static_cast<size_t>(n_folds) * kTileRows * sizeof(int32_t) + kMostTileCombinations / 8;
}

// memory: tile_shared_bytes bytes, aligned to 8.
TAVO_HOST_DEVICE TileShared tile_shared(unsigned char* memory, int n_pairs, int n_folds) {
  TileShared shared;
  shared.prefixes = (TilePrefix*)memory;
  shared.counts = (uint32_t*)(memory + kTilePrefixBytes);
  shared.row_values = (int32_t*)(shared.counts + (size_t)(2 * n_pairs) * kTileWords);
  shared.passes = (uint32_t*)(shared.row_values + (size_t)n_folds * kTileRows);
  return shared;
}

// Where the counts of columns 2 * pair and 2 * pair + 1 of a row stand. Two rows fill all banks; turned by
// the row, so that neither the lanes of a product, eight rows by four words, nor neighbouring combinations
// meet in a bank.
TAVO_HOST_DEVICE int tile_word(int row, int pair) {
  return row * (kTileColumns / 2) + (pair ^ (row >> 1 & 3) << 2);
}
