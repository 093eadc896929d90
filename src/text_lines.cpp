// SPDX-License-Identifier: Apache-2.0
#include "src/text_lines.h"

TextLines::TextLines(const std::string& path) : file_(std::fopen(path.c_str(), "rb")) {}

bool TextLines::next(std::string* line) {
  line->clear();
  if (too_long_ || failed()) {
    return false;
  }
  for (int c = std::getc(file_.get()); c != '\n'; c = std::getc(file_.get())) {
    if (c == EOF) {
      return !line->empty();
    }
    if (line->size() == kLongestTextLine) {
      too_long_ = true;
      return false;
    }
    line->push_back(static_cast<char>(c));
  }
  return true;
}
