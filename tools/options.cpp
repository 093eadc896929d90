// SPDX-License-Identifier: Apache-2.0
#include "tools/options.h"

#include <strings.h>

#include <optional>

#include "tools/quoted.h"

namespace {

bool same_name(const std::string& word, const char* name) {
  return strcasecmp(word.c_str(), name) == 0;
}

// The options that take a value, as they were given.
struct Given {
  std::optional<std::string> in;
  std::optional<std::string> out;
  std::optional<std::string> class_name;
  std::optional<std::string> transpose;
  std::optional<std::string> info;

  std::optional<std::string>* find(const std::string& word) {
    return same_name(word, "--in")          ? &in
           : same_name(word, "--out")       ? &out
           : same_name(word, "--class")     ? &class_name
           : same_name(word, "--transpose") ? &transpose
           : same_name(word, "--info")      ? &info
                                            : nullptr;
  }
};

Status collect(const std::vector<std::string>& words, Given* given) {
  for (size_t i = 0; i < words.size(); i += 2) {
    if (same_name(words[i], "--help") || same_name(words[i], "--version")) {
      return Status::failure(words[i] + " must stand alone on the command line");
    }
    std::optional<std::string>* value = given->find(words[i]);
    if (value == nullptr) {
      return Status::failure("unknown option " + quoted(words[i]));
    }
    if (value->has_value()) {
      return Status::failure("option " + words[i] + " is given twice");
    }
    if (i + 1 == words.size() || words[i + 1].empty()) {
      return Status::failure("option " + words[i] + " needs a value");
    }
    *value = words[i + 1];
  }
  return {};
}

}  // namespace

Status parse_convert_options(const std::vector<std::string>& words, ConvertOptions* options) {
  *options = ConvertOptions();
  if (words.size() == 1 && same_name(words[0], "--help")) {
    options->task = ConvertOptions::Task::kHelp;
    return {};
  }
  if (words.size() == 1 && same_name(words[0], "--version")) {
    options->task = ConvertOptions::Task::kVersion;
    return {};
  }
  Given given;
  Status status = collect(words, &given);
  if (!status.ok()) {
    return status;
  }
  if (given.transpose) {
    if (*given.transpose != "0" && *given.transpose != "1") {
      return Status::failure("option --transpose: found " + quoted(*given.transpose) + ", expected 0 or 1");
    }
    options->layout_given = true;
    options->layout = *given.transpose == "1" ? Layout::kTransposed : Layout::kNormal;
  }
  if (given.info) {
    if (given.in || given.out || given.class_name) {
      return Status::failure("--info goes with --transpose only");
    }
    options->task = ConvertOptions::Task::kInfo;
    options->input = *given.info;
    return {};
  }
  if (!given.in || !given.out) {
    return Status::failure("--in and --out are needed, or --info");
  }
  options->input = *given.in;
  options->output = *given.out;
  options->class_name = given.class_name.value_or(options->class_name);
  return {};
}

std::string convert_usage() {
  return R"(usage: tavo-convert --in TABLE --out FILE [--class NAME] [--transpose 0|1]
       tavo-convert --info FILE [--transpose 0|1]

Makes a genotype file for tavo from a text table, or says what a genotype file holds.

  --in PATH
      the table, plain or gzip: a header line of names, then a line for each sample; fields separated by
      tabs, commas or blanks; genotypes 0, 1, 2, missing as NA, -9, -1 or empty; class 0 (control), 1 (case)
  --out PATH
      the genotype file
  --class NAME
      the name of the class column; all other columns are SNPs (default Class)
  --transpose 0|1
      1: the SNP-major layout (default 0); with --info: the layout to assume where the file's size fits both
  --info PATH
      says what a genotype file holds
  --help, --version
      alone on the command line

Example:

  tavo-convert --in table.tsv.gz --out data.tavo --class target

Status: 0 done; 1 the input is refused or the output cannot be written; 2 wrong usage; 128 + signal when stopped.
)";
}
