// SPDX-License-Identifier: Apache-2.0
#include "tools/bed_source.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "tools/field_reader.h"
#include "tools/names.h"
#include "tools/packed_rows.h"
#include "util/in_quotes.h"

namespace {

constexpr size_t kFamFields = 6;
constexpr size_t kBimFields = 6;
constexpr size_t kLongestAllele = size_t{1} << 20;
constexpr size_t kReadSize = size_t{1} << 22;

std::string hex(unsigned char byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {kDigits[byte >> 4], kDigits[byte & 15]};
}

Status check_fields(const FieldReader& reader, size_t longest) {
  for (size_t i = 0; i < reader.fields().size(); ++i) {
    if (const std::string fault = field_fault(reader.fields()[i], longest); !fault.empty()) {
      return Status::failure(reader.place(i) + ": " + fault);
    }
  }
  return {};
}

Status too_many(const std::string& path, const char* items) {
  return Status::failure(path + ": more than " + std::to_string(kMostItems) + " " + items);
}

}  // namespace

Status BedSource::open(const std::string& prefix) {
  has_family_ids_ = true;
  Status status = read_fam(prefix + kFamEnding);
  if (status.ok()) {
    status = read_bim(prefix + kBimEnding);
  }
  return status.ok() ? check_bed(prefix) : status;
}

Status BedSource::read_fam(const std::string& path) {
  FieldReader reader;
  Status status = reader.open(path);
  for (bool more = true; status.ok();) {
    status = reader.next(&more);
    if (!status.ok() || !more) {
      break;
    }
    status = reader.expect_fields(kFamFields);
    if (status.ok()) {
      status = check_fields(reader, kLongestIdentifier);
    }
    if (status.ok() && n_samples() == kMostItems) {
      return too_many(path, "samples");
    }
    if (status.ok()) {
      const auto& field = reader.fields();
      samples_.push_back({std::string(field[0]), std::string(field[1]), std::string(field[2]),
                          std::string(field[3]), std::string(field[4]), std::string(field[5])});
    }
  }
  if (status.ok() && samples_.empty()) {
    return Status::failure(path + ": no sample, expected at least one line");
  }
  return status;
}

Status BedSource::read_bim(const std::string& path) {
  FieldReader reader;
  Status status = reader.open(path);
  for (bool more = true; status.ok();) {
    status = reader.next(&more);
    if (!status.ok() || !more) {
      break;
    }
    status = reader.expect_fields(kBimFields);
    if (status.ok()) {
      status = check_fields(reader, kLongestAllele);
    }
    if (!status.ok()) {
      break;
    }
    const auto& field = reader.fields();
    if (const std::string fault = name_fault(field[1]); !fault.empty()) {
      return Status::failure(reader.place(1) + ": " + fault);
    }
    int64_t position = 0;
    const char* end = field[3].data() + field[3].size();
    if (const auto [stop, error] = std::from_chars(field[3].data(), end, position);
        error != std::errc() || stop != end) {
      return Status::failure(reader.place(3) + ": found " + in_quotes(field[3]) +
                             ", expected a position in base pairs");
    }
    if (variants_.size() == kMostItems) {
      return too_many(path, "variants");
    }
    variants_.add({field[0], field[1], field[2], field[3], field[4], field[5]});
  }
  if (status.ok() && variants_.size() == 0) {
    return Status::failure(path + ": no variant, expected at least one line");
  }
  return status;
}

Status BedSource::check_bed(const std::string& prefix) {
  Status status = bed_.open(prefix + kBedEnding);
  if (!status.ok()) {
    return status;
  }
  if (bed_.size() < static_cast<int64_t>(sizeof(kBedMagic))) {
    return bed_.refusal(std::to_string(bed_.size()) + " bytes, expected at least " +
                        std::to_string(sizeof(kBedMagic)));
  }
  unsigned char magic[sizeof(kBedMagic)];
  status = bed_.read_at(0, magic, sizeof(magic));
  if (!status.ok()) {
    return status;
  }
  if (magic[0] != kBedMagic[0] || magic[1] != kBedMagic[1]) {
    return bed_.refusal("bytes 0 and 1: found " + hex(magic[0]) + " " + hex(magic[1]) + ", expected " +
                        hex(kBedMagic[0]) + " " + hex(kBedMagic[1]));
  }
  if (magic[2] == kSampleMajorMode) {
    return bed_.refusal("byte 2: found 00, the old sample-major order, expected 01; plink1.9 --bfile " +
                        prefix + " --make-bed --out NEW writes the file in variant-major order");
  }
  if (magic[2] != kBedMagic[2]) {
    return bed_.refusal("byte 2: found " + hex(magic[2]) + ", expected " + hex(kBedMagic[2]));
  }
  const int64_t expected =
      static_cast<int64_t>(sizeof(kBedMagic)) + variants_.size() * bed_row_size(n_samples());
  if (bed_.size() != expected) {
    return bed_.refusal(std::to_string(bed_.size()) + " bytes, expected " + std::to_string(expected) +
                        " for the " + std::to_string(n_samples()) + " samples of the .fam file and the " +
                        std::to_string(variants_.size()) + " variants of the .bim file");
  }
  return {};
}

Status BedSource::read(int64_t first, int64_t count, uint32_t* rows) {
  const int64_t row_size = bed_row_size(n_samples());
  const int64_t n_words = packed_words(n_samples());
  const int64_t at_a_time = std::max<int64_t>(1, static_cast<int64_t>(kReadSize) / row_size);
  for (int64_t done = 0; done < count;) {
    const int64_t n_rows = std::min(at_a_time, count - done);
    bytes_.resize(static_cast<size_t>(n_rows * row_size));
    Status status = bed_.read_at(static_cast<int64_t>(sizeof(kBedMagic)) + (first + done) * row_size,
                                 bytes_.data(), bytes_.size());
    if (!status.ok()) {
      return status;
    }
    for (int64_t i = 0; i < n_rows; ++i, rows += n_words) {
      rows[n_words - 1] = 0;
      std::memcpy(rows, bytes_.data() + i * row_size, static_cast<size_t>(row_size));
      from_plink_codes(rows, n_samples());
    }
    done += n_rows;
  }
  return {};
}
