// SPDX-License-Identifier: Apache-2.0
#include "tools/simulate_files.h"

#include <charconv>
#include <cmath>

#include "tools/number.h"
#include "tools/simulate_random.h"

namespace {

// Digits of a covariate: enough for any use, few enough for people.
constexpr int kCovariateDigits = 6;

std::string covariate_text(double value) {
  char text[40];
  const auto result =
      std::to_chars(text, text + sizeof(text), value, std::chars_format::general, kCovariateDigits);
  return {text, result.ptr};
}

// The texts with a comma between them.
template <typename Values, typename Text>
std::string joined(const Values& values, Text text) {
  std::string line;
  for (const auto& value : values) {
    line += (line.empty() ? "" : ",") + text(value);
  }
  return line;
}

}  // namespace

Status write_truth(const SimulationPlan& plan, OutputFile* file) {
  std::string text =
      "model\tdescription\tpositions\tsnps\tmaf\tprevalence\theritability\tgenotype\tpopulation\tpenetrance\t"
      "cases\tcontrols\n";
  Status status;
  for (size_t m = 0; m < plan.models.size() && status.ok(); ++m) {
    const PlantedModel& planted = plan.models[m];
    const PenetranceModel& model = planted.model;
    const double prevalence = model.prevalence();
    const auto number = [](int64_t position) { return std::to_string(position + 1); };
    const auto name = [](int64_t position) { return snp_name(position); };
    const std::string start = std::to_string(m + 1) + "\t" + model.description + "\t" +
                              joined(planted.positions, number) + "\t" + joined(planted.positions, name) +
                              "\t" + joined(model.maf, shortest_text) + "\t" + shortest_text(prevalence) +
                              "\t" + shortest_text(model.heritability()) + "\t";
    const std::vector<double> p = model.cell_probabilities();
    for (size_t c = 0; c < p.size() && status.ok(); ++c) {
      std::vector<int> genotypes;
      genotypes.reserve(planted.positions.size());
      for (int snp = 0; snp < model.order(); ++snp) {
        genotypes.push_back(cell_genotype(c, snp));
      }
      const double f = model.penetrances[c];
      text += start + joined(genotypes, [](int genotype) { return std::to_string(genotype); });
      for (const double value : {p[c], f, p[c] * f / prevalence, p[c] * (1.0 - f) / (1.0 - prevalence)}) {
        text += "\t" + shortest_text(value);
      }
      text += "\n";
      status = file->write(text.data(), text.size());
      text.clear();
    }
  }
  return status.ok() ? file->write(text.data(), text.size()) : status;
}

// With the same variances and correlations in cases and controls, the log odds are linear in the covariates,
// and the difference of the means is the covariance matrix times the effects.
Status write_covariates(const GenotypeSource& source, const CovariateRules& rules, uint64_t seed,
                        OutputFile* file) {
  const auto n = static_cast<size_t>(rules.count);
  double sum = 0.0;
  for (const double effect : rules.effects) {
    sum += effect;
  }
  std::vector<double> shifts;
  std::string text = "FID\tIID";
  for (size_t j = 0; j < n; ++j) {
    shifts.push_back((1.0 - rules.correlation) * rules.effects[j] + rules.correlation * sum);
    text += "\tc" + std::to_string(j + 1);
  }
  text += "\n";
  const double shared = std::sqrt(rules.correlation);
  const double own = std::sqrt(1.0 - rules.correlation);
  RandomStream random(seed, RandomStream::Purpose::kCovariates);
  Status status;
  for (size_t i = 0; i < source.samples().size() && status.ok(); ++i) {
    const Sample& sample = source.samples()[i];
    text += sample.fid + "\t" + sample.iid;
    const double common = shared * random.normal();
    for (size_t j = 0; j < n; ++j) {
      const double shift = source.classes()[i] == 1 ? shifts[j] : 0.0;
      text += "\t" + covariate_text(common + own * random.normal() + shift);
    }
    text += "\n";
    status = file->write(text.data(), text.size());
    text.clear();
  }
  return status.ok() ? file->write(text.data(), text.size()) : status;
}
