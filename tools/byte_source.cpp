// SPDX-License-Identifier: Apache-2.0
#include "tools/byte_source.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr size_t kBufferSize = 1 << 16;
constexpr char kGzipMagic[] = {'\x1f', '\x8b'};
constexpr size_t kMagicSize = sizeof(kGzipMagic);

// zlib's window size for the largest window, plus the flag that selects the gzip format.
constexpr int kGzipWindow = 15 + 16;

}  // namespace

struct ByteSource::Inflater {
  z_stream stream{};
  bool ready = false;
  ~Inflater() {
    if (ready) {
      inflateEnd(&stream);
    }
  }
};

ByteSource::ByteSource() = default;
ByteSource::~ByteSource() = default;

Status ByteSource::open(const std::string& path) {
  path_ = path;
  file_.reset(std::fopen(path.c_str(), "rb"));
  if (!file_) {
    return Status::failure("cannot open " + path + ": " + std::strerror(errno));
  }
  buffer_ = std::make_unique_for_overwrite<char[]>(kBufferSize);
  Status status = fill();
  if (!status.ok()) {
    return status;
  }
  if (end_ >= kMagicSize && std::equal(kGzipMagic, kGzipMagic + kMagicSize, buffer_.get())) {
    inflater_ = std::make_unique<Inflater>();
    if (inflateInit2(&inflater_->stream, kGzipWindow) != Z_OK) {
      return Status::failure(path + ": no memory for unpacking");
    }
    inflater_->ready = true;
    in_member_ = true;
  }
  return {};
}

// Moves unused bytes to the front of the buffer and reads more behind them. fread comes back with less than
// asked for only at the end or after an error.
Status ByteSource::fill() {
  std::copy(buffer_.get() + begin_, buffer_.get() + end_, buffer_.get());
  end_ -= begin_;
  begin_ = 0;
  errno = 0;
  end_ += std::fread(buffer_.get() + end_, 1, kBufferSize - end_, file_.get());
  if (std::ferror(file_.get()) != 0) {
    return Status::failure("cannot read " + path_ + ": " + std::strerror(errno));
  }
  return {};
}

Status ByteSource::read(char* out, size_t size, size_t* got) {
  if (inflater_ != nullptr) {
    return inflate_some(out, size, got);
  }
  if (begin_ == end_) {
    Status status = fill();
    if (!status.ok()) {
      return status;
    }
  }
  *got = std::min(size, end_ - begin_);
  std::memcpy(out, buffer_.get() + begin_, *got);
  begin_ += *got;
  return {};
}

// Between two gzip members: the next one begins, or the file ends.
Status ByteSource::start_member() {
  if (end_ - begin_ < kMagicSize) {
    Status status = fill();
    if (!status.ok() || begin_ == end_) {
      return status;
    }
  }
  if (end_ - begin_ < kMagicSize ||
      !std::equal(kGzipMagic, kGzipMagic + kMagicSize, buffer_.get() + begin_)) {
    return Status::failure(path_ + ": bytes that are no gzip stream follow the gzip stream");
  }
  inflateReset(&inflater_->stream);
  in_member_ = true;
  return {};
}

Status ByteSource::inflate_some(char* out, size_t size, size_t* got) {
  *got = 0;
  z_stream& stream = inflater_->stream;
  while (*got == 0) {
    if (!in_member_) {
      Status status = start_member();
      if (!status.ok() || !in_member_) {
        return status;
      }
    }
    if (begin_ == end_) {
      Status status = fill();
      if (!status.ok()) {
        return status;
      }
      if (begin_ == end_) {
        return Status::failure(path_ + ": the gzip stream is truncated");
      }
    }
    const auto room = static_cast<uInt>(std::min<size_t>(size, 1u << 30));
    stream.next_in = reinterpret_cast<Bytef*>(buffer_.get() + begin_);
    stream.avail_in = static_cast<uInt>(end_ - begin_);
    stream.next_out = reinterpret_cast<Bytef*>(out);
    stream.avail_out = room;
    const int result = inflate(&stream, Z_NO_FLUSH);
    begin_ = end_ - stream.avail_in;
    *got = room - stream.avail_out;
    if (result == Z_STREAM_END) {
      in_member_ = false;
    } else if (result == Z_MEM_ERROR) {
      return Status::failure(path_ + ": no memory for unpacking");
    } else if (result != Z_OK && result != Z_BUF_ERROR) {
      return Status::failure(path_ + ": the gzip stream is corrupt (" +
                             (stream.msg != nullptr ? stream.msg : "error " + std::to_string(result)) + ")");
    }
  }
  return {};
}
