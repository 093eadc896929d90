// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/regression_case.h"

#include <algorithm>
#include <cmath>

namespace tavo_test {

namespace {

// A covariate of one sample, of the kinds that data sets have.
float covariate_value(Draw& draw, int kind, float first) {
  switch (kind) {
    case 1:
      return draw.one_in(2) ? 1.0f : 0.0f;
    case 2:
      return 1950.0f + static_cast<float>(draw.from(0, 50));
    case 3:
      return 2.5f;
    case 4:
      return first;
    default: {
      std::normal_distribution<double> normal;
      return static_cast<float>(normal(draw.random()));
    }
  }
}

void draw_genotypes(Draw& draw, int n_samples, int n_snps, RegressionData* data) {
  const double missing = draw.one_in(2) ? 0.0 : draw.of<double>({0.01, 0.1, 0.5, 1.0});
  data->genotypes.assign(static_cast<size_t>(n_samples), std::vector<int>(static_cast<size_t>(n_snps)));
  for (int j = 0; j < n_snps; ++j) {
    const double frequency = draw.of<double>({0.5, 0.3, 0.1, 0.02});
    const int constant = draw.one_in(10) ? draw.from(0, 3) : -1;
    const int source = j > 0 && draw.one_in(10) ? draw.from(0, j - 1) : -1;
    for (std::vector<int>& row : data->genotypes) {
      const int copies = (draw.share() < frequency ? 1 : 0) + (draw.share() < frequency ? 1 : 0);
      row[static_cast<size_t>(j)] = constant >= 0 ? constant
                                    : source >= 0 ? row[static_cast<size_t>(source)]
                                    : missing > 0.0 && draw.share() < missing ? 3
                                                                              : copies;
    }
  }
}

void draw_phenotypes(Draw& draw, bool quantitative, bool single, int n_covariates, RegressionData* data) {
  const size_t n = data->genotypes.size();
  const bool one_class = draw.one_in(25);
  const bool other_classes = single && draw.one_in(15);
  std::normal_distribution<double> normal;
  for (size_t i = 0; i < n; ++i) {
    double eta = 0.5 * data->genotypes[i][0] - 0.5;
    if (n_covariates > 0) {
      eta += 0.3 * static_cast<double>(data->covariates[i * static_cast<size_t>(n_covariates)]);
    }
    if (quantitative) {
      data->phenotypes.push_back(static_cast<float>(eta + normal(draw.random())));
    } else if (one_class) {
      data->phenotypes.push_back(1.0f);
    } else {
      data->phenotypes.push_back(draw.share() < 1.0 / (1.0 + std::exp(-eta)) ? 1.0f : 0.0f);
      if (other_classes && draw.one_in(10)) {
        data->phenotypes.back() = static_cast<float>(draw.from(-2, 3));
      }
    }
  }
}

}  // namespace

RegressionCase draw_regression(Draw& draw, const RegressionForm& form) {
  RegressionCase drawn;
  drawn.rules.model = form.model;
  drawn.rules.precision = form.precision;
  const bool linear = form.model == RegressionModel::kLinear;
  const bool pairs = drawn.rules.order() == 2;
  const auto give = [&](const std::string& option, const std::string& value) {
    drawn.options.push_back("--" + draw.any_case(option));
    drawn.options.push_back(value);
  };
  give("in", "in.tavo");
  give("out", "out.csv");
  give("regression", draw.any_case(linear ? "linear" : "logistic"));
  if (pairs || draw.one_in(2)) {
    drawn.order_position = static_cast<int>(drawn.options.size()) + 2;
    give("order", pairs ? "2" : "1");
  }
  const bool single = form.precision == Precision::kSingle;
  if (!single || draw.one_in(4)) {
    give("precision", draw.any_case(single ? "single" : "double"));
  }
  if (!linear && draw.one_in(3)) {
    drawn.rules.iterations = draw.of<int>({0, 1, 2, 5, 20, 30, -3});
    give("iter", std::to_string(drawn.rules.iterations));
  }
  if (!linear && draw.one_in(2)) {
    drawn.rules.distinct = draw.one_in(2);
    give("distinct", drawn.rules.distinct ? "1" : "0");
  }
  if (!linear && !draw.one_in(3)) {
    drawn.top = draw.of<size_t>({0, 1, 5, 20, 1000});
    give("top", std::to_string(drawn.top));
  }
  if (!draw.one_in(4)) {
    give("tidy", "tidy.tsv");
  }

  const int n_samples =
      draw.one_in(5) ? draw.from(1, 20) : draw.of<int>({30, 63, 64, 65, 127, 128, 129, draw.from(21, 300)});
  const int n_snps = pairs ? draw.from(1, 9) : draw.of<int>({1, 7, 8, 9, 15, 16, 17, 33, draw.from(1, 40)});
  const int n_covariates = draw.one_in(3) ? 0 : draw.from(1, 7);
  RegressionData all;
  draw_genotypes(draw, n_samples, n_snps, &all);
  const bool odd = draw.one_in(4);
  std::vector<int> kinds;
  for (int c = 0; c < n_covariates; ++c) {
    kinds.push_back(odd ? draw.from(0, 4) : draw.from(0, 1));
  }
  for (int i = 0; i < n_samples; ++i) {
    const size_t first = all.covariates.size();
    for (int c = 0; c < n_covariates; ++c) {
      all.covariates.push_back(covariate_value(draw,
                                               c == 0 && kinds[0] == 4 ? 0 : kinds[static_cast<size_t>(c)],
                                               c == 0 ? 0.0f : all.covariates[first]));
    }
  }
  drawn.plain = !odd;
  draw_phenotypes(draw, linear, single, n_covariates, &all);
  all.finish(n_covariates);
  std::vector<bool> missing(static_cast<size_t>(n_samples), false);
  const bool with_missing = n_covariates > 0 && draw.one_in(2);
  for (size_t i = 1; with_missing && i < missing.size(); ++i) {
    missing[i] = draw.one_in(8);  // but the first sample, so that one is left
  }
  drawn.genotype_bytes = regression_file(all, linear);
  if (n_covariates > 0) {
    drawn.covariate_text = covariate_text(all, missing);
    give("covariate", "covariates.txt");
  }
  drawn.data = std::make_unique<RegressionData>();
  keep_complete(all, missing, drawn.data.get());
  return drawn;
}

}  // namespace tavo_test
