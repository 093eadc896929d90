// SPDX-License-Identifier: Apache-2.0
//
// Data for benchmarks: random genotypes, as a genotype file and as PLINK 1 binary files with the same
// content.
//   make_data PREFIX SAMPLES SNPS CASE_PERCENT MISSING_PER_MILLE COVARIATES SEED
// writes PREFIX.tavo, PREFIX.bed, .bim, .fam, and with covariates PREFIX.cov (tabs, as PLINK 2 takes it,
// too).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "lib/packed_genotypes.h"

namespace {

struct Plan {
  std::string prefix;
  size_t n_samples;
  size_t n_snps;
  int case_percent;
  int missing_per_mille;
  int n_covariates;
};

struct Genotypes {
  std::vector<uint8_t> codes;  // [samples][SNPs], copies of allele 1, 3 missing
  std::vector<uint8_t> cases;  // [samples]
};

Genotypes draw(const Plan& plan, std::mt19937_64& random) {
  Genotypes data;
  data.codes.resize(plan.n_samples * plan.n_snps);
  std::vector<uint16_t> frequency(plan.n_snps);  // of allele 1, in 1/65536
  for (uint16_t& f : frequency) {
    f = static_cast<uint16_t>(3277 + random() % 29491);  // 0.05 to 0.5
  }
  const auto missing = static_cast<uint16_t>(plan.missing_per_mille * 65536 / 1000);
  for (size_t i = 0; i < plan.n_samples; ++i) {
    for (size_t j = 0; j < plan.n_snps; ++j) {
      const uint64_t bits = random();
      const int copies = (static_cast<uint16_t>(bits) < frequency[j] ? 1 : 0) +
                         (static_cast<uint16_t>(bits >> 16) < frequency[j] ? 1 : 0);
      data.codes[i * plan.n_snps + j] =
          static_cast<uint16_t>(bits >> 32) < missing ? 3 : static_cast<uint8_t>(copies);
    }
    data.cases.push_back(static_cast<int>(random() % 100) < plan.case_percent ? 1 : 0);
  }
  return data;
}

FILE* create(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    std::perror(path.c_str());
    std::exit(1);
  }
  return file;
}

void close(FILE* file) {
  if (std::fclose(file) != 0) {
    std::perror("writing");
    std::exit(1);
  }
}

void write_int(FILE* file, size_t value) {
  const auto word = static_cast<uint32_t>(value);
  std::fwrite(&word, 4, 1, file);
}

void write_tavo(const Plan& plan, const Genotypes& data) {
  FILE* file = create(plan.prefix + ".tavo");
  std::fputs("TAVO", file);
  write_int(file, plan.n_samples);
  write_int(file, plan.n_snps);
  constexpr size_t kLabelWidth = 24;
  write_int(file, kLabelWidth);
  for (size_t j = 0; j < plan.n_snps; ++j) {
    char name[kLabelWidth] = {};
    std::snprintf(name, sizeof(name), "rs%zu", j);
    std::fwrite(name, sizeof(name), 1, file);
  }
  std::vector<uint32_t> row(static_cast<size_t>(packed_words(static_cast<int64_t>(plan.n_snps))));
  for (size_t i = 0; i < plan.n_samples; ++i) {
    row.assign(row.size(), 0);
    for (size_t j = 0; j < plan.n_snps; ++j) {
      put_packed_genotype(row.data(), j, data.codes[i * plan.n_snps + j]);
    }
    write_int(file, data.cases[i]);
    std::fwrite(row.data(), 4, row.size(), file);
  }
  close(file);
}

void write_plink(const Plan& plan, const Genotypes& data) {
  FILE* bed = create(plan.prefix + ".bed");
  std::fwrite("\x6c\x1b\x01", 3, 1, bed);
  constexpr uint8_t kBedCode[] = {3, 2, 0, 1};  // by copies of allele 1; the last one missing
  for (size_t j = 0; j < plan.n_snps; ++j) {
    for (size_t i = 0; i < plan.n_samples; i += 4) {
      unsigned byte = 0;
      for (size_t k = 0; k < 4 && i + k < plan.n_samples; ++k) {
        byte |= static_cast<unsigned>(kBedCode[data.codes[(i + k) * plan.n_snps + j]]) << (2 * k);
      }
      std::fputc(static_cast<int>(byte), bed);
    }
  }
  close(bed);
  FILE* bim = create(plan.prefix + ".bim");
  for (size_t j = 0; j < plan.n_snps; ++j) {
    std::fprintf(bim, "1\trs%zu\t0\t%zu\tA\tG\n", j, 1000 * (j + 1));
  }
  close(bim);
  FILE* fam = create(plan.prefix + ".fam");
  for (size_t i = 0; i < plan.n_samples; ++i) {
    std::fprintf(fam, "%zu\t%zu\t0\t0\t1\t%d\n", i + 1, i + 1, data.cases[i] + 1);
  }
  close(fam);
}

void write_covariates(const Plan& plan, std::mt19937_64& random) {
  FILE* file = create(plan.prefix + ".cov");
  std::fputs("FID\tIID", file);
  for (int c = 0; c < plan.n_covariates; ++c) {
    std::fprintf(file, "\tc%d", c + 1);
  }
  std::normal_distribution<double> normal;
  for (size_t i = 0; i < plan.n_samples; ++i) {
    std::fprintf(file, "\n%zu\t%zu", i + 1, i + 1);
    for (int c = 0; c < plan.n_covariates; ++c) {
      std::fprintf(file, "\t%.5f", normal(random));
    }
  }
  std::fputc('\n', file);
  close(file);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 8) {
    std::fputs("usage: make_data PREFIX SAMPLES SNPS CASE_PERCENT MISSING_PER_MILLE COVARIATES SEED\n",
               stderr);
    return 2;
  }
  const Plan plan = {argv[1],
                     static_cast<size_t>(std::atol(argv[2])),
                     static_cast<size_t>(std::atol(argv[3])),
                     std::atoi(argv[4]),
                     std::atoi(argv[5]),
                     std::atoi(argv[6])};
  std::mt19937_64 random(static_cast<uint64_t>(std::atol(argv[7])));
  const Genotypes data = draw(plan, random);
  write_tavo(plan, data);
  write_plink(plan, data);
  if (plan.n_covariates > 0) {
    write_covariates(plan, random);
  }
}
