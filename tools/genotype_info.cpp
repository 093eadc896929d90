// SPDX-License-Identifier: Apache-2.0
#include "tools/genotype_info.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <vector>

#include "tools/packed_rows.h"
#include "util/in_quotes.h"

namespace {

constexpr int64_t kWordsAtATime = 1 << 14;

class InfoReader {
 public:
  InfoReader(const InputFile& file, GenotypeInfo* info) : file_(file), info_(*info) {}

  Status run(Layout assumed) {
    Status status = read_genotype_header(file_, assumed, &info_.header);
    if (status.ok()) {
      status = read_genotype_names(file_, info_.header, [this](int64_t index, std::string_view name) {
        info_.last_name = name;
        if (index == 0) {
          info_.first_name = name;
        }
        return Status();
      });
    }
    if (status.ok()) {
      status = info_.header.layout == Layout::kNormal ? read_normal() : read_transposed();
    }
    return status;
  }

 private:
  void count_class(uint32_t value) {
    ++(value == 1 ? info_.cases : value == 0 ? info_.controls : info_.other_classes);
  }

  // Reads and counts a packed row of `count` genotypes. The codes behind the last one of a row carry nothing.
  Status read_row(int64_t offset, int64_t count) {
    for (int64_t done = 0; done < count;) {
      const int64_t n_words = std::min(packed_words(count - done), kWordsAtATime);
      words_.resize(static_cast<size_t>(n_words));
      Status status = file_.read_at(offset + done / kGenotypesPerWord * kPackedWordSize, words_.data(),
                                    words_.size() * sizeof(uint32_t));
      if (!status.ok()) {
        return status;
      }
      const int64_t n_codes = std::min(count - done, n_words * kGenotypesPerWord);
      count_codes(words_.data(), n_codes, &info_.genotypes);
      done += n_codes;
    }
    return {};
  }

  Status read_normal() {
    const GenotypeHeader& header = info_.header;
    const int64_t record = sample_record_size(header.n_snps);
    Status status;
    for (int64_t i = 0; i < header.n_samples && status.ok(); ++i) {
      const int64_t offset = header.body_offset() + i * record;
      uint32_t class_word = 0;
      status = file_.read_at(offset, &class_word, static_cast<size_t>(kClassSize));
      if (status.ok()) {
        count_class(class_word);
        status = read_row(offset + kClassSize, header.n_snps);
      }
    }
    return status;
  }

  // One class byte per sample at the front of a block with four bytes for each, then the rows.
  Status read_transposed() {
    const GenotypeHeader& header = info_.header;
    std::vector<uint8_t> bytes;
    for (int64_t done = 0; done < header.n_samples; done += static_cast<int64_t>(bytes.size())) {
      bytes.resize(static_cast<size_t>(std::min(header.n_samples - done, kWordsAtATime)));
      Status status = file_.read_at(header.body_offset() + done, bytes.data(), bytes.size());
      if (!status.ok()) {
        return status;
      }
      for (const uint8_t byte : bytes) {
        count_class(byte);
      }
    }
    const int64_t rows = header.body_offset() + kClassSize * header.n_samples;
    const int64_t row_size = packed_words(header.n_samples) * kPackedWordSize;
    Status status;
    for (int64_t j = 0; j < header.n_snps && status.ok(); ++j) {
      status = read_row(rows + j * row_size, header.n_samples);
    }
    return status;
  }

  const InputFile& file_;
  GenotypeInfo& info_;
  std::vector<uint32_t> words_;
};

std::string counted(const char* name, int64_t count, int64_t total) {
  char text[100];
  std::snprintf(text, sizeof(text), "%s: %" PRId64 " (%.2f%%)\n", name, count,
                100.0 * static_cast<double>(count) / static_cast<double>(total));
  return text;
}

}  // namespace

Status read_genotype_info(const std::string& path, Layout assumed, GenotypeInfo* info) {
  *info = GenotypeInfo();
  InputFile file;
  Status status = file.open(path);
  return status.ok() ? InfoReader(file, info).run(assumed) : status;
}

std::string genotype_info_text(const std::string& path, const GenotypeInfo& info) {
  std::string text = "file: " + path + "\n";
  text +=
      "layout: " + layout_name(info.header.layout) +
      (info.header.layout_is_certain ? " (the file's size fits no other)\n"
                                     : " (assumed: the file's size fits both layouts, --transpose tells)\n");
  text += "samples: " + std::to_string(info.header.n_samples) + "\n";
  text += "SNPs: " + std::to_string(info.header.n_snps) + "\n";
  text += "label width: " + std::to_string(info.header.label_width) + " bytes\n";
  text += counted("cases", info.cases, info.header.n_samples);
  text += counted("controls", info.controls, info.header.n_samples);
  text += counted("other classes", info.other_classes, info.header.n_samples);
  text += counted("missing genotypes", info.genotypes[kMissingGenotype], info.total());
  text += counted("genotype 0", info.genotypes[0], info.total());
  text += counted("genotype 1", info.genotypes[1], info.total());
  text += counted("genotype 2", info.genotypes[2], info.total());
  text += "first SNP: " + escaped(info.first_name) + "\n";
  text += "last SNP: " + escaped(info.last_name) + "\n";
  return text;
}
