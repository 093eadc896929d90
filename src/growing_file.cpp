// SPDX-License-Identifier: Apache-2.0
#include "src/growing_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "src/remnant.h"
#include "util/checksum.h"
#include "util/whole_io.h"

namespace {

constexpr std::string_view kFirstLine = "tavo checkpoint rows\n";
constexpr size_t kPiece = 1 << 18;

}  // namespace

GrowingFile::~GrowingFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

Status GrowingFile::failure(const char* what) const {
  return Status::failure(std::string("cannot ") + what + " " + path_ + ": " + std::strerror(errno));
}

Status GrowingFile::begin(const std::string& path) {
  path_ = path;
  if (!is_free_name(path, kFirstLine)) {
    return Status::failure(path + ": stands in the way of the checkpoint's rows");
  }
  descriptor_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (descriptor_ < 0) {
    return failure("create");
  }
  append(kFirstLine);
  return {};
}

Status GrowingFile::go_on(const std::string& path, const Extent& counts) {
  path_ = path;
  Status wrong = Status::failure(
      path +
      ": does not hold the rows that the checkpoint counts on; without the checkpoint the run starts anew");
  descriptor_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  struct stat info {};
  if (descriptor_ < 0 || fstat(descriptor_, &info) != 0 || !S_ISREG(info.st_mode) ||
      static_cast<uint64_t>(info.st_size) < counts.size || counts.size < kFirstLine.size()) {
    return wrong;
  }
  std::vector<char> piece(kPiece);
  for (uint64_t at = 0; at < counts.size; at += kPiece) {
    const auto size = static_cast<size_t>(std::min<uint64_t>(kPiece, counts.size - at));
    if (read_whole(descriptor_, piece.data(), size, static_cast<int64_t>(at)) != WholeIo::kDone ||
        (at == 0 && std::string_view(piece.data(), size).substr(0, kFirstLine.size()) != kFirstLine)) {
      return wrong;
    }
    written_.checksum = checksum(piece.data(), size, written_.checksum);
  }
  written_.size = counts.size;
  if (written_.checksum != counts.checksum) {
    return wrong;
  }
  return ftruncate(descriptor_, static_cast<off_t>(counts.size)) == 0 ? Status() : failure("write");
}

void GrowingFile::append(std::string_view text) {
  buffer_ += text;
  if (buffer_.size() >= kPiece) {
    write_buffer();
  }
}

void GrowingFile::write_buffer() {
  if (status_.ok() && write_whole(descriptor_, buffer_.data(), buffer_.size(),
                                  static_cast<int64_t>(written_.size)) != WholeIo::kDone) {
    status_ = failure("write");
  }
  if (status_.ok()) {
    written_.checksum = checksum(buffer_.data(), buffer_.size(), written_.checksum);
    written_.size += buffer_.size();
  }
  buffer_.clear();
}

Status GrowingFile::sync(Extent* counts) {
  write_buffer();
  if (status_.ok() && fsync(descriptor_) != 0) {
    status_ = failure("write");
  }
  *counts = written_;
  return status_;
}

Status GrowingFile::read_all(const std::function<Status(std::string_view piece)>& take) {
  write_buffer();
  Status status = status_;
  std::vector<char> piece(kPiece);
  for (uint64_t at = kFirstLine.size(); at < written_.size && status.ok();) {
    const auto size = static_cast<size_t>(std::min<uint64_t>(kPiece, written_.size - at));
    errno = EIO;
    status = read_whole(descriptor_, piece.data(), size, static_cast<int64_t>(at)) == WholeIo::kDone
                 ? take({piece.data(), size})
                 : failure("read");
    at += size;
  }
  return status;
}

void GrowingFile::remove() {
  unlink(path_.c_str());
}
