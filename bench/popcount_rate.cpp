// SPDX-License-Identifier: Apache-2.0
#include "bench/popcount_rate.h"

#include <bit>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

uint64_t count_plain(const uint64_t* a, const uint64_t* b, size_t n_words) {
  uint64_t sum = 0;
  for (size_t i = 0; i < n_words; ++i) {
    sum += static_cast<uint64_t>(std::popcount(a[i] & b[i]));
  }
  return sum;
}

#if defined(__x86_64__)

__attribute__((target("avx512f,avx512vpopcntdq"))) uint64_t count_wide(const uint64_t* a, const uint64_t* b,
                                                                       size_t n_words) {
  __m512i sums[4] = {_mm512_setzero_si512(), _mm512_setzero_si512(), _mm512_setzero_si512(),
                     _mm512_setzero_si512()};
  size_t i = 0;
  for (; i + 32 <= n_words; i += 32) {
    for (size_t part = 0; part < 4; ++part) {
      const __m512i both =
          _mm512_and_si512(_mm512_loadu_si512(a + i + 8 * part), _mm512_loadu_si512(b + i + 8 * part));
      sums[part] = _mm512_add_epi64(sums[part], _mm512_popcnt_epi64(both));
    }
  }
  uint64_t lanes[8];
  _mm512_storeu_si512(
      lanes, _mm512_add_epi64(_mm512_add_epi64(sums[0], sums[1]), _mm512_add_epi64(sums[2], sums[3])));
  uint64_t sum = 0;
  for (const uint64_t lane : lanes) {
    sum += lane;
  }
  return sum + count_plain(a + i, b + i, n_words - i);
}

#endif

}  // namespace

uint64_t count_common_bits(const uint64_t* a, const uint64_t* b, size_t n_words) {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512vpopcntdq")) {
    return count_wide(a, b, n_words);
  }
#endif
  return count_plain(a, b, n_words);
}
