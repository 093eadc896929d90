// SPDX-License-Identifier: Apache-2.0
#include "src/run_identity.h"

#include <zlib.h>

#include <cinttypes>
#include <cstdio>

#include "src/option_table.h"

namespace {

// The number of bytes and their CRC-32.
std::string digest(const void* bytes, size_t size) {
  char text[48];
  std::snprintf(text, sizeof(text), "%zu bytes (%08" PRIx32 ")", size,
                static_cast<uint32_t>(crc32_z(0, static_cast<const Bytef*>(bytes), size)));
  return text;
}

template <typename T>
std::string digest(const std::vector<T>& values) {
  return digest(values.data(), values.size() * sizeof(T));
}

}  // namespace

RunIdentity run_identity(const MdrReader& reader, const RunSettings& settings) {
  const std::string orders =
      std::to_string(settings.minimum_order_minus_1 + 1) + "-" + std::to_string(settings.maximum_order);
  const float* scores = reader.scores();
  const auto n_samples = static_cast<size_t>(reader.GetLineCount());
  return {{"version", TAVO_VERSION},
          {"samples", std::to_string(reader.GetLineCount())},
          {"SNPs", std::to_string(reader.GetColCount())},
          {"genotype data", digest(reader.words())},
          {"classes", digest(reader.classes())},
          {"scores", scores == nullptr ? "none" : digest(scores, n_samples * sizeof(float))},
          {"--order", orders},
          {"--cv", std::to_string(settings.folds)},
          {"--cvfrom", std::to_string(settings.first_fold)},
          {"--measure", measure_names()[static_cast<size_t>(settings.measure)]},
          {"--missing", missing_names()[static_cast<size_t>(settings.missing)]},
          {"--tie", std::to_string(settings.tie)},
          {"--top", std::to_string(settings.top)},
          {"--transpose", std::to_string(reader.transposed() ? 1 : 0)},
          {"--shuffling", settings.shuffling != 0 ? "on" : "off"},
          {"--seed", settings.seed ? std::to_string(*settings.seed) : "none"}};
}
