// SPDX-License-Identifier: Apache-2.0
#include "tools/genotype_writer.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <limits>

#include "lib/packed_genotypes.h"
#include "tools/quoted.h"

static_assert(std::endian::native == std::endian::little,
              "genotype files are little-endian and written as they are");

namespace {

constexpr size_t kLongestName = 254;
constexpr size_t kMostItems = std::numeric_limits<int32_t>::max();
constexpr int64_t kRowOffset = 4;

class NormalWriter : public GenotypeWriter {
 protected:
  // The class as a whole word, then the packed genotypes.
  Status put_sample(uint8_t class_value, std::span<const uint8_t> genotypes) override {
    record_.assign(1 + static_cast<size_t>(packed_words(static_cast<int64_t>(n_snps_))), 0);
    record_[0] = class_value;
    for (size_t j = 0; j < n_snps_; ++j) {
      put_packed_genotype(record_.data() + 1, j, genotypes[j]);
    }
    return file_.write(record_.data(), record_.size() * sizeof(uint32_t));
  }

  Status put_rest() override { return {}; }

 private:
  std::vector<uint32_t> record_;
};

class TransposedWriter : public GenotypeWriter {
 protected:
  Status put_sample(uint8_t class_value, std::span<const uint8_t> genotypes) override {
    const size_t lane = n_samples_ % kGenotypesPerWord;
    if (lane == 0) {
      blocks_.emplace_back(n_snps_);
    }
    for (size_t j = 0; j < n_snps_; ++j) {
      put_packed_genotype(&blocks_.back()[j], lane, genotypes[j]);
    }
    classes_.push_back(class_value);
    return {};
  }

  // The class bytes stand at the front of a block with four bytes for every sample. The rows of a group of
  // SNPs are put together at a time, since neighbouring words of a row come from different blocks.
  Status put_rest() override {
    classes_.resize(sizeof(uint32_t) * n_samples_);
    Status status = file_.write(classes_.data(), classes_.size());
    std::vector<uint32_t> rows(kGroup * blocks_.size());
    for (size_t first = 0; first < n_snps_ && status.ok(); first += kGroup) {
      const size_t count = std::min(kGroup, n_snps_ - first);
      for (size_t b = 0; b < blocks_.size(); ++b) {
        for (size_t j = 0; j < count; ++j) {
          rows[j * blocks_.size() + b] = blocks_[b][first + j];
        }
      }
      status = file_.write(rows.data(), count * blocks_.size() * sizeof(uint32_t));
    }
    return status;
  }

 private:
  static constexpr size_t kGroup = 64;

  std::vector<uint8_t> classes_;
  std::vector<std::vector<uint32_t>> blocks_;  // [samples / 16][SNPs]: 16 samples of one SNP a word
};

}  // namespace

std::string layout_name(Layout layout) {
  return layout == Layout::kNormal ? "normal" : "transposed";
}

std::string name_fault(std::string_view name) {
  if (name.empty()) {
    return "an empty SNP name";
  }
  if (name.size() > kLongestName) {
    return "the SNP name " + quoted(name) + " has " + std::to_string(name.size()) +
           " bytes, expected at most " + std::to_string(kLongestName);
  }
  const bool has_control = std::any_of(name.begin(), name.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
  });
  return has_control ? "the SNP name " + quoted(name) + " holds a control character" : "";
}

Status GenotypeWriter::begin(const std::string& path, const std::vector<std::string>& names) {
  if (names.empty() || names.size() > kMostItems) {
    return Status::failure(path + ": " + std::to_string(names.size()) + " SNPs, expected 1 to " +
                           std::to_string(kMostItems));
  }
  size_t longest = 0;
  for (const std::string& name : names) {
    const std::string fault = name_fault(name);
    if (!fault.empty()) {
      return Status::failure(path + ": " + fault);
    }
    longest = std::max(longest, name.size());
  }
  n_snps_ = names.size();
  Status status = file_.open(path);
  if (!status.ok()) {
    return status;
  }
  const size_t width = longest + 1;
  // The number of samples is put in its place in the end.
  std::string bytes = "TAVO";
  for (const size_t number : {size_t{0}, n_snps_, width}) {
    const auto field = static_cast<uint32_t>(number);
    bytes.append(reinterpret_cast<const char*>(&field), sizeof(field));
  }
  status = file_.write(bytes.data(), bytes.size());
  std::string slot;
  for (size_t j = 0; j < n_snps_ && status.ok(); ++j) {
    slot = names[j];
    slot.resize(width, '\0');
    status = file_.write(slot.data(), slot.size());
  }
  return status;
}

Status GenotypeWriter::add_sample(uint8_t class_value, std::span<const uint8_t> genotypes) {
  assert(genotypes.size() == n_snps_);
  assert(
      std::all_of(genotypes.begin(), genotypes.end(), [](uint8_t code) { return code <= kMissingGenotype; }));
  if (n_samples_ == kMostItems) {
    return Status::failure("more than " + std::to_string(kMostItems) + " samples");
  }
  Status status = put_sample(class_value, genotypes);
  ++n_samples_;
  return status;
}

Status GenotypeWriter::finish() {
  if (n_samples_ == 0) {
    return Status::failure("no sample, expected at least one");
  }
  Status status = put_rest();
  if (!status.ok()) {
    return status;
  }
  const auto row = static_cast<uint32_t>(n_samples_);
  status = file_.patch(kRowOffset, &row, sizeof(row));
  return status.ok() ? file_.commit() : status;
}

std::unique_ptr<GenotypeWriter> make_genotype_writer(Layout layout) {
  if (layout == Layout::kNormal) {
    return std::make_unique<NormalWriter>();
  }
  return std::make_unique<TransposedWriter>();
}
