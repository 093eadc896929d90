// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "cuda/cuda_backend.h"

namespace tavo_test {

// The first device, with the problem's data on it.
inline std::unique_ptr<Device> opened_device(const Problem& problem) {
  std::unique_ptr<Device> device = CudaBackend().open(0);
  EXPECT_EQ(device->bind().message(), "");
  EXPECT_EQ(device->send_genotypes(problem).message(), "");
  EXPECT_EQ(device->send_base_data(problem).message(), "");
  return device;
}

}  // namespace tavo_test
