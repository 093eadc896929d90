// SPDX-License-Identifier: Apache-2.0
//
// That a run takes the kernel that was chosen, over the stand-in of host_runtime.h.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>

#include "cuda/cuda_backend.h"
#include "device/candidate_list.h"
#include "lib/mdr.h"
#include "tests/cuda/comparisons.h"
#include "tests/cuda/host_runtime.h"

namespace {

using tavo_test::host_runtime;
using tavo_test::Scene;

class TileChoiceTest : public testing::Test {
 protected:
  TileChoiceTest() { host_runtime() = tavo_test::HostRuntime(); }
  ~TileChoiceTest() override {
    unsetenv("TAVO_GPU_SEARCH");
    host_runtime() = tavo_test::HostRuntime();
  }

  // Searches all combinations and returns the failure, if any.
  std::string run(ScoringRules rules, std::vector<SearchFloor> floors = {}) {
    const std::vector<FoldView> folds = scene_.folds.views(0);
    const WorkerSetupCommand setup = tavo_test::search_setup(rules, folds, scene_, 1000);
    const std::unique_ptr<Device> device = CudaBackend().open(0);
    floors.resize(folds.size());
    candidates_.clear();
    WorkerBatchCommand batch;
    batch.n_ranks = comb_count(scene_.problem.n_snps, rules.order).value();
    batch.floors = floors.data();
    batch.candidates = &candidates_;
    for (Status status : {device->bind(), device->send_genotypes(scene_.problem),
                          device->send_base_data(scene_.problem), device->set_up(setup)}) {
      if (!status.ok()) {
        return status.message();
      }
    }
    Status status = device->search_range(batch);
    return status.message();
  }

  using Launches = std::map<std::string, int>;

  std::vector<SearchCandidate> candidates_;  // of the last run
  std::mt19937 random_{51};
  Scene scene_{random_, 60, 12, 0.0, 2, false};
};

TEST_F(TileChoiceTest, TheEnvironmentForcesAKernel) {
  for (const std::string name : {"popcount", "mma-b1", "mma-u8"}) {
    setenv("TAVO_GPU_SEARCH", name.c_str(), 1);
    host_runtime().tile_launches.clear();
    EXPECT_EQ(run({2, 4, 1, kBalancedAccuracy}), "");
    EXPECT_EQ(host_runtime().tile_launches, (Launches{{name, 1}}));
  }
  setenv("TAVO_GPU_SEARCH", "threads", 1);
  host_runtime().tile_launches.clear();
  EXPECT_EQ(run({2, 4, 1, kBalancedAccuracy}), "");
  EXPECT_EQ(host_runtime().tile_launches, Launches());
}

TEST_F(TileChoiceTest, TheDefaultFollowsTheGpu) {
  for (const auto& [major, name] :
       std::vector<std::pair<int, std::string>>{{7, "popcount"}, {8, "mma-b1"}, {10, "mma-u8"}}) {
    host_runtime().major = major;
    host_runtime().tile_launches.clear();
    EXPECT_EQ(run({3, 4, 1, kTauC}), "");
    EXPECT_EQ(host_runtime().tile_launches, (Launches{{name, 1}}));
  }
}

TEST_F(TileChoiceTest, AKernelThatTheGpuLacksIsRefused) {
  setenv("TAVO_GPU_SEARCH", "mma-b1", 1);
  host_runtime().major = 12;
  EXPECT_EQ(run({2, 4, 1, kBalancedAccuracy}),
            "TAVO_GPU_SEARCH is `mma-b1`, expected one of: threads popcount mma-u8 mma");
  setenv("TAVO_GPU_SEARCH", "mma", 1);
  EXPECT_EQ(run({2, 4, 1, kBalancedAccuracy}), "");
  host_runtime().major = 7;
  EXPECT_EQ(run({2, 4, 1, kBalancedAccuracy}), "TAVO_GPU_SEARCH is `mma`, expected one of: threads popcount");
}

// Combinations with and without missing genotypes are a launch each; without a bound there is one.
TEST_F(TileChoiceTest, MissingGenotypesTakeAnotherShape) {
  scene_.words[3] |= 3u << 8;  // SNP 4 of sample 3
  EXPECT_EQ(run({2, 4, 1, kBalancedAccuracy}), "");
  EXPECT_EQ(host_runtime().tile_launches, (Launches{{"mma-b1", 2}}));
  EXPECT_EQ(run({2, 4, 1, kLr}), "");
  EXPECT_EQ(host_runtime().tile_launches, (Launches{{"mma-b1", 3}}));
}

TEST_F(TileChoiceTest, LittleSharedMemoryLeavesTheOtherSearch) {
  host_runtime().shared_bytes = 16 << 10;
  EXPECT_EQ(run({2, 4, 1, kBalancedAccuracy}), "");
  EXPECT_EQ(host_runtime().tile_launches, Launches());
}

// With folds of even classes the bound of balanced accuracy is the value itself, but for roundings: what
// survives is a candidate in some fold. Triples once with and once without the memory for the values of all
// pairs.
TEST_F(TileChoiceTest, LittleSurvivesABound) {
  for (size_t s = 0; s < scene_.data.classes.size(); ++s) {
    scene_.data.classes[s] = static_cast<uint8_t>(s % 2);
  }
  scene_.deal({}, 3);
  for (const int order : {2, 3, 4}) {
    for (const bool has_memory : {true, false}) {
      host_runtime() = tavo_test::HostRuntime();
      ASSERT_EQ(run({order, kMissingNone, 1, kBalancedAccuracy}), "");
      std::vector<CandidateList> lists(3, CandidateList(20));
      for (const SearchCandidate& candidate : candidates_) {
        lists[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
      }
      std::vector<SearchFloor> floors;
      for (const CandidateList& list : lists) {
        floors.push_back(list.floor());
      }
      std::set<uint64_t> expected;
      for (const SearchCandidate& candidate : candidates_) {
        if (candidate.value >= floors[static_cast<size_t>(candidate.fold)].value) {
          expected.insert(candidate.rank);
        }
      }
      host_runtime() = tavo_test::HostRuntime();
      if (!has_memory) {
        host_runtime().memory_left = 6000;
      }
      ASSERT_EQ(run({order, kMissingNone, 1, kBalancedAccuracy}, floors), "");
      EXPECT_EQ(host_runtime().pair_tables, order == 3 && has_memory ? 1 : 0);
      EXPECT_EQ(candidates_.size(), 3u * 19u);
      EXPECT_EQ(host_runtime().survivors, expected.size()) << "order " << order;
      EXPECT_LT(expected.size(), comb_count(scene_.problem.n_snps, order).value());
    }
  }
}

TEST_F(TileChoiceTest, LaunchesThatFailSayWhich) {
  for (const std::string name :
       {"cuMdrSearchTiles()", "cuMdrSearchListed()", "cuMdrSnpValues()", "cuMdrPairValues()"}) {
    host_runtime().failing_launch = name;
    testing::internal::CaptureStderr();
    EXPECT_NE(run({3, 4, 1, kBalancedAccuracy}).find("a CUDA kernel could not be launched"),
              std::string::npos);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(name + " execution failed.\n"), std::string::npos);
  }
}

}  // namespace
