// SPDX-License-Identifier: Apache-2.0
//
// The only file that knows every backend by name.
#include "device/backends.h"

#include <algorithm>
#include <cctype>

#include "cpu/cpu_backend.h"
#ifdef TAVO_HAVE_CUDA
#include "cuda/cuda_backend.h"
#endif

std::vector<Backend*> backends() {
  static CpuBackend cpu;
#ifdef TAVO_HAVE_CUDA
  static CudaBackend cuda;
  return {&cuda, &cpu};
#else
  return {&cpu};
#endif
}

Backend* choose_backend(const std::string& choice) {
  for (Backend* backend : backends()) {
    std::string name = backend->name();
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    if ((choice == "auto" || choice == name) && backend->device_count() > 0) {
      return backend;
    }
  }
  return nullptr;
}
