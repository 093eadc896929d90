// SPDX-License-Identifier: Apache-2.0
//
// A file beside a checkpoint to which a run appends what it has: rows of a result that are too many for
// memory. The checkpoint says how much of it counts; a run that goes on cuts the rest off.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "util/status.h"

class GrowingFile {
 public:
  // The bytes that count, and their checksum.
  struct Extent {
    uint64_t size = 0;
    uint32_t checksum = 0;
  };

  GrowingFile() = default;
  // Leaves the file.
  ~GrowingFile();
  GrowingFile(const GrowingFile&) = delete;
  GrowingFile& operator=(const GrowingFile&) = delete;

  // Begins the file, empty. What a killed run left of one is overwritten; any other file is left alone, and
  // the call fails.
  Status begin(const std::string& path);

  // Goes on behind what counts. Fails when the file is not there, is shorter, or differs.
  Status go_on(const std::string& path, const Extent& counts);

  // Appends text. The first failure, here or in sync, is kept: what counts ends before it.
  void append(std::string_view text);

  // Makes sure that everything is on disk; then *counts is what counts.
  Status sync(Extent* counts);

  const Status& status() const { return status_; }

  // Hands all that was appended to `take`, piece by piece.
  Status read_all(const std::function<Status(std::string_view piece)>& take);

  void remove();

 private:
  Status failure(const char* what) const;
  void write_buffer();

  int descriptor_ = -1;
  std::string path_;
  std::string buffer_;  // not written yet
  Extent written_;      // with the line that every such file begins with
  Status status_;
};
