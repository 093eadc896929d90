// SPDX-License-Identifier: Apache-2.0
//
// A loop over listed combinations of one fold: the device's side of the record path.
#pragma once

#include "cuda/device_data.h"
#include "cuda/occupied_body.h"
#include "cuda/pass_lanes.h"
#include "device/commands.h"

class RecordLoop {
 public:
  // Sends the fold to the device. data outlives the loop.
  RecordLoop(DeviceData& data, const ScoringRules& rules, const FoldView& fold);

  // Writes the records of combinations[active][order] to results[active][32]. In as many passes as the
  // device's memory asks for; throws a CudaError where not even one combination fits.
  void evaluate(const int* combinations, uint32_t active, float* results);

 private:
  struct Buffers {
    DeviceBuffer<int> c_loc;
    DeviceBuffer<int32_t> table_train, table_test;
    DeviceBuffer<float> score_sums;
    DeviceBuffer<int32_t> case_train, control_train, case_test, control_test;
    DeviceBuffer<int32_t> n_train, n_test;
    DeviceBuffer<float> th;
    DeviceBuffer<PlacedSample> placed;
    DeviceBuffer<float> stat;
    PageLockedBuffer<float> host_stat;
  };
  using Lane = PassLane<Buffers>;

  // Queues the kernels for the lane's combinations, which are on the device.
  void run_tables(const Lane& lane) const;
  void run_occupied(const Lane& lane) const;
  CountArguments count_arguments(const Lane& lane, bool training) const;
  size_t bytes_per_combination() const;
  // Makes room for the lane's combinations and sends them, with all else that their kernels read.
  void send(const int* combinations, Lane& lane) const;

  DeviceData& data_;
  const ScoringRules rules_;
  const int n_training_;
  const int n_testing_;
  const float threshold_;
  const bool dense_;    // whole tables, not the occupied cells
  const int64_t nct_;   // entries of a whole table
  const size_t n_all_;  // samples of both sets
  const PassPlan plan_;

  DeviceBuffer<int> c_num_;
  Lane lanes_[kPassLanes];
};
