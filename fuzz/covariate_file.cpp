// SPDX-License-Identifier: Apache-2.0
//
// The covariate file of a regression.
#include <cstring>

#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "src/covariates.h"
#include "src/run_config.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile file;
  file.set(FuzzInput(data, size).rest());
  if (read_covariates(file.path().c_str())) {
    require(g_covCnt >= 0 && g_covCnt <= kMaxCovariates, "as many covariates as are possible");
    for (int j = 0; j < g_covCnt; ++j) {
      require(std::memchr(g_covLabel[j], '\0', kCovariateLabelSize) != nullptr, "labels that end");
    }
    drop_incomplete_covariates();
  }
  delete[] g_covValues;
  delete[] g_covMissing;
  g_covValues = nullptr;
  g_covMissing = nullptr;
  return 0;
}
