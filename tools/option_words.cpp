// SPDX-License-Identifier: Apache-2.0
#include "tools/option_words.h"

#include <strings.h>

#include <algorithm>

#include "util/in_quotes.h"

bool same_word(const std::string& word, const char* name) {
  return strcasecmp(word.c_str(), name) == 0;
}

Status collect_options(const std::vector<std::string>& words, const std::vector<OptionSlot>& slots) {
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (same_word(word, "--help") || same_word(word, "--version")) {
      return Status::failure(word + " must stand alone on the command line");
    }
    const auto slot = std::find_if(slots.begin(), slots.end(),
                                   [&word](const OptionSlot& known) { return same_word(word, known.name); });
    if (slot == slots.end()) {
      return Status::failure("unknown option " + in_quotes(word));
    }
    const bool given =
        (slot->value != nullptr && slot->value->has_value()) || (slot->flag != nullptr && *slot->flag);
    if (given) {
      return Status::failure("option " + word + " is given twice");
    }
    if (slot->flag != nullptr) {
      *slot->flag = true;
      continue;
    }
    if (i + 1 == words.size() || words[i + 1].empty()) {
      return Status::failure("option " + word + " needs a value");
    }
    ++i;
    if (slot->values != nullptr) {
      slot->values->push_back(words[i]);
    } else {
      *slot->value = words[i];
    }
  }
  return {};
}

Status one_of(const char* option, const std::optional<std::string>& given, const char* first,
              const char* second, bool* is_second) {
  *is_second = given && same_word(*given, second);
  if (given && !*is_second && !same_word(*given, first)) {
    return Status::failure(std::string("option ") + option + ": found " + in_quotes(*given) + ", expected " +
                           first + " or " + second);
  }
  return {};
}
