// SPDX-License-Identifier: Apache-2.0
#include "bench/bench_data.h"

#include <random>

#include "lib/packed_genotypes.h"

BenchData::BenchData(const BenchOptions& options) {
  std::mt19937 random(2026);
  std::uniform_real_distribution<double> share(0.0, 1.0);
  const auto n_samples = static_cast<size_t>(options.samples);
  const auto n_snps = static_cast<size_t>(options.snps);
  const size_t width = static_cast<size_t>(packed_words(options.snps));
  words_.assign(n_samples * width, 0);
  for (size_t snp = 0; snp < n_snps; ++snp) {
    const double frequency = 0.05 + 0.45 * share(random);
    for (size_t s = 0; s < n_samples; ++s) {
      const uint32_t copies = (share(random) < frequency ? 1u : 0u) + (share(random) < frequency ? 1u : 0u);
      const uint32_t genotype = share(random) < options.missing ? kMissingGenotype : copies;
      words_[s * width + snp / kGenotypesPerWord] |= genotype << (2 * (snp % kGenotypesPerWord));
    }
  }
  constexpr size_t kFolds = 10;
  training_.resize(kFolds);
  testing_.resize(kFolds);
  const auto n_cases = static_cast<size_t>(options.cases * options.samples);
  for (size_t s = 0; s < n_samples; ++s) {
    classes_.push_back(s < n_cases ? 1 : 0);
    phenotypes_.push_back(classes_.back());
    scores_.push_back(static_cast<float>(share(random) - 0.5));
    for (size_t n = 0; n < std::size(covariates_); ++n) {
      for (size_t c = 0; c < n; ++c) {
        covariates_[n].push_back(static_cast<float>(share(random)));
      }
    }
    samples_.push_back(static_cast<int>(s));
    for (size_t f = 0; f < kFolds; ++f) {
      (s % kFolds == f ? testing_ : training_)[f].push_back(static_cast<int>(s));
    }
  }
  const float threshold = static_cast<float>(n_cases) / static_cast<float>(n_samples - n_cases);
  for (size_t f = 0; f < kFolds; ++f) {
    folds_.push_back({training_[f], testing_[f], threshold});
  }
  problem_.words = words_.data();
  problem_.words_per_row = static_cast<int64_t>(width);
  problem_.n_samples = options.samples;
  problem_.n_snps = options.snps;
  problem_.classes = classes_.data();
}

Problem BenchData::scored() const {
  Problem scored = problem_;
  scored.scores = scores_.data();
  return scored;
}

Problem BenchData::fitted(int n_covariates) const {
  Problem fitted = problem_;
  fitted.classes = nullptr;
  fitted.phenotypes = phenotypes_.data();
  fitted.covariates = covariates_[n_covariates].data();
  fitted.n_covariates = n_covariates;
  return fitted;
}

WorkerSetupCommand BenchData::search_setup(const ScoringRules& rules) const {
  WorkerSetupCommand setup;
  setup.kind = LoopKind::kSearch;
  setup.rules = rules;
  setup.folds = folds_;
  setup.samples = samples_;
  setup.list_size = 10;
  return setup;
}
