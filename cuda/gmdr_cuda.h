// SPDX-License-Identifier: Apache-2.0
//
// Records of score-based runs on the current device: like mdr_cuda_new.h, with the training samples' scores
// summed beside the counts, and balanced accuracy as the only measure.
#pragma once

#include <span>

#include "cuda/device_buffer.h"
#include "cuda/table_body.h"

struct GmdrSampleData {
  DeviceBuffer<uint8_t> response;  // [all samples], 1 case, 0 control
  DeviceBuffer<float> SC;          // [all samples]
  DeviceBuffer<int> indices;       // training samples of the fold, then its testing samples
};

// Once per worker. Both arrays have one element per sample.
void cuGmdrSendBase(GmdrSampleData& data, std::span<const uint8_t> phenotype, std::span<const float> scores,
                    cudaStream_t stream);

// Once per fold.
void cuGmdrSendIndices(GmdrSampleData& data, std::span<const int> training, std::span<const int> testing,
                       cudaStream_t stream);

// Counts over one sample set; sums scores where arguments.score_sums is not null. The sums are added to what
// stands there.
void cuGmdrCount(const CountArguments& arguments, cudaStream_t stream);

// Sample numbers and thresholds of each combination from its own counts.
void cuGmdrCalcSV(const MeasureArguments& arguments, cudaStream_t stream);

// The records. They need no threshold: a cell's score sum is held against 0.
void cuGmdrCalc(const MeasureArguments& arguments, cudaStream_t stream);
