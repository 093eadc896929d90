// SPDX-License-Identifier: Apache-2.0
//
// What becomes of a CUDA call that fails: its line on standard error, then a CudaError, which the device
// hands to its worker as a failed Status and main turns into the exit status.
#pragma once

#include <cuda_runtime_api.h>

#include <source_location>
#include <stdexcept>

class CudaError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws unless the runtime call succeeded. The line names the caller's source file and line.
void cuda_safe_call(cudaError_t result, std::source_location where = std::source_location::current());

// How the line of a failed launch names its source file: those of the regressions with their extension.
enum class SourceName { kStem, kWithExtension };

// Throws when the launch just before it failed. text: what failed, as in "cuMdrCount() execution failed.\n".
void cuda_check_launch(const char* text, SourceName name = SourceName::kStem,
                       std::source_location where = std::source_location::current());
