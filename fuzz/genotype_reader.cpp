// SPDX-License-Identifier: Apache-2.0
//
// The genotype file of tavo, in both layouts and for all kinds of run. The first byte chooses.
#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "src/FileIO.h"
#include "src/run_config.h"

namespace {

// Which lines of a covariate file lack a value, for a third of the runs.
unsigned char covariate_missing[] = {0, 1, 0, 0, 1};

void choose_run(uint8_t choice) {
  g_transpose = choice & 1;
  g_regression = choice / 2 % 3;
  g_covMissing = choice / 6 % 3 == 2 ? covariate_missing : nullptr;
  g_covLines = static_cast<int>(sizeof(covariate_missing));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile file;
  FuzzInput input(data, size);
  choose_run(input.byte());
  file.set(input.rest());
  MdrReader reader;
  if (!reader.Open(file.path().c_str(), false, g_transpose)) {
    return 0;
  }
  const auto n_samples = static_cast<size_t>(reader.GetLineCount());
  const auto n_snps = static_cast<size_t>(reader.GetColCount());
  require(reader.ReadHeader().size() == n_snps, "a name for each SNP");
  require(reader.classes().size() + reader.phenotypes().size() == n_samples, "a class for each sample");
  const size_t n_rows = g_transpose != 0 ? n_snps : n_samples;
  require(reader.words().size() == n_rows * static_cast<size_t>(reader.block_count()), "whole rows");
  for (int sample = 0; sample < reader.GetLineCount(); ++sample) {
    for (int snp = 0; snp < reader.GetColCount(); ++snp) {
      const int code = reader.GetSNPdata(sample, snp);
      require(code >= 0 && code <= 3, "a genotype code");
    }
  }
  return 0;
}
