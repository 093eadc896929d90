// SPDX-License-Identifier: Apache-2.0
//
// The only file that knows every backend by name.
#include "device/backends.h"

#include <algorithm>
#include <cctype>

#include "cpu/cpu_backend.h"

std::vector<Backend*> backends() {
  static CpuBackend cpu;
  return {&cpu};
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
