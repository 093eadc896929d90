// SPDX-License-Identifier: Apache-2.0
#include "src/top_list.h"

#include <algorithm>
#include <iterator>

void TopList::insert(const int* comb, const double* record) {
  const double value = record[measure_];
  const double last = ranked_.size() < size_ || size_ == 0 ? floor_ : std::prev(ranked_.end())->first;
  if (size_ == 0 || !(value > last)) {
    return;
  }
  Entry entry;
  entry.comb.assign(comb, comb + order_);
  std::copy(record, record + kRecordSize, entry.record.begin());
  ranked_.emplace(value, std::move(entry));
  if (ranked_.size() > size_) {
    ranked_.erase(std::prev(ranked_.end()));
  }
}

std::vector<TopList::Entry> TopList::entries(size_t n) const {
  std::vector<Entry> list;
  for (const auto& [value, entry] : ranked_) {
    if (list.size() == n) {
      break;
    }
    list.push_back(entry);
  }
  while (list.size() < n) {
    list.push_back({std::vector<int>(static_cast<size_t>(order_), 0), {}});
  }
  return list;
}
