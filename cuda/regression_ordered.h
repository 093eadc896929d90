// SPDX-License-Identifier: Apache-2.0
//
// Logistic regressions of pairs of SNPs on the current device: the kernels' wrappers.
#pragma once

#include <span>

#include "cuda/distinct_body.h"
#include "cuda/regression.h"

// Once per worker.
void cuRegOrderedSendBase(RegressionSampleData& data, std::span<const float> phenotype,
                          std::span<const float> covariates, cudaStream_t stream);

// The fits of a list of pairs, active >= 1: a thread per pair, or (distinct) a block of 16 x 32 threads.
void cuRegOrderedLogistic(const LogisticArguments<float>& arguments, cudaStream_t stream);
void cuRegOrderedLogistic(const LogisticArguments<double>& arguments, cudaStream_t stream);
void cuRegOrderedLogisticDistinct(const LogisticArguments<float>& arguments, cudaStream_t stream);
void cuRegOrderedLogisticDistinct(const LogisticArguments<double>& arguments, cudaStream_t stream);
