// SPDX-License-Identifier: Apache-2.0
//
// Pairs of counts side by side, as many as the including file's instruction set takes: controls in the lower,
// cases in the upper 16 bits. Only static functions and types of an unnamed namespace.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __AVX2__
#include <immintrin.h>
#endif

namespace {

#if defined(__AVX512BW__)
constexpr size_t kPairBytes = 64;
#elif defined(__AVX2__)
constexpr size_t kPairBytes = 32;
#else
constexpr size_t kPairBytes = 16;
#endif
constexpr size_t kPairLanes = kPairBytes / 4;
typedef int32_t IntLanes __attribute__((vector_size(kPairBytes)));
typedef uint32_t PairLanes __attribute__((vector_size(kPairBytes)));

inline PairLanes load_pairs(const uint32_t* from) {
  PairLanes lanes;
  __builtin_memcpy(&lanes, from, sizeof(lanes));
  return lanes;
}

inline void store_pairs(uint32_t* to, PairLanes lanes) {
  __builtin_memcpy(to, &lanes, sizeof(lanes));
}

inline IntLanes controls_of(PairLanes pairs) {
  return (IntLanes)(pairs & 0xffffu);
}

inline IntLanes cases_of(PairLanes pairs) {
  return (IntLanes)(pairs >> 16);
}

}  // namespace
