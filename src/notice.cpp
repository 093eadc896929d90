// SPDX-License-Identifier: Apache-2.0
#include "src/notice.h"

#include <cstdarg>
#include <cstdio>

void notice(const char* format, ...) {
  // Standard output may be a pipe or a file: what was said before stays before.
  std::fflush(stdout);
  flockfile(stderr);
  std::va_list arguments;
  va_start(arguments, format);
  std::fputs("tavo: ", stderr);
  std::vfprintf(stderr, format, arguments);
  std::fputc('\n', stderr);
  va_end(arguments);
  funlockfile(stderr);
}

void notice(const Status& failure) {
  notice("%s", failure.message().c_str());
}
