// SPDX-License-Identifier: Apache-2.0
//
// Vectors for the fit kernels, as wide as the including file's instruction set: only static functions and
// types of an unnamed namespace, since that file is compiled for other processors than the rest.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __AVX512F__
#include <immintrin.h>
#endif

#include "lib/fit_math.h"

namespace {

#if defined(__AVX512F__)
constexpr size_t kVectorBytes = 64;
#elif defined(__AVX2__)
constexpr size_t kVectorBytes = 32;
#else
constexpr size_t kVectorBytes = 16;
#endif

typedef float FloatVector __attribute__((vector_size(kVectorBytes)));
typedef double DoubleVector __attribute__((vector_size(kVectorBytes)));

template <typename T>
struct VectorOf;
template <>
struct VectorOf<float> {
  using V = FloatVector;
  using Bits = int32_t;
};
template <>
struct VectorOf<double> {
  using V = DoubleVector;
  using Bits = int64_t;
};
template <typename T>
using Vector = typename VectorOf<T>::V;
template <typename T>
constexpr size_t kLaneCount = kVectorBytes / sizeof(T);

template <typename T>
inline Vector<T> load(const T* from) {
  Vector<T> v;
  memcpy(&v, from, sizeof(v));
  return v;
}

template <typename T>
inline void store(T* to, Vector<T> v) {
  memcpy(to, &v, sizeof(v));
}

template <typename T>
inline Vector<T> broadcast(T x) {
  return x - Vector<T>{};  // x - 0 is x, -0 included
}

// A set of lanes, from the bits of a word; add_in(set, a, b) is a + b in the lanes of the set and a
// elsewhere, choose(set, a, b) is a there and b elsewhere.
#if defined(__AVX512F__)

template <typename T>
struct LaneSet {
  uint16_t bits;
};
template <typename T>
inline LaneSet<T> lanes_of(unsigned bits) {
  return {static_cast<uint16_t>(bits)};
}
template <typename T>
inline LaneSet<T> both(LaneSet<T> a, LaneSet<T> b) {
  return {static_cast<uint16_t>(a.bits & b.bits)};
}
inline FloatVector add_in(LaneSet<float> set, FloatVector a, FloatVector b) {
  return _mm512_mask_add_ps(a, set.bits, a, b);
}
inline DoubleVector add_in(LaneSet<double> set, DoubleVector a, DoubleVector b) {
  return _mm512_mask_add_pd(a, static_cast<__mmask8>(set.bits), a, b);
}
inline FloatVector choose(LaneSet<float> set, FloatVector a, FloatVector b) {
  return _mm512_mask_mov_ps(b, set.bits, a);
}
inline DoubleVector choose(LaneSet<double> set, DoubleVector a, DoubleVector b) {
  return _mm512_mask_mov_pd(b, static_cast<__mmask8>(set.bits), a);
}

#else

template <typename T>
struct LaneSet {
  typedef typename VectorOf<T>::Bits Bits;
  typedef Bits Mask __attribute__((vector_size(kVectorBytes)));
  Mask mask;  // all bits of a lane of the set
};
template <typename T>
inline LaneSet<T> lanes_of(unsigned bits) {
  typename LaneSet<T>::Mask bit_of_lane;
  for (size_t l = 0; l < kLaneCount<T>; ++l) {
    bit_of_lane[l] = typename LaneSet<T>::Bits{1} << l;
  }
  const auto spread = static_cast<typename LaneSet<T>::Bits>(bits) + typename LaneSet<T>::Mask{};
  return {(spread & bit_of_lane) != 0};
}
template <typename T>
inline LaneSet<T> both(LaneSet<T> a, LaneSet<T> b) {
  return {a.mask & b.mask};
}
template <typename T>
inline Vector<T> add_in(LaneSet<T> set, Vector<T> a, Vector<T> b) {
  return set.mask ? a + b : a;
}
template <typename T>
inline Vector<T> choose(LaneSet<T> set, Vector<T> a, Vector<T> b) {
  return set.mask ? a : b;
}

#endif

// All lanes, or none.
template <typename T>
inline LaneSet<T> all_or_none(bool all) {
  return lanes_of<T>(all ? ~0u : 0u);
}

}  // namespace
