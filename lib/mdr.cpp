// SPDX-License-Identifier: Apache-2.0
#include "lib/mdr.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "lib/cv_measures.h"
#include "lib/packed_genotypes.h"

namespace {

constexpr int64_t kNotCounted = -1;

// The table entry of one sample: its class plus the weighted genotypes. kNotCounted when a genotype is
// missing and such samples are left out. 64 bits, because a missing genotype counted as 3 can lead beyond the
// largest table.
template <bool kSkipMissing>
int64_t table_entry(const uint32_t* row_words, const int* weight, const int* snp, int k,
                    uint8_t sample_class) {
  int64_t entry = sample_class;
  for (int j = 0; j < k; ++j) {
    const unsigned genotype = packed_genotype(row_words, static_cast<size_t>(snp[j]));
    if (kSkipMissing && genotype == kMissingGenotype) {
      return kNotCounted;
    }
    entry += static_cast<int64_t>(genotype) * weight[j];
  }
  return entry;
}

const uint32_t* sample_row(const uint32_t* genotypes, int n_words, int sample) {
  return genotypes + static_cast<size_t>(sample) * static_cast<size_t>(n_words);
}

// One NaN whatever made it, so that a report never shows its sign.
double canonical(double value) {
  return std::isnan(value) ? std::numeric_limits<double>::quiet_NaN() : value;
}

// One cell's share of the chi-square; a cell where an expected count is 0 adds nothing.
double chi_square_term(int controls, int cases, int n_controls, int n_cases, int n) {
  const double cell = static_cast<double>(controls) + cases;
  const double expected_cases = n_cases * cell / n;
  const double expected_controls = n_controls * cell / n;
  if (expected_cases == 0.0 || expected_controls == 0.0) {
    return 0.0;
  }
  const double d1 = expected_cases - cases;
  const double d0 = expected_controls - controls;
  return d1 * d1 / expected_cases + d0 * d0 / expected_controls;
}

}  // namespace

void countTable_none(const int* W, const int* weight, const int* snpOffset, const int* k, const int* B,
                     const int* sampleList, const int* nListed, const uint32_t* genotypes,
                     const uint8_t* response, int* /*cases*/, int* /*controls*/, int* table) {
  const int64_t n_entries = *k > 0 ? static_cast<int64_t>(weight[*k - 1]) * *B : 2;
  for (int i = 0; i < *nListed; ++i) {
    const int sample = sampleList[i];
    const int64_t entry =
        table_entry<false>(sample_row(genotypes, *W, sample), weight, snpOffset, *k, response[sample]);
    if (entry < n_entries) {
      ++table[entry];
    }
  }
}

void countTable_available(const int* W, const int* weight, const int* snpOffset, const int* k,
                          const int* /*B*/, const int* sampleList, const int* nListed,
                          const uint32_t* genotypes, const uint8_t* response, int* cases, int* controls,
                          int* table) {
  if (*k == 2) {
    countTable_available_2(W, &weight[0], &weight[1], &snpOffset[0], &snpOffset[1], sampleList, nListed,
                           genotypes, response, cases, controls, table);
    return;
  }
  *cases = 0;
  *controls = 0;
  for (int i = 0; i < *nListed; ++i) {
    const int sample = sampleList[i];
    const int64_t entry =
        table_entry<true>(sample_row(genotypes, *W, sample), weight, snpOffset, *k, response[sample]);
    if (entry != kNotCounted) {
      ++table[entry];
      ++*(response[sample] == 1 ? cases : controls);
    }
  }
}

void countTable_EM(const int* /*W*/, const int* /*weight*/, const int* /*snpOffset*/, const int* /*k*/,
                   const int* /*B*/, const int* /*sampleList*/, const int* /*nListed*/,
                   const uint32_t* /*genotypes*/, const uint8_t* /*response*/, int* /*cases*/,
                   int* /*controls*/, int* /*table*/) {}

void countTable_available_2(const int* W, const int* weight1, const int* weight2, const int* s1,
                            const int* s2, const int* sampleList, const int* nListed,
                            const uint32_t* genotypes, const uint8_t* response, int* cases, int* controls,
                            int* table) {
  *cases = 0;
  *controls = 0;
  const auto column1 = static_cast<size_t>(*s1);
  const auto column2 = static_cast<size_t>(*s2);
  for (int i = 0; i < *nListed; ++i) {
    const int sample = sampleList[i];
    const uint32_t* row = sample_row(genotypes, *W, sample);
    const unsigned g1 = packed_genotype(row, column1);
    const unsigned g2 = packed_genotype(row, column2);
    if (g1 != kMissingGenotype && g2 != kMissingGenotype) {
      ++table[response[sample] + static_cast<int>(g1) * *weight1 + static_cast<int>(g2) * *weight2];
      ++*(response[sample] == 1 ? cases : controls);
    }
  }
}

CountFunction count_function(int missing) {
  switch (missing) {
    case kMissingAvailable:
      return countTable_available;
    case kMissingEM:
      return countTable_EM;
    default:
      return countTable_none;
  }
}

int tie_rule(int option) {
  return option == 0 ? kTieHigh : option == 1 ? kTieLow : 0;
}

int table_base(int missing) {
  return missing == kMissingLevel ? 4 : 3;
}

void makeIndex(const int* weight, const int* offset, const int* k, const uint8_t* bytes, const int* nSamples,
               int* out) {
  std::fill_n(out, *nSamples, 0);
  for (int j = 0; j < *k; ++j) {
    const uint8_t* column = bytes + offset[j];
    for (int s = 0; s < *nSamples; ++s) {
      out[s] += column[s] * weight[j];
    }
  }
}

int risk_label(int controls, int cases, double threshold, int tie) {
  const double ratio = controls == 0 ? threshold : static_cast<double>(cases) / controls;
  switch (sign(ratio, threshold)) {
    case 1:
      return kHighRisk;
    case -1:
      return kLowRisk;
    default:
      return tie == kTieHigh ? kHighRisk : tie == kTieLow ? kLowRisk : kUnlabelled;
  }
}

void calculateMeasuresAll(const int* N, const int* nCases, const int* nControls, const int* table,
                          const int* nEntries, const double* threshold, const int* tie, double* out) {
  Confusion counts = {0, 0, 0, 0};
  double chi_square = 0.0;
  const size_t n_cells = static_cast<size_t>(*nEntries) / 2;
  for (size_t cell = 0; cell < n_cells; ++cell) {
    const int controls = table[2 * cell];
    const int cases = table[2 * cell + 1];
    add_cell(&counts, risk_label(controls, cases, *threshold, *tie), controls, cases);
    chi_square += chi_square_term(controls, cases, *nControls, *nCases, *N);
  }
  const double tp = counts.tp;
  const double tn = counts.tn;
  const double cases = tp + counts.fn;
  const double controls = tn + counts.fp;
  out[0] = cases == 0.0 || controls == 0.0 ? 0.5 : (tp / cases + tn / controls) * 0.5;
  out[1] = canonical((tp + tn) / *N);
  out[2] = canonical(chi_square);
}

int sign(double x, double y) {
  return static_cast<int>(x > y) - static_cast<int>(x < y);
}

int realnum(double x) {
  return std::isfinite(x) ? 1 : 0;
}

CombinationScorer::CombinationScorer(int k, int missing)
    : missing_(missing), k_(k), base_(table_base(missing)), count_(count_function(missing)) {
  size_t n_entries = 2;
  for (int j = 0; j < k; ++j) {
    weight_.push_back(static_cast<int>(n_entries));
    n_entries *= static_cast<size_t>(base_);
  }
  table_.resize(n_entries);
}

void CombinationScorer::score(const int* snpOffset, const int* W, const uint32_t* genotypes,
                              const uint8_t* response, const int* sampleList, const int* N, const int* nCases,
                              const int* nControls, const double* threshold, const int* tie, double* out) {
  int n = *N;
  int cases = *nCases;
  int controls = *nControls;
  double own_threshold = *threshold;
  std::fill(table_.begin(), table_.end(), 0);
  count_(W, weight_.data(), snpOffset, &k_, &base_, sampleList, N, genotypes, response, &cases, &controls,
         table_.data());
  if (missing_ == kMissingAvailable) {
    n = cases + controls;
    own_threshold = static_cast<double>(cases) / controls;
  }
  const int n_entries = static_cast<int>(table_.size());
  calculateMeasuresAll(&n, &cases, &controls, table_.data(), &n_entries, &own_threshold, tie, out);
}
