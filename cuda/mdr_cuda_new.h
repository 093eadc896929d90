// SPDX-License-Identifier: Apache-2.0
//
// Records of plain MDR on the current device: count tables, then measures, one thread per combination. The
// wrappers choose the launch shape for any number of combinations and queue on the given stream; a launch
// that fails throws.
#pragma once

#include <span>

#include "cuda/device_buffer.h"
#include "cuda/table_body.h"

// What the count kernel reads about the samples.
struct MdrSampleData {
  DeviceBuffer<uint8_t> mdr_response;  // [all samples], 1 case, 0 control
  DeviceBuffer<int> mdr_indices;       // training samples of the fold, then its testing samples
};

// Once per worker.
void cuMdrSendBase(MdrSampleData& data, std::span<const uint8_t> phenotype, cudaStream_t stream);

// Once per fold.
void cuMdrSendIndices(MdrSampleData& data, std::span<const int> training, std::span<const int> testing,
                      cudaStream_t stream);

// Counts over one sample set. arguments.SC and score_sums are null.
void cuMdrCount(const CountArguments& arguments, cudaStream_t stream);

// Sample numbers and thresholds of each combination from its own counts: before cuMdrCalc where
// arguments.missing is kMissingAvailable.
void cuMdrCalcSV(const MeasureArguments& arguments, cudaStream_t stream);

// The records.
void cuMdrCalc(const MeasureArguments& arguments, cudaStream_t stream);
