// SPDX-License-Identifier: Apache-2.0
#include "tests/convert/table_text.h"

#include <zlib.h>

#include <algorithm>
#include <stdexcept>

namespace tavo_test {

std::string table_text(const GenotypeData& data, const TableStyle& style) {
  const int class_column = style.class_column < 0 ? data.n_snps : style.class_column;
  size_t n_missing = 0;
  std::string text;
  for (int line = -1; line < data.n_samples; ++line) {
    for (int column = 0, snp = 0; column <= data.n_snps; ++column) {
      text += column == 0 ? "" : style.separator;
      if (column == class_column) {
        text += line < 0 ? style.class_name : std::to_string(data.classes[static_cast<size_t>(line)]);
        continue;
      }
      if (line < 0) {
        text += data.names[static_cast<size_t>(snp)];
      } else if (data.at(line, snp) == 3) {
        text += style.missing[n_missing++ % style.missing.size()];
      } else {
        text += std::to_string(data.at(line, snp));
      }
      ++snp;
    }
    if (line + 1 < data.n_samples || style.last_line_end) {
      text += style.line_end;
    }
  }
  return text;
}

std::string gzip(const std::string& bytes) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("cannot start a gzip stream");
  }
  std::string input = bytes;
  std::string packed(deflateBound(&stream, static_cast<uLong>(bytes.size())) + 100, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  const int result = deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) {
    throw std::runtime_error("cannot make a gzip stream");
  }
  return packed;
}

std::vector<std::string> file_names(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace tavo_test
