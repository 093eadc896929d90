// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/search_case.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tavo_test {

namespace {

constexpr const char* kMeasures[] = {"ba",    "accuracy",  "homogeneity", "gamma", "tau-b",
                                     "tau-c", "somers_d1", "somers_d2",   "nmi",   "lr"};
constexpr const char* kMissing[] = {"none", "mc", "complete", "available"};

// Few samples give many ties; sizes around a word of a bit plane and around the lanes of a vector are where
// padding shows.
int draw_samples(Draw& draw) {
  if (draw.one_in(3)) {
    return draw.from(1, 12);
  }
  return draw.one_in(2)
             ? draw.of<int>({15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 129, 191, 192, 193, 255, 256, 257})
             : draw.from(13, 300);
}

int draw_snps(Draw& draw) {
  return draw.one_in(3) ? draw.of<int>({1, 2, 7, 8, 9, 15, 16, 17, 31, 32, 33}) : draw.from(1, 30);
}

double combinations_of(int n, int k) {
  double count = n < k ? 0.0 : 1.0;
  for (int i = 0; i < k && n >= k; ++i) {
    count = count * (n - i) / (i + 1);
  }
  return count;
}

// Genotypes of the reference's run, in steps of about ten nanoseconds.
double cost(const naive::Run& run, int n_samples, int n_snps) {
  double cost = 0.0;
  for (int order = run.min_order; order <= run.max_order; ++order) {
    const double cells = std::pow(run.missing == 1 ? 4.0 : 3.0, order);
    const double combinations = combinations_of(n_snps, order);
    cost += combinations * (n_samples + 2.0 * cells + 40.0) * (run.mode < 2 ? run.folds : 1);
  }
  return cost;
}

// One kind of SNP per column.
void draw_genotypes(Draw& draw, double missing, naive::GenotypeData* data) {
  const bool odd = draw.one_in(4);
  const bool all_missing = draw.one_in(60);
  for (int j = 0; j < data->n_snps; ++j) {
    const int kind = odd ? draw.from(0, 7) : 0;
    const double frequency = draw.of<double>({0.5, 0.5, 0.3, 0.1, 0.02});
    const bool uniform = draw.one_in(4);
    const auto constant = static_cast<uint8_t>(draw.from(0, 3));
    const int source = draw.from(0, std::max(0, j - 1));
    for (int s = 0; s < data->n_samples; ++s) {
      uint8_t& genotype = data->genotypes[static_cast<size_t>(s * data->n_snps + j)];
      if (all_missing) {
        genotype = 3;
      } else if (kind == 1) {
        genotype = constant;
      } else if (kind >= 2 && kind <= 4 && j > 0) {
        genotype = data->at(s, source);
      } else if (uniform) {
        genotype = static_cast<uint8_t>(draw.from(0, 2));
      } else {
        genotype =
            static_cast<uint8_t>((draw.share() < frequency ? 1 : 0) + (draw.share() < frequency ? 1 : 0));
      }
      if (missing > 0.0 && draw.share() < missing) {
        genotype = 3;
      }
    }
  }
}

void draw_classes(Draw& draw, naive::GenotypeData* data) {
  const double cases =
      draw.one_in(30) ? draw.of<double>({0.0, 1.0}) : draw.of<double>({0.5, 0.5, 0.4, 0.2, 0.8, 0.05, 0.95});
  const bool effect = data->n_snps > 1 && draw.one_in(2);
  for (int s = 0; s < data->n_samples; ++s) {
    bool is_case = draw.share() < cases;
    if (effect && draw.one_in(2)) {
      is_case = (data->at(s, 0) + data->at(s, data->n_snps - 1)) % 2 == 1;
    }
    data->classes.push_back(is_case ? 1 : 0);
  }
  if (draw.one_in(12)) {
    // Neither 0 nor 1: a control.
    for (uint8_t& value : data->classes) {
      value = static_cast<uint8_t>(draw.one_in(4) ? draw.from(2, 255) : value);
    }
  }
}

naive::GenotypeData draw_data(Draw& draw, int n_samples, int n_snps) {
  naive::GenotypeData data;
  data.n_samples = n_samples;
  data.n_snps = n_snps;
  data.genotypes.resize(static_cast<size_t>(n_samples) * static_cast<size_t>(n_snps));
  draw_genotypes(draw, draw.one_in(2) ? 0.0 : draw.of<double>({0.002, 0.02, 0.1, 0.4, 0.9}), &data);
  draw_classes(draw, &data);
  for (int j = 0; j < n_snps; ++j) {
    data.names.push_back("rs" + std::to_string(j));
  }
  return data;
}

// The file's bytes. What carries nothing is not always 0: bits behind the last genotype of a row, bytes of a
// class beyond its lowest, bytes behind the last record.
std::string draw_file(Draw& draw, const naive::GenotypeData& data, bool transposed) {
  const int width = draw.one_in(3) ? draw.from(8, 255) : 0;
  std::string bytes = transposed ? transposed_file(data, width) : normal_file(data, width);
  if (!draw.one_in(3)) {
    return bytes;
  }
  const size_t per_row = static_cast<size_t>(transposed ? data.n_samples : data.n_snps);
  const size_t rows = static_cast<size_t>(transposed ? data.n_snps : data.n_samples);
  const size_t words = (per_row + 15) / 16;
  const size_t row = 4 * words + (transposed ? 0 : 4);
  const size_t body = bytes.size() - rows * row;
  for (size_t r = 0; r < rows; ++r) {
    for (size_t g = per_row; g < 16 * words; ++g) {
      char& byte = bytes[body + (r + 1) * row - 4 * words + g / 4];
      byte = static_cast<char>(byte | draw.from(0, 3) << (2 * (g % 4)));
    }
    for (size_t b = 1; b < 4 && !transposed; ++b) {
      bytes[body + r * row + b] = static_cast<char>(draw.from(0, 255));
    }
  }
  return bytes + std::string(draw.one_in(4) ? 5 : 0, 'x');
}

// Scores with exact zeros, sign changes, sums that cancel, denormals and numbers that are none.
std::vector<std::string> draw_scores(Draw& draw, int n) {
  std::vector<std::string> texts;
  const bool odd = draw.one_in(8);
  for (int i = 0; i < n; ++i) {
    const double value = draw.from(-1000, 1000) / 997.0;
    char text[64];
    switch (draw.from(0, 9)) {
      case 0:
        texts.emplace_back("0");
        continue;
      case 1:
        texts.emplace_back(draw.one_in(2) ? "1" : "-1");
        continue;
      case 2:
        std::snprintf(text, sizeof(text), "%.9g", value * 1e8);
        break;
      case 3:
        std::snprintf(text, sizeof(text), "%.9g", value * 1e-42);
        break;
      case 4:
        std::snprintf(text, sizeof(text), "%s",
                      odd ? draw.of<const char*>({"nan", "inf", "-inf", "1e39", "-0.0"}) : "-0.0");
        break;
      default:
        std::snprintf(text, sizeof(text), "%.9g", value);
        break;
    }
    texts.emplace_back(text);
  }
  return texts;
}

void draw_order(Draw& draw, naive::Run* run, Words* options) {
  if (draw.one_in(8)) {
    return;
  }
  run->min_order = draw.of<int>({1, 1, 2, 2, 2, 3, 3, 4, 5});
  // Now and then a range that is empty.
  run->max_order = draw.one_in(20)  ? std::max(1, run->min_order - 1)
                   : draw.one_in(3) ? std::min(5, run->min_order + draw.from(1, 2))
                                    : run->min_order;
  run->order_text = run->min_order == run->max_order && draw.one_in(2)
                        ? std::to_string(run->min_order)
                        : std::to_string(run->min_order) + "-" + std::to_string(run->max_order);
  options->insert(options->end(), {"--order", run->order_text});
}

}  // namespace

SearchCase draw_search(Draw& draw, const SearchKind& kind) {
  SearchCase drawn;
  naive::Run& run = drawn.run;
  Words& options = drawn.options;
  const auto give = [&](const std::string& option, const std::string& value) {
    options.push_back("--" + draw.any_case(option));
    options.push_back(value);
  };
  run.mode = kind.mode;
  run.input = "in.tavo";
  run.output = "out.csv";
  give("in", run.input);
  give("out", run.output);
  draw_order(draw, &run, &options);
  run.transposed = draw.one_in(kind.mode >= 2 ? 3 : 15);
  if (run.transposed) {
    give("transpose", draw.of<std::string>({"1", "2", "-1"}));
  } else if (draw.one_in(8)) {
    give("transpose", "0");
  }
  // Now and then more last SNPs than the row filter looks at in one go.
  const bool wide = run.max_order == 2 && kind.mode % 2 == 1 && draw.one_in(25);
  if (wide || !draw.one_in(8)) {
    run.folds = draw.from(1, wide ? 3 : 12);
    give("cv", std::to_string(run.folds));
  }
  if (draw.one_in(8)) {
    run.first_fold = draw.from(0, run.folds - 1);
    give("cvfrom", std::to_string(run.first_fold));
  }
  run.measure = kind.mode >= 2 ? draw.from(0, draw.one_in(4) ? 9 : 2) : draw.from(0, 9);
  if (kind.with_scores && !draw.one_in(8)) {
    run.measure = 0;
  }
  run.measure_text = draw.any_case(kMeasures[run.measure]);
  give("measure", run.measure_text);
  if (!draw.one_in(4)) {
    run.missing = draw.from(0, 3);
    run.missing_text = draw.any_case(kMissing[run.missing]);
    give("missing", *run.missing_text);
  }
  if (!draw.one_in(4)) {
    run.tie = draw.from(-1, 2);
    run.tie_text = std::to_string(run.tie);
    give("tie", *run.tie_text);
  }
  if (!draw.one_in(4)) {
    run.top = draw.of<int>({0, 1, 2, 3, 5, 8, 20, 60, 1000});
    run.top_text = std::to_string(run.top);
    give("top", *run.top_text);
  }
  if (draw.one_in(3)) {
    run.shuffling = true;
    run.seed =
        draw.one_in(4) ? static_cast<unsigned>(draw.random()()) : static_cast<unsigned>(draw.from(0, 100));
    run.shuffling_text = draw.of<std::string>({"1", "5", "-2"});
    give("shuffling", *run.shuffling_text);
    give("seed", std::to_string(run.seed));
  }
  if (kind.mode != 1) {
    give("mode", std::to_string(kind.mode));
  } else if (!wide && draw.one_in(4)) {
    drawn.permutations = draw.from(1, 5);
    give("permutations", std::to_string(drawn.permutations));
    if (run.shuffling) {
      run.permutation_seed = run.seed;
    } else if (draw.one_in(2)) {
      run.permutation_seed = static_cast<unsigned>(draw.from(0, 100));
      give("seed", std::to_string(*run.permutation_seed));
    }
  }

  const int n_samples = wide ? draw.from(2, 100) : draw_samples(draw);
  int n_snps = wide ? draw.of<int>({511, 512, 513, 530}) : draw_snps(draw);
  const double limit = wide ? 6e7 : 3e6;
  while (cost(run, n_samples, n_snps) * (1 + drawn.permutations) > limit) {
    --n_snps;
  }
  drawn.data = draw_data(draw, n_samples, n_snps);
  drawn.genotype_bytes = draw_file(draw, drawn.data, run.transposed);
  if (kind.with_scores) {
    run.score_path = "scores.txt";
    drawn.score_text = "score\n";
    for (const std::string& score : draw_scores(draw, n_samples)) {
      drawn.score_text += score + "\n";
      run.scores.push_back(static_cast<float>(std::strtod(score.c_str(), nullptr)));
    }
    drawn.score_text += draw.one_in(8) ? "17\n" : "";
    give("score", run.score_path);
  }
  drawn.refused = kind.with_scores && run.transposed && kind.mode < 2;
  drawn.tidy = draw.one_in(2);
  if (drawn.tidy) {
    give("tidy", "tidy.tsv");
  }
  return drawn;
}

naive::Run run_in(const SearchCase& drawn, const Setting& setting) {
  naive::Run run = drawn.run;
  run.workers = setting.workers;
  run.blocks = setting.blocks;
  run.threads = setting.threads;
  if (!run.score_path.empty() && run.order_text[0] == '2') {
    run.threads = std::min(run.threads, 150);
  } else if (!run.score_path.empty() && run.order_text[0] == '3') {
    run.threads = std::min(run.threads, 50);
  }
  return run;
}

}  // namespace tavo_test
