// SPDX-License-Identifier: Apache-2.0
//
// Choices of one random test case, all from one seed.
#pragma once

#include <random>
#include <string>
#include <vector>

namespace tavo_test {

class Draw {
 public:
  // Case number `index` of the stream `seed`: any case can be drawn without those before it.
  explicit Draw(unsigned seed, unsigned index = 0) {
    std::seed_seq sequence{seed, index};
    random_.seed(sequence);
  }
  std::mt19937& random() { return random_; }
  // lowest .. highest, both included.
  int from(int lowest, int highest) {
    return lowest + static_cast<int>(random_() % static_cast<unsigned>(highest - lowest + 1));
  }
  bool one_in(int n) { return from(1, n) == 1; }
  // From 0 to 1.
  double share() { return from(0, 1000000) / 1e6; }
  template <typename T>
  T of(const std::vector<T>& choices) {
    return choices[static_cast<size_t>(from(0, static_cast<int>(choices.size()) - 1))];
  }
  // The word with some of its letters in the other case.
  std::string any_case(std::string word) {
    for (char& c : word) {
      c = c >= 'a' && c <= 'z' && one_in(2) ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return word;
  }

 private:
  std::mt19937 random_;
};

}  // namespace tavo_test
