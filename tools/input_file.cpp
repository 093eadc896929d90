// SPDX-License-Identifier: Apache-2.0
#include "tools/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "util/whole_io.h"

InputFile::~InputFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

Status InputFile::open(const std::string& path) {
  path_ = path;
  // A pipe would wait for its writer here, only to be refused.
  descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat properties {};
  if (descriptor_ < 0 || fstat(descriptor_, &properties) != 0) {
    return Status::failure("cannot open " + path + ": " + std::strerror(errno));
  }
  if (!S_ISREG(properties.st_mode)) {
    return refusal("not a regular file; its size is needed to tell its layout");
  }
  size_ = properties.st_size;
  return {};
}

Status InputFile::read_at(int64_t offset, void* bytes, size_t size) const {
  switch (read_whole(descriptor_, bytes, size, offset)) {
    case WholeIo::kDone:
      return {};
    case WholeIo::kEnd:
      return refusal("ends early");
    case WholeIo::kFailed:
      break;
  }
  return refusal(std::string("cannot read: ") + std::strerror(errno));
}
