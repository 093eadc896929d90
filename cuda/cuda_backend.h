// SPDX-License-Identifier: Apache-2.0
//
// The CUDA backend: every GPU that this program was compiled for is a device. Nothing outside cuda/ sees more
// of CUDA than this header.
#pragma once

#include <vector>

#include "device/backend.h"

class CudaBackend : public Backend {
 public:
  std::string name() const override { return "CUDA"; }

  // Fails when a GPU is there, but its properties cannot be had.
  Status ready() const override;

  // 0 without a driver, without a GPU, and where every GPU is older than the oldest that the program
  // supports.
  int device_count() const override;
  DeviceProperties properties(int ordinal) const override;

  // More workers than GPUs share them in turn.
  std::unique_ptr<Device> open(int ordinal) override;
};
