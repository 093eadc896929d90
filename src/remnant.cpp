// SPDX-License-Identifier: Apache-2.0
#include "src/remnant.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "util/whole_io.h"

bool is_free_name(const std::string& path, std::string_view first_line) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) {
    return errno == ENOENT;
  }
  struct stat info {};
  bool own = fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
  if (own) {
    std::string start(std::min(first_line.size(), static_cast<size_t>(info.st_size)), '\0');
    own = read_whole(descriptor, start.data(), start.size(), 0) == WholeIo::kDone &&
          first_line.starts_with(start);
  }
  close(descriptor);
  return own;
}
