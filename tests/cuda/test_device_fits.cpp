// SPDX-License-Identifier: Apache-2.0
//
// Regressions of the CUDA backend through the interface that the workers use: on a GPU, and over the stand-in
// of host_runtime.h.
#include <gtest/gtest.h>

#include "cuda/cuda_backend.h"
#include "tests/cuda/fit_checks.h"
#include "tests/cuda/gpu_required.h"

namespace {

using tavo_test::RegressionData;

std::vector<ItemFit> device_fits(const Problem& given, const RegressionRules& rules,
                                 const std::vector<int>& items) {
  Problem problem = given;
  problem.ordered_regression = rules.order() == 2;
  CudaBackend backend;
  const std::unique_ptr<Device> device = backend.open(0);
  EXPECT_EQ(device->bind().message(), "");
  EXPECT_EQ(device->send_genotypes(problem).message(), "");
  EXPECT_EQ(device->send_base_data(problem).message(), "");
  const auto order = static_cast<size_t>(rules.order());
  const size_t total = items.size() / order;
  RegressionSetupCommand setup(rules);
  setup.launch_size = total;
  EXPECT_EQ(device->set_up_regression(setup).message(), "");
  std::vector<ItemFit> fits(total);
  // A large batch, a small one, and one of a single item in the same buffers.
  size_t done = 0;
  for (const size_t n : {total - total / 3 - 1, total / 3, size_t{1}}) {
    RegressionBatchCommand batch;
    batch.active = static_cast<uint32_t>(n);
    batch.items = items.data() + done * order;
    batch.results = fits.data() + done;
    EXPECT_EQ(device->fit_items(batch).message(), "");
    done += n;
  }
  device->release();
  return fits;
}

class CudaDeviceFits : public tavo_test::NeedsGpu, public testing::WithParamInterface<Precision> {};

TEST_P(CudaDeviceFits, OfOneSnpHaveTheBitsOfTheCpu) {
  tavo_test::sweep_fits(RegressionModel::kLogistic, GetParam(), device_fits);
}

TEST_P(CudaDeviceFits, OfPairsHaveTheBitsOfTheCpu) {
  tavo_test::sweep_fits(RegressionModel::kOrderedLogistic, GetParam(), device_fits);
}

TEST_P(CudaDeviceFits, OfLinearModelsHaveTheBitsOfTheCpu) {
  tavo_test::sweep_fits(RegressionModel::kLinear, GetParam(), device_fits);
}

// Ten times what both roundings can make (test_distinct_bodies.cpp looks closer): this is about what goes to
// the device and comes back.
TEST_P(CudaDeviceFits, DistinctOnesAgreeWithTheCpu) {
  std::mt19937 random(61);
  RegressionData data;
  tavo_test::make_random(random, 600, 6, 2, 0.02, false, &data);
  RegressionRules rules = tavo_test::regression_rules(RegressionModel::kOrderedLogistic, GetParam());
  const std::vector<int> items = tavo_test::all_items(6, 2);
  const std::vector<ItemFit> expected = tavo_test::cpu_fits(data.problem, rules, items);
  rules.distinct = true;
  const std::vector<ItemFit> found = device_fits(data.problem, rules, items);
  const double tolerance = GetParam() == Precision::kDouble ? 1e-10 : 600 * 12e-7;
  for (size_t k = 0; k < found.size(); ++k) {
    ASSERT_EQ(found[k].state, FitState::kFitted);
    EXPECT_NEAR(found[k].deviance, expected[k].deviance, tolerance * expected[k].deviance) << k;
    EXPECT_NEAR(found[k].coefficients[9], expected[k].coefficients[9],
                tolerance * 25 * expected[k].standard_errors[9])
        << k;
  }
}

INSTANTIATE_TEST_SUITE_P(Precisions, CudaDeviceFits, testing::Values(Precision::kSingle, Precision::kDouble),
                         [](const auto& test) {
                           return test.param == Precision::kSingle ? "Single" : "Double";
                         });

}  // namespace
