// SPDX-License-Identifier: Apache-2.0
#include "tools/simulate_model.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "tools/number.h"

namespace {

size_t cells_of(size_t order) {
  size_t cells = 1;
  for (size_t i = 0; i < order; ++i) {
    cells *= 3;
  }
  return cells;
}

// A function of one SNP's genotype with mean 0 and variance 1 in Hardy-Weinberg equilibrium.
using Contrast = std::array<double, 3>;

// All contrasts, but for their sign, as t goes from -1 to 1: c * additive + s * dominance, the two orthogonal
// to each other, with (c, s) on half of the unit circle. Only + - * / and square roots: the same on every
// platform.
class Contrasts {
 public:
  explicit Contrasts(double maf) {
    const std::array<double, 3> w = hardy_weinberg(maf);
    const double sd = std::sqrt(2.0 * maf * (1.0 - maf));
    for (size_t g = 0; g < 3; ++g) {
      additive_[g] = (static_cast<double>(g) - 2.0 * maf) / sd;
    }
    // Orthogonal to the constant and to the additive one.
    const double q = 1.0 - maf;
    dominance_ = {-maf / q, 1.0, -q / maf};
    double square = 0.0;
    for (size_t g = 0; g < 3; ++g) {
      square += w[g] * dominance_[g] * dominance_[g];
    }
    for (double& value : dominance_) {
      value /= std::sqrt(square);
    }
  }

  Contrast at(double t) const {
    const double c = (1.0 - t * t) / (1.0 + t * t);
    const double s = 2.0 * t / (1.0 + t * t);
    return {c * additive_[0] + s * dominance_[0], c * additive_[1] + s * dominance_[1],
            c * additive_[2] + s * dominance_[2]};
  }

 private:
  Contrast additive_{};
  Contrast dominance_{};
};

// The largest factors of the product of `order` equal contrasts that keep K + factor * product in [0, 1]: one
// above 0 and one below.
struct Scales {
  double up;
  double down;
};

Scales largest_scales(const Contrast& u, int order, double prevalence) {
  const auto [least, most] = std::minmax_element(u.begin(), u.end());
  double low = *least;
  double high = *most;
  for (int i = 1; i < order; ++i) {
    const auto ends = std::minmax({low * *least, low * *most, high * *least, high * *most});
    low = ends.first;
    high = ends.second;
  }
  // low is below 0 and high above: the product has mean 0.
  return {std::min(prevalence / -low, (1.0 - prevalence) / high),
          std::min(prevalence / high, (1.0 - prevalence) / -low)};
}

double largest_scale(const Contrast& u, int order, double prevalence) {
  const Scales scales = largest_scales(u, order, prevalence);
  return std::max(scales.up, scales.down);
}

// Scales differ by this share of themselves only by rounding.
constexpr double kRounding = 1e-12;

// The contrast with the largest scale: a grid, and ever finer ones around its best point.
Contrast best_contrast(const Contrasts& contrasts, int order, double prevalence) {
  constexpr int kSteps = 200;
  constexpr int kRounds = 6;
  double center = 0.0;
  double width = 1.0;
  double best_t = 0.0;
  double best = 0.0;
  for (int round = 0; round < kRounds; ++round) {
    for (int i = -kSteps; i <= kSteps; ++i) {
      const double t = std::clamp(center + width * i / kSteps, -1.0, 1.0);
      const double scale = largest_scale(contrasts.at(t), order, prevalence);
      if (scale > best * (1.0 + kRounding)) {
        best = scale;
        best_t = t;
      }
    }
    center = best_t;
    width *= 2.0 / kSteps;
  }
  return contrasts.at(best_t);
}

}  // namespace

std::array<double, 3> hardy_weinberg(double frequency) {
  const double other = 1.0 - frequency;
  return {other * other, 2.0 * frequency * other, frequency * frequency};
}

int cell_genotype(size_t cell, int snp) {
  for (int i = 0; i < snp; ++i) {
    cell /= 3;
  }
  return static_cast<int>(cell % 3);
}

std::vector<double> PenetranceModel::cell_probabilities() const {
  std::vector<double> probabilities{1.0};
  for (const double frequency : maf) {
    std::vector<double> longer;
    for (const double share : hardy_weinberg(frequency)) {
      for (const double probability : probabilities) {
        longer.push_back(probability * share);
      }
    }
    probabilities = std::move(longer);
  }
  return probabilities;
}

double PenetranceModel::prevalence() const {
  const std::vector<double> p = cell_probabilities();
  return std::inner_product(p.begin(), p.end(), penetrances.begin(), 0.0);
}

double PenetranceModel::heritability() const {
  const std::vector<double> p = cell_probabilities();
  const double mean = prevalence();
  double variance = 0.0;
  for (size_t c = 0; c < p.size(); ++c) {
    variance += p[c] * (penetrances[c] - mean) * (penetrances[c] - mean);
  }
  return variance / (mean * (1.0 - mean));
}

std::vector<double> PenetranceModel::marginal_penetrances(const std::vector<int>& snps) const {
  const std::vector<double> p = cell_probabilities();
  std::vector<double> cases(cells_of(snps.size()));
  std::vector<double> all(cases.size());
  for (size_t c = 0; c < p.size(); ++c) {
    size_t cell = 0;
    for (size_t i = snps.size(); i-- > 0;) {
      cell = 3 * cell + static_cast<size_t>(cell_genotype(c, snps[i]));
    }
    cases[cell] += p[c] * penetrances[c];
    all[cell] += p[c];
  }
  for (size_t cell = 0; cell < cases.size(); ++cell) {
    cases[cell] /= all[cell];
  }
  return cases;
}

double PenetranceModel::largest_main_effect() const {
  const double mean = prevalence();
  double largest = 0.0;
  for (int snp = 0; snp < order(); ++snp) {
    for (const double penetrance : marginal_penetrances({snp})) {
      largest = std::max(largest, std::fabs(penetrance - mean));
    }
  }
  return largest;
}

Status make_epistatic_model(const EpistaticRules& rules, PenetranceModel* model) {
  const double variance = rules.prevalence * (1.0 - rules.prevalence);
  const Contrast u = best_contrast(Contrasts(rules.maf), rules.order, rules.prevalence);
  const double most = largest_scale(u, rules.order, rules.prevalence);
  const std::string what = "order=" + std::to_string(rules.order) + ",maf=" + shortest_text(rules.maf) +
                           ",heritability=" + shortest_text(rules.heritability) +
                           ",prevalence=" + shortest_text(rules.prevalence);
  const double scale = std::sqrt(rules.heritability * variance);
  if (scale > most * (1.0 + kRounding)) {
    char largest[40];
    // Rounded down, so that the number printed can be asked for.
    std::snprintf(largest, sizeof(largest), "%.6f", std::floor(most * most / variance * 1e6) / 1e6);
    return Status::failure("--model " + what + ": the model of this order, maf and prevalence reaches a " +
                           "heritability of at most " + largest);
  }
  const Scales scales = largest_scales(u, rules.order, rules.prevalence);
  model->description = what;
  model->maf.assign(static_cast<size_t>(rules.order), rules.maf);
  model->penetrances.assign(cells_of(model->maf.size()), 0.0);
  for (size_t c = 0; c < model->penetrances.size(); ++c) {
    double product = scales.up >= scales.down ? scale : -scale;
    for (int snp = 0; snp < rules.order; ++snp) {
      product *= u[static_cast<size_t>(cell_genotype(c, snp))];
    }
    model->penetrances[c] = std::clamp(rules.prevalence + product, 0.0, 1.0);
  }
  return {};
}
