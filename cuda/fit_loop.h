// SPDX-License-Identifier: Apache-2.0
//
// A regression: the device's side of the fits of listed items.
#pragma once

#include <optional>

#include "cuda/device_data.h"
#include "cuda/pass_lanes.h"
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
  struct Buffers {
    DeviceBuffer<int> pComb;
    DeviceBuffer<ItemFit> pStat;
    PageLockedBuffer<ItemFit> host_stat;
  };
  using Lane = PassLane<Buffers>;

  void send_standardized();
  void send_shared_sums();
  // Queues the kernel for the lane's items, which are on the device.
  void launch(const Lane& lane) const;
  template <typename T>
  void launch_as(const Lane& lane) const;
  template <typename T>
  FitSamples<T> samples() const;

  DeviceData& data_;
  const RegressionRules rules_;

  // Double precision and linear models.
  std::optional<StandardizedCovariates> standardized_;
  DeviceBuffer<double> values_;  // standardised covariates [samples][covariates]
  DeviceBuffer<double> scale_;   // means, then inverse deviations
  // Linear models.
  DeviceBuffer<NormalEquations<double>> precise_shared_;
  DeviceBuffer<NormalEquations<float>> shared_;

  std::optional<PassPlan> plan_;  // by the memory that all of the above leaves
  Lane lanes_[kPassLanes];
};
