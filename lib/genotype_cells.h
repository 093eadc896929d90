// SPDX-License-Identifier: Apache-2.0
//
// The multi-locus genotypes of one combination over a list of samples: how many cases and controls have each,
// and which are high risk. For tables and pictures of results; the records of an analysis are counted
// elsewhere.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "lib/cv_measures.h"

struct GenotypeCell {
  int64_t number = 0;  // its digits in the base of the rules are the genotypes, the first SNP's lowest
  int32_t cases = 0;
  int32_t controls = 0;
  float case_scores = 0.0f;  // sums of scores, in score-based runs
  float control_scores = 0.0f;
  CellLabel label = kUnlabelled;
};

// What decides the label of a cell.
enum class RiskRule {
  kSingleRatio,  // cases over controls against the threshold, in single precision: cross-validated records
  kDoubleRatio,  // the same in double precision: exhaustive records
  kScores,       // the sum of the scores against 0
};

struct CellRules {
  int base = 3;               // of the cell number; 4 where a missing genotype is a level
  int64_t counted_cells = 0;  // samples of cells from this one on are in no cell
  bool skip_missing = true;   // samples that lack a genotype are left out; otherwise code 3 is a digit
  RiskRule risk = RiskRule::kSingleRatio;
  bool own_threshold = true;  // cases over controls of the counted samples, in place of `threshold`
  double threshold = 0.0;
  int tie = 1;  // internal code of lib/mdr.h
};

struct CellTable {
  std::vector<GenotypeCell> cells;  // those that have samples, by number
  int32_t cases = 0;                // samples that are not left out, also those in no cell
  int32_t controls = 0;
  double threshold = 0.0;  // that the labels were found with; 0 for scores
};

// The genotype code, 0 to 3, of a sample at SNP j of the combination.
using GenotypeOf = std::function<unsigned(int sample, int j)>;

// samples: numbers of the samples; classes: [all samples], 1 a case; scores: [all samples] for kScores, else
// null; order: SNPs in the combination, at least 1.
CellTable count_genotype_cells(std::span<const int> samples, std::span<const uint8_t> classes,
                               const float* scores, const GenotypeOf& genotype, int order,
                               const CellRules& rules);
