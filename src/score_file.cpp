// SPDX-License-Identifier: Apache-2.0
#include "src/score_file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "src/notice.h"
#include "src/text_lines.h"
#include "util/in_quotes.h"

std::optional<std::vector<float>> read_scores(const std::string& path, int n_samples, Status* status) {
  TextLines file(path);
  std::string line;
  const bool header = file.is_open() && file.next(&line);
  // A folder opens, too, but nothing can be read from it.
  if (!file.is_open() || (!header && file.failed())) {
    return std::nullopt;
  }
  std::vector<float> scores;
  size_t first_odd_line = 0;
  std::string first_odd_text;
  while (scores.size() < static_cast<size_t>(n_samples) && file.next(&line)) {
    char* end = nullptr;
    scores.push_back(static_cast<float>(std::strtod(line.c_str(), &end)));
    if (first_odd_line == 0 && (end == line.c_str() || end[std::strspn(end, " \t\r")] != '\0')) {
      first_odd_line = scores.size() + 1;
      first_odd_text = line;
    }
  }
  if (file.too_long()) {
    *status = Status::failure(path + ", line " + std::to_string(scores.size() + (header ? 2 : 1)) +
                              ": longer than " + std::to_string(kLongestTextLine) + " characters");
  } else if (scores.size() < static_cast<size_t>(n_samples)) {
    *status = Status::failure(path + ": " + std::to_string(scores.size()) +
                              " scores after the header line, but the " + "genotype file has " +
                              std::to_string(n_samples) + " samples");
  } else if (first_odd_line != 0) {
    notice("%s, line %zu: %s is no number and counts as what it begins with, or 0", path.c_str(),
           first_odd_line, in_quotes(first_odd_text).c_str());
  }
  return scores;
}

std::vector<uint8_t> classes_of_scores(const std::vector<float>& scores) {
  std::vector<uint8_t> classes;
  classes.reserve(scores.size());
  for (const float score : scores) {
    classes.push_back(score <= 0.0f ? 0 : 1);
  }
  return classes;
}

int score_thread_cap(const char* order_text, int threads) {
  switch (order_text[0]) {
    case '2':
      return std::min(threads, 150);
    case '3':
      return std::min(threads, 50);
    default:
      return threads;
  }
}
