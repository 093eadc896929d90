// SPDX-License-Identifier: Apache-2.0
#include "tests/convert/plink_files.h"

#include "tests/support/run_program.h"

namespace tavo_test {

std::string bed_bytes(const GenotypeData& data) {
  // Of 0, 1 and 2 copies of the first allele, and missing.
  constexpr unsigned kCodes[] = {3, 2, 0, 1};
  std::string bytes = "\x6c\x1b\x01";
  for (int j = 0; j < data.n_snps; ++j) {
    for (int first = 0; first < data.n_samples; first += 4) {
      unsigned byte = 0;
      for (int s = first; s < first + 4 && s < data.n_samples; ++s) {
        byte |= kCodes[data.at(s, j)] << (2 * (s - first));
      }
      bytes.push_back(static_cast<char>(byte));
    }
  }
  return bytes;
}

std::string bim_text(const GenotypeData& data) {
  std::string text;
  for (int j = 0; j < data.n_snps; ++j) {
    text += "1\t" + data.names[static_cast<size_t>(j)] + "\t0\t" + std::to_string(100 * j + 7) + "\tA\tG\n";
  }
  return text;
}

std::string fam_text(const GenotypeData& data) {
  std::string text;
  for (int s = 0; s < data.n_samples; ++s) {
    const std::string number = std::to_string(s + 1);
    text += "F" + number + "\tI" + number + "\t0\t0\t1\t" +
            (data.classes[static_cast<size_t>(s)] == 1 ? "2" : "1") + "\n";
  }
  return text;
}

void write_plink_files(const std::filesystem::path& prefix, const GenotypeData& data) {
  write_file(prefix.string() + ".bed", bed_bytes(data));
  write_file(prefix.string() + ".bim", bim_text(data));
  write_file(prefix.string() + ".fam", fam_text(data));
}

}  // namespace tavo_test
