// SPDX-License-Identifier: Apache-2.0
//
// The inner loops of the lane search, one set of functions per instruction set. Plain pointers only: the
// files behind them are compiled for wider processors than the rest.
//
// Lanes are combinations: one prefix (all SNPs but the last) with kLanes last SNPs. Counts are pairs: the
// controls of a segment pair in the lower, its cases in the upper 16 bits of a word, so classes may have
// kMaxClassSize samples.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr size_t kLanes = 16;
constexpr int32_t kMaxClassSize = 32767;

// Of a word of a block of planes, low bits at planes and high bits kLanes words on: the samples with this
// genotype, 0 to 2, and for 0 whatever lies beyond the last sample. Static: a shared copy could be that of a
// file for wider processors.
static inline uint64_t genotype_bits(const uint64_t* planes, size_t genotype) {
  const uint64_t low = planes[0];
  const uint64_t high = planes[kLanes];
  return genotype == 0 ? ~(low | high) : genotype == 1 ? low & ~high : high & ~low;
}

struct LaneCountInput {
  const uint64_t* prefix;        // [prefix_cells][words] planes of the prefix's genotype patterns
  const uint32_t* prefix_pairs;  // [prefix_cells][n_pairs] their counts
  size_t prefix_cells;
  size_t words;
  const uint64_t* block;  // [words][2][kLanes] low and high bits of the last SNPs' genotypes, see LanePlanes
  const int* first_word;  // [2 * n_pairs + 1] segments: controls and cases of each pair
  size_t n_pairs;
  bool complete;  // no last SNP has a missing genotype: genotype 0 is what the others leave
  // Of pairs of complete SNPs, else null: [3][n_pairs][kLanes] the last SNPs' own counts, from which the
  // third genotype of the first SNP is what the other two leave.
  const uint32_t* marginals;
};

// counts: [3 * prefix_cells][n_pairs][kLanes], the last SNP's genotype the highest digit of the cell.
using LaneCount = void (*)(const LaneCountInput& input, uint32_t* counts);

struct LaneDeriveInput {
  // [n_counted_pairs][n_lists][rows][lane_stride], kLanes of them: RowCountInput::counts.
  const uint32_t* counted;
  size_t lane_stride;
  size_t n_counted_pairs;  // n_pairs, or one less: the last pair is empty
  size_t n_pairs;
  size_t prefix_cells;
  size_t n_lists;              // prefix_cells - 1, or prefix_cells: the last of samples without all genotypes
  size_t rows;                 // low and high bits, or these and both
  const uint32_t* list_pairs;  // [n_lists][n_counted_pairs + 1] samples of the lists: of each pair, of all
  const uint32_t* marginals;   // [3][n_pairs][kLanes] the last SNPs' own counts
  const uint32_t* own_totals;  // [3][kLanes] their sums over all pairs
};

// All cells from those counted; counts as those of LaneCount.
using LaneDerive = void (*)(const LaneDeriveInput& input, uint32_t* counts);

// What decides whether a combination can pass a fold's floor.
enum class LaneBoundKind {
  // With P cases, Q controls and N samples in training, and D = sum over the cells of max(weight of cases *
  // cases - weight of controls * controls, 0), what lib/search_bound.h says:
  //   D + q * Q >= pq * P * Q + nn * N * N + n * N.
  kDifference,
  // The table of classes and labels, from which the measure is bounded (lane_bounds_body.h).
  kTable,
};

// Of one fold.
struct LaneLimit {
  float q;  // of kDifference: a BoundTerms
  float pq;
  float nn;
  float n;
  float floor;  // of kTable: above 0
  // Of kTable and nmi: the share p of the cases where no genotype is missing, the entropy of the classes
  // there in nats, its slope ln((1 - p) / p), and 1 / (p (1 - p)).
  float share;
  float entropy;
  float slope;
  float bend;
  int32_t cases;  // P and Q where no genotype is missing
  int32_t controls;
  float samples;  // N where it is not P + Q
};

struct LaneBoundInput {
  const LaneLimit* limits;  // [n_folds]; pair f holds the testing samples of fold f
  size_t n_folds;
  bool complete;     // no genotype of any lane is missing: P and Q are those of the limits
  bool own_samples;  // N is P + Q
  LaneBoundKind kind;
  bool plain_weights;  // kDifference: both weights 1; otherwise Q for cases and P for controls
  int measure;         // kTable: what lane_bounds_body.h bounds
  int tie;             // kTable: kHighRisk or kLowRisk
  // kTable: a label compares with cases / controls, these two or, where samples are own, P / Q. Both at most
  // kMaxClassSize, neither 0.
  int32_t threshold_cases;
  int32_t threshold_controls;
  uint32_t* totals;  // scratch [cells][kLanes]
};

// The lanes that may pass the floor of at least one fold, a bit each. counts: [n_cells][n_pairs][kLanes].
using LaneBound = uint32_t (*)(const LaneBoundInput& input, const uint32_t* counts, size_t n_cells,
                               size_t n_pairs);
// The same from the counted cells alone.
using LaneDerivedBound = uint32_t (*)(const LaneBoundInput& input, const LaneDeriveInput& counted);

struct LaneValuesInput {
  const uint32_t* counts;  // [n_cells][n_pairs][kLanes], every cell that a count table has
  size_t n_cells;
  size_t n_pairs;
  size_t n_folds;  // pair f holds the testing samples of fold f
  int measure;
  int tie;
  bool own_thresholds;  // each combination has its own threshold and sample number; else those of its folds:
  const float* thresholds;  // [n_folds]
  const int32_t* samples;   // [n_folds]
  uint32_t* totals;         // scratch [n_cells][kLanes]
};

// The training value of the ranking measure, [n_folds][kLanes], with the bits of the record's entry.
using LaneValues = void (*)(const LaneValuesInput& input, float* values);

struct LaneKernels {
  LaneCount count;
  LaneDerive derive;
  LaneBound bound;
  LaneDerivedBound derived_bound;
  LaneValues values;
};

const LaneKernels& lane_kernels_avx512();
const LaneKernels& lane_kernels_avx2();
const LaneKernels& lane_kernels_portable();
