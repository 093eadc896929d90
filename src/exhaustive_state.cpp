// SPDX-License-Identifier: Apache-2.0
#include "src/exhaustive_state.h"

#include <algorithm>
#include <functional>

#include "src/search_state.h"

namespace {

// In one block the slots are no more than it has combinations; a later, smaller block leaves those of the one
// before.
bool read_state(StateLines& lines, uint64_t n_combinations, uint64_t block_size, size_t n_slots,
                BestOfBlocksState* state) {
  if (!lines.next_number("next", &state->next) || state->next > n_combinations) {
    return false;
  }
  const bool is_done = state->next == n_combinations;
  const uint64_t in_block = is_done ? 0 : state->next % block_size;
  const uint64_t before = state->next - in_block;
  const size_t most = static_cast<size_t>(std::min<uint64_t>({n_slots, before, block_size}));
  if (!lines.next_ranks("slots", most, before, &state->slots) || state->slots.size() != most) {
    return false;
  }
  return lines.next_doubles("values", static_cast<size_t>(in_block), &state->values) &&
         state->values.size() == in_block;
}

bool read_state(StateLines& lines, uint64_t n_combinations, size_t n_slots, AboveThresholdState* state) {
  return lines.next_number("next", &state->next) && state->next <= n_combinations &&
         lines.next_ranks("kept", n_slots, state->next, &state->kept) &&
         std::ranges::adjacent_find(state->kept, std::greater_equal<>()) == state->kept.end();
}

}  // namespace

std::string lines_of(const BestOfBlocksState& state) {
  std::string text;
  add_line(&text, {"next", std::to_string(state.next)});
  add_ranks(&text, "slots", state.slots);
  add_doubles(&text, "values", state.values);
  return text;
}

std::string lines_of(const AboveThresholdState& state) {
  std::string text;
  add_line(&text, {"next", std::to_string(state.next)});
  add_ranks(&text, "kept", state.kept);
  return text;
}

Status restore_blocks(Checkpoint& checkpoint, int order, uint64_t n_combinations, uint64_t block_size,
                      size_t n_slots, BestOfBlocksState* state) {
  bool found = false;
  Status status = checkpoint.restore(
      order_section(order),
      [&](StateLines& lines) { return read_state(lines, n_combinations, block_size, n_slots, state); },
      &found);
  if (status.ok() && found) {
    say_what_is_known(order, state->next, n_combinations);
  }
  return status;
}

Status restore_above_threshold(Checkpoint& checkpoint, int order, uint64_t n_combinations, size_t n_slots,
                               AboveThresholdState* state) {
  bool found = false;
  Status status = checkpoint.restore(
      order_section(order),
      [&](StateLines& lines) { return read_state(lines, n_combinations, n_slots, state); }, &found);
  if (status.ok() && found) {
    say_what_is_known(order, state->next, n_combinations);
  }
  return status;
}
