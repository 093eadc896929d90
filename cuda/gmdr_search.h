// SPDX-License-Identifier: Apache-2.0
//
// The search of score-based runs on the current device: like mdr_search.h, with the samples in the order of
// the score sums in place of bit planes.
#pragma once

#include <cuda_runtime_api.h>

#include "cuda/score_body.h"

// Fills the genotype codes by position from the packed matrix.
void cuGmdrBuildCodes(const CodeBuildArguments& arguments, cudaStream_t stream);

// Orders 1 to kMaxCudaScoreOrder; arguments.range.n_ranks >= 1.
void cuGmdrSearch(const ScoreSearchArguments& arguments, cudaStream_t stream);
