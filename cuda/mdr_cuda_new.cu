// SPDX-License-Identifier: Apache-2.0
#include "cuda/launch_shape.h"
#include "cuda/mdr_cuda_new.h"

namespace {

// Numbers of combinations fit 32 bits, and so do those of the surplus threads of the last block.
__device__ uint32_t thread_number() {
  return static_cast<uint32_t>(thread_item());
}

__global__ void mdrCT_available(CountArguments arguments) {
  count_table(arguments, thread_number());
}

__global__ void cuMdrSetValue(MeasureArguments arguments) {
  set_value(arguments, thread_number());
}

__global__ void mdr_cudaCalculateMeasuresCV(MeasureArguments arguments) {
  measure_record(arguments, thread_number());
}

}  // namespace

void cuMdrSendBase(MdrSampleData& data, std::span<const uint8_t> phenotype, cudaStream_t stream) {
  upload(data.mdr_response, phenotype, "classes", stream);
}

void cuMdrSendIndices(MdrSampleData& data, std::span<const int> training, std::span<const int> testing,
                      cudaStream_t stream) {
  upload_pair(data.mdr_indices, training, testing, "sample lists", stream);
}

void cuMdrCount(const CountArguments& arguments, cudaStream_t stream) {
  mdrCT_available<<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuMdrCount() execution failed.\n");
}

void cuMdrCalcSV(const MeasureArguments& arguments, cudaStream_t stream) {
  cuMdrSetValue<<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuMdrCalcSV execution failed.\n");
}

void cuMdrCalc(const MeasureArguments& arguments, cudaStream_t stream) {
  mdr_cudaCalculateMeasuresCV<<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuMdrCalc execution failed.\n");
}
