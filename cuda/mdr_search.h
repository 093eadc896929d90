// SPDX-License-Identifier: Apache-2.0
//
// The search of plain MDR on the current device: bit planes, then all folds' values of a range of ranks, one
// thread per combination. Launches are queued on the given stream; one that fails throws.
#pragma once

#include <cuda_runtime_api.h>

#include "cuda/plane_body.h"

// Fills the planes from the packed matrix.
void cuMdrBuildPlanes(const PlaneBuildArguments& arguments, cudaStream_t stream);

// Orders 1 to kMaxCudaPlaneOrder; arguments.range.n_ranks >= 1.
void cuMdrSearch(const PlaneSearchArguments& arguments, cudaStream_t stream);
