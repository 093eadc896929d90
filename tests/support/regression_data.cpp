// SPDX-License-Identifier: Apache-2.0
#include "tests/support/regression_data.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/genotype_file.h"

namespace tavo_test {

void RegressionData::finish(int n_covariates) {
  const size_t n_snps = genotypes.at(0).size();
  const size_t width = (n_snps + 15) / 16;
  words.assign(genotypes.size() * width, 0);
  for (size_t i = 0; i < genotypes.size(); ++i) {
    for (size_t j = 0; j < n_snps; ++j) {
      words[i * width + j / 16] |= static_cast<uint32_t>(genotypes[i][j]) << (2 * (j % 16));
    }
  }
  problem = Problem();
  problem.words = words.data();
  problem.words_per_row = static_cast<int64_t>(width);
  problem.n_samples = static_cast<int>(genotypes.size());
  problem.n_snps = static_cast<int>(n_snps);
  problem.phenotypes = phenotypes.data();
  problem.covariates = n_covariates == 0 ? nullptr : covariates.data();
  problem.n_covariates = n_covariates;
}

void make_random(std::mt19937& random, int n_samples, int n_snps, int n_covariates, double missing,
                 bool quantitative, RegressionData* data) {
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  std::normal_distribution<double> normal;
  std::vector<double> frequency(static_cast<size_t>(n_snps));
  for (double& f : frequency) {
    f = 0.05 + 0.45 * uniform(random);
  }
  for (int i = 0; i < n_samples; ++i) {
    std::vector<int> row;
    for (const double f : frequency) {
      const int copies = (uniform(random) < f ? 1 : 0) + (uniform(random) < f ? 1 : 0);
      row.push_back(uniform(random) < missing ? 3 : copies);
    }
    double eta = -0.3 + 0.6 * (row[0] == 1 ? 1.0 : 0.0) + normal(random) * (quantitative ? 1.0 : 0.0);
    for (int c = 0; c < n_covariates; ++c) {
      const double z = normal(random);
      data->covariates.push_back(static_cast<float>(z));
      eta += c == 0 ? 0.5 * z : 0.0;
    }
    data->phenotypes.push_back(quantitative                                     ? static_cast<float>(eta)
                               : uniform(random) < 1.0 / (1.0 + std::exp(-eta)) ? 1.0f
                                                                                : 0.0f);
    data->genotypes.push_back(row);
  }
  data->finish(n_covariates);
}

std::string regression_file(const RegressionData& data, bool quantitative) {
  const auto n_snps = data.genotypes.at(0).size();
  std::string bytes = "TAVO" + le32(static_cast<uint32_t>(data.genotypes.size())) +
                      le32(static_cast<uint32_t>(n_snps)) + le32(8);
  for (size_t j = 0; j < n_snps; ++j) {
    std::string name = "rs" + std::to_string(j);
    name.resize(8, '\0');
    bytes += name;
  }
  const size_t width = (n_snps + 15) / 16;
  for (size_t i = 0; i < data.genotypes.size(); ++i) {
    uint32_t value = static_cast<uint32_t>(static_cast<int>(data.phenotypes[i]));
    if (quantitative) {
      std::memcpy(&value, &data.phenotypes[i], 4);
    }
    bytes += le32(value);
    for (size_t w = 0; w < width; ++w) {
      bytes += le32(data.words[i * width + w]);
    }
  }
  return bytes;
}

std::string covariate_text(const RegressionData& data, const std::vector<bool>& missing) {
  const auto n_covariates = static_cast<size_t>(data.problem.n_covariates);
  std::string text = "FID\tIID";
  for (size_t c = 0; c < n_covariates; ++c) {
    text += "\tcov" + std::to_string(c);
  }
  text += "\n";
  for (size_t i = 0; i < data.genotypes.size(); ++i) {
    text += "f\ti";
    for (size_t c = 0; c < n_covariates; ++c) {
      char value[40];
      std::snprintf(value, sizeof(value), "\t%.9g",
                    static_cast<double>(data.covariates[i * n_covariates + c]));
      text += missing[i] && c + 1 == n_covariates ? "\tNA" : value;
    }
    text += "\n";
  }
  return text;
}

void keep_complete(const RegressionData& data, const std::vector<bool>& missing, RegressionData* kept) {
  const auto n_covariates = static_cast<size_t>(data.problem.n_covariates);
  for (size_t i = 0; i < data.genotypes.size(); ++i) {
    if (!missing[i]) {
      kept->genotypes.push_back(data.genotypes[i]);
      kept->phenotypes.push_back(data.phenotypes[i]);
      for (size_t c = 0; c < n_covariates; ++c) {
        kept->covariates.push_back(data.covariates[i * n_covariates + c]);
      }
    }
  }
  kept->finish(data.problem.n_covariates);
}

std::vector<std::vector<std::string>> recorded_table(const std::string& file) {
  const std::string path = TAVO_SOURCE_ROOT "/tests/data/regression/" + file;
  std::ifstream in(path);
  if (!in) {
    throw std::runtime_error("cannot open " + path);
  }
  std::vector<std::vector<std::string>> table;
  for (std::string line; std::getline(in, line);) {
    std::vector<std::string>& fields = table.emplace_back();
    std::istringstream text(line);
    for (std::string field; std::getline(text, field, '\t');) {
      fields.push_back(field);
    }
  }
  return table;
}

void load_recorded(const std::string& phenotype, int n_covariates, RegressionData* data) {
  const std::vector<std::vector<std::string>> table = recorded_table("samples.tsv");
  for (size_t i = 1; i < table.size(); ++i) {
    const std::vector<std::string>& row = table[i];
    data->phenotypes.push_back(std::stof(row.at(phenotype == "case" ? 0 : 1)));
    for (int c = 0; c < n_covariates; ++c) {
      data->covariates.push_back(std::stof(row.at(2 + static_cast<size_t>(c))));
    }
    std::vector<int>& genotypes = data->genotypes.emplace_back();
    for (size_t s = 5; s < row.size(); ++s) {
      genotypes.push_back(std::stoi(row[s]));
    }
  }
  data->finish(n_covariates);
}

}  // namespace tavo_test
