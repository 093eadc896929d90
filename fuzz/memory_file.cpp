// SPDX-License-Identifier: Apache-2.0
#include "fuzz/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "fuzz/fuzz_input.h"

MemoryFile::MemoryFile() : descriptor_(memfd_create("tavo-fuzz", MFD_CLOEXEC)) {
  require(descriptor_ >= 0, "a file in memory");
  path_ = "/proc/self/fd/" + std::to_string(descriptor_);
}

MemoryFile::~MemoryFile() {
  close(descriptor_);
}

void MemoryFile::set(std::string_view bytes) const {
  require(ftruncate(descriptor_, static_cast<off_t>(bytes.size())) == 0 &&
              pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
          "room in memory");
}

MemoryFolder::MemoryFolder() : folder_(std::string(kMemoryFolder) + "/tavo-fuzz-XXXXXX") {
  require(mkdtemp(folder_.data()) != nullptr, "a folder in memory");
}

MemoryFolder::~MemoryFolder() {
  std::error_code unknown;
  std::filesystem::remove_all(folder_, unknown);
}

void MemoryFolder::add(const std::string& ending, const MemoryFile& file) const {
  require(symlink(file.path().c_str(), (prefix() + ending).c_str()) == 0, "a link in memory");
}
