// SPDX-License-Identifier: Apache-2.0
#include "tools/genotype_header.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include "util/in_quotes.h"

namespace {

constexpr int64_t kSlotsAtATime = 1 << 12;

bool has_magic(const GenotypeFileHeader& bytes) {
  return std::memcmp(bytes.magic, kGenotypeMagic, sizeof(kGenotypeMagic)) == 0;
}

bool has_label_width(const GenotypeFileHeader& bytes) {
  return bytes.label_width >= 1 && bytes.label_width <= kLargestLabel;
}

}  // namespace

std::string layout_name(Layout layout) {
  return layout == Layout::kNormal ? "normal" : "transposed";
}

bool is_genotype_file(const std::string& path) {
  // A pipe must not be opened just to look: its writer would find it closed.
  std::error_code not_there;
  InputFile file;
  GenotypeFileHeader bytes{};
  return std::filesystem::is_regular_file(path, not_there) && file.open(path).ok() &&
         file.size() >= kGenotypeHeaderSize && file.read_at(0, &bytes, sizeof(bytes)).ok() &&
         has_magic(bytes) && has_label_width(bytes);
}

Status read_genotype_header(const InputFile& file, Layout assumed, GenotypeHeader* header) {
  if (file.size() < kGenotypeHeaderSize) {
    return file.refusal(std::to_string(file.size()) + " bytes, expected a header of " +
                        std::to_string(kGenotypeHeaderSize));
  }
  GenotypeFileHeader bytes{};
  Status status = file.read_at(0, &bytes, sizeof(bytes));
  if (!status.ok()) {
    return status;
  }
  if (!has_magic(bytes)) {
    return file.refusal("bytes 0 to 3: found " + in_quotes({bytes.magic, sizeof(bytes.magic)}) +
                        ", expected " + in_quotes({kGenotypeMagic, sizeof(kGenotypeMagic)}));
  }
  if (bytes.n_samples < 1) {
    return file.refusal("bytes 4 to 7: " + std::to_string(bytes.n_samples) + " samples, expected at least 1");
  }
  if (bytes.n_snps < 1) {
    return file.refusal("bytes 8 to 11: " + std::to_string(bytes.n_snps) + " SNPs, expected at least 1");
  }
  if (!has_label_width(bytes)) {
    return file.refusal("bytes 12 to 15: a label width of " + std::to_string(bytes.label_width) +
                        ", expected 1 to " + std::to_string(kLargestLabel));
  }
  header->n_samples = bytes.n_samples;
  header->n_snps = bytes.n_snps;
  header->label_width = bytes.label_width;
  const int64_t before = header->body_offset();
  const int64_t normal = before + genotype_body_size(Layout::kNormal, header->n_samples, header->n_snps);
  const int64_t transposed =
      before + genotype_body_size(Layout::kTransposed, header->n_samples, header->n_snps);
  if (file.size() != normal && file.size() != transposed) {
    return file.refusal(std::to_string(file.size()) + " bytes, expected by the header " +
                        std::to_string(normal) + " in the normal or " + std::to_string(transposed) +
                        " in the transposed layout");
  }
  header->layout_is_certain = normal != transposed;
  header->layout = normal == transposed    ? assumed
                   : file.size() == normal ? Layout::kNormal
                                           : Layout::kTransposed;
  return {};
}

Status read_genotype_names(const InputFile& file, const GenotypeHeader& header,
                           const std::function<Status(int64_t index, std::string_view name)>& take) {
  const auto width = static_cast<size_t>(header.label_width);
  std::vector<char> slots;
  for (int64_t first = 0; first < header.n_snps; first += kSlotsAtATime) {
    const int64_t count = std::min(kSlotsAtATime, header.n_snps - first);
    slots.resize(static_cast<size_t>(count) * width);
    Status status = file.read_at(genotype_body_offset(first, header.label_width), slots.data(), slots.size());
    for (int64_t i = 0; i < count && status.ok(); ++i) {
      const char* slot = slots.data() + static_cast<size_t>(i) * width;
      const size_t length = strnlen(slot, width);
      if (length == width) {
        return file.refusal("SNP " + std::to_string(first + i + 1) + " (byte " +
                            std::to_string(genotype_body_offset(first + i, header.label_width)) +
                            "): the name has no NUL within its " + std::to_string(width) + " bytes");
      }
      status = take(first + i, {slot, length});
    }
    if (!status.ok()) {
      return status;
    }
  }
  return {};
}
