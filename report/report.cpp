// SPDX-License-Identifier: Apache-2.0
#include "report/report.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include "report/mdr_json.h"
#include "report/page.h"
#include "report/recount.h"
#include "report/regression_page.h"
#include "report/regression_table.h"
#include "report/result_file.h"
#include "tools/option_words.h"
#include "util/output_file.h"
#include "util/stop_signal.h"

namespace {

// What a page holds of an order.
constexpr MdrJsonLimits kPageLimits = {5000, 200};

// Where the report goes. The first failure to write is kept.
class Output {
 public:
  Status open(const std::optional<std::string>& path) {
    to_file_ = path.has_value();
    return to_file_ ? file_.open(*path, OutputFile::Otherwise::kWriteDirectly) : Status();
  }

  void write(std::string_view text) {
    if (!status_.ok()) {
      return;
    }
    if (to_file_) {
      status_ = file_.write(text.data(), text.size());
    } else if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
      status_ = Status::failure("cannot write to standard output");
    }
  }

  Status close() {
    if (status_.ok()) {
      status_ = to_file_                   ? file_.commit()
                : std::fflush(stdout) == 0 ? Status()
                                           : Status::failure("cannot write to standard output");
    }
    return status_;
  }

 private:
  bool to_file_ = false;
  OutputFile file_;
  Status status_;
};

void begin_results(const char* kind, JsonWriter* json) {
  json->begin_object();
  json->member("program", "tavo-report");
  json->member("kind", kind);
}

Status write_regression(const ReportOptions& options, ResultFile& input, JsonWriter* json,
                        std::vector<std::string>* warnings) {
  RegressionTable format;
  std::unique_ptr<VariantMap> map;
  Status status = format.begin(input.table());
  if (status.ok() && options.map && !options.json) {
    map = std::make_unique<VariantMap>();
    status = map->open(*options.map);
  }
  if (!status.ok()) {
    return status;
  }
  begin_results(format.kind(), json);
  if (options.json) {
    status = write_regression_rows(format, input.table(), input.reader(), json);
  } else {
    size_t n_unplaced = 0;
    status = write_regression_page(format, input.table(), input.reader(), map.get(), json, &n_unplaced);
    if (status.ok() && n_unplaced > 0) {
      warnings->push_back(*options.map + ": does not have " + std::to_string(n_unplaced) +
                          " SNPs of the results; they are not in the Manhattan plot");
    }
  }
  json->end_object();
  return status;
}

// Nothing is written before everything is read.
Status write_mdr(const ReportOptions& options, ResultFile& input, JsonWriter* json,
                 std::vector<std::string>* warnings) {
  MdrResults results;
  Status status = input.read_mdr(&results);
  if (status.ok() && options.genotypes) {
    status = recount_cells(*options.genotypes, &results, warnings);
  }
  if (!status.ok()) {
    return status;
  }
  begin_results(results.setting("analysis") == "gmdr" ? "gmdr" : "mdr", json);
  json->member("source", input.kind() == ResultKind::kCvReport ? "report" : "table");
  write_mdr_members(results, options.json ? MdrJsonLimits() : kPageLimits, json);
  json->end_object();
  return {};
}

// The report would take the place of what it is made from.
Status check_output(const ReportOptions& options) {
  std::error_code not_there;
  for (const auto& [name, path] : {std::pair<const char*, std::optional<std::string>>{"--in", options.input},
                                   {"--genotypes", options.genotypes},
                                   {"--map", options.map}}) {
    if (options.output && path && std::filesystem::equivalent(*path, *options.output, not_there)) {
      return Status::failure(*options.output + ": --out is the same file as " + name);
    }
  }
  return {};
}

}  // namespace

const char* const kReportUsage =
    "usage: tavo-report --in RESULTS --out FILE [--OPTION VALUE ...]\n\n"
    "Shows results of tavo on a page that opens in any browser, without a network; or rewrites them as "
    "JSON.\n\n"
    "  --in FILE\n      the table that tavo --tidy wrote, of any kind of run, plain or gzip; or the report "
    "of a\n"
    "      cross-validated run (--out), which holds less\n"
    "  --out FILE\n      the page, or the JSON text (default for JSON: standard output)\n"
    "  --format html|json\n      what to write (default html)\n"
    "  --genotypes FILE\n      genotype file of an MDR run: counts the genotypes of the best 100 "
    "combinations of each\n"
    "      order, where the table has 20 and the report none\n"
    "  --map FILE\n      where the SNPs of a regression are: a .bim file, a VCF, or a table with columns "
    "snp, chr and\n"
    "      pos (default: their order in the genotype file)\n"
    "  --title TEXT\n      title of the page (default: the name of the results)\n"
    "  --help, --version\n      alone on the command line\n\n"
    "Examples:\n\n"
    "  tavo-report --in result.tsv --out result.html\n"
    "  tavo-report --in result.csv --genotypes data.tavo --out result.html\n"
    "  tavo-report --in logistic.tsv --map study.bim --title \"Study, logistic\" --out logistic.html\n"
    "  tavo-report --in result.tsv --format json | python3 -m json.tool\n\n"
    "Status: 0 done; 1 the input is refused or the output cannot be written; 2 wrong usage; 128 + signal "
    "when\n"
    "stopped.\n";

Status parse_report_options(const std::vector<std::string>& words, ReportOptions* options) {
  std::optional<std::string> input;
  std::optional<std::string> format;
  Status status = collect_options(words, {{"--in", &input},
                                          {"--out", &options->output},
                                          {"--format", &format},
                                          {"--genotypes", &options->genotypes},
                                          {"--map", &options->map},
                                          {"--title", &options->title}});
  if (status.ok()) {
    status = one_of("--format", format, "html", "json", &options->json);
  }
  if (!status.ok()) {
    return status;
  }
  if (!input || (!options->output && !options->json)) {
    return Status::failure(!input ? "--in is needed" : "--out is needed for a page");
  }
  options->input = *input;
  return {};
}

Status make_report(const ReportOptions& options, std::vector<std::string>* warnings) {
  if (!options.json && !has_page()) {
    return Status::failure(
        "this build cannot make pages: its plotting library was missing when it was built (docs/report.md "
        "says "
        "how to get it); --format json works");
  }
  Status status = check_output(options);
  ResultFile input;
  if (status.ok()) {
    status = input.open(options.input);
  }
  if (!status.ok()) {
    return status;
  }
  const bool of_regression = input.kind() == ResultKind::kRegressionTable;
  if (options.genotypes && of_regression) {
    warnings->push_back("--genotypes has no use for a regression");
  }
  if (options.map && (!of_regression || options.json)) {
    warnings->push_back("--map has a use for the page of a regression only");
  }
  Output output;
  if (status = output.open(options.output); !status.ok()) {
    return status;
  }
  const auto take = [&output](std::string_view text) { output.write(text); };
  const auto data = [&] {
    JsonWriter json(take);
    status = of_regression ? write_regression(options, input, &json, warnings)
                           : write_mdr(options, input, &json, warnings);
  };
  if (options.json) {
    data();
  } else {
    write_page(options.title.value_or(std::filesystem::path(options.input).filename().string()), data, take);
  }
  if (status.ok() && stop_signal() != 0) {
    status = stopped(stop_signal());
  }
  return status.ok() ? output.close() : status;
}
