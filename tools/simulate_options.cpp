// SPDX-License-Identifier: Apache-2.0
#include "tools/simulate_options.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "tools/number.h"
#include "tools/option_words.h"
#include "util/in_quotes.h"

namespace {

using Value = std::optional<std::string>;

// What a regression takes.
constexpr int kMostCovariates = 7;

// The options whose words need a second look.
struct Given {
  Value transpose, samples, cases, snps, maf, missing, covariates, effect, correlation, seed;
  std::vector<std::string> models;
};

Status expected(const std::string& option, const std::string& found, const std::string& what) {
  return Status::failure("option " + option + ": found " + in_quotes(found) + ", expected " + what);
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  for (size_t begin = 0; begin <= text.size();) {
    const size_t end = std::min(text.find(separator, begin), text.size());
    parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

bool is_frequency(double value) {
  return value > 0.0 && value <= 0.5;
}

Status parse_counts(const Given& given, SimulationPlan* plan) {
  if (!parse_count(*given.samples, kMostItems, &plan->n_samples) || plan->n_samples == 0) {
    return expected("--samples", *given.samples, "an integer from 1 to " + std::to_string(kMostItems));
  }
  if (!parse_count(*given.snps, kMostItems, &plan->n_snps) || plan->n_snps == 0) {
    return expected("--snps", *given.snps, "an integer from 1 to " + std::to_string(kMostItems));
  }
  int64_t seed = 0;
  if (given.seed && !parse_count(*given.seed, std::numeric_limits<int64_t>::max(), &seed)) {
    return expected("--seed", *given.seed, "an integer from 0 to 2^63 - 1");
  }
  plan->seed = given.seed ? static_cast<uint64_t>(seed) : plan->seed;
  return {};
}

// A number of samples, or with a point a share of them, rounded to the nearest number.
Status parse_cases(const Value& given, SimulationPlan* plan) {
  const std::string text = given.value_or("0.5");
  if (parse_count(text, plan->n_samples, &plan->n_cases)) {
    return {};
  }
  double share = 0.0;
  if (text.find('.') == std::string::npos || !parse_number(text, &share) || share < 0.0 || share > 1.0) {
    return expected("--cases", text,
                    "a number of samples from 0 to " + std::to_string(plan->n_samples) +
                        ", or a share with a point, from 0.0 to 1.0");
  }
  plan->n_cases = std::llround(share * static_cast<double>(plan->n_samples));
  return {};
}

Status parse_background(const Given& given, SimulationPlan* plan) {
  if (given.maf) {
    const std::vector<std::string> ends = split(*given.maf, '-');
    if (ends.size() > 2 || !parse_number(ends.front(), &plan->lowest_maf) ||
        !parse_number(ends.back(), &plan->highest_maf) || !is_frequency(plan->lowest_maf) ||
        !is_frequency(plan->highest_maf) || plan->lowest_maf > plan->highest_maf) {
      return expected("--maf", *given.maf,
                      "a frequency or a range such as 0.05-0.5, above 0 and at most 0.5");
    }
  }
  if (given.missing &&
      (!parse_number(*given.missing, &plan->missing) || plan->missing < 0.0 || plan->missing >= 1.0)) {
    return expected("--missing", *given.missing, "a share from 0 to below 1");
  }
  return {};
}

Status parse_covariates(const Given& given, CovariateRules* rules) {
  int64_t count = 0;
  if (given.covariates && (!parse_count(*given.covariates, kMostCovariates, &count) || count == 0)) {
    return expected("--covariates", *given.covariates,
                    "an integer from 1 to " + std::to_string(kMostCovariates));
  }
  rules->count = static_cast<int>(count);
  rules->effects.assign(static_cast<size_t>(count), 0.0);
  if (given.effect) {
    const std::vector<std::string> texts = split(*given.effect, ',');
    const bool fits = texts.size() == 1 || texts.size() == rules->effects.size();
    for (size_t j = 0; j < rules->effects.size(); ++j) {
      if (!fits || !parse_number(texts[texts.size() == 1 ? 0 : j], &rules->effects[j])) {
        return expected("--covariate-effect", *given.effect,
                        "a number, or " + std::to_string(count) + " separated by commas");
      }
    }
  }
  if (given.correlation && (!parse_number(*given.correlation, &rules->correlation) ||
                            rules->correlation < 0.0 || rules->correlation >= 1.0)) {
    return expected("--covariate-correlation", *given.correlation, "a number from 0 to below 1");
  }
  return {};
}

Status parse_positions(const std::string& text, int64_t n_snps, std::vector<int64_t>* positions) {
  for (const std::string& part : split(text, '+')) {
    int64_t position = 0;
    if (!parse_count(part, n_snps, &position) || position == 0) {
      return expected("--model at", text, "positions from 1 to " + std::to_string(n_snps) + " joined by +");
    }
    positions->push_back(position - 1);
  }
  return {};
}

// One KEY=VALUE of a model.
Status parse_model_part(const std::string& key, const std::string& value, int64_t n_snps,
                        ModelRequest* request) {
  EpistaticRules& rules = request->rules;
  if (key == "order") {
    int64_t order = 0;
    if (!parse_count(value, kLargestEpistaticOrder, &order) || order < kSmallestEpistaticOrder) {
      return expected("--model order", value,
                      "an integer from " + std::to_string(kSmallestEpistaticOrder) + " to " +
                          std::to_string(kLargestEpistaticOrder));
    }
    rules.order = static_cast<int>(order);
  } else if (key == "maf") {
    if (!parse_number(value, &rules.maf) || !is_frequency(rules.maf)) {
      return expected("--model maf", value, "a frequency above 0, at most 0.5");
    }
  } else if (key == "heritability") {
    if (!parse_number(value, &rules.heritability) || rules.heritability <= 0.0 || rules.heritability > 1.0) {
      return expected("--model heritability", value, "a number above 0, at most 1");
    }
  } else if (key == "prevalence") {
    if (!parse_number(value, &rules.prevalence) || rules.prevalence <= 0.0 || rules.prevalence >= 1.0) {
      return expected("--model prevalence", value, "a number between 0 and 1");
    }
  } else if (key == "at") {
    return parse_positions(value, n_snps, &request->positions);
  } else {
    return expected("--model", key, "order, maf, heritability, prevalence, at or file");
  }
  return {};
}

Status parse_model(const std::string& text, int64_t n_snps, ModelRequest* request) {
  request->text = text;
  std::set<std::string> keys;
  for (size_t begin = 0; begin <= text.size();) {
    const size_t equals = text.find('=', begin);
    const std::string key = text.substr(begin, std::min(equals, text.find(',', begin)) - begin);
    if (equals == std::string::npos || begin + key.size() != equals) {
      return expected("--model", text.substr(begin), "KEY=VALUE parts separated by commas");
    }
    if (!keys.insert(key).second) {
      return Status::failure("option --model: " + key + " is given twice");
    }
    // The name of a file may hold commas, so it comes last.
    if (key == "file") {
      request->file = text.substr(equals + 1);
      break;
    }
    const size_t end = std::min(text.find(',', equals), text.size());
    const std::string value = text.substr(equals + 1, end - equals - 1);
    if (Status status = parse_model_part(key, value, n_snps, request); !status.ok()) {
      return status;
    }
    begin = end + 1;
  }
  if (request->file) {
    return keys.size() == (keys.contains("at") ? 2 : 1) && !request->file->empty()
               ? Status()
               : Status::failure("option --model: file=PATH goes with at only, and has a path");
  }
  return keys.contains("maf") && keys.contains("heritability")
             ? Status()
             : Status::failure("option --model: " + in_quotes(text) +
                               " needs maf and heritability, or file=PATH");
}

Status parse_values(const Given& given, SimulateOptions* options) {
  bool transposed = false;
  Status status = one_of("--transpose", given.transpose, "0", "1", &transposed);
  options->layout = transposed ? Layout::kTransposed : Layout::kNormal;
  if (status.ok()) {
    status = parse_counts(given, &options->plan);
  }
  if (status.ok()) {
    status = parse_cases(given.cases, &options->plan);
  }
  if (status.ok()) {
    status = parse_background(given, &options->plan);
  }
  if (status.ok()) {
    status = parse_covariates(given, &options->covariates);
  }
  for (const std::string& text : given.models) {
    if (status.ok()) {
      status = parse_model(text, options->plan.n_snps, &options->models.emplace_back());
    }
  }
  return status;
}

Status check_together(const Given& given, const SimulateOptions& options) {
  struct Rule {
    bool broken;
    const char* message;
  };
  const Rule rules[] = {
      {!options.output && !options.make_bed, "--out or --make-bed is needed"},
      {!given.samples || !given.snps, "--samples and --snps are needed"},
      {given.transpose && !options.output, "--transpose needs --out"},
      {given.covariates.has_value() != options.covar_out.has_value(),
       "--covariates and --covar-out go together"},
      {(given.effect || given.correlation) && !given.covariates,
       "--covariate-effect and --covariate-correlation need --covariates"},
      {options.truth && given.models.empty(), "--truth needs --model"},
  };
  for (const Rule& rule : rules) {
    if (rule.broken) {
      return Status::failure(rule.message);
    }
  }
  return {};
}

}  // namespace

Status parse_simulate_options(const std::vector<std::string>& words, SimulateOptions* options) {
  *options = SimulateOptions();
  if (words.size() == 1 && same_word(words[0], "--help")) {
    options->task = SimulateOptions::Task::kHelp;
    return {};
  }
  if (words.size() == 1 && same_word(words[0], "--version")) {
    options->task = SimulateOptions::Task::kVersion;
    return {};
  }
  Given given;
  Status status = collect_options(words, {{"--out", &options->output},
                                          {"--make-bed", &options->make_bed},
                                          {"--transpose", &given.transpose},
                                          {"--truth", &options->truth},
                                          {"--samples", &given.samples},
                                          {"--cases", &given.cases},
                                          {"--snps", &given.snps},
                                          {"--maf", &given.maf},
                                          {"--missing", &given.missing},
                                          {"--model", nullptr, nullptr, &given.models},
                                          {"--covariates", &given.covariates},
                                          {"--covariate-effect", &given.effect},
                                          {"--covariate-correlation", &given.correlation},
                                          {"--covar-out", &options->covar_out},
                                          {"--seed", &given.seed}});
  if (status.ok()) {
    status = check_together(given, *options);
  }
  return status.ok() ? parse_values(given, options) : status;
}

std::string simulate_usage() {
  return R"(usage: tavo-simulate OUTPUT --samples N --snps M [--OPTION VALUE ...]

Simulates case/control data: SNPs in Hardy-Weinberg equilibrium, and among them interactions with a known model.

Output, at least one of:
  --out PATH
      the genotype file for tavo
  --make-bed PREFIX
      PLINK 1 binary: PREFIX.bed, PREFIX.bim, PREFIX.fam
About the output:
  --transpose 0|1
      1: the SNP-major layout of --out (default 0)
  --truth PATH
      a table of what was planted where, tab-separated, a row for each joint genotype of each model

Data:
  --samples N
      samples
  --cases N|SHARE
      cases: a number, or with a point a share of the samples (default 0.5)
  --snps M
      SNPs, those of the interactions included; they are called snp1, snp2, ...
  --maf LOW-HIGH
      the other SNPs' minor allele frequencies are uniform in this range (default 0.05-0.5)
  --missing SHARE
      the probability that a genotype is missing (default 0)
  --seed N
      the same seed gives the same data, everywhere (default 1)

Interactions, any number of them:
  --model maf=Q,heritability=H[,order=K][,prevalence=P][,at=I+J...]
      a pure epistatic model of K SNPs, 2 (default) to 5: no subset of its SNPs has an effect; P is 0.5 by
      default; at: the positions of its SNPs, from 1 (default: random ones)
  --model [at=I+J...,]file=PATH
      a penetrance table: the word maf and a frequency for each SNP, the word penetrance and a number for each
      joint genotype, that of the first SNP changing fastest

Covariates:
  --covariates N
      normal covariates c1, c2, ..., 7 at most
  --covariate-effect B[,B...]
      log odds ratio per standard deviation, of all or of each (default 0)
  --covariate-correlation R
      of any two, within cases and within controls (default 0)
  --covar-out PATH
      the covariate file for tavo

Others:
  --help, --version
      alone on the command line

Examples:

  tavo-simulate --out data.tavo --samples 2000 --snps 1000 --model maf=0.3,heritability=0.05 --truth truth.tsv
  tavo-simulate --make-bed study --samples 5000 --cases 0.2 --snps 100000 --missing 0.01 --seed 7
      --model order=3,maf=0.4,heritability=0.1,prevalence=0.3 --model at=10+20,file=table.txt

Status: 0 done; 1 refused, or the output cannot be written; 2 wrong usage; 128 + signal when stopped.
)";
}
