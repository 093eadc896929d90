// SPDX-License-Identifier: Apache-2.0
//
// Simulated case/control data as a source of genotypes, made while they are read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/genotype_source.h"
#include "tools/simulate_model.h"

struct PlantedModel {
  PenetranceModel model;
  std::vector<int64_t> positions;  // [order] of its SNPs in the file, from 0, all different
};

struct SimulationPlan {
  int64_t n_samples = 0;
  int64_t n_cases = 0;  // 0 to n_samples
  int64_t n_snps = 0;
  double lowest_maf = 0.05;  // of the SNPs without an interaction
  double highest_maf = 0.5;
  double missing = 0.0;  // probability of any genotype, below 1
  uint64_t seed = 1;
  std::vector<PlantedModel> models;  // no position twice
};

// The name of the SNP at a position, from 0.
std::string snp_name(int64_t position);

// Gives the models whose list of positions is empty random ones that no other model has, ascending. The
// positions that are given are different from each other and below n_snps, and the SNPs are enough for all.
void choose_positions(SimulationPlan* plan);

// Which samples are cases is random, their number fixed. A cell of an interaction is drawn by Bayes' rule:
// with probability p(c) f(c) / K in a case and p(c) (1 - f(c)) / (1 - K) in a control. Several interactions
// are independent of each other given the status. All other SNPs are independent of everything, in
// Hardy-Weinberg equilibrium, each with a frequency that is uniform in the range.
class SimulatedSource : public GenotypeSource {
 public:
  // plan: complete, with positions; outlives the source.
  explicit SimulatedSource(const SimulationPlan& plan);

  Status read(int64_t first, int64_t count, uint32_t* rows) override;

 private:
  struct PlantedSnp {
    int64_t position;
    size_t model;
    int snp;  // of the model
  };

  void draw_cases();
  void draw_cells();
  void read_background(double frequency, class RandomStream& random, uint32_t* row) const;
  void read_planted(const PlantedSnp& planted, uint32_t* row) const;

  const SimulationPlan& plan_;
  std::vector<PlantedSnp> planted_;           // by position
  std::vector<std::vector<uint32_t>> cells_;  // [model][sample]
};
