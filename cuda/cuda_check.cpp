// SPDX-License-Identifier: Apache-2.0
#include "cuda/cuda_check.h"

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

// "mdr_cuda_new" of "/somewhere/cuda/mdr_cuda_new.cu", or "mdr_cuda_new.cu".
std::string source_name(std::source_location where, SourceName name) {
  const std::filesystem::path path = where.file_name();
  return (name == SourceName::kStem ? path.stem() : path.filename()).string();
}

}  // namespace

void cuda_safe_call(cudaError_t result, std::source_location where) {
  if (result == cudaSuccess) {
    return;
  }
  const char* text = cudaGetErrorString(result);
  std::fflush(stdout);
  std::fprintf(stderr, "cudaSafeCall() Runtime API error in file <%s>, line %i : %s.\n",
               source_name(where, SourceName::kStem).c_str(), static_cast<int>(where.line()), text);
  throw CudaError(std::string("a call of the CUDA runtime failed: ") + text);
}

void cuda_check_launch(const char* text, SourceName name, std::source_location where) {
  const cudaError_t result = cudaGetLastError();
  if (result == cudaSuccess) {
    return;
  }
  const char* reason = cudaGetErrorString(result);
  std::fflush(stdout);
  std::fprintf(stderr, "cutilCheckMsg() CUTIL CUDA error: %s in file <%s>, line %i : %s.\n", text,
               source_name(where, name).c_str(), static_cast<int>(where.line()), reason);
  throw CudaError(std::string("a CUDA kernel could not be launched: ") + reason);
}
