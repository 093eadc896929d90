// SPDX-License-Identifier: Apache-2.0
#include "util/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kBufferSize = 1 << 18;
constexpr mode_t kNewFileMode = 0666;  // less the user's mask
constexpr int kMostNames = 100;

}  // namespace

OutputFile::~OutputFile() {
  if (stream_ != nullptr) {
    std::fclose(stream_);
  }
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
  }
}

Status OutputFile::failure(const char* what) const {
  return Status::failure(std::string("cannot ") + what + " " + path_ + ": " + std::strerror(errno));
}

Status OutputFile::open(const std::string& path, Otherwise otherwise) {
  path_ = path;
  target_ = path;
  if (char* real = realpath(path.c_str(), nullptr)) {
    target_ = real;
    std::free(real);
  }
  struct stat info {};
  const bool replaceable = stat(target_.c_str(), &info) != 0 || S_ISREG(info.st_mode);
  if (!replaceable && otherwise == Otherwise::kRefuse) {
    return Status::failure("cannot write " + path + ": not a regular file");
  }
  Status status = replaceable ? open_temporary() : Status::failure("");
  if (!status.ok() && otherwise == Otherwise::kWriteDirectly) {
    return open_directly(path);
  }
  return status;
}

Status OutputFile::open_directly(const std::string& path) {
  path_ = path;
  stream_ = std::fopen(path.c_str(), "wb");
  return stream_ != nullptr ? Status() : failure("create");
}

Status OutputFile::open_temporary() {
  // A name of its own: two runs with one target must not share it.
  int descriptor = -1;
  for (int i = 0; i < kMostNames && descriptor < 0; ++i) {
    temporary_ = target_ + ".tmp" + std::to_string(getpid()) + (i == 0 ? "" : "-" + std::to_string(i));
    descriptor = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode);
    if (descriptor < 0 && errno != EEXIST) {
      break;
    }
  }
  if (descriptor < 0) {
    temporary_.clear();
    return failure("create");
  }
  stream_ = fdopen(descriptor, "wb");
  if (stream_ == nullptr) {
    close(descriptor);
    return failure("create");
  }
  std::setvbuf(stream_, nullptr, _IOFBF, kBufferSize);
  return {};
}

Status OutputFile::write(const void* bytes, size_t size) {
  return std::fwrite(bytes, 1, size, stream_) == size ? Status() : failure("write");
}

Status OutputFile::patch(int64_t offset, const void* bytes, size_t size) {
  if (fseeko(stream_, offset, SEEK_SET) != 0) {
    return failure("write");
  }
  return write(bytes, size);
}

Status OutputFile::commit() {
  // A pipe cannot be synced, and what is written directly has no older file to protect.
  if (std::fflush(stream_) != 0 || (!temporary_.empty() && fsync(fileno(stream_)) != 0)) {
    return failure("write");
  }
  std::FILE* stream = stream_;
  stream_ = nullptr;
  if (std::fclose(stream) != 0) {
    return failure("write");
  }
  if (!temporary_.empty() && std::rename(temporary_.c_str(), target_.c_str()) != 0) {
    return failure("rename the complete file to");
  }
  temporary_.clear();
  return {};
}
