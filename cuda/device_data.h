// SPDX-License-Identifier: Apache-2.0
//
// What a worker's device holds from its start to its end.
#pragma once

#include <optional>

#include "cuda/device_buffer.h"
#include "cuda/gmdr_cuda.h"
#include "cuda/mdr_cuda_new.h"
#include "cuda/regression.h"
#include "cuda/search_kernel.h"
#include "device/problem.h"

struct DeviceData {
  GpuTraits gpu;
  std::optional<SearchKernel> forced_search;  // by TAVO_GPU_SEARCH
  const Problem* problem = nullptr;           // on the host
  DeviceStream stream;
  DeviceBuffer<uint32_t> genotypes;  // the packed matrix as the problem has it; empty when transposed
  // One of the three is filled: plain runs, score-based runs, regressions.
  MdrSampleData mdr;
  GmdrSampleData gmdr;
  RegressionSampleData regression;

  bool with_scores() const { return problem->scores != nullptr; }
  GenotypeMatrix matrix() const { return {genotypes.data(), problem->words_per_row}; }
  const uint8_t* response() const { return with_scores() ? gmdr.response.data() : mdr.mdr_response.data(); }
  const int* indices() const { return with_scores() ? gmdr.indices.data() : mdr.mdr_indices.data(); }
};
