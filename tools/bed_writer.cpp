// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <vector>

#include "tools/bed_source.h"
#include "tools/genotype_writer.h"
#include "tools/names.h"
#include "tools/packed_rows.h"

namespace {

class BedWriter : public GenotypeWriter {
 public:
  explicit BedWriter(std::string prefix) : prefix_(std::move(prefix)) {}

  Status open() override {
    Status status = bed_.open(prefix_ + kBedEnding);
    if (status.ok()) {
      status = bim_.open(prefix_ + kBimEnding);
    }
    return status.ok() ? fam_.open(prefix_ + kFamEnding) : status;
  }

  Status begin(const Selection& selection) override {
    selection_ = &selection;
    Status status = bed_.write(kBedMagic, sizeof(kBedMagic));
    for (int64_t i = 0; i < selection.n_samples() && status.ok(); ++i) {
      const Sample& sample = selection.sample(i);
      status = write_line(fam_, "sample " + std::to_string(i + 1),
                          {sample.fid, sample.iid, sample.father, sample.mother, sample.sex,
                           phenotype_text(selection.phenotype_word(i))});
    }
    for (int64_t j = 0; j < selection.n_variants() && status.ok(); ++j) {
      const Variant variant = selection.variant(j);
      status = write_line(bim_, "variant " + std::to_string(j + 1),
                          {variant.chromosome, variant.name, variant.centimorgan, variant.position,
                           variant.counted_allele, variant.other_allele});
    }
    return status;
  }

  Status add(const uint32_t* rows, int64_t count) override {
    const int64_t n = selection_->n_samples();
    const int64_t n_words = packed_words(n);
    Status status;
    for (int64_t i = 0; i < count && status.ok(); ++i) {
      row_.assign(rows + i * n_words, rows + (i + 1) * n_words);
      to_plink_codes(row_.data(), n);
      status = bed_.write(row_.data(), static_cast<size_t>(bed_row_size(n)));
    }
    return status;
  }

  // The .bed file last: what lies there while the others get their names is an older set or nothing to work
  // with.
  std::vector<OutputFile*> files() override { return {&fam_, &bim_, &bed_}; }

 private:
  // A case is 2 and a control 1; nine digits read back to the same float.
  std::string phenotype_text(uint32_t word) const {
    if (!selection_->phenotypes->quantitative) {
      return std::to_string(word + 1);
    }
    char text[40];
    std::snprintf(text, sizeof(text), "%.9g", static_cast<double>(float_of_word(word)));
    return text;
  }

  Status write_line(OutputFile& file, const std::string& item,
                    std::initializer_list<std::string_view> fields) {
    line_.clear();
    for (const std::string_view field : fields) {
      if (const std::string fault = field_fault(field, std::string_view::npos); !fault.empty()) {
        return Status::failure(prefix_ + ": " + item + ": " + fault);
      }
      line_.append(line_.empty() ? "" : "\t").append(field);
    }
    line_.push_back('\n');
    return file.write(line_.data(), line_.size());
  }

  std::string prefix_;
  OutputFile bed_;
  OutputFile bim_;
  OutputFile fam_;
  const Selection* selection_ = nullptr;
  std::vector<uint32_t> row_;
  std::string line_;
};

}  // namespace

std::unique_ptr<GenotypeWriter> make_bed_writer(const std::string& prefix) {
  return std::make_unique<BedWriter>(prefix);
}
