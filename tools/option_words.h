// SPDX-License-Identifier: Apache-2.0
//
// The words of a command line, sorted into the options that a program knows.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "util/status.h"

// One option: with a value, a flag that stands alone, or one that may be given several times.
struct OptionSlot {
  const char* name;  // with its dashes; upper and lower case are the same
  std::optional<std::string>* value = nullptr;
  bool* flag = nullptr;                        // where value is null
  std::vector<std::string>* values = nullptr;  // of an option that may be repeated; where the others are null
};

// Upper and lower case are the same.
bool same_word(const std::string& word, const char* name);

// Fills the slots' targets. A failure is wrong usage: an unknown option, one given twice or without a value,
// --help or --version among others.
Status collect_options(const std::vector<std::string>& words, const std::vector<OptionSlot>& slots);

// Whether a keyword was given as one of two; the first is the default.
Status one_of(const char* option, const std::optional<std::string>& given, const char* first,
              const char* second, bool* is_second);
