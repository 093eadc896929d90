// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstring>
#include <vector>

#include "tools/genotype_writer.h"
#include "tools/names.h"
#include "tools/packed_rows.h"

namespace {

class TavoWriter : public GenotypeWriter {
 public:
  explicit TavoWriter(std::string path) : path_(std::move(path)) {}

  Status open() override { return file_.open(path_); }

  Status begin(const Selection& selection) override {
    selection_ = &selection;
    size_t longest = 0;
    for (int64_t j = 0; j < selection.n_variants(); ++j) {
      const std::string_view name = selection.variant(j).name;
      if (const std::string fault = name_fault(name); !fault.empty()) {
        return Status::failure(path_ + ": " + fault);
      }
      longest = std::max(longest, name.size());
    }
    GenotypeFileHeader header{};
    std::memcpy(header.magic, kGenotypeMagic, sizeof(kGenotypeMagic));
    header.n_samples = static_cast<int32_t>(selection.n_samples());
    header.n_snps = static_cast<int32_t>(selection.n_variants());
    header.label_width = static_cast<int32_t>(longest + 1);
    body_ = genotype_body_offset(selection.n_variants(), header.label_width);
    Status status =
        file_.reserve(body_ + genotype_body_size(layout(), selection.n_samples(), selection.n_variants()));
    if (status.ok()) {
      status = file_.write(&header, sizeof(header));
    }
    std::string slot;
    for (int64_t j = 0; j < selection.n_variants() && status.ok(); ++j) {
      slot = selection.variant(j).name;
      slot.resize(longest + 1, '\0');
      status = file_.write(slot.data(), slot.size());
    }
    return status.ok() ? put_classes() : status;
  }

  std::vector<OutputFile*> files() override { return {&file_}; }

 protected:
  virtual Layout layout() const = 0;
  virtual Status put_classes() = 0;

  std::string path_;
  OutputFile file_;
  const Selection* selection_ = nullptr;
  int64_t body_ = 0;     // offset of the body
  int64_t n_added_ = 0;  // variants
};

// A sample's record gets a few words with each block, in its place.
class NormalWriter : public TavoWriter {
 public:
  using TavoWriter::TavoWriter;

  // The part of 256 samples is turned around at a time, so that it stays small beside the block.
  Status add(const uint32_t* rows, int64_t count) override {
    constexpr int64_t kSamplesAtATime = 256;
    const int64_t n = selection_->n_samples();
    const int64_t n_words = packed_words(count);
    const bool is_first = n_added_ == 0;
    // The first words come with the class in front of them.
    const int64_t stride = n_words + 1;
    parts_.resize(static_cast<size_t>(std::min(n, kSamplesAtATime) * stride));
    const int64_t inside = is_first ? 0 : kClassSize + n_added_ / kGenotypesPerWord * kPackedWordSize;
    const int64_t record = sample_record_size(selection_->n_variants());
    for (int64_t s = 0; s < n; s += kSamplesAtATime) {
      const int64_t n_samples = std::min(kSamplesAtATime, n - s);
      transpose_packed(rows + s / kGenotypesPerWord, packed_words(n), count, n_samples, parts_.data() + 1,
                       stride);
      for (int64_t i = 0; i < n_samples; ++i) {
        uint32_t* part = parts_.data() + i * stride;
        part[0] = selection_->phenotype_word(s + i);
        const int64_t skipped = is_first ? 0 : 1;
        Status status = file_.write_at(body_ + (s + i) * record + inside, part + skipped,
                                       static_cast<size_t>((stride - skipped) * kPackedWordSize));
        if (!status.ok()) {
          return status;
        }
      }
    }
    n_added_ += count;
    return {};
  }

 protected:
  Layout layout() const override { return Layout::kNormal; }
  Status put_classes() override { return {}; }

 private:
  std::vector<uint32_t> parts_;
};

class TransposedWriter : public TavoWriter {
 public:
  using TavoWriter::TavoWriter;

  Status add(const uint32_t* rows, int64_t count) override {
    return file_.write(rows,
                       static_cast<size_t>(count * packed_words(selection_->n_samples()) * kPackedWordSize));
  }

 protected:
  Layout layout() const override { return Layout::kTransposed; }

  // The class bytes stand at the front of a block with four bytes for every sample.
  Status put_classes() override {
    if (selection_->phenotypes->quantitative) {
      return Status::failure(path_ +
                             ": the transposed layout has one byte for a class, no quantitative phenotype");
    }
    std::vector<uint8_t> classes(static_cast<size_t>(kClassSize * selection_->n_samples()));
    for (int64_t i = 0; i < selection_->n_samples(); ++i) {
      classes[static_cast<size_t>(i)] = static_cast<uint8_t>(selection_->phenotype_word(i));
    }
    return file_.write(classes.data(), classes.size());
  }
};

}  // namespace

std::unique_ptr<GenotypeWriter> make_tavo_writer(const std::string& path, Layout layout) {
  if (layout == Layout::kNormal) {
    return std::make_unique<NormalWriter>(path);
  }
  return std::make_unique<TransposedWriter>(path);
}
