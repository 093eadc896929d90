// SPDX-License-Identifier: Apache-2.0
//
// A file that appears under its name only when it is complete. Until then its bytes stand in a file without a
// name, which goes away with the process however that ends, or, on file systems that have none, in a
// temporary file beside it, which goes away with the object.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "util/status.h"

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // What cannot be replaced by a complete file: something that is no regular file (a pipe, a terminal), the
  // file that standard output or standard error goes to, or a file in a folder that takes no new ones.
  enum class Otherwise { kRefuse, kWriteDirectly };

  // Begins the file. Called once.
  Status open(const std::string& path, Otherwise otherwise = Otherwise::kRefuse);

  // As open, refusing, with a temporary file of this name beside the file, which the caller keeps others from
  // using: what stands there is overwritten.
  Status open_with(const std::string& path, const std::string& temporary);

  // Begins the file under its own name at once, empty. A regular file is empty again when the object goes
  // before it is complete.
  Status open_directly(const std::string& path);

  // False when something stands under the path that a file must not take the place of.
  static bool is_replaceable(const std::string& path);

  bool is_open() const { return stream_ != nullptr; }

  // Appends bytes.
  Status write(const void* bytes, size_t size);

  // Gives the file its final size at once, so that a full disk shows before the work. Zeros stand where
  // nothing gets written. For files that are written at places of them.
  Status reserve(int64_t size);

  // Writes bytes at a place that write() does not reach. Not for a file that is written directly.
  Status write_at(int64_t offset, const void* bytes, size_t size);

  // Overwrites bytes written before, without moving the end. Only just before commit.
  Status patch(int64_t offset, const void* bytes, size_t size);

  // Makes sure that everything is on disk, and gives the file its name.
  Status commit();

 private:
  friend Status commit_together(std::span<OutputFile* const> files);

  Status failure(const char* what) const;
  void find_target(const std::string& path);
  Status open_temporary();
  Status begin_temporary(int descriptor);
  bool is_direct() const { return temporary_.empty() && !unnamed_; }

  // Calls make(name) with names of this process beside the target until it has made a file of one, which is
  // then temporary_. make: returns below 0 with errno on failure.
  template <typename Make>
  int find_name(const Make& make);

  // The steps of a commit: everything is on disk; what stands under the name can be brought back until the
  // object goes; the file has its name; it has lost it again.
  Status complete();
  Status keep_older();
  Status publish();
  void take_back();

  std::vector<char> buffer_;  // of the stream
  std::FILE* stream_ = nullptr;
  std::string path_;       // as given, for messages
  std::string target_;     // behind symbolic links
  std::string temporary_;  // empty when there is none: not yet, not any more, or the file is written directly
  bool unnamed_ = false;   // the file has no name yet
  std::string older_;      // another name of the file that is replaced, or empty
  bool published_ = false;
  bool empty_unless_complete_ = false;
};

// Commits several files: they get their names when all of them are complete, one right after the other. When
// one cannot have its name, the others lose theirs again, and what stood there before is back.
Status commit_together(std::span<OutputFile* const> files);
