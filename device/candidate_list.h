// SPDX-License-Identifier: Apache-2.0
//
// The best combinations of one fold so far: at most N (rank, value) pairs in the total order of the lists,
// value descending, then rank ascending; only values strictly above 0, never a NaN. What the list holds in
// the end does not depend on the order in which combinations are offered, so any split of the enumeration
// over devices gives the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "device/commands.h"

struct RankedValue {
  uint64_t rank = 0;
  float value = 0.0f;
};

class CandidateList {
 public:
  // capacity >= 1. Combinations that do not pass `floor` are turned away from the start.
  explicit CandidateList(size_t capacity, SearchFloor floor = {});

  // Takes the combination in if it passes the floor; raises the floor when the list is full.
  void offer(uint64_t rank, float value);

  // What a combination must pass to get in.
  SearchFloor floor() const { return floor_; }

  // The entries, best first.
  std::vector<RankedValue> sorted() const;

  // The entries in no particular order.
  const std::vector<RankedValue>& entries() const { return entries_; }

 private:
  size_t capacity_;
  SearchFloor floor_;
  std::vector<RankedValue> entries_;  // a heap with the worst entry in front
};
