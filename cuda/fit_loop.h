// SPDX-License-Identifier: Apache-2.0
//
// A regression: the device's side of the fits of listed items.
#pragma once

#include <optional>

#include "cuda/device_data.h"
#include "cuda/regression_ordered.h"
#include "device/commands.h"
#include "lib/standardized.h"

class FitLoop {
 public:
  // Sends what all items share to the device. data outlives the loop.
  FitLoop(DeviceData& data, const RegressionRules& rules);

  // Fits items[active][order] into results[active]. In as many passes as the device's memory asks for; throws
  // a CudaError where not even one item fits.
  void fit(const int* items, uint32_t active, ItemFit* results);

 private:
  void send_standardized();
  void send_shared_sums();
  // Queues the kernel for items that are on the device.
  void launch(uint32_t active);
  template <typename T>
  void launch_as(uint32_t active);
  template <typename T>
  FitSamples<T> samples() const;

  DeviceData& data_;
  const RegressionRules rules_;
  size_t most_per_pass_ = 1;

  // Double precision and linear models.
  std::optional<StandardizedCovariates> standardized_;
  DeviceBuffer<double> values_;  // standardised covariates [samples][covariates]
  DeviceBuffer<double> scale_;   // means, then inverse deviations
  // Linear models.
  DeviceBuffer<NormalEquations<double>> precise_shared_;
  DeviceBuffer<NormalEquations<float>> shared_;

  DeviceBuffer<int> pComb_;
  DeviceBuffer<ItemFit> pStat_;
  PageLockedBuffer<ItemFit> host_stat_;
};
