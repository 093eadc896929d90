// SPDX-License-Identifier: Apache-2.0
#include "tools/options.h"

#include <algorithm>

#include "tools/number.h"
#include "tools/option_words.h"
#include "util/in_quotes.h"

namespace {

using Value = std::optional<std::string>;

// The options whose words need a second look.
struct Given {
  Value in, bfile, vcf, class_name, in_transpose, count, transpose, info, covar_name, mind, geno, maf;
};

Status parse_share(const char* option, const Value& given, double most, std::optional<double>* share) {
  double value = 0.0;
  if (!given) {
    return {};
  }
  if (!parse_number(*given, &value) || value < 0.0 || value > most) {
    return Status::failure(std::string("option ") + option + ": found " + in_quotes(*given) +
                           ", expected a number from 0 to " + (most < 1.0 ? "0.5" : "1"));
  }
  *share = value;
  return {};
}

Status parse_names(const Value& given, std::optional<std::vector<std::string>>* names) {
  if (!given) {
    return {};
  }
  names->emplace();
  for (size_t begin = 0; begin <= given->size();) {
    const size_t end = std::min(given->find(',', begin), given->size());
    const std::string name = given->substr(begin, end - begin);
    if (name.empty() || std::find((*names)->begin(), (*names)->end(), name) != (*names)->end()) {
      return Status::failure("option --covar-name: found " + in_quotes(*given) +
                             ", expected different names separated by commas");
    }
    (*names)->push_back(name);
    begin = end + 1;
  }
  return {};
}

Status parse_count(const Value& given, bool* other_allele) {
  if (given) {
    *other_allele = same_word(*given, "a2") || same_word(*given, "ref");
    if (!*other_allele && !same_word(*given, "a1") && !same_word(*given, "alt")) {
      return Status::failure("option --count: found " + in_quotes(*given) +
                             ", expected a1 (alt) or a2 (ref)");
    }
  }
  return {};
}

// Everything that stands in the words by itself.
Status parse_values(const Given& given, ConvertOptions* options) {
  bool transposed = false;
  bool input_transposed = false;
  Status status = one_of("--transpose", given.transpose, "0", "1", &transposed);
  if (status.ok()) {
    status = one_of("--in-transpose", given.in_transpose, "0", "1", &input_transposed);
  }
  options->layout_given = given.transpose.has_value();
  options->layout = transposed ? Layout::kTransposed : Layout::kNormal;
  if (given.in_transpose) {
    options->input_layout = input_transposed ? Layout::kTransposed : Layout::kNormal;
  }
  if (status.ok()) {
    status = parse_count(given.count, &options->count_other_allele);
  }
  if (status.ok()) {
    status = parse_share("--mind", given.mind, 1.0, &options->filters.mind);
  }
  if (status.ok()) {
    status = parse_share("--geno", given.geno, 1.0, &options->filters.geno);
  }
  if (status.ok()) {
    status = parse_share("--maf", given.maf, 0.5, &options->filters.maf);
  }
  return status.ok() ? parse_names(given.covar_name, &options->covar_names) : status;
}

// Which options go together.
Status check_together(const Given& given, const ConvertOptions& options) {
  struct Rule {
    bool broken;
    const char* message;
  };
  const int n_inputs = (given.in ? 1 : 0) + (given.bfile ? 1 : 0) + (given.vcf ? 1 : 0);
  const Rule rules[] = {
      {n_inputs == 0 || (!options.output && !options.make_bed),
       "--in, --bfile or --vcf and --out or --make-bed are needed, or --info"},
      {n_inputs > 1, "only one of --in, --bfile and --vcf is possible"},
      {(given.class_name || given.in_transpose) && !given.in, "--class and --in-transpose go with --in only"},
      {options.split && !given.vcf, "--split goes with --vcf only"},
      {given.count && given.in, "--count goes with --bfile and --vcf only; --in has no alleles"},
      {given.vcf && !options.pheno, "--vcf needs --pheno"},
      {options.pheno_name && !options.pheno, "--pheno-name needs --pheno"},
      {options.covar.has_value() != options.covar_out.has_value(), "--covar and --covar-out go together"},
      {given.covar_name && !options.covar, "--covar-name needs --covar"},
      {given.transpose && !options.output, "--transpose needs --out or --info"},
      {options.quantitative && options.layout == Layout::kTransposed,
       "--quantitative and --transpose 1 do not go together: the layout has one byte for a class"},
  };
  for (const Rule& rule : rules) {
    if (rule.broken) {
      return Status::failure(rule.message);
    }
  }
  return {};
}

}  // namespace

Status parse_convert_options(const std::vector<std::string>& words, ConvertOptions* options) {
  *options = ConvertOptions();
  if (words.size() == 1 && same_word(words[0], "--help")) {
    options->task = ConvertOptions::Task::kHelp;
    return {};
  }
  if (words.size() == 1 && same_word(words[0], "--version")) {
    options->task = ConvertOptions::Task::kVersion;
    return {};
  }
  Given given;
  FilterOptions& filters = options->filters;
  Status status = collect_options(words, {{"--in", &given.in},
                                          {"--bfile", &given.bfile},
                                          {"--vcf", &given.vcf},
                                          {"--class", &given.class_name},
                                          {"--in-transpose", &given.in_transpose},
                                          {"--split", nullptr, &options->split},
                                          {"--count", &given.count},
                                          {"--out", &options->output},
                                          {"--transpose", &given.transpose},
                                          {"--make-bed", &options->make_bed},
                                          {"--pheno", &options->pheno},
                                          {"--pheno-name", &options->pheno_name},
                                          {"--quantitative", nullptr, &options->quantitative},
                                          {"--covar", &options->covar},
                                          {"--covar-name", &given.covar_name},
                                          {"--covar-out", &options->covar_out},
                                          {"--keep", &filters.keep},
                                          {"--remove", &filters.remove},
                                          {"--extract", &filters.extract},
                                          {"--exclude", &filters.exclude},
                                          {"--mind", &given.mind},
                                          {"--geno", &given.geno},
                                          {"--maf", &given.maf},
                                          {"--info", &given.info}});
  if (status.ok()) {
    status = parse_values(given, options);
  }
  if (!status.ok()) {
    return status;
  }
  if (given.info) {
    if (words.size() != (given.transpose ? 4u : 2u)) {
      return Status::failure("--info goes with --transpose only");
    }
    options->task = ConvertOptions::Task::kInfo;
    options->input = *given.info;
    return {};
  }
  if (status = check_together(given, *options); !status.ok()) {
    return status;
  }
  options->format = given.bfile ? InputFormat::kBed : given.vcf ? InputFormat::kVcf : InputFormat::kFile;
  options->input = given.bfile ? *given.bfile : given.vcf ? *given.vcf : *given.in;
  options->class_name = given.class_name.value_or(options->class_name);
  return {};
}
