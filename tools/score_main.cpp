// SPDX-License-Identifier: Apache-2.0
//
// tavo-score: makes the score file of a score-based run: each sample's residual from a model of the
// covariates alone.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "tools/option_words.h"
#include "tools/program.h"
#include "tools/score_inputs.h"
#include "util/output_file.h"
#include "util/stop_signal.h"

namespace {

constexpr const char* kProgram = "tavo-score";

constexpr const char* kUsage =
    "usage: tavo-score --in GENOTYPES --out SCORES [--OPTION VALUE ...]\n\n"
    "Writes one score per sample for tavo --score: the residual of its phenotype from a model of the "
    "covariates alone.\n\n"
    "  --in FILE\n      genotype file\n"
    "  --out FILE\n      score file to write\n"
    "  --covariate FILE\n      covariates, tab-separated: a header, two identifiers and the values; without "
    "it the model\n"
    "      is the mean\n"
    "  --phenotype logistic|linear\n      classes, 1 a case (default), or quantitative phenotypes\n"
    "  --missing-covariate refuse|zero\n      samples that lack a covariate: end the program (default), or "
    "score 0\n"
    "  --transpose 0|1\n      the layout of the genotype file where its size fits both (default 0)\n"
    "  --help, --version\n      alone on the command line\n\n"
    "Example: scores that leave age and sex out of account:\n\n"
    "  tavo-score --in data.tavo --covariate data.cov --out scores.txt\n\n"
    "Status: 0 done; 1 refused, or the output cannot be written; 2 wrong usage; 128 + signal when stopped.\n";

struct Options {
  std::optional<std::string> in;
  std::optional<std::string> out;
  std::optional<std::string> covariate;
  std::optional<std::string> phenotype;
  std::optional<std::string> missing_covariate;
  std::optional<std::string> transpose;
};

Status parse(const std::vector<std::string>& words, Options* options) {
  Status status = collect_options(words, {{"--in", &options->in},
                                          {"--out", &options->out},
                                          {"--covariate", &options->covariate},
                                          {"--phenotype", &options->phenotype},
                                          {"--missing-covariate", &options->missing_covariate},
                                          {"--transpose", &options->transpose}});
  if (status.ok() && (!options->in || !options->out)) {
    return Status::failure("--in and --out are needed");
  }
  return status;
}

// The scores of all samples; those without covariates get 0.
Status make_scores(const std::vector<double>& phenotypes, const CovariateTable& table, PhenotypeKind kind,
                   std::vector<double>* scores) {
  Covariates x;
  x.n_covariates = table.covariates.n_covariates;
  std::vector<double> y;
  for (size_t i = 0; i < phenotypes.size(); ++i) {
    if (table.missing[i] == 0) {
      const auto row = table.covariates.values.begin() + static_cast<ptrdiff_t>(i * x.n_covariates);
      x.values.insert(x.values.end(), row, row + static_cast<ptrdiff_t>(x.n_covariates));
      y.push_back(phenotypes[i]);
    }
  }
  x.n_samples = y.size();
  if (y.size() <= x.n_covariates) {
    return Status::failure(std::to_string(y.size()) + " samples with all covariates are too few for " +
                           std::to_string(x.n_covariates + 1) + " coefficients");
  }
  std::vector<double> coefficients;
  std::vector<double> residuals;
  Status status = kind == PhenotypeKind::kLogistic ? logistic_residuals(x, y, &coefficients, &residuals)
                                                   : linear_residuals(x, y, &coefficients, &residuals);
  if (!status.ok()) {
    return status;
  }
  scores->clear();
  size_t next = 0;
  for (const uint8_t missing : table.missing) {
    scores->push_back(missing != 0 ? 0.0 : residuals[next++]);
  }
  return {};
}

Status write_scores(const std::string& path, const std::vector<double>& scores) {
  OutputFile file;
  Status status = file.open(path);
  std::string text = "score\n";
  for (const double score : scores) {
    // Nine digits read back to the same float, which is what a run computes with.
    char line[64];
    std::snprintf(line, sizeof(line), "%.9g\n", static_cast<double>(static_cast<float>(score)));
    text += line;
  }
  if (status.ok()) {
    status = file.write(text.data(), text.size());
  }
  return status.ok() ? file.commit() : status;
}

// The scores would take the place of what they are made from.
Status check_output(const Options& options) {
  std::error_code not_there;
  if (std::filesystem::equivalent(*options.in, *options.out, not_there)) {
    return Status::failure(*options.out + ": --out is the same file as --in");
  }
  if (options.covariate && std::filesystem::equivalent(*options.covariate, *options.out, not_there)) {
    return Status::failure(*options.out + ": --out is the same file as --covariate");
  }
  return {};
}

// The integers 0 and 1 of a class field, read as floats, are 0 and a number far below the smallest normal
// one.
bool look_like_classes(const std::vector<double>& phenotypes) {
  return std::all_of(phenotypes.begin(), phenotypes.end(),
                     [](double value) { return std::fabs(value) < static_cast<double>(FLT_MIN); });
}

Status run(const Options& options, bool linear, bool zero_for_missing, bool transposed) {
  if (Status output = check_output(options); !output.ok()) {
    return output;
  }
  const PhenotypeKind kind = linear ? PhenotypeKind::kLinear : PhenotypeKind::kLogistic;
  std::vector<double> phenotypes;
  size_t n_other_classes = 0;
  Status status = read_phenotypes(*options.in, transposed ? Layout::kTransposed : Layout::kNormal, kind,
                                  &phenotypes, &n_other_classes);
  if (!status.ok()) {
    return status;
  }
  if (stop_signal() != 0) {
    return stopped(stop_signal());
  }
  if (n_other_classes > 0) {
    complain(kProgram, *options.in + ": " + std::to_string(n_other_classes) +
                           " samples have a class other than 0 and 1 and count as controls");
  }
  if (linear && look_like_classes(phenotypes)) {
    return Status::failure(*options.in +
                           ": the class fields hold small integers or nothing but 0, expected floats for "
                           "--phenotype linear");
  }
  CovariateTable table;
  table.covariates.n_samples = phenotypes.size();
  table.missing.assign(phenotypes.size(), 0);
  if (options.covariate) {
    table = CovariateTable();
    if (status = read_covariate_table(*options.covariate, phenotypes.size(), &table); !status.ok()) {
      return status;
    }
  }
  if (table.n_missing > 0) {
    const std::string what = *options.covariate + ": " + std::to_string(table.n_missing) +
                             " samples lack a covariate, the first in line " +
                             std::to_string(table.first_missing_line);
    if (!zero_for_missing) {
      return Status::failure(what + "; --missing-covariate zero gives them score 0");
    }
    complain(kProgram, what + "; they get score 0");
  }
  std::vector<double> scores;
  if (status = make_scores(phenotypes, table, kind, &scores); !status.ok()) {
    return Status::failure(options.covariate.value_or(*options.in) + ": " + status.message());
  }
  return stop_signal() != 0 ? stopped(stop_signal()) : write_scores(*options.out, scores);
}

int run_command(const std::vector<std::string>& words) {
  if (words.size() == 1 && same_word(words[0], "--help")) {
    return print_result(kProgram, kUsage);
  }
  if (words.size() == 1 && same_word(words[0], "--version")) {
    return print_result(kProgram, version_text(kProgram));
  }
  Options options;
  bool linear = false;
  bool zero = false;
  bool transposed = false;
  Status usage = parse(words, &options);
  if (usage.ok()) {
    usage = one_of("--phenotype", options.phenotype, "logistic", "linear", &linear);
  }
  if (usage.ok()) {
    usage = one_of("--missing-covariate", options.missing_covariate, "refuse", "zero", &zero);
  }
  if (usage.ok()) {
    usage = one_of("--transpose", options.transpose, "0", "1", &transposed);
  }
  if (!usage.ok()) {
    return wrong_usage(kProgram, usage);
  }
  catch_stop_signals();
  const Status status = run(options, linear, zero, transposed);
  return status.ok() ? 0 : refused(kProgram, status);
}

}  // namespace

int main(int argc, char** argv) {
  return run_program(kProgram, argc, argv, run_command);
}
