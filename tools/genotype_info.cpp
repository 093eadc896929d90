// SPDX-License-Identifier: Apache-2.0
#include "tools/genotype_info.h"

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <vector>

#include "lib/packed_genotypes.h"
#include "tools/quoted.h"

namespace {

constexpr int64_t kHeaderSize = 16;
constexpr int kLargestLabel = 255;
constexpr int64_t kClassSize = 4;
constexpr int64_t kWordSize = sizeof(uint32_t);
constexpr int64_t kWordsAtATime = 1 << 14;

class InfoReader {
 public:
  InfoReader(const std::string& path, GenotypeInfo* info) : path_(path), info_(*info) {}

  Status run(Layout assumed) {
    Status status = open();
    if (status.ok()) {
      status = read_header();
    }
    if (status.ok()) {
      status = choose_layout(assumed);
    }
    if (status.ok()) {
      status = read_names();
    }
    if (status.ok()) {
      status = info_.layout == Layout::kNormal ? read_normal() : read_transposed();
    }
    return status;
  }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  Status refusal(const std::string& what) const { return Status::failure(path_ + ": " + what); }

  Status open() {
    file_.reset(std::fopen(path_.c_str(), "rb"));
    struct stat properties {};
    if (file_ == nullptr || fstat(fileno(file_.get()), &properties) != 0) {
      return Status::failure("cannot open " + path_ + ": " + std::strerror(errno));
    }
    if (!S_ISREG(properties.st_mode)) {
      return refusal("not a regular file; its size is needed to tell its layout");
    }
    size_ = properties.st_size;
    return {};
  }

  // Reads `size` bytes, all of them.
  Status take(void* out, int64_t size) {
    errno = 0;
    if (std::fread(out, 1, static_cast<size_t>(size), file_.get()) == static_cast<size_t>(size)) {
      return {};
    }
    return refusal(std::ferror(file_.get()) != 0 ? std::string("cannot read: ") + std::strerror(errno)
                                                 : "ends early");
  }

  Status read_header() {
    if (size_ < kHeaderSize) {
      return refusal(std::to_string(size_) + " bytes, expected a header of " + std::to_string(kHeaderSize));
    }
    char magic[4];
    int32_t numbers[3];
    Status status = take(magic, sizeof(magic));
    if (status.ok()) {
      status = take(numbers, sizeof(numbers));
    }
    if (!status.ok()) {
      return status;
    }
    if (std::memcmp(magic, "TAVO", sizeof(magic)) != 0) {
      return refusal("bytes 0 to 3: found " + quoted({magic, sizeof(magic)}) + ", expected \"TAVO\"");
    }
    if (numbers[0] < 1) {
      return refusal("bytes 4 to 7: " + std::to_string(numbers[0]) + " samples, expected at least 1");
    }
    if (numbers[1] < 1) {
      return refusal("bytes 8 to 11: " + std::to_string(numbers[1]) + " SNPs, expected at least 1");
    }
    if (numbers[2] < 1 || numbers[2] > kLargestLabel) {
      return refusal("bytes 12 to 15: a label width of " + std::to_string(numbers[2]) + ", expected 1 to " +
                     std::to_string(kLargestLabel));
    }
    info_.n_samples = numbers[0];
    info_.n_snps = numbers[1];
    info_.label_width = numbers[2];
    return {};
  }

  Status choose_layout(Layout assumed) {
    const int64_t before = kHeaderSize + info_.n_snps * info_.label_width + kClassSize * info_.n_samples;
    const int64_t normal = before + kWordSize * info_.n_samples * packed_words(info_.n_snps);
    const int64_t transposed = before + kWordSize * info_.n_snps * packed_words(info_.n_samples);
    if (size_ != normal && size_ != transposed) {
      return refusal(std::to_string(size_) + " bytes, expected by the header " + std::to_string(normal) +
                     " in the normal or " + std::to_string(transposed) + " in the transposed layout");
    }
    info_.layout_is_certain = normal != transposed;
    info_.layout = normal == transposed ? assumed : size_ == normal ? Layout::kNormal : Layout::kTransposed;
    return {};
  }

  Status read_names() {
    char slot[kLargestLabel];
    const auto width = static_cast<size_t>(info_.label_width);
    for (int64_t j = 0; j < info_.n_snps; ++j) {
      Status status = take(slot, info_.label_width);
      if (!status.ok()) {
        return status;
      }
      const size_t length = strnlen(slot, width);
      if (length == width) {
        return refusal("SNP " + std::to_string(j + 1) + " (byte " +
                       std::to_string(kHeaderSize + j * info_.label_width) +
                       "): the name has no NUL within its " + std::to_string(width) + " bytes");
      }
      info_.last_name.assign(slot, length);
      if (j == 0) {
        info_.first_name = info_.last_name;
      }
    }
    return {};
  }

  void count_class(uint32_t value) {
    ++(value == 1 ? info_.cases : value == 0 ? info_.controls : info_.other_classes);
  }

  // Reads and counts a packed row of `count` genotypes. The codes behind the last one of a row carry nothing.
  Status read_row(int64_t count) {
    constexpr uint32_t kLowBits = 0x55555555u;
    for (int64_t left = count; left > 0;) {
      const int64_t n_words = std::min(packed_words(left), kWordsAtATime);
      words_.resize(static_cast<size_t>(n_words));
      Status status = take(words_.data(), n_words * kWordSize);
      if (!status.ok()) {
        return status;
      }
      for (const uint32_t word : words_) {
        const auto n_codes = static_cast<int>(std::min<int64_t>(left, kGenotypesPerWord));
        const uint32_t lanes = kLowBits >> (2 * (kGenotypesPerWord - n_codes));
        const uint32_t low = word & lanes;
        const uint32_t high = (word >> 1) & lanes;
        const int ones = std::popcount(low & ~high);
        const int twos = std::popcount(high & ~low);
        const int missing = std::popcount(low & high);
        info_.genotypes[0] += n_codes - ones - twos - missing;
        info_.genotypes[1] += ones;
        info_.genotypes[2] += twos;
        info_.genotypes[kMissingGenotype] += missing;
        left -= n_codes;
      }
    }
    return {};
  }

  Status read_normal() {
    Status status;
    for (int64_t i = 0; i < info_.n_samples && status.ok(); ++i) {
      uint32_t class_word = 0;
      status = take(&class_word, kClassSize);
      if (status.ok()) {
        count_class(class_word);
        status = read_row(info_.n_snps);
      }
    }
    return status;
  }

  // One class byte per sample, then three unused bytes per sample, then the rows.
  Status read_transposed() {
    std::vector<uint8_t> bytes;
    const int64_t block = kClassSize * info_.n_samples;
    for (int64_t done = 0; done < block; done += static_cast<int64_t>(bytes.size())) {
      bytes.resize(static_cast<size_t>(std::min(block - done, kWordsAtATime)));
      Status status = take(bytes.data(), static_cast<int64_t>(bytes.size()));
      if (!status.ok()) {
        return status;
      }
      const int64_t classes = std::min(static_cast<int64_t>(bytes.size()), info_.n_samples - done);
      for (int64_t i = 0; i < classes; ++i) {
        count_class(bytes[static_cast<size_t>(i)]);
      }
    }
    Status status;
    for (int64_t j = 0; j < info_.n_snps && status.ok(); ++j) {
      status = read_row(info_.n_samples);
    }
    return status;
  }

  const std::string& path_;
  GenotypeInfo& info_;
  std::unique_ptr<std::FILE, Closer> file_;
  int64_t size_ = 0;
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
  return InfoReader(path, info).run(assumed);
}

std::string genotype_info_text(const std::string& path, const GenotypeInfo& info) {
  std::string text = "file: " + path + "\n";
  text += "layout: " + layout_name(info.layout) +
          (info.layout_is_certain ? " (the file's size fits no other)\n"
                                  : " (assumed: the file's size fits both layouts, --transpose tells)\n");
  text += "samples: " + std::to_string(info.n_samples) + "\n";
  text += "SNPs: " + std::to_string(info.n_snps) + "\n";
  text += "label width: " + std::to_string(info.label_width) + " bytes\n";
  text += counted("cases", info.cases, info.n_samples);
  text += counted("controls", info.controls, info.n_samples);
  text += counted("other classes", info.other_classes, info.n_samples);
  text += counted("missing genotypes", info.genotypes[kMissingGenotype], info.total());
  text += counted("genotype 0", info.genotypes[0], info.total());
  text += counted("genotype 1", info.genotypes[1], info.total());
  text += counted("genotype 2", info.genotypes[2], info.total());
  text += "first SNP: " + escaped(info.first_name) + "\n";
  text += "last SNP: " + escaped(info.last_name) + "\n";
  return text;
}
