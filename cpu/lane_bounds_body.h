// SPDX-License-Identifier: Apache-2.0
//
// The bounds of the lane search, for whatever instruction set the including file is compiled for. Only static
// functions and types of an unnamed namespace, and no library templates.
//
// Tables. The labels of a combination's cells, and with them its table of classes and labels, follow from
// integers: a cell of c cases and k controls is above the threshold P / Q where c Q > k P. From the table's
// true positives TP and false positives FP, with the P cases and Q controls of training, H = TP + FP samples
// labelled high, L = N - H, and D = TP Q - FP P, the measures are
//   tau-b = D / sqrt(P Q H L),  Somers' dy = D / (H L),  gamma = (TP TN - FP FN) / (TP TN + FP FN),
// so that passing a floor needs no division. The mutual information I of class and label, in nats, decides lr
// (2 N I) and nmi (I over the entropy of the class). With e = (cell of the table) / (expected) - 1,
//   (1 + e) ln(1 + e) <= e + e^2 / 2 - e^3 / 6 + e^4 / 3  for e >= -1
// (the series for e < 0, Taylor's remainder for e > 0), and summing this over the four cells, weighted by
// their expected shares, gives with w = 1 / (P Q H L), r = D^2 w and s = D w (Q - P) (L - H)
//   I <= r / 2 - r s / 6 + r^2 w (N^2 - 3 P Q) (N^2 - 3 H L) / 3.
// The chi-square of homogeneity is the sum of (c Q - k P)^2 / (c + k) over all cells, divided by P Q.
//
// Slack. The float operations here and those of the exact value err by less than what is given on top of each
// need; a lane whose integers do not decide what the exact value does passes.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "cpu/lane_cells_body.h"
#include "cpu/lane_kernels.h"
#include "lib/cv_measures.h"
#include "lib/search_bound.h"

namespace {

typedef float FloatLanes __attribute__((vector_size(kPairBytes)));

inline FloatLanes floats(IntLanes lanes) {
  return __builtin_convertvector(lanes, FloatLanes);
}

// of_case * cases - of_control * controls, for what class_weights made of the two.
inline PairLanes class_weights(PairLanes of_case, PairLanes of_control) {
  return (of_case << 16) | ((0 - of_control) & 0xffffu);
}
inline IntLanes weighed(PairLanes pairs, PairLanes weights) {
#if defined(__AVX512BW__)
  return (IntLanes)_mm512_madd_epi16((__m512i)pairs, (__m512i)weights);
#elif defined(__AVX2__)
  return (IntLanes)_mm256_madd_epi16((__m256i)pairs, (__m256i)weights);
#else
  return cases_of(pairs) * ((IntLanes)weights >> 16) + controls_of(pairs) * ((IntLanes)(weights << 16) >> 16);
#endif
}

inline IntLanes positive_part(IntLanes lanes) {
  return lanes > 0 ? lanes : IntLanes{};
}

// Adds the pairs of the lanes where d is not negative, where it is above 0 and the pair has controls.
inline PairLanes add_not_negative(PairLanes sum, IntLanes d, PairLanes pairs) {
#if defined(__AVX512BW__)
  const __mmask16 mask = _mm512_cmpge_epi32_mask((__m512i)d, _mm512_setzero_si512());
  return (PairLanes)_mm512_mask_add_epi32((__m512i)sum, mask, (__m512i)sum, (__m512i)pairs);
#else
  return sum + (pairs & (PairLanes)(d >= 0));
#endif
}
inline PairLanes add_positive(PairLanes sum, IntLanes d, PairLanes pairs) {
#if defined(__AVX512BW__)
  const __mmask16 mask = _mm512_mask_cmpgt_epi32_mask(
      _mm512_test_epi32_mask((__m512i)pairs, _mm512_set1_epi32(0xffff)), (__m512i)d, _mm512_setzero_si512());
  return (PairLanes)_mm512_mask_add_epi32((__m512i)sum, mask, (__m512i)sum, (__m512i)pairs);
#else
  return sum + (pairs & (PairLanes)((d > 0) & (controls_of(pairs) != 0)));
#endif
}

// The reciprocal of a positive number, with a relative error below kReciprocalError.
constexpr float kReciprocalError = 4e-4f;
inline FloatLanes reciprocal(FloatLanes lanes) {
#if defined(__AVX512BW__)
  return (FloatLanes)_mm512_rcp14_ps((__m512)lanes);
#elif defined(__AVX2__)
  return (FloatLanes)_mm256_rcp_ps((__m256)lanes);
#else
  return 1.0f / lanes;
#endif
}

// A bit for each lane whose bits are set.
inline uint32_t bits_of_mask(IntLanes mask) {
#if defined(__AVX512BW__)
  return _mm512_movepi32_mask((__m512i)mask);
#elif defined(__AVX2__)
  return static_cast<uint32_t>(_mm256_movemask_ps((__m256)mask));
#else
  uint32_t bits = 0;
  for (size_t l = 0; l < kPairLanes; ++l) {
    bits |= mask[l] != 0 ? 1u << l : 0u;
  }
  return bits;
#endif
}

// The training samples of one fold, whatever the cells.
class FoldLanes {
 public:
  template <class Cells>
  FoldLanes(const LaneBoundInput& in, const Cells& cells, size_t fold, size_t lane) {
    const LaneLimit& limit = in.limits[fold];
    const PairLanes classes =
        in.complete
            ? PairLanes{} + (static_cast<uint32_t>(limit.cases) << 16 | static_cast<uint32_t>(limit.controls))
            : cells.training_classes(fold, lane);
    cases_ = cases_of(classes);
    controls_ = controls_of(classes);
  }

  // P, Q, P + Q.
  IntLanes cases() const { return cases_; }
  IntLanes controls() const { return controls_; }
  FloatLanes all() const { return floats(cases_ + controls_); }

  // Weights for cases * Q - controls * P.
  PairLanes cross_weights() const { return class_weights((PairLanes)controls_, (PairLanes)cases_); }

 private:
  IntLanes cases_;
  IntLanes controls_;
};

// Rules say which lanes may pass the floor of a fold.
struct DifferenceRule {
  template <class Cells>
  __attribute__((always_inline)) static IntLanes passes(const LaneBoundInput& in, const Cells& cells,
                                                        size_t fold, size_t lane) {
    const FoldLanes lanes(in, cells, fold, lane);
    const LaneLimit& limit = in.limits[fold];
    const PairLanes one = PairLanes{} + 1;
    const PairLanes weights = in.plain_weights ? class_weights(one, one) : lanes.cross_weights();
    IntLanes d{};
    cells.each_training(
        fold, lane, [&](PairLanes pairs) __attribute__((always_inline)) {
          d += positive_part(weighed(pairs, weights));
        });
    const FloatLanes p = floats(lanes.cases());
    const FloatLanes q = floats(lanes.controls());
    const FloatLanes n = in.own_samples ? p + q : FloatLanes{} + limit.samples;
    return floats(d) + limit.q * q >= limit.pq * (q * p) + (limit.nn * (n * n) + limit.n * n);
  }
};

struct ChiSquareRule {
  template <class Cells>
  __attribute__((always_inline)) static IntLanes passes(const LaneBoundInput& in, const Cells& cells,
                                                        size_t fold, size_t lane) {
    const FoldLanes lanes(in, cells, fold, lane);
    const LaneLimit& limit = in.limits[fold];
    const PairLanes weights = lanes.cross_weights();
    const PairLanes one = PairLanes{} + 0x00010001u;
    FloatLanes sum{};
    cells.each_training(
        fold, lane, [&](PairLanes pairs) __attribute__((always_inline)) {
          const FloatLanes d = floats(weighed(pairs, weights));
          const FloatLanes n = floats(weighed(pairs, one));
          // An empty cell has d = 0.
          sum += d * d * reciprocal(n > 1.0f ? n : FloatLanes{} + 1.0f);
        });
    // A record takes expected counts in floats, each off by up to 2^-22 of itself: the root of its value lies
    // within 2^-21 times the root of the samples, which the lanes count in 16 bits, of the true one. Near 0
    // that is more than the value.
    const float root = __builtin_sqrtf(limit.floor) - 0x1p-13f;
    const float need = root > 0.0f ? root * root * (1.0f - 3.0f * kReciprocalError) : 0.0f;
    const FloatLanes product = floats(lanes.cases()) * floats(lanes.controls());
    // Expected counts refer to all samples of the fold where samples are not own.
    const IntLanes other = in.own_samples ? IntLanes{} : lanes.all() != limit.samples;
    return (sum >= need * product) | other;
  }
};

// The table of a fold's training samples.
struct TableLanes {
  FloatLanes cases, controls;  // P, Q
  FloatLanes tp, fp, fn, tn;
  IntLanes undecided;  // lanes whose labels the integers do not decide
};

// Ratios nearer to the threshold than this, as differences of products, may be one float with it: two
// roundings of 2^-24, and as much again. 0: no two ratios are that near.
inline int32_t near_threshold(const LaneBoundInput& in) {
  const int64_t product = static_cast<int64_t>(in.threshold_cases) * in.threshold_controls;
  return product < int64_t{1} << 22 ? 0 : static_cast<int32_t>(product >> 22) + 1;
}

// Labels ties high, or low.
template <bool TiesHigh, class Cells>
__attribute__((always_inline)) inline TableLanes table_of(const LaneBoundInput& in, const Cells& cells,
                                                          const FoldLanes& lanes, size_t fold, size_t lane) {
  const PairLanes weights = in.own_samples
                                ? lanes.cross_weights()
                                : class_weights(PairLanes{} + static_cast<uint32_t>(in.threshold_controls),
                                                PairLanes{} + static_cast<uint32_t>(in.threshold_cases));
  PairLanes high{};
  cells.each_training(
      fold, lane, [&](PairLanes pairs) __attribute__((always_inline)) {
        const IntLanes d = weighed(pairs, weights);
        // A tie without controls has d >= 0, too.
        high = TiesHigh ? add_not_negative(high, d, pairs) : add_positive(high, d, pairs);
      });
  TableLanes table;
  // Without one of the classes the threshold is no number to compare with.
  table.undecided = (lanes.cases() == 0) | (lanes.controls() == 0);
  if (const int32_t near = near_threshold(in); near != 0) {
    cells.each_training(
        fold, lane, [&](PairLanes pairs) __attribute__((always_inline)) {
          const IntLanes d = weighed(pairs, weights);
          table.undecided |= (d != 0) & (d <= near) & (d >= -near);
        });
  }
  table.cases = floats(lanes.cases());
  table.controls = floats(lanes.controls());
  table.tp = floats(cases_of(high));
  table.fp = floats(controls_of(high));
  table.fn = table.cases - table.tp;
  table.tn = table.controls - table.fp;
  return table;
}

inline FloatLanes half_for_zeros(FloatLanes counts) {
  return counts > 0.5f ? counts : FloatLanes{} + 0.5f;
}

inline IntLanes gamma_passes(const TableLanes& t, float floor) {
  const FloatLanes agree = half_for_zeros(t.tp) * half_for_zeros(t.tn);
  const FloatLanes differ = half_for_zeros(t.fp) * half_for_zeros(t.fn);
  return agree - differ >= (floor * (1.0f - kBoundSlack) - 1e-6f) * (agree + differ);
}

// D, H and L. D is the difference of two products that are exact to 2^-24 of N * N.
struct LabelLanes {
  FloatLanes d, high, low;
};

inline LabelLanes labels_of(const TableLanes& t) {
  return {t.tp * t.tn - t.fp * t.fn, t.tp + t.fp, t.fn + t.tn};
}

inline IntLanes tau_b_passes(const TableLanes& t, float floor) {
  const LabelLanes l = labels_of(t);
  const FloatLanes product = (t.cases * t.controls) * (l.high * l.low);
  const float need = floor * (1.0f - kBoundSlack) - 1e-6f;
  return l.d * l.d >= (need > 0.0f ? need * need : 0.0f) * product;
}

inline IntLanes somers_dy_passes(const TableLanes& t, float floor) {
  const LabelLanes l = labels_of(t);
  return l.d >= (floor * (1.0f - kBoundSlack) - 1e-6f) * (l.high * l.low);
}

// What the mutual information of class and label cannot exceed, in nats; for tables without a zero whose skew
// s is at most 1.
struct InformationLanes {
  FloatLanes most;
  IntLanes undecided;
};

inline InformationLanes information_of(const TableLanes& t) {
  const LabelLanes l = labels_of(t);
  const FloatLanes classes = t.cases * t.controls;
  const FloatLanes labels = l.high * l.low;
  const FloatLanes n = t.cases + t.controls;
  const FloatLanes square = n * n;
  const FloatLanes w = reciprocal(classes * labels);
  const FloatLanes r = l.d * l.d * w;
  const FloatLanes s = l.d * w * ((t.controls - t.cases) * (l.low - l.high));
  const FloatLanes last = r * w * (square - 3.0f * classes) * (square - 3.0f * labels);
  constexpr float kMore = 1.0f + 2.0f * kReciprocalError;
  const IntLanes zeros = (t.tp == 0.0f) | (t.fp == 0.0f) | (t.fn == 0.0f) | (t.tn == 0.0f);
  return {r * (0.5f * kMore + kReciprocalError + (last * kMore * (1.0f / 3.0f) - s * (1.0f / 6.0f))),
          zeros | (s > 1.0f) | (s < -1.0f)};
}

// The rounding errors of the exact value, as information: of lr, N ln of numbers near 1; of nmi, N ln N.
constexpr float kLrError = 2e-6f;
constexpr float kNmiError = 2.5e-5f;

inline IntLanes lr_passes(const TableLanes& t, float floor) {
  const InformationLanes information = information_of(t);
  return (2.0f * (t.cases + t.controls) * (information.most + kLrError) >= floor) | information.undecided;
}

// The entropy of the classes is concave in their shares: of lanes that have other shares than the fold, near
// enough, at least the tangent less a parabola.
inline IntLanes nmi_passes(const TableLanes& t, const LaneBoundInput& in, const LaneLimit& limit) {
  const InformationLanes information = information_of(t);
  FloatLanes entropy = FloatLanes{} + limit.entropy;
  IntLanes far{};
  if (!in.complete) {
    const FloatLanes off = t.cases / (t.cases + t.controls) - limit.share;
    entropy += off * limit.slope - off * off * limit.bend;
    const FloatLanes reach = off * limit.bend;
    far = (reach > 0.25f) | (reach < -0.25f);
  }
  const float need = limit.floor * (1.0f - kBoundSlack);
  return (information.most + kNmiError >= need * entropy) | information.undecided | far;
}

template <int Measure, bool TiesHigh>
struct TableRule {
  template <class Cells>
  __attribute__((always_inline)) static IntLanes passes(const LaneBoundInput& in, const Cells& cells,
                                                        size_t fold, size_t lane) {
    const FoldLanes lanes(in, cells, fold, lane);
    const LaneLimit& limit = in.limits[fold];
    const TableLanes table = table_of<TiesHigh>(in, cells, lanes, fold, lane);
    switch (Measure) {
      case kGamma:
        return gamma_passes(table, limit.floor) | table.undecided;
      case kTauB:
        return tau_b_passes(table, limit.floor) | table.undecided;
      case kSomersDy:
        return somers_dy_passes(table, limit.floor) | table.undecided;
      case kNmi:
        return nmi_passes(table, in, limit) | table.undecided;
      default: {
        // Expected counts refer to all samples of the fold where samples are not own.
        const IntLanes other = in.own_samples ? IntLanes{} : lanes.all() != limit.samples;
        return lr_passes(table, limit.floor) | other | table.undecided;
      }
    }
  }
};

template <class Rule, class Cells>
uint32_t bound_by(const LaneBoundInput& in, const Cells& cells) {
  uint32_t passing = 0;
  for (size_t lane = 0; lane < kLanes; lane += kPairLanes) {
    IntLanes any{};
    for (size_t fold = 0; fold < in.n_folds; ++fold) {
      any |= Rule::passes(in, cells, fold, lane);
    }
    passing |= bits_of_mask(any) << lane;
  }
  return passing;
}

template <int Measure, class Cells>
uint32_t bound_table(const LaneBoundInput& in, const Cells& cells) {
  return in.tie == kHighRisk ? bound_by<TableRule<Measure, true>>(in, cells)
                             : bound_by<TableRule<Measure, false>>(in, cells);
}

template <class Cells>
uint32_t bound_of_cells(const LaneBoundInput& in, const Cells& cells) {
  if (in.kind == LaneBoundKind::kDifference) {
    return bound_by<DifferenceRule>(in, cells);
  }
  switch (in.measure) {
    case kChiSquare:
      return bound_by<ChiSquareRule>(in, cells);
    case kGamma:
      return bound_table<kGamma>(in, cells);
    case kTauB:
      return bound_table<kTauB>(in, cells);
    case kSomersDy:
      return bound_table<kSomersDy>(in, cells);
    case kNmi:
      return bound_table<kNmi>(in, cells);
    default:
      return bound_table<kLr>(in, cells);
  }
}

inline uint32_t lane_bound(const LaneBoundInput& in, const uint32_t* counts, size_t n_cells, size_t n_pairs) {
  return bound_of_cells(in, CountedCells(counts, n_cells, n_pairs, in.totals));
}

// The numbers of lists of pairs, without and with missing genotypes, are known to the compiler.
inline uint32_t lane_derived_bound(const LaneBoundInput& in, const LaneDeriveInput& counted) {
  if (counted.rows == 2) {
    return counted.n_lists == 2 ? bound_of_cells(in, DerivedCells<2, 2>(counted, in.totals))
                                : bound_of_cells(in, DerivedCells<2, 0>(counted, in.totals));
  }
  return counted.n_lists == 3 ? bound_of_cells(in, DerivedCells<3, 3>(counted, in.totals))
                              : bound_of_cells(in, DerivedCells<3, 0>(counted, in.totals));
}

}  // namespace
