// SPDX-License-Identifier: Apache-2.0
#include "tools/summary.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace {

int64_t count_cases(const Selection& selection) {
  int64_t cases = 0;
  for (int64_t i = 0; i < selection.n_samples(); ++i) {
    cases += selection.phenotype_word(i);
  }
  return cases;
}

std::string phenotype_summary(const Selection& selection) {
  if (!selection.phenotypes->quantitative) {
    const int64_t cases = count_cases(selection);
    return std::to_string(cases) + " cases, " + std::to_string(selection.n_samples() - cases) + " controls";
  }
  double sum = 0.0;
  double least = std::numeric_limits<double>::infinity();
  double most = -least;
  for (int64_t i = 0; i < selection.n_samples(); ++i) {
    const auto value = static_cast<double>(float_of_word(selection.phenotype_word(i)));
    sum += value;
    least = std::min(least, value);
    most = std::max(most, value);
  }
  char text[120];
  std::snprintf(text, sizeof(text), "phenotype %g to %g, mean %g", least, most,
                sum / static_cast<double>(selection.n_samples()));
  return text;
}

}  // namespace

std::string data_set_summary(const std::string& target, const Selection& selection, int64_t missing,
                             const std::string& format) {
  char share[50];
  std::snprintf(
      share, sizeof(share), "%.2f%%",
      100.0 * static_cast<double>(missing) /
          (static_cast<double>(selection.n_samples()) * static_cast<double>(selection.n_variants())));
  return target + ": " + std::to_string(selection.n_samples()) + " samples (" + phenotype_summary(selection) +
         "), " + std::to_string(selection.n_variants()) + " SNPs, " + std::to_string(missing) +
         " missing genotypes (" + share + "), " + format;
}

std::string one_class_warning(const Selection& selection) {
  if (selection.phenotypes->quantitative) {
    return "";
  }
  const int64_t cases = count_cases(selection);
  const std::string all = "all " + std::to_string(selection.n_samples()) + " samples are ";
  return cases == 0                       ? all + "controls; a search needs cases, too"
         : cases == selection.n_samples() ? all + "cases; a search needs controls, too"
                                          : "";
}
