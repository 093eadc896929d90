// SPDX-License-Identifier: Apache-2.0
//
// The bounds of the lane search by themselves: a combination whose exact value reaches the floor passes, and
// one well below does not.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "cpu/lane_kernels.h"
#include "cpu/simd.h"
#include "lib/cv_measures.h"
#include "lib/search_bound.h"

namespace {

constexpr size_t kPairCells = 9;

// The training counts of a combination, one fold.
struct Table {
  std::array<int32_t, kPairCells> controls{};
  std::array<int32_t, kPairCells> cases{};
};

struct Threshold {
  int32_t cases;
  int32_t controls;
  bool own;  // of the table's own samples
};

SetTotals totals_of(const Table& table, int32_t other_samples) {
  SetTotals totals{};
  for (size_t cell = 0; cell < kPairCells; ++cell) {
    totals.cases += table.cases[cell];
    totals.controls += table.controls[cell];
  }
  totals.n = totals.cases + totals.controls + other_samples;
  return totals;
}

float exact_value(const Table& table, int measure, int tie, const Threshold& threshold,
                  int32_t other_samples) {
  const SetTotals totals = totals_of(table, other_samples);
  const float limit =
      threshold.own ? own_threshold(totals) : own_threshold({threshold.cases, threshold.controls, 0});
  Confusion confusion{};
  float chi_square = 0.0f;
  for (size_t cell = 0; cell < kPairCells; ++cell) {
    add_cell(&confusion, cell_label(cell_ratio(table.controls[cell], table.cases[cell], limit), limit, tie),
             table.controls[cell], table.cases[cell]);
    chi_square = add_chi_square(chi_square, table.controls[cell], table.cases[cell], totals);
  }
  return training_measure(measure, confusion, totals, chi_square);
}

std::vector<const LaneKernels*> kernels_here() {
  std::vector<const LaneKernels*> kernels = {&lane_kernels_portable()};
  if (has(InstructionSet::kAvx2)) {
    kernels.push_back(&lane_kernels_avx2());
  }
  if (has(InstructionSet::kAvx512)) {
    kernels.push_back(&lane_kernels_avx512());
  }
  return kernels;
}

// Whether the table, in every lane, passes a floor by every instruction set. complete: P and Q are given.
bool passes(const Table& table, int measure, int tie, const Threshold& threshold, float floor, bool complete,
            int32_t other_samples) {
  // Two pairs: the fold's testing samples, of which there are none here, and the others.
  constexpr size_t kPairs = 2;
  std::vector<uint32_t> counts(kPairCells * kPairs * kLanes, 0);
  for (size_t cell = 0; cell < kPairCells; ++cell) {
    for (size_t lane = 0; lane < kLanes; ++lane) {
      counts[(cell * kPairs + 1) * kLanes + lane] =
          static_cast<uint32_t>(table.controls[cell]) | static_cast<uint32_t>(table.cases[cell]) << 16;
    }
  }
  std::vector<uint32_t> totals(kPairCells * kLanes);
  const SetTotals own = totals_of(table, other_samples);
  LaneLimit limit{};
  limit.floor = floor;
  limit.cases = own.cases;
  limit.controls = own.controls;
  limit.samples = static_cast<float>(own.n);
  // The entropy is that of a fold with slightly other shares where the lanes have their own.
  const double p = complete ? static_cast<double>(own.cases) / (own.cases + own.controls)
                            : (own.cases + 1.0) / (own.cases + own.controls + 3.0);
  limit.share = static_cast<float>(p);
  limit.entropy = static_cast<float>(-p * std::log(p) - (1.0 - p) * std::log(1.0 - p));
  limit.slope = static_cast<float>(std::log((1.0 - p) / p));
  limit.bend = static_cast<float>(1.0 / (p * (1.0 - p)));
  const LaneBoundInput in = {&limit,  1,   complete,        threshold.own,      LaneBoundKind::kTable, false,
                             measure, tie, threshold.cases, threshold.controls, totals.data()};
  std::vector<uint32_t> passing;
  for (const LaneKernels* kernels : kernels_here()) {
    passing.push_back(kernels->bound(in, counts.data(), kPairCells, kPairs));
    EXPECT_TRUE(passing.back() == 0 || passing.back() == (1u << kLanes) - 1);
  }
  return std::all_of(passing.begin(), passing.end(), [](uint32_t bits) { return bits != 0; });
}

const std::array<int, 6> kTableMeasures = {kChiSquare, kGamma, kTauB, kSomersDy, kNmi, kLr};

Table random_table(std::mt19937& random, int32_t most) {
  Table table;
  for (size_t cell = 0; cell < kPairCells; ++cell) {
    // Empty cells, cells of one class, and cells of all sizes.
    const auto draw = [&] {
      return random() % 6 == 0 ? 0 : static_cast<int32_t>(random() % static_cast<unsigned>(most)) + 1;
    };
    table.controls[cell] = draw();
    table.cases[cell] = random() % 3 == 0 ? table.controls[cell] : draw();
  }
  return table;
}

TEST(LaneBounds, LetPassWhatReachesTheFloor) {
  std::mt19937 random(31);
  int reached = 0;
  int turned_away = 0;
  for (int round = 0; round < 4000; ++round) {
    const std::array<int32_t, 5> sizes = {3, 12, 100, 700, 3600};
    const Table table = random_table(random, sizes[static_cast<size_t>(round) % sizes.size()]);
    const SetTotals totals = totals_of(table, 0);
    if (totals.cases == 0 || totals.controls == 0) {
      continue;
    }
    const bool own = random() % 2 == 0;
    const bool complete = random() % 2 == 0;
    const int32_t others = own || complete ? 0 : static_cast<int32_t>(random() % 3);
    // The threshold of all samples: that of the table, or near it.
    const Threshold threshold = {totals.cases,
                                 std::max(1, totals.controls - static_cast<int32_t>(random() % 3)), own};
    const int tie = 1 + static_cast<int>(random() % 2);
    for (const int measure : kTableMeasures) {
      ASSERT_TRUE(has_table_bound(measure, tie));
      const float value = exact_value(table, measure, tie, threshold, others);
      if (!(value > 0.0f)) {
        continue;
      }
      ++reached;
      ASSERT_TRUE(passes(table, measure, tie, threshold, value, complete, others))
          << "measure " << measure << ", value " << value << ", round " << round;
      turned_away += passes(table, measure, tie, threshold, value * 1.5f + 0.01f, complete, others) ? 0 : 1;
    }
  }
  EXPECT_GT(reached, 10000);
  // Some tables are left to the exact value: zeros, skew, unequal numbers of samples.
  EXPECT_GT(turned_away, reached / 3);
}

// A cell whose ratio is the threshold as a float, but not as a fraction: it is a tie, and its label decides
// the measure.
TEST(LaneBounds, LeaveRatiosThatOnlyFloatsTakeForTheThreshold) {
  Table table;
  table.cases = {9010, 0, 1001};
  table.controls = {9001, 1000, 0};
  const SetTotals totals = totals_of(table, 0);
  ASSERT_EQ(static_cast<int64_t>(table.cases[0]) * totals.controls -
                static_cast<int64_t>(table.controls[0]) * totals.cases,
            -1);
  const float threshold = own_threshold(totals);
  ASSERT_EQ(cell_ratio(table.controls[0], table.cases[0], threshold), threshold);
  const float value = exact_value(table, kSomersDy, kHighRisk, {1, 1, true}, 0);
  for (const bool own : {true, false}) {
    EXPECT_TRUE(passes(table, kSomersDy, kHighRisk, {totals.cases, totals.controls, own}, value, true, 0));
  }
}

}  // namespace
