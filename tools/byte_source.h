// SPDX-License-Identifier: Apache-2.0
//
// The bytes of an input file, unpacked when the file is gzip. Reads forwards only, so pipes work, and holds
// two buffers however large the file is.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "util/status.h"

class ByteSource {
 public:
  ByteSource();
  ~ByteSource();
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;

  // Opens the file. It is gzip when its first two bytes are 1f 8b, whatever its name. Called once.
  Status open(const std::string& path);

  // Reads up to size bytes, size > 0; *got is 0 only at the end. Fails when the file cannot be read, and when
  // a gzip stream is damaged, ends early or is followed by anything but another gzip stream.
  Status read(char* out, size_t size, size_t* got);

 private:
  struct Inflater;
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  Status fill();
  Status inflate_some(char* out, size_t size, size_t* got);
  Status start_member();

  std::string path_;
  std::unique_ptr<std::FILE, Closer> file_;
  std::unique_ptr<char[]> buffer_;  // bytes of the file as they are
  size_t begin_ = 0;                // those from begin_ to end_ are not used yet
  size_t end_ = 0;
  std::unique_ptr<Inflater> inflater_;  // null for a plain file
  bool in_member_ = false;              // inside a gzip member
};
