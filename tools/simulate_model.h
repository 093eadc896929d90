// SPDX-License-Identifier: Apache-2.0
//
// Interactions to plant: a penetrance for every joint genotype of a few SNPs.
//
// A cell is a joint genotype; its number is the sum of genotype i times 3^i, the genotype of the first SNP
// changing fastest. p(c) is the probability of cell c in the population: SNPs in Hardy-Weinberg equilibrium,
// independent of each other. f(c) is the penetrance, the probability to be a case.
//
//   prevalence    K  = sum of p(c) f(c)
//   heritability  h2 = sum of p(c) (f(c) - K)^2 / (K (1 - K))
//
// the share of the variance of the phenotype that the genotypes explain, as Culverhouse, Suarez, Lin and
// Reich (Am J Hum Genet 70:461, 2002) and Urbanowicz and others (GAMETES; BioData Mining 5:16, 2012) define
// it.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "util/status.h"

// SNPs of one interaction, at most.
inline constexpr int kLargestModelOrder = 12;
// Of those that are constructed: a table of order 5 has 243 cells.
inline constexpr int kSmallestEpistaticOrder = 2;
inline constexpr int kLargestEpistaticOrder = 5;

struct PenetranceModel {
  std::string description;          // for people
  std::vector<double> maf;          // [order] frequency of the counted allele, above 0, at most 0.5
  std::vector<double> penetrances;  // [3^order] 0 to 1

  int order() const { return static_cast<int>(maf.size()); }

  // p(c) of every cell.
  std::vector<double> cell_probabilities() const;

  double prevalence() const;
  double heritability() const;

  // The penetrance of each joint genotype of some of the SNPs, the others averaged over: [3^snps.size()].
  std::vector<double> marginal_penetrances(const std::vector<int>& snps) const;

  // The largest distance of a single SNP's penetrance from the prevalence; 0 without main effects.
  double largest_main_effect() const;
};

// Probabilities of 0, 1 and 2 copies of an allele in Hardy-Weinberg equilibrium.
std::array<double, 3> hardy_weinberg(double frequency);

// The genotype of one of the SNPs in a cell.
int cell_genotype(size_t cell, int snp);

struct EpistaticRules {
  int order = 2;
  double maf = 0.0;
  double heritability = 0.0;  // above 0
  double prevalence = 0.5;
};

// A pure and strict epistatic model: the penetrance of every subset of its SNPs, but that of all of them, is
// the prevalence. f(c) = K + t u(g1) u(g2) ..., with one contrast u of mean 0 and variance 1 over the
// genotypes of a SNP: what is averaged over one SNP's genotypes is K. t scales to the heritability; u is the
// contrast that allows the largest one. A failure says how large that is.
Status make_epistatic_model(const EpistaticRules& rules, PenetranceModel* model);

// Reads a table: "maf" and a frequency for each SNP, "penetrance" and 3^order numbers in the order of the
// cells (docs/simulate.md). The prevalence must be neither 0 nor 1.
Status read_penetrance_model(const std::string& path, PenetranceModel* model);
