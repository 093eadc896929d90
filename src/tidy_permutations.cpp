// SPDX-License-Identifier: Apache-2.0
#include "src/tidy_permutations.h"

#include "src/tidy_table.h"

void TidyPermutations::write(const PermutationNull& null, int first_order) {
  writer_.WriteLine("permutation\torder\ttesting\tconsistency");
  for (size_t r = 0; r < null.permutations(); ++r) {
    int order = first_order;
    for (const BestOfOrder& best : null.of(r)) {
      TidyRow row;
      row.add(static_cast<int>(r + 1));
      row.add(order++);
      row.add(best.testing);
      row.add(best.consistency);
      writer_.WriteLine(row.line());
    }
  }
}
