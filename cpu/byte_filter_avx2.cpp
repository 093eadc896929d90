// SPDX-License-Identifier: Apache-2.0
//
// The byte filter for processors with AVX2. Only static functions, and no library templates: this file is
// compiled for those processors alone.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

namespace {

using Register = __m256i;
constexpr size_t kRegisterBytes = 32;

inline Register load(const void* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}
inline void store(void* to, Register r) {
  _mm256_storeu_si256(static_cast<__m256i*>(to), r);
}
inline Register bytes_of(uint8_t byte) {
  return _mm256_set1_epi8(static_cast<char>(byte));
}
inline Register both(Register a, Register b) {
  return _mm256_and_si256(a, b);
}
// By the number of ones of each half of a byte, from a table.
inline Register ones_of_bytes(Register a) {
  const Register table = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4, 0, 1, 1, 2, 1, 2, 2,
                                          3, 1, 2, 2, 3, 2, 3, 3, 4);
  const Register half = _mm256_set1_epi8(15);
  return _mm256_add_epi8(_mm256_shuffle_epi8(table, _mm256_and_si256(a, half)),
                         _mm256_shuffle_epi8(table, _mm256_and_si256(_mm256_srli_epi16(a, 4), half)));
}
inline Register add_bytes(Register a, Register b) {
  return _mm256_add_epi8(a, b);
}
inline Register low_words(Register bytes) {
  return _mm256_cvtepu8_epi16(_mm256_castsi256_si128(bytes));
}
inline Register high_words(Register bytes) {
  return _mm256_cvtepu8_epi16(_mm256_extracti128_si256(bytes, 1));
}
inline Register words_of(int value) {
  return _mm256_set1_epi16(static_cast<short>(value));
}
inline Register add(Register a, Register b) {
  return _mm256_add_epi16(a, b);
}
inline Register subtract(Register a, Register b) {
  return _mm256_sub_epi16(a, b);
}
inline Register multiply(Register a, Register b) {
  return _mm256_mullo_epi16(a, b);
}
inline Register larger(Register a, Register b) {
  return _mm256_max_epi16(a, b);
}
// A bit for each of the words of low, then of high.
inline uint64_t at_least(Register low, Register high, Register limit) {
  const Register below = _mm256_packs_epi16(_mm256_cmpgt_epi16(limit, low), _mm256_cmpgt_epi16(limit, high));
  return static_cast<uint32_t>(~_mm256_movemask_epi8(_mm256_permute4x64_epi64(below, 0xd8)));
}

}  // namespace

#include "cpu/byte_filter_body.h"

uint64_t byte_filter_avx2(const ByteFilterInput& input) {
  return filter(input);
}
