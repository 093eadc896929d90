// SPDX-License-Identifier: Apache-2.0
#include "tests/convert/memory_source.h"

#include <algorithm>
#include <vector>

namespace tavo_test {

MemorySource::MemorySource(const GenotypeData& data) : data_(data) {
  number_samples(data.n_samples);
  for (const std::string& name : data.names) {
    Variant variant;
    variant.name = name;
    variants_.add(variant);
  }
  classes_.assign(data.classes.begin(), data.classes.end());
}

Status MemorySource::read(int64_t first, int64_t count, uint32_t* rows) {
  const auto n_words = static_cast<size_t>((data_.n_samples + 15) / 16);
  std::fill_n(rows, static_cast<size_t>(count) * n_words, 0u);
  for (int64_t j = 0; j < count; ++j) {
    for (int s = 0; s < data_.n_samples; ++s) {
      rows[static_cast<size_t>(j) * n_words + static_cast<size_t>(s) / 16] |=
          static_cast<uint32_t>(data_.at(s, static_cast<int>(first + j))) << (2 * (s % 16));
    }
  }
  return {};
}

WholeSelection::WholeSelection(const GenotypeData& data) : source(data) {
  phenotypes.present.assign(data.classes.size(), 1);
  phenotypes.words.assign(data.classes.begin(), data.classes.end());
  selection.source = &source;
  selection.phenotypes = &phenotypes;
  for (int i = 0; i < data.n_samples; ++i) {
    selection.samples.push_back(static_cast<uint32_t>(i));
  }
  for (int j = 0; j < data.n_snps; ++j) {
    selection.variants.push_back(static_cast<uint32_t>(j));
  }
}

Status feed(GenotypeWriter& writer, WholeSelection& whole, int64_t at_a_time) {
  Status status = writer.begin(whole.selection);
  std::vector<uint32_t> rows(static_cast<size_t>(at_a_time * packed_words(whole.source.n_samples())));
  const int64_t n_variants = whole.selection.n_variants();
  for (int64_t first = 0; first < n_variants && status.ok(); first += at_a_time) {
    const int64_t count = std::min(at_a_time, n_variants - first);
    status = whole.source.read(first, count, rows.data());
    status = status.ok() ? writer.add(rows.data(), count) : status;
  }
  return status;
}

Status write_whole_set(GenotypeWriter& writer, const GenotypeData& data, int64_t at_a_time) {
  WholeSelection whole(data);
  Status status = writer.open();
  if (status.ok()) {
    status = feed(writer, whole, at_a_time);
  }
  return status.ok() ? commit_together(writer.files()) : status;
}

}  // namespace tavo_test
