// SPDX-License-Identifier: Apache-2.0
//
// tavo-convert: converts between genotype formats and says what genotype files hold.
#include <htslib/hts.h>
#include <zlib.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

#include "tools/convert.h"

namespace {

constexpr int kRefused = 1;
constexpr int kWrongUsage = 2;
constexpr int kSignalStatus = 128;

volatile std::sig_atomic_t stop_signal = 0;

void note_signal(int number) {
  stop_signal = number;
}

// The run ends by itself after a signal, so that no temporary file stays behind. Blocking calls are
// interrupted.
void catch_signals() {
  struct sigaction action {};
  action.sa_handler = note_signal;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    // What the parent had ignored (nohup) stays ignored.
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
      sigaction(number, &action, nullptr);
    }
  }
}

void complain(const std::string& message) {
  std::fprintf(stderr, "tavo-convert: %s\n", message.c_str());
}

bool print(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

std::string version_text() {
  return std::string("tavo-convert ") + TAVO_VERSION + "\ncompiler: " + __VERSION__ +
         "\nzlib: " + zlibVersion() + "\nhtslib: " + hts_version() + "\n";
}

Status run(const ConvertOptions& options, ConvertReport* report) {
  switch (options.task) {
    case ConvertOptions::Task::kHelp:
      report->text = convert_usage();
      return {};
    case ConvertOptions::Task::kVersion:
      report->text = version_text();
      return {};
    case ConvertOptions::Task::kInfo:
      return describe_genotypes(options, report);
    case ConvertOptions::Task::kConvert:
      break;
  }
  catch_signals();
  return convert(options, stop_signal, report);
}

int run_command(const std::vector<std::string>& words) {
  ConvertOptions options;
  if (Status usage = parse_convert_options(words, &options); !usage.ok()) {
    complain(usage.message() + " (tavo-convert --help lists the options)");
    return kWrongUsage;
  }
  ConvertReport report;
  const Status status = run(options, &report);
  for (const std::string& warning : report.warnings) {
    complain("warning: " + warning);
  }
  if (!status.ok()) {
    complain(status.message());
    return stop_signal != 0 ? kSignalStatus + stop_signal : kRefused;
  }
  if (!print(report.text)) {
    complain("cannot write to standard output");
    return kRefused;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run_command(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  } catch (const std::bad_alloc&) {
    complain("out of memory");
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return kRefused;
}
