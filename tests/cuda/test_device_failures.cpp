// SPDX-License-Identifier: Apache-2.0
//
// What the CUDA backend does when the runtime fails, over the stand-in of host_runtime.h.
#include <gtest/gtest.h>

#include "cuda/cuda_backend.h"
#include "tests/cuda/comparisons.h"
#include "tests/cuda/fit_checks.h"
#include "tests/cuda/host_runtime.h"

namespace {

using tavo_test::host_runtime;
using tavo_test::Scene;

class CudaFailures : public testing::Test {
 protected:
  ~CudaFailures() override { host_runtime() = tavo_test::HostRuntime(); }

  // The first failure of a device that does all that a run asks for.
  Status run(int order, const std::vector<int>& combinations) {
    CudaBackend backend;
    const std::unique_ptr<Device> device = backend.open(0);
    for (Status status :
         {device->bind(), device->send_genotypes(scene_.problem), device->send_base_data(scene_.problem)}) {
      if (!status.ok()) {
        return status;
      }
    }
    WorkerSetupCommand setup;
    setup.rules.order = order;
    setup.rules.missing = 4;
    setup.folds = {&folds_[0], 1};
    if (Status status = device->set_up(setup); !status.ok()) {
      return status;
    }
    records_.assign(combinations.size() / static_cast<size_t>(order) * kRecordSize, 0.0f);
    WorkerBatchCommand batch;
    batch.active = static_cast<uint32_t>(combinations.size() / static_cast<size_t>(order));
    batch.combinations = combinations.data();
    batch.results = records_.data();
    return device->evaluate_list(batch);
  }

  std::mt19937 random_{31};
  Scene scene_{random_, 50, 20, 0.0, 2, false};
  std::vector<FoldView> folds_ = scene_.folds.views(0);
  std::vector<int> pairs_ = tavo_test::all_combinations(20, 2);
  std::vector<float> records_;
};

TEST_F(CudaFailures, WithoutAGpuOrADriverThereIsNoDevice) {
  host_runtime().n_gpus = 0;
  EXPECT_EQ(CudaBackend().device_count(), 0);
}

TEST_F(CudaFailures, AGpuThatIsTooOldIsNoDevice) {
  host_runtime().major = 7;  // 7.0; the kernels need 7.5
  EXPECT_EQ(CudaBackend().device_count(), 0);
  host_runtime().major = 8;
  EXPECT_EQ(CudaBackend().device_count(), 1);
}

TEST_F(CudaFailures, PropertiesThatCannotBeHad) {
  host_runtime().properties_fail = true;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(CudaBackend().ready().ok());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Cannot get device properties!\n");
}

TEST_F(CudaFailures, AnAllocationNamesItsBytesAndWhatToLower) {
  host_runtime().free_bytes = 100;  // less than the matrix of 50 rows of 2 words
  testing::internal::CaptureStderr();
  const Status status = run(2, pairs_);
  const std::string line = testing::internal::GetCapturedStderr();
  EXPECT_EQ(line.find("cudaSafeCall() Runtime API error in file <cuda_backend>, line "), 0u) << line;
  EXPECT_NE(line.find(" : out of memory.\n"), std::string::npos) << line;
  EXPECT_EQ(status.message(),
            "GPU 0: cannot allocate 400 bytes of device memory for the genotypes (a call of the CUDA runtime "
            "failed: out of memory); lower --thread, --block or --order, or run with --device cpu");
  EXPECT_EQ(host_runtime().allocations_alive, 0u);
}

TEST_F(CudaFailures, LittleMemoryMeansMorePasses) {
  ASSERT_TRUE(run(2, pairs_).ok());
  const std::vector<float> expected = records_;
  const int launches = host_runtime().launches;
  // Half of it is for some thirty pairs of the 190.
  host_runtime().free_bytes = 20000;
  host_runtime().launches = 0;
  EXPECT_EQ(host_runtime().most_streams_busy, 1);
  ASSERT_TRUE(run(2, pairs_).ok());
  EXPECT_GT(host_runtime().launches, 3 * launches);
  EXPECT_EQ(host_runtime().most_streams_busy, 2);
  for (size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(bits_of_float(records_[i]), bits_of_float(expected[i]));
  }
}

// Where half of the memory does not hold a pair for each of two lanes, passes of one follow each other.
TEST_F(CudaFailures, HardlyAnyMemoryMeansOneAtATime) {
  ASSERT_TRUE(run(2, pairs_).ok());
  const std::vector<float> expected = records_;
  host_runtime().memory_left = 700;
  host_runtime().launches = 0;
  host_runtime().most_streams_busy = 0;
  ASSERT_TRUE(run(2, pairs_).ok());
  EXPECT_EQ(host_runtime().launches, 190 * 4);
  EXPECT_EQ(host_runtime().most_streams_busy, 1);
  for (size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(bits_of_float(records_[i]), bits_of_float(expected[i]));
  }
}

TEST_F(CudaFailures, ALaunchSaysWhichAndWhere) {
  host_runtime().failing_launch = "cuMdrCount()";
  testing::internal::CaptureStderr();
  const Status status = run(2, pairs_);
  const std::string line = testing::internal::GetCapturedStderr();
  EXPECT_EQ(
      line.find(
          "cutilCheckMsg() CUTIL CUDA error: cuMdrCount() execution failed.\n in file <host_runtime>, line "),
      0u)
      << line;
  EXPECT_NE(line.find(" : invalid configuration argument.\n"), std::string::npos) << line;
  EXPECT_EQ(status.message(), "GPU 0: a CUDA kernel could not be launched: invalid configuration argument");
  // What was queued before it is waited for before its memory goes.
  EXPECT_EQ(host_runtime().streams_left_busy, 0);
  EXPECT_EQ(host_runtime().allocations_alive, 0u);
}

TEST_F(CudaFailures, OrdersWhoseCellsCannotBeNumberedAreRefused) {
  EXPECT_NE(run(32, {}).message().find("orders up to 31"), std::string::npos);
}

// The first failure of a regression, and its fits.
Status run_regression(const Problem& problem, RegressionRules rules, std::vector<ItemFit>* fits) {
  CudaBackend backend;
  const std::unique_ptr<Device> device = backend.open(0);
  for (Status status : {device->bind(), device->send_genotypes(problem), device->send_base_data(problem),
                        device->set_up_regression(RegressionSetupCommand(rules))}) {
    if (!status.ok()) {
      return status;
    }
  }
  const std::vector<int> items = tavo_test::all_items(problem.n_snps, rules.order());
  fits->assign(items.size() / static_cast<size_t>(rules.order()), ItemFit());
  RegressionBatchCommand batch;
  batch.active = static_cast<uint32_t>(fits->size());
  batch.items = items.data();
  batch.results = fits->data();
  return device->fit_items(batch);
}

class CudaRegressionFailures : public CudaFailures {
 protected:
  CudaRegressionFailures() { tavo_test::make_random(random_, 60, 20, 1, 0.0, false, &data_); }

  tavo_test::RegressionData data_;
  std::vector<ItemFit> fits_;
};

TEST_F(CudaRegressionFailures, LittleMemoryMeansMorePasses) {
  const RegressionRules rules =
      tavo_test::regression_rules(RegressionModel::kOrderedLogistic, Precision::kSingle);
  ASSERT_TRUE(run_regression(data_.problem, rules, &fits_).ok());
  EXPECT_EQ(host_runtime().launches, 1);
  const std::vector<ItemFit> expected = fits_;
  host_runtime().free_bytes = 20000;  // half of it is for some thirty pairs of the 190
  host_runtime().launches = 0;
  EXPECT_EQ(host_runtime().most_streams_busy, 1);
  ASSERT_TRUE(run_regression(data_.problem, rules, &fits_).ok());
  EXPECT_GT(host_runtime().launches, 5);
  EXPECT_EQ(host_runtime().most_streams_busy, 2);
  for (size_t k = 0; k < expected.size(); ++k) {
    tavo_test::expect_same_fit(expected[k], fits_[k], rules.columns(1));
  }
}

TEST_F(CudaRegressionFailures, ALaunchSaysWhich) {
  struct Launch {
    RegressionModel model;
    bool distinct;
    std::string wrapper;
    std::string named;
  };
  for (const Launch& launch : std::vector<Launch>{
           {RegressionModel::kLogistic, false, "cuRegLogistic()", "cuRegLogistic()"},
           {RegressionModel::kLinear, false, "cuRegLinear()", "cuRegLinear()"},
           {RegressionModel::kOrderedLogistic, false, "cuRegOrderedLogistic()", "cuRegLogistic()"},
           {RegressionModel::kOrderedLogistic, true, "cuRegOrderedLogisticDistinct()", "cuRegLogistic()"}}) {
    for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
      RegressionRules rules = tavo_test::regression_rules(launch.model, precision);
      rules.distinct = launch.distinct;
      host_runtime().failing_launch = launch.wrapper;
      testing::internal::CaptureStderr();
      const Status status = run_regression(data_.problem, rules, &fits_);
      EXPECT_EQ(testing::internal::GetCapturedStderr().find(
                    "cutilCheckMsg() CUTIL CUDA error: " + launch.named + " execution failed.\n in file <"),
                0u);
      EXPECT_EQ(status.message(),
                "GPU 0: a CUDA kernel could not be launched: invalid configuration argument");
    }
  }
}

TEST_F(CudaRegressionFailures, AnAllocationNamesWhatItWasFor) {
  host_runtime().free_bytes = 300;  // less than a fit takes
  testing::internal::CaptureStderr();
  const Status status = run_regression(
      data_.problem, tavo_test::regression_rules(RegressionModel::kLogistic, Precision::kSingle), &fits_);
  testing::internal::GetCapturedStderr();
  EXPECT_NE(status.message().find("bytes of device memory for the "), std::string::npos) << status.message();
  EXPECT_EQ(host_runtime().allocations_alive, 0u);
}

TEST_F(CudaFailures, NothingStaysAllocated) {
  ASSERT_TRUE(run(3, tavo_test::all_combinations(20, 3)).ok());
  ASSERT_TRUE(run(9, {0, 1, 2, 3, 4, 5, 6, 7, 8}).ok());
  EXPECT_EQ(host_runtime().allocations_alive, 0u);
}

}  // namespace
