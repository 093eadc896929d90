// SPDX-License-Identifier: Apache-2.0
//
// Adding up rows of bits: numbers of 8 bits, one for each bit lane of a register, as eight planes of bits.
// Only static functions, see bit_lanes.h.
#pragma once

#include "cpu/bit_lanes.h"

namespace {

// Plane k holds bit k of all sums.
struct BitSums {
  Register plane[8];

  void clear() {
    for (Register& p : plane) {
      p = zero();
    }
  }

  // Carries of the planes above that four or eight rows leave.
  __attribute__((always_inline)) Register add_four(Register a, Register b, Register c, Register d) {
    const Register first = add_bits(plane[0], a, b);
    const Register second = add_bits(plane[0], c, d);
    return add_bits(plane[1], first, second);
  }
  template <class Rows>
  __attribute__((always_inline)) Register add_eight(const Rows& row, size_t from) {
    const Register first = add_four(row(from), row(from + 1), row(from + 2), row(from + 3));
    const Register second = add_four(row(from + 4), row(from + 5), row(from + 6), row(from + 7));
    return add_bits(plane[2], first, second);
  }

  // Four carries into plane 3; the carry into plane 5.
  __attribute__((always_inline)) Register add_carries(const Register (&carry)[4]) {
    const Register first = add_bits(plane[3], carry[0], carry[1]);
    const Register second = add_bits(plane[3], carry[2], carry[3]);
    return add_bits(plane[4], first, second);
  }

  // Adds carries into plane First.
  template <int First>
  void carry_into(Register carry) {
    for (int k = First; k < 7; ++k) {
      const Register next = both(plane[k], carry);
      plane[k] = differs(plane[k], carry);
      carry = next;
    }
    plane[7] = differs(plane[7], carry);
  }

  template <class Rows>
  __attribute__((always_inline)) void add_sixteen(const Rows& row) {
    const Register first = add_eight(row, 0);
    const Register second = add_eight(row, 8);
    carry_into<4>(add_bits(plane[3], first, second));
  }
};

// Sums below this take half of the planes.
constexpr size_t kSmallSums = 16;

// Two small sums in one: low as the lower four bits of each number, high as the upper four.
inline BitSums side_by_side(const BitSums& low, const BitSums& high) {
  BitSums both_sums;
  for (size_t k = 0; k < 4; ++k) {
    both_sums.plane[k] = low.plane[k];
    both_sums.plane[4 + k] = high.plane[k];
  }
  return both_sums;
}

// From planes to bytes, the first half of the way: the planes' bytes interleaved, four planes to 32 bits.
class InterleavedPlanes {
 public:
  explicit InterleavedPlanes(const BitSums& sums) {
    Register p[8];
    for (size_t k = 0; k < 8; ++k) {
      p[byte_of_plane(k)] = sums.plane[k];
    }
    Register pairs[2][4];
    for (size_t k = 0; k < 4; ++k) {
      pairs[0][k] = interleave_low_bytes(p[2 * k], p[2 * k + 1]);
      pairs[1][k] = interleave_high_bytes(p[2 * k], p[2 * k + 1]);
    }
    for (size_t half = 0; half < 2; ++half) {
      for (size_t of = 0; of < 2; ++of) {
        fours_[2 * half][of] = interleave_low_words(pairs[half][2 * of], pairs[half][2 * of + 1]);
        fours_[2 * half + 1][of] = interleave_high_words(pairs[half][2 * of], pairs[half][2 * of + 1]);
      }
    }
  }

  // The sums of bits 16 t .. 16 t + 15 of each 128, as bytes.
  Register bytes(size_t t) const {
    const Register* f = fours_[t / 2];
    return transpose_bits(t % 2 == 0 ? interleave_low_doubles(f[0], f[1])
                                     : interleave_high_doubles(f[0], f[1]));
  }

 private:
  Register fours_[4][2];
};

}  // namespace
