// SPDX-License-Identifier: Apache-2.0
//
// Vectors of several samples side by side, with the operations that the functions of float_math.h and
// double_math.h are made of: each operation on all of them before the next, so that a processor need not wait
// for the result of one to begin the other.
#pragma once

#include "cpu/fit_lanes.h"

namespace {

constexpr size_t kTogether = 2;

template <typename V>
using ElementOf = decltype(+V{}[0]);

// V: a vector of numbers, of integers of their size, or of truths (all bits of a lane, or none).
template <typename V>
struct Several {
  V part[kTogether];

  Several() = default;
  explicit Several(ElementOf<V> x) {
    for (V& v : part) {
      v = x - V{};
    }
  }
};

template <typename V, typename Function>
inline Several<V> each_part(Function function) {
  Several<V> result;
  for (size_t p = 0; p < kTogether; ++p) {
    result.part[p] = function(p);
  }
  return result;
}

#define TAVO_EACH_PART(op)                                                  \
  template <typename V>                                                     \
  inline Several<V> operator op(const Several<V>& a, const Several<V>& b) { \
    return each_part<V>([&](size_t p) { return a.part[p] op b.part[p]; });  \
  }                                                                         \
  template <typename V>                                                     \
  inline Several<V> operator op(ElementOf<V> a, const Several<V>& b) {      \
    return each_part<V>([&](size_t p) { return a op b.part[p]; });          \
  }                                                                         \
  template <typename V>                                                     \
  inline Several<V> operator op(const Several<V>& a, ElementOf<V> b) {      \
    return each_part<V>([&](size_t p) { return a.part[p] op b; });          \
  }
TAVO_EACH_PART(+)
TAVO_EACH_PART(-)
TAVO_EACH_PART(*)
TAVO_EACH_PART(/)
#undef TAVO_EACH_PART

template <typename V>
inline Several<V> operator-(const Several<V>& a) {
  return each_part<V>([&](size_t p) { return -a.part[p]; });
}
template <typename V>
inline Several<V> operator<<(const Several<V>& a, int bits) {
  return each_part<V>([&](size_t p) { return a.part[p] << bits; });
}
template <typename V>
inline Several<V> operator>>(const Several<V>& a, int bits) {
  return each_part<V>([&](size_t p) { return a.part[p] >> bits; });
}

template <typename V>
using TruthOf = decltype(V{} < V{});

template <typename V>
inline Several<TruthOf<V>> operator<(const Several<V>& a, ElementOf<V> b) {
  return each_part<TruthOf<V>>([&](size_t p) { return a.part[p] < b; });
}
template <typename V>
inline Several<TruthOf<V>> operator>(const Several<V>& a, ElementOf<V> b) {
  return each_part<TruthOf<V>>([&](size_t p) { return a.part[p] > b; });
}
template <typename V>
inline Several<TruthOf<V>> operator>=(const Several<V>& a, ElementOf<V> b) {
  return each_part<TruthOf<V>>([&](size_t p) { return a.part[p] >= b; });
}
template <typename V>
inline Several<TruthOf<V>> operator==(const Several<V>& a, ElementOf<V> b) {
  return each_part<TruthOf<V>>([&](size_t p) { return a.part[p] == b; });
}
template <typename V>
inline Several<TruthOf<V>> operator==(const Several<V>& a, const Several<V>& b) {
  return each_part<TruthOf<V>>([&](size_t p) { return a.part[p] == b.part[p]; });
}
template <typename V>
inline Several<V> choose(const Several<TruthOf<V>>& first, const Several<V>& a, const Several<V>& b) {
  return each_part<V>([&](size_t p) { return first.part[p] ? a.part[p] : b.part[p]; });
}

// The same bits as another type.
template <typename To, typename From>
inline Several<To> same_bits(const Several<From>& a) {
  return each_part<To>([&](size_t p) { return reinterpret_cast<To>(a.part[p]); });
}

typedef int32_t Int32Vector __attribute__((vector_size(kVectorBytes)));
typedef uint32_t Word32Vector __attribute__((vector_size(kVectorBytes)));
typedef uint64_t Word64Vector __attribute__((vector_size(kVectorBytes)));
typedef Several<FloatVector> Floats;
typedef Several<DoubleVector> Doubles;

inline Several<Word32Vector> bits_of(const Floats& x) {
  return same_bits<Word32Vector>(x);
}
inline Several<Word64Vector> bits_of(const Doubles& x) {
  return same_bits<Word64Vector>(x);
}
inline Floats number_from_bits(const Several<Word32Vector>& bits) {
  return same_bits<FloatVector>(bits);
}
inline Doubles number_from_bits(const Several<Word64Vector>& bits) {
  return same_bits<DoubleVector>(bits);
}
inline Several<Int32Vector> as_signed(const Several<Word32Vector>& x) {
  return same_bits<Int32Vector>(x);
}
inline Several<Word32Vector> as_unsigned(const Several<Int32Vector>& x) {
  return same_bits<Word32Vector>(x);
}
inline Several<Int32Vector> integer_of(const Floats& x) {
  return each_part<Int32Vector>([&](size_t p) { return __builtin_convertvector(x.part[p], Int32Vector); });
}
inline Floats number_of(const Several<Int32Vector>& x) {
  return each_part<FloatVector>([&](size_t p) { return __builtin_convertvector(x.part[p], FloatVector); });
}

// fit_probability and fit_minus_log of every lane; complement: for each sample, all lanes or none.
inline Floats probability(const Floats& eta) {
  return 1.0f / (1.0f + float_exp(-eta));
}
inline Doubles probability(const Doubles& eta) {
  return 1.0 / (1.0 + double_exp(-eta));
}
template <typename V>
inline Several<V> choose_samples(const bool* first, const Several<V>& a, const Several<V>& b) {
  return each_part<V>(
      [&](size_t p) { return choose(all_or_none<ElementOf<V>>(first[p]), a.part[p], b.part[p]); });
}
inline Floats minus_log_probability(const Floats& eta, const bool* complement) {
  const Floats mu = probability(eta);
  return -float_log(choose_samples(complement, 1.0f - mu, mu));
}
inline Doubles minus_log_probability(const Doubles& eta, const bool* complement) {
  return double_softplus(choose_samples(complement, eta, -eta));
}

// The same of one vector.
template <typename V>
inline Several<V> alike(V x) {
  return each_part<V>([&](size_t) { return x; });
}
template <typename V>
inline V probability_of(V eta) {
  return probability(alike(eta)).part[0];
}
template <typename V>
inline V minus_log_probability_of(V eta, bool complement) {
  const bool samples[kTogether] = {complement, complement};
  return minus_log_probability(alike(eta), samples).part[0];
}

}  // namespace
