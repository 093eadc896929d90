// SPDX-License-Identifier: Apache-2.0
//
// The row filter, for whatever instruction set the including file is compiled for: counting, here for both
// forms of values, and the bounds of row_bounds.h.
#pragma once

#include "cpu/row_bounds.h"
#include "cpu/row_sums.h"

namespace {

// One register's lanes of a block, from byte `byte` of the rows on.
class RowCounter {
 public:
  RowCounter(const RowFilterInput& in, size_t byte) : in_(in), byte_(byte) {}

  // The values of all counted cells in a piece. values: of the prefix.
  void count_bytes(const RowPiece& piece, const RowList* lists, const RowPrefix& prefix,
                   uint8_t* values) const {
    const size_t cells = 2 * lists_of(in_);
    const size_t stride = in_.n_pairs * cells * kGroupLanes;
    uint8_t* out = values + piece.pair * cells * kGroupLanes + byte_;
    for (size_t list = 0; list < lists_of(in_); ++list, ++lists, out += 2 * kGroupLanes) {
      // The sum counts the minus samples without the genotype.
      const Register bias = bytes_of(128 - lists->n_minus);
      const auto put_both = [&](size_t t, Register one, Register two) __attribute__((always_inline)) {
        store(out + t * stride, add_bytes(one, bias));
        store(out + kGroupLanes + t * stride, add_bytes(two, bias));
      };
      if (lists->n == 0) {
        each_group(
            prefix, [&](size_t t) __attribute__((always_inline)) { put_both(t, zero(), zero()); });
        continue;
      }
      BitSums sums[2];
      add_up(rows_of(piece), prefix.samples + lists->first, lists->n, sums[0], sums[1]);
      if (lists->n < kSmallSums) {
        const InterleavedPlanes planes(side_by_side(sums[0], sums[1]));
        each_group(
            prefix, [&](size_t t) __attribute__((always_inline)) {
              const Register nibbles = planes.bytes(t);
              put_both(t, both(nibbles, bytes_of(15)), high_nibbles(nibbles));
            });
        continue;
      }
      const InterleavedPlanes one(sums[0]);
      const InterleavedPlanes two(sums[1]);
      each_group(
          prefix, [&](size_t t) __attribute__((always_inline)) { put_both(t, one.bytes(t), two.bytes(t)); });
    }
  }

  void count_words(const RowPiece& piece, const RowList* lists, const RowPrefix& prefix,
                   int16_t* values) const {
    const size_t cells = 2 * lists_of(in_);
    int16_t* out = values + piece.pair * cells * kHalfGroup + byte_ / 2;
    for (size_t list = 0; list < lists_of(in_); ++list, lists += 2, out += 2 * kHalfGroup) {
      const WordWriter writer(in_, *lists, *(lists + 1), prefix, piece.starts_pair);
      if (lists[0].n == 0 && lists[1].n == 0) {
        writer.write_none(out);
        continue;
      }
      BitSums plus[2];
      BitSums minus[2];
      add_up(rows_of(piece), prefix.samples + lists[0].first, lists[0].n, plus[0], plus[1]);
      add_up(rows_of(piece), prefix.samples + lists[1].first, lists[1].n, minus[0], minus[1]);
      for (size_t g = 0; g < 2; ++g) {
        writer.write(plus[g], minus[g], out + g * kHalfGroup);
      }
    }
  }

 private:
  // Calls take(t) for the groups that are wanted.
  template <class Take>
  __attribute__((always_inline)) static void each_group(const RowPrefix& prefix, const Take& take) {
#pragma GCC unroll 8
    for (size_t t = 0; t < kRowGroups; ++t) {
      if (t >= prefix.first_group && t < prefix.end_group) {
        take(t);
      }
    }
  }

  // Writes the values of a cell in a piece, or adds them to those of the pair's pieces before.
  class WordWriter {
   public:
    WordWriter(const RowFilterInput& in, const RowList& plus, const RowList& minus, const RowPrefix& prefix,
               bool first)
        : weights_(words_of(static_cast<int16_t>(in.minus_weight << 8 | in.plus_weight))),
          all_minus_(words_of(in.minus_weight * minus.n_minus)),
          prefix_(prefix),
          half_(in.n_pairs * 2 * lists_of(in) * kHalfGroup),
          small_(plus.n < kSmallSums && minus.n < kSmallSums),
          first_(first) {}

    void write(const BitSums& plus, const BitSums& minus, int16_t* out) const {
      if (small_) {
        const InterleavedPlanes of_both(side_by_side(plus, minus));
        each_group(
            prefix_, [&](size_t t) __attribute__((always_inline)) {
              const Register nibbles = of_both.bytes(t);
              put_group(out, t, both(nibbles, bytes_of(15)), high_nibbles(nibbles));
            });
        return;
      }
      const InterleavedPlanes of_plus(plus);
      const InterleavedPlanes of_minus(minus);
      each_group(
          prefix_, [&](size_t t) __attribute__((always_inline)) {
            put_group(out, t, of_plus.bytes(t), of_minus.bytes(t));
          });
    }

    // Both cells of lists without samples.
    void write_none(int16_t* out) const {
      if (!first_) {
        return;
      }
      each_group(
          prefix_, [&](size_t t) __attribute__((always_inline)) {
            for (size_t h = 0; h < 2; ++h) {
              store(out + (2 * t + h) * half_, zero());
              store(out + (2 * t + h) * half_ + kHalfGroup, zero());
            }
          });
    }

   private:
    // Bytes of a group, of plus and minus samples.
    __attribute__((always_inline)) void put_group(int16_t* out, size_t t, Register a, Register b) const {
      int16_t* to = out + 2 * t * half_;
      put(to, subtract(weighted_pairs(interleave_low_bytes(a, b), weights_), all_minus_));
      put(to + half_, subtract(weighted_pairs(interleave_high_bytes(a, b), weights_), all_minus_));
    }
    void put(int16_t* to, Register value) const { store(to, first_ ? value : add(load(to), value)); }

    const Register weights_;
    const Register all_minus_;
    const RowPrefix& prefix_;
    const size_t half_;
    const bool small_;
    const bool first_;
  };

  const uint8_t* rows_of(const RowPiece& piece) const {
    return in_.rows + size_t{piece.first_sample} * kSampleBytes + byte_;
  }

  const RowFilterInput& in_;
  const size_t byte_;
};

// What the two forms of values differ in. Missing: samples without all genotypes have a list.
template <size_t Patterns, bool Missing>
struct ByteForm {
  using Value = uint8_t;
  using Bound = ByteBound<Patterns, Missing>;
  static constexpr size_t kLists = Bound::kLists;  // of a piece
  static constexpr auto kCount = &RowCounter::count_bytes;
};
template <size_t Patterns, bool Missing>
struct WordForm {
  using Value = int16_t;
  using Bound = WordBound<Patterns, Missing>;
  static constexpr size_t kLists = Bound::kLists * 2;
  static constexpr auto kCount = &RowCounter::count_words;
};

template <class Form>
void filter_form(const RowFilterInput& in) {
  const size_t of_group = in.n_pairs * 2 * lists_of(in) * kGroupLanes;
  auto* values = static_cast<typename Form::Value*>(in.values);
  for (size_t byte = 0; byte < kRowBytes; byte += kRegisterBytes) {
    const RowCounter counter(in, byte);
    for (size_t piece = 0; piece < in.pieces.n_pieces; ++piece) {
      for (size_t i = 0; i < in.n_prefixes; ++i) {
        const RowPrefix& prefix = in.prefixes[i];
        fetch_next(in.pieces, piece, in.rows, i, in.n_prefixes);
        (counter.*Form::kCount)(in.pieces.pieces[piece], prefix.lists + piece * Form::kLists, prefix,
                                values + i * kRowGroups * of_group);
      }
    }
    const typename Form::Bound bound(in, byte);
    for (size_t i = 0; i < in.n_prefixes; ++i) {
      for (size_t t = in.prefixes[i].first_group; t < in.prefixes[i].end_group; ++t) {
        in.passing[i * kRowGroups + t] |=
            bound.passing(in.prefixes[i], values + (i * kRowGroups + t) * of_group, t) << byte;
      }
    }
  }
}

template <size_t Patterns, bool Missing>
void filter_lists(RowValues form, const RowFilterInput& in) {
  if (form == RowValues::kBytes) {
    filter_form<ByteForm<Patterns, Missing>>(in);
  } else {
    filter_form<WordForm<Patterns, Missing>>(in);
  }
}

template <size_t Patterns>
void filter_patterns(RowValues form, const RowFilterInput& in) {
  if (in.list_missing) {
    filter_lists<Patterns, true>(form, in);
  } else {
    filter_lists<Patterns, false>(form, in);
  }
}

inline void filter(RowValues form, const RowFilterInput& in) {
  for (size_t i = 0; i < in.n_prefixes * kRowGroups; ++i) {
    in.passing[i] = 0;
  }
  switch (in.n_patterns) {
    case 3:
      return filter_patterns<3>(form, in);
    case 9:
      return filter_patterns<9>(form, in);
    default:
      return filter_patterns<27>(form, in);
  }
}

}  // namespace
