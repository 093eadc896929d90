// SPDX-License-Identifier: Apache-2.0
//
// VCF and BCF, plain or compressed. The first byte says whether multi-allelic records are split.
#include "fuzz/check_source.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "tools/vcf_source.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile file;
  FuzzInput input(data, size);
  const bool split = input.byte() % 2 != 0;
  file.set(input.rest());
  VcfSource source;
  if (source.open(file.path(), split, kMemoryFolder, stop_signal()).ok()) {
    check_source(source);
  }
  return 0;
}
