// SPDX-License-Identifier: Apache-2.0
//
// A table of genotypes as text, plain or gzip, read as tavo-convert reads it.
#include "fuzz/check_source.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "tools/table_source.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile file;
  file.set(FuzzInput(data, size).rest());
  TableSource source;
  if (source.open(file.path(), "Class", kMemoryFolder, stop_signal()).ok()) {
    require(source.classes().size() == source.samples().size(), "a class for each sample");
    check_source(source);
  }
  return 0;
}
