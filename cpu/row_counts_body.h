// SPDX-License-Identifier: Apache-2.0
//
// Exact counts from rows, for whatever instruction set the including file is compiled for. Only static
// functions, see bit_lanes.h.
#pragma once

#include "cpu/row_sums.h"

namespace {

// Writes one cell's counts in a piece, or adds them to those of the pair's pieces before.
class CountWriter {
 public:
  CountWriter(size_t byte, const RowPrefix& prefix, bool first)
      : first_lane_(byte / 4), prefix_(prefix), first_(first) {}

  // out: [kRowLanes] pairs of the cell.
  void write(const BitSums& controls, const BitSums& cases, uint32_t* out) const {
    const InterleavedPlanes of_controls(controls);
    const InterleavedPlanes of_cases(cases);
    write_groups(
        out, [&](size_t t, Register * a, Register * b) __attribute__((always_inline)) {
          *a = of_controls.bytes(t);
          *b = of_cases.bytes(t);
        });
  }

  // The same of small sums.
  void write_small(const BitSums& controls, const BitSums& cases, uint32_t* out) const {
    const InterleavedPlanes of_both(side_by_side(controls, cases));
    write_groups(
        out, [&](size_t t, Register * a, Register * b) __attribute__((always_inline)) {
          const Register nibbles = of_both.bytes(t);
          *a = both(nibbles, bytes_of(15));
          *b = high_nibbles(nibbles);
        });
  }

  // Of lists without samples.
  void write_none(uint32_t* out) const {
    for (size_t t = prefix_.first_group; first_ && t < prefix_.end_group; ++t) {
      for (size_t fourth = 0; fourth < 4; ++fourth) {
        store(out + t * kGroupLanes + fourth * 16 + first_lane_, zero());
      }
    }
  }

 private:
  // Bytes, the controls of a group and its cases.
  template <class Bytes>
  __attribute__((always_inline)) void write_groups(uint32_t* out, const Bytes& bytes) const {
#pragma GCC unroll 8
    for (size_t t = 0; t < kRowGroups; ++t) {
      if (t >= prefix_.first_group && t < prefix_.end_group) {
        Register a;
        Register b;
        bytes(t, &a, &b);
        uint32_t* to = out + t * kGroupLanes + first_lane_;
        // Two bytes, a word each: a sixteenth of the group for each fourth of 16 bytes, see count_row_bit.
        const Register low = interleave_low_bytes(a, b);
        const Register high = interleave_high_bytes(a, b);
        put(to, interleave_low_bytes(low, zero()));
        put(to + 16, interleave_high_bytes(low, zero()));
        put(to + 32, interleave_low_bytes(high, zero()));
        put(to + 48, interleave_high_bytes(high, zero()));
      }
    }
  }

  // Halves of a pair do not carry into each other, nor do their words.
  void put(uint32_t* to, Register pairs) const {
    store(to, first_ ? pairs : add(load(to), pairs));
  }

  const size_t first_lane_;
  const RowPrefix& prefix_;
  const bool first_;
};

inline void count_piece(const RowCountInput& in, const RowPiece& piece, const RowPrefix& prefix,
                        const RowList* lists, size_t byte, uint32_t* pairs) {
  const CountWriter writer(byte, prefix, piece.starts_pair);
  const uint8_t* rows = in.rows + size_t{piece.first_sample} * kSampleBytes + byte;
  const size_t n_rows = in.missing ? 3 : 2;
  for (size_t list = 0; list < in.n_lists; ++list, lists += 2, pairs += n_rows * kCountStride) {
    if (lists[0].n == 0 && lists[1].n == 0) {
      for (size_t row = 0; row < n_rows; ++row) {
        writer.write_none(pairs + row * kCountStride);
      }
      continue;
    }
    const uint16_t* of_cases = prefix.samples + lists[0].first;
    const uint16_t* of_controls = prefix.samples + lists[1].first;
    BitSums cases[2];
    BitSums controls[2];
    add_up(rows, of_cases, lists[0].n, cases[0], cases[1]);
    add_up(rows, of_controls, lists[1].n, controls[0], controls[1]);
    // Places are filled up to a multiple of kListStep.
    const bool small = lists[0].n < kSmallSums && lists[1].n < kSmallSums;
    const auto write = [&](const BitSums& a, const BitSums& b, size_t row) {
      if (small) {
        writer.write_small(a, b, pairs + row * kCountStride);
      } else {
        writer.write(a, b, pairs + row * kCountStride);
      }
    };
    write(controls[0], cases[0], 0);
    write(controls[1], cases[1], 1);
    if (n_rows == 3) {
      write(add_up_missing(rows, of_controls, lists[1].n), add_up_missing(rows, of_cases, lists[0].n), 2);
    }
  }
}

inline void count_rows(const RowCountInput& in) {
  const size_t of_pair = counted_cells(in) * kCountStride;
  for (size_t byte = 0; byte < kRowBytes; byte += kRegisterBytes) {
    for (size_t piece = 0; piece < in.pieces.n_pieces; ++piece) {
      const RowPiece& of = in.pieces.pieces[piece];
      for (size_t i = 0; i < in.n_prefixes; ++i) {
        fetch_next(in.pieces, piece, in.rows, i, in.n_prefixes);
        count_piece(in, of, in.prefixes[i], in.prefixes[i].lists + piece * in.n_lists * 2, byte,
                    in.counts + (i * in.n_pairs + of.pair) * of_pair);
      }
    }
  }
}

}  // namespace
