// SPDX-License-Identifier: Apache-2.0
#include "tools/line_reader.h"

#include <cstring>
#include <string_view>

#include "util/stop_signal.h"

namespace {

constexpr size_t kBufferSize = 1 << 16;
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

}  // namespace

Status LineReader::open(const std::string& path) {
  buffer_ = std::make_unique_for_overwrite<char[]>(kBufferSize);
  return source_.open(path);
}

Status LineReader::next(size_t limit, std::string* line, LineState* state) {
  line->clear();
  *state = LineState::kLine;
  bool any = false;
  for (;;) {
    if (begin_ == end_) {
      begin_ = 0;
      end_ = 0;
      // A read may wait for long; a signal interrupts it.
      Status status = stop_signal() != 0 ? Status() : source_.read(buffer_.get(), kBufferSize, &end_);
      if (stop_signal() != 0) {
        end_ = 0;
        return stopped(stop_signal());
      }
      if (!status.ok()) {
        end_ = 0;
        return line_number_ == 0
                   ? status
                   : Status::failure(status.message() + " after line " + std::to_string(line_number_));
      }
      if (end_ == 0) {
        break;
      }
    }
    any = true;
    const char* start = buffer_.get() + begin_;
    const void* feed = std::memchr(start, '\n', end_ - begin_);
    const size_t length =
        feed == nullptr ? end_ - begin_ : static_cast<size_t>(static_cast<const char*>(feed) - start);
    // One byte more than the limit may be the CR of the line's end.
    if (line->size() + length > limit + 1) {
      line->append(start, limit - std::min(limit, line->size()));
      line->resize(limit);
      ++line_number_;
      *state = LineState::kTooLong;
      return {};
    }
    line->append(start, length);
    begin_ += length;
    if (feed != nullptr) {
      ++begin_;
      break;
    }
  }
  if (!any) {
    *state = LineState::kEnd;
    return {};
  }
  ++line_number_;
  if (line_number_ == 1 && line->starts_with(kByteOrderMark)) {
    line->erase(0, kByteOrderMark.size());
  }
  if (line->ends_with('\r')) {
    line->pop_back();
  }
  if (line->size() > limit) {
    line->resize(limit);
    *state = LineState::kTooLong;
  }
  return {};
}
