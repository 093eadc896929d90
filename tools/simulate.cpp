// SPDX-License-Identifier: Apache-2.0
#include "tools/simulate.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <set>

#include "tools/bed_source.h"
#include "tools/genotype_header.h"
#include "tools/genotype_writer.h"
#include "tools/packed_rows.h"
#include "tools/summary.h"
#include "tools/target_paths.h"
#include "tools/variant_blocks.h"

namespace {

Status check_paths(const SimulateOptions& options) {
  std::vector<NamedPath> inputs;
  for (const ModelRequest& request : options.models) {
    add_path(&inputs, "--model", request.file);
  }
  std::vector<NamedPath> outputs;
  add_path(&outputs, "--out", options.output);
  if (options.make_bed) {
    add_bed_paths(&outputs, "--make-bed", *options.make_bed);
  }
  add_path(&outputs, "--truth", options.truth);
  add_path(&outputs, "--covar-out", options.covar_out);
  return check_target_paths(inputs, outputs);
}

// Makes the models and finds places for them.
Status plant_models(const SimulateOptions& options, SimulationPlan* plan) {
  std::set<int64_t> taken;
  int64_t n_planted = 0;
  for (const ModelRequest& request : options.models) {
    PlantedModel& planted = plan->models.emplace_back();
    Status status = request.file ? read_penetrance_model(*request.file, &planted.model)
                                 : make_epistatic_model(request.rules, &planted.model);
    if (!status.ok()) {
      return status;
    }
    planted.positions = request.positions;
    if (!planted.positions.empty() && static_cast<int>(planted.positions.size()) != planted.model.order()) {
      return Status::failure("--model " + request.text + ": " + std::to_string(planted.positions.size()) +
                             " positions, expected " + std::to_string(planted.model.order()));
    }
    for (const int64_t position : planted.positions) {
      if (!taken.insert(position).second) {
        return Status::failure("--model " + request.text + ": position " + std::to_string(position + 1) +
                               " is taken already");
      }
    }
    n_planted += planted.model.order();
  }
  if (n_planted > plan->n_snps) {
    return Status::failure("the models have " + std::to_string(n_planted) + " SNPs, but --snps is " +
                           std::to_string(plan->n_snps));
  }
  choose_positions(plan);
  return {};
}

// Two interactions whose prevalences differ cannot both stand in one population as they are.
void warn_of_prevalences(const SimulationPlan& plan, std::vector<std::string>* warnings) {
  for (size_t m = 1; m < plan.models.size(); ++m) {
    if (std::fabs(plan.models[m].model.prevalence() - plan.models[0].model.prevalence()) > 1e-9) {
      warnings->push_back(
          "the models have different prevalences: each one's genotypes follow its own, given the status");
      return;
    }
  }
}

std::string model_note(size_t number, const PlantedModel& planted) {
  std::string places;
  for (const int64_t position : planted.positions) {
    places += (places.empty() ? "" : ", ") + snp_name(position);
  }
  char figures[200];
  std::snprintf(figures, sizeof(figures), "prevalence %.6g, heritability %.6g, largest main effect %.2g",
                planted.model.prevalence(), planted.model.heritability(),
                planted.model.largest_main_effect());
  return "model " + std::to_string(number) + ": " + places + " (" + planted.model.description +
         "): " + figures;
}

// Every sample and every SNP of the source.
void select_all(const GenotypeSource& source, const Phenotypes& phenotypes, Selection* selection) {
  selection->source = &source;
  selection->phenotypes = &phenotypes;
  selection->samples.resize(source.samples().size());
  std::iota(selection->samples.begin(), selection->samples.end(), 0u);
  selection->variants.resize(static_cast<size_t>(source.variants().size()));
  std::iota(selection->variants.begin(), selection->variants.end(), 0u);
}

}  // namespace

Status simulate(const SimulateOptions& options, const StopFlag& stop, SimulateReport* report) {
  SimulationPlan plan = options.plan;
  Status status = check_paths(options);
  if (status.ok()) {
    status = plant_models(options, &plan);
  }
  std::vector<std::unique_ptr<GenotypeWriter>> writers;
  if (options.output) {
    writers.push_back(make_tavo_writer(*options.output, options.layout));
  }
  if (options.make_bed) {
    writers.push_back(make_bed_writer(*options.make_bed));
  }
  for (const auto& writer : writers) {
    status = status.ok() ? writer->open() : status;
  }
  OutputFile truth;
  if (status.ok() && options.truth) {
    status = truth.open(*options.truth);
  }
  OutputFile covariates;
  if (status.ok() && options.covar_out) {
    status = covariates.open(*options.covar_out);
  }
  if (!status.ok()) {
    return status;
  }

  SimulatedSource source(plan);
  Phenotypes phenotypes;
  phenotypes.present.assign(source.samples().size(), 1);
  phenotypes.words = source.classes();
  Selection selection;
  select_all(source, phenotypes, &selection);
  for (const auto& writer : writers) {
    status = status.ok() ? writer->begin(selection) : status;
  }
  CodeCounts counts{};
  if (status.ok()) {
    status = for_each_block(source, selection, "simulating", stop, [&](const VariantBlock& block) {
      const int64_t n = selection.n_samples();
      for (int64_t i = 0; i < block.count; ++i) {
        count_codes(block.rows + i * packed_words(n), n, &counts);
      }
      Status added;
      for (const auto& writer : writers) {
        added = added.ok() ? writer->add(block.rows, block.count) : added;
      }
      return added;
    });
  }
  if (status.ok() && options.covar_out) {
    status = write_covariates(source, options.covariates, plan.seed, &covariates);
  }
  if (status.ok() && options.truth) {
    status = write_truth(plan, &truth);
  }
  std::vector<OutputFile*> files;
  if (options.covar_out) {
    files.push_back(&covariates);
  }
  if (options.truth) {
    files.push_back(&truth);
  }
  for (const auto& writer : writers) {
    const std::vector<OutputFile*> more = writer->files();
    files.insert(files.end(), more.begin(), more.end());
  }
  status = status.ok() ? commit_together(files) : status;
  if (!status.ok()) {
    return status;
  }

  warn_of_prevalences(plan, &report->warnings);
  for (size_t m = 0; m < plan.models.size(); ++m) {
    report->text += model_note(m + 1, plan.models[m]) + "\n";
  }
  const int64_t missing = counts[kMissingGenotype];
  if (options.output) {
    report->text +=
        data_set_summary(*options.output, selection, missing, layout_name(options.layout) + " layout") + "\n";
  }
  if (options.make_bed) {
    report->text +=
        data_set_summary(*options.make_bed + kBedEnding, selection, missing, "PLINK 1 binary") + "\n";
  }
  return {};
}
