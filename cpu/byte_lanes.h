// SPDX-License-Identifier: Apache-2.0
//
// Registers of bytes and of 16-bit words for the byte filter, as wide as the including file's instruction
// set: only static functions and types of an unnamed namespace, since that file is compiled for other
// processors than the rest.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __AVX2__
#include <immintrin.h>
#endif

namespace {

#if defined(__AVX512BITALG__)

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
inline Register add_saturated(Register a, Register b) {
  return _mm512_adds_epi16(a, b);
}
inline Register subtract_saturated(Register a, Register b) {
  return _mm512_subs_epi16(a, b);
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

#elif defined(__AVX2__)

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
inline Register add_saturated(Register a, Register b) {
  return _mm256_adds_epi16(a, b);
}
inline Register subtract_saturated(Register a, Register b) {
  return _mm256_subs_epi16(a, b);
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

#else

constexpr size_t kRegisterBytes = 16;
typedef uint8_t Register __attribute__((vector_size(kRegisterBytes)));
typedef int16_t WordLanes __attribute__((vector_size(kRegisterBytes)));
typedef uint16_t UnsignedLanes __attribute__((vector_size(kRegisterBytes)));

inline Register load(const void* from) {
  Register r;
  memcpy(&r, from, sizeof(r));
  return r;
}
inline void store(void* to, Register r) {
  memcpy(to, &r, sizeof(r));
}
inline Register bytes_of(uint8_t byte) {
  return Register{} + byte;
}
inline Register both(Register a, Register b) {
  return a & b;
}
// Sums of neighbouring bits, pairs and halves.
inline Register ones_of_bytes(Register a) {
  const Register pairs = a - ((a >> 1) & 0x55);
  const Register halves = (pairs & 0x33) + ((pairs >> 2) & 0x33);
  return (halves + (halves >> 4)) & 0x0f;
}
inline Register add_bytes(Register a, Register b) {
  return a + b;
}
inline Register low_words(Register bytes) {
  WordLanes words;
  for (size_t i = 0; i < kRegisterBytes / 2; ++i) {
    words[i] = bytes[i];
  }
  return (Register)words;
}
inline Register high_words(Register bytes) {
  WordLanes words;
  for (size_t i = 0; i < kRegisterBytes / 2; ++i) {
    words[i] = bytes[kRegisterBytes / 2 + i];
  }
  return (Register)words;
}
inline Register words_of(int value) {
  return (Register)(WordLanes{} + static_cast<int16_t>(value));
}
inline Register add(Register a, Register b) {
  return (Register)((UnsignedLanes)a + (UnsignedLanes)b);
}
inline Register subtract(Register a, Register b) {
  return (Register)((UnsignedLanes)a - (UnsignedLanes)b);
}
// The nearest bound where a sum or difference of a and something else has left 16 bits, which `left` says by
// its sign.
inline Register saturated(WordLanes a, WordLanes result, WordLanes left) {
  return (Register)(left < 0 ? (a >> 15) ^ 0x7fff : result);
}
inline Register add_saturated(Register a, Register b) {
  const WordLanes x = (WordLanes)a;
  const WordLanes y = (WordLanes)b;
  const WordLanes sum = (WordLanes)add(a, b);
  return saturated(x, sum, (x ^ sum) & (y ^ sum));
}
inline Register subtract_saturated(Register a, Register b) {
  const WordLanes x = (WordLanes)a;
  const WordLanes y = (WordLanes)b;
  const WordLanes difference = (WordLanes)subtract(a, b);
  return saturated(x, difference, (x ^ y) & (x ^ difference));
}
inline Register multiply(Register a, Register b) {
  return (Register)((WordLanes)a * (WordLanes)b);
}
inline Register larger(Register a, Register b) {
  const WordLanes x = (WordLanes)a;
  const WordLanes y = (WordLanes)b;
  return (Register)(x > y ? x : y);
}
// A bit for each of the words of low, then of high.
inline uint64_t at_least(Register low, Register high, Register limit) {
  const WordLanes in_low = (WordLanes)low >= (WordLanes)limit;
  const WordLanes in_high = (WordLanes)high >= (WordLanes)limit;
  uint64_t lanes = 0;
  for (size_t i = 0; i < kRegisterBytes / 2; ++i) {
    lanes |= static_cast<uint64_t>(in_low[i] & 1) << i;
    lanes |= static_cast<uint64_t>(in_high[i] & 1) << (kRegisterBytes / 2 + i);
  }
  return lanes;
}

#endif

}  // namespace
