// SPDX-License-Identifier: Apache-2.0
#include "tools/simulate_source.h"

#include <algorithm>
#include <set>
#include <string>

#include "tools/packed_rows.h"
#include "tools/simulate_random.h"

namespace {

using Purpose = RandomStream::Purpose;

// SNPs that share a stream. Reads begin at multiples of it.
constexpr int64_t kGroup = kGenotypesPerWord;

// A probability as a limit for 32 random bits.
uint64_t limit_of(double probability) {
  return static_cast<uint64_t>(std::clamp(probability, 0.0, 1.0) * 0x1p32);
}

// Draws a cell from cumulative probabilities.
class CellDraw {
 public:
  // weights: in proportion to the probabilities, at least one above 0.
  explicit CellDraw(const std::vector<double>& weights) {
    double sum = 0.0;
    for (const double weight : weights) {
      sum += weight;
    }
    double below = 0.0;
    size_t last = 0;
    for (size_t c = 0; c < weights.size(); ++c) {
      below += weights[c] / sum;
      limits_.push_back(below);
      last = weights[c] > 0.0 ? c : last;
    }
    // Whatever the rounding, a cell without weight is never drawn.
    std::fill(limits_.begin() + static_cast<ptrdiff_t>(last), limits_.end(), 1.0);
  }

  uint32_t draw(RandomStream& random) const {
    const auto cell = std::upper_bound(limits_.begin(), limits_.end(), random.uniform());
    return static_cast<uint32_t>(cell - limits_.begin());
  }

 private:
  std::vector<double> limits_;
};

}  // namespace

std::string snp_name(int64_t position) {
  return "snp" + std::to_string(position + 1);
}

void choose_positions(SimulationPlan* plan) {
  std::set<int64_t> taken;
  for (const PlantedModel& planted : plan->models) {
    taken.insert(planted.positions.begin(), planted.positions.end());
  }
  RandomStream random(plan->seed, Purpose::kPositions);
  for (PlantedModel& planted : plan->models) {
    if (!planted.positions.empty()) {
      continue;
    }
    while (static_cast<int>(planted.positions.size()) < planted.model.order()) {
      const auto position = static_cast<int64_t>(random.below(static_cast<uint64_t>(plan->n_snps)));
      if (taken.insert(position).second) {
        planted.positions.push_back(position);
      }
    }
    std::sort(planted.positions.begin(), planted.positions.end());
  }
}

SimulatedSource::SimulatedSource(const SimulationPlan& plan) : plan_(plan) {
  number_samples(plan.n_samples);
  // PLINK leaves out the phenotypes of samples without a sex.
  for (size_t i = 0; i < samples_.size(); ++i) {
    samples_[i].sex = i % 2 == 0 ? "1" : "2";
  }
  for (int64_t j = 0; j < plan.n_snps; ++j) {
    const std::string name = snp_name(j);
    const std::string position = std::to_string(j + 1);
    Variant variant;
    variant.chromosome = "1";
    variant.name = name;
    variant.position = position;
    variants_.add(variant);
  }
  for (size_t m = 0; m < plan.models.size(); ++m) {
    for (size_t i = 0; i < plan.models[m].positions.size(); ++i) {
      planted_.push_back({plan.models[m].positions[i], m, static_cast<int>(i)});
    }
  }
  std::sort(planted_.begin(), planted_.end(),
            [](const PlantedSnp& a, const PlantedSnp& b) { return a.position < b.position; });
  draw_cases();
  draw_cells();
}

// Sample by sample, with the share of cases that are left: every choice of the cases is equally likely.
void SimulatedSource::draw_cases() {
  RandomStream random(plan_.seed, Purpose::kStatus);
  auto cases_left = static_cast<uint64_t>(plan_.n_cases);
  for (auto left = static_cast<uint64_t>(plan_.n_samples); left > 0; --left) {
    const bool is_case = random.below(left) < cases_left;
    classes_.push_back(is_case ? 1 : 0);
    cases_left -= is_case ? 1 : 0;
  }
}

void SimulatedSource::draw_cells() {
  for (size_t m = 0; m < plan_.models.size(); ++m) {
    const PenetranceModel& model = plan_.models[m].model;
    std::vector<double> in_cases = model.cell_probabilities();
    std::vector<double> in_controls = in_cases;
    for (size_t c = 0; c < in_cases.size(); ++c) {
      in_cases[c] *= model.penetrances[c];
      in_controls[c] *= 1.0 - model.penetrances[c];
    }
    const CellDraw draws[] = {CellDraw(in_controls), CellDraw(in_cases)};
    RandomStream random(plan_.seed, Purpose::kCells, m);
    std::vector<uint32_t>& cells = cells_.emplace_back();
    for (const uint32_t is_case : classes_) {
      cells.push_back(draws[is_case].draw(random));
    }
  }
}

Status SimulatedSource::read(int64_t first, int64_t count, uint32_t* rows) {
  const int64_t n_words = packed_words(n_samples());
  auto planted =
      std::lower_bound(planted_.begin(), planted_.end(), first,
                       [](const PlantedSnp& snp, int64_t position) { return snp.position < position; });
  for (int64_t group = first; group < first + count; group += kGroup) {
    RandomStream random(plan_.seed, Purpose::kBackground, static_cast<uint64_t>(group / kGroup));
    for (int64_t j = group; j < std::min(group + kGroup, first + count); ++j) {
      uint32_t* row = rows + (j - first) * n_words;
      const double frequency = plan_.lowest_maf + (plan_.highest_maf - plan_.lowest_maf) * random.uniform();
      if (planted != planted_.end() && planted->position == j) {
        read_planted(*planted++, row);
      } else {
        read_background(frequency, random, row);
      }
    }
  }
  return {};
}

// One draw of 32 bits for a genotype, missing ones included.
void SimulatedSource::read_background(double frequency, RandomStream& random, uint32_t* row) const {
  const std::array<double, 3> shares = hardy_weinberg(frequency);
  const double present = 1.0 - plan_.missing;
  const uint64_t limits[] = {limit_of(shares[0] * present), limit_of((shares[0] + shares[1]) * present),
                             limit_of(present)};
  const auto code = [&limits](uint64_t x) {
    return static_cast<uint32_t>(x >= limits[0]) + static_cast<uint32_t>(x >= limits[1]) +
           static_cast<uint32_t>(x >= limits[2]);
  };
  const int64_t n_words = packed_words(n_samples());
  for (int64_t w = 0; w < n_words; ++w) {
    uint32_t word = 0;
    for (int pair = 0; pair < kGenotypesPerWord / 2; ++pair) {
      const uint64_t bits = random.bits();
      word |= (code(bits & 0xffffffffu) | code(bits >> 32) << 2) << (4 * pair);
    }
    row[w] = word;
  }
  row[n_words - 1] &= 3 * last_lanes(n_samples());
}

void SimulatedSource::read_planted(const PlantedSnp& planted, uint32_t* row) const {
  const std::vector<uint32_t>& cells = cells_[planted.model];
  const uint64_t present = limit_of(1.0 - plan_.missing);
  RandomStream random(plan_.seed, Purpose::kModelMissing, static_cast<uint64_t>(planted.position));
  std::fill_n(row, packed_words(n_samples()), 0u);
  for (size_t i = 0; i < cells.size(); ++i) {
    const bool missing = (random.bits() & 0xffffffffu) >= present;
    put_packed_genotype(
        row, i, missing ? kMissingGenotype : static_cast<unsigned>(cell_genotype(cells[i], planted.snp)));
  }
}
