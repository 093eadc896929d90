// SPDX-License-Identifier: Apache-2.0
//
// The cells of kLanes combinations, counted or derived, for whatever instruction set the including file is
// compiled for. Only static functions, see pair_lanes.h. No half of a pair borrows from the other.
#pragma once

#include "cpu/lane_kernels.h"
#include "cpu/pair_lanes.h"

namespace {

// All cells of all segment pairs at hand.
class CountedCells {
 public:
  // totals: scratch [n_cells][kLanes].
  CountedCells(const uint32_t* counts, size_t n_cells, size_t n_pairs, uint32_t* totals)
      : counts_(counts), n_cells_(n_cells), n_pairs_(n_pairs), totals_(totals) {
    for (size_t cell = 0; cell < n_cells; ++cell) {
      for (size_t lane = 0; lane < kLanes; lane += kPairLanes) {
        PairLanes total{};
        for (size_t pair = 0; pair < n_pairs; ++pair) {
          total += load_pairs(counts + (cell * n_pairs + pair) * kLanes + lane);
        }
        store_pairs(totals + cell * kLanes + lane, total);
      }
    }
  }

  // Calls each(the training counts of a cell) for all cells.
  template <class Each>
  void each_training(size_t fold, size_t lane, const Each& each) const {
    const uint32_t* tested = counts_ + fold * kLanes + lane;
    for (size_t cell = 0; cell < n_cells_; ++cell, tested += n_pairs_ * kLanes) {
      each(load_pairs(totals_ + cell * kLanes + lane) - load_pairs(tested));
    }
  }

  // The training samples of all cells.
  PairLanes training_classes(size_t fold, size_t lane) const {
    PairLanes sum{};
    each_training(fold, lane, [&](PairLanes pairs) { sum += pairs; });
    return sum;
  }

 private:
  const uint32_t* const counts_;
  const size_t n_cells_;
  const size_t n_pairs_;
  uint32_t* const totals_;
};

// Calls each(list, genotype, pairs) for the cells of all lists, then each(n_lists, ..) for what they leave of
// the last SNP's own counts: the prefix's pattern without minor genotypes. What is not counted follows by
// subtraction: counted(list, row), of_list(list) and own(genotype) say what is known. Rows: 2, genotypes 1
// and 2; or 3, with samples that lack the genotype in both of these, and by themselves.
template <size_t Rows, class Counted, class OfList, class Own, class Each>
__attribute__((always_inline)) inline void derive(size_t n_lists, const Counted& counted,
                                                  const OfList& of_list, const Own& own, const Each& each) {
  PairLanes left[3] = {own(0), own(1), own(2)};
  for (size_t list = 0; list < n_lists; ++list) {
    PairLanes one = counted(list, 0);
    PairLanes two = counted(list, 1);
    PairLanes none = of_list(list) - two;
    if (Rows == 3) {
      const PairLanes missing = counted(list, 2);
      one -= missing;
      two -= missing;
    }
    none -= one;
    left[0] -= none;
    left[1] -= one;
    left[2] -= two;
    each(list, 0, none);
    each(list, 1, one);
    each(list, 2, two);
  }
  for (size_t g = 0; g < 3; ++g) {
    each(n_lists, g, left[g]);
  }
}

// Cells of which some are counted. The last list may be one of samples without all genotypes, no cell. Lists:
// their number, or 0 for any.
template <size_t Rows, size_t Lists>
class DerivedCells {
 public:
  // totals: scratch [n_lists * Rows][kLanes], of the counted cells.
  DerivedCells(const LaneDeriveInput& in, uint32_t* totals) : in_(in), totals_(totals) {
    const size_t counted = n_lists() * Rows;
    for (size_t lane = 0; lane < kLanes; lane += kPairLanes) {
      for (size_t cell = 0; cell < counted; ++cell) {
        PairLanes total{};
        for (size_t pair = 0; pair < in.n_counted_pairs; ++pair) {
          total += load_pairs(in.counted + (pair * counted + cell) * in.lane_stride + lane);
        }
        store_pairs(totals + cell * kLanes + lane, total);
      }
    }
  }

  template <class Each>
  __attribute__((always_inline)) void each_training(size_t fold, size_t lane, const Each& each) const {
    const size_t n = n_lists();
    const size_t end_cells = in_.prefix_cells - 1;
    derive<Rows>(
        n,
        [&](size_t list, size_t row)
            __attribute__((always_inline)) { return counted(fold, lane, list, row); },
        [&](size_t list) __attribute__((always_inline)) { return of_list(fold, list); },
        [&](size_t g) __attribute__((always_inline)) { return own(fold, lane, g); },
        [&](size_t list, size_t, PairLanes pairs) __attribute__((always_inline)) {
          if (list < end_cells || list == n) {
            each(pairs);
          }
        });
  }

  PairLanes training_classes(size_t fold, size_t lane) const {
    PairLanes sum = own(fold, lane, 0) + own(fold, lane, 1) + own(fold, lane, 2);
    if (n_lists() == in_.prefix_cells) {
      sum -= of_list(fold, n_lists() - 1);
      if (Rows == 3) {
        sum += counted(fold, lane, n_lists() - 1, 2);
      }
    }
    return sum;
  }

 private:
  size_t n_lists() const { return Lists != 0 ? Lists : in_.n_lists; }

  // Training samples: of a counted cell, of a list, of a genotype of the last SNP.
  PairLanes counted(size_t fold, size_t lane, size_t list, size_t row) const {
    const size_t cell = list * Rows + row;
    return load_pairs(totals_ + cell * kLanes + lane) -
           load_pairs(in_.counted + (fold * n_lists() * Rows + cell) * in_.lane_stride + lane);
  }
  uint32_t of_list(size_t fold, size_t list) const {
    const uint32_t* pairs = in_.list_pairs + list * (in_.n_counted_pairs + 1);
    return pairs[in_.n_counted_pairs] - pairs[fold];
  }
  PairLanes own(size_t fold, size_t lane, size_t g) const {
    return load_pairs(in_.own_totals + g * kLanes + lane) -
           load_pairs(in_.marginals + (g * in_.n_pairs + fold) * kLanes + lane);
  }

  const LaneDeriveInput& in_;
  uint32_t* const totals_;
};

template <size_t Rows>
void derive_counts(const LaneDeriveInput& in, uint32_t* counts) {
  const size_t cell_stride = in.n_pairs * kLanes;
  for (size_t pair = 0; pair < in.n_pairs; ++pair) {
    for (size_t lane = 0; lane < kLanes; lane += kPairLanes) {
      uint32_t* out = counts + pair * kLanes + lane;
      if (pair >= in.n_counted_pairs) {
        for (size_t cell = 0; cell < 3 * in.prefix_cells; ++cell) {
          store_pairs(out + cell * cell_stride, PairLanes{});
        }
        continue;
      }
      derive<Rows>(
          in.n_lists,
          [&](size_t list, size_t row) {
            return load_pairs(in.counted + ((pair * in.n_lists + list) * Rows + row) * in.lane_stride + lane);
          },
          [&](size_t list) __attribute__((always_inline)) {
            return in.list_pairs[list * (in.n_counted_pairs + 1) + pair];
          },
          [&](size_t g) __attribute__((always_inline)) {
            return load_pairs(in.marginals + (g * in.n_pairs + pair) * kLanes + lane);
          },
          [&](size_t list, size_t g, PairLanes pairs) {
            if (list + 1 < in.prefix_cells || list == in.n_lists) {
              const size_t cell = g * in.prefix_cells + (list == in.n_lists ? 0 : list + 1);
              store_pairs(out + cell * cell_stride, pairs);
            }
          });
    }
  }
}

inline void lane_derive(const LaneDeriveInput& in, uint32_t* counts) {
  if (in.rows == 3) {
    derive_counts<3>(in, counts);
  } else {
    derive_counts<2>(in, counts);
  }
}

}  // namespace
