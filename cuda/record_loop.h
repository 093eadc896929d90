// SPDX-License-Identifier: Apache-2.0
//
// A loop over listed combinations of one fold: the device's side of the record path.
#pragma once

#include "cuda/device_data.h"
#include "cuda/occupied_body.h"
#include "device/commands.h"

class RecordLoop {
 public:
  // Sends the fold to the device. data outlives the loop.
  RecordLoop(DeviceData& data, const ScoringRules& rules, const FoldView& fold);

  // Writes the records of combinations[active][order] to results[active][32]. In as many passes as the
  // device's memory asks for; throws a CudaError where not even one combination fits.
  void evaluate(const int* combinations, uint32_t active, float* results);

 private:
  // Queues the kernels for combinations that are on the device.
  void run_tables(uint32_t active);
  void run_occupied(uint32_t active);
  CountArguments count_arguments(uint32_t active, bool training);
  size_t bytes_per_combination() const;
  void reserve(size_t n);

  DeviceData& data_;
  const ScoringRules rules_;
  const int n_training_;
  const int n_testing_;
  const float threshold_;
  const bool dense_;    // whole tables, not the occupied cells
  const int64_t nct_;   // entries of a whole table
  const size_t n_all_;  // samples of both sets
  const size_t most_per_pass_;

  DeviceBuffer<int> c_num_;
  DeviceBuffer<int> c_loc_;
  DeviceBuffer<int32_t> table_train_, table_test_;
  DeviceBuffer<float> score_sums_;
  DeviceBuffer<int32_t> case_train_, control_train_, case_test_, control_test_;
  DeviceBuffer<int32_t> n_train_, n_test_;
  DeviceBuffer<float> th_;
  DeviceBuffer<PlacedSample> placed_;
  DeviceBuffer<float> stat_;
  PageLockedBuffer<float> host_stat_;
};
