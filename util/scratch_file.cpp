// SPDX-License-Identifier: Apache-2.0
#include "util/scratch_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "util/whole_io.h"

ScratchFile::~ScratchFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

Status ScratchFile::failure(const char* what) const {
  return Status::failure(std::string("cannot ") + what + " a temporary file in " + folder_ + ": " +
                         std::strerror(errno));
}

Status ScratchFile::open(const std::string& folder) {
  folder_ = folder.empty() ? "." : folder;
  descriptor_ = ::open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor_ < 0) {
    // Not every file system knows files without a name.
    std::string name = folder_ + "/tavo-XXXXXX";
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
      return failure("create");
    }
    unlink(name.c_str());
  }
  return {};
}

Status ScratchFile::write_at(int64_t offset, const void* bytes, size_t size) {
  return write_whole(descriptor_, bytes, size, offset) == WholeIo::kDone ? Status() : failure("write");
}

Status ScratchFile::read_at(int64_t offset, void* bytes, size_t size) const {
  errno = EIO;
  return read_whole(descriptor_, bytes, size, offset) == WholeIo::kDone ? Status() : failure("read");
}
