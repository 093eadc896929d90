// SPDX-License-Identifier: Apache-2.0
//
// 512 combinations at once: an upper bound of every fold's value in small integers, at which most
// combinations of a search end, or exact counts.
//
// Counting. A row has one bit per last SNP, 512 side by side, for one sample and one genotype. A prefix (the
// other SNPs of the combination) comes as lists of the samples that have each of its genotype patterns; the
// rows of a list are added up bit by bit, with a full adder of two operations per row, and the sums of 512
// SNPs are turned from bits into bytes at the end. So the work grows with the samples that have a pattern,
// not with all, and the pattern of no minor genotypes is not counted: it is what the others leave.
//
// Bound. With P cases and Q controls in a fold's training samples, D = sum over the cells of max(Q cases - P
// controls, 0) = sum of max(P controls - Q cases, 0) decides the measures that have a bound (LaneLimit in
// lane_kernels.h). One class is taken for the plus class, and the weights of the two are small integers a and
// b, the same for all folds: with n and m plus and minus samples in training and a / b >= m / n in each fold,
// D <= (n / b) sum max(a plus - b minus, 0). The values a plus - b minus of a cell and a pair of segments add
// up, so the cells that are not counted follow from marginal values as counts do.
//
// Missing genotypes. Samples without all genotypes of a prefix have a list of their own, as patterns have,
// and so end up in no cell. A sample without the last SNP's genotype has no bit in its rows, and ends up in
// the cell of its pattern and genotype 0. Let n and m be plus and minus samples in training, n' and m' those
// that have all genotypes, and of the others p1 and m1 lack one of the prefix, at most p2 and m2 that of the
// last SNP. With TP and FP plus and minus samples taken for high-risk, and S the sum that is found,
//   S >= a TP - b FP - b m2,  and  M = TP / n' - FP / m'
// is what decides the measure. With a n >= b m follows
//   b m M <= S + b m2 + t (a (p1 + p2) - b (m1 + m2)) + b M (m1 + m2)  for t = TP / n', M <= t <= 1,
// whose bounds at t = M and t = 1 grow with M less slowly than b m M while a (p1 + p2) <= b m. So where M
// reaches a floor F,
//   S + max(a p2, b m2) (1 + F) + max(a p1 - b m1, 0) + max(a p1, b m1) F >= b m F,
// the slacks of the last SNP and of the prefix. Counts need no slack: a missing genotype has a bit in both of
// its sample's rows, and the samples with both bits are counted, too.
//
// For bounds, rows of the minus class hold the bits of the samples that do NOT have the genotype, so that
// rows of both classes can be added up alike: minus samples of a list less those with the genotype.
//
// Plain pointers only: the files behind this are compiled for wider processors than the rest.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Last SNPs side by side, and in one group of values.
constexpr size_t kRowLanes = 512;
constexpr size_t kRowBytes = kRowLanes / 8;
constexpr size_t kGroupLanes = 64;
constexpr size_t kRowGroups = kRowLanes / kGroupLanes;

// Counts of two cells are this far apart: not a power of two, which would have the cells of a combination
// drive each other out of the cache.
constexpr size_t kCountStride = kRowLanes + 16;

// Rows of genotypes 1 and 2 of a sample stand side by side.
constexpr size_t kSampleBytes = 2 * kRowBytes;

// Where SNP `lane` stands in a row, and its value in a group of 16-bit words: interleaving bytes and
// transposing bits within 16 bytes brings these places together. Bytes of a group stand in the SNPs' order.
constexpr size_t row_bit(size_t lane) {
  return lane % 64 / 16 * 128 + lane / 64 * 16 + lane % 16;
}
constexpr size_t word_in_group(size_t lane) {
  return lane % 16 / 8 * 32 + lane % 64 / 16 * 8 + lane % 8;
}

// Where SNP `lane` stands in a row of the counts, whose bytes are interleaved twice, so that pairs of counts
// stand in the SNPs' order: 4 SNPs stay together.
constexpr size_t count_row_bit(size_t lane) {
  return row_bit(lane / 64 * 64 + lane % 16 / 4 * 16 + lane % 64 / 16 * 4 + lane % 4);
}

// A piece holds fewer samples than this, of bytes, or of each class, of words and counts: sums fit a byte.
// Words add the weighted sums of both classes in 16 bits, which fits because the genotype that most samples
// of a prefix have is never listed: a list holds half of the samples at most.
constexpr size_t kPieceSamples = 256;

// A list's length is a multiple of this; what is missing refers to a sample whose rows have no bits.
constexpr size_t kListStep = 4;

// What comes of the rows: values for an upper bound, of which bytes are twice as many to a register, or
// counts.
enum class RowValues {
  kBytes,   // both weights 1, every pair of segments one piece with at most 127 samples of a class
  kWords,   // a times all plus samples and b times all minus samples fit in 16 bits with sign
  kCounts,  // of cases and controls; rows of both classes hold the low and the high bit of the genotypes
};
constexpr int kLargestRowWord = 28671;
// Of the weights of all samples that lack a SNP's genotype, or one of a prefix: slacks are at most twice
// that, and with two slacks, sums still fit.
constexpr int kLargestMissing = 1024;
constexpr int kLargestRowByte = 127;
// Of words: the weights multiply bytes.
constexpr int kLargestRowWeight = 127;

// Samples of one pair of segments: from first_sample of a block on, controls before cases.
struct RowPiece {
  uint32_t first_sample;
  uint32_t pair;
  bool starts_pair;  // the pair's first piece
};

// A part of RowPrefix::samples.
struct RowList {
  uint32_t first;
  uint16_t n;
  uint16_t n_minus;  // of them in the minus class, without those that fill the list
};

struct RowPrefix {
  const uint16_t* samples;  // of each list: byte offsets of samples from the first of the piece
  // Samples with patterns 1, 2, ..., and behind the last pattern of each piece those without all genotypes
  // where RowListInput says so: bytes: [pieces][lists]; words: [pieces][lists][2], plus and minus class;
  // counts: the same, cases and controls.
  const RowList* lists;
  // Of the pattern, whatever the last SNP: bytes: [n_folds][patterns] tested, then [patterns] of all samples;
  // words: [n_folds][patterns] of training samples; counts: none.
  const int16_t* values;
  int16_t slack;
  // Groups of last SNPs that are wanted: first_group .. end_group - 1.
  size_t first_group;
  size_t end_group;
};

// The pieces that a block's rows stand in.
struct RowPieces {
  const RowPiece* pieces;
  size_t n_pieces;
  size_t n_samples;  // of all of them, with those whose rows have no bits
  bool far;  // a block's rows do not stay in a core's cache from one time to the next: ask for them early
};

struct RowFilterInput {
  const uint8_t* rows;  // of the block of last SNPs: kSampleBytes for each sample of all pieces
  RowPieces pieces;
  size_t n_pairs;
  size_t n_patterns;  // of a prefix: 3, 9 or 27
  bool list_missing;  // a list of samples without all genotypes stands behind those of the patterns
  int plus_weight;    // a
  int minus_weight;   // b
  const RowPrefix* prefixes;
  size_t n_prefixes;
  // Values of genotypes 1 and 2 of the last SNPs.
  const uint8_t* last_bytes;  // bytes: [kRowGroups][n_folds][2][kGroupLanes] tested, plus 128
  // bytes: [kRowGroups][2][2][32] of all samples; words: [kRowGroups][2][n_folds][2][32] of training samples.
  // The first 2 are the halves of a group (word_in_group), the second the genotypes.
  const int16_t* last_words;
  // [kRowLanes] slacks of the last SNPs: bytes: in their order, at most 255; words: as last_words, without
  // folds and genotypes.
  const void* last_slacks;
  const int16_t* needs;  // [n_folds], at least 1: the least sum that can pass
  size_t n_folds;        // pair f holds the testing samples of fold f
  void* values;          // scratch: [n_prefixes][kRowGroups][n_pairs][2 * lists] groups of bytes or words
  uint64_t* passing;  // out [n_prefixes][kRowGroups]: a bit for each wanted SNP that may pass a fold's floor
};

struct RowCountInput {
  const uint8_t* rows;  // of the block of last SNPs, as above
  bool missing;         // a genotype of the block is missing
  RowPieces pieces;
  size_t n_pairs;
  size_t n_lists;  // of each piece: patterns - 1, and one of samples without all genotypes
  const RowPrefix* prefixes;
  size_t n_prefixes;
  // out: [n_prefixes][n_pairs][counted_cells][kCountStride], of the wanted groups: controls in the lower,
  // cases in the upper 16 bits. Cells: lists, and of each the samples with the low bit, with the high bit
  // and, where genotypes are missing, with both.
  uint32_t* counts;
};

[[maybe_unused]] static inline size_t counted_cells(const RowCountInput& in) {
  return in.n_lists * (in.missing ? 3 : 2);
}

// The samples of one class in a piece.
struct RowPart {
  uint32_t first_byte;  // of a plane: 8 samples a byte
  uint16_t n;
  uint16_t first_place;  // in the piece
};

// Makes the lists of a prefix.
struct RowListInput {
  // Of each SNP of the prefix: [3][plane_bytes] planes of its genotypes, readable 8 bytes beyond their end.
  const uint8_t* const* planes;
  size_t n_snps;
  size_t plane_bytes;
  size_t n_patterns;
  bool list_missing;     // samples without all genotypes, too
  const RowPart* parts;  // [n_pieces][2]: controls and cases
  size_t n_pieces;
  bool cases_plus;
  uint16_t* samples;  // out: room for all samples, kListStep for each list, and 64 more
  RowList* lists;     // out
  uint16_t* counts;   // out [n_pieces][lists of a piece][2]: controls and cases with the pattern
};

struct RowKernels {
  void (*list)(RowValues form, const RowListInput& input);
  void (*filter)(RowValues form, const RowFilterInput& input);
  void (*count)(const RowCountInput& input);
};

const RowKernels& row_kernels_avx512();
const RowKernels& row_kernels_avx2();
const RowKernels& row_kernels_portable();
