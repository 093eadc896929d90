// SPDX-License-Identifier: Apache-2.0
#include "src/run_identity.h"

#include <cinttypes>
#include <cstdio>

#include "src/option_table.h"
#include "src/run_config.h"
#include "util/checksum.h"

namespace {

// The number of bytes and their CRC-32.
std::string digest(const void* bytes, size_t size) {
  char text[48];
  std::snprintf(text, sizeof(text), "%zu bytes (%08" PRIx32 ")", size, checksum(bytes, size));
  return text;
}

template <typename T>
std::string digest(const std::vector<T>& values) {
  return digest(values.data(), values.size() * sizeof(T));
}

std::string digest(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text += name;
    text.push_back('\0');
  }
  return digest(text.data(), text.size());
}

std::string on_or_off(bool on) {
  return on ? "on" : "off";
}

// What every run is made from.
RunIdentity common_identity(const MdrReader& reader) {
  return {{"version", TAVO_VERSION},
          {"--regression", g_regression == kLinearRegression     ? "linear"
                           : g_regression == kLogisticRegression ? "logistic"
                                                                 : "none"},
          {"samples", std::to_string(reader.GetLineCount())},
          {"SNPs", std::to_string(reader.GetColCount())},
          {"genotype data", digest(reader.words())},
          {"SNP names", digest(reader.ReadHeader())}};
}

}  // namespace

RunIdentity mdr_identity(const MdrReader& reader, const RunSettings& settings) {
  RunIdentity identity = common_identity(reader);
  const std::string orders =
      std::to_string(settings.minimum_order_minus_1 + 1) + "-" + std::to_string(settings.maximum_order);
  const float* scores = reader.scores();
  const auto n_samples = static_cast<size_t>(reader.GetLineCount());
  identity.insert(identity.end(),
                  {{"classes", digest(reader.classes())},
                   {"scores", scores == nullptr ? "none" : digest(scores, n_samples * sizeof(float))},
                   {"--mode", std::to_string(settings.mode)},
                   {"--order", orders},
                   {"--cv", std::to_string(settings.folds)},
                   {"--cvfrom", std::to_string(settings.first_fold)},
                   {"--measure", measure_names()[static_cast<size_t>(settings.measure)]},
                   {"--missing", missing_names()[static_cast<size_t>(settings.missing)]},
                   {"--tie", std::to_string(settings.tie)},
                   {"--top", std::to_string(settings.top)},
                   {"--transpose", std::to_string(reader.transposed() ? 1 : 0)},
                   {"--shuffling", on_or_off(settings.shuffling != 0)},
                   {"--seed", settings.seed ? std::to_string(*settings.seed) : "none"},
                   {"--permutations", std::to_string(settings.permutations)},
                   {"--stop-after", std::to_string(settings.stop_after)}});
  return identity;
}

RunIdentity regression_identity(const MdrReader& reader, const RunSettings& settings) {
  RunIdentity identity = common_identity(reader);
  const size_t n_covariates = static_cast<size_t>(g_covCnt) * static_cast<size_t>(reader.GetLineCount());
  identity.insert(identity.end(),
                  {{"phenotypes", digest(reader.phenotypes())},
                   {"covariates", g_covCnt == 0 ? "none" : digest(g_covValues, n_covariates * sizeof(float))},
                   {"covariate names", digest(std::vector<std::string>(g_covLabel, g_covLabel + g_covCnt))},
                   {"--order", typed_value(g_combOrder, "1")},
                   {"--iter", std::to_string(g_logisIter)},
                   {"--distinct", on_or_off(g_regrDistinct != 0)},
                   {"--precision", settings.precision},
                   {"--top", std::to_string(settings.top)},
                   {"--transpose", std::to_string(reader.transposed() ? 1 : 0)},
                   {"--tidy", on_or_off(!settings.tidy.empty())}});
  return identity;
}
