// SPDX-License-Identifier: Apache-2.0
#include "tools/convert.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "lib/packed_genotypes.h"
#include "tools/genotype_info.h"
#include "tools/text_table.h"

namespace {

std::string summary(const ConvertOptions& options, uint64_t samples, uint64_t cases, uint64_t snps,
                    uint64_t missing) {
  char share[50];
  std::snprintf(
      share, sizeof(share), "%.2f%%",
      100.0 * static_cast<double>(missing) / (static_cast<double>(samples) * static_cast<double>(snps)));
  return options.output + ": " + std::to_string(samples) + " samples (" + std::to_string(cases) + " cases, " +
         std::to_string(samples - cases) + " controls), " + std::to_string(snps) + " SNPs, " +
         std::to_string(missing) + " missing genotypes (" + share + "), " + layout_name(options.layout) +
         " layout\n";
}

}  // namespace

Status convert_table(const ConvertOptions& options, const volatile std::sig_atomic_t& stop,
                     ConvertReport* report) {
  std::error_code not_there;
  if (std::filesystem::equivalent(options.input, options.output, not_there)) {
    return Status::failure(options.output + ": --out is the same file as --in");
  }
  TextTable table;
  Status status = table.open(options.input, options.class_name);
  if (!status.ok()) {
    return status;
  }
  report->warnings = table.warnings();
  const auto writer = make_genotype_writer(options.layout);
  status = writer->begin(options.output, table.snp_names());
  TableRow row;
  uint64_t samples = 0;
  uint64_t cases = 0;
  uint64_t missing = 0;
  while (status.ok()) {
    if (stop != 0) {
      return Status::failure("stopped by a signal; " + options.output + " was not written");
    }
    bool more = false;
    status = table.next(&row, &more);
    if (!status.ok() || !more) {
      break;
    }
    status = writer->add_sample(row.class_value, row.genotypes);
    ++samples;
    cases += row.class_value;
    missing += static_cast<uint64_t>(
        std::count(row.genotypes.begin(), row.genotypes.end(), static_cast<uint8_t>(kMissingGenotype)));
  }
  if (status.ok()) {
    status = writer->finish();
  }
  if (status.ok()) {
    report->text = summary(options, samples, cases, table.snp_names().size(), missing);
  }
  return status;
}

Status describe_genotypes(const ConvertOptions& options, ConvertReport* report) {
  GenotypeInfo info;
  Status status = read_genotype_info(options.input, options.layout, &info);
  if (!status.ok()) {
    return status;
  }
  if (options.layout_given && info.layout != options.layout) {
    report->warnings.push_back(options.input + ": the file's size fits the " + layout_name(info.layout) +
                               " layout only, --transpose is ignored");
  }
  report->text = genotype_info_text(options.input, info);
  return {};
}
