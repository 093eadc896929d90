// SPDX-License-Identifier: Apache-2.0
#include "util/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "util/whole_io.h"
#include "util/without_exceptions.h"

namespace {

constexpr size_t kBufferSize = 1 << 18;
constexpr mode_t kNewFileMode = 0666;  // less the user's mask
constexpr int kMostNames = 100;
constexpr const char* kOlderEnding = ".old";

// The descriptor of standard output or standard error when it leads to this file, else -1.
int standard_stream_of(const struct stat& file) {
  for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat info {};
    if (fstat(descriptor, &info) == 0 && info.st_dev == file.st_dev && info.st_ino == file.st_ino) {
      return descriptor;
    }
  }
  return -1;
}

std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// The other name of an open file, from which it can get one of its own.
std::string open_file_name(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

// Brings a new name to disk. Some file systems cannot; the file itself is safe in any case.
void sync_folder_of(const std::string& path) {
  const int descriptor = ::open(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor >= 0) {
    fsync(descriptor);
    close(descriptor);
  }
}

}  // namespace

OutputFile::~OutputFile() {
  if (stream_ != nullptr) {
    // What was written under its own name must not pass for the whole.
    const int half = empty_unless_complete_ ? dup(fileno(stream_)) : -1;
    std::fclose(stream_);
    if (half >= 0) {
      static_cast<void>(ftruncate(half, 0) == 0);
      close(half);
    }
  }
  for (const std::string* name : {&temporary_, &older_}) {
    if (!name->empty()) {
      unlink(name->c_str());
    }
  }
}

Status OutputFile::failure(const char* what) const {
  return Status::failure(std::string("cannot ") + what + " " + path_ + ": " + std::strerror(errno));
}

void OutputFile::find_target(const std::string& path) {
  path_ = path;
  target_ = path;
  if (char* real = realpath(path.c_str(), nullptr)) {
    target_ = real;
    std::free(real);
  }
}

Status OutputFile::open_with(const std::string& path, const std::string& temporary) {
  find_target(path);
  if (!is_replaceable(path)) {
    return Status::failure("cannot write " + path + ": not a regular file");
  }
  temporary_ = temporary;
  return begin_temporary(
      ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kNewFileMode));
}

Status OutputFile::open(const std::string& path, Otherwise otherwise) {
  find_target(path);
  const bool replaceable = is_replaceable(path);
  if (!replaceable && otherwise == Otherwise::kRefuse) {
    return Status::failure("cannot write " + path + ": not a regular file");
  }
  Status status = replaceable ? open_temporary() : Status::failure("");
  if (status.ok() || otherwise == Otherwise::kRefuse) {
    return status;
  }
  if (replaceable) {
    return open_directly(path);
  }
  struct stat info {};
  const int standard = stat(path.c_str(), &info) == 0 ? standard_stream_of(info) : -1;
  if (standard < 0) {
    return open_directly(path);
  }
  // Goes on where the standard stream stands, so that neither overwrites the other.
  std::fflush(nullptr);
  stream_ = fdopen(dup(standard), "wb");
  return stream_ != nullptr ? Status() : failure("open");
}

bool OutputFile::is_replaceable(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) != 0 || (S_ISREG(info.st_mode) && standard_stream_of(info) < 0);
}

Status OutputFile::open_directly(const std::string& path) {
  path_ = path;
  stream_ = std::fopen(path.c_str(), "wb");
  if (stream_ == nullptr) {
    return failure("create");
  }
  struct stat info {};
  empty_unless_complete_ = fstat(fileno(stream_), &info) == 0 && S_ISREG(info.st_mode);
  return {};
}

template <typename Make>
int OutputFile::find_name(const Make& make) {
  // A name of its own: two runs with one target must not share it.
  int made = -1;
  for (int i = 0; i < kMostNames && made < 0; ++i) {
    temporary_ = target_ + ".tmp" + std::to_string(getpid()) + (i == 0 ? "" : "-" + std::to_string(i));
    made = make(temporary_.c_str());
    if (made < 0 && errno != EEXIST) {
      break;
    }
  }
  if (made < 0) {
    temporary_.clear();
  }
  return made;
}

Status OutputFile::open_temporary() {
  // Better to know now than at the end that the name for the moment of the renaming is too long.
  const std::string longest = target_ + ".tmp" + std::to_string(getpid()) + "-99" + kOlderEnding;
  const bool fits = access(longest.c_str(), F_OK) == 0 || errno != ENAMETOOLONG;
  int descriptor = ::open(folder_of(target_).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kNewFileMode);
  unnamed_ = fits && descriptor >= 0 && access(open_file_name(descriptor).c_str(), F_OK) == 0;
  if (!unnamed_) {
    if (descriptor >= 0) {
      close(descriptor);
    }
    descriptor = find_name(
        [](const char* name) { return ::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode); });
  }
  return begin_temporary(descriptor);
}

Status OutputFile::begin_temporary(int descriptor) {
  if (descriptor < 0) {
    temporary_.clear();
    return failure("create");
  }
  // A file that is replaced passes on its permissions.
  if (struct stat before{}; stat(target_.c_str(), &before) == 0) {
    fchmod(descriptor, before.st_mode & 07777);
  }
  stream_ = fdopen(descriptor, "wb");
  if (stream_ == nullptr) {
    close(descriptor);
    return failure("create");
  }
  // The library takes the size only together with a buffer.
  buffer_.resize(kBufferSize);
  std::setvbuf(stream_, buffer_.data(), _IOFBF, buffer_.size());
  return {};
}

Status OutputFile::write(const void* bytes, size_t size) {
  return std::fwrite(bytes, 1, size, stream_) == size ? Status() : failure("write");
}

Status OutputFile::reserve(int64_t size) {
  const int descriptor = fileno(stream_);
  if (fallocate(descriptor, 0, 0, size) == 0) {
    return {};
  }
  // A file system that cannot set space aside may still take the bytes.
  if ((errno == EOPNOTSUPP || errno == ENOSYS || errno == EINTR) && ftruncate(descriptor, size) == 0) {
    return {};
  }
  return failure("write");
}

Status OutputFile::write_at(int64_t offset, const void* bytes, size_t size) {
  return write_whole(fileno(stream_), bytes, size, offset) == WholeIo::kDone ? Status() : failure("write");
}

Status OutputFile::patch(int64_t offset, const void* bytes, size_t size) {
  if (fseeko(stream_, offset, SEEK_SET) != 0) {
    return failure("write");
  }
  return write(bytes, size);
}

Status OutputFile::complete() {
  // A pipe cannot be synced, and what is written directly has no older file to protect.
  if (std::fflush(stream_) != 0 || (!is_direct() && fsync(fileno(stream_)) != 0)) {
    return failure("write");
  }
  if (unnamed_) {
    const std::string open_file = open_file_name(fileno(stream_));
    if (find_name([&](const char* name) {
          return linkat(AT_FDCWD, open_file.c_str(), AT_FDCWD, name, AT_SYMLINK_FOLLOW);
        }) != 0) {
      return failure("create");
    }
    unnamed_ = false;
  }
  std::FILE* stream = stream_;
  stream_ = nullptr;
  return std::fclose(stream) == 0 ? Status() : failure("write");
}

Status OutputFile::publish() {
  if (!temporary_.empty() && std::rename(temporary_.c_str(), target_.c_str()) != 0) {
    return failure("rename the complete file to");
  }
  published_ = !temporary_.empty();
  temporary_.clear();
  if (published_) {
    sync_folder_of(target_);
  }
  return {};
}

Status OutputFile::keep_older() {
  struct stat info {};
  if (temporary_.empty() || stat(target_.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return {};
  }
  // A second name; where the file system has none, or forbids it, the file moves away.
  older_ = temporary_ + kOlderEnding;
  if (link(target_.c_str(), older_.c_str()) != 0 && std::rename(target_.c_str(), older_.c_str()) != 0) {
    older_.clear();
    return failure("replace");
  }
  return {};
}

void OutputFile::take_back() {
  // Where both are names of one file this does nothing, and the second one goes with the object.
  if (!older_.empty()) {
    if (std::rename(older_.c_str(), target_.c_str()) != 0) {
      older_.clear();  // rather left over than lost
    }
  } else if (published_) {
    unlink(target_.c_str());
  }
  published_ = false;
}

Status OutputFile::commit() {
  Status status = complete();
  return status.ok() ? publish() : status;
}

Status commit_together(std::span<OutputFile* const> files) {
  // Also for want of memory: what has moved away goes back.
  Status status = without_exceptions([&] {
    Status step;
    for (OutputFile* file : files) {
      step = step.ok() ? file->complete() : step;
    }
    for (OutputFile* file : files) {
      step = step.ok() && files.size() > 1 ? file->keep_older() : step;
    }
    for (OutputFile* file : files) {
      step = step.ok() ? file->publish() : step;
    }
    return step;
  });
  if (!status.ok()) {
    for (OutputFile* file : files) {
      file->take_back();
    }
  }
  return status;
}
