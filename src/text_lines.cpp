// SPDX-License-Identifier: Apache-2.0
#include "src/text_line.h"

bool TextLines::next(std::string* line) {
  if (too_long_) {
    return false;
  }
  file_.getline(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  const auto extracted = static_cast<size_t>(file_.gcount());
  if (file_.fail() && !(file_.eof() && extracted > 0)) {
    too_long_ = extracted > kLongestTextLine;
    return false;
  }
  line->assign(buffer_.data(), file_.eof() ? extracted : extracted - 1);
  too_long_ = line->size() > kLongestTextLine;
  return !too_long_;
}
