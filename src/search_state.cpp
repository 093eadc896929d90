// SPDX-License-Identifier: Apache-2.0
#include "src/search_state.h"

#include <cinttypes>

#include "lib/float_math.h"
#include "src/notice.h"

namespace {

constexpr int kFloatDigits = 8;

// The entries of one fold, best first, of which all ranks are below end.
bool read_fold(StateLines& lines, const SearchLimits& limits, uint64_t end, std::vector<RankedValue>* list) {
  size_t n = 0;
  if (!lines.next_number("fold", &n) || n > limits.list_size) {
    return false;
  }
  for (size_t i = 0; i < n; ++i) {
    const std::vector<std::string_view> fields = lines.next();
    RankedValue entry;
    uint32_t bits = 0;
    if (fields.size() != 2 || !read_number(fields[0], &entry.rank) || entry.rank >= end ||
        fields[1].size() != kFloatDigits || !read_number(fields[1], &bits, 16)) {
      return false;
    }
    entry.value = float_from_bits(bits);
    if (!(static_cast<double>(entry.value) > limits.floor) ||
        (i > 0 && !SearchFloor{entry.value, entry.rank}.lets_pass(list->back().value, list->back().rank))) {
      return false;
    }
    list->push_back(entry);
  }
  return true;
}

bool read_state(StateLines& lines, const SearchLimits& limits, SearchState* state) {
  size_t n_lists = 0;
  std::vector<std::string_view> fields;
  if (!lines.next("done", 2, &fields) || !read_number(fields[0], &state->folds) ||
      !read_number(fields[1], &state->next) || state->next > limits.n_combinations ||
      !lines.next_number("folds", &n_lists) || n_lists != limits.n_folds || state->folds > limits.n_folds ||
      (!limits.fold_by_fold && state->folds != 0) || (state->folds == limits.n_folds && state->next != 0)) {
    return false;
  }
  for (size_t f = 0; f < n_lists; ++f) {
    const bool is_done = f < state->folds;
    const bool is_begun = f == state->folds || !limits.fold_by_fold;
    const uint64_t end = is_done ? limits.n_combinations : is_begun ? state->next : 0;
    if (!read_fold(lines, limits, end, &state->lists.emplace_back())) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::string order_section(int order) {
  return "order " + std::to_string(order);
}

void say_what_is_known(int order, uint64_t next, uint64_t n_combinations) {
  notice("order %d: %" PRIu64 " of %" PRIu64 " combinations are known from the checkpoint", order, next,
         n_combinations);
}

std::string lines_of(const SearchState& state) {
  std::string text;
  add_line(&text, {"done", std::to_string(state.folds), std::to_string(state.next)});
  add_line(&text, {"folds", std::to_string(state.lists.size())});
  for (const std::vector<RankedValue>& list : state.lists) {
    add_line(&text, {"fold", std::to_string(list.size())});
    for (const RankedValue& entry : list) {
      add_line(&text, {std::to_string(entry.rank), hexadecimal(bits_of_float(entry.value), kFloatDigits)});
    }
  }
  return text;
}

Status restore_search(Checkpoint& checkpoint, int order, const SearchLimits& limits, SearchState* state) {
  bool found = false;
  Status status = checkpoint.restore(
      order_section(order), [&](StateLines& lines) { return read_state(lines, limits, state); }, &found);
  if (status.ok() && found) {
    if (limits.fold_by_fold) {
      notice("order %d: %zu folds, and %" PRIu64 " of %" PRIu64
             " combinations of the next, are known from the checkpoint",
             order, state->folds, state->next, limits.n_combinations);
    } else {
      say_what_is_known(order, state->next, limits.n_combinations);
    }
  }
  return status;
}
