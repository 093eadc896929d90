// SPDX-License-Identifier: Apache-2.0
//
// The results of an MDR or GMDR run as a tidy table (docs/formats.md): settings, the ranked combinations of
// each order, the lists that they come from, and the genotype cells of the best.
#pragma once

#include <string>
#include <vector>

#include "src/TFmMDR.h"

class TidyMdr {
 public:
  // Begins the file, which appears when complete. False when it cannot be created.
  bool open(const std::string& path) { return writer_.SaveWhenComplete(path.c_str()); }

  // Writes the table of a finished analysis. null: of its permutation test, if there was one.
  void write(const MdrReader& reader, const RunSettings& settings, const ResultArray& results,
             const PermutationNull& null);

  Status close() { return writer_.Close(); }

 private:
  MdrWriter writer_;
};
