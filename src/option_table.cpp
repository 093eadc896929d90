// SPDX-License-Identifier: Apache-2.0
#include "src/option_table.h"

#include <strings.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "src/notice.h"
#include "src/run_config.h"

namespace {

constexpr const char* kMeasures[] = {"ba",    "accuracy",  "homogeneity", "gamma", "tau-b",
                                     "tau-c", "somers_d1", "somers_d2",   "nmi",   "lr"};
constexpr const char* kMissingMethods[] = {"none", "mc", "complete", "available"};

using Refusal = std::optional<int>;
constexpr Refusal kAccepted = std::nullopt;
constexpr Refusal kRefused = 1;

// The index of value among words, in any case, or -1.
int keyword(const char* value, std::span<const char* const> words) {
  for (size_t i = 0; i < words.size(); ++i) {
    if (strcasecmp(value, words[i]) == 0) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

// Reads a number the way the options of the table do: text that is no number counts as 0, what follows a
// number is ignored. Either is worth a notice, since it is rarely meant.
int lenient_integer(const char* name, const char* value) {
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(value, &end, 10);
  const int kept = integer_of(value);
  if (end == value) {
    notice("--%s: `%s` is no integer and counts as 0", name, value);
  } else if (end[std::strspn(end, " \t\r\n")] != '\0' || errno == ERANGE || kept != number) {
    notice("--%s: `%s` is read as %d", name, value, kept);
  }
  return kept;
}

template <int* variable>
Refusal take_integer(const char* name, const char* value, int, RunArguments*) {
  *variable = lenient_integer(name, value);
  return kAccepted;
}

template <int RunArguments::*field, int* position_variable>
Refusal take_argument(const char* name, const char* value, int position, RunArguments* arguments) {
  arguments->*field = lenient_integer(name, value);
  *position_variable = position;
  return kAccepted;
}

template <char (*path)[kPathSize]>
Refusal take_path(const char* name, const char* value, int, RunArguments*) {
  const size_t length = std::strlen(value);
  if (length >= kPathSize) {
    std::printf("The path of --%s has %zu bytes, at most %d are possible!\n", name, length, kPathSize - 1);
    return kRefused;
  }
  std::memcpy(*path, value, length + 1);
  return kAccepted;
}

Refusal take_regression(const char*, const char* value, int, RunArguments*) {
  if (strcasecmp(value, "linear") == 0) {
    g_regression = kLinearRegression;
  } else if (strcasecmp(value, "logistic") == 0) {
    g_regression = kLogisticRegression;
  } else {
    std::printf("Invalid regression option `%s`\n", value);
    return kRefused;
  }
  return kAccepted;
}

Refusal take_measure(const char*, const char* value, int position, RunArguments*) {
  selection = keyword(value, kMeasures);
  if (selection < 0) {
    std::printf("Invalid selection name %s\n", value);
    return kRefused;
  }
  g_selidx = position;
  return kAccepted;
}

Refusal take_missing(const char*, const char* value, int position, RunArguments* arguments) {
  arguments->missing = keyword(value, kMissingMethods);
  if (arguments->missing < 0) {
    std::printf("Invalid missing method %s\n", value);
    return kRefused;
  }
  g_misidx = position;
  return kAccepted;
}

// "3" is one order, "2-4" a range from the text before the first dash to the text after it. The numbers are
// checked when all options are known.
Refusal take_order(const char* name, const char* value, int position, RunArguments* arguments) {
  g_combOrder = position;
  if (const char* dash = std::strchr(value, '-')) {
    arguments->min_order = lenient_integer(name, std::string(value, dash).c_str());
    arguments->max_order = lenient_integer(name, dash + 1);
  } else {
    arguments->min_order = arguments->max_order = lenient_integer(name, value);
  }
  return kAccepted;
}

template <std::string RunArguments::*field>
Refusal take_keyword(const char* name, const char* value, std::span<const char* const> words,
                     RunArguments* arguments) {
  const int index = keyword(value, words);
  if (index < 0) {
    std::printf("Invalid value `%s` of --%s: expected", value, name);
    for (size_t i = 0; i < words.size(); ++i) {
      std::printf("%s %s", i == 0 ? "" : i + 1 == words.size() ? " or" : ",", words[i]);
    }
    std::printf("\n");
    return kRefused;
  }
  arguments->*field = words[static_cast<size_t>(index)];
  return kAccepted;
}

Refusal take_device(const char* name, const char* value, int, RunArguments* arguments) {
  constexpr const char* kDevices[] = {"auto", "cpu", "cuda"};
  return take_keyword<&RunArguments::device>(name, value, kDevices, arguments);
}

Refusal take_progress(const char* name, const char* value, int, RunArguments* arguments) {
  constexpr const char* kChoices[] = {"auto", "on", "off"};
  return take_keyword<&RunArguments::progress>(name, value, kChoices, arguments);
}

Refusal take_precision(const char* name, const char* value, int, RunArguments* arguments) {
  constexpr const char* kPrecisions[] = {"single", "double"};
  return take_keyword<&RunArguments::precision>(name, value, kPrecisions, arguments);
}

template <std::string RunArguments::*field>
Refusal take_path(const char*, const char* value, int, RunArguments* arguments) {
  arguments->*field = value;
  return kAccepted;
}

// Reads an integer from lowest to highest, and nothing else.
bool strict_integer(const char* name, const char* value, long long lowest, long long highest,
                    long long* number) {
  char* end = nullptr;
  errno = 0;
  *number = std::strtoll(value, &end, 10);
  if (end == value || *end != '\0' || errno == ERANGE || *number < lowest || *number > highest) {
    std::printf("Invalid value `%s` of --%s: expected an integer from %lld to %lld\n", value, name, lowest,
                highest);
    return false;
  }
  return true;
}

Refusal take_seed(const char* name, const char* value, int, RunArguments* arguments) {
  long long seed = 0;
  if (!strict_integer(name, value, 0, UINT_MAX, &seed)) {
    return kRefused;
  }
  arguments->seed = static_cast<unsigned>(seed);
  return kAccepted;
}

template <int RunArguments::*field, int lowest, int highest = INT_MAX>
Refusal take_count(const char* name, const char* value, int, RunArguments* arguments) {
  long long number = 0;
  if (!strict_integer(name, value, lowest, highest, &number)) {
    return kRefused;
  }
  arguments->*field = static_cast<int>(number);
  return kAccepted;
}

Refusal take_mode(const char* name, const char* value, int, RunArguments* arguments) {
  long long mode = 0;
  if (!strict_integer(name, value, 0, 3, &mode)) {
    return kRefused;
  }
  arguments->mode = static_cast<int>(mode);
  return kAccepted;
}

constexpr Option kOptions[] = {
    {"in", "path", "genotype file", true, take_path<&szInput>},
    {"out", "path", "result file", true, take_path<&szOutput>},
    {"score", "path", "score file: score-based MDR (GMDR)", true, take_path<&szScore>},
    {"covariate", "path", "covariate file, for regressions", true, take_path<&g_covFileName>},
    {"transpose", "integer", "non-zero: the genotype file is SNP-major (default 0)", true,
     take_integer<&g_transpose>},
    {"distinct", "integer", "non-zero: distinct calculation mode of logistic regression (default 0)", true,
     take_integer<&g_regrDistinct>},
    {"regression", "linear|logistic", "fit a regression to every SNP in place of MDR", true, take_regression},
    {"order", "K or A-B", "SNPs in a combination, or a range of such orders (default 2)", true, take_order},
    {"cv", "integer", "cross-validation folds (default 10)", true, take_integer<&cvfold>},
    {"cvfrom", "integer", "first fold to compute, from 0 (default 0)", true, take_integer<&cv_start>},
    {"gpu", "integer", "workers: GPUs, or processor cores without a GPU (default -1: all)", true,
     take_integer<&gpu>},
    {"measure", "ba|accuracy|homogeneity|gamma|tau-b|tau-c|somers_d1|somers_d2|nmi|lr",
     "ranks combinations (required for MDR)", true, take_measure},
    {"missing", "none|mc|complete|available", "treatment of missing genotypes (default available)", true,
     take_missing},
    {"iter", "integer", "iteration limit of logistic regression (default 20)", true,
     take_integer<&g_logisIter>},
    {"tie", "integer", "tied cells: 0 high risk, 1 low risk, other: not classified (default 0)", true,
     take_argument<&RunArguments::tie, &g_tieidx>},
    {"top", "integer", "combinations to keep (default 10)", true,
     take_argument<&RunArguments::top, &g_topidx>},
    {"shuffling", "integer", "non-zero: shuffle the samples before dealing them into folds (default 0)", true,
     take_argument<&RunArguments::shuffling, &g_shuidx>},
    {"thread", "integer", "threads per block, at least 1 (required)", true, take_integer<&g_cntThreadCuda>},
    {"block", "integer", "blocks per launch, at least 1 (required)", true, take_integer<&g_cntBlockCuda>},
    {"device", "auto|cpu|cuda", "where to compute (default auto: CUDA if there is a device)", false,
     take_device},
    {"mode", "0|1|2|3",
     "cross-validated: 1 keeps the best combinations, 0 those above a permutation threshold; exhaustive, "
     "without "
     "folds: 3 keeps the best, 2 those above a permutation threshold (default 1)",
     false, take_mode},
    {"seed", "integer",
     "seed of --shuffling in place of the time of day, so that a run repeats, and of --permutations", false,
     take_seed},
    {"precision", "single|double", "arithmetic of regressions (default single)", false, take_precision},
    {"tidy", "path", "writes the results a second time, as a tab-separated table", false,
     take_path<&RunArguments::tidy>},
    {"checkpoint", "path",
     "keeps how far the run has come in a file, from which the same command goes on after a fault, a kill or "
     "a "
     "signal",
     false, take_path<&RunArguments::checkpoint>},
    {"permutations", "integer",
     "repeats a cross-validated search so often with permuted classes, for p-values corrected for the whole "
     "search "
     "(default 0)",
     false, take_count<&RunArguments::permutations, 0>},
    {"stop-after", "integer",
     "ends the permutations when so many reach the best values of the run (default: never)", false,
     take_count<&RunArguments::stop_after, 1>},
    {"shared-input", "0|1",
     "of a run over several machines: 1 if every rank is to read the genotype file itself, from a file "
     "system that "
     "all share (default 0: rank 0 reads it and sends it to the others)",
     false, take_count<&RunArguments::shared_input, 0, 1>},
    {"progress", "auto|on|off", "progress on standard error (default auto: on a terminal)", false,
     take_progress},
};

}  // namespace

std::span<const Option> option_table() {
  return kOptions;
}

std::span<const char* const> measure_names() {
  return kMeasures;
}

std::span<const char* const> missing_names() {
  return kMissingMethods;
}

const Option* find_option(const std::string& name) {
  for (const Option& option : kOptions) {
    if (strcasecmp(option.name, name.c_str()) == 0) {
      return &option;
    }
  }
  return nullptr;
}
