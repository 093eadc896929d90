// SPDX-License-Identifier: Apache-2.0
#include "src/regression_state.h"

#include <algorithm>
#include <cinttypes>

#include "src/notice.h"

namespace {

bool read_state(StateLines& lines, uint64_t n_items, size_t n_top, RegressionState* state) {
  if (!lines.next_number("next", &state->next) || state->next > n_items ||
      !lines.next_number("failed", &state->n_failed) || state->n_failed > state->next) {
    return false;
  }
  const auto n = static_cast<size_t>(std::min<uint64_t>(n_top, state->next));
  return lines.next_ranks("top", n, state->next, &state->top) &&
         lines.next_doubles("p", n, &state->p_values) && state->top.size() == n &&
         state->p_values.size() == n;
}

}  // namespace

std::string lines_of(const RegressionState& state) {
  std::string text;
  add_line(&text, {"next", std::to_string(state.next)});
  add_line(&text, {"failed", std::to_string(state.n_failed)});
  add_ranks(&text, "top", state.top);
  add_doubles(&text, "p", state.p_values);
  return text;
}

Status restore_regression(Checkpoint& checkpoint, uint64_t n_items, size_t n_top, RegressionState* state) {
  bool found = false;
  Status status = checkpoint.restore(
      kRegressionSection, [&](StateLines& lines) { return read_state(lines, n_items, n_top, state); },
      &found);
  if (status.ok() && found) {
    notice("%" PRIu64 " of %" PRIu64 " fits are known from the checkpoint", state->next, n_items);
  }
  return status;
}
