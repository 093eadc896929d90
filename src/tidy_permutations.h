// SPDX-License-Identifier: Apache-2.0
//
// Every null value of a permutation test as a tidy table (docs/formats.md), so that the tests of several runs
// can be pooled.
#pragma once

#include <string>

#include "src/FileIO.h"
#include "src/permutation_null.h"

class TidyPermutations {
 public:
  // Begins the file, which appears when complete. False when it cannot be created.
  bool open(const std::string& path) { return writer_.SaveWhenComplete(path.c_str()); }

  void write(const PermutationNull& null, int first_order);

  Status close() { return writer_.Close(); }

 private:
  MdrWriter writer_;
};
