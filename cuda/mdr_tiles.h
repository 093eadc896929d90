// SPDX-License-Identifier: Apache-2.0
//
// The fused search of plain MDR on the current device (tile_search_body.h). Launches are queued on the given
// stream; one that fails throws.
#pragma once

#include <cuda_runtime_api.h>

#include "cuda/search_kernel.h"
#include "cuda/tile_values_body.h"

// The values of all SNPs, which searches of pairs and triples read, and of all pairs of at least two SNPs,
// which those of triples read.
void cuMdrSnpValues(const ValueArguments& arguments, cudaStream_t stream);
void cuMdrPairValues(const ValueArguments& arguments, cudaStream_t stream);

// Searches all units of the arguments, at least one. kernel: one of the tiles' that this GPU has.
void cuMdrSearchTiles(SearchKernel kernel, const TileSearchArguments& arguments, cudaStream_t stream);
