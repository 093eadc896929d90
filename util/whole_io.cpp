// SPDX-License-Identifier: Apache-2.0
#include "util/whole_io.h"

#include <unistd.h>

#include <cerrno>

WholeIo read_whole(int descriptor, void* bytes, size_t size, int64_t offset) {
  auto* out = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t got = pread(descriptor, out, size, offset);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return got == 0 ? WholeIo::kEnd : WholeIo::kFailed;
    }
    out += got;
    offset += got;
    size -= static_cast<size_t>(got);
  }
  return WholeIo::kDone;
}

WholeIo write_whole(int descriptor, const void* bytes, size_t size, int64_t offset) {
  const auto* in = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t put = pwrite(descriptor, in, size, offset);
    if (put < 0 && errno == EINTR) {
      continue;
    }
    if (put < 0) {
      return WholeIo::kFailed;
    }
    in += put;
    offset += put;
    size -= static_cast<size_t>(put);
  }
  return WholeIo::kDone;
}
