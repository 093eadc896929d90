// SPDX-License-Identifier: Apache-2.0
//
// Registers for the row filter, as wide as the including file's instruction set: bits, bytes and 16-bit words
// side by side. Only static functions and types of an unnamed namespace, since that file is compiled for
// other processors than the rest. "Within its 16 bytes" is how the processors interleave: each part of 16
// bytes of a register by itself.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __AVX2__
#include <immintrin.h>
#endif

namespace {

#if defined(__AVX512BW__)

using Register = __m512i;
constexpr size_t kRegisterBytes = 64;

inline Register load(const void* from) {
  return _mm512_loadu_si512(from);
}
inline void store(void* to, Register r) {
  _mm512_storeu_si512(to, r);
}
// The same in a register for good: the compiler would load it again for each operation that takes it.
inline Register held(Register r) {
  asm("" : "+v"(r));
  return r;
}
inline Register zero() {
  return _mm512_setzero_si512();
}
inline Register both(Register a, Register b) {
  return _mm512_and_si512(a, b);
}
inline Register either(Register a, Register b) {
  return _mm512_or_si512(a, b);
}
inline Register differs(Register a, Register b) {
  return _mm512_xor_si512(a, b);
}
// Adds bits a and b to a sum; returns the carries.
inline Register add_bits(Register& sum, Register a, Register b) {
  const Register carry = _mm512_ternarylogic_epi64(sum, a, b, 0xe8);
  sum = _mm512_ternarylogic_epi64(sum, a, b, 0x96);
  return carry;
}
inline Register interleave_low_bytes(Register a, Register b) {
  return _mm512_unpacklo_epi8(a, b);
}
inline Register interleave_high_bytes(Register a, Register b) {
  return _mm512_unpackhi_epi8(a, b);
}
inline Register interleave_low_words(Register a, Register b) {
  return _mm512_unpacklo_epi16(a, b);
}
inline Register interleave_high_words(Register a, Register b) {
  return _mm512_unpackhi_epi16(a, b);
}
inline Register interleave_low_doubles(Register a, Register b) {
  return _mm512_unpacklo_epi32(a, b);
}
inline Register interleave_high_doubles(Register a, Register b) {
  return _mm512_unpackhi_epi32(a, b);
}
// Of each 8 bytes: bit j of the byte of plane k becomes bit k of byte j. The matrix of the instruction is the
// data, byte j of the constant picks bit j of each of its rows, and rows count from the last byte.
inline Register transpose_bits(Register a) {
  return _mm512_gf2p8affine_epi64_epi8(_mm512_set1_epi64(static_cast<long long>(0x8040201008040201)), a, 0);
}
constexpr size_t byte_of_plane(size_t k) {
  return 7 - k;
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
inline Register larger(Register a, Register b) {
  return _mm512_max_epi16(a, b);
}
// Words: unsigned byte 2i of a times signed byte 2i of weights, plus the same of bytes 2i + 1.
inline Register weighted_pairs(Register a, Register weights) {
  return _mm512_maddubs_epi16(a, weights);
}
// The words of low and high as signed bytes within their 16 bytes, the nearest where they do not fit.
inline Register packed(Register low, Register high) {
  return _mm512_packs_epi16(low, high);
}
inline Register bytes_of(int value) {
  return _mm512_set1_epi8(static_cast<char>(value));
}
inline Register add_bytes(Register a, Register b) {
  return _mm512_add_epi8(a, b);
}
inline Register subtract_bytes(Register a, Register b) {
  return _mm512_sub_epi8(a, b);
}
// Unsigned bytes that stop at 255 and at 0.
inline Register add_capped(Register a, Register b) {
  return _mm512_adds_epu8(a, b);
}
inline Register subtract_floored(Register a, Register b) {
  return _mm512_subs_epu8(a, b);
}
inline Register high_nibbles(Register a) {
  return _mm512_and_si512(_mm512_srli_epi16(a, 4), _mm512_set1_epi8(15));
}
// A bit for each byte that is not 0, for each negative byte.
inline uint64_t nonzero_bytes(Register a) {
  return _mm512_test_epi8_mask(a, a);
}
inline uint64_t negative_bytes(Register a) {
  return _mm512_movepi8_mask(a);
}

#else

#if defined(__AVX2__)

using Register = __m256i;
constexpr size_t kRegisterBytes = 32;

inline Register load(const void* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}
inline void store(void* to, Register r) {
  _mm256_storeu_si256(static_cast<__m256i*>(to), r);
}
inline Register held(Register r) {
  asm("" : "+x"(r));
  return r;
}
inline Register zero() {
  return _mm256_setzero_si256();
}
inline Register both(Register a, Register b) {
  return _mm256_and_si256(a, b);
}
inline Register either(Register a, Register b) {
  return _mm256_or_si256(a, b);
}
inline Register differs(Register a, Register b) {
  return _mm256_xor_si256(a, b);
}
inline Register interleave_low_bytes(Register a, Register b) {
  return _mm256_unpacklo_epi8(a, b);
}
inline Register interleave_high_bytes(Register a, Register b) {
  return _mm256_unpackhi_epi8(a, b);
}
inline Register interleave_low_words(Register a, Register b) {
  return _mm256_unpacklo_epi16(a, b);
}
inline Register interleave_high_words(Register a, Register b) {
  return _mm256_unpackhi_epi16(a, b);
}
inline Register interleave_low_doubles(Register a, Register b) {
  return _mm256_unpacklo_epi32(a, b);
}
inline Register interleave_high_doubles(Register a, Register b) {
  return _mm256_unpackhi_epi32(a, b);
}
template <int Distance>
inline Register swapped(Register a, uint64_t mask) {
  const Register m = _mm256_set1_epi64x(static_cast<long long>(mask));
  const Register t = _mm256_and_si256(_mm256_xor_si256(a, _mm256_srli_epi64(a, Distance)), m);
  return _mm256_xor_si256(_mm256_xor_si256(a, t), _mm256_slli_epi64(t, Distance));
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
inline Register larger(Register a, Register b) {
  return _mm256_max_epi16(a, b);
}
// Words: unsigned byte 2i of a times signed byte 2i of weights, plus the same of bytes 2i + 1.
inline Register weighted_pairs(Register a, Register weights) {
  return _mm256_maddubs_epi16(a, weights);
}
// The words of low and high as signed bytes within their 16 bytes, the nearest where they do not fit.
inline Register packed(Register low, Register high) {
  return _mm256_packs_epi16(low, high);
}
inline Register bytes_of(int value) {
  return _mm256_set1_epi8(static_cast<char>(value));
}
inline Register add_bytes(Register a, Register b) {
  return _mm256_add_epi8(a, b);
}
inline Register subtract_bytes(Register a, Register b) {
  return _mm256_sub_epi8(a, b);
}
// Unsigned bytes that stop at 255 and at 0.
inline Register add_capped(Register a, Register b) {
  return _mm256_adds_epu8(a, b);
}
inline Register subtract_floored(Register a, Register b) {
  return _mm256_subs_epu8(a, b);
}
inline Register high_nibbles(Register a) {
  return _mm256_and_si256(_mm256_srli_epi16(a, 4), _mm256_set1_epi8(15));
}
// A bit for each negative byte, for each byte that is not 0.
inline uint64_t negative_bytes(Register a) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(a));
}
inline uint64_t nonzero_bytes(Register a) {
  return ~negative_bytes(_mm256_cmpeq_epi8(a, zero())) & 0xffffffff;
}

#else

constexpr size_t kRegisterBytes = 16;
typedef uint8_t Register __attribute__((vector_size(kRegisterBytes)));
typedef int16_t WordLanes __attribute__((vector_size(kRegisterBytes)));
typedef uint16_t UnsignedLanes __attribute__((vector_size(kRegisterBytes)));
typedef uint64_t QuadLanes __attribute__((vector_size(kRegisterBytes)));

inline Register load(const void* from) {
  Register r;
  memcpy(&r, from, sizeof(r));
  return r;
}
inline void store(void* to, Register r) {
  memcpy(to, &r, sizeof(r));
}
inline Register held(Register r) {
  return r;
}
inline Register zero() {
  return Register{};
}
inline Register both(Register a, Register b) {
  return a & b;
}
inline Register either(Register a, Register b) {
  return a | b;
}
inline Register differs(Register a, Register b) {
  return a ^ b;
}
inline Register interleave_low_bytes(Register a, Register b) {
  return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
inline Register interleave_high_bytes(Register a, Register b) {
  return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
}
inline Register interleave_low_words(Register a, Register b) {
  return __builtin_shufflevector(a, b, 0, 1, 16, 17, 2, 3, 18, 19, 4, 5, 20, 21, 6, 7, 22, 23);
}
inline Register interleave_high_words(Register a, Register b) {
  return __builtin_shufflevector(a, b, 8, 9, 24, 25, 10, 11, 26, 27, 12, 13, 28, 29, 14, 15, 30, 31);
}
inline Register interleave_low_doubles(Register a, Register b) {
  return __builtin_shufflevector(a, b, 0, 1, 2, 3, 16, 17, 18, 19, 4, 5, 6, 7, 20, 21, 22, 23);
}
inline Register interleave_high_doubles(Register a, Register b) {
  return __builtin_shufflevector(a, b, 8, 9, 10, 11, 24, 25, 26, 27, 12, 13, 14, 15, 28, 29, 30, 31);
}
template <int Distance>
inline Register swapped(Register a, uint64_t mask) {
  const QuadLanes q = (QuadLanes)a;
  const QuadLanes t = (q ^ (q >> Distance)) & mask;
  return (Register)(q ^ t ^ (t << Distance));
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
inline Register larger(Register a, Register b) {
  const WordLanes x = (WordLanes)a;
  const WordLanes y = (WordLanes)b;
  return (Register)(x > y ? x : y);
}
// Words: unsigned byte 2i of a times signed byte 2i of weights, plus the same of bytes 2i + 1.
inline Register weighted_pairs(Register a, Register weights) {
  const WordLanes even = (WordLanes)((UnsignedLanes)a & 0xff) * (((WordLanes)weights << 8) >> 8);
  const WordLanes odd = (WordLanes)((UnsignedLanes)a >> 8) * ((WordLanes)weights >> 8);
  return (Register)(even + odd);
}
// The words of low and high as signed bytes, the nearest where they do not fit.
inline Register packed(Register low, Register high) {
  const WordLanes least = WordLanes{} - 128;
  const WordLanes most = WordLanes{} + 127;
  const auto clamped = [&](Register r) {
    const WordLanes w = (WordLanes)r < least ? least : (WordLanes)r;
    return (Register)(w > most ? most : w);
  };
  return __builtin_shufflevector(clamped(low), clamped(high), 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24,
                                 26, 28, 30);
}
inline Register bytes_of(int value) {
  return Register{} + static_cast<uint8_t>(value);
}
inline Register add_bytes(Register a, Register b) {
  return a + b;
}
inline Register subtract_bytes(Register a, Register b) {
  return a - b;
}
// Unsigned bytes that stop at 255 and at 0.
inline Register add_capped(Register a, Register b) {
  const Register sum = a + b;
  return sum | (Register)(sum < a);
}
inline Register subtract_floored(Register a, Register b) {
  return (a - b) & (Register)(a > b);
}
inline Register high_nibbles(Register a) {
  return a >> 4;
}
// A bit for each byte that is not 0, for each negative byte.
inline uint64_t nonzero_bytes(Register a) {
  uint64_t bits = 0;
  for (size_t i = 0; i < kRegisterBytes; ++i) {
    bits |= (a[i] != 0 ? uint64_t{1} : 0) << i;
  }
  return bits;
}
inline uint64_t negative_bytes(Register a) {
  return nonzero_bytes(a & 0x80);
}

#endif

// Adds bits a and b to a sum; returns the carries.
inline Register add_bits(Register& sum, Register a, Register b) {
  const Register odd = differs(a, b);
  const Register carry = either(both(a, b), both(odd, sum));
  sum = differs(sum, odd);
  return carry;
}
// Of each 8 bytes: bit j of the byte of plane k becomes bit k of byte j. Squares of 1, 2 and 4 bits change
// places.
inline Register transpose_bits(Register a) {
  return swapped<28>(swapped<14>(swapped<7>(a, 0x00aa00aa00aa00aa), 0x0000cccc0000cccc), 0x00000000f0f0f0f0);
}
constexpr size_t byte_of_plane(size_t k) {
  return k;
}

#endif

}  // namespace
