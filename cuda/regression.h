// SPDX-License-Identifier: Apache-2.0
//
// Regressions of single SNPs on the current device: the kernels' wrappers.
#pragma once

#include <span>

#include "cuda/device_buffer.h"
#include "cuda/linear_body.h"
#include "cuda/logistic_body.h"

struct RegressionSampleData {
  DeviceBuffer<float> response;  // [samples]
  DeviceBuffer<float> pCOV;      // [samples][covariates], as they were read
};

// Once per worker.
void cuRegSendBase(RegressionSampleData& data, std::span<const float> phenotype,
                   std::span<const float> covariates, cudaStream_t stream);

// The fits of a list of SNPs, in single or double precision. active >= 1.
void cuRegLogistic(const LogisticArguments<float>& arguments, cudaStream_t stream);
void cuRegLogistic(const LogisticArguments<double>& arguments, cudaStream_t stream);
void cuRegLinear(const LinearArguments<float>& arguments, cudaStream_t stream);
void cuRegLinear(const LinearArguments<double>& arguments, cudaStream_t stream);
