// SPDX-License-Identifier: Apache-2.0
#include "tools/variant_blocks.h"

#include <algorithm>
#include <vector>

#include "tools/packed_rows.h"
#include "tools/progress.h"

namespace {

constexpr int64_t kGroup = kGenotypesPerWord;

}  // namespace

Status for_each_block(GenotypeSource& source, const Selection& selection, const char* what,
                      const StopFlag& stop, const std::function<Status(const VariantBlock&)>& take,
                      int64_t block_bytes) {
  const int64_t in_words = packed_words(source.n_samples());
  const int64_t out_words = packed_words(selection.n_samples());
  const int64_t n_variants = source.variants().size();
  const int64_t fitting = block_bytes / (in_words * static_cast<int64_t>(sizeof(uint32_t)));
  const int64_t block = std::clamp(fitting / kGroup * kGroup, kGroup, packed_words(n_variants) * kGroup);
  const LaneSelection lanes(selection.samples, source.n_samples());
  // Rows that wait for a full group stand in front; those of the source are read behind the room for them.
  std::vector<uint32_t> buffer(static_cast<size_t>((block + kGroup) * in_words));
  uint32_t* const incoming = buffer.data() + kGroup * in_words;
  int64_t waiting = 0;
  int64_t taken = 0;
  Progress progress(what, n_variants);
  auto next = selection.variants.begin();
  for (int64_t first = 0; first < n_variants; first += block) {
    const int64_t count = std::min(block, n_variants - first);
    const auto end = std::lower_bound(next, selection.variants.end(), static_cast<uint32_t>(first + count));
    if (next == end) {
      continue;
    }
    if (stop != 0) {
      return stopped(stop);
    }
    progress.at(first);
    Status status = source.read(first, count, incoming);
    for (; next != end && status.ok(); ++next, ++waiting) {
      lanes.apply(incoming + (*next - first) * in_words, buffer.data() + waiting * out_words);
    }
    const int64_t ready = waiting / kGroup * kGroup;
    if (status.ok() && ready > 0) {
      status = take({taken, ready, buffer.data()});
      taken += ready;
      waiting -= ready;
      std::copy_n(buffer.begin() + ready * out_words, waiting * out_words, buffer.begin());
    }
    if (!status.ok()) {
      return status;
    }
  }
  return waiting > 0 ? take({taken, waiting, buffer.data()}) : Status();
}
