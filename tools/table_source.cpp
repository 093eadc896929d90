// SPDX-License-Identifier: Apache-2.0
#include "tools/table_source.h"

#include "lib/packed_genotypes.h"
#include "tools/progress.h"
#include "tools/sample_major.h"
#include "tools/text_table.h"

namespace {

// Records are put together up to this size before they are written.
constexpr size_t kWriteWords = size_t{1} << 16;

}  // namespace

Status TableSource::open(const std::string& path, const std::string& class_name,
                         const std::string& scratch_folder, const StopFlag& stop) {
  TextTable table;
  Status status = table.open(path, class_name);
  warnings_ = table.warnings();
  if (status.ok()) {
    status = scratch_.open(scratch_folder);
  }
  if (!status.ok()) {
    return status;
  }
  for (const std::string& name : table.snp_names()) {
    Variant variant;
    variant.name = name;
    variants_.add(variant);
  }
  const auto n_words = static_cast<size_t>(packed_words(variants_.size()));
  std::vector<uint32_t> records;
  int64_t written = 0;
  const auto flush = [&]() -> Status {
    const size_t size = records.size() * sizeof(uint32_t);
    Status done = scratch_.write_at(written, records.data(), size);
    written += static_cast<int64_t>(size);
    records.clear();
    return done;
  };
  TableRow row;
  Progress progress("reading samples", 0);
  for (bool more = true; status.ok();) {
    if (stop != 0) {
      return stopped(stop);
    }
    status = table.next(&row, &more);
    if (!status.ok() || !more) {
      break;
    }
    if (static_cast<int64_t>(classes_.size()) == kMostItems) {
      return Status::failure(path + ": more than " + std::to_string(kMostItems) + " samples");
    }
    classes_.push_back(row.class_value);
    progress.at(static_cast<int64_t>(classes_.size()));
    const size_t start = records.size();
    records.resize(start + n_words);
    for (size_t j = 0; j < row.genotypes.size(); ++j) {
      put_packed_genotype(records.data() + start, j, row.genotypes[j]);
    }
    if (records.size() >= kWriteWords) {
      status = flush();
    }
  }
  if (status.ok()) {
    status = flush();
  }
  number_samples(static_cast<int64_t>(classes_.size()));
  return status;
}

Status TableSource::read(int64_t first, int64_t count, uint32_t* rows) {
  const int64_t record = packed_words(variants_.size()) * static_cast<int64_t>(sizeof(uint32_t));
  return read_variants(
      {n_samples(), 0, record,
       [this](int64_t offset, void* bytes, size_t size) { return scratch_.read_at(offset, bytes, size); }},
      first, count, rows);
}
