// SPDX-License-Identifier: Apache-2.0
//
// The top list of one order and fold: the N best combinations with their records, by the training value of
// one measure. A combination enters only when its value is strictly above the last entry's (0 while the list
// is not full), and goes behind entries of equal value.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <vector>

#include "lib/cv_measures.h"

class TopList {
 public:
  struct Entry {
    std::vector<int> comb;
    std::array<double, kRecordSize> record{};
  };

  // order: SNPs in a combination; size: N >= 0; measure: 0 to 9.
  TopList(int order, size_t size, int measure, double floor = 0.0)
      : order_(order), size_(size), measure_(measure), floor_(floor) {}

  // comb[order] and its record[32]. A value that is no number never enters.
  void insert(const int* comb, const double* record);

  // The first n entries, best first. Places that no combination filled hold combination (0, .., 0) and a zero
  // record.
  std::vector<Entry> entries(size_t n) const;

  // Entries that combinations filled.
  size_t filled() const { return ranked_.size(); }

 private:
  int order_;
  size_t size_;
  int measure_;
  double floor_;
  std::multimap<double, Entry, std::greater<>> ranked_;  // equal values in the order of insertion
};
