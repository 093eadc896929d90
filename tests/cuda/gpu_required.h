// SPDX-License-Identifier: Apache-2.0
//
// Tests that need a GPU, or its stand-in: skipped without one, or failed where one is required.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "cuda/cuda_backend.h"

namespace tavo_test {

class NeedsGpu : public testing::Test {
 protected:
  void SetUp() override {
    const char* required = std::getenv("TAVO_REQUIRE_GPU");
    if (CudaBackend().device_count() > 0) {
      return;
    }
    if (required != nullptr && std::strcmp(required, "1") == 0) {
      FAIL() << "TAVO_REQUIRE_GPU=1, but there is no GPU that the program can use";
    }
    GTEST_SKIP() << "no GPU";
  }
};

}  // namespace tavo_test
