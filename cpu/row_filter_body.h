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
    const size_t cells = 2 * (in_.n_patterns - 1);
    const size_t stride = in_.n_pairs * cells * kGroupLanes;
    uint8_t* out = values + piece.pair * cells * kGroupLanes + byte_;
    for (size_t pattern = 1; pattern < in_.n_patterns; ++pattern, ++lists, out += 2 * kGroupLanes) {
      BitSums sums[2];
      add_up(rows_of(piece), prefix.samples + lists->first, lists->n, sums[0], sums[1]);
      // The sum counts the minus samples without the genotype.
      const Register bias = bytes_of(128 - lists->n_minus);
      for (size_t g = 0; g < 2; ++g) {
        const InterleavedPlanes planes(sums[g]);
#pragma GCC unroll 8
        for (size_t t = 0; t < kRowGroups; ++t) {
          if (t >= prefix.first_group && t < prefix.end_group) {
            store(out + g * kGroupLanes + t * stride, add_bytes(planes.bytes(t), bias));
          }
        }
      }
    }
  }

  void count_words(const RowPiece& piece, const RowList* lists, const RowPrefix& prefix,
                   int16_t* values) const {
    const size_t cells = 2 * (in_.n_patterns - 1);
    const size_t half = in_.n_pairs * cells * kHalfGroup;
    const Register weights = words_of(static_cast<int16_t>(in_.minus_weight << 8 | in_.plus_weight));
    int16_t* out = values + piece.pair * cells * kHalfGroup + byte_ / 2;
    for (size_t pattern = 1; pattern < in_.n_patterns; ++pattern, lists += 2, out += 2 * kHalfGroup) {
      BitSums plus[2];
      BitSums minus[2];
      add_up(rows_of(piece), prefix.samples + lists[0].first, lists[0].n, plus[0], plus[1]);
      add_up(rows_of(piece), prefix.samples + lists[1].first, lists[1].n, minus[0], minus[1]);
      const Register all_minus = words_of(in_.minus_weight * lists[1].n_minus);
      for (size_t g = 0; g < 2; ++g) {
        const InterleavedPlanes of_plus(plus[g]);
        const InterleavedPlanes of_minus(minus[g]);
#pragma GCC unroll 8
        for (size_t t = 0; t < kRowGroups; ++t) {
          if (t >= prefix.first_group && t < prefix.end_group) {
            const Register a = of_plus.bytes(t);
            const Register b = of_minus.bytes(t);
            int16_t* to = out + g * kHalfGroup + 2 * t * half;
            put(to, subtract(weighted_pairs(interleave_low_bytes(a, b), weights), all_minus),
                piece.starts_pair);
            put(to + half, subtract(weighted_pairs(interleave_high_bytes(a, b), weights), all_minus),
                piece.starts_pair);
          }
        }
      }
    }
  }

 private:
  const uint8_t* rows_of(const RowPiece& piece) const {
    return in_.rows + size_t{piece.first_sample} * kSampleBytes + byte_;
  }

  static void put(int16_t* to, Register value, bool first) {
    store(to, first ? value : add(load(to), value));
  }

  const RowFilterInput& in_;
  const size_t byte_;
};

// What the two forms of values differ in.
template <size_t Patterns>
struct ByteForm {
  using Value = uint8_t;
  using Bound = ByteBound<Patterns>;
  static constexpr size_t kLists = Patterns - 1;  // of a piece
  static constexpr auto kCount = &RowCounter::count_bytes;
};
template <size_t Patterns>
struct WordForm {
  using Value = int16_t;
  using Bound = WordBound<Patterns>;
  static constexpr size_t kLists = (Patterns - 1) * 2;
  static constexpr auto kCount = &RowCounter::count_words;
};

template <class Form>
void filter_form(const RowFilterInput& in) {
  const size_t of_group = in.n_pairs * 2 * (in.n_patterns - 1) * kGroupLanes;
  auto* values = static_cast<typename Form::Value*>(in.values);
  for (size_t byte = 0; byte < kRowBytes; byte += kRegisterBytes) {
    const RowCounter counter(in, byte);
    for (size_t piece = 0; piece < in.n_pieces; ++piece) {
      for (size_t i = 0; i < in.n_prefixes; ++i) {
        const RowPrefix& prefix = in.prefixes[i];
        (counter.*Form::kCount)(in.pieces[piece], prefix.lists + piece * Form::kLists, prefix,
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

template <size_t Patterns>
void filter_patterns(RowValues form, const RowFilterInput& in) {
  if (form == RowValues::kBytes) {
    filter_form<ByteForm<Patterns>>(in);
  } else {
    filter_form<WordForm<Patterns>>(in);
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
