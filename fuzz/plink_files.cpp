// SPDX-License-Identifier: Apache-2.0
//
// PLINK's three files: the parts of an input are the .fam, the .bim and the .bed file.
#include "fuzz/check_source.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "tools/bed_source.h"

namespace {

struct Files {
  MemoryFile fam;
  MemoryFile bim;
  MemoryFile bed;
  MemoryFolder folder;

  Files() {
    folder.add(kFamEnding, fam);
    folder.add(kBimEnding, bim);
    folder.add(kBedEnding, bed);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Files files;
  FuzzInput input(data, size);
  files.fam.set(input.part());
  files.bim.set(input.part());
  files.bed.set(input.rest());
  BedSource source;
  if (source.open(files.folder.prefix()).ok()) {
    check_source(source);
  }
  return 0;
}
