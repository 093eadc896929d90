// SPDX-License-Identifier: Apache-2.0
#include "tools/filters.h"

#include <algorithm>
#include <cstdio>

#include "tools/name_lists.h"
#include "tools/packed_rows.h"
#include "tools/variant_blocks.h"

namespace {

// Shares are compared as counts; a limit such as 0.29 of 100 must not fall below 29 by rounding.
constexpr double kRounding = 1e-11;

bool exceeds(int64_t count, double share, int64_t total) {
  return static_cast<double>(count) > share * static_cast<double>(total) * (1.0 + kRounding);
}

bool falls_below(int64_t count, double share, int64_t total) {
  return static_cast<double>(count) < share * static_cast<double>(total) * (1.0 - kRounding);
}

class Filters {
 public:
  Filters(const FilterOptions& options, GenotypeSource& source, const SampleIndex& index,
          const StopFlag& stop, Selection* selection, std::vector<std::string>* notes)
      : options_(options),
        source_(source),
        index_(index),
        stop_(stop),
        selection_(*selection),
        notes_(*notes) {}

  Status run() {
    Status status;
    if (options_.keep) {
      status = by_sample_list("--keep", *options_.keep, true);
    }
    if (status.ok() && options_.remove) {
      status = by_sample_list("--remove", *options_.remove, false);
    }
    if (status.ok()) {
      status = by_phenotype();
    }
    if (status.ok() && options_.extract) {
      status = by_variant_list("--extract", *options_.extract, true);
    }
    if (status.ok() && options_.exclude) {
      status = by_variant_list("--exclude", *options_.exclude, false);
    }
    if (status.ok() && options_.mind) {
      status = by_sample_missingness();
    }
    return status.ok() && (options_.geno || options_.maf) ? by_variant_counts() : status;
  }

 private:
  static std::string limit_text(const char* option, double limit) {
    char text[60];
    std::snprintf(text, sizeof(text), "%s %g", option, limit);
    return text;
  }

  // Keeps what `is_kept` says, and notes how many went.
  template <typename Test>
  Status narrow(std::vector<uint32_t>* items, const char* plural, const std::string& what, bool always_noted,
                Test is_kept) {
    const size_t before = items->size();
    std::erase_if(*items, [&](uint32_t item) { return !is_kept(item); });
    const size_t dropped = before - items->size();
    if (always_noted || dropped > 0) {
      notes_.push_back(what + ": " + std::to_string(dropped) + " " + plural + " dropped, " +
                       std::to_string(items->size()) + " left");
    }
    return items->empty() ? Status::failure(notes_.back() + ", expected at least one") : Status();
  }

  static std::string unknown_text(int64_t unknown, const char* singular) {
    return unknown == 0 ? ""
                        : " (" + std::to_string(unknown) +
                              (unknown == 1 ? " entry matches" : " entries match") + " no " + singular + ")";
  }

  Status by_sample_list(const char* option, const std::string& path, bool keeps) {
    std::vector<uint8_t> listed;
    int64_t unknown = 0;
    Status status = read_sample_list(path, index_, source_.samples().size(), &listed, &unknown);
    return status.ok() ? narrow(&selection_.samples, "samples",
                                std::string(option) + " " + path + unknown_text(unknown, "sample"), true,
                                [&](uint32_t i) { return (listed[i] != 0) == keeps; })
                       : status;
  }

  // Where nobody is left, what is known about the phenotypes says why.
  Status by_phenotype() {
    const Status status = narrow(&selection_.samples, "samples", "no phenotype", false,
                                 [&](uint32_t i) { return selection_.phenotypes->present[i] != 0; });
    return status.ok() ? status : Status::failure(status.message() + "; " + selection_.phenotypes->note);
  }

  Status by_variant_list(const char* option, const std::string& path, bool keeps) {
    std::vector<uint8_t> listed;
    int64_t unknown = 0;
    Status status = read_variant_list(path, source_.variants(), &listed, &unknown);
    return status.ok() ? narrow(&selection_.variants, "variants",
                                std::string(option) + " " + path + unknown_text(unknown, "variant"), true,
                                [&](uint32_t i) { return (listed[i] != 0) == keeps; })
                       : status;
  }

  Status by_sample_missingness() {
    const int64_t n = selection_.n_samples();
    const int64_t n_words = packed_words(n);
    std::vector<uint32_t> missing(static_cast<size_t>(n), 0);
    Status status =
        for_each_block(source_, selection_, "counting for --mind", stop_, [&](const VariantBlock& block) {
          for (int64_t i = 0; i < block.count; ++i) {
            count_missing(block.rows + i * n_words, n, missing);
          }
          return Status();
        });
    if (!status.ok()) {
      return status;
    }
    size_t next = 0;
    return narrow(&selection_.samples, "samples", limit_text("--mind", *options_.mind), true, [&](uint32_t) {
      return !exceeds(missing[next++], *options_.mind, selection_.n_variants());
    });
  }

  Status by_variant_counts() {
    const int64_t n = selection_.n_samples();
    const int64_t n_words = packed_words(n);
    std::vector<uint8_t> too_rare(selection_.variants.size(), 0);
    std::vector<uint8_t> too_sparse(selection_.variants.size(), 0);
    Status status = for_each_block(
        source_, selection_, "counting for --geno and --maf", stop_, [&](const VariantBlock& block) {
          for (int64_t i = 0; i < block.count; ++i) {
            CodeCounts counts{};
            count_codes(block.rows + i * n_words, n, &counts);
            const int64_t missing = counts[kMissingGenotype];
            const int64_t alleles = 2 * (n - missing);
            const int64_t copies = counts[1] + 2 * counts[2];
            const int64_t minor = std::min(copies, alleles - copies);
            const auto at = static_cast<size_t>(block.first + i);
            too_sparse[at] = options_.geno && exceeds(missing, *options_.geno, n) ? 1 : 0;
            // Without any genotype the frequency counts as 0.
            too_rare[at] = options_.maf && *options_.maf > 0.0 &&
                                   (alleles == 0 || falls_below(minor, *options_.maf, alleles))
                               ? 1
                               : 0;
          }
          return Status();
        });
    if (status.ok() && options_.geno) {
      size_t next = 0;
      status = narrow(&selection_.variants, "variants", limit_text("--geno", *options_.geno), true,
                      [&](uint32_t) { return too_sparse[next++] == 0; });
      next = 0;
      std::erase_if(too_rare, [&](uint8_t) { return too_sparse[next++] != 0; });
    }
    if (status.ok() && options_.maf) {
      size_t next = 0;
      status = narrow(&selection_.variants, "variants", limit_text("--maf", *options_.maf), true,
                      [&](uint32_t) { return too_rare[next++] == 0; });
    }
    return status;
  }

  const FilterOptions& options_;
  GenotypeSource& source_;
  const SampleIndex& index_;
  const StopFlag& stop_;
  Selection& selection_;
  std::vector<std::string>& notes_;
};

}  // namespace

Status apply_filters(const FilterOptions& options, GenotypeSource& source, const SampleIndex& index,
                     const StopFlag& stop, Selection* selection, std::vector<std::string>* notes) {
  return Filters(options, source, index, stop, selection, notes).run();
}
