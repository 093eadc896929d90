// SPDX-License-Identifier: Apache-2.0
//
// Kernels for orders whose count tables would be too large: each thread sorts the samples by cell. Plain and
// score-based runs.
#pragma once

#include <cuda_runtime_api.h>

#include "cuda/occupied_body.h"
#include "cuda/occupied_search_body.h"

void cuOccupiedRecords(const OccupiedRecordArguments& arguments, cudaStream_t stream);

// arguments.range.n_ranks >= 1.
void cuOccupiedSearch(const OccupiedSearchArguments& arguments, cudaStream_t stream);
