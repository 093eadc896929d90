// SPDX-License-Identifier: Apache-2.0
//
// The exact ranking values of all lanes and folds, for whatever instruction set the including file is
// compiled for: plain loops over the lanes that the compiler vectorises, around the formulas of
// lib/cv_measures.h. Only static functions, and no library templates.
#pragma once

#include "cpu/lane_kernels.h"
#include "lib/cv_measures.h"

namespace {

// What a fold's training samples are to each lane.
struct FoldTotals {
  int32_t controls[kLanes];
  int32_t cases[kLanes];
  int32_t n[kLanes];
  float threshold[kLanes];
};

inline uint32_t training_pair(const LaneValuesInput& in, size_t cell, size_t fold, size_t lane) {
  return in.totals[cell * kLanes + lane] - in.counts[(cell * in.n_pairs + fold) * kLanes + lane];
}

inline void fold_totals(const LaneValuesInput& in, size_t fold, FoldTotals* totals) {
  uint32_t pairs[kLanes] = {};
  for (size_t cell = 0; cell < in.n_cells; ++cell) {
    for (size_t l = 0; l < kLanes; ++l) {
      pairs[l] += training_pair(in, cell, fold, l);
    }
  }
  for (size_t l = 0; l < kLanes; ++l) {
    totals->controls[l] = static_cast<int32_t>(pairs[l] & 0xffffu);
    totals->cases[l] = static_cast<int32_t>(pairs[l] >> 16);
    totals->n[l] = in.own_thresholds ? totals->controls[l] + totals->cases[l] : in.samples[fold];
    const SetTotals own = {totals->cases[l], totals->controls[l], totals->n[l]};
    totals->threshold[l] = in.own_thresholds ? own_threshold(own) : in.thresholds[fold];
  }
}

template <int Measure>
void values_of(const LaneValuesInput& in, float* values) {
  for (size_t fold = 0; fold < in.n_folds; ++fold) {
    FoldTotals totals;
    fold_totals(in, fold, &totals);
    int32_t tp[kLanes] = {};
    int32_t fp[kLanes] = {};
    int32_t fn[kLanes] = {};
    int32_t tn[kLanes] = {};
    float chi[kLanes] = {};
    for (size_t cell = 0; cell < in.n_cells; ++cell) {
      for (size_t l = 0; l < kLanes; ++l) {
        const uint32_t pair = training_pair(in, cell, fold, l);
        const auto controls = static_cast<int32_t>(pair & 0xffffu);
        const auto cases = static_cast<int32_t>(pair >> 16);
        const int label =
            cell_label(cell_ratio(controls, cases, totals.threshold[l]), totals.threshold[l], in.tie);
        const int high = label == kHighRisk;
        const int low = label == kLowRisk;
        tp[l] += high * cases;
        fp[l] += high * controls;
        fn[l] += low * cases;
        tn[l] += low * controls;
        if (Measure == kChiSquare) {
          chi[l] =
              add_chi_square(chi[l], controls, cases, {totals.cases[l], totals.controls[l], totals.n[l]});
        }
      }
    }
    float* out = values + fold * kLanes;
    for (size_t l = 0; l < kLanes; ++l) {
      out[l] = training_measure(Measure, {tp[l], fp[l], fn[l], tn[l]},
                                {totals.cases[l], totals.controls[l], totals.n[l]}, chi[l]);
    }
  }
}

inline void lane_values(const LaneValuesInput& in, float* values) {
  for (size_t cell = 0; cell < in.n_cells; ++cell) {
    uint32_t total[kLanes] = {};
    for (size_t pair = 0; pair < in.n_pairs; ++pair) {
      for (size_t l = 0; l < kLanes; ++l) {
        total[l] += in.counts[(cell * in.n_pairs + pair) * kLanes + l];
      }
    }
    for (size_t l = 0; l < kLanes; ++l) {
      in.totals[cell * kLanes + l] = total[l];
    }
  }
  switch (in.measure) {
    case kBalancedAccuracy:
      return values_of<kBalancedAccuracy>(in, values);
    case kAccuracy:
      return values_of<kAccuracy>(in, values);
    case kChiSquare:
      return values_of<kChiSquare>(in, values);
    case kGamma:
      return values_of<kGamma>(in, values);
    case kTauB:
      return values_of<kTauB>(in, values);
    case kTauC:
      return values_of<kTauC>(in, values);
    case kSomersDx:
      return values_of<kSomersDx>(in, values);
    case kSomersDy:
      return values_of<kSomersDy>(in, values);
    case kNmi:
      return values_of<kNmi>(in, values);
    default:
      return values_of<kLr>(in, values);
  }
}

}  // namespace
