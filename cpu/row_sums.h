// SPDX-License-Identifier: Apache-2.0
//
// Adding up the rows of a list of samples. Only static functions, see bit_lanes.h.
#pragma once

#include "cpu/bit_sums.h"
#include "cpu/row_filter.h"

namespace {

// Both rows of a list's samples, added up side by side where registers suffice.
__attribute__((always_inline)) inline void add_up(const uint8_t* rows, const uint16_t* samples, size_t n,
                                                  BitSums& one, BitSums& two) {
  const auto row_of_one = [&](size_t i) { return held(load(rows + samples[i])); };
  const auto row_of_two = [&](size_t i) { return held(load(rows + kRowBytes + samples[i])); };
  BitSums a;
  BitSums b;
  a.clear();
  b.clear();
  const uint16_t* const end = samples + n;
  for (; samples + 32 <= end; samples += 32) {
    Register carry_of_one[4];
    Register carry_of_two[4];
#pragma GCC unroll 4
    for (size_t k = 0; k < 4; ++k) {
      carry_of_one[k] = a.add_eight(row_of_one, 8 * k);
      carry_of_two[k] = b.add_eight(row_of_two, 8 * k);
    }
    a.carry_into<5>(a.add_carries(carry_of_one));
    b.carry_into<5>(b.add_carries(carry_of_two));
  }
  if (samples + 16 <= end) {
    const Register first_of_one = a.add_eight(row_of_one, 0);
    const Register first_of_two = b.add_eight(row_of_two, 0);
    a.carry_into<4>(add_bits(a.plane[3], first_of_one, a.add_eight(row_of_one, 8)));
    b.carry_into<4>(add_bits(b.plane[3], first_of_two, b.add_eight(row_of_two, 8)));
    samples += 16;
  }
  if (samples + 8 <= end) {
    a.carry_into<3>(a.add_eight(row_of_one, 0));
    b.carry_into<3>(b.add_eight(row_of_two, 0));
    samples += 8;
  }
  if (samples < end) {
    a.carry_into<2>(a.add_four(row_of_one(0), row_of_one(1), row_of_one(2), row_of_one(3)));
    b.carry_into<2>(b.add_four(row_of_two(0), row_of_two(1), row_of_two(2), row_of_two(3)));
  }
  one = a;
  two = b;
}

// The same of the bits that both rows of a sample have: missing genotypes.
__attribute__((always_inline)) inline BitSums add_up_missing(const uint8_t* rows, const uint16_t* samples,
                                                             size_t n) {
  const auto row = [&](size_t i) {
    return held(both(load(rows + samples[i]), load(rows + kRowBytes + samples[i])));
  };
  BitSums a;
  a.clear();
  const uint16_t* const end = samples + n;
  for (; samples + 16 <= end; samples += 16) {
    a.add_sixteen(row);
  }
  for (; samples < end; samples += kListStep) {
    a.carry_into<2>(a.add_four(row(0), row(1), row(2), row(3)));
  }
  return a;
}

// Asks for one of n shares of the rows of the piece behind `piece`: for the second-level cache, while other
// rows are added up. Always inline: as a function, g++ takes it for one without effect.
__attribute__((always_inline)) inline void fetch_next(const RowPieces& in, size_t piece, const uint8_t* rows,
                                                      size_t share, size_t n) {
  if (!in.far || piece + 1 >= in.n_pieces) {
    return;
  }
  const size_t first = in.pieces[piece + 1].first_sample;
  const size_t end = piece + 2 < in.n_pieces ? in.pieces[piece + 2].first_sample : in.n_samples;
  const uint8_t* const to = rows + (first + (end - first) * (share + 1) / n) * kSampleBytes;
  constexpr size_t kCacheLine = 64;
  for (const uint8_t* from = rows + (first + (end - first) * share / n) * kSampleBytes; from < to;
       from += kCacheLine) {
    __builtin_prefetch(from, 0, 2);
  }
}

}  // namespace
