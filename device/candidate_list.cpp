// SPDX-License-Identifier: Apache-2.0
#include "device/candidate_list.h"

#include <algorithm>

namespace {

bool better(const RankedValue& a, const RankedValue& b) {
  return a.value > b.value || (a.value == b.value && a.rank < b.rank);
}

}  // namespace

CandidateList::CandidateList(size_t capacity, SearchFloor floor) : capacity_(capacity), floor_(floor) {}

void CandidateList::offer(uint64_t rank, float value) {
  if (!floor_.lets_pass(value, rank)) {
    return;
  }
  if (entries_.size() == capacity_) {
    std::pop_heap(entries_.begin(), entries_.end(), better);
    entries_.pop_back();
  }
  entries_.push_back({rank, value});
  std::push_heap(entries_.begin(), entries_.end(), better);
  if (entries_.size() == capacity_) {
    const RankedValue& worst = entries_.front();
    // The floor given at the start may be the higher one: this list can be part of a larger one.
    if (better(worst, {floor_.rank, floor_.value})) {
      floor_ = {worst.value, worst.rank};
    }
  }
}

std::vector<RankedValue> CandidateList::sorted() const {
  std::vector<RankedValue> list = entries_;
  std::sort(list.begin(), list.end(), better);
  return list;
}
