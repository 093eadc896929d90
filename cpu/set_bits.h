// SPDX-License-Identifier: Apache-2.0
//
// The places of the set bits of a word, for whatever instruction set the including file is compiled for. Only
// static functions.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __AVX2__
#include <immintrin.h>
#endif

namespace {

inline size_t ones(uint64_t bits) {
#ifdef __POPCNT__
  return static_cast<size_t>(__builtin_popcountll(bits));
#else
  bits -= bits >> 1 & 0x5555555555555555;
  bits = (bits & 0x3333333333333333) + (bits >> 2 & 0x3333333333333333);
  bits = (bits + (bits >> 4)) & 0x0f0f0f0f0f0f0f0f;
  return static_cast<size_t>(bits * 0x0101010101010101 >> 56);
#endif
}

#ifdef __AVX512VBMI2__

// The numbers of the set bits, in order; the other bytes are 0.
inline __m512i set_bits(uint64_t bits) {
  alignas(64) static constexpr uint8_t kPlaces[64] = {
      0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
      22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43,
      44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63};
  return _mm512_maskz_compress_epi8(bits, _mm512_load_si512(kPlaces));
}

// Writes first plus the number of each set bit, in order, and up to 64 numbers in all. Returns how many bits
// are set.
inline size_t write_set_bits(uint64_t bits, uint32_t first, uint32_t* out) {
  const size_t n = ones(bits);
  const __m512i places = set_bits(bits);
  const __m512i start = _mm512_set1_epi32(static_cast<int>(first));
  const auto write = [&](__m128i bytes, size_t at) {
    _mm512_storeu_si512(out + at, _mm512_add_epi32(_mm512_cvtepu8_epi32(bytes), start));
  };
  write(_mm512_castsi512_si128(places), 0);
  if (n > 16) {
    write(_mm512_extracti32x4_epi32(places, 1), 16);
    if (n > 32) {
      write(_mm512_extracti32x4_epi32(places, 2), 32);
      write(_mm512_extracti32x4_epi32(places, 3), 48);
    }
  }
  return n;
}

#else

inline size_t write_set_bits(uint64_t bits, uint32_t first, uint32_t* out) {
  const uint32_t* const start = out;
  for (; bits != 0; bits &= bits - 1) {
    *out++ = first + static_cast<uint32_t>(__builtin_ctzll(bits));
  }
  return static_cast<size_t>(out - start);
}

#endif

}  // namespace
