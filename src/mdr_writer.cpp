// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "src/FileIO.h"

namespace {

// The file that a path leads to, through symbolic links; the path itself where there is none yet.
std::string resolved(const char* path) {
  char* real = realpath(path, nullptr);
  std::string target = real != nullptr ? real : path;
  std::free(real);
  return target;
}

}  // namespace

MdrWriter::~MdrWriter() {
  if (stream_ != nullptr) {
    std::fclose(stream_);
    if (!temporary_.empty()) {
      unlink(temporary_.c_str());
    }
  }
}

bool MdrWriter::Save(const char* path) {
  path_ = path;
  temporary_.clear();
  status_ = {};
  stream_ = std::fopen(path, "wt");
  return stream_ != nullptr;
}

bool MdrWriter::SaveWhenComplete(const char* path) {
  struct stat info {};
  if (stat(path, &info) == 0 && !S_ISREG(info.st_mode)) {
    return Save(path);
  }
  status_ = {};
  path_ = resolved(path);
  temporary_ = path_ + ".tmp" + std::to_string(getpid());
  stream_ = std::fopen(temporary_.c_str(), "wt");
  if (stream_ == nullptr) {
    // The folder may take no new files while the target itself can be written.
    return Save(path);
  }
  return true;
}

void MdrWriter::WriteLine(const std::string& text) {
  const std::string line = text + '\n';
  if (std::fwrite(line.data(), 1, line.size(), stream_) != line.size()) {
    fail("write");
  }
}

Status MdrWriter::Close() {
  if (std::fflush(stream_) != 0 || (!temporary_.empty() && fsync(fileno(stream_)) != 0)) {
    fail("write");
  }
  if (std::fclose(stream_) != 0) {
    fail("close");
  }
  stream_ = nullptr;
  if (!temporary_.empty()) {
    if (status_.ok() && std::rename(temporary_.c_str(), path_.c_str()) != 0) {
      fail("rename the complete file to");
    }
    if (!status_.ok()) {
      unlink(temporary_.c_str());
    }
  }
  return status_;
}

void MdrWriter::fail(const char* what) {
  if (status_.ok()) {
    status_ = Status::failure(std::string("cannot ") + what + " " + path_ + ": " + std::strerror(errno));
  }
}
