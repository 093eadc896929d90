// SPDX-License-Identifier: Apache-2.0
#include "src/folds.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "src/notice.h"
#include "util/stop_signal.h"

std::vector<uint8_t> code_classes(const std::vector<uint8_t>& classes, int case_value) {
  std::vector<uint8_t> coded;
  coded.reserve(classes.size());
  for (const uint8_t value : classes) {
    coded.push_back(value == case_value ? 1 : 0);
  }
  return coded;
}

void give_class_notices(const std::vector<uint8_t>& classes, int n_cases, int n_controls) {
  const auto odd = std::count_if(classes.begin(), classes.end(), [](uint8_t value) { return value > 1; });
  if (odd > 0) {
    notice("%td samples have a class other than 0 and 1 and count as controls", odd);
  }
  if (n_cases == 0 || n_controls == 0) {
    notice("cases: %d, controls: %d; nothing can be learnt from one class alone", n_cases, n_controls);
  }
}

SampleList make_sample_list(const std::vector<uint8_t>& coded, const std::vector<uint8_t>& left_out) {
  SampleList list;
  for (const int wanted : {1, 0}) {
    for (size_t s = 0; s < coded.size(); ++s) {
      if (coded[s] == wanted && (left_out.empty() || left_out[s] == 0)) {
        list.samples.push_back(static_cast<int>(s));
        ++(wanted == 1 ? list.n_cases : list.n_controls);
      }
    }
  }
  return list;
}

std::vector<uint8_t> samples_with_missing(const MdrReader& reader) {
  std::vector<uint8_t> marks(static_cast<size_t>(reader.GetLineCount()), 0);
  for (int s = 0; s < reader.GetLineCount() && stop_signal() == 0; ++s) {
    for (int j = 0; j < reader.GetColCount(); ++j) {
      if (reader.GetSNPdata(s, j) == 3) {
        marks[static_cast<size_t>(s)] = 1;
        break;
      }
    }
  }
  return marks;
}

std::vector<int> deal_folds(int n_cases, int n_controls, int n_folds) {
  std::vector<int> labels;
  for (const int n : {n_cases, n_controls}) {
    for (int i = 0; i < n; ++i) {
      labels.push_back(i % n_folds);
    }
  }
  return labels;
}

namespace {

// Seeds rand, then discards pairs of draws until one is not above the number of pairs discarded: some 60,000
// pairs.
void seed_and_discard(unsigned seed) {
  std::srand(seed);
  int discarded = 0;
  for (int draw = std::rand(); draw % 2147483647 > discarded; draw = std::rand()) {
    ++discarded;
    std::rand();
  }
}

int random_below(int n) {
  return std::rand() % n;
}

}  // namespace

void shuffle_folds(std::vector<int>& labels, int n_cases, int n_controls, std::optional<unsigned> seed) {
  const auto next_seed = [&] { return seed.value_or(static_cast<unsigned>(std::time(nullptr))); };
  seed_and_discard(next_seed());
  int* cases = labels.data();
  for (int i = 1; i < n_cases; ++i) {
    std::swap(cases[i], cases[random_below(i + 1)]);
  }
  seed_and_discard(next_seed());
  int* controls = cases + n_cases;
  for (int i = 2; i < n_controls; ++i) {
    std::swap(controls[i], controls[1 + random_below(i)]);
  }
}

FoldLists split_folds(const SampleList& list, const std::vector<int>& labels, int n_folds) {
  const auto folds = static_cast<size_t>(n_folds);
  FoldLists lists{list.samples, std::vector<std::vector<int>>(folds), std::vector<std::vector<int>>(folds),
                  list.threshold()};
  for (size_t position = 0; position < list.samples.size(); ++position) {
    for (size_t f = 0; f < folds; ++f) {
      const bool tests = static_cast<size_t>(labels[position]) == f;
      (tests ? lists.testing : lists.training)[f].push_back(list.samples[position]);
    }
  }
  return lists;
}

std::vector<FoldView> FoldLists::views(int first_fold) const {
  std::vector<FoldView> folds;
  for (auto f = static_cast<size_t>(first_fold); f < training.size(); ++f) {
    folds.push_back({training[f], testing[f], threshold});
  }
  return folds;
}
