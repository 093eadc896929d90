// SPDX-License-Identifier: Apache-2.0
#include "tools/sample_major.h"

#include <algorithm>

#include "tools/packed_rows.h"

Status read_variants(const SampleRecords& records, int64_t first, int64_t count, uint32_t* rows) {
  constexpr int64_t kSamplesAtATime = 256;
  const int64_t n_words = packed_words(count);
  const int64_t stride = packed_words(records.n_samples);
  const int64_t inside = first / kGenotypesPerWord * static_cast<int64_t>(sizeof(uint32_t));
  std::vector<uint32_t> parts(static_cast<size_t>(std::min(kSamplesAtATime, records.n_samples) * n_words));
  for (int64_t s = 0; s < records.n_samples; s += kSamplesAtATime) {
    const int64_t n_samples = std::min(kSamplesAtATime, records.n_samples - s);
    for (int64_t i = 0; i < n_samples; ++i) {
      Status status =
          records.read_at(records.first_offset + (s + i) * records.record_size + inside,
                          parts.data() + i * n_words, static_cast<size_t>(n_words) * sizeof(uint32_t));
      if (!status.ok()) {
        return status;
      }
    }
    transpose_packed(parts.data(), n_words, n_samples, count, rows + s / kGenotypesPerWord, stride);
  }
  return {};
}
