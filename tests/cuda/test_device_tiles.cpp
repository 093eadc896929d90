// SPDX-License-Identifier: Apache-2.0
//
// The fused search by each of its kernels, through the interface that the workers use: on a GPU, and over the
// stand-in of host_runtime.h.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "cuda/cuda_backend.h"
#include "cuda/tile_shape.h"
#include "device/candidate_list.h"
#include "tests/cuda/comparisons.h"
#include "tests/cuda/gpu_required.h"
#include "tests/cuda/opened_device.h"

namespace {

using tavo_test::Scene;
using tavo_test::search_setup;

// Forces a kernel while it lives.
class ForcedKernel {
 public:
  explicit ForcedKernel(const std::string& name) { setenv("TAVO_GPU_SEARCH", name.c_str(), 1); }
  ~ForcedKernel() { unsetenv("TAVO_GPU_SEARCH"); }
  ForcedKernel(const ForcedKernel&) = delete;
  ForcedKernel& operator=(const ForcedKernel&) = delete;
};

// The candidates of the ranks from `first` to `end`, in ranges of about `step`.
std::vector<SearchCandidate> search(const Scene& scene, const WorkerSetupCommand& setup,
                                    const std::vector<SearchFloor>& floors, uint64_t first, uint64_t end,
                                    uint64_t step) {
  const std::unique_ptr<Device> device = tavo_test::opened_device(scene.problem);
  EXPECT_EQ(device->set_up(setup).message(), "");
  std::vector<SearchCandidate> all;
  while (first < end) {
    std::vector<SearchCandidate> candidates(3);
    WorkerBatchCommand batch;
    batch.first_rank = first;
    batch.n_ranks = std::min<uint64_t>(end - first, step + first % 5);
    batch.floors = floors.data();
    batch.candidates = &candidates;
    EXPECT_EQ(device->search_range(batch).message(), "");
    all.insert(all.end(), candidates.begin(), candidates.end());
    first += batch.n_ranks;
  }
  device->release();
  return all;
}

// Ranges that begin and end within tiles.
std::vector<SearchCandidate> search_in_parts(const Scene& scene, const WorkerSetupCommand& setup,
                                             uint64_t total) {
  return search(scene, setup, std::vector<SearchFloor>(setup.folds.size()), 0, total, total * 2 / 5 + 3);
}

// Everything that passes the floors of empty lists, in one range. Before that nothing passes, so that
// launches have become large.
std::vector<SearchCandidate> search_after_nothing(const Scene& scene, const WorkerSetupCommand& setup,
                                                  uint64_t total) {
  const std::unique_ptr<Device> device = tavo_test::opened_device(scene.problem);
  EXPECT_EQ(device->set_up(setup).message(), "");
  std::vector<SearchCandidate> candidates;
  WorkerBatchCommand batch;
  batch.n_ranks = total;
  batch.candidates = &candidates;
  const std::vector<SearchFloor> high(setup.folds.size(), SearchFloor{2.0f, 0});
  batch.floors = high.data();
  EXPECT_EQ(device->search_range(batch).message(), "");
  EXPECT_TRUE(candidates.empty());
  const std::vector<SearchFloor> low(setup.folds.size());
  batch.floors = low.data();
  EXPECT_EQ(device->search_range(batch).message(), "");
  return candidates;
}

using ByFold = std::vector<std::map<uint64_t, uint32_t>>;

ByFold by_fold(const std::vector<SearchCandidate>& candidates, size_t n_folds) {
  ByFold result(n_folds);
  for (const SearchCandidate& candidate : candidates) {
    EXPECT_TRUE(result[static_cast<size_t>(candidate.fold)]
                    .emplace(candidate.rank, bits_of_float(candidate.value))
                    .second)
        << "twice: fold " << candidate.fold << ", rank " << candidate.rank;
  }
  return result;
}

// All records, [rank][kRecordSize].
std::vector<float> all_records(const Scene& scene, const ScoringRules& rules, const FoldView& fold,
                               uint64_t total) {
  RecordPath truth(scene.problem, rules, fold);
  std::vector<float> records(total * kRecordSize);
  std::vector<int> comb(static_cast<size_t>(rules.order));
  for (uint64_t rank = 0; rank < total; ++rank) {
    comb_unrank(scene.problem.n_snps, rules.order, rank, comb.data());
    truth.evaluate(comb.data(), records.data() + rank * kRecordSize);
  }
  return records;
}

// Floors somewhere in the order of each fold's values: exactly what passes them must be found. Ties with the
// floor are decided by the rank.
void expect_floors(const Scene& scene, ScoringRules rules, const std::vector<int>& measures, int first_fold,
                   std::mt19937& random) {
  const uint64_t total = comb_count(scene.problem.n_snps, rules.order).value();
  const std::vector<FoldView> folds = scene.folds.views(first_fold);
  std::vector<std::vector<float>> records;
  for (const FoldView& fold : folds) {
    records.push_back(all_records(scene, rules, fold, total));
  }
  for (const int measure : measures) {
    rules.measure = measure;
    std::vector<SearchFloor> floors;
    ByFold expected(folds.size());
    for (size_t f = 0; f < folds.size(); ++f) {
      CandidateList list(total);
      for (uint64_t rank = 0; rank < total; ++rank) {
        list.offer(rank, records[f][rank * kRecordSize + static_cast<size_t>(measure)]);
      }
      const std::vector<RankedValue> sorted = list.sorted();
      // Most floors are high, as in a run.
      const size_t part = std::max<size_t>(1, sorted.size() / (1 + random() % 50));
      floors.push_back(SearchFloor{});
      if (!sorted.empty()) {
        const RankedValue& entry = sorted[random() % part];
        floors[f] = {entry.value, entry.rank};
      }
      for (const RankedValue& entry : sorted) {
        if (floors[f].lets_pass(entry.value, entry.rank)) {
          expected[f].emplace(entry.rank, bits_of_float(entry.value));
        }
      }
    }
    const WorkerSetupCommand setup = search_setup(rules, folds, scene, total);
    EXPECT_EQ(by_fold(search(scene, setup, floors, 0, total, total / 2 + 1), folds.size()), expected)
        << "order " << rules.order << ", measure " << rules.measure << ", missing " << rules.missing
        << ", tie " << rules.tie;
  }
}

class FusedSearch : public tavo_test::NeedsGpu, public testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    NeedsGpu::SetUp();
    if (IsSkipped()) {
      return;
    }
    const ForcedKernel forced(GetParam());
    const Status bound = CudaBackend().open(0)->bind();
    if (!bound.ok()) {
      // Nothing but the want of code for this chip excuses a kernel.
      ASSERT_NE(bound.message().find("TAVO_GPU_SEARCH"), std::string::npos) << bound.message();
      GTEST_SKIP() << "this GPU has no " << GetParam();
    }
  }
};
std::string without_hyphens(const testing::TestParamInfo<std::string>& parameter) {
  std::string name = parameter.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}
INSTANTIATE_TEST_SUITE_P(Kernels, FusedSearch, testing::Values("popcount", "mma-b1", "mma-u8"),
                         without_hyphens);

class ForcedSearch : public tavo_test::NeedsGpu {};

// Every measure, missing method and tie rule of small problems, some of them for each kernel.
TEST_P(FusedSearch, FindsTheBitsOfTheRecords) {
  const ForcedKernel forced(GetParam());
  for (int order = kLeastTileOrder; order <= kMostTileOrder; ++order) {
    tavo_test::sweep_searches(order, false, search_in_parts, 5);
    ASSERT_FALSE(HasFatalFailure()) << "order " << order;
  }
}

// More SNPs than a tile has, in numbers that fill none; segments shorter than a chunk and of a few.
TEST_P(FusedSearch, FindsWhatPassesTheFloors) {
  const ForcedKernel forced(GetParam());
  std::mt19937 random(41);
  struct Size {
    int order;
    int n_snps;
    int n_samples;
    int n_folds;
  };
  for (const Size& size : {Size{2, 71, 301, 7},
                           {2, 35, 1301, 2},
                           {3, 17, 201, 3},
                           {3, 12, 1101, 2},
                           {4, 11, 151, 3},
                           {4, 9, 401, 1}}) {
    for (const double missing : {0.0, 0.05 / size.order, 0.4 / size.n_samples}) {
      const Scene scene(random, size.n_samples, size.n_snps, missing, size.n_folds, size.n_folds == 7);
      const int code = missing > 0.0 && random() % 2 == 0 ? kMissingAvailable : kMissingNone;
      const int tie = 1 + static_cast<int>(random() % 2);
      expect_floors(scene, {size.order, code, tie, 0},
                    {kBalancedAccuracy, kAccuracy, kTauC, kSomersDx, kChiSquare, kNmi},
                    static_cast<int>(random() % static_cast<unsigned>(size.n_folds)), random);
      ASSERT_FALSE(HasFailure()) << "order " << size.order << ", SNPs " << size.n_snps << ", missing "
                                 << missing;
    }
  }
}

// Classes of very different sizes, and one that some folds do not train on.
TEST_P(FusedSearch, TakesAnyClassSizes) {
  const ForcedKernel forced(GetParam());
  std::mt19937 random(42);
  for (const unsigned one_in : {2u, 20u, 150u}) {
    Scene scene(random, 400, 40, 0.0, 3, false);
    for (uint8_t& is_case : scene.data.classes) {
      is_case = random() % one_in == 0 ? 1 : 0;
    }
    scene.data.classes[0] = 1;
    scene.deal({}, 3);
    expect_floors(scene, {2, kMissingNone, 1, 0}, {kBalancedAccuracy, kAccuracy, kTauC, kSomersDx, kGamma}, 0,
                  random);
    ASSERT_FALSE(HasFailure()) << one_in;
  }
}

// Sample numbers whose products wrap around at 32 bits: of cases and controls, and for tau-c the square. A
// SNP tells the classes apart, so that the bound's sums come near the products.
TEST_F(ForcedSearch, DoesNotTrustABoundBeyond32Bits) {
  const ForcedKernel forced("popcount");
  std::mt19937 random(46);
  struct Size {
    int cases;
    int controls;
    int n_folds;
    int measure;
  };
  for (const Size& size : {Size{60000, 60000, 5, kBalancedAccuracy}, Size{20000, 65000, 7, kTauC}}) {
    Scene scene(random, size.cases + size.controls, 12, 0.0, size.n_folds, false);
    for (size_t s = 0; s < scene.data.classes.size(); ++s) {
      const bool is_case = s < static_cast<size_t>(size.cases);
      scene.data.classes[s] = is_case ? 1 : 0;
      scene.words[s] = (scene.words[s] & ~3u) | (is_case ? 2u : random() % 2);
    }
    scene.deal({}, size.n_folds);
    expect_floors(scene, {2, kMissingNone, 1, 0}, std::vector<int>(6, size.measure), 0, random);
  }
}

// Every SNP four times: all values come in ties.
TEST_P(FusedSearch, DecidesTiesByRank) {
  const ForcedKernel forced(GetParam());
  std::mt19937 random(43);
  Scene scene(random, 90, 64, 0.0, 4, false);
  const Scene few(random, 90, 16, 0.0, 4, false);
  for (size_t s = 0; s < 90; ++s) {
    for (size_t w = 0; w < 4; ++w) {
      scene.words[s * 4 + w] = few.words[s];
    }
  }
  expect_floors(scene, {2, kMissingNone, 1, 0}, {kBalancedAccuracy, kBalancedAccuracy, kTauB, kTauB}, 0,
                random);
}

// Everything passes, more than the buffer holds: the range is repeated in parts, and nothing is lost.
TEST_P(FusedSearch, FindsMoreThanTheBufferHolds) {
  const ForcedKernel forced(GetParam());
  std::mt19937 random(45);
  const Scene scene(random, 40, 370, 0.0, 4, false);
  const uint64_t total = comb_count(scene.problem.n_snps, 2).value();
  const std::vector<FoldView> folds = scene.folds.views(0);
  const WorkerSetupCommand setup = search_setup({2, kMissingNone, 1, kBalancedAccuracy}, folds, scene, total);
  const std::vector<SearchCandidate> candidates = search_after_nothing(scene, setup, total);
  size_t n = 0;
  for (const auto& fold : by_fold(candidates, folds.size())) {
    n += fold.size();
  }
  EXPECT_EQ(n, total * folds.size());
}

// More combinations than the list of what passed a bound holds: their exact values are not made from half a
// list.
TEST_F(ForcedSearch, FindsMoreThanTheListOfSurvivorsHolds) {
  const ForcedKernel forced("popcount");
  std::mt19937 random(47);
  const Scene scene(random, 40, 740, 0.0, 2, false);
  const uint64_t total = comb_count(scene.problem.n_snps, 2).value();
  ASSERT_GT(total, uint64_t{1} << 18);
  const std::vector<FoldView> folds = scene.folds.views(1);
  ASSERT_EQ(folds.size(), 1u);
  const WorkerSetupCommand setup = search_setup({2, kMissingNone, 1, kBalancedAccuracy}, folds, scene, total);
  EXPECT_EQ(search_after_nothing(scene, setup, total).size(), total);
}

// More folds than a block's memory holds counts of.
TEST_P(FusedSearch, LeavesManyFoldsToTheOtherSearch) {
  const ForcedKernel forced(GetParam());
  std::mt19937 random(44);
  const Scene scene(random, 300, 9, 0.0, 120, false);
  tavo_test::expect_search(scene, {2, kMissingNone, 1, kBalancedAccuracy}, 0, search_in_parts);
}

TEST_F(ForcedSearch, UnknownNamesAreRefused) {
  const ForcedKernel forced("fastest");
  const Status status = CudaBackend().open(0)->bind();
  EXPECT_EQ(status.message().find("TAVO_GPU_SEARCH is `fastest`, expected one of: threads popcount"), 0u)
      << status.message();
}

}  // namespace
