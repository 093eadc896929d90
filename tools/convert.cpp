// SPDX-License-Identifier: Apache-2.0
#include "tools/convert.h"

#include <filesystem>
#include <memory>

#include "tools/bed_source.h"
#include "tools/covariate_output.h"
#include "tools/genotype_info.h"
#include "tools/genotype_writer.h"
#include "tools/open_source.h"
#include "tools/packed_rows.h"
#include "tools/summary.h"
#include "tools/target_paths.h"
#include "tools/variant_blocks.h"

namespace {

std::vector<NamedPath> input_paths(const ConvertOptions& options) {
  std::vector<NamedPath> paths;
  if (options.format == InputFormat::kBed) {
    add_bed_paths(&paths, "--bfile", options.input);
  } else {
    paths.push_back({options.format == InputFormat::kVcf ? "--vcf" : "--in", options.input});
  }
  add_path(&paths, "--pheno", options.pheno);
  add_path(&paths, "--covar", options.covar);
  add_path(&paths, "--keep", options.filters.keep);
  add_path(&paths, "--remove", options.filters.remove);
  add_path(&paths, "--extract", options.filters.extract);
  add_path(&paths, "--exclude", options.filters.exclude);
  return paths;
}

std::vector<NamedPath> output_paths(const ConvertOptions& options) {
  std::vector<NamedPath> paths;
  add_path(&paths, "--out", options.output);
  if (options.make_bed) {
    add_bed_paths(&paths, "--make-bed", *options.make_bed);
  }
  add_path(&paths, "--covar-out", options.covar_out);
  return paths;
}

// One conversion, step by step.
class Conversion {
 public:
  Conversion(const ConvertOptions& options, const StopFlag& stop, ConvertReport* report)
      : options_(options), stop_(stop), report_(*report) {}

  Status run() {
    Status status = check_target_paths(input_paths(options_), output_paths(options_));
    if (status.ok()) {
      status = open_outputs();
    }
    if (status.ok()) {
      status = read_input();
    }
    if (status.ok()) {
      status =
          index_.build(options_.input + (options_.format == InputFormat::kBed ? kFamEnding : ""), *source_);
    }
    if (status.ok()) {
      status = read_phenotypes();
    }
    if (status.ok() && options_.covar) {
      status = covariates_.read(*options_.covar, options_.covar_names, *source_, index_);
    }
    if (status.ok()) {
      status = select();
    }
    if (status.ok()) {
      status = write();
    }
    report_.warnings.insert(report_.warnings.end(), covariates_.warnings().begin(),
                            covariates_.warnings().end());
    return status;
  }

 private:
  // Where a temporary file finds room if the result does.
  std::string scratch_folder() const {
    return std::filesystem::path(options_.output ? *options_.output : *options_.make_bed)
        .parent_path()
        .string();
  }

  Status read_input() {
    Status status = open_source(options_, scratch_folder(), stop_, &source_);
    report_.warnings = source_->warnings();
    notes_ = source_->notes();
    return status;
  }

  Status open_outputs() {
    if (options_.output) {
      writers_.push_back(make_tavo_writer(*options_.output, options_.layout));
    }
    if (options_.make_bed) {
      writers_.push_back(make_bed_writer(*options_.make_bed));
    }
    for (const auto& writer : writers_) {
      if (Status status = writer->open(); !status.ok()) {
        return status;
      }
    }
    return options_.covar_out ? covariates_.open(*options_.covar_out) : Status();
  }

  Status read_phenotypes() {
    Status status = options_.pheno
                        ? file_phenotypes(*options_.pheno, options_.pheno_name, options_.quantitative,
                                          *source_, index_, &phenotypes_)
                        : own_phenotypes(options_.input, *source_, options_.quantitative, &phenotypes_);
    if (status.ok() && !phenotypes_.note.empty()) {
      notes_.push_back(phenotypes_.note);
    }
    return status;
  }

  Status select() {
    selection_.source = source_.get();
    selection_.phenotypes = &phenotypes_;
    selection_.other_allele = options_.count_other_allele;
    for (int64_t i = 0; i < source_->n_samples(); ++i) {
      selection_.samples.push_back(static_cast<uint32_t>(i));
    }
    for (int64_t j = 0; j < source_->variants().size(); ++j) {
      selection_.variants.push_back(static_cast<uint32_t>(j));
    }
    return apply_filters(options_.filters, *source_, index_, stop_, &selection_, &notes_);
  }

  Status write() {
    for (const auto& writer : writers_) {
      if (Status status = writer->begin(selection_); !status.ok()) {
        return status;
      }
    }
    const int64_t n = selection_.n_samples();
    CodeCounts counts{};
    Status status = for_each_block(*source_, selection_, "writing", stop_, [&](const VariantBlock& block) {
      for (int64_t i = 0; i < block.count; ++i) {
        uint32_t* row = block.rows + i * packed_words(n);
        if (selection_.other_allele) {
          count_other_allele(row, n);
        }
        count_codes(row, n, &counts);
      }
      Status added;
      for (const auto& writer : writers_) {
        added = added.ok() ? writer->add(block.rows, block.count) : added;
      }
      return added;
    });
    std::string covariate_note;
    if (status.ok() && options_.covar_out) {
      status = covariates_.write(*options_.covar_out, selection_, &covariate_note);
    }
    std::vector<OutputFile*> files;
    if (options_.covar_out) {
      files.push_back(&covariates_.file());
    }
    for (const auto& writer : writers_) {
      const std::vector<OutputFile*> more = writer->files();
      files.insert(files.end(), more.begin(), more.end());
    }
    status = status.ok() ? commit_together(files) : status;
    if (status.ok()) {
      tell(counts[kMissingGenotype], covariate_note);
    }
    return status;
  }

  void tell(int64_t missing, const std::string& covariate_note) {
    if (std::string warning = one_class_warning(selection_); !warning.empty()) {
      // Classes in the 0/1 coding look like missing ones and controls there.
      const bool from_fam = options_.format == InputFormat::kBed && !options_.pheno;
      report_.warnings.push_back(
          warning + (from_fam ? " (in the .fam file 1 is a control, 2 a case; --pheno takes 0/1)" : ""));
    }
    if (options_.output) {
      notes_.push_back(
          data_set_summary(*options_.output, selection_, missing, layout_name(options_.layout) + " layout"));
    }
    if (options_.make_bed) {
      notes_.push_back(
          data_set_summary(*options_.make_bed + kBedEnding, selection_, missing, "PLINK 1 binary"));
    }
    if (!covariate_note.empty()) {
      notes_.push_back(covariate_note);
    }
    for (const std::string& note : notes_) {
      report_.text += note + "\n";
    }
  }

  const ConvertOptions& options_;
  const StopFlag& stop_;
  ConvertReport& report_;
  std::unique_ptr<GenotypeSource> source_;
  std::vector<std::unique_ptr<GenotypeWriter>> writers_;
  CovariateOutput covariates_;
  SampleIndex index_;
  Phenotypes phenotypes_;
  Selection selection_;
  std::vector<std::string> notes_;
};

}  // namespace

Status convert(const ConvertOptions& options, const StopFlag& stop, ConvertReport* report) {
  return Conversion(options, stop, report).run();
}

Status describe_genotypes(const ConvertOptions& options, ConvertReport* report) {
  GenotypeInfo info;
  Status status = read_genotype_info(options.input, options.layout, &info);
  if (!status.ok()) {
    return status;
  }
  if (options.layout_given && info.header.layout != options.layout) {
    report->warnings.push_back(options.input + ": the file's size fits the " +
                               layout_name(info.header.layout) + " layout only, --transpose is ignored");
  }
  report->text = genotype_info_text(options.input, info);
  return {};
}
