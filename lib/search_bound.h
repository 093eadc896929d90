// SPDX-License-Identifier: Apache-2.0
//
// The bound that lets a search leave a combination out before its exact value is computed, for the processor
// and the GPU.
//
// With P cases, Q controls and N samples in training, let D be the sum over the cells of max(a * cases - b *
// controls, 0) with the weights a = Q and b = P. Where every cell is labelled, no labelling gives
// tp * tn - fp * fn above D, and so balanced accuracy is at most (1 + D / PQ) / 2, Somers' dx D / PQ, and
// tau-c 4 D / N^2. With both weights 1 accuracy is at most (Q + D) / N. In one formula: a combination that
// passes a floor has
//   D + q * Q >= pq * P * Q + nn * N * N + n * N.
#pragma once

#include "lib/cv_measures.h"
#include "lib/host_device.h"

// More than the rounding errors of a record's value and of the bound together, relative.
constexpr float kBoundSlack = 8e-6f;

// What a combination must at least have to pass a floor, conservatively: the terms of the formula above.
struct BoundTerms {
  float q;
  float pq;
  float nn;
  float n;
};

// Whether a measure grows with D: it has to, and ties have to be labelled. The others have no bound.
constexpr bool has_bound(int measure, int tie) {
  const bool labels_ties = tie == kHighRisk || tie == kLowRisk;
  return labels_ties &&
         (measure == kBalancedAccuracy || measure == kAccuracy || measure == kSomersDx || measure == kTauC);
}

// Whether the measure follows from the table of classes and labels, with every cell labelled, or as
// chi-square from the cells alone.
constexpr bool has_table_bound(int measure, int tie) {
  const bool labels_ties = tie == kHighRisk || tie == kLowRisk;
  return measure == kChiSquare ||
         (labels_ties && (measure == kGamma || measure == kTauB || measure == kSomersDy || measure == kNmi ||
                          measure == kLr));
}

// Whether D is summed with both weights 1.
constexpr bool has_plain_weights(int measure) {
  return measure == kAccuracy;
}

// Of a measure that has a bound, for a floor of this value.
constexpr BoundTerms bound_terms(int measure, float floor) {
  const float value = floor * (1.0f - kBoundSlack);
  switch (measure) {
    case kBalancedAccuracy:
      return {0.0f, 2.0f * value - 1.0f - kBoundSlack, 0.0f, 0.0f};
    case kSomersDx:
      return {0.0f, value, 0.0f, 0.0f};
    case kTauC:
      return {0.0f, 0.0f, 0.25f * value, 0.0f};
    default:
      return {1.0f, 0.0f, 0.0f, value};
  }
}

// The least D that passes.
TAVO_HOST_DEVICE float bound_need(BoundTerms terms, float cases, float controls, float n) {
  return terms.pq * (controls * cases) + (terms.nn * (n * n) + terms.n * n) - terms.q * controls;
}
