// SPDX-License-Identifier: Apache-2.0
//
// The checkpoint of a cross-validated search: a file from which an interrupted run goes on. It says what the
// run is, and how far each order has come; docs/formats.md has its lines.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "device/candidate_list.h"
#include "util/status.h"

// Names and values of what decides a run's result, in a fixed order, without tabs or line ends.
using RunIdentity = std::vector<std::pair<std::string, std::string>>;

// How far the search of one order has come.
struct SearchState {
  uint64_t next = 0;                            // all ranks below are searched
  std::vector<std::vector<RankedValue>> lists;  // of each fold, best first: what they gave
};

class Checkpoint {
 public:
  // One that keeps nothing.
  Checkpoint() = default;

  // Keeps the state in this file. Fails when it exists and cannot be read, is damaged, or is of another run,
  // whose difference the message names; and when it cannot be written.
  Status open(const std::string& path, RunIdentity identity);

  bool is_open() const { return !path_.empty(); }

  // The seed that the run drew, as read or as set before the first state is kept.
  std::optional<unsigned> seed() const { return seed_; }
  void set_seed(unsigned seed) { seed_ = seed; }

  // What is known of an order; null: nothing.
  const SearchState* state(int order) const;

  // Whether the file should be written: some seconds have gone since it was last.
  bool is_due() const;

  // Keeps the state of an order and writes the file. Nothing is lost when that fails: the file is as before.
  Status keep(int order, SearchState state);

  // The result stands: takes the file away.
  void remove();

 private:
  std::string text() const;
  Status parse(const std::string& text);
  Status compare(const RunIdentity& other) const;

  std::string path_;
  RunIdentity identity_;
  std::optional<unsigned> seed_;
  std::map<int, SearchState> states_;  // by order
  std::chrono::steady_clock::time_point written_;
};
