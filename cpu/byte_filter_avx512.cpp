// SPDX-License-Identifier: Apache-2.0
//
// The byte filter for processors with AVX-512 F, BW, VL and BITALG. Only static functions, and no library
// templates: this file is compiled for those processors alone.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

namespace {

using Register = __m512i;
constexpr size_t kRegisterBytes = 64;

inline Register load(const void* from) {
  return _mm512_loadu_si512(from);
}
inline void store(void* to, Register r) {
  _mm512_storeu_si512(to, r);
}
inline Register bytes_of(uint8_t byte) {
  return _mm512_set1_epi8(static_cast<char>(byte));
}
inline Register both(Register a, Register b) {
  return _mm512_and_si512(a, b);
}
inline Register ones_of_bytes(Register a) {
  return _mm512_popcnt_epi8(a);
}
inline Register add_bytes(Register a, Register b) {
  return _mm512_add_epi8(a, b);
}
inline Register low_words(Register bytes) {
  return _mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes));
}
inline Register high_words(Register bytes) {
  return _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1));
}
inline Register words_of(int value) {
  return _mm512_set1_epi16(static_cast<short>(value));
}
inline Register add(Register a, Register b) {
  return _mm512_add_epi16(a, b);
}
inline Register subtract(Register a, Register b) {
  return _mm512_sub_epi16(a, b);
}
inline Register multiply(Register a, Register b) {
  return _mm512_mullo_epi16(a, b);
}
inline Register larger(Register a, Register b) {
  return _mm512_max_epi16(a, b);
}
// A bit for each of the words of low, then of high.
inline uint64_t at_least(Register low, Register high, Register limit) {
  return static_cast<uint64_t>(_mm512_cmpge_epi16_mask(low, limit)) |
         static_cast<uint64_t>(_mm512_cmpge_epi16_mask(high, limit)) << 32;
}

}  // namespace

#include "cpu/byte_filter_body.h"

uint64_t byte_filter_avx512(const ByteFilterInput& input) {
  return filter(input);
}
