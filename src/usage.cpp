// SPDX-License-Identifier: Apache-2.0
#include <strings.h>

#include <cstdio>

#include "device/backends.h"
#include "src/option_table.h"
#include "src/options.h"

namespace {

void print_usage() {
  std::puts("usage: tavo --OPTION VALUE [--OPTION VALUE ...]\n");
  std::puts(
      "Searches the SNP combinations of a genotype file for those whose joint genotype predicts the "
      "phenotype.\n");
  std::puts("Every option takes one value. Names and keywords may be in any case.\n");
  for (const Option& option : option_table()) {
    std::printf("  --%s %s\n      %s\n", option.name, option.value, option.help);
  }
  std::puts("  --help, --version\n      alone on the command line\n");
  std::puts("Example: the best pairs by balanced accuracy in ten-fold cross-validation:\n");
  std::puts("  tavo --in data.tavo --out result.csv --order 2 --measure ba --thread 256 --block 64\n");
  std::puts("Status: 0 done; 1 refused or not written; 255 a device failed; 128 + signal when ended by one.");
}

void print_version() {
  std::printf("tavo %s\n", TAVO_VERSION);
  std::printf("compiler: %s\n", __VERSION__);
  std::fputs("backends:", stdout);
  for (const Backend* backend : backends()) {
    std::printf(" %s (%s)", backend->name().c_str(),
                backend->device_count() > 0 ? backend->properties(0).choices.c_str() : "no device");
  }
  std::puts("");
}

}  // namespace

std::optional<int> answer_question(int argc, char** argv) {
  if (argc != 2) {
    return std::nullopt;
  }
  if (strcasecmp(argv[1], "--help") == 0) {
    print_usage();
    return 0;
  }
  if (strcasecmp(argv[1], "--version") == 0) {
    print_version();
    return 0;
  }
  return std::nullopt;
}
