// SPDX-License-Identifier: Apache-2.0
//
// What one thread of the record kernels does, as functions of its number: the count table of a combination
// over one sample set, its threshold, its record. They are called by the kernels of mdr_cuda_new.cu and
// gmdr_cuda.cu, and in host loops by tests, so nothing here depends on CUDA. Arrays are the device's; shapes
// in brackets.
#pragma once

#include "lib/cv_measures.h"
#include "lib/mdr.h"
#include "lib/packed_genotypes.h"

// Tables of up to this many entries (order 3 in base 3) are counted in the thread's own storage.
constexpr int kPrivateEntries = 54;

// The packed matrix, [samples][words_per_row].
struct GenotypeMatrix {
  const uint32_t* words;
  int64_t words_per_row;
};

struct CountArguments {
  uint32_t active;          // combinations
  const int* combinations;  // [active][order]
  int order;
  const int* c_num;  // [order], entries per genotype: 2, 2 * base, 2 * base^2, ...
  GenotypeMatrix genotypes;
  const uint8_t* response;  // [all samples], 1 case, 0 control
  const int* samples;       // [n_samples], the sample set
  int n_samples;
  int64_t nct;      // entries of a table, 2 * base^order
  int64_t counted;  // entries that a table holds; counts beyond are dropped
  int32_t* cases;   // [active], out
  int32_t* controls;
  int32_t* table;  // [active][nct], zeroed by the caller
  // Score-based runs; null otherwise, and for the testing samples, whose scores nobody adds.
  const float* SC;    // [all samples]
  float* score_sums;  // [active][nct], added to
};

// Counts combination t over the sample set, from the last sample to the first, which is the order of the
// score sums. Leaves out samples with a missing genotype at one of its SNPs. table and score_sums are its own
// rows.
TAVO_HOST_DEVICE void count_samples(const CountArguments& a, uint32_t t, int32_t* table, float* score_sums) {
  const int* comb = a.combinations + (size_t)t * a.order;
  int32_t cases = 0;
  int32_t controls = 0;
  for (int i = a.n_samples; i-- > 0;) {
    const int sample = a.samples[i];
    const uint32_t* row = a.genotypes.words + sample * a.genotypes.words_per_row;
    const int is_case = a.response[sample] == 1 ? 1 : 0;
    int64_t entry = is_case;
    bool complete = true;
    for (int j = 0; j < a.order; ++j) {
      const unsigned genotype = packed_genotype(row, (size_t)comb[j]);
      complete = complete && genotype != kMissingGenotype;
      entry += (int64_t)genotype * a.c_num[j];
    }
    if (!complete) {
      continue;
    }
    cases += is_case;
    controls += 1 - is_case;
    if (entry < a.counted) {
      ++table[entry];
      if (score_sums != nullptr) {
        score_sums[entry] += a.SC[sample];
      }
    }
  }
  a.cases[t] = cases;
  a.controls[t] = controls;
}

// The count kernels' thread t.
TAVO_HOST_DEVICE void count_table(const CountArguments& a, uint32_t t) {
  if (t >= a.active) {
    return;
  }
  int32_t* table = a.table + (size_t)t * (size_t)a.nct;
  float* score_sums = a.score_sums == nullptr ? nullptr : a.score_sums + (size_t)t * (size_t)a.nct;
  if (a.counted > kPrivateEntries) {
    count_samples(a, t, table, score_sums);
    return;
  }
  int32_t own_table[kPrivateEntries] = {};
  float own_sums[kPrivateEntries] = {};
  count_samples(a, t, own_table, score_sums == nullptr ? nullptr : own_sums);
  for (int64_t entry = 0; entry < a.counted; ++entry) {
    table[entry] = own_table[entry];
    if (score_sums != nullptr) {
      score_sums[entry] += own_sums[entry];
    }
  }
}

// What the measures kernels read and write, all [active]. Outside kMissingAvailable only element 0 of the
// sample numbers and of th counts.
struct MeasureArguments {
  uint32_t active;
  int32_t* n_train;
  int32_t* n_test;
  float* th;
  const int32_t* case_train;
  const int32_t* control_train;
  const int32_t* case_test;
  const int32_t* control_test;
  const int32_t* table_train;  // [active][nct]
  const int32_t* table_test;   // [active][nct]
  const float* score_sums;     // [active][nct], of the training samples; score-based runs only
  int64_t nct;
  int tie;
  int missing;
  float* stat;  // [active][32]
};

// The sample numbers and the threshold of combination t from its own counts.
TAVO_HOST_DEVICE void set_value(const MeasureArguments& a, uint32_t t) {
  if (t >= a.active) {
    return;
  }
  a.n_train[t] = a.case_train[t] + a.control_train[t];
  a.n_test[t] = a.case_test[t] + a.control_test[t];
  a.th[t] = own_threshold(SetTotals{a.case_train[t], a.control_train[t], a.n_train[t]});
}

// The record of combination t.
TAVO_HOST_DEVICE void measure_record(const MeasureArguments& a, uint32_t t) {
  if (t >= a.active) {
    return;
  }
  const uint32_t set = a.missing == kMissingAvailable ? t : 0;
  const size_t row = (size_t)t * (size_t)a.nct;
  write_record(a.table_train + row, a.table_test + row, a.nct / 2,
               SetTotals{a.case_train[t], a.control_train[t], a.n_train[set]},
               SetTotals{a.case_test[t], a.control_test[t], a.n_test[set]}, a.th[set], a.tie,
               a.stat + (size_t)t * kRecordSize);
}

// The record of combination t of a score-based run: by score sums, without a threshold.
TAVO_HOST_DEVICE void measure_score_record(const MeasureArguments& a, uint32_t t) {
  if (t >= a.active) {
    return;
  }
  const size_t row = (size_t)t * (size_t)a.nct;
  write_score_record(a.table_train + row, a.table_test + row, a.score_sums + row, a.nct / 2, a.tie,
                     a.stat + (size_t)t * kRecordSize);
}
