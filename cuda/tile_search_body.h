// SPDX-License-Identifier: Apache-2.0
//
// The fused search of cross-validated runs: what a block does with a unit of tiles. It counts a tile by a
// product (tile_products.h) into shared memory, one count per segment and entry, turns the counts into what
// the folds train on, and looks at all combinations of the tile in all folds.
//
// Complete combinations of a bounded measure end at an integer: the sum over the cells of max(value, 0), with
// value = case_weight * cases - control_weight * controls of the fold's training samples. Values add up as
// counts do, so what is not counted is not derived as counts but as values. What passes goes to a list of
// survivors. Other combinations have all their cells, meet the bound with their own numbers of cases and
// controls, and the formulas of the records make their values here.
//
// A team is the block: phase(f) runs f(thread) for every thread, all of them done when it returns; any(f) is
// whether f(thread) holds for one; warps<Lane>(f) runs f(warp number, warp) for every warp. shared() is the
// block's memory. On the GPU that is tile_block.cuh, on the host tests/cuda/host_block.h. Nothing here
// depends on CUDA.
#pragma once

#include "cuda/tile_products.h"

// The plane of a genotype of a SNP within a chunk.
TAVO_HOST_DEVICE uint32_t plane_at(const PlaneView& planes, int snp, int genotype) {
  return (uint32_t)genotype * (uint32_t)genotype_stride(planes.n_columns) + (uint32_t)snp * kWordsPerChunk;
}

TAVO_HOST_DEVICE int positive(int32_t value) {
  return value > 0 ? value : 0;
}

// A class count of a pair of columns, and of one.
TAVO_HOST_DEVICE int32_t low_count(uint32_t word) {
  return (int32_t)(word & 0xffffu);
}
TAVO_HOST_DEVICE int32_t high_count(uint32_t word) {
  return (int32_t)(word >> 16);
}

// Bits that several threads may set.
TAVO_HOST_DEVICE void set_bit(uint32_t* bits, int i) {
#ifdef __CUDA_ARCH__
  atomicOr(bits + i / 32, 1u << i % 32);
#else
  bits[i / 32] |= 1u << i % 32;
#endif
}
TAVO_HOST_DEVICE bool has_bit(const uint32_t* bits, int i) {
  return (bits[i / 32] >> i % 32 & 1u) != 0;
}

TAVO_HOST_DEVICE int32_t cell_value(const FoldBound& bound, int32_t cases, int32_t controls) {
  return bound.case_weight * cases - bound.control_weight * controls;
}

TAVO_HOST_DEVICE TilePrefix make_prefix(const TileSearchArguments& a, uint64_t prefix) {
  const int n_snps = a.range.n_snps;
  const int length = a.shape.order - 1;
  TilePrefix made = {{n_snps, n_snps, n_snps}, n_snps, 0, false};
  if (prefix >= a.first_prefix + a.n_prefixes) {
    return made;
  }
  int comb[kMostTileOrder];
  // No prefix holds the last SNP.
  unrank(a.range, n_snps - 1, length, prefix, comb);
  for (int j = 0; j < length; ++j) {
    made.snps[j] = comb[j];
    made.missing = made.missing || a.has_missing[comb[j]] != 0;
  }
  made.first_last = comb[length - 1] + 1;
  comb[length] = made.first_last;
  made.rank = rank_of(a.range, comb);
  return made;
}

// Whether combination c of a tile is one of the launch's; first_snp is the tile's first last SNP.
TAVO_HOST_DEVICE bool tile_combination(const TileSearchArguments& a, const TilePrefix* prefixes,
                                       int first_snp, int c, uint64_t* rank) {
  const TilePrefix& prefix = prefixes[c / a.shape.lasts];
  const int last = first_snp + c % a.shape.lasts;
  if (last < prefix.first_last || last >= a.range.n_snps) {
    return false;
  }
  *rank = prefix.rank + (uint64_t)(last - prefix.first_last);
  if (*rank < a.range.first_rank || *rank - a.range.first_rank >= a.range.n_ranks) {
    return false;
  }
  if (a.choice == TileChoice::kAll) {
    return true;
  }
  const bool complete = !prefix.missing && a.has_missing[last] == 0;
  return complete == (a.choice == TileChoice::kComplete);
}

// The offsets of a lane's planes; the clear ones of SNP n_snps where a row or column stands for nothing.
template <typename Product, int kOrder>
TAVO_HOST_DEVICE void set_planes(const TileSearchArguments& a, const TilePrefix* prefixes, int first_snp,
                                 int first_row, int index, TileLane& lane) {
  const TileShape& shape = a.shape;
  TAVO_UNROLL
  for (int i = 0; i < kRowGroups; ++i) {
    const int row = first_row + 8 * i + lane_group(index);
    int pattern = row / shape.prefixes;
    const bool used = pattern < shape.patterns;
    const TilePrefix& prefix = prefixes[row % shape.prefixes];
    TAVO_UNROLL
    for (int j = 0; j + 1 < kOrder; ++j) {
      const int genotype = pattern % shape.row_genotypes + shape.least_row_genotype();
      pattern /= shape.row_genotypes;
      lane.row_at[i][j] =
          used ? plane_at(a.planes, prefix.snps[j], genotype) : plane_at(a.planes, a.range.n_snps, 0);
    }
  }
  TAVO_UNROLL
  for (int c = 0; c < Product::kLaneColumns; ++c) {
    const int column = Product::column(index, c);
    const int genotype = shape.complete ? 1 + column % 2 : column / shape.lasts;
    const int snp = first_snp + (shape.complete ? column / 2 : column % shape.lasts);
    lane.column_at[c] = snp < a.range.n_snps && genotype < 3 ? plane_at(a.planes, snp, genotype)
                                                             : plane_at(a.planes, a.range.n_snps, 0);
  }
}

// Counts half of a tile, rows first_row to first_row + kWarpRows - 1, in one segment.
template <typename Product, int kOrder, typename Warp>
TAVO_HOST_DEVICE void count_half_tile(const TileSearchArguments& a, Warp& warp, int segment, int first_row,
                                      uint32_t* counts) {
  warp.each([&](int, TileLane& lane) {
    TAVO_UNROLL
    for (int i = 0; i < kRowTiles * kColumnTiles * 4; ++i) {
      lane.sums[i / 4 / kColumnTiles][i / 4 % kColumnTiles][i % 4] = 0;
    }
  });
  const size_t stride = chunk_stride(a.planes.n_columns);
  const PlaneSegment in = a.planes.segments[segment];
  Product::template add_chunks<kOrder>(warp, a.planes.words + (size_t)in.first_chunk * stride, stride,
                                       (in.n_words + kWordsPerChunk - 1) / kWordsPerChunk);
  uint32_t* words = counts + segment * kTileWords;
  warp.each([&](int index, TileLane& lane) {
    TAVO_UNROLL
    for (int i = 0; i < kRowTiles * 2 * kColumnTiles; ++i) {
      const int group = i / kColumnTiles;
      const int j = i % kColumnTiles;
      const int32_t* pair = lane.sums[group / 2][j] + 2 * (group % 2);
      words[tile_word(first_row + 8 * group + lane_group(index), 4 * j + lane_member(index))] =
          Product::count(pair[0]) | Product::count(pair[1]) << 16;
    }
  });
}

// The samples of one row in one segment.
TAVO_HOST_DEVICE uint32_t count_row(const TileSearchArguments& a, const TilePrefix* prefixes, int segment,
                                    int row) {
  const TileShape& shape = a.shape;
  const TilePrefix& prefix = prefixes[row % shape.prefixes];
  uint32_t n = 0;
  const PlaneSegment in = a.planes.segments[segment];
  for (int w = 0; w < in.n_words; ++w) {
    const uint32_t* at = plane_word(a.planes, a.planes.words, in, w);
    uint32_t joined = ~0u;
    int pattern = row / shape.prefixes;
    for (int j = 0; j + 1 < shape.order; ++j, pattern /= shape.row_genotypes) {
      const int genotype = pattern % shape.row_genotypes + shape.least_row_genotype();
      joined &= at[plane_at(a.planes, prefix.snps[j], genotype)];
    }
    n += (uint32_t)count_bits(joined);
  }
  return n;
}

// The values of the rows, for all tiles of a unit. The counts are put aside where those of a tile will be.
template <typename Team>
TAVO_HOST_DEVICE void value_rows(const TileSearchArguments& a, Team& team) {
  const TileShared shared = team.shared();
  const int rows = a.shape.patterns * a.shape.prefixes;
  team.phase([&](int thread) {
    for (int i = thread; i < 2 * a.n_pairs * kTileRows; i += kTileThreads) {
      const int row = i % kTileRows;
      shared.counts[i] = row < rows ? count_row(a, shared.prefixes, i / kTileRows, row) : 0;
    }
  });
  team.phase([&](int thread) {
    for (int i = thread; i < a.range.n_folds * kTileRows; i += kTileThreads) {
      const int fold = i / kTileRows;
      const int row = i % kTileRows;
      int32_t training[2] = {0, 0};
      for (int segment = 0; segment < 2 * a.n_pairs; ++segment) {
        if (segment / 2 != fold) {
          training[segment % 2] += (int32_t)shared.counts[segment * kTileRows + row];
        }
      }
      shared.row_values[i] = cell_value(a.bounds[fold], training[1], training[0]);
    }
  });
}

// Turns the counts of a tile into what the folds train on, in place: the words of a fold's two segments
// become the values of its two columns, or the training counts of the two classes.
template <typename Team>
TAVO_HOST_DEVICE void train_tile(const TileSearchArguments& a, Team& team) {
  uint32_t* counts = team.shared().counts;
  team.phase([&](int thread) {
    for (int word = thread; word < kTileWords; word += kTileThreads) {
      // Two counts to a word: a class has at most kMostTileClass samples.
      uint32_t controls = 0;
      uint32_t cases = 0;
      for (int pair = 0; pair < a.n_pairs; ++pair) {
        controls += counts[(2 * pair) * kTileWords + word];
        cases += counts[(2 * pair + 1) * kTileWords + word];
      }
      for (int fold = 0; fold < a.range.n_folds; ++fold) {
        uint32_t* first = counts + (2 * fold) * kTileWords + word;
        uint32_t* second = first + kTileWords;
        const uint32_t training_controls = controls - *first;
        const uint32_t training_cases = cases - *second;
        if (a.shape.complete) {
          const FoldBound& bound = a.bounds[fold];
          *first = (uint32_t)cell_value(bound, low_count(training_cases), low_count(training_controls));
          *second = (uint32_t)cell_value(bound, high_count(training_cases), high_count(training_controls));
        } else {
          *first = training_controls;
          *second = training_cases;
        }
      }
    }
  });
}

// Pairs of n SNPs, and the number of one: pairs of the same first SNP follow each other.
TAVO_HOST_DEVICE uint64_t snp_pairs(int n_snps) {
  return (uint64_t)n_snps * (uint64_t)(n_snps - 1) / 2;
}
TAVO_HOST_DEVICE uint64_t pair_number(int n_snps, int first, int second) {
  const uint64_t before = (uint64_t)first * (uint64_t)(2 * (int64_t)n_snps - first - 1) / 2;
  return before + (uint64_t)(second - first - 1);
}

// The values of all nine patterns of two SNPs, cells[3 * genotype of the second + genotype of the first],
// from those of all samples, of genotypes 1 and 2 of either SNP, and of the four patterns without a genotype
// 0, which stand `stride` apart.
TAVO_HOST_DEVICE void split_pair(int32_t all, int32_t first_1, int32_t first_2, int32_t second_1,
                                 int32_t second_2, const int32_t* both, int stride, int32_t* cells) {
  cells[4] = both[0];
  cells[5] = both[stride];
  cells[7] = both[2 * stride];
  cells[8] = both[3 * stride];
  cells[3] = second_1 - cells[4] - cells[5];
  cells[6] = second_2 - cells[7] - cells[8];
  cells[1] = first_1 - cells[4] - cells[7];
  cells[2] = first_2 - cells[5] - cells[8];
  cells[0] = all - second_1 - second_2 - cells[1] - cells[2];
}

// Whether a complete combination, column pair `last` of the rows of prefix `prefix`, may pass a fold's floor.
TAVO_HOST_DEVICE bool complete_passes(const TileSearchArguments& a, const TileShared& shared, int prefix,
                                      int last, int last_snp, int fold) {
  const TileShape& shape = a.shape;
  const FoldBound& bound = a.bounds[fold];
  const int32_t* first = (const int32_t*)(shared.counts + (2 * fold) * kTileWords);
  const int32_t* second = first + kTileWords;
  const bool derives_row = shape.row_genotypes == 2;
  // What the rows leave of the columns and of all samples.
  int32_t left[3] = {0, 0, 0};
  if (derives_row) {
    const int32_t* of_snp = a.snp_values + (size_t)(2 * fold) * (size_t)a.range.n_snps + (size_t)last_snp;
    left[0] = bound.total;
    left[1] = of_snp[0];
    left[2] = of_snp[a.range.n_snps];
  }
  int32_t sum = 0;
  for (int pattern = 0, row = prefix; pattern < shape.patterns; ++pattern, row += shape.prefixes) {
    const int word = tile_word(row, last);
    const int32_t one = first[word];
    const int32_t two = second[word];
    const int32_t whole = shared.row_values[fold * kTileRows + row];
    sum += positive(one) + positive(two) + positive(whole - one - two);
    left[0] -= whole;
    left[1] -= one;
    left[2] -= two;
  }
  if (derives_row) {
    sum += positive(left[1]) + positive(left[2]) + positive(left[0] - left[1] - left[2]);
  }
  return sum >= bound.need;
}

// The same of a triple, with two genotypes to a row: from the values of its pairs and SNPs.
TAVO_HOST_DEVICE bool triple_passes(const TileSearchArguments& a, const TileShared& shared, int prefix,
                                    int last, int last_snp, int fold) {
  const int n_snps = a.range.n_snps;
  const int snps[2] = {shared.prefixes[prefix].snps[0], shared.prefixes[prefix].snps[1]};
  const int32_t* counted = (const int32_t*)(shared.counts + (2 * fold) * kTileWords);
  const int32_t* of_rows = shared.row_values + fold * kTileRows + prefix;
  const int32_t* of_snps = a.snp_values + (size_t)(2 * fold) * (size_t)n_snps;
  const uint64_t n_pairs = snp_pairs(n_snps);
  const int32_t* of_pairs = a.pair_values + 4 * (uint64_t)fold * n_pairs;
  const uint64_t pairs[2] = {pair_number(n_snps, snps[0], last_snp), pair_number(n_snps, snps[1], last_snp)};
  // The prefix's patterns, 3 * genotype of the second SNP + genotype of the first: what the last SNP's
  // genotypes 1 and 2 leave of them.
  int32_t left[9];
  split_pair(a.bounds[fold].total, of_snps[snps[0]], of_snps[n_snps + snps[0]], of_snps[snps[1]],
             of_snps[n_snps + snps[1]], of_rows, a.shape.prefixes, left);
  int32_t sum = 0;
  TAVO_UNROLL
  for (int genotype = 0; genotype < 2; ++genotype, counted += kTileWords) {
    int32_t own[4];
    TAVO_UNROLL
    for (int pattern = 0; pattern < 4; ++pattern) {
      own[pattern] = counted[tile_word(pattern * a.shape.prefixes + prefix, last)];
    }
    const int32_t* with = of_pairs + 2 * (uint64_t)genotype * n_pairs;
    int32_t cells[9];
    split_pair(of_snps[genotype * n_snps + last_snp], with[pairs[0]], with[n_pairs + pairs[0]],
               with[pairs[1]], with[n_pairs + pairs[1]], own, 1, cells);
    TAVO_UNROLL
    for (int cell = 0; cell < 9; ++cell) {
      sum += positive(cells[cell]);
      left[cell] -= cells[cell];
    }
  }
  TAVO_UNROLL
  for (int cell = 0; cell < 9; ++cell) {
    sum += positive(left[cell]);
  }
  return sum >= a.bounds[fold].need;
}

// The training counts of one cell of a combination with all cells counted.
struct CellCounts {
  int32_t controls;
  int32_t cases;
};
TAVO_HOST_DEVICE CellCounts cell_counts(const TileSearchArguments& a, const uint32_t* counts, int prefix,
                                        int last, int fold, int cell) {
  const int column = cell / a.shape.patterns * a.shape.lasts + last;
  const int word = tile_word(cell % a.shape.patterns * a.shape.prefixes + prefix, column / 2);
  const int shift = 16 * (column % 2);
  const uint32_t* first = counts + (2 * fold) * kTileWords + word;
  return {(int32_t)(first[0] >> shift & 0xffffu), (int32_t)(first[kTileWords] >> shift & 0xffffu)};
}

// Offers a combination with all cells counted for one fold.
TAVO_HOST_DEVICE void offer_counted(const TileSearchArguments& a, const uint32_t* counts, int prefix,
                                    int last, uint64_t rank, int fold) {
  const SearchRange& range = a.range;
  const int n_cells = 3 * a.shape.patterns;
  SetTotals training = {0, 0, 0};
  for (int cell = 0; cell < n_cells; ++cell) {
    const CellCounts in = cell_counts(a, counts, prefix, last, fold, cell);
    training.controls += in.controls;
    training.cases += in.cases;
  }
  const float threshold = judge_by(range, fold, &training);
  if (a.bounded) {
    const bool plain = has_plain_weights(range.measure);
    FoldBound own{};
    own.case_weight = plain ? 1 : training.controls;
    own.control_weight = plain ? 1 : training.cases;
    int32_t sum = 0;
    for (int cell = 0; cell < n_cells; ++cell) {
      const CellCounts in = cell_counts(a, counts, prefix, last, fold, cell);
      sum += positive(cell_value(own, in.cases, in.controls));
    }
    const float need =
        bound_need(a.bounds[fold].terms, (float)training.cases, (float)training.controls, (float)training.n);
    if ((float)sum < need) {
      return;
    }
  }
  Confusion table = {0, 0, 0, 0};
  float chi_square = 0.0f;
  for (int cell = 0; cell < n_cells; ++cell) {
    const CellCounts in = cell_counts(a, counts, prefix, last, fold, cell);
    const int label = cell_label(cell_ratio(in.controls, in.cases, threshold), threshold, range.tie);
    add_cell(&table, label, in.controls, in.cases);
    if (range.measure == kChiSquare) {
      chi_square = add_chi_square(chi_square, in.controls, in.cases, training);
    }
  }
  offer(range, rank, fold, training_measure(range.measure, table, training, chi_square));
}

// All combinations of a trained tile.
template <int kOrder, typename Team>
TAVO_HOST_DEVICE void judge_tile(const TileSearchArguments& a, Team& team, int first_snp) {
  const TileShape& shape = a.shape;
  const TileShared shared = team.shared();
  team.phase([&](int thread) {
    const int folds_at_once = kTileThreads / shape.side_by_side;
    for (int c = thread % shape.side_by_side; c < shape.combinations; c += shape.side_by_side) {
      uint64_t rank = 0;
      if (!tile_combination(a, shared.prefixes, first_snp, c, &rank)) {
        continue;
      }
      const int prefix = c / shape.lasts;
      const int last = c % shape.lasts;
      for (int fold = thread / shape.side_by_side; fold < a.range.n_folds; fold += folds_at_once) {
        if (!shape.complete) {
          offer_counted(a, shared.counts, prefix, last, rank, fold);
          continue;
        }
        const int last_snp = first_snp + last;
        const bool of_pairs = kOrder == 3 && shape.row_genotypes == 2;
        if (of_pairs ? triple_passes(a, shared, prefix, last, last_snp, fold)
                     : complete_passes(a, shared, prefix, last, last_snp, fold)) {
          set_bit(shared.passes, c);
          break;
        }
      }
    }
  });
  if (!shape.complete) {
    return;
  }
  team.phase([&](int thread) {
    for (int c = thread; c < shape.combinations; c += kTileThreads) {
      uint64_t rank = 0;
      if (has_bit(shared.passes, c) && tile_combination(a, shared.prefixes, first_snp, c, &rank)) {
        append(a.survivors, rank);
      }
    }
  });
  team.phase([&](int thread) {
    if (thread < kMostTileCombinations / 32) {
      shared.passes[thread] = 0;
    }
  });
}

// Searches one unit, below tile_units(a).
template <typename Product, int kOrder, typename Team>
TAVO_HOST_DEVICE void search_unit(const TileSearchArguments& a, Team& team, uint64_t unit) {
  const TileShape& shape = a.shape;
  const TileShared shared = team.shared();
  const uint64_t groups = tile_groups(a);
  const uint64_t first_prefix = a.first_prefix + unit / groups * (uint64_t)shape.prefixes;
  const int first_tile = a.first_last_tile + (int)(unit % groups) * a.tiles_per_unit;
  const int tiles_end = a.first_last_tile + a.n_last_tiles;
  const int end_tile = first_tile + a.tiles_per_unit < tiles_end ? first_tile + a.tiles_per_unit : tiles_end;
  team.phase([&](int thread) {
    if (thread < shape.prefixes) {
      shared.prefixes[thread] = make_prefix(a, first_prefix + (uint64_t)thread);
    }
    if (thread < kMostTileCombinations / 32) {
      shared.passes[thread] = 0;
    }
  });
  bool rows_are_valued = false;
  for (int tile = first_tile; tile < end_tile; ++tile) {
    const int first_snp = tile * shape.lasts;
    const bool used = team.any([&](int thread) {
      bool found = false;
      for (int c = thread; c < shape.combinations && !found; c += kTileThreads) {
        uint64_t rank = 0;
        found = tile_combination(a, shared.prefixes, first_snp, c, &rank);
      }
      return found;
    });
    if (!used) {
      continue;
    }
    if (shape.complete && !rows_are_valued) {
      value_rows(a, team);
      rows_are_valued = true;
    }
    team.warps([&](int number, auto& warp) {
      const int first_row = number % 2 * kWarpRows;
      warp.each([&](int index, TileLane& lane) {
        set_planes<Product, kOrder>(a, shared.prefixes, first_snp, first_row, index, lane);
      });
      for (int segment = number / 2; segment < 2 * a.n_pairs; segment += kTileWarps / 2) {
        count_half_tile<Product, kOrder>(a, warp, segment, first_row, shared.counts);
      }
    });
    train_tile(a, team);
    judge_tile<kOrder>(a, team, first_snp);
  }
}
