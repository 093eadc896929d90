// SPDX-License-Identifier: Apache-2.0
//
// The lines of failed calls from the sources that make them. Without a GPU that the process may see, every
// launch and every allocation of the real wrappers fails.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "cuda/cuda_backend.h"
#include "cuda/gmdr_cuda.h"
#include "cuda/gmdr_search.h"
#include "cuda/mdr_cuda_new.h"
#include "cuda/mdr_search.h"
#include "cuda/occupied_cells.h"
#include "cuda/regression_ordered.h"

namespace {

class LaunchMessages : public testing::Test {
 protected:
  void SetUp() override {
    // Before the first call of the runtime in this process.
    setenv("CUDA_VISIBLE_DEVICES", "", 1);
    ASSERT_EQ(CudaBackend().device_count(), 0);
  }
};

// The line on standard error of a call that has to throw.
template <typename Call>
std::string line_of(Call call) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(call(), CudaError);
  return testing::internal::GetCapturedStderr();
}

template <typename Arguments>
void expect_launch_line(void (*wrapper)(const Arguments&, cudaStream_t), Arguments arguments,
                        const std::string& text, const std::string& file) {
  const std::string line = line_of([&] { wrapper(arguments, nullptr); });
  EXPECT_EQ(line.find("cutilCheckMsg() CUTIL CUDA error: " + text + "\n in file <" + file + ">, line "), 0u)
      << line;
  EXPECT_EQ(line.substr(line.size() - 2), ".\n");
}

TEST_F(LaunchMessages, OfRecords) {
  CountArguments counts{};
  counts.active = 1;
  expect_launch_line(cuMdrCount, counts, "cuMdrCount() execution failed.", "mdr_cuda_new");
  expect_launch_line(cuGmdrCount, counts, "cuGmdrCount() execution failed.", "gmdr_cuda");
  MeasureArguments measures{};
  measures.active = 1;
  expect_launch_line(cuMdrCalcSV, measures, "cuMdrCalcSV execution failed.", "mdr_cuda_new");
  expect_launch_line(cuMdrCalc, measures, "cuMdrCalc execution failed.", "mdr_cuda_new");
  expect_launch_line(cuGmdrCalcSV, measures, "cuGmdrCalcSV execution failed.", "gmdr_cuda");
  expect_launch_line(cuGmdrCalc, measures, "cuGmdrCalc execution failed.", "gmdr_cuda");
  OccupiedRecordArguments occupied{};
  occupied.active = 1;
  expect_launch_line(cuOccupiedRecords, occupied, "cuOccupiedRecords() execution failed.", "occupied_cells");
}

TEST_F(LaunchMessages, OfSearches) {
  SearchRange range{};
  range.order = 2;
  range.n_ranks = 1;
  expect_launch_line(cuMdrSearch, {range, {}, 0}, "cuMdrSearch() execution failed.", "mdr_search");
  ScoreSearchArguments scores{};
  scores.range = range;
  expect_launch_line(cuGmdrSearch, scores, "cuGmdrSearch() execution failed.", "gmdr_search");
}

template <typename T>
void expect_regression_lines() {
  LogisticArguments<T> logistic{};
  logistic.active = 1;
  expect_launch_line<LogisticArguments<T>>(cuRegLogistic, logistic, "cuRegLogistic() execution failed.",
                                           "regression.cu");
  expect_launch_line<LogisticArguments<T>>(cuRegOrderedLogistic, logistic,
                                           "cuRegLogistic() execution failed.", "regression_ordered.cu");
  expect_launch_line<LogisticArguments<T>>(cuRegOrderedLogisticDistinct, logistic,
                                           "cuRegLogistic() execution failed.", "regression_ordered.cu");
  LinearArguments<T> linear{};
  linear.active = 1;
  expect_launch_line<LinearArguments<T>>(cuRegLinear, linear, "cuRegLinear() execution failed.",
                                         "regression.cu");
}

TEST_F(LaunchMessages, OfRegressions) {
  expect_regression_lines<float>();
  expect_regression_lines<double>();
}

TEST_F(LaunchMessages, OfSampleLists) {
  MdrSampleData data;
  const int samples[] = {1, 2};
  const std::string line = line_of([&] { cuMdrSendIndices(data, {samples, 1}, {samples + 1, 1}, nullptr); });
  EXPECT_EQ(line.find("cudaSafeCall() Runtime API error in file <mdr_cuda_new>, line "), 0u) << line;
}

}  // namespace
