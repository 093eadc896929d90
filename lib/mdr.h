// SPDX-License-Identifier: Apache-2.0
//
// Count tables and classification measures on the host, in double precision: the truth of the exhaustive
// analysis and of permutation testing. (Cross-validated records are single precision: cv_measures.h.)
//
// Count table: 2 * B^k ints, entry 2 * cell the controls and 2 * cell + 1 the cases of a genotype cell; the
// cell is the number with digits g_0 .. g_{k-1} in base B, the combination's first SNP lowest. B is 3, or 4
// where a missing genotype is a level of its own. Digit weights are 2, 2B, 2B^2, ...
#pragma once

#include <cstdint>
#include <vector>

// Internal codes of the missing-genotype method: the option's code plus one.
enum MissingMethod : int {
  kMissingNone = 1,
  kMissingLevel = 2,  // "mc": missing is a fourth genotype
  kMissingComplete = 3,
  kMissingAvailable = 4,
  kMissingEM = 6,
};

// Internal codes of the tie rule: the option's value plus one. Any other value leaves tied cells unlabelled.
enum TieRule : int { kTieHigh = 1, kTieLow = 2 };

// The internal code of a value of the tie option: 0 and 1 have one, any other value leaves ties unlabelled.
int tie_rule(int option);

// One argument list for all three counting functions. *W: words per sample row of genotypes; weight[*k];
// snpOffset[*k]: SNP indices; *B: base; sampleList[*nListed]: the samples counted, in this order; response:
// class byte (0 or 1) by sample number; table[2 * B^k]: zeroed by the caller.
using CountFunction = void (*)(const int* W, const int* weight, const int* snpOffset, const int* k,
                               const int* B, const int* sampleList, const int* nListed,
                               const uint32_t* genotypes, const uint8_t* response, int* cases, int* controls,
                               int* table);

// Counts every listed sample; code 3 enters the cell number as digit 3 (in base 3 it therefore lands in the
// cell of the next SNP's genotype raised by one). An entry beyond the table is not counted. cases and
// controls stay.
void countTable_none(const int* W, const int* weight, const int* snpOffset, const int* k, const int* B,
                     const int* sampleList, const int* nListed, const uint32_t* genotypes,
                     const uint8_t* response, int* cases, int* controls, int* table);

// Counts the samples whose k genotypes are all present and sets *cases and *controls to their numbers.
void countTable_available(const int* W, const int* weight, const int* snpOffset, const int* k, const int* B,
                          const int* sampleList, const int* nListed, const uint32_t* genotypes,
                          const uint8_t* response, int* cases, int* controls, int* table);

// Does nothing: the table stays as it is.
void countTable_EM(const int* W, const int* weight, const int* snpOffset, const int* k, const int* B,
                   const int* sampleList, const int* nListed, const uint32_t* genotypes,
                   const uint8_t* response, int* cases, int* controls, int* table);

// countTable_available for two SNPs, passed singly.
void countTable_available_2(const int* W, const int* weight1, const int* weight2, const int* s1,
                            const int* s2, const int* sampleList, const int* nListed,
                            const uint32_t* genotypes, const uint8_t* response, int* cases, int* controls,
                            int* table);

// The counting function of an internal missing code; codes without one count as countTable_none.
CountFunction count_function(int missing);

// The base of the cell number under an internal missing code: 4 for kMissingLevel, else 3.
int table_base(int missing);

// Over an unpacked matrix, one byte per genotype, SNP columns starting at offset[j]:
// out[s] = sum over j of bytes[s + offset[j]] * weight[j] for s = 0 .. *nSamples - 1.
void makeIndex(const int* weight, const int* offset, const int* k, const uint8_t* bytes, const int* nSamples,
               int* out);

// The label of one cell, a CellLabel (cv_measures.h), by its ratio of cases to controls. A cell without
// controls is a tie whatever its cases, and so is one that cannot be compared. tie is the internal code.
int risk_label(int controls, int cases, double threshold, int tie);

// Scores one table (*nEntries = 2 * cells, which may be 0): out[0] balanced accuracy, out[1] accuracy, out[2]
// chi-square of homogeneity of the whole table. out[3 .. 15] stay. *tie is the internal code. Samples of
// unlabelled cells count in *N, hence against the accuracy. Balanced accuracy is 0.5 when a class has no
// labelled samples; the others are NaN when *N is 0.
void calculateMeasuresAll(const int* N, const int* nCases, const int* nControls, const int* table,
                          const int* nEntries, const double* threshold, const int* tie, double* out);

// 1 when x > y, -1 when x < y, else 0 (also when they cannot be compared).
int sign(double x, double y);

// 1 when x is finite, 0 when it is a NaN or infinite.
int realnum(double x);

// Counts and scores combinations of one order, one after another, on working memory of its own: the one place
// that puts counting function, base, weights and totals together. Not shared between threads.
class CombinationScorer {
 public:
  // k >= 1; missing: the internal code.
  CombinationScorer(int k, int missing);

  // Scores the combination whose SNP columns are snpOffset[k] over the samples sampleList[*N] into out[0 ..
  // 2], as calculateMeasuresAll does. *N, the class totals and the threshold hold for all codes but
  // kMissingAvailable, which takes them from its own count.
  void score(const int* snpOffset, const int* W, const uint32_t* genotypes, const uint8_t* response,
             const int* sampleList, const int* N, const int* nCases, const int* nControls,
             const double* threshold, const int* tie, double* out);

 private:
  int missing_;
  int k_;
  int base_;
  CountFunction count_;
  std::vector<int> weight_;  // [k]
  std::vector<int> table_;   // [2 * base^k]
};
