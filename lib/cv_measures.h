// SPDX-License-Identifier: Apache-2.0
//
// Labels and measures of cross-validated records, in single precision: the one place where their formulas
// stand, for the record path, the search paths and the GPU. Every float operation is IEEE, in the order
// written here. (The exhaustive analysis scores in double precision: mdr.h.)
//
// A classifier labels each genotype cell high or low risk from its training counts; its 2x2 table against the
// classes has true positives (cases in high-risk cells), false positives (controls there), true negatives
// (controls in low-risk cells) and false negatives (cases there). Samples in unlabelled cells are in none of
// them.
#pragma once

#include <stdint.h>

#include "lib/float_math.h"

// Entries of a record: measure i of the training samples at i, of the testing samples at kTestingEntry + i.
enum MeasureIndex : int {
  kBalancedAccuracy = 0,
  kAccuracy = 1,
  kChiSquare = 2,
  kGamma = 3,
  kTauB = 4,
  kTauC = 5,
  kSomersDx = 6,
  kSomersDy = 7,
  kNmi = 8,
  kLr = 9,
};
constexpr int kMeasureCount = 16;
constexpr int kTestingEntry = kMeasureCount;
constexpr int kRecordSize = 2 * kMeasureCount;

enum CellLabel : int { kUnlabelled = 0, kHighRisk = 1, kLowRisk = 2 };

struct Confusion {
  int32_t tp;
  int32_t fp;
  int32_t fn;
  int32_t tn;
};

// Samples of one set: those of the table by class, and the number that accuracy and expected counts refer to.
struct SetTotals {
  int32_t cases;
  int32_t controls;
  int32_t n;
};

// A cell without controls has the threshold itself as its ratio, so it is a tie, whatever its cases.
TAVO_HOST_DEVICE float cell_ratio(int32_t controls, int32_t cases, float threshold) {
  return controls == 0 ? threshold : (float)cases / (float)controls;
}

// tie: 1 labels a tied cell high-risk, 2 low-risk, any other value leaves it unlabelled. A comparison with a
// NaN is a tie.
// Arithmetic in place of branches: compilers put loops over it into vector lanes.
TAVO_HOST_DEVICE int cell_label(float value, float threshold, int tie) {
  const int above = threshold < value;
  const int below = threshold > value;
  const int of_tie = (int)(tie == kHighRisk) * kHighRisk + (int)(tie == kLowRisk) * kLowRisk;
  return above * kHighRisk + below * kLowRisk + (1 - above - below) * of_tie;
}

TAVO_HOST_DEVICE void add_cell(Confusion* table, int label, int32_t controls, int32_t cases) {
  if (label == kHighRisk) {
    table->tp += cases;
    table->fp += controls;
  } else if (label == kLowRisk) {
    table->tn += controls;
    table->fn += cases;
  }
}

// One cell's share of the chi-square of homogeneity of the whole cells-by-class table; expected = class total
// * cell total / N. A cell where an expected count is 0 adds nothing.
TAVO_HOST_DEVICE float add_chi_square(float chi, int32_t controls, int32_t cases, SetTotals totals) {
  const float n = (float)(controls + cases);
  const float expected_controls = (float)totals.controls * n / (float)totals.n;
  const float expected_cases = (float)totals.cases * n / (float)totals.n;
  if (expected_controls != 0.0f && expected_cases != 0.0f) {
    const float d0 = expected_controls - (float)controls;
    const float d1 = expected_cases - (float)cases;
    chi = chi + (d0 * d0 / expected_controls + d1 * d1 / expected_cases);
  }
  return chi;
}

// (sensitivity + specificity) / 2. Not finite when a class has no classified samples: training records keep
// that, and a value that is no number never enters a list.
TAVO_HOST_DEVICE float balanced_accuracy_unguarded(Confusion t) {
  return 0.5f * ((float)t.tp / (float)(t.tp + t.fn) + (float)t.tn / (float)(t.tn + t.fp));
}

// The same, but 0.5 when a class has no classified samples: testing records.
TAVO_HOST_DEVICE float balanced_accuracy_guarded(Confusion t) {
  return t.tp + t.fn == 0 || t.tn + t.fp == 0 ? 0.5f : balanced_accuracy_unguarded(t);
}

TAVO_HOST_DEVICE float accuracy(Confusion t, int32_t n) {
  return (float)(t.tp + t.tn) / (float)n;
}

// Products of counts wrap around at 32 bits.
TAVO_HOST_DEVICE uint32_t count_product(int32_t x, int32_t y) {
  return (uint32_t)x * (uint32_t)y;
}

// tp * tn - fp * fn.
TAVO_HOST_DEVICE float cross_difference(Confusion t) {
  return (float)(int32_t)(count_product(t.tp, t.tn) - count_product(t.fp, t.fn));
}

// Cases times controls among the classified samples.
TAVO_HOST_DEVICE int32_t class_product(Confusion t) {
  return (int32_t)(count_product(t.tp, t.fp) + count_product(t.tp, t.tn) + count_product(t.fn, t.fp) +
                   count_product(t.fn, t.tn));
}

// Predicted high times predicted low.
TAVO_HOST_DEVICE int32_t prediction_product(Confusion t) {
  return (int32_t)(count_product(t.tp, t.fn) + count_product(t.tp, t.tn) + count_product(t.fp, t.fn) +
                   count_product(t.fp, t.tn));
}

// The 2x2 table with every zero replaced by one half: a = tp, b = fp, c = fn, d = tn.
struct SmoothedTable {
  float a, b, c, d;
};

TAVO_HOST_DEVICE float half_for_zero(int32_t count) {
  return count == 0 ? 0.5f : (float)count;
}

TAVO_HOST_DEVICE SmoothedTable smoothed(Confusion t) {
  SmoothedTable s;
  s.a = half_for_zero(t.tp);
  s.b = half_for_zero(t.fp);
  s.c = half_for_zero(t.fn);
  s.d = half_for_zero(t.tn);
  return s;
}

// Goodman and Kruskal's gamma of the smoothed table.
TAVO_HOST_DEVICE float gamma_measure(Confusion t) {
  const SmoothedTable s = smoothed(t);
  return (s.a * s.d - s.b * s.c) / (s.a * s.d + s.b * s.c);
}

// Kendall's tau-b.
TAVO_HOST_DEVICE float tau_b(Confusion t) {
  const int32_t r = class_product(t);
  const int32_t p = prediction_product(t);
  if (r == 0 || p == 0) {
    return 0.0f;
  }
  return cross_difference(t) / __builtin_sqrtf((float)r * (float)p);
}

// Stuart's tau-c; n * n wraps around at 32 bits.
TAVO_HOST_DEVICE float tau_c(Confusion t, int32_t n) {
  return 4.0f * cross_difference(t) / (float)(int32_t)count_product(n, n);
}

TAVO_HOST_DEVICE float somers_dx(Confusion t) {
  const int32_t r = class_product(t);
  return r == 0 ? 0.0f : cross_difference(t) / (float)r;
}

TAVO_HOST_DEVICE float somers_dy(Confusion t) {
  const int32_t p = prediction_product(t);
  return p == 0 ? 0.0f : cross_difference(t) / (float)p;
}

TAVO_HOST_DEVICE float x_log_x(float x) {
  return x * tavo_logf(x);
}

// Mutual information of class and prediction over the entropy of the class, of the smoothed table.
TAVO_HOST_DEVICE float nmi(Confusion t) {
  const SmoothedTable s = smoothed(t);
  const float high = s.a + s.b;
  const float low = s.c + s.d;
  const float cells = x_log_x(s.a) + x_log_x(s.b) + x_log_x(s.c) + x_log_x(s.d);
  const float conditional = x_log_x(high) + x_log_x(low) - cells;
  const float entropy = x_log_x(high + low) - x_log_x(s.a + s.c) - x_log_x(s.b + s.d);
  return 1.0f - conditional / entropy;
}

// The share of the samples that is predicted high-risk, which the likelihood ratio expects in both classes.
TAVO_HOST_DEVICE float predicted_high_share(Confusion t, int32_t n) {
  const SmoothedTable s = smoothed(t);
  return (s.a + s.b) / (float)n;
}

// The likelihood-ratio statistic against q, the predicted-high share of the training samples. Returns false
// and leaves *value alone when an expected count is 0.
TAVO_HOST_DEVICE bool likelihood_ratio(Confusion t, float q, float* value) {
  const SmoothedTable s = smoothed(t);
  const float cases = s.a + s.c;
  const float controls = s.b + s.d;
  const float expected_a = cases * q;
  const float expected_b = controls * q;
  const float expected_c = cases - expected_a;
  const float expected_d = controls - expected_b;
  if (expected_a == 0.0f || expected_b == 0.0f || expected_c == 0.0f || expected_d == 0.0f) {
    return false;
  }
  *value = 2.0f * (s.a * tavo_logf(s.a / expected_a) + s.b * tavo_logf(s.b / expected_b) +
                   s.c * tavo_logf(s.c / expected_c) + s.d * tavo_logf(s.d / expected_d));
  return true;
}

// The training value of one measure (a code 0 to 9), the value that ranks combinations: the entry that
// write_record stores for it. chi_square is the sum of add_chi_square over the cells and read for that
// measure only.
TAVO_HOST_DEVICE float training_measure(int measure, Confusion t, SetTotals totals, float chi_square) {
  float value = 0.0f;
  switch (measure) {
    case kBalancedAccuracy:
      value = balanced_accuracy_unguarded(t);
      break;
    case kAccuracy:
      value = accuracy(t, totals.n);
      break;
    case kChiSquare:
      value = chi_square;
      break;
    case kGamma:
      value = gamma_measure(t);
      break;
    case kTauB:
      value = tau_b(t);
      break;
    case kTauC:
      value = tau_c(t, totals.n);
      break;
    case kSomersDx:
      value = somers_dx(t);
      break;
    case kSomersDy:
      value = somers_dy(t);
      break;
    case kNmi:
      value = nmi(t);
      break;
    case kLr:
      if (!likelihood_ratio(t, predicted_high_share(t, totals.n), &value)) {
        value = 0.0f;
      }
      break;
    default:
      break;
  }
  return canonical_nan(value);
}

// The threshold that a combination is judged by when it is its own: cases over controls of its training
// table.
TAVO_HOST_DEVICE float own_threshold(SetTotals training) {
  return (float)training.cases / (float)training.controls;
}

// One record from the two count tables of a combination. train and test: [2 * n_cells], entry 2m the controls
// and 2m + 1 the cases of cell m. record: [32], every entry is written, those without a measure with 0; when
// an expected count of lr is 0, its entry and the testing one stay 0.
TAVO_HOST_DEVICE void write_record(const int32_t* train, const int32_t* test, int64_t n_cells,
                                   SetTotals train_totals, SetTotals test_totals, float threshold, int tie,
                                   float* record) {
  Confusion training = {0, 0, 0, 0};
  Confusion testing = {0, 0, 0, 0};
  float training_chi = 0.0f;
  float testing_chi = 0.0f;
  for (int64_t m = 0; m < n_cells; ++m) {
    const int32_t controls = train[2 * m];
    const int32_t cases = train[2 * m + 1];
    const int label = cell_label(cell_ratio(controls, cases, threshold), threshold, tie);
    add_cell(&training, label, controls, cases);
    add_cell(&testing, label, test[2 * m], test[2 * m + 1]);
    training_chi = add_chi_square(training_chi, controls, cases, train_totals);
    testing_chi = add_chi_square(testing_chi, test[2 * m], test[2 * m + 1], test_totals);
  }
  for (int i = 0; i < kRecordSize; ++i) {
    record[i] = 0.0f;
  }
  for (int measure = kBalancedAccuracy; measure <= kNmi; ++measure) {
    record[measure] = training_measure(measure, training, train_totals, training_chi);
    record[kTestingEntry + measure] = training_measure(measure, testing, test_totals, testing_chi);
  }
  record[kTestingEntry + kBalancedAccuracy] = canonical_nan(balanced_accuracy_guarded(testing));
  const float q = predicted_high_share(training, train_totals.n);
  if (likelihood_ratio(training, q, &record[kLr]) &&
      likelihood_ratio(testing, q, &record[kTestingEntry + kLr])) {
    record[kTestingEntry + kLr] = canonical_nan(record[kTestingEntry + kLr]);
  }
  record[kLr] = canonical_nan(record[kLr]);
}

// The label of a cell of a score-based run: by the sum of its training samples' scores, controls' and cases',
// against 0. A cell without training controls is a tie, whatever its scores.
TAVO_HOST_DEVICE int score_cell_label(int32_t controls, float control_scores, float case_scores, int tie) {
  return cell_label(controls == 0 ? 0.0f : control_scores + case_scores, 0.0f, tie);
}

// One record of a score-based run: balanced accuracy only, unguarded for both sets; every other entry is 0.
// scores: [2 * n_cells], laid out like the tables: the sums over the training samples.
TAVO_HOST_DEVICE void write_score_record(const int32_t* train, const int32_t* test, const float* scores,
                                         int64_t n_cells, int tie, float* record) {
  Confusion training = {0, 0, 0, 0};
  Confusion testing = {0, 0, 0, 0};
  for (int64_t m = 0; m < n_cells; ++m) {
    const int label = score_cell_label(train[2 * m], scores[2 * m], scores[2 * m + 1], tie);
    add_cell(&training, label, train[2 * m], train[2 * m + 1]);
    add_cell(&testing, label, test[2 * m], test[2 * m + 1]);
  }
  for (int i = 0; i < kRecordSize; ++i) {
    record[i] = 0.0f;
  }
  record[kBalancedAccuracy] = canonical_nan(balanced_accuracy_unguarded(training));
  record[kTestingEntry + kBalancedAccuracy] = canonical_nan(balanced_accuracy_unguarded(testing));
}
