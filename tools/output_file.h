// SPDX-License-Identifier: Apache-2.0
//
// A binary file that appears under its name only when it is complete. Until then its bytes stand in a
// temporary file beside it, which goes away with the object.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "util/status.h"

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Begins the file. Fails when the path is something other than a regular file, such as a folder or a pipe.
  // Called once.
  Status open(const std::string& path);

  // Appends bytes.
  Status write(const void* bytes, size_t size);

  // Overwrites bytes written before, without moving the end. Only just before commit.
  Status patch(int64_t offset, const void* bytes, size_t size);

  // Makes sure that everything is on disk, and gives the file its name.
  Status commit();

 private:
  Status failure(const char* what) const;

  std::FILE* stream_ = nullptr;
  std::string path_;       // as given, for messages
  std::string target_;     // behind symbolic links
  std::string temporary_;  // empty when there is none (any more)
};
