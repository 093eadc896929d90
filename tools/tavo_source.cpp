// SPDX-License-Identifier: Apache-2.0
#include "tools/tavo_source.h"

#include "tools/names.h"
#include "tools/packed_rows.h"
#include "tools/sample_major.h"

Status TavoSource::open(const std::string& path, std::optional<Layout> told) {
  Status status = file_.open(path);
  if (status.ok()) {
    status = read_genotype_header(file_, told.value_or(Layout::kNormal), &header_);
  }
  if (status.ok()) {
    status = read_genotype_names(file_, header_, [this](int64_t index, std::string_view name) -> Status {
      if (const std::string fault = name_fault(name); !fault.empty()) {
        return file_.refusal("SNP " + std::to_string(index + 1) + ": " + fault);
      }
      Variant variant;
      variant.name = name;
      variants_.add(variant);
      return {};
    });
  }
  if (!status.ok()) {
    return status;
  }
  if (!header_.layout_is_certain && !told) {
    warnings_.push_back(path + ": the file's size fits both layouts, the " + layout_name(header_.layout) +
                        " one is assumed; --in-transpose tells");
  }
  number_samples(header_.n_samples);
  return read_classes();
}

Status TavoSource::read_classes() {
  classes_.resize(samples_.size());
  if (header_.layout == Layout::kTransposed) {
    std::vector<unsigned char> bytes(samples_.size());
    Status status = file_.read_at(header_.body_offset(), bytes.data(), bytes.size());
    std::copy(bytes.begin(), bytes.end(), classes_.begin());
    return status;
  }
  Status status;
  const int64_t record = sample_record_size(header_.n_snps);
  for (size_t i = 0; i < classes_.size() && status.ok(); ++i) {
    status = file_.read_at(header_.body_offset() + static_cast<int64_t>(i) * record, &classes_[i],
                           static_cast<size_t>(kClassSize));
  }
  return status;
}

Status TavoSource::read(int64_t first, int64_t count, uint32_t* rows) {
  if (header_.layout == Layout::kNormal) {
    return read_variants(
        {n_samples(), header_.body_offset() + kClassSize, sample_record_size(header_.n_snps),
         [this](int64_t offset, void* bytes, size_t size) { return file_.read_at(offset, bytes, size); }},
        first, count, rows);
  }
  const int64_t n_words = packed_words(n_samples());
  Status status =
      file_.read_at(header_.body_offset() + kClassSize * n_samples() + first * n_words * kPackedWordSize,
                    rows, static_cast<size_t>(count * n_words * kPackedWordSize));
  // The bits behind the last sample of a row may hold anything.
  for (int64_t i = 0; i < count && status.ok(); ++i) {
    rows[(i + 1) * n_words - 1] &= 3 * last_lanes(n_samples());
  }
  return status;
}
