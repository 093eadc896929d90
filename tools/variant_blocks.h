// SPDX-License-Identifier: Apache-2.0
//
// One pass over the genotypes of a selection, in blocks that fit memory whatever the size of the file.
#pragma once

#include <functional>

#include "tools/selection.h"
#include "util/status.h"
#include "util/stop_signal.h"

// Kept variants of the pass, one after another: rows of packed_words(selection.n_samples()) words, bits
// behind the last sample 0. `first` is the number of the first one among the kept variants. All blocks but
// the last hold a multiple of 16. The rows may be changed.
struct VariantBlock {
  int64_t first;
  int64_t count;
  uint32_t* rows;
};

// Bytes of genotypes that a block may take.
inline constexpr int64_t kBlockBytes = int64_t{1} << 27;

// Hands every kept variant to `take`. what: the pass, for the progress line on a terminal. Gives up when
// `stop` becomes non-zero. block_bytes: kBlockBytes, or less for tests.
Status for_each_block(GenotypeSource& source, const Selection& selection, const char* what,
                      const StopFlag& stop, const std::function<Status(const VariantBlock&)>& take,
                      int64_t block_bytes = kBlockBytes);
