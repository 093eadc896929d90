// SPDX-License-Identifier: Apache-2.0
//
// A binary input of known size, read at any place.
#pragma once

#include <cstdint>
#include <string>

#include "util/status.h"

class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // Opens a regular file; anything else is refused, since its size is needed. Called once.
  Status open(const std::string& path);

  int64_t size() const { return size_; }
  const std::string& path() const { return path_; }

  // Reads all of `size` bytes; "ends early" is a failure.
  Status read_at(int64_t offset, void* bytes, size_t size) const;

  // A failure that begins with the path.
  Status refusal(const std::string& what) const { return Status::failure(path_ + ": " + what); }

 private:
  std::string path_;
  int descriptor_ = -1;
  int64_t size_ = 0;
};
