// SPDX-License-Identifier: Apache-2.0
//
// The score-based search's inner loops, for whatever instruction set the including file is compiled for. Only
// static functions and types of an unnamed namespace, and no library templates.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "cpu/score_kernels.h"
#include "cpu/set_bits.h"
#include "lib/cv_measures.h"

namespace {

#if defined(__AVX512F__)
constexpr size_t kFoldBytes = 64;
#elif defined(__AVX2__)
constexpr size_t kFoldBytes = 32;
#else
constexpr size_t kFoldBytes = 16;
#endif
constexpr size_t kFoldParts = kFoldLanes * sizeof(float) / kFoldBytes;
constexpr size_t kPartLanes = kFoldLanes / kFoldParts;
typedef float FoldFloats __attribute__((vector_size(kFoldBytes)));
typedef int32_t FoldInts __attribute__((vector_size(kFoldBytes)));

// The sums of a cell's samples of one class, of 16 folds: scores, and how many they are.
struct FoldSums {
  FoldFloats scores[kFoldParts];
  FoldInts counts[kFoldParts];

  void clear() {
    for (size_t part = 0; part < kFoldParts; ++part) {
      scores[part] = FoldFloats{};
      counts[part] = FoldInts{};
    }
  }

  __attribute__((always_inline)) void add(float score, uint16_t training) {
#if defined(__AVX512F__)
    const __mmask16 mask = training;
    scores[0] =
        (FoldFloats)_mm512_mask_add_ps((__m512)scores[0], mask, (__m512)scores[0], _mm512_set1_ps(score));
    counts[0] =
        (FoldInts)_mm512_mask_add_epi32((__m512i)counts[0], mask, (__m512i)counts[0], _mm512_set1_epi32(1));
#else
    for (size_t part = 0; part < kFoldParts; ++part) {
      FoldInts bits;
      for (size_t lane = 0; lane < kPartLanes; ++lane) {
        bits[lane] = 1 << (part * kPartLanes + lane);
      }
      const FoldInts trains = ((FoldInts{} + training) & bits) != 0;
      // Adding 0 where the fold does not train changes nothing.
      const FoldFloats all = FoldFloats{} + score;
      scores[part] += (FoldFloats)((FoldInts)all & trains);
      counts[part] -= trains;
    }
#endif
  }
};

// The samples of a list, one after another.
struct SampleChain {
  const uint32_t* next;
  const uint32_t* end;
  FoldSums sums;
};

class ScoreCounter {
 public:
  explicit ScoreCounter(const ScoreKernelInput& in) : in_(in) {}

  // Adds up the lists of both classes of the combinations' cell.
  void list_cell(const uint64_t* prefix, size_t genotype) {
    for (size_t c = 0; c < kScoreCombinations; ++c) {
      const uint64_t* last = in_.last[c] + genotype * in_.words;
      list(prefix, last, 0, in_.case_word, 2 * c);
      list(prefix, last, in_.case_word, in_.words, 2 * c + 1);
    }
  }

  // Of the lists, the sums of a group of folds.
  __attribute__((always_inline)) void add_up(size_t group, FoldSums (&sums)[2 * kScoreCombinations]) const {
    SampleChain chains[2 * kScoreCombinations];
    size_t common = SIZE_MAX;
    for (size_t i = 0; i < 2 * kScoreCombinations; ++i) {
      chains[i].next = places(i);
      chains[i].end = chains[i].next + n_places_[i];
      chains[i].sums.clear();
      common = n_places_[i] < common ? n_places_[i] : common;
    }
    for (size_t k = 0; k < common; ++k) {
#pragma GCC unroll 4
      for (size_t i = 0; i < 2 * kScoreCombinations; ++i) {
        add_next(chains[i], group);
      }
    }
    for (size_t i = 0; i < 2 * kScoreCombinations; ++i) {
      while (chains[i].next != chains[i].end) {
        add_next(chains[i], group);
      }
      sums[i] = chains[i].sums;
    }
  }

 private:
  uint32_t* places(size_t i) const {
    return in_.places + i * (64 * in_.words + 64);
  }

  void list(const uint64_t* prefix, const uint64_t* last, size_t first, size_t end, size_t i) {
    uint32_t* out = places(i);
    for (size_t w = first; w < end; ++w) {
      out += write_set_bits(prefix[w] & last[w], static_cast<uint32_t>(64 * w), out);
    }
    n_places_[i] = static_cast<size_t>(out - places(i));
  }

  __attribute__((always_inline)) void add_next(SampleChain& chain, size_t group) const {
    const uint32_t place = *chain.next++;
    chain.sums.add(in_.scores[place], in_.training[place * in_.fold_groups + group]);
  }

  const ScoreKernelInput& in_;
  size_t n_places_[2 * kScoreCombinations] = {};
};

// A combination's table of classes and labels, of 16 folds.
struct FoldTables {
  FoldInts tp[kFoldParts];
  FoldInts fp[kFoldParts];
  FoldInts fn[kFoldParts];
  FoldInts tn[kFoldParts];

  void clear() {
    for (size_t part = 0; part < kFoldParts; ++part) {
      tp[part] = fp[part] = fn[part] = tn[part] = FoldInts{};
    }
  }

  // A cell, by its score_cell_label.
  void add_cell(const FoldSums& controls, const FoldSums& cases, int tie) {
    for (size_t part = 0; part < kFoldParts; ++part) {
      const FoldFloats sum = controls.scores[part] + cases.scores[part];
      const FoldInts has_controls = controls.counts[part] != 0;
      const FoldInts above = (sum > 0.0f) & has_controls;
      const FoldInts below = (sum < 0.0f) & has_controls;
      const FoldInts tied = ~(above | below);
      const FoldInts high = tie == kHighRisk ? above | tied : above;
      const FoldInts low = tie == kLowRisk ? below | tied : below;
      tp[part] += cases.counts[part] & high;
      fp[part] += controls.counts[part] & high;
      fn[part] += cases.counts[part] & low;
      tn[part] += controls.counts[part] & low;
    }
  }

  // Balanced accuracy, as balanced_accuracy_unguarded.
  void write(float* values) const {
    int32_t counts[4][kFoldLanes];
    __builtin_memcpy(counts[0], tp, sizeof(counts[0]));
    __builtin_memcpy(counts[1], fp, sizeof(counts[1]));
    __builtin_memcpy(counts[2], fn, sizeof(counts[2]));
    __builtin_memcpy(counts[3], tn, sizeof(counts[3]));
    for (size_t lane = 0; lane < kFoldLanes; ++lane) {
      values[lane] =
          balanced_accuracy_unguarded({counts[0][lane], counts[1][lane], counts[2][lane], counts[3][lane]});
    }
  }
};

inline void score_combinations(const ScoreKernelInput& in, float* values) {
  // Tables of all groups: groups are few, and cells many.
  constexpr size_t kMostGroups = 4;
  for (size_t first = 0; first < in.fold_groups; first += kMostGroups) {
    const size_t end = first + kMostGroups < in.fold_groups ? first + kMostGroups : in.fold_groups;
    FoldTables tables[kScoreCombinations][kMostGroups];
    for (size_t c = 0; c < kScoreCombinations; ++c) {
      for (size_t group = first; group < end; ++group) {
        tables[c][group - first].clear();
      }
    }
    ScoreCounter counter(in);
    for (size_t cell = 0; cell < in.prefix_cells; ++cell) {
      for (size_t genotype = 0; genotype < 3; ++genotype) {
        counter.list_cell(in.prefix + cell * in.words, genotype);
        for (size_t group = first; group < end; ++group) {
          FoldSums sums[2 * kScoreCombinations];
          counter.add_up(group, sums);
          for (size_t c = 0; c < kScoreCombinations; ++c) {
            tables[c][group - first].add_cell(sums[2 * c], sums[2 * c + 1], in.tie);
          }
        }
      }
    }
    for (size_t c = 0; c < kScoreCombinations; ++c) {
      for (size_t group = first; group < end; ++group) {
        tables[c][group - first].write(values + (c * in.fold_groups + group) * kFoldLanes);
      }
    }
  }
}

}  // namespace
