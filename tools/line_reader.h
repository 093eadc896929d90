// SPDX-License-Identifier: Apache-2.0
//
// The lines of a text file, plain or gzip. Lines end with LF or CR LF; the last one may lack its end.
#pragma once

#include <memory>
#include <string>

#include "tools/byte_source.h"
#include "util/status.h"

enum class LineState {
  kLine,     // a whole line
  kTooLong,  // the first bytes of a line that is longer than allowed
  kEnd,      // no line left
};

class LineReader {
 public:
  Status open(const std::string& path);

  // Reads the next line into *line, without its end. At most `limit` bytes of it: memory is bounded also when
  // a file has no line ends. After kTooLong nothing more can be read. The failures are those of ByteSource,
  // with the place, and that of a program that a signal asks to stop.
  Status next(size_t limit, std::string* line, LineState* state);

  // The number of the line read last, from 1; 0 before the first.
  uint64_t line_number() const { return line_number_; }

 private:
  ByteSource source_;
  std::unique_ptr<char[]> buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
  uint64_t line_number_ = 0;
};
