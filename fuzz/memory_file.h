// SPDX-License-Identifier: Apache-2.0
//
// Inputs of fuzz targets as files that never touch a disk: the readers open their input by name.
#pragma once

#include <string>
#include <string_view>

// Where readers may put temporary files: memory, too.
inline constexpr const char* kMemoryFolder = "/dev/shm";

// A file that has a name within this process only.
class MemoryFile {
 public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Opens as a regular file at its beginning, every time anew.
  const std::string& path() const { return path_; }

  void set(std::string_view bytes) const;

 private:
  int descriptor_;
  std::string path_;
};

// Several of them, named by a common prefix and an ending each.
class MemoryFolder {
 public:
  MemoryFolder();
  ~MemoryFolder();
  MemoryFolder(const MemoryFolder&) = delete;
  MemoryFolder& operator=(const MemoryFolder&) = delete;

  std::string prefix() const { return folder_ + "/data"; }

  // Gives the file another name: the prefix and this ending.
  void add(const std::string& ending, const MemoryFile& file) const;

 private:
  std::string folder_;
};
