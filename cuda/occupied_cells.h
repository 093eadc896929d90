// SPDX-License-Identifier: Apache-2.0
//
// Kernels for orders whose count tables would be too large: each thread sorts the samples by cell.
#pragma once

#include <cuda_runtime_api.h>

#include "cuda/occupied_body.h"

// The records of plain and score-based runs.
void cuOccupiedRecords(const OccupiedRecordArguments& arguments, cudaStream_t stream);
