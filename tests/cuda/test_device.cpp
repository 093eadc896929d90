// SPDX-License-Identifier: Apache-2.0
//
// The CUDA backend through the interface that the workers use: on a GPU, and over the stand-in of
// host_runtime.h.
#include <gtest/gtest.h>

#include "cuda/cuda_backend.h"
#include "cuda/occupied_search_body.h"
#include "device/candidate_list.h"
#include "tests/cuda/comparisons.h"
#include "tests/cuda/gpu_required.h"
#include "tests/cuda/opened_device.h"

namespace {

using tavo_test::Scene;

std::vector<float> device_records(const Scene& scene, const ScoringRules& rules, const FoldView& fold,
                                  const std::vector<int>& combinations) {
  const std::unique_ptr<Device> device = tavo_test::opened_device(scene.problem);
  WorkerSetupCommand setup;
  setup.rules = rules;
  setup.folds = {&fold, 1};
  EXPECT_EQ(device->set_up(setup).message(), "");
  WorkerBatchCommand batch;
  const size_t total = combinations.size() / static_cast<size_t>(rules.order);
  std::vector<float> records(total * kRecordSize, -7.0f);
  // A large batch, then a small one in the same buffers.
  const size_t first = total - total / 4;
  for (const auto& [start, n] : {std::pair<size_t, size_t>{0, first}, {first, total - first}}) {
    batch.active = static_cast<uint32_t>(n);
    batch.combinations = combinations.data() + start * static_cast<size_t>(rules.order);
    batch.results = records.data() + start * kRecordSize;
    EXPECT_EQ(device->evaluate_list(batch).message(), "");
  }
  device->release();
  return records;
}

std::vector<SearchCandidate> device_search(const Scene& scene, const WorkerSetupCommand& setup,
                                           uint64_t total) {
  const std::unique_ptr<Device> device = tavo_test::opened_device(scene.problem);
  EXPECT_EQ(device->set_up(setup).message(), "");
  const std::vector<SearchFloor> floors(setup.folds.size());
  std::vector<SearchCandidate> all;
  for (uint64_t first = 0; first < total;) {
    std::vector<SearchCandidate> candidates(3);
    WorkerBatchCommand batch;
    batch.first_rank = first;
    batch.n_ranks = std::min<uint64_t>(total - first, 1 + first * 5 % 23);
    batch.floors = floors.data();
    batch.candidates = &candidates;
    EXPECT_EQ(device->search_range(batch).message(), "");
    all.insert(all.end(), candidates.begin(), candidates.end());
    first += batch.n_ranks;
  }
  device->release();
  return all;
}

class CudaDeviceTest : public tavo_test::NeedsGpu, public testing::WithParamInterface<int> {};

TEST_P(CudaDeviceTest, RecordsHaveTheBitsOfTheRecordPath) {
  tavo_test::sweep_records(GetParam(), device_records);
}

TEST_P(CudaDeviceTest, TheSearchFindsTheBitsOfTheRecords) {
  tavo_test::sweep_searches(GetParam(), false, device_search);
}

TEST_P(CudaDeviceTest, TheScoreSearchFindsTheBitsOfTheRecords) {
  tavo_test::sweep_searches(GetParam(), true, device_search);
}

INSTANTIATE_TEST_SUITE_P(Orders, CudaDeviceTest, testing::Values(1, 2, 3, 4, 5, 7, 9),
                         testing::PrintToStringParamName());

class CudaDevice : public CudaDeviceTest {};
INSTANTIATE_TEST_SUITE_P(Once, CudaDevice, testing::Values(0));

// First nothing passes, so that the device takes ever larger launches; then everything does, more than its
// buffer holds.
TEST_P(CudaDevice, MoreCandidatesThanTheBufferHoldsAreAllFound) {
  std::mt19937 random(21);
  const Scene scene(random, 60, 70, 0.0, 5, false);
  const uint64_t total = comb_count(scene.problem.n_snps, 3).value();
  const std::vector<FoldView> folds = scene.folds.views(0);
  const WorkerSetupCommand setup = tavo_test::search_setup({3, 4, 1, kBalancedAccuracy}, folds, scene, total);
  const std::unique_ptr<Device> device = tavo_test::opened_device(scene.problem);
  ASSERT_TRUE(device->set_up(setup).ok());
  std::vector<SearchCandidate> candidates;
  WorkerBatchCommand batch;
  batch.first_rank = 0;
  batch.n_ranks = total;
  batch.candidates = &candidates;
  const std::vector<SearchFloor> high(folds.size(), SearchFloor{2.0f, 0});
  batch.floors = high.data();
  ASSERT_TRUE(device->search_range(batch).ok());
  EXPECT_TRUE(candidates.empty());
  const std::vector<SearchFloor> low(folds.size());
  batch.floors = low.data();
  ASSERT_TRUE(device->search_range(batch).ok());
  // Every training set holds both classes, so that every balanced accuracy is above 0.
  ASSERT_EQ(candidates.size(), total * folds.size());
  std::vector<uint8_t> seen(total * folds.size(), 0);
  for (const SearchCandidate& candidate : candidates) {
    seen[candidate.rank * folds.size() + static_cast<size_t>(candidate.fold)] = 1;
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), static_cast<ptrdiff_t>(seen.size()));
}

// Cells in base 4 whose numbers just fit 63 bits.
TEST_P(CudaDevice, TakesTheHighestOrder) {
  std::mt19937 random(24);
  const Scene scene(random, 40, kMaxCudaOrder + 1, 0.005, 2, false);
  const std::vector<FoldView> folds = scene.folds.views(0);
  for (const int missing : {kMissingLevel, kMissingAvailable}) {
    tavo_test::expect_records(scene, {kMaxCudaOrder, missing, 1, 0}, folds[1], device_records);
    tavo_test::expect_search(scene, {kMaxCudaOrder, missing, 1, kBalancedAccuracy}, 0, device_search);
  }
}

TEST_P(CudaDevice, ShortListsHoldTheBest) {
  std::mt19937 random(22);
  const Scene scene(random, 150, 70, 0.05, 4, false);
  const uint64_t total = comb_count(scene.problem.n_snps, 2).value();
  const std::vector<FoldView> folds = scene.folds.views(0);
  WorkerSetupCommand setup = tavo_test::search_setup({2, 4, 1, kTauB}, folds, scene, total);
  std::vector<CandidateList> expected(folds.size(), CandidateList(5));
  for (const SearchCandidate& candidate : device_search(scene, setup, total)) {
    expected[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
  }
  setup.list_size = 5;
  std::vector<CandidateList> found(folds.size(), CandidateList(5));
  for (const SearchCandidate& candidate : device_search(scene, setup, total)) {
    found[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
  }
  for (size_t f = 0; f < folds.size(); ++f) {
    const std::vector<RankedValue> a = found[f].sorted();
    const std::vector<RankedValue> b = expected[f].sorted();
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
      EXPECT_EQ(a[i].rank, b[i].rank);
      EXPECT_EQ(bits_of_float(a[i].value), bits_of_float(b[i].value));
    }
  }
}

TEST_P(CudaDevice, TheTransposedLayoutHasEmptyTables) {
  std::mt19937 random(23);
  Scene scene(random, 40, 9, 0.1, 3, false);
  scene.problem.transposed = true;
  const std::vector<FoldView> folds = scene.folds.views(0);
  for (const int order : {2, 8}) {
    for (int missing = 1; missing <= 4; ++missing) {
      tavo_test::expect_records(scene, {order, missing, 1, 0}, folds[1], device_records);
      tavo_test::expect_search(scene, {order, missing, 1, kLr}, 0, device_search);
      ASSERT_FALSE(HasFatalFailure()) << "order " << order << ", missing " << missing;
    }
  }
}

}  // namespace
