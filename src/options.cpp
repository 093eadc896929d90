// SPDX-License-Identifier: Apache-2.0
#include "src/options.h"

#include <cstdio>
#include <cstring>

#include "device/problem.h"
#include "lib/mdr.h"
#include "src/covariates.h"
#include "src/option_table.h"
#include "src/run_config.h"

namespace {

bool is_option(const char* argument) {
  return argument[0] == '-' && argument[1] == '-';
}

// A lone line break after the dashes, as in argument lists made from text files: accepted, its value ignored.
bool is_line_break(const char* name) {
  return std::strcmp(name, "\n") == 0;
}

// Arguments but those of options beyond the report's command line.
int counted_arguments(int argc, char** argv) {
  int counted = argc;
  for (int i = 1; i < argc; i += 2) {
    if (is_option(argv[i])) {
      const Option* option = find_option(argv[i] + 2);
      counted -= option != nullptr && !option->counted ? 2 : 0;
    }
  }
  return counted;
}

// The largest order whose count table, 2 * base^order counters, is numbered by 32-bit integers.
int largest_order(int base) {
  int order = 0;
  for (long long entries = 2; entries * base <= 2147483647LL; entries *= base) {
    ++order;
  }
  return order;
}

std::optional<int> refuse_range(const char* option, int value, int lowest, int highest) {
  std::printf("Invalid value %d of --%s: expected %d to %d\n", value, option, lowest, highest);
  return 1;
}

std::optional<int> check_ranges(const RunArguments& arguments) {
  const int highest = largest_order(table_base(arguments.missing + 1));
  for (const int order : {arguments.min_order, arguments.max_order}) {
    if (order < 1 || order > highest) {
      return refuse_range("order", order, 1, highest);
    }
  }
  if (cvfold < 1) {
    std::printf("Invalid value %d of --cv: expected at least 1\n", cvfold);
    return 1;
  }
  if (g_regression == kNoRegression && (cv_start < 0 || cv_start >= cvfold)) {
    return refuse_range("cvfrom", cv_start, 0, cvfold - 1);
  }
  if (gpu == 0 || gpu < -1) {
    std::printf("Invalid value %d of --gpu: expected at least 1, or -1 for every device\n", gpu);
    return 1;
  }
  if (arguments.top < 0) {
    std::printf("Invalid value %d of --top: expected at least 0\n", arguments.top);
    return 1;
  }
  return std::nullopt;
}

// A regression reads the normal layout, has one or two SNPs, by the first character of the order's value, and
// at most as many covariates as its model has columns left.
std::optional<int> check_regression(const RunArguments& arguments) {
  if (g_transpose != 0) {
    std::puts("Doesn't support TRANSPOSED MODE in regression");
    return 1;
  }
  const char* order = typed_value(g_combOrder, "1");
  const bool matches = g_combOrder == -1 || arguments.min_order == order[0] - '0';
  if (!matches || (order[0] != '1' && order[0] != '2')) {
    std::printf("Invalid value `%s` of --order: a regression has 1 or 2 SNPs\n", order);
    return 1;
  }
  if (g_covCnt > kMaxModelCovariates) {
    std::printf("Covariate file %s has %d covariates, a regression can have %d at most!\n", g_covFileName,
                g_covCnt, kMaxModelCovariates);
    return 1;
  }
  return std::nullopt;
}

}  // namespace

std::optional<int> scan_arguments(int argc, char** argv, RunArguments* arguments) {
  if (const int counted = counted_arguments(argc, argv); counted > kMaxArguments) {
    std::printf("There are %d arguments, at most %d are possible (the program name included)!\n", counted,
                kMaxArguments);
    return 1;
  }
  for (int i = 0; i < argc; ++i) {
    if (!is_option(argv[i])) {
      if (i % 2 == 1 && argv[i][0] != '\r') {
        std::printf("Unrecognized option value `%s`\n", argv[i]);
        return 1;
      }
      continue;
    }
    if (i % 2 == 0) {
      std::printf("Option %s does not lies on appropriate position!\n", argv[i]);
      return 1;
    }
    const char* name = argv[i] + 2;
    const Option* option = find_option(name);
    if (option == nullptr && !is_line_break(name)) {
      std::printf("Unrecognized option name `%s`\n", argv[i]);
      return 1;
    }
    if (i + 1 == argc) {
      std::printf("Option %s has no value!\n", argv[i]);
      return 1;
    }
    if (option != nullptr) {
      if (const std::optional<int> refusal = option->take(option->name, argv[i + 1], i + 1, arguments)) {
        return refusal;
      }
    }
    // The value is looked at in the next round like any other argument, so one that looks like an option is
    // refused there: it stands at an even position.
  }
  g_argc = argc;
  g_argv = argv;
  return std::nullopt;
}

std::optional<int> check_arguments(const RunArguments& arguments) {
  std::puts(g_transpose != 0 ? "Transposed mode activated" : "Transposed mode deactivated");
  if (g_regression == kNoRegression) {
    const char* refusal = selection == -1            ? "You have to select a measure for snp selection!"
                          : g_covFileName[0] != '\0' ? "Covariate file must be assigned only for regression!"
                          : g_regrDistinct != 0      ? "--distinct option only used for regression!"
                          : !arguments.precision.empty() ? "--precision option only used for regression!"
                                                         : nullptr;
    if (refusal != nullptr) {
      std::puts(refusal);
      return 1;
    }
  } else {
    if (g_regression == kLinearRegression) {
      std::puts("Other regression doesn't use iteration option, this option will be ignored");
    } else if (g_logisIter == -1) {
      g_logisIter = 20;
    }
    cvfold = 1;
    if (g_covFileName[0] != '\0' && !read_covariates(g_covFileName)) {
      return 1;
    }
    if (const std::optional<int> refusal = check_regression(arguments)) {
      return refusal;
    }
  }
  return check_ranges(arguments);
}
