// SPDX-License-Identifier: Apache-2.0
//
// A file without a name for data that does not fit memory. It is gone when the object goes, and also when the
// process ends in any other way.
#pragma once

#include <cstdint>
#include <string>

#include "util/status.h"

class ScratchFile {
 public:
  ScratchFile() = default;
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  // Makes the file in the folder ("" is the working directory). Called once.
  Status open(const std::string& folder);

  // At any place; a write beyond the end leaves zeros between.
  Status write_at(int64_t offset, const void* bytes, size_t size);

  // Reads what was written before.
  Status read_at(int64_t offset, void* bytes, size_t size) const;

 private:
  Status failure(const char* what) const;

  int descriptor_ = -1;
  std::string folder_;
};
