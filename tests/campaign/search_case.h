// SPDX-License-Identifier: Apache-2.0
//
// Random searches (MDR and GMDR, every mode): data, options, and the files that a run reads.
#pragma once

#include "tests/campaign/draw.h"
#include "tests/campaign/setting.h"
#include "tests/reference/naive_run.h"

namespace tavo_test {

struct SearchCase {
  naive::GenotypeData data;
  naive::Run run;              // workers, threads and blocks are those of each setting
  Words options;               // what all settings share
  bool tidy = false;           // writes tidy.tsv
  int permutations = 0;        // of the classes; 0: no such test
  bool refused = false;        // a score-based search of a transposed file
  std::string genotype_bytes;  // of the file in.tavo
  std::string score_text;      // of the file scores.txt; empty: there is none
};

// What a search can be drawn for.
struct SearchKind {
  int mode = 1;
  bool with_scores = false;
};

SearchCase draw_search(Draw& draw, const SearchKind& kind);

// The run with the workers, threads and blocks of a setting, as its report has them.
naive::Run run_in(const SearchCase& drawn, const Setting& setting);

}  // namespace tavo_test
