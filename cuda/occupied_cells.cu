// SPDX-License-Identifier: Apache-2.0
#include "cuda/cuda_check.h"
#include "cuda/launch_shape.h"
#include "cuda/occupied_cells.h"

namespace {

__global__ void occupied_records(OccupiedRecordArguments arguments) {
  occupied_record(arguments, static_cast<uint32_t>(thread_item()));
}

__global__ void occupied_search(OccupiedSearchArguments arguments) {
  search_occupied(arguments, thread_item());
}

}  // namespace

void cuOccupiedRecords(const OccupiedRecordArguments& arguments, cudaStream_t stream) {
  occupied_records<<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuOccupiedRecords() execution failed.\n");
}

void cuOccupiedSearch(const OccupiedSearchArguments& arguments, cudaStream_t stream) {
  occupied_search<<<blocks_for(arguments.range.n_ranks), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuOccupiedSearch() execution failed.\n");
}
