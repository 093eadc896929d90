// SPDX-License-Identifier: Apache-2.0
//
// The score file of a score-based run: a header line, then one number per sample.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "util/status.h"

// The scores of the first n_samples lines after the header; nothing when the file cannot be opened. Further
// lines are not read. Text that is no number counts as what strtod makes of it, with one notice. *status
// fails when there are fewer lines, or one is longer than kLongestTextLine.
std::optional<std::vector<float>> read_scores(const std::string& path, int n_samples, Status* status);

// The classes that scores stand for: 1 for a score above 0 or one that is no number, else 0.
std::vector<uint8_t> classes_of_scores(const std::vector<float>& scores);

// The threads per block of a score-based run: at most 150 when the text of --order begins with "2", 50 with
// "3".
int score_thread_cap(const char* order_text, int threads);
