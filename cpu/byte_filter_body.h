// SPDX-License-Identifier: Apache-2.0
//
// The byte filter, for whatever instruction set the including file is compiled for.
#pragma once

#include "cpu/byte_filter.h"
#include "cpu/byte_lanes.h"

namespace {

// Rows whose set bits a byte can count.
constexpr int kRowsPerByte = 31;

// 16-bit words of all byte lanes of a register.
struct Words {
  Register low;
  Register high;
};

inline Words zero_words() {
  return {words_of(0), words_of(0)};
}
inline Words load_words(const int16_t* from) {
  return {load(from), load(from + kRegisterBytes / 2)};
}
inline void store_words(int16_t* to, Words words) {
  store(to, words.low);
  store(to + kRegisterBytes / 2, words.high);
}
inline Words operator+(Words a, Words b) {
  return {add(a.low, b.low), add(a.high, b.high)};
}
inline Words operator-(Words a, Words b) {
  return {subtract(a.low, b.low), subtract(a.high, b.high)};
}
inline Words same_words(int value) {
  return {words_of(value), words_of(value)};
}
inline Words weighted(Words words, int weight) {
  if (weight == 1) {
    return words;
  }
  const Register factor = words_of(weight);
  return {multiply(words.low, factor), multiply(words.high, factor)};
}

// Set bits of genotypes 1 and 2 of the last SNPs together with `Cells` patterns of the prefix, in one
// segment.
template <int Cells>
struct SegmentCounts {
  Words of[Cells][2];

  SegmentCounts(const ByteFilterInput& in, const uint8_t* prefix, size_t segment, size_t lane) {
    for (int c = 0; c < Cells; ++c) {
      of[c][0] = of[c][1] = zero_words();
    }
    const uint8_t* patterns = prefix + in.prefix_row[segment];
    const uint8_t* planes = in.block + static_cast<size_t>(in.block_row[segment]) * 2 * kByteLanes + lane;
    for (int left = in.block_row[segment + 1] - in.block_row[segment]; left > 0;) {
      const int rows = left < kRowsPerByte ? left : kRowsPerByte;
      Register bytes[Cells][2];
      for (int c = 0; c < Cells; ++c) {
        bytes[c][0] = bytes[c][1] = words_of(0);
      }
      for (int row = 0; row < rows; ++row, ++patterns, planes += 2 * kByteLanes) {
        const Register one = load(planes);
        const Register two = load(planes + kByteLanes);
        for (int c = 0; c < Cells; ++c) {
          const Register pattern = bytes_of(patterns[static_cast<size_t>(c) * in.prefix_bytes]);
          bytes[c][0] = add_bytes(bytes[c][0], ones_of_bytes(both(pattern, one)));
          bytes[c][1] = add_bytes(bytes[c][1], ones_of_bytes(both(pattern, two)));
        }
      }
      for (int c = 0; c < Cells; ++c) {
        for (int g = 0; g < 2; ++g) {
          of[c][g] = of[c][g] + Words{low_words(bytes[c][g]), high_words(bytes[c][g])};
        }
      }
      left -= rows;
    }
  }
};

// One register's lanes of the block, from `lane` on.
class LaneGroup {
 public:
  LaneGroup(const ByteFilterInput& in, size_t lane) : in_(in), lane_(lane) {}

  // The values of genotypes 1 and 2 with `Cells` patterns of the prefix from `cell` on, and of genotype 0:
  // what the other two leave of the pattern's.
  template <int Cells>
  void count(size_t cell) {
    const uint8_t* prefix = in_.prefix + cell * in_.prefix_bytes;
    for (size_t pair = 0; pair < in_.n_pairs; ++pair) {
      const SegmentCounts<Cells> controls(in_, prefix, 2 * pair, lane_);
      const SegmentCounts<Cells> cases(in_, prefix, 2 * pair + 1, lane_);
      for (size_t c = 0; c < static_cast<size_t>(Cells); ++c) {
        const Words one = value(cases.of[c][0], controls.of[c][0]);
        const Words two = value(cases.of[c][1], controls.of[c][1]);
        put_pattern(cell + c, pair, one, two);
      }
    }
  }

  // The first of three patterns of a pair's prefix: what the others leave of the last SNPs' own values.
  void derive_first() {
    for (size_t pair = 0; pair < in_.n_pairs; ++pair) {
      Words values[2];
      for (size_t g = 0; g < 2; ++g) {
        values[g] = load_words(in_.last_values + (g * in_.n_pairs + pair) * kByteLanes + lane_) -
                    load_words(at(3 + g + 1, pair)) - load_words(at(6 + g + 1, pair));
      }
      put_pattern(0, pair, values[0], values[1]);
    }
  }

  // The lanes whose sum reaches the need of a fold.
  template <size_t Cells>
  uint64_t passing() const {
    return passing_cells<Cells>(Cells);
  }
  uint64_t passing_of(size_t cells) const { return passing_cells<0>(cells); }

 private:
  Words value(Words cases, Words controls) const {
    return weighted(cases, in_.case_weight) - weighted(controls, in_.control_weight);
  }

  int16_t* at(size_t cell, size_t pair) const {
    return in_.values + (cell * in_.n_pairs + pair) * kByteLanes + lane_;
  }

  void put_pattern(size_t pattern, size_t pair, Words one, Words two) {
    const Words whole = same_words(in_.prefix_values[pattern * in_.n_pairs + pair]);
    store_words(at(3 * pattern, pair), whole - one - two);
    store_words(at(3 * pattern + 1, pair), one);
    store_words(at(3 * pattern + 2, pair), two);
  }

  // Fixed: the number of cells where it is known beforehand, so that their totals can stay in registers.
  template <size_t Fixed>
  uint64_t passing_cells(size_t n_cells) const {
    constexpr size_t kMost = 729;
    const size_t cells = Fixed > 0 ? Fixed : n_cells;
    Words total[Fixed > 0 ? Fixed : kMost];
    for (size_t cell = 0; cell < cells; ++cell) {
      total[cell] = zero_words();
      for (size_t pair = 0; pair < in_.n_pairs; ++pair) {
        const Words value = load_words(at(cell, pair));
        total[cell] = {add_saturated(total[cell].low, value.low),
                       add_saturated(total[cell].high, value.high)};
      }
    }
    uint64_t lanes = 0;
    for (size_t f = 0; f < in_.n_folds; ++f) {
      Words sum = zero_words();
      for (size_t cell = 0; cell < cells; ++cell) {
        const Words tested = load_words(at(cell, f));
        sum.low =
            add_saturated(sum.low, larger(subtract_saturated(total[cell].low, tested.low), words_of(0)));
        sum.high =
            add_saturated(sum.high, larger(subtract_saturated(total[cell].high, tested.high), words_of(0)));
      }
      lanes |= at_least(sum.low, sum.high, words_of(in_.needs[f]));
    }
    return lanes;
  }

  const ByteFilterInput& in_;
  const size_t lane_;
};

inline uint64_t filter(const ByteFilterInput& in) {
  uint64_t passing = 0;
  for (size_t lane = 0; lane < kByteLanes; lane += kRegisterBytes) {
    LaneGroup group(in, lane);
    size_t cell = in.last_values != nullptr ? 1 : 0;
    for (; cell + 2 <= in.prefix_cells; cell += 2) {
      group.count<2>(cell);
    }
    if (cell < in.prefix_cells) {
      group.count<1>(cell);
    }
    if (in.last_values != nullptr) {
      group.derive_first();
    }
    passing |= (in.prefix_cells == 3 ? group.passing<9>() : group.passing_of(3 * in.prefix_cells)) << lane;
  }
  return passing;
}

}  // namespace
