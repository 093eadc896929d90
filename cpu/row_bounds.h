// SPDX-License-Identifier: Apache-2.0
//
// The bounds of the row filter, from the values of the counted cells. Only static functions, see bit_lanes.h.
#pragma once

#include "cpu/bit_lanes.h"
#include "cpu/row_filter.h"

namespace {

// 16-bit words of a half group.
constexpr size_t kHalfGroup = kGroupLanes / 2;

inline Register positive(Register words) {
  return larger(words, zero());
}

// Lists of a piece: of each class, in words.
inline size_t lists_of(const RowFilterInput& in) {
  return in.n_patterns - (in.list_missing ? 0 : 1);
}

// Values in 16 bits: every sum of them fits. Missing: behind the patterns' cells come those of samples that
// lack a genotype of the prefix.
template <size_t Patterns, bool Missing>
class WordBound {
 public:
  static constexpr size_t kLists = Missing ? Patterns : Patterns - 1;

  WordBound(const RowFilterInput& in, size_t byte) : in_(in), first_word_(byte / 2) {}

  // values: of prefix and group t. The register's lanes of the group, a bit each.
  uint64_t passing(const RowPrefix& prefix, const int16_t* values, size_t t) const {
    return negative_bytes(packed(half(prefix, values, t, 0), half(prefix, values, t, 1)));
  }

 private:
  static constexpr size_t kCells = 2 * kLists;

  // Negative where a fold passes.
  Register half(const RowPrefix& prefix, const int16_t* values, size_t t, size_t h) const {
    values += h * in_.n_pairs * kCells * kHalfGroup + first_word_;
    const int16_t* last = in_.last_words + (2 * t + h) * in_.n_folds * 2 * kHalfGroup + first_word_;
    Register total[kCells];
    for (size_t cell = 0; cell < kCells; ++cell) {
      total[cell] = zero();
    }
    for (size_t pair = 0; pair < in_.n_pairs; ++pair) {
      for (size_t cell = 0; cell < kCells; ++cell) {
        total[cell] = add(total[cell], load(values + (pair * kCells + cell) * kHalfGroup));
      }
    }
    const Register slack = add(words_of(prefix.slack), load(static_cast<const int16_t*>(in_.last_slacks) +
                                                            (2 * t + h) * kHalfGroup + first_word_));
    Register passes = zero();
    for (size_t f = 0; f < in_.n_folds; ++f, last += 2 * kHalfGroup) {
      const int16_t* of_pattern = prefix.values + f * Patterns;
      const int16_t* tested = values + f * kCells * kHalfGroup;
      Register left_one = load(last);
      Register left_two = load(last + kHalfGroup);
      Register sum = slack;
      for (size_t pattern = 1; pattern < Patterns; ++pattern) {
        const size_t cell = 2 * (pattern - 1);
        const Register one = subtract(total[cell], load(tested + cell * kHalfGroup));
        const Register two = subtract(total[cell + 1], load(tested + (cell + 1) * kHalfGroup));
        const Register none = subtract(words_of(of_pattern[pattern]), add(one, two));
        left_one = subtract(left_one, one);
        left_two = subtract(left_two, two);
        sum = add(sum, add(positive(one), add(positive(two), positive(none))));
      }
      if (Missing) {
        left_one = subtract(left_one, subtract(total[kCells - 2], load(tested + (kCells - 2) * kHalfGroup)));
        left_two = subtract(left_two, subtract(total[kCells - 1], load(tested + (kCells - 1) * kHalfGroup)));
      }
      const Register left = subtract(words_of(of_pattern[0]), add(left_one, left_two));
      sum = add(sum, add(positive(left_one), add(positive(left_two), positive(left))));
      passes = either(passes, subtract(words_of(in_.needs[f] - 1), sum));
    }
    return passes;
  }

  const RowFilterInput& in_;
  const size_t first_word_;
};

// Values in bytes, 128 more than they are, so that an unsigned difference that stops at 0 is the positive
// part of a signed one. A fold's value of a cell fits; a total may not: one below -128 has no positive part
// without any fold either, and where one is above 127 the lane passes. Sums stop at 255: as a need does.
template <size_t Patterns, bool Missing>
class ByteBound {
 public:
  static constexpr size_t kLists = Missing ? Patterns : Patterns - 1;

  ByteBound(const RowFilterInput& in, size_t byte) : in_(in), byte_(byte) {}

  // values: of prefix and group t. The register's lanes of the group, a bit each.
  uint64_t passing(const RowPrefix& prefix, const uint8_t* values, size_t t) const {
    values += byte_;
    Register total[kAllCells];
    const uint64_t large = totals(prefix, values, t, total);
    const uint8_t* last = in_.last_bytes + t * in_.n_folds * 2 * kGroupLanes + byte_;
    const Register slack =
        add_capped(bytes_of(prefix.slack > 255 ? 255 : prefix.slack),
                   load(static_cast<const uint8_t*>(in_.last_slacks) + t * kGroupLanes + byte_));
    Register passes = zero();
    for (size_t f = 0; f < in_.n_folds; ++f, last += 2 * kGroupLanes) {
      const int16_t* of_pattern = prefix.values + f * Patterns;
      const uint8_t* tested = values + f * kCells * kGroupLanes;
      Register left_one = load(last);
      Register left_two = load(last + kGroupLanes);
      Register sum = slack;
      for (size_t pattern = 1; pattern < Patterns; ++pattern) {
        const size_t cell = 2 * (pattern - 1);
        const Register one = load(tested + cell * kGroupLanes);
        const Register two = load(tested + (cell + 1) * kGroupLanes);
        const Register none = left_of(of_pattern[pattern], one, two);
        left_one = subtract_bytes(left_one, unbiased(one));
        left_two = subtract_bytes(left_two, unbiased(two));
        sum = add_capped(sum, subtract_floored(total[3 * pattern + 1], one));
        sum = add_capped(sum, subtract_floored(total[3 * pattern + 2], two));
        sum = add_capped(sum, subtract_floored(total[3 * pattern], none));
      }
      if (Missing) {
        left_one = subtract_bytes(left_one, unbiased(load(tested + (kCells - 2) * kGroupLanes)));
        left_two = subtract_bytes(left_two, unbiased(load(tested + (kCells - 1) * kGroupLanes)));
      }
      sum = add_capped(sum, subtract_floored(total[1], left_one));
      sum = add_capped(sum, subtract_floored(total[2], left_two));
      sum = add_capped(sum, subtract_floored(total[0], left_of(of_pattern[0], left_one, left_two)));
      const int need = in_.needs[f] > 255 ? 255 : in_.needs[f];
      passes = either(passes, subtract_floored(sum, bytes_of(need - 1)));
    }
    return nonzero_bytes(passes) | large;
  }

 private:
  static constexpr size_t kCells = 2 * kLists;
  static constexpr size_t kAllCells = 3 * Patterns;  // without those of missing genotypes

  // A value without its 128, modulo 256.
  static Register unbiased(Register a) { return differs(a, bytes_of(128)); }

  // What genotypes 1 and 2 leave of a pattern's value to genotype 0.
  static Register left_of(int value, Register one, Register two) {
    // The 128 of one, of two, and that of the result are 128 modulo 256.
    return subtract_bytes(bytes_of(value + 128), add_bytes(one, two));
  }

  // The totals of all cells, as bytes; the lanes where one is above 127.
  uint64_t totals(const RowPrefix& prefix, const uint8_t* values, size_t t, Register* total) const {
    const int16_t* of_pattern = prefix.values + in_.n_folds * Patterns;
    const int16_t* last = in_.last_words + t * 4 * kHalfGroup + byte_ / 2;
    const Register bias = words_of(128 * static_cast<int>(in_.n_pairs));
    Register left[2][2];  // of genotypes 1 and 2, in both halves
    for (size_t g = 0; g < 2; ++g) {
      for (size_t h = 0; h < 2; ++h) {
        left[g][h] = load(last + (2 * h + g) * kHalfGroup);
      }
    }
    Register most[2] = {zero(), zero()};
    const auto keep = [&](size_t cell, const Register(&halves)[2]) {
      total[cell] = unbiased(packed(halves[0], halves[1]));
      most[0] = larger(most[0], halves[0]);
      most[1] = larger(most[1], halves[1]);
    };
    for (size_t pattern = 1; pattern <= kLists; ++pattern) {
      const size_t cell = 2 * (pattern - 1);
      Register sum[2][2];
      for (size_t g = 0; g < 2; ++g) {
        const uint8_t* from = values + (cell + g) * kGroupLanes;
        Register low = zero();
        Register high = zero();
        size_t pair = 0;
        for (; pair + 2 <= in_.n_pairs; pair += 2) {
          const Register a = load(from + pair * kCells * kGroupLanes);
          const Register b = load(from + (pair + 1) * kCells * kGroupLanes);
          low = add(low, sums_of_pairs(interleave_low_bytes(a, b)));
          high = add(high, sums_of_pairs(interleave_high_bytes(a, b)));
        }
        if (pair < in_.n_pairs) {
          const Register a = load(from + pair * kCells * kGroupLanes);
          low = add(low, interleave_low_bytes(a, zero()));
          high = add(high, interleave_high_bytes(a, zero()));
        }
        sum[g][0] = subtract(low, bias);
        sum[g][1] = subtract(high, bias);
        if (pattern < Patterns) {
          keep(3 * pattern + 1 + g, sum[g]);
        }
        left[g][0] = subtract(left[g][0], sum[g][0]);
        left[g][1] = subtract(left[g][1], sum[g][1]);
      }
      if (pattern == Patterns) {
        break;  // the last list is no pattern's
      }
      const Register value = words_of(of_pattern[pattern]);
      const Register none[2] = {subtract(value, add(sum[0][0], sum[1][0])),
                                subtract(value, add(sum[0][1], sum[1][1]))};
      keep(3 * pattern, none);
    }
    const Register value = words_of(of_pattern[0]);
    const Register none[2] = {subtract(value, add(left[0][0], left[1][0])),
                              subtract(value, add(left[0][1], left[1][1]))};
    keep(1, left[0]);
    keep(2, left[1]);
    keep(0, none);
    const Register limit = words_of(127);
    return negative_bytes(packed(subtract(limit, most[0]), subtract(limit, most[1])));
  }

  static Register sums_of_pairs(Register bytes) { return weighted_pairs(bytes, words_of(0x0101)); }

  const RowFilterInput& in_;
  const size_t byte_;
};

}  // namespace
