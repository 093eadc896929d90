// SPDX-License-Identifier: Apache-2.0
#include "cuda/gmdr_cuda.h"
#include "cuda/launch_shape.h"

namespace {

// Numbers of combinations fit 32 bits, and so do those of the surplus threads of the last block.
__device__ uint32_t thread_number() {
  return static_cast<uint32_t>(thread_item());
}

__global__ void countTable_available(CountArguments arguments) {
  count_table(arguments, thread_number());
}

__global__ void cuGmdrSetValue(MeasureArguments arguments) {
  set_value(arguments, thread_number());
}

__global__ void cudaCalculateMeasuresCV_BA(MeasureArguments arguments) {
  measure_score_record(arguments, thread_number());
}

}  // namespace

void cuGmdrSendBase(GmdrSampleData& data, std::span<const uint8_t> phenotype, std::span<const float> scores,
                    cudaStream_t stream) {
  upload(data.response, phenotype, "classes", stream);
  upload(data.SC, scores, "scores", stream);
}

void cuGmdrSendIndices(GmdrSampleData& data, std::span<const int> training, std::span<const int> testing,
                       cudaStream_t stream) {
  upload_pair(data.indices, training, testing, "sample lists", stream);
}

void cuGmdrCount(const CountArguments& arguments, cudaStream_t stream) {
  countTable_available<<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuGmdrCount() execution failed.\n");
}

void cuGmdrCalcSV(const MeasureArguments& arguments, cudaStream_t stream) {
  cuGmdrSetValue<<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuGmdrCalcSV execution failed.\n");
}

void cuGmdrCalc(const MeasureArguments& arguments, cudaStream_t stream) {
  cudaCalculateMeasuresCV_BA<<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuGmdrCalc execution failed.\n");
}
