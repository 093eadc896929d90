// SPDX-License-Identifier: Apache-2.0
#include "src/covariates.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "src/notice.h"
#include "src/run_config.h"
#include "src/text_lines.h"
#include "util/in_quotes.h"
#include "util/split_tabs.h"

namespace {

constexpr size_t kIdentifierFields = 2;

bool read_header(const char* path, const std::string& line) {
  const std::vector<std::string_view> fields = split_tabs(line);
  const size_t covariates = fields.size() < kIdentifierFields ? 0 : fields.size() - kIdentifierFields;
  if (covariates > static_cast<size_t>(kMaxCovariates)) {
    std::printf("Covariate file %s has %zu covariates, at most %d are possible!\n", path, covariates,
                kMaxCovariates);
    return false;
  }
  for (size_t j = 0; j < covariates; ++j) {
    std::string_view label = fields[kIdentifierFields + j];
    if (label.ends_with('\r')) {
      label.remove_suffix(1);
    }
    if (label.size() >= kCovariateLabelSize) {
      std::printf(
          "Covariate file %s, line 1, field %zu: the name has %zu characters, at most %d are possible!\n",
          path, kIdentifierFields + j + 1, label.size(), kCovariateLabelSize - 1);
      return false;
    }
    label.copy(g_covLabel[j], label.size());
    g_covLabel[j][label.size()] = '\0';
  }
  g_covCnt = static_cast<int>(covariates);
  return true;
}

// Where a value that is no finite number first stood, for one notice.
struct FirstOddValue {
  size_t line = 0;
  size_t field = 0;
  std::string text;
  float value = 0.0f;  // what it counts as
};

// Reads the covariates of data line i into its place. False on a line with too few fields.
bool read_values(const char* path, size_t i, const std::string& line, FirstOddValue* odd) {
  const std::vector<std::string_view> fields = split_tabs(line);
  const auto covariates = static_cast<size_t>(g_covCnt);
  for (size_t j = 0; j < covariates; ++j) {
    const size_t field = kIdentifierFields + j;
    if (field >= fields.size()) {
      std::printf("Covariate file %s, line %zu: %zu fields, expected %zu!\n", path, i + 2, fields.size(),
                  kIdentifierFields + covariates);
      return false;
    }
    if (fields[field].starts_with("NA")) {
      std::printf("%zu th covarite is missing!\n", i);
      g_covMissing[i] = 1;
      return true;
    }
    const std::string text(fields[field]);
    char* end = nullptr;
    float& value = g_covValues[i * covariates + j];
    value = static_cast<float>(std::strtod(text.c_str(), &end));
    const bool whole = end != text.c_str() && end + std::strspn(end, " \r") == text.c_str() + text.size();
    if (odd->line == 0 && !(whole && std::isfinite(value))) {
      *odd = {i + 2, field + 1, text, value};
    }
  }
  return true;
}

}  // namespace

bool read_covariates(const char* path) {
  TextLines file(path);
  if (!file.is_open() || std::filesystem::is_directory(path)) {
    std::printf("Cannot open the covariate file %s!\n", path);
    return false;
  }
  std::string line;
  std::vector<std::string> lines;
  while (file.next(&line)) {
    lines.push_back(line);
  }
  if (file.too_long()) {
    std::printf("Covariate file %s, line %zu: longer than %zu characters!\n", path, lines.size() + 1,
                kLongestTextLine);
    return false;
  }
  if (lines.empty()) {
    std::printf("Covariate file %s is empty, expected a header line!\n", path);
    return false;
  }
  if (!read_header(path, lines.front())) {
    return false;
  }
  const size_t n_lines = lines.size() - 1;
  g_covLines = static_cast<int>(n_lines);
  g_covValues = new float[n_lines * static_cast<size_t>(g_covCnt) + 1]();
  g_covMissing = new unsigned char[n_lines + 1]();
  size_t complete = 0;
  FirstOddValue odd;
  for (size_t i = 0; i < n_lines; ++i) {
    if (!read_values(path, i, lines[i + 1], &odd)) {
      return false;
    }
    complete += g_covMissing[i] == 0 ? 1 : 0;
  }
  if (file.failed()) {
    std::puts("Covarite counts are doesn't match!");
    return false;
  }
  if (odd.line != 0) {
    notice("%s, line %zu, field %zu: %s is no finite number and counts as %g (a missing value is NA)", path,
           odd.line, odd.field, in_quotes(odd.text).c_str(), static_cast<double>(odd.value));
  }
  if (g_covCnt == 0) {
    notice("%s, line 1: no covariate follows the two identifiers; fields are separated by tabs", path);
  }
  std::printf("Covarite file [%zu entries, %d covarites] read complete\n", complete, g_covCnt);
  return true;
}

void drop_incomplete_covariates() {
  const auto covariates = static_cast<size_t>(g_covCnt);
  size_t kept = 0;
  for (size_t i = 0; i < static_cast<size_t>(g_covLines); ++i) {
    if (g_covMissing[i] == 0) {
      std::copy_n(g_covValues + i * covariates, covariates, g_covValues + kept * covariates);
      ++kept;
    }
  }
}
