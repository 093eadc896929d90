// SPDX-License-Identifier: Apache-2.0
//
// The search of plain MDR on the current device, one thread per combination: bit planes, then all folds'
// values of a range of ranks or of listed ones. Launches are queued on the given stream; one that fails
// throws.
#pragma once

#include <cuda_runtime_api.h>

#include "cuda/plane_body.h"

// Fills the planes from the packed matrix.
void cuMdrBuildPlanes(const PlaneBuildArguments& arguments, cudaStream_t stream);

// Orders 1 to kMaxCudaPlaneOrder; arguments.range.n_ranks >= 1.
void cuMdrSearch(const PlaneSearchArguments& arguments, cudaStream_t stream);

// The combinations that the list holds once the stream has come here; its count is read on the device. The
// arguments' range of ranks is not read.
void cuMdrSearchListed(const PlaneSearchArguments& arguments, RankSink list, cudaStream_t stream);
