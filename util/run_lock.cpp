// SPDX-License-Identifier: Apache-2.0
#include "util/run_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// Whether the path still leads to the open file.
bool has_name(int descriptor, const std::string& path, struct stat* info) {
  struct stat named {};
  return fstat(descriptor, info) == 0 && lstat(path.c_str(), &named) == 0 && info->st_dev == named.st_dev &&
         info->st_ino == named.st_ino;
}

}  // namespace

Status RunLock::take(const std::string& path) {
  for (;;) {
    const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666);
    if (descriptor < 0) {
      return Status::failure("cannot create " + path + ": " + std::strerror(errno));
    }
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
      close(descriptor);
      return Status::failure(path + ": another run holds this lock");
    }
    struct stat info {};
    if (!has_name(descriptor, path, &info)) {
      // Its last holder has just taken it away.
      close(descriptor);
      continue;
    }
    if (!S_ISREG(info.st_mode) || info.st_size != 0) {
      close(descriptor);
      return Status::failure(path + ": stands in the way of a lock");
    }
    descriptor_ = descriptor;
    path_ = path;
    return {};
  }
}

void RunLock::release() {
  if (descriptor_ >= 0) {
    unlink(path_.c_str());
    close(descriptor_);
    descriptor_ = -1;
  }
}
